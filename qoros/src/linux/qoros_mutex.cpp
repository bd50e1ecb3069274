#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "internal/qorassert.h"
#include "qoros_internal.h"
#include "qoros_namedsem.h"
#include "qoros_record.h"

static_assert(offsetof(QorOsMutex, type) == 0);
static_assert(offsetof(QorOsMutex, mutex) == offsetof(QorOsMutex, semId));

namespace {

constexpr uint32_t dFree = 1;

constexpr char cpszOnlyInfinite[] = "QorOsMutexWait - invalid timeout, only infinite supported for "
                                    "local pthread based mutexes.";

bool fInitRecursive(pthread_mutex_t* pstMutex, const void* pvOut) {
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) {
        return fReportFailure("QorOsMutexCreate", pvOut, "pthread_mutexattr_init", error);
    }
    const char* cpszStep = "pthread_mutexattr_settype";
    error = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    if (error == 0) {
        cpszStep = "pthread_mutex_init";
        error = pthread_mutex_init(pstMutex, &attributes);
    }
    pthread_mutexattr_destroy(&attributes);
    if (error != 0) {
        return fReportFailure("QorOsMutexCreate", pvOut, cpszStep, error);
    }
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMutexCreate(%p): (pid=%u tid=%ld)", pvOut, dProcessId(),
              dThreadId());
    return true;
}

// Kept: a wait that can't be done ends the program.
[[noreturn]] __attribute__((noinline)) void vEndForTimeout(const QorOsMutex* pstMutex) {
    QOROS_LOG(QOR_LOG_ERROR,
              "ERROR QorOsMutexWait(%p) invalid timeout, only infinite supported for local pthread "
              "based mutexes. (pid=%u tid=%ld)",
              static_cast<const void*>(pstMutex), dProcessId(), dThreadId());
    fputs(cpszOnlyInfinite, stdout);
    fflush(stdout);
    fprintf(stderr, "%s\n", cpszOnlyInfinite);
    exit(1); // NOLINT(concurrency-mt-unsafe): the end is the point
}

// Tells of a lock or an unlock by its error. Apart, so that a call that says nothing stays short.
__attribute__((noinline)) void vTell(const char* cpszFunction, const void* pvMutex, int error) {
    if (error == 0) {
        QOROS_LOG(QOR_LOG_DEBUG, "DEBUG %s(%p) (pid=%u tid=%ld)", cpszFunction, pvMutex,
                  dProcessId(), dThreadId());
    } else {
        QOROS_LOG(QOR_LOG_ERROR, "ERROR %s(%p) rc=%d=%s (pid=%u tid=%ld)", cpszFunction, pvMutex,
                  error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
        errno = error;
    }
}

// The result of a lock or an unlock.
inline uint32_t dDone(const char* cpszFunction, const QorOsMutex* pstMutex, int error) {
    if (error != 0 || fLogPasses(pstLog.load(std::memory_order_acquire), QOR_LOG_DEBUG)) {
        vTell(cpszFunction, pstMutex, error);
    }
    return error == 0 ? 1 : 0;
}

} // namespace

uint32_t QorOsMutexCreate(QorOsMutex** mutex, uint32_t key) {
    if (key == 0) {
        return dMakeRecord("QorOsMutexCreate", mutex, QOR_MUTEX_PTHREAD, [mutex](QorOsMutex* made) {
            return fInitRecursive(&made->mutex, mutex);
        });
    }
    return dMakeRecord("QorOsMutexCreate", mutex, QOR_MUTEX_SYSV, [key](QorOsMutex* made) {
        return QorOsCreate(&made->semId, key, dFree, cMutexKind);
    });
}

uint32_t QorOsMutexOpen(QorOsMutex** mutex, uint32_t key) {
    return dMakeRecord("QorOsMutexOpen", mutex, QOR_MUTEX_SYSV, [key](QorOsMutex* made) {
        return QorOsOpen(&made->semId, key, cMutexKind);
    });
}

uint32_t QorOsMutexWait(QorOsMutex* mutex, uint32_t timeout, uint32_t* result) {
    vSetOutput(result, QOR_WAIT_ERROR);
    QorOsMutex* const pMtx = mutex; // the name that the assertion shows
    if (pMtx == nullptr) {
        return dRefuseNull("QorOsMutexWait", "aMutex");
    }
    QOR_ASSERT(cpszModule, pMtx->type == QOR_MUTEX_PTHREAD || pMtx->type == QOR_MUTEX_SYSV);
    if (pMtx->type == QOR_MUTEX_SYSV) {
        return QorOsWait(pMtx->semId, timeout, cMutexKind, result) ? 1 : 0;
    }
    if (timeout != QOR_INFINITE) {
        vEndForTimeout(pMtx);
    }
    const uint32_t taken = dDone("QorOsMutexWait", pMtx, pthread_mutex_lock(&pMtx->mutex));
    vSetOutput(result, taken); // QOR_WAIT_DONE or QOR_WAIT_ERROR
    return taken;
}

uint32_t QorOsMutexRelease(QorOsMutex* mutex) {
    if (mutex == nullptr) {
        return dRefuseNull("QorOsMutexRelease", "aMutex");
    }
    if (mutex->type == QOR_MUTEX_SYSV) {
        return QorOsRelease(mutex->semId, cMutexKind) ? 1 : 0;
    }
    if (mutex->type != QOR_MUTEX_PTHREAD) {
        return 0;
    }
    return dDone("QorOsMutexRelease", mutex, pthread_mutex_unlock(&mutex->mutex));
}

uint32_t QorOsMutexClose(QorOsMutex* mutex) {
    QorOsMutex* const pMtx = mutex; // the name that the assertion shows
    if (pMtx == nullptr) {
        return dRefuseNull("QorOsMutexClose", "aMutex");
    }
    QOR_ASSERT(cpszModule, pMtx->type == QOR_MUTEX_PTHREAD || pMtx->type == QOR_MUTEX_SYSV);
    bool closed = true; // kept: a local one is, whatever the system says
    if (pMtx->type == QOR_MUTEX_SYSV) {
        closed = QorOsClose(pMtx->semId, cMutexKind);
    } else {
        const int error =
            dDestroy(pthread_mutex_destroy, &pMtx->mutex, "QorOsMutexClose", pMtx, "destroy");
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsMutexClose(%p): rc=%d (pid=%u tid=%ld)",
                  static_cast<void*>(pMtx), error, dProcessId(), dThreadId());
    }
    vFree(pMtx);
    return closed ? 1 : 0;
}
