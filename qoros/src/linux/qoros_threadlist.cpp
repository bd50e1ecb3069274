#include "qoros_threadlist.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// A handle is a pthread_t in 64 bits, be it a number or a pointer.
static_assert(sizeof(pthread_t) == sizeof(uint64_t), "a handle holds a pthread_t");

struct ListedThread {
    QorOsThreadRoutine routine;
    void* pvArgument;
    pthread_t thread;
    ListedThread* pstNext;
};

// Guards the list, and keeps what is in it alive: a thread takes itself out before it ends.
pthread_mutex_t stMutex = PTHREAD_MUTEX_INITIALIZER;
ListedThread* pstFirst = nullptr;

// Holds the entry of the running thread. Its destructor runs however a thread ends: by return, by
// pthread_exit or cancelled, and with code on its stack that cannot be unwound.
pthread_key_t stOwnEntry;

class ListLock {
public:
    ListLock() {
        pthread_mutex_lock(&stMutex);
    }
    ~ListLock() {
        pthread_mutex_unlock(&stMutex);
    }
    ListLock(const ListLock&) = delete;
    ListLock& operator=(const ListLock&) = delete;
};

void vForget(void* pvEntry) {
    {
        const ListLock lock;
        ListedThread** ppstLink = &pstFirst;
        while (*ppstLink != pvEntry) {
            ppstLink = &(*ppstLink)->pstNext;
        }
        *ppstLink = (*ppstLink)->pstNext;
    }
    free(pvEntry);
}

// Of the threads of a process its forked child has only the one that forked.
void vKeepOwnEntry() {
    pstFirst = static_cast<ListedThread*>(pthread_getspecific(stOwnEntry));
    if (pstFirst != nullptr) {
        pstFirst->pstNext = nullptr;
    }
    pthread_mutex_unlock(&stMutex);
}

// Makes the list usable, under its lock. Where the system refuses that, the next start of a thread
// tries again.
int dPrepareList() {
    static bool fPrepared = false;
    if (fPrepared) {
        return 0;
    }
    int error = pthread_key_create(&stOwnEntry, vForget);
    if (error != 0) {
        return error;
    }
    error = pthread_atfork([] { pthread_mutex_lock(&stMutex); },
                           [] { pthread_mutex_unlock(&stMutex); }, vKeepOwnEntry);
    if (error != 0) {
        pthread_key_delete(stOwnEntry);
    }
    fPrepared = error == 0;
    return error;
}

void* pvRunListed(void* pvEntry) {
    const ListedThread entry = [pvEntry] {
        const ListLock lock; // the creator lets go when handle and list are complete
        return *static_cast<const ListedThread*>(pvEntry);
    }();
    if (pthread_setspecific(stOwnEntry, pvEntry) != 0) {
        vForget(pvEntry); // it runs all the same, but cannot be cancelled
    }
    return entry.routine(entry.pvArgument);
}

} // namespace

int dStartListed(uint64_t* pdHandle, const pthread_attr_t* pstAttributes,
                 QorOsThreadRoutine routine, void* pvArgument) {
    const ListLock lock;
    int error = dPrepareList();
    if (error != 0) {
        return error;
    }
    auto* const pstEntry = static_cast<ListedThread*>(malloc(sizeof(ListedThread)));
    if (pstEntry == nullptr) {
        return ENOMEM;
    }
    *pstEntry = {routine, pvArgument, {}, pstFirst};
    error = pthread_create(&pstEntry->thread, pstAttributes, pvRunListed, pstEntry);
    if (error != 0) {
        free(pstEntry);
        return error;
    }
    pstFirst = pstEntry;
    memcpy(pdHandle, &pstEntry->thread, sizeof *pdHandle);
    return 0;
}

int dCancelListed(uint64_t dHandle) {
    pthread_t thread;
    memcpy(&thread, &dHandle, sizeof thread);
    const ListLock lock;
    for (const ListedThread* pst = pstFirst; pst != nullptr; pst = pst->pstNext) {
        if (pthread_equal(pst->thread, thread) != 0) {
            return pthread_cancel(thread);
        }
    }
    return ESRCH;
}
