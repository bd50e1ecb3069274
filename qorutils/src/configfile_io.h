// How configuration files are read and written whole.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace configio {

// Opens a regular file or a character device and takes its size, which is 0 for a device. Returns
// the descriptor, or -1.
int openToRead(const char* path, off_t* size);

// Reads up to `size` bytes. Returns their number, or -1 where reading fails.
ssize_t readAll(int fd, void* buffer, std::size_t size);

// How far writing a file came.
enum class Written { notOpened, partly, whole };

Written writeFile(const char* path, const void* bytes, std::size_t size);

// What is created while this lives may be written by the group: the umask of the process is 2.
class GroupUmask {
public:
    GroupUmask();
    ~GroupUmask();
    GroupUmask(const GroupUmask&) = delete;
    GroupUmask& operator=(const GroupUmask&) = delete;

private:
    mode_t oldMask;
};

} // namespace configio
