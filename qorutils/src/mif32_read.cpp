// Finding and reading entries.
#include "mif32.h"

#include <cstdint>

#include <new>

#include "internal/qorassert.h"
#include "mif32_memory.h"
#include "mif32_wire.h"
#include "qoros.h"

namespace {

using mif32memory::findEntry;
using mif32memory::offsetOf;
using mif32wire::Entry;

constexpr char module[] = "qorutils/src/mif32.cpp"; // kept: the path that the assertion shows
constexpr std::size_t unreadableTextBytes = 0xFFFF; // with a terminator more than 16 bits can say

} // namespace

bool Mif32::Seek(unsigned short id, unsigned int* valueOffset, unsigned int* valueLen,
                 unsigned int occurrence) const {
    Entry entry;
    if (!findEntry(*this, id, occurrence, entry)) {
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
    if (out == nullptr || !findEntry(*this, id, occurrence, entry) ||
        entry.valueLength >= outSize) {
        return false;
    }
    mif32wire::copyValue(reinterpret_cast<unsigned char*>(out), entry.value, entry.valueLength);
    out[entry.valueLength] = '\0';
    return true;
}

bool Mif32::GetStr(unsigned short id, std::string* out, unsigned int occurrence) const {
    Entry entry;
    // Kept: the longest value counts as too long, since its size with terminator is 0 in 16 bits.
    if (!findEntry(*this, id, occurrence, entry) || entry.valueLength == unreadableTextBytes) {
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
    if (outLen == nullptr || !findEntry(*this, id, occurrence, entry)) {
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
    if (ioLen == nullptr || !findEntry(*this, id, occurrence, entry)) {
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
    if (out == nullptr || !findEntry(*this, id, occurrence, entry) ||
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
    return findEntry(*this, id, occurrence, entry) &&
           mif32wire::loadLongNumber(entry.value, entry.valueLength, *out);
}
