/**
 * @file qoros.h
 * The OS layer: state of the program, time, console keys, bounded strings, shared memory, logging,
 * threads, mutexes and events, files and directories, processes, dynamic loading.
 *
 * Plain functions that the product's programs call instead of the operating system. Unless a
 * declaration says otherwise they may be called from any thread, and a truth value is 1 or 0. Where
 * the system refuses something the function that reports it leaves the cause in errno; a null
 * argument and a time-out leave none. Beside the mutexes and events that callers
 * make, the layer has a single lock, which starting and cancelling a thread take for as long as the
 * system needs for it. Compiles as C11 and as C++17.
 */
#pragma once

#include "qorapi.h"

#include <dirent.h>
#include <pthread.h>
#include <stddef.h>
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

/**
 * @name Bounded strings
 * All work on byte strings and take the full size of the destination in bytes, its terminator
 * included. Where `dest` or `src` is null the copying functions return null and write nothing.
 * @{
 */

/**
 * Copies `src`, cut to `size - 1` bytes, and terminates the copy.
 * With a size of 0 nothing is written. No more than `size` bytes of `src` are read.
 * @return `dest`
 */
QOR_API char* strcpy_qor(char* dest, size_t size, const char* src);

/**
 * Copies at most `count` bytes of `src`, cut to `size - 1`, and always terminates the copy; unlike
 * the standard library's strncpy it does not pad.
 * @return `dest`
 */
QOR_API char* strncpy_qor(char* dest, size_t size, const char* src, size_t count);

/**
 * Appends `src` to the text in `dest`, cut to what fits. With a size of 0 `dest` is not looked at.
 * No more than `size + 1` bytes of `dest` are looked at: a text longer than `size` is left as it
 * is, and one that is exactly as long loses its last character to the terminator.
 * @return `dest`
 */
QOR_API char* strcat_qor(char* dest, size_t size, const char* src);

/**
 * Appends at most `count` bytes of `src` to the text in `dest`. With a size or count of 0 `dest` is
 * not looked at.
 * Where the whole of `src` fits behind the text, exactly `count` bytes are written, as far as
 * `size` allows: a shorter `src` is padded with zeros, and a longer one is not terminated, so the
 * buffer must have been zeroed before. Where it does not fit, the last byte of the buffer becomes
 * the terminator.
 * @return `dest`
 */
QOR_API char* strncat_qor(char* dest, size_t size, const char* src, size_t count);

/** The number of bytes before the first zero byte of `string`, at most `max`; 0 for a `max` of 0.
 */
QOR_API size_t strlen_qor(const char* string, size_t max);

/**
 * Formats like printf into `dest`, cut to `size - 1` bytes and always terminated.
 * @return the length of the whole formatted text, also when it was cut; 0 for a `size` of 0; where
 *         an argument cannot be converted the length of what was formatted up to there
 */
QOR_API int sprintf_qor(char* dest, size_t size, const char* format, ...) QOR_PRINTF(3, 4);

/** Turns every byte of `string` into upper case by the current locale, in place. Returns it. */
QOR_API char* strupr(char* string);

/** Turns every byte of `string` into lower case by the current locale, in place. Returns it. */
QOR_API char* strlwr(char* string);

/**
 * Appends `count` bytes of `src` to a heap string.
 * @param buffer a text from malloc, which the call takes over, or null for a new text
 * @param unescape not 0: backslash and double quote become a double quote; every other backslash
 *        stays, but for one that ends the input, which is lost
 * @return the grown text, to be released with free; null where `src` is null or, with ENOMEM in
 *         errno, memory is short, and `buffer` then still belongs to the caller
 */
QOR_API char* concatenateString(char* buffer, const char* src, size_t count, int unescape);

/** @} */

/**
 * @name Shared memory
 * Blocks that several processes share: a System V segment found by its key, or a mapped file. The
 * users of a block synchronise its contents; a record belongs to one thread at a time.
 * @{
 */

