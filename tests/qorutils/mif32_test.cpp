#include "mif32.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "hex.h"
#include "qoripaddr.h"

namespace {

// The bytes after an operation, with "!" in front where its result is false.
std::string bytesAfter(const Mif32& mif, bool result) {
    return (result ? "" : "!") + hex(mif.GetData(), mif.GetData() == nullptr ? 0 : mif.GetLen());
}

// The same with allocated length and flags, as in "0102 of 1002, failed, external".
std::string after(const Mif32& mif, bool result) {
    return bytesAfter(mif, result) + (mif.GetData() == nullptr ? "none of " : " of ") +
           std::to_string(mif.GetAllocLen()) + (mif.allocationFailed != 0 ? ", failed" : "") +
           (mif.externalMemory != 0 ? ", external" : "");
}

// What each adder puts behind a byte, the same in its own buffer and in the caller's memory of that
// size. Nothing, and false, where it refuses, as it does where a byte of room is missing.
TEST(Mif32, WritesEntries) {
    const std::string longText(65536, 'a');
    const unsigned char bytes[65537] = {1, 2, 3};
    const char* const noText = nullptr;
    const QorIpAddr none;
    const QorIpAddr v4("192.168.0.1");
    const QorIpAddr v6("2001:db8::1");
    const QorIpAddr mapped("::ffff:192.168.0.1");
    const QorIpAddr odd(v6.address, 17);
    const std::pair<std::function<bool(Mif32 & m)>, std::string> cases[] = {
        {[](Mif32& m) { return m.AddBool(1, true); }, "0100040001000000"},
        {[](Mif32& m) { return m.AddInt(0xFFFE, 0x89ABCDEF); }, "feff0400efcdab89"},
        {[](Mif32& m) { return m.AddInt(0xFFFF, 0); }, ""},
        {[](Mif32& m) { return m.AddInt64(2, 0xFFFFFFFF); }, "02000400ffffffff"},
        {[](Mif32& m) { return m.AddInt64(2, 0x100000000); }, "020008000000000001000000"},
        {[](Mif32& m) { return m.AddTime(3, 0x1234567890); }, "0300040090785634"},
        {[](Mif32& m) { return m.AddStr(4, std::string("ab\0c", 4)); }, "040002006162"},
        {[&](Mif32& m) { return m.AddStr(4, longText); }, "04000000"},
        {[&](Mif32& m) { return m.AddStr(4, noText); }, ""},
        {[&](Mif32& m) { return m.AddBin(5, bytes, 3); }, "05000300010203"},
        {[&](Mif32& m) { return m.AddBin(5, bytes, 65537); }, "0500010001"},
        {[](Mif32& m) { return m.AddBin(5, nullptr, 0); }, ""},
        {[](Mif32& m) { return m.Add(6, nullptr, 0); }, "06000000"},
        {[](Mif32& m) { return m.Add(6, nullptr, 1); }, ""},
        {[&](Mif32& m) { return m.AddIpAddr(7, &v6); }, "0700100020010db8000000000000000000000001"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &v4); }, "070004000100a8c0"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &odd); }, "07000000"},
        {[](Mif32& m) { return m.AddIpAddr(7, nullptr); }, ""},
        {[&](Mif32& m) { return m.AddIpAddrV4(7, &mapped); }, "070004000100a8c0"},
        {[&](Mif32& m) { return m.AddIpAddrV4(7, &v6); }, "0700040000000000"},
        {[](Mif32& m) { return m.AddIpAddrV4(7, nullptr); }, ""},
        {[](Mif32& m) { return m.RawAddLDWord(0x0102030405060708); }, "0807060504030201"},
        {[&](Mif32& m) { return m.RawAddBin(bytes, 3); }, "010203"},
        {[](Mif32& m) { return m.RawAddStr("ab"); }, "6162"},
        {[](Mif32& m) { return m.RawAddStr(nullptr); }, ""},
        // Under the end marker's identifier there are only empty values, which are the marker.
        {[&](Mif32& m) { return m.AddIpAddr(0xFFFF, &none); }, "ffff"},
        {[&](Mif32& m) { return m.Add(0xFFFF, bytes, 1); }, ""},
    };
    for (const auto& [act, expected] : cases) {
        SCOPED_TRACE("row of " + expected);
        const unsigned int size = static_cast<unsigned int>(expected.size() / 2);
        const std::string written = (size == 0 ? "!aa" : "aa") + expected;
        Bytes memory(1 + size, 0xAA);
        Mif32 mif(memory.data(), 1);
        EXPECT_EQ(bytesAfter(mif, act(mif)), written);
        mif.SetExternalMem(memory.data(), size, 1);
        EXPECT_FALSE(act(mif));
        EXPECT_EQ(memory, Bytes(1 + size, 0xAA));
        mif.SetExternalMem(memory.data(), 1 + size, 1);
        EXPECT_EQ(bytesAfter(mif, act(mif)), written);
    }
}

