#include "vectors.h"

#include <cstdlib>

#include <fstream>
#include <sstream>

namespace support {

std::string vectorPath(const std::string& name) {
    const char* const folder = std::getenv("QORMON_VECTORS");
    return (folder != nullptr ? folder : QORMON3_SOURCE_DIR "/../shared/vectors") + ("/" + name);
}

std::string readVectors(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(vectorPath(name)).rdbuf();
    return text.str();
}

} // namespace support
