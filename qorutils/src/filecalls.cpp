#include "filecalls.h"

#include <fcntl.h>
#include <unistd.h>

#include "internal/replaceable.h"

namespace filecalls {

QOR_REPLACEABLE int openFile(const char* path, int flags) {
    return open(path, flags, 0666);
}

QOR_REPLACEABLE ssize_t readBytes(int fd, char* buffer, std::size_t size) {
    return read(fd, buffer, size);
}

QOR_REPLACEABLE ssize_t writeBytes(int fd, const char* buffer, std::size_t size) {
    return write(fd, buffer, size);
}

QOR_REPLACEABLE off_t seekEnd(int fd) {
    return lseek(fd, 0, SEEK_END);
}

QOR_REPLACEABLE int closeFile(int fd) {
    return close(fd);
}

} // namespace filecalls
