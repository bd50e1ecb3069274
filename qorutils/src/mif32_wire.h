// The format of a message, known here and nowhere else: entries end to end, each a 16-bit
// identifier, a 16-bit length and the value, all numbers little-endian; the identifier 0xFFFF
// alone marks the end. docs/mif32-format.md describes it for people.
//
// Offsets and lengths are size_t here, so that sums of the 32-bit ones that come from outside do
// not wrap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mif32wire {

constexpr unsigned int idBytes = 2;
constexpr unsigned int headerBytes = 4;
constexpr std::uint16_t endMarkerId = 0xFFFF;

// ---- Numbers ----

// The format's byte order is that of every machine the library is built for; positions in a message
// are not aligned.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

template <typename Number>
Number load(const unsigned char* bytes) {
    Number value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

template <typename Number>
void store(unsigned char* bytes, Number value) {
    memcpy(bytes, &value, sizeof value);
}

// Reads a value that holds a number in 8 bytes or, where it is small enough, in 4; false for any
// other length, and then `value` stays.
inline bool loadLongNumber(const unsigned char* bytes, std::size_t count,
                           unsigned long long& value) {
    if (count == sizeof(std::uint64_t)) {
        value = load<std::uint64_t>(bytes);
    } else if (count == sizeof(std::uint32_t)) {
        value = load<std::uint32_t>(bytes);
    } else {
        return false;
    }
    return true;
}

// ---- Values ----

// Copies between one and two times the size of a Half.
template <typename Half>
inline void copyHalves(unsigned char* to, const unsigned char* from, std::size_t count) {
    Half first;
    Half last;
    memcpy(&first, from, sizeof first);
    memcpy(&last, from + count - sizeof last, sizeof last);
    memcpy(to, &first, sizeof first);
    memcpy(to + count - sizeof last, &last, sizeof last);
}

// Copies a value, which may overlap its destination. Most values are short: both halves of one are
// loaded before either is stored, in a few instructions and without a call.
inline void copyValue(unsigned char* to, const unsigned char* from, std::size_t count) {
    struct Half {
        std::uint64_t low;
        std::uint64_t high;
    };
    if (count < 8 || count > 2 * sizeof(Half)) {
        memmove(to, from, count);
    } else if (count <= sizeof(Half)) {
        copyHalves<std::uint64_t>(to, from, count);
    } else {
        copyHalves<Half>(to, from, count);
    }
}

// ---- Entries ----

inline bool isEndMarkerAt(const unsigned char* message, std::size_t length, std::size_t offset) {
    return offset <= length && length - offset >= idBytes &&
           load<std::uint16_t>(message + offset) == endMarkerId;
}

// Identifier and length in one store.
inline void writeHeader(unsigned char* header, std::uint16_t id, std::uint16_t valueLength) {
    store(header, static_cast<std::uint32_t>(valueLength) << 16 | id);
}

// Follows the entries up to the first position where no header fits, which lies behind the message
// where the last entry is truncated. False on an end marker with at least two bytes behind it.
inline bool skipEntries(const unsigned char* message, std::size_t length, std::size_t& offset) {
    while (offset <= length && length - offset >= headerBytes) {
        if (isEndMarkerAt(message, length, offset)) {
            return false;
        }
        offset += headerBytes + load<std::uint16_t>(message + offset + idBytes);
    }
    return true;
}

// An entry whose value is there as a whole.
struct Entry {
    std::uint16_t id;
    std::size_t valueLength;
    const unsigned char* value;
};

// What is left of a message; nothing of a null one, whatever its length.
struct Rest {
    const unsigned char* begin;
    const unsigned char* end;

    Rest(const unsigned char* message, std::size_t length)
        : begin(message), end(message == nullptr ? nullptr : message + length) {}
    std::size_t size() const {
        return static_cast<std::size_t>(end - begin);
    }
};

// Takes the first entry off. False where none can be read: fewer than `leastBytes` are left, or an
// end marker or a truncated entry comes first.
//
// A walk takes as long as the chain from each length to the next: a load and an addition for an
// entry. That is why it goes by pointers; offsets to a fixed address made it a fifth slower.
template <std::size_t leastBytes = headerBytes>
inline bool takeEntry(Rest& rest, Entry& entry) {
    static_assert(leastBytes >= headerBytes);
    if (rest.size() < leastBytes) {
        return false;
    }
    entry.id = load<std::uint16_t>(rest.begin);
    entry.valueLength = load<std::uint16_t>(rest.begin + idBytes);
    entry.value = rest.begin + headerBytes;
    if (entry.id == endMarkerId || entry.valueLength > rest.size() - headerBytes) {
        return false;
    }
    rest.begin = entry.value + entry.valueLength;
    return true;
}

// Finds the entry that is the `occurrence`-th, from 1, with the identifier; none is the 0th.
template <std::size_t leastBytes = headerBytes>
inline bool findEntry(Rest message, std::uint16_t id, unsigned int occurrence, Entry& entry) {
    while (takeEntry<leastBytes>(message, entry)) {
        if (entry.id == id && --occurrence == 0) {
            return true;
        }
    }
    return false;
}

} // namespace mif32wire
