#include "replaced_randomcalls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>
#include <numeric>

#include "qorcrypt/src/randomcalls.h"

RandomCalls randomCalls;

namespace randomcalls {

int openDevice(const char* path, int flags) {
    if (randomCalls.openInterrupts-- > 0 || !randomCalls.opens) {
        errno = randomCalls.opens ? EINTR : ENOENT;
        return -1;
    }
    ++randomCalls.openCount;
    randomCalls.openFlags = flags;
    return open(path, flags);
}

ssize_t readBytes(int fd, unsigned char* buffer, std::size_t size) {
    if (randomCalls.readInterrupts-- > 0 || !randomCalls.reads) {
        errno = randomCalls.reads ? EINTR : EIO;
        return -1;
    }
    if (randomCalls.fixedSeed) {
        std::iota(buffer, buffer + size, static_cast<unsigned char>(0));
        return static_cast<ssize_t>(size);
    }
    return read(fd, buffer, std::min(size, randomCalls.readLimit));
}

void closeDevice(int fd) {
    ++randomCalls.closeCount;
    close(fd);
}

bool isCharacterDevice(int) {
    return randomCalls.isDevice;
}

bool wipeOnFork(void* pages, std::size_t size) {
#if defined(MADV_WIPEONFORK)
    return randomCalls.kernelWipes && madvise(pages, size, MADV_WIPEONFORK) == 0;
#else
    return pages == nullptr && size == 0;
#endif
}

} // namespace randomcalls
