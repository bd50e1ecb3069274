/**
 * @file qoros_log.h
 * The OS layer: logging under a mask that all processes share.
 * See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"
#include "qoros_mmf.h"

#include <stdint.h>

QOR_BEGIN_C

/**
 * @name Logging
 * One-line messages and dumps, let through by a mask that all processes of the product share: a bit
 * that one process sets counts in all of them at once. Output goes to syslog (identity "QorOsLog",
 * priority LOG_INFO), or to standard output with a time stamp in front.
 *
 * Every function accepts a null log and then does nothing. Writing a message reports no failure,
 * cuts texts that are too long, leaves errno alone and allocates nothing. Time stamps are in the
 * time zone of the moment when a log object was created, or of a later tzset. Two threads that log
 * at the same moment may print each other's stamp.
 * @{
 */

/** In the mask: output to standard output instead of syslog. Never lets a message through. */
#define QOR_LOG_STDOUT 0x00000001u
/** Fatal errors. */
#define QOR_LOG_FATAL 0x00000004u
/** Errors and important notices. */
#define QOR_LOG_ERROR 0x08000000u
/** Life cycles of resources. */
#define QOR_LOG_TRACE 0x20000000u
/** Every wait for and release of a synchronisation object. */
#define QOR_LOG_DEBUG 0x40000000u

/** Dump as hexadecimal bytes with a column of characters; the first 64 bytes are shown. */
#define QOR_DUMP_HEX 1
/** Dump as signed 32-bit numbers joined by points; the first 16 are shown. */
#define QOR_DUMP_INTEGERS 2

/** The System V key of the shared control block. */
#define QOR_SHM_KEY 0x8009u
/** Distinct named mutexes and events that the control block counts. */
#define QOR_SHM_SLOTS 60
/** In `QorOsShmSlot::semId`: nothing is counted here. */
#define QOR_SHM_FREE_SLOT 0xFFFFFFFFu

/** One named mutex or event in the shared control block. */
typedef struct QorOsShmSlot {
    uint32_t semId; /**< its System V semaphore, or QOR_SHM_FREE_SLOT */
    uint32_t cnt;   /**< open handles on it in all processes */
} QorOsShmSlot;

/**
 * The control block that all processes of the product share: 500 bytes of System V memory under
 * QOR_SHM_KEY, words in the machine's byte order. The layout is fixed, since programs built at
 * different times attach the same block.
 */
typedef struct QorOsShmCtl {
    uint32_t Log;                      /**< the log mask */
    uint32_t ShmUsers;                 /**< log objects attached */
    uint32_t GlobSemCnt;               /**< handles on semaphores in all processes */
    uint32_t NamedSemCnt;              /**< total of all `cnt` below */
    uint32_t MaxNamedIdx;              /**< one past the highest slot ever used; never decreases */
    QorOsShmSlot slots[QOR_SHM_SLOTS]; /**< the named mutexes and events */
} QorOsShmCtl;

/** A log object: one process's attachment to the shared mask. Only the library changes it. */
typedef struct QorOsLogRec {
    uint32_t LocSemCnt;   /**< named mutexes and events that this process holds */
    uint32_t* mask;       /**< the mask in use: `Log` of the shared block */
    uint32_t privateMask; /**< in use only while the shared block is not attached */
    QorOsMmf shm;         /**< the attachment; its address is a QorOsShmCtl */
} QorOsLogRec;

/**
 * Creates a log object and with it, for the first process, the shared block, whose mask lets
 * nothing through.
 * @return owned by the caller, to be released with QorOsvLogDelete; null where memory is short or
 *         the block could be neither created nor attached
 */
QOR_API QorOsLogRec* QorOspLogNew(void);

/**
 * Releases a log object and sets the pointer to null. The shared block goes with its last user, in
 * whose process it stays mapped, as with QorOsMmfClose: a program that creates and deletes log
 * objects over and over keeps a page for each. No other thread may use the object any more.
 * @param log address of the pointer; it or the pointer may be null
 */
QOR_API void QorOsvLogDelete(QorOsLogRec** log);

/** Sets bits of the mask, for all processes. */
QOR_API void QorOsvSetLogLevel(QorOsLogRec* log, uint32_t bits);

/** Clears bits of the mask, for all processes. */
QOR_API void QorOsvResLogLevel(QorOsLogRec* log, uint32_t bits);

/** The mask; 0 for a null log. */
QOR_API uint32_t QorOsdGetLogLevel(const QorOsLogRec* log);

/**
 * Writes a message, formatted as by printf and ended with a line feed.
 * @param level bits of which one has to be in the mask; QOR_LOG_STDOUT does not count
 * @param format text of at most 1542 bytes; a line feed that no longer fits is left out
 */
QOR_API void QorOsvLog(const QorOsLogRec* log, uint32_t level, const char* format, ...)
    QOR_PRINTF(3, 4);

/**
 * Writes a dump of data: the line " len=%5d" and what `mode` says.
 * @param level as for QorOsvLog
 * @param text caption, written in front on standard output and never sent to syslog; may be null
 * @param data bytes, or with QOR_DUMP_INTEGERS signed 32-bit numbers of any alignment; null is
 *        written as such
 * @param length how many bytes or numbers there are; nothing behind them is read
 * @param mode QOR_DUMP_HEX or QOR_DUMP_INTEGERS; with any other only the length is written
 */
QOR_API void QorOsvLogData(const QorOsLogRec* log, uint32_t level, const char* text,
                           const void* data, int32_t length, int32_t mode);

/**
 * Writes a dump of data behind a caption formatted as by printf, which syslog gets too. Caption and
 * dump are cut to 1279 bytes together. Otherwise as QorOsvLogData.
 */
QOR_API void QorOsvvLogData(const QorOsLogRec* log, uint32_t level, const void* data,
                            int32_t length, int32_t mode, const char* format, ...) QOR_PRINTF(6, 7);

/** @} */

QOR_END_C
