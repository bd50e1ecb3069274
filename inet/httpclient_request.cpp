// What goes out: the text of one request.
#include "httpclient.h"

#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "basicauth.h"
#include "httpclient_internal.h"
#include "qoros.h"

namespace {

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

void addRequestLine(RequestText& request, const HttpClient& http, unsigned int method,
                    const char* path) {
    request.add(method == httpclient::methodPost ? "POST " : "GET ");
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
    const std::size_t before = httpclient::lengthOf(extraHeaders);
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

signed char HttpClient::send(unsigned int method, const char* path) {
    clear();
    errorText[0] = '\0';
    if (tcp == nullptr) {
        return 0;
    }
    const bool post = method == httpclient::methodPost;
    const unsigned int length = post && requestBody != nullptr ? requestBodyLength : 0;
    const char* relative = path == nullptr ? "" : path;
    if (relative[0] == '/') {
        ++relative;
    }
    RequestText request(httpclient::lengthOf(extraHeaders) + strlen(relative) + length + 400);
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
