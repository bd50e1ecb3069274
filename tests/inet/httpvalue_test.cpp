#include "httpvalue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;
using Values = QOR::TemplLinkedList<HTTPVALUE*>;

void read(Values& list, const std::string& text) {
    const std::vector<char> exact(text.begin(), text.end()); // for the address sanitizer
    HTTPVALUE::parseHttpValues(list, exact.data(), static_cast<unsigned int>(exact.size()));
}

TEST(HttpValue, ReadsPairs) {
    std::vector<std::pair<std::string, std::string>> cases = {
        {"Version: 1.0\r\nBuild: 7\r\n", "Version=1.0;Build=7;"},
        {"c\r\na : b \r\n", "c\r\na =b ;"}, // no line end ends a name
        {": \r\n", "=;"},
        {"a:b: c: d\r\n", "a:b=c: d;"},
        {"a:: b\r\n", ""}, // a ":" takes the next one along
        {"a::: b\r\n", "a::=b;"},
        {"a: b\r\r\nc: \n\r\n", "a=b\r\r\nc: \n;"}, // and so does a CR
        {"a\0b: c\0d\r\n"s, "a=c;"},
        {"<CR>: a<CR><CR><C<CR>R><cr><CR\r\n", "<CR>=a\n\n<C\nR><cr><CR;"},
    };
    const std::string whole = "ab: c\r\nde: f<CR>g\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        cases.emplace_back(whole.substr(0, length), length < 7 ? "" : "ab=c;");
    }
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
    Values list;
    list.Add(nullptr);
    list.Add(new HTTPVALUE);
    read(list, "ab: 1\r\na: 2\r\na: 3\r\n");
    const HTTPVALUE* const found = HTTPVALUE::findHttpValue(list, "a");
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->value, "2");
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, "A"), nullptr);
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, nullptr), nullptr);
    HTTPVALUE::parseHttpValues(list, nullptr, 9);
    EXPECT_EQ(list.count, 5u);
    EXPECT_EQ(HTTPVALUE::replaceCR(nullptr), nullptr);
}

// What leaks here is seen by the address sanitizer.
TEST(HttpValue, BelongsToTheListThatTakesIt) {
    struct FullList : Values {
        signed char Add(HTTPVALUE* data) override {
            return count == 1 ? static_cast<signed char>(0) : Values::Add(data);
        }
    } full;
    read(full, "a: 1\r\nb: 2\r\nc: 3\r\n");
    EXPECT_EQ(full.count, 1u);

    Values arrays;
    arrays.DeleteArrayDataOnExit();
    arrays.Add(new HTTPVALUE[2]);
    arrays.head->data[1].name = strdup("name");
}

constexpr long known = 784111777; // 06 Nov 1994 08:49:37
constexpr long hour = 3600, day = 24 * hour;

