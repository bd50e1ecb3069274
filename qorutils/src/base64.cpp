#include "base64.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <array>

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char padding = '=';
constexpr unsigned char lineFeed = '\n';

// The buffer family encodes in chunks. Kept: the first line is one character longer than the
// others, so that the line feed falls behind the first character of every chunk but the first.
constexpr std::size_t chunkBytes = 48;
constexpr std::size_t chunkCharacters = 64;

// The two digits of each 12-bit number: half as many look-ups as digit by digit.
struct DigitPair {
    char text[2];
};

constexpr std::array<DigitPair, 4096> makeDigitPairs() {
    std::array<DigitPair, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {{alphabet[i >> 6], alphabet[i & 0x3F]}};
    }
    return pairs;
}

constexpr std::array<DigitPair, 4096> digitPairs = makeDigitPairs();

// The value of each digit, already shifted to its place in the 24 bits of a group. What is no digit
// has a bit that no value has, so that one test serves a whole group.
using DigitPlaces = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr std::uint32_t noDigit = 0x80000000u;

constexpr DigitPlaces makeDigitPlaces(bool blankIsPlus) {
    DigitPlaces places{};
    for (std::size_t place = 0; place < places.size(); ++place) {
        for (std::uint32_t& value : places[place]) {
            value = noDigit;
        }
        for (std::uint32_t digit = 0; digit < 64; ++digit) {
            const auto character = static_cast<unsigned char>(alphabet[digit]);
            places[place][character] = digit << (18 - 6 * place);
        }
        if (blankIsPlus) {
            places[place][' '] = places[place]['+'];
        }
    }
    return places;
}

// Constant tables rather than ones filled by the first call, which two threads could make at once.
constexpr DigitPlaces bufferDigits = makeDigitPlaces(false);
constexpr DigitPlaces networkDigits = makeDigitPlaces(true);

void storeBytes(std::uint32_t bits, unsigned char* out) {
    out[0] = static_cast<unsigned char>(bits >> 16);
    out[1] = static_cast<unsigned char>(bits >> 8);
    out[2] = static_cast<unsigned char>(bits);
}

void encodeGroup(const unsigned char* in, unsigned char* out) {
    const unsigned int bits =
        static_cast<unsigned int>(in[0]) << 16 | static_cast<unsigned int>(in[1]) << 8 | in[2];
    memcpy(out, digitPairs[bits >> 12].text, 2);
    memcpy(out + 2, digitPairs[bits & 0xFFF].text, 2);
}

constexpr std::size_t textLength(std::size_t bytes) {
    return (bytes + 2) / 3 * 4;
}

// Encodes without line feeds.
void encodeText(const unsigned char* in, std::size_t length, unsigned char* out) {
    for (; length >= 3; length -= 3, in += 3, out += 4) {
        encodeGroup(in, out);
    }
    if (length == 0) {
        return;
    }
    const unsigned char second = length == 2 ? in[1] : 0;
    const unsigned char completed[3] = {in[0], second, 0};
    encodeGroup(completed, out);
    out[3] = padding;
    if (length == 1) {
        out[2] = padding;
    }
}

// Encodes a chunk with its line feed.
void encodeFollowingChunk(const unsigned char* in, std::size_t length, unsigned char* out) {
    encodeText(in, length, out + 1);
    out[0] = out[1];
    out[1] = lineFeed;
}

// Collects the characters of the next group, skipping what is no digit; returns how many it found.
std::size_t collectGroup(const unsigned char*& in, const unsigned char* end,
                         unsigned char (&group)[4]) {
    std::size_t collected = 0;
    while (collected < 4 && in != end) {
        const unsigned char character = *in++;
        if (bufferDigits[0][character] != noDigit || character == padding) {
            group[collected++] = character;
        }
    }
    return collected;
}

std::uint32_t groupBits(const unsigned char (&group)[4]) {
    std::uint32_t bits = 0;
    for (std::size_t place = 0; place < 4; ++place) {
        // "=" is a digit of value 0 wherever it stands.
        bits |= group[place] == padding ? 0 : bufferDigits[place][group[place]];
    }
    return bits;
}

std::size_t byteCount(const unsigned char (&group)[4]) {
    if (group[2] == padding) {
        return 1;
    }
    return group[3] == padding ? 2 : 3;
}

// Decodes whole groups up to the first that holds padding or bytes to skip, or that the output has
// no room for, and moves both positions behind them.
void decodeWholeGroups(const unsigned char*& in, const unsigned char* end, unsigned char*& out,
                       const unsigned char* outEnd) {
    while (end - in >= 4 && outEnd - out >= 3) {
        const std::uint32_t bits = bufferDigits[0][in[0]] | bufferDigits[1][in[1]] |
                                   bufferDigits[2][in[2]] | bufferDigits[3][in[3]];
        if ((bits & noDigit) != 0) {
            return;
        }
        storeBytes(bits, out);
        in += 4;
        out += 3;
    }
}

