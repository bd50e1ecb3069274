#include "qoripaddr.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "hex.h"

namespace {

// ---- Objects ----

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

TEST(QorIpAddr, IsSet) {
    const unsigned char bytes[17] = {1, 0, 168, 192, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    const std::string asV6 = "100:a8c0:506:708:90a:b0c:d0e:f10";
    EXPECT_EQ(setBy([](auto& a) { return a.SetIpV4Addr("::1"); }), "!unset");
    EXPECT_EQ(setBy([](auto& a) { return a.SetIpV6Addr("1.2.3.4"); }), "!unset");
    EXPECT_EQ(setBy([](auto& a) { return a = 0xC0A80001U; }), "192.168.0.1");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromData(bytes, 4); }), "1.0.168.192");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromData(bytes, 5); }), "!unset");
    EXPECT_EQ(setBy([](auto& a) { return a.SetIpAddrFromData(nullptr, 4); }), "!unset");
    EXPECT_EQ(setBy([](auto& a) { return a.SetIpAddrFromData(a.address, 16); }), "9::9");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromMif(bytes, 4); }), "192.168.0.1");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromMif(bytes, 16); }), asV6);
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromMif(bytes, 17); }), "!unset");
    EXPECT_EQ(setBy([](auto& a) { return a.SetIpAddrFromMif(nullptr, 4); }), "!unset");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromMifV4(bytes, 16); }), "!9::9");
    EXPECT_EQ(setBy([&](auto& a) { return a.SetIpAddrFromMifV6(bytes, 4); }), "!9::9");
    EXPECT_EQ(setBy([](auto& a) { return a.SetAnyHostV4(), true; }), "0.0.0.0");
    EXPECT_EQ(setBy([](auto& a) { return a.SetAnyHostV6(), true; }), "::");
    EXPECT_EQ(setBy([](auto& a) { return a.SetLocalHostV4(), true; }), "127.0.0.1");
    EXPECT_EQ(setBy([](auto& a) { return a.SetLocalHostV6(), true; }), "::1");
    EXPECT_EQ(setBy([](auto& a) { return a.ConvertV4ToIpV6(); }), "9::9");
    EXPECT_EQ(setBy([](auto& a) { return a = "10.1.2.3", a.ConvertV4ToIpV6(); }),
              "::ffff:10.1.2.3");
}

TEST(QorIpAddr, IsComparedAcrossFamilies) {
    // The numbers of the comparisons that hold, 1 to 5 for == < > <= >=, and those the other way.
    const char* const cases[][4] = {
        {"10.0.0.1", "::ffff:10.0.0.1", "145", "145"},
        {"10.0.0.1", "::ffff:10.0.0.2", "24", "35"},
        {"::ffff:10.0.0.1", "::ffff:10.0.0.2", "24", "35"},
        {"10.0.0.255", "200.0.0.1", "24", "35"},
        {"1::", "1::", "145", "145"},
        {"1::ff", "1::100", "24", "35"},
        {"10.0.0.1", "::10.0.0.1", "", ""},
        {"no address", "no address", "", ""},
        {"no address", "1.2.3.4", "", ""},
    };
    const auto expectHolds = [](const char* a, const char* b, const std::string& numbers) {
        for (int op = 0; op < 7; ++op) {
            const bool expected = numbers.find(std::to_string(op)) != std::string::npos;
            EXPECT_EQ(qor_ipaddr_cmp(op, a, b), expected) << a << ' ' << op << ' ' << b;
        }
        EXPECT_NE(QorIpAddr(a) == b, QorIpAddr(a) != b);
    };
    for (const auto& [left, right, holds, otherWay] : cases) {
        expectHolds(left, right, holds);
        expectHolds(right, left, otherWay);
    }
    EXPECT_EQ(qor_ipaddr_cmp(1, nullptr, nullptr), 0);
}

TEST(QorIpAddr, AnswersQueries) {
    // What holds of each: IPv4, IPv6, configured, local host, mapped; and its IPv4 number.
    const char* const cases[][3] = {
        {"none", "", "0.0.0.0"},
        {"0.0.0.0", "4", "0.0.0.0"},
        {"127.0.0.1", "4cl", "127.0.0.1"},
        {"127.0.0.2", "4c", "127.0.0.2"},
        {"::", "6", "0.0.0.0"},
        {"::1", "6cl", "0.0.0.0"},
        {"::2", "6c", "0.0.0.0"},
        {"::ffff:127.0.0.1", "6cm", "127.0.0.1"},
        {"100::ffff:127.0.0.1", "6c", "0.0.0.0"},
        {"::fffe:127.0.0.1", "6c", "0.0.0.0"},
    };
    for (const auto& [address, holds, number] : cases) {
        QorIpAddr addr(address);
        std::string found = addr.GetAF() == AF_INET ? "4" : addr.GetAF() == AF_INET6 ? "6" : "";
        found += addr.IsConfigured() ? "c" : "";
        found += addr.IsLocalHost() ? "l" : "";
        found += addr.IsV4Mapped() ? "m" : "";
        EXPECT_EQ(found, holds) << address;
        EXPECT_EQ(text(addr.GetIpV4Addr()), number) << address;
        const bool isMapped = found == "6cm";
        EXPECT_EQ(addr.ConvertV6ToIpV4(), isMapped) << address;
        EXPECT_EQ(text(addr), isMapped ? number : text(address));
        EXPECT_TRUE(!isMapped || addr.address[11] == 0xFF) << "the bytes behind the four are left";
    }
}

