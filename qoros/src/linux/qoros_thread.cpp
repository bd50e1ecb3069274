#include "qoros_internal.h"

#include <pthread.h>

#include "qoros_threadlist.h"

namespace {

// A thread that is given no stack size gets no more than this many bytes.
constexpr size_t dDefaultStack = 0x40000;

constexpr uint32_t dPollMilliseconds = 100;

// Values of a thread's state word.
constexpr uint32_t dNotRunning = 0;
constexpr uint32_t dRunning = 1;
constexpr uint32_t dStopRequested = 3;

// The thread reads and writes its state word too.
uint32_t dLoadState(const uint32_t* pdState) {
    return __atomic_load_n(pdState, __ATOMIC_ACQUIRE);
}

void vStoreState(uint32_t* pdState, uint32_t dValue) {
    __atomic_store_n(pdState, dValue, __ATOMIC_RELEASE);
}

void vSetStackSize(pthread_attr_t* pstAttributes, uint32_t dRequested) {
    if (dRequested != 0) {
        pthread_attr_setstacksize(pstAttributes, dRequested); // a refusal leaves the default
        return;
    }
    size_t dDefault = 0;
    if (pthread_attr_getstacksize(pstAttributes, &dDefault) == 0 && dDefault > dDefaultStack) {
        pthread_attr_setstacksize(pstAttributes, dDefaultStack);
    }
}

// Sets the word from not running to running; false when it was anything else.
bool fClaim(uint32_t* pdState) {
    uint32_t dExpected = dNotRunning;
    return __atomic_compare_exchange_n(pdState, &dExpected, dRunning, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}

// Asks the thread to stop, unless it ended by itself in the meantime.
void vRequestStop(uint32_t* pdState) {
    uint32_t dSeen = dLoadState(pdState);
    while (dSeen != dNotRunning &&
           !__atomic_compare_exchange_n(pdState, &dSeen, dStopRequested, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE)) {
    }
}

// Waits until the word no longer asks for a stop; false when dLimit polls were made. Kept: the
// count decides, so that a thread which stops during the last poll has timed out.
bool fPollUntilStopped(const uint32_t* pdState, uint32_t dLimit) {
    uint32_t dPolls = 0;
    while (dLoadState(pdState) == dStopRequested && dPolls < dLimit) {
        QorOsSleep(dPollMilliseconds);
        ++dPolls;
    }
    return dPolls < dLimit;
}

uint32_t dStopByState(uint32_t* pdState, int32_t dPollLimit, QorOsThreadStopCallback callback,
                      uint64_t dArgument, const char* cpszName) {
    bool fStopped = true;
    if (dLoadState(pdState) != dNotRunning) {
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsThreadStop: do thread %s stop", cpszName);
        vRequestStop(pdState);
        if (callback != nullptr) {
            callback(dArgument);
        }
        const uint32_t dLimit = dPollLimit == 0 ? UINT32_MAX : static_cast<uint32_t>(dPollLimit);
        fStopped = fPollUntilStopped(pdState, dLimit);
        if (!fStopped) {
            QOROS_LOG(QOR_LOG_ERROR, "INFO  QorOsThreadStop: %s timed out (%u ms)", cpszName,
                      dLimit * dPollMilliseconds);
        }
    }
    // Kept: this is said after a time-out too.
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsThreadStop: thread %s is stopped", cpszName);
    return fStopped ? 1 : 0;
}

// Returns 0 or the error. The handle is written only on success, and before the thread runs.
int dBegin(uint64_t* pdHandle, QorOsThreadRoutine routine, uint32_t dStackSize, void* pvArgument) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsThreadBegin: init failed (%d=%s pid=%u tid=%ld)",
                  error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return error;
    }
    vSetStackSize(&attributes, dStackSize);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    error = dStartListed(pdHandle, &attributes, routine, pvArgument);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsThreadBegin: failed (%d=%s pid=%u tid=%ld)", error,
                  ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return error;
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsThreadBegin: ok (pid=%u tid=%ld)", dProcessId(),
              dThreadId());
    return 0;
}

} // namespace

uint32_t QorOsThreadBegin(uint64_t* handle, QorOsThreadRoutine routine, uint32_t stackSize,
                          void* argument) {
    if (handle == nullptr) {
        return 0;
    }
    const int error = dBegin(handle, routine, stackSize, argument);
    if (error == 0) {
        return 1;
    }
    *handle = 0;
    errno = error;
    return 0;
}

void QorOsThreadEnd() {
    pthread_exit(reinterpret_cast<void*>(uintptr_t{1}));
}

void QorOsThreadCancel(uint64_t* handle) {
    if (handle == nullptr || *handle == 0) {
        return;
    }
    const int error = dCancelListed(*handle);
    if (error != 0) {
        QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsThreadCancel: failed (%d=%s pid=%u tid=%ld)", error,
                  ErrorText(error).cpsz(), dProcessId(), dThreadId());
        return;
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsThreadCancel: hndl=%p (pid=%u tid=%ld)",
              reinterpret_cast<void*>(*handle), dProcessId(), dThreadId());
    *handle = 0;
}

uint32_t QorOsThreadStart(uint64_t* handle, uint32_t* state, QorOsThreadRoutine routine,
                          void* argument) {
    if (state != nullptr && !fClaim(state)) {
        if (handle != nullptr) {
            *handle = 0; // kept: a thread that runs already is not known here
        }
        return 1;
    }
    uint64_t unused = 0;
    const int error = dBegin(handle != nullptr ? handle : &unused, routine, 0, argument);
    if (error == 0) {
        return 1;
    }
    if (state != nullptr) {
        vStoreState(state, dNotRunning);
    }
    errno = error;
    return 0;
}

uint32_t QorOsThreadStop(uint64_t* handle, uint32_t* state, int32_t pollLimit,
                         QorOsThreadStopCallback callback, uint64_t callbackArgument,
                         const char* name) {
    const char* const shown = name == nullptr ? "" : name;
    if (handle != nullptr) {
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsThreadStop(%lu=%s): do thread cancel",
                  static_cast<unsigned long>(*handle), shown);
        QorOsThreadCancel(handle);
        if (state != nullptr) {
            vStoreState(state, dNotRunning);
        }
        return 1;
    }
    if (state != nullptr) {
        return dStopByState(state, pollLimit, callback, callbackArgument, shown);
    }
    QOROS_LOG(QOR_LOG_ERROR, "ERROR QorOsThreadStop: !!! %s parameter are missing !!!", shown);
    return 1;
}

int QorOsCallOnce(void (*function)(void)) {
    // Kept: one control for all callers, so that only the first function of the process runs.
    static pthread_once_t lock = PTHREAD_ONCE_INIT;
    return pthread_once(&lock, function);
}
