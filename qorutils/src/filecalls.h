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

// lseek(2) to the end, where a file's size is.
off_t seekEnd(int fd);

// close(2), for a file that was written: some file systems tell only then that a write failed.
int closeFile(int fd);

} // namespace filecalls
