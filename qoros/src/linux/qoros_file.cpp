#include "qoros_internal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <cstdlib>

namespace {

// Blocks of a copy where the file system prefers none, in bytes.
constexpr size_t dDefaultBlock = 512;

constexpr mode_t dModeBits = 07777;

// One end of a copy.
struct OpenFile {
    int fd = -1;
    struct stat stStatus {};
};

// The result of steps that are all taken whatever became of those before. errno ends up as the
// first failure left it.
class Steps {
public:
    void vTake(bool fDone) {
        if (!fDone && dError == 0) {
            dError = errno;
        }
    }
    bool fAllDone() const {
        if (dError != 0) {
            errno = dError;
        }
        return dError == 0;
    }

private:
    int dError = 0;
};

bool fOpenSource(OpenFile* pstSource, const char* cpszPath) {
    pstSource->fd = dOpenUninterrupted(cpszPath, O_RDONLY, 0);
    if (pstSource->fd == -1 || fstat(pstSource->fd, &pstSource->stStatus) != 0) {
        return false;
    }
    if (S_ISDIR(pstSource->stStatus.st_mode)) {
        errno = EISDIR; // reading would say so, but only with the destination emptied
        return false;
    }
    return true;
}

bool fSameFile(const struct stat& stOne, const struct stat& stOther) {
    return stOne.st_dev == stOther.st_dev && stOne.st_ino == stOther.st_ino;
}

// Empties the destination as O_TRUNC would, but not before it is known to be another file.
bool fOpenDestination(OpenFile* pstDest, const char* cpszPath, const OpenFile& stSource,
                      bool fNew) {
    const int dExclusive = fNew ? O_EXCL : 0;
    pstDest->fd = dOpenUninterrupted(cpszPath, O_WRONLY | O_CREAT | dExclusive,
                                     static_cast<mode_t>(stSource.stStatus.st_mode & dModeBits));
    if (pstDest->fd == -1 || fstat(pstDest->fd, &pstDest->stStatus) != 0) {
        return false;
    }
    if (fSameFile(stSource.stStatus, pstDest->stStatus)) {
        errno = EINVAL;
        return false;
    }
    return !S_ISREG(pstDest->stStatus.st_mode) || ftruncate(pstDest->fd, 0) == 0;
}

ssize_t dReadUninterrupted(int fd, char* cpBuffer, size_t dSize) {
    ssize_t dBytes;
    do {
        dBytes = read(fd, cpBuffer, dSize);
    } while (dBytes == -1 && errno == EINTR);
    return dBytes;
}

bool fWriteAll(int fd, const char* cpBytes, size_t dSize) {
    while (dSize > 0) {
        const ssize_t dWritten = write(fd, cpBytes, dSize);
        if (dWritten > 0) {
            cpBytes += dWritten;
            dSize -= static_cast<size_t>(dWritten);
        } else if (dWritten == 0) {
            errno = ENOSPC;
            return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool fCopyBytes(int fdSource, int fdDest, size_t dBlock) {
    char* const cpBuffer = static_cast<char*>(malloc(dBlock));
    if (cpBuffer == nullptr) {
        return false;
    }
    ssize_t dBytes;
    do {
        dBytes = dReadUninterrupted(fdSource, cpBuffer, dBlock);
    } while (dBytes > 0 && fWriteAll(fdDest, cpBuffer, static_cast<size_t>(dBytes)));
    vFree(cpBuffer);
    return dBytes == 0;
}

size_t dBlockOf(const struct stat& stStatus) {
    return stStatus.st_blksize > 0 ? static_cast<size_t>(stStatus.st_blksize) : dDefaultBlock;
}

// Closes the destination in any case. Kept: a refused owner fails the copy, though data and times
// are there.
void vFinish(Steps* pstSteps, const OpenFile& stDest, const char* cpszDest,
             const struct stat& stSource) {
    pstSteps->vTake(fchown(stDest.fd, stSource.st_uid, stSource.st_gid) == 0);
    pstSteps->vTake(close(stDest.fd) == 0);
    utimbuf stTimes{};
    stTimes.actime = stSource.st_atime;
    stTimes.modtime = stSource.st_mtime;
    pstSteps->vTake(utime(cpszDest, &stTimes) == 0);
}

void vCopyTo(Steps* pstSteps, const char* cpszDest, const OpenFile& stSource, bool fNew) {
    OpenFile stDest;
    const bool fCopied = fOpenDestination(&stDest, cpszDest, stSource, fNew) &&
                         fCopyBytes(stSource.fd, stDest.fd, dBlockOf(stDest.stStatus));
    pstSteps->vTake(fCopied);
    if (fCopied) {
        vFinish(pstSteps, stDest, cpszDest, stSource.stStatus);
    } else if (stDest.fd != -1) {
        close(stDest.fd);
    }
}

} // namespace

int dOpenUninterrupted(const char* cpszPath, int dFlags, mode_t dMode) {
    int fd;
    do {
        fd = open(cpszPath, dFlags | O_CLOEXEC, dMode);
    } while (fd == -1 && errno == EINTR);
    return fd;
}

uint32_t QorOsFileExists(const char* path) {
    return path != nullptr && access(path, F_OK) == 0 ? 1 : 0;
}

uint32_t QorOsGetFileSize(const char* path, uint32_t* size) {
    if (size == nullptr) {
        return 0;
    }
    struct stat status {};
    const bool known = path != nullptr && stat(path, &status) == 0;
    *size = known ? static_cast<uint32_t>(status.st_size) : 0;
    return known ? 1 : 0;
}

uint32_t QorOsSetFileTime(const char* path, int64_t time) {
    if (path == nullptr) {
        return 0;
    }
    utimbuf times{};
    times.actime = times.modtime = static_cast<time_t>(time);
    return utime(path, &times) == 0 ? 1 : 0;
}

uint32_t QorOsCopyFile(const char* source, const char* destination, int failIfExists) {
    if (source == nullptr || destination == nullptr) {
        return 0;
    }
    if (failIfExists != 0 && QorOsFileExists(destination) != 0) {
        errno = EEXIST;
        return 0;
    }
    OpenFile from;
    Steps steps;
    steps.vTake(fOpenSource(&from, source));
    if (steps.fAllDone()) {
        vCopyTo(&steps, destination, from, failIfExists != 0);
    }
    if (from.fd != -1) {
        steps.vTake(close(from.fd) == 0);
    }
    return steps.fAllDone() ? 1 : 0;
}

uint32_t QorOsDeleteFile(const char* path) {
    return path != nullptr && unlink(path) == 0 ? 1 : 0;
}

uint32_t QorOsRenameFile(const char* oldPath, const char* newPath) {
    return oldPath != nullptr && newPath != nullptr && rename(oldPath, newPath) == 0 ? 1 : 0;
}
