#include "rsa_padding.h"

#include <cstring>

#include <algorithm>

#include "constant_time.h"
#include "internal/wipe.h"
#include "qorcrypto_random.h"
#include "qorcrypto_sha1.h"

namespace qorcrypt {

namespace {

constexpr unsigned char signatureType = 1;
constexpr unsigned char encryptionType = 2;
constexpr unsigned char signatureFiller = 0xFF;
constexpr std::size_t fillerStart = 2;
constexpr std::size_t minimumFiller = 8;

static_assert(paddingOverhead == fillerStart + minimumFiller + 1, "00, type, filler, 00");

// SEQUENCE { SEQUENCE { OID id-sha1, NULL }, OCTET STRING of 20 bytes }, up to the digest (RFC
// 8017, section 9.2, note 1).
constexpr unsigned char sha1Prefix[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                                        0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};

bool fits(std::size_t size, std::size_t blockSize) {
    return blockSize >= paddingOverhead && size <= blockSize - paddingOverhead;
}

void copyBytes(unsigned char* to, const unsigned char* from, std::size_t size) {
    if (size != 0) { // then neither is null
        memmove(to, from, size);
    }
}

// Writes all but the filler, whose size it returns.
std::size_t frameMessage(unsigned char type, const unsigned char* message, std::size_t size,
                         unsigned char* block, std::size_t blockSize) {
    const std::size_t start = blockSize - size;
    block[0] = 0;
    block[1] = type;
    block[start - 1] = 0;
    copyBytes(block + start, message, size);
    return start - 1 - fillerStart;
}

// Random bytes other than zero: each zero is drawn anew, some at a time. How often that happens
// tells nothing about the bytes that stay.
bool fillNonZero(unsigned char* out, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        if (QorRandomBytes(out + filled, size - filled) == 0) {
            return false;
        }
        unsigned char* const end = std::remove(out + filled, out + size, 0);
        filled = static_cast<std::size_t>(end - out);
    }
    return true;
}

// Where the message of a type 2 block begins, and whether the block is good; without a branch.
struct Start {
    std::size_t good;
    std::size_t index; // of no meaning in a bad block
};

Start findMessage(const unsigned char* block, std::size_t blockSize) {
    std::size_t separator = 0;
    std::size_t searching = ~std::size_t{0};
    for (std::size_t i = fillerStart; i < blockSize; ++i) {
        const std::size_t isZero = maskIfZero(block[i]);
        separator = choose(searching & isZero, i, separator);
        searching &= ~isZero;
    }
    const std::size_t longEnough = ~maskIfLess(separator, fillerStart + minimumFiller);
    const std::size_t headed = maskIfZero(block[0]) & maskIfEqual(block[1], encryptionType);
    return {hidden(headed & longEnough & ~searching), separator + 1};
}

// Moves the bytes towards the front by a secret distance, up to the whole size, bit by bit of the
// distance; zero bytes follow from the end.
void shiftToFront(unsigned char* bytes, std::size_t size, std::size_t distance) {
    for (std::size_t step = 1; step <= size; step <<= 1) {
        const std::size_t moves = ~maskIfZero(distance & step);
        for (std::size_t i = 0; i < size - step; ++i) {
            bytes[i] = chooseByte(moves, bytes[i + step], bytes[i]);
        }
        for (std::size_t i = size - step; i < size; ++i) {
            bytes[i] = chooseByte(moves, 0, bytes[i]);
        }
    }
}

} // namespace

bool padType1(const unsigned char* message, std::size_t size, unsigned char* block,
              std::size_t blockSize) {
    if (!fits(size, blockSize)) {
        return false;
    }
    const std::size_t filler = frameMessage(signatureType, message, size, block, blockSize);
    memset(block + fillerStart, signatureFiller, filler);
    return true;
}

bool padType1Sha1(const unsigned char* digest, unsigned char* block, std::size_t blockSize) {
    unsigned char digestInfo[sizeof sha1Prefix + QOR_SHA1_SIZE];
    memcpy(digestInfo, sha1Prefix, sizeof sha1Prefix);
    memcpy(digestInfo + sizeof sha1Prefix, digest, QOR_SHA1_SIZE);
    return padType1(digestInfo, sizeof digestInfo, block, blockSize);
}

bool padType2(const unsigned char* message, std::size_t size, unsigned char* block,
              std::size_t blockSize) {
    if (!fits(size, blockSize)) {
        return false;
    }
    const std::size_t filler = frameMessage(encryptionType, message, size, block, blockSize);
    if (!fillNonZero(block + fillerStart, filler)) {
        qorWipe(block, blockSize);
        return false;
    }
    return true;
}

bool recoverType1(const unsigned char* block, std::size_t blockSize, const unsigned char** message,
                  std::size_t* size) {
    if (blockSize < paddingOverhead || block[0] != 0 || block[1] != signatureType) {
        return false;
    }
    const unsigned char* const end = block + blockSize;
    const unsigned char* const filler = block + fillerStart;
    const unsigned char* const separator =
        std::find_if(filler, end, [](unsigned char byte) { return byte != signatureFiller; });
    if (separator == end || *separator != 0 ||
        static_cast<std::size_t>(separator - filler) < minimumFiller) {
        return false;
    }
    *message = separator + 1;
    *size = static_cast<std::size_t>(end - *message);
    return true;
}

Type2Result removeType2(unsigned char* block, std::size_t blockSize) {
    if (blockSize < paddingOverhead) {
        qorWipe(block, blockSize);
        return {0, 0};
    }
    const Start start = findMessage(block, blockSize);
    const std::size_t distance = choose(start.good, start.index, blockSize);
    shiftToFront(block, blockSize, distance);
    return {start.good, blockSize - distance};
}

void removeType2OrSubstitute(const unsigned char* block, std::size_t blockSize,
                             const unsigned char* substitute, unsigned char* out,
                             std::size_t size) {
    if (!fits(size, blockSize)) {
        copyBytes(out, substitute, size);
        return;
    }
    const Start start = findMessage(block, blockSize);
    const std::size_t taken = start.good & maskIfEqual(start.index, blockSize - size);
    for (std::size_t i = 0; i < size; ++i) {
        out[i] = chooseByte(taken, block[blockSize - size + i], substitute[i]);
    }
}

} // namespace qorcrypt
