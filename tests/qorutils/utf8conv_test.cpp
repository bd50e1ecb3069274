#include "utf8conv.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string e4 = "\xFD\xBF\xBF\xBF\xBF\xA4"; // what the byte 0xE4 becomes

// Converts into an exact-size buffer filled with "#"; returns all of it.
std::string convert(const std::string& src, unsigned int dstSize) {
    std::string dst(dstSize + 1, '#');
    AnsiToUtf8(src.c_str(), dst.data(), dstSize);
    return dst;
}

// RFC 2279, section 2: the last code of each form and the first of the next.
TEST(Utf8, WritesEachForm) {
    struct Case {
        unsigned long code;
        std::string bytes;
    };
    const Case cases[] = {
        {0x00, std::string(1, '\0')},
        {0x7F, "\x7F"},
        {0x80, "\xC2\x80"},
        {0x7FF, "\xDF\xBF"},
        {0x800, "\xE0\xA0\x80"},
        {0x20AC, "\xE2\x82\xAC"},
        {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"},
        {0x1FFFFF, "\xF7\xBF\xBF\xBF"},
        {0x200000, "\xF8\x88\x80\x80\x80"},
        {0x3FFFFFF, "\xFB\xBF\xBF\xBF\xBF"},
        {0x4000000, "\xFC\x84\x80\x80\x80\x80"},
        {0x40000000, "\xFD\x80\x80\x80\x80\x80"},
        {0x7FFFFFFF, "\xFD\xBF\xBF\xBF\xBF\xBF"},
        // Higher bits are dropped, the form stays.
        {0x80000041, "\xFC\x80\x80\x80\x81\x81"},
        {0x100000041, "\xFC\x80\x80\x80\x81\x81"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        const int length = static_cast<int>(c.bytes.size());
        EXPECT_EQ(UTF8_putc(nullptr, 0, c.code), length);
        std::string out(8, '#');
        auto* const bytes = reinterpret_cast<unsigned char*>(out.data());
        EXPECT_EQ(UTF8_putc(bytes, length - 1, c.code), -1);
        EXPECT_EQ(UTF8_putc(bytes, -1, c.code), -1);
        EXPECT_EQ(out, "########");
        EXPECT_EQ(UTF8_putc(bytes, length, c.code), length);
        EXPECT_EQ(out, c.bytes + std::string(8 - c.bytes.size(), '#'));
    }
}

TEST(Utf8, ConvertsTextAndReferences) {
    struct Case {
        const char* name;
        const char* src;
        std::string expected;
    };
    const Case cases[] = {
        {"empty", "", ""},
        {"decimal", "Gr&#252;&#223;e",
         "Gr\xC3\xBC\xC3\x9F"
         "e"},
        {"hexadecimal", "&#x41;&#X42;", "AB"},
        {"left-over digits", "&#1234;&#5;", "\xD3\x92\xE1\x91\xB2"},
        {"left-over digits read as hexadecimal", "&#100;&#x4;", "d\xD0\x80"},
        {"no digits: the left-over ones", "&#65;&#;&#x;", "AAe"},
        {"prefix, blank, sign", "&#x0x41;&#x  +0x42;&#  +0067;", "ABC"},
        {"digits end at the first other", "&#65z;", "A"},
        {"negative", "&#-1;", "\xFD\xBF\xBF\xBF\xBF\xBF"},
        {"cut to 32 bits", "&#4294967361;", "A"},
        {"cut to 32 bits, hexadecimal", "&#x8000000000000041;", "A"},
        {"19 characters", "&#00000000000000065;", "A"},
        {"20 characters", "[&#000000000000000065;]", "[]"},
        {"20 characters leave no digits", "&#000000000000000065;&#7;", "\a"},
        {"no end", "a&#12", "a#12"},
        {"no end after one with an end", "&#65;&#66&#", "A#66#"},
        {"other ampersands", "&&amp;&", "&&amp;&"},
        {"bytes are signed", "\xE4\x80\xBF\xC0",
         e4 + "\xFD\xBF\xBF\xBF\xBE\x80"
              "\xFD\xBF\xBF\xBF\xBE\xBF"
              "\xFD\xBF\xBF\xBF\xBF\x80"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(convert(c.src, 40).substr(0, c.expected.size() + 1), c.expected + '\0');
    }
    // A reference without a number is 0, which ends the text for its reader.
    EXPECT_EQ(convert("a&#z;b", 5), std::string("a\0b\0##", 6));
    EXPECT_EQ(convert("a&#xz;b", 5), std::string("a\0b\0##", 6));
}

TEST(Utf8, EndsWithinItsRoom) {
    struct Case {
        const char* name;
        const char* src;
        unsigned int dstSize;
        std::string expected; // all bytes of the buffer, whose last is dst[dstSize]
    };
    const Case cases[] = {
        {"no room", "abc", 0, std::string("\0", 1)},
        {"full", "abc", 2, std::string("ab\0", 3)},
        {"exact", "abc", 3, std::string("abc\0", 4)},
        {"what does not fit takes one byte back",
         "ab\xE4"
         "cd",
         6, std::string("acd\0##", 6) + '#'},
        {"each time",
         "abc\xE4\xE4"
         "d",
         6, std::string("ad\0###", 6) + '#'},
        {"as far as the start",
         "a\xE4"
         "b",
         3, std::string("b\0##", 4)},
        {"but never before the start",
         "\xE4\xE4"
         "ab",
         3, std::string("ab\0#", 4)},
        {"at the end", "ab\xE4", 7, std::string("a\0", 2) + "######"},
        {"six bytes fit", "ab\xE4", 8, "ab" + e4 + '\0'},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(convert(c.src, c.dstSize), c.expected);
    }
    char dst[16] = "x";
    AnsiToUtf8(nullptr, dst, 1);
    EXPECT_STREQ(dst, "");
    AnsiToUtf8("a\xE4", dst, 0xFFFFFFFF);
    EXPECT_EQ(dst, "a" + e4);
    AnsiToUtf8("a", nullptr, 1);
}

// A search for ";" from each "&#" would pass over 16 TB, and the test run out of its time.
TEST(Utf8, StaysLinearWithoutEnds) {
    constexpr unsigned int count = 4000000;
    std::string src;
    for (unsigned int i = 0; i < count; ++i) {
        src += "&#";
    }
    EXPECT_TRUE(convert(src, count) == std::string(count, '#') + '\0');
}

} // namespace
