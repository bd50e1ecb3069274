#include "arguments.h"
#include "commands.h"
#include "rows.h"
#include "text.h"
#include "usage.h"

#include <sys/socket.h>

#include <cstdio>

#include "qoripaddr.h"
#include "qoriprange.h"

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon ip ADDRESS[/PREFIX]\n"
    "       qormon ip LOW-HIGH\n"
    "\n"
    "Shows an IPv4 or IPv6 address in its text forms and what kind of address it is, the range of\n"
    "the block that ADDRESS/PREFIX is in, or the block that reaches from LOW to HIGH.\n";
constexpr Usage usage = {"ip", usageText};

constexpr std::size_t addressTextBytes = 64;

int refuse(const std::string& why) {
    return usage.refuse(printable(why));
}

std::string textOf(QorIpAddr addr) {
    return addr.GetStr();
}

std::string familyOf(const QorIpAddr& addr) {
    return addr.GetAF() == AF_INET ? "IPv4" : "IPv6";
}

std::string kindOf(const QorIpAddr& addr) {
    if (!addr.IsConfigured()) {
        return "any host";
    }
    if (addr.IsLocalHost()) {
        return "local host";
    }
    return addr.IsV4Mapped() ? "IPv4-mapped" : "other";
}

std::string numberText(const QorIpAddr& addr) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%08X, %u", addr.GetIpV4Addr(), addr.GetIpV4Addr());
    return text;
}

// All digits of all groups.
std::string fullText(const QorIpAddr& addr) {
    std::string text;
    for (unsigned long i = 0; i < 16; i += 2) {
        char group[8];
        std::snprintf(group, sizeof group, "%s%02x%02x", i == 0 ? "" : ":", addr[i], addr[i + 1]);
        text += group;
    }
    return text;
}

void printAddress(const QorIpAddr& addr) {
    printRow("address", textOf(addr));
    printRow("family", familyOf(addr));
    printRow("kind", kindOf(addr));
    QorIpAddr asIpV4(addr);
    asIpV4.ConvertV6ToIpV4();
    if (asIpV4.GetAF() == AF_INET) {
        printRow("as IPv4", textOf(asIpV4));
        printRow("as number", numberText(asIpV4));
    }
    QorIpAddr asIpV6(addr);
    asIpV6.ConvertV4ToIpV6();
    printRow("as IPv6", textOf(asIpV6));
    printRow("in full", fullText(asIpV6));
}

void printBlock(const std::string& low, const std::string& high, unsigned int prefix) {
    printRow("block", low + "/" + std::to_string(prefix));
    printRow("first address", low);
    printRow("last address", high);
}

int showAddress(const std::string& text) {
    const QorIpAddr addr(text.c_str());
    if (addr.GetAF() == 0) {
        return refuse("no address: " + text);
    }
    printAddress(addr);
    return exitSuccess;
}

int showRangeOfBlock(const std::string& text, std::size_t slash) {
    const QorIpAddr addr(text.substr(0, slash).c_str());
    if (addr.GetAF() == 0) {
        return refuse("no address: " + text.substr(0, slash));
    }
    const auto prefix = parseNumber(text.substr(slash + 1), 8 * addr.length);
    if (!prefix) {
        return refuse("no prefix length for " + familyOf(addr) + ": " + text.substr(slash + 1));
    }
    // Not by the objects: that form of the function speaks to standard output itself.
    char low[addressTextBytes];
    char high[addressTextBytes];
    if (!qor_ipaddr_cidr2range(textOf(addr).c_str(), *prefix, low, sizeof low, high, sizeof high)) {
        std::fprintf(stderr, "qormon ip: no range for %s\n", printable(text).c_str());
        return exitNegative;
    }
    printAddress(addr);
    printBlock(low, high, *prefix);
    return exitSuccess;
}

int showBlockOfRange(const std::string& text, std::size_t dash) {
    const QorIpAddr low(text.substr(0, dash).c_str());
    const QorIpAddr high(text.substr(dash + 1).c_str());
    if (low.GetAF() == 0 || high.GetAF() == 0) {
        return refuse("no range of addresses: " + text);
    }
    unsigned int prefix = 0;
    if (!qor_ipaddr_range2cidr(low, high, prefix)) {
        std::fprintf(stderr, "qormon ip: %s is no block\n", printable(text).c_str());
        return exitNegative;
    }
    printRow("family", familyOf(low));
    printBlock(textOf(low), textOf(high), prefix);
    return exitSuccess;
}

} // namespace

int commandIp(const Words& words) {
    const Arguments arguments(words, {{"--help", nullptr}}, 1);
    if (arguments.has("--help")) {
        return usage.show();
    }
    if (!arguments.error().empty()) {
        return refuse(arguments.error());
    }
    const std::string& text = arguments.operand(0);
    const std::size_t dash = text.find('-');
    if (dash != std::string::npos) {
        return showBlockOfRange(text, dash);
    }
    const std::size_t slash = text.find('/');
    return slash == std::string::npos ? showAddress(text) : showRangeOfBlock(text, slash);
}

} // namespace qormon
