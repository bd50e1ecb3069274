// Address text conversion against the C library's inet_pton and inet_ntop, over the same random
// addresses, so that neither side profits from a predictable input.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "qoripaddr.h"

namespace {

constexpr std::size_t addressCount = 4096;

template <std::size_t Size>
using Addresses = std::vector<std::array<unsigned char, Size>>;

template <std::size_t Size>
Addresses<Size> randomAddresses() {
    std::mt19937 random(1);
    Addresses<Size> addresses(addressCount);
    for (auto& address : addresses) {
        for (unsigned char& byte : address) {
            byte = static_cast<unsigned char>(random());
        }
    }
    return addresses;
}

const Addresses<4> ipV4Addresses = randomAddresses<4>();

// Half of them with a run of zero groups, as addresses in use have.
const Addresses<16> ipV6Addresses = [] {
    Addresses<16> addresses = randomAddresses<16>();
    for (std::size_t i = 0; i < addresses.size(); i += 2) {
        for (std::size_t k = 4 + i % 5; k < 14; ++k) {
            addresses[i][k] = 0;
        }
    }
    return addresses;
}();

template <std::size_t Size>
std::vector<std::string> texts(const Addresses<Size>& addresses) {
    std::vector<std::string> result;
    for (const auto& address : addresses) {
        char text[64];
        inet_ntop(Size == 4 ? AF_INET : AF_INET6, address.data(), text, sizeof text);
        result.emplace_back(text);
    }
    return result;
}

const std::vector<std::string> ipV4Texts = texts(ipV4Addresses);
const std::vector<std::string> ipV6Texts = texts(ipV6Addresses);

template <typename Parse>
void parseAll(benchmark::State& state, const std::vector<std::string>& all, Parse parse) {
    unsigned char bytes[16];
    for (auto iteration : state) {
        for (const std::string& text : all) {
            benchmark::DoNotOptimize(parse(text.c_str(), bytes));
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

template <std::size_t Size, typename Format>
void formatAll(benchmark::State& state, const Addresses<Size>& all, Format format) {
    char text[64];
    for (auto iteration : state) {
        for (const auto& address : all) {
            benchmark::DoNotOptimize(format(address.data(), text));
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

void parseIpV4(benchmark::State& state) {
    parseAll(state, ipV4Texts, qor_inet_pton4);
}

void parseIpV4Libc(benchmark::State& state) {
    parseAll(state, ipV4Texts, [](const char* text, unsigned char* bytes) {
        return inet_pton(AF_INET, text, bytes);
    });
}

void parseIpV6(benchmark::State& state) {
    parseAll(state, ipV6Texts, qor_inet_pton6);
}

void parseIpV6Libc(benchmark::State& state) {
    parseAll(state, ipV6Texts, [](const char* text, unsigned char* bytes) {
        return inet_pton(AF_INET6, text, bytes);
    });
}

void formatIpV4(benchmark::State& state) {
    formatAll(state, ipV4Addresses, [](const unsigned char* bytes, char* text) {
        return qor_inet_ntop4(bytes, text, 64);
    });
}

void formatIpV4Libc(benchmark::State& state) {
    formatAll(state, ipV4Addresses, [](const unsigned char* bytes, char* text) {
        return inet_ntop(AF_INET, bytes, text, 64);
    });
}

void formatIpV6(benchmark::State& state) {
    formatAll(state, ipV6Addresses, [](const unsigned char* bytes, char* text) {
        return qor_inet_ntop6(bytes, text, 64);
    });
}

void formatIpV6Libc(benchmark::State& state) {
    formatAll(state, ipV6Addresses, [](const unsigned char* bytes, char* text) {
        return inet_ntop(AF_INET6, bytes, text, 64);
    });
}

BENCHMARK(parseIpV4);
BENCHMARK(parseIpV4Libc);
BENCHMARK(parseIpV6);
BENCHMARK(parseIpV6Libc);
BENCHMARK(formatIpV4);
BENCHMARK(formatIpV4Libc);
BENCHMARK(formatIpV6);
BENCHMARK(formatIpV6Libc);

} // namespace

BENCHMARK_MAIN();
