// The arithmetic of an RSA key, without paddings: what stands behind a QorRsaKey.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>

#include "montgomery.h"
#include "qorcrypto_rsa.h"

namespace qorcrypt {

// The raising to a private exponent, by itself so that tests can make it fail.
void privatePower(const Montgomery& field, Limb* out, const Limb* base, const Limb* exponent,
                  Limb* work);

class RsaCore {
public:
    // Once each, on a new object.
    QorRsaResult setPublic(const QorRsaNumber& n, const QorRsaNumber& exponent);
    QorRsaResult setPrivate(const QorRsaPrivateNumbers& numbers);
    QorRsaResult copyFrom(const RsaCore& other);

    bool isPrivate() const {
        return d.size() > 0;
    }
    std::size_t modulusBits() const {
        return bits;
    }
    std::size_t modulusSize() const {
        return (bits + 7) / 8;
    }

    // From and to modulusSize() bytes; the same buffer may be both.
    QorRsaResult publicRaw(const unsigned char* in, unsigned char* out) const;
    QorRsaResult privateRaw(const unsigned char* in, unsigned char* out);

private:
    // One side of the calculation with the Chinese remainder theorem. Both primes are given as many
    // limbs as the larger one needs.
    struct Prime {
        Montgomery field;
        LimbBuffer exponent; // d mod (p - 1)
    };

    // Loading.
    QorRsaResult setPrimes(const QorRsaPrivateNumbers& numbers);
    QorRsaResult setPrime(Prime& prime, const QorRsaNumber& number, const QorRsaNumber& exponent,
                          std::size_t count) const;
    bool exponentFits(const Prime& prime, Limb* work) const;
    bool inverseFits(Limb* work) const;
    bool hasPrimes() const {
        return qInverse.size() > 0;
    }

    // Private operations. Which exponent is raised to: d, or d - 1 for the blinding's inverse.
    enum class Exponent { d, dMinusOne };
    std::size_t privateWorkSize() const;
    void raise(Limb* out, const Limb* base, Exponent which, Limb* work) const;
    static void takeExponent(Limb* out, const LimbBuffer& exponent, Exponent which);
    void raiseByPrimes(Limb* out, const Limb* base, Exponent which, Limb* work) const;
    void raiseModulo(const Prime& prime, Limb* out, const Limb* base, Exponent which,
                     Limb* work) const;
    void combine(Limb* out, const Limb* modP, const Limb* modQ, Limb* work) const;
    QorRsaResult drawBlinding(Limb* factor, Limb* inverse, Limb* work) const;
    QorRsaResult renewBlinding(Limb* work);
    QorRsaResult takeBlinding(Limb* factor, Limb* inverse, Limb* work);

    std::size_t bits = 0;
    std::uint64_t e = 0;
    Montgomery field; // modulo n
    LimbBuffer d;
    Prime p;
    Prime q;
    LimbBuffer qInverse; // q^-1 mod p

    // r^e and r^-1 for a random r, in Montgomery form. Each operation squares them for the next.
    std::mutex blindingLock;
    LimbBuffer blinding;
    unsigned int blindingUses = 0; // left; none: a new r is drawn
    pid_t blindingProcess = 0;     // which drew r
};

} // namespace qorcrypt
