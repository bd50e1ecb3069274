#include "qoripaddr.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>

#include "hex.h"
#include "qoriprange.h"

namespace {

TEST(QorIpAddr, IsSet) {
    QorIpAddr addr("9::9");
    EXPECT_FALSE(addr.SetIpAddrFromMifV6(addr.address, 4));
    EXPECT_TRUE(addr.ConvertV4ToIpV6() && addr.SetIpAddrFromData(addr.address, 16));
    EXPECT_STREQ(addr.GetStr(), "9::9") << "as it was, each time";
    sockaddr_storage storage;
    sockaddr* const sa = reinterpret_cast<sockaddr*>(&storage);
    memset(sa, 0xEE, 32);
    addr.InitSockAddr(sa, 27, 0x1234);
    EXPECT_EQ(hex(sa, 32), std::string(54, '0') + "eeeeeeeeee");
    EXPECT_FALSE(addr.SetFromSockAddr(&storage) || addr.length != 0);
    addr = "::ffff:1.2.3.4";
    EXPECT_TRUE(addr.ConvertV6ToIpV4() && addr.address[11] == 0xFF) << "the bytes behind are left";
    addr.InitSockAddr(sa, 4, 0x1234);
    EXPECT_EQ(hex(sa, 9).substr(4), "12340102030400") << "whatever the size";
    EXPECT_TRUE(addr.SetFromSockAddr(&storage) && addr.ConvertV4ToIpV6() && addr[12] == 1);
    EXPECT_FALSE(addr.SetIpAddrFromData(addr.address, 5) || addr.length != 0);
}

TEST(QorIpAddr, IsComparedAcrossFamilies) {
    // The numbers of the comparisons that hold: 1 to 5 for == < > <= >=.
    const char* const cases[][3] = {{"10.0.0.1", "::ffff:10.0.0.1", "145"},
                                    {"10.0.0.1", "::ffff:10.0.0.2", "24"},
                                    {"::ffff:10.0.0.2", "10.0.0.1", "35"},
                                    {"10.0.0.255", "200.0.0.1", "24"},
                                    {"1::100", "1::ff", "35"},
                                    {"no address", "no address", ""}};
    for (const auto& [left, right, holds] : cases) {
        for (const char op : {'0', '1', '2', '3', '4', '5', '6'}) {
            EXPECT_EQ(qor_ipaddr_cmp(op - '0', left, right), strchr(holds, op) != nullptr) << left;
        }
    }
}

// The length is taken unchecked; whatever it says, only the 16 bytes are read and written.
TEST(QorIpAddr, StaysInsideItsBytesWhateverTheLength) {
    for (const unsigned int length : {5U, 17U, ~0U}) {
        const Bytes exact(std::min(length, 16U), 5);
        QorIpAddr addr(exact.data(), length), other;
        unsigned int prefix = 999;
        other = addr;
        EXPECT_TRUE(other.length == length && other[4] == 5 && addr <= other) << length;
        EXPECT_EQ(addr[16] + addr[~0UL] + addr.GetAF() + *addr.GetStr(), 0) << length;
        EXPECT_FALSE(addr == other || addr.IsConfigured() || addr.ConvertV6ToIpV4() ||
                     qor_ipaddr_cidr2range(addr, 8, other, other));
        EXPECT_TRUE(qor_ipaddr_range2cidr(addr, addr, prefix) && prefix == exact.size() * 8);
        addr = QorIpAddr("1.2.3.4");
        EXPECT_TRUE(addr[4] == 5 && addr[5] == 0) << "left behind a shorter address";
        EXPECT_NE(QorIpAddr(addr).GetStr(), addr.GetStr()) << "each has a text of its own";
    }
}

// ---- Texts ----

// What a parser leaves of a destination filled with ee. The C library is the judge of texts that
// are written the usual way.
std::string parse(const std::string& text, bool byLibc = false) {
    const bool isIpV4 = text.find(':') == std::string::npos;
    Bytes out(isIpV4 ? 4 : 16, 0xEE);
    const auto ours = isIpV4 ? qor_inet_pton4 : qor_inet_pton6;
    const int result = byLibc ? inet_pton(isIpV4 ? AF_INET : AF_INET6, text.c_str(), out.data())
                              : ours(text.c_str(), out.data());
    return std::to_string(result) + hex(out.data(), out.size());
}

TEST(QorInet, ParsesWhatIsWrittenOtherwise) {
    const char* const cases[][2] = {
        {"010.2.3.00000000255", "10.2.3.255"},
        {"000001::00ffff", "1::ffff"},
        // A gap of no group clears what follows it. A ":" may end the text.
        {"1:2:3:4::5:6:7:8", "1:2:3:4::"},
        {"1:2:3:4:5:6:7:8:", "1:2:3:4:5:6:7:8"}};
    for (const auto& [text, usual] : cases) {
        EXPECT_EQ(parse(text), parse(usual, true)) << text;
    }
    std::istringstream others(
        "1.1.1.256 1.1.1.0256 1.2.3.4.5 1.2.3.4. 1..2.3 .1.2.3.4 1.2.3.4a "
        "1::2::3 1:::2 :1:: : 10000:: 1:2:3:4:5:6:7:8:9 1::g ::\xB1 "
        "1:2:3:4:5:6:7:8.9.10.11 1:2:3:4:5:6:7.8.9.10 ::1.2.3.4:5 ::a.2.3.4 1:2:3:4:5:6:7:");
    for (std::string text; others >> text;) {
        EXPECT_EQ(parse(text), parse(text, true)) << text;
    }
}

// What both write, and what they read of each text's beginnings.
TEST(QorInet, AgreesWithTheCLibrary) {
    std::mt19937 random(7);
    for (int round = 0; round < 10000; ++round) {
        const bool isIpV4 = round % 4 == 0;
        Bytes bytes(isIpV4 ? 4 : 16);
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(random() % 2 == 0 ? 0 : random() >> random() % 32);
        }
        if (!isIpV4 && std::count(bytes.begin(), bytes.begin() + 14, 0) == 14) {
            continue; // C libraries differ on a group behind seven of zeros
        }
        char expected[64], ours[64];
        inet_ntop(isIpV4 ? AF_INET : AF_INET6, bytes.data(), expected, sizeof expected);
        (isIpV4 ? qor_inet_ntop4 : qor_inet_ntop6)(bytes.data(), ours, sizeof ours);
        ASSERT_STREQ(ours, expected);
        for (std::string text = expected; text.size() > 3; text.pop_back()) {
            if (text.back() != ':' || text.rfind("::") + 2 == text.size()) {
                ASSERT_EQ(parse(text), parse(text, true)) << text;
            }
        }
    }
}

