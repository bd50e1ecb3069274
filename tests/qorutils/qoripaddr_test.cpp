#include "qoripaddr.h"

#include <netinet/in.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string text(const QorIpAddr& addr) {
    char out[64];
    return addr.GetStr(out, sizeof out) ? out : "unset";
}

TEST(QorIpAddr, LaysItsFieldsOutAsProgramsExpect) {
    const QorIpAddr addr("1.2.3.4");
    const auto offset = [&addr](const void* field) {
        return static_cast<const char*>(field) - reinterpret_cast<const char*>(&addr);
    };
    EXPECT_EQ(offset(addr.address), 8);
    EXPECT_EQ(offset(&addr.length), 24);
    EXPECT_EQ(offset(&addr.text), 32);
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
    EXPECT_EQ(SET(addr.SetIpAddr("x")), "!unset");
    EXPECT_EQ(SET(addr.SetIpV4Addr("1.2.3.4")), "1.2.3.4");
    EXPECT_EQ(SET(addr.SetIpV4Addr("::1")), "!unset");
    EXPECT_EQ(SET(addr.SetIpV6Addr("::1")), "::1");
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
    EXPECT_EQ(SET(addr.SetFromSockAddr(nullptr)), "!unset");
    EXPECT_EQ(SET(addr.SetAnyHostV4(), true), "0.0.0.0");
    EXPECT_EQ(SET(addr.SetAnyHostV6(), true), "::");
    EXPECT_EQ(SET(addr.SetLocalHostV4(), true), "127.0.0.1");
    EXPECT_EQ(SET(addr.SetLocalHostV6(), true), "::1");
    EXPECT_EQ(SET(addr.Clear(), true), "unset");
}

TEST(QorIpAddr, IsComparedAcrossFamilies) {
    struct Case {
        const char* left;
        const char* right;
        const char* holds; // of == < > <= >=, by their numbers
    };
    const Case cases[] = {
        {"10.0.0.1", "10.0.0.1", "145"},
        {"10.0.0.1", "::ffff:10.0.0.1", "145"},
        {"::ffff:10.0.0.1", "10.0.0.1", "145"},
        {"10.0.0.1", "::ffff:10.0.0.2", "24"},
        {"::ffff:10.0.0.2", "10.0.0.1", "35"},
        {"::ffff:10.0.0.2", "::ffff:10.0.0.1", "35"},
        {"200.0.0.1", "10.0.0.255", "35"},
        {"1::", "1::", "145"},
        {"1::ff", "1::100", "24"},
        {"10.0.0.1", "2001:db8::1", ""},
        {"2001:db8::1", "10.0.0.1", ""},
        {"10.0.0.1", "::10.0.0.1", ""},
        {"no address", "no address", ""},
        {"no address", "1.2.3.4", ""},
        {"1.2.3.4", "no address", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.left) + " and " + c.right);
        const QorIpAddr left(c.left);
        const QorIpAddr right(c.right);
        const bool operators[] = {false,           (left == right), (left < right), (left > right),
                                  (left <= right), (left >= right), false};
        for (int op = 0; op < 7; ++op) {
            const bool expected = strchr(c.holds, '0' + op) != nullptr;
            EXPECT_EQ(operators[op], expected) << "operator " << op;
            EXPECT_EQ(qor_ipaddr_cmp(op, c.left, c.right), expected ? 1 : 0) << "operator " << op;
        }
        EXPECT_EQ(left != right, !(left == right));
    }
    EXPECT_EQ(qor_ipaddr_cmp(1, nullptr, nullptr), 0);
}

