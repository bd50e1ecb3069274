#include "tcpclient.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
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
class Answer {
public:
    explicit Answer(const std::vector<std::string>& texts)
        : entries_(texts.size()), addresses_(texts.size()) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            QorIpAddr addr(texts[i].c_str());
            sockaddr* const address = reinterpret_cast<sockaddr*>(&addresses_[i]);
            addr.InitSockAddr(address, sizeof addresses_[i], 0);
            entries_[i].ai_family = addr.GetAF();
            entries_[i].ai_addr = address;
            entries_[i].ai_next = i + 1 < texts.size() ? &entries_[i + 1] : nullptr;
        }
    }

    addrinfo* list() {
        return entries_.empty() ? nullptr : entries_.data();
    }

private:
    std::vector<addrinfo> entries_;
    std::vector<sockaddr_storage> addresses_;
};

unsigned int portIn(const sockaddr* address) {
    unsigned short port = 0; // behind the family in both kinds
    memcpy(&port, reinterpret_cast<const char*>(address) + 2, sizeof port);
    return ntohs(port);
}

// "address port length" of what connect was asked for.
std::string describe(const sockaddr* address, socklen_t length) {
    sockaddr_storage storage = {};
    memcpy(&storage, address, length);
    QorIpAddr addr;
    addr.SetFromSockAddr(&storage);
    return std::string(addr.GetStr()) + " " + std::to_string(portIn(address)) + " " +
           std::to_string(length);
}

