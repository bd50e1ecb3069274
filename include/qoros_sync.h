/**
 * @file qoros_sync.h
 * The OS layer: mutexes and events, of one process and shared by several.
 * See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <pthread.h>
#include <stdint.h>

QOR_BEGIN_C

/**
 * @name Mutexes and events
 * Objects of one process, or named ones that all processes find by a 32-bit key. Key 0 makes a
 * local object of POSIX threads. Any other key is that of a System V semaphore, a set of one with
 * the mode 0666. Mutexes and events share the keys, and with them all programs of the machine:
 * nothing else may have the key of a named object.
 *
 * The functions make and free the records; a closed record must not be used again. One whose `type`
 * is damaged is not touched: for a mutex, wait and close stop the program by an assertion; every
 * other call gives 0.
 *
 * Time-outs are in milliseconds. A local mutex takes QOR_INFINITE alone, a named object also 0, a
 * local event any; others end the process.
 *
 * Handles on named objects are counted in the shared control block (QorOsShmCtl), which a process
 * attaches with its first one and gives up with its last. The last close anywhere removes the
 * semaphore. The counts hold while other processes open and close handles on an object that
 * somebody holds; where several create or close the same object as first or last at the same moment
 * they may be wrong. A process that ends without closing leaves its handles in the counts, and a
 * mutex that it held stays taken: `qormon ipc` shows both. Beyond QOR_SHM_SLOTS objects at a time
 * an object is not counted, and the first close of it, by whomever, removes it.
 *
 * Any thread may use an object that is open. The close of a process's last named object takes the
 * layer's log object along, so that no other thread may be in a call of the layer then.
 *
 * Limits of the system count for all programs together. macOS, by default: 8 attached segments a
 * process and 32 in all (kern.sysv.shmseg, shmmni), segments of 4 MiB (shmmax), 87381 semaphores
 * (semmns). As the last user of the control block does not detach it (QorOsMmfClose), a process
 * that is alone and lets go of its last named object for the 8th time gets no other: keep one open.
 * A semaphore counts to 32767.
 * @{
 */

/** In `QorOsMutex::type`: a local mutex. */
#define QOR_MUTEX_PTHREAD 0u
/** In `QorOsMutex::type`: a named one. */
#define QOR_MUTEX_SYSV 1u
/** In `QorOsEvent::type`: a local event. */
#define QOR_EVENT_LOCAL 0u
/** In `QorOsEvent::type`: a named one. */
#define QOR_EVENT_NAMED 1u

/** Time-out: waits without end. */
#define QOR_INFINITE 0xFFFFFFFFu

/** Wait result: an error. */
#define QOR_WAIT_ERROR 0u
/** Wait result: acquired, or signalled. */
#define QOR_WAIT_DONE 1u
/** Wait result: timed out, or nothing to take without waiting. */
#define QOR_WAIT_TIMEOUT 999u

/** A mutex. Only the library looks inside. */
typedef struct QorOsMutex {
    uint32_t type; /**< QOR_MUTEX_PTHREAD or QOR_MUTEX_SYSV */
    union {
        pthread_mutex_t mutex; /**< recursive */
        uint32_t semId;        /**< the System V semaphore of a named one: 1 free, 0 taken */
    };
} QorOsMutex;

/** What a local event is made of. */
typedef struct QorOsLocalEvent {
    pthread_mutex_t mutex; /**< guards the flag */
    pthread_cond_t cond;   /**< broadcast when the flag is set */
    uint32_t signalled;    /**< 1 or 0 */
} QorOsLocalEvent;

/** An event. Only the library looks inside. */
typedef struct QorOsEvent {
    uint32_t type; /**< QOR_EVENT_LOCAL or QOR_EVENT_NAMED */
    union {
        QorOsLocalEvent local;
        uint32_t semId; /**< the System V semaphore of a named one: the waits that it lets pass */
    };
} QorOsEvent;

/**
 * Makes a local mutex, or creates a named one, free, or opens it as it is where it exists.
 * @param mutex receives the mutex, to be released with QorOsMutexClose; null on failure
 * @param key 0 for a local mutex
 * @return 1, otherwise 0 with the cause in errno; 0 for a null argument
 */
QOR_API uint32_t QorOsMutexCreate(QorOsMutex** mutex, uint32_t key);

