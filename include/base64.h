/**
 * @file base64.h
 * Two families of Base64 functions over the standard alphabet of RFC 4648, section 4, with "="
 * as padding.
 *
 * The buffer family (CalcBase64Len, Base64Encode, Base64Decode) breaks its text into lines and
 * works on counted buffers. The network family (QorInetB64Encode, QorInetB64Decode) makes one
 * unbroken text that ends with a zero byte, as HTTP headers carry it.
 *
 * No function keeps anything between calls: all may be called from any thread at any time. A null
 * `in` or `out` gives 0, and nothing is then written; only QorInetB64Encode takes a null `in`
 * without a length for an empty input. An empty input gives 0 as well. The decoders also work in
 * place, with `in` and `out` the same; otherwise no two buffers of a call may overlap. Compiles as
 * C11 and as C++17.
 */
#pragma once

#include "qorapi.h"

QOR_BEGIN_C

/**
 * The size in bytes of the buffer to give to Base64Encode for `count` bytes: one more than it
 * writes, which leaves room for a terminator; 0 for a `count` of 0.
 * @return 0xFFFFFFFF where the true size is that or more; such a text fits no buffer that
 *         Base64Encode can be given
 */
QOR_API unsigned int CalcBase64Len(unsigned int count);

/**
 * Encodes `inLen` bytes into lines divided by a line feed (0x0A): the first line has 65
 * characters, every later one 64. No line feed ends the last line, and no terminator is written.
 * @param outSize the size of `out` in bytes
 * @return the number of characters written, line feeds included; 0 where `out` is too small, and it
 *         then holds as much of the text as fits
 */
QOR_API unsigned int Base64Encode(unsigned char const* in, unsigned int inLen, unsigned char* out,
                                  unsigned int outSize);

/**
 * Decodes a text of `inLen` characters up to its padding, or to its end where it has none. Bytes
 * outside the alphabet, line ends and blanks among them, are skipped; what follows the first
 * padded group of four is ignored. No terminator is written.
 *
 * "=" counts as a digit of value 0. Only the third and the fourth place of a group make it
 * padding: a group whose third character is "=" yields one byte, one whose fourth is "=" two.
 * @param outSize the size of `out` in bytes
 * @return the number of bytes written; 0 where the text ends inside a group, or `out` is too
 *         small, and it then holds the bytes decoded so far
 */
QOR_API unsigned int Base64Decode(unsigned char const* in, unsigned int inLen, unsigned char* out,
                                  unsigned int outSize);

/**
 * Encodes `inLen` bytes, a negative number counting as 0, into one line and a terminator.
 * @param out a buffer of at least (inLen + 2) / 3 * 4 + 1 bytes, which is not checked
 * @param outLen receives the length without the terminator; may be null
 * @return the same length
 */
QOR_API unsigned int QorInetB64Encode(unsigned char const* in, int inLen, char* out,
                                      unsigned int* outLen);

/**
 * Decodes a text up to its first "=" or to its terminator; no character behind that one is read.
 * A blank is read as "+", which forms turn into blanks on their way; other bytes outside the
 * alphabet are skipped.
 *
 * Behind the decoded bytes stands a zero byte. Where the text ended with "=", zero bytes fill the
 * begun group of three: two follow its first byte, one its second. A last group of two or three
 * digits gives one or two bytes, a single digit none, and its left-over bits are dropped.
 * @param unusedLength has no effect
 * @param out a buffer of at least strlen(in) * 3 / 4 + 1 bytes, rounded down, which is not checked;
 *        a text of nothing but digits takes all of them
 * @param outLen receives the number of bytes without the zero bytes; may be null
 * @return the same number; 0, with `outLen` untouched and no zero byte written, where "=" follows a
 *         number of digits that leaves 0 or 1 on division by 4
 */
QOR_API unsigned int QorInetB64Decode(char const* in, int unusedLength, unsigned char* out,
                                      unsigned int* outLen);

QOR_END_C
