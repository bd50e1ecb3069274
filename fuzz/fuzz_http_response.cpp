// Gives bytes to HttpClient as a server's answer, in pieces that the input decides, and to its two
// searches. The pair of sockets stands in for the network; its other end is closed before the
// client reads, so that nothing ever waits.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "httpclient.h"

namespace {

constexpr std::size_t longestPiece = 5000; // what the client reads at once, at least
constexpr std::size_t mostPieces = 64;

// Pieces stay apart where the system has sequenced packets.
bool connectPair(int* ends) {
    return socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0 ||
           socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0;
}

void sendInPieces(int peer, const std::uint8_t* data, std::size_t size, std::size_t piece) {
    for (std::size_t sent = 0; sent < size;) {
        const std::size_t count = std::min({size - sent, piece, longestPiece});
        if (send(peer, data + sent, count, MSG_DONTWAIT) < 0) {
            return;
        }
        sent += count;
    }
}

void require(bool condition) {
    if (!condition) {
        abort();
    }
}

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

void receiveAnswer(const std::uint8_t* data, std::size_t size, std::size_t piece) {
    int ends[2];
    if (!connectPair(ends)) {
        return;
    }
    HttpClient http(nullptr);
    http.tcp->sock = ends[1];
    http.tcp->connected = 1;
    http.tcp->timeout = 1;
    sendInPieces(ends[0], data, size, piece);
    close(ends[0]);
    checkMembers(http, http.receiveWait());
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
    // The first byte is the size of the pieces, as far as their number stays small; 0 stands for
    // one piece.
    const std::size_t wished = data[0] == 0 ? size : data[0];
    search(data + 1, size - 1);
    receiveAnswer(data + 1, size - 1, std::max(wished, size / mostPieces));
    return 0;
}
