// Big numbers: memory, text and bytes.
#include "qorcrypto_bignum.h"

#include <cstring>
#include <utility>

#include "limb_buffer.h"

using namespace qorcrypt;

namespace {

// Results may be this large before their leading zeros are dropped.
constexpr std::size_t maxLimbs = 2 * limbsForBits(QorBigNum::MaxBits) + 1;

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

} // namespace

QorBigNum::QorBigNum() noexcept : limbs(nullptr), count(0), capacity(0), negative(false) {}

QorBigNum::~QorBigNum() {
    Clear();
}

QorBigNum::QorBigNum(QorBigNum&& other) noexcept : QorBigNum() {
    *this = std::move(other);
}

QorBigNum& QorBigNum::operator=(QorBigNum&& other) noexcept {
    std::swap(limbs, other.limbs);
    std::swap(count, other.count);
    std::swap(capacity, other.capacity);
    std::swap(negative, other.negative);
    if (this != &other) {
        other.Clear();
    }
    return *this;
}

bool QorBigNum::allocate(std::size_t limbCount) {
    if (limbCount > maxLimbs) {
        return false;
    }
    if (limbCount > 0) {
        limbs = allocateLimbs(limbCount);
        if (limbs == nullptr) {
            return false;
        }
    }
    count = limbCount;
    capacity = limbCount;
    return true;
}

void QorBigNum::trim() {
    while (count > 0 && limbs[count - 1] == 0) {
        count--;
    }
    negative = negative && count > 0;
}

bool QorBigNum::take(QorBigNum& result) {
    result.trim();
    if (result.BitLength() > MaxBits) {
        return false;
    }
    *this = std::move(result);
    return true;
}

bool QorBigNum::CopyFrom(const QorBigNum& other) {
    QorBigNum result;
    if (!result.allocate(other.count)) {
        return false;
    }
    if (other.count > 0) {
        std::memcpy(result.limbs, other.limbs, other.count * limbBytes);
    }
    result.negative = other.negative;
    return take(result);
}

bool QorBigNum::SetWord(std::uint64_t value) {
    QorBigNum result;
    if (!result.allocate(sizeof value / limbBytes)) {
        return false;
    }
    std::size_t shift = 0;
    for (std::size_t i = 0; i < result.count; i++, shift += limbBits) {
        result.limbs[i] = static_cast<Limb>(value >> shift);
    }
    return take(result);
}

bool QorBigNum::SetBytes(const unsigned char* bytes, std::size_t size) {
    if (bytes == nullptr && size > 0) {
        return false;
    }
    while (size > 0 && *bytes == 0) {
        bytes++;
        size--;
    }
    QorBigNum result;
    if (size > MaxBits / 8 || !result.allocate(limbsForBytes(size))) {
        return false;
    }
    return limbsFromBytes(result.limbs, result.count, bytes, size) && take(result);
}

bool QorBigNum::SetHex(const char* text) {
    if (text == nullptr) {
        return false;
    }
    const bool minus = *text == '-';
    const char* digits = minus ? text + 1 : text;
    while (digits[0] == '0' && digits[1] != 0) {
        digits++;
    }
    const std::size_t length = strnlen(digits, MaxBits / 4 + 1);
    QorBigNum result;
    // A text without digits needs no limbs.
    if (length > MaxBits / 4 || !result.allocate(limbsForBits(length * 4)) ||
        result.limbs == nullptr) {
        return false;
    }
    for (std::size_t i = 0; i < length; i++) {
        const int value = hexValue(digits[length - 1 - i]);
        if (value < 0) {
            return false;
        }
        result.limbs[i * 4 / limbBits] |= static_cast<Limb>(value) << (i * 4 % limbBits);
    }
    result.negative = minus;
    return take(result);
}

void QorBigNum::Clear() {
    if (limbs != nullptr) {
        qorWipe(limbs, capacity * limbBytes);
        freeLimbs(limbs);
    }
    limbs = nullptr;
    count = 0;
    capacity = 0;
    negative = false;
}

bool QorBigNum::GetBytes(unsigned char* out, std::size_t size) const {
    if (ByteLength() > size || (out == nullptr && size > 0)) {
        return false;
    }
    bytesFromLimbs(out, size, limbs, count);
    return true;
}

std::size_t QorBigNum::HexSize() const {
    const std::size_t digits = IsZero() ? 1 : (BitLength() + 3) / 4;
    return digits + 1 + (negative ? 1 : 0);
}

bool QorBigNum::GetHex(char* out, std::size_t size) const {
    if (out == nullptr || size < HexSize()) {
        return false;
    }
    char* end = out + HexSize() - 1;
    *end = 0;
    if (negative) {
        *out++ = '-';
    }
    for (std::size_t bit = 0; end > out; bit += 4) {
        const Limb limb = count > 0 ? limbs[bit / limbBits] : 0;
        *--end = "0123456789abcdef"[limb >> (bit % limbBits) & 15];
    }
    return true;
}

std::size_t QorBigNum::BitLength() const {
    return bitLength(limbs, count);
}

std::size_t QorBigNum::ByteLength() const {
    return (BitLength() + 7) / 8;
}

bool QorBigNum::IsZero() const {
    return count == 0;
}

bool QorBigNum::IsOdd() const {
    return count > 0 && (limbs[0] & 1) != 0;
}

bool QorBigNum::IsNegative() const {
    return negative;
}
