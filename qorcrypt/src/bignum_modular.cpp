// Big numbers: division and what stands on it, and powers.
#include "qorcrypto_bignum.h"

#include <cstring>
#include <utility>

#include "limb_buffer.h"
#include "montgomery.h"

using namespace qorcrypt;

namespace {

// quotient = a / divisor; the remainder.
Limb divideByLimb(Limb* quotient, const Limb* a, std::size_t count, Limb divisor) {
    Limb remainder = 0;
    for (std::size_t i = count; i-- > 0;) {
        const DoubleLimb both = DoubleLimb{remainder} << limbBits | a[i];
        quotient[i] = lowLimb(both / divisor);
        remainder = lowLimb(both % divisor);
    }
    return remainder;
}

// One digit of the quotient: from the two topmost limbs of the remainder over the topmost of the
// divisor, made right, or one too large, by the third and the second.
Limb estimateDigit(const Limb* top, const Limb* divisorTop) {
    const DoubleLimb both = DoubleLimb{top[0]} << limbBits | top[-1];
    DoubleLimb digit = both / divisorTop[0];
    DoubleLimb rest = both % divisorTop[0];
    while (highLimb(digit) != 0 ||
           DoubleLimb{lowLimb(digit)} * divisorTop[-1] > (rest << limbBits | top[-2])) {
        digit--;
        rest += divisorTop[0];
        if (highLimb(rest) != 0) {
            break;
        }
    }
    return lowLimb(digit);
}

// value -= divisor * digit, over count + 1 limbs of the value; 1 where it fell below zero.
Limb subtractMultiple(Limb* value, const Limb* divisor, std::size_t count, Limb digit) {
    Limb carry = 0;
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb product = DoubleLimb{divisor[i]} * digit + carry;
        const DoubleLimb difference = DoubleLimb{value[i]} - lowLimb(product) - borrow;
        value[i] = lowLimb(difference);
        carry = highLimb(product);
        borrow = highLimb(difference) & 1;
    }
    const DoubleLimb difference = DoubleLimb{value[count]} - carry - borrow;
    value[count] = lowLimb(difference);
    return highLimb(difference) & 1;
}

// Knuth, The Art of Computer Programming, volume 2, algorithm 4.3.1 D, for a divisor of two limbs
// or more whose top bit is set. The value has valueCount + 1 limbs and becomes the remainder.
void divideLimbs(Limb* quotient, Limb* value, std::size_t valueCount, const Limb* divisor,
                 std::size_t count) {
    for (std::size_t i = valueCount - count + 1; i-- > 0;) {
        Limb digit = estimateDigit(value + i + count, divisor + count - 1);
        if (subtractMultiple(value + i, divisor, count, digit) != 0) {
            digit--;
            value[i + count] += addLimbs(value + i, value + i, divisor, count);
        }
        quotient[i] = digit;
    }
}

} // namespace

bool QorBigNum::Divide(QorBigNum* quotient, QorBigNum* remainder, const QorBigNum& a,
                       const QorBigNum& b) {
    if (b.IsZero() || (quotient == remainder && quotient != nullptr)) {
        return false;
    }
    QorBigNum whole;
    QorBigNum rest;
    if (compareMagnitudes(a, b) < 0) {
        if (!rest.CopyFrom(a)) {
            return false;
        }
    } else {
        LimbBuffer divisor;
        if (!whole.allocate(a.count - b.count + 1) || !rest.allocate(a.count + 1) ||
            !divisor.allocate(b.count)) {
            return false;
        }
        if (b.count == 1) {
            rest.limbs[0] = divideByLimb(whole.limbs, a.limbs, a.count, b.limbs[0]);
        } else {
            const std::size_t shift = b.count * limbBits - b.BitLength();
            shiftLimbsUp(divisor.data(), b.limbs, b.count, shift);
            rest.limbs[a.count] = shiftLimbsUp(rest.limbs, a.limbs, a.count, shift);
            divideLimbs(whole.limbs, rest.limbs, a.count, divisor.data(), b.count);
            shiftLimbsDown(rest.limbs, rest.limbs, b.count, shift);
        }
        whole.negative = a.negative != b.negative;
        rest.negative = a.negative;
    }
    // Neither can be too large now, so that both are taken or none.
    return (quotient == nullptr || quotient->take(whole)) &&
           (remainder == nullptr || remainder->take(rest));
}

bool QorBigNum::Mod(const QorBigNum& a, const QorBigNum& modulus) {
    if (modulus.negative || modulus.IsZero()) {
        return false;
    }
    QorBigNum rest;
    if (!Divide(nullptr, &rest, a, modulus) || (rest.negative && !rest.Add(rest, modulus))) {
        return false;
    }
    return take(rest);
}

bool QorBigNum::Gcd(const QorBigNum& a, const QorBigNum& b) {
    QorBigNum larger;
    QorBigNum smaller;
    if (!larger.CopyFrom(a) || !smaller.CopyFrom(b)) {
        return false;
    }
    while (!smaller.IsZero()) {
        if (!Divide(nullptr, &larger, larger, smaller)) {
            return false;
        }
        std::swap(larger, smaller);
    }
    larger.negative = false;
    return take(larger);
}

bool QorBigNum::ModInverse(const QorBigNum& a, const QorBigNum& modulus) {
    QorBigNum one;
    QorBigNum larger;
    QorBigNum smaller;
    if (!one.SetWord(1) || modulus.Compare(one) <= 0 || !larger.CopyFrom(modulus) ||
        !smaller.Mod(a, modulus)) {
        return false;
    }
    // Euclid's algorithm, with the factor of `a` carried along for both numbers.
    QorBigNum largerFactor;
    QorBigNum smallerFactor;
    QorBigNum quotient;
    QorBigNum product;
    if (!smallerFactor.CopyFrom(one)) {
        return false;
    }
    while (!smaller.IsZero()) {
        if (!Divide(&quotient, &larger, larger, smaller) ||
            !product.Multiply(quotient, smallerFactor) ||
            !largerFactor.Subtract(largerFactor, product)) {
            return false;
        }
        std::swap(larger, smaller);
        std::swap(largerFactor, smallerFactor);
    }
    return larger.Compare(one) == 0 && Mod(largerFactor, modulus);
}

bool QorBigNum::ModExp(const QorBigNum& base, const QorBigNum& exponent, const QorBigNum& modulus) {
    QorBigNum one;
    if (!one.SetWord(1) || exponent.negative || !modulus.IsOdd() || modulus.Compare(one) <= 0) {
        return false;
    }
    // A power takes any base of no more limbs than the modulus has.
    const bool fits = !base.negative && base.count <= modulus.count;
    QorBigNum start;
    if (!fits && !start.Mod(base, modulus)) {
        return false;
    }
    const QorBigNum& from = fits ? base : start;
    const std::size_t exponentCount = exponent.IsZero() ? 1 : exponent.count;
    Montgomery field;
    LimbBuffer buffer;
    QorBigNum result;
    if (!field.set(modulus.limbs, modulus.count) || !result.allocate(modulus.count) ||
        !buffer.allocate(field.powerWorkSize() + modulus.count + exponentCount)) {
        return false;
    }
    LimbParts parts(buffer);
    Limb* padded = parts.take(modulus.count);
    Limb* bits = parts.take(exponentCount);
    if (from.count > 0) {
        std::memcpy(padded, from.limbs, from.count * limbBytes);
    }
    if (exponent.count > 0) {
        std::memcpy(bits, exponent.limbs, exponent.count * limbBytes);
    }
    field.power(result.limbs, padded, bits, exponentCount, parts.take(field.powerWorkSize()));
    return take(result);
}
