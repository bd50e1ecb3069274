// The client itself: its life, its connection, and whole exchanges.
#include "httpclient.h"

#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <new>

#include "httpclient_internal.h"
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

constexpr char connectFailed[] = "TCP Connect failed";

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

signed char HttpClient::Connect(const char* hostName, unsigned int portNumber, signed char useSsl) {
    if (hostName == nullptr) {
        strcpy_qor(errorText, sizeof errorText, connectFailed);
        return 0;
    }
    ssl = useSsl;
    if (hostName != host) {
        strcpy_qor(host, sizeof host, hostName);
    }
    port = portNumber;
    return connect();
}

signed char HttpClient::connect() {
    signed char connected = 0;
    if (tcp != nullptr) {
        // TcpClient::Connect leaves an open socket open; a retry must not leak it.
        tcp->Disconnect();
        connected = proxyHost[0] != '\0' ? tcp->Connect(proxyHost, proxyPort, ssl)
                                         : tcp->Connect(host, port, ssl);
    }
    if (connected == 0) {
        strcpy_qor(errorText, sizeof errorText, connectFailed);
    }
    return connected;
}

signed char HttpClient::Get(const char* path) {
    signed char result = exchange(httpclient::methodGet, path);
    if (result == 0 && tcp != nullptr && tcp->connected == 0) {
        if (connect() == 0) {
            clearExParam();
            return 0;
        }
        result = exchange(httpclient::methodGet, path);
    }
    if (statusCode == 0 && tcp != nullptr && tcp->connected == 0 && connect() != 0) {
        result = exchange(httpclient::methodGet, path);
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
    signed char result = exchange(httpclient::methodPost, path);
    if (statusCode == 0 && tcp != nullptr && tcp->connected == 0 && connect() != 0) {
        result = exchange(httpclient::methodPost, path);
    }
    clearExParam();
    return result;
}

signed char HttpClient::exchange(unsigned int method, const char* path) {
    if (send(method, path) == 0) {
        return 0;
    }
    return receiveWait();
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
