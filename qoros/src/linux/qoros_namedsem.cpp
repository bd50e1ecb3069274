#include "qoros_namedsem.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cstdio>
#include <cstdlib>

#include "qoros_internal.h"

#if !defined(__APPLE__)
// There the caller declares it.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};
#endif

namespace {

constexpr uint32_t dNoSemaphore = 0xFFFFFFFF;
constexpr int dSemaphoreMode = 0666;
constexpr uint32_t dPauseAfterSignal = 50; // milliseconds

bool fRemove(uint32_t dSem) {
    return semctl(static_cast<int>(dSem), 0, IPC_RMID) != -1;
}

void vRemoveAfterFailure(uint32_t dSem) {
    const ErrnoKeeper keeper;
    fRemove(dSem);
}

// What follows a refusal of semget: a semaphore that exists is opened, every other cause told.
bool fOpenInstead(uint32_t* pdSem, uint32_t dKey, char cKind) {
    const bool fExists = errno == EEXIST;
    if (fExists && QorOsOpen(pdSem, dKey, cKind)) {
        return true;
    }
    const int error = errno;
    if (fExists) {
        QOROS_LOG(QOR_LOG_FATAL,
                  "FATAL QorOsCreate%c: key=0x%X already created, but QorOsOpen failed "
                  "(%d=%s pid=%u tid=%ld)",
                  cKind, dKey, error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
    } else {
        QOROS_LOG(QOR_LOG_FATAL,
                  "FATAL QorOsCreate%c: semget (key=0x%X) failed (%d=%s pid=%u tid=%ld)", cKind,
                  dKey, error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
    }
    return false;
}

// Gives a new semaphore its value and the process its log object.
bool fSetUp(uint32_t dSem, uint32_t dValue, char cKind) {
    if (!fSetSemaphore(dSem, dValue)) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_FATAL, "FATAL QorOsCreate%c: semctl failed (%d=%s pid=%u tid=%ld)", cKind,
                  error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return false;
    }
    return fAttachLog();
}

// Kept: a time-out that the system can't do ends the program.
[[noreturn]] void vEndForTimeout(uint32_t dTimeout) {
    printf("Timeout in Events not supported for MacOSX (you're timeout=%d)\n",
           static_cast<int>(dTimeout));
    fflush(stdout);
    exit(0); // NOLINT(concurrency-mt-unsafe): the end is the point
}

// Returns 0 or the error with which semop failed.
int dTake(uint32_t dSem, uint32_t dTimeout) {
    // No SEM_UNDO: kept, a process that ends with a mutex leaves it taken.
    sembuf operation{};
    operation.sem_op = -1;
    operation.sem_flg = static_cast<short>(dTimeout == 0 ? IPC_NOWAIT : 0);
    while (semop(static_cast<int>(dSem), &operation, 1) != 0) {
        const int error = errno;
        if (error != EINTR) {
            return error;
        }
        const bool fDown = fShutdown;
        QOROS_LOG(QOR_LOG_ERROR, "!!!!!! semop interrupted: %d=%s shutd=%d", error,
                  ErrorText(error).cpsz(), fDown ? 1 : 0);
        QorOsSleep(dPauseAfterSignal);
        if (fShutdown) {
            return error;
        }
    }
    return 0;
}

// The result of a wait that took nothing, for the error of semop.
bool fNothingTaken(uint32_t dSem, uint32_t dTimeout, char cKind, int error, uint32_t* pdResult) {
    if (dTimeout == 0 || error == EAGAIN) {
        QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsSet%c(%u) exit-%s: semval=%d (pid=%u tid=%ld)", cKind,
                  dSem, dTimeout == 0 ? "NO_WAIT" : "TIMEOUT", QorOsSemaphoreVal(dSem),
                  dProcessId(), dThreadId());
        vSetOutput(pdResult, QOR_WAIT_TIMEOUT);
        return true; // kept: only the result tells that nothing was taken
    }
    QOROS_LOG(QOR_LOG_ERROR,
              "ERROR QorOsSet%c(%u): semop failed (semval=%d) (%d=%s pid=%u tid=%ld)", cKind, dSem,
              QorOsSemaphoreVal(dSem), error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
    vSetOutput(pdResult, QOR_WAIT_ERROR);
    errno = error;
    return false;
}

// Whether a semaphore is that of a mutex which is free already. An event's value is asked for the
// message alone.
bool fIsFreeMutex(uint32_t dSem, char cKind) {
    const bool fMutex = cKind == cMutexKind;
    const int32_t dValue = fMutex ? QorOsSemaphoreVal(dSem) : 0;
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsRelease%c(%d) entry: semval=%d (pid=%u tid=%ld)", cKind,
              static_cast<int>(dSem), fMutex ? dValue : QorOsSemaphoreVal(dSem), dProcessId(),
              dThreadId());
    return dValue > 0;
}

} // namespace

