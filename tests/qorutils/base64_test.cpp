#include "base64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "hex.h"

namespace {

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned int untouched = 12345;

// What a call returned, and all bytes of its buffer, which was filled with "#" before.
using Outcome = std::pair<unsigned int, std::string>;

unsigned char* pointer(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

// Calls a function of the buffer family with an exact-size input, and with less room than its
// buffer really has.
template <class Function>
Outcome run(Function function, const std::string& in, unsigned int room) {
    const Bytes exact(in.begin(), in.end());
    std::string out(room + 8, '#');
    const auto size = static_cast<unsigned int>(in.size());
    const unsigned int result = function(exact.data(), size, pointer(out), room);
    return {result, out};
}

// What does not fit is cut, and the result then 0.
Outcome cut(const std::string& whole, unsigned int room) {
    std::string out = whole.substr(0, room);
    out.resize(room + 8, '#');
    return {whole.size() > room ? 0 : static_cast<unsigned int>(whole.size()), out};
}

// From an exact-size text into a buffer of the size that is told. The length is told twice, but
// where the text is refused.
Outcome runNetworkDecode(const std::string& in) {
    const std::vector<char> text(in.c_str(), in.c_str() + in.size() + 1);
    std::string out(in.size() * 3 / 4 + 1, '#');
    unsigned int length = untouched;
    const unsigned int result = QorInetB64Decode(text.data(), 0, pointer(out), &length);
    EXPECT_EQ(result, length == untouched ? 0 : length);
    return {length, out};
}

// The definition, digit by digit.
std::string plainEncode(const std::string& in) {
    std::string text;
    for (std::size_t i = 0; i < in.size(); i += 3) {
        unsigned int bits = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            bits = bits << 8 | (i + k < in.size() ? static_cast<unsigned char>(in[i + k]) : 0u);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k > in.size() ? '=' : alphabet[bits >> (18 - 6 * k) & 0x3F];
        }
    }
    return text;
}

std::string randomBytes(std::mt19937& random, std::size_t count) {
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

TEST(Base64, TellsTheSizeForATextAndATerminator) {
    EXPECT_EQ(CalcBase64Len(0), 0u);
    EXPECT_EQ(CalcBase64Len(3171668154u), 4294967292u) << "the largest size that 32 bits hold";
    EXPECT_EQ(CalcBase64Len(3171668155u), 0xFFFFFFFFu);
}

TEST(Base64, EncodesAndDecodesForEveryRoom) {
    std::mt19937 random(1);
    for (unsigned int length = 1; length < 200; ++length) {
        SCOPED_TRACE(length);
        const std::string bytes = randomBytes(random, length);
        const std::string line = plainEncode(bytes);
        std::string out(line.size() + 1, '#'), lines = line;
        unsigned int told = untouched;
        const Bytes in(bytes.begin(), bytes.end());
        const int size = static_cast<int>(length);
        EXPECT_EQ(QorInetB64Encode(in.data(), size, out.data(), &told), line.size());
        EXPECT_EQ((Outcome{told, out}), (Outcome{line.size(), line + '\0'}));
        for (std::size_t i = 65; i < lines.size(); i += 65) {
            lines.insert(i, "\n"); // the first line is one character longer than the others
        }
        EXPECT_EQ(CalcBase64Len(length), lines.size() + 1);
        std::string text = lines;
        for (unsigned int room = 0; room < lines.size() + 3; ++room) {
            ASSERT_EQ(run(Base64Encode, bytes, room), cut(lines, room)) << room;
            ASSERT_EQ(run(Base64Decode, text, room), cut(bytes, room)) << room << text;
            // More and more of what is to be skipped.
            text.insert(random() % text.size(), random() % 8 == 0, "\n\r-_.\x7F\x80\xFF"[room % 8]);
        }
        std::replace(text.begin(), text.end(), '+', ' ');
        for (const std::string& digits : {line, text}) {
            EXPECT_EQ(runNetworkDecode(digits).second.substr(0, length), bytes) << digits;
        }
    }
}

// RFC 4648, section 10, and what is peculiar to each family.
TEST(Base64, Decodes) {
    // The text; what Base64Decode leaves, with "!" in front where it refuses; the same of
    // QorInetB64Decode, with "|" for zero bytes and "#" for untouched ones.
    const char* const cases[][3] = {
        {"Zm9vYmFy", "foobar", "foobar|"},
        {"TQ==", "M", "M||#"},
        {"TWE=", "Ma", "Ma|#"},
        {"TW=u", "M", "M||#"},
        {"TWF", "!", "Ma|"},
        {"T=", "!", "!L#"},
        {"=", "!", "!#"},
        {"TWFu=", "!Man", "!Man#"},
        {"TWFuTW", "!Man", "ManM|"},
        {"TW==TWFu", "M", "M||####"},
        {"a b=", "!", "k\xE6|#"},
        {"=WFu", "\x01\x61\x6e", "!####"},
        {"T===", "L", "!L###"},
    };
    for (const auto& [text, buffer, network] : cases) {
        auto [length, bytes] = run(Base64Decode, text, 6);
        bytes.erase(bytes.find_last_not_of('#') + 1);
        EXPECT_EQ((length == 0 ? "!" : "") + bytes, buffer) << text;
        auto [networkLength, out] = runNetworkDecode(text);
        std::replace(out.begin(), out.end(), '\0', '|');
        EXPECT_EQ((networkLength == untouched ? "!" : "") + out, network) << text;
    }
    EXPECT_EQ(run(Base64Decode, std::string("TW\0Fu", 5), 3).second, "Man########");
}

TEST(Base64, DecodesInPlaceWhatTheEncodersMade) {
    std::mt19937 random(3);
    const std::string bytes = randomBytes(random, 70000); // 16 bits count no length
    auto [length, lines] = run(Base64Encode, bytes, CalcBase64Len(70000));
    EXPECT_EQ(Base64Decode(pointer(lines), length, pointer(lines), 70000), 70000u);
    EXPECT_TRUE(lines.substr(0, 70000) == bytes);
    std::string line = plainEncode(bytes);
    EXPECT_EQ(QorInetB64Decode(line.data(), 0, pointer(line), nullptr), 70000u);
    EXPECT_TRUE(line.substr(0, 70000) == bytes);
}

TEST(Base64, RefusesNull) {
    unsigned char bytes[8] = "AAAA";
    char text[8] = "AAAA";
    unsigned int length = untouched;
    EXPECT_FALSE(Base64Encode(nullptr, 3, bytes, 8) || Base64Encode(bytes, 3, nullptr, 8) ||
                 Base64Decode(nullptr, 4, bytes, 8) || Base64Decode(bytes, 4, nullptr, 8) ||
                 QorInetB64Encode(nullptr, 3, text, &length) ||
                 QorInetB64Encode(bytes, 3, nullptr, &length) ||
                 QorInetB64Decode(nullptr, 4, bytes, &length) ||
                 QorInetB64Decode(text, 4, nullptr, &length));
    EXPECT_EQ(text + std::to_string(length), "AAAA12345") << "left as they were";
    EXPECT_EQ(QorInetB64Encode(nullptr, 0, text, &length) + length, 0u);
    EXPECT_EQ(QorInetB64Encode(bytes, -1, text, nullptr), 0u);
    EXPECT_STREQ(text, "");
}

} // namespace
