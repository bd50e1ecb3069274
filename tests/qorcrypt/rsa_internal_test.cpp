// What leaves a private operation, and what it calculates with.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "qorcrypt/src/rsa_core.h"
#include "rsa_numbers.h"

using namespace qorcrypt;

namespace {

std::vector<std::vector<Limb>> bases; // of the powers so far
int powersUntilFault = 0;             // 1: the next one; 0: none

} // namespace

void qorcrypt::privatePower(const Montgomery& field, Limb* out, const Limb* base,
                            const Limb* exponent, Limb* work) {
    bases.emplace_back(base, base + field.count());
    field.power(out, base, exponent, field.count(), work);
    if (powersUntilFault > 0 && --powersUntilFault == 0) {
        out[0] ^= 1;
    }
}

namespace {

const struct {
    const char* name;
    RsaNumbers numbers;
    int powers; // in an operation
} keys[] = {
    {"primes", RsaNumbers::ofMersennePrimes(607, 521), 2},
    {"no primes", RsaNumbers::ofMersennePrimes(607, 521).withoutPrimes(), 1},
};

TEST(RsaPrivate, letsNoFaultyResultOut) {
    for (const auto& row : keys) {
        QorRsaKey key;
        ASSERT_EQ(QorRsaResult::Ok, key.SetPrivate(row.numbers.view()));
        const std::size_t k = key.ModulusSize();
        const RsaNumbers::Bytes in(k, 0x12);
        for (int fault = 1; fault <= row.powers; fault++) {
            SCOPED_TRACE(std::string(row.name) + ", power " + std::to_string(fault));
            RsaNumbers::Bytes out(k, 0xee);
            powersUntilFault = fault;
            EXPECT_EQ(QorRsaResult::Fault, key.PrivateRaw(in.data(), k, out.data(), k));
            EXPECT_EQ(RsaNumbers::Bytes(k, 0xee), out);
            EXPECT_EQ(QorRsaResult::Ok, key.PrivateRaw(in.data(), k, out.data(), k));
            powersUntilFault = fault;
            EXPECT_EQ(QorRsaResult::BadKey, key.SetPrivate(row.numbers.view()));
        }
    }
}

// Seventy operations are more than one random number serves.
TEST(RsaPrivate, neverCalculatesTwiceWithOneNumber) {
    for (const auto& row : keys) {
        SCOPED_TRACE(row.name);
        QorRsaKey key;
        QorRsaKey copy;
        ASSERT_EQ(QorRsaResult::Ok, key.SetPrivate(row.numbers.view()));
        ASSERT_EQ(QorRsaResult::Ok, copy.CopyFrom(key));
        const std::size_t k = key.ModulusSize();
        RsaNumbers::Bytes in(k, 0);
        in[k - 1] = 2;
        RsaNumbers::Bytes first(k);
        RsaNumbers::Bytes out(k);
        bases.clear();
        ASSERT_EQ(QorRsaResult::Ok, key.PrivateRaw(in.data(), k, first.data(), k));
        for (int i = 0; i < 69; i++) {
            const QorRsaKey& either = i % 2 == 0 ? key : copy;
            ASSERT_EQ(QorRsaResult::Ok, either.PrivateRaw(in.data(), k, out.data(), k));
            ASSERT_EQ(first, out);
        }
        // Drawing new random numbers took powers besides. The message itself, 2, is none of the
        // bases: they have more than one limb that isn't 0.
        const std::set<std::vector<Limb>> different(bases.begin(), bases.end());
        EXPECT_EQ(bases.size(), different.size());
        EXPECT_LE(static_cast<std::size_t>(70 * row.powers), different.size());
        for (const std::vector<Limb>& base : different) {
            EXPECT_GT(base.size() - 1,
                      static_cast<std::size_t>(std::count(base.begin(), base.end(), Limb{0})));
        }
    }
}

} // namespace
