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

std::string number(unsigned int value, int bytes = 4) {
    std::string little;
    for (; bytes > 0; --bytes, value >>= 8) {
        little += static_cast<char>(value & 0xFF);
    }
    return little;
}

// An entry of the message: identifier and length in two bytes each, and the value.
std::string entry(unsigned int id, const std::string& value) {
    return number(id, 2) + number(static_cast<unsigned int>(value.size()), 2) + value;
}

// The message, or its length where that is 0.
std::string check(int language, const std::string& url, const char* proxyHost = "",
                  unsigned int proxyPort = 0, unsigned int size = 4096) {
    std::string out(size, '#');
    // Only the low 16 bits of the port count.
    const unsigned int length =
        CheckForUpdate(language, url.c_str(), proxyHost, 0xABCD0000u | proxyPort, out.data(), size);
    EXPECT_TRUE(length > 0 || out == std::string(size, '#'));
    return length == 0 ? "0" : out.substr(0, length);
}

class UpdateCheck : public testing::Test {
protected:
    void SetUp() override {
        nginx.addFile("update",
                      "[Language 2]\nProductName=Product Two\nBuild=-5\n"
                      "[Language -1]\nVersion=1\n"
                      "[Language 7]\nFilesize=123456\nUrlDownload=http://127.0.0.1/file\n"
                      "UrlInfo=http://127.0.0.1/info\nServicepack=3\nBuild=4711\nVersion=0\n"
                      "ProductName=Product Seven # the newest\nOther=1\n"
                      "[Language 8]\nVersion=none\nUrlDownload=\nProductName=" +
                          p + "\nUrlInfo=" + i + "i\n");
        nginx.addFile("other", "[Language 1]\nProductName=One\n");
        nginx.addFile("empty", "");
        nginx.addServerLines(
            "absolute_redirect on; location = /moved { rewrite ^ /update permanent; }\n"
            "location = /twice { rewrite ^ /moved permanent; }\n"
            "location = /found { rewrite ^ /update redirect; }\n"
            "location = /308 { return 308 http://$http_host/update; }\n"
            "location = /404 { return 404 \"[Language 7]\\nBuild=1\\n\"; }\n"
            "location = /500 { return 500 \"[Language 7]\\nBuild=1\\n\"; }\n"
            "location = /nowhere { return 301 nourl; }\n"
            "location = /far { return 301 http://127.0.0.1/" +
            p + "; }\n");
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
        {"/update", 2, two},
        {"/update", 9, two}, // a missing language
        {"/update", -1, entry(2, number(1)) + endMark},
        {"/update", 8, entry(1, p) + entry(2, number(0)) + entry(6, i) + entry(5, "") + endMark},
        {"/moved", 7, seven},
        {"/other", 7, endMark},
        {"/empty", 7, endMark},
        {"/twice", 7, endMark},
        {"/found", 7, endMark},
        {"/308", 7, endMark},
        {"/404", 7, endMark},
        {"/500", 7, endMark},
        {"/nowhere", 7, endMark},
        {"/far", 7, endMark},
    };
    for (const auto& [path, language, expected] : cases) {
        SCOPED_TRACE(path + std::to_string(language));
        EXPECT_EQ(check(language, nginx.url(path)), expected);
    }
    // There is no TLS: such a URL is asked in the clear.
    EXPECT_EQ(check(7, "https" + nginx.url("/update").substr(4)), seven);
    EXPECT_EQ(check(7, nginx.url("/moved"), "127.0.0.1", proxy.port()), seven);
    EXPECT_TRUE(proxy.waitForLog("GET " + nginx.url("/update") + " HTTP/1.0"));
    // Only what fits is copied.
    const auto size = static_cast<unsigned int>(two.size());
    EXPECT_EQ(check(2, nginx.url("/update"), nullptr, 0, size - 1), "0");
    EXPECT_EQ(check(2, nginx.url("/update"), nullptr, 0, size), two);
    EXPECT_EQ(CheckForUpdate(2, nginx.url("/update").c_str(), nullptr, 0, nullptr, size), 0u);
}

// Answers that end too early are asked for once more; then their status counts.
TEST_F(UpdateCheck, JudgesAnExchangeThatFails) {
    const std::string moved = "301 X\r\nLocation: " + nginx.url("/update") + "\r\n\r\n";
    const std::string cut = "200 OK\r\nContent-Length: 99\r\n\r\n[Language 7]\nBuild=1\n";
    for (const auto& [answer, expected] : {std::pair(moved, seven), std::pair(cut, endMark)}) {
        const Script script = {readRequest(), sendBytes("HTTP/1.0 " + answer)};
        ScriptedServer server({script, script});
        EXPECT_EQ(check(7, server.url("/")), expected);
        EXPECT_EQ(server.wait(), "");
    }
    const std::string nobody = "http://127.0.0.1:" + std::to_string(refusingPort()) + "/";
    for (const std::string& url : {std::string(), std::string("http://127.0.0.1:x"), nobody}) {
        EXPECT_EQ(check(7, url), "0");
    }
    EXPECT_EQ(check(7, nginx.url("/update"), std::string(128, 'h').c_str(), proxy.port()), "0");
    EXPECT_EQ(CheckForUpdate(7, nullptr, nullptr, 0, nullptr, 0), 0u);
}

TEST_F(UpdateCheck, DownloadsAFile) {
    const TempDirectory directory;
    const std::string file = directory.path("file"), longName(128, 'h');
    const std::string url = nginx.url("/other"), missing = nginx.url("/missing");
    const std::string secure = "https" + url.substr(4);
    const int port = static_cast<int>(0xABCD0000u | proxy.port());
    const auto count = [](void* calls, unsigned int, unsigned int) -> signed char {
        return static_cast<signed char>(++*static_cast<int*>(calls) != 0);
    };
    const std::tuple<const char*, const char*, const char*, const char*, int, int> cases[] = {
        {"no URL", nullptr, file.c_str(), nullptr, 0, 0},
        {"no file", url.c_str(), nullptr, nullptr, 0, 0},
        {"a proxy that can't be stored", url.c_str(), file.c_str(), longName.c_str(), 0, 0},
        {"nothing there", missing.c_str(), file.c_str(), "", 0, 0},
        {"whole, and in the clear", secure.c_str(), file.c_str(), "", 1, 2},
        {"not modified, and through the proxy", url.c_str(), file.c_str(), "127.0.0.1", 1, 0},
    };
    for (const auto& [name, place, destination, proxyHost, result, expectedCalls] : cases) {
        SCOPED_TRACE(name);
        int calls = 0;
        EXPECT_EQ(DownloadUpdate(place, destination, proxyHost, port, count, &calls), result);
        EXPECT_EQ(calls, expectedCalls);
    }
    EXPECT_EQ(directory.read("file"), "[Language 1]\nProductName=One\n");
    EXPECT_TRUE(proxy.waitForLog("GET " + url + " HTTP/1.0"));
}

} // namespace
