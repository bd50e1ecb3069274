#include "qormif.h"

#include <cstdint>
#include <cstring>

#include <algorithm>

#include "mif32_wire.h"
#include "qoripaddr.h"
#include "qoros.h"

namespace {

using mif32wire::Entry;
using mif32wire::Rest;

// How many bytes have to be left for an entry to be read. Kept: the readers of numbers and
// addresses overlook an empty entry at the very end, the others find it.
constexpr std::size_t moreThanHeader = mif32wire::headerBytes + 1;
constexpr std::size_t header = mif32wire::headerBytes;

bool canBeSearched(const Rest& message, unsigned int occurrence) {
    return message.size() != 0 && occurrence != 0;
}

template <std::size_t leastBytes>
bool find(const Rest& message, unsigned short id, unsigned int occurrence, Entry& entry) {
    return canBeSearched(message, occurrence) &&
           mif32wire::findEntry<leastBytes>(message, id, occurrence, entry);
}

// Reads an address in one of the class's ways; without the entry it becomes what the class makes
// it.
int readAddress(const Rest& message, unsigned short id, unsigned int occurrence, QorIpAddr* out,
                void (QorIpAddr::*makeEmpty)(),
                bool (QorIpAddr::*take)(const unsigned char*, unsigned int)) {
    if (!canBeSearched(message, occurrence)) {
        return 0;
    }
    QorIpAddr ignored;
    QorIpAddr& address = out == nullptr ? ignored : *out;
    Entry entry;
    if (!find<moreThanHeader>(message, id, occurrence, entry)) {
        (address.*makeEmpty)();
        return 0;
    }
    return (address.*take)(entry.value, static_cast<unsigned int>(entry.valueLength));
}

// ---- Ranges ----

struct Range {
    std::uint32_t low;
    std::uint32_t high;
};

template <typename Number>
Range loadRange(const unsigned char* value) {
    return {mif32wire::load<Number>(value), mif32wire::load<Number>(value + sizeof(Number))};
}

// False for a value whose length makes no pair.
bool readRange(const unsigned char* value, std::size_t length, Range& range) {
    switch (length) {
    case 2 * sizeof(std::uint32_t):
        range = loadRange<std::uint32_t>(value);
        return true;
    case 2 * sizeof(std::uint16_t):
        range = loadRange<std::uint16_t>(value);
        return true;
    case 2 * sizeof(std::uint8_t):
        range = loadRange<std::uint8_t>(value);
        return true;
    default:
        return false;
    }
}

// A text that grows in the caller's buffer, whose size is not 0.
struct Output {
    char* end;
    std::size_t room; // with the terminator, so that it never is 0

    // What does not fit is cut. The formatter tells the length of the whole piece.
    void skip(int pieceLength) {
        const std::size_t written = std::min(static_cast<std::size_t>(pieceLength), room - 1);
        end += written;
        room -= written;
    }
};

void printNumbers(Output& out, const Range& range) {
    // Kept: as signed numbers.
    const int low = static_cast<int>(range.low);
    const int high = static_cast<int>(range.high);
    out.skip(low == high ? sprintf_qor(out.end, out.room, "%d", low)
                         : sprintf_qor(out.end, out.room, "%d-%d", low, high));
}

void printAddress(Output& out, const char* separator, std::uint32_t number) {
    out.skip(sprintf_qor(out.end, out.room, "%s%d.%d.%d.%d", separator, number >> 24,
                         number >> 16 & 0xFF, number >> 8 & 0xFF, number & 0xFF));
}

void printAddresses(Output& out, const Range& range) {
    printAddress(out, "", range.low);
    if (range.low != range.high) {
        printAddress(out, "-", range.high);
    }
}

} // namespace

int qormifGetInt(const unsigned char* message, unsigned int length, unsigned short id,
                 unsigned int* out, unsigned int occurrence) {
    Entry entry;
    if (!find<moreThanHeader>({message, length}, id, occurrence, entry) ||
        entry.valueLength != sizeof(std::uint32_t)) {
        return 0;
    }
    if (out != nullptr) {
        *out = mif32wire::load<std::uint32_t>(entry.value);
    }
    return 1;
}

