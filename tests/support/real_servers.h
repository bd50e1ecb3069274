// Real servers for tests: each is started on a free port of 127.0.0.1, from a configuration that is
// written into a temporary directory, and is stopped and cleaned up by the destructor, or where the
// test is killed by a shell that waits beside the server. They need no privilege and run as root
// too.
//
//     support::Nginx nginx;
//     nginx.addFile("file.bin", bytes, 784111777);          // served as /file.bin, with its date
//     nginx.addServerLines("location = /old { return 301 http://127.0.0.1/new; }");
//     support::Tinyproxy proxy("user", "password");
//     if (!nginx.start() || !proxy.start()) {
//         QOR_SKIP_OR_FAIL(nginx.problem() + proxy.problem());
//     }
//     ... nginx.port(), nginx.url("/file.bin"), proxy.port() ...
//     EXPECT_NE(nginx.log().find("\"GET /file.bin HTTP/1.0\" 200"), std::string::npos);
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace support {

// A directory that is removed with all that it holds.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const {
        return path_;
    }
    // The path of an entry in it.
    std::string file(const std::string& name) const {
        return path_ + "/" + name;
    }

private:
    std::string path_;
};

std::string readWholeFile(const std::string& path);
void writeWholeFile(const std::string& path, const std::string& bytes);

// A server program in the foreground, with a directory of its own.
class RealServer {
public:
    virtual ~RealServer();
    RealServer(const RealServer&) = delete;
    RealServer& operator=(const RealServer&) = delete;

    // Starts the server and waits until it takes connections; false with a problem() otherwise. A
    // port that somebody else takes meanwhile costs another attempt.
    bool start();
    void stop();

    std::uint16_t port() const {
        return port_;
    }
    // Why start() failed, for QOR_SKIP_OR_FAIL; empty otherwise.
    const std::string& problem() const {
        return problem_;
    }
    // The server's access log so far. A line is written behind its answer: poll for it with
    // waitForLog().
    std::string log() const;
    // Waits until the log contains the text; false after 10 s.
    bool waitForLog(const std::string& text) const;

protected:
    explicit RealServer(const char* program);

    const TemporaryDirectory& directory() const {
        return directory_;
    }

private:
    // The configuration for a port, and the arguments that name its file.
    virtual std::string configuration(std::uint16_t port) const = 0;
    virtual std::vector<std::string> arguments(const std::string& file) const = 0;

    bool spawn(const std::string& binary);
    bool spawnShell(std::vector<std::string> command, int input);
    bool waitUntilItListens();
    bool runs();

    const char* const program_;
    TemporaryDirectory directory_;
    std::string problem_;
    std::uint16_t port_ = 0;
    pid_t group_ = -1; // also the server's number; -1 while there is nothing to stop
    bool runs_ = false;
    int lifeline_ = -1; // open as long as the test lives
};

// A web server for the files of one directory. Its log has the combined format.
class Nginx : public RealServer {
public:
    Nginx();
    ~Nginx() override;

    // Serves bytes as "/" and the name, before or after start(). A time of modification of -1 means
    // now.
    void addFile(const std::string& name, const std::string& bytes, std::time_t modified = -1);
    // Lines for the server block (locations, directives), before start().
    void addServerLines(const std::string& lines);
    std::string url(const std::string& path) const;

private:
    std::string configuration(std::uint16_t port) const override;
    std::vector<std::string> arguments(const std::string& file) const override;

    std::string serverLines_;
};

// An HTTP proxy on 127.0.0.1; with a user it asks for basic authentication (407 without).
class Tinyproxy : public RealServer {
public:
    Tinyproxy();
    Tinyproxy(const std::string& user, const std::string& password);
    ~Tinyproxy() override;

private:
    std::string configuration(std::uint16_t port) const override;
    std::vector<std::string> arguments(const std::string& file) const override;

    std::string authentication_;
};

} // namespace support
