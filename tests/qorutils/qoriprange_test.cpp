#include "qoriprange.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>

#include "hex.h"

namespace {

std::string bytes(const QorIpAddr& low, const QorIpAddr& high) {
    return hex(low.address, low.length) + hex(high.address, high.length);
}

// The definition, bit by bit.
QorIpAddr withTail(QorIpAddr addr, unsigned int prefix, bool value) {
    for (unsigned int i = prefix; i < 8 * addr.length; ++i) {
        const unsigned int bit = 0x80 >> i % 8;
        addr.address[i / 8] = static_cast<unsigned char>((addr[i / 8] & ~bit) | (value ? bit : 0));
    }
    return addr;
}

// Compares every form that there is for the family with the definition: the block of the bits that
// both share, and whether they are its ends.
void check(QorIpAddr low, QorIpAddr high, unsigned int surplus) {
    unsigned int prefix = 8 * low.length;
    while (withTail(low, prefix, false) != withTail(high, prefix, false)) {
        --prefix;
    }
    const unsigned int asked = prefix == 8 * low.length ? prefix + surplus : prefix;
    const std::string range = bytes(withTail(low, prefix, false), withTail(low, prefix, true));
    const bool isBlock = bytes(low, high) == range;
    QorIpAddr ends[2];
    EXPECT_TRUE(qor_ipaddr_cidr2range(low, asked, ends[0], ends[1]));
    EXPECT_EQ(bytes(ends[0], ends[1]), range);
    char out[4][64];
    EXPECT_TRUE(qor_ipaddr_cidr2range(low.GetStr(), asked, out[0], 64, out[1], 64));
    EXPECT_EQ(bytes(out[0], out[1]), range);
    unsigned char value[32];
    unsigned int length = sizeof value;
    EXPECT_TRUE(qor_ipaddr_cidr2range_MifFormat(low.GetStr(), asked, value, &length));
    EXPECT_EQ(hex(value, length), range); // network order for IPv4, too

    unsigned int found[4] = {999, 999, 999, prefix};
    EXPECT_EQ(qor_ipaddr_range2cidr(low, high, found[0]), isBlock);
    EXPECT_EQ(qor_ipaddr_range2cidr(low.GetStr(), high.GetStr(), out[2], 64, &found[1]), isBlock);
    Bytes data = unhex(bytes(low, high));
    if (low.length == 4) {
        unsigned int number[4];
        memcpy(number, data.data(), 8);
        EXPECT_TRUE(qor_ipaddr4_cidr2range(number[0], asked, &number[2], &number[3]));
        EXPECT_EQ(hex(&number[2], 8), range);
        EXPECT_EQ(qor_ipaddr4_range2cidr(number[0], number[1], number, &found[3]), isBlock);
        EXPECT_EQ(hex(number, 4), range.substr(0, 8));
        std::reverse(data.begin(), data.begin() + 4); // unlike what the other direction writes
        std::reverse(data.begin() + 4, data.end());
    }
    EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(data.data(), length, out[3], 64, &found[2]), isBlock);
    EXPECT_EQ(std::count(found, found + 4, prefix), 4);
    EXPECT_EQ(out[2] + std::string(out[3]), std::string(low.GetStr()) + low.GetStr());
}

TEST(QorIpRange, AgreesWithTheDefinition) {
    std::independent_bits_engine<std::mt19937, 32, unsigned int> random(1);
    testing::internal::CaptureStdout(); // the trace
    for (unsigned int round = 0; round < 6000 && !HasFailure(); ++round) {
        const unsigned int width = round % 2 == 0 ? 32 : 128;
        unsigned int words[] = {random(), random(), random(), random()};
        const QorIpAddr addr(reinterpret_cast<unsigned char*>(words), width / 8);
        const unsigned int prefix = random() % (width + 1);
        // The block itself; one end with a bit changed; the ends exchanged.
        QorIpAddr ends[] = {withTail(addr, prefix, false), withTail(addr, prefix, true)};
        unsigned char& byte = ends[random() % 2].address[random() % (width / 8)];
        byte = static_cast<unsigned char>(byte ^ 0x80 >> random() % 16);
        SCOPED_TRACE(bytes(ends[0], ends[1]));
        check(ends[round % 8 < 2], ends[round % 8 >= 2], round % 3 == 0 ? ~0U - width : round % 3);
    }
    // What failed was captured as well; it ends the output.
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(HasFailure()) << output.substr(output.size() -
                                                std::min<size_t>(output.size(), 4000));
}

TEST(QorIpRange, TracesTheMaskOfObjectsOnly) {
    for (const auto& [text, prefix] : {std::pair("10.1.2.3", 12U), {"1::", 68U}, {"1::", 200U}}) {
        QorIpAddr addr(text);
        std::string expected;
        for (unsigned int i = 0; i < addr.length; ++i) {
            const char* const mask = 8 * i + 8 <= prefix ? "ff" : 8 * i >= prefix ? "00" : "f0";
            expected += "i=" + std::to_string(i) + " mask=" + mask + '\n';
        }
        char low[64], high[64];
        testing::internal::CaptureStdout();
        EXPECT_TRUE(qor_ipaddr_cidr2range(text, prefix, low, 64, high, 64));
        EXPECT_TRUE(qor_ipaddr_cidr2range(addr, prefix, addr, addr)); // the last one is set last
        EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
        EXPECT_STREQ(addr.GetStr(), high);
    }
}

