// RSA keys in DER (X.690): RSAPrivateKey and RSAPublicKey of RFC 8017, appendix A.1, bare or
// wrapped in PrivateKeyInfo (RFC 5208) and SubjectPublicKeyInfo (RFC 5280) with the rsaEncryption
// OID.
//
// Only DER is taken: shortest lengths and integers, no byte behind the key, version 0 (two primes).
// No arithmetic is done: whether the numbers make a key is for the reader of the parts to find out.
#pragma once

#include <cstddef>

#include "qorcrypto_rsa.h"

namespace qorcrypt {

// The numbers point into the input and are positive, without leading zero bytes. A public key has n
// and e only: the others are null and of size 0.
using RsaKeyParts = QorRsaPrivateNumbers;

// Each reads one form. False, and `parts` untouched, where the input is anything else.
bool readPkcs1PrivateKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts);
bool readPkcs1PublicKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts);
bool readPkcs8PrivateKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts);
bool readSubjectPublicKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts);

// Either of the two forms of a private key, and of a public one.
bool readPrivateKeyDer(const unsigned char* der, std::size_t size, RsaKeyParts* parts);
bool readPublicKeyDer(const unsigned char* der, std::size_t size, RsaKeyParts* parts);

} // namespace qorcrypt
