/**
 * @file qoros_file.h
 * The OS layer: files, directories and searches. See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <dirent.h>
#include <stdint.h>

QOR_BEGIN_C

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
 * Both "/" and "\" end a directory's path, but stay what the system takes them for: `a\b` creates
 * the directories `a` and `a\b` next to each other. What exists under the whole path counts as it
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

QOR_END_C
