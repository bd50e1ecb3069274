// The public and the private operation.
#include "rsa_core.h"

#include <unistd.h>

#include "internal/replaceable.h"
#include "qorcrypto_random.h"

namespace qorcrypt {
namespace {

// How many operations one random number blinds, by squaring. Drawing one costs as much as a
// private operation.
constexpr unsigned int usesOfABlinding = 128;

} // namespace

QOR_REPLACEABLE void privatePower(const Montgomery& field, Limb* out, const Limb* base,
                                  const Limb* exponent, Limb* work) {
    field.power(out, base, exponent, field.count(), work);
}

QorRsaResult RsaCore::publicRaw(const unsigned char* in, unsigned char* out) const {
    const std::size_t count = field.count();
    LimbBuffer buffer;
    if (!buffer.allocate(field.powerPublicWorkSize() + count)) {
        return QorRsaResult::NoMemory;
    }
    LimbParts parts(buffer);
    Limb* number = parts.take(count);
    limbsFromBytes(number, count, in, modulusSize());
    if (lessLimbs(number, field.modulus(), count) == 0) {
        return QorRsaResult::MessageTooLarge;
    }
    field.powerPublic(number, number, e, parts.take(field.powerPublicWorkSize()));
    bytesFromLimbs(out, modulusSize(), number, count);
    return QorRsaResult::Ok;
}

QorRsaResult RsaCore::privateRaw(const unsigned char* in, unsigned char* out) {
    const std::size_t count = field.count();
    LimbBuffer buffer;
    if (!buffer.allocate(privateWorkSize() + 4 * count)) {
        return QorRsaResult::NoMemory;
    }
    LimbParts parts(buffer);
    Limb* number = parts.take(count);
    Limb* factor = parts.take(count);
    Limb* inverse = parts.take(count);
    Limb* result = parts.take(count);
    Limb* work = parts.take(privateWorkSize());
    limbsFromBytes(number, count, in, modulusSize());
    if (lessLimbs(number, field.modulus(), count) == 0) {
        return QorRsaResult::MessageTooLarge;
    }
    const QorRsaResult blinded = takeBlinding(factor, inverse, work);
    if (blinded != QorRsaResult::Ok) {
        return blinded;
    }
    // (c * r^e)^d * r^-1 = c^d
    field.multiply(result, number, factor, work);
    raise(result, result, Exponent::d, work);
    field.multiply(result, result, inverse, work);
    // A result that is right modulo one prime only would give away that prime.
    field.powerPublic(factor, result, e, work);
    if (equalMask(factor, number, count) == 0) {
        return QorRsaResult::Fault;
    }
    bytesFromLimbs(out, modulusSize(), result, count);
    return QorRsaResult::Ok;
}

// What raise needs, and the public power besides.
std::size_t RsaCore::privateWorkSize() const {
    const std::size_t byModulus = field.powerWorkSize() + 3 * field.count();
    const std::size_t byPrimes = p.field.powerWorkSize() + 10 * p.field.count();
    return byModulus > byPrimes ? byModulus : byPrimes;
}

void RsaCore::raise(Limb* out, const Limb* base, Exponent which, Limb* work) const {
    if (hasPrimes()) {
        raiseByPrimes(out, base, which, work);
        return;
    }
    Limb* exponent = work;
    Limb* rest = exponent + field.count();
    takeExponent(exponent, d, which);
    privatePower(field, out, base, exponent, rest);
}

// Such an exponent is odd, since its product with e is 1 modulo an even number.
void RsaCore::takeExponent(Limb* out, const LimbBuffer& exponent, Exponent which) {
    std::memcpy(out, exponent.data(), exponent.size() * limbBytes);
    out[0] &= ~static_cast<Limb>(which == Exponent::dMinusOne ? 1 : 0);
}

void RsaCore::raiseByPrimes(Limb* out, const Limb* base, Exponent which, Limb* work) const {
    const std::size_t count = p.field.count();
    Limb* modP = work;
    Limb* modQ = modP + count;
    Limb* rest = modQ + count;
    raiseModulo(p, modP, base, which, rest);
    raiseModulo(q, modQ, base, which, rest);
    combine(out, modP, modQ, rest);
}

void RsaCore::raiseModulo(const Prime& prime, Limb* out, const Limb* base, Exponent which,
                          Limb* work) const {
    const std::size_t count = prime.field.count();
    Limb* wide = work;
    Limb* exponent = wide + 2 * count;
    Limb* rest = exponent + count;
    std::memset(wide, 0, 2 * count * limbBytes);
    std::memcpy(wide, base, field.count() * limbBytes);
    prime.field.reduceWide(out, wide, rest);
    takeExponent(exponent, prime.exponent, which);
    privatePower(prime.field, out, out, exponent, rest);
}

// modQ + q * ((modP - modQ) * qInverse mod p). Here modQ need not be below p.
void RsaCore::combine(Limb* out, const Limb* modP, const Limb* modQ, Limb* work) const {
    const std::size_t count = p.field.count();
    const std::size_t modulusCount = field.count();
    Limb* difference = work;
    Limb* product = difference + count;
    Limb* rest = product + 2 * count;
    // Both in Montgomery form, which the multiplication by qInverse takes away.
    p.field.multiply(product, modQ, p.field.squareOfR(), rest);
    p.field.multiply(difference, modP, p.field.squareOfR(), rest);
    const Limb borrow = subtractLimbs(difference, difference, product, count);
    addLimbs(product, difference, p.field.modulus(), count);
    selectLimbs(difference, product, difference, maskFromBit(borrow), count);
    p.field.multiply(difference, difference, qInverse.data(), rest);
    multiplyLimbs(product, difference, count, q.field.modulus(), count);
    std::memset(rest, 0, 2 * count * limbBytes);
    std::memcpy(rest, modQ, count * limbBytes);
    addLimbs(product, product, rest, 2 * count);
    std::memcpy(out, product, modulusCount * limbBytes);
}

// Draws r and computes r^e and r^-1 = (r^e)^(d - 1) * r^(e - 2), since e * (d - 1) + e - 2 is
// e * d - 2 and r^(e * d) = r. That takes no inversion, whose time would depend on r, and holds
// only where e and d belong together.
QorRsaResult RsaCore::drawBlinding(Limb* factor, Limb* inverse, Limb* work) const {
    const std::size_t count = field.count();
    LimbBuffer buffer;
    if (!buffer.allocate(3 * count)) {
        return QorRsaResult::NoMemory;
    }
    LimbParts parts(buffer);
    Limb* random = parts.take(count);
    Limb* power = parts.take(count);
    Limb* shortPower = parts.take(count);
    if (QorRandomBytes(random, count * limbBytes) == 0) {
        return QorRsaResult::NoRandom;
    }
    field.multiply(random, random, field.squareOfR(), work);
    field.powerPublic(power, random, e, work);
    raise(inverse, power, Exponent::dMinusOne, work);
    field.powerPublic(shortPower, random, e - 2, work);
    field.multiply(inverse, inverse, field.squareOfR(), work);
    field.multiply(inverse, inverse, shortPower, work);
    field.multiply(inverse, inverse, field.squareOfR(), work);
    field.multiply(factor, power, field.squareOfR(), work);
    // The inverse is in Montgomery form: its product with r isn't any more.
    field.multiply(power, inverse, random, work);
    return equalMask(power, Limb{1}, count) != 0 ? QorRsaResult::Ok : QorRsaResult::Fault;
}

QorRsaResult RsaCore::renewBlinding(Limb* work) {
    blindingUses = 0;
    const QorRsaResult drawn = drawBlinding(blinding.data(), blinding.data() + field.count(), work);
    if (drawn == QorRsaResult::Ok) {
        blindingUses = usesOfABlinding;
        blindingProcess = getpid();
    }
    return drawn;
}

QorRsaResult RsaCore::takeBlinding(Limb* factor, Limb* inverse, Limb* work) {
    // Nobody waits for the lock: in a child process that was forked while another thread held it,
    // it is never given back.
    const std::unique_lock<std::mutex> lock(blindingLock, std::try_to_lock);
    if (!lock.owns_lock()) {
        return drawBlinding(factor, inverse, work);
    }
    // A child process doesn't go on with its parent's numbers.
    if (blindingUses == 0 || blindingProcess != getpid()) {
        const QorRsaResult renewed = renewBlinding(work);
        if (renewed != QorRsaResult::Ok) {
            return renewed;
        }
    }
    const std::size_t count = field.count();
    Limb* const storedFactor = blinding.data();
    Limb* const storedInverse = storedFactor + count;
    std::memcpy(factor, storedFactor, count * limbBytes);
    std::memcpy(inverse, storedInverse, count * limbBytes);
    field.square(storedFactor, storedFactor, work);
    field.square(storedInverse, storedInverse, work);
    blindingUses--;
    return QorRsaResult::Ok;
}

} // namespace qorcrypt
