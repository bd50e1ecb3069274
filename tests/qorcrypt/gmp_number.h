// GMP's numbers, which the ones here are compared with.
#pragma once

#include <gmp.h>

#include <string>
#include <vector>

#include "qorcrypto_bignum.h"

class GmpNumber {
public:
    GmpNumber(long value = 0) {
        mpz_init_set_si(number, value);
    }
    GmpNumber(const GmpNumber& other) {
        mpz_init_set(number, other.number);
    }
    GmpNumber& operator=(const GmpNumber& other) {
        mpz_set(number, other.number);
        return *this;
    }
    ~GmpNumber() {
        mpz_clear(number);
    }
    // 2^bits + more
    static GmpNumber powerOfTwo(unsigned long bits, long more) {
        GmpNumber power(1);
        mpz_mul_2exp(power, power, bits);
        mpz_add(power, power, GmpNumber(more));
        return power;
    }

    operator mpz_ptr() {
        return number;
    }
    operator mpz_srcptr() const {
        return number;
    }

    int sign() const {
        return mpz_sgn(number);
    }
    bool isAboveOne() const {
        return mpz_cmp_si(number, 1) > 0;
    }
    bool isOdd() const {
        return mpz_tstbit(number, 0) != 0;
    }
    std::string hex() const {
        std::string text(mpz_sizeinbase(number, 16) + 2, 0);
        return mpz_get_str(&text[0], 16, number);
    }
    std::vector<unsigned char> bytes(std::size_t size = 0) const {
        const std::size_t used = sign() == 0 ? 0 : (mpz_sizeinbase(number, 2) + 7) / 8;
        std::vector<unsigned char> result(size > used ? size : used);
        mpz_export(result.data() + (result.size() - used), nullptr, 1, 1, 0, 0, number);
        return result;
    }

private:
    mpz_t number;
};

inline std::string hexOf(const QorBigNum& number) {
    std::string text(number.HexSize(), 0);
    return number.GetHex(&text[0], text.size()) ? text.c_str() : "no text";
}

inline GmpNumber gmpOf(const QorBigNum& number) {
    GmpNumber result;
    mpz_set_str(result, hexOf(number).c_str(), 16);
    return result;
}

inline QorBigNum bigNumOf(const GmpNumber& number) {
    QorBigNum result;
    result.SetHex(number.hex().c_str());
    return result;
}