// True where a socket stays open for a time; false as soon as it is closed.
bool staysOpen(int sock, milliseconds time) {
    const auto limit = Clock::now() + time;
    while (fcntl(sock, F_GETFD) >= 0) {
        if (Clock::now() > limit) {
            return true;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
}

TEST_F(TcpClientInternal, TriesOneAddressOfEachFamily) {
    struct Case {
        const char* name;
        const char* host;
        std::vector<std::string> answer;
        std::string reachable; // the family's first characters
        signed char result;
        unsigned int lastError;
        std::vector<std::string> tried;
    };
    const std::string first4 = "192.0.2.1 8080 16";
    const std::string first6 = "2001:db8::1 8080 28";
    const std::vector<std::string> both = {"2001:db8::1", "192.0.2.1", "192.0.2.2", "2001:db8::2"};
    const Case cases[] = {
        {"IPv4 first, whatever the order", "host", both, "192", 1, 0, {first4}},
        {"IPv6 when IPv4 fails", "host", both, "2001", 1, 1, {first4, first6}},
        {"no second address of a family", "host", both, "none", 0, 1, {first4, first6}},
        {"only IPv6", "host", {"2001:db8::1"}, "2001", 1, 0, {first6}},
        {"only IPv4", "host", {"192.0.2.1"}, "none", 0, 1, {first4}},
        {"neither", "host", {""}, "none", 0, 0, {}},
        {"not resolved", "unknown", {}, "none", 0, 0, {}},
        {"IPv4 text", "192.0.2.1", {}, "192", 1, 0, {first4}},
        {"IPv6 text", "2001:db8::1", {}, "none", 0, 1, {first6}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Answer answer(c.answer);
        std::string asked;
        addrinfo* freed = nullptr;
        std::vector<std::string> tried;
        calls.resolve = [&](const char* host, addrinfo** list) {
            asked = host;
            *list = answer.list();
            return *list == nullptr ? EAI_NONAME : 0;
        };
        calls.release = [&](addrinfo* list) { freed = list; };
        calls.connectTo = [&](int, const sockaddr* address, socklen_t length) {
            tried.push_back(describe(address, length));
            return tried.back().find(c.reachable) == 0 ? 0 : -1;
        };
        TcpClient client;
        const unsigned int port = 8080 + 0x10000;
        EXPECT_EQ(client.Connect(c.host, port, 1), c.result);
        EXPECT_EQ(+client.lastError, c.lastError);
        EXPECT_EQ(+client.port, c.tried.empty() ? 0 : port);
        EXPECT_EQ(client.ssl, c.tried.empty() ? 0 : 1);
        EXPECT_EQ(tried, c.tried);
        EXPECT_EQ(freed, answer.list());
        const bool isText = QorIpAddr(c.host).GetAF() != 0;
        EXPECT_EQ(asked, isText ? "" : c.host);
    }
}

TEST_F(TcpClientInternal, DropsAConnectionThatStandsTooLate) {
    // The system reports success although the watchdog has closed the socket meanwhile.
    calls.connectTo = [](int sock, const sockaddr*, socklen_t) {
        EXPECT_FALSE(staysOpen(sock, milliseconds(10000)));
        return 0;
    };
    TcpClient client;
    client.timeout = 0;
    EXPECT_EQ(client.Connect("192.0.2.1", 1, 0), 0);
    EXPECT_EQ(client.connected, 0);
    EXPECT_EQ(+client.lastError, 1u);
    EXPECT_EQ(+client.sock, -1);
}

TEST_F(TcpClientInternal, CutsAConnectWhenItsTimeIsOver) {
    // Connects that stand after as many milliseconds as the port says. They run side by side, so
    // that a slow machine delays them all.
    calls.connectTo = [](int sock, const sockaddr* address, socklen_t) {
        return staysOpen(sock, milliseconds(portIn(address))) ? 0 : -1;
    };
    struct Case {
        unsigned int timeout; // s
        unsigned int standsAfter;
        signed char result;
        milliseconds took;
    };
    Case cases[] = {
        {1, 9000, 0, {}},
        {2, 9000, 0, {}},
        {4294968, 1200, 1, {}}, // in 32 bits this would be 704 ms
    };
    std::vector<std::thread> threads;
    for (Case& c : cases) {
        threads.emplace_back([&c] {
            const auto begin = Clock::now();
            TcpClient client;
            client.timeout = c.timeout;
            EXPECT_EQ(client.Connect("192.0.2.1", c.standsAfter, 0), c.result);
            c.took = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(cases[0].took.count(), 1000);
    const auto second = (cases[1].took - cases[0].took).count();
    EXPECT_GT(second, 700);
    EXPECT_LT(second, 1600);
}

TEST_F(TcpClientInternal, ReportsTheSocketThatItLeaves) {
    // Connects that end just when the watchdog looks: each is either cut, and then reported as
    // failed, or reported with a socket that stays open.
    calls.connectTo = [](int, const sockaddr* address, socklen_t) {
        std::this_thread::sleep_for(milliseconds(90) + std::chrono::microseconds(portIn(address)));
        return 0;
    };
    const std::size_t descriptors = support::openDescriptors();
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < 32; ++i) {
        threads.emplace_back([i] {
            TcpClient client;
            client.timeout = 0;
            const signed char done = client.Connect("192.0.2.1", 400 * i, 0); // 90 to 102 ms
            EXPECT_EQ(client.connected, done);
            EXPECT_EQ(client.sock >= 0 && fcntl(client.sock, F_GETFD) >= 0, done == 1);
            EXPECT_EQ(+client.lastError, done == 1 ? 0u : 1u);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
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
        EXPECT_EQ(client.Connect("192.0.2.1", 1, 0), 1);
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
    calls.connectTo = [](int, const sockaddr*, socklen_t) {
        ADD_FAILURE() << "nobody would keep the time-out";
        return 0;
    };
    TcpClient client;
    EXPECT_EQ(client.Connect("192.0.2.1", 1, 0), 0);
    EXPECT_TRUE(blocked);
    EXPECT_FALSE(isBlocked(SIGALRM));
    EXPECT_EQ(+client.lastError, 1u);
    EXPECT_EQ(+client.sock, -1);
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST_F(TcpClientInternal, RepeatsASendThatWouldBlock) {
    struct Call {
        int offset;
        std::size_t size;
    };
    struct Case {
        const char* name;
        std::vector<int> results; // bytes, or a negative errno
        signed char result;
        std::vector<Call> calls;
    };
    const int again = -EAGAIN;
    const Case cases[] = {
        {"at once", {8}, 1, {{0, 8}}},
        {"in parts", {3, 4, 1}, 1, {{0, 8}, {3, 5}, {7, 1}}},
        {"a retry begins one byte earlier", {3, again, 6}, 1, {{0, 8}, {3, 5}, {2, 6}}},
        {"even before the data", {again, 9}, 1, {{0, 8}, {-1, 9}}},
        {"three retries", {again, again, again, 11}, 1, {{0, 8}, {-1, 9}, {-2, 10}, {-3, 11}}},
        {"not a fourth, whatever came between",
         {again, 2, again, again, again},
         0,
         {{0, 8}, {-1, 9}, {1, 7}, {0, 8}, {-1, 9}}},
        {"no retry after another error", {-EINTR}, 0, {{0, 8}}},
        {"nor after a broken pipe", {4, -EPIPE}, 0, {{0, 8}, {4, 4}}},
    };
    const unsigned char bytes[] = "###12345678";
    const unsigned char* const data = bytes + 3;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::size_t call = 0;
        calls.transmit = [&](int, const void* from, std::size_t size) -> ssize_t {
            EXPECT_EQ(errno, 0);
            if (call >= c.results.size()) {
                ADD_FAILURE() << "one call too many";
                errno = EIO;
                return -1;
            }
            EXPECT_EQ(static_cast<const unsigned char*>(from) - data, c.calls[call].offset);
            EXPECT_EQ(size, c.calls[call].size);
            const int result = c.results[call++];
            errno = result < 0 ? -result : 0;
            return result < 0 ? -1 : result;
        };
        TcpClient client;
        client.sock = 0; // only handed through
        errno = EPIPE;   // of an earlier call
        EXPECT_EQ(client.Send(data, 8), c.result);
        EXPECT_EQ(call, c.results.size());
        EXPECT_EQ(client.Send(data, 0), 1); // without a call
        client.sock = -1;
    }
}

TEST_F(TcpClientInternal, LosesTheConnectionByCertainErrors) {
    struct Case {
        int error;
        unsigned int connected;
    };
    for (const Case& c : {Case{ECONNRESET, 0}, Case{ENOTCONN, 0}, Case{ETIMEDOUT, 0},
                          Case{EBADF, 1}, Case{EINTR, 1}, Case{EAGAIN, 1}}) {
        SCOPED_TRACE(strerror(c.error));
        unsigned char buffer[7];
        calls.take = [&](int, void* into, std::size_t size, int flags) -> ssize_t {
            EXPECT_EQ(into, buffer);
            EXPECT_EQ(size, sizeof buffer);
            EXPECT_EQ(flags, MSG_OOB);
            errno = c.error;
            return -1;
        };
        TcpClient client;
        client.sock = 0; // only handed through
        client.connected = 1;
        client.lastError = 3;
        unsigned int length = sizeof buffer;
        EXPECT_EQ(client.receive(buffer, &length, MSG_OOB, 0), 0);
        EXPECT_EQ(length, 0u);
        EXPECT_EQ(client.connected, c.connected);
        EXPECT_EQ(+client.lastError, 0u);
        client.sock = -1;
    }
}

TEST_F(TcpClientInternal, TriesAllOptionsWhicheverFails) {
    const std::vector<int> all = {
#if defined(SO_NOSIGPIPE)
        SO_NOSIGPIPE,
#endif
        SO_LINGER,
        SO_REUSEADDR,
        SO_REUSEPORT
    };
    for (const int failing : all) {
        SCOPED_TRACE(failing);
        std::vector<int> tried;
        calls.setOption = [&](int, int, int option, const void*, socklen_t) {
            tried.push_back(option);
            return option == failing ? -1 : 0;
        };
        EXPECT_EQ(QorInetSetSockOpt(0, 1), 0);
        EXPECT_EQ(tried, all);
    }
}

} // namespace
