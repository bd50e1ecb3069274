// Loopback sockets for tests, waiting, and what a process holds open.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

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

// Ports of 127.0.0.1 that no other test gets until the process ends: for a server to take (0 where
// there is none); that refuses connections; and with a listener whose queue is full, so that a
// connect hangs until the caller gives up (0 where the queue could not be filled).
std::uint16_t unusedPort();
std::uint16_t refusingPort();
std::uint16_t unansweringPort();

// How many descriptors the process has open, and how many threads it runs.
std::size_t openDescriptors();
std::size_t runningThreads();

} // namespace support
