#include "httpget.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
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
const std::string ok = "HTTP/1.0 200 OK\r\n", sized = ok + "Content-length: ";

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
    Outcome receive(const std::vector<std::string>& pieces, Calls* calls = nullptr,
                    const std::string& path = "path") {
        const int peer = connectPeer(*get.tcp, pieces);
        QORINET_URL url = {};
        QorInetUrlParse(("http://far.example/" + path).c_str(), &url, 80);
        signed char updated = 9;
        get.errorText[0] = '\0';
        const int result = get.getFile(url, destination.c_str(), &updated,
                                       calls == nullptr ? nullptr : follow, calls);
        sent = sentTo(peer);
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
    const std::string url = nginx.url("/file");
    for (const std::size_t size : {0u, 1u, 4095u, 4096u, 4097u, 200000000u}) {
        SCOPED_TRACE(size);
        const std::string bytes = pattern(size);
        nginx.addFile("file", bytes, longAgo);
        remove(destination.c_str());
        EXPECT_TRUE(request(url) == Outcome(1, 1, "", bytes));
        EXPECT_EQ(modificationTime(destination), longAgo);
        EXPECT_TRUE(request(url) == Outcome(1, 0, "", bytes));
    }
    // The server compares for equality: an hour more or less is another file.
    nginx.addFile("file", "other", longAgo);
    setModificationTime(destination, longAgo + 3600);
    EXPECT_EQ(request(url), Outcome(1, 1, "", "other"));
    EXPECT_TRUE(nginx.waitForLog("\"GET /file HTTP/1.0\" 304 0"));
    EXPECT_EQ(+get.tcp->timeout, 30u);
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
    const Outcome none(0, 0, "HTTP Error: HTTP/1.0 407 Proxy Authentication Required", "");
    const Outcome wrong(0, 0, "HTTP Error: HTTP/1.0 401 Unauthorized", "");
    const Outcome right(1, 1, "", "through");
    const std::tuple<const char*, const char*, Outcome> cases[] = {
        {nullptr, nullptr, none},     {"user", "", none},       {"", "wrong", wrong},
        {"other", "password", wrong}, {"user", nullptr, right}, {nullptr, nullptr, right},
    };
    for (const auto& [user, password, expected] : cases) {
        remove(destination.c_str());
        get.errorText[0] = '\0';
        get.SetProxyAuthentication(user, password);
        EXPECT_EQ(request(nginx.url("/file")), expected);
    }
}

TEST_F(HttpGetTest, WritesItsRequest) {
    const std::string blank = "\r\n";
    const std::string end = "Connection: Keep-Alive\r\nHost: \r\nUserAgent: QOR\r\nAccept: */*\r\n";
    const std::string longPassword(197, 'p'); // 199 characters with the user and the colon
    get.SetProxyAuthentication("u", longPassword.c_str());
    receive({});
    EXPECT_EQ(sent, "GET /path HTTP/1.0\r\n" + end + blank);
    for (const std::size_t size : {4095u, 4096u}) { // with a path that fills the buffer
        const std::string path(size - end.size() - 18, 'p');
        receive({}, nullptr, path);
        EXPECT_EQ(sent, size == 4096 ? "" : "GET /" + path + " HTTP/1.0\r\n" + end + blank);
    }
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
    const std::string begin = " HTTP/1.0\r\nConnection: Keep-Alive\r\nHost: ";
    const std::string end = "\r\nUserAgent: QOR\r\nAccept: */*\r\n\r\n";
    EXPECT_EQ(request(server.url("/a?b#c")), refused);
    EXPECT_EQ(server.received(0),
              "GET /a?b#c" + begin + "127.0.0.1:" + std::to_string(server.port()) + end);
    strcpy_qor(get.proxyHost, sizeof get.proxyHost, "127.0.0.1");
    get.proxyPort = server.port();
    EXPECT_EQ(request("http://far.example:81/"), refused);
    EXPECT_EQ(server.received(1), "GET http://far.example:81/" + begin + "far.example:81" + end);
    get.proxyPort = refusingPort();
    EXPECT_EQ(request("https://far.example/"), Outcome(0, 0, "Connect to far.example failed", ""));
    EXPECT_EQ(get.tcp->ssl, 1);
}

