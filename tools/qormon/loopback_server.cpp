#include "loopback_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <utility>

namespace qormon {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience(5); // for a whole request
constexpr std::size_t longestRequest = 16384;

#if defined(MSG_NOSIGNAL)
constexpr int sendFlags = MSG_NOSIGNAL;
#else
constexpr int sendFlags = 0;
#endif

bool waitReadable(int descriptor, Clock::time_point deadline) {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
    pollfd entry{descriptor, POLLIN, 0};
    return left.count() > 0 && poll(&entry, 1, static_cast<int>(left.count())) == 1;
}

// A connection that blocks, unlike the listener whose mode some systems hand on, and that raises no
// SIGPIPE when its client has gone.
void prepareConnection(int connection) {
    fcntl(connection, F_SETFL, 0);
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    setsockopt(connection, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

// Reads until the blank line that ends a request; an empty text where none came.
std::string readRequest(int connection) {
    const Clock::time_point deadline = Clock::now() + patience;
    std::string request;
    while (request.find("\r\n\r\n") == std::string::npos) {
        char piece[1024];
        if (request.size() > longestRequest || !waitReadable(connection, deadline)) {
            return "";
        }
        const ssize_t count = recv(connection, piece, sizeof piece, 0);
        if (count <= 0) {
            return "";
        }
        request.append(piece, static_cast<std::size_t>(count));
    }
    return request;
}

void sendAll(int connection, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = send(connection, text.data() + sent, text.size() - sent, sendFlags);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

// The path of "GET /path HTTP/1.0".
std::string requestedPath(const std::string& request) {
    const std::size_t start = request.find(' ');
    const std::size_t end = request.find(' ', start + 1);
    if (start == std::string::npos || end == std::string::npos) {
        return "";
    }
    return request.substr(start + 1, end - start - 1);
}

std::string response(const char* status, const std::string& body) {
    return std::string("HTTP/1.0 ") + status +
           "\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

LoopbackServer::LoopbackServer(std::map<std::string, std::string> documents)
    : documents_(std::move(documents)) {
    if (listenOnFreePort() && pipe(stopPipe_) == 0) {
        thread_ = std::thread(&LoopbackServer::serve, this);
    }
}

LoopbackServer::~LoopbackServer() {
    if (thread_.joinable()) {
        close(stopPipe_[1]); // the reading end becomes readable and the thread leaves
        thread_.join();
        close(stopPipe_[0]);
    }
    if (listener_ >= 0) {
        close(listener_);
    }
}

std::string LoopbackServer::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

bool LoopbackServer::listenOnFreePort() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    if (listener_ < 0) {
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
        return false;
    }
    port_ = ntohs(address.sin_port);
    // A client that has gone before accept must not keep the thread there.
    fcntl(listener_, F_SETFL, O_NONBLOCK);
    return true;
}

void LoopbackServer::serve() {
    for (;;) {
        pollfd entries[] = {{listener_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (poll(entries, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (entries[1].revents != 0) {
            return;
        }
        const int connection = accept(listener_, nullptr, nullptr);
        if (connection >= 0) {
            prepareConnection(connection);
            answer(connection);
            close(connection);
        }
    }
}

void LoopbackServer::answer(int connection) const {
    const std::string request = readRequest(connection);
    if (request.empty()) {
        return;
    }
    const auto document = documents_.find(requestedPath(request));
    sendAll(connection, document == documents_.end() ? response("404 Not Found", "")
                                                     : response("200 OK", document->second));
}

} // namespace qormon
