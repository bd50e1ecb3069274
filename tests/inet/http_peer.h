// The other end of an HttpClient's connection, without a network: what a test writes here arrives
// at the client in the same pieces, and what the client sends can be read back.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "httpclient.h"

class HttpPeer {
public:
    // Takes the place of the client's connection. Sequenced packets keep the pieces apart; where
    // the system has none, a stream serves, in which pieces may flow together.
    explicit HttpPeer(HttpClient& http) {
        int ends[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
            static_cast<void>(socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
        }
        peer_ = ends[0];
        http.tcp->Disconnect();
        http.tcp->sock = ends[1];
        http.tcp->connected = 1;
        http.tcp->timeout = 1;
    }
    ~HttpPeer() {
        close();
    }
    HttpPeer(const HttpPeer&) = delete;
    HttpPeer& operator=(const HttpPeer&) = delete;

    // A piece of at most 5,000 bytes, so that it is read at once.
    void send(const std::string& piece) {
        if (!piece.empty()) {
            static_cast<void>(!::send(peer_, piece.data(), piece.size(), 0));
        }
    }
    void close() {
        if (peer_ >= 0) {
            ::close(peer_);
            peer_ = -1;
        }
    }
    // What the client has sent by one call.
    std::string received() {
        std::string bytes(1 << 16, '\0');
        const ssize_t count = recv(peer_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }

private:
    int peer_ = -1;
};
