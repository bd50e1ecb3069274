#include "secret.h"

#include <cstdlib>

#include "internal/replaceable.h"
#include "internal/wipe.h"

namespace secret {

QOR_REPLACEABLE void wipe(void* bytes, std::size_t size) {
    qorWipe(bytes, size);
}

void* allocate(std::size_t size) {
    return std::calloc(1, size);
}

void dispose(void* bytes, std::size_t size) {
    if (bytes != nullptr) {
        wipe(bytes, size);
        std::free(bytes);
    }
}

} // namespace secret
