#include "qoripaddr.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "hex.h"

namespace {

// The C library is the judge of texts that are written the usual way.
Bytes libcBytes(int family, const std::string& text) {
    Bytes bytes(family == AF_INET ? 4 : 16);
    EXPECT_EQ(inet_pton(family, text.c_str(), bytes.data()), 1) << text;
    return bytes;
}

// Parses an exact-size heap copy; empty when the text is refused and the destination untouched.
Bytes parse(int family, const std::string& text) {
    const std::vector<char> copy(text.c_str(), text.c_str() + text.size() + 1);
    Bytes bytes(family == AF_INET ? 4 : 16, 0xEE);
    const int result = family == AF_INET ? qor_inet_pton4(copy.data(), bytes.data())
                                         : qor_inet_pton6(copy.data(), bytes.data());
    if (result == 1) {
        return bytes;
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(bytes, Bytes(bytes.size(), 0xEE)) << "destination of a failed parse";
    return {};
}

using Texts = std::vector<const char*>;

// Expects each text, and what it is usually written as, to be the same address.
void expectParsed(int family, const Texts& pairs) {
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        EXPECT_EQ(parse(family, pairs[i]), libcBytes(family, pairs[i + 1])) << pairs[i];
    }
}

void expectRefused(int family, const Texts& texts) {
    for (const char* const text : texts) {
        EXPECT_EQ(parse(family, text), Bytes{}) << text;
    }
}

TEST(QorInet, ParsesIpV4) {
    expectParsed(AF_INET, {"010.002.003.004", "10.2.3.4", "000000000001.2.3.0000255", "1.2.3.255"});
    expectRefused(AF_INET, {"256.1.1.1", "1.1.1.256", "1.1.1.0256", "1.2.3.4.5", "1.2.3.4.",
                            "1..2.3", ".1.2.3.4", "1.2.3.a", "1.2.3.4a", " 1.2.3.4", "1.2.3.\xB4"});
}

TEST(QorInet, ParsesIpV6) {
    expectParsed(AF_INET6, {"1:22:333:4444:aB:Cd:eF:ffff", "1:22:333:4444:ab:cd:ef:ffff"});
    expectParsed(AF_INET6, {"1:2:3:4:5:6::8", "1:2:3:4:5:6:0:8", "000001::00ffff", "1::ffff"});
    expectParsed(AF_INET6, {"1:2:3:4:5:6:7.8.9.10", "1:2:3:4:5:6:708:90a"});
    expectRefused(AF_INET6,
                  {"1::2::3", "1:::2", ":::", ":1::", ":", "10000::", "1::2 ", "1:2:3:4:5:6:7:8:9",
                   "1::g", "::\xB1", "::1%1", "1:2:3:4:5:6:7:8.9.10.11", "1::2:3:4:5:6:7:1.2.3.4",
                   "1.2.3.4", "::1.2.3.4:5", "::a.2.3.4", "::.1.2.3"});
}

TEST(QorInet, KeepsItsToleranceForColons) {
    // A gap of no group clears what follows it.
    expectParsed(AF_INET6,
                 {"1:2:3:4::5:6:7:8", "1:2:3:4::", "1:2:3:4:5:6::1.2.3.4", "1:2:3:4:5:6::"});
    expectParsed(AF_INET6, {"1:2:3:4:5:6:7:8::", "1:2:3:4:5:6:7:8"});
    // One colon at the end.
    expectParsed(AF_INET6, {"1:2:3:4:5:6:7:8:", "1:2:3:4:5:6:7:8", "1::2:", "1::2"});
    expectRefused(AF_INET6, {"1:2:3:4:5:6:7:", "1:2:3:4:5:6:7:8:::"});
}

TEST(QorInet, RefusesNull) {
    unsigned char bytes[16] = {};
    char out[64];
    EXPECT_EQ(qor_inet_pton4(nullptr, bytes) + qor_inet_pton4("1.2.3.4", nullptr), 0);
    EXPECT_EQ(qor_inet_pton6(nullptr, bytes) + qor_inet_pton6("::", nullptr), 0);
    EXPECT_EQ(qor_inet_ntop4(nullptr, out, 64), nullptr);
    EXPECT_EQ(qor_inet_ntop4(bytes, nullptr, 64), nullptr);
    EXPECT_EQ(qor_inet_ntop6(nullptr, out, 64), nullptr);
    EXPECT_EQ(qor_inet_ntop6(bytes, nullptr, 64), nullptr);
}

TEST(QorInet, TakesNoPrefixForTheWhole) {
    for (const std::string whole : {"255.254.253.25", "1:2:3:4:5:6:7:8888", "::200.100.50.25"}) {
        const int family = whole[0] == '2' ? AF_INET : AF_INET6;
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const std::string prefix = whole.substr(0, length);
            Bytes expected(family == AF_INET ? 4 : 16);
            if (inet_pton(family, prefix.c_str(), expected.data()) != 1) {
                expected.clear();
            }
            EXPECT_EQ(parse(family, prefix), expected) << prefix;
        }
    }
}

TEST(QorInet, FormatsIpV6) {
    // Among them the first of equal runs of zeros, and the longer of two.
    const Texts texts = {"::",
                         "::1",
                         "1::",
                         "2001:db8::abcd:ef",
                         "1:0:2:3:4:5:6:7",
                         "0:1:2:3:4:5:6:7",
                         "1:2:3:4:5:6:7:0",
                         "1::2:0:0:3:4",
                         "1:0:0:2::3",
                         "::0.1.0.0",
                         "::ffff:10.1.2.3",
                         "::fffe:a01:203",
                         "1::ffff:a01:203",
                         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
    for (const std::string text : texts) {
        const Bytes bytes = libcBytes(AF_INET6, text);
        EXPECT_EQ(parse(AF_INET6, text), bytes) << text;
        char out[64] = "untouched";
        EXPECT_EQ(qor_inet_ntop6(bytes.data(), out, text.size()), nullptr);
        EXPECT_STREQ(out, "untouched");
        EXPECT_EQ(qor_inet_ntop6(bytes.data(), out, text.size() + 1), out);
        EXPECT_EQ(out, text);
    }
}

TEST(QorInet, FormatsIpV4WithoutCountingTheTerminator) {
    const unsigned char bytes[4] = {1, 100, 0, 99};
    char out[20] = "untouched";
    EXPECT_EQ(qor_inet_ntop4(bytes, out, 9), nullptr);
    EXPECT_EQ(qor_inet_ntop4(bytes, out, 0), nullptr);
    EXPECT_STREQ(out, "untouched");
    EXPECT_EQ(qor_inet_ntop4(bytes, out, 10), out);
    EXPECT_EQ(std::string(out, 12), std::string("1.100.0.99\0", 11) + '\0');
}

// What either side writes, the other reads as the same address.
TEST(QorInet, AgreesWithTheCLibrary) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        const int family = round % 2 == 0 ? AF_INET : AF_INET6;
        Bytes bytes(family == AF_INET ? 4 : 16);
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 2 * 0xFF);
        }
        char ours[64];
        char libc[64];
        ASSERT_NE(family == AF_INET ? qor_inet_ntop4(bytes.data(), ours, sizeof ours)
                                    : qor_inet_ntop6(bytes.data(), ours, sizeof ours),
                  nullptr);
        ASSERT_EQ(libcBytes(family, ours), bytes) << ours;
        ASSERT_NE(inet_ntop(family, bytes.data(), libc, sizeof libc), nullptr);
        ASSERT_EQ(parse(family, libc), bytes) << libc;
    }
}

} // namespace
