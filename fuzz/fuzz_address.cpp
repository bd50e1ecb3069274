// Address text through every parser, and what they made of it back through the formatters.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "qoripaddr.h"

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
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
    const QorIpAddr back(text);
    require(back == addr && back.length == addr.length);
    require(std::memcmp(back.address, addr.address, addr.length) == 0);
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

    unsigned char bytes[16];
    const bool isIpV4 = qor_inet_pton4(text.get(), bytes) == 1;
    const bool isIpV6 = qor_inet_pton6(text.get(), bytes) == 1;
    require(!isIpV4 || !isIpV6);
    QorIpAddr addr;
    require(addr.SetIpAddr(text.get()) == (isIpV4 || isIpV6));
    if (addr.length != 0) {
        require(addr.length == (isIpV4 ? 4 : 16));
        checkRoundTrip(addr);
    }
    require(qor_ipaddr_cmp(1, text.get(), text.get()) == (addr.length != 0 ? 1 : 0));
    checkBytes(data, size);
    return 0;
}
