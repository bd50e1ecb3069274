// RSA keys: setting, asking, raw operations.
#include "qorcrypto_rsa.h"

#include <new>
#include <utility>

#include "rsa_call.h"
#include "rsa_key_der.h"
#include "rsa_pem.h"

using namespace qorcrypt;

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
        return SetPrivate(parts);
    }
    return readPublicKeyDer(der, size, &parts) ? SetPublic(parts.n, parts.e)
                                               : QorRsaResult::BadEncoding;
}

QorRsaResult QorRsaKey::LoadPem(const char* text, std::size_t size) {
    if (text == nullptr) {
        return QorRsaResult::BadArgument;
    }
    RsaPem pem;
    RsaKeyParts parts;
    const QorRsaResult read = pem.read(text, size, &parts);
    if (read != QorRsaResult::Ok) {
        return read;
    }
    return parts.d.size > 0 ? SetPrivate(parts) : SetPublic(parts.n, parts.e);
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
    const QorRsaResult call = checkCall(state, KeyUse::isPublic, {in, out}, inSize, outSize);
    return call == QorRsaResult::Ok ? state->publicRaw(in, out) : call;
}

QorRsaResult QorRsaKey::PrivateRaw(const unsigned char* in, std::size_t inSize, unsigned char* out,
                                   std::size_t outSize) const {
    const QorRsaResult call = checkCall(state, KeyUse::isPrivate, {in, out}, inSize, outSize);
    return call == QorRsaResult::Ok ? state->privateRaw(in, out) : call;
}