/** One block as one process sees it. The caller owns the record; the functions fill it. */
typedef struct QorOsMmf {
    int32_t fd;         /**< the open file of a mapped file, otherwise -1 */
    int32_t shmId;      /**< the System V identifier of a segment, otherwise -1 */
    uint32_t size;      /**< mapped bytes of a file; 0 for a segment */
    void* address;      /**< where the block begins; null when there is none */
    uint32_t created;   /**< 1: this call created the segment or the file */
    uint32_t lastError; /**< errno of the last failure, 0 when there was none; EEXIST after a
                             successful create tells that the segment existed already */
} QorOsMmf;

/**
 * Creates a block, or attaches the one that exists.
 *
 * With a file name the file is created with mode 0600 where it does not exist, grown with zeros to
 * `size` bytes where it is smaller, and mapped whole where it is larger; its descriptor is not
 * inherited by started programs. A file of 4 GiB or more is refused with EOVERFLOW, and one that
 * would have to grow by more than 2,147,479,552 bytes, which is all that the system writes at once,
 * with EFBIG and unchanged. Without a name the segment of `key` is created with mode 0666, or
 * opened whatever its size.
 *
 * @param mmf set up anew by the call, whatever it held; on failure without descriptor, segment and
 *        address, and with the cause in `lastError`. After a file could not be grown or mapped
 *        `created` still tells that the call created it, and it stays on disk; where growing failed
 *        `size` is that from before, and on a full disk the file may have grown in part.
 * @param size bytes of the block; 0 can't be mapped from a new file
 * @param name of the file; null or empty for a segment
 * @param key of the segment, ignored for a file; 0 makes a segment that no other process finds
 * @param flag ignored
 * @return 1 when the block is usable; 0 otherwise and for a null record. A segment that cannot be
 *         attached is removed, also for its other users.
 */
QOR_API uint32_t QorOsMmfCreate(QorOsMmf* mmf, uint32_t size, const char* name, uint32_t key,
                                uint32_t flag);

/**
 * Attaches the existing segment of `key`.
 * @param mmf as for QorOsMmfCreate
 * @param ignored has no meaning
 * @return 1 when it is attached; 0 otherwise and for a null record. A segment that cannot be
 *         attached is removed, also for its other users.
 */
QOR_API uint32_t QorOsMmfOpen(QorOsMmf* mmf, const void* ignored, uint32_t key);

/**
 * Gives the block up; a record is closed once.
 *
 * A segment that nobody else has attached is removed but not detached: this process keeps its
 * memory, and what points into it, until it ends or calls shmdt with the address from before. One
 * that others use is detached and `shmId` keeps its value. A file is unmapped and stays on disk;
 * `fd` is closed and keeps its value.
 *
 * @return 1, also for a segment that is gone already; 0 for a null record and where the segment
 *         could not be removed or the file not unmapped
 */
QOR_API uint32_t QorOsMmfClose(QorOsMmf* mmf);

/**
 * Writes the changed pages of a mapped file to disk before it returns.
 * @param mmf ignored, may be null
 * @param address first byte of the range, anywhere in a mapping; the whole page it is in counts
 * @param length bytes from there on
 */
QOR_API uint32_t QorOsMmfFlush(QorOsMmf* mmf, void* address, uint32_t length);

/** @} */

/**
 * @name Logging
 * One-line messages and dumps, let through by a mask that all processes of the product share: a bit
 * that one process sets counts in all of them at once. Output goes to syslog (identity "QorOsLog",
 * priority LOG_INFO), or to standard output with a time stamp in front.
 *
 * Every function accepts a null log and then does nothing. No failure is reported, texts that are
 * too long are cut, errno keeps its value, and nothing is allocated per message. Time stamps are in
 * the time zone of the moment when a log object was created, or of a later tzset. Two threads that
 * log at the same moment may print each other's stamp.
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
 * @return owned by the caller, to be released with QorOsvLogDelete; null where the block could be
 *         neither created nor attached
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
 * already; unchanged on failure; may be null
 * @param state the state word, set to 1 for a thread that starts and back to 0 where that fails;
 *        null starts a thread in any case
 * @return 1 when the thread was started or runs already, otherwise 0
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

/**
 * @name Mutexes and events
 * Objects of one process, or named ones that all processes find by a 32-bit key. Key 0 makes a
 * local object of POSIX threads. Any other key is that of a System V semaphore: one set with one
 * semaphore and the mode 0666, shared by mutexes and events, and also the key of nothing else on
 * the machine.
 *
 * The functions make and free the records; a closed record must not be used again. Time-outs are in
 * milliseconds. Time-outs other than 0 and QOR_INFINITE are for local events alone: elsewhere they
 * end the process.
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
 * @param key not 0: there 0 is the result
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
 *         and `result` alone tells. A wait for a named one fails with EINTR where a signal
 * interrupts it after QorOsSetShutdown, and otherwise goes on 50 ms after a signal. Null gives 0.
 */
