/**
 * @file qorcrypto_sha1.h
 * SHA-1 (FIPS 180-4, section 6.1), at once and piece by piece.
 *
 * Two different messages with the same SHA-1 digest can be made at will, and cheaply. Use it only
 * where a format or a peer prescribes it: to check data of old formats against accidents, as a file
 * or content name that nobody attacks, inside HMAC-SHA-1, whose strength does not rest on
 * collisions, and for signatures that an old peer makes or takes. It is unfit for new signatures
 * and certificates, for telling files of strangers apart, and, as any fast digest, for passwords.
 *
 * Where the processor has instructions for SHA-1 they are used. The time taken depends on the
 * message's length only, not on its bytes. Functions keep nothing between calls; several threads
 * may use them at once, each with a context of its own. Compiles as C11 and as C++17.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "qorapi.h"

QOR_BEGIN_C

/** The size of a digest in bytes. */
#define QOR_SHA1_SIZE 20

/** A digest on its way. Its members are the library's own; a copy goes on independently. */
typedef struct QorSha1Context {
    uint64_t length;         /**< bytes taken so far */
    uint32_t state[5];       /**< the hash value after the last whole block */
    unsigned char block[64]; /**< bytes that wait for their block to be full */
} QorSha1Context;

/**
 * The digest of `size` bytes at `data`. Its context is wiped as QorSha1Final does it.
 * @param data may be null where `size` is 0
 * @param digest receives QOR_SHA1_SIZE bytes and may overlap `data`
 * @return 1; 0 where `digest` is null, or `data` is null and `size` is not 0: nothing is written
 */
QOR_API int QorSha1(const void* data, size_t size, unsigned char* digest);

/**
 * Begins a message. Also sets back a context in any state.
 * @return 1; 0 where `context` is null
 */
QOR_API int QorSha1Init(QorSha1Context* context);

/**
 * Takes the next `size` bytes of the message, any number at a time. FIPS 180-4 defines the digest
 * for less than 2^61 bytes in total, which is not checked.
 * @return 1; 0 where `context` is null, or `data` is null and `size` is not 0: nothing is taken
 */
QOR_API int QorSha1Update(QorSha1Context* context, const void* data, size_t size);

/**
 * Ends the message, writes its digest and wipes the context, which has to be begun anew before it
 * takes another message.
 * @param digest receives QOR_SHA1_SIZE bytes
 * @return 1; 0 where either is null: nothing is written and the context stays as it is
 */
QOR_API int QorSha1Final(QorSha1Context* context, unsigned char* digest);

QOR_END_C
