#include "qoros_internal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstring>

static_assert(offsetof(QorOsFind, dir) == 0);
static_assert(offsetof(QorOsFind, path) == sizeof(void*));
static_assert(offsetof(QorOsFind, pattern) == sizeof(void*) + QOR_PATH_SIZE);
static_assert(sizeof(dirent::d_name) <= QOR_PATH_SIZE);

namespace {

bool fSame(const char* cpszOne, const char* cpszOther) {
    return strcmp(cpszOne, cpszOther) == 0;
}

// Copies dLength bytes as a text of its own, or refuses what does not fit.
bool fTakeText(char (&szOut)[QOR_PATH_SIZE], const char* cpText, size_t dLength) {
    if (dLength >= QOR_PATH_SIZE) {
        errno = ENAMETOOLONG;
        return false;
    }
    strncpy_qor(szOut, sizeof szOut, cpText, dLength);
    return true;
}

bool fTakeText(char (&szOut)[QOR_PATH_SIZE], const char* cpszText) {
    return fTakeText(szOut, cpszText, strlen(cpszText));
}

// Kept: in front of a "/" that is the first character stands no directory, not the root.
bool fSplitFileName(const char* cpszFull, QorOsFind* pstFind) {
    const char* const cpSlash = strrchr(cpszFull, '/');
    const char* const cpszFile = cpSlash == nullptr ? cpszFull : cpSlash + 1;
    const bool fDirectory = cpSlash == nullptr ? fTakeText(pstFind->path, "./")
                                               : fTakeText(pstFind->path, cpszFull,
                                                           static_cast<size_t>(cpSlash - cpszFull));
    return fDirectory && fTakeText(pstFind->pattern, *cpszFile == '\0' ? "*" : cpszFile);
}

bool fSearchWholeDirectory(const char* cpszDirectory, QorOsFind* pstFind) {
    const size_t dLength = strlen(cpszDirectory);
    const bool fEndsWithSlash = dLength > 0 && cpszDirectory[dLength - 1] == '/';
    // The slash needs room, too.
    if (!fTakeText(pstFind->path, cpszDirectory, dLength + (fEndsWithSlash ? 0 : 1))) {
        return false;
    }
    if (!fEndsWithSlash) {
        strcat_qor(pstFind->path, sizeof pstFind->path, "/");
    }
    return fTakeText(pstFind->pattern, "*");
}

// Finds out which directory to search for what.
bool fSetUpSearch(const char* cpszPattern, QorOsFind* pstFind) {
    if (strchr(cpszPattern, '*') != nullptr) {
        return fSplitFileName(cpszPattern, pstFind);
    }
    struct stat stStatus {};
    if (stat(cpszPattern, &stStatus) != 0) {
        return false;
    }
    return S_ISDIR(stStatus.st_mode) ? fSearchWholeDirectory(cpszPattern, pstFind)
                                     : fSplitFileName(cpszPattern, pstFind);
}

bool fOpenDirectory(QorOsFind* pstFind) {
    QOROS_LOG(QOR_LOG_TRACE, "TRACE FindFirst: splitted input - path=%s, file=%s", pstFind->path,
              pstFind->pattern);
    pstFind->dir = opendir(pstFind->path);
    if (pstFind->dir == nullptr) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_ERROR, "ERROR FindFirst: opendir failed: %d=%s", error,
                  ErrorText(error).cpsz());
        return false;
    }
    return true;
}

// Kept: "." and ".." are left out for the patterns that mean everything, and for no other.
bool fMatches(const char* cpszName, const char* cpszPattern) {
    if (fSame(cpszPattern, "*.*") || fSame(cpszPattern, "*.") || fSame(cpszPattern, "*")) {
        return !fSame(cpszName, ".") && !fSame(cpszName, "..");
    }
    const char* const cpStar = strchr(cpszPattern, '*');
    if (cpStar == nullptr) {
        return fSame(cpszName, cpszPattern);
    }
    const size_t dPrefix = static_cast<size_t>(cpStar - cpszPattern);
    const size_t dSuffix = strlen(cpStar + 1);
    const size_t dName = strlen(cpszName);
    return dName >= dPrefix + dSuffix && memcmp(cpszName, cpszPattern, dPrefix) == 0 &&
           memcmp(cpszName + dName - dSuffix, cpStar + 1, dSuffix) == 0;
}

// The next entry that matches; null at the end. No other thread reads the stream of a search.
const dirent* pstNextMatch(const QorOsFind* pstFind) {
    const dirent* pstEntry;
    do {
        pstEntry = readdir(pstFind->dir); // NOLINT(concurrency-mt-unsafe)
        if (pstEntry == nullptr) {
            return nullptr;
        }
        QOROS_LOG(QOR_LOG_TRACE, "TRACE FindNext: file = %s ; search file = %s", pstEntry->d_name,
                  pstFind->pattern);
    } while (!fMatches(pstEntry->d_name, pstFind->pattern));
    return pstEntry;
}

} // namespace

uint32_t QorOsFindFirst(QorOsFind* find, const char* pattern, char* name, uint32_t* type,
                        uint32_t* time, uint32_t* size) {
    if (find == nullptr) {
        return 0;
    }
    find->dir = nullptr;
    if (pattern == nullptr || name == nullptr || !fSetUpSearch(pattern, find) ||
        !fOpenDirectory(find)) {
        return 0;
    }
    if (QorOsFindNext(find, name, type, time, size) == 0) {
        const ErrnoKeeper keeper;
        QorOsFindClose(find);
        return 0;
    }
    return 1;
}

uint32_t QorOsFindNext(QorOsFind* find, char* name, uint32_t* type, uint32_t* time,
                       uint32_t* size) {
    if (find == nullptr || find->dir == nullptr || name == nullptr) {
        return 0;
    }
    *name = '\0';
    const dirent* const entry = pstNextMatch(find);
    if (entry == nullptr) {
        return 0;
    }
    strcpy_qor(name, QOR_PATH_SIZE, entry->d_name);
    // By the open stream, so that no path is too long and none changes its meaning meanwhile.
    struct stat status {};
    if (fstatat(dirfd(find->dir), entry->d_name, &status, 0) != 0) {
        return 0;
    }
    vSetOutput(type, S_ISDIR(status.st_mode) ? QOR_ENTRY_DIRECTORY : QOR_ENTRY_OTHER);
    vSetOutput(time, static_cast<uint32_t>(status.st_mtime));
    vSetOutput(size, static_cast<uint32_t>(status.st_size));
    return 1;
}

uint32_t QorOsFindClose(QorOsFind* find) {
    if (find == nullptr) {
        return 0;
    }
    DIR* const dir = find->dir;
    find->dir = nullptr; // also where closing fails, since the stream is gone then
    return dir == nullptr || closedir(dir) == 0 ? 1 : 0;
}
