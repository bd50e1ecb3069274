// The system calls of the random generator. All are weak, so that a test program of internals puts
// its own definitions in their place and breaks them on purpose.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace randomcalls {

// open(2), read(2), which may do less than it is asked for, and close(2).
int openDevice(const char* path, int flags);
ssize_t readBytes(int fd, unsigned char* buffer, std::size_t size);
void closeDevice(int fd);

// Whether a descriptor is a character device, as opposed to a file that somebody put in its place.
bool isCharacterDevice(int fd);

// Has the kernel clear whole pages in every child process; false where it can't.
bool wipeOnFork(void* pages, std::size_t size);

} // namespace randomcalls
