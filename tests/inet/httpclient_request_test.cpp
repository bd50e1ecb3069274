#include "httpclient.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>

#include "http_peer.h"
#include "scripted_server.h"

namespace {

using namespace support;

std::string bodyOf(const HttpClient& http) {
    return std::string(http.requestBody, http.requestBodyLength);
}

unsigned int capacityOf(const HttpClient& http) {
    return http.requestBodyCapacity;
}

unsigned int addBinary(HttpClient& http, const std::string& bytes) {
    return http.AddPostValueBinary(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<unsigned int>(bytes.size()));
}

std::string partHead(const HttpClient& http, const char* name) {
    return std::string("--") + http.boundary + "\r\nContent-Disposition: form-data; name=\"" +
           name + "\"\r\n\r\n";
}

TEST(HttpForm, EncodesTexts) {
    struct Case {
        std::string text;
        unsigned int lineLen;
        const char* expected;
    };
    const Case cases[] = {
        {"", 0, ""},
        {"a b&c", 0, "a+b%26c"},
        {"AZaz09*-.@_", 0, "AZaz09*-.@_"},
        {"/:`{~\x01\x7F\x80\xFF", 0, "%2F%3A%60%7B%7E%01%7F%80%FF"},
        {"abcdef", 2, "abc%0D%0Ade%0D%0Af"},
        {"&& &", 1, "%26%26%0D%0A+%0D%0A%26%0D%0A"},
        {"ab", 2, "ab"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        char* const encoded = HttpClient::strToHttp(c.text.c_str(), c.lineLen);
        EXPECT_STREQ(encoded, c.expected);
        free(encoded);
    }
    char* const worst = HttpClient::strToHttp(std::string(1000, '&').c_str(), 1);
    EXPECT_EQ(strlen(worst), 3 * 1000 + 6 * 999u);
    free(worst);
    EXPECT_EQ(HttpClient::strToHttp(nullptr, 0), nullptr);
}

TEST(HttpForm, JoinsValuesAndGrows) {
    HttpClient http(nullptr);
    EXPECT_EQ(http.AddPostValueDirect("a", "1"), 3u);
    EXPECT_EQ(capacityOf(http), 24u);
    EXPECT_EQ(http.AddPostValue("c d", "&23", 0), 13u); // needs 24
    EXPECT_EQ(capacityOf(http), 24u);
    EXPECT_EQ(http.AddPostValueDirect("", ""), 15u); // needs 23
    EXPECT_EQ(capacityOf(http), 24u);
    EXPECT_EQ(http.AddPostValueDirect("", ""), 17u); // needs 25
    EXPECT_EQ(capacityOf(http), 24u + 2 * 25);
    EXPECT_EQ(http.AddPostValueDirect(nullptr, "x"), 17u);
    EXPECT_EQ(http.AddPostValue("x", nullptr, 0), 17u);
    EXPECT_EQ(bodyOf(http), "a=1&c+d=%2623&=&=");
}

TEST(HttpForm, TakesRawBytes) {
    HttpClient http(nullptr);
    EXPECT_EQ(addBinary(http, "raw"), 3u);
    EXPECT_EQ(capacityOf(http), 13u);
    EXPECT_EQ(addBinary(http, std::string("\0x\0", 3)), 6u);
    EXPECT_EQ(capacityOf(http), 13u + 16);
    EXPECT_EQ(addBinary(http, ""), 6u);
    EXPECT_EQ(http.AddPostValueBinary(nullptr, 4), 6u);
    EXPECT_EQ(bodyOf(http), std::string("raw\0x\0", 6));
    EXPECT_EQ(http.requestBody[6], '\0');
    // A form value goes by the text, which ends at the first zero byte.
    EXPECT_EQ(http.AddPostValueDirect("b", "2"), 7u);
    EXPECT_EQ(bodyOf(http), "raw&b=2");
    const unsigned char byte = 0;
    EXPECT_EQ(http.AddPostValueBinary(&byte, UINT32_MAX), 0u); // more than a body may have
    EXPECT_EQ(http.AddPostValueDirect("c", "3"), 3u);
    EXPECT_EQ(bodyOf(http), "c=3");
}

TEST(HttpForm, BuildsParts) {
    HttpClient http(nullptr);
    http.SetMultipartFormData();
    std::string expected = partHead(http, "n&") + "Gr\xC3\xBCn\r\n";
    EXPECT_EQ(http.AddPostValue("n&", "Gr&#252;n", 1), expected.size());
    EXPECT_EQ(capacityOf(http), 40u + 2 * (2 + 2 * 9 + 66));
    expected += partHead(http, "r") + "Gr&#252;n\r\n";
    EXPECT_EQ(http.AddPostValueDirect("r", "Gr&#252;n"), expected.size());
    EXPECT_EQ(http.AddPostValueDirect("r", nullptr), expected.size());
    EXPECT_EQ(bodyOf(http), expected);
}

// The converted value is limited to twice its length and 9, and a byte above 0x7F takes six.
TEST(HttpForm, CutsConvertedValues) {
    const std::string six = "\xFD\xBF\xBF\xBF\xBF\xA4";
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"\xE4\xE4", six + six},
        {"\xE4\xE4\xE4", (six + six).substr(0, 11)}, // the third does not fit
        {"\xE4\xE4\xE4"
         "abc",
         six + six + six + "abc"}, // 21 fit
        {"\xE4\xE4\xE4"
         "ab",
         six + six + six + "a"}, // 19 fit
    };
    for (const auto& [value, expected] : cases) {
        HttpClient http(nullptr);
        http.AddPostValueMultiPart("n", value.c_str(), 0);
        EXPECT_EQ(bodyOf(http), partHead(http, "n") + expected + "\r\n");
    }
}

