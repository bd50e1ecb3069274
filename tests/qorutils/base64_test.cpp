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

// Calls a function of the buffer family with an exact-size input, and with less room than its
// buffer really has.
template <class Function>
Outcome run(Function function, const std::string& in, unsigned int outSize) {
    Bytes exact(in.begin(), in.end());
    exact.reserve(1); // also the empty one has an address
    Bytes out(outSize + 8, '#');
    const auto size = static_cast<unsigned int>(in.size());
    const unsigned int result = function(exact.data(), size, out.data(), outSize);
    return {result, std::string(out.begin(), out.end())};
}

// The network family tells the length a second time, but where it refuses the input.

Outcome runNetworkEncode(const std::string& in) {
    const Bytes exact(in.begin(), in.end());
    std::string out((in.size() + 2) / 3 * 4 + 1, '#');
    unsigned int length = untouched;
    const int size = static_cast<int>(in.size());
    EXPECT_EQ(QorInetB64Encode(exact.data(), size, out.data(), &length), length);
    return {length, out};
}

// Decodes from an exact-size buffer into one of the size that is told, and `spare` bytes more.
Outcome runNetworkDecode(const std::string& in, std::size_t spare) {
    const std::vector<char> text(in.c_str(), in.c_str() + in.size() + 1);
    Bytes out(in.size() * 3 / 4 + 1 + spare, '#');
    unsigned int length = untouched;
    const unsigned int result = QorInetB64Decode(text.data(), 0, out.data(), &length);
    EXPECT_EQ(result, length == untouched ? 0 : length);
    return {length, std::string(out.begin(), out.end())};
}

// The definitions, digit by digit.

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

// The bytes that are complete.
std::string plainDecode(const std::string& digits) {
    std::string bytes;
    std::size_t bits = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        bits = bits << 6 | alphabet.find(digits[i]);
        if (i % 4 != 0) {
            bytes += static_cast<char>(bits >> (6 - i % 4 * 2));
        }
    }
    return bytes;
}

// What does not fit is cut, and the result then 0.
Outcome cut(const std::string& whole, unsigned int outSize) {
    std::string out = whole.substr(0, outSize);
    out.resize(outSize + 8, '#');
    return {whole.size() > outSize ? 0 : static_cast<unsigned int>(whole.size()), out};
}

Outcome referenceEncode(const std::string& in, unsigned int outSize) {
    std::string text = plainEncode(in);
    for (std::size_t i = 65; i < text.size(); i += 65) {
        text.insert(i, "\n");
    }
    return cut(text, outSize);
}

Outcome referenceDecode(const std::string& in, unsigned int outSize) {
    std::string bytes;
    std::string group;
    for (std::size_t i = 0, count = 3; i < in.size() && count == 3; ++i) {
        if ((alphabet + '=').find(in[i]) != std::string::npos) {
            group += in[i];
        }
        if (group.size() == 4) {
            count = group[2] == '=' ? 1 : group[3] == '=' ? 2 : 3;
            std::replace(group.begin(), group.end(), '=', 'A');
            bytes += plainDecode(group).substr(0, count);
            group.clear();
        }
    }
    const Outcome whole = cut(bytes, outSize);
    return {group.empty() ? whole.first : 0, whole.second};
}

Outcome referenceNetworkDecode(const std::string& in, std::size_t spare) {
    std::string digits;
    const std::size_t end = in.find('=');
    for (const char character : in.substr(0, end)) {
        const std::size_t digit = alphabet.find(character == ' ' ? '+' : character);
        digits += digit == std::string::npos ? "" : alphabet.substr(digit, 1);
    }
    std::string out = plainDecode(digits + 'A'); // bytes begun are stored
    out.resize(in.size() * 3 / 4 + 1 + spare, '#');
    if (end != std::string::npos && digits.size() % 4 < 2) {
        return {untouched, out};
    }
    const std::size_t count = digits.size() * 3 / 4;
    const std::size_t zeros = end == std::string::npos ? 1 : 3 - count % 3;
    out.replace(count, zeros, zeros, '\0');
    return {static_cast<unsigned int>(count), out};
}

std::string randomText(std::mt19937& random, const std::string& characters, std::size_t length) {
    std::string text(length, '\0');
    std::generate(text.begin(), text.end(),
                  [&] { return characters[random() % characters.size()]; });
    return text;
}

std::string allBytes() {
    std::string bytes(256, '\0');
    std::generate(bytes.begin(), bytes.end(), [i = 0]() mutable { return static_cast<char>(i++); });
    return bytes;
}

TEST(Base64, TellsTheSizeForATextAndATerminator) {
    EXPECT_EQ(CalcBase64Len(0), 0u);
    EXPECT_EQ(CalcBase64Len(3171668154u), 4294967292u) << "the largest size that 32 bits hold";
    EXPECT_EQ(CalcBase64Len(3171668155u), 0xFFFFFFFFu);
}

TEST(Base64, KeepsTheFirstLineOneCharacterLonger) {
    EXPECT_EQ(run(Base64Encode, std::string(97, '\0'), 134).second,
              std::string(65, 'A') + '\n' + std::string(64, 'A') + "\nA==########");
}

