#include "environment.h"

#include <cstdlib>

namespace support {

bool runsInCi() {
    return std::getenv("CI") != nullptr;
}

} // namespace support
