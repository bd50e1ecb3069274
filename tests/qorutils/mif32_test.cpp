#include "mif32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "hex.h"
#include "qoripaddr.h"
#include "qormif.h"

namespace {

// The bytes after an operation, with "!" in front where its result is false; then the allocated
// length and the flags.
std::string after(const Mif32& mif, bool result) {
    const unsigned int size = mif.GetData() == nullptr ? 0 : mif.GetLen();
    return (result ? "" : "!") + hex(mif.GetData(), size) + '/' +
           std::to_string(mif.GetAllocLen()) + (mif.allocationFailed != 0 ? " failed" : "") +
           (mif.externalMemory != 0 ? " external" : "");
}

// What each adder puts behind a byte; nothing where a byte of room is missing.
TEST(Mif32, WritesEntries) {
    const unsigned char bytes[65537] = {1, 2, 3};
    const QorIpAddr none, v4("192.168.0.1"), v6("2001:db8::1");
    const std::pair<std::function<bool(Mif32 & m)>, std::string> cases[] = {
        {[](Mif32& m) { return m.AddInt(0xFFFE, 0x89ABCDEF); }, "feff0400efcdab89"},
        {[](Mif32& m) { return m.AddInt64(2, 0xFFFFFFFF); }, "02000400ffffffff"},
        {[](Mif32& m) { return m.AddInt64(2, 0x100000000); }, "020008000000000001000000"},
        {[](Mif32& m) { return m.AddTime(3, 0x1234567890); }, "0300040090785634"},
        {[](Mif32& m) { return m.AddStr(4, std::string("ab\0c", 4)); }, "040002006162"},
        {[](Mif32& m) { return m.AddStr(4, std::string(65536, 'a')); }, "04000000"},
        {[&](Mif32& m) { return m.AddBin(5, bytes, 65537); }, "0500010001"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &v6); }, "0700100020010db8000000000000000000000001"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &v4); }, "070004000100a8c0"},
        {[](Mif32& m) { return m.RawAddLDWord(0x0102030405060708); }, "0807060504030201"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &none); }, "07000000"},
    };
    for (const auto& [act, expected] : cases) {
        const unsigned int size = static_cast<unsigned int>(expected.size() / 2);
        Bytes memory(1 + size, 0xAA);
        Mif32 mif(memory.data(), 1);
        EXPECT_EQ(after(mif, act(mif)).substr(0, 2 + 2 * size), "aa" + expected);
        mif.SetExternalMem(memory.data(), size, 1);
        EXPECT_TRUE(!act(mif) && memory == Bytes(1 + size, 0xAA)) << expected;
    }
    Mif32 mif;
    EXPECT_FALSE(mif.AddInt(0xFFFF, 0) || mif.Add(0xFFFF, bytes, 1) || mif.Add(6, nullptr, 1) ||
                 mif.AddBin(5, nullptr, 0) || mif.AddIpAddr(7, nullptr) || mif.RawAddStr(nullptr));
}

TEST(Mif32, GrowsAndTakesData) {
    Mif32 mif;
    EXPECT_EQ(after(mif, mif.RawAddDWord(0) && mif.CheckSize(1000)), "00000000/1004");
    EXPECT_EQ(after(mif, mif.CheckSize(~0U)), "!00000000/1004 failed");
    EXPECT_EQ(after(mif, mif.SetData("x", 0) && mif.SetData("abc", 3)), "616263/3");
    EXPECT_EQ(after(mif, mif.CheckSize(~0U - 1002)), "!616263/3 failed"); // by one too many
    EXPECT_EQ(after(mif, mif.SetData(mif.GetData(), 1)), "616263/3 failed");
    EXPECT_EQ(after(mif, mif.SetData(mif.GetData() + 1, 2)), "6263/2 failed");
    Mif32 copy(mif);
    mif.GetData()[0] = 9;
    EXPECT_EQ(after(copy = static_cast<const Mif32&>(copy), true), "6263/2 failed");
    EXPECT_EQ(after(mif, mif.Alloc(2) && mif.RawAddWord(0x0102)), "0201/2 failed");
    EXPECT_FALSE(mif.SetExternalMem(mif.GetData() + 1, 1, 0)) << "it would be freed";
    mif.SetLen(1);
    mif.ClearBuffer();
    EXPECT_EQ(mif.GetLen() + mif.GetData()[0] + mif.GetData()[1], 0u) << "wiped as a whole";
}

