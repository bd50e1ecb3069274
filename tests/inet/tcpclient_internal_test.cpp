#include "tcpclient.h"

#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "qorinet.h"
#include "replaced_calls.h"

namespace {

using TcpClientInternal = ReplacedCalls;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A resolver's answer: addresses of the test networks of RFC 5737 and RFC 3849.
addrinfo* answerOf(const std::vector<const char*>& texts) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM; // one entry for each
    addrinfo* list = nullptr;
    for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
        addrinfo* const behind = list;
        getaddrinfo(*text, nullptr, &hints, &list);
        list->ai_next = behind;
    }
    return list;
}

// "address port length" of what connect was asked for.
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

void runAll(std::size_t count, const std::function<void(std::size_t)>& run) {
    std::vector<std::future<void>> runs; // wait by themselves
    for (std::size_t i = 0; i < count; ++i) {
        runs.push_back(std::async(std::launch::async, run, i));
    }
}

TEST_F(TcpClientInternal, TriesOneAddressOfEachFamily) {
    struct Case {
        const char* name;
        const char* host;
        std::vector<const char*> answer;
        const char* reachable; // the family's first characters
        signed char result;
        unsigned int lastError;
        std::vector<std::string> tried;
    };
    const char* const four = "192.0.2.1";
    const char* const six = "2001:db8::1";
    const std::vector<const char*> both = {six, four, "192.0.2.2", "2001:db8::2"};
    const std::string tried4 = "192.0.2.1 8080 16";
    const std::string tried6 = "2001:db8::1 8080 28";
    const Case cases[] = {
        {"IPv4 first, whatever the order", "host", both, "192", 1, 0, {tried4}},
        {"IPv6 when IPv4 fails", "host", both, "2001", 1, 1, {tried4, tried6}},
        {"no second address of a family", "host", both, "none", 0, 1, {tried4, tried6}},
        {"only IPv6", "host", {six}, "2001", 1, 0, {tried6}},
        {"not resolved", "unknown", {}, "none", 0, 0, {}},
        {"IPv4 text", four, {}, "192", 1, 0, {tried4}},
        {"IPv6 text", six, {}, "none", 0, 1, {tried6}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string asked;
        int unfreed = 0;
        std::vector<std::string> tried;
        calls.resolve = [&](const char* host, addrinfo** list) {
            asked = host;
            *list = answerOf(c.answer);
            unfreed += *list == nullptr ? 0 : 1;
            return *list == nullptr ? EAI_NONAME : 0;
        };
        calls.release = [&](addrinfo* list) {
            freeaddrinfo(list);
            --unfreed;
        };
        calls.connectTo = [&](int, const sockaddr* address, socklen_t length) {
            tried.push_back(describe(address, length));
            return tried.back().find(c.reachable) == 0 ? 0 : -1;
        };
        TcpClient client;
        const unsigned int port = 8080 + 0x10000;
        EXPECT_EQ(client.Connect(c.host, port, 1), c.result);
        EXPECT_EQ(+client.lastError, c.lastError);
        EXPECT_EQ(+client.port, c.tried.empty() ? 0 : port);
        EXPECT_EQ(tried, c.tried);
        EXPECT_EQ(unfreed, 0);
        EXPECT_EQ(asked, QorIpAddr(c.host).GetAF() != 0 ? "" : c.host);
    }
}

thread_local std::chrono::microseconds standsAfter; // for the connects of each thread

TEST_F(TcpClientInternal, CutsAConnectWhenItsTimeIsOver) {
    // Connects that stand after their time, or as soon as their socket is closed. They run side by
    // side, so that a slow machine delays them all.
    calls.connectTo = [](int sock, const sockaddr*, socklen_t) {
        support::waitUntil([sock] { return fcntl(sock, F_GETFD) < 0; }, standsAfter);
        return 0;
    };
    struct Case {
        unsigned int timeout; // s
        milliseconds standsAfter;
        const char* outcome;
    };
    const Case cases[] = {
        {0, milliseconds(9000), "0 0 1 none"},
        {1, milliseconds(9000), "0 0 1 none"},
        {2, milliseconds(9000), "0 0 1 none"},
        {4294968, milliseconds(1200), "1 1 0 open"}, // in 32 bits this would be 704 ms
    };
    long long took[std::size(cases)] = {}; // ms
    runAll(std::size(cases), [&](std::size_t i) {
        const auto begin = Clock::now();
        standsAfter = cases[i].standsAfter;
        TcpClient client;
        client.timeout = cases[i].timeout;
        EXPECT_EQ(connectOnce(client), cases[i].outcome);
        took[i] = std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
    });
    EXPECT_GE(took[1], 1000);
    EXPECT_GT(took[2] - took[1], 700);
    EXPECT_LT(took[2] - took[1], 1600);
}

TEST_F(TcpClientInternal, ReportsTheSocketThatItLeaves) {
    // Connects that end just when the watchdog looks: each is either cut, and then reported as
    // failed, or reported with a socket that stays open.
    calls.connectTo = [](int, const sockaddr*, socklen_t) {
        std::this_thread::sleep_for(standsAfter);
        return 0;
    };
    const std::size_t descriptors = support::openDescriptors();
    runAll(32, [](std::size_t i) {
        standsAfter = std::chrono::microseconds(90000 + 400 * i);
        TcpClient client;
        client.timeout = 0;
        const std::string outcome = connectOnce(client);
        EXPECT_EQ(outcome, client.connected == 1 ? "1 1 0 open" : "0 0 1 none");
    });
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST_F(TcpClientInternal, ReturnsAfterItsWatchdog) {
    static std::atomic<int> watchdogs;
    watchdogs = 0;
    calls.begin = [](void* (*routine)(void*), void* argument) {
        std::thread([routine, argument] {
            std::this_thread::sleep_for(milliseconds(50));
            ++watchdogs;
            routine(argument);
        }).detach();
        return true;
    };
    calls.connectTo = [](int, const sockaddr*, socklen_t) { return 0; };
    TcpClient client;
    for (const int connects : {1, 2}) { // the first one's end is not the second one's
        EXPECT_EQ(connectOnce(client), "1 1 0 open");
        EXPECT_EQ(watchdogs, connects);
        client.Disconnect();
    }
}

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

TEST_F(TcpClientInternal, FailsWithoutAWatchdog) {
    const std::size_t descriptors = support::openDescriptors();
    bool blocked = false; // when the thread begins: it would take no signals
    calls.begin = [&blocked](void* (*)(void*), void*) {
        blocked = isBlocked(SIGALRM);
        return false;
    };
    TcpClient client; // does not connect: nobody would keep the time-out
    EXPECT_EQ(connectOnce(client), "0 0 1 none");
    EXPECT_TRUE(blocked);
    EXPECT_FALSE(isBlocked(SIGALRM));
    EXPECT_EQ(+client.sock, -1);
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST_F(TcpClientInternal, RepeatsASendThatWouldBlock) {
    struct Case {
        const char* name;
        std::vector<int> results; // bytes, or a negative errno
        signed char result;
        const char* sends; // offset:size of each
    };
    constexpr int again = -EAGAIN;
    const Case cases[] = {
        {"at once", {8}, 1, "0:8 "},
        {"in parts", {3, 4, 1}, 1, "0:8 3:5 7:1 "},
        {"a retry begins one byte earlier", {3, again, 6}, 1, "0:8 3:5 2:6 "},
        {"three, even before the data", {again, again, again, 11}, 1, "0:8 -1:9 -2:10 -3:11 "},
        {"not a fourth", {again, 2, again, again, again}, 0, "0:8 -1:9 1:7 0:8 -1:9 "},
        {"none after another error", {-EINTR}, 0, "0:8 "},
    };
    const unsigned char bytes[] = "###12345678";
    const unsigned char* const data = bytes + 3;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::size_t call = 0;
        std::string sends;
        calls.transmit = [&](int, const void* from, std::size_t size) -> ssize_t {
            EXPECT_EQ(errno, 0);
            sends += std::to_string(static_cast<const unsigned char*>(from) - data) + ":" +
                     std::to_string(size) + " ";
            const int result = call < c.results.size() ? c.results[call++] : -EIO;
            errno = result < 0 ? -result : 0;
            return result < 0 ? -1 : result;
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
        const bool stays = error == EBADF || error == EINTR || error == EAGAIN;
        unsigned char buffer[7];
        calls.take = [&](int, void* into, std::size_t size, int flags) -> ssize_t {
            EXPECT_EQ(into, buffer);
            EXPECT_EQ(size, sizeof buffer);
            EXPECT_EQ(flags, MSG_OOB);
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
        EXPECT_EQ(client.connected == 1, stays);
        EXPECT_EQ(+client.lastError, 0u);
        client.sock = -1;
    }
}

TEST_F(TcpClientInternal, TriesAllOptionsWhicheverFails) {
    for (const int failing : {SO_LINGER, SO_REUSEADDR, SO_REUSEPORT}) {
        SCOPED_TRACE(failing);
        std::set<int> tried;
        calls.setOption = [&](int, int, int option, const void*, socklen_t) {
            tried.insert(option);
            return option == failing ? -1 : 0;
        };
        EXPECT_EQ(QorInetSetSockOpt(0, 1), 0);
        EXPECT_GE(tried.size(), 3u);
    }
}

} // namespace
