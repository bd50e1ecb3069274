// Sizes of addresses in bytes.
#pragma once

constexpr unsigned int ipV4Bytes = 4;
constexpr unsigned int ipV6Bytes = 16;
