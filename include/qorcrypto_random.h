/**
 * @file qorcrypto_random.h
 * Random bytes fit for keys, nonces and padding.
 *
 * Each thread has a generator of its own: the block function of ChaCha20 (RFC 8439, section 2.3)
 * with fast key erasure (D. J. Bernstein, "Fast-key-erasure random-number generators", 2017). Every
 * refill replaces the key that made it, and every byte handed out is wiped from the generator, so
 * that its state tells nothing about earlier output. The key comes from /dev/urandom at first use,
 * in a child after a fork, and after each MiB of output. It is wiped when the thread ends.
 *
 * Any thread may call at any time, without waiting for others; a signal handler may not. Compiles
 * as C11 and as C++17.
 */
#pragma once

#include <stddef.h>

#include "qorapi.h"

QOR_BEGIN_C

/**
 * Fills `out` with `size` random bytes, any number of them. A `size` of 0 asks for nothing and
 * succeeds.
 * @return 1; 0 where `out` is null and `size` is not 0, or where the system gives no seed when one
 *         is needed: `out` then holds `size` zero bytes, which must not be used. The next call asks
 *         the system again
 */
QOR_API int QorRandomBytes(void* out, size_t size);

QOR_END_C
