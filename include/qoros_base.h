/**
 * @file qoros_base.h
 * The OS layer: state of the program, time and console keys.
 * See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stdint.h>

QOR_BEGIN_C

/**
 * @name State of the program
 * One set of flags per process, all clear at its start.
 * @{
 */

/**
 * Remembers the current second as the start of the program, for QorOsGetUpTime. Only the first
 * call counts. Creating a log object makes this call too.
 */
QOR_API void QorOsInit(void);

/** Says that the program is up again after QorOsSetShutdown. */
QOR_API void QorOsSetSystemUp(void);

/**
 * Says that the program is shutting down: a thread that blocks on a named mutex or event gives up
 * once a signal interrupts its wait. Logged with QOR_LOG_ERROR.
 */
QOR_API void QorOsSetShutdown(void);

/** 1 while the program is up, 0 from QorOsSetShutdown on until QorOsSetSystemUp. */
QOR_API unsigned int QorOsGetSystemUp(void);

/**
 * Tests and sets the latch of the cryptographic library.
 * @return 0 for the first caller in the process, who then has to initialise it; 1 for all others
 */
QOR_API unsigned int QorOsIsOpenSslInitialized(void);

/**
 * Tests and sets the latch of the SSL layer.
 * @return 0 for the first caller in the process, who then has to initialise it; 1 for all others
 */
QOR_API unsigned int QorOsIsSslInitialized(void);

/** @} */

/**
 * @name Time
 * All of it is wall-clock time and jumps when the clock is set.
 * @{
 */

/**
 * Milliseconds of the clock, modulo 2^32: only the difference of two readings means anything, and
 * it is right for up to 49.7 days.
 */
QOR_API uint32_t QorOsGetTimeInmSec(void);

/** Seconds since the epoch. */
QOR_API int64_t QorOsGetTimeInSec(void);

/** Seconds since QorOsInit; the first call of either starts the count. */
QOR_API int64_t QorOsGetUpTime(void);

/**
 * Sleeps.
 * Below 1000 the duration counts in milliseconds. From 1000 upwards only whole seconds count: the
 * remainder is taken as microseconds, so that 1500 sleeps 1.0005 s.
 * @return 0; -1 where a signal ended the sleep
 */
QOR_API int32_t QorOsSleep(uint32_t milliseconds);

/** @} */

/**
 * @name Console keys
 * Single keys from the terminal at descriptor 0, without waiting for the end of a line. They change
 * the settings of the terminal for the length of the call, so only one thread may use them.
 * @{
 */

/**
 * Waits for a key.
 * Reads through the standard input stream, which may take in more keys than the one returned: they
 * are there for the next QorOsGetCh and not seen by QorOsGetChNoWait.
 * @param echo not 0: the terminal shows the key
 * @return the byte of the key; 0xFFFFFFFF where the input is no terminal or fails
 */
QOR_API uint32_t QorOsGetCh(int echo);

/**
 * Takes a key if there is one, after waiting at most 100 microseconds.
 * @param echo not 0: the terminal shows a key that arrives during the call
 * @return the byte of the key; 0 if none waits; 1 if one was announced and could not be read;
 *         0xFFFFFFFF where the input is no terminal or fails
 */
QOR_API uint32_t QorOsGetChNoWait(int echo);

/** @} */

QOR_END_C
