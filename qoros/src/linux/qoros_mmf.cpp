#include "qoros_internal.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

static_assert(offsetof(QorOsMmf, fd) == 0);
static_assert(offsetof(QorOsMmf, shmId) == 4);
static_assert(offsetof(QorOsMmf, size) == 8);
static_assert(offsetof(QorOsMmf, address) == 16);
static_assert(offsetof(QorOsMmf, created) == 24);
static_assert(offsetof(QorOsMmf, lastError) == 28);
static_assert(sizeof(QorOsMmf) == 32);

namespace {

// What one write takes at most, in bytes; more would be cut or refused, depending on the system.
constexpr uint32_t dMaxWrite = 0x7FFFF000;

constexpr QorOsMmf stNoBlock = {-1, -1, 0, nullptr, 0, 0};

// Remembers errno as the cause of the failure and returns it for the message.
int dSaveError(QorOsMmf* pstMmf) {
    const int error = errno;
    pstMmf->lastError = static_cast<uint32_t>(error);
    return error;
}

void vCloseFile(QorOsMmf* pstMmf) {
    const ErrnoKeeper keeper;
    close(pstMmf->fd);
    pstMmf->fd = -1;
}

bool fOpenFile(QorOsMmf* pstMmf, const char* cpszName) {
    pstMmf->created = access(cpszName, F_OK) != 0 ? 1 : 0;
    const int create = pstMmf->created != 0 ? O_CREAT : 0;
    pstMmf->fd = dOpenUninterrupted(cpszName, O_RDWR | O_APPEND | create, 0600);
    if (pstMmf->fd == -1) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_FATAL, "FATAL QorOsMmfCreate: file %s could not be %s (%d=%s)", cpszName,
                  pstMmf->created != 0 ? "created" : "opened", error, ErrorText(error).cpsz());
        pstMmf->created = 0;
        return false;
    }
    return true;
}

// Takes the size of an existing file; one that 32 bits cannot hold is refused.
bool fReadFileSize(QorOsMmf* pstMmf, const char* cpszName) {
    struct stat status {};
    bool fRead = fstat(pstMmf->fd, &status) == 0;
    if (fRead && status.st_size > static_cast<off_t>(UINT32_MAX)) {
        errno = EOVERFLOW;
        fRead = false;
    }
    if (!fRead) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfCreate: file status %s could not be read (%d=%s)",
                  cpszName, error, ErrorText(error).cpsz());
        return false;
    }
    pstMmf->size = static_cast<uint32_t>(status.st_size);
    return true;
}

// Saves errno as the cause. Always false.
bool fReportWriteFailure(QorOsMmf* pstMmf, uint32_t dBytes, const char* cpszName) {
    const int error = dSaveError(pstMmf);
    QOROS_LOG(QOR_LOG_FATAL,
              "FATAL QorOsMmfCreate: write (%u bytes) to created file %s failed (%d=%s)", dBytes,
              cpszName, error, ErrorText(error).cpsz());
    return false;
}

// Appends zeros up to dSize, in a single write; a signal before its first byte makes it start over.
bool fGrowFile(QorOsMmf* pstMmf, uint32_t dSize, const char* cpszName) {
    const uint32_t dMissing = dSize - pstMmf->size;
    if (dMissing > dMaxWrite) {
        errno = EFBIG;
        return fReportWriteFailure(pstMmf, dMissing, cpszName);
    }
    void* const pvZeros = calloc(dMissing, 1);
    if (pvZeros == nullptr) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_FATAL, "FATAL QorOsMmfCreate: no write buffer availabel (%d=%s)", error,
                  ErrorText(error).cpsz());
        return false;
    }
    ssize_t written;
    do {
        errno = ENOSPC; // the cause when only a part is written
        written = write(pstMmf->fd, pvZeros, dMissing);
    } while (written == -1 && errno == EINTR);
    vFree(pvZeros);
    if (written != static_cast<ssize_t>(dMissing)) {
        return fReportWriteFailure(pstMmf, dMissing, cpszName);
    }
    pstMmf->size = dSize;
    return true;
}

