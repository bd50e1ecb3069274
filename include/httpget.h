/**
 * @file httpget.h
 * HttpGet: downloads a file over HTTP/1.0 (RFC 1945), if the server's is newer.
 *
 *     HttpGet get;
 *     signed char updated = 0;
 *     if (get.HttpRequest("http://example.org/list.txt", "list.txt", &updated) == 0) {
 *         complain(get.errorText);
 *     } else if (updated) {
 *         reload("list.txt");
 *     }
 *
 * Truth values are 1 and 0. There is no TLS: an "https://" URL is fetched in the clear from port
 * 443. An object is used by one thread at a time; different objects are independent.
 *
 * Connecting takes up to the transport's time-out, 15 s at first (see tcpclient.h), and each
 * receive up to 30 s; nothing limits the resolving of a name nor the number of receives, so a
 * server that keeps sending a few bytes holds the call. A callback can end it.
 */
#pragma once

#include "qorapi.h"
#include "qorinet.h"
#include "qorurl.h"
#include "tcpclient.h"

#pragma pack(push, 1)

/**
 * The downloader. Its layout is byte-packed, so that no reference or pointer to a member of several
 * bytes may be kept; read and write the members by value.
 */
class QOR_API HttpGet {
public:
    /** A connection of its own, no proxy, no error text. */
    HttpGet();
    /** Disconnects and releases what the object owns. */
    ~HttpGet();
    HttpGet(const HttpGet&) = delete;
    HttpGet& operator=(const HttpGet&) = delete;

    /**
     * Sets the credentials for the proxy (basic authentication, RFC 7617), of which copies are
     * kept. A null or empty text leaves the one from before. They are sent when both are set and
     * have at most 198 characters together.
     */
    void SetProxyAuthentication(const char* user, const char* password);

    /** HttpRequestCB without a callback. */
    signed char HttpRequest(const char* url, const char* destFile, signed char* updated);

    /**
     * Downloads `url` into `destFile`. Where that file exists, whatever it holds, only a newer one
     * is asked for ("If-Modified-Since:" with its modification time); otherwise it is created. A
     * file that was downloaded gets the time of the server's "Last-Modified:", or else of its
     * "Date:".
     *
     * @param destFile is emptied once the server delivers. What was written stays there when the
     *        transfer fails or is aborted, and with the server's time: the next request may find
     *        the piece up to date. Remove it then.
     * @param updated becomes 1 only when the file was written completely; 0 next to a result of 1
     *        says that the file is up to date (status 304). May be null
     * @param callback is called, on this thread, with 0 bytes when the file has been opened, after
     *        every tenth receive, where what comes at once counts as receives of 4,096 bytes, and
     *        at the end, whatever that is; may be null. When it returns 0 after a receive the
     *        download is aborted; the other two calls' results do not count
     * @return 1 when there was no error; else 0, and `errorText` tells the reason but for these,
     *         which leave it as it was: a null `destFile`; a request of more than 4,095 characters,
     *         which is not sent; response headers that do not end within 4,096 bytes and 50
     *         receives; a transfer that breaks off; the callback's wish
     */
    signed char HttpRequestCB(const char* url, const char* destFile, signed char* updated,
                              HttpGetCallback callback, void* context);

    /**
     * The request and the transfer of HttpRequestCB, on the connected `tcp` and with `hostText` as
     * it is. The transport's time-out is 30 s from the request on.
     * @param url stays the caller's, who releases it with QorInetUrlFree
     */
    signed char getFile(QORINET_URL url, const char* destFile, signed char* updated,
                        HttpGetCallback callback, void* context);

    /**
     * Looks a file up.
     * @param size receives its size in bytes, modulo 2^32; may be null
     * @param dateText 40 bytes that receive its modification time as HTTP writes it, for example
     *        "Sun, 06 Nov 1994 08:49:37 GMT"; may be null
     * @return 0, and nothing stored, where the system finds no such file
     */
    signed char getFileInfo(const char* file, unsigned int* size, char* dateText);

    TcpClient* tcp;         /**< owned; null only when memory was short */
    char hostText[127];     /**< what "Host:" says: the host, ":" and a port other than 80 */
    char proxyHost[128];    /**< set it to use a proxy; empty: none */
    unsigned int proxyPort; /**< port of the proxy */
    char* proxyUser;        /**< owned, from new[]; null: none */
    char* proxyPassword;    /**< owned, from new[]; null: none */
    char errorText[100];    /**< of the last failure that has a text; a success does not clear it */
};

#pragma pack(pop)
