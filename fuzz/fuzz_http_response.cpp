// Gives bytes to HttpClient as a server's answer, in pieces that the input decides, and to its two
// searches.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "httpclient.h"
#include "pieces.h"
#include "require.h"

namespace {

void checkMembers(const HttpClient& http, signed char result) {
    require(strnlen(http.statusLine, sizeof http.statusLine) < sizeof http.statusLine);
    require(strnlen(http.errorText, sizeof http.errorText) < sizeof http.errorText);
    char value[32];
    for (const char* name : {"", "Content-Length: ", "HTTP"}) {
        if (http.GetHeaderParam(name, value, sizeof value) != 0) {
            require(strnlen(value, sizeof value) < sizeof value);
        }
    }
    require(result == 0 || http.body != nullptr);
    if (http.body == nullptr) {
        require(http.bodyLength == 0);
        return;
    }
    // The sanitizer sees whether the whole body lies in the buffer.
    const std::unique_ptr<char[]> copy(new char[http.bodyLength + 1]);
    memcpy(copy.get(), http.body, http.bodyLength + 1);
    require(copy[http.bodyLength] == '\0');
}

void receiveAnswer(const std::uint8_t* data, std::size_t size) {
    HttpClient http(nullptr);
    if (pieces::connectToAnswer(*http.tcp, data, size)) {
        checkMembers(http, http.receiveWait());
    }
}

void search(const std::uint8_t* data, std::size_t size) {
    const std::unique_ptr<char[]> text(new char[size == 0 ? 1 : size]);
    if (size != 0) {
        memcpy(text.get(), data, size);
    }
    const auto length = static_cast<unsigned int>(size);
    unsigned int end = 0;
    const char* const behind = HttpClient::findCrLfCrLf(text.get(), length, &end);
    require(behind == nullptr ? end == 0 : behind == text.get() + end && end <= length);
    char value[8];
    for (const char* name : {"", "a", "Content-Length: "}) {
        for (const unsigned int room : {0u, 1u, 8u}) {
            HttpClient::findHeaderStr(text.get(), length, name, value, room);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    search(data + 1, size - 1);
    receiveAnswer(data, size);
    return 0;
}
