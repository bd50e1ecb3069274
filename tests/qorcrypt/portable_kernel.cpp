// Makes the library calculate as on a processor without the instructions for faster rows.
#include "qorcrypt/src/limb_rows.h"

namespace qorcrypt {

const LimbKernel* fastKernel() {
    return nullptr;
}

} // namespace qorcrypt
