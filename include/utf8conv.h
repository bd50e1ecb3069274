/**
 * @file utf8conv.h
 * Conversion of 8-bit text with numeric character references to UTF-8.
 *
 * The functions keep nothing between calls and may be called from any thread. Compiles as C11 and
 * as C++17.
 */
#pragma once

#include "qorapi.h"

QOR_BEGIN_C

/**
 * Writes one code in the UTF-8 scheme of RFC 2279, in which 31 bits take up to six bytes. Any value
 * is taken, surrogates included; bits above bit 30 are dropped, but make the form the longest one.
 * No terminator is written.
 * @param out where to write; null to be told the length only, whatever `room` is
 * @param room the number of bytes at `out`
 * @return the number of bytes that the code takes; -1 where they are more than `room`, and nothing
 *         is then written
 */
QOR_API int UTF8_putc(unsigned char* out, int room, unsigned long code);

/**
 * Turns `src` into UTF-8 and resolves numeric character references, "&#252;" and "&#xFC;".
 *
 * Only ASCII comes through as it is. A byte of 0x80 and above becomes six bytes that no decoder of
 * today accepts, so that text beyond ASCII is to be given as references. Of a "&#" that no ";"
 * follows the "&" is dropped; a reference of 20 or more characters before its ";" is dropped whole.
 * A reference reads what a longer one before it in the same text left behind its own digits:
 * "&#1234;&#5;" is 1234 and 5234. A reference to 0, or without a number, writes a zero byte, which
 * ends the text for its reader; the conversion goes on behind it.
 *
 * Where a code no longer fits, the position goes one byte back, never before the start of `dst`,
 * and the conversion goes on from there.
 * @param src the text, ending with a zero byte; null counts as empty
 * @param dst receives the text and a terminator, and must not overlap `src`; null: nothing is done
 * @param dstSize the number of bytes that the text may take. The terminator is not counted: pass
 *        one less than the size of the buffer, since it may land at dst[dstSize]
 */
QOR_API void AnsiToUtf8(char const* src, char* dst, unsigned int dstSize);

QOR_END_C
