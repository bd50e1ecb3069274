#include "montgomery.h"

namespace qorcrypt {
namespace {

// -1 / odd, by Newton's iteration: an odd number is its own inverse to three bits, and each step
// doubles the number of right bits.
Limb negativeInverseOf(Limb odd) {
    Limb inverse = odd;
    for (std::size_t bits = 3; bits < limbBits; bits *= 2) {
        inverse *= 2 - odd * inverse;
    }
    return Limb{0} - inverse;
}

// The window of the exponent that begins at a bit; bits beyond its end are 0.
Limb windowAt(const Limb* exponent, std::size_t count, std::size_t bit, std::size_t width) {
    const std::size_t index = bit / limbBits;
    const std::size_t shift = bit % limbBits;
    Limb window = exponent[index] >> shift;
    if (shift + width > limbBits && index + 1 < count) {
        window |= exponent[index + 1] << (limbBits - shift);
    }
    return window & ((Limb{1} << width) - 1);
}

} // namespace

bool Montgomery::set(const Limb* modulus, std::size_t count) {
    LimbBuffer work;
    if (!numbers.allocate(2 * count) || !work.allocate(2 * count)) {
        return false;
    }
    limbCount = count;
    negativeInverse = negativeInverseOf(modulus[0]);
    std::memcpy(numbers.data(), modulus, count * limbBytes);
    // From the highest power of two below the modulus by doubling to R * 2^count, and from there by
    // squaring, which doubles the exponent behind R, to R * 2^(limbBits * count) = R^2.
    Limb* value = numbers.data() + count;
    const std::size_t topBit = bitLength(modulus, count) - 1;
    value[topBit / limbBits] = Limb{1} << (topBit % limbBits);
    for (std::size_t i = topBit; i < count * limbBits + count; i++) {
        doubleModulo(value, 0, modulus, count, work.data());
    }
    for (std::size_t factor = 1; factor < limbBits; factor *= 2) {
        square(value, value, work.data());
    }
    return true;
}

bool Montgomery::copyFrom(const Montgomery& other) {
    if (!numbers.copyFrom(other.numbers)) {
        return false;
    }
    limbCount = other.limbCount;
    negativeInverse = other.negativeInverse;
    return true;
}

void Montgomery::multiply(Limb* out, const Limb* a, const Limb* b, Limb* work) const {
    multiplyLimbs(work, a, limbCount, b, limbCount);
    montgomeryReduce(out, work, modulus(), negativeInverse, limbCount);
}

void Montgomery::square(Limb* out, const Limb* a, Limb* work) const {
    squareLimbs(work, a, limbCount);
    montgomeryReduce(out, work, modulus(), negativeInverse, limbCount);
}

void Montgomery::reduceWide(Limb* out, Limb* a, Limb* work) const {
    montgomeryReduce(out, a, modulus(), negativeInverse, limbCount);
    multiply(out, out, squareOfR(), work);
}

// The powers 0 to tableSize - 1 of the base, in Montgomery form.
void Montgomery::fillTable(Limb* table, const Limb* base, Limb* work) const {
    Limb* first = table + limbCount;
    std::memset(table, 0, limbCount * limbBytes);
    table[0] = 1;
    multiply(table, table, squareOfR(), work);
    multiply(first, base, squareOfR(), work);
    for (std::size_t i = 2; i < tableSize; i++) {
        Limb* entry = table + i * limbCount;
        if (i % 2 == 0) {
            square(entry, table + i / 2 * limbCount, work);
        } else {
            multiply(entry, entry - limbCount, first, work);
        }
    }
}

// Reads every entry, so that no address tells which one is meant. Some limbs at a time, so that
// their sums stay in registers.
void Montgomery::gather(Limb* out, const Limb* table, Limb index) const {
    constexpr std::size_t atOnce = 8;
    Limb masks[tableSize];
    for (std::size_t i = 0; i < tableSize; i++) {
        masks[i] = maskIfEqual(i, index);
    }
    std::size_t at = 0;
    for (; at + atOnce <= limbCount; at += atOnce) {
        Limb sums[atOnce] = {};
        for (std::size_t i = 0; i < tableSize; i++) {
            for (std::size_t j = 0; j < atOnce; j++) {
                sums[j] |= table[i * limbCount + at + j] & masks[i];
            }
        }
        std::memcpy(out + at, sums, sizeof sums);
    }
    for (; at < limbCount; at++) {
        out[at] = 0;
        for (std::size_t i = 0; i < tableSize; i++) {
            out[at] |= table[i * limbCount + at] & masks[i];
        }
    }
    qorWipe(masks, sizeof masks); // they tell the index, a part of the exponent
}

void Montgomery::power(Limb* out, const Limb* base, const Limb* exponent, std::size_t exponentCount,
                       Limb* work) const {
    Limb* table = work + 2 * limbCount;
    Limb* result = table + tableSize * limbCount;
    Limb* factor = result + limbCount;
    fillTable(table, base, work);
    const std::size_t windows = (exponentCount * limbBits + windowBits - 1) / windowBits;
    gather(result, table,
           windowAt(exponent, exponentCount, (windows - 1) * windowBits, windowBits));
    for (std::size_t i = windows - 1; i-- > 0;) {
        for (std::size_t j = 0; j < windowBits; j++) {
            square(result, result, work);
        }
        gather(factor, table, windowAt(exponent, exponentCount, i * windowBits, windowBits));
        multiply(result, result, factor, work);
    }
    std::memset(factor, 0, limbCount * limbBytes);
    factor[0] = 1;
    multiply(out, result, factor, work);
}

void Montgomery::powerPublic(Limb* out, const Limb* base, std::uint64_t exponent,
                             Limb* work) const {
    Limb* first = work + 2 * limbCount;
    Limb* result = first + limbCount;
    multiply(first, base, squareOfR(), work);
    std::memcpy(result, first, limbCount * limbBytes);
    std::size_t bit = 63;
    while (bit > 0 && (exponent >> bit & 1) == 0) {
        bit--;
    }
    while (bit-- > 0) {
        square(result, result, work);
        // The last factor, which an odd exponent has, is the base as it came: that leaves
        // Montgomery form as well.
        if ((exponent >> bit & 1) != 0) {
            multiply(result, result, bit == 0 ? base : first, work);
        }
    }
    std::memcpy(out, exponent == 1 ? base : result, limbCount * limbBytes);
}

} // namespace qorcrypt
