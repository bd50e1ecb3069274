#include "qorcrypto_sha1.h"

#include <cstdint>
#include <cstring>

#include <algorithm>

#include "internal/wipe.h"
#include "sha1_blocks.h"

namespace qorcrypt {

namespace {

constexpr std::uint32_t initialState[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476,
                                           0xC3D2E1F0};
constexpr std::size_t lengthFieldSize = 8;

// Asked once: on a virtual machine the question alone costs more than a short digest.
Sha1Blocks chosenBlocks() {
    static const Sha1Blocks ofProcessor = sha1ProcessorBlocks();
    return ofProcessor != nullptr ? ofProcessor : sha1BlocksPortable;
}

void storeBigEndian(std::uint64_t value, unsigned char* out, std::size_t size) {
    for (std::size_t i = size; i > 0; --i, value >>= 8) {
        out[i - 1] = static_cast<unsigned char>(value);
    }
}

} // namespace

void sha1Update(QorSha1Context& context, const unsigned char* data, std::size_t size,
                Sha1Blocks workBlocks) {
    const std::size_t waiting = context.length % sha1BlockSize;
    context.length += size;
    if (waiting != 0) {
        const std::size_t taken = std::min(size, sha1BlockSize - waiting);
        memcpy(context.block + waiting, data, taken);
        if (waiting + taken < sha1BlockSize) {
            return;
        }
        workBlocks(context.state, context.block, 1);
        data += taken;
        size -= taken;
    }
    workBlocks(context.state, data, size / sha1BlockSize);
    const std::size_t rest = size % sha1BlockSize;
    memcpy(context.block, data + (size - rest), rest);
}

void sha1Final(QorSha1Context& context, unsigned char* digest, Sha1Blocks workBlocks) {
    const std::uint64_t bits = context.length * 8;
    std::size_t used = context.length % sha1BlockSize;
    context.block[used++] = 0x80;
    if (used > sha1BlockSize - lengthFieldSize) {
        memset(context.block + used, 0, sha1BlockSize - used);
        workBlocks(context.state, context.block, 1);
        used = 0;
    }
    memset(context.block + used, 0, sha1BlockSize - lengthFieldSize - used);
    storeBigEndian(bits, context.block + sha1BlockSize - lengthFieldSize, lengthFieldSize);
    workBlocks(context.state, context.block, 1);
    for (std::size_t i = 0; i < 5; ++i) {
        storeBigEndian(context.state[i], digest + 4 * i, 4);
    }
    qorWipe(&context, sizeof context);
}

} // namespace qorcrypt

int QorSha1(const void* data, size_t size, unsigned char* digest) {
    QorSha1Context context;
    if (digest == nullptr || QorSha1Init(&context) == 0 ||
        QorSha1Update(&context, data, size) == 0) {
        return 0;
    }
    return QorSha1Final(&context, digest);
}

int QorSha1Init(QorSha1Context* context) {
    if (context == nullptr) {
        return 0;
    }
    context->length = 0;
    memcpy(context->state, qorcrypt::initialState, sizeof context->state);
    return 1;
}

int QorSha1Update(QorSha1Context* context, const void* data, size_t size) {
    if (context == nullptr || (data == nullptr && size != 0)) {
        return 0;
    }
    if (size != 0) {
        qorcrypt::sha1Update(*context, static_cast<const unsigned char*>(data), size,
                             qorcrypt::chosenBlocks());
    }
    return 1;
}

int QorSha1Final(QorSha1Context* context, unsigned char* digest) {
    if (context == nullptr || digest == nullptr) {
        return 0;
    }
    qorcrypt::sha1Final(*context, digest, qorcrypt::chosenBlocks());
    return 1;
}