// What the client sends over a connection to "tcphost", port 8080, after some preparation.
std::string requestOf(unsigned int method, const char* path,
                      const std::function<void(HttpClient&)>& prepare) {
    HttpClient http(nullptr);
    HttpPeer peer(http);
    strcpy(http.tcp->hostName, "tcphost");
    http.tcp->port = 8080;
    prepare(http);
    EXPECT_EQ(http.send(method, path), 1);
    return peer.received();
}

TEST(HttpRequest, IsWritten) {
    constexpr unsigned int get = 1;
    constexpr unsigned int post = 2;
    const auto plain = [](HttpClient&) {};
    const auto port80 = [](HttpClient& http) { http.tcp->port = 80; };
    const auto proxy = [](HttpClient& http) {
        strcpy(http.proxyHost, "proxy");
        strcpy(http.host, "server");
        http.port = 81;
    };
    const auto proxy80 = [&](HttpClient& http) {
        proxy(http);
        http.port = 80;
    };
    const auto all = [](HttpClient& http) {
        http.AddHeaderStr("B: 2");
        http.userAgent = strdup("agent");
        http.contentType = strdup("type");
        http.AddHeaderStr("hOST: name");
        http.AddHeaderStr("A: 1");
        http.AddPostValueDirect("a", "1");
    };
    const std::string accept = " HTTP/1.0\r\nAccept: */*\r\n";
    const std::string lines =
        "User-Agent: agent\r\nHost: name\r\nB: 2\r\nA: 1\r\nContent-Type: type\r\n";
    const std::string port = "Host: tcphost:8080\r\n\r\n";
    EXPECT_EQ(requestOf(get, "/a", plain), "GET /a" + accept + port);
    EXPECT_EQ(requestOf(get, "//a", plain), "GET //a" + accept + port);
    EXPECT_EQ(requestOf(get, nullptr, plain), "GET /" + accept + port);
    EXPECT_EQ(requestOf(get, "a", port80), "GET /a" + accept + "Host: tcphost\r\n\r\n");
    EXPECT_EQ(requestOf(get, "/a", proxy),
              "GET http://server:81/a" + accept + "Host: server:81\r\n\r\n");
    EXPECT_EQ(requestOf(post, "a", proxy80),
              "POST http://server/a" + accept + "Host: server\r\nContent-length: 0\r\n\r\n");
    EXPECT_EQ(requestOf(get, "/", all), "GET /" + accept + lines + "\r\n");
    EXPECT_EQ(requestOf(post, "/", all),
              "POST /" + accept + lines + "Content-length: 3\r\n\r\na=1");
    const std::string agent(9000, 'a');
    EXPECT_EQ(
        requestOf(get, "/", [&](HttpClient& http) { http.userAgent = strdup(agent.c_str()); }),
        "GET /" + accept + "User-Agent: " + agent + "\r\n" + port);
    for (const std::size_t length : {191u, 192u, 1000u}) { // the line is cut at 200 characters
        const std::string line = "Host: " + std::string(length, 'h');
        EXPECT_EQ(requestOf(get, "/", [&](HttpClient& http) { http.AddHeaderStr(line.c_str()); }),
                  "GET /" + accept + line.substr(0, 6 + 191) + "\r\n\r\n");
    }
}

TEST(HttpRequest, TakesTheHostFromAHeaderLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"Host: x", "x"}, {"host: y z", "y z"}, {"Host:xyz", "yz"},
        {"Host:", ""},    {"Host", nullptr},
    };
    for (const auto& [line, host] : cases) {
        SCOPED_TRACE(line);
        HttpClient http(nullptr);
        http.AddHeaderStr("Host: before");
        http.AddHeaderStr(nullptr);
        http.AddHeaderStr(line);
        EXPECT_STREQ(http.hostHeader, host == nullptr ? "before" : host);
        EXPECT_STREQ(http.extraHeaders, host == nullptr ? "Host\r\n" : nullptr);
    }
}