bool fMapFile(QorOsMmf* pstMmf) {
    void* const pvBlock =
        mmap(nullptr, pstMmf->size, PROT_READ | PROT_WRITE, MAP_SHARED, pstMmf->fd, 0);
    if (pvBlock == MAP_FAILED) {
        dSaveError(pstMmf);
    } else {
        pstMmf->address = pvBlock;
    }
    // Kept: this is said after a failure too, with a null address.
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfCreate: mmap( %p, %d ) ok", pstMmf->address,
              static_cast<int>(pstMmf->size));
    return pstMmf->address != nullptr;
}

bool fCreateFile(QorOsMmf* pstMmf, uint32_t dSize, const char* cpszName) {
    if (!fOpenFile(pstMmf, cpszName)) {
        return false;
    }
    const bool fUsable = (pstMmf->created != 0 || fReadFileSize(pstMmf, cpszName)) &&
                         (pstMmf->size >= dSize || fGrowFile(pstMmf, dSize, cpszName)) &&
                         fMapFile(pstMmf);
    if (!fUsable) {
        vCloseFile(pstMmf);
    }
    return fUsable;
}

// How many attachments a segment has; -1 where that cannot be read.
long dAttachments(int dShmId) {
    shmid_ds status{};
    return shmctl(dShmId, IPC_STAT, &status) == 0 ? static_cast<long>(status.shm_nattch) : -1;
}

// Kept: a segment that cannot be attached goes, for everybody.
bool fMmfAttach(QorOsMmf* pstMmf) {
    void* const pvBlock = shmat(pstMmf->shmId, nullptr, 0);
    if (pvBlock == reinterpret_cast<void*>(intptr_t{-1})) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_FATAL, "FATAL fMmfAttach: shmat failed (%d=%s)", error,
                  ErrorText(error).cpsz());
        const ErrnoKeeper keeper;
        shmctl(pstMmf->shmId, IPC_RMID, nullptr);
        pstMmf->shmId = -1;
        pstMmf->address = nullptr;
        return false;
    }
    pstMmf->address = pvBlock;
    QOROS_LOG(QOR_LOG_TRACE, "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: %lu",
              pstMmf->shmId, pvBlock, static_cast<unsigned long>(dAttachments(pstMmf->shmId)));
    return true;
}

bool fOpenSegment(QorOsMmf* pstMmf, uint32_t dKey) {
    pstMmf->shmId = shmget(static_cast<key_t>(dKey), 0, 0);
    if (pstMmf->shmId == -1) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfOpen: open shm (key=0x%X) failed (%d=%s)", dKey,
                  error, ErrorText(error).cpsz());
        return false;
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfOpen(%d): shm (key=0x%X) is opened", pstMmf->shmId,
              dKey);
    return fMmfAttach(pstMmf);
}

bool fOpenExistingSegment(QorOsMmf* pstMmf, uint32_t dKey) {
    dSaveError(pstMmf);
    if (fOpenSegment(pstMmf, dKey)) {
        return true;
    }
    const int error = static_cast<int>(pstMmf->lastError);
    QOROS_LOG(QOR_LOG_FATAL,
              "FATAL QorOsMmfCreate: key=0x%X already created, but QorOsMmfOpen failed (%d=%s)",
              dKey, error, ErrorText(error).cpsz());
    return false;
}

