// The body of a request: form values, multipart parts, raw bytes.
#include "httpclient.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "httpclient_internal.h"
#include "qoros.h"
#include "utf8conv.h"

namespace {

constexpr unsigned int bodySlack = 10;     // bytes allocated beyond the capacity
constexpr unsigned int formSlack = 10;     // bytes counted for "&", "=" and reserve per form value
constexpr unsigned int partSlack = 66;     // bytes counted for what stands around a part's value
constexpr unsigned int firstCapacity = 40; // of a multipart body
constexpr char lineBreak[] = "%0D%0A";
constexpr std::size_t lineBreakLength = sizeof lineBreak - 1;

// ASCII only, whatever the locale says.
bool passesUnencoded(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           (c != '\0' && strchr("*-.@_", c) != nullptr);
}

// Writes the encoded form of one character; returns the end of it.
char* putEncoded(char* out, char c) {
    static const char digits[] = "0123456789ABCDEF";
    if (passesUnencoded(c)) {
        *out++ = c;
        return out;
    }
    if (c == ' ') {
        *out++ = '+';
        return out;
    }
    const unsigned char byte = static_cast<unsigned char>(c);
    *out++ = '%';
    *out++ = digits[byte >> 4];
    *out++ = digits[byte & 0x0F];
    return out;
}

// Copies a text and its terminator; returns the terminator's place.
char* putText(char* out, const char* text) {
    const std::size_t length = strlen(text);
    memcpy(out, text, length + 1);
    return out + length;
}

} // namespace

void HttpClient::SetMultipartFormData() {
    multipart = 1;
}

char* HttpClient::strToHttp(const char* text, unsigned int lineLen) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t worstPerByte = 3 + (lineLen == 0 ? 0 : lineBreakLength);
    char* const encoded = static_cast<char*>(malloc(strlen(text) * worstPerByte + 1));
    if (encoded == nullptr) {
        return nullptr;
    }
    char* out = encoded;
    unsigned int counter = 0;
    for (; *text != '\0'; ++text) {
        out = putEncoded(out, *text);
        // Kept: the counter is compared before it is raised, so the first line is one longer.
        if (lineLen != 0 && counter == lineLen) {
            out = putText(out, lineBreak);
            counter = 0;
        }
        ++counter;
    }
    *out = '\0';
    return encoded;
}

bool HttpClient::reserveBody(unsigned long long need, unsigned long long growth) {
    if (need <= requestBodyCapacity) {
        return true;
    }
    const unsigned long long capacity = requestBodyCapacity + growth;
    if (capacity > UINT32_MAX - bodySlack) {
        return false;
    }
    char* const grown = static_cast<char*>(realloc(requestBody, capacity + bodySlack));
    if (grown == nullptr) {
        return false;
    }
    if (requestBody == nullptr) {
        grown[0] = '\0';
    }
    requestBody = grown;
    requestBodyCapacity = static_cast<unsigned int>(capacity);
    return true;
}

unsigned int HttpClient::AddPostValue(const char* name, const char* value, unsigned int lineLen) {
    if (multipart != 0) {
        return AddPostValueMultiPart(name, value, 0);
    }
    char* const encodedName = strToHttp(name, lineLen);
    char* const encodedValue = strToHttp(value, lineLen);
    const unsigned int length = AddPostValueDirect(encodedName, encodedValue);
    free(encodedName);
    free(encodedValue);
    return length;
}

unsigned int HttpClient::AddPostValueDirect(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) {
        return requestBodyLength;
    }
    if (multipart != 0) {
        return AddPostValueMultiPart(name, value, 1);
    }
    // Kept: form values go by the text in the body, so one that follows raw bytes stands at their
    // first zero byte.
    const std::size_t length = httpclient::lengthOf(requestBody);
    const unsigned long long need = length + strlen(name) + strlen(value) + formSlack;
    if (!reserveBody(need, 2 * need)) {
        return requestBodyLength;
    }
    char* out = requestBody + length;
    if (length != 0) {
        out = putText(out, "&");
    }
    out = putText(out, name);
    out = putText(out, "=");
    putText(out, value);
    requestBodyLength = static_cast<unsigned int>(strlen(requestBody));
    return requestBodyLength;
}

unsigned int HttpClient::AddPostValueMultiPart(const char* name, const char* value,
                                               signed char raw) {
    if (name == nullptr || value == nullptr) {
        return requestBodyLength;
    }
    const unsigned long long need =
        requestBodyLength + strlen(name) + 2ULL * strlen(value) + partSlack;
    const unsigned long long first = requestBodyCapacity == 0 ? firstCapacity : 0;
    if (!reserveBody(need, first + 2 * need)) {
        return requestBodyLength;
    }
    char* out = requestBody + strlen(requestBody);
    out = putText(out, "--");
    out = putText(out, boundary);
    out = putText(out, "\r\nContent-Disposition: form-data; name=\"");
    out = putText(out, name);
    out = putText(out, "\"\r\n\r\n");
    if (raw != 0) {
        putText(out, value);
    } else {
        // Kept: twice the length of the value is the limit, and a converted byte above 0x7F needs
        // six. The terminator may land behind the limit, where the allocation goes on.
        const auto used = static_cast<unsigned long long>(out - requestBody);
        AnsiToUtf8(value, out, used < need ? static_cast<unsigned int>(need - used) : 0);
    }
    putText(requestBody + strlen(requestBody), "\r\n");
    requestBodyLength = static_cast<unsigned int>(strlen(requestBody));
    return requestBodyLength;
}

unsigned int HttpClient::AddPostValueBinary(const unsigned char* data, unsigned int len) {
    if (data == nullptr || len == 0) {
        return requestBodyLength;
    }
    const unsigned long long need = 0ULL + requestBodyLength + len + formSlack;
    if (!reserveBody(need, need)) {
        requestBodyLength = 0;
        if (requestBody != nullptr) {
            requestBody[0] = '\0';
        }
        return 0;
    }
    memcpy(requestBody + requestBodyLength, data, len);
    requestBodyLength += len;
    requestBody[requestBodyLength] = '\0';
    return requestBodyLength;
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
