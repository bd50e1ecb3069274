#include "loopback.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <libproc.h>
#endif

#include <filesystem>
#include <iterator>
#include <mutex>
#include <thread>

namespace support {

namespace {

// Binds to, or connects with, a port of the loopback address of a family.
bool useLoopback(decltype(connect)* use, int descriptor, int family, std::uint16_t port) {
    addrinfo hints = {};
    addrinfo* place = nullptr;
    hints.ai_family = family;
    getaddrinfo(nullptr, std::to_string(port).c_str(), &hints, &place);
    const bool done = use(descriptor, place->ai_addr, place->ai_addrlen) == 0;
    freeaddrinfo(place);
    return done;
}

// A socket that is bound to the port, or with 0 to any free one; -1 on failure.
int bindToLoopback(int family, int type, std::uint16_t port) {
    const int descriptor = socket(family, type, 0);
    makePrivate(descriptor);
    if (useLoopback(bind, descriptor, family, port)) {
        return descriptor;
    }
    close(descriptor);
    return -1;
}

std::size_t entriesOf(const char* path) {
    const std::filesystem::directory_iterator entries(path);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

bool waitUntil(const std::function<bool()>& holds, std::chrono::microseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void makePrivate(int descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

void makeNonBlocking(int descriptor) {
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

int listenOnLoopback(int family, int backlog) {
    const int listener = bindToLoopback(family, SOCK_STREAM, 0);
    listen(listener, backlog);
    return listener;
}

std::uint16_t portOf(int descriptor) {
    sockaddr_in6 address = {}; // the port stands at the same place for both families
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin6_port);
}

// Servers get ports below those that systems give to sockets on their own, so that no connection
// takes one before its server does. The UDP port of the same number keeps other tests away from it.
std::uint16_t unusedPort() {
    static unsigned int next = static_cast<unsigned int>(getpid()) * 8;
    for (int tries = 0; tries < 1000; ++tries) {
        const auto port = static_cast<std::uint16_t>(20000 + next++ % 10000);
        const bool reserved = bindToLoopback(AF_INET, SOCK_DGRAM, port) >= 0;
        const int free = reserved ? bindToLoopback(AF_INET, SOCK_STREAM, port) : -1;
        if (free >= 0) {
            close(free);
            return port;
        }
    }
    return 0;
}

std::uint16_t refusingPort() {
    static const int descriptor = bindToLoopback(AF_INET, SOCK_STREAM, 0);
    return portOf(descriptor);
}

// Systems round a backlog up, each in its own way (macOS makes 128 out of 0): connects until one is
// not answered.
std::uint16_t unansweringPort() {
    const std::uint16_t port = portOf(listenOnLoopback(AF_INET, 1));
    for (int tries = 0; tries < 64; ++tries) {
        pollfd client = {socket(AF_INET, SOCK_STREAM, 0), POLLOUT, 0};
        makeNonBlocking(client.fd);
        if (!useLoopback(connect, client.fd, AF_INET, port) && poll(&client, 1, 100) == 0) {
            return port;
        }
    }
    return 0;
}

std::size_t openDescriptors() {
    return entriesOf("/dev/fd") - 1; // without the one that reads the directory
}

std::size_t runningThreads() {
    // A sanitizer's own thread comes with the program's first one: from here on it is counted.
    static std::once_flag first;
    std::call_once(first, [] { std::thread([] {}).join(); });
#if defined(__APPLE__)
    proc_taskinfo info = {};
    proc_pidinfo(getpid(), PROC_PIDTASKINFO, 0, &info, sizeof info);
    return static_cast<std::size_t>(info.pti_threadnum);
#else
    return entriesOf("/proc/self/task");
#endif
}

} // namespace support
