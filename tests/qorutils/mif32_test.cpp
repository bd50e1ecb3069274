#include "mif32.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "hex.h"
#include "mif32_steps.h"
#include "qoripaddr.h"

namespace {

// What each adder puts behind a byte, the same in its own buffer and in the caller's memory of that
// size. Nothing, and false, where it refuses, as it does where a byte of room is missing.
TEST(Mif32, WritesEntries) {
    const unsigned char bytes[] = {1, 2, 3};
    const char* const noText = nullptr;
    const QorIpAddr none;
    const QorIpAddr v6("2001:db8::1");
    const QorIpAddr mapped("::ffff:192.168.0.1");
    const QorIpAddr odd(v6.address, 17);
    const Step cases[] = {
        {[](Mif32& m) { return m.AddBool(1, true); }, "0100040001000000"},
        {[](Mif32& m) { return m.AddInt(0xFFFE, 0x89ABCDEF); }, "feff0400efcdab89"},
        {[](Mif32& m) { return m.AddInt(0xFFFF, 0); }, ""},
        {[](Mif32& m) { return m.AddInt64(2, 0xFFFFFFFF); }, "02000400ffffffff"},
        {[](Mif32& m) { return m.AddTime(3, 0x1234567890); }, "0300040090785634"},
        {[](Mif32& m) { return m.AddStr(4, std::string("ab\0c", 4)); }, "040002006162"},
        {[&](Mif32& m) { return m.AddStr(4, noText); }, ""},
        {[&](Mif32& m) { return m.AddBin(5, bytes, 3); }, "05000300010203"},
        {[](Mif32& m) { return m.AddBin(5, nullptr, 0); }, ""},
        {[&](Mif32& m) { return m.Add(0x1234, bytes, 1); }, "3412010001"},
        {[](Mif32& m) { return m.Add(6, nullptr, 0); }, "06000000"},
        {[](Mif32& m) { return m.Add(6, nullptr, 1); }, ""},
        {[&](Mif32& m) { return m.AddIpAddr(7, &v6); }, "0700100020010db8000000000000000000000001"},
        {[&](Mif32& m) { return m.AddIpAddr(7, &odd); }, "07000000"},
        {[](Mif32& m) { return m.AddIpAddr(7, nullptr); }, ""},
        {[&](Mif32& m) { return m.AddIpAddrV4(7, &mapped); }, "070004000100a8c0"},
        {[&](Mif32& m) { return m.AddIpAddrV4(7, &v6); }, "0700040000000000"},
        {[](Mif32& m) { return m.AddIpAddrV4(7, nullptr); }, ""},
        {[](Mif32& m) { return m.RawAddLDWord(0x0102030405060708); }, "0807060504030201"},
        {[&](Mif32& m) { return m.RawAddBin(bytes, 3); }, "010203"},
        {[](Mif32& m) { return m.RawAddBin(nullptr, 0); }, ""},
        {[](Mif32& m) { return m.RawAddStr("ab"); }, "6162"},
        {[](Mif32& m) { return m.RawAddStr(nullptr); }, ""},
        {[](Mif32& m) { return m.AddEndKz(); }, "ffff"},
        // Under the end marker's identifier there are only empty values, which are the marker.
        {[](Mif32& m) { return m.Add(0xFFFF, nullptr, 0); }, "ffff"},
        {[&](Mif32& m) { return m.AddIpAddr(0xFFFF, &none); }, "ffff"},
        {[&](Mif32& m) { return m.Add(0xFFFF, bytes, 1); }, ""},
    };
    for (const Step& c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases) + ": " + c.expected);
        const unsigned int size = static_cast<unsigned int>(c.expected.size() / 2);
        Mif32 mif;
        mif.RawAddByte(0xAA);
        EXPECT_EQ(c.act(mif), size != 0);
        EXPECT_EQ(content(mif), "aa" + c.expected);
        Bytes memory(1 + size, 0xAA);
        mif.SetExternalMem(memory.data(), size, 1);
        EXPECT_FALSE(c.act(mif));
        EXPECT_EQ(memory, Bytes(1 + size, 0xAA));
        mif.SetExternalMem(memory.data(), 1 + size, 1);
        EXPECT_EQ(c.act(mif), size != 0);
        EXPECT_EQ(content(mif), "aa" + c.expected);
    }
}

