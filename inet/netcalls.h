// The socket calls of this wing that differ between systems or that tests break on purpose. Those
// marked as replaceable are weak: a test program of internals puts its own definition in their
// place.
#pragma once

#include <netdb.h>
#include <sys/types.h>

#include <cstddef>

namespace netcalls {

// A stream socket that a program started by this process does not inherit; -1 on failure.
int openStreamSocket(int family);

// connect(2). Replaceable.
int connectSocket(int sock, const sockaddr* address, socklen_t length);

// setsockopt(2); true on success.
bool setOption(int sock, int level, int option, const void* value, socklen_t size);

// send(2) that raises no SIGPIPE on a socket which has gone through refuseSigPipe. Replaceable.
ssize_t sendBytes(int sock, const void* data, std::size_t size);

// Where SIGPIPE is a matter of the socket: switches it off; elsewhere sendBytes does it.
bool refuseSigPipe(int sock);

// getaddrinfo(3) without service and hints. Replaceable.
int resolveHost(const char* host, addrinfo** list);

// Starts a detached thread with the OS layer's default stack; false where that fails. It takes no
// signals: none of the program's handlers runs on it, and none cuts its sleeps short.
bool startThread(void* (*routine)(void*), void* argument);

// Waits that many milliseconds before a further receive. Replaceable.
void pauseFor(unsigned int milliseconds);

// Waits for a socket to become readable as select(2) would: 1, 0 after the time, -1 with errno. Its
// fixed-size set would be overrun by descriptors from 1,024 on.
int waitReadable(int sock, unsigned int seconds);

} // namespace netcalls