QOR_API uint32_t QorOsMutexWait(QorOsMutex* mutex, uint32_t timeout, uint32_t* result);

/**
 * Releases a mutex; a named one that is free stays as it is, with success.
 * @return 1; 0 for null and where the system refuses it. For a local mutex errno stays as it is.
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
 * @param key not 0: there 0 is the result
 */
QOR_API uint32_t QorOsEventOpen(QorOsEvent** event, uint32_t key);

/**
 * Signals an event. All who wait for a local one pass, or else the next who comes. For a named one
 * a single wait passes, now or later; what was signalled before and not taken is forgotten.
 * @return 1, for a named event also where the system refuses it, which is written to standard
 * error; 0 for null
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
 * `result` alone tells. Signals are treated as by QorOsMutexWait. Null gives 0.
 */
QOR_API uint32_t QorOsEventWait(QorOsEvent* event, uint32_t timeout, uint32_t* result);

/**
 * Closes an event and frees the record whatever the result.
 * @return 1; 0 for null, where the system refuses it, and where a named one's semaphore could not
 * be removed, and then its handle stays in the counts
 */
QOR_API uint32_t QorOsEventClose(QorOsEvent* event);

/** The value of a System V semaphore, such as `semId` of a named object; -1 on error. */
QOR_API int32_t QorOsSemaphoreVal(uint32_t semId);

/** @} */

/**
 * @name Files and directories
 * Paths are byte strings, relative ones start at the working directory, and symbolic links are
 * followed. A null path gives 0 and changes nothing. What is too long for a buffer is refused with
 * ENAMETOOLONG and never cut, since a cut path names something else.
 * @{
 */

/** 1 if `path` exists and can be reached. */
QOR_API uint32_t QorOsFileExists(const char* path);

/**
 * Creates every missing directory on a path, with mode 0700 less the umask.
 *
 * Both "/" and "\" end a directory's path, but stay what the system takes them for: "a\b" creates
 * the directories "a" and "a\b" next to each other. What exists under the whole path counts as it
 * is, whether it is a directory or not. A path of a single character is never created.
 *
 * @param path shorter than 500 characters unless it exists
 * @return 1 where the path exists at the start, is shorter than 2 characters or was created; 0
 *         where a directory could not be created, those before it remain
 */
QOR_API uint32_t QorOsChkAndCreateDir(const char* path);

/**
 * Tells how large a file is.
 * @param size receives the bytes modulo 2^32, 0 on failure, a null path included; null gives 0
 */
QOR_API uint32_t QorOsGetFileSize(const char* path, uint32_t* size);

/**
 * Sets the times of last access and last modification.
 * @param time in seconds since the epoch
 */
QOR_API uint32_t QorOsSetFileTime(const char* path, int64_t time);

/**
 * Copies a file with its owner, group, times (whole seconds) and, where it creates the destination,
 * mode less the umask. A destination that exists is overwritten and keeps its mode.
 *
 * A directory is refused with EISDIR and a copy of a file onto itself, by whatever name, with
 * EINVAL, before the destination is touched. Devices and FIFOs are read to their end or written,
 * which may wait for the other side. A signal does not end the copy, no started program inherits a
 * descriptor, and memory for one block of the destination's file system is taken.
 *
 * @param failIfExists not 0: refuses a destination that exists, also as a link to nothing, with
 *        EEXIST
 * @return 1 when data, owner and times were copied; 0 otherwise, and the destination then holds
 *         what was copied. Copying another user's file without privilege gives 0 with EPERM
 *         although data and times were copied.
 */
