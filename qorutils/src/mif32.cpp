// Memory, adding entries, the end marker. Reading and changing entries have files of their own.
#include "mif32.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <type_traits>

#include "ip_sizes.h"
#include "mif32_memory.h"
#include "mif32_wire.h"
#include "qoripaddr.h"
#include "secret.h"

namespace {

using mif32memory::findInBuffer;
using mif32memory::growUnder;
using mif32memory::maxLength;
using mif32memory::readableLength;

constexpr unsigned int growthSlackBytes = 1000; // kept: GetAllocLen shows it
constexpr unsigned int maxPrintedBytes = 0xFFFF;

static_assert(std::is_standard_layout_v<Mif32>);
static_assert(offsetof(Mif32, data) == 0 && offsetof(Mif32, length) == sizeof(void*) &&
              offsetof(Mif32, allocatedLength) == sizeof(void*) + 4 &&
              offsetof(Mif32, allocationFailed) == sizeof(void*) + 8 &&
              offsetof(Mif32, externalMemory) == sizeof(void*) + 9);
static_assert(sizeof(void*) != 8 || sizeof(Mif32) == 24);

unsigned char* allocate(unsigned int size) {
    return static_cast<unsigned char*>(malloc(std::max(size, 1U)));
}

// No buffer means no room, whatever the length fields say: a failed SetData leaves them.
inline bool hasRoom(const Mif32& mif, unsigned int extra) {
    return mif.data != nullptr && mif.length <= mif.allocatedLength &&
           extra <= mif.allocatedLength - mif.length;
}

void freeOwned(Mif32& mif) {
    if (mif.externalMemory == 0) {
        free(mif.data);
    }
    mif.data = nullptr;
}

void reset(Mif32& mif) {
    mif.data = nullptr;
    mif.length = 0;
    mif.allocatedLength = 0;
    mif.allocationFailed = 0;
    mif.externalMemory = 0;
}

// Takes over another object's fields as they are; what `mif` held before must have been freed.
// Kept: external memory is shared by this, and the allocation-failed flag comes along.
void copyFields(Mif32& mif, const Mif32& other) {
    mif.data = other.data;
    mif.length = other.length;
    mif.allocatedLength = other.allocatedLength;
    mif.allocationFailed = other.allocationFailed;
    mif.externalMemory = other.externalMemory;
}

// Lengthens the message, which has the room, and returns where the new bytes go.
inline unsigned char* extend(Mif32& mif, unsigned int count) {
    unsigned char* const end = mif.data + mif.length;
    mif.length += count;
    return end;
}

template <typename Number>
inline bool appendNumber(Mif32& mif, Number value) {
    if (!mif.CheckSize(sizeof value)) {
        return false;
    }
    mif32wire::store(extend(mif, sizeof value), value);
    return true;
}

// An entry under the end marker's identifier: without a value it is the marker.
[[gnu::noinline]] bool addEndMarker(Mif32& mif, unsigned short valueLength) {
    return valueLength == 0 && appendNumber(mif, mif32wire::endMarkerId);
}

// The adders proper come in pairs: the first, which is nearly always enough, is left to itself by
// the compiler as long as the second, which grows the buffer and starts over, is not inlined.

template <typename Number>
bool growAndAddNumber(Mif32& mif, unsigned short id, Number value);

template <typename Number>
inline bool addNumber(Mif32& mif, unsigned short id, Number value) {
    constexpr unsigned int size = mif32wire::headerBytes + sizeof value;
    if (id == mif32wire::endMarkerId) {
        return false;
    }
    if (!hasRoom(mif, size)) {
        return growAndAddNumber(mif, id, value);
    }
    unsigned char* const header = extend(mif, size);
    mif32wire::writeHeader(header, id, sizeof value);
    mif32wire::store(header + mif32wire::headerBytes, value);
    return true;
}

template <typename Number>
[[gnu::noinline]] bool growAndAddNumber(Mif32& mif, unsigned short id, Number value) {
    return mif.CheckSize(mif32wire::headerBytes + sizeof value) && addNumber(mif, id, value);
}

bool growAndAddBytes(Mif32& mif, unsigned short id, const unsigned char* value, unsigned short len);

inline bool addBytes(Mif32& mif, unsigned short id, const unsigned char* value,
                     unsigned short len) {
    const unsigned int size = mif32wire::headerBytes + len;
    if (id == mif32wire::endMarkerId) {
        return addEndMarker(mif, len);
    }
    if (value == nullptr && len != 0) {
        return false;
    }
    if (!hasRoom(mif, size)) {
        return growAndAddBytes(mif, id, value, len);
    }
    unsigned char* const header = extend(mif, size);
    // First the value, which may hold an end marker that was taken off and lies under the header.
    if (len != 0) {
        mif32wire::copyValue(header + mif32wire::headerBytes, value, len);
    }
    mif32wire::writeHeader(header, id, len);
    return true;
}

[[gnu::noinline]] bool growAndAddBytes(Mif32& mif, unsigned short id, const unsigned char* value,
                                       unsigned short len) {
    return growUnder(mif, mif32wire::headerBytes + len, value) && addBytes(mif, id, value, len);
}

} // namespace

