#include "sha1_blocks.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cpuid.h>
#include <immintrin.h>

namespace qorcrypt {

namespace {

#define SHA1_TARGET __attribute__((target("sha,ssse3,sse4.1")))

bool processorHasSha() {
    constexpr unsigned int ssse3 = 1u << 9;
    constexpr unsigned int sse41 = 1u << 19;
    constexpr unsigned int sha = 1u << 29;
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & ssse3) == 0 || (c & sse41) == 0) {
        return false;
    }
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & sha) != 0;
}

SHA1_TARGET inline __m128i loadWords(const unsigned char* data) {
    // The instructions want the first word of four in the highest place.
    const __m128i reversed = _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(data)), reversed);
}

// What a block is worked with: a to d, and a of four steps ago, from which e comes.
struct Variables {
    __m128i abcd;
    __m128i before;
};

// Four steps of the twenty that share function number Function.
template <int Function>
SHA1_TARGET inline void fourSteps(Variables& v, __m128i words) {
    const __m128i e = _mm_sha1nexte_epu32(v.before, words);
    v.before = v.abcd;
    v.abcd = _mm_sha1rnds4_epu32(v.abcd, e, Function);
}

// Makes the words for the steps 16 to 19 ahead take the place of the oldest.
SHA1_TARGET inline void nextWords(__m128i& oldest, __m128i second, __m128i third, __m128i newest) {
    const __m128i mixed = _mm_xor_si128(_mm_sha1msg1_epu32(oldest, second), third);
    oldest = _mm_sha1msg2_epu32(mixed, newest);
}

template <int Function>
SHA1_TARGET inline void fourStepsOnward(Variables& v, __m128i& oldest, __m128i second,
                                        __m128i third, __m128i newest) {
    nextWords(oldest, second, third, newest);
    fourSteps<Function>(v, oldest);
}

SHA1_TARGET void workBlock(Variables& v, const unsigned char* data) {
    __m128i w0 = loadWords(data);
    __m128i w1 = loadWords(data + 16);
    __m128i w2 = loadWords(data + 32);
    __m128i w3 = loadWords(data + 48);
    const Variables start = v;
    // The first four steps: e comes as it is, not by a rotation of an earlier a.
    v.before = v.abcd;
    v.abcd = _mm_sha1rnds4_epu32(v.abcd, _mm_add_epi32(start.before, w0), 0);
    fourSteps<0>(v, w1);
    fourSteps<0>(v, w2);
    fourSteps<0>(v, w3);
    fourStepsOnward<0>(v, w0, w1, w2, w3);
    fourStepsOnward<1>(v, w1, w2, w3, w0);
    fourStepsOnward<1>(v, w2, w3, w0, w1);
    fourStepsOnward<1>(v, w3, w0, w1, w2);
    fourStepsOnward<1>(v, w0, w1, w2, w3);
    fourStepsOnward<1>(v, w1, w2, w3, w0);
    fourStepsOnward<2>(v, w2, w3, w0, w1);
    fourStepsOnward<2>(v, w3, w0, w1, w2);
    fourStepsOnward<2>(v, w0, w1, w2, w3);
    fourStepsOnward<2>(v, w1, w2, w3, w0);
    fourStepsOnward<2>(v, w2, w3, w0, w1);
    fourStepsOnward<3>(v, w3, w0, w1, w2);
    fourStepsOnward<3>(v, w0, w1, w2, w3);
    fourStepsOnward<3>(v, w1, w2, w3, w0);
    fourStepsOnward<3>(v, w2, w3, w0, w1);
    fourStepsOnward<3>(v, w3, w0, w1, w2);
    v.before = _mm_sha1nexte_epu32(v.before, start.before);
    v.abcd = _mm_add_epi32(v.abcd, start.abcd);
}

SHA1_TARGET void workBlocks(std::uint32_t (&state)[5], const unsigned char* data,
                            std::size_t blocks) {
    constexpr int reverse = 0x1B;
    auto* const abcd = reinterpret_cast<__m128i*>(state);
    Variables v{_mm_shuffle_epi32(_mm_loadu_si128(abcd), reverse),
                _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0)};
    for (; blocks > 0; --blocks, data += sha1BlockSize) {
        workBlock(v, data);
    }
    _mm_storeu_si128(abcd, _mm_shuffle_epi32(v.abcd, reverse));
    state[4] = static_cast<std::uint32_t>(_mm_extract_epi32(v.before, 3));
}

} // namespace

Sha1Blocks sha1ProcessorBlocks() {
    return processorHasSha() ? workBlocks : nullptr;
}

} // namespace qorcrypt

#endif
