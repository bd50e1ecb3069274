#include "loopback.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <mach/mach.h>
#endif

#include <cstring>
#include <mutex>
#include <thread>

namespace support {

namespace {

#if !defined(__APPLE__)
std::size_t entriesOf(const char* path) {
    DIR* const directory = opendir(path);
    if (directory == nullptr) {
        return 0;
    }
    std::size_t count = 0;
    while (const dirent* const entry = readdir(directory)) {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(directory);
    return count;
}
#endif

// A socket on the family's loopback address, with any free port; -1 on failure.
int bindToLoopback(int family) {
    const int descriptor = openSocket(family);
    const LoopbackAddress address(family, 0);
    if (descriptor >= 0 && bind(descriptor, address.get(), address.length) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

} // namespace

bool waitUntil(const std::function<bool()>& holds) {
    const auto limit = std::chrono::steady_clock::now() + stepLimit;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

LoopbackAddress::LoopbackAddress(int family, std::uint16_t port) : storage(), length(0) {
    if (family == AF_INET6) {
        sockaddr_in6 address = {};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        address.sin6_port = htons(port);
        length = sizeof address;
        memcpy(&storage, &address, sizeof address);
        return;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    length = sizeof address;
    memcpy(&storage, &address, sizeof address);
}

const sockaddr* LoopbackAddress::get() const {
    return reinterpret_cast<const sockaddr*>(&storage);
}

int openSocket(int family) {
    const int descriptor = socket(family, SOCK_STREAM, 0);
    if (descriptor >= 0) {
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
    return descriptor;
}

int listenOnLoopback(int family, int backlog) {
    const int listener = bindToLoopback(family);
    if (listener >= 0 && listen(listener, backlog) != 0) {
        close(listener);
        return -1;
    }
    return listener;
}

std::uint16_t portOf(int descriptor) {
    sockaddr_in6 address = {}; // the port stands at the same place for both families
    socklen_t length = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin6_port);
}

ssize_t sendQuietly(int descriptor, const void* data, std::size_t size) {
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    return send(descriptor, data, size, 0);
#else
    return send(descriptor, data, size, MSG_NOSIGNAL);
#endif
}

std::string urlOf(const std::string& host, std::uint16_t port, const std::string& path) {
    return "http://" + host + ":" + std::to_string(port) + path;
}

std::uint16_t unusedPort() {
    return RefusingPort().port();
}

bool acceptsConnections(std::uint16_t port) {
    const int probe = openSocket(AF_INET);
    const LoopbackAddress address(AF_INET, port);
    const bool taken = probe >= 0 && connect(probe, address.get(), address.length) == 0;
    if (probe >= 0) {
        close(probe);
    }
    return taken;
}

RefusingPort::RefusingPort() : descriptor_(bindToLoopback(AF_INET)) {}

RefusingPort::~RefusingPort() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

std::uint16_t RefusingPort::port() const {
    return portOf(descriptor_);
}

FullBacklogListener::FullBacklogListener()
    : listener_(listenOnLoopback(AF_INET, 1)), port_(portOf(listener_)) {
    // Systems round the backlog up, each in its own way (macOS makes 128 out of 0): connect until
    // one is not answered.
    for (int i = 0; listener_ >= 0 && !full_ && i < 64; ++i) {
        full_ = !connectOnce();
    }
}

FullBacklogListener::~FullBacklogListener() {
    for (const int descriptor : sockets_) {
        close(descriptor);
    }
    if (listener_ >= 0) {
        close(listener_);
    }
}

bool FullBacklogListener::connectOnce() {
    const int descriptor = openSocket(AF_INET);
    if (descriptor < 0) {
        return true;
    }
    sockets_.push_back(descriptor);
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    const LoopbackAddress address(AF_INET, port_);
    if (connect(descriptor, address.get(), address.length) == 0) {
        return true;
    }
    pollfd waiting = {descriptor, POLLOUT, 0};
    return poll(&waiting, 1, 100) == 1;
}

void FullBacklogListener::makeRoom() {
    // The one that found the queue full would otherwise fill the place with its next attempt.
    close(sockets_.back());
    sockets_.pop_back();
    fcntl(listener_, F_SETFL, O_NONBLOCK);
    for (int taken = 0; taken >= 0;) {
        taken = accept(listener_, nullptr, nullptr);
        if (taken >= 0) {
            fcntl(taken, F_SETFD, FD_CLOEXEC);
            sockets_.push_back(taken);
        }
    }
}

#if defined(__APPLE__)

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (int descriptor = 0; descriptor < getdtablesize(); ++descriptor) {
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

static std::size_t countThreads() {
    thread_act_array_t threads = nullptr;
    mach_msg_type_number_t count = 0;
    task_threads(mach_task_self(), &threads, &count);
    for (mach_msg_type_number_t i = 0; i < count; ++i) {
        mach_port_deallocate(mach_task_self(), threads[i]);
    }
    vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(threads),
                  count * sizeof *threads);
    return count;
}

#else

std::size_t openDescriptors() {
    return entriesOf("/proc/self/fd") - 1; // without the one that reads the directory
}

static std::size_t countThreads() {
    return entriesOf("/proc/self/task");
}

#endif

// A sanitizer starts a thread of its own beside the program's first one, and never ends it.
static void startFirstThread() {
    std::size_t most = 0;
    std::thread([&most] { most = countThreads(); }).join();
    while (countThreads() >= most) {
        std::this_thread::yield(); // a joined thread may still be listed for a moment
    }
}

std::size_t runningThreads() {
    static std::once_flag started;
    std::call_once(started, startFirstThread);
    return countThreads();
}

} // namespace support
