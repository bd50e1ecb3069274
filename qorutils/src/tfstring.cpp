#include "tfstring.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <algorithm>

namespace {

// Both compilers know the offsets in a class with a virtual destructor, though the standard leaves
// that to them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(QOR::TFstring, target) == sizeof(void*) &&
              offsetof(QOR::TFstring, capacity) == 2 * sizeof(void*) &&
              offsetof(QOR::TFstring, length) == 2 * sizeof(void*) + 4 &&
              sizeof(QOR::TFstring) == 2 * sizeof(void*) + 8);
#pragma GCC diagnostic pop

constexpr std::uint64_t growthBytes = 10;

} // namespace

namespace QOR {

TFstring::TFstring(char** targetString, unsigned int initialSize) : target(targetString) {
    if (target == nullptr) {
        return;
    }
    *target = nullptr;
    if (initialSize != 0) {
        checkAndResize(initialSize);
    }
}

TFstring::~TFstring() = default;

int TFstring::Add(char const* text, unsigned int len) {
    if (text == nullptr || checkAndResize(len) == 0) {
        return 0;
    }
    char* const string = *target;
    const std::size_t used = strnlen(string, capacity - 1);
    const std::size_t added = std::min(strnlen(text, len), capacity - 1 - used);
    memcpy(string + used, text, added);
    string[used + added] = '\0';
    // Kept: callers see the length that they gave, though the text may be shorter.
    length += len;
    return 1;
}

int TFstring::Add(char const* text) {
    if (text == nullptr) {
        return 0;
    }
    // A text beyond 32 bits fails to fit instead of being cut.
    return Add(text, static_cast<unsigned int>(std::min<std::size_t>(strlen(text), UINT32_MAX)));
}

int TFstring::checkAndResize(unsigned int extra) {
    if (target == nullptr) {
        return 0;
    }
    if (*target == nullptr) {
        capacity = length = 0; // nothing made yet, or the caller has taken the string away
    }
    const std::uint64_t needed = static_cast<std::uint64_t>(length) + extra;
    if (needed < capacity) {
        return 1;
    }
    const std::uint64_t size = capacity + ((needed - capacity) / growthBytes + 1) * growthBytes;
    void* const resized = size <= UINT32_MAX ? realloc(*target, size) : nullptr;
    if (resized == nullptr) {
        // Kept: the old string is lost, not released; the caller may hold a pointer of its own.
        *target = nullptr;
        capacity = length = 0;
        return 0;
    }
    const bool made = *target == nullptr;
    *target = static_cast<char*>(resized);
    capacity = static_cast<unsigned int>(size);
    if (made) {
        **target = '\0';
    }
    return 1;
}

} // namespace QOR
