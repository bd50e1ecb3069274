// RSA keys in PEM (RFC 7468), as common tools write them: "RSA PRIVATE KEY", "PRIVATE KEY",
// "RSA PUBLIC KEY" and "PUBLIC KEY".
#pragma once

#include <cstddef>

#include "rsa_key_der.h"

namespace qorcrypt {

// The key of a PEM text. It owns the decoded bytes, into which the parts point, and wipes them.
class RsaPem {
public:
    RsaPem() = default;
    ~RsaPem();
    RsaPem(const RsaPem&) = delete;
    RsaPem& operator=(const RsaPem&) = delete;

    // Reads the first block of the first label of the two for private keys, and for public ones.
    // Whatever else stands in the text doesn't matter; it need not end with a zero byte. False
    // where there is no such block, where it is encrypted or damaged, or where memory is short:
    // `parts` is then untouched. A second call ends the first one's parts.
    bool readPrivateKey(const char* text, std::size_t size, RsaKeyParts* parts);
    bool readPublicKey(const char* text, std::size_t size, RsaKeyParts* parts);

    // Whether a block could not be read for want of memory.
    bool lackedMemory() const {
        return lackedMemory_;
    }

private:
    using DerReader = bool (*)(const unsigned char* der, std::size_t size, RsaKeyParts* parts);

    bool readForm(const char* text, std::size_t size, const char* label, DerReader readDer,
                  RsaKeyParts* parts);
    void release();

    unsigned char* der_ = nullptr;
    std::size_t capacity_ = 0;
    bool lackedMemory_ = false;
};

} // namespace qorcrypt