QOR_API uint32_t QorOsCopyFile(const char* source, const char* destination, int failIfExists);

/** Removes a file or a link itself. */
QOR_API uint32_t QorOsDeleteFile(const char* path);

/** Removes an empty directory. */
QOR_API uint32_t QorOsDeleteDir(const char* path);

/**
 * Removes a directory with all that is in it.
 *
 * Links to directories are followed: what is in those directories is removed, wherever they are,
 * while directory and link stay, and so does what contains the link. A directory's entries are
 * taken as QorOsFindNext gives them: it is not emptied beyond a link to nothing. However many
 * links lead to a directory, it is entered through one of them only. An entry whose path has more
 * than 255 characters is left alone.
 *
 * @param path up to 255 characters; a longer one is refused with ENAMETOOLONG
 * @return 1 if the directory itself was removed; 0 with the cause of that alone, mostly ENOTEMPTY
 */
QOR_API uint32_t QorOsDeleteDirTree(const char* path);

/** Renames or moves within a file system, replacing a file that is there. */
QOR_API uint32_t QorOsRenameFile(const char* oldPath, const char* newPath);

/** Size in bytes of the texts of a search, terminator included. */
#define QOR_PATH_SIZE 1024

/** Entry type: a file, a device, anything but a directory. */
#define QOR_ENTRY_OTHER 1u
/** Entry type: a directory. */
#define QOR_ENTRY_DIRECTORY 2u

/** One search. The caller owns the record, and one thread at a time uses it. */
typedef struct QorOsFind {
    DIR* dir;                    /**< the open directory; null when closed */
    char path[QOR_PATH_SIZE];    /**< its path */
    char pattern[QOR_PATH_SIZE]; /**< what the names of entries have to match */
} QorOsFind;

/**
 * Starts a search and gives its first entry.
 *
 * A pattern without "*" that names a directory lists its entries. Any other is a directory, the
 * last "/" and a pattern for the names in it. Without "/" the directory is the working directory.
 * Where the last "/" is also the first character there is no directory in front of it, not even
 * the root, and nothing is found. An empty pattern for the names counts as "*". Such a pattern is
 * one of these, where upper and lower case differ:
 * - "*", "*." and "*.*" match every name but "." and "..";
 * - any other with a "*" matches the names that begin with what stands before its first "*" and end
 *   with what stands behind it, both taken as they are and without overlap, so that ".*" matches
 *   "." and "..", too;
 * - one without "*" matches the equal name.
 *
 * @param find set up anew by the call, whatever it held, so that an open search has to be closed
 *        before; on failure it is closed
 * @param pattern directory and name pattern, each shorter than 1024 bytes; null gives 0
 * @param name receives the entry's name without directory, 1024 bytes; null gives 0
 * @param type receives the entry type, of a link that of what it points to; may be null
 * @param time receives the seconds of the last modification modulo 2^32; may be null
 * @param size receives the bytes modulo 2^32; may be null
 * @return 1 when an entry was found, and the caller then closes the search; 0 when there is none or
 *         the search failed. An entry that cannot be examined, such as a link to nothing, ends the
 *         search with 0, too, and `name` still holds its name. `type`, `time` and `size` change
 *         only with a result of 1.
 */
QOR_API uint32_t QorOsFindFirst(QorOsFind* find, const char* pattern, char* name, uint32_t* type,
                                uint32_t* time, uint32_t* size);

/**
 * Gives the next entry, in the order of the file system.
 * @param find a search that QorOsFindFirst started; null or closed gives 0
 * @return as for QorOsFindFirst, but the search stays open in any case. `name` is empty after the
 *         last entry; after one that could not be examined a further call goes on behind it.
 */
QOR_API uint32_t QorOsFindNext(QorOsFind* find, char* name, uint32_t* type, uint32_t* time,
                               uint32_t* size);

