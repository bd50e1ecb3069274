// What leaves a private operation, what it calculates with, and what it does without what it needs.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qorcrypt/src/rsa_core.h"
#include "replaced_randomcalls.h"
#include "rsa_numbers.h"

using namespace qorcrypt;

namespace {

using Bytes = RsaNumbers::Bytes;
using Result = QorRsaResult;

std::vector<std::vector<Limb>> bases; // of the powers so far
int powersUntilFault = 0;             // 1: the next one; 0: none
int allocationsUntilFailure = 0;      // likewise
std::atomic<bool> allWiped{true};     // before it was freed
std::function<void()> duringNextPower;

bool isNow(int& countdown) {
    return countdown > 0 && --countdown == 0;
}

} // namespace

void qorcrypt::privatePower(const Montgomery& field, Limb* out, const Limb* base,
                            const Limb* exponent, Limb* work) {
    bases.emplace_back(base, base + field.count());
    if (const auto call = std::exchange(duringNextPower, nullptr)) {
        call();
    }
    field.power(out, base, exponent, field.count(), work);
    out[0] ^= Limb{isNow(powersUntilFault)};
}

// In front of the limbs stands their number.
Limb* qorcrypt::allocateLimbs(std::size_t count) {
    if (isNow(allocationsUntilFailure)) {
        return nullptr;
    }
    auto* const limbs = static_cast<Limb*>(std::calloc(count + 1, limbBytes));
    *limbs = count;
    return limbs + 1;
}

