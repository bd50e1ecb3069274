/**
 * @file httpclient.h
 * HttpClient: a small HTTP/1.0 client over a TcpClient (RFC 1945; answers may be HTTP/1.1).
 *
 * One request, one response, then the parameters of the request are dropped:
 *
 *     HttpClient http(nullptr);
 *     if (http.Connect("example.org", 80, 0)) {
 *         http.AddPostValue("name", "value", 0);
 *         if (http.Post("/form") && http.statusCode == 200) {
 *             use(http.body, http.bodyLength);
 *         }
 *     }
 *
 * The whole response stays in memory; a body is limited to 1,000,000 bytes. Truth values are 1 and
 * 0. There is no TLS. An object is used by one thread at a time.
 *
 * The transport's time-out limits each connect and each receive, counted afresh, but not the whole:
 * resolving a name has no limit, a server that keeps sending a few bytes holds the call up to the
 * limits in bytes, and `Get` makes up to three exchanges.
 */
#pragma once

#include "qorapi.h"
#include "tcpclient.h"

#pragma pack(push, 1)

/**
 * The client. Its layout is byte-packed, so that no reference or pointer to a member of several
 * bytes may be kept; read and write the members by value.
 *
 * Owned texts are allocated with malloc or strdup and released with free. A text that a caller
 * hands in is copied; it must not lie in the memory that this object owns (response, request body,
 * extra headers), which is moved or released while it is read.
 */
class QOR_API HttpClient {
public:
    /**
     * @param transport the connection to use, which stays the caller's and must live longer than
     *        this object; null: the object makes and owns one
     */
    explicit HttpClient(TcpClient* transport);

    /** Releases all texts, disconnects the transport, and deletes it if it is owned. */
    ~HttpClient();

    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /**
     * Remembers the server and connects to it, or to the proxy where `proxyHost` is set.
     * @param hostName server name or address; cut to 127 characters; may be `host`; null fails
     * @param portNumber server port
     * @param useSsl passed on to TcpClient::Connect
     * @return 1 when connected; else 0, and `errorText` says "TCP Connect failed"
     */
    signed char Connect(const char* hostName, unsigned int portNumber, signed char useSsl);

    /** Connects again to the server of the last Connect; an open connection is closed before. */
    signed char connect();

    /**
     * @name Building a request
     * The values of a body come before `Get` or `Post`, which drop them. The functions that add to
     * the body return its length in bytes; a null argument or a shortage of memory adds nothing.
     * @{
     */

    /** The body becomes multipart/form-data (RFC 2388) for the next request. */
    void SetMultipartFormData();

    /**
     * Adds one form value, with name and value encoded by `strToHttp`; in a multipart body as
     * `AddPostValueMultiPart` with conversion.
     * @param lineLen see `strToHttp`
     */
    unsigned int AddPostValue(const char* name, const char* value, unsigned int lineLen);

    /**
     * Adds "name=value" as given, behind a "&" where the body has text already; in a multipart body
     * as `AddPostValueMultiPart` without conversion. It writes at the first zero byte of the body.
     */
    unsigned int AddPostValueDirect(const char* name, const char* value);

    /**
     * Adds one part of a multipart body at the body's first zero byte.
     * @param raw 0: `value` is converted by `AnsiToUtf8`, and the result is cut to about twice its
     *        length, which is less than a value of many bytes above 0x7F becomes; else as given
     */
    unsigned int AddPostValueMultiPart(const char* name, const char* value, signed char raw);

    /**
     * Adds `len` raw bytes; a zero byte is kept behind them.
     * A shortage of memory empties the body.
     */
    unsigned int AddPostValueBinary(const unsigned char* data, unsigned int len);

    /**
     * Encodes a text as application/x-www-form-urlencoded.
     * @param lineLen 0: no line breaks; else "%0D%0A" follows the first `lineLen + 1` characters of
     *        `text` and every `lineLen` characters after that
     * @return a new text, to be released with free; null for a null text or without memory
     */
    static char* strToHttp(const char* text, unsigned int lineLen);

    /**
     * Adds one header line, given without its line end. "Host: " with a value (the name in any
     * case) replaces the generated Host line instead.
     */
    void AddHeaderStr(const char* line);

    /**
     * Adds an "Authorization: Basic " line (RFC 7617). Nothing is added without a user, or where
     * user and password together have 190 characters or more.
     */
    void SetBasicAuthentication(const char* user, const char* password);

    /** @} */

    /**
     * One exchange by GET. Where it fails and the connection is found closed it is repeated over a
     * new one, and once more where no status was read.
     * @param path with or without its leading "/"; null counts as empty
     * @return 1 when a response was read in full, whatever its status
     */
    signed char Get(const char* path);

    /**
     * One exchange by POST of the body that was built. It is repeated once where no status was read
     * and the connection is found closed. Without memory for the content type nothing is sent.
     */
    signed char Post(const char* path);

