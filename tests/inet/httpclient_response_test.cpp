#include "httpclient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "environment.h"
#include "http_peer.h"
#include "loopback.h"
#include "real_servers.h"
#include "scripted_server.h"

namespace {

using namespace support;
using Pieces = std::vector<std::string>;

// What an exchange left in the members. The packed ones are copied, never referred to.
struct Outcome {
    int result;
    unsigned int status;
    std::string body;
};

bool operator==(const Outcome& a, const Outcome& b) {
    return a.result == b.result && a.status == b.status && a.body == b.body;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "{" << outcome.result << ", " << outcome.status << ", "
         << testing::PrintToString(outcome.body) << "}";
}

Outcome outcome(const HttpClient& http, int result) {
    if (http.body == nullptr) {
        return {result, http.statusCode, "none"};
    }
    EXPECT_EQ(http.body[http.bodyLength], '\0');
    return {result, http.statusCode, std::string(http.body, http.bodyLength)};
}

// Lets the client receive the pieces, one by one, and then the end of the connection.
Outcome receive(HttpClient& http, const Pieces& pieces) {
    HttpPeer peer(http);
    for (const std::string& piece : pieces) {
        peer.send(piece);
    }
    peer.close();
    return outcome(http, http.receiveWait());
}

Outcome receive(const Pieces& pieces) {
    HttpClient http(nullptr);
    return receive(http, pieces);
}

const char okLine[] = "HTTP/1.1 200 OK\r\n";

TEST(HttpResponse, IsTakenApart) {
    const std::string ok = okLine;
    const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";
    const Outcome nothing = {0, 0, "none"};
    struct Case {
        const char* name;
        std::string answer;
        Outcome expected;
    };
    const Case cases[] = {
        {"length", ok + "Content-Length: 2\r\n\r\nhi", {1, 200, "hi"}},
        {"name in any case", ok + "CONTENT-length: 2\r\n\r\nhi", {1, 200, "hi"}},
        {"no length: to the end", ok + "\r\nhi\r\n\r\nho", {1, 200, "hi\r\n\r\nho"}},
        {"protocol in any case", "http/1.0 200 OK\r\n\r\nhi", {1, 200, "hi"}},
        {"zero bytes in the body", ok + std::string("\r\n\0a\0", 5), {1, 200, {"\0a\0", 3}}},
        {"other status", "HTTP/1.0 404 X\r\n\r\nhi", {1, 404, "hi"}},
        {"status is no number", "HTTP/1.0 abc X\r\n\r\nhi", {1, 0, "hi"}},
        {"status of one digit", "HTTP/1.0 7\r\n\r\nhi", {1, 7, "hi"}},
        {"interim response", interim + ok + "Content-Length: 2\r\n\r\nhi", {1, 200, "hi"}},
        {"only one is skipped", interim + interim + ok + "\r\n", {1, 100, ok + "\r\n"}},
        {"nothing behind the interim", interim, nothing},
        {"no response behind the interim", interim + "HTTP/2 200 OK\r\n\r\nhi", nothing},
        {"interim without its end", "HTTP/1.1 100 Continue\r\n", {0, 100, "none"}},
        {"blank line CR CR", "HTTP/1.0 200 OK\r\rhi", {1, 200, "hi"}},
        {"length and nothing behind CR CR", ok + "Content-Length: 0\r\r", {1, 200, ""}},
        {"no blank line", "HTTP/1.0 200 OK\r\nA: b\r\n", {0, 200, "none"}},
        {"no body, closed by intent", ok + "connection: Close\r\n\r\n", {1, 200, ""}},
        {"no body, no intent", ok + "\r\n", {0, 200, ""}},
        {"no body, kept alive", ok + "Connection: keep-alive\r\n\r\n", {0, 200, ""}},
        {"length 0", ok + "Content-Length: 0\r\n\r\n", {1, 200, ""}},
        {"length 0 and surplus", ok + "Content-Length: 0\r\n\r\nhi", {1, 200, ""}},
        {"surplus is cut", ok + "Content-Length: 2\r\n\r\nhiho", {1, 200, "hi"}},
        {"body cut short", ok + "Content-Length: 4\r\n\r\nhi", {0, 200, {"hi\0\0", 4}}},
        {"length ends at a letter", ok + "Content-Length: 2x\r\n\r\nhi", {1, 200, "hi"}},
        {"length is no number", ok + "Content-Length: x\r\n\r\nhi", {1, 200, ""}},
        {"length without the blank is none", ok + "Content-Length:1\r\n\r\nhi", {1, 200, "hi"}},
        {"length negative", ok + "Content-Length: -1\r\n\r\nhi", {0, 200, "none"}},
        {"length above the limit", ok + "Content-Length: 1000001\r\n\r\nhi", {0, 200, "none"}},
        {"length beyond 32 bits", ok + "Content-Length: 4294967298\r\n\r\nhi", {0, 200, "none"}},
        {"length beyond 64 bits",
         ok + "Content-Length: 99999999999999999999\r\n\r\nhi",
         {0, 200, "none"}},
        {"length hidden behind a zero byte",
         ok + std::string("A: \0\r\n", 6) + "Content-Length: 1\r\n\r\nhi",
         {1, 200, "hi"}},
        {"nothing", "", nothing},
        {"other protocol version", "HTTP/2 200 OK\r\n\r\nhi", nothing},
        {"other protocol", "ICY 200 OK\r\n\r\nhi", nothing},
        {"leading blank", " HTTP/1.0 200 OK\r\n\r\nhi", nothing},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(receive({c.answer}), c.expected);
    }
}

TEST(HttpResponse, DoesNotDependOnHowTheBytesArrive) {
    const std::string answers[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nA: b\r\n\r\nhe\r\nl",
        "HTTP/1.1 200 OK\nContent-Length: 5\n\nhello",
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\nhello",
        "HTTP/1.1 200 OK\n\rContent-Length: 5\n\r\n\rhello",
        "HTTP/1.1 200 OK\rContent-Length: 5\r\rhello",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
        "HTTP/1.0 200 OK\r\n\r\n\r\nhello",
    };
    for (const std::string& answer : answers) {
        HttpClient http(nullptr);
        const Outcome whole = receive(http, {answer});
        // Whether the client reads on behind a complete answer is the same as well.
        const int stands = http.tcp->connected;
        ASSERT_EQ(whole.result, 1);
        Pieces bytes;
        for (std::size_t at = 0; at < answer.size(); ++at) {
            SCOPED_TRACE(testing::PrintToString(answer.substr(0, at)));
            EXPECT_EQ(receive(http, {answer.substr(0, at), answer.substr(at)}), whole);
            EXPECT_EQ(http.tcp->connected, stands);
            bytes.push_back(answer.substr(at, 1));
        }
        EXPECT_EQ(receive(http, bytes), whole);
        EXPECT_EQ(http.tcp->connected, stands);
    }
}

TEST(HttpResponse, IsRefusedWhenItEndsEarly) {
    const std::string answer = "HTTP/1.1 200 OK\r\nServer: x\r\nContent-Length: 5\r\n\r\nhello";
    for (std::size_t length = 0; length < answer.size(); ++length) {
        SCOPED_TRACE(testing::PrintToString(answer.substr(0, length)));
        EXPECT_EQ(receive({answer.substr(0, length)}).result, 0);
    }
    EXPECT_EQ(receive({answer}).result, 1);
}

// The search for the end goes by a value of up to 29 characters, the body's length by up to 254.
TEST(HttpResponse, TakesLengthsOfLimitedText) {
    struct Case {
        std::size_t characters;
        bool readsOn;
        const char* body;
    };
    const Case cases[] = {
        {29, false, "hi"}, {30, true, "hi"}, {254, true, "hi"}, {255, true, "hiho"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.characters);
        const std::string length = std::string(c.characters - 1, '0') + "2";
        HttpClient http(nullptr);
        EXPECT_EQ(receive(http, {okLine + ("Content-Length: " + length) + "\r\n\r\nhiho"}),
                  (Outcome{1, 200, c.body}));
        EXPECT_EQ(http.tcp->connected, c.readsOn ? 0 : 1);
    }
}

TEST(HttpResponse, DescribesTheStatus) {
    const std::string longest = "HTTP/1.1 404 " + std::string(115, 'x');
    struct Case {
        std::string line;
        std::string statusLine;
        std::string errorText;
    };
    const Case cases[] = {
        {"HTTP/1.1 200 OK", "HTTP/1.1 200 OK", ""},
        {"http/1.1 200 fine", "HTTP/1.1 200 fine", ""},
        {"HTTP/1.1 404 Not Found", "HTTP/1.1 404 Not Found", "HTTP Error :  Not Found"},
        {"HTTP/1.1 404", "HTTP/1.1 404", "HTTP Error : "},
        {"HTTP/1.1 404 ", "HTTP/1.1 404 ", "HTTP Error :  "},
        {longest, longest, "HTTP Error :  " + std::string(113, 'x')},
        {longest + "x", "HTTP", "HTTP Error : "},
    };
    HttpClient http(nullptr);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        http.errorText[0] = '\0';
        receive(http, {c.line + "\r\n\r\nhi"});
        EXPECT_EQ(http.statusLine, c.statusLine);
        EXPECT_EQ(http.errorText, c.errorText);
    }
}

