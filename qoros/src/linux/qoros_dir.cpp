#include "qoros_internal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include <memory>
#include <new>

namespace {

// What a path to create may have, in bytes with its terminator.
constexpr size_t dCreatePathSize = 500;

// What the path of an entry to delete may have, in bytes with its terminator.
constexpr size_t dDeletePathSize = 256;

constexpr mode_t dDirectoryMode = 0700;

bool fCreate(const char* cpszDirectory) {
    return mkdir(cpszDirectory, dDirectoryMode) == 0;
}

bool fMayEnter(const char* cpszDirectory) {
    return access(cpszDirectory, X_OK) == 0;
}

// Kept: the backslash ends a directory's path, too, and yet is part of the names that follow.
bool fIsSeparator(char c) {
    return c == '/' || c == '\\';
}

// The directories that a deletion has entered through links. Each is entered once: a second time
// would find what could not be deleted, and links that lead back to where they are would have no
// end to speak of, since two of them in one directory double the work with each level.
class LinkedDirectories {
public:
    LinkedDirectories() = default;
    LinkedDirectories(const LinkedDirectories&) = delete;
    LinkedDirectories& operator=(const LinkedDirectories&) = delete;
    ~LinkedDirectories() {
        while (pstFirst != nullptr) {
            const std::unique_ptr<const Directory> pstGone(pstFirst);
            pstFirst = pstGone->pstNext;
        }
    }

    // False for one that is known already and where memory is short.
    bool fAdd(const struct stat& stStatus) {
        for (const Directory* pst = pstFirst; pst != nullptr; pst = pst->pstNext) {
            if (pst->dDevice == stStatus.st_dev && pst->dInode == stStatus.st_ino) {
                return false;
            }
        }
        const auto* const pstNew =
            new (std::nothrow) Directory{stStatus.st_dev, stStatus.st_ino, pstFirst};
        if (pstNew == nullptr) {
            return false;
        }
        pstFirst = pstNew;
        return true;
    }

private:
    struct Directory {
        dev_t dDevice;
        ino_t dInode;
        const Directory* pstNext;
    };
    const Directory* pstFirst = nullptr;
};

// A deletion on its way: the path where it is, and where links have led it.
struct Deletion {
    char szPath[dDeletePathSize];
    LinkedDirectories linked;
};

// A level's search is on the heap, as paths allow for more levels than a small stack.
struct LevelSearch {
    QorOsFind stFind;
    char szPattern[dDeletePathSize];
    char szName[QOR_PATH_SIZE];
};

void vRemoveEntry(Deletion* pst, const char* cpszName, uint32_t dType);

void vEmptyDirectory(Deletion* pst) {
    const std::unique_ptr<LevelSearch> pstLevel(new (std::nothrow) LevelSearch);
    if (!pstLevel) {
        return;
    }
    // Where only a part of it fits it still means all entries of this directory.
    strcpy_qor(pstLevel->szPattern, dDeletePathSize, pst->szPath);
    strcat_qor(pstLevel->szPattern, dDeletePathSize, "/*.*");
    uint32_t dType = 0;
    uint32_t fFound = QorOsFindFirst(&pstLevel->stFind, pstLevel->szPattern, pstLevel->szName,
                                     &dType, nullptr, nullptr);
    while (fFound != 0) {
        vRemoveEntry(pst, pstLevel->szName, dType);
        fFound = QorOsFindNext(&pstLevel->stFind, pstLevel->szName, &dType, nullptr, nullptr);
    }
    QorOsFindClose(&pstLevel->stFind);
}

// Whether to empty the directory at the path: where only a link leads there, once.
bool fFirstVisit(Deletion* pst) {
    struct stat stStatus {};
    if (lstat(pst->szPath, &stStatus) != 0) {
        return false;
    }
    return !S_ISLNK(stStatus.st_mode) ||
           (stat(pst->szPath, &stStatus) == 0 && pst->linked.fAdd(stStatus));
}

// Failures show in the directory that then can't be removed.
void vRemoveEntry(Deletion* pst, const char* cpszName, uint32_t dType) {
    if (strcmp(cpszName, ".") == 0 || strcmp(cpszName, "..") == 0) {
        return; // whatever a search gives, a deletion never climbs out of its directory
    }
    const size_t dLength = strlen(pst->szPath);
    if (dLength + 1 + strlen(cpszName) >= dDeletePathSize) {
        return; // a cut path would name something else
    }
    strcat_qor(pst->szPath, dDeletePathSize, "/");
    strcat_qor(pst->szPath, dDeletePathSize, cpszName);
    if (dType != QOR_ENTRY_DIRECTORY) {
        unlink(pst->szPath);
    } else if (fFirstVisit(pst)) {
        vEmptyDirectory(pst);
        rmdir(pst->szPath);
    }
    pst->szPath[dLength] = '\0';
}

} // namespace

uint32_t QorOsChkAndCreateDir(const char* path) {
    if (path == nullptr) {
        return 0;
    }
    const size_t length = strlen(path);
    if (QorOsFileExists(path) != 0 || length < 2) {
        return 1; // kept: whatever it is
    }
    if (length >= dCreatePathSize) {
        errno = ENAMETOOLONG;
        return 0;
    }
    char prefix[dCreatePathSize];
    for (size_t i = 1; i + 1 < length; ++i) {
        if (fIsSeparator(path[i])) {
            strncpy_qor(prefix, sizeof prefix, path, i);
            if (!fMayEnter(prefix) && !fCreate(prefix)) {
                return 0;
            }
        }
    }
    return (fMayEnter(path) ? access(path, W_OK) == 0 : fCreate(path)) ? 1 : 0;
}

uint32_t QorOsDeleteDir(const char* path) {
    return path != nullptr && rmdir(path) == 0 ? 1 : 0;
}

uint32_t QorOsDeleteDirTree(const char* path) {
    if (path == nullptr) {
        return 0;
    }
    if (strlen(path) >= dDeletePathSize) {
        errno = ENAMETOOLONG;
        return 0;
    }
    Deletion deletion;
    strcpy_qor(deletion.szPath, sizeof deletion.szPath, path);
    vEmptyDirectory(&deletion);
    return rmdir(path) == 0 ? 1 : 0;
}