// ---- Memory ----

Mif32::Mif32() {
    reset(*this);
}

Mif32::Mif32(const unsigned char* bytes, unsigned int len) : Mif32() {
    SetData(bytes, len);
}

Mif32::Mif32(const Mif32& other) : Mif32() {
    *this = other;
}

Mif32::~Mif32() {
    ClearBuffer();
    freeOwned(*this);
}

Mif32& Mif32::operator=(const Mif32& other) {
    if (this == &other) {
        return *this;
    }
    freeOwned(*this);
    copyFields(*this, other);
    if (data == nullptr || externalMemory != 0) {
        return *this;
    }
    data = allocate(allocatedLength);
    if (data == nullptr) {
        reset(*this);
        allocationFailed = 1;
    } else {
        memcpy(data, other.data, readableLength(other));
    }
    return *this;
}

bool Mif32::SetData(const unsigned char* bytes, unsigned int len) {
    if (bytes != nullptr && bytes == data) {
        return true; // kept: whatever the length
    }
    if (bytes == nullptr || len == 0) {
        freeOwned(*this);
        reset(*this);
        return true;
    }
    // Copied before the old buffer goes, since the bytes may lie in it.
    unsigned char* const copy = allocate(len);
    if (copy != nullptr) {
        memcpy(copy, bytes, len);
        length = allocatedLength = len; // kept: the allocation-failed flag outlives the success
    } else {
        allocationFailed = 1;
    }
    freeOwned(*this);
    data = copy;
    externalMemory = 0;
    return data != nullptr;
}

bool Mif32::SetData(const char* bytes, unsigned int len) {
    return SetData(reinterpret_cast<const unsigned char*>(bytes), len);
}

bool Mif32::Alloc(unsigned short size) {
    if (externalMemory != 0) {
        return false;
    }
    freeOwned(*this);
    data = allocate(size);
    allocatedLength = data == nullptr ? 0 : size;
    length = 0;
    return data != nullptr;
}

bool Mif32::CheckSize(unsigned int extra) {
    // Where nothing is to be written there need not be a buffer.
    if (hasRoom(*this, extra) || (extra == 0 && length <= allocatedLength)) {
        return true;
    }
    if (externalMemory != 0) {
        return false;
    }
    const std::uint64_t size = std::uint64_t{length} + extra + growthSlackBytes;
    void* const grown = size > maxLength ? nullptr : realloc(data, size);
    if (grown == nullptr) {
        allocationFailed = 1;
        return false;
    }
    const unsigned int readable = readableLength(*this);
    data = static_cast<unsigned char*>(grown);
    allocatedLength = static_cast<unsigned int>(size);
    // A length that was set beyond the old memory must not show what the heap held before.
    memset(data + readable, 0, length - readable);
    return true;
}

bool Mif32::SetExternalMem(unsigned char* buf, unsigned int allocLen, unsigned int usedLen) {
    std::size_t offset = 0;
    const bool wouldBeFreed = externalMemory == 0 && findInBuffer(*this, buf, offset);
    if (buf == nullptr || allocLen == 0 || wouldBeFreed) {
        return false;
    }
    freeOwned(*this);
    data = buf;
    length = usedLen;
    allocatedLength = allocLen;
    allocationFailed = 0;
    externalMemory = 1;
    return true;
}

bool Mif32::IsExternalMem(unsigned int* freeBytes) const {
    if (externalMemory == 0) {
        return false;
    }
    if (freeBytes != nullptr) {
        *freeBytes = allocatedLength - readableLength(*this);
    }
    return true;
}

void Mif32::ClearBuffer() {
    if (externalMemory != 0) {
        reset(*this);
        return;
    }
    length = 0;
    if (data != nullptr) {
        secret::wipe(data, allocatedLength); // messages hold passwords
    }
}

// ---- Adding entries ----

bool Mif32::Add(unsigned short id, const unsigned char* value, unsigned short len) {
    return addBytes(*this, id, value, len);
}