TEST(Mif32, WorksInExternalMemory) {
    Bytes memory = unhex("eeee0000000000ffff000000");
    unsigned char* const bytes = memory.data();
    unsigned int room = 77;
    Mif32 mif;
    EXPECT_FALSE(mif.CheckSize(~0U) || mif.IsExternalMem(&room) || room != 77);
    EXPECT_FALSE(mif.SetExternalMem(nullptr, 7, 0) || mif.SetExternalMem(bytes, 0, 0));
    EXPECT_EQ(after(mif, mif.SetExternalMem(bytes, 7, 2)), "eeee/7 external");
    EXPECT_FALSE(mif.Alloc(5) || !mif.IsExternalMem(&room) || room != 5);
    EXPECT_TRUE(Mif32(mif).AddStr(1, "a")) << "into the same memory";
    mif.ClearBuffer();
    mif.SetExternalMem(bytes + 2, 7, 7);
    EXPECT_EQ(after(mif, mif.UpdInt(1, 5, 1) || mif.UpdStr(1, "bc", 1)),
              "!0100010061ffff/7 external");
    EXPECT_EQ(after(mif, mif.SetData("a", 1)), "61/1");
    mif.SetExternalMem(bytes + 2, 10, 7); // the marker that moves needs room, too
    EXPECT_EQ(after(mif, mif.UpdStr(2, "", 1)), "!0100010061ffff/10 external");
    EXPECT_EQ(after(mif, mif.UpdBin(1, bytes + 2, 4, 1)), "0100040001000100ffff/10 external");
}

// A value may come from the message itself, also when the buffer moves for it.
TEST(Mif32, TakesItsOwnBytes) {
    Mif32 mif(unhex("010001000affff").data(), 7);
    EXPECT_EQ(after(mif, mif.UpdBin(2, mif.GetData(), 7, 1)),
              "!010001000a02000700010001000affffffff/1016");
    EXPECT_EQ(after(mif, mif.UpdBin(1, mif.GetData() + 5, 4, 1)),
              "010004000200070002000700010001000affffffff/31");
    mif.SetData("\1\0\0\0", 4);
    EXPECT_EQ(after(mif, mif.AddBin(2, mif.GetData() + 1, 3)), "0100000002000300000000/1011");
    mif.SetData("\1\0\0\0", 4);
    EXPECT_EQ(after(mif, mif.RawAddBin(mif.GetData(), 4)), "0100000001000000/1008");
}

// Lengths may be set beyond the memory; nothing is read, written or moved there, and what growing
// adds is zero.
TEST(Mif32, DoesNotTrustALengthBeyondItsMemory) {
    Bytes memory = unhex("01000400050000000200040000");
    Mif32 mif;
    unsigned int value = 7;
    EXPECT_TRUE(mif.SetExternalMem(memory.data(), 13, 14) && mif.IsExternalMem(&value));
    EXPECT_FALSE(value != 0 || mif.GetInt(2, &value, 1) || mif.RawAddByte(1) || mif.DelOid(1) ||
                 mif.UpdStr(1, "", 1) || mif.UpdInt(2, 1, 1));
    EXPECT_EQ(hex(memory.data(), 13), "01000400050000000200040000");
    mif.SetData("\1\0\0\0\xFF\xFF", 6);
    mif.SetLen(7);
    EXPECT_FALSE(mif.AddEndKz() || mif.DelEndKz()) << "nobody would find the marker";
    testing::internal::CaptureStdout();
    mif.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Len  : 7\nData : 01 00 00 00 ff ff \n");
    mif = Mif32(mif);
    EXPECT_EQ(after(mif, mif.RawAddByte(5)), "01000000ffff0005/1008");
}

TEST(Mif32, ReadsAndUpdatesOddly) {
    Mif32 mif(unhex("010001006102000000ffff01").data(), 12);
    EXPECT_TRUE(mif.AddEndKz()) << "a single byte behind the marker does not count";
    EXPECT_EQ(after(mif, mif.UpdInt(1, 0x01020304, 1)), "010001000403020100ffff01/12");
    EXPECT_EQ(after(mif, mif.UpdStr(1, std::string(65537, 'a').c_str(), 1)),
              "010001006103020100ffff01/22");
    int number = 7;
    unsigned int size = 3;
    EXPECT_FALSE(mif.GetStr(1, reinterpret_cast<char*>(&number), 1, 1) || number != 7 ||
                 mif.UpdStr(1, nullptr, 1) || mif.GetInt(1, &number, 1) || number != 0);
    EXPECT_DEATH(mif.GetBool(1, nullptr, 1), "oData != NULL");
    mif.SetData("\xFF\xFF\0\0\1\0\0\0", 8);
    EXPECT_FALSE(mif.AddEndKz() || mif.DelEndKz() || mif.SearchValue(1, &size, 1));
    EXPECT_EQ(after(mif, mif.SetData("", 0) && mif.UpdInt64(1, 5, 1)), "!0100040005000000/1008");
    EXPECT_EQ(after(mif, mif.AddInt64(1, 1ULL << 32) && mif.UpdInt64(1, 6, 2)),
              "0100040006000000010008000000000001000000/30");
    mif.AddStr(3, std::string(65535, 'x'));
    std::string text;
    EXPECT_FALSE(mif.GetStr(3, &text, 1) || qormifUpdInt(mif.data, mif.length, 3, 9, 1) ||
                 qormifGetBinData(mif.data, mif.length, 3, nullptr, &size, 1) || size != 0);
}

