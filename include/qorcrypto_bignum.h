/**
 * @file qorcrypto_bignum.h
 * QorBigNum: whole numbers of any sign, up to MaxBits bits.
 *
 * A number is used by one thread at a time; reading one from several threads is fine while none
 * changes it. Nothing throws. An operation that can't be done (memory is short, the result would
 * have more than MaxBits bits, a divisor is zero, a buffer is too small) returns false and leaves
 * the object, and every output, as it was. The result's object may be one of the operands.
 *
 * Memory is overwritten with zeros before it is given up. That apart, only ModExp keeps its
 * operands' values out of its timing: the exponent's, the modulus's and, where it is not negative
 * and has no more machine words than the modulus, the base's; all but the sizes of these and of the
 * result. Every other operation here takes a time that depends on the values.
 * RSA does not stand on this class but on arithmetic of fixed length: see QorRsaKey.
 */
#pragma once

#include "qorapi.h"

#include <cstddef>
#include <cstdint>

/** A whole number and its memory. */
class QOR_API QorBigNum {
public:
    /** The size of the largest number, in bits. */
    static constexpr std::size_t MaxBits = 131072;

    /** Zero. */
    QorBigNum() noexcept;
    /** Wipes and frees. */
    ~QorBigNum();
    /** Takes the number over; the other one is zero then. */
    QorBigNum(QorBigNum&& other) noexcept;
    /** The same; the number that was here is wiped. */
    QorBigNum& operator=(QorBigNum&& other) noexcept;
    QorBigNum(const QorBigNum&) = delete;
    QorBigNum& operator=(const QorBigNum&) = delete;

    // Set.

    /** Becomes equal to the other number. */
    bool CopyFrom(const QorBigNum& other);
    /** A non-negative number of one word. */
    bool SetWord(std::uint64_t value);
    /** A non-negative number from its big-endian bytes. No bytes are zero; leading zeros, of any
     * number, are dropped. False also for a null `bytes` with a `size` above 0. */
    bool SetBytes(const unsigned char* bytes, std::size_t size);
    /** A number from hexadecimal digits of either case, behind a "-" where it is negative. False
     * for null, for a text without digits, and for any other character. */
    bool SetHex(const char* text);
    /** Wipes the number, which is zero then. */
    void Clear();

    // Read back.

    /** The magnitude as exactly `size` big-endian bytes, with zeros in front. False where it takes
     * more bytes, or for a null `out` with a `size` above 0. */
    bool GetBytes(unsigned char* out, std::size_t size) const;
    /** The size in bytes of the text that GetHex writes, with its terminator. */
    std::size_t HexSize() const;
    /** Lower-case hexadecimal digits without leading zeros ("0" for zero), behind a "-" where the
     * number is negative, and a terminator. */
    bool GetHex(char* out, std::size_t size) const;
    /** The number of bits of the magnitude without leading zeros; 0 for zero. */
    std::size_t BitLength() const;
    /** The number of bytes of the magnitude without leading zeros; 0 for zero. */
    std::size_t ByteLength() const;
    /** True for zero. */
    bool IsZero() const;
    /** True where the lowest bit of the magnitude is 1. */
    bool IsOdd() const;
    /** True below zero; zero has no sign. */
    bool IsNegative() const;
    /** -1, 0 or 1 where this number is below, equal to or above the other. */
    int Compare(const QorBigNum& other) const;

    // Arithmetic: this number becomes the result.

    /** Changes the sign; zero stays zero. */
    void Negate();
    /** a + b. */
    bool Add(const QorBigNum& a, const QorBigNum& b);
    /** a - b. */
    bool Subtract(const QorBigNum& a, const QorBigNum& b);
    /** a * b. */
    bool Multiply(const QorBigNum& a, const QorBigNum& b);
    /** a * 2^bits. */
    bool ShiftLeft(const QorBigNum& a, std::size_t bits);
    /** a / 2^bits, rounded towards zero. */
    bool ShiftRight(const QorBigNum& a, std::size_t bits);
    /**
     * Divides with the quotient rounded towards zero, as the language's own integers do:
     * a = quotient * b + remainder, where the remainder has the sign of `a` or is zero.
     * @param quotient, remainder two different objects, or null where one isn't wanted
     * @return false also where `b` is zero, or both outputs are the same object
     */
    static bool Divide(QorBigNum* quotient, QorBigNum* remainder, const QorBigNum& a,
                       const QorBigNum& b);
    /** The remainder in 0 .. modulus - 1, whatever the sign of `a`. False unless modulus > 0. */
    bool Mod(const QorBigNum& a, const QorBigNum& modulus);
    /** The greatest common divisor, never negative; gcd(0, b) = |b|. */
    bool Gcd(const QorBigNum& a, const QorBigNum& b);
    /** The x in 0 .. modulus - 1 with a * x = 1 (mod modulus). False unless modulus > 1, and where
     * `a` and the modulus have a common divisor above 1. */
    bool ModInverse(const QorBigNum& a, const QorBigNum& modulus);
    /**
     * base^exponent mod modulus, in Montgomery form with a fixed window. The time depends on the
     * size of the modulus and on that of the exponent in machine words, not on the exponent's
     * value.
     * @return false unless the modulus is odd and above 1, and the exponent is not negative
     */
    bool ModExp(const QorBigNum& base, const QorBigNum& exponent, const QorBigNum& modulus);

private:
    // Gives a zero object room for that many limbs, all zero. False beyond MaxBits and some.
    QOR_LOCAL bool allocate(std::size_t limbCount);
    // Drops leading zero limbs.
    QOR_LOCAL void trim();
    // Trims a result and takes it over, unless it is too large.
    QOR_LOCAL bool take(QorBigNum& result);
    QOR_LOCAL static int compareMagnitudes(const QorBigNum& a, const QorBigNum& b);
    // a + b, where b counts as negative or not as `negativeB` says.
    QOR_LOCAL bool addSigned(const QorBigNum& a, const QorBigNum& b, bool negativeB);

    std::size_t* limbs;   // least significant first; null while capacity is 0
    std::size_t count;    // without leading zeros
    std::size_t capacity; // in limbs
    bool negative;        // never for zero
};