TEST(HttpResponse, GivesItsHeaders) {
    HttpClient http(nullptr);
    char value[8] = "before";
    EXPECT_EQ(http.GetHeaderParam("A: ", value, sizeof value), 0);
    receive(http, {"HTTP/1.1 200 OK\r\nA: 1234567\r\nLong: 12345678\r\nB:\r\n\r\nC: body\r\n"});
    EXPECT_STREQ(http.responseHeaders,
                 "HTTP/1.1 200 OK\r\nA: 1234567\r\nLong: 12345678\r\nB:\r\n\r");
    EXPECT_EQ(http.GetHeaderParam("Long: ", value, sizeof value), 0);
    EXPECT_EQ(http.GetHeaderParam("C: ", value, sizeof value), 0);
    EXPECT_EQ(http.GetHeaderParam("B: ", value, sizeof value), 0); // not across the line's end
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(http.GetHeaderParam("a: ", value, sizeof value), 1);
    EXPECT_STREQ(value, "1234567");
    EXPECT_EQ(http.GetHeaderParam("B:", value, sizeof value), 1);
    EXPECT_STREQ(value, "");
    // A response that fails leaves no body of the one before.
    EXPECT_EQ(receive(http, {"HTTP/1.1 200 OK\r\nB: 1\r\n"}), (Outcome{0, 200, "none"}));
}

