#include "qoros.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <memory>

using namespace std::string_literals;

namespace {

constexpr std::size_t all = SIZE_MAX; // as a count: the form without one

// A destination that holds a text, and all of it behind the call; "#" is what nobody wrote.
template <class Whole, class Counted>
void expectText(Whole whole, Counted counted, const std::string& text, std::size_t size,
                const char* src, std::size_t count, const std::string& expected) {
    std::string dest = text + '\0';
    dest.resize(10, '#');
    EXPECT_EQ(count == all ? whole(dest.data(), size, src) : counted(dest.data(), size, src, count),
              dest.data());
    EXPECT_EQ(dest, expected) << src << " by " << count << " into " << size;
}

TEST(QorOsString, CopiesWithinTheSize) {
    const auto check = [](std::size_t size, const char* src, std::size_t count,
                          const std::string& expected) {
        expectText(strcpy_qor, strncpy_qor, "##########", size, src, count, expected);
    };
    check(0, "abc", all, "##########"s);
    check(1, "abc", all, "\0#########"s);
    check(4, "abc", all, "abc\0######"s);
    check(6, "abc", 2, "ab\0#######"s);
    check(2, "abc", 2, "a\0########"s);
}

TEST(QorOsString, ConcatenatesWithinTheSize) {
    const auto check = [](const char* name, const std::string& text, std::size_t size,
                          const char* src, std::size_t count, const std::string& expected) {
        SCOPED_TRACE(name);
        expectText(strcat_qor, strncat_qor, text, size, src, count, expected);
    };
    check("fits exactly", "ab", 5, "cd", all, "abcd\0#####"s);
    check("cut by one", "ab", 4, "cd", all, "abc\0######"s);
    check("as long as the size", "abcd", 4, "e", all, "abc\0\0#####"s);
    check("longer than the size", "abcde", 4, "f", all, "abcde\0####"s);
    check("longer source is not terminated", "", 10, "abcdef", 3, "abc#######"s);
    check("shorter source is padded to count", "x", 10, "ab", 4, "xab\0\0#####"s);
    check("padding ends at the size", "x", 6, "ab", 100, "xab\0\0\0####"s);
    check("whole source decides", "12345", 8, "abcdef", 2, "12345ab\0##"s);
    check("byte behind the piece stays", "1234", 8, "abcdef", 2, "1234ab#\0##"s);
    check("no count", "x", 1, "ab", 0, "x\0########"s);
    check("counted, as long as the size", "abcd", 4, "e", 1, "abc\0\0#####"s);
}

// A text without a terminator, in a block that ends with what may be looked at.
TEST(QorOsString, LooksNoFurtherThanTheSizeAndRefusesNull) {
    const std::unique_ptr<char[]> four(new char[4]{'a', 'b', 'c', 'd'});
    char dest[4];
    EXPECT_STREQ(strncpy_qor(dest, 4, four.get(), SIZE_MAX), "abc");
    EXPECT_EQ(strlen_qor(four.get(), 4) + strlen_qor(four.get() + 4, 0), 4u);
    EXPECT_EQ(strlen_qor("abc", SIZE_MAX), 3u);
    EXPECT_EQ(strcat_qor(four.get() + 4, 0, "x"), strncat_qor(four.get() + 4, 0, "x", 1));
    strcat_qor(four.get(), 3, "x");
    strncat_qor(four.get(), 3, "x", 1);
    EXPECT_EQ(std::string(four.get(), 4), "abcd");
    EXPECT_FALSE(strcpy_qor(nullptr, 4, "x") || strncpy_qor(dest, 4, nullptr, 1));
    EXPECT_FALSE(strcat_qor(dest, 4, nullptr) || strncat_qor(nullptr, 4, "x", 1));
}

TEST(QorOsString, FormatsAndTellsTheWholeLengthAndChangesCase) {
    char dest[4] = "###";
    EXPECT_EQ(sprintf_qor(dest, 0, "%s", "abcdef"), 0);
    EXPECT_STREQ(dest, "###");
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "%s", "abcdef"), 6);
    EXPECT_STREQ(dest, "abc");
    constexpr wint_t euro = 0x20AC; // unknown in the locale "C", in which programs start
    EXPECT_EQ(sprintf_qor(dest, sizeof dest, "ab%lc", euro), 2);
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
    check("x", R"(a\"b\)", 0, R"(xa\"b\)");
    check("xy", R"(a\"b\c)", 1, R"(xya"b\c)");
    check(nullptr, R"(a\\b)", 1, R"(a\\b)");
    check(nullptr, R"(a\)", 1, "a"); // a backslash at the end is lost
    char kept[] = "kept";
    errno = 0;
    EXPECT_FALSE(concatenateString(kept, nullptr, 3, 0) || concatenateString(kept, "x", all, 0));
    EXPECT_EQ(errno, ENOMEM);
}

} // namespace
