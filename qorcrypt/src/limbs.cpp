#include "limbs.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "internal/replaceable.h"
#include "limb_buffer.h"
#include "limb_rows.h"

namespace qorcrypt {
namespace {

struct PortableRow {
    static Limb add(Limb* sum, const Limb* a, std::size_t count, Limb factor) {
        Limb carry = 0;
        for (std::size_t i = 0; i < count; i++) {
            const DoubleLimb product = DoubleLimb{a[i]} * factor + sum[i] + carry;
            sum[i] = lowLimb(product);
            carry = highLimb(product);
        }
        return carry;
    }
};

Limb subtractPortable(Limb* out, const Limb* a, const Limb* b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb difference = DoubleLimb{a[i]} - b[i] - borrow;
        out[i] = lowLimb(difference);
        borrow = highLimb(difference) & 1;
    }
    return borrow;
}

const LimbKernel& kernel() {
    static const LimbKernel* const fast = fastKernel();
    return fast != nullptr ? *fast : portableKernel;
}

} // namespace

const LimbKernel portableKernel = {multiplyByRows<PortableRow>, squareByRows<PortableRow>,
                                   reduceByRows<PortableRow>, subtractPortable};

QOR_REPLACEABLE Limb* allocateLimbs(std::size_t count) {
    return static_cast<Limb*>(std::calloc(count, limbBytes));
}

QOR_REPLACEABLE void freeLimbs(Limb* limbs) {
    std::free(limbs);
}

Limb addLimbs(Limb* out, const Limb* a, const Limb* b, std::size_t count) {
    Limb carry = 0;
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb sum = DoubleLimb{a[i]} + b[i] + carry;
        out[i] = lowLimb(sum);
        carry = highLimb(sum);
    }
    return carry;
}

Limb addCarry(Limb* out, const Limb* a, std::size_t count, Limb carry) {
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb sum = DoubleLimb{a[i]} + carry;
        out[i] = lowLimb(sum);
        carry = highLimb(sum);
    }
    return carry;
}

Limb subtractLimbs(Limb* out, const Limb* a, const Limb* b, std::size_t count) {
    return kernel().subtract(out, a, b, count);
}

Limb shiftLimbsUp(Limb* out, const Limb* a, std::size_t count, std::size_t shift) {
    Limb carry = 0;
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb shifted = DoubleLimb{a[i]} << shift;
        out[i] = lowLimb(shifted) | carry;
        carry = highLimb(shifted);
    }
    return carry;
}

void shiftLimbsDown(Limb* out, const Limb* a, std::size_t count, std::size_t shift) {
    for (std::size_t i = 0; i < count; i++) {
        const Limb above = i + 1 < count ? a[i + 1] : 0;
        out[i] = lowLimb((DoubleLimb{above} << limbBits | a[i]) >> shift);
    }
}

Limb lessLimbs(const Limb* a, const Limb* b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; i++) {
        borrow = highLimb(DoubleLimb{a[i]} - b[i] - borrow) & 1;
    }
    return borrow;
}

void selectLimbs(Limb* out, const Limb* a, const Limb* b, Limb mask, std::size_t count) {
    for (std::size_t i = 0; i < count; i++) {
        out[i] = b[i] ^ (mask & (a[i] ^ b[i]));
    }
}

Limb equalMask(const Limb* a, const Limb* b, std::size_t count) {
    Limb difference = 0;
    for (std::size_t i = 0; i < count; i++) {
        difference |= a[i] ^ b[i];
    }
    return maskIfZero(difference);
}

Limb equalMask(const Limb* a, Limb small, std::size_t count) {
    Limb difference = a[0] ^ small;
    for (std::size_t i = 1; i < count; i++) {
        difference |= a[i];
    }
    return maskIfZero(difference);
}

std::size_t bitLength(const Limb* a, std::size_t count) {
    while (count > 0 && a[count - 1] == 0) {
        count--;
    }
    std::size_t bits = count * limbBits;
    if (count > 0) {
        bits -= static_cast<std::size_t>(__builtin_clzl(a[count - 1]));
    }
    return bits;
}

void multiplyLimbs(Limb* out, const Limb* a, std::size_t aCount, const Limb* b,
                   std::size_t bCount) {
    kernel().multiply(out, a, aCount, b, bCount);
}

void squareLimbs(Limb* out, const Limb* a, std::size_t count) {
    kernel().square(out, a, count);
}

void montgomeryReduce(Limb* out, Limb* wide, const Limb* modulus, Limb negativeInverse,
                      std::size_t count) {
    const Limb carry = kernel().reduceRows(wide, modulus, negativeInverse, count);
    // The number is below twice the modulus; it stays as it is where subtracting borrows from more
    // than the carry.
    const Limb borrow = subtractLimbs(out, wide + count, modulus, count);
    selectLimbs(out, wide + count, out, maskFromBit(borrow & ~carry & 1), count);
}

void doubleModulo(Limb* value, Limb bit, const Limb* modulus, std::size_t count, Limb* work) {
    Limb carry = bit;
    for (std::size_t i = 0; i < count; i++) {
        const Limb out = value[i] >> (limbBits - 1);
        value[i] = (value[i] << 1) | carry;
        carry = out;
    }
    const Limb borrow = subtractLimbs(work, value, modulus, count);
    selectLimbs(value, value, work, maskFromBit(borrow & ~carry & 1), count);
}

void remainderLimbs(Limb* out, const Limb* a, std::size_t aCount, const Limb* modulus,
                    std::size_t count, Limb* work) {
    Limb* value = work + count;
    std::memset(value, 0, count * limbBytes);
    for (std::size_t i = aCount * limbBits; i-- > 0;) {
        doubleModulo(value, a[i / limbBits] >> (i % limbBits) & 1, modulus, count, work);
    }
    std::memcpy(out, value, count * limbBytes);
}

bool limbsFromBytes(Limb* out, std::size_t count, const unsigned char* bytes, std::size_t size) {
    std::fill_n(out, count, Limb{0});
    unsigned char excess = 0;
    for (std::size_t i = 0; i < size; i++) {
        const unsigned char byte = bytes[size - 1 - i];
        if (i < count * limbBytes) {
            out[i / limbBytes] |= Limb{byte} << (8 * (i % limbBytes));
        } else {
            excess = static_cast<unsigned char>(excess | byte);
        }
    }
    return excess == 0;
}

void bytesFromLimbs(unsigned char* bytes, std::size_t size, const Limb* a, std::size_t count) {
    for (std::size_t i = 0; i < size; i++) {
        const bool inside = i < count * limbBytes;
        bytes[size - 1 - i] =
            inside ? static_cast<unsigned char>(a[i / limbBytes] >> (8 * (i % limbBytes))) : 0;
    }
}

} // namespace qorcrypt
