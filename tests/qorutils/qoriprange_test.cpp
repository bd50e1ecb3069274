#include "qoriprange.h"

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "hex.h"

namespace {

std::string text(QorIpAddr addr) {
    return addr.GetStr();
}

// The definition, bit by bit.
QorIpAddr withTail(QorIpAddr addr, unsigned int prefix, bool value) {
    for (unsigned int i = prefix; i < 8 * addr.length; ++i) {
        const unsigned int bit = 0x80 >> i % 8;
        addr.address[i / 8] = static_cast<unsigned char>((addr[i / 8] & ~bit) | (value ? bit : 0));
    }
    return addr;
}

// Compares every form that there is for the family with the definition.
void checkRange(const QorIpAddr& addr, unsigned int prefix) {
    const QorIpAddr first = withTail(addr, prefix, false);
    const QorIpAddr last = withTail(addr, prefix, true);
    QorIpAddr ends[2];
    EXPECT_TRUE(qor_ipaddr_cidr2range(addr, prefix, ends[0], ends[1]));
    EXPECT_EQ(text(ends[0]) + "-" + text(ends[1]), text(first) + "-" + text(last));
    char texts[2][64];
    EXPECT_TRUE(qor_ipaddr_cidr2range(text(addr).c_str(), prefix, texts[0], 64, texts[1], 64));
    EXPECT_EQ(texts[0] + ("-" + std::string(texts[1])), text(first) + "-" + text(last));
    unsigned char value[32];
    unsigned int length = sizeof value;
    EXPECT_TRUE(qor_ipaddr_cidr2range_MifFormat(text(addr).c_str(), prefix, value, &length));
    EXPECT_EQ(hex(value, length), // network order for IPv4, too
              hex(first.address, addr.length) + hex(last.address, addr.length));
    if (addr.length == 4) {
        unsigned int out[2];
        EXPECT_TRUE(qor_ipaddr4_cidr2range(htonl(addr.GetIpV4Addr()), prefix, &out[0], &out[1]));
        EXPECT_EQ(ntohl(out[0]), first.GetIpV4Addr());
        EXPECT_EQ(ntohl(out[1]), last.GetIpV4Addr());
    }
}

void checkBlock(const QorIpAddr& low, const QorIpAddr& high) {
    const std::string in[] = {text(low), text(high)};
    unsigned int prefix = 8 * low.length;
    while (withTail(low, prefix, false) != withTail(high, prefix, false)) {
        --prefix;
    }
    const QorIpAddr network = withTail(low, prefix, false);
    const bool isBlock = low == network && high == withTail(low, prefix, true);
    unsigned int found[4] = {999, 999, 999, prefix};
    EXPECT_EQ(qor_ipaddr_range2cidr(low, high, found[0]), isBlock);
    char out[2][64];
    EXPECT_EQ(qor_ipaddr_range2cidr(in[0].c_str(), in[1].c_str(), out[0], 64, &found[1]), isBlock);
    Bytes value = unhex(hex(low.address, low.length) + hex(high.address, low.length));
    if (low.length == 4) {
        std::reverse(value.begin(), value.begin() + 4); // unlike what the other direction writes
        std::reverse(value.begin() + 4, value.end());
        const unsigned int numbers[] = {htonl(low.GetIpV4Addr()), htonl(high.GetIpV4Addr())};
        unsigned int number;
        EXPECT_EQ(qor_ipaddr4_range2cidr(numbers[0], numbers[1], &number, &found[3]), isBlock);
        EXPECT_EQ(ntohl(number), network.GetIpV4Addr());
    }
    EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(value.data(), 2 * low.length, out[1], 64, &found[2]),
              isBlock);
    EXPECT_EQ(std::count(found, found + 4, prefix), 4);
    EXPECT_EQ(out[0] + std::string(out[1]), in[0] + in[0]);
}

TEST(QorIpRange, AgreesWithTheDefinition) {
    std::independent_bits_engine<std::mt19937, 32, unsigned int> random(1);
    testing::internal::CaptureStdout(); // the trace
    for (unsigned int round = 0; round < 6000 && !HasFailure(); ++round) {
        const unsigned int width = round % 2 == 0 ? 32 : 128;
        unsigned int words[] = {random(), random(), random(), random()};
        const QorIpAddr addr(reinterpret_cast<unsigned char*>(words), width / 8);
        const unsigned int prefix = random() % (width + 2);
        SCOPED_TRACE(text(addr) + "/" + std::to_string(prefix));
        checkRange(addr, prefix > width && round % 3 == 0 ? 0xFFFFFFFF : prefix);
        // The block itself; one end with a bit changed; the ends exchanged.
        QorIpAddr ends[] = {withTail(addr, prefix, false), withTail(addr, prefix, true)};
        unsigned char& byte = ends[random() % 2].address[random() % (width / 8)];
        byte = static_cast<unsigned char>(byte ^ 0x80 >> random() % 16);
        checkBlock(ends[round % 8 < 2], ends[round % 8 >= 2]);
    }
    testing::internal::GetCapturedStdout();
}

