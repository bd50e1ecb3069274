#include "scripted_server.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace support {

namespace {

// How long a connection that is closed waits for the peer to close its side too.
constexpr std::chrono::milliseconds drainLimit{100};

// A request that came together with its forerunner on the same connection is not handled: the
// clients here speak HTTP/1.0, one request each.
bool isWholeRequest(const std::string& received) {
    static const std::string name = "\r\nContent-Length:";
    const std::size_t blank = received.find("\r\n\r\n");
    if (blank == std::string::npos) {
        return false;
    }
    std::size_t body = 0;
    for (std::size_t at = 0; at < blank; ++at) {
        if (strncasecmp(received.c_str() + at, name.c_str(), name.size()) == 0) {
            body = strtoul(received.c_str() + at + name.size(), nullptr, 10);
        }
    }
    return received.size() >= blank + 4 + body;
}

// send(2) that raises no SIGPIPE.
ssize_t sendQuietly(int descriptor, const void* data, std::size_t size) {
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    return send(descriptor, data, size, 0);
#else
    return send(descriptor, data, size, MSG_NOSIGNAL);
#endif
}

} // namespace

Step readRequest() {
    return [](ScriptedServer& server) { return server.readUntil(isWholeRequest); };
}

Step readBytes(std::size_t total) {
    return [total](ScriptedServer& server) {
        return server.readUntil(
            [total](const std::string& bytes) { return bytes.size() >= total; });
    };
}

Step readToEnd() {
    return [](ScriptedServer& server) {
        server.readUntil([](const std::string&) { return false; });
        return server.isAtEnd();
    };
}

Step sendBytes(std::string bytes) {
    return [bytes = std::move(bytes)](ScriptedServer& server) { return server.send(bytes); };
}

Step pauseFor(std::chrono::milliseconds time) {
    return [time](ScriptedServer&) { return !waitUntil([] { return false; }, time); };
}

Step pauseUntilReleased() {
    return [](ScriptedServer& server) { return server.pause(); };
}

Step closeNow() {
    return [](ScriptedServer& server) { return server.close(); };
}

Step reset() {
    return [](ScriptedServer& server) { return server.reset(); };
}

ScriptedServer::ScriptedServer(std::vector<Script> scripts, int family)
    : scripts_(std::move(scripts)),
      listener_(listenOnLoopback(family, 16)),
      port_(portOf(listener_)),
      thread_(&ScriptedServer::run, this) {}

ScriptedServer::~ScriptedServer() {
    stopping_ = true;
    wait();
}

std::string ScriptedServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string ScriptedServer::wait() {
    if (thread_.joinable()) {
        thread_.join();
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

void ScriptedServer::release() {
    ++releases_;
}

bool ScriptedServer::readUntil(const std::function<bool(const std::string&)>& enough) {
    while (!enough(received_.back())) {
        char buffer[64 * 1024];
        const ssize_t got = ready(POLLIN) ? recv(peer_, buffer, sizeof buffer, 0) : -1;
        if (got <= 0) {
            return false;
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        received_.back().append(buffer, static_cast<std::size_t>(got));
    }
    return true;
}

bool ScriptedServer::isAtEnd() const {
    char byte;
    return recv(peer_, &byte, 1, 0) == 0 || errno != EAGAIN;
}

bool ScriptedServer::send(const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t sent =
            ready(POLLOUT) ? sendQuietly(peer_, &bytes[at], bytes.size() - at) : -1;
        if (sent < 0) {
            return false;
        }
        at += static_cast<std::size_t>(sent);
    }
    return true;
}

bool ScriptedServer::pause() {
    waitUntil([this] { return releases_ > 0 || stopping_; });
    return releases_ > 0 && releases_-- > 0;
}

bool ScriptedServer::close() {
    shutdown(peer_, SHUT_WR);
    char rest[4096];
    while (ready(POLLIN, drainLimit) && recv(peer_, rest, sizeof rest, 0) > 0) {
    }
    return ::close(std::exchange(peer_, -1)) == 0;
}

bool ScriptedServer::reset() {
    const linger abort = {1, 0};
    setsockopt(peer_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    return ::close(std::exchange(peer_, -1)) == 0;
}

void ScriptedServer::run() {
    for (std::size_t index = 0; index < scripts_.size() && accept(index); ++index) {
        std::size_t step = 0;
        while (step < scripts_[index].size() && scripts_[index][step](*this)) {
            ++step;
        }
        if (step < scripts_[index].size()) {
            problem_ += "connection " + std::to_string(index) + ", step " + std::to_string(step) +
                        " failed; ";
        }
        if (peer_ >= 0) {
            close();
        }
    }
    ::close(listener_);
}

bool ScriptedServer::accept(std::size_t index) {
    makeNonBlocking(listener_);
    waitUntil([this] {
        peer_ = ::accept(listener_, nullptr, nullptr);
        return peer_ >= 0 || stopping_;
    });
    if (peer_ < 0) {
        problem_ += "connection " + std::to_string(index) + " did not come";
        return false;
    }
    if (index + 1 == scripts_.size()) {
        ::close(std::exchange(listener_, -1));
    }
    makePrivate(peer_);
    makeNonBlocking(peer_);
    const std::lock_guard<std::mutex> lock(mutex_);
    received_.emplace_back();
    return true;
}

bool ScriptedServer::ready(short events, std::chrono::milliseconds limit) const {
    pollfd waiting = {peer_, events, 0};
    return waitUntil([&] { return stopping_ || poll(&waiting, 1, 0) == 1; }, limit) && !stopping_;
}

} // namespace support