// The example of docs/mif32-format.md.
TEST(Mif32, BuildsADocumentedMessage) {
    const QorIpAddr address("192.168.0.1");
    Mif32 mif;
    EXPECT_TRUE(mif.AddInt(1, 42) && mif.AddStr(2, "hi") && mif.AddIpAddr(3, &address) &&
                mif.AddInt64(0x0104, 0x100000000) && mif.AddEndKz());
    EXPECT_EQ(content(mif),
              "010004002a000000020002006869030004000100a8c0040108000000000001000000ffff");
    EXPECT_FALSE(mif.UpdInt(5, 7, 1));
    EXPECT_EQ(content(mif).substr(68), "0500040007000000ffff");
}

// Every length around those where the way of copying changes, and where 16 bits end.
TEST(Mif32, CopiesValuesOfEveryLength) {
    for (const unsigned int count :
         {1u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 65535u, 65536u}) {
        SCOPED_TRACE(count);
        Bytes bytes(count + 1);
        for (unsigned int i = 0; i < count; ++i) {
            bytes[i] = static_cast<unsigned char>('a' + i % 23);
        }
        Mif32 mif;
        EXPECT_TRUE(mif.AddBin(0x0101, bytes.data(), count));
        EXPECT_TRUE(mif.AddStr(0x0101, reinterpret_cast<const char*>(bytes.data())));
        const std::uint16_t header[] = {0x0101, static_cast<std::uint16_t>(count)};
        const std::string entry = hex(header, 4) + hex(bytes.data(), header[1]);
        EXPECT_TRUE(content(mif) == entry + entry);
    }
}

TEST(Mif32, HandlesTheEndMarker) {
    struct Case {
        std::string message;
        std::string added;   // after AddEndKz, or "refused"
        std::string deleted; // after DelEndKz; the same
    };
    const Case cases[] = {
        {"", "ffff", "refused"},
        {"0100010005ffff", "0100010005ffff", "0100010005"},
        {"ffff", "ffff", ""},
        {"ffff01", "ffff01", "refused"},
        {"ffff0100", "refused", "refused"},
        {"01000000ffff02000000", "refused", "refused"},
        {"01000200ffff", "01000200ffffffff", "refused"}, // inside a value
        {"0100000001ffff", "0100000001ffffffff", "refused"},
        {"0100ff0001ffff", "0100ff0001ffffffff", "refused"}, // a truncated entry
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const Bytes bytes = unhex(c.message);
        Mif32 added(bytes.data(), static_cast<unsigned int>(bytes.size()));
        Mif32 deleted(added);
        EXPECT_EQ(added.AddEndKz() ? content(added) : "refused", c.added);
        EXPECT_EQ(deleted.DelEndKz() ? content(deleted) : "refused", c.deleted);
        EXPECT_EQ(added.GetLen(), (c.added == "refused" ? c.message : c.added).size() / 2);
        EXPECT_EQ(deleted.GetLen(), (c.deleted == "refused" ? c.message : c.deleted).size() / 2);
    }
}

TEST(Mif32, GrowsByAFixedSlack) {
    Mif32 mif;
    walk(mif, {
                  {[](Mif32& m) { return m.CheckSize(0) && m.RawAddStr(""); }, "none of 0"},
                  {[](Mif32& m) { return m.RawAddDWord(0); }, "00000000 of 1004"},
                  {[](Mif32& m) { return m.CheckSize(1000); }, "00000000 of 1004"},
                  {[](Mif32& m) { return m.CheckSize(1001); }, "00000000 of 2005"},
                  // Sums that would wrap, the second by one, with the slack.
                  {[](Mif32& m) { return m.CheckSize(~0U); }, "!00000000 of 2005, failed"},
                  {[](Mif32& m) { return m.CheckSize(~0U - 1003); }, "!00000000 of 2005, failed"},
              });
}

// A value may come from the message itself, also when the buffer moves for it.
TEST(Mif32, AddsItsOwnBytes) {
    Mif32 mif;
    std::vector<Bytes> blocks; // keep the buffer from growing where it is
    mif.AddStr(1, std::string(1500, 'x'));
    const std::string message = content(mif);
    for (int round = 0; round < 40; ++round) {
        blocks.emplace_back(5000 + mif.GetLen());
        ASSERT_TRUE(mif.AddBin(2, mif.GetData(), 1504) && mif.RawAddBin(mif.GetData(), 1504));
        ASSERT_EQ(hex(mif.GetData() + mif.GetLen() - 3008, 3008), message + message);
    }
    EXPECT_TRUE(mif.SetData(mif.GetData() + 4, 1500));
    EXPECT_EQ(content(mif), message.substr(8));
    for (const unsigned int offset : {0u, 1u, 1499u}) {
        EXPECT_FALSE(mif.SetExternalMem(mif.GetData() + offset, 1, 0)) << "it would be freed";
    }
    EXPECT_EQ(mif.GetLen(), 1500u);
}

