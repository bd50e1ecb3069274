#include "httpget.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "environment.h"
#include "http_peer.h"
#include "qoros.h"
#include "real_servers.h"
#include "scripted_server.h"

namespace {

using namespace support;

constexpr std::time_t longAgo = 784111777;
const std::string longAgoText = "Sun, 06 Nov 1994 08:49:37 GMT";
const std::string ok = "HTTP/1.0 200 OK\r\n", sized = ok + "Content-length: ";

class HttpGetTest : public testing::Test {
protected:
    // Result, `updated`, error text, and what the destination holds.
    using Outcome = std::tuple<int, int, std::string, std::string>;

    static signed char follow(void* self, unsigned int done, unsigned int total) {
        HttpGetTest& test = *static_cast<HttpGetTest*>(self);
        test.calls.emplace_back(done, total);
        test.get.tcp->timeout = test.bodyTimeout;
        return test.calls.size() <= test.abortAt ? 1 : 0;
    }

    Outcome request(const std::string& url) {
        signed char updated = 9;
        const int result =
            get.HttpRequestCB(url.c_str(), destination.c_str(), &updated, follow, this);
        return {result, updated, get.errorText, directory.read("file")};
    }

    // Lets the client receive the pieces, one by one, and then the end of the connection.
    Outcome receive(const std::vector<std::string>& pieces) {
        close(connectPeer(*get.tcp, pieces));
        get.errorText[0] = '\0';
        calls.clear();
        char path[] = "path";
        QORINET_URL url = {};
        url.path = path;
        signed char updated = 9;
        const int result = get.getFile(url, destination.c_str(), &updated, follow, this);
        return {result, updated, get.errorText, directory.read("file")};
    }

    const TempDirectory directory;
    std::string destination = directory.path("file");
    HttpGet get;
    std::vector<std::pair<unsigned int, unsigned int>> calls; // of the callback
    std::size_t abortAt = ~std::size_t{0};                    // how many of them go well
    unsigned int bodyTimeout = 30;                            // s
};

TEST_F(HttpGetTest, DownloadsWhatIsNewer) {
    Nginx nginx;
    if (!nginx.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem());
    }
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 200000000u}) {
        std::string bytes(size, '\0');
        for (std::size_t at = 0; at + sizeof at <= size; at += sizeof at) {
            memcpy(&bytes[at], &at, sizeof at); // no two stretches are alike
        }
        nginx.addFile("file", bytes, longAgo);
        remove(destination.c_str());
        EXPECT_TRUE(request(nginx.url("/file")) == Outcome(1, 1, "", bytes)) << size;
        EXPECT_EQ(modificationTime(destination), longAgo);
        EXPECT_TRUE(request(nginx.url("/file")) == Outcome(1, 0, "", bytes)) << size;
    }
    // The server compares for equality: an hour more or less is another file.
    nginx.addFile("file", "other", longAgo);
    setModificationTime(destination, longAgo + 3600);
    EXPECT_EQ(request(nginx.url("/file")), Outcome(1, 1, "", "other"));
    EXPECT_EQ(+get.tcp->sock, -1);
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
    const std::string url = nginx.url("/file"), error = "HTTP Error: HTTP/1.0 40";
    EXPECT_EQ(request(url), Outcome(0, 0, error + "7 Proxy Authentication Required", ""));
    get.SetProxyAuthentication("user", "wrong");
    EXPECT_EQ(request(url), Outcome(0, 0, error + "1 Unauthorized", ""));
    get.SetProxyAuthentication("", "password"); // the user stays, and the text of the failure
    EXPECT_EQ(request(url), Outcome(1, 1, error + "1 Unauthorized", "through"));
}