bool Mif32::AddBool(unsigned short id, bool value) {
    return addNumber(*this, id, std::uint32_t{value});
}

bool Mif32::AddInt(unsigned short id, unsigned int value) {
    return addNumber(*this, id, std::uint32_t{value});
}

bool Mif32::AddInt64(unsigned short id, unsigned long long value) {
    // Kept: the entry's size follows the value, and readers accept either.
    if (value > 0xFFFFFFFF) {
        return addNumber(*this, id, std::uint64_t{value});
    }
    return addNumber(*this, id, static_cast<std::uint32_t>(value));
}

bool Mif32::AddTime(unsigned short id, long value) {
    return addNumber(*this, id, static_cast<std::uint32_t>(value));
}

bool Mif32::AddStr(unsigned short id, const char* value) {
    // Kept: only the low 16 bits of the length count, here and in AddBin.
    return value != nullptr && addBytes(*this, id, reinterpret_cast<const unsigned char*>(value),
                                        static_cast<unsigned short>(strlen(value)));
}

bool Mif32::AddStr(unsigned short id, const std::string& value) {
    return AddStr(id, value.c_str());
}

bool Mif32::AddBin(unsigned short id, const unsigned char* value, unsigned int len) {
    return value != nullptr && addBytes(*this, id, value, static_cast<unsigned short>(len));
}

bool Mif32::AddIpAddrV4(unsigned short id, const QorIpAddr* value) {
    return value != nullptr && AddInt(id, value->GetIpV4Addr());
}

bool Mif32::AddIpAddr(unsigned short id, const QorIpAddr* value) {
    if (value == nullptr) {
        return false;
    }
    switch (value->length) {
    case ipV6Bytes:
        return Add(id, value->address, ipV6Bytes);
    case ipV4Bytes:
        return AddIpAddrV4(id, value);
    default:
        return Add(id, nullptr, 0);
    }
}

// ---- Appending raw bytes ----

bool Mif32::RawAddByte(unsigned char value) {
    return appendNumber(*this, std::uint8_t{value});
}

bool Mif32::RawAddWord(unsigned short value) {
    return appendNumber(*this, std::uint16_t{value});
}

bool Mif32::RawAddDWord(unsigned int value) {
    return appendNumber(*this, std::uint32_t{value});
}

bool Mif32::RawAddLDWord(unsigned long long value) {
    return appendNumber(*this, std::uint64_t{value});
}

bool Mif32::RawAddBin(const unsigned char* value, unsigned int len) {
    if (value == nullptr) {
        return false;
    }
    if (!hasRoom(*this, len) && !growUnder(*this, len, value)) {
        return false;
    }
    if (len != 0) {
        memmove(extend(*this, len), value, len);
    }
    return true;
}

bool Mif32::RawAddStr(const char* value) {
    const std::size_t count = value == nullptr ? 0 : strlen(value);
    return count <= maxLength && RawAddBin(reinterpret_cast<const unsigned char*>(value),
                                           static_cast<unsigned int>(count));
}

// ---- End marker ----

bool Mif32::AddEndKz() {
    if (data == nullptr) {
        return addEndMarker(*this, 0);
    }
    std::size_t offset = 0;
    if (length > allocatedLength || !mif32wire::skipEntries(data, length, offset)) {
        return false;
    }
    // Kept: a single byte behind the marker does not count as data behind it.
    return mif32wire::isEndMarkerAt(data, length, offset) || addEndMarker(*this, 0);
}

bool Mif32::DelEndKz() {
    std::size_t offset = 0;
    if (readableLength(*this) != length || !mif32wire::skipEntries(data, length, offset) ||
        offset + mif32wire::idBytes != length || !mif32wire::isEndMarkerAt(data, length, offset)) {
        return false;
    }
    length -= mif32wire::idBytes;
    return true;
}

// ---- Access ----

unsigned char* Mif32::GetData() {
    return data;
}

const unsigned char* Mif32::GetData() const {
    return data;
}

unsigned int Mif32::GetLen() const {
    return length;
}

unsigned int Mif32::GetAllocLen() const {
    return allocatedLength;
}

void Mif32::SetLen(unsigned short len) {
    length = len;
}

void Mif32::Print() const {
    printf("Len  : %d\nData : ", static_cast<int>(length));
    const unsigned int count = std::min(readableLength(*this), maxPrintedBytes);
    for (unsigned int i = 0; i < count; ++i) {
        printf("%02x ", data[i]);
    }
    printf("\n");
}
