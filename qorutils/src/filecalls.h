// The file calls of this wing. All are weak, so that a test program of internals puts its own
// definitions in their place and breaks them on purpose.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace filecalls {

// open(2); a file that is created is readable and writable for everybody, less the umask.
int openFile(const char* path, int flags);

// read(2) and write(2), which may do less than they are asked for.
ssize_t readBytes(int fd, char* buffer, std::size_t size);
ssize_t writeBytes(int fd, const char* buffer, std::size_t size);

} // namespace filecalls
