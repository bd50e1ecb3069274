#include "httpclient.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "http_peer.h"
#include "loopback.h"
#include "scripted_server.h"

namespace {

using namespace support;
using namespace std::string_literals;

// What an exchange left: its result, the status, the body with the length that it is said to have,
// and 1 where the client did not read on until the connection ended.
using Outcome = std::tuple<int, unsigned int, std::string, int>;

Outcome outcome(const HttpClient& http, int result) {
    const unsigned int status = http.statusCode, length = http.bodyLength;
    EXPECT_TRUE(http.body == nullptr ? length == 0 : http.body[length] == '\0');
    return {result, status, http.body == nullptr ? "none" : std::string(http.body, length),
            http.tcp->connected};
}

// Lets the client receive the pieces, one by one, and then the end of the connection.
Outcome receive(HttpClient& http, const std::vector<std::string>& pieces) {
    static char stale[] = "stale";
    close(connectPeer(*http.tcp, pieces));
    http.body = stale; // of an answer before
    http.bodyLength = 5;
    return outcome(http, http.receiveWait());
}

Outcome receive(const std::vector<std::string>& pieces) {
    HttpClient http(nullptr);
    return receive(http, pieces);
}

const std::string ok = "HTTP/1.1 200 OK\r\n", sized = ok + "Content-Length: ";

TEST(HttpResponse, IsTakenApart) {
    const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n", zeros(28, '0'), more(225, '0');
    const std::tuple<const char*, std::string, Outcome> cases[] = {
        {"name in any case", ok + "CONTENT-length: 2\r\n\r\nhiho", {1, 200, "hi", 1}},
        {"no length: to the end", ok + "\r\nhi\r\n\r\nho", {1, 200, "hi\r\n\r\nho", 0}},
        {"zero bytes in the body", ok + "\r\n\0a\0"s, {1, 200, "\0a\0"s, 0}},
        {"status of four digits", "HTTP/1.1 2001 X\r\n\r\nhi", {1, 200, "hi", 0}},
        {"other interim response", "http/1.1 102 X\r\n\r\n" + ok + "\r\nhi", {1, 200, "hi", 0}},
        {"only one is skipped", interim + interim + ok + "\r\n", {1, 100, ok + "\r\n", 0}},
        {"no response behind the interim", interim + "HTTP/2 200 OK\r\n\r\nhi", {0, 0, "none", 0}},
        {"interim without its end", "HTTP/1.1 100 Continue\r\n", {0, 100, "none", 0}},
        {"length and nothing behind CR CR", sized + "0\r\r", {1, 200, "", 0}},
        {"length and nothing behind LF LF", "HTTP/1 200\nContent-Length: 0\n\n", {1, 0, "", 0}},
        {"no body, closed by intent", ok + "connection: Close\r\n\r\n", {1, 200, "", 0}},
        {"no body, more than closed", ok + "Connection: close, x\r\n\r\n", {0, 200, "", 0}},
        {"no body, no intent", ok + "\r\n", {0, 200, "", 0}},
        {"length 0 and surplus", sized + "0\r\n\r\nhi", {1, 200, "", 1}},
        {"body cut short", sized + "4\r\n\r\nhi", {0, 200, "hi\0\0"s, 0}},
        {"length is no number", sized + "x2\r\n\r\nhi", {1, 200, "", 1}},
        {"length without the blank", ok + "Content-Length:1\r\n\r\nhi", {1, 200, "hi", 0}},
        {"length negative", sized + "-1\r\n\r\nhi", {0, 200, "none", 1}},
        {"length above the limit", sized + "1000001\r\n\r\nhi", {0, 200, "none", 1}},
        {"length beyond 32 bits", sized + "4294967298\r\n\r\nhi", {0, 200, "none", 1}},
        {"length beyond 64 bits", sized + "99999999999999999999\r\n\r\n", {0, 200, "none", 1}},
        {"length hidden by a zero",
         ok + "A: \0\r\nContent-Length: 1\r\n\r\nhi"s,
         {1, 200, "hi", 0}},
        // The search for the end takes a length of up to 29 characters, the body one of 254.
        {"length of 29", sized + zeros + "2\r\n\r\nhiho", {1, 200, "hi", 1}},
        {"length of 30", sized + "0" + zeros + "2\r\n\r\nhiho", {1, 200, "hi", 0}},
        {"length of 254", sized + more + zeros + "2\r\n\r\nhiho", {1, 200, "hi", 0}},
        {"length of 255", sized + "0" + more + zeros + "2\r\n\r\nhiho", {1, 200, "hiho", 0}},
    };
    for (const auto& [name, answer, expected] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(receive({answer}), expected);
    }
}

TEST(HttpResponse, DoesNotDependOnHowTheBytesArrive) {
    const std::pair<std::string, bool> cases[] = {
        // The answer, and whether it may not end early.
        {sized + "5\r\nA: b\r\n\r\nhe\r\nl", true},
        {"HTTP/1.1 200 OK\nContent-Length: 5\n\nhello", true},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\nhello", true},
        {"HTTP/1.1 200 OK\n\rContent-Length: 5\n\r\n\rhello", true},
        {"HTTP/1.1 200 OK\rContent-Length: 5\r\rhello", true},
        {"HTTP/1.1 100 Continue\r\n\r\n" + sized + "5\r\n\r\nhello", true},
        {ok + "\r\n\r\nhello", false},
    };
    for (const auto& [answer, whole] : cases) {
        const Outcome expected = receive({answer});
        ASSERT_EQ(std::get<0>(expected), 1);
        std::vector<std::string> bytes;
        for (std::size_t at = 0; at < answer.size(); ++at) {
            const std::string begin = answer.substr(0, at);
            SCOPED_TRACE(testing::PrintToString(begin));
            EXPECT_EQ(receive({begin, answer.substr(at)}), expected);
            EXPECT_TRUE(!whole || std::get<0>(receive({begin})) == 0);
            bytes.push_back(answer.substr(at, 1));
        }
        EXPECT_EQ(receive(bytes), expected);
    }
}

TEST(HttpResponse, DescribesTheStatus) {
    const std::string longest = "HTTP/1.1 404 " + std::string(115, 'x');
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"http/1.1 200 fine", "HTTP/1.1 200 fine", ""},
        {"HTTP/1.1 404 Not Found", "HTTP/1.1 404 Not Found", "HTTP Error :  Not Found"},
        {"HTTP/1.1 301 Moved", "HTTP/1.1 301 Moved", "HTTP Error :  Moved"},
        {"HTTP/1.1 404", "HTTP/1.1 404", "HTTP Error : "},
        {"HTTP/1.1 404 ", "HTTP/1.1 404 ", "HTTP Error :  "},
        {longest, longest, "HTTP Error :  " + std::string(113, 'x')},
        {longest + "x", "HTTP", "HTTP Error : "},
    };
    for (const auto& [line, statusLine, errorText] : cases) {
        HttpClient http(nullptr);
        char value[8];
        EXPECT_EQ(http.GetHeaderParam("A: ", value, sizeof value), 0);
        receive(http, {line + "\r\nA: 1234567\r\n\r\nC: body\r\n"});
        EXPECT_EQ(http.statusLine, statusLine);
        EXPECT_EQ(http.errorText, errorText);
        EXPECT_EQ(std::string(http.responseHeaders), line + "\r\nA: 1234567\r\n\r");
        EXPECT_EQ(http.GetHeaderParam("C: ", value, sizeof value), 0);
        EXPECT_EQ(http.GetHeaderParam("a: ", value, sizeof value), 1);
        EXPECT_STREQ(value, "1234567");
    }
}

