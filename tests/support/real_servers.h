// Real servers for tests: each is started on a free port of 127.0.0.1, from a configuration that is
// written into a temporary directory. A shell waits beside the server until the test has stopped it
// or was killed, and then removes both. They need no privilege and run as root too.
//
//     support::Nginx nginx;
//     nginx.addFile("file.bin", bytes);                     // served as /file.bin
//     nginx.addServerLines("location = /old { return 301 http://127.0.0.1/new; }");
//     support::Tinyproxy proxy;
//     if (!nginx.start() || !proxy.start()) {
//         QOR_SKIP_OR_FAIL(nginx.problem() + proxy.problem());
//     }
//     ... nginx.port(), nginx.url("/file.bin"), proxy.port() ...
//     EXPECT_TRUE(nginx.waitForLog("\"GET /file.bin HTTP/1.0\" 200"));
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "temp_directory.h"

namespace support {

// A server program in the foreground, with a temporary directory to work in. It writes its process
// number to server.pid there as soon as it listens.
class RealServer {
public:
    ~RealServer();
    RealServer(const RealServer&) = delete;
    RealServer& operator=(const RealServer&) = delete;

    // Starts the server and waits until it takes connections; false with a problem() otherwise.
    bool start();
    std::uint16_t port() const {
        return port_;
    }
    // Why start() failed, for QOR_SKIP_OR_FAIL; empty otherwise.
    const std::string& problem() const {
        return problem_;
    }
    // Waits until the server's access log contains the text; false after 10 s.
    bool waitForLog(const std::string& text) const;

protected:
    // The program, and how it is told to take server.conf.
    explicit RealServer(const char* command);

    std::string configuration_; // what stands in server.conf
    const TempDirectory directory_;

private:
    const std::string command_;
    const std::uint16_t port_;
    std::string problem_;
    std::FILE* shell_ = nullptr; // its input, open as long as the server is to run
};

// A web server for the files of one directory. Its log has the combined format.
class Nginx : public RealServer {
public:
    Nginx();

    // Serves bytes as "/" and the name, before or after start(), with the time of modification.
    void addFile(const std::string& name, const std::string& bytes, std::time_t modified = 0);
    // Lines for the server block (locations, directives), before start().
    void addServerLines(const std::string& lines);
    std::string url(const std::string& path) const;

private:
    std::string serverLines_;
};

// An HTTP proxy on 127.0.0.1.
class Tinyproxy : public RealServer {
public:
    Tinyproxy();

    // From start() on the proxy serves only who brings these.
    void requireCredentials(const std::string& user, const std::string& password);
};

} // namespace support
