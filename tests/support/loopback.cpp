#include "loopback.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <libproc.h>
#endif

#include <filesystem>
#include <iterator>
#include <thread>

namespace support {

namespace {

sockaddr_in loopbackAddress(std::uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// A socket on the loopback address of a family, with any free port; -1 on failure.
int bindToLoopback(int family) {
    const int descriptor = socket(family, SOCK_STREAM, 0);
    makePrivate(descriptor);
    const sockaddr_in v4 = loopbackAddress(0);
    sockaddr_in6 v6 = {};
    v6.sin6_family = AF_INET6;
    v6.sin6_addr = in6addr_loopback;
    const int failed = family == AF_INET6
                           ? bind(descriptor, reinterpret_cast<const sockaddr*>(&v6), sizeof v6)
                           : bind(descriptor, reinterpret_cast<const sockaddr*>(&v4), sizeof v4);
    if (failed == 0) {
        return descriptor;
    }
    close(descriptor);
    return -1;
}

// Servers get ports below those that systems give to sockets on their own, so that no connection
// takes one before its server does. The UDP port of the same number keeps other tests away from it.
constexpr unsigned int firstServerPort = 20000;
constexpr unsigned int serverPorts = 10000;

int bindToPort(int type, std::uint16_t port) {
    const int descriptor = socket(AF_INET, type, 0);
    makePrivate(descriptor);
    const sockaddr_in address = loopbackAddress(port);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return descriptor;
    }
    close(descriptor);
    return -1;
}

// False where nobody answers: the queue is full.
bool isAnswered(int descriptor, std::uint16_t port) {
    makeNonBlocking(descriptor);
    const sockaddr_in address = loopbackAddress(port);
    pollfd waiting = {descriptor, POLLOUT, 0};
    return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
           poll(&waiting, 1, 100) == 1;
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
    const int listener = bindToLoopback(family);
    listen(listener, backlog);
    return listener;
}

std::uint16_t portOf(int descriptor) {
    sockaddr_in6 address = {}; // the port stands at the same place for both families
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin6_port);
}

std::uint16_t unusedPort() {
    static unsigned int next = static_cast<unsigned int>(getpid()) * 8;
    for (int tries = 0; tries < 1000; ++tries) {
        const auto port = static_cast<std::uint16_t>(firstServerPort + next++ % serverPorts);
        const bool reserved = bindToPort(SOCK_DGRAM, port) >= 0; // until the process ends
        const int free = reserved ? bindToPort(SOCK_STREAM, port) : -1;
        if (free >= 0) {
            close(free);
            return port;
        }
    }
    return 0;
}

std::uint16_t refusingPort() {
    static const int descriptor = bindToLoopback(AF_INET);
    return portOf(descriptor);
}

FullBacklogListener::FullBacklogListener() : sockets_{listenOnLoopback(AF_INET, 1)} {
    // Systems round the backlog up, each in its own way (macOS makes 128 out of 0): connect until
    // one is not answered.
    const std::uint16_t listening = portOf(sockets_[0]);
    while (port == 0 && sockets_.size() < 64) {
        sockets_.push_back(socket(AF_INET, SOCK_STREAM, 0));
        port = isAnswered(sockets_.back(), listening) ? std::uint16_t{0} : listening;
    }
}

FullBacklogListener::~FullBacklogListener() {
    for (const int descriptor : sockets_) {
        close(descriptor);
    }
}

std::size_t openDescriptors() {
    return entriesOf("/dev/fd") - 1; // without the one that reads the directory
}

std::size_t runningThreads() {
#if defined(__APPLE__)
    proc_taskinfo info = {};
    proc_pidinfo(getpid(), PROC_PIDTASKINFO, 0, &info, sizeof info);
    return static_cast<std::size_t>(info.pti_threadnum);
#else
    return entriesOf("/proc/self/task");
#endif
}

} // namespace support
