// What leaves a private operation, what it calculates with, and what it does without what it needs.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

Limb* qorcrypt::allocateLimbs(std::size_t count) {
    return isNow(allocationsUntilFailure) ? nullptr
                                          : static_cast<Limb*>(std::calloc(count, limbBytes));
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
    std::function<Result(Bytes& out)> run;
};

// Each begins with a key of its own, so that all memory is taken anew.
QorRsaKey copied() {
    static const QorRsaKey made = [] {
        QorRsaKey key;
        EXPECT_EQ(Result::Ok, key.SetPrivate(numbers.view()));
        return key;
    }();
    QorRsaKey key;
    EXPECT_EQ(Result::Ok, key.CopyFrom(made));
    return key;
}

Operation onKey(const char* name,
                const std::function<Result(const QorRsaKey& key, unsigned char* out)>& run) {
    return {name, [run](Bytes& out) {
                const int failing = std::exchange(allocationsUntilFailure, 0);
                const QorRsaKey key = copied();
                allocationsUntilFailure = failing;
                return run(key, out.data());
            }};
}

Result okIf(bool succeeded) {
    return succeeded ? Result::Ok : Result::NoMemory;
}

TEST(RsaPrivate, saysThatRandomBytesAreMissing) {
    const Operation operations[] = {
        {"set", [](Bytes&) { return QorRsaKey().SetPrivate(numbers.view()); }},
        onKey("raw", [](auto& key, auto* out) { return key.PrivateRaw(in.data(), k, out, k); }),
        onKey("encrypt",
              [](auto& key, auto* out) { return key.EncryptType2(in.data(), 9, out, k); }),
        onKey("decrypt or random",
              [](auto& key, auto* out) { return key.DecryptType2OrRandom(in.data(), k, out, 9); }),
    };
    static_cast<void>(copied());
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        // The generator of a new thread has no seed yet.
        std::thread([&operation] {
            Bytes out = untouched;
            randomCalls.opens = false;
            EXPECT_EQ(Result::NoRandom, operation.run(out));
            EXPECT_EQ(untouched, out);
            randomCalls = {};
            EXPECT_EQ(Result::Ok, operation.run(out));
        }).join();
    }
}

// Every allocation fails once.
TEST(RsaPrivate, saysThatMemoryIsShort) {
    const char pem[] = "-----BEGIN PUBLIC KEY-----\n"
                       "MFwwDQYJKoZIhvcNAQEBBQADSwAwSAJBAJmRji3DBHN4mMaCaa5T5RpbDEEda2K0\n"
                       "ZZSd+8bbxWjLpxNcA6JLIXXq8SmNlhL6bC2x9x/vTVzWDSA0K7rMleECAwEAAQ==\n"
                       "-----END PUBLIC KEY-----\n";
    Bytes signature(k);
    Bytes encrypted(k);
    ASSERT_EQ(Result::Ok, copied().SignType1(in.data(), 9, signature.data(), k));
    ASSERT_EQ(Result::Ok, copied().EncryptType2(in.data(), 9, encrypted.data(), k));
    std::size_t size = 0;
    QorBigNum a;
    QorBigNum b;
    ASSERT_TRUE(a.SetHex("123456789abcdef0123456789abcdef01234567") && b.SetHex("1234567") &&
                b.ShiftLeft(b, 64) && b.Add(b, a));
    const Operation operations[] = {
        {"set public",
         [](Bytes&) { return QorRsaKey().SetPublic(numbers.view().n, numbers.view().e); }},
        {"set private", [](Bytes&) { return QorRsaKey().SetPrivate(numbers.view()); }},
        {"PEM", [&pem](Bytes&) { return QorRsaKey().LoadPem(pem, sizeof pem - 1); }},
        onKey("copy", [](auto& key, auto*) { return QorRsaKey().CopyFrom(key); }),
        onKey("public", [](auto& key, auto* out) { return key.PublicRaw(in.data(), k, out, k); }),
        onKey("private", [](auto& key, auto* out) { return key.PrivateRaw(in.data(), k, out, k); }),
        onKey("sign", [](auto& key, auto* out) { return key.SignType1(in.data(), 9, out, k); }),
        onKey("verify",
              [&](auto& key, auto*) { return key.VerifyType1(in.data(), 9, signature.data(), k); }),
        onKey("recover",
              [&](auto& key, auto* out) {
                  return key.RecoverType1(signature.data(), k, out, k, &size);
              }),
        onKey("encrypt",
              [](auto& key, auto* out) { return key.EncryptType2(in.data(), 9, out, k); }),
        onKey("decrypt",
              [&](auto& key, auto* out) {
                  return key.DecryptType2(encrypted.data(), k, out, k, &size);
              }),
        onKey("decrypt or random",
              [&](auto& key, auto* out) {
                  return key.DecryptType2OrRandom(encrypted.data(), k, out, 9);
              }),
        {"divide", [&](Bytes&) { return okIf(QorBigNum::Divide(&b, &a, b, a)); }},
        {"add", [&](Bytes&) { return okIf(a.Add(a, b)); }},
        {"multiply", [&](Bytes&) { return okIf(a.Multiply(a, b)); }},
        {"shift", [&](Bytes&) { return okIf(a.ShiftLeft(a, 9)); }},
        {"set", [&](Bytes&) { return okIf(b.SetHex("10001")); }},
        {"inverse", [&](Bytes&) { return okIf(a.ModInverse(b, a)); }},
        {"greatest divisor", [&](Bytes&) { return okIf(a.Gcd(b, a)); }},
        {"power", [&](Bytes&) { return okIf(a.ModExp(a, b, b)); }},
    };
    for (const Operation& operation : operations) {
        const std::string numbersBefore = hexOf(a) + hexOf(b);
        Result result = Result::NoMemory;
        for (int failing = 1; result == Result::NoMemory && failing < 1000; failing++) {
            SCOPED_TRACE(operation.name + (" without allocation " + std::to_string(failing)));
            Bytes out = untouched;
            size = 0;
            allocationsUntilFailure = failing;
            result = operation.run(out);
            const bool failed = allocationsUntilFailure == 0;
            allocationsUntilFailure = 0;
            ASSERT_EQ(failed ? Result::NoMemory : Result::Ok, result);
            ASSERT_TRUE(failing > 1 || failed);
            ASSERT_TRUE(!failed ||
                        (out == untouched && size == 0 && hexOf(a) + hexOf(b) == numbersBefore));
        }
    }
}

} // namespace