TEST(HttpResponse, FindsTheBlankLine) {
    const std::pair<std::string, unsigned int> cases[] = {
        {"", 0},          {"a", 0},          {"a\r\n", 0},           {"a\r\n\r\nb", 5},
        {"a\n\nb", 3},    {"a\r\n\nb", 4},   {"a\n\r\nb", 4},        {"a\r\rb", 3},
        {"a\r\n\r", 4},   {"a\n\r\n\rb", 5}, {"\r\n\r\n", 4},        {"\n\r", 0},
        {"a\nb\r\nc", 0}, {"a\r\n \r\n", 0}, {"a\nb\r\n\nc\n\n", 6},
    };
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        std::vector<char> exact(text.begin(), text.end());
        unsigned int end = 77;
        const auto length = static_cast<unsigned int>(exact.size());
        const char* const behind = HttpClient::findCrLfCrLf(exact.data(), length, &end);
        EXPECT_EQ(end, expected);
        EXPECT_EQ(behind, expected == 0 ? nullptr : exact.data() + expected);
    }
}

TEST(HttpResponse, FindsHeaderLines) {
    // A line's end may be missing; a value that doesn't fit ends the search.
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {"x\rA: 1\r", "A: ", "1"},   {"x\r\nA: 1", "A: ", nullptr},
        {" A: 1\n", "A: ", nullptr}, {"A: 1\nA: 2\n", "a: ", "1"},
        {"A: 123\n", "A: ", "123"},  {"A: 1234\nA: 1\n", "A: ", nullptr},
        {"A\n", "A\n: ", nullptr},   {"\n", "", ""},
        {"", "", nullptr},           {"B:\r\n1", "B: ", nullptr},
    };
    for (const auto& [text, name, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        char value[4] = "-";
        const std::vector<char> exact(text.begin(), text.end());
        const auto length = static_cast<unsigned int>(exact.size());
        EXPECT_EQ(HttpClient::findHeaderStr(exact.data(), length, name, value, sizeof value),
                  expected != nullptr);
        EXPECT_STREQ(value, expected != nullptr ? expected : "-");
        EXPECT_EQ(HttpClient::findHeaderStr(nullptr, length, name, value, sizeof value), 0);
        EXPECT_EQ(HttpClient::findHeaderStr(exact.data(), length, name, value, 0), 0);
    }
}

TEST(HttpConnect, TellsAFailureAndLeaksNothing) {
    TcpClient tcp;
    ScriptedServer server({{readToEnd()}, {readToEnd()}});
    {
        HttpClient http(&tcp);
        EXPECT_EQ(http.Connect(nullptr, 80, 0), 0);
        EXPECT_STREQ(http.errorText, "TCP Connect failed");
        http.send(1, "/");
        EXPECT_STREQ(http.errorText, "");
        EXPECT_EQ(http.Connect("127.0.0.1", refusingPort(), 0), 0);
        EXPECT_STREQ(http.errorText, "TCP Connect failed");
        ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 1), 1);
        EXPECT_EQ(tcp.ssl, 1);
        strcpy(http.proxyHost, "127.0.0.1");
        http.proxyPort = server.port();
        ASSERT_EQ(http.Connect(std::string(300, 'h').c_str(), 80, 1), 1); // closes the first
        EXPECT_EQ(tcp.ssl, 1);
        EXPECT_EQ(http.host, std::string(127, 'h'));
    }
    EXPECT_EQ(static_cast<int>(tcp.sock), -1); // a borrowed transport is only disconnected
    EXPECT_EQ(server.wait(), "");
}

} // namespace