TEST_F(HttpGetTest, UnderstandsAnswers) {
    const std::string five = ok + "CONTENT-LENGTH: 5\r\n", zeros(182, '0');
    const auto n = [](std::size_t count) { return std::string(count, 'n'); };
    const std::tuple<const char*, std::vector<std::string>, int, std::string, std::string> cases[] =
        {
            {"whole", {five + "\r\nhello"}, 1, "", "hello"},
            {"no length", {ok + "\r\nhel", "lo"}, 1, "", "hello"},
            {"nothing at all", {ok + "\r\n"}, 1, "", ""},
            {"a length of 0", {sized + "0\r\n\r\n"}, 1, "", ""},
            {"early close", {five + "\r\nhel"}, 0, "", "hel"},
            {"too much, held", {five + "\r\nhello, you"}, 1, "", "hello, you"},
            {"too much, later", {five + "\r\nhe", "llo, you"}, 1, "", "hello"},
            {"two lengths", {five + "Content-length: 2\r\n\r\nhe"}, 1, "", "he"},
            {"a negative length", {sized + "-1\r\n\r\nhe"}, 1, "", "he"},
            {"over 32 bits", {sized + "4294967298\r\n\r\nh", "ello"}, 1, "", "he"},
            {"few bytes at first",
             {"H", "TTP/1.0 200", " OK\r\n\r\n123456", "7"},
             1,
             "",
             "1234567"},
            {"headers in pieces", {ok, "X: y\r", "\n\r", "\nhello"}, 1, "", "hello"},
            {"a late line feed", {five + "\r", "\nhello"}, 1, "", "hello"},
            {"a late line feed alone", {five + "\r", "\n", "hello"}, 1, "", "hello"},
            {"a line feed that never comes", {five + "\r"}, 0, "", ""},
            {"an end after the length", {five, "\r\nhello"}, 1, "", "\r\nhel"},
            {"a name behind 200 bytes",
             {ok + n(200) + "Content-length: 2\r\n\r\nhey"},
             1,
             "",
             "hey"},
            {"199 bytes of a line", {sized + zeros + "5\r\n\r\nhello"}, 1, "", "hello"},
            {"200 bytes of a line", {sized + zeros + "05\r\n\r\n"}, 1, "", ""},
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
            {"cut", {"HTTP/1.0 404 " + n(3000)}, 0, "HTTP Error: HTTP/1.0 404 " + n(74), "old"},
        };
    for (const auto& [name, pieces, result, errorText, content] : cases) {
        SCOPED_TRACE(name);
        directory.write("file", "old");
        const bool touched = result == 1 && content != "old";
        EXPECT_EQ(receive(pieces), Outcome(result, touched ? 1 : 0, errorText, content));
    }
}

TEST_F(HttpGetTest, GivesTheFileTheServersTime) {
    const std::string other = ": Mon, 07 Nov 1994 08:49:37 GMT\r\n", date = "Date: ";
    const std::string clock = "06 Nov 1994 08:49:37\r\n", failed = "Set file time failed";
    const std::tuple<const char*, std::string, std::time_t, std::string> cases[] = {
        {"date", "date: " + longAgoText + "\r\n", longAgo, ""},
        {"49 bytes", date + "Sun, " + std::string(24, ' ') + clock, longAgo, ""},
        {"50 bytes", date + "Sun, " + std::string(25, ' ') + clock, longAgo - 34, ""},
        {"modified first", "last-modified: " + longAgoText + "\r\nDate" + other, longAgo, ""},
        {"modified last", "Date" + other + "Last-Modified: " + longAgoText + "\r\n", longAgo, ""},
        {"the first of two dates", date + longAgoText + "\r\nDate" + other, longAgo, ""},
        {"RFC 850", date + "Sunday, 06-Nov-94 08:49:37 GMT\r\n", longAgo, ""},
        {"asctime", date + "Sun Nov 6 08:49:37 GMT 1994\r\n", longAgo, ""},
        {"day first", date + clock, longAgo, ""},
        {"day first, hyphens", date + "06-Nov-1994 08:49:37 GMT\r\n", longAgo, ""},
        {"time first", date + "08:49:37 GMT 06 Nov 1994\r\n", longAgo, ""},
        {"time first, hyphens", date + "08:49:37 GMT 06-Nov-1994\r\n", longAgo, ""},
        {"no form", "Last-Modified: yesterday\r\n", 0, failed},
        {"no form that hides one", "Last-Modified: yesterday\r\nDate" + other, 0, failed},
    };
    for (const auto& [name, headers, time, errorText] : cases) {
        SCOPED_TRACE(name);
        for (const char* const body : {"hi", "h"}) { // what came short is stamped too
            const int whole = time != 0 && strlen(body) == 2 ? 1 : 0;
            EXPECT_EQ(receive({sized + "2\r\n" + headers + "\r\n" + body}),
                      Outcome(whole, whole, errorText, body));
            EXPECT_TRUE(time == 0 || modificationTime(destination) == time);
        }
    }
}

