#include "filecalls.h"

#include <fcntl.h>
#include <unistd.h>

// On the definitions only: a replacement that sees the declarations has to win.
#define FILECALLS_REPLACEABLE __attribute__((weak))

namespace filecalls {

FILECALLS_REPLACEABLE int openFile(const char* path, int flags) {
    return open(path, flags, 0666);
}

FILECALLS_REPLACEABLE ssize_t readBytes(int fd, char* buffer, std::size_t size) {
    return read(fd, buffer, size);
}

FILECALLS_REPLACEABLE ssize_t writeBytes(int fd, const char* buffer, std::size_t size) {
    return write(fd, buffer, size);
}

FILECALLS_REPLACEABLE off_t seekEnd(int fd) {
    return lseek(fd, 0, SEEK_END);
}

FILECALLS_REPLACEABLE int closeFile(int fd) {
    return close(fd);
}

} // namespace filecalls
