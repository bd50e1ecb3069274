// The texts of HTTP: URLs, value lists, dates.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "httpvalue.h"
#include "qorurl.h"

namespace {

using namespace std::string_literals;
using Values = QOR::TemplLinkedList<HTTPVALUE*>;

std::string quoted(const char* text) {
    return text == nullptr ? "-" : '"' + std::string(text) + '"';
}

TEST(QorInetUrl, SplitsHostPortAndPath) {
    const std::pair<std::string, const char*> cases[] = {
        // The URL, and: result, security, host, port, path.
        {"http://h/", R"(1 0 "h" 80 "")"},
        {"http://h:81", R"(0 0 "h" 80 -)"},
        {"https://h/x", R"(1 1 "h" 443 "x")"},
        {"HttPS://h:8443/a/b?x=1#b", R"(1 1 "h" 8443 "a/b?x=1#b")"},
        {"ftp://h/x", R"(1 0 "ftp" 0 "/h/x")"},
        {"http://h/p:1/q", R"(1 0 "h/p" 1 "q")"}, // as in an IPv6 address
        {"h:99999999999999999999/x",
         R"(1 0 "h" 4294967295 "x")"}, // the largest long, its low 32 bits
        {"h:" + std::string(195, '0') + "12345/x", R"(1 0 "h" 1234 "x")"}, // 199 characters
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
        url.text1 = strdup("the caller's own"); // released, too
        QorInetUrlFree(&url);
        EXPECT_TRUE(url.text1 == nullptr && url.host == nullptr && url.path == nullptr);
    }
}

void read(Values& list, const std::string& text) {
    const std::vector<char> exact(text.begin(), text.end()); // for the address sanitizer
    HTTPVALUE::parseHttpValues(list, exact.data(), static_cast<unsigned int>(exact.size()));
}

TEST(HttpValue, ReadsPairs) {
    const std::pair<std::string, std::string> cases[] = {
        {"Version: 1.0\r\nBuild: 7\r\n", "Version=1.0;Build=7;"},
        {"c\r\na : b \r\nd:", "c\r\na =b ;"},       // no line end ends a name
        {"a:: b\r\n", ""},                          // a ":" takes the next one along
        {"a: b\r\r\nc: \n\r\n", "a=b\r\r\nc: \n;"}, // and so does a CR
        {"<CR>: a<CR><CR><C<CR>R><cr><CR\r\n", "<CR>=a\n\n<C\nR><cr><CR;"},
    };
    for (const auto& [text, expected] : cases) {
        Values list;
        read(list, text);
        std::string pairs;
        for (const Values::Element* e = list.head; e != nullptr; e = e->next) {
            pairs += e->data->name + "="s + e->data->value + ";";
        }
        EXPECT_EQ(pairs, expected) << text;
    }
}

TEST(HttpValue, FindsTheFirstPairOfAName) {
    struct ShortList : Values { // what leaks here is seen by the address sanitizer
        signed char Add(HTTPVALUE* data) override {
            return count == 5 ? static_cast<signed char>(0) : Values::Add(data);
        }
    } list;
    list.Add(nullptr);
    list.Add(new HTTPVALUE);
    read(list, "ab: 1\r\na: 2\r\na: 3\r\nno: room\r\n");
    const HTTPVALUE* const found = HTTPVALUE::findHttpValue(list, "a");
    EXPECT_STREQ(found == nullptr ? nullptr : found->value, "2");
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, "A"), nullptr);
}

constexpr long known = 784111777; // 06 Nov 1994 08:49:37
constexpr long hour = 3600, day = 24 * hour;

// The seven forms themselves stand among the downloads.
TEST(HttpDate, IsReadAsScanfMatchesAndCounted) {
    const std::pair<const char*, long> cases[] = {
        {"\t fRiDaY, 06 NOVEMBER 1994 08:49:37 gmt, or so", known}, // no Friday
        {"08:49:37GMT06Nov1994x", known},
        {"Sun,\r\n06 \v\f Nov\t1994\n 08: 49: 37", known},
        {"+6 Nov +94 +8:+49:+37", known},
        {"Xyz, 06 Nov 1994 08:49:37", -1},
        {"Sun Nov  6 08:49:37 1994", -1},
        {"06 Septembers 1994 08:49:37", -1},
        {"31-Dec-1969 23:59:59", -1}, // looks like a failure
        {"1-Jan-69 0:0:0", 3124224000},
        {"1-Jan-1900 0:0:0", 57749241600 + 13 * day}, // 3800
        {"1-Mar-2000 0:0:0", 951868800},
        {"1-Mar-2100 0:0:0", 4107542400},
        {"1-Jan-2101 0:0:0", 4133980800 + day}, // centuries add days
        {"1-Jan-1968 0:0:0", -63158400 + day},  // and so do most years before 1969
        {"32-Jan-1970 25:61:-1", 32 * day + 2 * hour + 59},
        {"2-Jan-1970 99999999999999999999:0:0", day - hour}, // where 64 bits end
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(StrToDate(text), expected) << text;
    }
}

TEST(HttpDate, KnowsMonthsAndWeekdays) {
    std::istringstream names("January February March April May June July August September October "
                             "November December Sunday Monday Tuesday Wednesday Thursday Friday "
                             "Saturday");
    for (auto [i, full] = std::pair(0, ""s); names >> full; ++i) {
        tm first = {};
        first.tm_mday = 1;
        first.tm_mon = i;
        first.tm_year = 70;
        for (std::string name : {full, full.substr(0, 3)}) {
            long number = -1;
            EXPECT_EQ(StrToDate(("1-" + name + "-1970 0:0:0").c_str()),
                      i < 12 ? timegm(&first) : -1);
            EXPECT_NE(scan_mon(name.data(), &number), scan_wday(name.data(), &number)) << name;
            EXPECT_EQ(number, i % 12) << name;
        }
    }
}

} // namespace
