// What the records of mutexes and events have in common: how they are made, destroyed and refused.
#pragma once

#include <cstdlib>

#include "qoros_internal.h"

// Tells of a function of POSIX threads that failed and leaves the cause in errno. Always false.
inline bool fReportFailure(const char* cpszFunction, const void* pvArgument, const char* cpszStep,
                           int error) {
    QOROS_LOG(QOR_LOG_ERROR, "ERROR %s(%p): %s failed (rc=%d=%s)", cpszFunction, pvArgument,
              cpszStep, error, ErrorText(error).cpsz());
    errno = error;
    return false;
}

// Tells of a null argument, apart from its callers, which stay short. Always 0.
__attribute__((noinline)) inline uint32_t dRefuseNull(const char* cpszFunction,
                                                      const char* cpszParameter) {
    QOROS_LOG(QOR_LOG_ERROR, "ERROR %s(%p) %s is NULL (pid=%u tid=%ld)", cpszFunction,
              static_cast<const void*>(nullptr), cpszParameter, dProcessId(), dThreadId());
    return 0;
}

// Leaves the error of a function of POSIX threads in errno; true when there is none.
inline bool fSucceeded(int error) {
    if (error != 0) {
        errno = error;
    }
    return error == 0;
}

// Makes a record of the type, and hands it out where `begin` makes an object of it.
template <class Record, class Begin>
uint32_t dMakeRecord(const char* cpszFunction, Record** ppstOut, uint32_t dType, Begin begin) {
    if (ppstOut == nullptr) {
        return 0;
    }
    *ppstOut = nullptr;
    auto* const pstMade = static_cast<Record*>(malloc(sizeof(Record)));
    if (pstMade == nullptr) {
        const int error = errno;
        QOROS_LOG(QOR_LOG_ERROR, "ERROR %s(%p): malloc failed (errno=%d=%s)", cpszFunction,
                  static_cast<void*>(ppstOut), error, ErrorText(error).cpsz());
        return 0;
    }
    pstMade->type = dType;
    if (!begin(pstMade)) {
        vFree(pstMade);
        return 0;
    }
    *ppstOut = pstMade;
    return 1;
}

// Destroys an object of POSIX threads, and tries again for as long as it is in use.
template <class Object>
int dDestroy(int (*pDestroy)(Object*), Object* pstObject, const char* cpszFunction,
             const void* pvArgument, const char* cpszStep) {
    int error = pDestroy(pstObject);
    while (error == EBUSY) {
        fReportFailure(cpszFunction, pvArgument, cpszStep, error);
        error = pDestroy(pstObject);
    }
    if (error != 0) {
        fReportFailure(cpszFunction, pvArgument, cpszStep, error);
    }
    return error;
}
