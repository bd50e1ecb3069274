// RSA keys from their numbers. Secret numbers are checked by arithmetic of fixed length as well.
#include "rsa_core.h"

namespace qorcrypt {
namespace {

constexpr Limb one = 1;

QorRsaNumber withoutLeadingZeros(QorRsaNumber number) {
    while (number.size > 0 && *number.bytes == 0) {
        number.bytes++;
        number.size--;
    }
    return number;
}

bool isReadable(const QorRsaNumber& number) {
    return number.bytes != nullptr || number.size == 0;
}

// The size of a number in bits, which is no secret.
std::size_t bitsOf(const QorRsaNumber& number) {
    const QorRsaNumber digits = withoutLeadingZeros(number);
    if (digits.size == 0) {
        return 0;
    }
    const Limb top = *digits.bytes;
    return (digits.size - 1) * 8 + bitLength(&top, 1);
}

bool isOdd(const QorRsaNumber& number) {
    return number.size > 0 && (number.bytes[number.size - 1] & 1) != 0;
}

} // namespace

QorRsaResult RsaCore::setPublic(const QorRsaNumber& n, const QorRsaNumber& exponent) {
    if (!isReadable(n) || !isReadable(exponent)) {
        return QorRsaResult::BadArgument;
    }
    bits = bitsOf(n);
    const std::size_t exponentBits = bitsOf(exponent);
    // An exponent of so few bits is below n.
    if (bits < QorRsaKey::MinBits || bits > QorRsaKey::MaxBits || !isOdd(n) || exponentBits < 2 ||
        exponentBits > QorRsaKey::MaxExponentBits || !isOdd(exponent)) {
        return QorRsaResult::BadKey;
    }
    for (std::size_t i = 0; i < exponent.size; i++) {
        e = e << 8 | exponent.bytes[i];
    }
    LimbBuffer modulus;
    const std::size_t count = limbsForBits(bits);
    if (!modulus.allocate(count)) {
        return QorRsaResult::NoMemory;
    }
    limbsFromBytes(modulus.data(), count, n.bytes, n.size);
    return field.set(modulus.data(), count) ? QorRsaResult::Ok : QorRsaResult::NoMemory;
}

QorRsaResult RsaCore::setPrivate(const QorRsaPrivateNumbers& numbers) {
    const QorRsaNumber* const rest[] = {&numbers.d,  &numbers.p,  &numbers.q,
                                        &numbers.dp, &numbers.dq, &numbers.qinv};
    std::size_t given = 0;
    for (const QorRsaNumber* number : rest) {
        if (!isReadable(*number)) {
            return QorRsaResult::BadArgument;
        }
        given += number->size > 0 ? 1 : 0;
    }
    if (numbers.d.size == 0 || (given != 1 && given != 6)) {
        return QorRsaResult::BadKey;
    }
    QorRsaResult result = setPublic(numbers.n, numbers.e);
    if (result != QorRsaResult::Ok) {
        return result;
    }
    const std::size_t count = field.count();
    if (!d.allocate(count)) {
        return QorRsaResult::NoMemory;
    }
    // An even d has no e; the blinding rests on its being odd.
    if (!isOdd(numbers.d) || !limbsFromBytes(d.data(), count, numbers.d.bytes, numbers.d.size) ||
        lessLimbs(d.data(), field.modulus(), count) == 0) {
        return QorRsaResult::BadKey;
    }
    if (given == 6) {
        result = setPrimes(numbers);
        if (result != QorRsaResult::Ok) {
            return result;
        }
    }
    LimbBuffer work;
    if (!blinding.allocate(2 * count) || !work.allocate(privateWorkSize())) {
        return QorRsaResult::NoMemory;
    }
    // Ends well only where r^(e * d) = r for its random r.
    result = renewBlinding(work.data());
    return result == QorRsaResult::Fault ? QorRsaResult::BadKey : result;
}

QorRsaResult RsaCore::setPrimes(const QorRsaPrivateNumbers& numbers) {
    const std::size_t pBits = bitsOf(numbers.p);
    const std::size_t qBits = bitsOf(numbers.q);
    if (pBits < 2 || qBits < 2 || !isOdd(numbers.p) || !isOdd(numbers.q) || pBits > bits ||
        qBits > bits) {
        return QorRsaResult::BadKey;
    }
    const std::size_t count = limbsForBits(pBits > qBits ? pBits : qBits);
    // Otherwise p * q can't be n, which has to fit in two such numbers.
    if (field.count() > 2 * count) {
        return QorRsaResult::BadKey;
    }
    QorRsaResult result = setPrime(p, numbers.p, numbers.dp, count);
    if (result == QorRsaResult::Ok) {
        result = setPrime(q, numbers.q, numbers.dq, count);
    }
    if (result != QorRsaResult::Ok) {
        return result;
    }
    LimbBuffer buffer;
    if (!qInverse.allocate(count) || !buffer.allocate(10 * count)) {
        return QorRsaResult::NoMemory;
    }
    LimbParts parts(buffer);
    Limb* product = parts.take(2 * count);
    Limb* modulus = parts.take(2 * count);
    std::memcpy(modulus, field.modulus(), field.count() * limbBytes);
    multiplyLimbs(product, p.field.modulus(), count, q.field.modulus(), count);
    Limb* work = parts.take(6 * count);
    const bool agree =
        limbsFromBytes(qInverse.data(), count, numbers.qinv.bytes, numbers.qinv.size) &&
        equalMask(product, modulus, 2 * count) != 0 && exponentFits(p, work) &&
        exponentFits(q, work) && inverseFits(work);
    return agree ? QorRsaResult::Ok : QorRsaResult::BadKey;
}

QorRsaResult RsaCore::setPrime(Prime& prime, const QorRsaNumber& number,
                               const QorRsaNumber& exponent, std::size_t count) const {
    LimbBuffer modulus;
    if (!modulus.allocate(count) || !prime.exponent.allocate(count)) {
        return QorRsaResult::NoMemory;
    }
    if (!limbsFromBytes(modulus.data(), count, number.bytes, number.size) ||
        !limbsFromBytes(prime.exponent.data(), count, exponent.bytes, exponent.size)) {
        return QorRsaResult::BadKey;
    }
    return prime.field.set(modulus.data(), count) ? QorRsaResult::Ok : QorRsaResult::NoMemory;
}

// d mod (p - 1) is what was given for it, and e times it is 1 mod (p - 1).
bool RsaCore::exponentFits(const Prime& prime, Limb* work) const {
    const std::size_t count = prime.field.count();
    Limb* order = work + 2 * count;
    Limb* remainder = order + count;
    Limb* product = remainder + count;
    std::memcpy(order, prime.field.modulus(), count * limbBytes);
    order[0] -= 1;
    remainderLimbs(remainder, d.data(), d.size(), order, count, work);
    const Limb same = equalMask(remainder, prime.exponent.data(), count);
    const Limb exponent[] = {static_cast<Limb>(e), static_cast<Limb>(e >> (limbBits - 1) >> 1)};
    multiplyLimbs(product, prime.exponent.data(), count, exponent, 2);
    remainderLimbs(remainder, product, count + 2, order, count, work);
    return (same & equalMask(remainder, one, count)) != 0;
}

// q * qinv is 1 mod p, and qinv below p.
bool RsaCore::inverseFits(Limb* work) const {
    const std::size_t count = p.field.count();
    Limb* product = work + p.field.workSize();
    if (lessLimbs(qInverse.data(), p.field.modulus(), count) == 0) {
        return false;
    }
    p.field.multiply(product, q.field.modulus(), qInverse.data(), work);
    p.field.multiply(product, product, p.field.squareOfR(), work);
    return equalMask(product, one, count) != 0;
}

QorRsaResult RsaCore::copyFrom(const RsaCore& other) {
    bits = other.bits;
    e = other.e;
    // The copy draws a blinding of its own when it needs one.
    const bool copied = field.copyFrom(other.field) && d.copyFrom(other.d) &&
                        p.field.copyFrom(other.p.field) && p.exponent.copyFrom(other.p.exponent) &&
                        q.field.copyFrom(other.q.field) && q.exponent.copyFrom(other.q.exponent) &&
                        qInverse.copyFrom(other.qInverse) &&
                        (!other.isPrivate() || blinding.allocate(2 * field.count()));
    return copied ? QorRsaResult::Ok : QorRsaResult::NoMemory;
}

} // namespace qorcrypt
