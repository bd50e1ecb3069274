// Changing entries.
#include "mif32.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mif32_memory.h"
#include "mif32_wire.h"

namespace {

using mif32memory::findEntry;
using mif32memory::growUnder;
using mif32memory::maxLength;
using mif32memory::offsetOf;
using mif32wire::Entry;

constexpr unsigned int updateSlackBytes = 10; // kept: GetAllocLen shows it

// Appends an entry, and behind it again the end marker that the message had. The room is made for
// both before anything is written.
void addBeforeMarker(Mif32& mif, unsigned short id, const unsigned char* value,
                     unsigned short len) {
    const bool isMarker = id == mif32wire::endMarkerId;
    if (isMarker && len != 0) {
        return; // what Add refuses needs no room
    }
    const unsigned int size = isMarker ? mif32wire::idBytes : mif32wire::headerBytes + len;
    const bool terminated = mif.DelEndKz();
    const unsigned int markerSize = terminated ? mif32wire::idBytes : 0;
    if (!growUnder(mif, size, value) || !growUnder(mif, size + markerSize, value)) {
        mif.length += markerSize; // whose bytes are still there
        return;
    }
    mif.Add(id, value, len);
    if (terminated) {
        mif.AddEndKz();
    }
}

template <typename Number>
void addNumberBeforeMarker(Mif32& mif, unsigned short id, Number value) {
    unsigned char bytes[sizeof value];
    mif32wire::store(bytes, value);
    addBeforeMarker(mif, id, bytes, sizeof bytes);
}

// Writes the message as it will be with another value in one of its entries.
void compose(unsigned char* to, const Mif32& mif, const Entry& entry, const unsigned char* value,
             unsigned short len) {
    const std::size_t valueOffset = offsetOf(mif, entry.value);
    const std::size_t end = valueOffset + entry.valueLength;
    memcpy(to, mif.data, valueOffset);
    unsigned char* const place = to + valueOffset;
    mif32wire::writeHeader(place - mif32wire::headerBytes, entry.id, len);
    memcpy(place, value, len);
    memcpy(place + len, mif.data + end, mif.length - end);
}

// The new message takes shape in memory of its own, so that the value may come from the old one.
bool replaceValue(Mif32& mif, const Entry& entry, const unsigned char* value, unsigned short len) {
    const bool external = mif.externalMemory != 0;
    const std::size_t newLength = mif.length - entry.valueLength + len;
    const std::size_t size = newLength + (external ? 0 : updateSlackBytes);
    if (mif.length > mif.allocatedLength || size > (external ? mif.allocatedLength : maxLength)) {
        return false;
    }
    auto* const message = static_cast<unsigned char*>(malloc(size));
    if (message == nullptr) {
        return false;
    }
    compose(message, mif, entry, value, len);
    if (external) {
        memcpy(mif.data, message, newLength);
        free(message);
    } else {
        free(mif.data);
        mif.data = message;
        mif.allocatedLength = static_cast<unsigned int>(size);
    }
    mif.length = static_cast<unsigned int>(newLength);
    return true;
}

// Overwrites a value of the number's size; one of another size is replaced.
template <typename Number>
bool updateNumber(Mif32& mif, const Entry& entry, Number value) {
    if (entry.valueLength == sizeof value) {
        mif32wire::store(mif.data + offsetOf(mif, entry.value), value);
        return true;
    }
    unsigned char bytes[sizeof value];
    mif32wire::store(bytes, value);
    // Kept: the first occurrence is replaced, whichever was asked for.
    return mif.UpdBin(entry.id, bytes, sizeof bytes, 1);
}

} // namespace

bool Mif32::UpdInt(unsigned short id, unsigned int value, unsigned int occurrence) {
    if (occurrence == 0) {
        return false;
    }
    Entry entry;
    if (!findEntry(*this, id, occurrence, entry)) {
        addNumberBeforeMarker(*this, id, value);
        return false;
    }
    // Kept: the value's length is not examined, so that what follows a shorter one is overwritten.
    const std::size_t valueOffset = offsetOf(*this, entry.value);
    if (allocatedLength - valueOffset < sizeof value) {
        return false;
    }
    mif32wire::store(data + valueOffset, value);
    return true;
}

bool Mif32::UpdInt64(unsigned short id, unsigned long long value, unsigned int occurrence) {
    if (occurrence == 0) {
        return false;
    }
    const bool isLong = value > 0xFFFFFFFF;
    const auto shortValue = static_cast<std::uint32_t>(value);
    Entry entry;
    if (!findEntry(*this, id, occurrence, entry)) {
        isLong ? addNumberBeforeMarker(*this, id, value)
               : addNumberBeforeMarker(*this, id, shortValue);
        return false;
    }
    return isLong ? updateNumber(*this, entry, value) : updateNumber(*this, entry, shortValue);
}

bool Mif32::UpdBin(unsigned short id, const unsigned char* value, unsigned short len,
                   unsigned int occurrence) {
    if (value == nullptr || occurrence == 0) {
        return false;
    }
    Entry entry;
    if (!findEntry(*this, id, occurrence, entry)) {
        addBeforeMarker(*this, id, value, len);
        return false;
    }
    return replaceValue(*this, entry, value, len);
}

bool Mif32::UpdStr(unsigned short id, const char* value, unsigned int occurrence) {
    // Kept: only the low 16 bits of the length count.
    return value != nullptr && UpdBin(id, reinterpret_cast<const unsigned char*>(value),
                                      static_cast<unsigned short>(strlen(value)), occurrence);
}

bool Mif32::DelOid(unsigned short id) {
    Entry entry;
    if (length > allocatedLength || !findEntry(*this, id, 1, entry)) {
        return false;
    }
    const std::size_t entryOffset = offsetOf(*this, entry.value) - mif32wire::headerBytes;
    const std::size_t end = entryOffset + mif32wire::headerBytes + entry.valueLength;
    memmove(data + entryOffset, data + end, length - end);
    length -= static_cast<unsigned int>(end - entryOffset);
    return true;
}
