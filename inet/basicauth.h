// The credentials of basic authentication (RFC 7617) for servers and proxies.
#pragma once

#include <cstddef>

namespace basicauth {

constexpr std::size_t longestTexts = 198; // characters of user and password together
constexpr std::size_t encodedSize = (longestTexts + 1 + 2) / 3 * 4 + 1;

// Writes "user:password" in Base64; false where the two are longer together than the limit.
bool encode(const char* user, const char* password, std::size_t limit,
            char (&encoded)[encodedSize]);

} // namespace basicauth
