// RSA without paddings and SHA-1, against mbedTLS and OpenSSL. All three have the same key; the
// private operations of all three are blinded.
#include <benchmark/benchmark.h>
#include <mbedtls/ctr_drbg.h>
#include <mbedtls/entropy.h>
#include <mbedtls/pk.h>
#include <mbedtls/sha1.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

#include "qorcrypto.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A peer that fails measures nothing.
void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// One key in the hands of all three.
struct Keys {
    explicit Keys(unsigned int bits) : block(bits / 8, 0x12) {
        openssl = EVP_RSA_gen(bits);
        require(openssl != nullptr);
        unsigned char* der = nullptr;
        const int size = i2d_PrivateKey(openssl, &der);
        require(size > 0);
        require(ours.LoadDer(der, static_cast<std::size_t>(size)) == QorRsaResult::Ok);
        mbedtls_pk_init(&mbedtls);
        require(mbedtls_pk_parse_key(&mbedtls, der, static_cast<std::size_t>(size), nullptr, 0) ==
                0);
        OPENSSL_free(der);
        mbedtls_entropy_init(&entropy);
        mbedtls_ctr_drbg_init(&random);
        require(mbedtls_ctr_drbg_seed(&random, mbedtls_entropy_func, &entropy, nullptr, 0) == 0);
    }
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;
    ~Keys() {
        mbedtls_ctr_drbg_free(&random);
        mbedtls_entropy_free(&entropy);
        mbedtls_pk_free(&mbedtls);
        EVP_PKEY_free(openssl);
    }

    Bytes block;
    QorRsaKey ours;
    EVP_PKEY* openssl;
    mbedtls_pk_context mbedtls;
    mbedtls_entropy_context entropy;
    mbedtls_ctr_drbg_context random;
};

Keys& keysOf(benchmark::State& state) {
    static std::map<std::int64_t, std::unique_ptr<Keys>> all;
    std::unique_ptr<Keys>& keys = all[state.range(0)];
    if (keys == nullptr) {
        keys = std::make_unique<Keys>(static_cast<unsigned int>(state.range(0)));
    }
    return *keys;
}

void privateHere(benchmark::State& state) {
    const Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    for (auto _ : state) {
        require(keys.ours.PrivateRaw(keys.block.data(), out.size(), out.data(), out.size()) ==
                QorRsaResult::Ok);
    }
}

void privateMbedtls(benchmark::State& state) {
    Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    for (auto _ : state) {
        require(mbedtls_rsa_private(mbedtls_pk_rsa(keys.mbedtls), mbedtls_ctr_drbg_random,
                                    &keys.random, keys.block.data(), out.data()) == 0);
    }
}

void privateOpenssl(benchmark::State& state) {
    const Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(keys.openssl, nullptr);
    require(EVP_PKEY_decrypt_init(context) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(context, RSA_NO_PADDING) == 1);
    for (auto _ : state) {
        std::size_t size = out.size();
        require(EVP_PKEY_decrypt(context, out.data(), &size, keys.block.data(),
                                 keys.block.size()) == 1);
    }
    EVP_PKEY_CTX_free(context);
}

void publicHere(benchmark::State& state) {
    const Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    for (auto _ : state) {
        require(keys.ours.PublicRaw(keys.block.data(), out.size(), out.data(), out.size()) ==
                QorRsaResult::Ok);
    }
}

void publicMbedtls(benchmark::State& state) {
    const Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    for (auto _ : state) {
        require(mbedtls_rsa_public(mbedtls_pk_rsa(keys.mbedtls), keys.block.data(), out.data()) ==
                0);
    }
}

void publicOpenssl(benchmark::State& state) {
    const Keys& keys = keysOf(state);
    Bytes out(keys.block.size());
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(keys.openssl, nullptr);
    require(EVP_PKEY_encrypt_init(context) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(context, RSA_NO_PADDING) == 1);
    for (auto _ : state) {
        std::size_t size = out.size();
        require(EVP_PKEY_encrypt(context, out.data(), &size, keys.block.data(),
                                 keys.block.size()) == 1);
    }
    EVP_PKEY_CTX_free(context);
}

template <typename Digest>
void sha1(benchmark::State& state, Digest digestOf) {
    const Bytes data(static_cast<std::size_t>(state.range(0)), 'x');
    unsigned char digest[QOR_SHA1_SIZE];
    for (auto _ : state) {
        require(digestOf(data, digest));
        benchmark::DoNotOptimize(digest);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sha1Here(benchmark::State& state) {
    sha1(state, [](const Bytes& data, unsigned char* digest) {
        return QorSha1(data.data(), data.size(), digest) == 1;
    });
}

void sha1Mbedtls(benchmark::State& state) {
    sha1(state, [](const Bytes& data, unsigned char* digest) {
        return mbedtls_sha1_ret(data.data(), data.size(), digest) == 0;
    });
}

void sha1Openssl(benchmark::State& state) {
    sha1(state, [](const Bytes& data, unsigned char* digest) {
        return EVP_Digest(data.data(), data.size(), digest, nullptr, EVP_sha1(), nullptr) == 1;
    });
}

BENCHMARK(privateHere)->Arg(2048)->Arg(4096);
BENCHMARK(privateMbedtls)->Arg(2048)->Arg(4096);
BENCHMARK(privateOpenssl)->Arg(2048)->Arg(4096);
BENCHMARK(publicHere)->Arg(2048)->Arg(4096);
BENCHMARK(publicMbedtls)->Arg(2048)->Arg(4096);
BENCHMARK(publicOpenssl)->Arg(2048)->Arg(4096);
BENCHMARK(sha1Here)->Arg(64)->Arg(1024)->Arg(1 << 20);
BENCHMARK(sha1Mbedtls)->Arg(64)->Arg(1024)->Arg(1 << 20);
BENCHMARK(sha1Openssl)->Arg(64)->Arg(1024)->Arg(1 << 20);

} // namespace

BENCHMARK_MAIN();
