#include "httpvalue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using Values = QOR::TemplLinkedList<HTTPVALUE*>;

void read(Values& list, const std::string& text) {
    const std::vector<char> exact(text.begin(), text.end()); // for the address sanitizer
    HTTPVALUE::parseHttpValues(list, exact.data(), static_cast<unsigned int>(exact.size()));
}

std::string pairsOf(const std::string& text) {
    Values list;
    read(list, text);
    std::string pairs;
    for (const Values::Element* e = list.head; e != nullptr; e = e->next) {
        pairs += std::string(e->data->name) + '=' + e->data->value + ';';
    }
    return pairs;
}

TEST(HttpValue, ReadsPairs) {
    const std::pair<std::string, std::string> cases[] = {
        {"Version: 1.0\r\nBuild: 7\r\n", "Version=1.0;Build=7;"},
        {"c\r\na : b \r\n", "c\r\na =b ;"}, // no line end ends a name
        {": \r\n", "=;"},
        {"a:b: c: d\r\n", "a:b=c: d;"},
        {"a:: b\r\n", ""}, // a ":" takes the next one along
        {"a::: b\r\n", "a::=b;"},
        {"a: b\r\r\nc: \n\r\n", "a=b\r\r\nc: \n;"}, // and so does a CR
        {std::string("a\0b: c\0d\r\n", 11), "a=c;"},
        {"<CR>: a<CR><CR><C<CR>R><cr><CR\r\n", "<CR>=a\n\n<C\nR><cr><CR;"},
        {":", ""},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(pairsOf(text), expected) << text;
    }
    const std::string whole = "ab: c\r\nde: f<CR>g\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(pairsOf(whole.substr(0, length)), length < 7 ? "" : "ab=c;") << length;
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
    arrays.head->data[1].value = strdup("value");
}

constexpr long hour = 3600;
constexpr long day = 24 * hour;

long dateOf(const std::string& text) {
    return StrToDate(text.c_str());
}

TEST(HttpDate, IsReadInSevenForms) {
    const std::string forms[] = {
        "06-Nov-94 08:49:37 GMT",         "06 Nov 1994 08:49:37 GMT",
        "08:49:37 GMT 06-Nov-94",         "08:49:37 GMT 06 Nov 1994",
        "Sunday, 06-Nov-94 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 GMT",
        "Sun Nov 6 08:49:37 GMT 1994",
    };
    for (const std::string& form : forms) {
        EXPECT_EQ(dateOf(form), 784111777) << form;
        for (const char* name : {"Nov", "Sun"}) {
            std::string unknown = form;
            if (form.find(name) != std::string::npos) {
                EXPECT_EQ(dateOf(unknown.replace(form.find(name), 3, "Xyz")), -1) << unknown;
            }
        }
    }
    for (std::size_t length = 0; length < forms[6].size() - 4; ++length) {
        EXPECT_EQ(dateOf(forms[6].substr(0, length)), -1) << length;
    }
    EXPECT_EQ(StrToDate(nullptr), -1);
}

TEST(HttpDate, IsMatchedAsScanfMatches) {
    const std::string matching[] = {
        "  06 NOVEMBER 1994 08:49:37 GMT",
        "\t fRiDaY, 06 nov 1994 08:49:37 gmt, or so", // no Friday
        "08:49:37GMT06Nov1994x",
        "Sun,\r\n06 \v\f Nov\t1994\n 08: 49: 37",
        "\n06-Nov- 94 08:49:37", // before numbers alone
        "+6 Nov +94 +8:+49:+37",
    };
    const std::string others[] = {
        "Sun Nov  6 08:49:37 1994",    "08:49:37 gmt 06 Nov 1994", "\nSun, 06 Nov 1994 08:49:37",
        "Sun , 06 Nov 1994 08:49:37",  "06- Nov-94 08:49:37",      "06-Nov-94 08 :49:37",
        "06 Septembers 1994 08:49:37", "+-6 Nov 1994 08:49:37",    "06 No 1994 08:49:37",
    };
    for (const std::string& text : matching) {
        EXPECT_EQ(dateOf(text), 784111777) << text;
    }
    for (const std::string& text : others) {
        EXPECT_EQ(dateOf(text), -1) << text;
    }
}

TEST(HttpDate, CountsSeconds) {
    const std::pair<std::string, long> cases[] = {
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
        EXPECT_EQ(dateOf(text), expected) << text;
    }
}

TEST(HttpDate, KnowsMonthsAndWeekdays) {
    const std::string names[] = {"January",   "February", "March",  "April",     "May",
                                 "June",      "July",     "August", "September", "October",
                                 "November",  "December", "Sunday", "Monday",    "Tuesday",
                                 "Wednesday", "Thursday", "Friday", "Saturday"};
    const long daysBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    for (long i = 0; i < 19; ++i) {
        for (std::string name : {names[i], names[i].substr(0, 3)}) {
            EXPECT_EQ(dateOf("1-" + name + "-1970 0:0:0"), i < 12 ? daysBefore[i] * day : -1);
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
