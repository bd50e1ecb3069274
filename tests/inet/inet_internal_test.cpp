// The clients over calls of the system that the tests replace: what they ask for, exact errors, and
// the races between a connect and its watchdog.
#include <fcntl.h>
#include <netdb.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "http_peer.h"
#include "httpget.h"
#include "inet/netcalls.h"
#include "loopback.h"
#include "qoros.h"
#include "tcpclient.h"
#include "temp_directory.h"

namespace {

using std::chrono::milliseconds;

// What the library gets where it makes these calls. Each test puts in what it expects to be called.
struct Calls {
    std::function<int(const char*, addrinfo**)> resolve;
    std::function<void(addrinfo*)> release;
    std::function<int(const sockaddr*, socklen_t)> connectTo;
    std::function<ssize_t(const void*, std::size_t)> transmit;
    std::function<ssize_t(void*, std::size_t, int)> take;
    std::function<bool(void* (*)(void*), void*)> begin = [](void* (*routine)(void*), void* object) {
        std::thread(routine, object).detach();
        return true;
    };
    std::function<void(unsigned int)> pause;
};

Calls calls;

class Internal : public testing::Test {
protected:
    void SetUp() override {
        calls = Calls();
    }
};
using TcpClientInternal = Internal;
using HttpGetInternal = Internal;

} // namespace

// In place of the library's own. The qualified names make sure that it declares them like this.

int netcalls::resolveHost(const char* host, addrinfo** list) {
    return calls.resolve(host, list);
}

void netcalls::freeResolved(addrinfo* list) {
    calls.release(list);
}

int netcalls::connectSocket(int, const sockaddr* address, socklen_t length) {
    return calls.connectTo(address, length);
}

ssize_t netcalls::sendBytes(int, const void* data, std::size_t size) {
    return calls.transmit(data, size);
}

ssize_t netcalls::receiveBytes(int, void* data, std::size_t size, int flags) {
    return calls.take(data, size, flags);
}

bool netcalls::beginThread(void* (*routine)(void*), void* argument) {
    return calls.begin(routine, argument);
}

void netcalls::pauseFor(unsigned int duration) {
    calls.pause(duration);
}

