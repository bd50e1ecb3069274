// Reads addresses, and goes from blocks to ranges and back.
#include <cstdio>

#include "qoripaddr.h"
#include "qoriprange.h"

namespace {

void showAddress(const char* text) {
    QorIpAddr address;
    if (!address.SetIpAddr(text)) {
        std::printf("%s is no address\n", text);
        return;
    }
    std::printf("%s is %s, 0x%08X%s\n", text, address.GetStr(), address.GetIpV4Addr(),
                address.IsLocalHost() ? ", this machine" : "");
}

void showBlock(const char* address, unsigned int prefix) {
    char low[64];
    char high[64];
    if (qor_ipaddr_cidr2range(address, prefix, low, sizeof low, high, sizeof high)) {
        std::printf("%s/%u is %s to %s\n", address, prefix, low, high);
    }
}

void showRange(const char* low, const char* high) {
    char network[64];
    unsigned int prefix = 0;
    const bool isBlock = qor_ipaddr_range2cidr(low, high, network, sizeof network, &prefix);
    std::printf("%s to %s is %s%s/%u\n", low, high, isBlock ? "" : "not ", network, prefix);
}

} // namespace

int main() {
    showAddress("192.168.0.1");
    showAddress("010.0.0.1");
    showAddress("2001:DB8:0:0:1:0:0:1");
    showAddress("::ffff:192.168.0.1");
    showAddress("::1");
    showAddress("192.168.0");

    showBlock("192.168.77.5", 20);
    showBlock("2001:db8::1", 61);
    showRange("10.0.0.0", "10.0.3.255");
    showRange("10.0.0.1", "10.0.3.255");

    const QorIpAddr address("192.168.0.1");
    const QorIpAddr mapped("::ffff:192.168.0.1");
    const QorIpAddr unset;
    std::printf("equal: %d, unset ones: %d\n", address == mapped, unset == unset);
    return 0;
}