TEST(QorIpAddr, GoesThroughSocketAddresses) {
    struct Case {
        QorIpAddr addr;
        std::size_t size, touched; // bytes; IPv4 does not test the size
        int family;                // 0: zeroed, since it cannot be filled
    };
    const Case cases[] = {
        {"2001:db8::1", sizeof(sockaddr_in6), sizeof(sockaddr_in6), AF_INET6},
        {"2001:db8::1", sizeof(sockaddr_in6) - 1, sizeof(sockaddr_in6) - 1, 0},
        {"1.2.3.4", 4, 8, AF_INET},
        {QorIpAddr(QorIpAddr("::1").address, 17), 28, 28, 0},
    };
    for (const Case& c : cases) {
        sockaddr_storage storage;
        unsigned char* const bytes = reinterpret_cast<unsigned char*>(&storage);
        memset(bytes, 0xEE, sizeof storage);
        c.addr.InitSockAddr(reinterpret_cast<sockaddr*>(bytes), c.size, 0x1234);
        EXPECT_EQ(storage.ss_family, c.family) << c.size;
        EXPECT_EQ(hex(bytes + 2, 2), c.family == 0 ? "0000" : "1234") << c.size;
        EXPECT_EQ(hex(bytes + c.touched - 1, 2).substr(2), "ee") << c.size;
        QorIpAddr back("9::9");
        EXPECT_EQ(back.SetFromSockAddr(&storage), c.family != 0) << c.size;
        EXPECT_EQ(text(back), c.family == 0 ? "unset" : text(c.addr));
    }
    QorIpAddr("::1").InitSockAddr(nullptr, 16, 1);
    EXPECT_EQ(setBy([](auto& a) { return a.SetFromSockAddr(nullptr); }), "!unset");
}

TEST(QorIpAddr, GivesEachCopyItsOwnText) {
    QorIpAddr original("1.2.3.4");
    const char* const originalText = original.GetStr();
    QorIpAddr copy(original), assigned("2001:db8::ffff");
    assigned.GetStr();
    assigned = original;
    original = "5.6.7.8";
    EXPECT_EQ(original.GetStr(), originalText);
    EXPECT_STREQ(copy.GetStr(), "1.2.3.4");
    EXPECT_STREQ((assigned = static_cast<const QorIpAddr&>(assigned)).GetStr(), "1.2.3.4");
    EXPECT_EQ(assigned[4], 0) << "the byte behind a shorter address stays as it was";
    EXPECT_EQ(assigned.address[15], 0xFF) << "so does the last one";
}

// The length is taken unchecked; whatever it says, only the 16 bytes are read and written.
TEST(QorIpAddr, StaysInsideItsBytesWhateverTheLength) {
    const Bytes bytes = unhex("0102030405060708090a0b0c0d0e0f10");
    for (const unsigned int length : {5U, 15U, 17U, 0xFFFFFFFFU}) {
        const Bytes exact(bytes.begin(), bytes.begin() + std::min(length, 16U));
        QorIpAddr addr(exact.data(), length), assigned;
        const QorIpAddr copy(addr);
        assigned = addr;
        EXPECT_TRUE(assigned.length == length && assigned[4] == 5 && addr <= assigned) << length;
        EXPECT_EQ(addr[16] + addr[UINTPTR_MAX] + addr.GetAF(), 0) << length;
        EXPECT_FALSE(addr == copy || addr < copy || addr.IsConfigured() || addr.ConvertV6ToIpV4());
        EXPECT_STREQ(addr.GetStr(), "");
    }
    EXPECT_EQ(QorIpAddr(nullptr, 4).length, 0u);
    QorIpAddr four(bytes.data(), 16);
    four.length = 4;
    EXPECT_TRUE(four[4] == 5 && four[5] == 0) << "the byte at the length is still given";
}

// ---- Texts ----

// The C library is the judge of texts that are written the usual way; empty for what it refuses.
Bytes libcBytes(int family, const std::string& text) {
    Bytes bytes(family == AF_INET ? 4 : 16);
    return inet_pton(family, text.c_str(), bytes.data()) == 1 ? bytes : Bytes();
}

// Parses an exact-size heap copy; empty when the text is refused and the destination untouched.
Bytes parse(int family, const std::string& text) {
    const std::vector<char> copy(text.c_str(), text.c_str() + text.size() + 1);
    Bytes bytes(family == AF_INET ? 4 : 16, 0xEE);
    const auto read = family == AF_INET ? qor_inet_pton4 : qor_inet_pton6;
    if (read(copy.data(), bytes.data()) == 1) {
        return bytes;
    }
    EXPECT_EQ(bytes, Bytes(bytes.size(), 0xEE)) << "destination of a failed parse";
    return {};
}