// ---- Raw messages ----

TEST(QorMif, ReadsAddresses) {
    QorIpAddr address("9.9.9.9");
    const Bytes v6 = unhex("0100100020010db8000000000000000000000001"), empty = {1, 0, 0, 0};
    EXPECT_EQ(qormifGetIpAddrV4(v6.data(), 20, 1, &address, 1), 0);
    EXPECT_STREQ(address.GetStr(), "9.9.9.9");
    EXPECT_EQ(qormifGetIpAddrV4(empty.data(), 4, 1, &address, 1), 0);
    EXPECT_STREQ(address.GetStr(), "0.0.0.0") << "not seen at the very end";
    EXPECT_EQ(qormifGetStr(empty.data(), 4, 1, nullptr, 1, 1), 1) << "but here";
    EXPECT_EQ(qormifGetIpAddr(empty.data(), 4, 1, &address, 1) + address.GetAF(), 0);
}

TEST(QorMif, FormatsRanges) {
    const std::string pairs = "01000400010001000100040005000900";
    // Message, size, whether as IPv4, and all of "##..." behind the call with "|" for zero bytes.
    const std::tuple<std::string, unsigned int, bool, std::string> cases[] = {
        {pairs, 10, true, "1, 5-9|##|"}, // the formatter clears the last byte
        {"01000200fe00010004000000ffff", 16, true, "254-0, 0-65535||"},
        {"010008000100a8c00100a8c001000800ffffffffff00a8c1", 43, true,
         "192.168.0.1, 255.255.255.255-193.168.0.255|"},
        {"0100080001000000ffffffff", 5, false, "1--1|"},
        {"0100010001" + pairs + "01000000" + pairs, 17, true, "1, 5-9, , 1, 5-9|"}, // no pair
        {pairs + pairs + pairs, 6, true, "1, 5-|"},
        {pairs, 0, true, "!"}};
    for (const auto& [digits, size, asIpV4, expected] : cases) {
        const Bytes message = unhex(digits);
        const auto length = static_cast<unsigned int>(message.size());
        std::string out(size, '#');
        const auto format = qormifGetRangeValuesAsString;
        const int result = format(message.data(), length, 1, out.data(), size, asIpV4);
        std::replace(out.begin(), out.end(), '\0', '|');
        EXPECT_EQ((result != 0 ? "" : "!") + out, expected) << digits;
    }
}

using Entries = std::vector<std::pair<unsigned char, Bytes>>;

Bytes bytesOf(const Entries& entries, bool terminated) {
    Bytes all;
    for (const auto& [id, value] : entries) {
        all.insert(all.end(), {id, 0, static_cast<unsigned char>(value.size()), 0});
        all.insert(all.end(), value.begin(), value.end());
    }
    all.insert(all.end(), terminated ? 2 : 0, 0xFF);
    return all;
}

// Random operations on a message and on a plain list of entries, side by side.
TEST(Mif32Model, AgreesAfterEveryOperation) {
    std::mt19937 random(20261122);
    Entries entries;
    bool terminated = false;
    Mif32 mif;
    for (int step = 0; step < 200000; ++step) {
        const auto id = static_cast<unsigned char>(random() % 3);
        const unsigned int occurrence = static_cast<unsigned int>(random() % 5);
        Bytes value(2 + random() % 36, static_cast<unsigned char>(1 + random() % 255));
        value.back() = 0; // ends the text
        unsigned int left = occurrence;
        const auto isWanted = [&](const auto& entry) { return entry.first == id && --left == 0; };
        auto place = std::find_if(entries.begin(), entries.end(), isWanted);
        const bool found = place != entries.end();
        std::string text;
        bool result = mif.GetStr(id, &text, occurrence) == found; // as expected
        ASSERT_EQ(text, found ? reinterpret_cast<char*>(place->second.data()) : "") << step;
        const auto action = random() % 8;
        if (action == 0) {
            result = result && mif.AddEndKz();
            terminated = true;
        } else if (action == 1) {
            result = result && mif.DelEndKz() == std::exchange(terminated, false);
        } else if (action == 2 && occurrence == 1) {
            result = result && mif.DelOid(id) == found;
            entries.erase(place, place + static_cast<int>(found));
        } else if (occurrence != 0) {
            const auto size = static_cast<unsigned short>(value.size());
            result = result && mif.UpdBin(id, value.data(), size, occurrence) == found;
            place = found ? place : entries.insert(place, {id, {}});
            place->second = value;
        }
        ASSERT_TRUE(result) << step;
        ASSERT_EQ(Bytes(mif.data, mif.data + mif.length), bytesOf(entries, terminated)) << step;
    }
}

} // namespace
