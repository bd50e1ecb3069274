// The readers of RSA keys over hostile DER and PEM.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "qorcrypt/src/rsa_key_der.h"
#include "qorcrypt/src/rsa_pem.h"
#include "require.h"

namespace {

using qorcrypt::RsaKeyParts;
using Bytes = std::vector<unsigned char>;

// DER has one form for each value: what was read, written again, has to be the input.
Bytes element(unsigned char tag, const Bytes& content) {
    Bytes length;
    for (std::size_t rest = content.size(); rest > 0; rest >>= 8) {
        length.insert(length.begin(), static_cast<unsigned char>(rest));
    }
    Bytes out = {tag};
    if (content.size() < 0x80) {
        length.resize(1);
    } else {
        out.push_back(static_cast<unsigned char>(0x80 | length.size()));
    }
    out.insert(out.end(), length.begin(), length.end());
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

void appendNumber(Bytes& out, const QorRsaNumber& number) {
    require(number.size > 0 && number.bytes[0] != 0);
    Bytes content(number.bytes, number.bytes + number.size);
    if (content[0] >= 0x80) {
        content.insert(content.begin(), 0);
    }
    const Bytes encoded = element(0x02, content);
    out.insert(out.end(), encoded.begin(), encoded.end());
}

Bytes writePkcs1(const RsaKeyParts& key, bool isPrivate) {
    Bytes content;
    if (!isPrivate) {
        appendNumber(content, key.n);
        appendNumber(content, key.e);
        return element(0x30, content);
    }
    content = {0x02, 0x01, 0x00};
    for (const QorRsaNumber& number :
         {key.n, key.e, key.d, key.p, key.q, key.dp, key.dq, key.qinv}) {
        appendNumber(content, number);
    }
    return element(0x30, content);
}

void readDer(const Bytes& der) {
    RsaKeyParts key{};
    if (qorcrypt::readPkcs1PrivateKey(der.data(), der.size(), &key)) {
        require(writePkcs1(key, true) == der);
    }
    if (qorcrypt::readPkcs1PublicKey(der.data(), der.size(), &key)) {
        require(writePkcs1(key, false) == der);
    }
    if (qorcrypt::readPkcs8PrivateKey(der.data(), der.size(), &key)) {
        writePkcs1(key, true);
    }
    if (qorcrypt::readSubjectPublicKey(der.data(), der.size(), &key)) {
        const Bytes inside = writePkcs1(key, false);
        require(memcmp(der.data() + (der.size() - inside.size()), inside.data(), inside.size()) ==
                0);
    }
}

void readPem(const Bytes& text) {
    const auto* characters = reinterpret_cast<const char*>(text.data());
    RsaKeyParts key{};
    qorcrypt::RsaPem pem;
    if (pem.read(characters, text.size(), &key) == QorRsaResult::Ok) {
        writePkcs1(key, key.d.size > 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of the exact size, and never a null pointer for an empty one.
    Bytes in(data, data + size);
    if (in.empty()) {
        in.reserve(1);
    }
    readDer(in);
    readPem(in);
    return 0;
}