void qorcrypt::freeLimbs(Limb* limbs) {
    if (limbs != nullptr) {
        allWiped =
            allWiped && std::count(limbs, limbs + limbs[-1], Limb{0}) == std::ptrdiff_t(limbs[-1]);
        std::free(limbs - 1);
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
constexpr std::size_t k = 141; // the size of their modulus
const RsaNumbers& numbers = keys[0].numbers;
const Bytes untouched(k, 0xee);
const Bytes in(k, 0x12);

TEST(RsaPrivate, letsNoFaultyResultOut) {
    for (const auto& row : keys) {
        QorRsaKey key;
        ASSERT_EQ(Result::Ok, key.SetPrivate(row.numbers.view()));
        for (int fault = 1; fault <= row.powers; fault++) {
            SCOPED_TRACE(std::string(row.name) + ", power " + std::to_string(fault));
            Bytes out = untouched;
            powersUntilFault = fault;
            EXPECT_EQ(Result::Fault, key.PrivateRaw(in.data(), k, out.data(), k));
            EXPECT_EQ(untouched, out);
            EXPECT_EQ(Result::Ok, key.PrivateRaw(in.data(), k, out.data(), k));
            powersUntilFault = fault;
            EXPECT_EQ(Result::BadKey, key.SetPrivate(row.numbers.view()));
        }
    }
}

// As many operations as more than one random number serves.
TEST(RsaPrivate, neverCalculatesTwiceWithOneNumber) {
    constexpr int operations = 140;
    for (const auto& row : keys) {
        SCOPED_TRACE(row.name);
        QorRsaKey key;
        QorRsaKey copy;
        ASSERT_EQ(Result::Ok, key.SetPrivate(row.numbers.view()));
        ASSERT_EQ(Result::Ok, copy.CopyFrom(key));
        Bytes two(k, 0);
        two[k - 1] = 2;
        std::set<Bytes> results;
        Bytes out(k);
        bases.clear();
        for (int i = 0; i < operations; i++) {
            const QorRsaKey& either = i % 32 == 0 ? copy : key;
            ASSERT_EQ(Result::Ok, either.PrivateRaw(two.data(), k, out.data(), k));
            results.insert(out);
        }
        EXPECT_EQ(1U, results.size());
        // Two random numbers took powers besides, a second one of the key and one of the copy, and
        // no more. The message itself, 2, is none of the bases: they have more than one limb that
        // isn't 0.
        const std::set<std::vector<Limb>> different(bases.begin(), bases.end());
        EXPECT_EQ(bases.size(), different.size());
        EXPECT_EQ(static_cast<std::size_t>((operations + 2) * row.powers), different.size());
        for (const std::vector<Limb>& base : different) {
            EXPECT_GT(base.size() - 1,
                      static_cast<std::size_t>(std::count(base.begin(), base.end(), Limb{0})));
        }
    }
}

// A child process that is forked while another thread draws a random number, whose lock nobody
// gives back there.
TEST(RsaPrivate, goesOnInAChildProcess) {
    QorRsaKey parents;
    QorRsaKey key;
    ASSERT_EQ(Result::Ok, parents.SetPrivate(numbers.view()));
    ASSERT_EQ(Result::Ok, key.CopyFrom(parents));
    pid_t child = -1;
    const auto forkNow = [&] {
        std::thread([&] {
            child = fork();
            if (child == 0) {
                alarm(30); // ends one that hangs
                bases.clear();
                Bytes out(k);
                const bool locked = key.PrivateRaw(in.data(), k, out.data(), k) == Result::Ok;
                const std::size_t first = bases.size();
                const bool free = parents.PrivateRaw(in.data(), k, out.data(), k) == Result::Ok;
                // Either draws a number of the child's own first.
                _exit(locked && free && first == 4 && bases.size() == 8 ? 0 : 1);
            }
        }).join();
    };
    duringNextPower = forkNow;
    Bytes out(k);
    EXPECT_EQ(Result::Ok, key.PrivateRaw(in.data(), k, out.data(), k));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

struct Operation {
    const char* name;
    std::function<Result(unsigned char* out)> run;
};

TEST(RsaPrivate, saysThatRandomBytesAreMissing) {
    QorRsaKey key;
    ASSERT_EQ(Result::Ok, key.SetPrivate(numbers.view()));
    QorRsaKey fresh; // which has no random number of its own
    const unsigned char* const i = in.data();
    const Operation operations[] = {
        {"set", [&](auto*) { return QorRsaKey().SetPrivate(numbers.view()); }},
        {"raw", [&](auto* o) { return fresh.PrivateRaw(i, k, o, k); }},
        {"encrypt", [&](auto* o) { return key.EncryptType2(i, 9, o, k); }},
        {"decrypt or random", [&](auto* o) { return key.DecryptType2OrRandom(i, k, o, 9); }},
    };
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        ASSERT_EQ(Result::Ok, fresh.CopyFrom(key));
        // The generator of a new thread has no seed yet.
        std::thread([&operation] {
            Bytes out = untouched;
            randomCalls.opens = false;
            EXPECT_EQ(Result::NoRandom, operation.run(out.data()));
            EXPECT_EQ(untouched, out);
            randomCalls = {};
            EXPECT_EQ(Result::Ok, operation.run(out.data()));
        }).join();
    }
}

// Every allocation fails once, and what was allocated is wiped.
TEST(RsaPrivate, saysThatMemoryIsShortAndWipesWhatThereWas) {
    const std::string pem = "-----BEGIN RSA PUBLIC KEY-----\nMAYCAQUCAQM=\n"
                            "-----END RSA PUBLIC KEY-----\n"; // of too few bits
    QorRsaKey key;
    Bytes sealed(k);
    const unsigned char* const i = in.data();
    ASSERT_EQ(Result::Ok, key.SetPrivate(numbers.view()));
    ASSERT_EQ(Result::Ok, key.SignType1(i, 9, sealed.data(), k));
    std::size_t size = 0;
    QorBigNum a;
    QorBigNum b;
    const auto goodIfBadKey = [](Result r) { return r == Result::BadKey ? Result::Ok : r; };
    const auto ok = [](bool done) { return done ? Result::Ok : Result::NoMemory; };
    const Operation operations[] = {
        {"set public",
         [&](auto*) { return QorRsaKey().SetPublic(numbers.view().n, numbers.view().e); }},
        {"set private", [&](auto*) { return QorRsaKey().SetPrivate(numbers.view()); }},
        {"PEM", [&](auto*) { return goodIfBadKey(QorRsaKey().LoadPem(&pem[0], pem.size())); }},
        {"copy", [&](auto*) { return QorRsaKey().CopyFrom(key); }},
        {"public", [&](auto* o) { return key.PublicRaw(i, k, o, k); }},
        {"private", [&](auto* o) { return key.PrivateRaw(i, k, o, k); }},
        {"sign", [&](auto* o) { return key.SignType1(i, 9, o, k); }},
        {"verify", [&](auto*) { return key.VerifyType1(i, 9, sealed.data(), k); }},
        {"recover", [&](auto* o) { return key.RecoverType1(sealed.data(), k, o, k, &size); }},
        {"encrypt", [&](auto* o) { return key.EncryptType2(i, 9, o, k); }},
        {"for decryption", [&](auto*) { return key.EncryptType2(i, 9, sealed.data(), k); }},
        {"decrypt", [&](auto* o) { return key.DecryptType2(sealed.data(), k, o, k, &size); }},
        {"or random", [&](auto* o) { return key.DecryptType2OrRandom(sealed.data(), k, o, 9); }},
        {"read", [&](auto*) { return ok(a.SetHex("100000000000000010000000000000001")); }},
        {"read bytes", [&](auto*) { return ok(b.SetBytes(i, 30)); }},
        {"divide", [&](auto*) { return ok(QorBigNum::Divide(&b, &a, b, a)); }},
        {"add", [&](auto*) { return ok(a.Add(a, b)); }},
        {"multiply", [&](auto*) { return ok(b.Multiply(a, b)); }},
        {"shift", [&](auto*) { return ok(b.ShiftLeft(b, 9)); }},
        {"greatest divisor", [&](auto*) { return ok(b.Gcd(a, b)); }},
        {"set", [&](auto*) { return ok(a.SetWord(65537)); }},
        {"inverse", [&](auto*) { return ok(b.ModInverse(b, a)); }},
        {"power", [&](auto*) { return ok(b.ModExp(a, b, a)); }},
    };
    for (const Operation& operation : operations) {
        const std::string before = hexOf(a) + hexOf(b);
        bool failed = true;
        for (int failing = 1; failed; failing++) {
            SCOPED_TRACE(operation.name + (" without allocation " + std::to_string(failing)));
            Bytes out = untouched;
            size = 0;
            allocationsUntilFailure = failing;
            const Result result = operation.run(out.data());
            failed = std::exchange(allocationsUntilFailure, 0) == 0;
            ASSERT_EQ(failed ? Result::NoMemory : Result::Ok, result);
            ASSERT_TRUE(failing > 1 || failed);
            ASSERT_TRUE(!failed || (out == untouched && size == 0));
            ASSERT_TRUE(!failed || hexOf(a) + hexOf(b) == before);
        }
    }
    EXPECT_TRUE(allWiped);
}

} // namespace
