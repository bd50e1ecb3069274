#include "qoros.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

using namespace std::string_literals;

namespace {

constexpr std::size_t all = SIZE_MAX; // as a count: the form without one

// The expectation is the whole destination, with "#" where nothing was written.
void expectCopy(std::size_t size, const char* src, std::size_t count, const std::string& expected) {
    SCOPED_TRACE(testing::Message() << src << " by " << count << " into " << size);
    std::string dest(6, '#');
    EXPECT_EQ(count == all ? strcpy_qor(dest.data(), size, src)
                           : strncpy_qor(dest.data(), size, src, count),
              dest.data());
    EXPECT_EQ(dest, expected);
}

TEST(QorOsString, CopiesWithinTheSize) {
    expectCopy(0, "abc", all, "######");
    expectCopy(1, "abc", all, "\0#####"s);
    expectCopy(4, "abc", all, "abc\0##"s);
    expectCopy(6, "a", all, "a\0####"s);
    expectCopy(6, "abc", 2, "ab\0###"s);
    expectCopy(2, "abc", 2, "a\0####"s);
}

void expectAdded(const char* name, const std::string& text, std::size_t size, const char* src,
                 std::size_t count, const std::string& expected) {
    SCOPED_TRACE(name);
    std::string dest = "<" + text + '\0';
    dest.resize(11, '#');
    EXPECT_EQ(count == all ? strcat_qor(&dest[1], size, src)
                           : strncat_qor(&dest[1], size, src, count),
              &dest[1]);
    EXPECT_EQ(dest, "<" + expected);
}

TEST(QorOsString, ConcatenatesWithinTheSize) {
    expectAdded("fits exactly", "ab", 5, "cd", all, "abcd\0#####"s);
    expectAdded("cut by one", "ab", 4, "cd", all, "abc\0######"s);
    expectAdded("as long as the size", "abcd", 4, "e", all, "abc\0\0#####"s);
    expectAdded("longer than the size", "abcde", 4, "f", all, "abcde\0####"s);
    expectAdded("longer source is not terminated", "", 10, "abcdef", 3, "abc#######"s);
    expectAdded("shorter source is padded to count", "x", 10, "ab", 4, "xab\0\0#####"s);
    expectAdded("padding ends at the size", "x", 6, "ab", 100, "xab\0\0\0####"s);
    expectAdded("whole source decides", "12345", 8, "abcdef", 2, "12345ab\0##"s);
    expectAdded("byte behind the piece stays", "1234", 8, "abcdef", 2, "1234ab#\0##"s);
    expectAdded("no count", "x", 1, "ab", 0, "x\0########"s);
    expectAdded("counted, as long as the size", "abcd", 4, "e", 1, "abc\0\0#####"s);
}

// Texts without a terminator, in blocks that end with what may be looked at.
TEST(QorOsString, LooksNoFurtherThanTheSize) {
    const std::unique_ptr<char[]> four(new char[4]{'a', 'b', 'c', 'd'});
    char dest[4];
    EXPECT_STREQ(strcpy_qor(dest, 4, four.get()), "abc");
    EXPECT_STREQ(strncpy_qor(dest, 4, four.get(), SIZE_MAX), "abc");
    for (const std::size_t max : {0u, 3u, 4u}) {
        EXPECT_EQ(strlen_qor(four.get(), max), max);
    }
    EXPECT_EQ(strlen_qor("abc", SIZE_MAX), 3u);
    EXPECT_EQ(strcat_qor(four.get() + 4, 0, "x"), four.get() + 4);
    EXPECT_EQ(strncat_qor(four.get() + 4, 0, "x", 1), four.get() + 4);
    strcat_qor(four.get(), 3, "x");
    strncat_qor(four.get(), 3, "x", 1);
    EXPECT_EQ(std::string(four.get(), 4), "abcd");
}

TEST(QorOsString, RefusesNull) {
    char dest[4] = "ab";
    EXPECT_EQ(strcpy_qor(nullptr, 4, "x"), nullptr);
    EXPECT_EQ(strncpy_qor(dest, 4, nullptr, 1), nullptr);
    EXPECT_EQ(strcat_qor(dest, 4, nullptr), nullptr);
    EXPECT_EQ(strncat_qor(nullptr, 4, "x", 1), nullptr);
    EXPECT_STREQ(dest, "ab");
}

TEST(QorOsString, FormatsAndTellsTheWholeLength) {
    char dest[4] = "###";
    EXPECT_EQ(sprintf_qor(dest, 0, "%s", "abcdef"), 0);
    EXPECT_STREQ(dest, "###");
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "%s", "abcdef"), 6);
    EXPECT_STREQ(dest, "abc");
    constexpr wint_t euro = 0x20AC; // unknown in the locale "C", in which programs start
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "ab%lc", euro), 2);
    EXPECT_STREQ(dest, "ab");
}

TEST(QorOsString, ChangesCaseInPlace) {
    char text[] = "aZ1\xE4-";
    EXPECT_STREQ(strupr(text), "AZ1\xE4-");
    EXPECT_STREQ(strlwr(text), "az1\xE4-");
}

TEST(QorOsString, GrowsAHeapString) {
    const auto check = [](const char* begin, const char* src, int unescape, const char* expected) {
        char* const old = begin == nullptr ? nullptr : strdup(begin);
        char* const grown = concatenateString(old, src, strlen(src), unescape);
        EXPECT_STREQ(grown, expected);
        free(grown);
    };
    check(nullptr, "ab", 0, "ab");
    check("x", R"(a\"b\)", 0, R"(xa\"b\)");
    check("xy", R"(a\"b\c)", 1, R"(xya"b\c)");
    check(nullptr, R"(a\\b)", 1, R"(a\\b)");
    check(nullptr, R"(a\)", 1, "a"); // a backslash at the end is lost
    char kept[] = "kept";
    EXPECT_EQ(concatenateString(kept, nullptr, 3, 0), nullptr);
    errno = 0;
    EXPECT_EQ(concatenateString(kept, "x", SIZE_MAX, 0), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

} // namespace