TEST(Mif32, TakesData) {
    Mif32 mif(reinterpret_cast<const unsigned char*>("abc"), 3);
    const char* const noText = nullptr;
    walk(mif, {
                  {[](Mif32& m) { return m.SetData(m.GetData(), 1); }, "616263 of 3"},
                  {[](Mif32& m) { return m.CheckSize(~0U); }, "!616263 of 3, failed"},
                  // Only emptying clears the flag.
                  {[](Mif32& m) { return m.SetData("de", 2); }, "6465 of 2, failed"},
                  {[](Mif32& m) { return m.SetData("x", 0); }, "none of 0"},
                  {[](Mif32& m) { return m.SetData("abc", 3); }, "616263 of 3"},
                  {[](Mif32& m) { return m.Alloc(2); }, " of 2"},
                  {[](Mif32& m) { return m.RawAddWord(0x0102); }, "0201 of 2"},
                  {[&](Mif32& m) { return m.SetData(noText, 5); }, "none of 0"},
                  {[](Mif32& m) { return m.Alloc(0) && m.RawAddByte(1); }, "01 of 1001"},
              });
}

TEST(Mif32, WorksInExternalMemory) {
    Bytes memory = unhex("eeee000000000000");
    unsigned char* const eight = memory.data();
    unsigned int freeBytes = 77;
    Mif32 mif;
    EXPECT_FALSE(mif.IsExternalMem(&freeBytes) || freeBytes != 77);
    walk(mif,
         {
             {[](Mif32& m) { return m.CheckSize(~0U); }, "!none of 0, failed"},
             {[](Mif32& m) { return m.SetExternalMem(nullptr, 8, 0); }, "!none of 0, failed"},
             {[&](Mif32& m) { return m.SetExternalMem(eight, 0, 0); }, "!none of 0, failed"},
             {[&](Mif32& m) { return m.SetExternalMem(eight, 8, 2); }, "eeee of 8, external"},
             {[](Mif32& m) { return m.Alloc(5); }, "!eeee of 8, external"},
             {[&](Mif32& m) { return m.SetExternalMem(eight, 8, 2); }, "eeee of 8, external"},
             {[&](Mif32& m) { return m.IsExternalMem(&freeBytes) && freeBytes == 6; },
              "eeee of 8, external"},
             {[](Mif32& m) { return m.AddStr(1, "a"); }, "eeee0100010061 of 8, external"},
             {[](Mif32& m) { return Mif32(m).RawAddByte(5); }, "eeee0100010061 of 8, external"},
             {[](Mif32& m) { return m.IsExternalMem(nullptr); }, "eeee0100010061 of 8, external"},
             {[](Mif32& m) { return m.SetData("a", 1); }, "61 of 1"},
             {[&](Mif32& m) { return m.SetExternalMem(eight, 8, 8); },
              "eeee010001006105 of 8, external"},
             {[](Mif32& m) { return m.ClearBuffer(), true; }, "none of 0"},
             {[&](Mif32& m) { return m.SetExternalMem(eight, 8, 8); },
              "eeee010001006105 of 8, external"},
             {[&](Mif32& m) { return m = Mif32(eight, 1), true; }, "ee of 1"},
         });
    EXPECT_EQ(hex(eight, 8), "eeee010001006105") << "neither wiped nor freed";
}

// Lengths may be set beyond the memory; nothing is read or written there, and what growing adds
// is zero.
TEST(Mif32, DoesNotTrustALengthBeyondItsMemory) {
    Bytes memory = unhex("01000000ffff");
    Mif32 external;
    EXPECT_TRUE(external.SetExternalMem(memory.data(), 6, 0xFFFFFFFF));
    unsigned int freeBytes = 77;
    EXPECT_TRUE(external.IsExternalMem(&freeBytes) && freeBytes == 0);
    EXPECT_FALSE(external.RawAddByte(1) || external.AddEndKz() || external.DelEndKz());
    EXPECT_EQ(external.GetLen(), 0xFFFFFFFF);
    testing::internal::CaptureStdout();
    external.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Len  : -1\nData : 01 00 00 00 ff ff \n");

    Mif32 owned(memory.data(), 6);
    owned.SetLen(7);
    EXPECT_FALSE(owned.AddEndKz() || owned.DelEndKz()) << "nobody would find the marker";
    Mif32 copy(owned);
    for (Mif32* const mif : {&owned, &copy}) {
        EXPECT_TRUE(mif->RawAddByte(5));
        EXPECT_EQ(state(*mif), "01000000ffff0005 of 1008");
    }
    Mif32 none;
    none.SetLen(3);
    EXPECT_TRUE(!none.DelEndKz() && none.AddEndKz());
    EXPECT_EQ(content(none), "000000ffff");
}