int qormifGetInt64(const unsigned char* message, unsigned int length, unsigned short id,
                   unsigned long long* out, unsigned int occurrence) {
    if (!canBeSearched({message, length}, occurrence)) {
        return 0;
    }
    unsigned long long value = 0;
    Entry entry;
    const bool found = find<moreThanHeader>({message, length}, id, occurrence, entry) &&
                       mif32wire::loadLongNumber(entry.value, entry.valueLength, value);
    if (out != nullptr) {
        *out = value;
    }
    return found;
}

int qormifGetStr(const unsigned char* message, unsigned int length, unsigned short id, char* out,
                 unsigned int outSize, unsigned int occurrence) {
    Entry entry;
    if (!find<header>({message, length}, id, occurrence, entry) || entry.valueLength >= outSize) {
        return 0;
    }
    if (out != nullptr) {
        mif32wire::copyValue(reinterpret_cast<unsigned char*>(out), entry.value, entry.valueLength);
        out[entry.valueLength] = '\0';
    }
    return 1;
}

int qormifGetBinData(const unsigned char* message, unsigned int length, unsigned short id,
                     unsigned char* out, unsigned int* ioLen, unsigned int occurrence) {
    Entry entry;
    if (ioLen == nullptr || !find<header>({message, length}, id, occurrence, entry)) {
        return 0;
    }
    if (entry.valueLength > *ioLen) {
        *ioLen = 0; // kept: the length can't be asked for
        return 0;
    }
    *ioLen = static_cast<unsigned int>(entry.valueLength);
    if (out != nullptr) {
        mif32wire::copyValue(out, entry.value, entry.valueLength);
    }
    return 1;
}

int qormifGetBinDataPtr(const unsigned char* message, unsigned int length, unsigned short id,
                        unsigned char** outPtr, unsigned int* outLen, unsigned int occurrence) {
    Entry entry;
    if (!find<header>({message, length}, id, occurrence, entry)) {
        return 0;
    }
    if (outPtr != nullptr) {
        *outPtr = const_cast<unsigned char*>(entry.value);
    }
    if (outLen != nullptr) {
        *outLen = static_cast<unsigned int>(entry.valueLength);
    }
    return 1;
}

int qormifGetIpAddrV4(const unsigned char* message, unsigned int length, unsigned short id,
                      QorIpAddr* out, unsigned int occurrence) {
    return readAddress({message, length}, id, occurrence, out, &QorIpAddr::SetAnyHostV4,
                       &QorIpAddr::SetIpAddrFromMifV4);
}

int qormifGetIpAddr(const unsigned char* message, unsigned int length, unsigned short id,
                    QorIpAddr* out, unsigned int occurrence) {
    return readAddress({message, length}, id, occurrence, out, &QorIpAddr::Clear,
                       &QorIpAddr::SetIpAddrFromMif);
}

int qormifUpdInt(unsigned char* message, unsigned int length, unsigned short id, unsigned int value,
                 unsigned int occurrence) {
    Entry entry;
    if (!find<header>({message, length}, id, occurrence, entry) ||
        entry.valueLength != sizeof(std::uint32_t)) {
        return 0;
    }
    mif32wire::store(message + (entry.value - message), std::uint32_t{value});
    return 1;
}

int qormifGetRangeValuesAsString(const unsigned char* message, unsigned int length,
                                 unsigned short id, char* out, unsigned int outSize, bool asIpV4) {
    if (message == nullptr || length < mif32wire::headerBytes || out == nullptr || outSize == 0) {
        return 0;
    }
    out[0] = '\0';
    Output output = {out, outSize};
    bool printed = false;
    Rest rest(message, length);
    Entry entry;
    while (mif32wire::takeEntry(rest, entry)) {
        if (entry.id != id) {
            continue;
        }
        // Kept: the separator comes even where the value is no pair.
        if (printed) {
            output.skip(sprintf_qor(output.end, output.room, ", "));
        }
        Range range;
        if (readRange(entry.value, entry.valueLength, range)) {
            const bool addresses = asIpV4 && entry.valueLength == 2 * sizeof(std::uint32_t);
            addresses ? printAddresses(output, range) : printNumbers(output, range);
            printed = true;
        }
    }
    return printed;
}
