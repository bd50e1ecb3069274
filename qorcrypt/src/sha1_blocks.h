// The compression function of SHA-1 (FIPS 180-4, section 6.1.2) in the forms that processors offer,
// and the digest over any of them, so that a test can take each road on one machine.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qorcrypto_sha1.h"

namespace qorcrypt {

constexpr std::size_t sha1BlockSize = 64;

// Works whole blocks into the hash value.
using Sha1Blocks = void (*)(std::uint32_t (&state)[5], const unsigned char* data,
                            std::size_t blocks);

void sha1BlocksPortable(std::uint32_t (&state)[5], const unsigned char* data, std::size_t blocks);

// The form that uses the instructions of the running processor; null where it has none.
Sha1Blocks sha1ProcessorBlocks();

// What QorSha1Update and QorSha1Final do, by a given form.
void sha1Update(QorSha1Context& context, const unsigned char* data, std::size_t size,
                Sha1Blocks workBlocks);
void sha1Final(QorSha1Context& context, unsigned char* digest, Sha1Blocks workBlocks);

} // namespace qorcrypt