TEST(HttpRequest, AuthenticatesItsUser) {
    const auto headerFor = [](const char* user, const char* password) {
        HttpClient http(nullptr);
        http.SetBasicAuthentication(user, password);
        return std::string(http.extraHeaders == nullptr ? "" : http.extraHeaders);
    };
    const std::string begin = "Authorization: Basic ";
    // The example of RFC 7617, section 2.
    EXPECT_EQ(headerFor("Aladdin", "open sesame"), begin + "QWxhZGRpbjpvcGVuIHNlc2FtZQ==\r\n");
    EXPECT_EQ(headerFor("u", nullptr), begin + "dTo=\r\n");
    EXPECT_EQ(headerFor("", "p"), "");
    EXPECT_EQ(headerFor(nullptr, "p"), "");
    const std::string user(100, 'u');
    EXPECT_EQ(headerFor(user.c_str(), std::string(89, 'p').c_str()).size(), begin.size() + 256 + 2);
    EXPECT_EQ(headerFor(user.c_str(), std::string(90, 'p').c_str()), "");
    EXPECT_EQ(headerFor(user.c_str(), std::string(5000, 'p').c_str()), "");
}

TEST(HttpRequest, RenewsTheBoundaryWithTheTime) {
    const std::time_t before = time(nullptr);
    HttpClient http(nullptr);
    const long constructed = atol(http.boundary);
    strcpy(http.boundary, "old");
    http.SetMultipartFormData();
    http.clear();
    EXPECT_EQ(http.multipart, 0);
    for (const long boundary : {constructed, atol(http.boundary)}) {
        EXPECT_GE(boundary, before);
        EXPECT_LE(boundary, time(nullptr));
    }
}

const char okAnswer[] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi";
const char shortAnswer[] = "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nhi";

TEST(HttpExchange, PostsPartsWithOneBoundary) {
    ScriptedServer server({{readRequest(), sendBytes(okAnswer)}});
    HttpClient http(nullptr);
    ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
    strcpy(http.boundary, "1234567890");
    http.SetMultipartFormData();
    http.AddPostValue("n", "v", 0);
    addBinary(http, std::string("\0x", 2));
    EXPECT_EQ(http.Post("/p"), 1);
    EXPECT_EQ(
        server.received(0),
        "POST /p HTTP/1.0\r\nAccept: */*\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
            "\r\nContent-Type: multipart/form-data; boundary=1234567890\r\n"
            "Content-length: 80\r\n\r\n"
            "--1234567890\r\nContent-Disposition: form-data; name=\"n\"\r\n\r\nv\r\n" +
            std::string("\0x", 2) + "--1234567890--`\r\n");
    EXPECT_STRNE(http.boundary, "1234567890");
    EXPECT_EQ(http.multipart, 0);
    EXPECT_EQ(static_cast<char*>(http.requestBody), nullptr);
    EXPECT_EQ(capacityOf(http), 0u);
    EXPECT_EQ(static_cast<char*>(http.contentType), nullptr);
}

// How often an exchange is repeated depends on what came and on whether the connection stands.
TEST(HttpExchange, IsRepeatedOverANewConnection) {
    const Script silent = {readRequest()};
    const Script cut = {readRequest(), sendBytes(shortAnswer)};
    const Script good = {readRequest(), sendBytes(okAnswer)};
    struct Case {
        const char* name;
        const char* postType;        // content type of a POST; null: a GET
        std::vector<Script> scripts; // all of them are to be played
        int result;
    };
    const char form[] = "application/x-www-form-urlencoded";
    const Case cases[] = {
        {"get, third time answered", nullptr, {silent, silent, good}, 1},
        {"get, cut and answered", nullptr, {cut, good}, 1},
        {"get, cut twice", nullptr, {cut, cut}, 0},
        {"get, then nobody listens", nullptr, {silent}, 0},
        {"post, second time answered", form, {silent, good}, 1},
        {"post, never answered", "own/type", {silent, silent}, 0},
        {"post, cut", form, {cut}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedServer server(c.scripts);
        HttpClient http(nullptr);
        ASSERT_EQ(http.Connect("127.0.0.1", server.port(), 0), 1);
        http.AddHeaderStr("Host: h");
        http.AddPostValueDirect("n", "v");
        std::string request = "GET /x HTTP/1.0\r\nAccept: */*\r\nHost: h\r\n\r\n";
        if (c.postType != nullptr) {
            http.contentType = c.postType == form ? nullptr : strdup(c.postType);
            request = std::string("POST /x HTTP/1.0\r\nAccept: */*\r\nHost: h\r\nContent-Type: ") +
                      c.postType + "\r\nContent-length: 3\r\n\r\nn=v";
        }
        EXPECT_EQ(c.postType != nullptr ? http.Post("/x") : http.Get("/x"), c.result);
        EXPECT_EQ(server.wait(), "");
        EXPECT_EQ(static_cast<char*>(http.hostHeader), nullptr);
        for (std::size_t i = 0; i < c.scripts.size(); ++i) {
            EXPECT_EQ(server.received(i), request);
        }
    }
}

} // namespace
