#include "rsa_pem.h"

#include <cstddef>
#include <cstring>

#include <algorithm>

#include "constant_time.h"

namespace qorcrypt {

namespace {

// A piece of the text.
struct Text {
    const char* begin;
    const char* end;
};

bool beginsWith(Text text, Text start) {
    const std::ptrdiff_t size = start.end - start.begin;
    return text.end - text.begin >= size && std::equal(start.begin, start.end, text.begin);
}

Text textOf(const char* string) {
    return {string, string + strlen(string)};
}

const char* lineEnd(Text text) {
    return std::find(text.begin, text.end, '\n');
}

bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

// Whether the text begins with "-----BEGIN LABEL-----" or its END, on a line of its own.
bool isBoundary(Text text, const char* keyword, const char* label) {
    for (const char* part : {"-----", keyword, label, "-----"}) {
        const Text expected = textOf(part);
        if (!beginsWith(text, expected)) {
            return false;
        }
        text.begin += expected.end - expected.begin;
    }
    return std::all_of(text.begin, lineEnd(text), isBlank);
}

// A label, and what its blocks hold.
struct Form {
    const char* label;
    bool (*readDer)(const unsigned char* der, std::size_t size, RsaKeyParts* parts);
};
constexpr Form privateForms[] = {{"RSA PRIVATE KEY", readPkcs1PrivateKey},
                                 {"PRIVATE KEY", readPkcs8PrivateKey}};
constexpr Form publicForms[] = {{"RSA PUBLIC KEY", readPkcs1PublicKey},
                                {"PUBLIC KEY", readSubjectPublicKey}};

// Finds the first boundary of any of the forms; moves the text there, or to its end.
const Form* findBoundary(Text& text, const char* keyword, const Form* forms, std::size_t count) {
    while (text.begin != text.end) {
        for (const Form* form = forms; form != forms + count; ++form) {
            if (isBoundary(text, keyword, form->label)) {
                return form;
            }
        }
        text.begin = std::min(lineEnd(text), text.end - 1) + 1;
    }
    return nullptr;
}

// The first block of either form, which is empty where its end is missing.
const Form* findBlock(Text text, const Form (&forms)[2], Text* block) {
    const Form* const form = findBoundary(text, "BEGIN ", forms, 2);
    if (form != nullptr) {
        text.begin = lineEnd(text);
        const char* const begin = text.begin;
        const bool ends = findBoundary(text, "END ", form, 1) != nullptr;
        *block = {begin, ends ? text.begin : begin};
    }
    return form;
}

constexpr std::size_t noDigit = 0xFF;

// The value of a Base64 digit, by arithmetic only: a table would leave traces of the key in the
// caches. What is no digit gives noDigit.
std::size_t digitValue(char character) {
    struct Range {
        unsigned char first, last, value;
    };
    constexpr Range ranges[] = {
        {'A', 'Z', 0}, {'a', 'z', 26}, {'0', '9', 52}, {'+', '+', 62}, {'/', '/', 63}};
    const std::size_t code = static_cast<unsigned char>(character);
    std::size_t value = noDigit;
    for (const Range& range : ranges) {
        const std::size_t inside = ~maskIfLess(code, range.first) & ~maskIfLess(range.last, code);
        value = choose(inside, code - range.first + range.value, value);
    }
    return value;
}

// Decodes a block into `out`, which has room for three bytes for four characters. False for
// anything but whole groups with blanks anywhere, the headers of encrypted blocks among it.
bool decodeBlock(Text block, unsigned char* out, std::size_t* size) {
    std::size_t bits = 0;
    std::size_t digits = 0;
    std::size_t pads = 0;
    const unsigned char* const start = out;
    for (const char* next = block.begin; next != block.end; ++next) {
        if (isBlank(*next)) {
            continue;
        }
        const bool isPad = *next == '=';
        const std::size_t value = isPad ? 0 : digitValue(*next);
        if (value == noDigit || (!isPad && pads != 0)) {
            return false;
        }
        pads += isPad ? 1 : 0;
        bits = bits << 6 | value;
        if (++digits % 4 == 0) {
            for (int shift = 16; shift >= 0; shift -= 8) {
                *out++ = static_cast<unsigned char>(bits >> shift);
            }
        }
    }
    if (digits == 0 || digits % 4 != 0 || pads > 2) {
        return false;
    }
    // The bits under the padding have to be zero (RFC 4648, section 3.5).
    const std::size_t unused = (std::size_t{1} << (8 * pads)) - 1;
    if ((bits & unused) != 0) {
        return false;
    }
    *size = static_cast<std::size_t>(out - start) - pads;
    return true;
}

} // namespace

QorRsaResult RsaPem::read(const char* text, std::size_t size, RsaKeyParts* parts) {
    const Text whole{text, text + size};
    Text block{};
    const Form* form = findBlock(whole, privateForms, &block);
    if (form == nullptr) {
        form = findBlock(whole, publicForms, &block);
    }
    if (form == nullptr) {
        return QorRsaResult::BadEncoding;
    }
    const std::size_t capacity = static_cast<std::size_t>(block.end - block.begin) / 4 * 3;
    if (capacity == 0) {
        return QorRsaResult::BadEncoding;
    }
    if (!der.allocate(capacity)) {
        return QorRsaResult::NoMemory;
    }
    std::size_t derSize = 0;
    return decodeBlock(block, der.bytes(), &derSize) && form->readDer(der.bytes(), derSize, parts)
               ? QorRsaResult::Ok
               : QorRsaResult::BadEncoding;
}

} // namespace qorcrypt
