#include "utf8conv.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <iterator>

namespace {

constexpr unsigned int longestForm = 6;
// A reference that has this many characters before its ";" is dropped.
constexpr std::ptrdiff_t referenceLimit = 20;
constexpr std::size_t digitBufferSize = 256;

int formLength(unsigned long code) {
    constexpr unsigned long lastCodes[] = {0x7F, 0x7FF, 0xFFFF, 0x1FFFFF, 0x3FFFFFF};
    const auto* const form = std::lower_bound(std::begin(lastCodes), std::end(lastCodes), code);
    return static_cast<int>(form - std::begin(lastCodes)) + 1;
}

// Resolves the references of one text.
class References {
public:
    // The ";" that ends the reference at src; null where the text has none any more.
    const char* findEnd(const char* src) {
        if (exhausted) {
            return nullptr;
        }
        const char* const end = strchr(src, ';');
        exhausted = end == nullptr;
        return end;
    }

    // The code of the reference between its "&" and its ";".
    std::uint32_t code(const char* reference, const char* end) {
        const bool isHexadecimal = reference[2] == 'x' || reference[2] == 'X';
        const char* const text = reference + (isHexadecimal ? 3 : 2);
        // Kept: the buffer is not cleared, so that a reference is read together with what a longer
        // one before it has left behind.
        memcpy(digits, text, static_cast<std::size_t>(end - text));
        // Read as "%x" and atol would, with a defined result for numbers that are too large.
        return isHexadecimal ? static_cast<std::uint32_t>(strtoul(digits, nullptr, 16))
                             : static_cast<std::uint32_t>(strtol(digits, nullptr, 10));
    }

private:
    char digits[digitBufferSize] = {};
    // Remembered, so that many a "&#" without an end doesn't make the search quadratic.
    bool exhausted = false;
};

class Output {
public:
    Output(char* start, unsigned int room) : dst(start), size(room) {}

    bool isFull() const {
        return position == size;
    }

    // Not for a full output.
    void put(unsigned long code) {
        if (code < 0x80) { // measured: ASCII takes a fifth of the time
            dst[position++] = static_cast<char>(code);
            return;
        }
        const int room = static_cast<int>(std::min(size - position, longestForm));
        const int written = UTF8_putc(reinterpret_cast<unsigned char*>(dst) + position, room, code);
        // Kept: what does not fit moves the position one back, so that the next code overwrites
        // the last byte.
        if (written > 0) {
            position += static_cast<unsigned int>(written);
        } else if (position > 0) {
            --position;
        }
    }

    void terminate() {
        dst[position] = '\0';
    }

private:
    char* dst;
    unsigned int size;
    unsigned int position = 0;
};

// Kept: bytes are widened as signed numbers, so that those of 0x80 and above take six bytes.
unsigned long widened(char byte) {
    return static_cast<unsigned long>(static_cast<long>(static_cast<signed char>(byte)));
}

} // namespace

int UTF8_putc(unsigned char* out, int room, unsigned long code) {
    constexpr unsigned char leads[] = {0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    const int length = formLength(code);
    if (out == nullptr) {
        return length;
    }
    if (room < length) {
        return -1;
    }
    unsigned long bits = code & 0x7FFFFFFF;
    for (int i = length - 1; i > 0; --i, bits >>= 6) {
        out[i] = static_cast<unsigned char>(0x80 | (bits & 0x3F));
    }
    out[0] = static_cast<unsigned char>(leads[length - 1] | bits);
    return length;
}

void AnsiToUtf8(char const* src, char* dst, unsigned int dstSize) {
    if (dst == nullptr) {
        return;
    }
    if (src == nullptr) {
        src = "";
    }
    References references;
    Output output(dst, dstSize);
    while (*src != '\0' && !output.isFull()) {
        if (src[0] != '&' || src[1] != '#') {
            output.put(widened(*src++));
            continue;
        }
        const char* const end = references.findEnd(src);
        if (end == nullptr) {
            ++src; // Kept: the "&" is dropped, the "#" is an ordinary character.
            continue;
        }
        if (end - src < referenceLimit) {
            output.put(references.code(src, end));
        }
        src = end + 1;
    }
    output.terminate();
}
