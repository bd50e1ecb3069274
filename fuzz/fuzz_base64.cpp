// Both Base64 decoders over hostile text, and each encoder's output back through its decoder.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base64.h"
#include "require.h"

namespace {

void decodeBuffer(const std::vector<unsigned char>& in) {
    const auto length = static_cast<unsigned int>(in.size());
    std::vector<unsigned char> out(length + 1);
    const unsigned int count = Base64Decode(in.data(), length, out.data(), length);
    require(count <= length / 4 * 3);
    // With exactly the room that it takes the result is the same, with one byte less it is 0.
    std::vector<unsigned char> exact(count + 1);
    require(Base64Decode(in.data(), length, exact.data(), count) == count);
    require(memcmp(exact.data(), out.data(), count) == 0);
    require(count == 0 || Base64Decode(in.data(), length, exact.data(), count - 1) == 0);
}

void decodeNetwork(const std::vector<unsigned char>& in) {
    std::vector<char> text(in.size() + 1);
    memcpy(text.data(), in.data(), in.size());
    std::vector<unsigned char> out(strlen(text.data()) * 3 / 4 + 1, '#');
    constexpr unsigned int untouched = 0xFFFFFFFF;
    unsigned int outLen = untouched;
    const unsigned int count = QorInetB64Decode(text.data(), 0, out.data(), &outLen);
    if (outLen == untouched) {
        require(count == 0 && strchr(text.data(), '=') != nullptr);
        return;
    }
    require(outLen == count && count < out.size() && out[count] == 0);
}

void roundTrip(const std::vector<unsigned char>& in) {
    const auto length = static_cast<unsigned int>(in.size());
    std::vector<unsigned char> lines(CalcBase64Len(length) + 1); // never a null pointer
    const unsigned int written =
        Base64Encode(in.data(), length, lines.data(), CalcBase64Len(length));
    require(length == 0 ? written == 0 : written + 1 == CalcBase64Len(length));
    std::vector<unsigned char> out(length + 1);
    require(Base64Decode(lines.data(), written, out.data(), length) == length);
    require(memcmp(out.data(), in.data(), length) == 0);

    std::vector<char> text((in.size() + 2) / 3 * 4 + 1);
    unsigned int textLength = 0;
    require(QorInetB64Encode(in.data(), static_cast<int>(length), text.data(), &textLength) ==
            textLength);
    require(textLength + 1 == text.size() && strlen(text.data()) == textLength);
    std::vector<unsigned char> decoded(textLength * 3 / 4 + 1);
    require(QorInetB64Decode(text.data(), 0, decoded.data(), nullptr) == length);
    require(memcmp(decoded.data(), in.data(), length) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Copies of the exact size, and never a null pointer for an empty one.
    std::vector<unsigned char> in(data, data + size);
    if (in.empty()) {
        in.reserve(1);
    }
    decodeBuffer(in);
    decodeNetwork(in);
    roundTrip(in);
    return 0;
}