bool fCreateSegment(QorOsMmf* pstMmf, uint32_t dSize, uint32_t dKey) {
    pstMmf->shmId = shmget(static_cast<key_t>(dKey), dSize, IPC_CREAT | IPC_EXCL | 0666);
    if (pstMmf->shmId != -1) {
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfCreate(%d): shm (key=0x%X) is created",
                  pstMmf->shmId, dKey);
        pstMmf->created = fMmfAttach(pstMmf) ? 1 : 0;
        return pstMmf->created != 0;
    }
    if (errno == EEXIST) {
        return fOpenExistingSegment(pstMmf, dKey);
    }
    const int error = dSaveError(pstMmf);
    QOROS_LOG(QOR_LOG_FATAL, "FATAL QorOsMmfCreate: shm (key=0x%X) failed (%d=%s)", dKey, error,
              ErrorText(error).cpsz());
    return false;
}

// The last user removes the segment and, kept, does not detach it: the memory goes with the process
// at the latest, and what still points into it stays valid.
bool fRemoveSegment(QorOsMmf* pstMmf) {
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfClose(%d): close shm", pstMmf->shmId);
    if (shmctl(pstMmf->shmId, IPC_RMID, nullptr) == -1) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfClose(%d): shmctl failed ( %d=%s )", pstMmf->shmId,
                  error, ErrorText(error).cpsz());
        return false;
    }
    pstMmf->shmId = -1;
    return true;
}

void vDetachSegment(QorOsMmf* pstMmf) {
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfClose(%d): detach shm (%p)", pstMmf->shmId,
              pstMmf->address);
    if (shmdt(pstMmf->address) == -1) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfClose(%d): shm detaching failed (%d=%s)",
                  pstMmf->shmId, error, ErrorText(error).cpsz());
    }
}

bool fCloseSegment(QorOsMmf* pstMmf) {
    const long users = dAttachments(pstMmf->shmId);
    if (users == -1) {
        return true;
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfClose(%d): shm %d attached processes", pstMmf->shmId,
              static_cast<int>(users));
    if (users < 2) {
        if (!fRemoveSegment(pstMmf)) {
            return false;
        }
    } else {
        vDetachSegment(pstMmf);
    }
    pstMmf->address = nullptr;
    return true;
}

bool fUnmapFile(QorOsMmf* pstMmf) {
    if (pstMmf->fd != -1) {
        close(pstMmf->fd); // kept: the field keeps its value
    }
    if (pstMmf->address == nullptr) {
        return true;
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMmfClose: unmap(%p) now", pstMmf->address);
    if (munmap(pstMmf->address, pstMmf->size) == -1) {
        const int error = dSaveError(pstMmf);
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfClose: unmap(%p) failed (%d=%s)", pstMmf->address,
                  error, ErrorText(error).cpsz());
        return false;
    }
    pstMmf->address = nullptr;
    return true;
}

} // namespace

uint32_t QorOsMmfCreate(QorOsMmf* mmf, uint32_t size, const char* name, uint32_t key,
                        uint32_t /*flag*/) {
    if (mmf == nullptr) {
        return 0;
    }
    *mmf = stNoBlock;
    const bool isFile = name != nullptr && *name != '\0';
    return (isFile ? fCreateFile(mmf, size, name) : fCreateSegment(mmf, size, key)) ? 1 : 0;
}

uint32_t QorOsMmfOpen(QorOsMmf* mmf, const void* /*ignored*/, uint32_t key) {
    if (mmf == nullptr) {
        return 0;
    }
    *mmf = stNoBlock;
    return fOpenSegment(mmf, key) ? 1 : 0;
}

uint32_t QorOsMmfClose(QorOsMmf* mmf) {
    if (mmf == nullptr) {
        return 0;
    }
    return (mmf->shmId != -1 ? fCloseSegment(mmf) : fUnmapFile(mmf)) ? 1 : 0;
}

uint32_t QorOsMmfFlush(QorOsMmf* /*mmf*/, void* address, uint32_t length) {
    const size_t cut = reinterpret_cast<uintptr_t>(address) % static_cast<size_t>(getpagesize());
    if (msync(static_cast<char*>(address) - cut, length + cut, MS_SYNC) == -1) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsMmfFlush: msync failed (%d=%s)", error,
                  ErrorText(error).cpsz());
        return 0;
    }
    return 1;
}