TEST_F(HttpGetTest, WritesItsRequest) {
    const Script refuse = {readRequest(), sendBytes("HTTP/1.0 404 Not here\r\n\r\n")};
    ScriptedServer server({refuse, {readToEnd()}, refuse, refuse, refuse});
    const std::string host = "127.0.0.1:" + std::to_string(server.port()), direct = server.url("/");
    const std::string begin = " HTTP/1.0\r\nConnection: Keep-Alive\r\nHost: ";
    const std::string since = "If-Modified-Since: " + longAgoText + "\r\n\r\n";
    const std::string end = "\r\nUserAgent: QOR\r\nAccept: */*\r\n", plain = end + since;
    const std::string basic = end + "Proxy-Authorization: Basic YWJjOmE=\r\n" + since;
    const std::string longest(4090 - (begin + host + plain).size(), 'p'); // fills the buffer
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        {"", direct + longest, "a", "GET /" + longest + begin + host + plain},
        {"", direct + "p" + longest, "a", ""},
        {"127.0.0.1", "http://h:81/a?b#c", "a", "GET http://h:81/a?b#c" + begin + "h:81" + basic},
        {"127.0.0.1", "https://h/", "a", "GET http://h:443/" + begin + "h:443" + basic},
        {"127.0.0.1", "http://h/", std::string(196, 'p'), "GET http://h:80/" + begin + "h" + plain},
    };
    get.proxyPort = server.port();
    directory.write("file", "old");
    setModificationTime(destination, longAgo);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [proxy, url, password, expected] = cases[i];
        strcpy_qor(get.proxyHost, sizeof get.proxyHost, proxy);
        get.SetProxyAuthentication("abc", password.c_str());
        EXPECT_EQ(std::get<0>(request(url)), 0);
        EXPECT_EQ(server.received(i), expected);
    }
}

TEST_F(HttpGetTest, UnderstandsAnswers) {
    const std::string five = ok + "CONTENT-LENGTH: 5\r\n", many(3000, 'n'), zeros(182, '0');
    const std::string limit = many + std::string(1076, 'n'); // 4,096 bytes, but for the blank line
    // The pieces of the answer; result, error text, what the file holds.
    const std::tuple<std::vector<std::string>, int, std::string, std::string> cases[] = {
        {{five + "\r\nhello, you"}, 1, "", "hello, you"}, // too much, held
        {{five + "\r\nhe", "llo, you"}, 1, "", "hello"},  // too much, later
        {{sized + "4294967298\r\n\r\nh", "ello"}, 1, "", "he"},
        {{"H", "TTP/1.0 200", " OK\r\n\r\n123456", "7"}, 1, "", "1234567"},
        {{ok, "X: y\r", "\n\r", "\nhello"}, 1, "", "hello"},
        {{five + "\r", "\n", "hello"}, 1, "", "hello"}, // a late line feed
        {{five, "\r\nhello"}, 1, "", "\r\nhel"},        // an end after the length
        {{sized + zeros + "05\r\n\r\n"}, 1, "", ""},    // 200 bytes of a line
        {{ok + limit + "\r\n\r", "\nx"}, 1, "", "x"},   // 4,097 bytes
        {{ok + limit + "n\r\n", "\r\nx"}, 0, "", "old"},
        {{five + limit + "\r\n\r\n"}, 0, "", "old"},
        {{"HTTP/1.0 304"}, 0, "Receive timeout", "old"}, // twelve bytes
        {{"HTTP/1.0 301 %s%n%\rb"}, 0, "HTTP Error: HTTP/1.0 301  s n ", "old"},
        {{"HTTP/1.0 404 " + many}, 0, "HTTP Error: HTTP/1.0 404 " + many.substr(0, 74), "old"},
    };
    for (const auto& [pieces, result, errorText, content] : cases) {
        SCOPED_TRACE(testing::PrintToString(pieces).substr(0, 100));
        directory.write("file", "old");
        const bool touched = result == 1 && content != "old";
        EXPECT_EQ(receive(pieces), Outcome(result, touched ? 1 : 0, errorText, content));
    }
}

