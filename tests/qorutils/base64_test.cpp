#include "base64.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned int untouched = 12345;

// What a call returned, and all bytes of its buffer, which was filled with "#" before.
struct Outcome {
    unsigned int result;
    std::string buffer;
    unsigned int outLen = 0; // where the function has such an output

    bool operator==(const Outcome& other) const {
        return result == other.result && buffer == other.buffer && outLen == other.outLen;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
        return stream << outcome.result << ' ' << outcome.outLen << ' '
                      << testing::PrintToString(outcome.buffer);
    }
};

// Calls a function of the buffer family with an exact-size input, and with less room than its
// buffer really has.
template <class Function>
Outcome run(Function function, const std::string& in, unsigned int outSize) {
    const auto exact = std::make_unique<unsigned char[]>(in.size());
    in.copy(reinterpret_cast<char*>(exact.get()), in.size());
    std::string out(outSize + 8, '#');
    const unsigned int result = function(exact.get(), static_cast<unsigned int>(in.size()),
                                         reinterpret_cast<unsigned char*>(out.data()), outSize);
    return {result, out};
}

Outcome runNetworkEncode(const std::string& in) {
    std::vector<char> out((in.size() + 2) / 3 * 4 + 1, '#');
    unsigned int length = untouched;
    const unsigned int result = QorInetB64Encode(reinterpret_cast<const unsigned char*>(in.data()),
                                                 static_cast<int>(in.size()), out.data(), &length);
    return {result, std::string(out.begin(), out.end()), length};
}

// Decodes from an exact-size buffer into one of the size that is told, and `spare` bytes more.
Outcome runNetworkDecode(const std::string& in, std::size_t spare) {
    const std::vector<char> text(in.c_str(), in.c_str() + in.size() + 1);
    std::vector<unsigned char> out(in.size() * 3 / 4 + 1 + spare, '#');
    unsigned int length = untouched;
    const unsigned int result = QorInetB64Decode(text.data(), 0, out.data(), &length);
    return {result, std::string(out.begin(), out.end()), length};
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

Outcome referenceEncode(const std::string& in, unsigned int outSize) {
    std::string out(outSize + 8, '#');
    std::size_t index = 0;
    for (const char character : plainEncode(in)) {
        if (index < outSize && index != 0 && index % 65 == 0) {
            out[index++] = '\n';
        }
        if (index >= outSize) {
            return {0, out};
        }
        out[index++] = character;
    }
    return {static_cast<unsigned int>(index), out};
}

Outcome referenceDecode(const std::string& in, unsigned int outSize) {
    std::string out(outSize + 8, '#');
    unsigned int index = 0;
    std::string group;
    for (const char character : in) {
        if (character != '=' && alphabet.find(character) == std::string::npos) {
            continue;
        }
        group += character;
        if (group.size() < 4) {
            continue;
        }
        std::size_t bits = 0;
        for (const char c : group) {
            bits = bits << 6 | (c == '=' ? 0 : alphabet.find(c));
        }
        const unsigned int count = group[2] == '=' ? 1 : group[3] == '=' ? 2 : 3;
        for (unsigned int k = 0; k < count; ++k) {
            if (index >= outSize) {
                return {0, out};
            }
            out[index++] = static_cast<char>(bits >> (16 - 8 * k));
        }
        if (count < 3) {
            return {index, out};
        }
        group.clear();
    }
    return {group.empty() ? index : 0, out};
}

Outcome referenceNetworkDecode(const std::string& in, std::size_t spare) {
    std::string out(in.size() * 3 / 4 + 1 + spare, '#');
    std::string bits; // one character each
    std::size_t digits = 0;
    const std::size_t end = in.find('=');
    for (char character : in.substr(0, end)) {
        const std::size_t digit = alphabet.find(character == ' ' ? '+' : character);
        if (digit != std::string::npos) {
            for (std::size_t bit = 6; bit-- > 0;) {
                bits += static_cast<char>('0' + (digit >> bit & 1));
            }
            ++digits;
        }
    }
    const std::size_t count = bits.size() / 8;
    bits.resize((bits.size() + 7) / 8 * 8, '0'); // bytes begun are stored
    for (std::size_t i = 0; i < bits.size() / 8; ++i) {
        out[i] = static_cast<char>(std::stoi(bits.substr(8 * i, 8), nullptr, 2));
    }
    if (end != std::string::npos && digits % 4 < 2) {
        return {0, out, untouched};
    }
    const std::size_t zeros = end == std::string::npos ? 1 : 3 - count % 3;
    out.replace(count, zeros, zeros, '\0');
    return {static_cast<unsigned int>(count), out, static_cast<unsigned int>(count)};
}

std::string randomText(std::mt19937& random, const std::string& characters, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        text += characters[random() % characters.size()];
    }
    return text;
}