/**
 * Ends a search.
 * @return 1, also for one that is closed; 0 for a null record, and where the system reports an
 *         error, but then the search is closed all the same
 */
QOR_API uint32_t QorOsFindClose(QorOsFind* find);

/** @} */

/**
 * @name Processes
 * Starting other programs, through the shell or with arguments of their own. They inherit the
 * environment, the signal mask and every descriptor that is not marked close-on-exec.
 * @{
 */

/** Flag of QorOsCreateProcessSw and QorOsCreateProcessEx: do not wait for the command's end. */
#define QOR_PROCESS_BACKGROUND 0x00010000u

/**
 * A started process. QorOsCreateProcessAsyn makes the record and QorOsProcessWait releases it; one
 * thread at a time uses it.
 */
typedef struct QorOsProcess {
    uint32_t pid;   /**< its id; 0 once it is known to have ended */
    int32_t status; /**< its wait status, as waitpid gives it, once it is known to have ended */
} QorOsProcess;

/** QorOsCreateProcessEx without flags and without an exit status. */
QOR_API uint32_t QorOsCreateProcess(const char* commandLine);

/** QorOsCreateProcessEx without an exit status. */
QOR_API uint32_t QorOsCreateProcessSw(const char* commandLine, uint32_t flags);

/**
 * Runs a command in the shell and waits for its end.
 *
 * Blanks, tabs and newlines end the name of the program, which QorOsdGetPath resolves; the rest of
 * the line goes to the shell as it is, so that quotes, variables and further commands in it mean
 * what the shell takes them for. Not for lines with text that others wrote.
 *
 * @param commandLine of at most 1024 characters, of which the 1024th is lost; null counts as empty
 * @param flags QOR_PROCESS_BACKGROUND or 0
 * @param exitStatus receives the exit code, the wait status where a signal ended the shell, and
 *        0xFFFFFFFF where nothing was run or the system does not tell; may be null
 * @return 1 where the exit status is 0. In the background it is that of the start alone.
 */
QOR_API uint32_t QorOsCreateProcessEx(const char* commandLine, uint32_t flags,
                                      uint32_t* exitStatus);

/**
 * Searches a program in /sbin, /usr/sbin, /usr/local/sbin, /bin, /usr/bin, /usr/local/bin and then
 * in the directories of PATH, an empty one of which is the root directory.
 *
 * What exists and may be executed by its owner counts, be it a directory. A directory of PATH is
 * tried up to a length of 1024 less that of the name, where the path is cut to 1023 characters. No
 * other thread may change the environment meanwhile.
 *
 * @param name buffer of 1024 bytes with the name, replaced by the path; unchanged on failure. A
 *        name with a "/" is taken for a path as it is, whether it exists or not.
 * @return the length of the path; 0 where nothing was found, for null and for a buffer without a
 *         terminator
 */
QOR_API uint32_t QorOsdGetPath(char* name);

/**
 * Starts a program without a shell and without waiting for it.
 *
 * The line is split at blanks, and at nothing else. The first blank ends the program's name, which
 * knows no quotes. In an argument double quotes enclose what may have blanks, and stand anywhere in
 * it; between them a backslash in front of a quote makes it part of the argument. Without a closing
 * quote the argument goes on to the end of the line; if that ends in a backslash that escapes
 * nothing, the piece from the quote on is dropped. A name without "/" is searched as execvp does,
 * in PATH alone; what is not in a format of the system is run by /bin/sh.
 *
 * A program that cannot be run, for the cause of more than 4,095 arguments, too (4,094 where the
 * last one is followed by a blank), shows only in the exit code 127 of its process. Safe in a
 * program with threads. No other thread may change the environment meanwhile.
 *
 * @param commandLine null gives 0 and changes nothing
 * @param ignored has no meaning
 * @param process receives a record, which QorOsProcessWait releases; where the process could not be
 *        started it points to memory that is released already, and where memory is short it is
 *        unchanged. With null the program runs detached, in a session of its own and without its
 *        leadership; it is never a zombie of the caller, which must not ignore SIGCHLD.
 * @return 1 when the process was started, whatever becomes of it; otherwise 0
 */