TEST(QorIpAddr, AnswersQueries) {
    struct Case {
        const char* text;
        int family;
        bool configured;
        bool localHost;
        bool mapped;
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
        {"1::ffff:127.0.0.1", AF_INET6, true, false, false, 0},
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
        const std::string before = text(addr);
        EXPECT_EQ(addr.ConvertV6ToIpV4(), c.mapped);
        EXPECT_EQ(text(addr), c.mapped ? text(QorIpAddr(c.number)) : before);
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
    for (const char* const address : {"10.1.2.3", "2001:db8::1"}) {
        SCOPED_TRACE(address);
        sockaddr_storage storage;
        const QorIpAddr addr(address);
        addr.InitSockAddr(reinterpret_cast<sockaddr*>(&storage), sizeof storage, 0x1234);
        EXPECT_EQ(storage.ss_family, addr.GetAF());
        const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(&storage);
        EXPECT_EQ(bytes[2] << 8 | bytes[3], 0x1234);
        QorIpAddr back;
        EXPECT_TRUE(back.SetFromSockAddr(&storage));
        EXPECT_TRUE(back == addr);
    }
    QorIpAddr addr("1.2.3.4");
    sockaddr_storage unknown = {};
    unknown.ss_family = AF_UNIX;
    EXPECT_FALSE(addr.SetFromSockAddr(&unknown));
    EXPECT_EQ(addr.GetAF(), 0);
    addr.InitSockAddr(nullptr, 16, 1);
}

TEST(QorIpAddr, ZeroesSocketAddressesThatItCannotFill) {
    struct Case {
        const char* name;
        QorIpAddr addr;
        unsigned long size;
        int family;
        unsigned char firstUntouched;
    };
    const Case cases[] = {
        {"IPv6 with room", QorIpAddr("::1"), 28, AF_INET6, 28},
        {"IPv6 without room", QorIpAddr("::1"), 27, 0, 27},
        {"unset", QorIpAddr(), 28, 0, 28},
        {"IPv4 does not test the size", QorIpAddr("1.2.3.4"), 4, AF_INET, 8},
        {"no family of that length", QorIpAddr(QorIpAddr("::1").address, 17), 28, 0, 28},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        alignas(sockaddr_storage) unsigned char bytes[32];
        memset(bytes, 0xEE, sizeof bytes);
        sockaddr* const sa = reinterpret_cast<sockaddr*>(bytes);
        c.addr.InitSockAddr(sa, c.size, 80);
        EXPECT_EQ(sa->sa_family, c.family);
        EXPECT_EQ(bytes[3], c.family == 0 ? 0 : 80) << "port";
        EXPECT_EQ(bytes[c.firstUntouched], 0xEE);
    }
}

TEST(QorIpAddr, FormatsWithinTheSize) {
    for (const std::string address : {"255.255.255.255", "2001:db8::1"}) {
        const unsigned int length = static_cast<unsigned int>(address.size());
        std::vector<char> out(length + 1, '#');
        const QorIpAddr addr(address.c_str());
        EXPECT_FALSE(addr.GetStr(out.data(), 0));
        EXPECT_EQ(out[0], '#');
        EXPECT_FALSE(addr.GetStr(out.data(), length));
        EXPECT_STREQ(out.data(), "");
        EXPECT_TRUE(addr.GetStr(out.data(), length + 1));
        EXPECT_EQ(out.data(), address);
        EXPECT_FALSE(addr.GetStr(nullptr, 64));
    }
    char out[] = "x";
    EXPECT_FALSE(QorIpAddr().GetStr(out, sizeof out));
    EXPECT_STREQ(out, "");
    EXPECT_STREQ(QorIpAddr().GetStr(), "");
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
    const std::vector<unsigned char> sixteen{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    for (const unsigned int length : {5U, 15U, 17U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(length);
        std::vector<unsigned char> bytes(sixteen);
        bytes.resize(std::min(length, 17U), 17);
        bytes.shrink_to_fit();
        QorIpAddr addr(bytes.data(), length);
        QorIpAddr copy(addr);
        QorIpAddr assigned;
        assigned = addr;
        EXPECT_EQ(assigned.length, length);
        EXPECT_EQ(assigned[4], 5);
        EXPECT_EQ(addr[16], 0);
        EXPECT_EQ(addr[UINTPTR_MAX], 0);
        EXPECT_FALSE(addr == copy);
        EXPECT_FALSE(addr < copy);
        EXPECT_TRUE(addr <= assigned);
        EXPECT_FALSE(addr.IsConfigured());
        EXPECT_EQ(addr.GetIpV4Addr(), 0u);
        EXPECT_EQ(addr.GetAF(), 0);
        EXPECT_STREQ(addr.GetStr(), "");
        EXPECT_FALSE(addr.ConvertV6ToIpV4());
    }
    EXPECT_EQ(QorIpAddr(nullptr, 4).length, 0u);
    EXPECT_EQ(QorIpAddr("9.8.7.6")[4], 0);
    EXPECT_EQ(QorIpAddr(sixteen.data(), 16)[15], 16);
    QorIpAddr four(sixteen.data(), 16);
    four.length = 4;
    EXPECT_EQ(four[4], 5) << "the byte at the length is still given";
    EXPECT_EQ(four[5], 0);
}

} // namespace