// ---- Ranges ----

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
void check(QorIpAddr low, QorIpAddr high) {
    unsigned int prefix = 8 * low.length, length = 2 * low.length;
    while (withTail(low, prefix, false) != withTail(high, prefix, false)) {
        --prefix;
    }
    const std::string range = bytes(withTail(low, prefix, false), withTail(low, prefix, true));
    const bool isBlock = bytes(low, high) == range;
    const char* const text = low.GetStr();
    QorIpAddr first, last;
    char out[4][64];
    unsigned char value[32];
    EXPECT_TRUE(qor_ipaddr_cidr2range(low, prefix, first, last) &&
                qor_ipaddr_cidr2range(text, prefix, out[0], 64, out[1], 64) &&
                qor_ipaddr_cidr2range_MifFormat(text, prefix, value, &length));
    EXPECT_EQ(bytes(first, last) + bytes(out[0], out[1]), range + range);
    EXPECT_EQ(hex(value, length), range); // network order for IPv4, too

    unsigned int found[4] = {999, 999, 999, prefix};
    EXPECT_EQ(qor_ipaddr_range2cidr(low, high, found[0]), isBlock);
    EXPECT_EQ(qor_ipaddr_range2cidr(text, high.GetStr(), out[2], 64, &found[1]), isBlock);
    Bytes data = unhex(bytes(low, high));
    if (low.length == 4) {
        unsigned int number[4];
        memcpy(number, data.data(), 8);
        EXPECT_TRUE(qor_ipaddr4_cidr2range(number[0], prefix, &number[2], &number[3]));
        EXPECT_EQ(qor_ipaddr4_range2cidr(number[0], number[1], number, &found[3]), isBlock);
        EXPECT_EQ(hex(&number[2], 8) + hex(number, 4), range + range.substr(0, 8));
        std::reverse(data.begin(), data.begin() + 4); // unlike what the other direction writes
        std::reverse(data.begin() + 4, data.end());
    }
    EXPECT_EQ(qor_ipaddr_range2cidr_MifFormat(data.data(), length, out[3], 64, &found[2]), isBlock);
    EXPECT_EQ(std::count(found, found + 4, prefix), 4);
    EXPECT_TRUE(strcmp(out[2], text) == 0 && strcmp(out[3], text) == 0);
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
        check(ends[round % 8 < 2], ends[round % 8 >= 2]);
    }
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(HasFailure()) << output; // what failed is in it
}

TEST(QorIpRange, IsOddAtItsLimits) {
    char low[64] = "#", high[64] = "#";
    QorIpAddr addr("10.1.2.3"), none, last("9::9");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(qor_ipaddr_cidr2range("10.1.2.3", 12, low, 64, high, 64) &&
                qor_ipaddr_cidr2range(addr, 12, addr, addr) && // the last one is set last
                !qor_ipaddr_cidr2range(none, 12, none, last));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "i=0 mask=ff\ni=1 mask=f0\ni=2 mask=00\ni=3 mask=00\n");
    EXPECT_EQ(high + std::string(last.GetStr()), addr.GetStr() + std::string("9::9"));
    EXPECT_FALSE(qor_ipaddr_cidr2range("10.0.0.8", ~0U, low, 8, high, 9));
    EXPECT_EQ(low + std::string(high), "10.0.0.8") << "the last one whatever became of the first";
    unsigned int prefix = 999, length = 7;
    unsigned char value[33] = {};
    EXPECT_FALSE(qor_ipaddr_cidr2range_MifFormat("10.0.0.8", 8, value, &length) || length != 8 ||
                 qor_ipaddr_cidr2range_MifFormat("10.0.0", 8, value, &length) ||
                 qor_ipaddr_range2cidr("10.0.0.1", "::ffff:10.0.0.1", low, 64, &prefix) ||
                 qor_ipaddr_range2cidr_MifFormat(value, 11, low, 64, &prefix) || prefix != 999);
    EXPECT_TRUE(qor_ipaddr_range2cidr_MifFormat(value, 33, low, 64, &prefix) && prefix == 128);
}

} // namespace