/**
 * Opens a named mutex that exists.
 * @param mutex as for QorOsMutexCreate
 * @param key not 0
 * @return 1, otherwise 0 with the cause in errno; 0 for a null argument and for key 0
 */
QOR_API uint32_t QorOsMutexOpen(QorOsMutex** mutex, uint32_t key);

/**
 * Takes a mutex. A local one is recursive: its owner may take it again and releases it as often. A
 * named one is not, and any thread of any process may release it.
 * @param timeout QOR_INFINITE, or for a named mutex 0 to take it only if it is free. With any other
 *        value, for a local mutex also with 0, the call says so on standard output and ends the
 *        process: with exit(1) for a local and exit(0) for a named mutex.
 * @param result receives QOR_WAIT_DONE, QOR_WAIT_TIMEOUT or QOR_WAIT_ERROR; may be null
 * @return 1 when the mutex was taken, otherwise 0; but for a named mutex with time-out 0 always 1,
 *         and `result` alone tells. A wait for a named one that a signal interrupts goes on after
 *         50 ms, but once QorOsSetShutdown was called fails with EINTR. Null gives 0.
 */
QOR_API uint32_t QorOsMutexWait(QorOsMutex* mutex, uint32_t timeout, uint32_t* result);

/**
 * Releases a mutex; a named one that is free stays as it is, with success.
 * @return 1; 0 for null and where the system refuses it, with the cause in errno.
 */
QOR_API uint32_t QorOsMutexRelease(QorOsMutex* mutex);

/**
 * Closes a mutex and frees the record whatever the result. A local one that is taken is waited for,
 * at full speed of the processor.
 * @return 1; 0 for null and where a named one's semaphore could not be removed, and then its handle
 *         stays in the counts
 */
QOR_API uint32_t QorOsMutexClose(QorOsMutex* mutex);

/**
 * Makes a local event, or creates a named one, not signalled, or opens it as it is where it exists.
 * @param event receives the event, to be released with QorOsEventClose; null on failure
 * @param key 0 for a local event
 * @return 1, otherwise 0 with the cause in errno; 0 for a null argument
 */
QOR_API uint32_t QorOsEventCreate(QorOsEvent** event, uint32_t key);

/**
 * Opens a named event that exists.
 * @param event as for QorOsEventCreate
 * @param key not 0
 * @return 1, otherwise 0 with the cause in errno; 0 for a null argument and for key 0
 */
QOR_API uint32_t QorOsEventOpen(QorOsEvent** event, uint32_t key);

/**
 * Signals an event. All who wait for a local one pass, or else the next who comes. For a named one
 * a single wait passes, now or later; what was signalled before and not taken is forgotten.
 * @return 1, for a named event also where the system refuses it, which standard error tells; 0 for
 *         null and where the system refuses it for a local event
 */
QOR_API uint32_t QorOsEventSet(QorOsEvent* event);

/**
 * Takes the signal of a local event back. For a named one it does the opposite: one wait more
 * passes.
 * @return 1; 0 for null and where the system refuses it
 */
QOR_API uint32_t QorOsEventReset(QorOsEvent* event);

/**
 * Waits for an event and takes its signal. A wait for a local event is not repeated: where the
 * system wakes it for no reason it counts as signalled. A thread that is cancelled in it leaves the
 * event usable.
 * @param timeout milliseconds, 0 does not wait. For a named event with any value but 0 and
 *        QOR_INFINITE the call says so on standard output and ends the process with exit(0).
 * @param result as for QorOsMutexWait
 * @return 1 when signalled, otherwise 0; but for a named event with time-out 0 always 1, and
 *         `result` alone tells. Signals are treated as by QorOsMutexWait. Null gives 0.
 */
QOR_API uint32_t QorOsEventWait(QorOsEvent* event, uint32_t timeout, uint32_t* result);

/**
 * Closes an event and frees the record whatever the result.
 * @return 1; 0 for null, where the system refuses it, and where a named one's semaphore could not
 *         be removed, and then its handle stays in the counts
 */
QOR_API uint32_t QorOsEventClose(QorOsEvent* event);

/** The value of a System V semaphore, such as `semId` of a named object; -1 on error. */
QOR_API int32_t QorOsSemaphoreVal(uint32_t semId);

/** @} */

QOR_END_C
