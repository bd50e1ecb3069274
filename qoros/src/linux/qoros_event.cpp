#include <pthread.h>

#include <cstdio>

#include "qoros_internal.h"
#include "qoros_namedsem.h"
#include "qoros_record.h"

static_assert(offsetof(QorOsEvent, type) == 0);
static_assert(offsetof(QorOsEvent, local) == offsetof(QorOsEvent, semId));

namespace {

constexpr uint32_t dNotSignalled = 0;
constexpr uint32_t dSignalled = 1;

bool fInitEvent(QorOsEvent* pstEvent, const void* pvOut) {
    int error = pthread_mutex_init(&pstEvent->local.mutex, nullptr);
    if (error != 0) {
        return fReportFailure("QorOsEventCreate", pvOut, "pthread_mutex_init", error);
    }
    error = pthread_cond_init(&pstEvent->local.cond, nullptr);
    if (error != 0) {
        pthread_mutex_destroy(&pstEvent->local.mutex);
        return fReportFailure("QorOsEventCreate", pvOut, "pthread_cond_init", error);
    }
    pstEvent->local.signalled = 0;
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsEventCreate(%p): (pid=%u tid=%ld)", pvOut, dProcessId(),
              dThreadId());
    return true;
}

bool fSetLocal(QorOsEvent* pstEvent) {
    if (!fSucceeded(pthread_mutex_lock(&pstEvent->local.mutex))) {
        return false;
    }
    bool fDone = true;
    if (pstEvent->local.signalled == 0) {
        pstEvent->local.signalled = 1;
        fDone = fSucceeded(pthread_cond_broadcast(&pstEvent->local.cond));
    }
    return fSucceeded(pthread_mutex_unlock(&pstEvent->local.mutex)) && fDone;
}

bool fResetLocal(QorOsEvent* pstEvent) {
    if (!fSucceeded(pthread_mutex_lock(&pstEvent->local.mutex))) {
        return false;
    }
    pstEvent->local.signalled = 0;
    return fSucceeded(pthread_mutex_unlock(&pstEvent->local.mutex));
}

void vSetNamed(const QorOsEvent* pstEvent) {
    const void* const pvShown = pstEvent;
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsEventSet(%p) entry: semval=%d (pid=%u tid=%ld)", pvShown,
              QorOsSemaphoreVal(pstEvent->semId), dProcessId(), dThreadId());
    if (!fSetSemaphore(pstEvent->semId, dSignalled)) {
        const int error = errno;
        fprintf(stderr, "FATAL QorOsEventSet(%p): semctl failed (%d=%s pid=%u tid=%ld)\n", pvShown,
                error, ErrorText(error).cpsz(), dProcessId(), dThreadId());
        errno = error;
    }
    QOROS_LOG(QOR_LOG_DEBUG, "DEBUG QorOsEventSet(%p): exit: semval=%d (pid=%u tid=%ld)", pvShown,
              QorOsSemaphoreVal(pstEvent->semId), dProcessId(), dThreadId());
}

void vUnlock(void* pvMutex) {
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(pvMutex));
}

// Waits for the condition and returns 0 or the error. Kept: once, so that any wake-up counts.
int dWaitOnce(QorOsEvent* pstEvent, uint32_t dTimeout) {
    int error = 0;
    // A thread that is cancelled here gets the mutex back first.
    pthread_cleanup_push(vUnlock, &pstEvent->local.mutex);
    if (dTimeout == QOR_INFINITE) {
        error = pthread_cond_wait(&pstEvent->local.cond, &pstEvent->local.mutex);
    } else {
        timespec deadline{};
        setTimespec(&deadline, dTimeout);
        error = pthread_cond_timedwait(&pstEvent->local.cond, &pstEvent->local.mutex, &deadline);
    }
    pthread_cleanup_pop(0);
    return error;
}