TEST_F(HttpGetTest, CallsBackAfterEveryTenthReceive) {
    const std::vector<std::string> fifty = {sized + "50000\r\n\r\n", std::string(32768, 'x'),
                                            std::string(17232, 'x')};
    const unsigned int unknown = 0xFFFFFFFF;
    std::vector<std::string> single(25, "x");
    single.insert(single.begin(), sized + "27\r\n\r\nxx");
    const std::tuple<std::vector<std::string>, std::size_t, int, std::size_t, decltype(Calls::seen)>
        cases[] = {
            {single, 9, 1, 27, {{0, 27}, {12, 27}, {22, 27}, {27, 27}}},
            // The first call asks in vain; the second one's wish is heard.
            {single, 0, 0, 12, {{0, 27}, {12, 27}, {12, 27}}},
            // What comes at once counts as so many receives of 4,096 bytes.
            {fifty, 9, 1, 50000, {{0, 50000}, {40960, 50000}, {50000, 50000}}},
            {{ok + "\r\n"}, 9, 1, 0, {{0, unknown}, {0, unknown}}},
        };
    for (const auto& [pieces, abortAt, result, size, seen] : cases) {
        Calls calls = {{}, abortAt};
        EXPECT_EQ(receive(pieces, &calls), Outcome(result, result, "", std::string(size, 'x')));
        EXPECT_EQ(calls.seen, seen);
    }
}

// A time-out ends a body of unknown length like the server's close.
TEST_F(HttpGetTest, WaitsForAStallingServer) {
    const std::tuple<std::string, int, unsigned int> cases[] = {
        {sized + "9\r\n\r\nhalf", 0, 3}, {ok + "\r\nhalf", 1, 3}, {sized + "4\r\n\r\nhalf", 1, 0}};
    for (const auto& [answer, result, lastError] : cases) {
        SCOPED_TRACE(answer);
        ScriptedServer server({{readRequest(), sendBytewise(answer), pauseUntilReleased()}});
        const auto shortenTimeout = [](void* tcp, unsigned int, unsigned int) -> signed char {
            static_cast<TcpClient*>(tcp)->timeout = 1;
            return 1;
        };
        signed char updated = 9;
        EXPECT_EQ(get.HttpRequestCB(server.url("/").c_str(), destination.c_str(), &updated,
                                    shortenTimeout, get.tcp),
                  result);
        EXPECT_EQ(outcome(result, updated), Outcome(result, result, "", "half"));
        EXPECT_EQ(+get.tcp->lastError, lastError);
        server.release();
    }
}

TEST_F(HttpGetTest, SaysWhatWentWrong) {
    const std::string place = "127.0.0.1:" + std::to_string(refusingPort());
    EXPECT_EQ(request("nourl"), Outcome(0, 0, "URL Parse Error !", ""));
    EXPECT_EQ(get.HttpRequest(nullptr, destination.c_str(), nullptr), 0);
    EXPECT_EQ(request("http://" + place + "/"), Outcome(0, 0, "Connect to 127.0.0.1 failed", ""));

    const auto answerOf = [](std::size_t size) {
        return Script{readRequest(), sendBytes(sized + std::to_string(size) + "\r\n\r\n" +
                                               std::string(size, 'x'))};
    };
    ScriptedServer server({answerOf(5), answerOf(5), answerOf(20000), {readToEnd()}});
    const std::pair<const char*, const char*> cases[] = {
        {directory.path().c_str(), "Can't open destination file"},
        {"/dev/full", "Can't write destination file"}, // seen when the file is closed
        {"/dev/full", "Can't write destination file"}, // and before
        {nullptr, ""},
    };
    for (const auto& [file, errorText] : cases) {
        signed char updated = 9;
        get.errorText[0] = '\0';
        EXPECT_EQ(get.HttpRequest(server.url("/").c_str(), file, &updated), 0);
        EXPECT_STREQ(get.errorText, errorText);
        EXPECT_EQ(updated, 0);
    }
    EXPECT_EQ(server.wait(), "");
}

TEST_F(HttpGetTest, LooksFilesUp) {
    unsigned int size = 9;
    char date[40] = "as before";
    for (const char* const file : {destination.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(get.getFileInfo(file, &size, date), 0);
        EXPECT_TRUE(size == 9 && strcmp(date, "as before") == 0);
    }
    directory.write("file", "12345");
    EXPECT_EQ(get.getFileInfo(destination.c_str(), &size, nullptr), 1);
    EXPECT_EQ(size, 5u);
}

} // namespace
