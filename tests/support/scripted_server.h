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
#include <vector>

#include "loopback.h"

namespace support {

class ScriptedServer;

// Plays on the connection that the server has at the moment; false where it fails.
using Step = std::function<bool(ScriptedServer&)>;
using Script = std::vector<Step>;

// Reads up to the blank line of a request and, where it names a Content-Length, its body too.
Step readRequest();
// Reads until that many bytes have come in on the connection since its begin.
Step readBytes(std::size_t total);
// Reads until the peer closes its side, in order or with a reset.
Step readToEnd();
Step sendBytes(std::string bytes);
// Sends each byte by itself.
Step sendBytewise(std::string bytes);
Step pauseFor(std::chrono::milliseconds time);
// Holds the connection until the test calls release().
Step pauseUntilReleased();
// Ends the connection with a reset (RST) instead of an orderly close.
Step reset();

class ScriptedServer {
public:
    // Where the machine has no such loopback address (AF_INET6), the port is 0.
    explicit ScriptedServer(std::vector<Script> scripts, int family = AF_INET);
    ~ScriptedServer();

    std::uint16_t port() const {
        return port_;
    }
    // "http://127.0.0.1:PORT" and the path, which begins with a slash.
    std::string url(const std::string& path) const;

    // Waits until all scripts are through. Empty, or which step of which connection failed.
    std::string wait();
    // The bytes that came in on a connection (counted from 0) so far.
    std::string received(std::size_t connection) const;
    // Lets the pause that the server stands at, or the next one, end.
    void release();

    // What the steps are made of.
    bool readUntil(const std::function<bool(const std::string& received)>& enough);
    bool isAtEnd() const;
    bool send(const std::string& bytes);
    bool pause();
    bool close();
    bool reset();

private:
    void run();
    void play(const Script& script, const std::string& connection);
    bool ready(int descriptor, short events, std::chrono::milliseconds limit = stepLimit) const;

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

} // namespace support