TEST(Mif32, GrowsByAFixedSlack) {
    Mif32 mif;
    EXPECT_EQ(after(mif, mif.CheckSize(0) && mif.RawAddStr("")), "none of 0");
    EXPECT_EQ(after(mif, mif.RawAddDWord(0)), "00000000 of 1004");
    EXPECT_EQ(after(mif, mif.CheckSize(1000)), "00000000 of 1004");
    EXPECT_EQ(after(mif, mif.CheckSize(1001)), "00000000 of 2005");
    // Sums that would wrap, the second by one, with the slack.
    EXPECT_EQ(after(mif, mif.CheckSize(~0U)), "!00000000 of 2005, failed");
    EXPECT_EQ(after(mif, mif.CheckSize(~0U - 1003)), "!00000000 of 2005, failed");
}

// A value may come from the message itself, also when the buffer moves for it.
TEST(Mif32, TakesItsOwnBytes) {
    Mif32 mif;
    std::vector<Bytes> blocks; // keep the buffer from growing where it is
    mif.AddStr(1, std::string(1500, 'x'));
    const std::string message = bytesAfter(mif, true);
    for (int round = 0; round < 40; ++round) {
        blocks.emplace_back(5000 + mif.GetLen());
        ASSERT_TRUE(mif.AddBin(2, mif.GetData(), 1504));
        blocks.emplace_back(5000 + mif.GetLen());
        ASSERT_TRUE(mif.RawAddBin(mif.GetData(), 1504));
        ASSERT_EQ(hex(mif.GetData() + mif.GetLen() - 3008, 3008), message + message);
    }
    EXPECT_EQ(bytesAfter(mif, mif.SetData(mif.GetData() + 4, 1500)), message.substr(8));
    EXPECT_FALSE(mif.SetExternalMem(mif.GetData() + 1499, 1, 0)) << "it would be freed";
    EXPECT_EQ(mif.GetLen(), 1500u);
    // The marker that moves may be part of the value.
    mif.SetData(unhex("01000300616263ffff").data(), 9);
    EXPECT_EQ(bytesAfter(mif, mif.UpdBin(2, mif.GetData(), 9, 1)),
              "!010003006162630200090001000300616263ffffffff");
    EXPECT_EQ(bytesAfter(mif, mif.UpdBin(1, mif.GetData() + 4, 9, 1)),
              "010009006162630200090001000200090001000300616263ffffffff");
}

TEST(Mif32, TakesDataAndCopies) {
    Mif32 mif(reinterpret_cast<const unsigned char*>("abc"), 3);
    const char* const noText = nullptr;
    EXPECT_EQ(after(mif, mif.SetData(mif.GetData(), 1)), "616263 of 3");
    EXPECT_EQ(after(mif, mif.CheckSize(~0U)), "!616263 of 3, failed");
    // Only emptying clears the flag, and a copy has it too.
    EXPECT_EQ(after(mif, mif.SetData("de", 2)), "6465 of 2, failed");
    Mif32 copy(mif);
    mif.GetData()[0] = 9;
    EXPECT_EQ(after(copy, &(copy = static_cast<const Mif32&>(copy)) == &copy), "6465 of 2, failed");
    EXPECT_EQ(after(mif, mif.SetData("x", 0)), "none of 0");
    EXPECT_EQ(after(mif, mif.SetData("abc", 3)), "616263 of 3");
    EXPECT_EQ(after(mif, mif.Alloc(2)), " of 2");
    EXPECT_EQ(after(mif, mif.RawAddWord(0x0102)), "0201 of 2");
    EXPECT_EQ(after(copy = mif, true), "0201 of 2");
    EXPECT_EQ(after(mif, mif.SetData(noText, 5)), "none of 0");
    EXPECT_EQ(after(mif, mif.Alloc(0) && mif.RawAddByte(1)), "01 of 1001");
}

