#include "qorcrypto_rsa.h"

#include <cstring>
#include <new>
#include <utility>

#include "qorcrypto_random.h"
#include "rsa_core.h"
#include "rsa_key_der.h"
#include "rsa_padding.h"
#include "rsa_pem.h"

using namespace qorcrypt;

static_assert(QorRsaKey::PaddingSize == paddingOverhead, "both say what a block has room for");

struct QorRsaKey::State : RsaCore {};

namespace {

constexpr std::size_t sha1Size = 20;

// Bytes in memory of their own, wiped before it is given up.
class Block {
public:
    bool allocate(std::size_t size) {
        return limbs.allocate(limbsForBytes(size) + 1);
    }
    unsigned char* bytes() {
        return reinterpret_cast<unsigned char*>(limbs.data());
    }

private:
    LimbBuffer limbs;
};

QorRsaNumber numberOf(const KeyNumber& number) {
    return {number.bytes, number.size};
}

QorRsaPrivateNumbers numbersOf(const RsaKeyParts& parts) {
    return {numberOf(parts.n), numberOf(parts.e),  numberOf(parts.d),  numberOf(parts.p),
            numberOf(parts.q), numberOf(parts.dp), numberOf(parts.dq), numberOf(parts.qinv)};
}

// What can be said of a call before anything is calculated. A null core has no key.
QorRsaResult checkCall(const RsaCore* core, bool needsPrivate, bool pointersGiven) {
    if (core == nullptr || (needsPrivate && !core->isPrivate())) {
        return QorRsaResult::NoKey;
    }
    return pointersGiven ? QorRsaResult::Ok : QorRsaResult::BadArgument;
}

// The block that a signature holds is compared with the one that it ought to hold.
QorRsaResult compareSignature(const RsaCore& core, const unsigned char* signature,
                              const unsigned char* expected) {
    Block block;
    if (!block.allocate(core.modulusSize())) {
        return QorRsaResult::NoMemory;
    }
    const QorRsaResult result = core.publicRaw(signature, block.bytes());
    if (result != QorRsaResult::Ok) {
        return result;
    }
    return std::memcmp(block.bytes(), expected, core.modulusSize()) == 0
               ? QorRsaResult::Ok
               : QorRsaResult::BadSignature;
}

} // namespace

QorRsaKey::QorRsaKey() noexcept : state(nullptr) {}

QorRsaKey::~QorRsaKey() {
    Clear();
}

QorRsaKey::QorRsaKey(QorRsaKey&& other) noexcept : state(std::exchange(other.state, nullptr)) {}

QorRsaKey& QorRsaKey::operator=(QorRsaKey&& other) noexcept {
    State* const taken = std::exchange(other.state, nullptr);
    Clear();
    state = taken;
    return *this;
}

void QorRsaKey::Clear() {
    delete state;
    state = nullptr;
}

template <typename Load>
QorRsaResult QorRsaKey::replace(Load load) {
    QorRsaKey fresh;
    fresh.state = new (std::nothrow) State;
    if (fresh.state == nullptr) {
        return QorRsaResult::NoMemory;
    }
    const QorRsaResult result = load(*fresh.state);
    if (result == QorRsaResult::Ok) {
        std::swap(state, fresh.state);
    }
    return result;
}

QorRsaResult QorRsaKey::CopyFrom(const QorRsaKey& other) {
    if (other.state == nullptr) {
        return QorRsaResult::NoKey;
    }
    return replace([&](RsaCore& core) { return core.copyFrom(*other.state); });
}

QorRsaResult QorRsaKey::SetPublic(const QorRsaNumber& n, const QorRsaNumber& e) {
    return replace([&](RsaCore& core) { return core.setPublic(n, e); });
}

QorRsaResult QorRsaKey::SetPrivate(const QorRsaPrivateNumbers& numbers) {
    return replace([&](RsaCore& core) { return core.setPrivate(numbers); });
}

QorRsaResult QorRsaKey::LoadDer(const unsigned char* der, std::size_t size) {
    if (der == nullptr) {
        return QorRsaResult::BadArgument;
    }
    RsaKeyParts parts;
    if (readPrivateKeyDer(der, size, &parts)) {
        return SetPrivate(numbersOf(parts));
    }
    return readPublicKeyDer(der, size, &parts) ? SetPublic(numberOf(parts.n), numberOf(parts.e))
                                               : QorRsaResult::BadEncoding;
}

