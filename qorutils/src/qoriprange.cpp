#include "qoriprange.h"

#include <cstdio>
#include <cstring>

#include <algorithm>

#include "ip_sizes.h"

namespace {

constexpr unsigned int bitsPerByte = 8;

// All forms come down to bytes in network order.

// One byte of the mask whose leading bits are set; behind the mask's end it stays all ones.
unsigned char maskByte(unsigned int prefix, unsigned int index) {
    const unsigned int bitsBefore = index * bitsPerByte;
    const unsigned int bits = prefix < bitsBefore ? 0 : std::min(prefix - bitsBefore, bitsPerByte);
    return static_cast<unsigned char>(0xFF00U >> bits);
}

void applyPrefix(const unsigned char* addr, unsigned int count, unsigned int prefix,
                 unsigned char* low, unsigned char* high) {
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned char mask = maskByte(prefix, i);
        const unsigned char byte = addr[i];
        low[i] = byte & mask;
        high[i] = static_cast<unsigned char>(byte | ~mask);
    }
}

unsigned int countSharedBits(const unsigned char* low, const unsigned char* high,
                             unsigned int count) {
    const auto [inLow, inHigh] = std::mismatch(low, low + count, high);
    unsigned int bits = static_cast<unsigned int>(inLow - low) * bitsPerByte;
    if (inLow != low + count) {
        for (unsigned int bit = 0x80; ((*inLow ^ *inHigh) & bit) == 0; bit >>= 1) {
            ++bits;
        }
    }
    return bits;
}

// Finds the bits that both share, and the network address that they stand for; true where the block
// of those bits has just these two as its ends.
bool findBlock(const unsigned char* low, const unsigned char* high, unsigned int count,
               unsigned char* network, unsigned int& prefix) {
    const unsigned int sharedBits = countSharedBits(low, high, count);
    unsigned char last[ipV6Bytes];
    applyPrefix(low, count, sharedBits, network, last);
    prefix = sharedBits;
    return memcmp(low, network, count) == 0 && memcmp(high, last, count) == 0;
}

// Kept: this goes to standard output, not to the log, and programs of the product have it there.
void traceMask(unsigned int prefix, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        printf("i=%u mask=%02x\n", i, maskByte(prefix, i));
    }
}

// Any of the three may be the same object. Kept: on failure the last address stays.
bool setRange(const QorIpAddr& addr, unsigned int prefix, QorIpAddr& low, QorIpAddr& high) {
    if (addr.GetAF() == 0) {
        low.Clear();
        return false;
    }
    const unsigned int count = addr.length;
    unsigned char first[ipV6Bytes];
    unsigned char last[ipV6Bytes];
    applyPrefix(addr.address, count, prefix, first, last);
    low.SetIpAddrFromData(first, count);
    high.SetIpAddrFromData(last, count);
    return true;
}

// Kept: the text is written also where the range is no block.
bool describeBlock(const QorIpAddr& low, const QorIpAddr& high, char* out, unsigned int outSize,
                   unsigned int& prefix) {
    const bool isBlock = qor_ipaddr_range2cidr(low, high, prefix);
    return low.GetStr(out, outSize) && isBlock;
}

unsigned char* bytesOf(unsigned int* number) {
    return reinterpret_cast<unsigned char*>(number);
}

} // namespace

int qor_ipaddr4_cidr2range(unsigned int addr, unsigned int prefix, unsigned int* low,
                           unsigned int* high) {
    if (low == nullptr || high == nullptr) {
        return 0;
    }
    applyPrefix(bytesOf(&addr), ipV4Bytes, prefix, bytesOf(low), bytesOf(high));
    return 1;
}

int qor_ipaddr_cidr2range_MifFormat(const char* addr, unsigned int prefix, unsigned char* out,
                                    unsigned int* ioLen) {
    if (out == nullptr || ioLen == nullptr) {
        return 0;
    }
    const QorIpAddr parsed(addr);
    if (parsed.length == 0) {
        return 0;
    }
    const unsigned int room = *ioLen;
    *ioLen = 2 * parsed.length;
    if (room < *ioLen) {
        return 0;
    }
    // Kept: IPv4 too goes out in network order, though messages hold it as a little-endian number.
    applyPrefix(parsed.address, parsed.length, prefix, out, out + parsed.length);
    return 1;
}

int qor_ipaddr4_range2cidr(unsigned int low, unsigned int high, unsigned int* network,
                           unsigned int* prefix) {
    if (network == nullptr || prefix == nullptr) {
        return 0;
    }
    return findBlock(bytesOf(&low), bytesOf(&high), ipV4Bytes, bytesOf(network), *prefix);
}

int qor_ipaddr_range2cidr_MifFormat(const unsigned char* data, unsigned int len, char* out,
                                    unsigned int outSize, unsigned int* prefix) {
    if (out == nullptr || prefix == nullptr) {
        return 0;
    }
    const unsigned int half = len / 2; // kept: an odd byte at the end does not count
    QorIpAddr low;
    QorIpAddr high;
    if (!low.SetIpAddrFromMif(data, half) || !high.SetIpAddrFromMif(data + half, half)) {
        return 0;
    }
    return describeBlock(low, high, out, outSize, *prefix);
}

bool qor_ipaddr_cidr2range(const QorIpAddr& addr, unsigned int prefix, QorIpAddr& low,
                           QorIpAddr& high) {
    if (addr.GetAF() != 0) {
        traceMask(prefix, addr.length);
    }
    return setRange(addr, prefix, low, high);
}

bool qor_ipaddr_cidr2range(const char* addr, unsigned int prefix, char* low, unsigned int lowSize,
                           char* high, unsigned int highSize) {
    const QorIpAddr parsed(addr);
    QorIpAddr first;
    QorIpAddr last;
    setRange(parsed, prefix, first, last); // without the trace
    // Kept: the last address is written also where the first one fails, and both become empty where
    // there is no address.
    const bool lowWritten = first.GetStr(low, lowSize);
    return last.GetStr(high, highSize) && lowWritten;
}

bool qor_ipaddr_range2cidr(const QorIpAddr& low, const QorIpAddr& high, unsigned int& prefix) {
    if (low.length != high.length) {
        return false;
    }
    // Kept: two unset addresses are a block of prefix 0. A length may be anything, since it is
    // taken unchecked.
    const unsigned int count = std::min(low.length, ipV6Bytes);
    unsigned char network[ipV6Bytes];
    return findBlock(low.address, high.address, count, network, prefix);
}

bool qor_ipaddr_range2cidr(const char* low, const char* high, char* out, unsigned int outSize,
                           unsigned int* prefix) {
    if (out == nullptr || prefix == nullptr) {
        return false;
    }
    // Where neither is an address there is no text to write, so that the result is false.
    return describeBlock(QorIpAddr(low), QorIpAddr(high), out, outSize, *prefix);
}