TEST(HttpResponse, FindsTheBlankLine) {
    struct Case {
        std::string text;
        unsigned int end; // 0: none
    };
    const Case cases[] = {
        {"", 0},          {"a", 0},          {"a\r\n", 0},           {"a\r\n\r\nb", 5},
        {"a\n\nb", 3},    {"a\r\n\nb", 4},   {"a\n\r\nb", 4},        {"a\r\rb", 3},
        {"a\r\n\r", 4},   {"a\n\r\n\rb", 5}, {"\r\n\r\n", 4},        {"\n\r", 0},
        {"a\nb\r\nc", 0}, {"a\r\n \r\n", 0}, {"a\nb\r\n\nc\n\n", 6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text));
        const std::size_t size = c.text.size();
        const std::unique_ptr<char[]> exact(new char[size == 0 ? 1 : size]);
        memcpy(exact.get(), c.text.data(), size);
        unsigned int end = 77;
        const char* const behind =
            HttpClient::findCrLfCrLf(exact.get(), static_cast<unsigned int>(size), &end);
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(behind, c.end == 0 ? nullptr : exact.get() + c.end);
    }
}

TEST(HttpResponse, FindsHeaderLines) {
    struct Case {
        const char* name;
        std::string text;
        const char* header;
        const char* value; // null: not found
    };
    const Case cases[] = {
        {"first line", "A: 1\n", "A: ", "1"},
        {"behind CR", "x\rA: 1\r", "A: ", "1"},
        {"last line without its end", "x\r\nA: 1", "A: ", nullptr},
        {"only at the line's start", " A: 1\n", "A: ", nullptr},
        {"first of two", "A: 1\nA: 2\n", "a: ", "1"},
        {"value of 3 fits", "A: 123\n", "A: ", "123"},
        {"value of 4 does not, and ends the search", "A: 1234\nA: 1\n", "A: ", nullptr},
        {"line shorter than the name", "A\n: 1\n", "A\n: ", nullptr},
        {"text shorter than the name", "A\n", "A\n: ", nullptr},
        {"empty line, empty name", "\n", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        char value[4] = "-";
        const auto length = static_cast<unsigned int>(c.text.size());
        const std::unique_ptr<char[]> exact(new char[length]);
        memcpy(exact.get(), c.text.data(), length);
        EXPECT_EQ(HttpClient::findHeaderStr(exact.get(), length, c.header, value, sizeof value),
                  c.value != nullptr);
        EXPECT_STREQ(value, c.value != nullptr ? c.value : "-");
    }
    char value[4];
    EXPECT_EQ(HttpClient::findHeaderStr(nullptr, 4, "", value, sizeof value), 0);
    EXPECT_EQ(HttpClient::findHeaderStr("\n", 0, "", value, sizeof value), 0);
    EXPECT_EQ(HttpClient::findHeaderStr("\n", 1, "", value, 0), 0);
}

TEST(HttpResponse, MayHaveAMillionBytes) {
    struct Case {
        const char* name;
        std::string header;
        std::size_t bodySize;
        int result;
    };
    const std::string announced = okLine + std::string("Content-Length: 1000000\r\n\r\n");
    const std::string open = okLine + std::string("\r\n"); // header and body count
    const Case cases[] = {
        {"announced", announced, 1000000, 1},
        {"to the end", open, 1000000 - open.size(), 1},
        {"to the end, one more", open, 1000001 - open.size(), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string body = std::string(c.bodySize - 1, 'x') + "z";
        ScriptedServer server({{readRequest(), sendBytes(c.header + body)}});
        HttpClient http(nullptr);
        ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
        const Outcome got = outcome(http, http.Get("/"));
        EXPECT_EQ(got.result, c.result);
        EXPECT_TRUE(got.body == (c.result != 0 ? body : "none"));
    }
}

TEST(HttpResponse, EndsWithAStallOrAReset) {
    ScriptedServer server({
        {readRequest(), sendBytes("HTTP/1.1 200 OK\r\n\r\nhi"), pauseUntilReleased()},
        {readRequest(), sendBytes("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nhi"), reset()},
    });
    HttpClient http(nullptr);
    http.tcp->timeout = 1;
    ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
    EXPECT_EQ(outcome(http, http.Get("/")), (Outcome{1, 200, "hi"}));
    EXPECT_EQ(static_cast<unsigned int>(http.tcp->lastError), 3u);
    server.release();
    ASSERT_EQ(http.connect(), 1);
    http.send(1, "/");
    // The reset may overtake the bytes in front of it.
    EXPECT_EQ(http.receiveWait(), 0);
    EXPECT_EQ(http.tcp->connected, 0);
    EXPECT_EQ(server.wait(), "");
}

TEST(HttpConnect, TellsAFailureAndLeaksNothing) {
    const std::size_t before = openDescriptors();
    {
        HttpClient http(nullptr);
        EXPECT_EQ(http.Connect(nullptr, 80, 0), 0);
        EXPECT_EQ(http.Connect("127.0.0.1", unusedPort(), 1), 0);
        EXPECT_STREQ(http.errorText, "TCP Connect failed");
        EXPECT_EQ(http.ssl, 1);
        http.send(1, "/");
        EXPECT_STREQ(http.errorText, "");

        ScriptedServer server({{readToEnd()}, {readToEnd()}});
        ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
        ASSERT_EQ(http.connect(), 1); // the first connection ends here
        http.tcp->Disconnect();
        EXPECT_EQ(server.wait(), "");
        const std::string tooLong(300, 'h');
        EXPECT_EQ(http.Connect(tooLong.c_str(), 80, 0), 0);
        EXPECT_EQ(http.host, std::string(127, 'h'));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(HttpConnect, LeavesABorrowedTransportDisconnected) {
    TcpClient tcp;
    {
        HttpClient http(&tcp);
        HttpPeer peer(http);
        EXPECT_EQ(http.ownsTransport, 0);
        EXPECT_EQ(tcp.connected, 1);
    }
    EXPECT_EQ(static_cast<int>(tcp.sock), -1);
}

TEST(HttpExchange, ReadsFromARealServer) {
    const std::string big(900 * 1024, 'b');
    Nginx nginx;
    nginx.addFile("big", big);
    nginx.addFile("toobig", std::string(1000001, 'b'));
    nginx.addServerLines("location = /moved { return 301 http://127.0.0.1/there; }");
    if (!nginx.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem());
    }
    HttpClient http(nullptr);
    const auto get = [&](const char* path) {
        EXPECT_EQ(http.Connect("127.0.0.1", nginx.port(), 0), 1);
        return outcome(http, http.Get(path));
    };
    EXPECT_TRUE(get("/big") == (Outcome{1, 200, big}));
    EXPECT_EQ(get("/toobig"), (Outcome{0, 200, "none"}));
    const Outcome missing = get("/missing");
    EXPECT_EQ(missing.result, 1);
    EXPECT_EQ(missing.status, 404u);
    EXPECT_STREQ(http.errorText, "HTTP Error :  Not Found");
    EXPECT_EQ(get("/moved").status, 301u);
    char value[64];
    EXPECT_EQ(http.GetHeaderParam("Location: ", value, sizeof value), 1);
    EXPECT_STREQ(value, "http://127.0.0.1/there");
}

} // namespace
