/**
 * @file qoros_string.h
 * The OS layer: bounded strings. See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stddef.h>

QOR_BEGIN_C

/**
 * @name Bounded strings
 * All work on byte strings and take the full size of the destination in bytes, its terminator
 * included. Where `dest` or `src` is null the functions that copy and append return null and write
 * nothing; no other pointer may be null unless its declaration says so.
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

/**
 * The number of bytes before the first zero byte of `string`, at most `max`.
 * @param string may be null where `max` is 0
 */
QOR_API size_t strlen_qor(const char* string, size_t max);

/**
 * Formats like printf into `dest`, cut to `size - 1` bytes and always terminated.
 * @param dest may be null where `size` is 0
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

QOR_END_C
