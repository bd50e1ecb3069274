/**
 * @file tfstring.h
 * TFstring: builds a text in a heap string that belongs to the caller.
 *
 *     char* text = nullptr;
 *     QOR::TFstring builder(&text, 1);
 *     if (builder.Add("name=") && builder.Add(value)) {
 *         use(text);
 *     }
 *     free(text);
 *
 * The string grows by 10 bytes at a time: meant for short texts. A builder is used by one thread at
 * a time.
 */
#pragma once

#include "qorapi.h"

namespace QOR {

/**
 * The builder. It reaches and replaces the string through the caller's pointer, which has to live
 * as long, and never releases it. Between two calls the caller may shorten the string, or take it
 * away by setting the pointer to null: the next one then starts afresh. A longer or a different
 * string must not be put in its place.
 */
class QOR_API TFstring {
public:
    /**
     * Sets `*target` to null, whatever it was, and makes an empty string there unless `initialSize`
     * is 0. Without memory `*target` stays null.
     * @param target the caller's pointer variable; null makes every operation fail
     * @param initialSize the number of characters to make room for
     */
    TFstring(char** target, unsigned int initialSize);

    /** Does nothing: the string is the caller's, to be released with free. */
    virtual ~TFstring();

    TFstring(const TFstring&) = delete;
    TFstring& operator=(const TFstring&) = delete;

    /**
     * Appends the text up to its terminator, at most `len` characters of it; no character behind
     * these is read. `length` grows by `len` also where the text is shorter.
     * @param text must not lie in the string itself
     * @return 1; 0 for a null text, and where growing fails (see `checkAndResize`)
     */
    int Add(char const* text, unsigned int len);

    /** Appends the whole text. */
    int Add(char const* text);

    /**
     * Makes room for `extra` characters behind `length`, and a terminator: the capacity grows by
     * the smallest multiple of 10 bytes that suffices. A string that is made here is empty.
     * @return 1; 0 where memory is short or 32 bits do not hold the capacity, and the string is
     *         then lost: `*target` is null, `capacity` and `length` are 0, and only a caller that
     *         kept the old pointer can still release it
     */
    int checkAndResize(unsigned int extra);

    /** @name Fields, in fixed order. For reading.
     *  @{ */
    char** target;             /**< the caller's pointer variable */
    unsigned int capacity = 0; /**< bytes allocated for the string */
    unsigned int length = 0;   /**< characters appended so far, as their callers counted them */
    /** @} */
};

} // namespace QOR
