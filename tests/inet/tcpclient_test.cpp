#include "tcpclient.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "environment.h"
#include "loopback.h"
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
std::string readOnce(TcpClient& client, unsigned int size = 64, Reader read = &TcpClient::Receive) {
    std::string bytes(size, '#');
    const signed char done = (client.*read)(reinterpret_cast<unsigned char*>(bytes.data()), &size);
    bytes.resize(size);
    return done == 1 ? bytes : "failed " + std::to_string(size);
}

// The one or two numbers of an option.
std::pair<int, int> optionOf(int sock, int option) {
    int values[] = {-1, -1};
    socklen_t length = sizeof values;
    getsockopt(sock, SOL_SOCKET, option, values, &length);
    return {values[0], values[1]};
}

// A client that is connected with a server that plays one script, over a descriptor that is beyond
// the fixed-size sets of select(2).
struct Connection {
    explicit Connection(Script script) : server({std::move(script)}) {
        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 1200);
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(client.Connect("127.0.0.1", server.port(), 0), 1);
        const int low = client.sock;
        client.sock = fcntl(low, F_DUPFD_CLOEXEC, 1100);
        close(low);
        EXPECT_GE(+client.sock, 1100) << "so many descriptors have to be allowed";
    }
    ScriptedServer server;
    TcpClient client;
};

TEST(TcpClient, ConnectsToItsTarget) {
    for (const auto& [host, family] : {std::pair("localhost", AF_INET), {"::1", AF_INET6}}) {
        ScriptedServer server({{sendBytes("pong"), readToEnd()}, {}}, family);
        if (server.port() == 0) {
            QOR_SKIP_OR_FAIL("there is no such loopback address");
        }
        TcpClient client;
        EXPECT_EQ(client.Connect(host, server.port() + 0x10000u, 0), 1)
            << host; // only 16 bits count
        EXPECT_EQ(stateOf(client), "1, 0, open");
        EXPECT_EQ(fcntl(client.sock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        client.SetKeepAlive();
        EXPECT_EQ(optionOf(client.sock, SO_KEEPALIVE), std::pair(0, -1));
        EXPECT_EQ(optionOf(client.sock, SO_LINGER), std::pair(1, 0)); // for 0 s
        EXPECT_EQ(client.StartSSL() + client.ssl, 2);                 // a flag, no more
        EXPECT_EQ(sendText(client, "ping"), 1);
        EXPECT_EQ(client.WaitForReceive(5), 1);
        EXPECT_EQ(readOnce(client, 1, &TcpClient::Peek), "p");
        EXPECT_EQ(readOnce(client), "ong");
        const int first = client.sock; // stays open
        EXPECT_EQ(client.Connect(host, server.port(), 0), 1);
        EXPECT_EQ(close(first), 0);
        EXPECT_EQ(server.wait(), "");
        EXPECT_EQ(server.received(0), "ping");
    }
}

TEST(TcpClient, TellsWhyAConnectFailed) {
    const unsigned int port = refusingPort();
    const std::size_t descriptors = openDescriptors();
    const std::string host = std::string(119, '0') + "127.0.0.1"; // one more than is kept
    TcpClient client;
    client.connected = 1; // of an earlier connection: only a cut clears it
    EXPECT_EQ(client.Connect(host.c_str(), port, 0), 0);
    EXPECT_EQ(stateOf(client), "1, 1, none");
    EXPECT_EQ(client.hostName, host.substr(0, 127));
    strcpy_qor(client.hostName, sizeof client.hostName, "//127.0.0.1");
    client.lastError = 0;
    client.Connect(client.hostName + 2, port, 0); // it stands in the member itself
    EXPECT_STREQ(client.hostName, "127.0.0.1");
    EXPECT_EQ(stateOf(client), "1, 1, none");
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(TcpClient, CutsAConnectAtItsTimeout) {
    const unsigned int port = unansweringPort();
    const std::size_t descriptors = openDescriptors(), threads = runningThreads();
    for (const milliseconds least : {milliseconds(100), milliseconds(1000)}) {
        TcpClient client;
        client.timeout = static_cast<unsigned int>(least.count() / 1000);
        client.connected = 1;
        const auto begin = Clock::now();
        EXPECT_EQ(client.Connect("127.0.0.1", port, 0), 0);
        EXPECT_GE(Clock::now() - begin, least);
        EXPECT_LT(Clock::now() - begin, least + milliseconds(3000)); // the machine may be slow
        EXPECT_EQ(stateOf(client), "0, 1, none");
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(waitUntil([threads] { return runningThreads() <= threads; }));
    }
}

TEST(TcpClient, ReceivesUntilThePeerEnds) {
    signal(SIGPIPE, SIG_DFL); // which ends the process
    for (const auto& [end, sends] : {std::pair(sendBytes(""), 1), std::pair(reset(), 0)}) {
        Connection c({sendBytes("abcdef"), pauseUntilReleased(), end}); // the first one closes
        EXPECT_EQ(readOnce(c.client, 4), "abcd");
        EXPECT_EQ(readOnce(c.client), "ef");
        c.server.release();
        EXPECT_EQ(c.client.WaitForReceive(5), 1);
        EXPECT_EQ(readOnce(c.client), "failed 0");
        EXPECT_EQ(stateOf(c.client), "0, 0, open");
        EXPECT_EQ(sendText(c.client, "x"), sends);
    }
}

TEST(TcpClient, GivesUpAReceiveAtTheTimeout) {
    for (const unsigned int timeout : {0u, 1u}) { // with 0 even bytes that are there don't help
        Connection c({sendBytes(timeout == 0 ? "late" : ""), pauseUntilReleased(),
                      sendBytes("late"), readToEnd()});
        c.client.timeout = timeout;
        EXPECT_EQ(c.client.WaitForReceive(timeout == 0 ? 5 : 0), timeout == 0 ? 1 : 0);
        const auto begin = Clock::now();
        EXPECT_EQ(readOnce(c.client), "failed 0");
        EXPECT_GE(Clock::now() - begin, milliseconds(1000 * timeout));
        EXPECT_EQ(stateOf(c.client), "0, 3, open");
        EXPECT_EQ(readOnce(c.client), "failed 64"); // at once: it is no longer connected
        c.server.release();
        EXPECT_EQ(readOnce(c.client, 4, &TcpClient::Peek), "late");
    }
}

} // namespace
