// Bytes as hexadecimal text, for expectations that a person can read.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline std::string hex(const void* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < 2 * count; ++i) {
        const int byte = static_cast<const unsigned char*>(bytes)[i / 2];
        text += "0123456789abcdef"[i % 2 == 0 ? byte >> 4 : byte & 0x0F];
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
