// Choices without a branch. A mask has all bits set, or none.
#pragma once

#include <climits>
#include <cstddef>

namespace qorcrypt {

// Keeps the compiler from knowing what a mask holds, and so from branching on it.
inline std::size_t hidden(std::size_t value) {
    __asm__("" : "+r"(value));
    return value;
}

// All bits set for 1, none for 0.
inline std::size_t maskFromBit(std::size_t bit) {
    return hidden(std::size_t{0} - bit);
}

inline std::size_t highestBit(std::size_t value) {
    return value >> (sizeof value * CHAR_BIT - 1);
}

inline std::size_t maskIfZero(std::size_t value) {
    return maskFromBit(highestBit(~value & (value - 1)));
}

inline std::size_t maskIfEqual(std::size_t a, std::size_t b) {
    return maskIfZero(a ^ b);
}

// For numbers below half the range.
inline std::size_t maskIfLess(std::size_t a, std::size_t b) {
    return maskFromBit(highestBit(a - b));
}

inline std::size_t choose(std::size_t mask, std::size_t ifSet, std::size_t otherwise) {
    return otherwise ^ (mask & (ifSet ^ otherwise));
}

inline unsigned char chooseByte(std::size_t mask, unsigned char ifSet, unsigned char otherwise) {
    return static_cast<unsigned char>(choose(mask, ifSet, otherwise));
}

} // namespace qorcrypt