uint32_t dWaitLocal(QorOsEvent* pstEvent, uint32_t dTimeout) {
    if (!fSucceeded(pthread_mutex_lock(&pstEvent->local.mutex))) {
        return QOR_WAIT_ERROR;
    }
    const int error = pstEvent->local.signalled != 0 ? 0 : dWaitOnce(pstEvent, dTimeout);
    if (error == 0) {
        pstEvent->local.signalled = 0;
    }
    if (!fSucceeded(pthread_mutex_unlock(&pstEvent->local.mutex))) {
        return QOR_WAIT_ERROR;
    }
    if (error == ETIMEDOUT) {
        return QOR_WAIT_TIMEOUT;
    }
    return fSucceeded(error) ? QOR_WAIT_DONE : QOR_WAIT_ERROR;
}

// Both are tried; true when both ended in success.
bool fDestroyEvent(QorOsEvent* pstEvent) {
    const int condError = dDestroy(pthread_cond_destroy, &pstEvent->local.cond, "QorOsEventClose",
                                   pstEvent, "pthread_cond_destroy");
    const int mutexError = dDestroy(pthread_mutex_destroy, &pstEvent->local.mutex,
                                    "QorOsEventClose", pstEvent, "pthread_mutex_destroy");
    const int error = condError != 0 ? condError : mutexError;
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsEventClose(%p): rc=%d (pid=%u tid=%ld)",
              static_cast<void*>(pstEvent), error, dProcessId(), dThreadId());
    return fSucceeded(error);
}

} // namespace

uint32_t QorOsEventCreate(QorOsEvent** event, uint32_t key) {
    if (key == 0) {
        return dMakeRecord("QorOsEventCreate", event, QOR_EVENT_LOCAL,
                           [event](QorOsEvent* made) { return fInitEvent(made, event); });
    }
    return dMakeRecord("QorOsEventCreate", event, QOR_EVENT_NAMED, [key](QorOsEvent* made) {
        return QorOsCreate(&made->semId, key, dNotSignalled, cEventKind);
    });
}

uint32_t QorOsEventOpen(QorOsEvent** event, uint32_t key) {
    return dMakeRecord("QorOsEventOpen", event, QOR_EVENT_NAMED, [key](QorOsEvent* made) {
        return QorOsOpen(&made->semId, key, cEventKind);
    });
}

uint32_t QorOsEventSet(QorOsEvent* event) {
    if (event == nullptr) {
        return dRefuseNull("QorOsEventSet", "aEvent");
    }
    if (event->type == QOR_EVENT_NAMED) {
        vSetNamed(event);
        return 1; // kept: also when it failed
    }
    return event->type == QOR_EVENT_LOCAL && fSetLocal(event) ? 1 : 0;
}

uint32_t QorOsEventReset(QorOsEvent* event) {
    if (event == nullptr) {
        return dRefuseNull("QorOsEventReset", "aEvent");
    }
    if (event->type == QOR_EVENT_NAMED) {
        // Kept: it lets one more wait pass instead of none.
        return QorOsRelease(event->semId, cEventKind) ? 1 : 0;
    }
    return event->type == QOR_EVENT_LOCAL && fResetLocal(event) ? 1 : 0;
}

uint32_t QorOsEventWait(QorOsEvent* event, uint32_t timeout, uint32_t* result) {
    vSetOutput(result, QOR_WAIT_ERROR);
    if (event == nullptr) {
        return dRefuseNull("QorOsEventWait", "aEvent");
    }
    if (event->type == QOR_EVENT_NAMED) {
        return QorOsWait(event->semId, timeout, cEventKind, result) ? 1 : 0;
    }
    if (event->type != QOR_EVENT_LOCAL) {
        return 0;
    }
    const uint32_t outcome = dWaitLocal(event, timeout);
    vSetOutput(result, outcome);
    return outcome == QOR_WAIT_DONE ? 1 : 0;
}

uint32_t QorOsEventClose(QorOsEvent* event) {
    if (event == nullptr) {
        return dRefuseNull("QorOsEventClose", "aEvent");
    }
    if (event->type != QOR_EVENT_LOCAL && event->type != QOR_EVENT_NAMED) {
        return 0;
    }
    const bool closed = event->type == QOR_EVENT_NAMED ? QorOsClose(event->semId, cEventKind)
                                                       : fDestroyEvent(event);
    vFree(event);
    return closed ? 1 : 0;
}
