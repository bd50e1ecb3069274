// The conversion to UTF-8 over hostile text. The first byte gives the room.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "utf8conv.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::vector<char> text(size); // the rest of the input and a terminator
    memcpy(text.data(), data + 1, size - 1);
    const unsigned int room = data[0];
    std::vector<char> converted(room + 1);
    AnsiToUtf8(text.data(), converted.data(), room);
    // No byte takes more than six, so that here everything fits.
    const auto enough = static_cast<unsigned int>(6 * size);
    std::vector<char> whole(enough + 1);
    AnsiToUtf8(text.data(), whole.data(), enough);
    return 0;
}
