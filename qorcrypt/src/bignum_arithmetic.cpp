// Big numbers: comparison, sums, products, shifts.
#include "qorcrypto_bignum.h"

#include "limbs.h"

using namespace qorcrypt;

namespace {

// Subtracts a single limb along the number, which is large enough.
void subtractBorrow(Limb* out, const Limb* a, std::size_t count, Limb borrow) {
    for (std::size_t i = 0; i < count; i++) {
        const DoubleLimb difference = DoubleLimb{a[i]} - borrow;
        out[i] = lowLimb(difference);
        borrow = highLimb(difference) & 1;
    }
}

} // namespace

int QorBigNum::compareMagnitudes(const QorBigNum& a, const QorBigNum& b) {
    if (a.count != b.count) {
        return a.count < b.count ? -1 : 1;
    }
    for (std::size_t i = a.count; i-- > 0;) {
        if (a.limbs[i] != b.limbs[i]) {
            return a.limbs[i] < b.limbs[i] ? -1 : 1;
        }
    }
    return 0;
}

int QorBigNum::Compare(const QorBigNum& other) const {
    if (negative != other.negative) {
        return negative ? -1 : 1;
    }
    return negative ? compareMagnitudes(other, *this) : compareMagnitudes(*this, other);
}

void QorBigNum::Negate() {
    negative = !negative && count > 0;
}

bool QorBigNum::addSigned(const QorBigNum& a, const QorBigNum& b, bool negativeB) {
    const bool aIsLarger = compareMagnitudes(a, b) >= 0;
    const QorBigNum& large = aIsLarger ? a : b;
    const QorBigNum& small = aIsLarger ? b : a;
    QorBigNum result;
    if (!result.allocate(large.count + 1)) {
        return false;
    }
    Limb* rest = result.limbs + small.count;
    const Limb* largeRest = large.limbs + small.count;
    const std::size_t restCount = large.count - small.count;
    if (a.negative == negativeB) {
        const Limb carry = addLimbs(result.limbs, large.limbs, small.limbs, small.count);
        result.limbs[large.count] = addCarry(rest, largeRest, restCount, carry);
    } else {
        const Limb borrow = subtractLimbs(result.limbs, large.limbs, small.limbs, small.count);
        subtractBorrow(rest, largeRest, restCount, borrow);
    }
    result.negative = aIsLarger ? a.negative : negativeB;
    return take(result);
}

bool QorBigNum::Add(const QorBigNum& a, const QorBigNum& b) {
    return addSigned(a, b, b.negative);
}

bool QorBigNum::Subtract(const QorBigNum& a, const QorBigNum& b) {
    return addSigned(a, b, !b.negative);
}

bool QorBigNum::Multiply(const QorBigNum& a, const QorBigNum& b) {
    QorBigNum result;
    if (a.IsZero() || b.IsZero()) {
        return take(result);
    }
    if (!result.allocate(a.count + b.count)) {
        return false;
    }
    if (&a == &b) {
        squareLimbs(result.limbs, a.limbs, a.count);
    } else {
        multiplyLimbs(result.limbs, a.limbs, a.count, b.limbs, b.count);
    }
    result.negative = a.negative != b.negative;
    return take(result);
}

bool QorBigNum::ShiftLeft(const QorBigNum& a, std::size_t bits) {
    QorBigNum result;
    if (a.IsZero()) {
        return take(result);
    }
    if (bits > MaxBits) {
        return false;
    }
    const std::size_t whole = bits / limbBits;
    if (!result.allocate(a.count + whole + 1)) {
        return false;
    }
    result.limbs[whole + a.count] =
        shiftLimbsUp(result.limbs + whole, a.limbs, a.count, bits % limbBits);
    result.negative = a.negative;
    return take(result);
}

bool QorBigNum::ShiftRight(const QorBigNum& a, std::size_t bits) {
    QorBigNum result;
    const std::size_t whole = bits / limbBits;
    if (whole >= a.count) {
        return take(result);
    }
    if (!result.allocate(a.count - whole)) {
        return false;
    }
    shiftLimbsDown(result.limbs, a.limbs + whole, result.count, bits % limbBits);
    result.negative = a.negative;
    return take(result);
}
