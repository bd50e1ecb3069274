#include "randomcalls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// On the definitions only: a replacement that sees the declarations has to win.
#define RANDOMCALLS_REPLACEABLE __attribute__((weak))

namespace randomcalls {

RANDOMCALLS_REPLACEABLE int openDevice(const char* path, int flags) {
    return open(path, flags);
}

RANDOMCALLS_REPLACEABLE ssize_t readBytes(int fd, unsigned char* buffer, std::size_t size) {
    return read(fd, buffer, size);
}

RANDOMCALLS_REPLACEABLE void closeDevice(int fd) {
    close(fd);
}

RANDOMCALLS_REPLACEABLE bool isCharacterDevice(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode);
}

RANDOMCALLS_REPLACEABLE bool wipeOnFork(void* pages, std::size_t size) {
#if defined(MADV_WIPEONFORK)
    return madvise(pages, size, MADV_WIPEONFORK) == 0;
#else
    static_cast<void>(pages);
    static_cast<void>(size);
    return false;
#endif
}

} // namespace randomcalls
