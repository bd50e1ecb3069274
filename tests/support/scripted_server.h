// A loopback server that plays a script: the odd answers that no real server gives.
//
//     using namespace support;
//     ScriptedServer server({
//         {readRequest(), sendByteByByte("HTTP/1.0 200 OK\r\n\r\nhi")}, // first connection
//         {readRequest(), sendBytes("HTTP/1.0 20"), reset()},           // second connection
//     });
//     ... connect to "127.0.0.1", server.port(), and exchange ...
//     EXPECT_EQ(server.wait(), "");                  // every step was played
//     EXPECT_EQ(server.received(0), "GET / ...");    // all that came in on the first connection
//
// A thread of its own takes the connections one after the other, each with the next script, and
// closes a connection in order where its script ends. Behind the last script nobody listens any
// more: a further connect is refused. Every step has a time limit; a step that fails (the peer is
// gone, nothing came in time) ends its connection and is named by wait(). The destructor wakes the
// thread from whatever it waits for and joins it; the process never sees a SIGPIPE from it.
//
// A connection that is closed in order first ends its own side, and then takes for a moment what
// the peer still sends: unread bytes would turn the close into a reset.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"

namespace support {

enum class Loopback { v4, v6 };

// True where the machine has an IPv6 loopback address.
bool hasIpv6Loopback();

class ScriptedServer;

// The server's side of one connection. A test that needs a step of its own writes it as a function
// over this; the steps below are made of it.
class Connection {
public:
    Connection(ScriptedServer& server, std::size_t index, int descriptor);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Reads once, what is there; false for the end, an error, or nothing within the limit.
    bool readSome(std::size_t atMost);
    bool send(const char* data, std::size_t size);
    // Waits until the test calls ScriptedServer::release().
    bool pause();
    bool sleep(std::chrono::milliseconds time);
    void close();
    bool reset();

    // All that came in so far, and how much it is.
    std::string received() const;
    std::size_t receivedSize() const;
    int descriptor() const {
        return descriptor_;
    }

private:
    bool ready(short events) const;

    ScriptedServer& server_;
    std::size_t index_;
    int descriptor_;
};

using Step = std::function<bool(Connection&)>;
using Script = std::vector<Step>;

// Reads up to the blank line of a request and, where it names a Content-Length, its body too.
Step readRequest();
// Reads until that many bytes have come in on the connection since its begin.
Step readBytes(std::size_t total);
// Reads until the peer closes its side, in order or with a reset.
Step readToEnd();
Step sendBytes(std::string bytes);
// Sends every byte in a packet of its own.
Step sendByteByByte(std::string bytes);
Step pauseFor(std::chrono::milliseconds time);
// Holds the connection until the test calls release(); see also waitUntilPaused().
Step pauseUntilReleased();
// No more bytes to the peer, who may still send.
Step halfClose();
Step closeNow();
// Ends the connection with a reset (RST) instead of an orderly close.
Step reset();

class ScriptedServer {
public:
    explicit ScriptedServer(std::vector<Script> scripts, Loopback family = Loopback::v4);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    std::uint16_t port() const {
        return port_;
    }
    // "http://127.0.0.1:PORT" and the path, which begins with a slash.
    std::string url(const std::string& path) const;

    // Waits until all scripts are through. Empty, or which step of which connection failed.
    std::string wait();
    // The bytes that came in on a connection (counted from 0) so far.
    std::string received(std::size_t connection) const;
    // How many connections were taken so far.
    std::size_t connections() const;

    // Waits until a connection stands at pauseUntilReleased(); false after the limit.
    bool waitUntilPaused();
    // Lets the pause that the server stands at, or the next one, end.
    void release();

private:
    friend class Connection;

    void run();
    int acceptOne() const;
    void play(std::size_t index, int descriptor);
    void noteProblem(const std::string& problem);

    const std::vector<Script> scripts_;
    const Loopback family_;
    int listener_ = -1;
    int stopPipe_[2] = {-1, -1}; // readable as soon as the destructor wants the thread's end
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> received_;
    std::string problem_;
    bool paused_ = false;
    unsigned releases_ = 0;
    bool stopping_ = false;
    bool done_ = false;

    std::thread thread_;
};

} // namespace support
