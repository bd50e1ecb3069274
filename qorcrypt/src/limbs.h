// Arithmetic on arrays of limbs, the least significant first. Unless said otherwise a function
// takes a time that depends on the lengths only: no branch and no address follows from a limb's
// value.
#pragma once

#include <cstddef>

#include "constant_time.h"

namespace qorcrypt {

using Limb = std::size_t;
#if defined(__SIZEOF_INT128__)
__extension__ using DoubleLimb = unsigned __int128;
#else
using DoubleLimb = unsigned long long;
#endif
static_assert(sizeof(DoubleLimb) == 2 * sizeof(Limb), "a product of two limbs needs two");

constexpr std::size_t limbBytes = sizeof(Limb);
constexpr std::size_t limbBits = 8 * limbBytes;

inline Limb lowLimb(DoubleLimb value) {
    return static_cast<Limb>(value);
}

inline Limb highLimb(DoubleLimb value) {
    return static_cast<Limb>(value >> limbBits);
}

constexpr std::size_t limbsForBits(std::size_t bits) {
    return (bits + limbBits - 1) / limbBits;
}

constexpr std::size_t limbsForBytes(std::size_t bytes) {
    return (bytes + limbBytes - 1) / limbBytes;
}

// out = a + b; the carry. The result may be an operand, here and below.
Limb addLimbs(Limb* out, const Limb* a, const Limb* b, std::size_t count);
// out = a + carry; the carry.
Limb addCarry(Limb* out, const Limb* a, std::size_t count, Limb carry);
// out = a - b; the borrow.
Limb subtractLimbs(Limb* out, const Limb* a, const Limb* b, std::size_t count);
// out = a * 2^shift for a shift below limbBits; what is shifted out.
Limb shiftLimbsUp(Limb* out, const Limb* a, std::size_t count, std::size_t shift);
// out = a / 2^shift for such a shift, cut to the whole number.
void shiftLimbsDown(Limb* out, const Limb* a, std::size_t count, std::size_t shift);
// 1 where a < b.
Limb lessLimbs(const Limb* a, const Limb* b, std::size_t count);
// out = mask is all ones ? a : b.
void selectLimbs(Limb* out, const Limb* a, const Limb* b, Limb mask, std::size_t count);
// All ones where a = b.
Limb equalMask(const Limb* a, const Limb* b, std::size_t count);
// All ones where a is the small number.
Limb equalMask(const Limb* a, Limb small, std::size_t count);
// The number of bits up to the highest one. Its time tells the number of leading zero limbs.
std::size_t bitLength(const Limb* a, std::size_t count);

// out[0 .. aCount + bCount) = a * b; the result overlaps neither operand. bCount is at least 1.
void multiplyLimbs(Limb* out, const Limb* a, std::size_t aCount, const Limb* b, std::size_t bCount);
// out[0 .. 2 * count) = a^2; the result doesn't overlap the operand. count is at least 1.
void squareLimbs(Limb* out, const Limb* a, std::size_t count);
// out = wide / 2^(limbBits * count) mod modulus, where wide, of 2 * count limbs, is below modulus *
// 2^(limbBits * count) and is used up. negativeInverse is -1 / modulus[0] in one limb.
void montgomeryReduce(Limb* out, Limb* wide, const Limb* modulus, Limb negativeInverse,
                      std::size_t count);
// value = 2 * value + bit mod modulus, for a value below the modulus; work has count limbs.
void doubleModulo(Limb* value, Limb bit, const Limb* modulus, std::size_t count, Limb* work);
// out[0 .. count) = a mod modulus, bit by bit; work has 2 * count limbs, the modulus is not 0.
void remainderLimbs(Limb* out, const Limb* a, std::size_t aCount, const Limb* modulus,
                    std::size_t count, Limb* work);

// From and to big-endian bytes. Bytes that don't fit the limbs have to be zero, or the result is
// false; limbs beyond the bytes are dropped.
bool limbsFromBytes(Limb* out, std::size_t count, const unsigned char* bytes, std::size_t size);
void bytesFromLimbs(unsigned char* bytes, std::size_t size, const Limb* a, std::size_t count);

} // namespace qorcrypt
