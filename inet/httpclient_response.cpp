// What comes back: reading one response, and taking it apart.
#include "httpclient.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "qoros.h"

namespace {

// Sizes in bytes.
constexpr unsigned int headerReadSize = 10000;
constexpr unsigned int headerGrowth = headerReadSize + 12; // with room for a terminator
constexpr unsigned int bodyReadSize = 5000;
constexpr unsigned int bodySlack = 10;
constexpr unsigned int responseLimit = 1000000;

constexpr char protocol[] = "HTTP/1";
constexpr unsigned int protocolLength = sizeof protocol - 1;
constexpr unsigned int statusPosition = 9; // in "HTTP/1.1 200 OK"
constexpr unsigned int reasonPosition = 12;
constexpr unsigned int statusOk = 200;
constexpr char contentLengthName[] = "Content-Length: ";

bool isLineEnd(char c) {
    return c == '\r' || c == '\n';
}

// The length of the line terminator at a position: CR and LF in either order count as one.
unsigned int terminatorLength(const char* buf, unsigned int len, unsigned int at) {
    const bool pair = at + 1 < len && isLineEnd(buf[at + 1]) && buf[at + 1] != buf[at];
    return pair ? 2 : 1;
}

// A search for the first blank line that goes on as data comes in, so that no byte is looked at
// again and again.
struct BlankLineSearch {
    unsigned int position = 0; // where to go on
    unsigned int end = 0;      // offset behind the blank line, when found
    bool open = false;         // the blank line's terminator may still get its second character
};

bool findBlankLine(const char* buf, unsigned int len, BlankLineSearch& search) {
    unsigned int at = search.position;
    while (at < len) {
        if (!isLineEnd(buf[at])) {
            ++at;
            continue;
        }
        const unsigned int next = at + terminatorLength(buf, len, at);
        if (next == len) {
            break; // whatever comes next decides what this terminator is
        }
        if (isLineEnd(buf[next])) {
            search.position = at;
            search.end = next + terminatorLength(buf, len, next);
            search.open = search.end == len && search.end == next + 1;
            return true;
        }
        at = next;
    }
    search.position = at;
    return false;
}

// A zero byte ends the headers here as it does in the copy that is kept of them.
bool announcesLength(const char* headers, unsigned int len) {
    char value[30];
    const auto length = static_cast<unsigned int>(strnlen(headers, len));
    return HttpClient::findHeaderStr(headers, length, contentLengthName, value, sizeof value) != 0;
}

bool announcesClose(const HttpClient& http) {
    char value[30];
    return http.GetHeaderParam("Connection: ", value, sizeof value) != 0 &&
           strcasecmp(value, "close") == 0;
}

bool beginsWithProtocol(const char* data, unsigned int len) {
    return len >= protocolLength && strncasecmp(data, protocol, protocolLength) == 0;
}

// The length of an interim response (1xx) in front of the one that counts; 0 when there is none or
// it is not complete.
unsigned int interimLength(char* data, unsigned int len) {
    if (!beginsWithProtocol(data, len) || len <= statusPosition || data[statusPosition] != '1') {
        return 0;
    }
    unsigned int end = 0;
    HttpClient::findCrLfCrLf(data, len, &end);
    return end;
}

unsigned int statusOf(const char* response, unsigned int len) {
    char digits[4] = "";
    if (len > statusPosition) {
        strncpy_qor(digits, sizeof digits, response + statusPosition, len - statusPosition);
    }
    return static_cast<unsigned int>(strtol(digits, nullptr, 10));
}

// Makes the response buffer `size` bytes and zeroes what lies behind the `held` first ones.
bool resizeBuffer(HttpClient& http, unsigned int size, unsigned int held) {
    char* const resized = static_cast<char*>(realloc(http.responseBuffer, size));
    if (resized == nullptr) {
        return false;
    }
    memset(resized + held, 0, size - held);
    http.responseBuffer = resized;
    return true;
}

// Receives at most `size` bytes behind the `held` ones; returns their number, 0 for the end.
unsigned int receiveSome(HttpClient& http, unsigned int held, unsigned int size) {
    unsigned char* const target = reinterpret_cast<unsigned char*>(http.responseBuffer) + held;
    return http.tcp->Receive(target, &size) != 0 ? size : 0;
}

} // namespace

