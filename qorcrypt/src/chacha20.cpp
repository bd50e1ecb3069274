#include "chacha20.h"

#include "internal/wipe.h"

namespace qorcrypt {

namespace {

using Words = std::uint32_t[16];

std::uint32_t loadLittleEndian(const unsigned char* in) {
    return static_cast<std::uint32_t>(in[3]) << 24 | static_cast<std::uint32_t>(in[2]) << 16 |
           static_cast<std::uint32_t>(in[1]) << 8 | in[0];
}

void storeLittleEndian(std::uint32_t value, unsigned char* out) {
    for (std::size_t i = 0; i < 4; ++i, value >>= 8) {
        out[i] = static_cast<unsigned char>(value);
    }
}

std::uint32_t rotateLeft(std::uint32_t value, unsigned int bits) {
    return value << bits | value >> (32 - bits);
}

void quarterRound(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c, std::uint32_t& d) {
    a += b;
    d = rotateLeft(d ^ a, 16);
    c += d;
    b = rotateLeft(b ^ c, 12);
    a += b;
    d = rotateLeft(d ^ a, 8);
    c += d;
    b = rotateLeft(b ^ c, 7);
}

void twoRounds(Words& v) {
    quarterRound(v[0], v[4], v[8], v[12]);
    quarterRound(v[1], v[5], v[9], v[13]);
    quarterRound(v[2], v[6], v[10], v[14]);
    quarterRound(v[3], v[7], v[11], v[15]);
    quarterRound(v[0], v[5], v[10], v[15]);
    quarterRound(v[1], v[6], v[11], v[12]);
    quarterRound(v[2], v[7], v[8], v[13]);
    quarterRound(v[3], v[4], v[9], v[14]);
}

void writeBlock(const Words& state, Words& work, unsigned char* out) {
    for (std::size_t i = 0; i < 16; ++i) {
        work[i] = state[i];
    }
    for (int i = 0; i < 10; ++i) {
        twoRounds(work);
    }
    for (std::size_t i = 0; i < 16; ++i) {
        storeLittleEndian(work[i] + state[i], out + 4 * i);
    }
}

} // namespace

void chacha20KeyStream(const unsigned char (&key)[chacha20KeySize], std::uint32_t counter,
                       const unsigned char (&nonce)[chacha20NonceSize], unsigned char* out,
                       std::size_t blocks) {
    // "expand 32-byte k", the key, the counter, the nonce.
    Words state = {0x61707865, 0x3320646E, 0x79622D32, 0x6B206574};
    for (std::size_t i = 0; i < 8; ++i) {
        state[4 + i] = loadLittleEndian(key + 4 * i);
    }
    for (std::size_t i = 0; i < 3; ++i) {
        state[13 + i] = loadLittleEndian(nonce + 4 * i);
    }
    Words work;
    for (std::size_t i = 0; i < blocks; ++i, out += chacha20BlockSize) {
        state[12] = counter++;
        writeBlock(state, work, out);
    }
    qorWipe(state, sizeof state);
    qorWipe(work, sizeof work);
}

} // namespace qorcrypt
