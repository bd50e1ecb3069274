/**
 * @file httpvalue.h
 * What network clients read from texts: the pairs of a body made of "name: value" lines, and HTTP
 * dates.
 *
 *     QOR::TemplLinkedList<HTTPVALUE*> values;
 *     HTTPVALUE::parseHttpValues(values, http.body, http.bodyLength);
 *     const HTTPVALUE* version = HTTPVALUE::findHttpValue(values, "Version");
 *
 * A list is used by one thread at a time; the functions keep nothing between calls.
 */
#pragma once

#include "qorapi.h"
#include "templlinkedlist.h"

/** A pair of texts, made with new. It owns both: they come from malloc, strdup or the like. */
struct QOR_API HTTPVALUE {
    /** Both texts are null. */
    HTTPVALUE();

    /** Releases both texts with free. */
    ~HTTPVALUE();

    HTTPVALUE(const HTTPVALUE&) = delete;
    HTTPVALUE& operator=(const HTTPVALUE&) = delete;

    /**
     * Adds a pair to the list for each "name: value" that CR LF ends. In a value each "<CR>"
     * becomes a line feed.
     *
     * A name is all that stands between the end of the pair before and the next ": ", so that a
     * line without ": " becomes the beginning of the next name, with its line end. Where a ":" does
     * not end a name it takes the character behind it along, and so does a CR in a value: "a:: b"
     * and a value that ends with CR CR LF go on. What is not complete at the end adds no pair.
     * @param list receives the pairs by its `Add`, which makes them its own
     * @param text bytes, not necessarily with a terminator; a zero byte ends the name or value that
     *        it stands in for its reader; null counts as empty
     * @param len their number; no pair with 0 or 1
     */
    static void parseHttpValues(QOR::TemplLinkedList<HTTPVALUE*>& list, const char* text,
                                unsigned int len);

    /**
     * The first pair with exactly this name, upper and lower case told apart.
     * @return the pair, which stays the list's; null when there is none, and for a null name
     */
    static HTTPVALUE* findHttpValue(QOR::TemplLinkedList<HTTPVALUE*>& list, const char* name);

    /**
     * Replaces every "<CR>" by one line feed (0x0A), in place.
     * @return `text`, also where it is null
     */
    static char* replaceCR(char* text);

    char* name = nullptr;  /**< owned; null until it is set */
    char* value = nullptr; /**< owned; null until it is set */
};

extern template class QOR::TemplLinkedList<HTTPVALUE*>;

QOR_BEGIN_C

/**
 * Reads a date of HTTP (RFC 7231, section 7.1.1.1: IMF-fixdate and the RFC 850 form; the form of
 * asctime only with "GMT" in front of the year), of which weekday and "GMT" at the end may be left
 * out, and the same with the time in front:
 *
 *     [Sun, ]06 Nov 1994 08:49:37 GMT       08:49:37 GMT 06 Nov 1994
 *     [Sunday, ]06-Nov-94 08:49:37 GMT      08:49:37 GMT 06-Nov-94
 *     Sun Nov 6 08:49:37 GMT 1994
 *
 * Names are English, short or long, in any case. The weekday has to be one and is not compared with
 * the date. Numbers may have a sign and blanks in front of them, and none is checked for its range:
 * hour 25 is the second hour of the next day. A year below 70 counts from 2000, from 70 to 1900
 * from 1900, so that 1900 means 3800. What stands behind the date is not read.
 * @return seconds since 1970-01-01 00:00:00 UTC, negative before, a day or more late for most dates
 *         before 1969 and all from 2101 on; -1 for any other text, and for null, which the second
 *         before 1970 can't be told from
 */
QOR_API long StrToDate(const char* text);

/**
 * Looks up the English name of a month, short or long.
 * @param text turned into lower case (ASCII) in place, found or not
 * @param value receives 0 for January to 11 for December; untouched when the result is 0
 * @return 1 when the text is such a name; else 0, also for null
 */
QOR_API int scan_mon(char* text, long* value);

/** The same for a weekday: 0 for Sunday to 6 for Saturday. */
QOR_API int scan_wday(char* text, long* value);

QOR_END_C
