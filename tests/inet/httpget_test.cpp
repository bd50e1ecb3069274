#include "httpget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "environment.h"
#include "http_peer.h"
#include "loopback.h"
#include "qoros.h"
#include "real_servers.h"
#include "scripted_server.h"

namespace {

using namespace support;
using namespace std::string_literals;

constexpr std::time_t longAgo = 784111777;
const std::string longAgoText = "Sun, 06 Nov 1994 08:49:37 GMT";

// Bytes of which no two stretches are alike.
std::string pattern(std::size_t size) {
    std::string bytes(size + sizeof(std::uint64_t), '\0');
    for (std::uint64_t at = 0; at < size; at += sizeof at) {
        memcpy(&bytes[at], &at, sizeof at);
    }
    bytes.resize(size);
    return bytes;
}

// The calls of a callback: their number, and from the first that it is to abort at.
struct Calls {
    std::vector<std::pair<unsigned int, unsigned int>> seen;
    std::size_t abortAt = ~std::size_t{0};
};

signed char follow(void* context, unsigned int done, unsigned int total) {
    Calls& calls = *static_cast<Calls*>(context);
    calls.seen.emplace_back(done, total);
    return calls.seen.size() - 1 < calls.abortAt ? 1 : 0;
}

class HttpGetTest : public testing::Test {
protected:
    // Result, `updated`, error text, and what the destination holds.
    using Outcome = std::tuple<int, int, std::string, std::string>;

    Outcome outcome(int result, int updated) const {
        return {result, updated, get.errorText, directory.read("file")};
    }

    Outcome request(const std::string& url) {
        signed char updated = 9;
        const int result = get.HttpRequest(url.c_str(), destination.c_str(), &updated);
        return outcome(result, updated);
    }

    // Lets the client receive the pieces, one by one, and then the end of the connection.
    Outcome receive(const std::vector<std::string>& pieces, Calls* calls = nullptr) {
        const int peer = connectPeer(*get.tcp);
        for (const std::string& piece : pieces) {
            EXPECT_GT(send(peer, piece.data(), piece.size(), 0), 0);
        }
        shutdown(peer, SHUT_WR);
        QORINET_URL url = {};
        QorInetUrlParse("http://far.example/path", &url, 80);
        signed char updated = 9;
        const int result = get.getFile(url, destination.c_str(), &updated,
                                       calls == nullptr ? nullptr : follow, calls);
        char request[5000];
        sent.assign(request, static_cast<std::size_t>(std::max(recv(peer, request, 5000, 0), 0L)));
        QorInetUrlFree(&url);
        close(peer);
        return outcome(result, updated);
    }

    const TempDirectory directory;
    const std::string destination = directory.path("file");
    HttpGet get;
    std::string sent; // what the peer of receive got
};

TEST_F(HttpGetTest, DownloadsWhatIsNewer) {
    Nginx nginx;
    if (!nginx.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem());
    }
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 200000000u}) {
        SCOPED_TRACE(size);
        const std::string bytes = pattern(size);
        nginx.addFile("file", bytes, longAgo);
        remove(destination.c_str());
        const std::string url = nginx.url("/file");
        EXPECT_TRUE(request(url) == Outcome(1, 1, "", bytes));
        EXPECT_EQ(modificationTime(destination), longAgo);
        EXPECT_TRUE(request(url) == Outcome(1, 0, "", bytes));

        // The server compares for equality: an hour more or less is another file.
        setModificationTime(destination, longAgo + 3600);
        EXPECT_TRUE(request(url) == Outcome(1, 1, "", bytes));
        EXPECT_EQ(modificationTime(destination), longAgo);
    }
    EXPECT_TRUE(nginx.waitForLog("\"GET /file HTTP/1.0\" 304 0"));
    const unsigned int timeout = get.tcp->timeout; // a packed member
    EXPECT_EQ(timeout, 30u);
    const int sock = get.tcp->sock;
    EXPECT_EQ(sock, -1);
}

