#include "rsa_key_der.h"

#include <cstring>

#include <initializer_list>

namespace qorcrypt {

namespace {

enum Tag : unsigned char {
    integerTag = 0x02,
    bitStringTag = 0x03,
    octetStringTag = 0x04,
    sequenceTag = 0x30,
    attributesTag = 0xA0 // [0] IMPLICIT SET OF, at the end of a PrivateKeyInfo
};

// SEQUENCE { OID rsaEncryption, NULL } (RFC 8017, appendix A.1), whole.
constexpr unsigned char rsaEncryption[] = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86,
                                           0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00};

// What is left to read of a piece of DER. Every read moves on, or fails and leaves it anywhere.
class Reader {
public:
    Reader(const unsigned char* bytes, std::size_t size) : next_(bytes), left_(size) {}

    bool atEnd() const {
        return left_ == 0;
    }
    const unsigned char* bytes() const {
        return next_;
    }
    std::size_t size() const {
        return left_;
    }

    // Takes one element with the tag; `content` may be this reader.
    bool take(Tag tag, Reader* content) {
        std::size_t size = 0;
        if (left_ < 2 || *next_ != tag) {
            return false;
        }
        skip(1);
        if (!takeLength(&size) || size > left_) {
            return false;
        }
        const Reader inside(next_, size);
        skip(size);
        *content = inside;
        return true;
    }

    // Takes an element that is the only one.
    bool takeOnly(Tag tag, Reader* content) {
        Reader inside(nullptr, 0);
        if (!take(tag, &inside) || !atEnd()) {
            return false;
        }
        *content = inside;
        return true;
    }

    bool takeBytes(const unsigned char* expected, std::size_t size) {
        if (left_ < size || memcmp(next_, expected, size) != 0) {
            return false;
        }
        skip(size);
        return true;
    }

    // INTEGER 0, as all versions here have it.
    bool takeVersionZero() {
        constexpr unsigned char zero[] = {integerTag, 1, 0};
        return takeBytes(zero, sizeof zero);
    }

    // A positive INTEGER in its shortest form.
    bool takeNumber(QorRsaNumber* number) {
        Reader content(nullptr, 0);
        if (!take(integerTag, &content) || content.atEnd()) {
            return false;
        }
        constexpr unsigned char signBit = 0x80;
        if (*content.next_ == 0) {
            // In front of a sign bit only; so that zero itself fails too.
            if (content.left_ < 2 || (content.next_[1] & signBit) == 0) {
                return false;
            }
            content.skip(1);
        } else if ((*content.next_ & signBit) != 0) {
            return false;
        }
        *number = {content.next_, content.left_};
        return true;
    }

private:
    void skip(std::size_t count) {
        next_ += count;
        left_ -= count;
    }

    // Lengths below 128 have one byte, longer ones as few as they need, behind their number.
    bool takeLength(std::size_t* length) {
        constexpr unsigned char longForm = 0x80;
        const unsigned char first = *next_;
        skip(1);
        if (first < longForm) {
            *length = first;
            return true;
        }
        const std::size_t count = first - longForm;
        if (count == 0 || count > sizeof *length || count > left_ || *next_ == 0) {
            return false;
        }
        std::size_t value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            value = value << 8 | next_[i];
        }
        skip(count);
        *length = value;
        return value >= longForm;
    }

    const unsigned char* next_;
    std::size_t left_;
};

bool takePrivateNumbers(Reader& key, RsaKeyParts& parts) {
    for (QorRsaNumber* number :
         {&parts.n, &parts.e, &parts.d, &parts.p, &parts.q, &parts.dp, &parts.dq, &parts.qinv}) {
        if (!key.takeNumber(number)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool readPkcs1PrivateKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    Reader key(der, size);
    RsaKeyParts found{};
    // A version of 1 announces more than two primes.
    if (!key.takeOnly(sequenceTag, &key) || !key.takeVersionZero() ||
        !takePrivateNumbers(key, found) || !key.atEnd()) {
        return false;
    }
    *parts = found;
    return true;
}

bool readPkcs1PublicKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    Reader key(der, size);
    RsaKeyParts found{};
    if (!key.takeOnly(sequenceTag, &key) || !key.takeNumber(&found.n) ||
        !key.takeNumber(&found.e) || !key.atEnd()) {
        return false;
    }
    *parts = found;
    return true;
}

bool readPkcs8PrivateKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    Reader info(der, size);
    Reader key(nullptr, 0);
    if (!info.takeOnly(sequenceTag, &info) || !info.takeVersionZero() ||
        !info.takeBytes(rsaEncryption, sizeof rsaEncryption) || !info.take(octetStringTag, &key)) {
        return false;
    }
    Reader attributes(nullptr, 0);
    if (!info.atEnd() && !info.takeOnly(attributesTag, &attributes)) {
        return false;
    }
    return readPkcs1PrivateKey(key.bytes(), key.size(), parts);
}

bool readSubjectPublicKey(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    constexpr unsigned char noUnusedBits[] = {0};
    Reader info(der, size);
    Reader key(nullptr, 0);
    return info.takeOnly(sequenceTag, &info) &&
           info.takeBytes(rsaEncryption, sizeof rsaEncryption) &&
           info.takeOnly(bitStringTag, &key) && key.takeBytes(noUnusedBits, sizeof noUnusedBits) &&
           readPkcs1PublicKey(key.bytes(), key.size(), parts);
}

bool readPrivateKeyDer(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    return readPkcs1PrivateKey(der, size, parts) || readPkcs8PrivateKey(der, size, parts);
}

bool readPublicKeyDer(const unsigned char* der, std::size_t size, RsaKeyParts* parts) {
    return readPkcs1PublicKey(der, size, parts) || readSubjectPublicKey(der, size, parts);
}

} // namespace qorcrypt
