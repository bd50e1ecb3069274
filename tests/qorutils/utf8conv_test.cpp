#include "utf8conv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "hex.h"

namespace {

const std::string e4 = "\xFD\xBF\xBF\xBF\xBF\xA4"; // what the byte 0xE4 becomes

// Converts into an exact-size buffer filled with "#"; returns all of it, with "|" for zero bytes.
std::string convert(const std::string& src, unsigned int dstSize) {
    std::string dst(dstSize + 1, '#');
    AnsiToUtf8(src.c_str(), dst.data(), dstSize);
    std::replace(dst.begin(), dst.end(), '\0', '|');
    return dst;
}

// RFC 2279, section 2: the last code of each form and the first of the next.
TEST(Utf8, WritesEachForm) {
    const std::pair<unsigned long, const char*> cases[] = {
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
        {0x100000041, "fc8080808181"}, // higher bits are dropped, the form stays
        {0x80000041, "fc8080808181"},
    };
    for (const auto& [code, text] : cases) {
        SCOPED_TRACE(code);
        const Bytes expected = unhex(text);
        const int length = static_cast<int>(expected.size());
        EXPECT_EQ(UTF8_putc(nullptr, 0, code), length);
        Bytes out(expected.size());
        EXPECT_EQ(UTF8_putc(out.data(), length - 1, code), -1);
        EXPECT_EQ(UTF8_putc(out.data(), -1, code), -1);
        EXPECT_EQ(out, Bytes(out.size()));
        EXPECT_EQ(UTF8_putc(out.data(), length, code), length);
        EXPECT_EQ(out, expected);
    }
}

struct Case {
    const char* name;
    const char* src;
    std::string expected;
    unsigned int dstSize = 40;
};

template <std::size_t Count>
void expectConverted(const Case (&cases)[Count]) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(convert(c.src, c.dstSize).substr(0, c.expected.size()), c.expected);
    }
}

TEST(Utf8, ConvertsTextAndReferences) {
    expectConverted({
        {"empty", "", "|#"},
        {"decimal", "Gr&#252;&#223;", "Gr\xC3\xBC\xC3\x9F|#"},
        {"hexadecimal", "&#x41;&#X42;", "AB|#"},
        {"left-over digits", "&#1234;&#5;", "\xD3\x92\xE1\x91\xB2|#"},
        {"left-over digits read as hexadecimal", "&#100;&#x4;", "d\xD0\x80|#"},
        {"no digits: the left-over ones", "&#65;&#;&#x;", "AAe|#"},
        {"no number: 0", "a&#z;b&#xz;c", "a|b|c|#"},
        {"prefix, blank, sign", "&#x0x41;&#x  +0x42;&#  +0067;", "ABC|#"},
        {"digits end at the first other", "&#65z;", "A|#"},
        {"negative", "&#-1;", "\xFD\xBF\xBF\xBF\xBF\xBF|#"},
        {"cut to 32 bits", "&#4294967361;&#x8000000000000041;", "AA|#"},
        {"19 characters, and 20", "&#00000000000000065;&#000000000000000066;.", "A.|#"},
        {"20 characters leave no digits", "&#000000000000000065;&#7;", "\a|#"},
        {"no end after one with an end", "&#65;&#66&#", "A#66#|#"},
        {"other ampersands", "&&amp;&", "&&amp;&|#"},
        {"bytes are signed", "\x80\xE4", "\xFD\xBF\xBF\xBF\xBE\x80" + e4 + "|#"},
    });
}

TEST(Utf8, EndsWithinItsRoom) {
    // All bytes of the buffer, whose last is dst[dstSize].
    expectConverted({
        {"no room", "abc", "|", 0},
        {"full", "abc", "ab|", 2},
        {"exact", "abc", "abc|", 3},
        {"what does not fit takes one byte back", "ab\344cd", "acd|###", 6},
        {"each time", "abc\344\344d", "ad|####", 6},
        {"as far as the start, but never before", "a\344\344bc", "bc|#", 3},
        {"at the end", "ab\344", "a|######", 7},
        {"six bytes fit", "ab\344", "ab" + e4 + "|", 8},
    });
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
    EXPECT_TRUE(convert(src, count) == std::string(count, '#') + '|');
}

} // namespace