TEST_F(HttpGetTest, GivesTheFileTheServersTime) {
    const std::string other = "\r\nDate: Mon, 07 Nov 1994 08:49:37 GMT", date = "\r\nDate: ";
    const std::string modified = "\r\nlast-modified: ";
    const std::string cases[] = {
        modified + longAgoText + other,
        other + modified + longAgoText,
        date + longAgoText + other,
        date + "Sunday, 06-Nov-94 08:49:37 GMT",
        date + "Sun Nov 6 08:49:37 GMT 1994",
        date + "06 Nov 1994 08:49:37",
        date + "06-Nov-1994 08:49:37 GMT",
        date + "08:49:37 GMT 06 Nov 1994",
        date + "08:49:37 GMT 06-Nov-1994",
        date + "Sun, " + std::string(24, ' ') + "06 Nov 1994 08:49:378", // cut to 49 bytes
    };
    for (const std::string& headers : cases) {
        for (const std::string body : {"hi", "h"}) { // what came short is stamped too
            const int whole = body == "hi" ? 1 : 0;
            EXPECT_EQ(receive({sized + "2" + headers + "\r\n\r\n" + body}),
                      Outcome(whole, whole, "", body));
            EXPECT_EQ(modificationTime(destination), longAgo) << headers;
            setModificationTime(destination, 0);
        }
    }
    EXPECT_EQ(receive({sized + "2" + modified + "yesterday" + other + "\r\n\r\nhi"}),
              Outcome(0, 0, "Set file time failed", "hi"));
}

TEST_F(HttpGetTest, CallsBackAfterEveryTenthReceive) {
    const std::string block(32768, 'x'); // counts as so many receives of 4,096 bytes
    std::vector<std::string> single(25, "x");
    single.insert(single.begin(), sized + "27\r\n\r\nxx");
    const std::tuple<std::vector<std::string>, std::size_t, int, decltype(calls)> cases[] = {
        {single, 9, 1, {{0, 27}, {12, 27}, {22, 27}, {27, 27}}},
        // The first call asks in vain; the second one's wish is heard.
        {single, 0, 0, {{0, 27}, {12, 27}, {12, 27}}},
        {{ok + "\r\n", block, block}, 9, 1, {{0, ~0u}, {40960, ~0u}, {65536, ~0u}}},
    };
    for (const auto& [pieces, firstAbort, result, expected] : cases) {
        abortAt = firstAbort;
        const std::string content(expected.back().first, 'x');
        EXPECT_EQ(receive(pieces), Outcome(result, result, "", content));
        EXPECT_EQ(calls, expected);
    }
}

// A time-out ends a body of unknown length like the server's close.
TEST_F(HttpGetTest, WaitsForAStallingServer) {
    bodyTimeout = 1;
    for (const auto& [answer, result] :
         {std::pair(sized + "9\r\n\r\nhalf", 0), std::pair(ok + "\r\nhalf", 1)}) {
        Script script = {readRequest()};
        for (const char byte : answer) {
            script.push_back(sendBytes(std::string(1, byte)));
        }
        script.push_back(pauseUntilReleased());
        ScriptedServer server({script});
        EXPECT_EQ(request(server.url("/")), Outcome(result, result, "", "half"));
        EXPECT_EQ(+get.tcp->lastError, 3u);
    }
}

TEST_F(HttpGetTest, SaysWhatWentWrong) {
    const std::string nobody = "http://127.0.0.1:" + std::to_string(refusingPort()) + "/";
    EXPECT_EQ(request("nourl"), Outcome(0, 0, "URL Parse Error !", ""));
    EXPECT_EQ(request(nobody), Outcome(0, 0, "Connect to 127.0.0.1 failed", ""));
    destination = directory.path();
    EXPECT_EQ(receive({ok + "\r\nhello"}), Outcome(0, 0, "Can't open destination file", ""));
    destination = "/dev/full"; // seen when the file is closed
    EXPECT_EQ(receive({ok + "\r\nhello"}), Outcome(0, 0, "Can't write destination file", ""));
}

} // namespace