TEST(Mif32, CopiesTheWholeAllocation) {
    Mif32 original;
    original.RawAddWord(1);
    Mif32 copy(original);
    original.GetData()[0] = 9;
    walk(copy,
         {
             {[](Mif32&) { return true; }, "0100 of 1002"},
             {[](Mif32& m) { return &(m = static_cast<const Mif32&>(m)) == &m; }, "0100 of 1002"},
             {[](Mif32& m) { return m.CheckSize(~0U); }, "!0100 of 1002, failed"},
             {[&](Mif32& m) { return original = m, m = Mif32(), true; }, "none of 0"},
         });
    EXPECT_EQ(state(original), "0100 of 1002, failed");
}

TEST(Mif32, WipesTheWholeAllocation) {
    Mif32 mif;
    mif.RawAddByte(1);
    memset(mif.GetData(), 0xEE, 1001);
    mif.ClearBuffer();
    EXPECT_EQ(state(mif), " of 1001");
    EXPECT_EQ(Bytes(mif.GetData(), mif.GetData() + 1001), Bytes(1001));
    Mif32().ClearBuffer();
}

TEST(Mif32, PrintsAtMost65535Bytes) {
    testing::internal::CaptureStdout();
    Mif32(Bytes(70000, 0x0A).data(), 70000).Print();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.substr(0, 26), "Len  : 70000\nData : 0a 0a ");
    EXPECT_EQ(out.size(), strlen("Len  : 70000\nData : \n") + 65535 * 3);
}

} // namespace

// The rest needs the C library's own memory functions, in whose place sanitizers put others; clang
// does not tell of them by a macro.
#if defined(__GLIBC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) &&                 \
    !defined(__SANITIZE_THREAD__)

namespace {
const void* watchedBlock = nullptr; // its first bytes are kept when it is freed
Bytes freedBytes(64);
} // namespace

// A program may have a free of its own as long as it leaves the work to the C library's.
extern "C" void __libc_free(void* block);
extern "C" void free(void* block) noexcept {
    if (block != nullptr && block == watchedBlock) {
        watchedBlock = nullptr;
        memcpy(freedBytes.data(), block, freedBytes.size());
    }
    __libc_free(block);
}

namespace {

TEST(Mif32, WipesTheWholeAllocationAtItsEnd) {
    const Bytes secret(freedBytes.size(), 0xEE);
    freedBytes = secret;
    {
        Mif32 mif(secret.data(), static_cast<unsigned int>(secret.size()));
        mif.SetLen(1);
        watchedBlock = mif.GetData();
    }
    EXPECT_EQ(watchedBlock, nullptr) << "its free was not seen";
    EXPECT_EQ(freedBytes, Bytes(secret.size()));
}

// In a process of its own, whose memory ends at 256 MiB.
[[noreturn]] void runOutOfMemory() {
    const rlimit limit = {256U << 20, 256U << 20};
    setrlimit(RLIMIT_AS, &limit);
    unsigned char array[4] = {};
    Mif32 mif;
    walk(mif, {
                  {[](Mif32& m) { return m.RawAddDWord(1); }, "01000000 of 1004"},
                  {[](Mif32& m) { return m.CheckSize(1U << 30); }, "!01000000 of 1004, failed"},
              });
    mif.allocatedLength = 1U << 30; // a copy asks for as much
    const Mif32 copy(mif);
    EXPECT_EQ(state(copy), "none of 0, failed");
    EXPECT_EQ(copy.GetLen(), 0u);
    mif.allocatedLength = 1004;
    walk(mif,
         {
             {[](Mif32& m) { return m.SetData(m.GetData() + 1, 1U << 30); },
              "!none of 1004, failed"},
             {[](Mif32& m) { return m.GetLen() == 4 && m.RawAddByte(1); },
              "0000000001 of 1005, failed"},
             {[&](Mif32& m) { return m.SetExternalMem(array, 4, 4); }, "00000000 of 4, external"},
             {[&](Mif32& m) { return m.SetData(array + 1, 1U << 30); }, "!none of 4, failed"},
         });
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