QorRsaResult QorRsaKey::LoadPem(const char* text, std::size_t size) {
    if (text == nullptr) {
        return QorRsaResult::BadArgument;
    }
    RsaPem pem;
    RsaKeyParts parts;
    if (pem.readPrivateKey(text, size, &parts)) {
        return SetPrivate(numbersOf(parts));
    }
    return pem.readPublicKey(text, size, &parts) ? SetPublic(numberOf(parts.n), numberOf(parts.e))
                                                 : QorRsaResult::BadEncoding;
}

bool QorRsaKey::IsPrivate() const {
    return state != nullptr && state->isPrivate();
}

std::size_t QorRsaKey::ModulusBits() const {
    return state != nullptr ? state->modulusBits() : 0;
}

std::size_t QorRsaKey::ModulusSize() const {
    return state != nullptr ? state->modulusSize() : 0;
}

QorRsaResult QorRsaKey::PublicRaw(const unsigned char* in, std::size_t inSize, unsigned char* out,
                                  std::size_t outSize) const {
    const QorRsaResult call = checkCall(state, false, in != nullptr && out != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (inSize != ModulusSize() || outSize < ModulusSize()) {
        return QorRsaResult::WrongLength;
    }
    return state->publicRaw(in, out);
}

QorRsaResult QorRsaKey::PrivateRaw(const unsigned char* in, std::size_t inSize, unsigned char* out,
                                   std::size_t outSize) const {
    const QorRsaResult call = checkCall(state, true, in != nullptr && out != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (inSize != ModulusSize() || outSize < ModulusSize()) {
        return QorRsaResult::WrongLength;
    }
    return state->privateRaw(in, out);
}

QorRsaResult QorRsaKey::SignType1(const unsigned char* data, std::size_t size, unsigned char* out,
                                  std::size_t outSize) const {
    const QorRsaResult call =
        checkCall(state, true, (data != nullptr || size == 0) && out != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return padType1(data, size, block.bytes(), ModulusSize())
               ? PrivateRaw(block.bytes(), ModulusSize(), out, outSize)
               : QorRsaResult::MessageTooLarge;
}

QorRsaResult QorRsaKey::VerifyType1(const unsigned char* data, std::size_t size,
                                    const unsigned char* signature,
                                    std::size_t signatureSize) const {
    const QorRsaResult call =
        checkCall(state, false, (data != nullptr || size == 0) && signature != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (signatureSize != ModulusSize()) {
        return QorRsaResult::WrongLength;
    }
    Block expected;
    if (!expected.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return padType1(data, size, expected.bytes(), ModulusSize())
               ? compareSignature(*state, signature, expected.bytes())
               : QorRsaResult::MessageTooLarge;
}

QorRsaResult QorRsaKey::RecoverType1(const unsigned char* signature, std::size_t signatureSize,
                                     unsigned char* out, std::size_t outSize,
                                     std::size_t* dataSize) const {
    if (dataSize != nullptr) {
        *dataSize = 0;
    }
    const QorRsaResult call = checkCall(
        state, false,
        signature != nullptr && dataSize != nullptr && (out != nullptr || outSize == 0));
    if (call != QorRsaResult::Ok) {
        return call;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    const QorRsaResult result =
        PublicRaw(signature, signatureSize, block.bytes(), ModulusSize());
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
    const QorRsaResult call = checkCall(state, true, digest != nullptr && out != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    Block block;
    if (!block.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return padType1Sha1(digest, block.bytes(), ModulusSize())
               ? PrivateRaw(block.bytes(), ModulusSize(), out, outSize)
               : QorRsaResult::MessageTooLarge;
}

QorRsaResult QorRsaKey::VerifySha1(const unsigned char digest[20], const unsigned char* signature,
                                   std::size_t signatureSize) const {
    const QorRsaResult call = checkCall(state, false, digest != nullptr && signature != nullptr);
    if (call != QorRsaResult::Ok) {
        return call;
    }
    if (signatureSize != ModulusSize()) {
        return QorRsaResult::WrongLength;
    }
    Block expected;
    if (!expected.allocate(ModulusSize())) {
        return QorRsaResult::NoMemory;
    }
    return padType1Sha1(digest, expected.bytes(), ModulusSize())
               ? compareSignature(*state, signature, expected.bytes())
               : QorRsaResult::MessageTooLarge;
}
