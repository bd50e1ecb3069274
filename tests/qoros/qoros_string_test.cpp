#include "qoros.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

namespace {

constexpr std::size_t all = SIZE_MAX; // as a count: the form without one

std::string bytes(const char* data, std::size_t size) {
    return std::string(data, size);
}

TEST(QorOsString, CopiesWithinTheSize) {
    struct Case {
        const char* name;
        std::size_t size;
        const char* src;
        std::size_t count;
        std::string expected; // all 6 bytes of the destination afterwards
    };
    const Case cases[] = {
        {"no size", 0, "abc", all, bytes("######", 6)},
        {"room for the terminator only", 1, "abc", all, bytes("\0#####", 6)},
        {"cut", 3, "abc", all, bytes("ab\0###", 6)},
        {"as long as fits", 4, "abc", all, bytes("abc\0##", 6)},
        {"no padding", 6, "a", all, bytes("a\0####", 6)},
        {"count of 0", 6, "abc", 0, bytes("\0#####", 6)},
        {"count cuts", 6, "abc", 2, bytes("ab\0###", 6)},
        {"size cuts before count", 2, "abc", 2, bytes("a\0####", 6)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string dest(6, '#');
        EXPECT_EQ(c.count == all ? strcpy_qor(dest.data(), c.size, c.src)
                                 : strncpy_qor(dest.data(), c.size, c.src, c.count),
                  dest.data());
        EXPECT_EQ(dest, c.expected);
    }
}

TEST(QorOsString, ConcatenatesWithinTheSize) {
    struct Case {
        const char* name;
        const char* text;
        std::size_t size;
        const char* src;
        std::size_t count;
        std::string expected; // all 10 bytes
    };
    const Case cases[] = {
        {"fits", "ab", 8, "cd", all, bytes("abcd\0#####", 10)},
        {"fits exactly", "ab", 5, "cd", all, bytes("abcd\0#####", 10)},
        {"cut by one", "ab", 4, "cd", all, bytes("abc\0######", 10)},
        {"full", "abc", 4, "d", all, bytes("abc\0######", 10)},
        {"as long as the size", "abcd", 4, "e", all, bytes("abc\0\0#####", 10)},
        {"longer than the size", "abcde", 4, "f", all, bytes("abcde\0####", 10)},
        {"no size", "", 0, "cd", all, bytes("\0#########", 10)},
        {"longer source is not terminated", "", 10, "abcdef", 3, bytes("abc#######", 10)},
        {"shorter source is padded to count", "x", 10, "ab", 4, bytes("xab\0\0#####", 10)},
        {"padding ends at the size", "x", 6, "ab", 100, bytes("xab\0\0\0####", 10)},
        {"whole source decides", "12345", 8, "abcdef", 2, bytes("12345ab\0##", 10)},
        {"byte behind the piece stays", "1234", 8, "abcdef", 2, bytes("1234ab#\0##", 10)},
        {"no count", "x", 1, "ab", 0, bytes("x\0########", 10)},
        {"counted, as long as the size", "abcd", 4, "e", 1, bytes("abc\0\0#####", 10)},
        {"counted, longer than the size", "abcde", 4, "f", 1, bytes("abcde\0####", 10)},
        {"counted, no size", "", 0, "ab", 1, bytes("\0#########", 10)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string dest = "<" + bytes(c.text, strlen(c.text) + 1);
        dest.resize(11, '#');
        EXPECT_EQ(c.count == all ? strcat_qor(&dest[1], c.size, c.src)
                                 : strncat_qor(&dest[1], c.size, c.src, c.count),
                  &dest[1]);
        EXPECT_EQ(dest, "<" + c.expected);
    }
}

// Texts without a terminator, in blocks that end with what may be looked at.
TEST(QorOsString, LooksNoFurtherThanTheSize) {
    const std::unique_ptr<char[]> four(new char[4]);
    memcpy(four.get(), "abcd", 4);
    char dest[4];
    EXPECT_STREQ(strcpy_qor(dest, 4, four.get()), "abc");
    EXPECT_STREQ(strncpy_qor(dest, 4, four.get(), SIZE_MAX), "abc");
    for (const std::size_t max : {0u, 3u, 4u}) {
        EXPECT_EQ(strlen_qor(four.get(), max), max);
    }
    EXPECT_EQ(strlen_qor("abc", SIZE_MAX), 3u);
    EXPECT_EQ(strcat_qor(four.get() + 4, 0, "x"), four.get() + 4);
    EXPECT_EQ(strncat_qor(four.get() + 4, 0, "x", 1), four.get() + 4);
    EXPECT_EQ(strcat_qor(four.get(), 3, "x"), four.get());
    EXPECT_EQ(strncat_qor(four.get(), 3, "x", 1), four.get());
    EXPECT_EQ(bytes(four.get(), 4), "abcd");
}

TEST(QorOsString, RefusesNull) {
    char dest[4] = "ab";
    EXPECT_EQ(strcpy_qor(nullptr, 4, "x"), nullptr);
    EXPECT_EQ(strncpy_qor(dest, 4, nullptr, 1), nullptr);
    EXPECT_EQ(strcat_qor(dest, 4, nullptr), nullptr);
    EXPECT_EQ(strncat_qor(nullptr, 4, "x", 1), nullptr);
    EXPECT_STREQ(dest, "ab");
}

// A character that the locale "C", in which programs start, cannot show.
constexpr wint_t euro = 0x20AC;

TEST(QorOsString, FormatsAndTellsTheWholeLength) {
    char dest[4] = "###";
    EXPECT_EQ(sprintf_qor(dest, 0, "%s", "abcdef"), 0);
    EXPECT_STREQ(dest, "###");
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "%s", "abcdef"), 6);
    EXPECT_STREQ(dest, "abc");
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "%d", 42), 2);
    EXPECT_STREQ(dest, "42");
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "ab%lc", euro), 2);
    EXPECT_STREQ(dest, "ab");
}

TEST(QorOsString, ChangesCaseInPlace) {
    char text[] = "aZ1\xE4-";
    EXPECT_STREQ(strupr(text), "AZ1\xE4-");
    EXPECT_STREQ(strlwr(text), "az1\xE4-");
}

TEST(QorOsString, GrowsAHeapString) {
    struct Case {
        const char* name;
        const char* buffer; // null: no buffer yet
        const char* src;
        int unescape;
        const char* expected;
    };
    const Case cases[] = {
        {"new", nullptr, "ab", 0, "ab"},
        {"appended", "xy", "ab", 0, "xyab"},
        {"backslashes stay without the flag", "x", "a\\\"b\\", 0, "xa\\\"b\\"},
        {"only backslash and quote are an escape", nullptr, "a\\\"b\\c", 1, "a\"b\\c"},
        {"two backslashes stay two", nullptr, "a\\\\b", 1, "a\\\\b"},
        {"a backslash at the end is lost", nullptr, "a\\", 1, "a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        char* const old = c.buffer == nullptr ? nullptr : strdup(c.buffer);
        char* const grown = concatenateString(old, c.src, strlen(c.src), c.unescape);
        EXPECT_STREQ(grown, c.expected);
        free(grown);
    }
    char kept[] = "kept";
    EXPECT_EQ(concatenateString(kept, nullptr, 3, 0), nullptr);
    errno = 0;
    EXPECT_EQ(concatenateString(kept, "x", SIZE_MAX, 0), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

} // namespace
