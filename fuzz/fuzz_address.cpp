// Address text through every parser, and what they made of it back through the formatters; then its
// blocks, and message values as ranges.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "qoripaddr.h"
#include "qoriprange.h"
#include "require.h"

namespace {

constexpr unsigned char fill = 0xEE;

// Parses the text; what a failure leaves of the destination has to be all that was there.
template <std::size_t Size>
bool parse(int (*parser)(const char*, unsigned char*), const char* text) {
    unsigned char bytes[Size];
    unsigned char untouched[Size];
    std::memset(bytes, fill, sizeof bytes);
    std::memset(untouched, fill, sizeof untouched);
    if (parser(text, bytes) == 1) {
        return true;
    }
    require(std::memcmp(bytes, untouched, Size) == 0);
    return false;
}

// The formatters at the sizes where the text just fits and just doesn't: IPv4 does not count the
// terminator.
void checkSizes(const QorIpAddr& addr, const char* text, std::size_t length) {
    const bool isIpV4 = addr.length == 4;
    const auto format = isIpV4 ? qor_inet_ntop4 : qor_inet_ntop6;
    const std::size_t enough = isIpV4 ? length : length + 1;
    const std::unique_ptr<char[]> out(new char[length + 1]);
    std::memset(out.get(), fill, length + 1);
    require(format(addr.address, out.get(), enough - 1) == nullptr);
    for (std::size_t i = 0; i <= length; ++i) {
        require(static_cast<unsigned char>(out[i]) == fill);
    }
    require(format(addr.address, out.get(), enough) == out.get());
    require(std::strcmp(out.get(), text) == 0);
}

// What is written reads as the same address again, through every operation that does so.
void checkRoundTrip(QorIpAddr& addr) {
    char text[64];
    require(addr.GetStr(text, sizeof text));
    require(std::strcmp(addr.GetStr(), text) == 0);
    const unsigned int length = static_cast<unsigned int>(std::strlen(text));
    // An exact-size buffer, and one that is a byte short.
    const std::unique_ptr<char[]> exact(new char[length + 1]);
    require(addr.GetStr(exact.get(), length + 1));
    require(!addr.GetStr(exact.get(), length));
    checkSizes(addr, text, length);
    const QorIpAddr back(text);
    require(back == addr && back.length == addr.length);
    require(std::memcmp(back.address, addr.address, addr.length) == 0);
}

// A block's range has the address in it and is that block again.
void checkBlock(const QorIpAddr& addr, const char* text, unsigned int prefix) {
    const unsigned int bits = 8 * addr.length;
    unsigned int length = 2 * addr.length;
    const std::unique_ptr<unsigned char[]> value(new unsigned char[length]);
    require(qor_ipaddr_cidr2range_MifFormat(text, prefix, value.get(), &length) == 1);
    const QorIpAddr low(value.get(), addr.length);
    const QorIpAddr high(value.get() + addr.length, addr.length);
    require(low <= addr && addr <= high);
    unsigned int found;
    require(qor_ipaddr_range2cidr(low, high, found) && found == (prefix < bits ? prefix : bits));
    char lowText[64];
    char highText[64];
    require(qor_ipaddr_cidr2range(text, prefix, lowText, 64, highText, 64));
    require(low == QorIpAddr(lowText) && high == QorIpAddr(highText));
}

// A message value that is a range and a block reads as the range of that block.
void checkRange(const std::uint8_t* data, unsigned int size) {
    char text[64];
    unsigned int prefix;
    if (qor_ipaddr_range2cidr_MifFormat(data, size, text, sizeof text, &prefix) == 0) {
        return;
    }
    QorIpAddr low;
    QorIpAddr high;
    require(low.SetIpAddrFromMif(data, size / 2));
    require(high.SetIpAddrFromMif(data + size / 2, size / 2));
    char lowText[64];
    char highText[64];
    require(qor_ipaddr_cidr2range(text, prefix, lowText, 64, highText, 64));
    require(low == QorIpAddr(lowText) && high == QorIpAddr(highText));
}

void checkBytes(const std::uint8_t* data, std::size_t size) {
    QorIpAddr addr;
    for (const unsigned int length : {4U, 16U}) {
        if (size >= length && addr.SetIpAddrFromData(data, length)) {
            checkRoundTrip(addr);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::unique_ptr<char[]> text(new char[size + 1]);
    std::memcpy(text.get(), data, size);
    text[size] = '\0';

    const bool isIpV4 = parse<4>(qor_inet_pton4, text.get());
    const bool isIpV6 = parse<16>(qor_inet_pton6, text.get());
    require(!isIpV4 || !isIpV6);
    QorIpAddr addr;
    require(addr.SetIpAddr(text.get()) == (isIpV4 || isIpV6));
    if (addr.length != 0) {
        require(addr.length == (isIpV4 ? 4 : 16));
        checkRoundTrip(addr);
        checkBlock(addr, text.get(),
                   static_cast<unsigned int>((data[0] + size) * data[size - 1] % 130));
    }
    require(qor_ipaddr_cmp(1, text.get(), text.get()) == (addr.length != 0 ? 1 : 0));
    checkBytes(data, size);
    checkRange(data, static_cast<unsigned int>(size));
    return 0;
}