TEST(Mif32, WorksInExternalMemory) {
    Bytes memory = unhex("eeee000000000000");
    unsigned char* const eight = memory.data();
    unsigned int room = 77;
    Mif32 mif;
    EXPECT_FALSE(mif.IsExternalMem(&room) || room != 77);
    EXPECT_EQ(after(mif, mif.CheckSize(~0U)), "!none of 0, failed");
    EXPECT_EQ(after(mif, mif.SetExternalMem(nullptr, 8, 0)), "!none of 0, failed");
    EXPECT_EQ(after(mif, mif.SetExternalMem(eight, 0, 0)), "!none of 0, failed");
    EXPECT_EQ(after(mif, mif.SetExternalMem(eight, 8, 2)), "eeee of 8, external");
    EXPECT_EQ(after(mif, mif.Alloc(5)), "!eeee of 8, external");
    EXPECT_TRUE(mif.IsExternalMem(nullptr) && mif.IsExternalMem(&room) && room == 6);
    EXPECT_EQ(after(mif, mif.AddStr(1, "a")), "eeee0100010061 of 8, external");
    EXPECT_TRUE(Mif32(mif).RawAddByte(5)) << "into the same memory";
    EXPECT_EQ(after(mif, mif.SetData("a", 1)), "61 of 1");
    EXPECT_EQ(after(mif, mif.SetExternalMem(eight, 8, 8)), "eeee010001006105 of 8, external");
    mif.ClearBuffer();
    EXPECT_EQ(after(mif, true), "none of 0");
    mif.SetExternalMem(eight, 8, 8);
    EXPECT_EQ(after(mif = Mif32(eight, 1), true), "ee of 1");
    EXPECT_EQ(hex(eight, 8), "eeee010001006105") << "neither wiped nor freed";
}

// Lengths may be set beyond the memory; nothing is read, written or moved there, and what growing
// adds is zero.
TEST(Mif32, DoesNotTrustALengthBeyondItsMemory) {
    for (const unsigned int used : {14U, ~0U}) {
        const Bytes before = unhex("01000400050000000200040000");
        Bytes memory = before;
        Mif32 mif;
        EXPECT_TRUE(mif.SetExternalMem(memory.data(), 13, used));
        unsigned int value = 7;
        EXPECT_TRUE(mif.IsExternalMem(&value) && value == 0);
        EXPECT_TRUE(mif.GetInt(1, &value, 1) && value == 5 && !mif.GetInt(2, &value, 1));
        EXPECT_FALSE(mif.RawAddByte(1) || mif.AddEndKz() || mif.UpdStr(1, "", 1) || mif.DelOid(1) ||
                     mif.UpdInt(2, 1, 1));
        EXPECT_TRUE(mif.GetLen() == used && memory == before);
        EXPECT_TRUE(mif.UpdInt(1, 6, 1) && memory[4] == 6);
    }
    Mif32 owned(unhex("01000000ffff").data(), 6);
    owned.SetLen(7);
    EXPECT_FALSE(owned.AddEndKz() || owned.DelEndKz()) << "nobody would find the marker";
    Mif32 copy(owned);
    EXPECT_EQ(after(copy, copy.RawAddByte(5)), "01000000ffff0005 of 1008");
    Mif32 none;
    none.SetLen(3);
    EXPECT_FALSE(none.DelEndKz());
    EXPECT_EQ(bytesAfter(none, none.AddEndKz()), "000000ffff");
}