TEST_F(HttpGetTest, GoesThroughAProxy) {
    // This proxy hands headers on line by line: with a length among them, their end would be taken
    // for the begin of the body where it comes later. A processed page has no length.
    Nginx nginx;
    nginx.addFile("file", "through");
    nginx.addServerLines("location = /file { ssi on; ssi_types *; }");
    Tinyproxy proxy;
    proxy.requireCredentials("user", "password");
    if (!nginx.start() || !proxy.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem() + proxy.problem());
    }
    get.proxyPort = proxy.port();
    strcpy_qor(get.proxyHost, sizeof get.proxyHost, "127.0.0.1");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {nullptr, nullptr, "407 Proxy Authentication Required"},
        {"user", nullptr, "407 Proxy Authentication Required"},
        {nullptr, "", "407 Proxy Authentication Required"},
        {"", "wrong", "401 Unauthorized"},
        {"other", "password", "401 Unauthorized"},
        {"user", "", nullptr},
        {nullptr, nullptr, nullptr},
    };
    for (const auto& [user, password, error] : cases) {
        SCOPED_TRACE((user == nullptr ? "" : user) + ":"s + (password == nullptr ? "" : password));
        remove(destination.c_str());
        get.errorText[0] = '\0';
        get.SetProxyAuthentication(user, password);
        EXPECT_EQ(request(nginx.url("/file")),
                  error == nullptr ? Outcome(1, 1, "", "through")
                                   : Outcome(0, 0, "HTTP Error: HTTP/1.0 "s + error, ""));
    }
}

TEST_F(HttpGetTest, WritesItsRequest) {
    const std::string end = "Connection: Keep-Alive\r\nHost: \r\nUserAgent: QOR\r\nAccept: */*\r\n";
    const std::string blank = "\r\n";
    const std::string longPassword(197, 'p'); // 199 characters with the user and the colon
    get.SetProxyAuthentication("u", longPassword.c_str());
    receive({});
    EXPECT_EQ(sent, "GET /path HTTP/1.0\r\n" + end + blank);

    strcpy_qor(get.proxyHost, sizeof get.proxyHost, "proxy");
    directory.write("file", "old");
    setModificationTime(destination, longAgo);
    receive({});
    std::string credentials = "dTpw"; // "u:p"
    for (int group = 0; group < 65; ++group) {
        credentials += "cHBw";
    }
    const std::string proxied = "GET http://far.example:80/path HTTP/1.0\r\n" + end;
    EXPECT_EQ(sent, proxied + "Proxy-Authorization: Basic " + credentials +
                        "cA==\r\nIf-Modified-Since: " + longAgoText + "\r\n" + blank);

    remove(destination.c_str());
    get.SetProxyAuthentication(get.proxyPassword, get.proxyUser); // too long, now the other way
    get.SetProxyAuthentication("", (longPassword + "p").c_str());
    receive({});
    EXPECT_EQ(sent, proxied + blank);
}

TEST_F(HttpGetTest, NamesTheHostWithAnOddPort) {
    const Script refuse = {readRequest(), sendBytes("HTTP/1.0 404 Not here\r\n\r\n")};
    ScriptedServer server({refuse, refuse});
    const Outcome refused(0, 0, "HTTP Error: HTTP/1.0 404 Not here", "");
    const std::string end = "\r\nUserAgent: QOR\r\nAccept: */*\r\n\r\n";
    EXPECT_EQ(request(server.url("/a?b#c")), refused);
    EXPECT_EQ(server.received(0),
              "GET /a?b#c HTTP/1.0\r\nConnection: Keep-Alive\r\nHost: 127.0.0.1:" +
                  std::to_string(server.port()) + end);
    strcpy_qor(get.proxyHost, sizeof get.proxyHost, "127.0.0.1");
    get.proxyPort = server.port();
    EXPECT_EQ(request("http://far.example:81/"), refused);
    EXPECT_EQ(server.received(1), "GET http://far.example:81/ HTTP/1.0\r\n"
                                  "Connection: Keep-Alive\r\nHost: far.example:81" +
                                      end);
    get.proxyPort = refusingPort();
    EXPECT_EQ(request("https://far.example/"), Outcome(0, 0, "Connect to far.example failed", ""));
    EXPECT_EQ(get.tcp->ssl, 1);
}

