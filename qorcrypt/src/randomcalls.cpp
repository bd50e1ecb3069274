#include "randomcalls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "internal/replaceable.h"

namespace randomcalls {

QOR_REPLACEABLE int openDevice(const char* path, int flags) {
    return open(path, flags);
}

QOR_REPLACEABLE ssize_t readBytes(int fd, unsigned char* buffer, std::size_t size) {
    return read(fd, buffer, size);
}

QOR_REPLACEABLE void closeDevice(int fd) {
    close(fd);
}

QOR_REPLACEABLE bool isCharacterDevice(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode);
}

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
