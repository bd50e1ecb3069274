#include "qorcrypto_bignum.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "gmp_number.h"

namespace {

using Ours = bool (*)(QorBigNum& out, const QorBigNum& a, const QorBigNum& b);
// False where there is no result.
using Theirs = bool (*)(GmpNumber& out, const GmpNumber& a, const GmpNumber& b);

unsigned long shiftOf(const GmpNumber& b) {
    return mpz_get_ui(b) % 300;
}

std::size_t shiftOf(const QorBigNum& b) {
    GmpNumber number;
    mpz_set_str(number, hexOf(b).c_str(), 16);
    return shiftOf(number);
}

struct Operation {
    const char* name;
    Ours ours;
    Theirs theirs;
};

#define OURS [](QorBigNum & out, const QorBigNum& a, [[maybe_unused]] const QorBigNum& b) -> bool
#define THEIRS [](GmpNumber & out, const GmpNumber& a, [[maybe_unused]] const GmpNumber& b) -> bool

const Operation operations[] = {{"add", OURS{return out.Add(a, b);
} // namespace
, THEIRS {
    return mpz_add(out, a, b), true;
}
}
, {"subtract", OURS{return out.Subtract(a, b);
}
, THEIRS {
    return mpz_sub(out, a, b), true;
}
}
, {"multiply", OURS{return out.Multiply(a, b);
}
, THEIRS {
    return mpz_mul(out, a, b), true;
}
}
, {"square", OURS{return out.Multiply(a, a);
}
, THEIRS {
    return mpz_mul(out, a, a), true;
}
}
, {"quotient", OURS{return QorBigNum::Divide(&out, nullptr, a, b);
}
, THEIRS {
    return b.sign() != 0 && (mpz_tdiv_q(out, a, b), true);
}
}
, {"remainder", OURS{return QorBigNum::Divide(nullptr, &out, a, b);
}
, THEIRS {
    return b.sign() != 0 && (mpz_tdiv_r(out, a, b), true);
}
}
, {"modulo", OURS{return out.Mod(a, b);
}
, THEIRS {
    return b.sign() > 0 && (mpz_mod(out, a, b), true);
}
}
, {"gcd", OURS{return out.Gcd(a, b);
}
, THEIRS {
    return mpz_gcd(out, a, b), true;
}
}
, {"inverse", OURS{return out.ModInverse(a, b);
}
, THEIRS {
    return mpz_cmp(b, GmpNumber(1)) > 0 && mpz_invert(out, a, b) != 0;
}
}
, {"shift left", OURS{return out.ShiftLeft(a, shiftOf(b));
}
, THEIRS {
    return mpz_mul_2exp(out, a, shiftOf(b)), true;
}
}
, {"shift right", OURS{return out.ShiftRight(a, shiftOf(b));
}
, THEIRS {
    return mpz_tdiv_q_2exp(out, a, shiftOf(b)), true;
}
}
, {"compare", OURS{const int order = a.Compare(b);
const bool set = out.SetWord(order != 0 ? 1 : 0);
if (order < 0) {
    out.Negate();
}
return set;
}
, THEIRS {
    const int order = mpz_cmp(a, b);
    return mpz_set_si(out, (order > 0) - (order < 0)), true;
}
}
, {"negate", OURS{return out.CopyFrom(a) && (out.Negate(), true);
}
, THEIRS {
    return mpz_neg(out, a), true;
}
}
,
}
;

// Every operation on two numbers: the result, or the lack of one, which leaves the output as it
// was; and the same where the output is the first or the second operand.
void compareAll(const GmpNumber& a, const GmpNumber& b) {
    QorBigNum ourA;
    QorBigNum ourB;
    ASSERT_TRUE(ourA.SetHex(a.hex().c_str()) && ourB.SetHex(b.hex().c_str()));
    for (const Operation& operation : operations) {
        SCOPED_TRACE(std::string(operation.name) + " of " + a.hex() + " and " + b.hex());
        GmpNumber theirs;
        const bool defined = operation.theirs(theirs, a, b);
        QorBigNum separate;
        QorBigNum first;
        QorBigNum second;
        ASSERT_TRUE(separate.SetWord(7) && first.CopyFrom(ourA) && second.CopyFrom(ourB));
        ASSERT_EQ(defined, operation.ours(separate, ourA, ourB));
        ASSERT_EQ(defined ? theirs.hex() : "7", hexOf(separate));
        ASSERT_EQ(defined, operation.ours(first, first, ourB));
        ASSERT_EQ(defined ? theirs.hex() : a.hex(), hexOf(first));
        ASSERT_EQ(defined, operation.ours(second, ourA, second));
        ASSERT_EQ(defined ? theirs.hex() : b.hex(), hexOf(second));
    }
}

// 0, 1, and what carries, borrows and estimates of quotients go wrong with: limbs of all ones, of
// nothing but their highest bit, and their neighbours.
std::vector<GmpNumber> corners() {
    std::vector<GmpNumber> numbers;
    for (const long small : {0, 1, 2, 3}) {
        numbers.emplace_back(small);
    }
    for (const unsigned long bits : {32UL, 63UL, 64UL, 127UL, 128UL, 191UL, 192UL, 512UL, 1024UL}) {
        for (const long more : {-1, 0, 1}) {
            numbers.push_back(GmpNumber::powerOfTwo(bits, more));
        }
    }
    for (const unsigned long bits : {128UL, 192UL, 320UL}) {
        GmpNumber number = GmpNumber::powerOfTwo(bits, 0);
        mpz_sub(number, number, GmpNumber::powerOfTwo(64, 0));
        numbers.push_back(number);
    }
    const std::size_t positive = numbers.size();
    for (std::size_t i = 1; i < positive; i += 2) {
        numbers.push_back(numbers[i]);
        mpz_neg(numbers.back(), numbers.back());
    }
    return numbers;
}

class RandomNumbers {
public:
    RandomNumbers() {
        gmp_randinit_default(state);
    }
    ~RandomNumbers() {
        gmp_randclear(state);
    }
    unsigned long below(unsigned long limit) {
        return gmp_urandomm_ui(state, limit);
    }
    // Any bits, or long runs of equal bits, up to 8,200 of them now and then.
    GmpNumber next() {
        GmpNumber number;
        const unsigned long bits = below(below(16) == 0 ? 8200 : 700);
        (below(2) == 0 ? mpz_urandomb : mpz_rrandomb)(number, state, bits);
        if (below(4) == 0) {
            mpz_neg(number, number);
        }
        return number;
    }

private:
    gmp_randstate_t state;
};

TEST(BigNum, computesWhatGmpDoesInCornerCases) {
    const std::vector<GmpNumber> numbers = corners();
    for (const GmpNumber& a : numbers) {
        for (const GmpNumber& b : numbers) {
            compareAll(a, b);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

TEST(BigNum, computesWhatGmpDoesWithRandomNumbers) {
    RandomNumbers random;
    for (int i = 0; i < 4000; i++) {
        compareAll(random.next(), random.next());
        ASSERT_FALSE(HasFatalFailure());
    }
}

void comparePowers(const GmpNumber& base, const GmpNumber& exponent, const GmpNumber& modulus) {
    SCOPED_TRACE(base.hex() + " ^ " + exponent.hex() + " mod " + modulus.hex());
    QorBigNum ourBase;
    QorBigNum ourExponent;
    QorBigNum ours;
    ASSERT_TRUE(ourBase.SetHex(base.hex().c_str()) && ourExponent.SetHex(exponent.hex().c_str()) &&
                ours.SetHex(modulus.hex().c_str()));
    const bool defined =
        mpz_cmp(modulus, GmpNumber(1)) > 0 && modulus.isOdd() && exponent.sign() >= 0;
    ASSERT_EQ(defined, ours.ModExp(ourBase, ourExponent, ours));
    GmpNumber theirs(modulus);
    if (defined) {
        mpz_powm(theirs, base, exponent, modulus);
    }
    ASSERT_EQ(theirs.hex(), hexOf(ours));
}

TEST(BigNum, raisesToPowersAsGmpDoes) {
    const std::vector<GmpNumber> numbers = corners();
    for (std::size_t i = 0; i < numbers.size(); i++) {
        for (const GmpNumber& modulus : numbers) {
            comparePowers(numbers[i], numbers[(i * 7 + 3) % numbers.size()], modulus);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
    RandomNumbers random;
    for (int i = 0; i < 300; i++) {
        GmpNumber modulus = random.next();
        mpz_setbit(modulus, 0);
        GmpNumber exponent = random.next();
        mpz_tdiv_r_2exp(exponent, exponent, 600);
        comparePowers(random.next(), exponent, modulus);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(BigNum, dividesIntoBothResultsAtOnce) {
    QorBigNum a;
    QorBigNum b;
    ASSERT_TRUE(a.SetHex("-123456789abcdef0123456789abcdef01") && b.SetHex("fedcba9876543210f"));
    EXPECT_FALSE(QorBigNum::Divide(&a, &a, a, b));
    ASSERT_TRUE(QorBigNum::Divide(&a, &b, a, b));
    EXPECT_EQ("-1249249249249237", hexOf(a));
    EXPECT_EQ("-ec6b46b46b46b46c8", hexOf(b));
}

TEST(BigNum, readsAndWritesText) {
    const std::string largest(QorBigNum::MaxBits / 4, 'f');
    const struct {
        const char* name;
        std::string text;
        const char* expected; // null: refused; the number before it stays
    } rows[] = {
        {"both cases", "aBcDeF0123456789abcdef", "abcdef0123456789abcdef"},
        {"leading zeros", "0000000000000000000000001", "1"},
        {"negative zero", "-000", "0"},
        {"negative", "-0f", "-f"},
        {"empty", "", nullptr},
        {"sign alone", "-", nullptr},
        {"plus", "+1", nullptr},
        {"blank", "1 ", nullptr},
        {"beyond f", "1g", nullptr},
        {"prefix", "0x1", nullptr},
        {"largest", largest, largest.c_str()},
        {"too large", "1" + largest, nullptr},
    };
    for (const auto& row : rows) {
        QorBigNum number;
        ASSERT_TRUE(number.SetWord(5));
        EXPECT_EQ(row.expected != nullptr, number.SetHex(row.text.c_str())) << row.name;
        EXPECT_EQ(row.expected != nullptr ? row.expected : "5", hexOf(number)) << row.name;
    }
    QorBigNum number;
    EXPECT_FALSE(number.SetHex(nullptr));
    char text[3] = "xx";
    ASSERT_TRUE(number.SetHex("-12"));
    EXPECT_FALSE(number.GetHex(text, sizeof text));
    EXPECT_STREQ("xx", text);
}

TEST(BigNum, readsAndWritesBytes) {
    const unsigned char bytes[] = {0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    QorBigNum number;
    ASSERT_TRUE(number.SetBytes(bytes, sizeof bytes));
    EXPECT_EQ("10203040506070809", hexOf(number));
    EXPECT_EQ(65U, number.BitLength());
    EXPECT_EQ(9U, number.ByteLength());
    std::vector<unsigned char> out(sizeof bytes, 0xee);
    EXPECT_FALSE(number.GetBytes(out.data(), 8));
    EXPECT_FALSE(number.GetBytes(nullptr, 9));
    EXPECT_EQ(std::vector<unsigned char>(sizeof bytes, 0xee), out);
    EXPECT_TRUE(number.GetBytes(out.data(), out.size()));
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + sizeof bytes), out);
    EXPECT_FALSE(number.SetBytes(nullptr, 1));
    EXPECT_FALSE(number.SetBytes(std::vector<unsigned char>(QorBigNum::MaxBits / 8 + 1, 1).data(),
                                 QorBigNum::MaxBits / 8 + 1));
    EXPECT_EQ("10203040506070809", hexOf(number));
    EXPECT_TRUE(number.SetBytes(nullptr, 0));
    EXPECT_TRUE(number.IsZero() && !number.IsOdd() && number.GetBytes(nullptr, 0));
}

TEST(BigNum, refusesResultsBeyondItsSize) {
    QorBigNum one;
    QorBigNum large;
    ASSERT_TRUE(one.SetWord(1) && large.ShiftLeft(one, QorBigNum::MaxBits - 1));
    EXPECT_FALSE(large.Add(large, large));
    EXPECT_FALSE(large.Multiply(large, large));
    EXPECT_FALSE(large.ShiftLeft(large, 1));
    EXPECT_FALSE(large.ShiftLeft(one, static_cast<std::size_t>(-1)));
    EXPECT_EQ(QorBigNum::MaxBits, large.BitLength());
}

TEST(BigNum, moves) {
    QorBigNum a;
    ASSERT_TRUE(a.SetHex("-123"));
    QorBigNum b(std::move(a));
    a = std::move(b);
    QorBigNum& self = a;
    a = std::move(self);
    EXPECT_EQ("-123", hexOf(a));
    EXPECT_TRUE(b.IsZero() && a.IsNegative());
}

} // namespace
