// Loopback sockets for tests, waiting, and what a process holds open.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace support {

// How long a test, or a step of a server, waits for something at most.
constexpr std::chrono::milliseconds stepLimit{10000};

// Waits until a condition holds; false after the limit.
bool waitUntil(const std::function<bool()>& holds, std::chrono::microseconds limit = stepLimit);

// Lets no second process inherit a descriptor; where one blocks, it does so no more.
void makePrivate(int descriptor);
void makeNonBlocking(int descriptor);

// A socket that listens on the loopback address of a family (AF_INET, AF_INET6), on any free port;
// -1 on failure.
int listenOnLoopback(int family, int backlog);

// The port that a socket is bound to, 0 on failure.
std::uint16_t portOf(int descriptor);

// A port of 127.0.0.1 for a server to take; until the process ends no other test gets it. 0 where
// there is none.
std::uint16_t unusedPort();

// A port of 127.0.0.1 that refuses connections: as long as the process lives it is taken, but
// nobody listens on it.
std::uint16_t refusingPort();

// A listener on 127.0.0.1 whose queue is full: a blocking connect to it hangs until the caller
// gives up. The port is 0 where the queue could not be filled.
class FullBacklogListener {
public:
    FullBacklogListener();
    ~FullBacklogListener();
    FullBacklogListener(const FullBacklogListener&) = delete;
    FullBacklogListener& operator=(const FullBacklogListener&) = delete;

    std::uint16_t port = 0;

private:
    std::vector<int> sockets_; // the listener and those that fill its queue
};

// How many descriptors the process has open, and how many threads it runs.
std::size_t openDescriptors();
std::size_t runningThreads();

} // namespace support
