// Overwriting of secrets that are about to be released. Not installed.
#pragma once

#include <cstddef>
#include <cstring>

// Writes zeros. The empty statement claims to read the memory, so that the compiler can't drop the
// write as one that nobody sees.
inline void qorWipe(void* memory, std::size_t size) {
    if (size == 0) {
        return;
    }
    std::memset(memory, 0, size);
    __asm__ __volatile__("" : : "r"(memory) : "memory");
}
