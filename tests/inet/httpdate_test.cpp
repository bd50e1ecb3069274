#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>

#include "httpvalue.h"

namespace {

constexpr long dayInSeconds = 86400;

TEST(HttpDate, IsReadInSevenForms) {
    struct Case {
        std::string text;
        long expected;
    };
    constexpr long date = 784111777;
    const std::string longWord(401, 'a');
    const Case cases[] = {
        {"06-Nov-94 08:49:37 GMT", date},
        {"06 Nov 1994 08:49:37 GMT", date},
        {"08:49:37 GMT 06-Nov-94", date},
        {"08:49:37 GMT 06 Nov 1994", date},
        {"Sunday, 06-Nov-94 08:49:37 GMT", date},
        {"Sun, 06 Nov 1994 08:49:37 GMT", date},
        {"Sun Nov 6 08:49:37 GMT 1994", date},

        {"06-Xyz-94 08:49:37 GMT", -1},
        {"06 Xyz 1994 08:49:37 GMT", -1},
        {"08:49:37 GMT 06-Xyz-94", -1},
        {"08:49:37 GMT 06 Xyz 1994", -1},
        {"Sunday, 06-Xyz-94 08:49:37 GMT", -1},
        {"Sun, 06 Xyz 1994 08:49:37 GMT", -1},
        {"Sun Xyz 6 08:49:37 GMT 1994", -1},
        {"Xyz, 06-Nov-94 08:49:37 GMT", -1},
        {"Xyz, 06 Nov 1994 08:49:37 GMT", -1},
        {"Xyz Nov 6 08:49:37 GMT 1994", -1},

        {"  06 NOVEMBER 1994 08:49:37 GMT", date},
        {"\t fRiDaY, 06 nov 1994 08:49:37 GMT", date}, // not the weekday of that date
        {"06 Nov 1994 08:49:37", date},                // "GMT" at the end is not asked for
        {"06 Nov 1994 08:49:37 gmt, or so", date},
        {"08:49:37 GMT 06 Nov 1994x", date},
        {"08:49:37 gmt 06 Nov 1994", -1},
        {"08:49:37 06 Nov 1994", -1},
        {"Sun Nov  6 08:49:37 1994", -1}, // the form of asctime has no "GMT"
        {"06Nov1994 08:49:37", date},
        {"08:49:37GMT06Nov1994", date},
        {"Sun,\r\n06 \v\f Nov\t1994\n 08: 49: 37", date},
        {"\n06 Nov 1994 08:49:37", date}, // a number skips what the start does not
        {"\nSun, 06 Nov 1994 08:49:37", -1},
        {"Sun , 06 Nov 1994 08:49:37", -1},
        {"06- Nov-94 08:49:37", -1},
        {"06 -Nov-94 08:49:37", -1},
        {"06-Nov- 94 08 :49:37", -1},
        {"Sun, 06 Novembers 1994 08:49:37", -1},
        {"Sun, 06 No 1994 08:49:37", -1},
        {"Septembers, 06 Nov 1994 08:49:37", -1},
        {longWord + longWord + " 06 Nov 1994 08:49:37", -1},
        {"Sun, + 06 Nov 1994 08:49:37", -1},
        {"Sun, +-6 Nov 1994 08:49:37", -1},
        {"+6 Nov +94 +8:+49:+37", date},
        {"0x6 Nov 1994 08:49:37", -1},

        {"-4294967290 Nov 1994 08:49:37", date}, // the low 32 bits count
        {"7 Nov 1994 9223372036854775807:49:37", date - 8 * 3600 + dayInSeconds - 3600},
        {"7 Nov 1994 99999999999999999999:49:37", date - 8 * 3600 + dayInSeconds - 3600},
        {"6 Nov 1994 -9223372036854775809:49:37", date - 8 * 3600},
        {"6 Nov 1994 -18446744073709551616:49:37", date - 8 * 3600},
        {"", -1},
    };
    for (const Case& c : cases) {
        // An exact-size copy, for the address sanitizer.
        const std::unique_ptr<char[]> text(new char[c.text.size() + 1]);
        c.text.copy(text.get(), c.text.size());
        text[c.text.size()] = '\0';
        EXPECT_EQ(StrToDate(text.get()), c.expected) << c.text;
    }
    EXPECT_EQ(StrToDate(nullptr), -1);

    const std::string whole = "Sun Nov 6 08:49:37 GMT 1";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(StrToDate(whole.substr(0, length).c_str()), -1) << length;
    }
}

