// Both Base64 families against OpenSSL: the network family against its one-block functions, the
// buffer family, whose text has lines, also against its streaming ones.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "base64.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes randomBytes(std::int64_t size) {
    std::mt19937 random(1);
    Bytes bytes(static_cast<std::size_t>(size));
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(random());
    }
    return bytes;
}

unsigned int lengthOf(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

char* asText(Bytes& bytes) {
    return reinterpret_cast<char*>(bytes.data());
}

Bytes oneLine(const Bytes& in) {
    Bytes text((in.size() + 2) / 3 * 4 + 1);
    QorInetB64Encode(in.data(), static_cast<int>(in.size()), asText(text), nullptr);
    return text;
}

Bytes opensslLine(const Bytes& in) {
    Bytes text((in.size() + 2) / 3 * 4 + 1);
    EVP_EncodeBlock(text.data(), in.data(), static_cast<int>(in.size()));
    return text;
}

Bytes lines(const Bytes& in) {
    Bytes text(CalcBase64Len(lengthOf(in)));
    text.resize(Base64Encode(in.data(), lengthOf(in), text.data(), lengthOf(text)));
    return text;
}

Bytes withoutLineFeeds(Bytes text) {
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

bool startsWith(const Bytes& bytes, const Bytes& start) {
    return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

// Measures calls whose first one gives what it should; a wrong result has no rate. Rates are of the
// plain bytes, so that both directions and all families compare.
template <class Call, class Check>
void measure(benchmark::State& state, Call call, Check isRight) {
    call();
    if (!isRight()) {
        state.SkipWithError("wrong result");
    }
    for (auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void encodeNetwork(benchmark::State& state) {
    const Bytes in = randomBytes(state.range(0));
    Bytes out((in.size() + 2) / 3 * 4 + 1);
    measure(
        state,
        [&] { QorInetB64Encode(in.data(), static_cast<int>(in.size()), asText(out), nullptr); },
        [&] { return out == opensslLine(in); });
}

void encodeOpensslBlock(benchmark::State& state) {
    const Bytes in = randomBytes(state.range(0));
    Bytes out((in.size() + 2) / 3 * 4 + 1);
    measure(
        state, [&] { EVP_EncodeBlock(out.data(), in.data(), static_cast<int>(in.size())); },
        [&] { return out == oneLine(in); });
}

void encodeBuffer(benchmark::State& state) {
    const Bytes in = randomBytes(state.range(0));
    Bytes out(CalcBase64Len(lengthOf(in))); // its last byte stays 0
    measure(
        state, [&] { Base64Encode(in.data(), lengthOf(in), out.data(), lengthOf(out)); },
        [&] { return withoutLineFeeds(out) == opensslLine(in); });
}

void encodeOpensslLines(benchmark::State& state) {
    const Bytes in = randomBytes(state.range(0));
    Bytes out(in.size() * 2 + 128);
    EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
    const auto encode = [&] {
        int length = 0;
        EVP_EncodeInit(context);
        EVP_EncodeUpdate(context, out.data(), &length, in.data(), static_cast<int>(in.size()));
        EVP_EncodeFinal(context, out.data() + length, &length);
    };
    measure(state, encode, [&] { return startsWith(withoutLineFeeds(out), oneLine(in)); });
    EVP_ENCODE_CTX_free(context);
}

void decodeNetwork(benchmark::State& state) {
    const Bytes plain = randomBytes(state.range(0));
    Bytes text = oneLine(plain);
    Bytes out(text.size());
    measure(
        state, [&] { QorInetB64Decode(asText(text), 0, out.data(), nullptr); },
        [&] { return startsWith(out, plain); });
}

void decodeBufferOneLine(benchmark::State& state) {
    const Bytes plain = randomBytes(state.range(0));
    const Bytes text = oneLine(plain);
    Bytes out(text.size());
    measure(
        state, [&] { Base64Decode(text.data(), lengthOf(text) - 1, out.data(), lengthOf(out)); },
        [&] { return startsWith(out, plain); });
}

void decodeOpensslBlock(benchmark::State& state) {
    const Bytes plain = randomBytes(state.range(0));
    const Bytes text = oneLine(plain);
    Bytes out(text.size());
    measure(
        state, [&] { EVP_DecodeBlock(out.data(), text.data(), static_cast<int>(text.size()) - 1); },
        [&] { return startsWith(out, plain); });
}

void decodeBufferLines(benchmark::State& state) {
    const Bytes plain = randomBytes(state.range(0));
    const Bytes text = lines(plain);
    Bytes out(text.size());
    measure(
        state, [&] { Base64Decode(text.data(), lengthOf(text), out.data(), lengthOf(out)); },
        [&] { return startsWith(out, plain); });
}

void decodeOpensslLines(benchmark::State& state) {
    const Bytes plain = randomBytes(state.range(0));
    const Bytes text = lines(plain);
    Bytes out(text.size());
    EVP_ENCODE_CTX* const context = EVP_ENCODE_CTX_new();
    const auto decode = [&] {
        int length = 0;
        EVP_DecodeInit(context);
        EVP_DecodeUpdate(context, out.data(), &length, text.data(), static_cast<int>(text.size()));
        EVP_DecodeFinal(context, out.data() + length, &length);
    };
    measure(state, decode, [&] { return startsWith(out, plain); });
    EVP_ENCODE_CTX_free(context);
}

// A user and a password, a configuration value, a file.
#define QOR_BENCH_SIZES ->Arg(30)->Arg(1000)->Arg(1000000)

BENCHMARK(encodeNetwork) QOR_BENCH_SIZES;
BENCHMARK(encodeOpensslBlock) QOR_BENCH_SIZES;
BENCHMARK(encodeBuffer) QOR_BENCH_SIZES;
BENCHMARK(encodeOpensslLines) QOR_BENCH_SIZES;
BENCHMARK(decodeNetwork) QOR_BENCH_SIZES;
BENCHMARK(decodeBufferOneLine) QOR_BENCH_SIZES;
BENCHMARK(decodeOpensslBlock) QOR_BENCH_SIZES;
BENCHMARK(decodeBufferLines) QOR_BENCH_SIZES;
BENCHMARK(decodeOpensslLines) QOR_BENCH_SIZES;

} // namespace

BENCHMARK_MAIN();
