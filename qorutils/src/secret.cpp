#include "secret.h"

#include <cstdlib>
#include <cstring>

#include "internal/replaceable.h"

namespace secret {

// The empty assembly reads the memory as far as the compiler can tell, so that zeros written just
// before a release are not dropped as useless.
QOR_REPLACEABLE void wipe(void* bytes, std::size_t size) {
    std::memset(bytes, 0, size);
    __asm__ __volatile__("" : : "r"(bytes) : "memory");
}

QOR_REPLACEABLE void* allocate(std::size_t size) {
    return std::calloc(1, size);
}

QOR_REPLACEABLE void release(void* bytes, std::size_t) {
    std::free(bytes);
}

void dispose(void* bytes, std::size_t size) {
    if (bytes != nullptr) {
        wipe(bytes, size);
        release(bytes, size);
    }
}

} // namespace secret
