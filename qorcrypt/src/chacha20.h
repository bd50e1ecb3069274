// The key stream of ChaCha20 (RFC 8439, sections 2.3 and 2.4).
#pragma once

#include <cstddef>
#include <cstdint>

namespace qorcrypt {

constexpr std::size_t chacha20KeySize = 32;
constexpr std::size_t chacha20NonceSize = 12;
constexpr std::size_t chacha20BlockSize = 64;

// Writes that many blocks of the key stream, the first with the counter given. The counter must not
// pass 2^32 - 1.
void chacha20KeyStream(const unsigned char (&key)[chacha20KeySize], std::uint32_t counter,
                       const unsigned char (&nonce)[chacha20NonceSize], unsigned char* out,
                       std::size_t blocks);

} // namespace qorcrypt
