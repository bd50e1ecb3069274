#include "scripted_server.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

// How long a connection that is closed waits for the peer to close its side too.
constexpr std::chrono::milliseconds drainLimit{100};

// The length that a request's header announces for its body, 0 where it names none.
std::size_t announcedLength(const std::string& header) {
    static const char name[] = "\r\nContent-Length:";
    for (std::size_t at = 0; at + sizeof name <= header.size(); ++at) {
        if (strncasecmp(header.c_str() + at, name, sizeof name - 1) == 0) {
            return static_cast<std::size_t>(
                strtoul(header.c_str() + at + sizeof name - 1, nullptr, 10));
        }
    }
    return 0;
}

// Waits until a descriptor is ready; false at the limit, or as soon as stop is readable.
bool waitFor(int descriptor, short events, int stop, Clock::time_point limit) {
    pollfd waiting[] = {{descriptor, events, 0}, {stop, POLLIN, 0}};
    int ready = -1;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now());
        ready = poll(waiting, 2, std::max(0, static_cast<int>(left.count())));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && waiting[1].revents == 0;
}

bool readUpTo(Connection& connection, std::size_t total) {
    for (std::size_t have = connection.receivedSize(); have < total;
         have = connection.receivedSize()) {
        if (!connection.readSome(total - have)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool hasIpv6Loopback() {
    const int listener = listenOnLoopback(AF_INET6, 1);
    if (listener >= 0) {
        ::close(listener);
    }
    return listener >= 0;
}

Connection::Connection(ScriptedServer& server, std::size_t index, int descriptor)
    : server_(server), index_(index), descriptor_(descriptor) {
    const int on = 1;
    setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(descriptor_, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor_, F_SETFL, O_NONBLOCK);
}

Connection::~Connection() {
    close();
}

bool Connection::ready(short events) const {
    return waitFor(descriptor_, events, server_.stopPipe_[0], Clock::now() + stepLimit);
}

bool Connection::readSome(std::size_t atMost) {
    char buffer[64 * 1024];
    if (!ready(POLLIN)) {
        return false;
    }
    const ssize_t got =
        recv(descriptor_, buffer, atMost < sizeof buffer ? atMost : sizeof buffer, 0);
    if (got <= 0) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(server_.mutex_);
    server_.received_[index_].append(buffer, static_cast<std::size_t>(got));
    return true;
}

bool Connection::send(const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ready(POLLOUT) ? sendQuietly(descriptor_, data, size) : -1;
        if (sent < 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool Connection::pause() {
    std::unique_lock<std::mutex> lock(server_.mutex_);
    server_.paused_ = true;
    server_.changed_.notify_all();
    server_.changed_.wait_for(lock, stepLimit,
                              [this] { return server_.releases_ > 0 || server_.stopping_; });
    server_.paused_ = false;
    const bool released = server_.releases_ > 0;
    server_.releases_ -= released ? 1 : 0;
    return released;
}

bool Connection::sleep(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(server_.mutex_);
    return !server_.changed_.wait_for(lock, time, [this] { return server_.stopping_; });
}

void Connection::close() {
    if (descriptor_ < 0) {
        return;
    }
    shutdown(descriptor_, SHUT_WR);
    const auto limit = Clock::now() + drainLimit;
    char rest[4096];
    while (waitFor(descriptor_, POLLIN, server_.stopPipe_[0], limit) &&
           recv(descriptor_, rest, sizeof rest, 0) > 0) {
    }
    ::close(descriptor_);
    descriptor_ = -1;
}

bool Connection::reset() {
    const linger abort = {1, 0};
    const bool prepared = setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort) == 0;
    ::close(descriptor_);
    descriptor_ = -1;
    return prepared;
}

std::string Connection::received() const {
    return server_.received(index_);
}

std::size_t Connection::receivedSize() const {
    const std::lock_guard<std::mutex> lock(server_.mutex_);
    return server_.received_[index_].size();
}

Step readRequest() {
    return [](Connection& connection) {
        // A request that came together with its forerunner on the same connection is not handled:
        // the clients here speak HTTP/1.0, one request each.
        std::size_t blank = std::string::npos;
        while ((blank = connection.received().find("\r\n\r\n")) == std::string::npos) {
            if (!connection.readSome(SIZE_MAX)) {
                return false;
            }
        }
        const std::string header = connection.received().substr(0, blank + 2);
        return readUpTo(connection, blank + 4 + announcedLength(header));
    };
}

Step readBytes(std::size_t total) {
    return [total](Connection& connection) { return readUpTo(connection, total); };
}

Step readToEnd() {
    return [](Connection& connection) {
        while (connection.readSome(SIZE_MAX)) {
        }
        // Now the end, or the reset, can be read; after a time limit there would be nothing.
        char byte;
        return recv(connection.descriptor(), &byte, 1, 0) == 0 || errno != EAGAIN;
    };
}

Step sendBytes(std::string bytes) {
    return [bytes = std::move(bytes)](Connection& connection) {
        return connection.send(bytes.data(), bytes.size());
    };
}

Step sendByteByByte(std::string bytes) {
    return [bytes = std::move(bytes)](Connection& connection) {
        for (const char& byte : bytes) {
            // The pause lets the reader empty its side, so that it really sees single bytes.
            if (!connection.send(&byte, 1) || !connection.sleep(std::chrono::milliseconds(1))) {
                return false;
            }
        }
        return true;
    };
}

Step pauseFor(std::chrono::milliseconds time) {
    return [time](Connection& connection) { return connection.sleep(time); };
}

Step pauseUntilReleased() {
    return [](Connection& connection) { return connection.pause(); };
}

Step halfClose() {
    return [](Connection& connection) { return shutdown(connection.descriptor(), SHUT_WR) == 0; };
}

Step closeNow() {
    return [](Connection& connection) {
        connection.close();
        return true;
    };
}

Step reset() {
    return [](Connection& connection) { return connection.reset(); };
}

ScriptedServer::ScriptedServer(std::vector<Script> scripts, Loopback family)
    : scripts_(std::move(scripts)), family_(family) {
    listener_ = listenOnLoopback(family == Loopback::v6 ? AF_INET6 : AF_INET, 16);
    port_ = portOf(listener_);
    if (listener_ < 0 || port_ == 0 || pipe(stopPipe_) != 0) {
        problem_ = "no listener";
        done_ = true;
        if (listener_ >= 0) {
            ::close(listener_);
        }
        return;
    }
    fcntl(listener_, F_SETFL, O_NONBLOCK);
    fcntl(stopPipe_[0], F_SETFD, FD_CLOEXEC);
    fcntl(stopPipe_[1], F_SETFD, FD_CLOEXEC);
    thread_ = std::thread(&ScriptedServer::run, this);
}

ScriptedServer::~ScriptedServer() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        const char stop = 0;
        (void)!write(stopPipe_[1], &stop, 1);
        thread_.join();
        ::close(stopPipe_[0]);
        ::close(stopPipe_[1]);
    }
}

std::string ScriptedServer::url(const std::string& path) const {
    return urlOf(family_ == Loopback::v6 ? "[::1]" : "127.0.0.1", port_, path);
}

std::string ScriptedServer::wait() {
    std::size_t steps = 0;
    for (const Script& script : scripts_) {
        steps += 1 + script.size(); // taking the connection is a step too
    }
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, (steps + 1) * stepLimit, [this] { return done_; })) {
        return "not all scripts were played";
    }
    return problem_;
}