std::string allBytes() {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    return bytes;
}

TEST(Base64, TellsTheSizeForATextAndATerminator) {
    struct Case {
        unsigned int count;
        unsigned int size;
    };
    const Case cases[] = {
        {0, 0},
        {1, 5},
        {3, 5},
        {48, 65},
        {49, 70},
        {1000, 1357},
        {3171668154u, 4294967292u}, // the largest size that 32 bits hold
        {3171668155u, 0xFFFFFFFFu},
        {0xFFFFFFFFu, 0xFFFFFFFFu},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(CalcBase64Len(c.count), c.size) << c.count;
    }
    for (unsigned int count = 1; count < 1000; ++count) {
        const std::string in(count, 'x');
        EXPECT_EQ(run(Base64Encode, in, 2 * count + 8).result + 1, CalcBase64Len(count)) << count;
    }
}

TEST(Base64, KeepsTheFirstLineOneCharacterLonger) {
    EXPECT_EQ(run(Base64Encode, std::string(97, '\0'), 135).buffer.substr(0, 135),
              std::string(65, 'A') + '\n' + std::string(64, 'A') + "\nA==#");
}

TEST(Base64, EncodesAsDefinedForEveryRoom) {
    std::mt19937 random(1);
    for (unsigned int length = 0; length < 200; ++length) {
        const std::string in = randomText(random, allBytes(), length);
        for (unsigned int outSize = 0; outSize < CalcBase64Len(length) + 2; ++outSize) {
            ASSERT_EQ(run(Base64Encode, in, outSize), referenceEncode(in, outSize))
                << length << " bytes, room for " << outSize;
        }
        const auto characters = (length + 2) / 3 * 4;
        ASSERT_EQ(runNetworkEncode(in), (Outcome{characters, plainEncode(in) + '\0', characters}));
    }
}

// RFC 4648, section 10, and what is peculiar to each family.
TEST(Base64, Decodes) {
    struct Case {
        const char* text;
        const char* buffer;  // what Base64Decode gives; null: the result is 0
        const char* network; // what QorInetB64Decode gives; null: as the buffer family
    };
    const Case cases[] = {
        {"", nullptr, ""},
        {"Zg==", "f", nullptr},
        {"Zm8=", "fo", nullptr},
        {"Zm9vYmFy", "foobar", nullptr},
        {"TWFu\nTWE=", "ManMa", nullptr},
        {"T\xFFW\r-F.u", "Man", nullptr},
        {"TWE=junk", "Ma", nullptr},
        {"TWF", nullptr, "Ma"},
        {"TWFuT", nullptr, "Man"},
        {"T=", nullptr, ""},
        {"TWFu=", nullptr, ""},
        {"TW==TWFu", "M", nullptr},
        {"TW=u", "M", nullptr},
        {"a b=", nullptr, "k\xE6"},
        {"a+b=", "k\xE6", nullptr},
        {"TW E=", "Ma", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string buffer = c.buffer == nullptr ? "" : c.buffer;
        const Outcome decoded = run(Base64Decode, c.text, 6);
        EXPECT_EQ(decoded.result, buffer.size());
        EXPECT_EQ(decoded.buffer.substr(0, decoded.result), buffer);
        const std::string network = c.network == nullptr ? buffer : c.network;
        const Outcome networkDecoded = runNetworkDecode(c.text, 0);
        EXPECT_EQ(networkDecoded.result, network.size());
        EXPECT_EQ(networkDecoded.buffer.substr(0, networkDecoded.result), network);
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
            ASSERT_EQ(run(Base64Decode, in, outSize), referenceDecode(in, outSize))
                << "round " << round << ", room for " << outSize << ": " << in;
        }
        for (const std::size_t spare : {0u, 8u}) {
            ASSERT_EQ(runNetworkDecode(in, spare), referenceNetworkDecode(in, spare)) << in;
        }
    }
    // A zero byte in a counted text, and a digit behind its end.
    EXPECT_EQ(run(Base64Decode, std::string("TW\0Fu", 5), 3).buffer, "Man########");
    const auto decodeSeven = [](const unsigned char* in, unsigned int, unsigned char* out,
                                unsigned int outSize) { return Base64Decode(in, 7, out, outSize); };
    EXPECT_EQ(run(decodeSeven, "TWFuTWFu", 70), (Outcome{0, "Man" + std::string(75, '#')}));
}

