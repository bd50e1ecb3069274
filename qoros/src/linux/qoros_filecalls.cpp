#include "qoros_filecalls.h"

#include <unistd.h>

// On the definitions only: a replacement that sees the declarations has to win.
#define OSCALLS_REPLACEABLE __attribute__((weak))

namespace oscalls {

OSCALLS_REPLACEABLE ssize_t dRead(int fd, char* cpBuffer, size_t dSize) {
    return read(fd, cpBuffer, dSize);
}

OSCALLS_REPLACEABLE ssize_t dWrite(int fd, const char* cpBytes, size_t dSize) {
    return write(fd, cpBytes, dSize);
}

OSCALLS_REPLACEABLE bool fChangeOwner(int fd, uid_t dOwner, gid_t dGroup) {
    return fchown(fd, dOwner, dGroup) == 0;
}

OSCALLS_REPLACEABLE bool fClose(int fd) {
    return close(fd) == 0;
}

} // namespace oscalls
