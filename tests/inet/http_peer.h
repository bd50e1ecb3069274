// The other end of a client's connection, without a network: what a test sends there arrives
// at the client in the same pieces, and what the client sends can be read back.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include "tcpclient.h"

// Takes the place of the client's connection; the other end is the caller's to close. Sequenced
// packets keep the pieces, of at most 5,000 bytes, apart; where the system has none, a stream
// serves, in which pieces may flow together.
inline int connectPeer(TcpClient& tcp) {
    int ends[2] = {-1, -1};
    static_cast<void>(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0 ||
                      socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    tcp.Disconnect();
    tcp.sock = ends[1];
    tcp.connected = 1;
    tcp.timeout = 1;
    return ends[0];
}
