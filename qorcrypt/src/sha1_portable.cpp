#include <cstdint>

#include <utility>

#include "sha1_blocks.h"

namespace qorcrypt {

namespace {

// The eighty steps are written out by the compiler, with the variables renamed from step to step
// instead of moved, and the schedule in sixteen words that stay in registers where they can.
#define SHA1_INLINE __attribute__((always_inline)) inline

SHA1_INLINE std::uint32_t rotateLeft(std::uint32_t value, unsigned int bits) {
    return value << bits | value >> (32 - bits);
}

SHA1_INLINE std::uint32_t loadBigEndian(const unsigned char* in) {
    return static_cast<std::uint32_t>(in[0]) << 24 | static_cast<std::uint32_t>(in[1]) << 16 |
           static_cast<std::uint32_t>(in[2]) << 8 | in[3];
}

// The word of a step, from the block or from those of the sixteen steps before.
template <std::size_t Step>
SHA1_INLINE std::uint32_t takeWord(std::uint32_t (&words)[16], const unsigned char* data) {
    if constexpr (Step < 16) {
        words[Step] = loadBigEndian(data + 4 * Step);
    } else {
        words[Step % 16] = rotateLeft(words[(Step - 3) % 16] ^ words[(Step - 8) % 16] ^
                                          words[(Step - 14) % 16] ^ words[Step % 16],
                                      1);
    }
    return words[Step % 16];
}

// The logical functions and constants of sections 4.1.1 and 4.2.1.
template <std::size_t Step>
SHA1_INLINE std::uint32_t mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    if constexpr (Step < 20) {
        return (z ^ (x & (y ^ z))) + 0x5A827999;
    } else if constexpr (Step < 40) {
        return (x ^ y ^ z) + 0x6ED9EBA1;
    } else if constexpr (Step < 60) {
        // Both terms never have a bit in common, so that the sum can be taken apart.
        return (x & y) + (z & (x ^ y)) + 0x8F1BBCDC;
    } else {
        return (x ^ y ^ z) + 0xCA62C1D6;
    }
}

template <std::size_t Step>
SHA1_INLINE void step(std::uint32_t a, std::uint32_t& b, std::uint32_t c, std::uint32_t d,
                      std::uint32_t& e, std::uint32_t word) {
    e += word + mix<Step>(b, c, d) + rotateLeft(a, 5);
    b = rotateLeft(b, 30);
}

struct Variables {
    std::uint32_t a, b, c, d, e;
};

// After five steps the variables are back in their places.
template <std::size_t Step>
SHA1_INLINE void fiveSteps(Variables& v, std::uint32_t (&words)[16], const unsigned char* data) {
    step<Step>(v.a, v.b, v.c, v.d, v.e, takeWord<Step>(words, data));
    step<Step + 1>(v.e, v.a, v.b, v.c, v.d, takeWord<Step + 1>(words, data));
    step<Step + 2>(v.d, v.e, v.a, v.b, v.c, takeWord<Step + 2>(words, data));
    step<Step + 3>(v.c, v.d, v.e, v.a, v.b, takeWord<Step + 3>(words, data));
    step<Step + 4>(v.b, v.c, v.d, v.e, v.a, takeWord<Step + 4>(words, data));
}

template <std::size_t... Five>
SHA1_INLINE void eightySteps(Variables& v, const unsigned char* data,
                             std::index_sequence<Five...> /*fives*/) {
    std::uint32_t words[16];
    (fiveSteps<5 * Five>(v, words, data), ...);
}

} // namespace

void sha1BlocksPortable(std::uint32_t (&state)[5], const unsigned char* data, std::size_t blocks) {
    for (; blocks > 0; --blocks, data += sha1BlockSize) {
        Variables v{state[0], state[1], state[2], state[3], state[4]};
        eightySteps(v, data, std::make_index_sequence<16>());
        state[0] += v.a;
        state[1] += v.b;
        state[2] += v.c;
        state[3] += v.d;
        state[4] += v.e;
    }
}

#if !defined(__x86_64__) && !defined(__i386__) && !defined(__aarch64__)
Sha1Blocks sha1ProcessorBlocks() {
    return nullptr;
}
#endif

} // namespace qorcrypt
