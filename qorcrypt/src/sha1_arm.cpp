#include "sha1_blocks.h"

#if defined(__aarch64__)

#include <arm_neon.h>
#if defined(__linux__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace qorcrypt {

namespace {

#if defined(__clang__)
#define SHA1_TARGET __attribute__((target("sha2")))
#else
#define SHA1_TARGET __attribute__((target("+crypto")))
#endif

bool processorHasSha() {
#if defined(__APPLE__)
    return true; // every 64-bit processor of theirs has it
#elif defined(__linux__)
    return (getauxval(AT_HWCAP) & HWCAP_SHA1) != 0;
#else
    return false;
#endif
}

enum class Function { choose, parity, majority };

struct Variables {
    uint32x4_t abcd;
    std::uint32_t e;
};

template <Function F>
SHA1_TARGET inline void fourSteps(Variables& v, uint32x4_t words, std::uint32_t constant) {
    const uint32x4_t sum = vaddq_u32(words, vdupq_n_u32(constant));
    const std::uint32_t nextE = vsha1h_u32(vgetq_lane_u32(v.abcd, 0));
    if constexpr (F == Function::choose) {
        v.abcd = vsha1cq_u32(v.abcd, v.e, sum);
    } else if constexpr (F == Function::majority) {
        v.abcd = vsha1mq_u32(v.abcd, v.e, sum);
    } else {
        v.abcd = vsha1pq_u32(v.abcd, v.e, sum);
    }
    v.e = nextE;
}

SHA1_TARGET inline uint32x4_t loadWords(const unsigned char* data) {
    return vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(data)));
}

// The words of the steps, four by four: sixteen come from the block, the others from those before.
SHA1_TARGET inline uint32x4_t takeWords(uint32x4_t (&w)[4], std::size_t group) {
    uint32x4_t& oldest = w[group % 4];
    if (group >= 4) {
        oldest = vsha1su1q_u32(vsha1su0q_u32(oldest, w[(group + 1) % 4], w[(group + 2) % 4]),
                               w[(group + 3) % 4]);
    }
    return oldest;
}

template <Function F>
SHA1_TARGET inline void twentySteps(Variables& v, uint32x4_t (&w)[4], std::size_t firstGroup,
                                    std::uint32_t constant) {
    for (std::size_t group = firstGroup; group < firstGroup + 5; ++group) {
        fourSteps<F>(v, takeWords(w, group), constant);
    }
}

SHA1_TARGET void workBlock(Variables& v, const unsigned char* data) {
    uint32x4_t w[4] = {loadWords(data), loadWords(data + 16), loadWords(data + 32),
                       loadWords(data + 48)};
    const Variables start = v;
    twentySteps<Function::choose>(v, w, 0, 0x5A827999);
    twentySteps<Function::parity>(v, w, 5, 0x6ED9EBA1);
    twentySteps<Function::majority>(v, w, 10, 0x8F1BBCDC);
    twentySteps<Function::parity>(v, w, 15, 0xCA62C1D6);
    v.abcd = vaddq_u32(v.abcd, start.abcd);
    v.e += start.e;
}

SHA1_TARGET void workBlocks(std::uint32_t (&state)[5], const unsigned char* data,
                            std::size_t blocks) {
    Variables v{vld1q_u32(state), state[4]};
    for (; blocks > 0; --blocks, data += sha1BlockSize) {
        workBlock(v, data);
    }
    vst1q_u32(state, v.abcd);
    state[4] = v.e;
}

} // namespace

Sha1Blocks sha1ProcessorBlocks() {
    return processorHasSha() ? workBlocks : nullptr;
}

} // namespace qorcrypt

#endif
