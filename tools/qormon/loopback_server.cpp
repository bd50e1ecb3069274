#include "loopback_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "httpvalue.h"

namespace qormon {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience(5); // for a whole request
constexpr std::size_t longestRequest = 16384;

// A large document goes out in pieces with pauses, so that a person sees the progress.
constexpr std::size_t pieceSize = std::size_t{64} * 1024;
constexpr int pauseBetweenPieces = 12; // ms

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

// A connection that does not block, whatever the system hands on from the listener, and that raises
// no SIGPIPE when its client has gone.
void prepareConnection(int connection) {
    fcntl(connection, F_SETFL, O_NONBLOCK);
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

// The path of "GET /path HTTP/1.0".
std::string requestedPath(const std::string& request) {
    const std::size_t start = request.find(' ');
    const std::size_t end = request.find(' ', start + 1);
    if (start == std::string::npos || end == std::string::npos) {
        return "";
    }
    return request.substr(start + 1, end - start - 1);
}

// Whether the client has the document already.
bool isUnmodified(const std::string& request, const Document& document) {
    const std::string name = "\r\nIf-Modified-Since: ";
    const std::size_t place = request.find(name);
    return place != std::string::npos &&
           StrToDate(request.c_str() + place + name.size()) >= document.modified;
}

std::string response(const char* status, const std::string& headers, const std::string& body) {
    return std::string("HTTP/1.0 ") + status + "\r\n" + headers + "Connection: close\r\n\r\n" +
           body;
}

std::string responseOf(const Document& document) {
    return response("200 OK",
                    "Content-Length: " + std::to_string(document.body.size()) +
                        "\r\nLast-Modified: " + httpDate(document.modified) + "\r\n",
                    document.body);
}

} // namespace

LoopbackServer::LoopbackServer() {
    listenOnFreePort();
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

bool LoopbackServer::start(Documents documents) {
    if (port_ == 0 || pipe(stopPipe_) != 0) {
        return false;
    }
    documents_ = std::move(documents);
    thread_ = std::thread(&LoopbackServer::serve, this);
    return true;
}

std::string LoopbackServer::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(port_);
}

void LoopbackServer::listenOnFreePort() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    if (listener_ < 0) {
        return;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 8) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
        return;
    }
    port_ = ntohs(address.sin_port);
    // A client that has gone before accept must not keep the thread there.
    fcntl(listener_, F_SETFL, O_NONBLOCK);
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
    const auto found = documents_.find(requestedPath(request));
    if (found == documents_.end()) {
        sendAll(connection, response("404 Not Found", "", ""));
    } else if (isUnmodified(request, found->second)) {
        sendAll(connection, response("304 Not Modified", "", ""));
    } else {
        sendAll(connection, responseOf(found->second));
    }
}

// Gives up when the client takes nothing for long, and when the server is to stop.
void LoopbackServer::sendAll(int connection, const std::string& text) const {
    constexpr int longestWait = 1000 * static_cast<int>(patience.count()); // ms
    std::size_t sent = 0;
    while (sent < text.size() && !stopsWithin(sent == 0 ? 0 : pauseBetweenPieces)) {
        pollfd entry{connection, POLLOUT, 0};
        const std::size_t size = std::min(pieceSize, text.size() - sent);
        if (poll(&entry, 1, longestWait) <= 0) {
            return;
        }
        const ssize_t count = send(connection, text.data() + sent, size, sendFlags);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

bool LoopbackServer::stopsWithin(int milliseconds) const {
    pollfd entry{stopPipe_[0], POLLIN, 0};
    return poll(&entry, 1, milliseconds) > 0;
}

std::string httpDate(std::time_t time) {
    tm parts = {};
    char text[40] = "";
    gmtime_r(&time, &parts);
    // The names are English: the tool never sets a locale.
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text;
}

} // namespace qormon
