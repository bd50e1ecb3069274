#include "randomcalls.h"

#include <sys/mman.h>

#include "internal/replaceable.h"

namespace randomcalls {

QOR_REPLACEABLE bool wipeOnFork(void* pages, std::size_t size) {
#if defined(MADV_WIPEONFORK)
    return madvise(pages, size, MADV_WIPEONFORK) == 0;
#else
    static_cast<void>(pages);
    static_cast<void>(size);
    return false;
#endif
}

} // namespace randomcalls
