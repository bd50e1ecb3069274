/**
 * @file qorurl.h
 * Takes an HTTP or HTTPS URL apart.
 *
 * The functions keep nothing between calls; different records may be used by different threads at
 * the same time. Compiles as C11 and as C++17.
 */
#pragma once

#include "qorapi.h"

QOR_BEGIN_C

#pragma pack(push, 1)

/** The parts of a URL. Texts are from calloc and belong to the record until QorInetUrlFree. */
typedef struct QORINET_URL {
    unsigned char reserved[8]; /**< left zero by the parser */
    unsigned char secure;      /**< 1 for "https://", otherwise 0 */
    char* host;                /**< name or address, without the port */
    unsigned int port;         /**< the port given, or that of the scheme, or the default */
    char* text1;               /**< never filled here; released when set */
    char* text2;               /**< never filled here; released when set */
    char* path;                /**< what follows the "/" behind host and port, without it */
} QORINET_URL;

#pragma pack(pop)

/**
 * Splits `url` into host, port and path. "https://" and "http://", in any case, set the port to 443
 * and 80; any other text is taken apart as it stands, without a scheme. Query and fragment stay in
 * the path.
 *
 * The first ":" behind the scheme, wherever it is, ends the host, so that bracketed IPv6 addresses
 * and a ":" in the path are not understood. The port is read like atol, of at most 199 characters:
 * text that is no number gives 0, one beyond `long` the limit of `long` on its side. Of the number
 * the low 32 bits count.
 * @param out is overwritten without being freed, but for a null or empty `url`, which leaves it as
 *        it was. To be released with QorInetUrlFree, also after a failure
 * @param defaultPort the port of a text with neither scheme nor port; stored, as that of a scheme
 *        is, also where the parse then fails
 * @return 1; 0 where `url` or `out` is null, `url` is empty, no "/" follows the host or its port,
 *         or memory is short. The record may then hold a host, after a shortage also a path
 */
QOR_API int QorInetUrlParse(const char* url, QORINET_URL* out, unsigned int defaultPort);

/** Releases the texts of a record and zeroes it. A zeroed record and null are fine. */
QOR_API void QorInetUrlFree(QORINET_URL* url);

QOR_END_C