TEST(Base64, EncodesAsDefinedForEveryRoom) {
    std::mt19937 random(1);
    for (unsigned int length = 1; length < 200; ++length) {
        SCOPED_TRACE(length);
        const std::string in = randomText(random, allBytes(), length);
        const unsigned int size = CalcBase64Len(length);
        ASSERT_EQ(run(Base64Encode, in, size).first, size - 1);
        for (unsigned int outSize = 0; outSize < size + 2; ++outSize) {
            ASSERT_EQ(run(Base64Encode, in, outSize), referenceEncode(in, outSize)) << outSize;
        }
        const unsigned int characters = (length + 2) / 3 * 4;
        ASSERT_EQ(runNetworkEncode(in), (Outcome{characters, plainEncode(in) + '\0'}));
    }
}

// RFC 4648, section 10, and what is peculiar to each family.
TEST(Base64, Decodes) {
    struct Case {
        const char* text;
        const char* buffer;  // what Base64Decode gives; nothing where it refuses
        const char* network; // what QorInetB64Decode gives
    };
    const Case cases[] = {
        {"Zm8=", "fo", "fo"},
        {"Zm9vYmFy", "foobar", "foobar"},
        {"T\xFFW\r\nF.u", "Man", "Man"},
        {"TWF", "", "Ma"},
        {"T=", "", ""},
        {"TWFu=", "", ""},
        {"TW==TWFu", "M", "M"},
        {"a b=", "", "k\xE6"},
        {"a+b=", "k\xE6", "k\xE6"},
        {"TW E=", "Ma", ""},
        {"=WFu", "\x01\x61\x6e", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const auto [length, bytes] = run(Base64Decode, c.text, 6);
        EXPECT_EQ(bytes.substr(0, length), c.buffer);
        const auto [networkLength, networkBytes] = runNetworkDecode(c.text, 0);
        EXPECT_EQ(networkLength == untouched ? "" : networkBytes.substr(0, networkLength),
                  c.network);
    }
}

TEST(Base64, DecodesAsDefinedWhateverTheText) {
    std::mt19937 random(2);
    const std::string characterSets[] = {
        alphabet,                                        // whole groups
        alphabet + alphabet + alphabet + "= \n",         // some need care
        alphabet + "===\xFF\xFE" + allBytes().substr(1), // most do
    };
    for (unsigned int round = 0; round < 6000; ++round) {
        const std::string in = randomText(random, characterSets[round % 3], random() % 90);
        for (const unsigned int outSize : {0u, static_cast<unsigned int>(random() % 70), 70u}) {
            ASSERT_EQ(run(Base64Decode, in, outSize), referenceDecode(in, outSize)) << in;
        }
        for (const std::size_t spare : {0u, 8u}) {
            ASSERT_EQ(runNetworkDecode(in, spare), referenceNetworkDecode(in, spare)) << in;
        }
    }
    // A zero byte in a counted text.
    EXPECT_EQ(run(Base64Decode, std::string("TW\0Fu", 5), 3).second, "Man########");
}

TEST(Base64, DecodesInPlaceWhatTheEncodersMade) {
    std::mt19937 random(3);
    const std::string bytes = randomText(random, allBytes(), 70000); // 16 bits count no length
    auto [length, lines] = run(Base64Encode, bytes, CalcBase64Len(70000));
    auto* text = reinterpret_cast<unsigned char*>(lines.data());
    EXPECT_EQ(Base64Decode(text, length, text, 70000), 70000u);
    EXPECT_TRUE(lines.substr(0, 70000) == bytes);
    std::string line = runNetworkEncode(bytes).second;
    text = reinterpret_cast<unsigned char*>(line.data());
    EXPECT_EQ(QorInetB64Decode(line.data(), 0, text, nullptr), 70000u);
    EXPECT_TRUE(line.substr(0, 70000) == bytes);
}

TEST(Base64, StoresZeroBytesBehindANetworkText) {
    EXPECT_EQ(runNetworkDecode("TQ==", 0), (Outcome{1, std::string("M\0\0#", 4)}));
    EXPECT_EQ(runNetworkDecode("TWE=", 0), (Outcome{2, std::string("Ma\0#", 4)}));
}

TEST(Base64, RefusesNull) {
    unsigned char bytes[8] = "AAAA";
    char text[8] = "AAAA";
    unsigned int length = untouched;
    EXPECT_EQ(Base64Encode(nullptr, 3, bytes, 8) + Base64Encode(bytes, 3, nullptr, 8), 0u);
    EXPECT_EQ(Base64Decode(nullptr, 4, bytes, 8) + Base64Decode(bytes, 4, nullptr, 8), 0u);
    EXPECT_EQ(QorInetB64Encode(nullptr, 3, text, &length), 0u);
    EXPECT_EQ(QorInetB64Encode(bytes, 3, nullptr, &length), 0u);
    EXPECT_EQ(QorInetB64Decode(nullptr, 4, bytes, &length), 0u);
    EXPECT_EQ(QorInetB64Decode(text, 4, nullptr, &length), 0u);
    EXPECT_EQ(text + std::to_string(length), "AAAA12345") << "left as they were";
    EXPECT_EQ(QorInetB64Encode(nullptr, 0, text, &length) + length, 0u);
    EXPECT_EQ(QorInetB64Encode(bytes, -1, text, nullptr), 0u);
    EXPECT_STREQ(text, "");
}

} // namespace
