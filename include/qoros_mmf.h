/**
 * @file qoros_mmf.h
 * The OS layer: shared memory. See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stdint.h>

QOR_BEGIN_C

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
 * @return 1; 0 where the system refuses it, as for a range that is not mapped
 */
QOR_API uint32_t QorOsMmfFlush(QorOsMmf* mmf, void* address, uint32_t length);

/** @} */

QOR_END_C