TEST(HttpDate, CountsSeconds) {
    struct Case {
        const char* text;
        long expected;
    };
    const Case cases[] = {
        {"1-Jan-1970 0:0:0", 0},
        {"31-Dec-1969 23:59:59", -1}, // looks like a failure
        {"31-Dec-1969 23:59:58", -2},
        {"1-Jan-0 0:0:0", 946684800}, // 2000
        {"1-Jan-69 0:0:0", 3124224000},
        {"1-Jan-70 0:0:0", 0},
        {"1-Jan-99 0:0:0", 915148800},
        {"1-Jan--1 0:0:0", 915148800},
        {"1-Jan-1900 0:0:0", 57749241600 + 13 * dayInSeconds}, // 3800, see below
        {"1-Jan-1901 0:0:0", -2177452800},
        {"29-Feb-2000 0:0:0", 951782400},
        {"1-Mar-2000 0:0:0", 951868800},
        {"1-Mar-1999 0:0:0", 920246400},
        {"1-Mar-2004 0:0:0", 1078099200},
        {"1-Jan-2005 0:0:0", 1104537600},
        {"1-Mar-2100 0:0:0", 4107542400},
        {"1-Jan-2101 0:0:0", 4133980800 + dayInSeconds}, // every such year adds a day
        {"1-Jan-1968 0:0:0", -63158400 + dayInSeconds},  // and so are most days before 1969
        {"32-Jan-1970 25:61:-1", 32 * dayInSeconds + 2 * 3600 + 59},
        {"31-Dec-2147483647 2147483647:2147483647:2147483647", 67777229739154867},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(StrToDate(c.text), c.expected) << c.text;
    }
}

TEST(HttpDate, KnowsMonthsAndWeekdays) {
    const std::string months[] = {"January",   "February", "March",    "April",
                                  "May",       "June",     "July",     "August",
                                  "September", "October",  "November", "December"};
    const std::string weekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                    "Thursday", "Friday", "Saturday"};
    const long daysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    long expected = 0;
    for (const std::string& month : months) {
        for (std::string name : {month, month.substr(0, 3)}) {
            EXPECT_EQ(StrToDate(("2-" + name + "-1970 0:0:0").c_str()),
                      (daysBefore[expected] + 1) * dayInSeconds);
            long number = -1;
            EXPECT_TRUE(scan_mon(name.data(), &number) == 1 && number == expected) << name;
            EXPECT_EQ(scan_wday(name.data(), &number), 0) << name;
        }
        ++expected;
    }
    expected = 0;
    for (const std::string& weekday : weekdays) {
        for (std::string name : {weekday, weekday.substr(0, 3)}) {
            long number = -1;
            EXPECT_TRUE(scan_wday(name.data(), &number) == 1 && number == expected) << name;
            EXPECT_EQ(scan_mon(name.data(), &number), 0) << name;
            EXPECT_EQ(number, expected);
        }
        ++expected;
    }
    char unknown[] = "@AZ[ \xC4Sept";
    long number = -1;
    EXPECT_EQ(scan_mon(unknown, &number) + scan_mon(nullptr, &number) + scan_wday(unknown, nullptr),
              0);
    EXPECT_EQ(number, -1);
    EXPECT_STREQ(unknown, "@az[ \xC4sept"); // lower case all the same, ASCII alone
}

} // namespace