std::string ScriptedServer::received(std::size_t connection) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connection < received_.size() ? received_[connection] : std::string();
}

std::size_t ScriptedServer::connections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return received_.size();
}

bool ScriptedServer::waitUntilPaused() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, stepLimit, [this] { return paused_; });
}

void ScriptedServer::release() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++releases_;
        paused_ = false;
    }
    changed_.notify_all();
}

void ScriptedServer::run() {
    for (std::size_t index = 0; index < scripts_.size(); ++index) {
        const int descriptor = acceptOne();
        if (descriptor < 0) {
            noteProblem("connection " + std::to_string(index) + " did not come");
            break;
        }
        if (index + 1 == scripts_.size()) {
            ::close(listener_);
            listener_ = -1;
        }
        play(index, descriptor);
    }
    if (listener_ >= 0) {
        ::close(listener_);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    done_ = true;
    changed_.notify_all();
}

// A connection that was reported may be gone again when it is to be taken.
int ScriptedServer::acceptOne() const {
    const auto limit = Clock::now() + stepLimit;
    while (waitFor(listener_, POLLIN, stopPipe_[0], limit)) {
        const int descriptor = accept(listener_, nullptr, nullptr);
        if (descriptor >= 0 || (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR)) {
            return descriptor;
        }
    }
    return -1;
}

void ScriptedServer::play(std::size_t index, int descriptor) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        received_.emplace_back();
    }
    Connection connection(*this, index, descriptor);
    for (std::size_t step = 0; step < scripts_[index].size(); ++step) {
        if (!scripts_[index][step](connection)) {
            noteProblem("connection " + std::to_string(index) + ", step " + std::to_string(step) +
                        " failed");
            return;
        }
    }
}

void ScriptedServer::noteProblem(const std::string& problem) {
    const std::lock_guard<std::mutex> lock(mutex_);
    problem_ += problem_.empty() ? problem : "; " + problem;
}

} // namespace support
