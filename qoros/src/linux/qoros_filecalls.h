// The file calls of this wing that tests break on purpose. All are weak: a test program of
// internals puts its own definitions in their place.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace oscalls {

// read(2) and write(2), which may be interrupted and do less than they are asked for.
ssize_t dRead(int fd, char* cpBuffer, size_t dSize);
ssize_t dWrite(int fd, const char* cpBytes, size_t dSize);

// fchown(2) and close(2); true on success.
bool fChangeOwner(int fd, uid_t dOwner, gid_t dGroup);
bool fClose(int fd);

} // namespace oscalls
