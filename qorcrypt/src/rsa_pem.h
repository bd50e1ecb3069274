// RSA keys in PEM (RFC 7468), as common tools write them: "RSA PRIVATE KEY", "PRIVATE KEY",
// "RSA PUBLIC KEY" and "PUBLIC KEY".
#pragma once

#include <cstddef>

#include "limb_buffer.h"
#include "rsa_key_der.h"

namespace qorcrypt {

// The key of a PEM text. It owns the decoded bytes, into which the parts point, and wipes them.
class RsaPem {
public:
    // Reads the first private key of the text, or where there is none the first public one.
    // Whatever else stands in the text doesn't matter; it need not end with a zero byte.
    // BadEncoding where there is no key, or that one is encrypted or damaged; NoMemory. `parts` is
    // then untouched. A second call ends the first one's parts.
    QorRsaResult read(const char* text, std::size_t size, RsaKeyParts* parts);

private:
    Block der;
};

} // namespace qorcrypt
