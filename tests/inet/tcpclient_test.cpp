#include "tcpclient.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "environment.h"
#include "loopback.h"
#include "qorinet.h"
#include "qoros.h"
#include "scripted_server.h"

namespace {

using namespace support;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// "connected, last error, socket". The members are packed: no references to them.
std::string stateOf(const TcpClient& client) {
    return std::to_string(client.connected) + ", " + std::to_string(client.lastError) +
           (client.sock == -1 ? ", none" : ", open");
}

signed char sendText(TcpClient& client, const std::string& text) {
    return client.Send(reinterpret_cast<const unsigned char*>(text.data()),
                       static_cast<unsigned int>(text.size()));
}

using Reader = signed char (TcpClient::*)(unsigned char*, unsigned int*);

// What one read gives; where it fails, "failed" and the length that it leaves.
std::string readOnce(TcpClient& client, Reader read = &TcpClient::Receive, unsigned int size = 64) {
    std::string bytes(size, '#');
    const signed char done = (client.*read)(reinterpret_cast<unsigned char*>(bytes.data()), &size);
    bytes.resize(size);
    return done == 1 ? bytes : "failed " + std::to_string(size);
}

int optionOf(int sock, int level, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    getsockopt(sock, level, option, &value, &length);
    return value;
}

// What the library sets on a socket: whether and how long it lingers, which reuse it allows.
std::string optionsOf(int sock) {
    linger lingering = {-1, -1};
    socklen_t length = sizeof lingering;
    getsockopt(sock, SOL_SOCKET, SO_LINGER, &lingering, &length);
    return std::string(lingering.l_onoff != 0 ? "lingers " : "closes ") +
           std::to_string(lingering.l_linger) +
           (optionOf(sock, SOL_SOCKET, SO_REUSEADDR) != 0 ? ", reuses address" : "") +
           (optionOf(sock, SOL_SOCKET, SO_REUSEPORT) != 0 ? ", reuses port" : "");
}

// A client that is connected with a server that plays one script.
struct Connection {
    explicit Connection(Script script) : server({std::move(script)}) {
        EXPECT_EQ(client.Connect("127.0.0.1", server.port(), 0), 1);
    }
    ScriptedServer server;
    TcpClient client;
};

TEST(TcpClient, ConnectsToItsTarget) {
    const std::pair<const char*, int> cases[] = {
        {"localhost", AF_INET}, {"127.0.0.1", AF_INET}, {"::1", AF_INET6}};
    for (const auto& [host, family] : cases) {
        SCOPED_TRACE(host);
        ScriptedServer server({{readBytes(4), sendBytes("pong"), readToEnd()}}, family);
        if (server.port() == 0) {
            QOR_SKIP_OR_FAIL("there is no such loopback address");
        }
        const unsigned int port = server.port() + 0x10000u; // only 16 bits count
        TcpClient client;
        EXPECT_EQ(client.Connect(host, port, 0), 1);
        EXPECT_EQ(stateOf(client), "1, 0, open");
        EXPECT_EQ(+client.port, port);
        EXPECT_EQ(fcntl(client.sock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(optionsOf(client.sock), "lingers 0");
        EXPECT_EQ(client.ssl, 0);
        EXPECT_EQ(client.StartSSL(), 1);
        EXPECT_EQ(client.ssl, 1);
        EXPECT_EQ(sendText(client, "ping"), 1);
        EXPECT_EQ(client.WaitForReceive(5), 1);
        EXPECT_EQ(readOnce(client, &TcpClient::Peek, 1), "p");
        EXPECT_EQ(readOnce(client), "ong");
        EXPECT_EQ(client.Receive(nullptr, nullptr), 0);
        client.Disconnect();
        EXPECT_EQ(server.wait(), "");
        EXPECT_EQ(server.received(0), "ping");
    }
}

TEST(TcpClient, TellsWhyAConnectFailed) {
    QorIpAddr refused("127.0.0.1");
    QorIpAddr none; // so no socket
    const unsigned int port = refusingPort();
    for (QorIpAddr* const addr : {&refused, &none, static_cast<QorIpAddr*>(nullptr)}) {
        const std::size_t descriptors = openDescriptors();
        TcpClient client;
        client.connected = 1; // of an earlier connection: only a cut clears it
        EXPECT_EQ(client.Connect(addr, port, 0), 0);
        EXPECT_EQ(stateOf(client), addr == &refused ? "1, 1, none" : "1, 0, none");
        EXPECT_EQ(openDescriptors(), descriptors);
    }
}

TEST(TcpClient, KeepsAHostNameThatFits) {
    TcpClient client;
    const std::string longest = "127.0.0.1" + std::string(118, '.');
    for (const std::string& host : {longest, longest + "."}) {
        client.Connect(host.c_str(), refusingPort(), 0);
        EXPECT_EQ(client.hostName, longest);
    }
    strcpy_qor(client.hostName, sizeof client.hostName, "//127.0.0.1");
    for (const std::ptrdiff_t begin : {2, 0}) { // of a host that stands in the member itself
        client.lastError = 0;
        client.Connect(client.hostName + begin, refusingPort(), 0);
        EXPECT_STREQ(client.hostName, "127.0.0.1");
        EXPECT_EQ(+client.lastError, 1u); // it was tried
    }
}

TEST(TcpClient, CutsAConnectAtItsTimeout) {
    const unsigned int port = unansweringPort();
    ASSERT_NE(port, 0u);
    const std::size_t descriptors = openDescriptors(), threads = runningThreads();
    for (const unsigned int timeout : {0u, 1u}) {
        SCOPED_TRACE(timeout);
        TcpClient client;
        client.timeout = timeout;
        client.connected = 1;
        const auto begin = Clock::now();
        EXPECT_EQ(client.Connect("127.0.0.1", port, 0), 0);
        const milliseconds atLeast(timeout == 0 ? 100 : 1000);
        EXPECT_GE(Clock::now() - begin, atLeast);
        EXPECT_LT(Clock::now() - begin, atLeast + milliseconds(3000)); // the machine may be slow
        EXPECT_EQ(stateOf(client), "0, 1, none");
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(waitUntil([threads] { return runningThreads() <= threads; }));
    }
}

TEST(TcpClient, LeavesAnOpenSocketToANewConnect) {
    ScriptedServer server({{readToEnd()}, {}});
    TcpClient client;
    ASSERT_EQ(client.Connect("127.0.0.1", server.port(), 1), 1);
    const int first = client.sock;
    EXPECT_EQ(client.Connect("127.0.0.1", server.port(), 0), 1);
    EXPECT_EQ(client.ssl, 0);
    EXPECT_EQ(close(first), 0);
    EXPECT_EQ(server.wait(), "");
}

TEST(TcpClient, DoesNothingWithoutASocket) {
    TcpClient client;
    EXPECT_EQ(+client.timeout, 15u);
    EXPECT_EQ(client.Connect(static_cast<const char*>(nullptr), 1, 0), 0);
    EXPECT_EQ(sendText(client, "") + client.WaitForReceive(0) + client.StartSSL(), 0);
    EXPECT_EQ(readOnce(client), "failed 64");
    EXPECT_EQ(client.SetOption(QOR_TCPCLIENT_OPTION_NONE, nullptr, 0), 0);
    EXPECT_EQ(client.GetOption(QOR_TCPCLIENT_OPTION_NONE, nullptr, nullptr), 0);
    EXPECT_EQ(client.Disconnect() + client.sslInit(), 2);
    EXPECT_EQ(stateOf(client), "0, 0, none");
}

TEST(TcpClient, SendsWholeBuffersToASlowReader) {
    std::string data(8u * 1024 * 1024, '\0');
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>(i * 31 >> 8);
    }
    Connection c({pauseFor(milliseconds(200)), readBytes(data.size())});
    EXPECT_EQ(sendText(c.client, data), 1);
    EXPECT_EQ(c.server.wait(), "");
    EXPECT_TRUE(c.server.received(0) == data);
}

TEST(TcpClient, ReceivesUntilThePeerEnds) {
    for (const Step& end : {pauseFor(milliseconds(0)), reset()}) { // the first one closes
        Connection c({sendBytes("abcdef"), pauseUntilReleased(), end});
        EXPECT_EQ(readOnce(c.client, &TcpClient::Receive, 4), "abcd");
        EXPECT_EQ(readOnce(c.client), "ef");
        c.server.release();
        EXPECT_EQ(c.client.WaitForReceive(5), 1);
        EXPECT_EQ(readOnce(c.client), "failed 0");
        EXPECT_EQ(stateOf(c.client), "0, 0, open");
        EXPECT_EQ(c.client.Disconnect(), 1);
        EXPECT_EQ(stateOf(c.client), "0, 0, none");
    }
}

TEST(TcpClient, GivesUpAReceiveAtTheTimeout) {
    for (const unsigned int timeout : {0u, 2u}) { // with 0 even bytes that are there don't help
        SCOPED_TRACE(timeout);
        const bool early = timeout == 0;
        Connection c({sendBytes(early ? "late" : ""), pauseUntilReleased(),
                      sendBytes(early ? "" : "late"), readToEnd()});
        c.client.timeout = timeout;
        EXPECT_EQ(c.client.WaitForReceive(early ? 5 : 0), early ? 1 : 0);
        const auto begin = Clock::now();
        EXPECT_EQ(readOnce(c.client), "failed 0");
        EXPECT_GE(Clock::now() - begin, std::chrono::seconds(timeout));
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(timeout + 2));
        EXPECT_EQ(stateOf(c.client), "0, 3, open");
        EXPECT_EQ(readOnce(c.client), "failed 64"); // at once: it is no longer connected
        EXPECT_EQ(stateOf(c.client), "0, 0, open");
        c.server.release();
        EXPECT_EQ(readOnce(c.client, &TcpClient::Peek), "late"); // the socket is there all the same
    }
}

TEST(TcpClient, SetsNoKeepAlive) {
    Connection c({readToEnd()});
    const int before = optionOf(c.client.sock, IPPROTO_TCP, 8);
    c.client.SetKeepAlive();
#if defined(TCP_NOOPT)
    EXPECT_NE(optionOf(c.client.sock, IPPROTO_TCP, 8), before);
#else
    EXPECT_EQ(optionOf(c.client.sock, IPPROTO_TCP, 8), before);
#endif
    EXPECT_EQ(optionOf(c.client.sock, SOL_SOCKET, SO_KEEPALIVE), 0);
}

TEST(TcpClient, SendsToABrokenPeerWithoutASignal) {
    signal(SIGPIPE, SIG_DFL); // which ends the process
    Connection c({reset()});
    EXPECT_EQ(c.client.WaitForReceive(5), 1); // the reset is there
    EXPECT_EQ(sendText(c.client, "x"), 0);    // tells it once
    EXPECT_EQ(sendText(c.client, "x"), 0);    // now the pipe is broken
    EXPECT_EQ(errno, EPIPE);
}

TEST(TcpClient, WaitsOnHighDescriptors) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 1200);
    setrlimit(RLIMIT_NOFILE, &limit);
    Connection c({pauseUntilReleased(), sendBytes("ab"), readToEnd()});
    const int high = fcntl(c.client.sock, F_DUPFD_CLOEXEC, 1100);
    if (high < 0) {
        QOR_SKIP_OR_FAIL("no more than 1,100 descriptors are allowed");
    }
    close(c.client.sock);
    c.client.sock = high;
    EXPECT_EQ(c.client.WaitForReceive(0), 0);
    c.server.release();
    EXPECT_EQ(c.client.WaitForReceive(5), 1);
    EXPECT_EQ(readOnce(c.client), "ab");

    // A wait that the system refuses changes nothing.
    close(c.client.sock);
    EXPECT_EQ(c.client.WaitForReceive(1), 0);
    EXPECT_EQ(readOnce(c.client), "failed 64");
    EXPECT_EQ(stateOf(c.client), "1, 0, open");
    c.client.sock = -1;
}

TEST(QorInet, PreparesSockets) {
    const int sock = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(QorInetSetSockOpt(sock, 0), 1);
    EXPECT_EQ(optionsOf(sock), "lingers 0");
    EXPECT_EQ(QorInetSetSockOpt(sock, 1), 1);
    EXPECT_EQ(optionsOf(sock), "lingers 0, reuses address, reuses port");
    close(sock);
    EXPECT_EQ(QorInetSetSockOpt(-1, 0), 0);
}

} // namespace