    /**
     * Writes one request to the connection.
     * @param method 2 = POST, every other one GET (1)
     * @return 0 when memory is short and nothing was sent; a failure of the connection shows in
     *         `receiveWait`
     */
    signed char send(unsigned int method, const char* path);

    /** Drops the parameters of the request: body, extra headers, host header, content type. */
    void clearExParam();

    /** Drops the response but for its buffer; renews the boundary and leaves multipart mode. */
    void clear();

    /**
     * Reads one response, skipping an interim one (1xx) in front of it. Every receive waits for the
     * transport's time-out at most. Buffer and body of the response before are dropped here; its
     * status, status line and headers stay where the new one does not come that far, unless `send`
     * or `clear` dropped them.
     * @return 1 when the body was read in full. On 0 the members hold what was understood.
     */
    signed char receiveWait();

    /**
     * Looks up a header of the last response. A zero byte among the headers ends them, for this and
     * for what `receiveWait` itself reads from them.
     * @param name the beginning of the line in any case, the ": " included, for example
     *        "Location: "
     * @param value receives the rest of the line; untouched when the result is 0
     * @param size of `value` in bytes
     * @return 1; 0 where there is no such line, where its value does not fit with a terminator, and
     *         for a null argument
     */
    signed char GetHeaderParam(const char* name, char* value, unsigned int size) const;

    /**
     * Finds the first blank line behind a line's end in `len` bytes; a line ends with CR, LF, CR LF
     * or LF CR. A blank line that the bytes begin with is the end of a line, no more.
     * @param end receives the offset of the first byte behind the blank line; 0 when there is none
     * @return that byte's address (`buf + len` when the blank line ends the bytes), or null
     */
    static char* findCrLfCrLf(char* buf, unsigned int len, unsigned int* end);

    /**
     * Finds the first line in `len` bytes that begins with `name`, compared without regard to case.
     * A line counts only when a CR or LF ends it. Value and result as for `GetHeaderParam`.
     */
    static signed char findHeaderStr(const char* text, unsigned int len, const char* name,
                                     char* value, unsigned int size);

    signed char ownsTransport = 0;   /**< 1: `tcp` was made here and is deleted with the object */
    TcpClient* tcp = nullptr;        /**< the connection; null only when memory was short */
    char* responseBuffer = nullptr;  /**< owned: the response as received */
    char* responseHeaders = nullptr; /**< owned: the header block, its last byte a terminator */
    unsigned int statusCode = 0;     /**< of the last response; 0: none */
    char statusLine[129] = {};       /**< first line of the response; "HTTP" alone if too long */
    char* body = nullptr;            /**< in `responseBuffer`, a zero byte behind it; or null */
    unsigned int bodyLength = 0;     /**< bytes; as announced, also when the body came short */
    char* requestBody = nullptr;     /**< owned: the body being built */
    unsigned int requestBodyLength = 0;   /**< bytes used */
    unsigned int requestBodyCapacity = 0; /**< bytes available; 10 more are allocated */
    char* userAgent = nullptr;    /**< owned; set it to a malloc text to send "User-Agent: " */
    char* contentType = nullptr;  /**< owned; sent as "Content-Type: " */
    char* extraHeaders = nullptr; /**< owned: lines with their CR LF */
    char errorText[128] = {};     /**< of the last failure; emptied by `send` */
    char proxyHost[128] = {};     /**< set it to use a proxy; empty: none */
    unsigned int proxyPort = 0;   /**< port of the proxy */
    char host[128] = {};          /**< server of the last Connect */
    unsigned int port = 0;        /**< port of the last Connect */
    char* hostHeader = nullptr;   /**< owned; replaces the generated value of "Host: " */
    signed char ssl = 0;          /**< of the last Connect */
    signed char multipart = 0;    /**< 1 after `SetMultipartFormData` */
    char boundary[24] = {};       /**< multipart boundary: seconds since 1970, decimal */

private:
    // Makes the body's allocation fit `need` bytes: `growth` is added to the capacity if it
    // doesn't.
    QOR_LOCAL bool reserveBody(unsigned long long need, unsigned long long growth);
    QOR_LOCAL void renewBoundary();
    QOR_LOCAL bool finishMultipartBody();
    QOR_LOCAL bool ensureContentType();
    QOR_LOCAL signed char exchange(unsigned int method, const char* path);
    QOR_LOCAL bool readHeaderPart(unsigned int* held);
    QOR_LOCAL bool takeHeaderBlock(unsigned int start, unsigned int length);
    QOR_LOCAL void describeStatus();
    QOR_LOCAL signed char takeBody(unsigned int offset, unsigned int length, unsigned int held);
    QOR_LOCAL signed char readRestOfBody(unsigned int offset, unsigned int held);
};

#pragma pack(pop)