TEST(QorIpRange, TracesTheMaskOfObjectsOnly) {
    QorIpAddr addr(QorIpAddr("10.1.2.3").address, 5);
    char out[64];
    testing::internal::CaptureStdout();
    EXPECT_FALSE(qor_ipaddr_cidr2range(addr, 12, addr, addr));
    addr = "10.1.2.3";
    EXPECT_TRUE(qor_ipaddr_cidr2range("1.2.3.4", 8, out, 64, out, 64));
    EXPECT_TRUE(qor_ipaddr_cidr2range(addr, 12, addr, addr)); // the last address is set last
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "i=0 mask=ff\ni=1 mask=f0\ni=2 mask=00\ni=3 mask=00\n");
    EXPECT_EQ(text(addr), "10.15.255.255");
}

TEST(QorIpRange, KnowsOneFamilyAtATime) {
    char out[64];
    unsigned int found = 999;
    for (const char* const other : {"::ffff:10.0.0.1", "none"}) {
        EXPECT_FALSE(qor_ipaddr_range2cidr("10.0.0.1", other, out, 64, &found));
        EXPECT_STREQ(out, "10.0.0.1");
        EXPECT_EQ(found, 999u);
    }
    EXPECT_FALSE(qor_ipaddr_range2cidr("none", nullptr, out, 64, &found));
    EXPECT_STREQ(out, "");
    // A length is taken unchecked; whatever it says, only the 16 bytes are used.
    for (const unsigned int length : {0U, 3U, 17U, 0xFFFFFFFFU}) {
        const QorIpAddr odd(QorIpAddr("9::9").address, length);
        QorIpAddr ends[] = {"9::9", "9::9"};
        EXPECT_FALSE(qor_ipaddr_cidr2range(odd, 8, ends[0], ends[1]));
        EXPECT_EQ(text(ends[0]) + "-" + text(ends[1]), "-9::9");
        EXPECT_TRUE(qor_ipaddr_range2cidr(odd, odd, found));
        EXPECT_EQ(found, std::min(length, 16U) * 8);
    }
}

TEST(QorIpRange, WritesTextsWithinTheirSizes) {
    const Bytes value = unhex("0800000a0800000a");
    for (unsigned int size = 0; size < 12; ++size) {
        const bool fits = size > 8;
        char out[4][14] = {"#\0###########", "#\0###########", "#\0###########", "#\0###########"};
        char other[64];
        unsigned int prefix;
        EXPECT_EQ(qor_ipaddr_cidr2range("10.0.0.8", 29, out[0], size, other, 64), fits);
        EXPECT_STREQ(other, "10.0.0.15") << "whatever became of the first one";
        EXPECT_EQ(qor_ipaddr_cidr2range("10.0.0.8", 32, other, 64, out[1], size), fits);
        EXPECT_EQ(qor_ipaddr_range2cidr("10.0.0.8", "10.0.0.8", out[2], size, &prefix), fits);
        EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(value.data(), 8, out[3], size, &prefix), fits);
        for (const char* const each : out) {
            EXPECT_STREQ(each, size == 0 ? "#" : fits ? "10.0.0.8" : "") << size;
            EXPECT_EQ(each[std::max(size, 2U)], '#');
        }
        EXPECT_FALSE(qor_ipaddr_cidr2range("10.0.0", 8, out[0], size, other, 64));
        EXPECT_STREQ(other, "");
    }
}

TEST(QorIpRange, KeepsToTheLengthsOfMessageValues) {
    for (unsigned int length = 0; length < 40; ++length) {
        for (const char* const addr : {"1.1.1.1", "101::", "none"}) {
            const unsigned int needed = 2 * QorIpAddr(addr).length;
            const bool fits = needed != 0 && length >= needed;
            Bytes out(length + 1, 0xEE);
            unsigned int told = length;
            EXPECT_EQ(qor_ipaddr_cidr2range_MifFormat(addr, 8, out.data(), &told), fits) << length;
            EXPECT_EQ(told, needed == 0 ? length : needed);
            EXPECT_EQ(out[fits ? needed : 0], 0xEE);
        }
        char out[64];
        unsigned int found = 999;
        const unsigned int half = length / 2; // an odd byte at the end does not count
        const bool isRange = half == 4 || half == 16;
        const Bytes value(length, 1);
        EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(value.data(), length, out, 64, &found), isRange);
        EXPECT_EQ(found, isRange ? half * 8 : 999);
    }
}

TEST(QorIpRange, RefusesNulls) {
    char out[64] = "#";
    unsigned char value[32] = {};
    unsigned int number = 999;
    EXPECT_FALSE(qor_ipaddr_range2cidr("::", "::", nullptr, 64, &number));
    EXPECT_FALSE(qor_ipaddr_range2cidr("::", "::", out, 64, nullptr));
    EXPECT_FALSE(qor_ipaddr_range2cidr_MifFormat(value, 8, nullptr, 64, &number));
    EXPECT_FALSE(qor_ipaddr_range2cidr_MifFormat(value, 8, out, 64, nullptr));
    EXPECT_FALSE(qor_ipaddr_cidr2range_MifFormat("::", 8, nullptr, &number));
    EXPECT_FALSE(qor_ipaddr_cidr2range_MifFormat("::", 8, value, nullptr));
    EXPECT_FALSE(qor_ipaddr4_cidr2range(0, 8, nullptr, &number));
    EXPECT_FALSE(qor_ipaddr4_cidr2range(0, 8, &number, nullptr));
    EXPECT_FALSE(qor_ipaddr4_range2cidr(0, 0, nullptr, &number));
    EXPECT_FALSE(qor_ipaddr4_range2cidr(0, 0, &number, nullptr));
    EXPECT_EQ(out + std::to_string(number), "#999") << "nothing is written";
}

} // namespace
