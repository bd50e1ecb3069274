// RSA keys from Mersenne primes, which nobody has to search for or write down. All their limbs but
// the topmost are all ones, which is a hard case for carries.
#pragma once

#include <vector>

#include "gmp_number.h"
#include "qorcrypto_rsa.h"

struct RsaNumbers {
    using Bytes = std::vector<unsigned char>;

    Bytes n, e, d, p, q, dp, dq, qinv;

    // The key of the primes 2^pBits - 1 and 2^qBits - 1.
    static RsaNumbers ofMersennePrimes(unsigned long pBits, unsigned long qBits,
                                       long exponent = 65537) {
        const GmpNumber p = GmpNumber::powerOfTwo(pBits, -1);
        const GmpNumber q = GmpNumber::powerOfTwo(qBits, -1);
        const GmpNumber e(exponent);
        const GmpNumber one(1);
        GmpNumber n;
        GmpNumber pOrder;
        GmpNumber qOrder;
        GmpNumber d;
        GmpNumber part;
        mpz_mul(n, p, q);
        mpz_sub(pOrder, p, one);
        mpz_sub(qOrder, q, one);
        mpz_lcm(d, pOrder, qOrder);
        mpz_invert(d, e, d);
        RsaNumbers numbers{n.bytes(), e.bytes(), d.bytes(), p.bytes(), q.bytes(), {}, {}, {}};
        mpz_mod(part, d, pOrder);
        numbers.dp = part.bytes();
        mpz_mod(part, d, qOrder);
        numbers.dq = part.bytes();
        mpz_invert(part, q, p);
        numbers.qinv = part.bytes();
        return numbers;
    }

    RsaNumbers withoutPrimes() const {
        return {n, e, d, {}, {}, {}, {}, {}};
    }
    QorRsaPrivateNumbers view() const {
        return {of(n), of(e), of(d), of(p), of(q), of(dp), of(dq), of(qinv)};
    }
    static QorRsaNumber of(const Bytes& bytes) {
        return {bytes.empty() ? nullptr : bytes.data(), bytes.size()};
    }
};
