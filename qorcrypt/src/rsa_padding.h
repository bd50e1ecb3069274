// The encoded messages of PKCS #1 v1.5 (RFC 8017, sections 7.2 and 9.2). A block has the size of
// the modulus in bytes. Null pointers are allowed only for messages of size 0.
#pragma once

#include <cstddef>

namespace qorcrypt {

// What a block holds beside its message at least: 00, the type, eight bytes of padding, 00.
constexpr std::size_t paddingOverhead = 11;

// 00 01 FF..FF 00 message. False, and nothing written, where the message is longer than
// blockSize - paddingOverhead.
bool padType1(const unsigned char* message, std::size_t size, unsigned char* block,
              std::size_t blockSize);

// The same around the DigestInfo of a SHA-1 digest (EMSA-PKCS1-v1_5); it takes 46 bytes or more.
bool padType1Sha1(const unsigned char* digest, unsigned char* block, std::size_t blockSize);

// 00 02 random bytes other than zero 00 message. False where the message is too long (nothing
// written) or where there are no random bytes (the block is wiped).
bool padType2(const unsigned char* message, std::size_t size, unsigned char* block,
              std::size_t blockSize);

// Takes the message out of a type 1 block, which is public data: it points into the block. False,
// and nothing written, where the block is anything but what padType1 makes.
bool recoverType1(const unsigned char* block, std::size_t blockSize, const unsigned char** message,
                  std::size_t* size);

// What comes of a type 2 block. Both are secret: a program that lets others see whether a block was
// good decrypts for them (D. Bleichenbacher, CRYPTO '98). `good` has all bits set, or none; the
// length is then 0.
struct Type2Result {
    std::size_t good;
    std::size_t length;
};

// Takes the message out of a type 2 block: moves it to the front and fills the rest with zero
// bytes, so that a bad block becomes all zero. Time and memory access depend on blockSize only.
Type2Result removeType2(unsigned char* block, std::size_t blockSize);

// Takes a message of a known length out of a type 2 block; where the block is bad or its message of
// another length, `out` becomes `substitute`, random bytes that the caller has drawn before.
// Nothing tells which it was: time and memory access depend on the sizes only. The block stays as
// it is. `substitute` and `out` have `size` bytes and may be the same.
void removeType2OrSubstitute(const unsigned char* block, std::size_t blockSize,
                             const unsigned char* substitute, unsigned char* out, std::size_t size);

} // namespace qorcrypt
