#include "qorupdate.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "environment.h"
#include "loopback.h"
#include "real_servers.h"
#include "scripted_server.h"

namespace {

using namespace support;

const std::string endMark = "\xFF\xFF", p(256, 'p'), i(256, 'i');

std::string number(unsigned int value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value); // little-endian
}

// An entry of the message: identifier and length in two bytes each, and the value.
std::string entry(unsigned int id, const std::string& value) {
    return number(id | static_cast<unsigned int>(value.size()) << 16) + value;
}

// The message, or "0" for none.
std::string check(int language, const std::string& url, const char* proxyHost = "",
                  unsigned int proxyPort = 0, unsigned int size = 4096) {
    std::string out(size, '#');
    const unsigned int length =
        CheckForUpdate(language, url.c_str(), proxyHost, proxyPort, out.data(), size);
    EXPECT_TRUE(length > 0 || out == std::string(size, '#'));
    return length == 0 ? "0" : out.substr(0, length);
}

class UpdateCheck : public testing::Test {
protected:
    void SetUp() override {
        const std::string description =
            "[Language 2]\nProductName=Product Two\nBuild=-5\n"
            "[Language 7]\nFilesize=123456\nUrlDownload=http://127.0.0.1/file\n"
            "UrlInfo=http://127.0.0.1/info\nServicepack=3\nBuild=4711\nVersion=0\n"
            "ProductName=Product Seven # the newest\nOther=1\n"
            "[Language 8]\nVersion=none\nUrlDownload=\nProductName=";
        nginx.addFile("update", description + p + "\nUrlInfo=" + i + "i\n");
        nginx.addFile("large", "#" + std::string(900000, 'x') + "\n" + description);
        nginx.addFile("huge", "#" + std::string(1000000, 'x') + "\n" + description);
        nginx.addServerLines("absolute_redirect on;\n"
                             "location = /moved { rewrite ^ /update permanent; }\n"
                             "location = /twice { rewrite ^ /moved permanent; }\n"
                             "location = /404 { return 404 \"[Language 7]\\nBuild=1\\n\"; }\n");
        if (!nginx.start() || !proxy.start()) {
            QOR_SKIP_OR_FAIL(nginx.problem() + proxy.problem());
        }
    }

    const std::string two = entry(1, "Product Two") + entry(3, number(0xFFFFFFFBu)) + endMark;
    const std::string seven =
        entry(1, "Product Seven") + entry(2, number(0)) + entry(3, number(4711)) +
        entry(4, number(3)) + entry(6, "http://127.0.0.1/info") +
        entry(5, "http://127.0.0.1/file") + entry(8, number(123456)) + endMark;
    Nginx nginx;
    Tinyproxy proxy;
};

TEST_F(UpdateCheck, GivesTheFactsOfALanguage) {
    const std::tuple<std::string, int, std::string> cases[] = {
        {"/update", 7, seven},
        {"/update", 9, two}, // a missing language
        {"/update", 8, entry(1, p) + entry(2, number(0)) + entry(6, i) + entry(5, "") + endMark},
        {"/moved", 7, seven},
        {"/large", 7, seven},
        {"/huge", 7, endMark}, // an exchange that fails
        {"/twice", 7, endMark},
        {"/404", 7, endMark},
    };
    for (const auto& [path, language, expected] : cases) {
        EXPECT_EQ(check(language, nginx.url(path)), expected) << path << language;
    }
    const std::string part = "HTTP/1.0 200 OK\r\nContent-Length: 99\r\n\r\n[Language 7]\nBuild=1\n";
    const Script cut = {readRequest(), sendBytes(part)};
    ScriptedServer server({cut, cut});
    EXPECT_EQ(check(7, server.url("/")), endMark);
    // There is no TLS: such a URL is asked in the clear.
    EXPECT_EQ(check(7, "https" + nginx.url("/update").substr(4)), seven);
    EXPECT_EQ(check(7, nginx.url("/moved"), "127.0.0.1", 0xABCD0000u | proxy.port()), seven);
    EXPECT_TRUE(proxy.waitForLog("GET " + nginx.url("/update") + " HTTP/1.0"));
    // Only what fits is copied.
    const auto size = static_cast<unsigned int>(two.size());
    EXPECT_EQ(check(2, nginx.url("/update"), nullptr, 0, size - 1), "0");
    EXPECT_EQ(check(2, nginx.url("/update"), nullptr, 0, size), two);
    EXPECT_EQ(check(7, "http://127.0.0.1:" + std::to_string(refusingPort()) + "/"), "0");
}

} // namespace
