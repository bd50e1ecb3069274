/**
 * @file qoros_process.h
 * The OS layer: starting, watching and ending other programs.
 * See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stdint.h>

QOR_BEGIN_C

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
 * @return 1 where the signal was sent; 0 where the process is not running, where the system refuses
 *         it, and for null
 */
QOR_API uint32_t QorOsTerminateProcess(QorOsProcess* process);

/** Closes a descriptor. Returns 1, or 0 where the system reports an error. */
QOR_API uint32_t QorOsCloseHdl(uint32_t descriptor);

/** @} */

QOR_END_C
