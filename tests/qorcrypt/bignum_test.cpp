#include "qorcrypto_bignum.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "gmp_number.h"

namespace {

// The numbers of each side: N is ours.
using N = QorBigNum;
using G = mpz_class;

const auto always = [](const G&, const G&) { return true; };
const auto byOtherThanZero = [](const G&, const G& b) { return b != 0; };
const auto byPositive = [](const G&, const G& b) { return b > 0; };
const auto invertible = [](const G& a, const G& b) { return b > 1 && gcd(a, b) == 1; };

std::size_t shift = 0; // how far the operations below move

const struct {
    const char* name;
    std::function<bool(N& out, const N& a, const N& b)> ours;
    std::function<void(mpz_ptr out, mpz_srcptr a, mpz_srcptr b)> theirs;
    bool (*isDefined)(const G& a, const G& b);
} operations[] = {
    {"add", &N::Add, mpz_add, always},
    {"subtract", &N::Subtract, mpz_sub, always},
    {"multiply", &N::Multiply, mpz_mul, always},
    {"quotient", [](N& out, const N& a, const N& b) { return N::Divide(&out, nullptr, a, b); },
     mpz_tdiv_q, byOtherThanZero},
    {"remainder", [](N& out, const N& a, const N& b) { return N::Divide(nullptr, &out, a, b); },
     mpz_tdiv_r, byOtherThanZero},
    {"modulo", &N::Mod, mpz_mod, byPositive},
    {"gcd", &N::Gcd, mpz_gcd, always},
    {"inverse", &N::ModInverse, mpz_invert, invertible},
    {"shift left", [](N& out, const N& a, const N&) { return out.ShiftLeft(a, shift); },
     [](mpz_ptr out, mpz_srcptr a, mpz_srcptr) { mpz_mul_2exp(out, a, shift); }, always},
    {"shift right", [](N& out, const N& a, const N&) { return out.ShiftRight(a, shift); },
     [](mpz_ptr out, mpz_srcptr a, mpz_srcptr) { mpz_tdiv_q_2exp(out, a, shift); }, always},
};

// Every operation on two numbers, into either of them: the result, or the lack of one, which leaves
// the number as it was.
void compareAll(const G& a, const G& b) {
    const N ourA = bigNumOf(a);
    const N ourB = bigNumOf(b);
    const int order = ourA.Compare(ourB);
    ASSERT_EQ((order > 0) - (order < 0), (a > b) - (a < b)) << a.get_str() << ", " << b.get_str();
    shift = mpz_tdiv_ui(b.get_mpz_t(), 300);
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.name + (" of " + a.get_str(16)) + " and " + b.get_str(16));
        const bool defined = operation.isDefined(a, b);
        G theirs;
        if (defined) {
            operation.theirs(theirs.get_mpz_t(), a.get_mpz_t(), b.get_mpz_t());
        }
        N first = bigNumOf(a);
        N second = bigNumOf(b);
        ASSERT_EQ(operation.ours(first, first, ourB), defined);
        ASSERT_EQ(operation.ours(second, ourA, second), defined);
        ASSERT_EQ(hexOf(first), (defined ? theirs : a).get_str(16));
        ASSERT_EQ(hexOf(second), (defined ? theirs : b).get_str(16));
    }
}

void comparePowers(const G& base, const G& exponent, const G& modulus) {
    SCOPED_TRACE(base.get_str(16) + "^" + exponent.get_str(16) + " mod " + modulus.get_str(16));
    N ours = bigNumOf(modulus);
    const bool defined = modulus > 1 && mpz_odd_p(modulus.get_mpz_t()) && exponent >= 0;
    ASSERT_EQ(ours.ModExp(bigNumOf(base), bigNumOf(exponent), ours), defined);
    G theirs = modulus;
    if (defined) {
        mpz_powm(theirs.get_mpz_t(), base.get_mpz_t(), exponent.get_mpz_t(), modulus.get_mpz_t());
    }
    ASSERT_EQ(hexOf(ours), theirs.get_str(16));
}

// 0, 1, and what carries, borrows and estimates of quotients go wrong with: limbs of all ones, of
// nothing but their highest bit, and their neighbours.
TEST(BigNum, ComputesCornersAsGmpDoes) {
    std::vector<G> numbers = {0, 1, 2, 3};
    for (const unsigned long bits : {32UL, 63UL, 64UL, 127UL, 128UL, 191UL, 192UL, 512UL, 1024UL}) {
        for (const int more : {-1, 0, 1}) {
            numbers.push_back((G(1) << bits) + more);
        }
        numbers.push_back((G(1) << (bits + 64)) - (G(1) << 64));
    }
    for (std::size_t i = 1, positive = numbers.size(); i < positive; i += 2) {
        numbers.push_back(-numbers[i]);
    }
    std::size_t next = 0;
    for (const G& a : numbers) {
        for (const G& b : numbers) {
            ASSERT_NO_FATAL_FAILURE(compareAll(a, b));
            ASSERT_NO_FATAL_FAILURE(comparePowers(a, numbers[next++ % numbers.size()], b));
        }
        next += 7;
    }
}

// Any bits, or long runs of equal bits, up to 8,200 of them now and then.
G randomNumber(gmp_randstate_t state) {
    G number;
    const unsigned long bits = gmp_urandomm_ui(state, gmp_urandomm_ui(state, 16) == 0 ? 8200 : 700);
    (gmp_urandomb_ui(state, 1) == 0 ? mpz_urandomb : mpz_rrandomb)(number.get_mpz_t(), state, bits);
    return gmp_urandomm_ui(state, 4) == 0 ? G(-number) : number;
}

TEST(BigNum, ComputesRandomNumbersAsGmpDoes) {
    gmp_randstate_t state;
    gmp_randinit_default(state);
    for (int i = 0; i < 4000 && !HasFatalFailure(); i++) {
        const G a = randomNumber(state);
        const G b = randomNumber(state);
        compareAll(a, b);
        if (i % 13 == 0) {
            comparePowers(a, randomNumber(state) % (G(1) << 600), b | 1);
        }
    }
    gmp_randclear(state);
}

TEST(BigNum, RefusesWhatDoesNotFit) {
    const std::string largest(N::MaxBits / 4, 'f');
    N a;
    EXPECT_TRUE(a.SetHex(largest.c_str()) && hexOf(a) == largest);
    EXPECT_TRUE(a.SetHex("-000") && hexOf(a) == "0");
    EXPECT_TRUE(a.SetHex("-00aBcDeF") && hexOf(a) == "-abcdef");
    for (const std::string& text : {std::string("-"), std::string("1g"), "1" + largest}) {
        EXPECT_FALSE(a.SetHex(text.c_str())) << text;
    }
    const Bytes tooMany(N::MaxBits / 8 + 1, 1);
    unsigned char bytes[2];
    char text[7];
    EXPECT_FALSE(a.SetHex(nullptr) || a.SetBytes(nullptr, 1) || a.GetBytes(nullptr, 3) ||
                 a.SetBytes(tooMany.data(), tooMany.size()) || a.GetBytes(bytes, sizeof bytes) ||
                 a.GetHex(text, sizeof text) || N::Divide(&a, &a, a, a));
    N& self = a;
    a = std::move(self);
    EXPECT_EQ(hexOf(a), "-abcdef");
    ASSERT_TRUE(a.ShiftLeft(bigNumOf(1), N::MaxBits - 1));
    EXPECT_FALSE(a.Add(a, a) || a.Multiply(a, a) || a.ShiftLeft(a, static_cast<std::size_t>(-1)));
    EXPECT_EQ(a.BitLength(), N::MaxBits);
}

} // namespace
