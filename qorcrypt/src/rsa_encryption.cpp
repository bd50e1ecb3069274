// Blocks of type 2.
#include "qorcrypto_rsa.h"

#include <cstring>

#include "qorcrypto_random.h"
#include "rsa_call.h"
#include "rsa_padding.h"

using namespace qorcrypt;

static_assert(QorRsaKey::PaddingSize == paddingOverhead, "both say what a block has room for");

QorRsaResult QorRsaKey::EncryptType2(const unsigned char* data, std::size_t size,
                                     unsigned char* out, std::size_t outSize) const {
    const QorRsaResult call =
        checkCall(state, KeyUse::isPublic, {dataOrEmpty(data, size), out}, ModulusSize(), outSize);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (size > ModulusSize() - PaddingSize) {
        return QorRsaResult::MessageTooLarge;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return padType2(data, size, block.bytes(), ModulusSize()) ? state->publicRaw(block.bytes(), out)
                                                              : QorRsaResult::NoRandom;
}

QorRsaResult QorRsaKey::DecryptType2(const unsigned char* in, std::size_t inSize,
                                     unsigned char* out, std::size_t outSize,
                                     std::size_t* dataSize) const {
    if (dataSize == nullptr) {
        return QorRsaResult::BadArgument;
    }
    *dataSize = 0;
    const QorRsaResult call = checkCall(state, KeyUse::isPrivate, {in, out}, inSize, ModulusSize());
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (outSize < ModulusSize() - PaddingSize) {
        return QorRsaResult::WrongLength;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    const QorRsaResult result = state->privateRaw(in, block.bytes());
    if (result != QorRsaResult::Ok) {
        return result;
    }
    // As many bytes as there can be, whatever the size of the data; behind them stand zeros.
    const Type2Result data = removeType2(block.bytes(), ModulusSize());
    std::memcpy(out, block.bytes(), ModulusSize() - PaddingSize);
    *dataSize = data.length;
    return data.good != 0 ? QorRsaResult::Ok : QorRsaResult::BadPadding;
}

QorRsaResult QorRsaKey::DecryptType2OrRandom(const unsigned char* in, std::size_t inSize,
                                             unsigned char* out, std::size_t dataSize) const {
    const QorRsaResult call = checkCall(state, KeyUse::isPrivate, {in, out}, inSize, ModulusSize());
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (dataSize > ModulusSize() - PaddingSize) {
        return QorRsaResult::WrongLength;
    }
    Block block;
    Block substitute;
    if (!block.allocate(ModulusSize()) || !substitute.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    if (QorRandomBytes(substitute.bytes(), dataSize) == 0) {
        return QorRsaResult::NoRandom;
    }
    const QorRsaResult result = state->privateRaw(in, block.bytes());
    if (result == QorRsaResult::Ok) {
        removeType2OrSubstitute(block.bytes(), ModulusSize(), substitute.bytes(), out, dataSize);
    }
    return result;
}
