#include "qormif.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "hex.h"
#include "qoripaddr.h"

namespace {

unsigned int sizeOf(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

TEST(QorMif, ReadsAddresses) {
    struct Case {
        const char* message;
        unsigned int occurrence;
        std::string v4, any; // what becomes of 9.9.9.9, with "!" in front for a failure
    };
    const Case cases[] = {
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
        for (const auto& [get, expected] :
             {std::pair(&qormifGetIpAddrV4, c.v4), std::pair(&qormifGetIpAddr, c.any)}) {
            QorIpAddr address("9.9.9.9");
            const int result = get(message.data(), sizeOf(message), 1, &address, c.occurrence);
            EXPECT_EQ((result != 0 ? "" : "!") + std::string(address.GetStr()), expected);
            EXPECT_EQ(get(message.data(), sizeOf(message), 1, nullptr, c.occurrence), result);
        }
    }
}

TEST(QorMif, TakesNullPointers) {
    Bytes message = unhex("0100040005000000");
    const auto countFound = [](unsigned char* m) {
        unsigned int room = 4;
        return qormifGetInt(m, 8, 1, nullptr, 1) + qormifGetInt64(m, 8, 1, nullptr, 1) +
               qormifGetStr(m, 8, 1, nullptr, 5, 1) + qormifUpdInt(m, 8, 1, 5, 1) +
               qormifGetBinData(m, 8, 1, nullptr, &room, 1) +
               qormifGetBinDataPtr(m, 8, 1, nullptr, nullptr, 1);
    };
    EXPECT_EQ(countFound(message.data()), 6);
    EXPECT_EQ(countFound(nullptr), 0);
    EXPECT_EQ(qormifGetStr(message.data(), 8, 1, nullptr, 4, 1), 0);
    EXPECT_EQ(qormifGetBinData(message.data(), 8, 1, message.data(), nullptr, 1), 0);
    unsigned int room = 3; // no question for the size
    EXPECT_EQ(qormifGetBinData(message.data(), 8, 1, nullptr, &room, 1), 0);
    EXPECT_EQ(room, 0u);
}

TEST(QorMif, FormatsRanges) {
    struct Case {
        std::string message;
        unsigned int size;
        bool asIpV4;
        std::string expected; // all of "##..." behind the call, with "|" for zero bytes
    };
    const std::string pairs = "01000400010001000100040005000900";
    const std::string addresses = "010008000100a8c00100a8c0010008000200a8c0ff00a8c1";
    const Case cases[] = {
        {pairs, 10, true, "1, 5-9|##|"}, // the formatter clears the last byte
        {"01000200fe0001000800ffffffff000000800100020007", 24, false, "254-0, -1--2147483648|#|"},
        {"01000400ffff0000", 8, false, "65535-0|"},
        {addresses, 39, true, "192.168.0.1, 192.168.0.2-193.168.0.255|"},
        // A value that is no pair leaves its separator, but not before the first pair.
        {"0100010001" + pairs + "01000000" + pairs, 17, false, "1, 5-9, , 1, 5-9|"},
        {"020002000101ffff010002000101", 2, false, "!|#"},
        {pairs, 6, false, "1, 5-|"},
        {addresses, 17, true, "192.168.0.1, 192|"},
        {pairs, 1, false, "|"},
        {pairs, 0, false, "!"},
        {"010000", 2, false, "!##"},
    };
    const auto format = qormifGetRangeValuesAsString;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const Bytes message = unhex(c.message);
        std::string out(c.size, '#');
        const int result = format(message.data(), sizeOf(message), 1, out.data(), c.size, c.asIpV4);
        std::replace(out.begin(), out.end(), '\0', '|');
        EXPECT_EQ((result != 0 ? "" : "!") + out, c.expected);
    }
    char out[] = "#";
    EXPECT_EQ(format(nullptr, 16, 1, out, 2, false), 0);
    EXPECT_EQ(format(unhex(pairs).data(), 16, 1, nullptr, 2, false), 0);
    EXPECT_EQ(out[0], '#');
}

} // namespace
