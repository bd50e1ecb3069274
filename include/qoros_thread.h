/**
 * @file qoros_thread.h
 * The OS layer: threads. See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stdint.h>

QOR_BEGIN_C

/**
 * @name Threads
 * Detached POSIX threads. A handle is a 64-bit variable of the caller that holds the pthread_t of a
 * thread, or 0 for none. It says nothing once the thread has ended: the system may give the same
 * value to a later thread. A thread that is to be stopped cooperatively polls a state word of the
 * caller: 0 not running, 1 running, 3 stop requested; when it reads 3 it finishes, sets the word to
 * 0 and returns. The word is accessed atomically here, so an atomic access there is free of races.
 * @{
 */

/** What a thread runs; its result goes nowhere, since threads are detached. */
typedef void* (*QorOsThreadRoutine)(void* argument);

/** Called by QorOsThreadStop to wake a thread, for instance by closing its socket. */
typedef void (*QorOsThreadStopCallback)(uint64_t argument);

/**
 * Starts a detached thread.
 * @param handle receives the handle before `routine` runs, 0 on failure; the call does not touch it
 *        once the thread runs
 * @param routine what the thread runs
 * @param stackSize in bytes, a size that the system refuses is ignored; 0 for the system's default
 *        or 256 KiB, whichever is less
 * @param argument passed to `routine`
 * @return 1 when it was started, otherwise 0, with the cause in errno; null for `handle` starts
 *         nothing
 */
QOR_API uint32_t QorOsThreadBegin(uint64_t* handle, QorOsThreadRoutine routine, uint32_t stackSize,
                                  void* argument);

/** Ends the calling thread with the exit value 1. */
QOR_API __attribute__((noreturn)) void QorOsThreadEnd(void);

/**
 * Cancels a thread that QorOsThreadBegin or QorOsThreadStart started: it ends at its next
 * cancellation point, which may be after this call. One that has ended, or that was started
 * otherwise, is not touched, and an error is logged. The result shows in the handle only.
 * @param handle set to 0 when the cancellation was requested and kept when it could not be; null
 *        and a handle of 0 do nothing
 */
QOR_API void QorOsThreadCancel(uint64_t* handle);

/**
 * Starts a detached thread with the default stack unless its state word says that it runs.
 * @param handle receives the handle as from QorOsThreadBegin; 0 where the thread was running
 *        already; unchanged on failure; may be null
 * @param state the state word, set to 1 for a thread that starts and back to 0 where that fails;
 *        null starts a thread in any case
 * @param routine, argument as for QorOsThreadBegin
 * @return 1 when the thread was started or runs already, otherwise 0 with the cause in errno
 */
QOR_API uint32_t QorOsThreadStart(uint64_t* handle, uint32_t* state, QorOsThreadRoutine routine,
                                  void* argument);

/**
 * Stops a thread. With a handle variable, whatever it holds, the thread is cancelled as by
 * QorOsThreadCancel and the state word set to 0, without a wait for the thread's end. Otherwise a
 * state word that is not 0 is set to 3, and the call waits until it changes; one that is 0 or
 * becomes 0 meanwhile stays so.
 * @param handle of the thread; null to stop by the state word
 * @param state the state word, may be null
 * @param pollLimit how often to look, every 100 ms; 0 and below: practically without end. A thread
 *        that stops during the last poll counts as timed out.
 * @param callback called once after the stop request; may be null
 * @param callbackArgument passed to `callback`
 * @param name for log messages, may be null
 * @return 0 on a time-out, which leaves the thread alone and the state word at 3; otherwise 1
 */
QOR_API uint32_t QorOsThreadStop(uint64_t* handle, uint32_t* state, int32_t pollLimit,
                                 QorOsThreadStopCallback callback, uint64_t callbackArgument,
                                 const char* name);

/**
 * Runs `function` once in the life of the process: only the first function ever passed here runs,
 * no later one, whichever it is. Returns 0, or the error of pthread_once.
 */
QOR_API int QorOsCallOnce(void (*function)(void));

/** @} */

QOR_END_C
