#include "netcalls.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "internal/replaceable.h"
#include "qoros.h"

namespace netcalls {

int openStreamSocket(int family) {
#if defined(__APPLE__)
    const int sock = socket(family, SOCK_STREAM, 0);
    if (sock >= 0) {
        fcntl(sock, F_SETFD, FD_CLOEXEC);
    }
    return sock;
#else
    return socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
#endif
}

QOR_REPLACEABLE int connectSocket(int sock, const sockaddr* address, socklen_t length) {
    return connect(sock, address, length);
}

bool setOption(int sock, int level, int option, const void* value, socklen_t size) {
    return setsockopt(sock, level, option, value, size) == 0;
}

#if defined(__APPLE__)

QOR_REPLACEABLE ssize_t sendBytes(int sock, const void* data, std::size_t size) {
    return send(sock, data, size, 0);
}

bool refuseSigPipe(int sock) {
    const int on = 1;
    return setOption(sock, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
}

#else

QOR_REPLACEABLE ssize_t sendBytes(int sock, const void* data, std::size_t size) {
    return send(sock, data, size, MSG_NOSIGNAL);
}

bool refuseSigPipe(int) {
    return true;
}

#endif

QOR_REPLACEABLE int resolveHost(const char* host, addrinfo** list) {
    return getaddrinfo(host, nullptr, nullptr, list);
}

bool startThread(void* (*routine)(void*), void* argument) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // a thread begins with its starter's mask
    std::uint64_t handle = 0;                    // of no use: nobody joins the thread
    const bool started = QorOsThreadBegin(&handle, routine, 0, argument) != 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

QOR_REPLACEABLE void pauseFor(unsigned int milliseconds) {
    QorOsSleep(milliseconds);
}

int waitReadable(int sock, unsigned int seconds) {
    constexpr unsigned int longestWait = 1000000; // s; in ms it fits an int
    for (;;) {
        const unsigned int wait = std::min(seconds, longestWait);
        pollfd waiting = {sock, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(wait * 1000));
        seconds -= wait;
        if (ready == 1 && (waiting.revents & POLLNVAL) != 0) {
            errno = EBADF;
            return -1;
        }
        if (ready != 0 || seconds == 0) {
            return ready;
        }
    }
}

} // namespace netcalls
