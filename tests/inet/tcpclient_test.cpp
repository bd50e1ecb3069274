#include "tcpclient.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "environment.h"
#include "loopback.h"
#include "qorinet.h"
#include "qoros.h"
#include "scripted_server.h"

namespace {

using namespace support;
using std::chrono::milliseconds;

// The members are packed: their values, never references to them, go into the expectations.
struct State {
    unsigned int connected;
    unsigned int lastError;
    bool open;
};

State stateOf(const TcpClient& client) {
    return {client.connected, client.lastError, client.sock != -1};
}

bool operator==(const State& a, const State& b) {
    return a.connected == b.connected && a.lastError == b.lastError && a.open == b.open;
}

std::ostream& operator<<(std::ostream& out, const State& state) {
    return out << "connected " << state.connected << ", last error " << state.lastError
               << (state.open ? ", open" : ", no socket");
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

milliseconds since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
}

// What the library sets on a socket.
struct Options {
    bool lingers;
    int lingerSeconds;
    bool reusesAddress;
    bool reusesPort;
};

Options optionsOf(int sock) {
    linger lingering = {-1, -1};
    int address = -1;
    int port = -1;
    socklen_t length = sizeof lingering;
    getsockopt(sock, SOL_SOCKET, SO_LINGER, &lingering, &length);
    length = sizeof address;
    getsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &address, &length);
    getsockopt(sock, SOL_SOCKET, SO_REUSEPORT, &port, &length);
    return {lingering.l_onoff != 0, lingering.l_linger, address != 0, port != 0};
}

bool operator==(const Options& a, const Options& b) {
    return a.lingers == b.lingers && a.lingerSeconds == b.lingerSeconds &&
           a.reusesAddress == b.reusesAddress && a.reusesPort == b.reusesPort;
}

struct Target {
    const char* name;
    const char* host;
    Loopback family;
    bool asObject;
};

class TcpClientTarget : public testing::TestWithParam<Target> {};

