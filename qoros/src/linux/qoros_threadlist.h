// The threads that QorOsThreadBegin started and that have not ended. Nobody joins them, so a handle
// may outlive its thread, and the system must never be given such a handle.
#pragma once

#include "qoros.h"

#include <pthread.h>

#include <cstdint>

// Starts a thread and enters it. The handle is written before the routine runs and not touched
// afterwards; on failure it stays as it was. Returns 0 or the error.
int dStartListed(uint64_t* pdHandle, const pthread_attr_t* pstAttributes,
                 QorOsThreadRoutine routine, void* pvArgument);

// Cancels a thread of the list. Returns 0 or the error: ESRCH where the thread has ended or is not
// one of the list.
int dCancelListed(uint64_t dHandle);
