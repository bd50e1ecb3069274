// What leaves a private operation, and what it calculates with.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "gmp_number.h"
#include "qorcrypt/src/rsa_core.h"

using namespace qorcrypt;

namespace {
std::vector<std::vector<Limb>> bases; // of the powers so far
int powersUntilFault = 0;             // 1: the next one; 0: none
std::function<void()> duringNextPower;
bool allWiped = true; // before it was freed
} // namespace

void qorcrypt::privatePower(const Montgomery& field, Limb* out, const Limb* base,
                            const Limb* exponent, Limb* work) {
    bases.emplace_back(base, base + field.count());
    if (const auto call = std::exchange(duringNextPower, nullptr)) {
        call();
    }
    field.power(out, base, exponent, field.count(), work);
    out[0] ^= Limb{powersUntilFault > 0 && --powersUntilFault == 0};
}

// In front of the limbs stands their number.
Limb* qorcrypt::allocateLimbs(std::size_t count) {
    auto* const limbs = static_cast<Limb*>(std::calloc(count + 1, limbBytes));
    *limbs = count;
    return limbs + 1;
}

void qorcrypt::freeLimbs(Limb* limbs) {
    if (limbs != nullptr) {
        const bool wiped = std::all_of(limbs, limbs + limbs[-1], [](Limb l) { return l == 0; });
        allWiped = allWiped && wiped;
        std::free(limbs - 1);
    }
}

namespace {

using Result = QorRsaResult;

constexpr std::size_t k = 141; // the size of the modulus

class RsaPrivate : public testing::Test {
protected:
    RsaPrivate() {
        EXPECT_EQ(numbers.setInto(key), Result::Ok);
        EXPECT_EQ(copy.CopyFrom(key), Result::Ok);
    }
    Result run(const QorRsaKey& which) {
        return which.PrivateRaw(in.data(), k, out.data(), k);
    }

    const RsaNumbers numbers{607, 521};
    QorRsaKey key;
    QorRsaKey copy;
    const Bytes in = bytesOf(2, k);
    Bytes out = in;
};

// An operation takes two powers.
TEST_F(RsaPrivate, LetsNoFaultyResultOut) {
    for (int fault = 1; fault <= 2; fault++) {
        powersUntilFault = fault;
        EXPECT_EQ(run(key), Result::Fault);
        EXPECT_EQ(out, in);
        powersUntilFault = fault;
        EXPECT_EQ(numbers.setInto(copy), Result::BadKey);
    }
}

// As many operations as more than one random number serves.
TEST_F(RsaPrivate, NeverCalculatesTwiceWithOneNumber) {
    constexpr int operations = 140;
    bases.clear();
    for (int i = 0; i < operations; i++) {
        ASSERT_EQ(run(i % 32 == 0 ? copy : key), Result::Ok);
    }
    // Two random numbers took powers besides, a second one of the key and one of the copy, and no
    // more. The message itself, 2, is none of the bases: they have more than one limb that isn't 0.
    const std::set<std::vector<Limb>> different(bases.begin(), bases.end());
    EXPECT_EQ(different.size(), bases.size());
    EXPECT_EQ(different.size(), static_cast<std::size_t>((operations + 2) * 2));
    EXPECT_TRUE(allWiped);
    for (const std::vector<Limb>& base : different) {
        EXPECT_NE(base[1], 0U);
    }
}

// A child process that is forked while another thread draws a random number, whose lock nobody
// gives back there.
TEST_F(RsaPrivate, GoesOnInAChildProcess) {
    pid_t child = -1;
    const auto forkNow = [&] {
        child = fork();
        if (child == 0) {
            alarm(30); // ends one that hangs
            bases.clear();
            const bool bothRun = run(copy) == Result::Ok && run(key) == Result::Ok;
            // Either draws a number of the child's own first.
            _exit(bothRun && bases.size() == 8 ? 0 : 1);
        }
    };
    duringNextPower = [&] { std::thread(forkNow).join(); };
    EXPECT_EQ(run(copy), Result::Ok);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

} // namespace
