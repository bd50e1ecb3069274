/**
 * @file qormif.h
 * Reading a message's entries where they lie, without a Mif32 object (see mif32.h for the format).
 *
 * Each function takes the message, its length in bytes, an identifier and an occurrence: 1 for the
 * first entry with that identifier, 2 for the second. The result is 1 where there is such an entry
 * and its value is of the kind that is asked for, otherwise 0. A null message, a length of 0 and an
 * occurrence of 0 give 0 at once, with nothing written. An output that is null is not written, and
 * the result is the same. Nothing outside the message is read, whatever the lengths in it say, and
 * nothing is kept: the functions may be called from any thread.
 *
 * An entry is found as by Mif32::Seek. qormifGetInt, qormifGetInt64, qormifGetIpAddrV4 and
 * qormifGetIpAddr end where no more than 4 bytes are left, the others where fewer than 4 are: only
 * they see an empty entry that ends the message.
 */
#pragma once

#include "qorapi.h"

class QorIpAddr;

QOR_BEGIN_C

/** Reads a value of exactly 4 bytes. `out` is written only on success. */
QOR_API int qormifGetInt(const unsigned char* message, unsigned int length, unsigned short id,
                         unsigned int* out, unsigned int occurrence);

/** Reads a value of 8 or of 4 bytes; `out` is 0 where there is none. */
QOR_API int qormifGetInt64(const unsigned char* message, unsigned int length, unsigned short id,
                           unsigned long long* out, unsigned int occurrence);

/**
 * Copies a value and a terminator.
 * @param out written only on success
 * @param outSize of `out` in bytes; the value has to be shorter, also where `out` is null
 */
QOR_API int qormifGetStr(const unsigned char* message, unsigned int length, unsigned short id,
                         char* out, unsigned int outSize, unsigned int occurrence);

/**
 * Copies a value.
 * @param out written only on success
 * @param ioLen size of `out` in bytes, which limits the value's length also where `out` is null.
 *        Receives that length, 0 where the value is longer; untouched where there is no entry. Null
 *        gives 0.
 */
QOR_API int qormifGetBinData(const unsigned char* message, unsigned int length, unsigned short id,
                             unsigned char* out, unsigned int* ioLen, unsigned int occurrence);

/** Points at a value in the message and tells its length in bytes. Both outputs are written only on
 * success. */
QOR_API int qormifGetBinDataPtr(const unsigned char* message, unsigned int length,
                                unsigned short id, unsigned char** outPtr, unsigned int* outLen,
                                unsigned int occurrence);

/** Reads an IPv4 address by QorIpAddr::SetIpAddrFromMifV4, so that a value of another length leaves
 * `out` as it is. Without the entry `out` becomes 0.0.0.0. */
QOR_API int qormifGetIpAddrV4(const unsigned char* message, unsigned int length, unsigned short id,
                              QorIpAddr* out, unsigned int occurrence);

/** Reads an address by QorIpAddr::SetIpAddrFromMif. `out` becomes unset where there is none. */
QOR_API int qormifGetIpAddr(const unsigned char* message, unsigned int length, unsigned short id,
                            QorIpAddr* out, unsigned int occurrence);

/** Overwrites a value of exactly 4 bytes. Nothing is ever appended. */
QOR_API int qormifUpdInt(unsigned char* message, unsigned int length, unsigned short id,
                         unsigned int value, unsigned int occurrence);

/**
 * Formats all entries with the identifier as a list of ranges, as in "1, 5-9".
 *
 * A value is a pair, low and high: 8 bytes are two 32-bit numbers, 4 bytes two of 16 bits, 2 bytes
 * two of 8. A pair of equal numbers is written once. Numbers of 32 bits are written as signed ones.
 * A value of any other length adds nothing, but behind another one the separator ", ".
 *
 * @param out receives the list, cut to `outSize - 1` characters, and a terminator; with a pair the
 *        last of the `outSize` bytes becomes 0 as well
 * @param outSize of `out` in bytes
 * @param asIpV4 writes the numbers of 8-byte values as IPv4 addresses
 * @return 1 where there was at least one pair. Otherwise 0, and `out` is ""; for null pointers, a
 *         length below 4 and an `outSize` of 0 it is untouched.
 */
QOR_API int qormifGetRangeValuesAsString(const unsigned char* message, unsigned int length,
                                         unsigned short id, char* out, unsigned int outSize,
                                         bool asIpV4);

QOR_END_C
