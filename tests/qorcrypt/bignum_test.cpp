#include "qorcrypto_bignum.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "gmp_number.h"

namespace {

// The numbers of each side: N is ours.
using N = QorBigNum;
using G = GmpNumber;

unsigned long shiftOf(const G& b) {
    return mpz_get_ui(b) % 300;
}

bool compareInto(N& out, const N& a, const N& b) {
    const int order = a.Compare(b);
    const bool set = out.SetWord(order != 0 ? 1 : 0);
    if (order < 0) {
        out.Negate();
    }
    return set;
}

int signOf(int order) {
    return (order > 0) - (order < 0);
}

// False where there is no result.
struct Operation {
    const char* name;
    bool (*ours)(N& out, const N& a, const N& b);
    bool (*theirs)(G& out, const G& a, const G& b);
};

#define OPERATION(name, ours, theirs)                                                              \
    {                                                                                              \
        name, [](N& out, const N& a, [[maybe_unused]] const N& b) -> bool { return ours; },        \
            [](G& out, const G& a, [[maybe_unused]] const G& b) -> bool { return theirs; }         \
    }

const Operation operations[] = {
    OPERATION("add", out.Add(a, b), (mpz_add(out, a, b), true)),
    OPERATION("subtract", out.Subtract(a, b), (mpz_sub(out, a, b), true)),
    OPERATION("multiply", out.Multiply(a, b), (mpz_mul(out, a, b), true)),
    OPERATION("square", out.Multiply(a, a), (mpz_mul(out, a, a), true)),
    OPERATION("quotient", N::Divide(&out, nullptr, a, b),
              b.sign() != 0 && (mpz_tdiv_q(out, a, b), true)),
    OPERATION("remainder", N::Divide(nullptr, &out, a, b),
              b.sign() != 0 && (mpz_tdiv_r(out, a, b), true)),
    OPERATION("modulo", out.Mod(a, b), b.sign() > 0 && (mpz_mod(out, a, b), true)),
    OPERATION("gcd", out.Gcd(a, b), (mpz_gcd(out, a, b), true)),
    OPERATION("inverse", out.ModInverse(a, b), b.isAboveOne() && mpz_invert(out, a, b) != 0),
    OPERATION("shift left", out.ShiftLeft(a, shiftOf(gmpOf(b))),
              (mpz_mul_2exp(out, a, shiftOf(b)), true)),
    OPERATION("shift right", out.ShiftRight(a, shiftOf(gmpOf(b))),
              (mpz_tdiv_q_2exp(out, a, shiftOf(b)), true)),
    OPERATION("compare", compareInto(out, a, b), (mpz_set_si(out, signOf(mpz_cmp(a, b))), true)),
    OPERATION("negate", out.CopyFrom(a) && (out.Negate(), true), (mpz_neg(out, a), true)),
};

// Every operation on two numbers: the result, or the lack of one, which leaves the output as it
// was; and the same where the output is the first or the second operand.
void compareAll(const G& a, const G& b) {
    const N ourA = bigNumOf(a);
    const N ourB = bigNumOf(b);
    for (const Operation& operation : operations) {
        SCOPED_TRACE(std::string(operation.name) + " of " + a.hex() + " and " + b.hex());
        G theirs;
        const bool defined = operation.theirs(theirs, a, b);
        N separate = bigNumOf(7);
        N first = bigNumOf(a);
        N second = bigNumOf(b);
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
std::vector<G> corners() {
    std::vector<G> numbers = {0, 1, 2, 3};
    for (const unsigned long bits : {32UL, 63UL, 64UL, 127UL, 128UL, 191UL, 192UL, 512UL, 1024UL}) {
        for (const long more : {-1, 0, 1}) {
            numbers.push_back(G::powerOfTwo(bits, more));
        }
    }
    for (const unsigned long bits : {128UL, 192UL, 320UL}) {
        numbers.push_back(G::powerOfTwo(bits, 0));
        mpz_sub(numbers.back(), numbers.back(), G::powerOfTwo(64, 0));
    }
    for (std::size_t i = 1, positive = numbers.size(); i < positive; i += 2) {
        numbers.push_back(numbers[i]);
        mpz_neg(numbers.back(), numbers.back());
    }
    return numbers;
}

struct RandomNumbers {
    gmp_randstate_t state;

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
    G next() {
        G number;
        const unsigned long bits = below(below(16) == 0 ? 8200 : 700);
        (below(2) == 0 ? mpz_urandomb : mpz_rrandomb)(number, state, bits);
        if (below(4) == 0) {
            mpz_neg(number, number);
        }
        return number;
    }
};

TEST(BigNum, computesWhatGmpDoes) {
    const std::vector<G> numbers = corners();
    for (const G& a : numbers) {
        for (const G& b : numbers) {
            ASSERT_NO_FATAL_FAILURE(compareAll(a, b));
        }
    }
    RandomNumbers random;
    for (int i = 0; i < 4000; i++) {
        ASSERT_NO_FATAL_FAILURE(compareAll(random.next(), random.next()));
    }
}

void comparePowers(const G& base, const G& exponent, const G& modulus) {
    SCOPED_TRACE(base.hex() + " ^ " + exponent.hex() + " mod " + modulus.hex());
    N ours = bigNumOf(modulus);
    const bool defined = modulus.isAboveOne() && modulus.isOdd() && exponent.sign() >= 0;
    ASSERT_EQ(defined, ours.ModExp(bigNumOf(base), bigNumOf(exponent), ours));
    G theirs(modulus);
    if (defined) {
        mpz_powm(theirs, base, exponent, modulus);
    }
    ASSERT_EQ(theirs.hex(), hexOf(ours));
}

TEST(BigNum, raisesToPowersAsGmpDoes) {
    const std::vector<G> numbers = corners();
    for (std::size_t i = 0; i < numbers.size(); i++) {
        for (const G& modulus : numbers) {
            const G& exponent = numbers[(i * 7 + 3) % numbers.size()];
            ASSERT_NO_FATAL_FAILURE(comparePowers(numbers[i], exponent, modulus));
        }
    }
    RandomNumbers random;
    for (int i = 0; i < 300; i++) {
        G modulus = random.next();
        mpz_setbit(modulus, 0);
        G exponent = random.next();
        mpz_tdiv_r_2exp(exponent, exponent, 600);
        ASSERT_NO_FATAL_FAILURE(comparePowers(random.next(), exponent, modulus));
    }
}

TEST(BigNum, readsAndWritesText) {
    const std::string largest(N::MaxBits / 4, 'f');
    const struct {
        const char* name;
        std::string text;
        std::string expected; // none: refused; the number before it stays
    } rows[] = {
        {"both cases", "aBcDeF0123456789abcdef", "abcdef0123456789abcdef"},
        {"leading zeros", "0000000000000000000000001", "1"},
        {"negative zero", "-000", "0"},
        {"negative", "-0f", "-f"},
        {"empty", "", ""},
        {"sign alone", "-", ""},
        {"plus", "+1", ""},
        {"blank", "1 ", ""},
        {"beyond f", "1g", ""},
        {"largest", largest, largest},
        {"too large", "1" + largest, ""},
    };
    N number;
    for (const auto& row : rows) {
        ASSERT_TRUE(number.SetWord(5));
        EXPECT_EQ(!row.expected.empty(), number.SetHex(row.text.c_str())) << row.name;
        EXPECT_EQ(row.expected.empty() ? "5" : row.expected, hexOf(number)) << row.name;
    }
    char text[3] = "xx";
    EXPECT_FALSE(number.SetHex(nullptr));
    ASSERT_TRUE(number.SetHex("-12"));
    EXPECT_FALSE(number.GetHex(text, sizeof text));
    EXPECT_STREQ("xx", text);
}

TEST(BigNum, readsAndWritesBytes) {
    const std::vector<unsigned char> bytes = {0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    const std::vector<unsigned char> tooMany(N::MaxBits / 8 + 1, 1);
    N number;
    ASSERT_TRUE(number.SetBytes(bytes.data(), bytes.size()));
    EXPECT_FALSE(number.SetBytes(nullptr, 1));
    EXPECT_FALSE(number.SetBytes(tooMany.data(), tooMany.size()));
    EXPECT_EQ("10203040506070809", hexOf(number));
    EXPECT_EQ(65U, number.BitLength());
    EXPECT_EQ(9U, number.ByteLength());
    std::vector<unsigned char> out(bytes.size(), 0xee);
    EXPECT_FALSE(number.GetBytes(out.data(), 8) || number.GetBytes(nullptr, 9));
    EXPECT_EQ(std::vector<unsigned char>(bytes.size(), 0xee), out);
    EXPECT_TRUE(number.GetBytes(out.data(), out.size()));
    EXPECT_EQ(bytes, out);
    EXPECT_TRUE(number.SetBytes(nullptr, 0));
    EXPECT_TRUE(number.IsZero() && !number.IsOdd() && number.GetBytes(nullptr, 0));
}

TEST(BigNum, dividesMovesAndRefusesWhatIsTooLarge) {
    N a;
    N b;
    ASSERT_TRUE(a.SetHex("-123456789abcdef0123456789abcdef01") && b.SetHex("fedcba9876543210f"));
    EXPECT_FALSE(N::Divide(&a, &a, a, b));
    ASSERT_TRUE(N::Divide(&a, &b, a, b));
    EXPECT_EQ("-1249249249249237 -ec6b46b46b46b46c8", hexOf(a) + " " + hexOf(b));
    N moved(std::move(a));
    b = std::move(moved);
    N& self = b;
    b = std::move(self);
    EXPECT_EQ("-1249249249249237 0 0", hexOf(b) + " " + hexOf(a) + " " + hexOf(moved));
    EXPECT_TRUE(b.IsNegative());
    ASSERT_TRUE(a.ShiftLeft(bigNumOf(1), N::MaxBits - 1));
    EXPECT_FALSE(a.Add(a, a) || a.Multiply(a, a) || a.ShiftLeft(a, 1) ||
                 a.ShiftLeft(b, static_cast<std::size_t>(-1)));
    EXPECT_EQ(N::MaxBits, a.BitLength());
}

} // namespace