TEST_F(HttpGetTest, UnderstandsAnswers) {
    const std::string ok = "HTTP/1.0 200 OK\r\n", five = ok + "CONTENT-LENGTH: 5\r\n";
    const auto n = [](std::size_t count) { return std::string(count, 'n'); };
    const std::string length = ok + "Content-length: " + std::string(182, '0');
    const struct {
        const char* name;
        std::vector<std::string> pieces;
        int result;
        const char* errorText;
        std::string content;
    } cases[] = {
        {"whole", {five + "\r\nhello"}, 1, "", "hello"},
        {"no length", {ok + "\r\nhel", "lo"}, 1, "", "hello"},
        {"nothing at all", {ok + "\r\n"}, 1, "", ""},
        {"a length of 0", {ok + "Content-length: 0\r\n\r\n"}, 1, "", ""},
        {"early close", {five + "\r\nhel"}, 0, "", "hel"},
        {"too much, held", {five + "\r\nhello, you"}, 1, "", "hello, you"},
        {"too much, later", {five + "\r\nhe", "llo, you"}, 1, "", "hello"},
        {"two lengths", {five + "Content-length: 2\r\n\r\nhe"}, 1, "", "he"},
        {"a negative length", {ok + "Content-length: -1\r\n\r\nhe"}, 1, "", "he"},
        {"over 32 bits", {ok + "Content-length: 4294967298\r\n\r\nh", "ello"}, 1, "", "he"},
        {"few bytes at first", {"H", "TTP/1.0 200", " OK\r\n\r\n123456", "7"}, 1, "", "1234567"},
        {"headers in pieces", {ok, "X: y\r", "\n\r", "\nhello"}, 1, "", "hello"},
        {"a late line feed", {five + "\r", "\nhello"}, 1, "", "hello"},
        {"a late line feed alone", {five + "\r", "\n", "hello"}, 1, "", "hello"},
        {"a line feed that never comes", {five + "\r"}, 0, "", ""},
        {"an end after the length", {five, "\r\nhello"}, 1, "", "\r\nhel"},
        {"a name behind 200 bytes", {ok + n(200) + "Content-length: 2\r\n\r\nhey"}, 1, "", "hey"},
        {"199 bytes of a line", {length + "5\r\n\r\nhello"}, 1, "", "hello"},
        {"200 bytes of a line", {length + "05\r\n\r\n"}, 1, "", ""},
        {"a zero byte in a line", {ok + "A\0\r\n\r\nx"s}, 1, "", "x"},
        {"4,096 bytes", {ok + n(3000), n(1075) + "\r\n\r\n", "x"}, 1, "", "x"},
        {"4,097 bytes", {ok + n(3000), n(1076) + "\r\n\r", "\nx"}, 1, "", "x"},
        {"4,098 bytes", {ok + n(3000), n(1077) + "\r\n", "\r\nx"}, 0, "", "old"},
        {"a length in 4,098 bytes", {five + n(4058) + "\r\n\r\n"}, 0, "", "old"},
        {"not modified", {"HTTP/1.0 304 Not Modified\r\n\r\n"}, 1, "", "old"},
        {"no status", {"HTTP/1.0 "}, 0, "Receive timeout", "old"},
        {"twelve bytes", {"HTTP/1.0 304"}, 0, "Receive timeout", "old"},
        {"no blank line", {ok + "A: b\r\n"}, 0, "Receive timeout", "old"},
        {"line feeds alone", {"HTTP/1.0 200 OK\nA: b\n\n"}, 0, "Receive timeout", "old"},
        {"redirect", {"HTTP/1.0 301 %s%n%\rb"}, 0, "HTTP Error: HTTP/1.0 301  s n ", "old"},
        {"no line end", {"HTTP/1.0 500 X"}, 0, "HTTP Error: HTTP/1.0 500 X", "old"},
        {"a zero byte", {"HTTP/1.0 50\0 X\r\n"s}, 0, "HTTP Error: HTTP/1.0 50", "old"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        directory.write("file", "old");
        get.errorText[0] = '\0';
        const bool touched = c.result == 1 && c.content != "old";
        EXPECT_EQ(receive(c.pieces), Outcome(c.result, touched ? 1 : 0, c.errorText, c.content));
    }
    receive({"HTTP/1.0 404 " + n(3000)});
    EXPECT_EQ(get.errorText, "HTTP Error: HTTP/1.0 404 " + n(74));
}

TEST_F(HttpGetTest, TakesAnAnswerByteByByte) {
    const std::string answer = "HTTP/1.0 200 OK\r\nX: y\r\n\r\nhello";
    const auto sendBytewise = [&answer](ScriptedServer& server) {
        return std::all_of(answer.begin(), answer.end(),
                           [&server](char c) { return server.send(std::string(1, c)); });
    };
    ScriptedServer server({{readRequest(), sendBytewise}});
    EXPECT_EQ(request(server.url("/")), Outcome(1, 1, "", "hello"));
}

TEST_F(HttpGetTest, GivesTheFileTheServersTime) {
    const std::string other = ": Mon, 07 Nov 1994 08:49:37 GMT\r\n",
                      failed = "Set file time failed";
    const struct {
        const char* name;
        std::string headers;
        std::time_t time;
        std::string errorText;
    } cases[] = {
        {"date", "date: " + longAgoText + "\r\n", longAgo, ""},
        {"49 bytes", "Date: Sun, " + std::string(24, ' ') + "06 Nov 1994 08:49:37\r\n", longAgo,
         ""},
        {"50 bytes", "Date: Sun, " + std::string(25, ' ') + "06 Nov 1994 08:49:37\r\n",
         longAgo - 34, ""},
        {"modified first", "last-modified: " + longAgoText + "\r\nDate" + other, longAgo, ""},
        {"modified last", "Date" + other + "Last-Modified: " + longAgoText + "\r\n", longAgo, ""},
        {"the first of two dates", "Date: " + longAgoText + "\r\nDate" + other, longAgo, ""},
        {"RFC 850", "Date: Sunday, 06-Nov-94 08:49:37 GMT\r\n", longAgo, ""},
        {"asctime", "Date: Sun Nov 6 08:49:37 GMT 1994\r\n", longAgo, ""},
        {"day first", "Date: 06 Nov 1994 08:49:37 GMT\r\n", longAgo, ""},
        {"day first, hyphens", "Date: 06-Nov-1994 08:49:37 GMT\r\n", longAgo, ""},
        {"time first", "Date: 08:49:37 GMT 06 Nov 1994\r\n", longAgo, ""},
        {"time first, hyphens", "Date: 08:49:37 GMT 06-Nov-1994\r\n", longAgo, ""},
        {"no form", "Last-Modified: yesterday\r\n", 0, failed},
        {"no form that hides one", "Last-Modified: yesterday\r\nDate" + other, 0, failed},
        {"none", "", 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        remove(destination.c_str());
        get.errorText[0] = '\0';
        const int whole = c.errorText.empty() ? 1 : 0;
        const std::string headers = "HTTP/1.0 200 OK\r\nContent-length: 2\r\n" + c.headers;
        EXPECT_EQ(receive({headers + "\r\nhi"}), Outcome(whole, whole, c.errorText, "hi"));
        if (c.time != 0) {
            EXPECT_EQ(modificationTime(destination), c.time);
        }
        // What came short is stamped too.
        setModificationTime(destination, 1);
        EXPECT_EQ(receive({headers + "\r\nh"}), Outcome(0, 0, c.errorText, "h"));
        if (c.time != 0) {
            EXPECT_EQ(modificationTime(destination), c.time);
        }
    }
}

TEST_F(HttpGetTest, CallsBackAfterEveryTenthReceive) {
    using Seen = decltype(Calls::seen);
    const unsigned int unknown = 0xFFFFFFFF;
    std::vector<std::string> pieces(25, "x");
    pieces.insert(pieces.begin(), "HTTP/1.0 200 OK\r\nContent-length: 27\r\n\r\nxx");
    Calls calls;
    EXPECT_EQ(receive(pieces, &calls), Outcome(1, 1, "", std::string(27, 'x')));
    EXPECT_EQ(calls.seen, (Seen{{0, 27}, {12, 27}, {22, 27}, {27, 27}}));

    // The first call asks in vain; the second one's wish is heard.
    calls = {{}, 0};
    EXPECT_EQ(receive(pieces, &calls), Outcome(0, 0, "", std::string(12, 'x')));
    EXPECT_EQ(calls.seen, (Seen{{0, 27}, {12, 27}, {12, 27}}));

    // What comes at once counts as so many receives of 4,096 bytes.
    pieces.assign({"HTTP/1.0 200 OK\r\nContent-length: 50000\r\n\r\n", std::string(32768, 'x'),
                   std::string(17232, 'x')});
    calls = {};
    EXPECT_EQ(receive(pieces, &calls), Outcome(1, 1, "", std::string(50000, 'x')));
    EXPECT_EQ(calls.seen, (Seen{{0, 50000}, {40960, 50000}, {50000, 50000}}));

    pieces.assign({"HTTP/1.0 200 OK\r\n\r\n"});
    calls = {};
    receive(pieces, &calls);
    EXPECT_EQ(calls.seen, (Seen{{0, unknown}, {0, unknown}}));
}

// A server that stalls: a time-out ends a body of unknown length like the server's close.
TEST_F(HttpGetTest, WaitsForAStallingServer) {
    for (const bool announced : {true, false}) {
        SCOPED_TRACE(announced);
        const std::string head = announced ? "Content-length: 9\r\n\r\nhalf" : "\r\nhalf";
        ScriptedServer server(
            {{readRequest(), sendBytes("HTTP/1.0 200 OK\r\n" + head), pauseUntilReleased()}});
        const auto shortenTimeout = [](void* tcp, unsigned int, unsigned int) -> signed char {
            static_cast<TcpClient*>(tcp)->timeout = 1;
            return 1;
        };
        signed char updated = 9;
        const int result = get.HttpRequestCB(server.url("/").c_str(), destination.c_str(), &updated,
                                             shortenTimeout, get.tcp);
        const int whole = announced ? 0 : 1;
        EXPECT_EQ(outcome(result, updated), Outcome(whole, whole, "", "half"));
        const unsigned int lastError = get.tcp->lastError;
        EXPECT_EQ(lastError, 3u);
        server.release();
    }
}

TEST_F(HttpGetTest, SaysWhatWentWrong) {
    const std::string place = "127.0.0.1:" + std::to_string(refusingPort());
    signed char updated = 9;
    EXPECT_EQ(request("nourl"), Outcome(0, 0, "URL Parse Error !", ""));
    EXPECT_EQ(get.HttpRequest(nullptr, destination.c_str(), nullptr), 0);
    EXPECT_EQ(request("http://" + place + "/"), Outcome(0, 0, "Connect to 127.0.0.1 failed", ""));

    const auto answerOf = [](std::size_t size) -> Script {
        return {readRequest(),
                sendBytes("HTTP/1.0 200 OK\r\nContent-length: " + std::to_string(size) +
                          "\r\n\r\n" + std::string(size, 'x'))};
    };
    ScriptedServer server({answerOf(5), answerOf(5), answerOf(20000), {readToEnd()}});
    const auto to = [&](const char* file) {
        return get.HttpRequest(server.url("/").c_str(), file, &updated);
    };
    EXPECT_EQ(to(directory.path().c_str()), 0);
    EXPECT_STREQ(get.errorText, "Can't open destination file");
    for (int full = 0; full < 2; ++full) { // seen when the file is closed, and before
        get.errorText[0] = '\0';
        EXPECT_EQ(to("/dev/full"), 0);
        EXPECT_STREQ(get.errorText, "Can't write destination file");
    }
    EXPECT_EQ(to(nullptr), 0);
    EXPECT_EQ(updated, 0);
    EXPECT_EQ(server.wait(), "");
}

TEST_F(HttpGetTest, FitsARequestOfExactlyItsBuffer) {
    const std::string rest = "GET / HTTP/1.0\r\nConnection: Keep-Alive\r\nHost: \r\n"
                             "UserAgent: QOR\r\nAccept: */*\r\n\r\n";
    for (const std::size_t size : {4095u, 4096u}) {
        QORINET_URL url = {};
        QorInetUrlParse(("h/" + std::string(size - rest.size(), 'p')).c_str(), &url, 80);
        const int peer = connectPeer(*get.tcp);
        shutdown(peer, SHUT_WR);
        get.getFile(url, destination.c_str(), nullptr, nullptr, nullptr);
        char request[5000];
        EXPECT_EQ(recv(peer, request, sizeof request, MSG_DONTWAIT), size == 4095 ? 4095 : -1);
        QorInetUrlFree(&url);
        close(peer);
    }
}

TEST_F(HttpGetTest, LooksFilesUp) {
    unsigned int size = 9;
    char date[40] = "as before";
    EXPECT_EQ(get.getFileInfo(destination.c_str(), &size, date), 0);
    EXPECT_EQ(get.getFileInfo(nullptr, &size, date), 0);
    EXPECT_EQ(size, 9u);
    EXPECT_STREQ(date, "as before");
    directory.write("file", "12345");
    setModificationTime(destination, longAgo);
    EXPECT_EQ(get.getFileInfo(destination.c_str(), &size, date), 1);
    EXPECT_EQ(size, 5u);
    EXPECT_STREQ(date, longAgoText.c_str());
}

} // namespace
