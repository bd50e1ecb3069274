#include "qormif.h"

#include <gtest/gtest.h>

#include <string>

#include "hex.h"
#include "qoripaddr.h"

namespace {

unsigned int sizeOf(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

using AddressGetter = int (*)(const unsigned char*, unsigned int, unsigned short, QorIpAddr*,
                              unsigned int);

// What becomes of an address that is 9.9.9.9 before, with "!" in front for a failure.
std::string readAddress(AddressGetter get, const Bytes& message, unsigned int occurrence) {
    QorIpAddr address("9.9.9.9");
    const int result = get(message.data(), sizeOf(message), 1, &address, occurrence);
    EXPECT_EQ(get(message.data(), sizeOf(message), 1, nullptr, occurrence), result);
    return std::string(result != 0 ? "" : "!") + address.GetStr();
}

TEST(QorMif, ReadsAddresses) {
    struct Case {
        const char* message;
        unsigned int occurrence;
        const char* v4;
        const char* any;
    };
    const Case cases[] = {
        {"010004000100a8c0", 1, "192.168.0.1", "192.168.0.1"},
        {"0100040004030201010004000100a8c0", 2, "192.168.0.1", "192.168.0.1"},
        {"0100100020010db8000000000000000000000001", 1, "!9.9.9.9", "2001:db8::1"},
        {"010003000100a8", 1, "!9.9.9.9", "!"},
        // At the very end an empty entry is not seen.
        {"0200000001000000", 1, "!0.0.0.0", "!"},
        {"020004000100a8c0", 1, "!0.0.0.0", "!"},
        {"01", 1, "!0.0.0.0", "!"},
        {"", 1, "!9.9.9.9", "!9.9.9.9"},
        {"010004000100a8c0", 0, "!9.9.9.9", "!9.9.9.9"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        Bytes message = unhex(c.message);
        message.reserve(1); // so that it is no null pointer
        EXPECT_EQ(readAddress(qormifGetIpAddrV4, message, c.occurrence), c.v4);
        EXPECT_EQ(readAddress(qormifGetIpAddr, message, c.occurrence), c.any);
    }
}

// Without a message all fail; without an output all do as with one.
TEST(QorMif, TakesNullPointers) {
    Bytes message = unhex("0100040005000000");
    unsigned char* const none = nullptr;
    for (unsigned char* const m : {message.data(), none}) {
        const int expected = m == none ? 0 : 1;
        unsigned int room = 4;
        EXPECT_EQ(qormifGetInt(m, 8, 1, nullptr, 1), expected);
        EXPECT_EQ(qormifGetInt64(m, 8, 1, nullptr, 1), expected);
        EXPECT_EQ(qormifGetStr(m, 8, 1, nullptr, 5, 1), expected);
        EXPECT_EQ(qormifGetStr(m, 8, 1, nullptr, 4, 1), 0);
        EXPECT_EQ(qormifGetBinData(m, 8, 1, nullptr, &room, 1), expected);
        EXPECT_EQ(qormifGetBinData(m, 8, 1, message.data(), nullptr, 1), 0);
        EXPECT_EQ(qormifGetBinDataPtr(m, 8, 1, nullptr, nullptr, 1), expected);
        EXPECT_EQ(qormifUpdInt(m, 8, 1, 5, 1), expected);
        EXPECT_EQ(qormifGetIpAddr(m, 8, 1, nullptr, 1), expected);
    }
}

// Each into a text "####..." of 60 characters, of which the function gets the size.
TEST(QorMif, FormatsRanges) {
    struct Case {
        std::string message;
        unsigned int size;
        bool asIpV4;
        std::string result; // "!" in front for 0
    };
    const std::string pairs = "01000400010001000100040005000900";
    const std::string addresses = "010008000100a8c00100a8c0010008000200a8c0ff00a8c1";
    const Case cases[] = {
        {pairs, 60, true, "1, 5-9"},
        {"01000200fe0001000800ffffffff000000800100020007", 60, false, "254-0, -1--2147483648"},
        {"01000400ffff0000", 60, false, "65535-0"},
        {addresses, 60, true, "192.168.0.1, 192.168.0.2-193.168.0.255"},
        // A value that is no pair leaves its separator, but not before the first pair.
        {"0100010001" + pairs + "01000000" + pairs, 60, false, "1, 5-9, , 1, 5-9"},
        {"020002000101ffff010002000101", 60, false, "!"},
        {pairs, 7, false, "1, 5-9"},
        {pairs, 6, false, "1, 5-"},
        {addresses, 17, true, "192.168.0.1, 192"},
        {pairs, 1, false, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message + " into " + std::to_string(c.size));
        const Bytes message = unhex(c.message);
        std::string out(60, '#'), expected = out;
        expected[c.size - 1] = c.result == "!" ? '#' : '\0'; // the formatter clears the last byte
        const std::string text = c.result == "!" ? "" : c.result;
        expected.replace(0, text.size() + 1, text + '\0');
        EXPECT_EQ(qormifGetRangeValuesAsString(message.data(), sizeOf(message), 1, out.data(),
                                               c.size, c.asIpV4),
                  c.result != "!");
        EXPECT_EQ(out, expected);
    }
    const Bytes message = unhex(pairs);
    char out[] = "#";
    EXPECT_EQ(qormifGetRangeValuesAsString(message.data(), 16, 1, out, 0, false), 0);
    EXPECT_EQ(qormifGetRangeValuesAsString(message.data(), 3, 1, out, 2, false), 0);
    EXPECT_EQ(qormifGetRangeValuesAsString(nullptr, 16, 1, out, 2, false), 0);
    EXPECT_EQ(qormifGetRangeValuesAsString(message.data(), 16, 1, nullptr, 2, false), 0);
    EXPECT_EQ(out[0], '#');
}

} // namespace
