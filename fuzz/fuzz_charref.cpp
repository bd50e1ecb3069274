// The conversion to UTF-8 over hostile text. The first byte gives the room.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <string>
#include <vector>

#include "require.h"
#include "utf8conv.h"

namespace {

bool isPlain(const std::string& text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    return text.find("&#") == std::string::npos && std::all_of(text.begin(), text.end(), isAscii);
}

// Converts into a buffer of the exact size and into one with a sentinel behind it; their differing
// fillings show a byte that is not written. The end that a reader sees stands within both.
void convert(const std::vector<char>& text, unsigned int room) {
    std::vector<char> exact(room + 1, 'x');
    std::vector<char> guarded(room + 2, 'y');
    AnsiToUtf8(text.data(), exact.data(), room);
    AnsiToUtf8(text.data(), guarded.data(), room);
    require(guarded.back() == 'y');
    const void* const end = memchr(exact.data(), '\0', exact.size());
    require(end != nullptr && strcmp(exact.data(), guarded.data()) == 0);
    const std::string source = text.data();
    require(!isPlain(source) || exact.data() == source.substr(0, room));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::vector<char> text(size); // the rest of the input and a terminator
    memcpy(text.data(), data + 1, size - 1);
    text.resize(strlen(text.data()) + 1);
    text.shrink_to_fit();
    convert(text, data[0]);
    // No byte takes more than six, so that here everything fits.
    convert(text, static_cast<unsigned int>(6 * size));
    return 0;
}