// Texts, and what they are usually written as.
TEST(QorInet, ParsesWhatIsWrittenOtherwise) {
    const std::pair<std::string, std::string> cases[] = {
        {"010.002.003.004", "10.2.3.4"},
        {"000000000001.2.3.0000255", "1.2.3.255"},
        {"1:22:333:4444:aB:Cd:eF:ffff", "1:22:333:4444:ab:cd:ef:ffff"},
        {"000001::00ffff", "1::ffff"},
        {"1:2:3:4:5:6:7.8.9.10", "1:2:3:4:5:6:708:90a"},
        // A gap of no group clears what follows it.
        {"1:2:3:4::5:6:7:8", "1:2:3:4::"},
        {"1:2:3:4:5:6::1.2.3.4", "1:2:3:4:5:6::"},
        {"1:2:3:4:5:6:7:8::", "1:2:3:4:5:6:7:8"},
        // One colon at the end.
        {"1:2:3:4:5:6:7:8:", "1:2:3:4:5:6:7:8"},
        {"1::2:", "1::2"},
    };
    for (const auto& [text, usual] : cases) {
        const int family = text.find(':') == std::string::npos ? AF_INET : AF_INET6;
        EXPECT_EQ(parse(family, text), libcBytes(family, usual)) << text;
    }
}

TEST(QorInet, Refuses) {
    for (const char* const text :
         {"256.1.1.1", "1.1.1.256", "1.1.1.0256", "1.2.3.4.5", "1.2.3.4.", "1..2.3", ".1.2.3.4",
          "1.2.3.a", "1.2.3.4a", " 1.2.3.4", "1.2.3.\xB4"}) {
        EXPECT_EQ(parse(AF_INET, text), Bytes()) << text;
    }
    for (const char* const text :
         {"1::2::3", "1:::2", ":::", ":1::", ":", "10000::", "1::2 ", "1:2:3:4:5:6:7:8:9", "1::g",
          "::\xB1", "::1%1", "1:2:3:4:5:6:7:8.9.10.11", "1::2:3:4:5:6:7:1.2.3.4", "1.2.3.4",
          "::1.2.3.4:5", "::a.2.3.4", "::.1.2.3", "1:2:3:4:5:6:7:", "1:2:3:4:5:6:7:8:::"}) {
        EXPECT_EQ(parse(AF_INET6, text), Bytes()) << text;
    }
    unsigned char bytes[16] = {};
    char out[64];
    EXPECT_FALSE(qor_inet_pton4(nullptr, bytes) || qor_inet_pton4("1.2.3.4", nullptr) ||
                 qor_inet_pton6(nullptr, bytes) || qor_inet_pton6("::", nullptr) ||
                 qor_inet_ntop4(nullptr, out, 64) || qor_inet_ntop4(bytes, nullptr, 64) ||
                 qor_inet_ntop6(nullptr, out, 64) || qor_inet_ntop6(bytes, nullptr, 64));
}

// What both write, and what they read of each text's beginnings. The least room does not count an
// IPv4 text's terminator.
TEST(QorInet, AgreesWithTheCLibrary) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        const int family = round % 4 == 0 ? AF_INET : AF_INET6;
        Bytes bytes(family == AF_INET ? 4 : 16);
        for (std::size_t i = 0; i < bytes.size(); i += 2) {
            const auto some = random() % 4 == 0 ? 0xFFFF : random() >> random() % 32;
            bytes[i] = static_cast<unsigned char>(random() % 2 == 0 ? 0 : some >> 8);
            bytes[i + 1] =
                static_cast<unsigned char>(bytes[i] == 0 && random() % 4 != 0 ? 0 : some);
        }
        if (family == AF_INET6 && std::count(bytes.begin(), bytes.begin() + 14, 0) == 14) {
            continue; // C libraries differ on a group behind seven of zeros
        }
        char expected[64], ours[64] = "untouched";
        ASSERT_EQ(inet_ntop(family, bytes.data(), expected, sizeof expected), expected);
        const auto format = family == AF_INET ? qor_inet_ntop4 : qor_inet_ntop6;
        const std::size_t least = strlen(expected) + (family == AF_INET ? 0 : 1);
        ASSERT_EQ(format(bytes.data(), ours, least - 1), nullptr);
        ASSERT_STREQ(ours, "untouched");
        ASSERT_EQ(format(bytes.data(), ours, least), ours);
        ASSERT_STREQ(ours, expected);
        for (std::string text = expected; !text.empty(); text.pop_back()) {
            if (text.back() != ':' || text.rfind("::") + 2 == text.size()) {
                ASSERT_EQ(parse(family, text), libcBytes(family, text)) << text;
            }
        }
    }
}

} // namespace