TEST(HttpDate, IsReadInSevenFormsAsScanfMatches) {
    const std::string days = "Sun Nov 6 08:49:37 GMT 1994";
    std::vector<std::pair<std::string, long>> cases = {
        {"06-Nov-94 08:49:37 GMT", known},
        {"06 Nov 1994 08:49:37 GMT", known},
        {"08:49:37 GMT 06-Nov-94", known},
        {"08:49:37 GMT 06 Nov 1994", known},
        {"Sunday, 06-Nov-94 08:49:37 GMT", known},
        {"Sun, 06 Nov 1994 08:49:37 GMT", known},
        {"Sun Nov 6 08:49:37 GMT 1994", known},
        {"  06 NOVEMBER 1994 08:49:37 GMT", known},
        {"\t fRiDaY, 06 nov 1994 08:49:37 gmt, or so", known}, // no Friday
        {"08:49:37GMT06Nov1994x", known},
        {"Sun,\r\n06 \v\f Nov\t1994\n 08: 49: 37", known},
        {"\n06-Nov- 94 08:49:37", known}, // before numbers alone
        {"+6 Nov +94 +8:+49:+37", known},
        {"Sun Nov  6 08:49:37 1994", -1},
        {"08:49:37 gmt 06 Nov 1994", -1},
        {"\nSun, 06 Nov 1994 08:49:37", -1},
        {"Sun , 06 Nov 1994 08:49:37", -1},
        {"06- Nov-94 08:49:37", -1},
        {"06-Nov-94 08 :49:37", -1},
        {"06 Septembers 1994 08:49:37", -1},
        {"+-6 Nov 1994 08:49:37", -1},
        {"06 No 1994 08:49:37", -1},
    };
    for (std::size_t form = 0; form < 7; ++form) {
        const std::string text = cases[form].first;
        for (const char* name : {"Nov", "Sun"}) {
            const std::size_t at = text.find(name);
            if (at != std::string::npos) {
                cases.emplace_back(std::string(text).replace(at, 3, "Xyz"), -1);
            }
        }
    }
    for (std::size_t length = 0; length < days.size() - 4; ++length) {
        cases.emplace_back(days.substr(0, length), -1);
    }
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(StrToDate(text.c_str()), expected) << text;
    }
    EXPECT_EQ(StrToDate(nullptr), -1);
}

TEST(HttpDate, CountsSeconds) {
    const std::pair<const char*, long> cases[] = {
        {"31-Dec-1969 23:59:59", -1}, // looks like a failure
        {"1-Jan-70 0:0:0", 0},
        {"1-Jan-69 0:0:0", 3124224000},
        {"1-Jan-1900 0:0:0", 57749241600 + 13 * day}, // 3800
        {"1-Jan-1901 0:0:0", -2177452800},
        {"29-Feb-2000 0:0:0", 951782400},
        {"1-Mar-2000 0:0:0", 951868800},
        {"1-Mar-2004 0:0:0", 1078099200},
        {"1-Mar-2100 0:0:0", 4107542400},
        {"1-Jan-2101 0:0:0", 4133980800 + day}, // centuries add days
        {"1-Jan-1968 0:0:0", -63158400 + day},  // and so do most years before 1969
        {"32-Jan-1970 25:61:-1", 32 * day + 2 * hour + 59},
        {"31-Dec-2147483647 2147483647:2147483647:2147483647", 67777229739154867},
        {"2-Jan-1970 9223372036854775808:0:0", day - hour}, // where 64 bits end
        {"2-Jan-1970 -9223372036854775809:0:0", day},
        {"2-Jan-1970 99999999999999999999:0:0", day - hour},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(StrToDate(text), expected) << text;
    }
}

TEST(HttpDate, KnowsMonthsAndWeekdays) {
    std::istringstream names("January February March April May June July August September October "
                             "November December Sunday Monday Tuesday Wednesday Thursday Friday "
                             "Saturday");
    std::string full;
    for (int i = 0; names >> full; ++i) {
        tm first = {};
        first.tm_mday = 1;
        first.tm_mon = i;
        first.tm_year = 70;
        for (std::string name : {full, full.substr(0, 3)}) {
            EXPECT_EQ(StrToDate(("1-" + name + "-1970 0:0:0").c_str()),
                      i < 12 ? timegm(&first) : -1);
            long month = -1;
            long weekday = -13;
            EXPECT_NE(scan_mon(name.data(), &month), scan_wday(name.data(), &weekday)) << name;
            EXPECT_EQ(i < 12 ? month : weekday + 12, i) << name;
            EXPECT_EQ(i < 12 ? weekday + 12 : month, -1) << name; // untouched
        }
    }
    char unknown[] = "@AZ[\xC4";
    long number = -1;
    EXPECT_EQ(scan_mon(nullptr, &number) + scan_mon(unknown, &number), 0);
    EXPECT_STREQ(unknown, "@az[\xC4"); // lower case all the same
}

} // namespace
