// A small HTTP server on this machine's loopback address, for the demonstration only.
#pragma once

#include <ctime>
#include <map>
#include <string>
#include <thread>

namespace qormon {

struct Document {
    std::string body;
    std::time_t modified = 0;
};

// The documents of a server by their paths ("/update.cfg").
using Documents = std::map<std::string, Document>;

class LoopbackServer {
public:
    // Takes a port; connections wait until the server is started.
    LoopbackServer();
    ~LoopbackServer();

    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Serves the documents, one request at a time, from a thread of its own, until the object goes.
    // False where no port could be had.
    bool start(Documents documents);

    // "http://127.0.0.1:PORT"
    std::string baseUrl() const;

private:
    void listenOnFreePort();
    void serve();
    void answer(int connection) const;
    void sendAll(int connection, const std::string& text) const;
    bool stopsWithin(int milliseconds) const;

    Documents documents_;
    int listener_ = -1;
    int stopPipe_[2] = {-1, -1};
    unsigned int port_ = 0; // as long as there is none
    std::thread thread_;
};

// A time as HTTP writes it (RFC 7231, section 7.1.1.1).
std::string httpDate(std::time_t time);

} // namespace qormon
