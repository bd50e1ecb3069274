#include "qorupdate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "environment.h"
#include "loopback.h"
#include "real_servers.h"
#include "scripted_server.h"

namespace {

using namespace support;

const std::string endMark = "\xFF\xFF";

// An entry of the message: identifier and length in two bytes each, little-endian, and the value.
std::string entry(unsigned int id, const std::string& value) {
    const auto byte = [](std::size_t number) { return static_cast<char>(number & 0xFF); };
    return std::string{byte(id), byte(id >> 8), byte(value.size()), byte(value.size() >> 8)} +
           value;
}

std::string number(unsigned int value) {
    const auto byte = [value](unsigned int shift) { return static_cast<char>(value >> shift); };
    return {byte(0), byte(8), byte(16), byte(24)};
}

std::string check(int language, const std::string& url, std::uint16_t proxyPort = 0) {
    std::string out(4096, '#');
    // Only the low 16 bits of the port count.
    const unsigned int length =
        CheckForUpdate(language, url.c_str(), proxyPort == 0 ? "" : "127.0.0.1",
                       0xABCD0000u | proxyPort, out.data(), static_cast<unsigned int>(out.size()));
    return out.substr(0, length);
}

class UpdateCheck : public testing::Test {
protected:
    void SetUp() override {
        nginx.addFile("update", "[Language 2]\n"
                                "ProductName=Product Two\n"
                                "Build=-5\n"
                                "[Language 7]\n"
                                "Filesize=123456\n"
                                "UrlDownload=http://127.0.0.1/file\n"
                                "UrlInfo=http://127.0.0.1/info\n"
                                "Servicepack=3\n"
                                "Build=4711\n"
                                "Version=0\n"
                                "ProductName=Product Seven # the newest\n"
                                "Other=1\n"
                                "[Language 8]\n"
                                "ProductName=" +
                                    std::string(256, 'p') +
                                    "\n"
                                    "UrlInfo=" +
                                    std::string(257, 'i') +
                                    "\n"
                                    "UrlDownload=\n"
                                    "Version=none\n");
        nginx.addFile("other", "[Language 1]\nProductName=One\n");
        nginx.addFile("empty", "");
        nginx.addServerLines("absolute_redirect on;\n"
                             "location = /moved { rewrite ^ /update permanent; }\n"
                             "location = /twice { rewrite ^ /moved permanent; }\n"
                             "location = /found { rewrite ^ /update redirect; }\n"
                             "location = /nowhere { return 301 nourl; }\n"
                             "location = /far { return 301 http://127.0.0.1/" +
                             std::string(300, 'x') + "; }\n");
        if (!nginx.start()) {
            QOR_SKIP_OR_FAIL(nginx.problem());
        }
    }

    const std::string two = entry(1, "Product Two") + entry(3, number(0xFFFFFFFBu)) + endMark;
    const std::string seven =
        entry(1, "Product Seven") + entry(2, number(0)) + entry(3, number(4711)) +
        entry(4, number(3)) + entry(6, "http://127.0.0.1/info") +
        entry(5, "http://127.0.0.1/file") + entry(8, number(123456)) + endMark;
    Nginx nginx;
};

TEST_F(UpdateCheck, GivesTheFactsOfALanguage) {
    struct Case {
        const char* name;
        const char* path;
        int language;
        std::string expected;
    };
    const Case cases[] = {
        {"all facts", "/update", 7, seven},
        {"some facts", "/update", 2, two},
        {"missing language", "/update", 9, two},
        {"limits", "/update", 8,
         entry(1, std::string(256, 'p')) + entry(2, number(0)) + entry(6, std::string(256, 'i')) +
             entry(5, "") + endMark},
        {"neither language", "/other", 9, endMark},
        {"empty description", "/empty", 7, endMark},
        {"one redirect", "/moved", 7, seven},
        {"two redirects", "/twice", 7, endMark},
        {"redirect by 302", "/found", 7, endMark},
        {"redirect to no URL", "/nowhere", 7, endMark},
        {"redirect to a long URL", "/far", 7, endMark},
        {"missing", "/missing", 7, endMark},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(check(c.language, nginx.url(c.path)), c.expected);
    }
}

TEST_F(UpdateCheck, GoesThroughAProxy) {
    Tinyproxy proxy;
    if (!proxy.start()) {
        QOR_SKIP_OR_FAIL(proxy.problem());
    }
    EXPECT_EQ(check(7, nginx.url("/moved"), proxy.port()), seven);
    EXPECT_TRUE(proxy.waitForLog("GET " + nginx.url("/update") + " HTTP/1.0"));
}

TEST_F(UpdateCheck, CopiesOnlyWhatFits) {
    const std::string url = nginx.url("/update");
    const auto size = static_cast<unsigned int>(two.size());
    std::string out(size, '#');
    EXPECT_EQ(CheckForUpdate(2, url.c_str(), nullptr, 0, out.data(), size - 1), 0u);
    EXPECT_EQ(out, std::string(size, '#'));
    EXPECT_EQ(CheckForUpdate(2, url.c_str(), nullptr, 0, out.data(), size), size);
    EXPECT_EQ(out, two);
    EXPECT_EQ(CheckForUpdate(2, url.c_str(), nullptr, 0, nullptr, size), 0u);
}

TEST_F(UpdateCheck, FollowsARedirectWhoseAnswerEndsEarly) {
    const std::string moved =
        "HTTP/1.0 301 Moved\r\nLocation: " + nginx.url("/update") + "\r\n\r\n";
    // Without a length and without a body the exchange fails and is repeated; its status counts.
    ScriptedServer server({{readRequest(), sendBytes(moved)}, {readRequest(), sendBytes(moved)}});
    EXPECT_EQ(check(7, server.url("/")), seven);
    EXPECT_EQ(server.wait(), "");
}

TEST(UpdateCheckFailure, IsToldByTheLength) {
    EXPECT_EQ(check(7, ""), "");
    EXPECT_EQ(check(7, "http://127.0.0.1"), "");
    EXPECT_EQ(check(7, "http://127.0.0.1:x"), "");
    EXPECT_EQ(check(7, "http://127.0.0.1:" + std::to_string(unusedPort()) + "/"), "");
    char out[16];
    EXPECT_EQ(CheckForUpdate(7, nullptr, nullptr, 0, out, sizeof out), 0u);
}

TEST(UpdateCheckFailure, OfTheExchangeGivesTheEndMark) {
    const std::string text = "[Language 7]\nBuild=1\n";
    const std::string cut = "HTTP/1.0 200 OK\r\nContent-Length: 99\r\n\r\n" + text;
    ScriptedServer server({{readRequest(), sendBytes(cut)}, {readRequest(), sendBytes(cut)}});
    EXPECT_EQ(check(7, server.url("/")), endMark);
    EXPECT_EQ(server.wait(), "");
    EXPECT_EQ(server.connections(), 2u);
}

} // namespace