// The same for a text that ends with a zero byte: each character is tested before the next is read.
void decodeWholeNetworkGroups(const unsigned char*& in, unsigned char*& out) {
    for (;; in += 4, out += 3) {
        std::uint32_t bits = 0;
        for (std::size_t place = 0; place < 4; ++place) {
            const std::uint32_t value = networkDigits[place][in[place]];
            if (value == noDigit) {
                return;
            }
            bits |= value;
        }
        storeBytes(bits, out);
    }
}

// Merges one digit into the group that starts at out; each byte begun is stored at once.
void mergeDigit(std::uint32_t digit, std::size_t place, unsigned char* out) {
    switch (place) {
    case 0:
        out[0] = static_cast<unsigned char>(digit << 2);
        return;
    case 1:
        out[0] = static_cast<unsigned char>(out[0] | digit >> 4);
        out[1] = static_cast<unsigned char>(digit << 4);
        return;
    case 2:
        out[1] = static_cast<unsigned char>(out[1] | digit >> 2);
        out[2] = static_cast<unsigned char>(digit << 6);
        return;
    default:
        out[2] = static_cast<unsigned char>(out[2] | digit);
        return;
    }
}

} // namespace

unsigned int CalcBase64Len(unsigned int count) {
    // A line feed for each begun chunk; the one too many is the terminator's.
    const std::uint64_t characters = textLength(count);
    const std::uint64_t size = characters + (characters + chunkCharacters - 1) / chunkCharacters;
    return static_cast<unsigned int>(std::min<std::uint64_t>(size, UINT32_MAX));
}

unsigned int Base64Encode(unsigned char const* in, unsigned int inLen, unsigned char* out,
                          unsigned int outSize) {
    if (in == nullptr || out == nullptr) {
        return 0;
    }
    std::size_t index = 0;
    for (std::size_t taken = 0; taken < inLen; taken += chunkBytes) {
        const std::size_t bytes = std::min(chunkBytes, inLen - taken);
        const auto encodeChunk = index == 0 ? encodeText : encodeFollowingChunk;
        const std::size_t length = textLength(bytes) + (index == 0 ? 0 : 1);
        const std::size_t room = outSize - index;
        if (length > room) {
            unsigned char chunk[chunkCharacters + 1];
            encodeChunk(in + taken, bytes, chunk);
            memcpy(out + index, chunk, room);
            return 0;
        }
        encodeChunk(in + taken, bytes, out + index);
        index += length;
    }
    return static_cast<unsigned int>(index);
}

unsigned int Base64Decode(unsigned char const* in, unsigned int inLen, unsigned char* out,
                          unsigned int outSize) {
    if (in == nullptr || out == nullptr) {
        return 0;
    }
    const unsigned char* const end = in + inLen;
    const unsigned char* const outEnd = out + outSize;
    unsigned char* next = out;
    for (;;) {
        decodeWholeGroups(in, end, next, outEnd);
        unsigned char group[4];
        const std::size_t collected = collectGroup(in, end, group);
        if (collected == 0) {
            return static_cast<unsigned int>(next - out);
        }
        if (collected < 4) {
            return 0;
        }
        unsigned char bytes[3];
        storeBytes(groupBits(group), bytes);
        const std::size_t count = byteCount(group);
        const std::size_t room = static_cast<std::size_t>(outEnd - next);
        memcpy(next, bytes, std::min(count, room));
        if (count > room) {
            return 0;
        }
        next += count;
        if (count < 3) {
            return static_cast<unsigned int>(next - out);
        }
    }
}

unsigned int QorInetB64Encode(unsigned char const* in, int inLen, char* out, unsigned int* outLen) {
    if (out == nullptr || (in == nullptr && inLen > 0)) {
        return 0;
    }
    const std::size_t bytes = static_cast<std::size_t>(std::max(inLen, 0));
    const std::size_t length = textLength(bytes);
    encodeText(in, bytes, reinterpret_cast<unsigned char*>(out));
    out[length] = '\0';
    if (outLen != nullptr) {
        *outLen = static_cast<unsigned int>(length);
    }
    return static_cast<unsigned int>(length);
}

unsigned int QorInetB64Decode(char const* in, int /*unusedLength*/, unsigned char* out,
                              unsigned int* outLen) {
    if (in == nullptr || out == nullptr) {
        return 0;
    }
    const auto* text = reinterpret_cast<const unsigned char*>(in);
    unsigned char* group = out;
    std::size_t place = 0;
    for (;; ++text) {
        if (place == 0) {
            decodeWholeNetworkGroups(text, group);
        }
        if (*text == '\0' || *text == padding) {
            break;
        }
        const std::uint32_t digit = networkDigits[3][*text];
        if (digit == noDigit) {
            continue;
        }
        mergeDigit(digit, place, group);
        place = (place + 1) % 4;
        group += place == 0 ? 3 : 0;
    }
    // Two digits of a group have completed one byte, three digits two.
    unsigned char* const end = place < 2 ? group : group + (place - 1);
    if (*text == padding) {
        if (place < 2) {
            return 0;
        }
        // Kept: zero bytes fill the begun group.
        group[2] = '\0';
    }
    end[0] = '\0';
    const auto count = static_cast<unsigned int>(end - out);
    if (outLen != nullptr) {
        *outLen = count;
    }
    return count;
}