TEST_P(TcpClientTarget, IsConnected) {
    const Target& target = GetParam();
    if (target.family == Loopback::v6 && !hasIpv6Loopback()) {
        QOR_SKIP_OR_FAIL("there is no IPv6 loopback address");
    }
    ScriptedServer server({{readBytes(4), sendBytes("pong")}}, target.family);
    const unsigned int port = server.port() + 0x10000u; // only 16 bits count
    TcpClient client;
    QorIpAddr addr(target.host);
    EXPECT_EQ(
        target.asObject ? client.Connect(&addr, port, 1) : client.Connect(target.host, port, 1), 1);
    EXPECT_EQ(stateOf(client), (State{1, 0, true}));
    EXPECT_EQ(client.ssl, 1);
    EXPECT_EQ(+client.port, port);
    EXPECT_STREQ(client.hostName, target.asObject ? "" : target.host);
    EXPECT_EQ(fcntl(client.sock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_TRUE(optionsOf(client.sock) == (Options{true, 0, false, false}));
    EXPECT_EQ(sendText(client, "ping"), 1);
    EXPECT_EQ(readOnce(client), "pong");
    EXPECT_EQ(server.wait(), "");
}

INSTANTIATE_TEST_SUITE_P(All, TcpClientTarget,
                         testing::Values(Target{"Name", "localhost", Loopback::v4, false},
                                         Target{"V4Text", "127.0.0.1", Loopback::v4, false},
                                         Target{"V4Object", "127.0.0.1", Loopback::v4, true},
                                         Target{"V6Text", "::1", Loopback::v6, false},
                                         Target{"V6Object", "::1", Loopback::v6, true}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(TcpClient, TellsWhyAConnectFailed) {
    struct Case {
        const char* name;
        const char* host;
        unsigned int lastError;
    };
    const Case cases[] = {
        {"refused", "127.0.0.1", 1}, {"no address, so no socket", "", 0}, {"null", nullptr, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const RefusingPort refusing;
        const std::size_t descriptors = openDescriptors();
        TcpClient client;
        client.connected = 1; // of an earlier connection: only a cut clears it
        QorIpAddr addr(c.host == nullptr ? "" : c.host);
        EXPECT_EQ(client.Connect(c.host == nullptr ? nullptr : &addr, refusing.port(), 0), 0);
        EXPECT_EQ(stateOf(client), (State{1, c.lastError, false}));
        EXPECT_EQ(openDescriptors(), descriptors);
    }
    TcpClient client;
    EXPECT_EQ(client.Connect(static_cast<const char*>(nullptr), 1, 0), 0);
}

TEST(TcpClient, KeepsAHostNameThatFits) {
    const RefusingPort refusing;
    const unsigned int port = refusing.port();
    TcpClient client;
    const std::string longest = "127.0.0.1" + std::string(118, '.');
    for (const std::string& host : {longest, longest + "."}) {
        client.Connect(host.c_str(), port, 0);
        EXPECT_EQ(client.hostName, longest);
    }
    strcpy_qor(client.hostName, sizeof client.hostName, "//127.0.0.1");
    for (const std::ptrdiff_t begin : {2, 0}) { // of a host that stands in the member itself
        client.lastError = 0;
        EXPECT_EQ(client.Connect(client.hostName + begin, port, 0), 0);
        EXPECT_STREQ(client.hostName, "127.0.0.1");
        EXPECT_EQ(+client.lastError, 1u); // it was tried
    }
}

TEST(TcpClient, CutsAConnectAtItsTimeout) {
    struct Case {
        unsigned int timeout; // s
        int atLeast;          // ms
    };
    for (const Case& c : {Case{0, 100}, Case{1, 1000}}) {
        SCOPED_TRACE(c.timeout);
        FullBacklogListener listener;
        ASSERT_TRUE(listener.full());
        const std::size_t threads = runningThreads();
        ScriptedServer server({{readToEnd()}});
        TcpClient client;
        client.timeout = c.timeout;
        // Nothing of an earlier connect ends the next one early.
        ASSERT_EQ(client.Connect("127.0.0.1", server.port(), 0), 1);
        client.Disconnect();
        EXPECT_EQ(server.wait(), "");
        client.connected = 1;
        const std::size_t descriptors = openDescriptors();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(client.Connect("127.0.0.1", listener.port(), 0), 0);
        EXPECT_GE(since(begin).count(), c.atLeast);
        EXPECT_LT(since(begin).count(), c.atLeast + 3000); // the machine may be slow
        EXPECT_EQ(stateOf(client), (State{0, 1, false}));
        EXPECT_EQ(+client.connecting, 0u);
        EXPECT_EQ(+client.watchdogDone, 1u);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(waitUntil([threads] { return runningThreads() <= threads; }));
    }
}

TEST(TcpClient, ConnectsWithinTheTimeout) {
    FullBacklogListener listener;
    ASSERT_TRUE(listener.full());
    std::thread helper([&listener] {
        std::this_thread::sleep_for(milliseconds(300));
        listener.makeRoom();
    });
    TcpClient client;
    EXPECT_EQ(client.Connect("127.0.0.1", listener.port(), 0), 1);
    EXPECT_EQ(stateOf(client), (State{1, 0, true}));
    helper.join();
}

TEST(TcpClient, KeepsWhatStandsByTheFirstLookOfTheWatch) {
    ScriptedServer server({{readToEnd()}});
    TcpClient client;
    client.timeout = 0;
    ASSERT_EQ(client.Connect("127.0.0.1", server.port(), 0), 1);
    EXPECT_EQ(stateOf(client), (State{1, 0, true}));
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
    EXPECT_EQ(client.ssl, 0);
    EXPECT_EQ(sendText(client, ""), 0);
    EXPECT_EQ(readOnce(client), "failed 64");
    EXPECT_EQ(client.WaitForReceive(0), 0);
    EXPECT_EQ(client.StartSSL(), 0);
    EXPECT_EQ(client.sslInit(), 1);
    EXPECT_EQ(client.SetOption(QOR_TCPCLIENT_OPTION_NONE, nullptr, 0), 0);
    EXPECT_EQ(client.GetOption(QOR_TCPCLIENT_OPTION_NONE, nullptr, nullptr), 0);
    client.SetKeepAlive();
    EXPECT_EQ(client.Disconnect(), 1);
    EXPECT_EQ(stateOf(client), (State{0, 0, false}));
    EXPECT_EQ(client.ssl, 0);
}

// Connections with a server that plays one script; the client is connected when a test begins.
class TcpClientConnection : public testing::Test {
protected:
    void connectTo(Script script) {
        server = std::make_unique<ScriptedServer>(std::vector<Script>{std::move(script)});
        ASSERT_EQ(client.Connect("127.0.0.1", server->port(), 0), 1);
    }

    std::unique_ptr<ScriptedServer> server;
    TcpClient client;
};

TEST_F(TcpClientConnection, SendsWholeBuffersToASlowReader) {
    std::string data(8u * 1024 * 1024, '\0');
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>(i * 31 >> 8);
    }
    connectTo({pauseFor(milliseconds(200)), readBytes(data.size())});
    EXPECT_EQ(sendText(client, ""), 1);
    EXPECT_EQ(sendText(client, data), 1);
    EXPECT_EQ(server->wait(), "");
    EXPECT_TRUE(server->received(0) == data);
}

TEST_F(TcpClientConnection, ReceivesUntilThePeerEnds) {
    struct Case {
        const char* name;
        Step end;
    };
    for (const Case& c : {Case{"orderly close", closeNow()}, Case{"reset", reset()}}) {
        SCOPED_TRACE(c.name);
        connectTo({sendBytes("abcdef"), pauseUntilReleased(), c.end});
        EXPECT_EQ(readOnce(client, &TcpClient::Receive, 4), "abcd");
        EXPECT_EQ(readOnce(client), "ef");
        server->release();
        EXPECT_EQ(client.WaitForReceive(5), 1);
        EXPECT_EQ(readOnce(client), "failed 0");
        EXPECT_EQ(stateOf(client), (State{0, 0, true}));
        EXPECT_EQ(client.Disconnect(), 1);
        EXPECT_EQ(stateOf(client), (State{0, 0, false}));
    }
}

TEST_F(TcpClientConnection, GivesUpAReceiveAtTheTimeout) {
    for (const unsigned int timeout : {0u, 2u}) { // with 0 even bytes that are there don't help
        SCOPED_TRACE(timeout);
        const bool early = timeout == 0;
        connectTo({sendBytes(early ? "late" : ""), pauseUntilReleased(),
                   sendBytes(early ? "" : "late"), readToEnd()});
        client.timeout = timeout;
        EXPECT_EQ(client.WaitForReceive(early ? 5 : 1), early ? 1 : 0);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(readOnce(client), "failed 0");
        EXPECT_GE(since(begin).count(), timeout * 1000);
        EXPECT_LT(since(begin).count(), timeout * 1000 + 1500);
        EXPECT_EQ(stateOf(client), (State{0, 3, true}));

        server->release();
        EXPECT_EQ(readOnce(client), "failed 64"); // at once: it is no longer connected
        EXPECT_EQ(stateOf(client), (State{0, 0, true}));
        EXPECT_EQ(readOnce(client, &TcpClient::Peek), "late"); // the socket is there all the same
        client.Disconnect();
    }
}

TEST_F(TcpClientConnection, WaitsLongerThanOneSecond) {
    const Step late = pauseFor(milliseconds(1300));
    connectTo({pauseUntilReleased(), late, sendBytes("ab"), pauseUntilReleased(), late,
               sendBytes("cd"), readToEnd()});
    client.timeout = 3;
    server->release();
    EXPECT_EQ(readOnce(client), "ab");
    server->release();
    EXPECT_EQ(client.WaitForReceive(3), 1);
    EXPECT_EQ(readOnce(client), "cd");
}

TEST_F(TcpClientConnection, HandsFlagsToTheRead) {
    connectTo({sendBytes("ab"), readToEnd()});
    const auto read = [this](int flags, signed char wait) {
        unsigned char bytes[8];
        unsigned int size = sizeof bytes;
        const signed char done =
            client.receive(bytes, &size, static_cast<unsigned int>(flags), wait);
        return std::to_string(done) + " " + std::string(bytes, bytes + size);
    };
    EXPECT_EQ(read(MSG_PEEK, 1), "1 ab");
    EXPECT_EQ(read(MSG_PEEK, 0), "1 ab");
    EXPECT_EQ(read(0, 1), "1 ab");
    EXPECT_EQ(read(MSG_DONTWAIT, 0), "0 ");
    EXPECT_EQ(stateOf(client), (State{1, 0, true}));
}

TEST_F(TcpClientConnection, TakesBytesOutWithAPeek) {
    connectTo({sendBytes("ab"), readToEnd()});
    EXPECT_EQ(readOnce(client, &TcpClient::Peek, 1), "a");
    EXPECT_EQ(readOnce(client, &TcpClient::Receive, 1), "b");
    EXPECT_EQ(client.Receive(nullptr, nullptr), 0);
}

TEST_F(TcpClientConnection, OnlyRecordsThatSslWasStarted) {
    connectTo({readToEnd()});
    EXPECT_EQ(client.ssl, 0);
    EXPECT_EQ(client.StartSSL(), 1);
    EXPECT_EQ(client.ssl, 1);
    client.Disconnect();
    EXPECT_EQ(server->wait(), "");
    EXPECT_EQ(server->received(0), "");
}

TEST_F(TcpClientConnection, SetsNoKeepAlive) {
    connectTo({readToEnd()});
    const auto option = [this](int level, int name) {
        int value = -1;
        socklen_t length = sizeof value;
        getsockopt(client.sock, level, name, &value, &length);
        return value;
    };
    const int before = option(IPPROTO_TCP, 8);
    client.SetKeepAlive();
#if defined(TCP_NOOPT)
    EXPECT_NE(option(IPPROTO_TCP, 8), before);
#else
    EXPECT_EQ(option(IPPROTO_TCP, 8), before);
#endif
    EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 0);
}

TEST_F(TcpClientConnection, SendsToABrokenPeerWithoutASignal) {
    static volatile sig_atomic_t signals;
    signals = 0;
    const auto count = [](int) { signals = signals + 1; };
    void (*const before)(int) = signal(SIGPIPE, count);
    connectTo({reset()});
    EXPECT_EQ(server->wait(), "");
    EXPECT_EQ(client.WaitForReceive(5), 1); // the reset is there
    EXPECT_EQ(sendText(client, "x"), 0);    // tells it once
    EXPECT_EQ(sendText(client, "x"), 0);    // now the pipe is broken
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(signals, 0);
    signal(SIGPIPE, before);
}

TEST_F(TcpClientConnection, WaitsOnHighDescriptors) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur <= 1100) {
        limit.rlim_cur = 1200;
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            QOR_SKIP_OR_FAIL("no more than 1,100 descriptors are allowed");
        }
    }
    connectTo({pauseUntilReleased(), sendBytes("ab"), readToEnd()});
    const int high = fcntl(client.sock, F_DUPFD_CLOEXEC, 1100);
    ASSERT_GE(high, 1100);
    close(client.sock);
    client.sock = high;
    EXPECT_EQ(client.WaitForReceive(0), 0);
    server->release();
    EXPECT_EQ(client.WaitForReceive(5), 1);
    EXPECT_EQ(readOnce(client), "ab");

    // A wait that the system refuses changes nothing.
    close(client.sock);
    EXPECT_EQ(client.WaitForReceive(1), 0);
    EXPECT_EQ(readOnce(client), "failed 64");
    EXPECT_EQ(stateOf(client), (State{1, 0, true}));
    client.sock = -1;
}

TEST(QorInet, PreparesSockets) {
    for (const bool reuse : {false, true}) {
        SCOPED_TRACE(reuse);
        const int sock = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(QorInetSetSockOpt(sock, reuse ? 1 : 0), 1);
        EXPECT_TRUE(optionsOf(sock) == (Options{true, 0, reuse, reuse}));
        close(sock);
    }
    EXPECT_EQ(QorInetSetSockOpt(-1, 0), 0);
}

} // namespace
