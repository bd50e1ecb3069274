/**
 * @file qorupdate.h
 * The update check: asks an update server what the newest release of a product is, and fetches it.
 *
 * The functions may be called from any thread. Compiles as C11 and as C++17.
 */
#pragma once

#include "qorapi.h"
#include "qorinet.h"

QOR_BEGIN_C

/**
 * Reads an update description and returns its facts as a message.
 *
 * The description is a configuration text (see configfile.h) behind an "http://" URL. An "https://"
 * URL is taken as well, but there is no TLS: the request goes in the clear to that URL's port (443
 * where it names none). Of the text's group "Language <language>", or of "Language 2" where that is
 * missing, the message gets one entry for each of these names that is there, in this order, and
 * then the end marker (see mif32.h):
 *
 * | name        | identifier | entry                               |
 * |-------------|------------|-------------------------------------|
 * | ProductName | 1          | text, cut to 256 characters         |
 * | Version     | 2          | 32-bit number                       |
 * | Build       | 3          | 32-bit number                       |
 * | Servicepack | 4          | 32-bit number                       |
 * | UrlInfo     | 6          | text, cut to 256 characters         |
 * | UrlDownload | 5          | text, cut to 256 characters         |
 * | Filesize    | 8          | 32-bit number                       |
 *
 * One redirect by status 301 is followed. The call blocks for as long as connection and transfer
 * take: TcpClient's time-out of 15 s limits each step, but nothing limits their number nor the
 * resolving of a name (see httpclient.h).
 *
 * @param proxyHost name or address of an HTTP proxy; null or empty: none; one of 128 characters and
 *        more gives 0
 * @param proxyPort its port, of which the low 16 bits are used
 * @param out receives the message; untouched when the result is 0
 * @param outSize size of `out` in bytes
 * @return length of the message in bytes. A server that could be reached but did not deliver a
 *         description gives a message of the end marker alone. 0 when `url` can't be parsed, the
 *         first connect fails, `out` is too small, or memory is short for the message.
 */
QOR_API unsigned int CheckForUpdate(int language, const char* url, const char* proxyHost,
                                    unsigned int proxyPort, void* out, unsigned int outSize);

/**
 * Downloads a file, if the server's is newer than the one that is there; for the "UrlDownload" of a
 * description. What HttpGet::HttpRequestCB (httpget.h) says of the destination, of the file's time
 * and of what stays behind after a failure holds here too. Connecting takes up to 300 s, each
 * receive up to 30 s.
 *
 * @param proxyHost as for CheckForUpdate
 * @param proxyPort its port, of which the low 16 bits are used
 * @param callback follows the transfer and may abort it; may be null
 * @param context passed to the callback
 * @return 1 when the file was downloaded or is up to date; 0 when that failed or was aborted, and
 *         for a null `url` or `destFile`
 */
QOR_API signed char DownloadUpdate(const char* url, const char* destFile, const char* proxyHost,
                                   int proxyPort, HttpGetCallback callback, void* context);

QOR_END_C
