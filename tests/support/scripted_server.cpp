#include "scripted_server.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace support {

namespace {

// A request that came together with its forerunner on the same connection is not handled: the
// clients here speak HTTP/1.0, one request each.
bool isWholeRequest(const std::string& received) {
    static const std::string name = "\r\nContent-Length:";
    const std::size_t blank = received.find("\r\n\r\n");
    std::size_t body = 0;
    for (std::size_t at = 0; blank != std::string::npos && at < blank; ++at) {
        if (strncasecmp(received.c_str() + at, name.c_str(), name.size()) == 0) {
            body = strtoul(received.c_str() + at + name.size(), nullptr, 10);
        }
    }
    return blank != std::string::npos && received.size() >= blank + 4 + body;
}

} // namespace

Step readRequest() {
    return [](ScriptedServer& server) { return server.readUntil(isWholeRequest); };
}

Step readBytes(std::size_t total) {
    return [total](ScriptedServer& server) {
        return server.readUntil([total](const std::string& got) { return got.size() >= total; });
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

Step sendBytewise(std::string bytes) {
    return [bytes = std::move(bytes)](ScriptedServer& server) {
        return std::all_of(bytes.begin(), bytes.end(),
                           [&server](char c) { return server.send(std::string(1, c)); });
    };
}

Step pauseFor(std::chrono::milliseconds time) {
    return [time](ScriptedServer&) { return !waitUntil([] { return false; }, time); };
}

Step pauseUntilReleased() {
    return &ScriptedServer::pause;
}

Step reset() {
    return &ScriptedServer::reset;
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

void ScriptedServer::release() {
    ++releases_;
}

bool ScriptedServer::readUntil(const std::function<bool(const std::string&)>& enough) {
    while (!enough(received_.back())) {
        char buffer[64 * 1024];
        const ssize_t got = ready(peer_, POLLIN) ? recv(peer_, buffer, sizeof buffer, 0) : -1;
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
#if defined(SO_NOSIGPIPE)
    constexpr int flags = 0;
    const int on = 1;
    setsockopt(peer_, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#else
    constexpr int flags = MSG_NOSIGNAL;
#endif
    ssize_t sent = 0;
    for (std::size_t at = 0; at < bytes.size() && sent >= 0; at += static_cast<std::size_t>(sent)) {
        const bool free = ready(peer_, POLLOUT);
        sent = free ? ::send(peer_, &bytes[at], bytes.size() - at, flags) : -1;
    }
    return sent >= 0;
}

bool ScriptedServer::pause() {
    waitUntil([this] { return releases_ > 0 || stopping_; });
    return releases_ > 0 && releases_-- > 0;
}

bool ScriptedServer::close() {
    shutdown(peer_, SHUT_WR);
    char rest[4096];
    const std::chrono::milliseconds drainLimit(100); // until the peer closes its side too
    while (ready(peer_, POLLIN, drainLimit) && recv(peer_, rest, sizeof rest, 0) > 0) {
    }
    return ::close(std::exchange(peer_, -1)) == 0;
}

bool ScriptedServer::reset() {
    const linger abort = {1, 0};
    setsockopt(peer_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    return ::close(std::exchange(peer_, -1)) == 0;
}

void ScriptedServer::run() {
    makeNonBlocking(listener_);
    for (std::size_t index = 0; index < scripts_.size(); ++index) {
        const std::string connection = "connection " + std::to_string(index);
        waitUntil([this] {
            peer_ = ::accept(listener_, nullptr, nullptr);
            return peer_ >= 0 || stopping_;
        });
        if (peer_ < 0) {
            problem_ += connection + " did not come";
            break;
        }
        if (index + 1 == scripts_.size()) {
            ::close(std::exchange(listener_, -1));
        }
        makePrivate(peer_);
        makeNonBlocking(peer_);
        play(scripts_[index], connection);
    }
    ::close(listener_);
}

void ScriptedServer::play(const Script& script, const std::string& connection) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        received_.emplace_back();
    }
    const auto failed = std::find_if(script.begin(), script.end(),
                                     [this](const Step& step) { return !step(*this); });
    if (failed != script.end()) {
        problem_ += connection + ", step " + std::to_string(failed - script.begin()) + " failed; ";
    }
    if (peer_ >= 0) {
        close();
    }
}

bool ScriptedServer::ready(int descriptor, short events, std::chrono::milliseconds limit) const {
    pollfd waiting = {descriptor, events, 0};
    return waitUntil([&] { return stopping_ || poll(&waiting, 1, 0) == 1; }, limit) && !stopping_;
}

} // namespace support
