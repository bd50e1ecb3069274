#include "configfile_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>

#include "filecalls.h"

namespace configio {

namespace {

// No system call is asked for more bytes than this: some refuse sizes that do not fit an int.
constexpr std::size_t transferSize = std::size_t{1} << 30;

// For both ways: neither a pipe without its other end nor a terminal is waited for, and a terminal
// does not become the process's own.
constexpr int openFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// A file on a network can make opening it wait, which a signal must not cut short. A file that is
// created is readable and writable for everybody, less the umask.
int openUninterrupted(const char* path, int flags) {
    int fd;
    do {
        fd = open(path, flags | openFlags, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// -1 for what is neither a regular file nor a character device.
off_t sizeOf(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0) {
        return -1;
    }
    if (S_ISCHR(status.st_mode)) {
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        return -1;
    }
    const off_t size = filecalls::seekEnd(fd);
    return size >= 0 && lseek(fd, 0, SEEK_SET) == 0 ? size : -1;
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t put = write(fd, bytes, std::min(size, transferSize));
        if (put == 0 || (put < 0 && errno != EINTR)) {
            return false;
        }
        const std::size_t done = put < 0 ? 0 : static_cast<std::size_t>(put);
        bytes += done;
        size -= done;
    }
    return true;
}

} // namespace

int openToRead(const char* path, off_t* size) {
    const int fd = openUninterrupted(path, O_RDONLY);
    if (fd < 0) {
        return -1;
    }
    *size = sizeOf(fd);
    if (*size < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

ssize_t readAll(int fd, void* buffer, std::size_t size) {
    char* const bytes = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = read(fd, bytes + done, std::min(size - done, transferSize));
        if (got == 0) {
            break;
        }
        if (got < 0 && errno != EINTR) {
            return -1;
        }
        done += got < 0 ? 0 : static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

Written writeFile(const char* path, const void* bytes, std::size_t size) {
    const int fd = openUninterrupted(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (fd < 0) {
        return Written::notOpened;
    }
    const bool written = writeAll(fd, static_cast<const char*>(bytes), size);
    // Some file systems tell only now that a write failed. Not retried: the descriptor is gone.
    const bool closed = close(fd) == 0;
    return written && closed ? Written::whole : Written::partly;
}

GroupUmask::GroupUmask() : oldMask(umask(2)) {}

GroupUmask::~GroupUmask() {
    umask(oldMask);
}

} // namespace configio
