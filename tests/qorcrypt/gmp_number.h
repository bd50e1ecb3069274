// GMP's numbers, which the ones here are compared with, and RSA keys made of them.
#pragma once

#include <gmpxx.h>

#include <string>

#include "hex.h"
#include "qorcrypto_bignum.h"
#include "qorcrypto_rsa.h"

// In big-endian bytes, at least `size` of them.
inline Bytes bytesOf(const mpz_class& number, std::size_t size = 0) {
    std::string text = number.get_str(16);
    text.insert(0, text.size() < 2 * size ? 2 * size - text.size() : text.size() % 2, '0');
    return unhex(text);
}

inline QorBigNum bigNumOf(const mpz_class& number) {
    QorBigNum result;
    result.SetHex(number.get_str(16).c_str());
    return result;
}

inline std::string hexOf(const QorBigNum& number) {
    std::string text(number.HexSize(), 0);
    return number.GetHex(text.data(), text.size()) ? text.c_str() : "no text";
}

// Keys from Mersenne primes, which nobody has to search for or write down. All their limbs but the
// topmost are all ones, which is a hard case for carries.
struct RsaNumbers {
    mpz_class n, e, d, p, q, dp, dq, qinv; // 0: missing

    // Of the primes 2^pBits - 1 and 2^qBits - 1.
    RsaNumbers(unsigned long pBits, unsigned long qBits, unsigned long exponent = 65537)
        : e(exponent), p((mpz_class(1) << pBits) - 1), q((mpz_class(1) << qBits) - 1) {
        n = p * q;
        mpz_invert(d.get_mpz_t(), e.get_mpz_t(), mpz_class((p - 1) * (q - 1)).get_mpz_t());
        mpz_invert(qinv.get_mpz_t(), q.get_mpz_t(), p.get_mpz_t());
        dp = d % (p - 1);
        dq = d % (q - 1);
    }

    RsaNumbers withoutPrimes() const {
        RsaNumbers rest = *this;
        rest.p = rest.q = rest.dp = rest.dq = rest.qinv = 0;
        return rest;
    }
    QorRsaResult setInto(QorRsaKey& key) const {
        Bytes bytes[8];
        QorRsaNumber parts[8];
        std::size_t i = 0;
        for (const mpz_class* number : {&n, &e, &d, &p, &q, &dp, &dq, &qinv}) {
            bytes[i] = bytesOf(*number, 200); // with leading zeros
            parts[i] = {bytes[i].data(), *number == 0 ? 0 : bytes[i].size()};
            i++;
        }
        return key.SetPrivate(
            {parts[0], parts[1], parts[2], parts[3], parts[4], parts[5], parts[6], parts[7]});
    }
};
