// The other end of a client's connection, without a network: what a test sends there arrives
// at the client in the same pieces, and what the client sends can be read back.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tcpclient.h"

// Takes the place of the client's connection. The client receives the pieces and then the end; the
// other end is the caller's to close. Sequenced packets keep the pieces, of at most 5,000 bytes,
// apart; where the system has none, a stream serves, in which pieces may flow together.
inline int connectPeer(TcpClient& tcp, const std::vector<std::string>& pieces = {}) {
    int ends[2] = {-1, -1};
    static_cast<void>(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0 ||
                      socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    for (const std::string& piece : pieces) {
        static_cast<void>(piece.empty() || send(ends[0], piece.data(), piece.size(), 0) > 0);
    }
    shutdown(ends[0], SHUT_WR);
    tcp.Disconnect();
    tcp.sock = ends[1];
    tcp.connected = 1;
    tcp.timeout = 1;
    return ends[0];
}

// What the client sent last.
inline std::string sentTo(int peer) {
    char bytes[10000];
    const ssize_t count = recv(peer, bytes, sizeof bytes, MSG_DONTWAIT);
    return {bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}
