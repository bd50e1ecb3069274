// Loopback sockets for tests, and what a process holds open.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace support {

// The loopback address of a family (AF_INET or AF_INET6) with a port.
struct LoopbackAddress {
    LoopbackAddress(int family, std::uint16_t port);

    const sockaddr* get() const;

    sockaddr_storage storage;
    socklen_t length;
};

// A socket that listens on the family's loopback address, on any free port; -1 on failure.
int listenOnLoopback(int family, int backlog);

// The port that a socket is bound to, 0 on failure.
std::uint16_t portOf(int descriptor);

// A port of 127.0.0.1 that nobody listens on at the moment.
std::uint16_t unusedPort();

// True where somebody takes connections on that port of 127.0.0.1.
bool acceptsConnections(std::uint16_t port);

// A listener on 127.0.0.1 whose queue is full: a blocking connect to it hangs until the caller
// gives up or makeRoom() has taken the waiting connections out (then until the system's next
// attempt, after about a second).
class FullBacklogListener {
public:
    FullBacklogListener();
    ~FullBacklogListener();
    FullBacklogListener(const FullBacklogListener&) = delete;
    FullBacklogListener& operator=(const FullBacklogListener&) = delete;

    // False where the queue could not be filled.
    bool full() const {
        return full_;
    }
    std::uint16_t port() const {
        return port_;
    }
    void makeRoom();

private:
    bool connectOnce();

    int listener_;
    std::uint16_t port_;
    bool full_ = false;
    std::vector<int> sockets_;
};

// How many descriptors the process has open, and how many threads it runs.
std::size_t openDescriptors();
std::size_t runningThreads();

// Waits until no more than that many threads run, since a detached thread's end can't be joined;
// false after 10 s.
bool threadsFallTo(std::size_t count);

} // namespace support
