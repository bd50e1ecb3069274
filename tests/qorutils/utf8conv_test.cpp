#include "utf8conv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "hex.h"

namespace {

const std::string e4 = "\xFD\xBF\xBF\xBF\xBF\xA4"; // what the byte 0xE4 becomes

// Converts into an exact-size buffer, whose last byte is dst[dstSize]. Returns all that was
// written, with "|" for zero bytes.
std::string convert(const std::string& src, unsigned int dstSize = 40) {
    std::string dst(dstSize + 1, '#');
    AnsiToUtf8(src.c_str(), dst.data(), dstSize);
    dst.erase(dst.find_last_not_of('#') + 1);
    std::replace(dst.begin(), dst.end(), '\0', '|');
    return dst;
}

// RFC 2279, section 2: the last code of each form and the first of the next.
TEST(Utf8, WritesEachForm) {
    const std::pair<unsigned long, std::string> cases[] = {
        {0x00, "00"},
        {0x7F, "7f"},
        {0x80, "c280"},
        {0x7FF, "dfbf"},
        {0x800, "e0a080"},
        {0xFFFF, "efbfbf"},
        {0x10000, "f0908080"},
        {0x1FFFFF, "f7bfbfbf"},
        {0x200000, "f888808080"},
        {0x3FFFFFF, "fbbfbfbfbf"},
        {0x4000000, "fc8480808080"},
        {0x7FFFFFFF, "fdbfbfbfbfbf"},
        // Higher bits are dropped, the form stays.
        {0x100000041, "fc8080808181"},
        {0x80000041, "fc8080808181"}};
    for (const auto& [code, text] : cases) {
        const int length = static_cast<int>(text.size() / 2);
        Bytes out(text.size() / 2);
        EXPECT_EQ(UTF8_putc(nullptr, 0, code), length) << text;
        EXPECT_EQ(UTF8_putc(out.data(), length - 1, code), -1) << text;
        EXPECT_EQ(out, Bytes(out.size())) << text;
        EXPECT_EQ(UTF8_putc(out.data(), length, code), length) << text;
        EXPECT_EQ(out, unhex(text));
    }
}

TEST(Utf8, ConvertsTextAndReferences) {
    EXPECT_EQ(convert("Gr&#252;&#223;&&amp;&"), "Gr\xC3\xBC\xC3\x9F&&amp;&|");
    EXPECT_EQ(convert("&#x41;&#X42;&#x0x43;&#x  +0x44;&#   +0069;"), "ABCDE|");
    EXPECT_EQ(convert("&#1234;&#5;"), "\xD3\x92\xE1\x91\xB2|") << "left-over digits";
    EXPECT_EQ(convert("&#65;&#;&#x;"), "AAe|") << "no digits: the left-over ones";
    EXPECT_EQ(convert("a&#z;b&#xz;c&#65z;"), "a|b|cA|") << "no number is 0";
    EXPECT_EQ(convert("&#-1;"), "\xFD\xBF\xBF\xBF\xBF\xBF|");
    EXPECT_EQ(convert("&#4294967361;&#x8000000000000041;"), "AA|") << "cut to 32 bits";
    EXPECT_EQ(convert("&#00000000000000065;&#000000000000000066;."), "A.|") << "20 are too many";
    EXPECT_EQ(convert("&#000000000000000065;&#7;"), "\a|") << "and leave no digits";
    EXPECT_EQ(convert("&#65;&#66&#"), "A#66#|") << "no end";
    EXPECT_EQ(convert("\x80\xE4"), "\xFD\xBF\xBF\xBF\xBE\x80" + e4 + "|") << "bytes are signed";
}

TEST(Utf8, EndsWithinItsRoom) {
    EXPECT_EQ(convert("abc", 0), "|");
    EXPECT_EQ(convert("abc", 2), "ab|");
    // What does not fit takes one byte back, each time, but never before the start.
    EXPECT_EQ(convert("ab\344cd", 6), "acd|");
    EXPECT_EQ(convert("abc\344\344d", 6), "ad|");
    EXPECT_EQ(convert("a\344\344bc", 3), "bc|");
    EXPECT_EQ(convert("ab\344", 7), "a|");
    EXPECT_EQ(convert("ab\344", 8), "ab" + e4 + "|");
    char dst[16] = "x";
    AnsiToUtf8(nullptr, dst, 1);
    EXPECT_STREQ(dst, "");
    AnsiToUtf8("a\xE4", dst, 0xFFFFFFFF);
    EXPECT_EQ(dst, "a" + e4);
    AnsiToUtf8("a", nullptr, 1);
}

// A search for ";" from each "&#" would pass over 16 TB, and the test run out of its time.
TEST(Utf8, StaysLinearWithoutEnds) {
    std::string src(8000000, '#');
    for (std::size_t i = 0; i < src.size(); i += 2) {
        src[i] = '&';
    }
    EXPECT_TRUE(convert(src, 4000000) == std::string(4000000, '#') + '|');
}

} // namespace
