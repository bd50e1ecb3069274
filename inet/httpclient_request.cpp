// The client itself and what it writes to the connection.
#include "httpclient.h"

#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "basicauth.h"
#include "qoros.h"

// Programs are compiled against this layout.
static_assert(offsetof(HttpClient, ownsTransport) == 0);
static_assert(offsetof(HttpClient, tcp) == 1);
static_assert(offsetof(HttpClient, responseBuffer) == 9);
static_assert(offsetof(HttpClient, responseHeaders) == 17);
static_assert(offsetof(HttpClient, statusCode) == 25);
static_assert(offsetof(HttpClient, statusLine) == 29);
static_assert(offsetof(HttpClient, body) == 158);
static_assert(offsetof(HttpClient, bodyLength) == 166);
static_assert(offsetof(HttpClient, requestBody) == 170);
static_assert(offsetof(HttpClient, requestBodyLength) == 178);
static_assert(offsetof(HttpClient, requestBodyCapacity) == 182);
static_assert(offsetof(HttpClient, userAgent) == 186);
static_assert(offsetof(HttpClient, contentType) == 194);
static_assert(offsetof(HttpClient, extraHeaders) == 202);
static_assert(offsetof(HttpClient, errorText) == 210);
static_assert(offsetof(HttpClient, proxyHost) == 338);
static_assert(offsetof(HttpClient, proxyPort) == 466);
static_assert(offsetof(HttpClient, host) == 470);
static_assert(offsetof(HttpClient, port) == 598);
static_assert(offsetof(HttpClient, hostHeader) == 602);
static_assert(offsetof(HttpClient, ssl) == 610);
static_assert(offsetof(HttpClient, multipart) == 611);
static_assert(offsetof(HttpClient, boundary) == 612);
static_assert(sizeof(HttpClient) == 636);

namespace {

constexpr unsigned int methodGet = 1;
constexpr unsigned int methodPost = 2;
constexpr unsigned int defaultPort = 80;        // never written out
constexpr std::size_t longestCredentials = 189; // characters of user and password together

// The text of a request while it is put together. A shortage of memory is remembered, so that one
// look at the end is enough.
class RequestText {
public:
    explicit RequestText(std::size_t expected) {
        reserve(expected);
    }
    ~RequestText() {
        free(bytes_);
    }
    RequestText(const RequestText&) = delete;
    RequestText& operator=(const RequestText&) = delete;

    void add(const char* text) {
        add(text, strlen(text));
    }
    void add(const char* bytes, std::size_t count) {
        if (count != 0 && reserve(count)) {
            memcpy(bytes_ + length_, bytes, count);
            length_ += count;
        }
    }
    void addNumber(unsigned int number) {
        char digits[12];
        sprintf_qor(digits, sizeof digits, "%d", static_cast<int>(number));
        add(digits);
    }
    void addLine(const char* name, const char* value) {
        add(name);
        add(value);
        add("\r\n");
    }

    bool failed() const {
        return failed_ || length_ > UINT32_MAX;
    }
    bool sendOver(TcpClient* tcp) const {
        return tcp->Send(reinterpret_cast<const unsigned char*>(bytes_),
                         static_cast<unsigned int>(length_)) != 0;
    }

private:
    bool reserve(std::size_t count) {
        if (failed_) {
            return false;
        }
        if (count <= capacity_ - length_) {
            return true;
        }
        const std::size_t capacity = 2 * capacity_ + count;
        char* const grown = static_cast<char*>(realloc(bytes_, capacity));
        if (grown == nullptr) {
            failed_ = true;
            return false;
        }
        bytes_ = grown;
        capacity_ = capacity;
        return true;
    }

    char* bytes_ = nullptr;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
    bool failed_ = false;
};

std::size_t lengthOrZero(const char* text) {
    return text == nullptr ? 0 : strlen(text);
}

void addRequestLine(RequestText& request, const HttpClient& http, unsigned int method,
                    const char* path) {
    request.add(method == methodPost ? "POST " : "GET ");
    if (http.proxyHost[0] != '\0') {
        request.add("http://");
        request.add(http.host);
        if (http.port != defaultPort) {
            request.add(":");
            request.addNumber(http.port);
        }
    }
    request.add("/");
    request.add(path);
    request.add(" HTTP/1.0\r\n");
}

void addHostLine(RequestText& request, const HttpClient& http) {
    char line[200];
    const bool byProxy = http.proxyHost[0] != '\0';
    const char* const host = byProxy ? http.host : http.tcp->hostName;
    // By value: the members of both are packed, and "?:" over them would make a reference.
    const unsigned int serverPort = http.port;
    const unsigned int tcpPort = http.tcp->port;
    const unsigned int port = byProxy ? serverPort : tcpPort;
    int length;
    if (http.hostHeader != nullptr) {
        length = sprintf_qor(line, sizeof line, "Host: %s\r\n", http.hostHeader);
    } else if (port == defaultPort) {
        length = sprintf_qor(line, sizeof line, "Host: %s\r\n", host);
    } else {
        length = sprintf_qor(line, sizeof line, "Host: %s:%d\r\n", host, static_cast<int>(port));
    }
    if (length >= static_cast<int>(sizeof line)) {
        memcpy(line + sizeof line - 3, "\r\n", 3); // a cut line still has to end
    }
    request.add(line);
}

} // namespace

HttpClient::HttpClient(TcpClient* transport) {
    tcp = transport;
    if (tcp == nullptr) {
        tcp = new (std::nothrow) TcpClient;
        ownsTransport = 1;
    }
    renewBoundary();
}

