// Bytes as hexadecimal text, for expectations that a person can read.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline std::string hex(const void* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char*>(bytes)[i]);
        text += digits;
    }
    return text;
}

inline Bytes unhex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}