TEST(Mif32, WipesTheWholeAllocation) {
    Mif32 mif(Bytes(1001, 0xEE).data(), 1001);
    mif.SetLen(1);
    mif.ClearBuffer();
    EXPECT_EQ(after(mif, true), " of 1001");
    EXPECT_EQ(Bytes(mif.GetData(), mif.GetData() + 1001), Bytes(1001));
}

TEST(Mif32, PrintsAtMost65535Bytes) {
    Bytes bytes(70000, 0x0A);
    Mif32 beyond;
    beyond.SetExternalMem(bytes.data(), 2, ~0U);
    testing::internal::CaptureStdout();
    beyond.Print();
    Mif32(bytes.data(), 70000).Print();
    const std::string start = "Len  : -1\nData : 0a 0a \nLen  : 70000\nData : ";
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.substr(0, start.size() + 3), start + "0a ");
    EXPECT_EQ(out.size(), start.size() + 3 * 65535 + 1);
}

TEST(Mif32, TakesNullOutputsWhereTheyAreAllowed) {
    Mif32 mif(unhex("010004000500000002000000").data(), 12);
    char* const noText = nullptr;
    std::string* const noString = nullptr;
    unsigned int* const noNumber = nullptr;
    int* const noInt = nullptr;
    unsigned int length = 7;
    EXPECT_TRUE(mif.Seek(1, nullptr, nullptr, 1) && mif.GetStr(1, noString, 1) &&
                mif.GetInt(1, noInt, 1) && mif.GetBinPtr(1, nullptr, &length, 1) && length == 4);
    EXPECT_FALSE(mif.GetStr(2, noText, 1, 1) || mif.GetInt(1, noNumber, 1) ||
                 mif.GetInt64(1, nullptr, 1) || mif.GetBinPtr(1, nullptr, nullptr, 1) ||
                 mif.GetBin(1, nullptr, nullptr, 1) || mif.GetInt(2, noInt, 1));
    EXPECT_DEATH(mif.GetBool(1, nullptr, 1), "qorutils/src/mif32\\.cpp.*GetBool.*oData != NULL|"
                                             "oData != NULL.*GetBool.*qorutils/src/mif32\\.cpp");
}

TEST(Mif32, Updates) {
    const Bytes abc = {'a', 'b', 'c'};
    Mif32 mif;
    EXPECT_EQ(after(mif, mif.UpdInt(1, 5, 1)), "!0100040005000000 of 1008");
    EXPECT_EQ(after(mif, mif.UpdBin(1, abc.data(), 3, 1)), "01000300616263 of 17");
    EXPECT_EQ(after(mif, mif.UpdStr(1, "a", 1)), "0100010061 of 15");
    EXPECT_EQ(after(mif, mif.AddEndKz()), "0100010061ffff of 15");
    // What follows a short value is overwritten.
    EXPECT_EQ(after(mif, mif.UpdInt(1, 0x04030201, 1)), "01000100010203 of 15");
    EXPECT_FALSE(mif.UpdBin(1, nullptr, 0, 1) || mif.UpdStr(1, nullptr, 1));
    EXPECT_EQ(after(mif, mif.UpdStr(1, std::string(65537, 'a').c_str(), 1)),
              "01000100610203 of 17");
    // A byte behind the marker does not count for AddEndKz.
    EXPECT_EQ(bytesAfter(mif, mif.SetData("\xFF\xFF\1", 3) && mif.AddEndKz()), "ffff01");
    EXPECT_FALSE(mif.SetData("\xFF\xFF\1\1", 4) && mif.AddEndKz()) << "two do";
    EXPECT_EQ(after(mif, mif.SetData("\xFF\xFF", 2)), "ffff of 2");
    // The size grows as if the marker had not been there.
    EXPECT_EQ(after(mif, mif.UpdInt64(1, 5, 1)), "!0100040005000000ffff of 1008");
    EXPECT_EQ(after(mif, mif.UpdInt64(1, 0xFFFFFFFF, 1)), "01000400ffffffffffff of 1008");
    EXPECT_EQ(after(mif, mif.UpdInt64(1, 1ULL << 32, 1)), "010008000000000001000000ffff of 24");
    // Only the first one is replaced.
    EXPECT_TRUE(mif.DelEndKz() && mif.AddStr(1, "a"));
    EXPECT_EQ(after(mif, mif.UpdInt64(1, 5, 2)), "01000400050000000100010061 of 23");
    EXPECT_EQ(bytesAfter(mif, mif.UpdStr(1, "bc", 2)), "0100040005000000010002006263");
    mif.SetLen(5000);
    EXPECT_FALSE(mif.UpdStr(1, "a", 1) || mif.DelOid(1)) << "what lies behind is not there";
    // In the caller's memory the value may come from the message as well.
    Bytes memory = unhex("01000100610200030062636400000000");
    mif.SetExternalMem(memory.data(), 16, 12);
    EXPECT_EQ(bytesAfter(mif, mif.UpdBin(1, mif.GetData() + 9, 3, 1)),
              "0100030062636402000300626364");
    // Under the marker's identifier the bare marker is appended, or nothing.
    Bytes two(2);
    mif.SetExternalMem(two.data(), 2, 0);
    EXPECT_EQ(bytesAfter(mif, mif.UpdBin(0xFFFF, abc.data(), 3, 1)), "!");
    EXPECT_EQ(bytesAfter(mif, mif.UpdBin(0xFFFF, abc.data(), 0, 1)), "!ffff");
}

} // namespace