HttpClient::~HttpClient() {
    clearExParam();
    free(responseHeaders);
    free(userAgent);
    free(responseBuffer);
    if (tcp == nullptr) {
        return;
    }
    tcp->Disconnect();
    if (ownsTransport != 0) {
        delete tcp;
    }
}

void HttpClient::SetMultipartFormData() {
    multipart = 1;
}

void HttpClient::AddHeaderStr(const char* line) {
    static const char hostName[] = "Host: ";
    constexpr std::size_t withBlank = sizeof hostName - 1;
    if (line == nullptr) {
        return;
    }
    const std::size_t length = strlen(line);
    if (strncasecmp(line, hostName, withBlank - 1) == 0) {
        // The blank is taken for granted: the value begins with the seventh character.
        char* const value = strdup(length < withBlank ? "" : line + withBlank);
        if (value != nullptr) {
            free(hostHeader);
            hostHeader = value;
        }
        return;
    }
    const std::size_t before = lengthOrZero(extraHeaders);
    char* const grown = static_cast<char*>(realloc(extraHeaders, before + length + 3));
    if (grown == nullptr) {
        return;
    }
    sprintf_qor(grown + before, length + 3, "%s\r\n", line);
    extraHeaders = grown;
}

void HttpClient::SetBasicAuthentication(const char* user, const char* password) {
    if (user == nullptr || user[0] == '\0') {
        return;
    }
    const char* const secret = password == nullptr ? "" : password;
    char encoded[basicauth::encodedSize];
    if (!basicauth::encode(user, secret, longestCredentials, encoded)) {
        return;
    }
    char line[sizeof encoded + sizeof "Authorization: Basic "];
    sprintf_qor(line, sizeof line, "Authorization: Basic %s", encoded);
    AddHeaderStr(line);
}

signed char HttpClient::Get(const char* path) {
    signed char result = exchange(methodGet, path);
    if (result == 0 && tcp != nullptr && tcp->connected == 0) {
        if (connect() == 0) {
            clearExParam();
            return 0;
        }
        result = exchange(methodGet, path);
    }
    if (statusCode == 0 && tcp != nullptr && tcp->connected == 0 && connect() != 0) {
        result = exchange(methodGet, path);
    }
    clearExParam();
    return result;
}

signed char HttpClient::Post(const char* path) {
    if (!(multipart != 0 ? finishMultipartBody() : ensureContentType())) {
        clear();
        clearExParam();
        return 0;
    }
    signed char result = exchange(methodPost, path);
    if (statusCode == 0 && tcp != nullptr && tcp->connected == 0 && connect() != 0) {
        result = exchange(methodPost, path);
    }
    clearExParam();
    return result;
}

// A body without its type would be read in another way, or not at all.
bool HttpClient::ensureContentType() {
    if (contentType == nullptr) {
        contentType = strdup("application/x-www-form-urlencoded");
    }
    return contentType != nullptr;
}

// Content type and closing delimiter are written before `send` renews the boundary, so that they
// agree with the parts.
bool HttpClient::finishMultipartBody() {
    char text[64];
    sprintf_qor(text, sizeof text, "multipart/form-data; boundary=%s", boundary);
    free(contentType);
    contentType = strdup(text);
    // Kept: the back-quote. Servers of the product take the closing delimiter with it.
    const int length = sprintf_qor(text, sizeof text, "--%s--`\r\n", boundary);
    return contentType != nullptr &&
           AddPostValueBinary(reinterpret_cast<const unsigned char*>(text),
                              static_cast<unsigned int>(length)) != 0;
}

signed char HttpClient::exchange(unsigned int method, const char* path) {
    if (send(method, path) == 0) {
        return 0;
    }
    return receiveWait();
}

signed char HttpClient::send(unsigned int method, const char* path) {
    clear();
    errorText[0] = '\0';
    if (tcp == nullptr) {
        return 0;
    }
    const bool post = method == methodPost;
    const unsigned int length = post && requestBody != nullptr ? requestBodyLength : 0;
    const char* relative = path == nullptr ? "" : path;
    if (relative[0] == '/') {
        ++relative;
    }
    RequestText request(lengthOrZero(extraHeaders) + strlen(relative) + length + 400);
    addRequestLine(request, *this, method, relative);
    request.add("Accept: */*\r\n");
    if (userAgent != nullptr) {
        request.addLine("User-Agent: ", userAgent);
    }
    addHostLine(request, *this);
    if (extraHeaders != nullptr) {
        request.add(extraHeaders);
    }
    if (contentType != nullptr) {
        request.addLine("Content-Type: ", contentType);
    }
    if (post) {
        // Kept: the lower-case "l", unlike the "Content-Length: " that responses are searched for.
        request.add("Content-length: ");
        request.addNumber(length);
        request.add("\r\n");
    }
    request.add("\r\n");
    request.add(requestBody, length);
    if (request.failed()) {
        return 0;
    }
    // A connection that broke shows in the response that doesn't come.
    static_cast<void>(request.sendOver(tcp));
    return 1;
}

void HttpClient::clearExParam() {
    free(requestBody);
    requestBody = nullptr;
    requestBodyLength = 0;
    requestBodyCapacity = 0;
    free(extraHeaders);
    extraHeaders = nullptr;
    free(hostHeader);
    hostHeader = nullptr;
    free(contentType);
    contentType = nullptr;
}

void HttpClient::clear() {
    free(responseHeaders);
    responseHeaders = nullptr;
    body = nullptr;
    bodyLength = 0;
    statusCode = 0;
    statusLine[0] = '\0';
    multipart = 0;
    renewBoundary();
}

void HttpClient::renewBoundary() {
    sprintf_qor(boundary, sizeof boundary, "%lu", static_cast<unsigned long>(time(nullptr)));
}
