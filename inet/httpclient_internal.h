// What the rooms of HttpClient share.
#pragma once

#include <cstddef>
#include <cstring>

namespace httpclient {

// The methods, by the numbers that HttpClient::send takes.
constexpr unsigned int methodGet = 1;
constexpr unsigned int methodPost = 2;

// The length of a text; 0 for null.
inline std::size_t lengthOf(const char* text) {
    return text == nullptr ? 0 : strlen(text);
}

} // namespace httpclient