QOR_API uint32_t QorOsCreateProcessAsyn(const char* commandLine, const void* ignored,
                                        QorOsProcess** process);

/**
 * Looks whether a process has ended, without waiting, and notes id 0 and status in its record then.
 * @return 1 while it runs, and for one that is not a child of this process; 0 once it has ended and
 *         for null
 */
QOR_API uint32_t QorOsProcessIsRunning(QorOsProcess* process);

/**
 * Waits for the end of a process and releases its record in any case. Signals do not end the wait.
 * @param exitStatus receives the exit code, 0 where a signal ended the process; unchanged on
 *        failure; may be null
 * @return 1; 0 where the system knows no such child, and for null
 */
QOR_API uint32_t QorOsProcessWait(QorOsProcess* process, uint32_t* exitStatus);

/**
 * Asks a process to end, by SIGTERM, and keeps its record.
 * @return 1 where the signal was sent; 0 where the process is not running, and for null
 */
QOR_API uint32_t QorOsTerminateProcess(QorOsProcess* process);

/** Closes a descriptor. Returns 1, or 0 where the system reports an error. */
QOR_API uint32_t QorOsCloseHdl(uint32_t descriptor);

/** @} */

/**
 * @name Dynamic loading and the running program
 * Error texts belong to the system and are valid until the thread's next call of the dynamic
 * loader.
 * @{
 */

/**
 * Loads a shared library and resolves its functions when they are first called.
 * @param path as for dlopen; null and empty give null without a call of the loader
 * @return a handle, to be released with QorOsDlFree; null on failure
 */
QOR_API void* QorOsDlLoad(const char* path);

/**
 * QorOsDlLoad with a cause.
 * @param error receives the loader's text where the result is null, which is null, too, where the
 *        loader has none; may be null
 */
QOR_API void* QorOsDlLoadEx(const char* path, const char** error);

/**
 * Looks a symbol up.
 * @param handle null gives null
 * @param name null and empty give null
 * @return its address, valid while the library is loaded; null on failure
 */
QOR_API void* QorOsDlGetAddr(void* handle, const char* name);

/** QorOsDlGetAddr with a cause: `error` as for QorOsDlLoadEx. */
QOR_API void* QorOsDlGetAddrEx(void* handle, const char* name, const char** error);

/** Gives a library up. Returns 1, also for null; 0 where the loader reports an error. */
QOR_API uint32_t QorOsDlFree(void* handle);

/**
 * Gives the name of the machine up to its first ".".
 * @param buffer receives it; on failure what fits of the whole name, or nothing
 * @param size in bytes, room for the whole name and its terminator; receives the length of the
 *        short name on success only
 * @return 1; 0 with the cause in errno, and for null
 */
QOR_API uint32_t QorOsGetComputerName(char* buffer, uint32_t* size);

/**
 * Gives directory and file name of the running program. On Linux links are resolved, and "
 * (deleted)" stands behind the name of a program that is no longer there; on macOS the path is that
 * of the start.
 * @param path receives the directory without its trailing slash, so that the root is an empty text;
 *        unchanged on failure. Null gives 0 and changes nothing.
 * @param pathSize in bytes, room for the whole path, file name and terminator included
 * @param name receives the file name, cut to `nameSize - 1` bytes; unchanged on failure; may be
 *        null
 * @param nameSize in bytes
 * @param error receives errno, 0 on success; may be null
 * @return 1, with errno set to 0; 0 with ENAMETOOLONG where `pathSize` is too small, or with the
 *         error of the system
 */
QOR_API uint32_t QorOsGetModuleFileName(char* path, uint32_t pathSize, char* name,
                                        uint32_t nameSize, uint32_t* error);

/** The directory of the running program: QorOsGetModuleFileName without a name. */
QOR_API uint32_t QorOsGetModulePath(char* path, uint32_t size, uint32_t* error);

/** @} */

QOR_END_C