// The rest needs the C library's own memory functions, in whose place sanitizers put others; clang
// does not tell of them by a macro.
#if defined(__GLIBC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) &&                 \
    !defined(__SANITIZE_THREAD__)

namespace {
const unsigned char* watchedBlock = nullptr; // its first bytes are kept when it is freed
Bytes freedBytes(64, 0xEE);
} // namespace

// A program may have a free of its own as long as it leaves the work to the C library's.
extern "C" void __libc_free(void* block);
extern "C" void free(void* block) noexcept {
    if (block != nullptr && block == watchedBlock) {
        freedBytes.assign(watchedBlock, watchedBlock + freedBytes.size());
    }
    __libc_free(block);
}

namespace {

TEST(Mif32, WipesTheWholeAllocationAtItsEnd) {
    {
        Mif32 mif(freedBytes.data(), 64);
        mif.SetLen(1);
        watchedBlock = mif.GetData();
    }
    watchedBlock = nullptr;
    EXPECT_EQ(freedBytes, Bytes(64));
}

// In a process of its own, whose memory ends at 256 MiB.
[[noreturn]] void runOutOfMemory() {
    const rlimit limit = {256U << 20, 256U << 20};
    setrlimit(RLIMIT_AS, &limit);
    Bytes array(4);
    Mif32 mif(array.data(), 4);
    EXPECT_EQ(after(mif, mif.CheckSize(1U << 30)), "!00000000 of 4, failed");
    mif.allocatedLength = 1U << 30; // a copy asks for as much
    EXPECT_EQ(after(Mif32(mif), true), "none of 0, failed");
    mif.allocatedLength = 1004;
    EXPECT_EQ(after(mif, mif.SetData(mif.GetData() + 1, 1U << 30)), "!none of 1004, failed");
    EXPECT_EQ(after(mif, mif.RawAddByte(1)), "0000000001 of 1005, failed");
    EXPECT_EQ(after(mif, mif.SetExternalMem(array.data(), 4, 4)), "00000000 of 4, external");
    EXPECT_EQ(after(mif, mif.SetData(array.data() + 1, 1U << 30)), "!none of 4, failed");
    Mif32 large; // leaves no memory for a second message of its size
    EXPECT_TRUE(large.CheckSize(150U << 20) && large.AddStr(1, std::string(5000, 'a')));
    large.length = large.allocatedLength;
    EXPECT_FALSE(large.UpdStr(1, "b", 1));
    while (malloc(4000) != nullptr) {
    }
    std::string text;
    EXPECT_TRUE(!large.GetStr(1, &text, 1) && text.empty());
    EXPECT_EQ(large.GetData()[4], 'a') << "and is as it was";
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(Mif32, SurvivesTheLackOfMemory) {
    EXPECT_EXIT(runOutOfMemory(), testing::ExitedWithCode(0), "");
}

} // namespace
#endif
