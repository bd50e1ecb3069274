#include "httpclient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>
#include <string>
#include <tuple>

#include "http_peer.h"
#include "scripted_server.h"

namespace {

using namespace support;
using namespace std::string_literals;

// The length that a call gave, and the capacity behind it.
using Size = std::pair<unsigned int, unsigned int>;

Size after(const HttpClient& http, unsigned int length) {
    const unsigned int capacity = http.requestBodyCapacity;
    return {length, capacity};
}

std::string partHead(const char* boundary, const char* name) {
    return "--"s + boundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n";
}

TEST(HttpForm, EncodesTexts) {
    const auto worst = std::regex_replace(std::string(999, '&'), std::regex("&"), "%26%0D%0A");
    const std::tuple<std::string, unsigned int, std::string> cases[] = {
        {"", 0, ""},
        {"a b&c", 0, "a+b%26c"},
        {"AZaz09*-.@_", 0, "AZaz09*-.@_"},
        {"/:`{~\x01\x7F\x80\xFF", 0, "%2F%3A%60%7B%7E%01%7F%80%FF"},
        {"abcdef", 2, "abc%0D%0Ade%0D%0Af"},
        {std::string(1000, '&'), 1, "%26" + worst},
    };
    for (const auto& [text, lineLen, expected] : cases) {
        char* const encoded = HttpClient::strToHttp(text.c_str(), lineLen);
        EXPECT_EQ(encoded, expected);
        free(encoded);
    }
}

TEST(HttpForm, JoinsValuesAndGrows) {
    HttpClient http(nullptr);
    EXPECT_EQ(after(http, http.AddPostValueDirect("a", "1")), Size(3, 24));
    EXPECT_EQ(after(http, http.AddPostValue("c d", "&23", 0)), Size(13, 24)); // needs 24
    EXPECT_EQ(after(http, http.AddPostValueDirect("", "")), Size(15, 24));    // needs 23
    EXPECT_EQ(after(http, http.AddPostValueDirect("", "")), Size(17, 24 + 2 * 25));
    EXPECT_EQ(http.AddPostValueDirect(nullptr, "x"), 17u);
    EXPECT_EQ(http.AddPostValue("x", nullptr, 0), 17u);
    EXPECT_STREQ(http.requestBody, "a=1&c+d=%2623&=&=");
}

TEST(HttpForm, TakesRawBytes) {
    HttpClient http(nullptr);
    const unsigned char raw[] = "raw\0x";
    EXPECT_EQ(after(http, http.AddPostValueBinary(raw, 3)), Size(3, 13));
    EXPECT_EQ(after(http, http.AddPostValueBinary(raw + 3, 3)), Size(6, 13 + 16));
    EXPECT_EQ(http.AddPostValueBinary(raw, 0), 6u);
    EXPECT_EQ(http.AddPostValueBinary(nullptr, 4), 6u);
    EXPECT_EQ(std::string(http.requestBody, 7), "raw\0x\0\0"s);
    // A form value goes by the text, which ends at the first zero byte.
    EXPECT_EQ(http.AddPostValueDirect("b", "2"), 7u);
    EXPECT_STREQ(http.requestBody, "raw&b=2");
    EXPECT_EQ(http.AddPostValueBinary(raw, ~0u), 0u); // more than a body may have
    EXPECT_EQ(http.AddPostValueDirect(nullptr, ""), 0u);
    EXPECT_EQ(http.AddPostValueDirect("c", "3"), 3u);
}

// The converted value is limited to twice its length and 9, and a byte above 0x7F takes six.
TEST(HttpForm, BuildsPartsAndCutsConvertedValues) {
    const std::string six = "\xFD\xBF\xBF\xBF\xBF\xA4", three = "\xE4\xE4\xE4";
    const std::pair<std::string, std::string> cases[] = {
        {"Gr&#252;n", "Gr\xC3\xBCn"},
        {"\xE4\xE4", six + six},
        {three, (six + six).substr(0, 11)},       // the third does not fit
        {three + "abc", six + six + six + "abc"}, // 21 fit
        {three + "ab", six + six + six + "a"},    // 19 fit
    };
    for (const auto& [value, converted] : cases) {
        HttpClient http(nullptr);
        http.SetMultipartFormData();
        std::string parts = partHead(http.boundary, "&") + converted + "\r\n";
        const Size size(parts.size(), 40 + 2 * (1 + 2 * value.size() + 66));
        EXPECT_EQ(after(http, http.AddPostValue("&", value.c_str(), 1)), size);
        parts += partHead(http.boundary, "r") + value + "\r\n";
        EXPECT_EQ(http.AddPostValueDirect("r", value.c_str()), parts.size());
        EXPECT_EQ(std::string(http.requestBody), parts);
    }
}

TEST(HttpRequest, IsWritten) {
    constexpr unsigned int get = 1, post = 2;
    const std::string agent(9000, 'a'), line = " HTTP/1.0\r\nAccept: */*\r\n", end = "\r\n\r\n";
    HttpClient http(nullptr);
    const int peer = connectPeer(*http.tcp);
    const auto sent = [&](unsigned int method, const char* path) {
        EXPECT_EQ(http.send(method, path), 1);
        return sentTo(peer);
    };
    strcpy(http.tcp->hostName, "tcphost");
    http.tcp->port = 8080;
    EXPECT_EQ(sent(get, "/a"), "GET /a" + line + "Host: tcphost:8080" + end);
    EXPECT_EQ(sent(3, "//a"), "GET //a" + line + "Host: tcphost:8080" + end);
    http.tcp->port = 80;
    EXPECT_EQ(sent(get, "a"), "GET /a" + line + "Host: tcphost" + end);
    strcpy(http.proxyHost, "proxy");
    strcpy(http.host, "server");
    http.port = 81;
    EXPECT_EQ(sent(get, "/a"), "GET http://server:81/a" + line + "Host: server:81" + end);
    http.port = 80;
    EXPECT_EQ(sent(post, nullptr),
              "POST http://server/" + line + "Host: server\r\nContent-length: 0" + end);
    http.proxyHost[0] = '\0';
    const std::string longest = "Host: " + std::string(191, 'h'); // a line has 200 characters
    const std::pair<std::string, std::string> hosts[] = {
        {longest, longest},         {longest + "h", longest}, {longest + agent, longest},
        {"host: y z", "Host: y z"}, {"Host:", "Host: "},      {"Host:xyz", "Host: yz"},
    };
    for (const auto& [given, host] : hosts) {
        http.AddHeaderStr(given.c_str());
        EXPECT_EQ(sent(get, "/"), "GET /" + line + host + end);
    }
    const std::string lines = "/" + line + "User-Agent: " + agent +
                              "\r\nHost: n\r\nHosts: 2\r\nA: 1\r\nContent-Type: type\r\n";
    http.AddHeaderStr("Hosts: 2");
    http.userAgent = strdup(agent.c_str());
    http.contentType = strdup("type");
    http.AddHeaderStr("hOST: n");
    http.AddHeaderStr("A: 1");
    http.AddHeaderStr(nullptr);
    http.AddPostValueDirect("a", "1");
    EXPECT_EQ(sent(get, "/"), "GET " + lines + "\r\n");
    EXPECT_EQ(sent(post, "/"), "POST " + lines + "Content-length: 3\r\n\r\na=1");
    close(peer);
}

TEST(HttpRequest, AuthenticatesItsUser) {
    const std::string begin = "Authorization: Basic ", user(100, 'u'), password(89, 'p');
    const auto headerFor = [](const char* name, const char* secret) {
        HttpClient http(nullptr);
        http.SetBasicAuthentication(name, secret);
        return std::string(http.extraHeaders == nullptr ? "" : http.extraHeaders);
    };
    // The example of RFC 7617, section 2.
    EXPECT_EQ(headerFor("Aladdin", "open sesame"), begin + "QWxhZGRpbjpvcGVuIHNlc2FtZQ==\r\n");
    EXPECT_EQ(headerFor("u", nullptr), begin + "dTo=\r\n");
    EXPECT_EQ(headerFor("", "p") + headerFor(nullptr, "p"), "");
    EXPECT_EQ(headerFor(user.c_str(), password.c_str()).size(), begin.size() + 256 + 2);
    EXPECT_EQ(headerFor(user.c_str(), (password + "p").c_str()), "");
}

TEST(HttpExchange, PostsPartsWithOneBoundary) {
    const unsigned char raw[] = {0, 'x'};
    const std::time_t before = time(nullptr);
    ScriptedServer server({{readRequest(), sendBytes("HTTP/1.0 200 OK\r\n\r\nhi")}});
    HttpClient http(nullptr);
    EXPECT_GE(atol(http.boundary), before);
    ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
    strcpy(http.boundary, "1234567890");
    http.contentType = strdup("own/type");
    http.AddHeaderStr("Host: h");
    http.SetMultipartFormData();
    http.AddPostValue("n", "v", 0);
    http.AddPostValueBinary(raw, sizeof raw);
    EXPECT_EQ(http.Post("/p"), 1);
    EXPECT_EQ(
        server.received(0),
        "POST /p HTTP/1.0\r\nAccept: */*\r\nHost: h\r\n"
        "Content-Type: multipart/form-data; boundary=1234567890\r\nContent-length: 80\r\n\r\n" +
            partHead("1234567890", "n") + "v\r\n\0x--1234567890--`\r\n"s);
    EXPECT_TRUE(atol(http.boundary) >= before && atol(http.boundary) <= time(nullptr)); // renewed
    EXPECT_TRUE(http.contentType == nullptr && http.hostHeader == nullptr && http.multipart == 0);
    EXPECT_TRUE(http.requestBody == nullptr && after(http, http.requestBodyLength) == Size(0, 0));
}

// How often an exchange is repeated depends on what came and on whether the connection stands.
TEST(HttpExchange, IsRepeatedOverANewConnection) {
    const auto giving = [](const std::string& answer, const Step& end) {
        return Script{readRequest(), sendBytes(answer), end};
    };
    const Step kept = readToEnd(), ends = pauseFor(std::chrono::milliseconds(0));
    const std::string ok = "HTTP/1.1 200 OK\r\n", sized = ok + "Content-Length: ";
    const std::string cut = sized + "3\r\n\r\nhi", odd = "HTTP/1.0 abc X\r\n", open = ok + "\r\n";
    const std::string all(1000000 - open.size(), 'x'), million(1000000, 'x');
    const Script silent = {readRequest()}, stalled = {readRequest(), kept};
    const Script good = giving(sized + "2\r\n\r\nhi", ends), cutOff = giving(cut, ends);
    const Script odd0 = giving(odd + "\r\nhi", ends);
    const Script odd1 = giving(odd + "Content-Length: 2\r\n\r\nhi", kept);
    // The content type of a POST.
    const char *const get = nullptr, *const own = "own/type";
    const char* const form = "application/x-www-form-urlencoded";
    // All of the scripts are to be played; then a connection may have been refused.
    const std::tuple<const char*, const char*, std::vector<Script>, int, bool> cases[] = {
        {"third time answered", get, {silent, silent, good}, 1, false},
        {"stalled and answered", get, {stalled, good}, 1, false},
        {"cut twice", get, {cutOff, cutOff}, 0, false},
        {"body stalled", get, {giving(cut, kept), good}, 1, false},
        {"reset", get, {giving(cut, reset()), good}, 1, false},
        {"then nobody listens", get, {silent}, 0, true},
        {"no length, stalled", get, {giving(open + "hi", kept)}, 1, false},
        {"no status twice", get, {odd0, odd0}, 1, false},
        {"no status, kept", get, {odd1}, 1, false},
        {"announced too long, kept", get, {giving(sized + "1000001\r\n\r\n", kept)}, 0, false},
        {"a million, kept", get, {giving(sized + "1000000\r\n\r\n" + million, kept)}, 1, false},
        {"a million in all", get, {giving(open + all, ends)}, 1, false},
        {"a million and one in all, kept", get, {giving(open + all + "x", kept)}, 0, false},
        {"no blank line, kept", get, {giving(ok + "xx" + all + "x", kept)}, 0, false},
        {"second time answered", form, {silent, good}, 1, false},
        {"never answered", own, {silent, silent}, 0, false},
        {"cut", form, {cutOff}, 0, false},
        {"no status, kept", form, {odd1}, 1, false},
    };
    const std::string value(200000, 'v'), common = " /x HTTP/1.0\r\nAccept: */*\r\nHost: h\r\n";
    for (const auto& [name, type, scripts, result, refused] : cases) {
        SCOPED_TRACE(name);
        ScriptedServer server(scripts);
        HttpClient http(nullptr);
        http.tcp->timeout = 1;
        ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
        http.AddHeaderStr("Host: h");
        http.AddPostValueDirect("n", value.c_str());
        http.contentType = type == own ? strdup(own) : nullptr;
        const std::string request = type == get
                                        ? "GET" + common + "\r\n"
                                        : "POST" + common + "Content-Type: " + type +
                                              "\r\nContent-length: 200002\r\n\r\nn=" + value;
        EXPECT_EQ(type == get ? http.Get("/x") : http.Post("/x"), result);
        EXPECT_EQ(http.errorText == "TCP Connect failed"s, refused);
        EXPECT_TRUE(http.hostHeader == nullptr && http.requestBody == nullptr);
        http.tcp->Disconnect();
        EXPECT_EQ(server.wait(), "");
        for (std::size_t i = 0; i < scripts.size(); ++i) {
            EXPECT_TRUE(server.received(i) == request);
        }
    }
}

} // namespace
