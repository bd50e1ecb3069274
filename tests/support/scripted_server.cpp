#include "scripted_server.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace support {

namespace {

// A request that came together with its forerunner on the same connection is not handled: the
// clients here speak HTTP/1.0, one request each.
bool isWholeRequest(const std::string& received) {
    const std::string name = "\r\nContent-length: ";
    const std::size_t blank = received.find("\r\n\r\n"), at = received.find(name);
    const std::size_t body = at < blank ? std::stoul(received.substr(at + name.size(), 20)) : 0;
    return blank != std::string::npos && received.size() >= blank + 4 + body;
}

} // namespace

ScriptedServer::ScriptedServer(std::vector<Script> scripts, int family)
    : scripts_(std::move(scripts)),
      listener_(listenOnLoopback(family, 16)),
      port_(portOf(listener_)),
      thread_(&ScriptedServer::run, this) {}

ScriptedServer::~ScriptedServer() {
    stopping_ = true;
    wait();
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

int ScriptedServer::read(std::chrono::milliseconds limit) {
    char buffer[64 * 1024];
    if (!ready(POLLIN, limit)) {
        return -1;
    }
    const ssize_t got = recv(peer_, buffer, sizeof buffer, 0);
    const std::lock_guard<std::mutex> lock(mutex_);
    received_.back().append(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return got > 0 ? 1 : 0;
}

bool ScriptedServer::readRequest() {
    while (!isWholeRequest(received_.back())) {
        if (read() != 1) {
            return false;
        }
    }
    return true;
}

bool ScriptedServer::readToEnd() {
    int got = 1;
    while (got == 1) {
        got = read();
    }
    return got == 0;
}

bool ScriptedServer::send(const std::string& bytes) {
    ssize_t sent = 0;
    for (std::size_t at = 0; at < bytes.size() && sent >= 0; at += static_cast<std::size_t>(sent)) {
        sent = ready(POLLOUT) ? ::send(peer_, &bytes[at], bytes.size() - at, 0) : -1;
    }
    return sent >= 0;
}

bool ScriptedServer::pause() {
    waitUntil([this] { return releases_ > 0 || stopping_; });
    return releases_ > 0 && releases_-- > 0;
}

void ScriptedServer::close() {
    const std::chrono::milliseconds drainLimit(100); // until the peer closes its side too
    shutdown(peer_, SHUT_WR);
    while (read(drainLimit) == 1) {
    }
    ::close(std::exchange(peer_, -1));
}

bool ScriptedServer::reset() {
    const linger abort = {1, 0};
    setsockopt(peer_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    return ::close(std::exchange(peer_, -1)) == 0;
}

void ScriptedServer::run() {
    sigset_t pipe; // of a peer that is gone: pending here, it goes with the thread
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    makeNonBlocking(listener_);
    for (std::size_t index = 0; index < scripts_.size() && !stopping_; ++index) {
        waitUntil([this] {
            peer_ = accept(listener_, nullptr, nullptr);
            return peer_ >= 0 || stopping_;
        });
        if (index + 1 == scripts_.size()) {
            ::close(std::exchange(listener_, -1));
        }
        play(scripts_[index], "connection " + std::to_string(index));
    }
    ::close(listener_);
}

void ScriptedServer::play(const Script& script, const std::string& connection) {
    if (peer_ < 0) {
        problem_ += connection + " did not come; ";
        return;
    }
    makePrivate(peer_);
    makeNonBlocking(peer_);
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

bool ScriptedServer::ready(short events, std::chrono::milliseconds limit) const {
    pollfd waiting = {peer_, events, 0};
    return waitUntil([&] { return stopping_ || poll(&waiting, 1, 0) == 1; }, limit) && !stopping_;
}

} // namespace support
