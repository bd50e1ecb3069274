#include "qorurl.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace {

std::string quoted(const char* text) {
    return text == nullptr ? "-" : '"' + std::string(text) + '"';
}

bool consistsOf(const QORINET_URL& url, int byte) {
    QORINET_URL expected;
    memset(&expected, byte, sizeof expected);
    return memcmp(&url, &expected, sizeof url) == 0;
}

TEST(QorInetUrl, SplitsHostPortAndPath) {
    const std::string zeros(195, '0');
    const std::pair<std::string, const char*> cases[] = {
        // The URL, and: result, security, host, port, path.
        {"http://h/", R"(1 0 "h" 80 "")"},
        {"http://h", R"(0 0 - 80 -)"},
        {"https://h/x", R"(1 1 "h" 443 "x")"},
        {"HttPS://h:8443/a/b?x=1#b", R"(1 1 "h" 8443 "a/b?x=1#b")"},
        {"h/x", R"(1 0 "h" 8080 "x")"},
        {"/x", R"(1 0 "" 8080 "x")"},
        {"x", R"(0 0 - 8080 -)"},
        {"ftp://h/x", R"(1 0 "ftp" 0 "/h/x")"},
        {"http://:/", R"(1 0 "" 0 "")"},
        {"http://h:81", R"(0 0 "h" 80 -)"},
        {"http://h/p:1", R"(0 0 "h/p" 80 -)"},
        {"http://h/p:1/q", R"(1 0 "h/p" 1 "q")"},
        {"http://[::1]/x", R"(1 0 "[" 0 "x")"},
        {"http://u:2@h:3/x", R"(1 0 "u" 2 "x")"},
        {"http://h: +9z/x", R"(1 0 "h" 9 "x")"},
        {"http://h:4294967297/x", R"(1 0 "h" 1 "x")"},                    // the low 32 bits
        {"http://h:99999999999999999999/x", R"(1 0 "h" 4294967295 "x")"}, // the largest long
        {"http://h:-99999999999999999999/x", R"(1 0 "h" 0 "x")"},         // the smallest
        {"http://h:" + zeros + "1234/x", R"(1 0 "h" 1234 "x")"},
        {"http://h:" + zeros + "12345/x", R"(1 0 "h" 1234 "x")"}, // cut to 199 characters
    };
    for (const auto& [text, expected] : cases) {
        QORINET_URL url;
        memset(&url, 0x55, sizeof url);
        const int result = QorInetUrlParse(text.c_str(), &url, 8080);
        EXPECT_EQ(std::to_string(result) + ' ' + std::to_string(url.secure) + ' ' +
                      quoted(url.host) + ' ' + std::to_string(url.port) + ' ' + quoted(url.path),
                  expected)
            << text;
        EXPECT_TRUE(url.text1 == nullptr && url.text2 == nullptr && url.reserved[7] == 0);
        // Every text is released, also the caller's own.
        url.text1 = static_cast<char*>(calloc(2, 1));
        url.text2 = static_cast<char*>(calloc(2, 1));
        QorInetUrlFree(&url);
        EXPECT_TRUE(consistsOf(url, 0));
    }
}

TEST(QorInetUrl, LeavesTheRecordWithoutAText) {
    QORINET_URL url;
    memset(&url, 0x55, sizeof url);
    EXPECT_EQ(QorInetUrlParse(nullptr, &url, 1) + QorInetUrlParse("", &url, 1), 0);
    EXPECT_TRUE(consistsOf(url, 0x55));
    EXPECT_EQ(QorInetUrlParse("http://h/", nullptr, 1), 0);
    QorInetUrlFree(nullptr);
}

} // namespace
