// A loopback server that plays a script: the odd answers that no real server gives.
//
//     using namespace support;
//     ScriptedServer server({
//         {readRequest(), sendBytes("HTTP/1.0 200 OK\r\n\r\nhi")},  // first connection
//         {readRequest(), sendBytes("HTTP/1.0 20"), reset()},       // second connection
//     });
//     ... connect to "127.0.0.1", server.port(), and exchange ...
//     EXPECT_EQ(server.wait(), "");                  // every step was played
//     EXPECT_EQ(server.received(0), "GET / ...");    // all that came in on the first connection
//
// A thread of its own takes the connections one after the other, each with the next script, and
// closes a connection in order where its script ends. Behind the last script nobody listens any
// more: a further connect is refused. Every step has a time limit; a step that fails (the peer is
// gone, nothing came in time) ends its connection and is named by wait(). The destructor ends the
// thread at its next wait and joins it; the process never sees a SIGPIPE from it.
//
// A connection that is closed in order first ends its own side, and then takes for a moment what
// the peer still sends: unread bytes would turn the close into a reset.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "loopback.h"

namespace support {

class ScriptedServer;

// Plays on the connection that the server has at the moment; false where it fails.
using Step = std::function<bool(ScriptedServer&)>;
using Script = std::vector<Step>;

class ScriptedServer {
public:
    // Where the machine has no such loopback address (AF_INET6), the port is 0.
    explicit ScriptedServer(std::vector<Script> scripts, int family = AF_INET);
    ~ScriptedServer();

    std::uint16_t port() const {
        return port_;
    }
    // "http://127.0.0.1:PORT" and the path, which begins with a slash.
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    // Waits until all scripts are through. Empty, or which step of which connection failed.
    std::string wait();
    // The bytes that came in on a connection (counted from 0) so far.
    std::string received(std::size_t connection) const;
    // Lets the pause that the server stands at, or the next one, end.
    void release() {
        ++releases_;
    }

    // What the steps are made of.
    bool readRequest();
    bool readToEnd();
    bool send(const std::string& bytes);
    bool pause();
    bool reset();

private:
    // What a read gives: 1 for bytes, 0 for the peer's end, -1 where neither came in time.
    int read(std::chrono::milliseconds limit = stepLimit);
    void close();
    void run();
    void play(const Script& script, const std::string& connection);
    bool ready(short events, std::chrono::milliseconds limit = stepLimit) const;

    const std::vector<Script> scripts_;
    int listener_;
    int peer_ = -1;
    const std::uint16_t port_;
    std::string problem_; // of the thread, until it has ended

    mutable std::mutex mutex_;
    std::vector<std::string> received_; // written by the thread, under the mutex

    std::atomic<int> releases_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

// Reads up to the blank line of a request and, where it names a Content-length, its body too.
inline Step readRequest() {
    return &ScriptedServer::readRequest;
}
// Reads until the peer closes its side, in order or with a reset.
inline Step readToEnd() {
    return &ScriptedServer::readToEnd;
}
inline Step sendBytes(std::string bytes) {
    return [bytes = std::move(bytes)](ScriptedServer& server) { return server.send(bytes); };
}
// Holds the connection until the test calls release().
inline Step pauseUntilReleased() {
    return &ScriptedServer::pause;
}
// Ends the connection with a reset (RST) instead of an orderly close.
inline Step reset() {
    return &ScriptedServer::reset;
}

} // namespace support
