#include "qoros.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

using namespace std::string_literals;

namespace {

TEST(QorOsString, StaysWithinTheSize) {
    const struct {
        const char *name, *text;
        char* (*call)(char* dest);
        std::string expected; // all of the destination; "#" is what nobody wrote
    } rows[] = {
        {"no size", "##", [](char* d) { return strcpy_qor(d, 0, "abc"); }, "##\0###"s},
        {"whole", "", [](char* d) { return strcpy_qor(d, 4, "abc"); }, "abc\0##"s},
        {"added", "ab", [](char* d) { return strcat_qor(d, 5, "cd"); }, "abcd\0#"s},
        {"cut by one", "ab", [](char* d) { return strcat_qor(d, 4, "cd"); }, "abc\0##"s},
        {"kept: full", "abcd", [](char* d) { return strcat_qor(d, 4, "e"); }, "abc\0\0#"s},
        {"kept: no end", "", [](char* d) { return strncat_qor(d, 6, "abcd", 3); }, "abc###"s},
        {"padded", "x", [](char* d) { return strncat_qor(d, 6, "a", 4); }, "xa\0\0\0#"s},
        {"padded to size", "x", [](char* d) { return strncat_qor(d, 4, "a", 9); }, "xa\0\0##"s},
        {"kept: whole", "12", [](char* d) { return strncat_qor(d, 5, "abc", 1); }, "12a#\0#"s},
        {"no count", "x", [](char* d) { return strncat_qor(d, 1, "ab", 0); }, "x\0####"s},
    };
    for (const auto& row : rows) {
        std::string dest = row.text + "\0"s;
        dest.resize(6, '#');
        EXPECT_EQ(row.call(dest.data()), dest.data()) << row.name;
        EXPECT_EQ(dest, row.expected) << row.name;
    }
}

// A text without a terminator, in a block that ends with what may be looked at.
TEST(QorOsString, LooksNoFurtherThanTheSizeAndRefusesNull) {
    const std::unique_ptr<char[]> four(new char[4]{'a', 'b', 'c', 'd'});
    char dest[4];
    EXPECT_STREQ(strncpy_qor(dest, 4, four.get(), SIZE_MAX), "abc");
    EXPECT_EQ(strlen_qor(four.get(), 4) + strlen_qor(four.get() + 4, 0), 4u);
    EXPECT_EQ(strcat_qor(four.get() + 4, 0, "x"), strncat_qor(four.get() + 4, 0, "x", 1));
    EXPECT_EQ(strcat_qor(four.get(), 3, "x"), strncat_qor(four.get(), 3, "x", 1));
    EXPECT_EQ(std::string(four.get(), 4), "abcd");
    EXPECT_FALSE(strcpy_qor(nullptr, 4, "x") || strncpy_qor(dest, 4, nullptr, 1));
    EXPECT_FALSE(strcat_qor(dest, 4, nullptr) || strncat_qor(nullptr, 4, "x", 1));
}

TEST(QorOsString, FormatsAndChangesCase) {
    char dest[4] = "#";
    EXPECT_EQ(sprintf_qor(dest, 0, "abcdef") + *dest, '#');
    EXPECT_EQ(sprintf_qor(dest, 4, "abcdef"), 6); // the whole length
    EXPECT_STREQ(dest, "abc");
    EXPECT_STREQ(strupr(dest), "ABC");
    EXPECT_STREQ(strlwr(dest), "abc");
}

TEST(QorOsString, GrowsAHeapString) {
    char* text = concatenateString(nullptr, R"(a\"b\\c\)", 8, 1);
    EXPECT_STREQ(text, R"(a"b\\c)"); // kept: a backslash at the end is lost
    text = concatenateString(text, R"(\"\\)", 3, 0);
    EXPECT_STREQ(text, R"(a"b\\c\"\)");
    errno = 0;
    EXPECT_FALSE(concatenateString(text, nullptr, 3, 0) ||
                 concatenateString(text, "", SIZE_MAX, 0));
    EXPECT_EQ(errno, ENOMEM);
    free(text);
}

} // namespace
