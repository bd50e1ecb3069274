#include "qoros_filecalls.h"

#include <unistd.h>

#include "internal/replaceable.h"

namespace oscalls {

QOR_REPLACEABLE ssize_t dRead(int fd, char* cpBuffer, size_t dSize) {
    return read(fd, cpBuffer, dSize);
}

QOR_REPLACEABLE ssize_t dWrite(int fd, const char* cpBytes, size_t dSize) {
    return write(fd, cpBytes, dSize);
}

QOR_REPLACEABLE bool fChangeOwner(int fd, uid_t dOwner, gid_t dGroup) {
    return fchown(fd, dOwner, dGroup) == 0;
}

QOR_REPLACEABLE bool fClose(int fd) {
    return close(fd) == 0;
}

} // namespace oscalls
