#include "qoripaddr.h"

#include <netinet/in.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "hex.h"

namespace {

std::string text(const QorIpAddr& addr) {
    char out[64];
    return addr.GetStr(out, sizeof out) ? out : "unset";
}

// What a setter makes of 9::9, with "!" in front where its result is false.
template <typename Set>
std::string setBy(Set set) {
    QorIpAddr addr("9::9");
    const bool result = set(addr);
    return (result ? "" : "!") + text(addr);
}

#define SET(...) setBy([&](QorIpAddr& addr) { return __VA_ARGS__; })

TEST(QorIpAddr, IsSet) {
    const unsigned char bytes[17] = {1, 0, 168, 192, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    const char* const asV6 = "100:a8c0:506:708:90a:b0c:d0e:f10";
    EXPECT_EQ(SET(addr.SetIpAddr("1.2.3.4")), "1.2.3.4");
    EXPECT_EQ(SET(addr.SetIpAddr("1::2")), "1::2");
    EXPECT_EQ(SET(addr.SetIpV4Addr("::1")), "!unset");
    EXPECT_EQ(SET(addr.SetIpV6Addr("1.2.3.4")), "!unset");
    EXPECT_EQ(SET(addr = "1.2.3"), "!unset");
    EXPECT_EQ(SET(addr = 0xC0A80001U), "192.168.0.1");
    EXPECT_EQ(SET(addr.SetIpAddrFromData(bytes, 4)), "1.0.168.192");
    EXPECT_EQ(SET(addr.SetIpAddrFromData(bytes, 16)), asV6);
    EXPECT_EQ(SET(addr.SetIpAddrFromData(bytes, 5)), "!unset");
    EXPECT_EQ(SET(addr.SetIpAddrFromData(nullptr, 4)), "!unset");
    EXPECT_EQ(SET(addr.SetIpAddrFromData(addr.address, 16)), "9::9");
    EXPECT_EQ(SET(addr.SetIpAddrFromMif(bytes, 4)), "192.168.0.1");
    EXPECT_EQ(SET(addr.SetIpAddrFromMif(bytes, 16)), asV6);
    EXPECT_EQ(SET(addr.SetIpAddrFromMif(bytes, 17)), "!unset");
    EXPECT_EQ(SET(addr.SetIpAddrFromMif(nullptr, 4)), "!unset");
    EXPECT_EQ(SET(addr.SetIpAddrFromMifV4(bytes, 4)), "192.168.0.1");
    EXPECT_EQ(SET(addr.SetIpAddrFromMifV4(bytes, 16)), "!9::9");
    EXPECT_EQ(SET(addr.SetIpAddrFromMifV6(bytes, 16)), asV6);
    EXPECT_EQ(SET(addr.SetIpAddrFromMifV6(bytes, 4)), "!9::9");
    EXPECT_EQ(SET(addr.SetAnyHostV4(), true), "0.0.0.0");
    EXPECT_EQ(SET(addr.SetAnyHostV6(), true), "::");
    EXPECT_EQ(SET(addr.SetLocalHostV4(), true), "127.0.0.1");
    EXPECT_EQ(SET(addr.SetLocalHostV6(), true), "::1");
    EXPECT_EQ(SET(addr.Clear(), true), "unset");
}

// Both ways round, by the operators and by their numbers: 1 to 5 are == < > <= >=.
void expectHolds(const char* a, const char* b, const std::string& numbers) {
    SCOPED_TRACE(std::string(a) + " and " + b);
    const QorIpAddr left(a);
    const QorIpAddr right(b);
    const bool operators[] = {false,           (left == right), (left < right), (left > right),
                              (left <= right), (left >= right), false};
    for (int op = 0; op < 7; ++op) {
        const bool expected = numbers.find(std::to_string(op)) != std::string::npos;
        EXPECT_EQ(operators[op], expected) << "operator " << op;
        EXPECT_EQ(qor_ipaddr_cmp(op, a, b), expected ? 1 : 0) << "operator " << op;
    }
    EXPECT_EQ(left != right, !(left == right));
}

TEST(QorIpAddr, IsComparedAcrossFamilies) {
    struct Case {
        const char* left;
        const char* right;
        const char* holds;
        const char* swapped;
    };
    const Case cases[] = {
        {"10.0.0.1", "10.0.0.1", "145", "145"},
        {"10.0.0.1", "::ffff:10.0.0.1", "145", "145"},
        {"10.0.0.1", "::ffff:10.0.0.2", "24", "35"},
        {"::ffff:10.0.0.1", "::ffff:10.0.0.2", "24", "35"},
        {"10.0.0.255", "200.0.0.1", "24", "35"},
        {"1::", "1::", "145", "145"},
        {"1::ff", "1::100", "24", "35"},
        {"10.0.0.1", "2001:db8::1", "", ""},
        {"10.0.0.1", "::10.0.0.1", "", ""},
        {"no address", "no address", "", ""},
        {"no address", "1.2.3.4", "", ""},
    };
    for (const Case& c : cases) {
        expectHolds(c.left, c.right, c.holds);
        expectHolds(c.right, c.left, c.swapped);
    }
    EXPECT_EQ(qor_ipaddr_cmp(1, nullptr, nullptr), 0);
}

TEST(QorIpAddr, AnswersQueries) {
    struct Case {
        const char* text;
        int family;
        bool configured, localHost, mapped;
        unsigned int number;
    };
    const Case cases[] = {
        {"none", 0, false, false, false, 0},
        {"0.0.0.0", AF_INET, false, false, false, 0},
        {"0.0.0.1", AF_INET, true, false, false, 1},
        {"127.0.0.1", AF_INET, true, true, false, 0x7F000001},
        {"127.0.0.2", AF_INET, true, false, false, 0x7F000002},
        {"::", AF_INET6, false, false, false, 0},
        {"::1", AF_INET6, true, true, false, 0},
        {"::ffff:127.0.0.1", AF_INET6, true, false, true, 0x7F000001},
        {"100::ffff:127.0.0.1", AF_INET6, true, false, false, 0},
        {"::fffe:127.0.0.1", AF_INET6, true, false, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        QorIpAddr addr(c.text);
        EXPECT_EQ(addr.GetAF(), c.family);
        EXPECT_EQ(addr.IsConfigured(), c.configured);
        EXPECT_EQ(addr.IsLocalHost(), c.localHost);
        EXPECT_EQ(addr.IsV4Mapped(), c.mapped);
        EXPECT_EQ(addr.GetIpV4Addr(), c.number);
        const std::string expected = c.mapped ? text(QorIpAddr(c.number)) : text(addr);
        EXPECT_EQ(addr.ConvertV6ToIpV4(), c.mapped);
        EXPECT_EQ(text(addr), expected);
    }
}

TEST(QorIpAddr, ConvertsBetweenFamilies) {
    EXPECT_EQ(SET(addr.SetIpAddr("10.1.2.3") && addr.ConvertV4ToIpV6()), "::ffff:10.1.2.3");
    EXPECT_EQ(SET(addr.ConvertV4ToIpV6()), "9::9");
    QorIpAddr addr("::ffff:10.1.2.3");
    EXPECT_TRUE(addr.ConvertV6ToIpV4());
    EXPECT_EQ(addr[11], 0) << "behind the length";
    EXPECT_EQ(addr.address[11], 0xFF) << "the other bytes are left";
}

TEST(QorIpAddr, GoesThroughSocketAddresses) {
    struct Case {
        QorIpAddr addr;
        unsigned long size;
        int family;              // 0: zeroed, since it cannot be filled
        std::size_t touchedSize; // may exceed the size
    };
    const Case cases[] = {
        {QorIpAddr("2001:db8::1"), sizeof(sockaddr_in6), AF_INET6, sizeof(sockaddr_in6)},
        {QorIpAddr("2001:db8::1"), sizeof(sockaddr_in6) - 1, 0, sizeof(sockaddr_in6) - 1},
        {QorIpAddr("1.2.3.4"), 4, AF_INET, 8}, // does not test the size
        {QorIpAddr(), 28, 0, 28},
        {QorIpAddr(QorIpAddr("::1").address, 17), 28, 0, 28}, // no family of that length
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        sockaddr_storage storage;
        unsigned char* const bytes = reinterpret_cast<unsigned char*>(&storage);
        memset(bytes, 0xEE, sizeof storage);
        c.addr.InitSockAddr(reinterpret_cast<sockaddr*>(bytes), c.size, 0x1234);
        EXPECT_EQ(storage.ss_family, c.family);
        EXPECT_EQ(bytes[2] << 8 | bytes[3], c.family == 0 ? 0 : 0x1234);
        EXPECT_EQ(hex(bytes + c.touchedSize - 1, 2).substr(2), "ee");
        QorIpAddr back("9::9");
        EXPECT_EQ(back.SetFromSockAddr(&storage), c.family != 0);
        EXPECT_EQ(text(back), c.family == 0 ? "unset" : text(c.addr));
    }
    QorIpAddr addr("1.2.3.4");
    EXPECT_FALSE(addr.SetFromSockAddr(nullptr));
    addr.InitSockAddr(nullptr, 16, 1);
}

TEST(QorIpAddr, FormatsWithinTheSize) {
    for (const std::string address : {"255.255.255.255", "2001:db8::1"}) {
        const unsigned int length = static_cast<unsigned int>(address.size());
        std::vector<char> out(length + 1, '#');
        const QorIpAddr addr(address.c_str());
        EXPECT_FALSE(addr.GetStr(nullptr, 64) || addr.GetStr(out.data(), 0));
        EXPECT_EQ(out[0], '#');
        EXPECT_FALSE(addr.GetStr(out.data(), length));
        EXPECT_STREQ(out.data(), "");
        EXPECT_TRUE(addr.GetStr(out.data(), length + 1));
        EXPECT_EQ(out.data(), address);
    }
}

TEST(QorIpAddr, GivesEachCopyItsOwnText) {
    QorIpAddr original("1.2.3.4");
    const char* const originalText = original.GetStr();
    QorIpAddr copy(original);
    QorIpAddr assigned("2001:db8::ffff");
    assigned.GetStr();
    assigned = original;
    original = "5.6.7.8";
    EXPECT_STREQ(copy.GetStr(), "1.2.3.4");
    EXPECT_STREQ(assigned.GetStr(), "1.2.3.4");
    EXPECT_EQ(assigned[4], 0) << "the byte behind a shorter address stays as it was";
    EXPECT_EQ(assigned.address[15], 0xFF) << "so does the last one";
    EXPECT_EQ(original.GetStr(), originalText);
    EXPECT_NE(copy.GetStr(), assigned.GetStr());
    const QorIpAddr& self = assigned;
    assigned = self;
    EXPECT_STREQ(assigned.GetStr(), "1.2.3.4");
}

// The length is taken unchecked; whatever it says, only the 16 bytes are read and written.
TEST(QorIpAddr, StaysInsideItsBytesWhateverTheLength) {
    const Bytes bytes = unhex("0102030405060708090a0b0c0d0e0f10");
    for (const unsigned int length : {5U, 15U, 17U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(length);
        const Bytes exact(bytes.begin(), bytes.begin() + std::min(length, 16U));
        QorIpAddr addr(exact.data(), length);
        const QorIpAddr copy(addr);
        QorIpAddr assigned;
        assigned = addr;
        EXPECT_EQ(assigned.length, length);
        EXPECT_EQ(assigned[4], 5);
        EXPECT_EQ(addr[16] + addr[UINTPTR_MAX], 0);
        EXPECT_FALSE(addr == copy || addr < copy || addr.IsConfigured() || addr.ConvertV6ToIpV4());
        EXPECT_TRUE(addr <= assigned);
        EXPECT_EQ(addr.GetIpV4Addr(), 0u);
        EXPECT_EQ(addr.GetAF(), 0);
        EXPECT_STREQ(addr.GetStr(), "");
    }
    EXPECT_EQ(QorIpAddr(nullptr, 4).length, 0u);
    QorIpAddr four(bytes.data(), 16);
    EXPECT_EQ(four[15], 16);
    four.length = 4;
    EXPECT_EQ(four[4], 5) << "the byte at the length is still given";
    EXPECT_EQ(four[5], 0);
}

} // namespace
