#include "mif32.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <limits>
#include <new>

#include "internal/qorassert.h"
#include "mif32_memory.h"
#include "mif32_wire.h"
#include "qoros.h"

namespace {

using mif32memory::growUnder;
using mif32memory::readableLength;
using mif32wire::Entry;

constexpr char module[] = "qorutils/src/mif32.cpp";
constexpr unsigned int updateSlackBytes = 10; // kept: GetAllocLen shows it
constexpr std::size_t maxLength = std::numeric_limits<unsigned int>::max();
constexpr std::size_t unreadableTextBytes = 0xFFFF; // with a terminator more than 16 bits can say

inline bool find(const Mif32& mif, unsigned short id, unsigned int occurrence, Entry& entry) {
    return mif32wire::findEntry({mif.data, readableLength(mif)}, id, occurrence, entry);
}

inline std::size_t offsetOf(const Mif32& mif, const unsigned char* place) {
    return static_cast<std::size_t>(place - mif.data);
}

// ---- Updating ----

// Appends an entry, and behind it again the end marker that the message had. The room is made for
// both before anything is written.
void append(Mif32& mif, unsigned short id, const unsigned char* value, unsigned short len) {
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
void appendNumber(Mif32& mif, unsigned short id, Number value) {
    unsigned char bytes[sizeof value];
    mif32wire::store(bytes, value);
    append(mif, id, bytes, sizeof bytes);
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

// ---- Finding and reading ----

bool Mif32::Seek(unsigned short id, unsigned int* valueOffset, unsigned int* valueLen,
                 unsigned int occurrence) const {
    Entry entry;
    if (!find(*this, id, occurrence, entry)) {
        return false;
    }
    if (valueOffset != nullptr) {
        *valueOffset = static_cast<unsigned int>(offsetOf(*this, entry.value));
    }
    if (valueLen != nullptr) {
        *valueLen = static_cast<unsigned int>(entry.valueLength);
    }
    return true;
}

bool Mif32::SearchValue(unsigned short id, unsigned int* valueLen, unsigned int occurrence) const {
    return Seek(id, nullptr, valueLen, occurrence);
}

bool Mif32::GetStr(unsigned short id, char* out, unsigned short outSize,
                   unsigned int occurrence) const {
    Entry entry;
    if (out == nullptr || !find(*this, id, occurrence, entry) || entry.valueLength >= outSize) {
        return false;
    }
    mif32wire::copyValue(reinterpret_cast<unsigned char*>(out), entry.value, entry.valueLength);
    out[entry.valueLength] = '\0';
    return true;
}

bool Mif32::GetStr(unsigned short id, std::string* out, unsigned int occurrence) const {
    Entry entry;
    // Kept: the longest value counts as too long, since its size with terminator is 0 in 16 bits.
    if (!find(*this, id, occurrence, entry) || entry.valueLength == unreadableTextBytes) {
        return false;
    }
    if (out == nullptr) {
        return true;
    }
    const auto* const text = reinterpret_cast<const char*>(entry.value);
    try {
        out->assign(text, strlen_qor(text, entry.valueLength));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool Mif32::GetBinPtr(unsigned short id, unsigned char** outPtr, unsigned int* outLen,
                      unsigned int occurrence) const {
    Entry entry;
    if (outLen == nullptr || !find(*this, id, occurrence, entry)) {
        return false;
    }
    *outLen = static_cast<unsigned int>(entry.valueLength);
    if (outPtr != nullptr) {
        *outPtr = data + offsetOf(*this, entry.value);
    }
    return true;
}

bool Mif32::GetBin(unsigned short id, unsigned char* out, unsigned int* ioLen,
                   unsigned int occurrence) const {
    Entry entry;
    if (ioLen == nullptr || !find(*this, id, occurrence, entry)) {
        return false;
    }
    if (out != nullptr) {
        if (entry.valueLength > *ioLen) {
            return false;
        }
        mif32wire::copyValue(out, entry.value, entry.valueLength);
    }
    *ioLen = static_cast<unsigned int>(entry.valueLength);
    return true;
}

bool Mif32::GetInt(unsigned short id, unsigned int* out, unsigned int occurrence) const {
    Entry entry;
    if (out == nullptr || !find(*this, id, occurrence, entry) ||
        entry.valueLength != sizeof(std::uint32_t)) {
        return false;
    }
    *out = mif32wire::load<std::uint32_t>(entry.value);
    return true;
}

bool Mif32::GetInt(unsigned short id, int* out, unsigned int occurrence) const {
    unsigned int value = 0;
    const bool found = GetInt(id, &value, occurrence);
    if (out != nullptr) {
        *out = static_cast<int>(value); // kept: after a failed lookup too
    }
    return found;
}

bool Mif32::GetBool(unsigned short id, bool* out, unsigned int occurrence) const {
    if (out == nullptr) {
        qorAssertionFailed("oData != NULL", module, __LINE__, __func__);
    }
    unsigned int value = 0;
    if (!GetInt(id, &value, occurrence)) {
        return false;
    }
    *out = value != 0;
    return true;
}

bool Mif32::GetInt64(unsigned short id, unsigned long long* out, unsigned int occurrence) const {
    if (out == nullptr || occurrence == 0) {
        return false;
    }
    *out = 0;
    Entry entry;
    return find(*this, id, occurrence, entry) &&
           mif32wire::loadLongNumber(entry.value, entry.valueLength, *out);
}

// ---- Changing entries ----

bool Mif32::UpdInt(unsigned short id, unsigned int value, unsigned int occurrence) {
    if (occurrence == 0) {
        return false;
    }
    Entry entry;
    if (!find(*this, id, occurrence, entry)) {
        appendNumber(*this, id, value);
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
    if (!find(*this, id, occurrence, entry)) {
        isLong ? appendNumber(*this, id, value) : appendNumber(*this, id, shortValue);
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
    if (!find(*this, id, occurrence, entry)) {
        append(*this, id, value, len);
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
    if (length > allocatedLength || !find(*this, id, 1, entry)) {
        return false;
    }
    const std::size_t entryOffset = offsetOf(*this, entry.value) - mif32wire::headerBytes;
    const std::size_t end = entryOffset + mif32wire::headerBytes + entry.valueLength;
    memmove(data + entryOffset, data + end, length - end);
    length -= static_cast<unsigned int>(end - entryOffset);
    return true;
}
