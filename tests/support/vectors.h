// Published test vectors, which are no part of the tree: they lie in ../shared/vectors beside it,
// or where the environment variable QORMON_VECTORS says.
#pragma once

#include <string>

namespace support {

// The path of a file of them.
std::string vectorPath(const std::string& name);

// The text of a file; empty where it is missing, for QOR_SKIP_OR_FAIL.
std::string readVectors(const std::string& name);

} // namespace support
