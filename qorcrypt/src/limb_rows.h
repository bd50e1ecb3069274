// Multiplication, squaring and Montgomery reduction as rows: each adds a multiple of one number to
// another. A Row is what computes one, in portable code or for one kind of processor:
//
//   static Limb add(Limb* sum, const Limb* a, std::size_t count, Limb factor);
//
// adds a * factor to sum[0 .. count) and gives the limb that is carried out of it.
#pragma once

#include "limbs.h"

#include <cstring>

namespace qorcrypt {

// What one kind of processor offers.
struct LimbKernel {
    void (*multiply)(Limb* out, const Limb* a, std::size_t aCount, const Limb* b,
                     std::size_t bCount);
    void (*square)(Limb* out, const Limb* a, std::size_t count);
    // The carry out of the rows; the reduced number is in the upper half of wide.
    Limb (*reduceRows)(Limb* wide, const Limb* modulus, Limb negativeInverse, std::size_t count);
    // out = a - b; the borrow.
    Limb (*subtract)(Limb* out, const Limb* a, const Limb* b, std::size_t count);
};

extern const LimbKernel portableKernel;
// Null where the processor, or what this was compiled for, lacks the instructions. Tests replace
// it.
const LimbKernel* fastKernel();

template <typename Row>
void multiplyByRows(Limb* out, const Limb* a, std::size_t aCount, const Limb* b,
                    std::size_t bCount) {
    std::memset(out, 0, aCount * limbBytes);
    for (std::size_t i = 0; i < bCount; i++) {
        out[aCount + i] = Row::add(out + i, a, aCount, b[i]);
    }
}

// Twice the products of different limbs, and the squares.
inline void doubleAndAddSquares(Limb* out, const Limb* a, std::size_t count) {
    Limb topBit = 0;
    Limb carry = 0;
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb square = DoubleLimb{a[i]} * a[i];
        const Limb low = out[2 * i];
        const Limb high = out[2 * i + 1];
        const DoubleLimb lowSum = DoubleLimb{(low << 1) | topBit} + lowLimb(square) + carry;
        const DoubleLimb highSum =
            DoubleLimb{(high << 1) | (low >> (limbBits - 1))} + highLimb(square) + highLimb(lowSum);
        topBit = high >> (limbBits - 1);
        out[2 * i] = lowLimb(lowSum);
        out[2 * i + 1] = lowLimb(highSum);
        carry = highLimb(highSum);
    }
}

template <typename Row>
void squareByRows(Limb* out, const Limb* a, std::size_t count) {
    std::memset(out, 0, (count + 1) * limbBytes);
    for (std::size_t i = 0; i + 1 < count; i++) {
        out[count + i] = Row::add(out + 2 * i + 1, a + i + 1, count - i - 1, a[i]);
    }
    out[2 * count - 1] = 0;
    doubleAndAddSquares(out, a, count);
}

template <typename Row>
Limb reduceByRows(Limb* wide, const Limb* modulus, Limb negativeInverse, std::size_t count) {
    Limb carry = 0;
    for (std::size_t i = 0; i < count; i++) {
        const Limb row = Row::add(wide + i, modulus, count, wide[i] * negativeInverse);
        const DoubleLimb sum = DoubleLimb{wide[count + i]} + row + carry;
        wide[count + i] = lowLimb(sum);
        carry = highLimb(sum);
    }
    return carry;
}

} // namespace qorcrypt
