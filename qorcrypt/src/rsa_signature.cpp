// Blocks of type 1.
#include "qorcrypto_rsa.h"

#include <cstring>

#include "rsa_call.h"
#include "rsa_padding.h"

using namespace qorcrypt;

namespace {

// Signs what `pad` writes into a block. The call has been checked.
template <typename Pad>
QorRsaResult sign(RsaCore& core, Pad pad, unsigned char* out) {
    Block block;
    if (!block.allocate(core.modulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return pad(block.bytes(), core.modulusSize()) ? core.privateRaw(block.bytes(), out)
                                                  : QorRsaResult::MessageTooLarge;
}

// Compares the block that the signature gives with the one that `pad` writes: nothing is parsed
// that came from outside, so that no leniency of a parser can be made use of.
template <typename Pad>
QorRsaResult verify(const RsaCore& core, Pad pad, const unsigned char* signature) {
    const std::size_t size = core.modulusSize();
    Block expected;
    Block block;
    if (!expected.allocate(size) || !block.allocate(size)) {
        return QorRsaResult::NoMemory;
    }
    if (!pad(expected.bytes(), size)) {
        return QorRsaResult::MessageTooLarge;
    }
    const QorRsaResult result = core.publicRaw(signature, block.bytes());
    if (result != QorRsaResult::Ok) {
        return result;
    }
    return std::memcmp(block.bytes(), expected.bytes(), size) == 0 ? QorRsaResult::Ok
                                                                   : QorRsaResult::BadSignature;
}

} // namespace

QorRsaResult QorRsaKey::SignType1(const unsigned char* data, std::size_t size, unsigned char* out,
                                  std::size_t outSize) const {
    const QorRsaResult call =
        checkCall(state, KeyUse::isPrivate, {dataOrEmpty(data, size), out}, ModulusSize(), outSize);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    const auto pad = [&](unsigned char* block, std::size_t blockSize) {
        return padType1(data, size, block, blockSize);
    };
    return sign(*state, pad, out);
}

QorRsaResult QorRsaKey::VerifyType1(const unsigned char* data, std::size_t size,
                                    const unsigned char* signature,
                                    std::size_t signatureSize) const {
    const QorRsaResult call =
        checkCall(state, KeyUse::isPublic, {dataOrEmpty(data, size), signature}, signatureSize,
                  ModulusSize());
    if (call != QorRsaResult::Ok) {
        return call;
    }
    const auto pad = [&](unsigned char* block, std::size_t blockSize) {
        return padType1(data, size, block, blockSize);
    };
    return verify(*state, pad, signature);
}

QorRsaResult QorRsaKey::RecoverType1(const unsigned char* signature, std::size_t signatureSize,
                                     unsigned char* out, std::size_t outSize,
                                     std::size_t* dataSize) const {
    if (dataSize == nullptr) {
        return QorRsaResult::BadArgument;
    }
    *dataSize = 0;
    const QorRsaResult call =
        checkCall(state, KeyUse::isPublic, {signature, dataOrEmpty(out, outSize)}, signatureSize,
                  ModulusSize());
    if (call != QorRsaResult::Ok) {
        return call;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    const QorRsaResult result = state->publicRaw(signature, block.bytes());
    if (result != QorRsaResult::Ok) {
        return result;
    }
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    if (!recoverType1(block.bytes(), ModulusSize(), &data, &size)) {
        return QorRsaResult::BadPadding;
    }
    if (size > outSize) {
        return QorRsaResult::WrongLength;
    }
    if (size > 0) {
        std::memcpy(out, data, size);
    }
    *dataSize = size;
    return QorRsaResult::Ok;
}

QorRsaResult QorRsaKey::SignSha1(const unsigned char digest[20], unsigned char* out,
                                 std::size_t outSize) const {
    const QorRsaResult call =
        checkCall(state, KeyUse::isPrivate, {digest, out}, ModulusSize(), outSize);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    const auto pad = [&](unsigned char* block, std::size_t blockSize) {
        return padType1Sha1(digest, block, blockSize);
    };
    return sign(*state, pad, out);
}

QorRsaResult QorRsaKey::VerifySha1(const unsigned char digest[20], const unsigned char* signature,
                                   std::size_t signatureSize) const {
    const QorRsaResult call =
        checkCall(state, KeyUse::isPublic, {digest, signature}, signatureSize, ModulusSize());
    if (call != QorRsaResult::Ok) {
        return call;
    }
    const auto pad = [&](unsigned char* block, std::size_t blockSize) {
        return padType1Sha1(digest, block, blockSize);
    };
    return verify(*state, pad, signature);
}
