// A client over calls of the system that the tests replace: what it asks for, and the races between
// a connect and its watchdog.
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "http_peer.h"
#include "inet/netcalls.h"

namespace {

// What the library gets where it makes these calls.
thread_local std::chrono::microseconds connectDuration;
thread_local std::string unreachable, tried; // addresses
std::function<ssize_t(const void*, std::size_t)> transmit;

} // namespace

// In place of the library's own. The qualified names make sure that it declares them like this.

// Every host has these addresses of the test networks of RFC 5737 and RFC 3849.
int netcalls::resolveHost(const char*, addrinfo** list) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM; // one entry for each
    for (const char* address : {"2001:db8::1", "192.0.2.1", "192.0.2.2"}) {
        getaddrinfo(address, nullptr, &hints, list);
        list = &(*list)->ai_next;
    }
    return 0;
}

int netcalls::connectSocket(int, const sockaddr* address, socklen_t length) {
    char host[64] = "";
    getnameinfo(address, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST);
    tried += std::string(host) + " " + std::to_string(length) + ";";
    std::this_thread::sleep_for(connectDuration);
    return host == unreachable ? -1 : 0;
}

ssize_t netcalls::sendBytes(int, const void* data, std::size_t size) {
    return transmit(data, size);
}

namespace {

TEST(TcpClientInternal, TriesOneAddressOfEachFamily) {
    TcpClient client;
    EXPECT_EQ(client.Connect("host", 1, 0), 1);
    EXPECT_EQ(tried, "192.0.2.1 16;");
    client.Disconnect();
    unreachable = "192.0.2.1";
    EXPECT_EQ(client.Connect("host", 1, 0), 1);
    EXPECT_EQ(tried, "192.0.2.1 16;192.0.2.1 16;2001:db8::1 28;");
    EXPECT_EQ(+client.lastError, 1u); // of the first one
}

// Connects that end just when the watchdog looks: each is either cut, and then reported as failed,
// or reported with a socket that stays open.
TEST(TcpClientInternal, ReportsTheSocketThatItLeaves) {
    std::vector<std::thread> runs;
    for (int i = 0; i < 32; ++i) {
        runs.emplace_back([i] {
            connectDuration = std::chrono::microseconds(90000 + 400 * i);
            TcpClient client;
            client.timeout = 0;
            const bool stands = client.Connect("192.0.2.1", 1, 0) == 1;
            const bool open = client.sock >= 0 && fcntl(client.sock, F_GETFD) >= 0;
            EXPECT_TRUE(open == stands && client.connected == (stands ? 1 : 0));
        });
    }
    for (std::thread& run : runs) {
        run.join();
    }
}

TEST(TcpClientInternal, RepeatsASendThatWouldBlock) {
    // What the sends give, where -1 would block; the result; offset:size of each send.
    const std::tuple<std::vector<int>, int, std::string> cases[] = {
        {{3, -1, 6}, 1, "0:8 3:5 2:6 "},                    // a retry begins one byte earlier
        {{-1, 2, -1, -1, -1}, 0, "0:8 -1:9 1:7 0:8 -1:9 "}, // there is no fourth
    };
    const unsigned char data[] = "#12345678";
    for (const auto& [results, result, expected] : cases) {
        auto next = results.begin();
        std::string sends;
        transmit = [&](const void* from, std::size_t size) -> ssize_t {
            sends += std::to_string(static_cast<const unsigned char*>(from) - &data[1]) + ":" +
                     std::to_string(size) + " ";
            errno = *next < 0 ? EAGAIN : 0;
            return *next++;
        };
        TcpClient client;
        close(connectPeer(client));
        EXPECT_EQ(client.Send(&data[1], 8), result);
        EXPECT_EQ(sends, expected);
    }
}

} // namespace
