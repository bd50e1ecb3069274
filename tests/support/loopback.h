// Loopback sockets for tests, waiting, and what a process holds open.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace support {

// How long a test, or a step of a server, waits for something at most.
constexpr std::chrono::seconds stepLimit{10};

// Waits until a condition holds; false after the limit.
bool waitUntil(const std::function<bool()>& holds);

// The loopback address of a family (AF_INET or AF_INET6) with a port.
struct LoopbackAddress {
    LoopbackAddress(int family, std::uint16_t port);

    const sockaddr* get() const;

    sockaddr_storage storage;
    socklen_t length;
};

// A stream socket that no second process inherits; -1 on failure.
int openSocket(int family);

// A socket that listens on the family's loopback address, on any free port; -1 on failure.
int listenOnLoopback(int family, int backlog);

// The port that a socket is bound to, 0 on failure.
std::uint16_t portOf(int descriptor);

// send(2) that raises no SIGPIPE.
ssize_t sendQuietly(int descriptor, const void* data, std::size_t size);

// "http://HOST:PORT" and the path, which begins with a slash.
std::string urlOf(const std::string& host, std::uint16_t port, const std::string& path);

// A port of 127.0.0.1 that nobody has at the moment, for a server to take.
std::uint16_t unusedPort();

// True where somebody takes connections on that port of 127.0.0.1.
bool acceptsConnections(std::uint16_t port);

// A port of 127.0.0.1 that refuses connections: it is taken, but nobody listens on it.
class RefusingPort {
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    std::uint16_t port() const;

private:
    int descriptor_;
};

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

} // namespace support
