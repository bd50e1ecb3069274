// Bytes as hexadecimal text, in the two manners of enciphered values.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "qoros.h"

namespace confighex {

// Two lowercase digits a byte; bytes whose digits leave no room for the terminator are left out.
// `outSize` is above 0.
inline void write(const unsigned char* bytes, std::size_t count, char* out, std::size_t outSize) {
    out[0] = '\0';
    for (std::size_t i = 0; i < count && 2 * (i + 1) < outSize; ++i) {
        sprintf_qor(out + 2 * i, 3, "%02x", static_cast<unsigned int>(bytes[i]));
    }
}

// The byte for up to two characters. Kept: they are read as sscanf reads them with "%02x", so that
// a blank or a sign may stand for a digit, and what is no number leaves the byte as it is.
inline void readPair(const char* pair, unsigned char* byte) {
    char digits[3];
    strcpy_qor(digits, sizeof digits, pair);
    char* end = nullptr;
    const unsigned long number = std::strtoul(digits, &end, 16);
    if (end != digits) {
        *byte = static_cast<unsigned char>(number);
    }
}

// Stores the text's bytes, their number in `count`, an odd last digit being one of its own. False
// for a text that needs more than `room` bytes.
inline bool read(const char* text, unsigned char* bytes, std::size_t room, std::size_t* count) {
    const std::size_t length = std::strlen(text);
    *count = length / 2 + length % 2;
    if (*count > room) {
        return false;
    }
    unsigned char byte = 0;
    for (std::size_t i = 0; i < *count; ++i) {
        readPair(text + 2 * i, &byte);
        bytes[i] = byte;
    }
    return true;
}

} // namespace confighex
