// Looks for secrets in the time that operations take, in the manner of dudect (O. Reparaz,
// J. Balasch, I. Verbauwhede, "Dude, is my code constant time?", DATE 2017): an operation runs on
// one fixed input and on random ones, in random order, and Welch's t-test says whether the two
// distributions of its time differ. |t| above 4.5 calls for a closer look, above 10 it is a leak.
//
//     bench_dudect [--seconds=20] [--benchmark_filter=PART OF A NAME]
//
// The time limit is that of each operation. Other arguments are those of the other programs here.
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "qorcrypt/src/rsa_padding.h"
#include "qorcrypto_random.h"
#include "qorcrypto_rsa.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t blockSize = 256;
constexpr std::size_t batchSize = 1000;

void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "bench_dudect: %s failed\n", what);
        std::exit(1);
    }
}

void fillRandomly(unsigned char* out, std::size_t size) {
    require(QorRandomBytes(out, size) == 1, "QorRandomBytes");
}

// Mean and variance of one class, taken up value by value (B. P. Welford).
struct Sample {
    double count = 0;
    double mean = 0;
    double squares = 0;

    void add(double value) {
        ++count;
        const double distance = value - mean;
        mean += distance / count;
        squares += distance * (value - mean);
    }
    double errorOfMean() const {
        return squares / (count - 1) / count;
    }
};

// One t-test over the times below a limit: long ones are the system's doing and hide the rest.
struct Test {
    double limit = 0;
    std::array<Sample, 2> classes;

    void add(std::size_t inputClass, double time) {
        if (time <= limit) {
            classes[inputClass].add(time);
        }
    }
    double t() const {
        constexpr double enough = 500;
        if (classes[0].count < enough || classes[1].count < enough) {
            return 0;
        }
        const double error = classes[0].errorOfMean() + classes[1].errorOfMean();
        return error > 0 ? (classes[0].mean - classes[1].mean) / std::sqrt(error) : 0;
    }
};

// The inputs of a batch lie prepared side by side, so that both classes come from memory alike.
struct Batch {
    Bytes inputs = Bytes(batchSize * blockSize);
    std::array<unsigned char, batchSize> classes{};
    std::array<double, batchSize> times{};
};

struct Operation {
    const char* name;
    Bytes fixed;
    std::function<void(unsigned char*)> makeRandom;
    std::function<void(unsigned char*)> run; // over a block that it may change
};

void runBatch(const Operation& operation, Batch& batch) {
    fillRandomly(batch.classes.data(), batch.classes.size());
    for (std::size_t i = 0; i < batchSize; ++i) {
        unsigned char* const input = batch.inputs.data() + i * blockSize;
        batch.classes[i] &= 1;
        // Made for both, so that both leave the same traces in the caches.
        operation.makeRandom(input);
        if (batch.classes[i] == 0) {
            std::memcpy(input, operation.fixed.data(), blockSize);
        }
    }
    for (std::size_t i = 0; i < batchSize; ++i) {
        const auto begin = Clock::now();
        operation.run(batch.inputs.data() + i * blockSize);
        batch.times[i] = std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
    }
}

// Without a limit, and with limits that drop ever more of the long times, as the first batch has
// them.
std::vector<Test> makeTests(const Batch& batch) {
    std::vector<Test> tests(1);
    tests[0].limit = HUGE_VAL;
    std::vector<double> times(batch.times.begin(), batch.times.end());
    std::sort(times.begin(), times.end());
    for (int i = 1; i <= 20; ++i) {
        const double share = 1 - std::pow(0.5, 0.5 * i);
        tests.push_back({times[static_cast<std::size_t>(share * (batchSize - 1))], {}});
    }
    return tests;
}

void measure(const Operation& operation, std::chrono::seconds limit) {
    Batch batch;
    runBatch(operation, batch); // warms up, and tells how long the times are
    std::vector<Test> tests = makeTests(batch);
    const auto end = Clock::now() + limit;
    while (Clock::now() < end) {
        runBatch(operation, batch);
        for (std::size_t i = 0; i < batchSize; ++i) {
            for (Test& test : tests) {
                test.add(batch.classes[i], batch.times[i]);
            }
        }
    }
    double largest = 0;
    for (const Test& test : tests) {
        largest = std::max(largest, std::fabs(test.t()));
    }
    const auto& all = tests[0].classes;
    std::printf("%-32s max |t| %7.2f   %9.0f runs, mean %9.0f ns\n", operation.name, largest,
                all[0].count + all[1].count, all[0].mean);
    std::fflush(stdout);
}

Bytes goodBlock() {
    Bytes block(blockSize);
    Bytes message(48, 'm');
    require(qorcrypt::padType2(message.data(), message.size(), block.data(), block.size()),
            "padType2");
    return block;
}

// Random blocks that begin as they should, so that the zero byte stands anywhere or nowhere.
void makeRandomBlock(unsigned char* block) {
    fillRandomly(block, blockSize);
    block[0] = 0;
    block[1] = 2;
}

void makeNumberBelowModulus(unsigned char* number) {
    fillRandomly(number, blockSize);
    number[0] = 0; // below any modulus of the size
}

void loadKey(QorRsaKey& key) {
    EVP_PKEY* const made = EVP_RSA_gen(8 * blockSize);
    unsigned char* der = nullptr;
    const int size = i2d_PrivateKey(made, &der);
    require(size > 0 && key.LoadDer(der, static_cast<std::size_t>(size)) == QorRsaResult::Ok,
            "LoadDer");
    OPENSSL_free(der);
    EVP_PKEY_free(made);
}

// What a leak looks like here: a comparison that ends at the first difference.
void compareWithEarlyEnd(const Bytes& expected, const unsigned char* block) {
    const volatile unsigned char* const bytes = block;
    std::size_t i = 0;
    while (i < blockSize && bytes[i] == expected[i]) {
        ++i;
    }
}

std::vector<Operation> makeOperations(const QorRsaKey& key) {
    const Bytes block = goodBlock();
    static Bytes substitute(48, 's');
    static Bytes out(blockSize);
    Bytes number(blockSize);
    makeNumberBelowModulus(number.data());
    return {
        {"Control: early end", block, makeRandomBlock,
         [block](unsigned char* input) { compareWithEarlyEnd(block, input); }},
        {"Type 2 removal", block, makeRandomBlock,
         [](unsigned char* input) { qorcrypt::removeType2(input, blockSize); }},
        {"Type 2 removal or substitute", block, makeRandomBlock,
         [](unsigned char* input) {
             qorcrypt::removeType2OrSubstitute(input, blockSize, substitute.data(), out.data(),
                                               substitute.size());
         }},
        {"RSA 2048 private operation", number, makeNumberBelowModulus,
         [&key](unsigned char* input) {
             require(key.PrivateRaw(input, blockSize, out.data(), blockSize) == QorRsaResult::Ok,
                     "PrivateRaw");
         }},
    };
}

// What stands behind an option among the arguments, or otherwise its default.
std::string option(int count, char** arguments, const std::string& name, std::string value) {
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        if (argument.rfind(name, 0) == 0) {
            value = argument.substr(name.size());
        }
    }
    return value;
}

} // namespace

int main(int count, char** arguments) {
    const std::string filter = option(count, arguments, "--benchmark_filter=", "");
    const int seconds = std::atoi(option(count, arguments, "--seconds=", "20").c_str());
    QorRsaKey key;
    loadKey(key);
    for (const Operation& operation : makeOperations(key)) {
        if (std::string(operation.name).find(filter) != std::string::npos) {
            measure(operation, std::chrono::seconds(seconds));
        }
    }
    return 0;
}