signed char HttpClient::receiveWait() {
    free(responseBuffer);
    responseBuffer = nullptr;
    body = nullptr;
    bodyLength = 0;
    unsigned int held = 0;
    if (tcp == nullptr || !readHeaderPart(&held)) {
        return 0;
    }
    const unsigned int start = interimLength(responseBuffer, held);
    char* const response = responseBuffer + start;
    if (!beginsWithProtocol(response, held - start)) {
        return 0;
    }
    statusCode = statusOf(response, held - start);
    unsigned int headerLength = 0;
    if (findCrLfCrLf(response, held - start, &headerLength) == nullptr ||
        !takeHeaderBlock(start, headerLength)) {
        return 0;
    }
    describeStatus();

    const unsigned int offset = start + headerLength;
    char value[255];
    const bool announced = GetHeaderParam(contentLengthName, value, sizeof value) != 0;
    const long length = announced ? strtol(value, nullptr, 10) : long{held - offset};
    if (length < 0 || length > long{responseLimit}) {
        return 0;
    }
    const signed char result = takeBody(offset, static_cast<unsigned int>(length), held);
    if (length == 0 && !announced) {
        return announcesClose(*this);
    }
    return result;
}

// Reads until the header block is complete and announces a length, or until nothing comes any more:
// without a length the end of the data is the end of the body. False: too much, or no memory.
bool HttpClient::readHeaderPart(unsigned int* held) {
    BlankLineSearch search;
    bool searching = true;
    for (;;) {
        if (!resizeBuffer(*this, *held + headerGrowth, *held)) {
            return false;
        }
        const unsigned int count = receiveSome(*this, *held, headerReadSize);
        if (count == 0) {
            return true;
        }
        *held += count;
        responseBuffer[*held] = '\0';
        if (searching && findBlankLine(responseBuffer, *held, search) && !search.open) {
            if (announcesLength(responseBuffer, search.end)) {
                return true;
            }
            searching = false;
        }
        if (*held > responseLimit) {
            return false;
        }
    }
}

// Keeps a copy of the header block. Its last byte, the end of the blank line, becomes the
// terminator in both places.
bool HttpClient::takeHeaderBlock(unsigned int start, unsigned int length) {
    free(responseHeaders);
    responseHeaders = static_cast<char*>(malloc(length));
    if (responseHeaders == nullptr) {
        return false;
    }
    responseBuffer[start + length - 1] = '\0';
    memcpy(responseHeaders, responseBuffer + start, length);
    return true;
}

void HttpClient::describeStatus() {
    constexpr std::size_t nameLength = 4;
    strcpy_qor(statusLine, sizeof statusLine, "HTTP");
    GetHeaderParam("HTTP", statusLine + nameLength, sizeof statusLine - nameLength);
    if (statusCode == statusOk) {
        return;
    }
    const bool hasReason = strlen(statusLine) > reasonPosition;
    sprintf_qor(errorText, sizeof errorText, "HTTP Error : %s",
                hasReason ? statusLine + reasonPosition : "");
}

// Points the body at its place, reads what is missing of it, and puts a zero byte behind it. Bytes
// beyond its length are not part of it.
signed char HttpClient::takeBody(unsigned int offset, unsigned int length, unsigned int held) {
    body = responseBuffer + offset;
    bodyLength = length;
    if (held - offset < length) {
        return readRestOfBody(offset, held);
    }
    body[length] = '\0';
    return 1;
}

signed char HttpClient::readRestOfBody(unsigned int offset, unsigned int held) {
    const unsigned int end = offset + bodyLength;
    if (!resizeBuffer(*this, end + bodySlack, held)) {
        bodyLength = held - offset; // the old buffer holds no more
        return 0;
    }
    body = responseBuffer + offset;
    while (held < end) {
        const unsigned int count = receiveSome(*this, held, std::min(end - held, bodyReadSize));
        if (count == 0) {
            return 0;
        }
        held += count;
    }
    return 1;
}

signed char HttpClient::GetHeaderParam(const char* name, char* value, unsigned int size) const {
    if (responseHeaders == nullptr) {
        return 0;
    }
    const auto length = static_cast<unsigned int>(strlen(responseHeaders));
    return findHeaderStr(responseHeaders, length, name, value, size);
}

char* HttpClient::findCrLfCrLf(char* buf, unsigned int len, unsigned int* end) {
    BlankLineSearch search;
    const bool found = buf != nullptr && findBlankLine(buf, len, search);
    if (end != nullptr) {
        *end = search.end;
    }
    return found ? buf + search.end : nullptr;
}

signed char HttpClient::findHeaderStr(const char* text, unsigned int len, const char* name,
                                      char* value, unsigned int size) {
    if (text == nullptr || name == nullptr || value == nullptr) {
        return 0;
    }
    const std::size_t nameLength = strlen(name);
    unsigned int start = 0;
    for (unsigned int at = 0; at < len; ++at) {
        if (!isLineEnd(text[at])) {
            continue;
        }
        const std::size_t lineLength = at - start;
        if (lineLength >= nameLength && strncasecmp(text + start, name, nameLength) == 0) {
            const std::size_t valueLength = lineLength - nameLength;
            if (valueLength >= size) {
                return 0;
            }
            strncpy_qor(value, size, text + start + nameLength, valueLength);
            return 1;
        }
        start = at + 1;
    }
    return 0;
}
