// The memory behind a Mif32, for the files that its operations are spread over.
#pragma once

#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <limits>

#include "mif32.h"
#include "mif32_wire.h"

namespace mif32memory {

constexpr unsigned int maxLength = std::numeric_limits<unsigned int>::max();

// The length as far as there is memory for it: SetLen and SetExternalMem take any.
inline unsigned int readableLength(const Mif32& mif) {
    return mif.data == nullptr ? 0 : std::min(mif.length, mif.allocatedLength);
}

// Finds an entry as mif32wire::findEntry does, as far as there is memory.
inline bool findEntry(const Mif32& mif, unsigned short id, unsigned int occurrence,
                      mif32wire::Entry& entry) {
    return mif32wire::findEntry({mif.data, readableLength(mif)}, id, occurrence, entry);
}

// The distance of a place in the message from its start.
inline std::size_t offsetOf(const Mif32& mif, const unsigned char* place) {
    return static_cast<std::size_t>(place - mif.data);
}

// Where `bytes` lie in the buffer; false where they lie elsewhere. Pointers into different blocks
// of memory can't be compared as such.
inline bool findInBuffer(const Mif32& mif, const unsigned char* bytes, std::size_t& offset) {
    offset = reinterpret_cast<std::uintptr_t>(bytes) - reinterpret_cast<std::uintptr_t>(mif.data);
    return mif.data != nullptr && offset < mif.allocatedLength;
}

// Makes room and follows `source`, which moves along where it lies in the buffer itself.
inline bool growUnder(Mif32& mif, unsigned int count, const unsigned char*& source) {
    std::size_t offset = 0;
    const bool inside = findInBuffer(mif, source, offset);
    if (!mif.CheckSize(count)) {
        return false;
    }
    if (inside) {
        source = mif.data + offset;
    }
    return true;
}

} // namespace mif32memory
