#include "qorurl.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

namespace {

std::string textOf(const char* text) {
    return text == nullptr ? "(null)" : text;
}

TEST(QorInetUrl, SplitsHostPortAndPath) {
    const std::string zeros(195, '0');
    struct Case {
        std::string url;
        int result;
        int secure;
        const char* host;
        unsigned int port;
        const char* path;
    };
    const char* const none = "(null)";
    const Case cases[] = {
        {"http://h/", 1, 0, "h", 80, ""},
        {"http://h", 0, 0, none, 80, none},
        {"https://h/x", 1, 1, "h", 443, "x"},
        {"HTTPS://h:8443/a/b?x=1", 1, 1, "h", 8443, "a/b?x=1"},
        {"HttP://h/a#b", 1, 0, "h", 80, "a#b"},
        {"h/x", 1, 0, "h", 8080, "x"},
        {"h:81/x", 1, 0, "h", 81, "x"},
        {"/x", 1, 0, "", 8080, "x"},
        {"x", 0, 0, none, 8080, none},
        {"ftp://h/x", 1, 0, "ftp", 0, "/h/x"},
        {"http:/h", 1, 0, "http", 0, "h"},
        {"http://", 0, 0, none, 80, none},
        {"http://:/", 1, 0, "", 0, ""},
        {"http://h:81", 0, 0, "h", 80, none},
        {"http://h/p:1", 0, 0, "h/p", 80, none},
        {"http://h/p:1/q", 1, 0, "h/p", 1, "q"},
        {"http://[::1]/x", 1, 0, "[", 0, "x"},
        {"http://u:2@h:3/x", 1, 0, "u", 2, "x"},
        {"http://h:port/x", 1, 0, "h", 0, "x"},
        {"http://h: +9z/x", 1, 0, "h", 9, "x"},
        {"http://h:-1/x", 1, 0, "h", 4294967295u, "x"},
        {"http://h:4294967297/x", 1, 0, "h", 1, "x"},                     // the low 32 bits count
        {"http://h:99999999999999999999/x", 1, 0, "h", 4294967295u, "x"}, // the largest long
        {"http://h:-99999999999999999999/x", 1, 0, "h", 0, "x"},          // the smallest
        {"http://h:" + zeros + "1234/x", 1, 0, "h", 1234, "x"},
        {"http://h:" + zeros + "12345/x", 1, 0, "h", 1234, "x"}, // cut to 199 characters
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        QORINET_URL url;
        memset(&url, 0x55, sizeof url);
        EXPECT_EQ(QorInetUrlParse(c.url.c_str(), &url, 8080), c.result);
        EXPECT_EQ(int{url.secure}, c.secure);
        EXPECT_EQ(textOf(url.host), c.host);
        EXPECT_EQ(unsigned{url.port}, c.port);
        EXPECT_EQ(textOf(url.path), c.path);
        EXPECT_EQ(textOf(url.text1), none);
        EXPECT_EQ(textOf(url.text2), none);
        EXPECT_EQ(std::string(std::begin(url.reserved), std::end(url.reserved)),
                  std::string(8, '\0'));
        QorInetUrlFree(&url);
    }
}

TEST(QorInetUrl, LeavesTheRecordWithoutAText) {
    QORINET_URL url;
    memset(&url, 0x55, sizeof url);
    const QORINET_URL before = url;
    EXPECT_EQ(QorInetUrlParse(nullptr, &url, 1), 0);
    EXPECT_EQ(QorInetUrlParse("", &url, 1), 0);
    EXPECT_EQ(memcmp(&url, &before, sizeof url), 0);
    EXPECT_EQ(QorInetUrlParse("http://h/", nullptr, 1), 0);
}

TEST(QorInetUrl, ReleasesEveryTextAndZeroes) {
    QORINET_URL url;
    ASSERT_EQ(QorInetUrlParse("https://h:1/x", &url, 1), 1);
    url.text1 = static_cast<char*>(calloc(2, 1));
    url.text2 = static_cast<char*>(calloc(2, 1));
    url.reserved[0] = 1;
    QorInetUrlFree(&url);
    const QORINET_URL zeroed = {};
    EXPECT_EQ(memcmp(&url, &zeroed, sizeof url), 0);
    QorInetUrlFree(&url);
    QorInetUrlFree(nullptr);
}

} // namespace