TEST(Base64, DecodesInPlaceWhatTheEncodersMade) {
    std::mt19937 random(3);
    const std::string bytes = randomText(random, allBytes(), 70000); // 16 bits count no length
    const unsigned int size = CalcBase64Len(70000);
    Outcome lines = run(Base64Encode, bytes, size);
    ASSERT_EQ(lines.result, size - 1);
    auto* const lineText = reinterpret_cast<unsigned char*>(lines.buffer.data());
    EXPECT_EQ(Base64Decode(lineText, lines.result, lineText, 70000), 70000u);
    EXPECT_TRUE(lines.buffer.substr(0, 70000) == bytes);
    Outcome line = runNetworkEncode(bytes);
    auto* const text = line.buffer.data();
    EXPECT_EQ(QorInetB64Decode(text, 0, reinterpret_cast<unsigned char*>(text), nullptr), 70000u);
    EXPECT_TRUE(line.buffer.substr(0, 70000) == bytes);
}

TEST(Base64, StoresZeroBytesBehindANetworkText) {
    EXPECT_EQ(runNetworkDecode("TQ==", 0), (Outcome{1, std::string("M\0\0#", 4), 1}));
    EXPECT_EQ(runNetworkDecode("TWE=", 0), (Outcome{2, std::string("Ma\0#", 4), 2}));
    // Digits alone take exactly the room that is told.
    for (std::size_t length = 0; length < 9; ++length) {
        EXPECT_EQ(runNetworkDecode(std::string(length, 'A'), 8).buffer,
                  std::string(length * 3 / 4 + 1, '\0') + "########");
    }
}

TEST(Base64, RefusesNull) {
    unsigned char bytes[8] = "AAAA";
    char text[8] = "AAAA";
    unsigned int length = untouched;
    EXPECT_EQ(Base64Encode(nullptr, 3, bytes, 8), 0u);
    EXPECT_EQ(Base64Encode(bytes, 3, nullptr, 8), 0u);
    EXPECT_EQ(Base64Decode(nullptr, 4, bytes, 8), 0u);
    EXPECT_EQ(Base64Decode(bytes, 4, nullptr, 8), 0u);
    EXPECT_EQ(QorInetB64Encode(nullptr, 3, text, &length), 0u);
    EXPECT_EQ(QorInetB64Encode(bytes, 3, nullptr, &length), 0u);
    EXPECT_EQ(QorInetB64Decode(nullptr, 4, bytes, &length), 0u);
    EXPECT_EQ(QorInetB64Decode(text, 4, nullptr, &length), 0u);
    EXPECT_EQ(length, untouched);
    EXPECT_STREQ(text, "AAAA");
    EXPECT_EQ(QorInetB64Decode("TWFu", -1, bytes, nullptr), 3u);
    EXPECT_EQ(QorInetB64Encode(nullptr, 0, text, &length), 0u);
    EXPECT_EQ(length, 0u);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(QorInetB64Encode(bytes, -1, text, nullptr), 0u);
}

} // namespace
