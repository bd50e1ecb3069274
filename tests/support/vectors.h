// Published test vectors, which are no part of the tree: they lie in ../shared/vectors beside it,
// or where the environment variable QORMON_VECTORS says.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace support {

// The text of a file of them; empty where it is missing, for QOR_SKIP_OR_FAIL.
inline std::string readVectors(const std::string& name) {
    const char* const folder = std::getenv("QORMON_VECTORS");
    const std::string from = folder != nullptr ? folder : QORMON3_SOURCE_DIR "/../shared/vectors";
    std::ostringstream text;
    text << std::ifstream(from + "/" + name).rdbuf();
    return text.str();
}

} // namespace support
