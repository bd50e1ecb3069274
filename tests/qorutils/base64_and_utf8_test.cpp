#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "base64.h"
#include "hex.h"
#include "utf8conv.h"

namespace {

unsigned char* pointer(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

// Calls a function of the buffer family with an exact-size input, and with less room than its
// buffer has. Tells the result and the whole buffer.
template <class Function>
std::string run(Function function, const std::string& in, unsigned int room) {
    const Bytes exact(in.begin(), in.end());
    std::string out(room + 8, '#');
    const auto size = static_cast<unsigned int>(in.size());
    return std::to_string(function(exact.data(), size, pointer(out), room)) + ' ' + out;
}

// What does not fit is cut, and the result then 0.
std::string cut(const std::string& whole, unsigned int room) {
    std::string out = whole.substr(0, room);
    out.resize(room + 8, '#');
    return std::to_string(whole.size() > room ? 0 : whole.size()) + ' ' + out;
}

TEST(Base64, EncodesAndDecodesForEveryRoom) {
    std::mt19937 random(1);
    for (unsigned int length = 1; length < 200; ++length) {
        std::string bytes(length, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        std::string text((length + 2) / 3 * 4, '#'), back(text.size(), '#');
        const int size = static_cast<int>(length);
        EXPECT_EQ(QorInetB64Encode(pointer(bytes), size, text.data(), nullptr), text.size());
        EXPECT_EQ(QorInetB64Decode(text.data(), 0, pointer(back), nullptr), length);
        EXPECT_EQ(back.substr(0, length), bytes);
        for (std::size_t i = 65; i < text.size(); i += 65) {
            text.insert(i, "\n"); // the first line is one character longer than the others
        }
        EXPECT_EQ(CalcBase64Len(length), text.size() + 1);
        const std::string lines = text;
        for (unsigned int room = 0; room < lines.size() + 3; ++room) {
            ASSERT_EQ(run(Base64Encode, bytes, room), cut(lines, room));
            ASSERT_EQ(run(Base64Decode, text, room), cut(bytes, room)) << text;
            // More and more of what is to be skipped.
            text.insert(random() % text.size(), random() % 8 == 0, "\n\r-_.\x7F\x80\xFF"[room % 8]);
        }
    }
    EXPECT_EQ(CalcBase64Len(3171668155u), 0xFFFFFFFFu) << "the first size beyond 32 bits";
}

TEST(Base64, Decodes) {
    // The text; what each family makes of it, where 77 is the length that was there before.
    const char* const cases[][3] = {
        {"Zm/+", "3 \x66\x6f\xfe########", "3 \x66\x6f\xfe|##"},
        {"TWF", "0 ###########", "2 Ma|###"},
        {"TWFu=", "0 Man########", "77 Man###"},
        {"TQ==TWFu", "1 M##########", "1 M||###"},
        {"a ~b=", "0 ###########", "2 k\xE6|###"},
        {"=WFu", "3 \x01\x61\x6e########", "77 ######"},
        {"T===", "1 L##########", "77 L#####"},
    };
    for (const auto& [text, buffer, network] : cases) {
        EXPECT_EQ(run(Base64Decode, text, 3), buffer) << text;
        std::string out(6, '#');
        unsigned int length = 77;
        const unsigned int result = QorInetB64Decode(text, 0, pointer(out), &length);
        EXPECT_EQ(result, length == 77 ? 0 : length) << text;
        std::replace(out.begin(), out.end(), '\0', '|');
        EXPECT_EQ(std::to_string(length) + ' ' + out, network) << text;
    }
    EXPECT_EQ(Base64Encode(nullptr, 3, nullptr, 4) + QorInetB64Decode("AAAA", 4, nullptr, nullptr),
              0u);
}

// Converts into an exact-size buffer, whose last byte is dst[dstSize].
std::string convert(const std::string& src, unsigned int dstSize) {
    std::string dst(dstSize + 1, '#');
    AnsiToUtf8(src.c_str(), dst.data(), dstSize);
    return dst.c_str();
}

// RFC 2279, section 2: the last code of each form and the first of the next. Of a code beyond the
// last one, higher bits are dropped.
TEST(Utf8, WritesEachForm) {
    std::istringstream cases("7f 7f 80 c280 7ff dfbf 800 e0a080 ffff efbfbf 10000 f0908080 "
                             "1fffff f7bfbfbf 200000 f888808080 3ffffff fbbfbfbfbf "
                             "4000000 fc8480808080 80000041 fc8080808181");
    std::string text;
    for (unsigned long code = 0; cases >> std::hex >> code >> text;) {
        const Bytes expected = unhex(text);
        const int length = static_cast<int>(expected.size());
        Bytes out(expected.size());
        EXPECT_EQ(UTF8_putc(nullptr, 0, code), length) << text;
        EXPECT_EQ(UTF8_putc(out.data(), length - 1, code), -1) << text;
        EXPECT_EQ(UTF8_putc(out.data(), length, code), length) << text;
        EXPECT_EQ(out, expected);
    }
}

TEST(Utf8, ConvertsTextAndReferences) {
    const std::tuple<const char*, unsigned int, std::string> cases[] = {
        {"Gr&#252;&#XDF ;&&amp;&", 40, "Gr\xC3\xBC\xC3\x9F&&amp;&"},
        {"&#1234;&#5;&#;", 40, "\xD3\x92\xE1\x91\xB2\xE1\x91\xB2"}, // left-over digits
        {"&#4294967361;&#x8000000000000041;", 40, "AA"},            // cut to 32 bits
        {"&#00000000000000065;&#000000000000000066;.", 40, "A."},   // 20 are too many
        {"&#65;&#66&#", 40, "A#66#"},                               // no end
        {"\xE4", 6, "\xFD\xBF\xBF\xBF\xBF\xA4"},                    // bytes are signed
        // What does not fit takes one byte back, each time, but never before the start.
        {"ab\344cd", 6, "acd"},
        {"a\344\344bc", 3, "bc"}};
    for (const auto& [src, dstSize, expected] : cases) {
        EXPECT_EQ(convert(src, dstSize), expected) << src;
    }
    std::string src; // a search for ";" from each "&#" would pass over 16 TB
    for (int i = 0; i < 4000000; ++i) {
        src += "&#";
    }
    EXPECT_TRUE(convert(src, 4000000) == std::string(4000000, '#'));
    AnsiToUtf8("a", nullptr, 1);
    AnsiToUtf8(nullptr, src.data(), ~0U);
}

} // namespace
