// A small HTTP server on this machine's loopback address, for the demonstration only.
#pragma once

#include <map>
#include <string>
#include <thread>

namespace qormon {

class LoopbackServer {
public:
    // Serves the documents by their paths ("/update.cfg"), one request at a time, from a thread of
    // its own, until the object goes.
    explicit LoopbackServer(std::map<std::string, std::string> documents);
    ~LoopbackServer();

    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // False where no port could be had.
    bool isRunning() const {
        return thread_.joinable();
    }

    // "http://127.0.0.1:PORT"
    std::string baseUrl() const;

private:
    bool listenOnFreePort();
    void serve();
    void answer(int connection) const;

    std::map<std::string, std::string> documents_;
    int listener_ = -1;
    int stopPipe_[2] = {-1, -1};
    unsigned int port_ = 0;
    std::thread thread_;
};

} // namespace qormon