bool QorOsCreate(uint32_t* pdSem, uint32_t dKey, uint32_t dValue, char cKind) {
    if (pdSem == nullptr) {
        return false;
    }
    const int flags = dKey == 0 ? dSemaphoreMode : IPC_CREAT | IPC_EXCL | dSemaphoreMode;
    const int semaphore = semget(static_cast<key_t>(dKey), 1, flags);
    if (semaphore == -1) {
        return fOpenInstead(pdSem, dKey, cKind);
    }
    const uint32_t dSem = static_cast<uint32_t>(semaphore);
    if (!fSetUp(dSem, dValue, cKind)) {
        vRemoveAfterFailure(dSem);
        return false;
    }
    vInitUnusedTable();
    vCountHandle("QorOsCreate", dSem, dKey != 0, cKind);
    *pdSem = dSem;
    return true;
}

bool QorOsOpen(uint32_t* pdSem, uint32_t dKey, char cKind) {
    if (pdSem == nullptr || dKey == 0) {
        return false;
    }
    const int semaphore = semget(static_cast<key_t>(dKey), 0, 0);
    if (semaphore == -1) {
        const int error = errno;
        // Kept: it names semctl and a fatal error.
        QOROS_LOG(QOR_LOG_ERROR, "FATAL QorOsOpen%c(%d): semctl failed (%d=%s pid=%d tid=%ld)",
                  cKind, -1, error, ErrorText(error).cpsz(), static_cast<int>(dProcessId()),
                  dThreadId());
        return false;
    }
    const uint32_t dSem = static_cast<uint32_t>(semaphore);
    if (!fAttachLog()) {
        const ErrnoKeeper keeper;
        fprintf(stderr, "FATAL QorOsOpen%c(%d): pstLog is not created (pid=%d tid=%ld)", cKind,
                semaphore, static_cast<int>(dProcessId()), dThreadId());
        return false;
    }
    vCountHandle("QorOsOpen", dSem, true, cKind);
    *pdSem = dSem;
    return true;
}

bool QorOsClose(uint32_t dSem, char cKind) {
    if (dSem == dNoSemaphore) {
        return true;
    }
    vTellOfClose(dSem, cKind);
    if (!dDecNamedSemCnt(dSem) && !fRemove(dSem)) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsClose%c: semctl failed (%d=%s pid=%u tid=%ld)", cKind,
                  error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return false; // kept: the other counters go on counting the handle
    }
    vUncountHandle();
    return true;
}

bool QorOsWait(uint32_t dSem, uint32_t dTimeout, char cKind, uint32_t* pdResult) {
    // Kept: the messages of a wait say Set.
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsSet%c(%u) entry: semval=%d (pid=%u tid=%ld)", cKind, dSem,
              QorOsSemaphoreVal(dSem), dProcessId(), dThreadId());
    if (dTimeout != 0 && dTimeout != QOR_INFINITE) {
        vEndForTimeout(dTimeout);
    }
    const int error = dTake(dSem, dTimeout);
    if (error != 0) {
        return fNothingTaken(dSem, dTimeout, cKind, error, pdResult);
    }
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsSet%c(%u) exit: semval=%d (pid=%u tid=%ld)", cKind, dSem,
              QorOsSemaphoreVal(dSem), dProcessId(), dThreadId());
    vSetOutput(pdResult, QOR_WAIT_DONE);
    return true;
}

bool QorOsRelease(uint32_t dSem, char cKind) {
    if (fIsFreeMutex(dSem, cKind)) {
        return true;
    }
    sembuf operation{};
    operation.sem_op = 1;
    if (semop(static_cast<int>(dSem), &operation, 1) != 0) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_ERROR,
                  "ERROR QorOsRelease%c(%d): semop failed (semval=%d) (%d=%s pid=%u tid=%ld)",
                  cKind, static_cast<int>(dSem), QorOsSemaphoreVal(dSem), error,
                  ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return false;
    }
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsRelease%c(%d) exit: semval=%d (pid=%u tid=%ld)", cKind,
              static_cast<int>(dSem), QorOsSemaphoreVal(dSem), dProcessId(), dThreadId());
    return true;
}

bool fSetSemaphore(uint32_t dSem, uint32_t dValue) {
    semun argument{};
    argument.val = static_cast<int>(dValue);
    return semctl(static_cast<int>(dSem), 0, SETVAL, argument) != -1;
}

int32_t QorOsSemaphoreVal(uint32_t semId) {
    return semctl(static_cast<int>(semId), 0, GETVAL);
}