namespace {

// "address length" of what connect was asked for.
std::string describe(const sockaddr* address, socklen_t length) {
    char host[64] = "";
    char port[8] = "";
    getnameinfo(address, length, host, sizeof host, port, sizeof port,
                NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(host) + " " + port + " " + std::to_string(length);
}

// Result, connected, last error, socket of one connect.
std::string connectOnce(TcpClient& client) {
    const int result = client.Connect("192.0.2.1", 1, 0);
    const bool open = client.sock >= 0 && fcntl(client.sock, F_GETFD) >= 0;
    return std::to_string(result) + " " + std::to_string(client.connected) + " " +
           std::to_string(client.lastError) + (open ? " open" : " none");
}

TEST_F(TcpClientInternal, TriesOneAddressOfEachFamily) {
    // Addresses of the test networks of RFC 5737 and RFC 3849.
    const std::string four = "192.0.2.1", six = "2001:db8::1";
    const std::vector<std::string> both = {six, four, "192.0.2.2", "2001:db8::2"};
    const std::string tried4 = "192.0.2.1 8080 16;", tried6 = "2001:db8::1 8080 28;";
    const struct {
        const char* name;
        std::string host;
        std::vector<std::string> answer;
        const char* reachable; // the family's first characters
        signed char result;
        unsigned int lastError;
        std::string tried;
    } cases[] = {
        {"IPv4 first, whatever the order", "host", both, "192", 1, 0, tried4},
        {"IPv6 when IPv4 fails", "host", both, "2001", 1, 1, tried4 + tried6},
        {"no second address of a family", "host", both, "none", 0, 1, tried4 + tried6},
        {"only IPv6", "host", {six}, "2001", 1, 0, tried6},
        {"not resolved", "unknown", {}, "none", 0, 0, ""},
        {"IPv6 text", six, {}, "none", 0, 1, tried6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string tried;
        addrinfo* unfreed = nullptr;
        calls.resolve = [&](const char* host, addrinfo** list) {
            EXPECT_EQ(host, c.host);
            addrinfo hints = {};
            hints.ai_flags = AI_NUMERICHOST;
            hints.ai_socktype = SOCK_STREAM; // one entry for each
            for (auto text = c.answer.rbegin(); text != c.answer.rend(); ++text) {
                getaddrinfo(text->c_str(), nullptr, &hints, list);
                (*list)->ai_next = unfreed;
                unfreed = *list;
            }
            return unfreed == nullptr ? EAI_NONAME : 0;
        };
        calls.release = [&](addrinfo* list) {
            EXPECT_EQ(list, unfreed);
            freeaddrinfo(list);
            unfreed = nullptr;
        };
        calls.connectTo = [&](const sockaddr* address, socklen_t length) {
            const std::string target = describe(address, length);
            tried += target + ";";
            return target.find(c.reachable) == 0 ? 0 : -1;
        };
        TcpClient client;
        EXPECT_EQ(client.Connect(c.host.c_str(), 8080 + 0x10000, 1), c.result);
        EXPECT_EQ(+client.lastError, c.lastError);
        EXPECT_EQ(tried, c.tried);
        EXPECT_EQ(unfreed, nullptr);
    }
}

TEST_F(TcpClientInternal, ReportsTheSocketThatItLeaves) {
    // Connects that end just when the watchdog looks: each is either cut, and then reported as
    // failed, or reported with a socket that stays open.
    static thread_local std::chrono::microseconds standsAfter;
    calls.connectTo = [](const sockaddr*, socklen_t) {
        std::this_thread::sleep_for(standsAfter);
        return 0;
    };
    const std::size_t descriptors = support::openDescriptors();
    std::vector<std::thread> runs;
    for (int i = 0; i < 32; ++i) {
        runs.emplace_back([i] {
            standsAfter = std::chrono::microseconds(90000 + 400 * i);
            TcpClient client;
            client.timeout = 0;
            const std::string outcome = connectOnce(client);
            EXPECT_EQ(outcome, client.connected == 1 ? "1 1 0 open" : "0 0 1 none");
        });
    }
    for (std::thread& run : runs) {
        run.join();
    }
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

TEST_F(TcpClientInternal, ConnectsUnderAWatchdogOnly) {
    static std::atomic<int> watchdogs;
    calls.begin = [](void* (*routine)(void*), void* argument) {
        EXPECT_TRUE(isBlocked(SIGALRM)); // so will it be in the thread
        std::thread([routine, argument] {
            std::this_thread::sleep_for(milliseconds(50));
            ++watchdogs;
            routine(argument);
        }).detach();
        return true;
    };
    calls.connectTo = [](const sockaddr*, socklen_t) {
        std::this_thread::sleep_for(milliseconds(900));
        return 0;
    };
    TcpClient client;
    client.timeout = 4294968;           // s; in ms and 32 bits this would be 704
    for (const int connects : {1, 2}) { // the first one's end is not the second one's
        EXPECT_EQ(connectOnce(client), "1 1 0 open");
        EXPECT_EQ(watchdogs, connects); // nothing of it runs any more
        EXPECT_FALSE(isBlocked(SIGALRM));
        client.Disconnect();
    }
    calls.begin = [](void* (*)(void*), void*) { return false; };
    calls.connectTo = nullptr; // nobody would keep the time-out
    EXPECT_EQ(connectOnce(client), "0 0 1 none");
    EXPECT_EQ(+client.sock, -1);
}

TEST_F(TcpClientInternal, RepeatsASendThatWouldBlock) {
    constexpr int again = -EAGAIN;
    const struct {
        const char* name;
        std::vector<int> results; // bytes, or a negative errno
        signed char result;
        const char* sends; // offset:size of each
    } cases[] = {
        {"in parts", {3, 4, 1}, 1, "0:8 3:5 7:1 "},
        {"a retry begins one byte earlier", {3, again, 6}, 1, "0:8 3:5 2:6 "},
        {"three, even before the data", {again, again, again, 11}, 1, "0:8 -1:9 -2:10 -3:11 "},
        {"not a fourth", {again, 2, again, again, again}, 0, "0:8 -1:9 1:7 0:8 -1:9 "},
        {"none after another error", {-EINTR}, 0, "0:8 "},
    };
    const unsigned char bytes[] = "###12345678";
    const unsigned char* const data = bytes + 3;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::size_t call = 0;
        std::string sends;
        calls.transmit = [&](const void* from, std::size_t size) -> ssize_t {
            EXPECT_EQ(errno, 0);
            sends += std::to_string(static_cast<const unsigned char*>(from) - data) + ":" +
                     std::to_string(size) + " ";
            const int result = call < c.results.size() ? c.results[call++] : -EIO;
            errno = result < 0 ? -result : 0;
            return std::max(result, -1);
        };
        TcpClient client;
        client.sock = 0; // only handed through
        errno = EPIPE;   // of an earlier call
        EXPECT_EQ(client.Send(data, 8), c.result);
        EXPECT_EQ(client.Send(data, 0), 1); // without a call
        EXPECT_EQ(sends, c.sends);
        client.sock = -1;
    }
}

TEST_F(TcpClientInternal, LosesTheConnectionByCertainErrors) {
    for (const int error : {ECONNRESET, ENOTCONN, ETIMEDOUT, EBADF, EINTR, EAGAIN}) {
        SCOPED_TRACE(strerror(error));
        unsigned char buffer[7];
        calls.take = [&](void* into, std::size_t size, int flags) -> ssize_t {
            EXPECT_TRUE(into == buffer && size == sizeof buffer && flags == MSG_OOB);
            errno = error;
            return -1;
        };
        TcpClient client;
        client.sock = 0; // only handed through
        client.connected = 1;
        client.lastError = 3;
        unsigned int length = sizeof buffer;
        EXPECT_EQ(client.receive(buffer, &length, MSG_OOB, 0), 0);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(client.connected == 1, error == EBADF || error == EINTR || error == EAGAIN);
        EXPECT_EQ(+client.lastError, 0u);
        client.sock = -1;
    }
}

TEST_F(HttpGetInternal, PausesBeforeFurtherReceivesAndEndsAfterFifty) {
    const support::TempDirectory directory;
    HttpGet get;
    std::vector<std::string> pieces;
    std::vector<unsigned int> pauses; // ms
    calls.transmit = [](const void*, std::size_t size) { return static_cast<ssize_t>(size); };
    calls.pause = [&](unsigned int duration) { pauses.push_back(duration); };
    calls.take = [&](void* data, std::size_t, int) -> ssize_t {
        if (pieces.empty()) {
            errno = EIO; // the connection still stands
            return -1;
        }
        const std::string piece = pieces.front();
        pieces.erase(pieces.begin());
        memcpy(data, piece.data(), piece.size());
        return static_cast<ssize_t>(piece.size());
    };
    const auto receive = [&](const std::vector<std::string>& answer) {
        pieces = answer;
        pauses.clear();
        close(connectPeer(*get.tcp)); // always readable
        char path[] = "path";
        QORINET_URL url = {};
        url.path = path;
        return get.getFile(url, directory.path("file").c_str(), nullptr, nullptr, nullptr);
    };
    using Pauses = std::vector<unsigned int>;
    strcpy_qor(get.errorText, sizeof get.errorText, "as before");
    EXPECT_EQ(receive({"H", "TTP/1.0 200 ", "OK\r\nContent-length: 1\r\n\r\n", "x"}), 1);
    EXPECT_EQ(pauses, Pauses(2, 100));
    EXPECT_EQ(receive({"HTTP/1.0 200 OK\r\n", "\r\n", "x"}), 0); // broken off
    EXPECT_EQ(pauses, Pauses(1, 100));
    EXPECT_EQ(directory.read("file"), "x");

    std::vector<std::string> answer(50, "x");
    answer.front() = "HTTP/1.0 200 OK\r\nContent-length : 0";
    answer.insert(answer.end(), {"\r\nContent-length: 0\r\n\r\n", "never read"});
    EXPECT_EQ(receive(answer), 1);
    answer.insert(answer.begin() + 1, "x");
    EXPECT_EQ(receive(answer), 0);
    EXPECT_EQ(pauses.size(), 50u);
    EXPECT_STREQ(get.errorText, "as before");
}

} // namespace
