// The rows of a table in which commands answer a person: a label, a value.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace qormon {

inline void printRow(const char* label, const std::string& value) {
    std::printf("%-14s  %s\n", label, value.c_str());
}

inline void printHexadecimalRow(const char* label, std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    printRow(label, text);
}

} // namespace qormon