TEST(QorIpRange, KnowsOneFamilyAtATime) {
    // Both ends; the text of the first and the prefix, of which 999 is what was there before.
    const char* const cases[][3] = {{"10.0.0.1", "::ffff:10.0.0.1", "10.0.0.1 999"},
                                    {"10.0.0.1", "none", "10.0.0.1 999"},
                                    {"none", "10.0.0.1", " 999"},
                                    {"none", nullptr, " 0"}};
    unsigned int found;
    for (const auto& [low, high, expected] : cases) {
        char out[64] = "#";
        found = 999;
        EXPECT_FALSE(qor_ipaddr_range2cidr(low, high, out, 64, &found));
        EXPECT_EQ(out + (' ' + std::to_string(found)), expected);
    }
    char low[64] = "#", high[64] = "#";
    EXPECT_FALSE(qor_ipaddr_cidr2range("10.0.0", 8, low, 64, high, 64));
    EXPECT_EQ(low + std::string(high), "") << "empty without an address";
    testing::internal::CaptureStdout();
    // A length is taken unchecked; whatever it says, only the 16 bytes are used.
    for (const unsigned int length : {0U, 3U, 17U, 1000U}) {
        const QorIpAddr odd(QorIpAddr("9::9").address, length);
        QorIpAddr ends[] = {"9::9", "9::9"};
        EXPECT_FALSE(qor_ipaddr_cidr2range(odd, 8, ends[0], ends[1]));
        EXPECT_EQ(ends[0].GetStr() + std::string(ends[1].GetStr()), "9::9");
        EXPECT_TRUE(qor_ipaddr_range2cidr(odd, odd, found));
        EXPECT_EQ(found, std::min(length, 16U) * 8);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "no trace of what is no address";
}

TEST(QorIpRange, WritesTextsWithinTheirSizes) {
    const Bytes value = unhex("0800000a0800000a");
    for (const unsigned int size : {0U, 1U, 8U, 9U, 11U}) {
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
    }
}

TEST(QorIpRange, KeepsToTheLengthsOfMessageValues) {
    for (unsigned int length = 0; length < 40; ++length) {
        for (const char* const addr :
             {static_cast<const char*>(nullptr), "none", "1.1.1.1", "101::"}) {
            const unsigned int needed = 2 * QorIpAddr(addr).length;
            const bool fits = needed != 0 && length >= needed;
            Bytes out(length + 1, 0xEE);
            unsigned int told = length;
            EXPECT_EQ(qor_ipaddr_cidr2range_MifFormat(addr, 8, out.data(), &told), fits) << length;
            EXPECT_EQ(told, needed == 0 ? length : needed);
            EXPECT_EQ(out[fits ? needed : 0], 0xEE);
        }
        char out[64] = "#";
        unsigned int found = 999;
        const unsigned int half = length / 2;
        const bool isRange = half == 4 || half == 16;
        Bytes value(2 * half, 1);
        value.resize(length, 2); // an odd byte at the end does not count
        EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(value.data(), length, out, 64, &found), isRange);
        EXPECT_EQ(found, isRange ? half * 8 : 999);
        EXPECT_EQ(out[0] == '#', !isRange);
    }
}

TEST(QorIpRange, RefusesNulls) {
    unsigned char value[32] = {};
    char out[64] = "#";
    unsigned int n = 999;
    EXPECT_FALSE(
        qor_ipaddr_range2cidr("::", "::", nullptr, 64, &n) ||
        qor_ipaddr_range2cidr("::", "::", out, 64, nullptr) ||
        qor_ipaddr_range2cidr_MifFormat(value, 8, nullptr, 64, &n) ||
        qor_ipaddr_range2cidr_MifFormat(value, 8, out, 64, nullptr) ||
        qor_ipaddr_range2cidr_MifFormat(nullptr, 8, out, 64, &n) ||
        qor_ipaddr_cidr2range_MifFormat("::", 8, nullptr, &n) ||
        qor_ipaddr_cidr2range_MifFormat("::", 8, value, nullptr) ||
        qor_ipaddr4_cidr2range(0, 8, nullptr, &n) || qor_ipaddr4_cidr2range(0, 8, &n, nullptr) ||
        qor_ipaddr4_range2cidr(0, 0, nullptr, &n) || qor_ipaddr4_range2cidr(0, 0, &n, nullptr));
    EXPECT_EQ(out + std::to_string(n), "#999") << "nothing is written";
    char text[64];
    EXPECT_FALSE(qor_ipaddr_cidr2range("::", 8, nullptr, 64, text, 64) ||
                 qor_ipaddr_cidr2range("::", 8, text, 64, nullptr, 64));
}

} // namespace
