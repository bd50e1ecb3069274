#include "mif32.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qoripaddr.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QOR_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QOR_SANITIZED 1
#endif
#endif

namespace {

using Bytes = std::vector<unsigned char>;

} // namespace

#if defined(__GLIBC__)
namespace {

// A block whose first bytes are kept when it is freed.
const volatile void* watchedBlock = nullptr;
Bytes freedBytes(64);

void keepFreedBytes(const volatile void* block) {
    if (block != nullptr && block == watchedBlock) {
        watchedBlock = nullptr;
        memcpy(freedBytes.data(), const_cast<const void*>(block), freedBytes.size());
    }
}

} // namespace

// Frees pass by here: the sanitizers offer a hook, and without them a program may have a free of
// its own as long as it leaves the work to the C library's.
#if defined(QOR_SANITIZED)
extern "C" void __sanitizer_free_hook(const volatile void* block) {
    keepFreedBytes(block);
}
#else
extern "C" void __libc_free(void* block);
extern "C" void free(void* block) noexcept {
    keepFreedBytes(block);
    __libc_free(block);
}
#endif
#endif

namespace {

std::string hex(const unsigned char* data, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        char text[4];
        std::snprintf(text, sizeof text, "%02x", data[i]);
        result += text;
    }
    return result;
}

std::string hex(const Mif32& mif) {
    return hex(mif.GetData(), mif.GetLen());
}

// Bytes, allocated length and flags, as in "0102 of 1002, failed, external".
std::string state(const Mif32& mif) {
    return (mif.GetData() == nullptr ? "none" : hex(mif)) + " of " +
           std::to_string(mif.GetAllocLen()) + (mif.allocationFailed != 0 ? ", failed" : "") +
           (mif.externalMemory != 0 ? ", external" : "");
}

Bytes unhex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// What an adder puts behind a byte that is there already; "refused" where it adds nothing.
template <typename Add>
std::string addedBy(Add add) {
    Mif32 mif;
    mif.RawAddByte(0xAA);
    const bool result = add(mif);
    EXPECT_EQ(hex(mif).substr(0, 2), "aa");
    EXPECT_TRUE(result || mif.GetLen() == 1);
    return result ? hex(mif).substr(2) : "refused";
}

#define ADDED(call) addedBy([&](Mif32& mif) { return mif.call; })

TEST(Mif32, WritesEntries) {
    const unsigned char bytes[] = {1, 2, 3};
    const char* const noText = nullptr;
    EXPECT_EQ(ADDED(AddBool(1, true)), "0100040001000000");
    EXPECT_EQ(ADDED(AddBool(1, false)), "0100040000000000");
    EXPECT_EQ(ADDED(AddInt(0xFFFE, 0x89ABCDEF)), "feff0400efcdab89");
    EXPECT_EQ(ADDED(AddInt64(2, 0xFFFFFFFF)), "02000400ffffffff");
    EXPECT_EQ(ADDED(AddInt64(2, 0x100000000)), "020008000000000001000000");
    EXPECT_EQ(ADDED(AddTime(3, 0x1234567890)), "0300040090785634");
    EXPECT_EQ(ADDED(AddTime(3, -1)), "03000400ffffffff");
    EXPECT_EQ(ADDED(AddStr(4, "abc")), "04000300616263");
    EXPECT_EQ(ADDED(AddStr(4, "")), "04000000");
    EXPECT_EQ(ADDED(AddStr(4, std::string("ab\0c", 4))), "040002006162");
    EXPECT_EQ(ADDED(AddBin(5, bytes, 3)), "05000300010203");
    EXPECT_EQ(ADDED(Add(0x1234, bytes, 1)), "3412010001");
    EXPECT_EQ(ADDED(Add(6, nullptr, 0)), "06000000");
    EXPECT_EQ(ADDED(Add(1, nullptr, 1)), "refused");
    EXPECT_EQ(ADDED(AddStr(1, noText)), "refused");
    EXPECT_EQ(ADDED(AddBin(1, nullptr, 0)), "refused");
    EXPECT_EQ(ADDED(RawAddWord(0x0102)), "0201");
    EXPECT_EQ(ADDED(RawAddDWord(0x01020304)), "04030201");
    EXPECT_EQ(ADDED(RawAddLDWord(0x0102030405060708)), "0807060504030201");
    EXPECT_EQ(ADDED(RawAddBin(bytes, 3)), "010203");
    EXPECT_EQ(ADDED(RawAddStr("ab")), "6162");
    EXPECT_EQ(ADDED(RawAddBin(nullptr, 0)), "refused");
    EXPECT_EQ(ADDED(RawAddStr(nullptr)), "refused");
}

TEST(Mif32, TakesOnlyEmptyValuesUnderTheEndMarkersIdentifier) {
    const unsigned char byte = 1;
    const QorIpAddr none;
    const QorIpAddr v6("::1");
    EXPECT_EQ(ADDED(Add(0xFFFF, nullptr, 0)), "ffff");
    EXPECT_EQ(ADDED(AddStr(0xFFFF, "")), "ffff");
    EXPECT_EQ(ADDED(AddBin(0xFFFF, &byte, 0)), "ffff");
    EXPECT_EQ(ADDED(AddIpAddr(0xFFFF, &none)), "ffff");
    EXPECT_EQ(ADDED(Add(0xFFFF, &byte, 1)), "refused");
    EXPECT_EQ(ADDED(AddStr(0xFFFF, "a")), "refused");
    EXPECT_EQ(ADDED(AddBin(0xFFFF, &byte, 1)), "refused");
    EXPECT_EQ(ADDED(AddIpAddr(0xFFFF, &v6)), "refused");
    EXPECT_EQ(ADDED(AddInt(0xFFFF, 0)), "refused");
}

TEST(Mif32, WritesAddresses) {
    const QorIpAddr v4("192.168.0.1");
    const QorIpAddr mapped("::ffff:192.168.0.1");
    const QorIpAddr v6("2001:db8::1");
    const QorIpAddr none;
    const QorIpAddr odd(v6.address, 17);
    EXPECT_EQ(ADDED(AddIpAddr(1, &v4)), "010004000100a8c0");
    EXPECT_EQ(ADDED(AddIpAddr(1, &v6)), "0100100020010db8000000000000000000000001");
    EXPECT_EQ(ADDED(AddIpAddr(1, &mapped)), "0100100000000000000000000000ffffc0a80001");
    EXPECT_EQ(ADDED(AddIpAddr(1, &none)), "01000000");
    EXPECT_EQ(ADDED(AddIpAddr(1, &odd)), "01000000");
    EXPECT_EQ(ADDED(AddIpAddr(1, nullptr)), "refused");
    EXPECT_EQ(ADDED(AddIpAddrV4(1, &mapped)), "010004000100a8c0");
    EXPECT_EQ(ADDED(AddIpAddrV4(1, &v6)), "0100040000000000");
    EXPECT_EQ(ADDED(AddIpAddrV4(1, nullptr)), "refused");
}

// The example of docs/mif32-format.md.
TEST(Mif32, BuildsADocumentedMessage) {
    const QorIpAddr address("192.168.0.1");
    Mif32 mif;
    EXPECT_TRUE(mif.AddInt(1, 42) && mif.AddStr(2, "hi") && mif.AddIpAddr(3, &address));
    EXPECT_TRUE(mif.AddInt64(0x0104, 0x100000000) && mif.AddEndKz());
    EXPECT_EQ(hex(mif), "010004002a00000002000200686903000400"
                        "0100a8c004010800"
                        "0000000001000000ffff");
}

// Every length around those where the way of copying changes, and where 16 bits end.
TEST(Mif32, CopiesValuesOfEveryLength) {
    for (const std::size_t count :
         {1u, 2u, 3u, 4u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 32u, 33u, 65535u, 65536u, 65537u}) {
        SCOPED_TRACE(count);
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text.push_back(static_cast<char>('a' + i % 23));
        }
        const Bytes bytes(text.begin(), text.end());
        const std::size_t kept = count % 65536;
        Mif32 mif;
        EXPECT_TRUE(mif.AddStr(0x0101, text.c_str()));
        EXPECT_TRUE(mif.AddBin(0x0101, bytes.data(), static_cast<unsigned int>(count)));
        ASSERT_EQ(mif.GetLen(), 2 * (4 + kept));
        const unsigned char header[] = {1, 1, static_cast<unsigned char>(kept),
                                        static_cast<unsigned char>(kept >> 8)};
        for (const unsigned char* entry : {mif.GetData(), mif.GetData() + 4 + kept}) {
            EXPECT_EQ(memcmp(entry, header, 4), 0);
            EXPECT_EQ(memcmp(entry + 4, text.data(), kept), 0);
        }
    }
}

TEST(Mif32, HandlesTheEndMarker) {
    struct Case {
        const char* message;
        const char* added;   // after AddEndKz; null: false, and nothing changed
        const char* deleted; // after DelEndKz; the same
    };
    const Case cases[] = {
        {"", "ffff", nullptr},
        {"01", "01ffff", nullptr},
        {"01000000", "01000000ffff", nullptr},
        {"0100010005ffff", "0100010005ffff", "0100010005"},
        {"ffff", "ffff", ""},
        {"ffff01", "ffff01", nullptr},
        {"ffff0100", nullptr, nullptr},
        {"ffffffff", nullptr, nullptr},
        {"01000000ffff02000000", nullptr, nullptr},
        {"01000200ffff", "01000200ffffffff", nullptr}, // inside a value
        {"01ffff", "01ffffffff", nullptr},
        {"0100000001ffff", "0100000001ffffffff", nullptr},
        {"0100000001", "0100000001ffff", nullptr},
        {"0100ff0001ffff", "0100ff0001ffffffff", nullptr}, // a truncated entry
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        const Bytes bytes = unhex(c.message);
        Mif32 added(bytes.data(), static_cast<unsigned int>(bytes.size()));
        Mif32 deleted(added);
        EXPECT_EQ(added.AddEndKz(), c.added != nullptr);
        EXPECT_EQ(hex(added), c.added == nullptr ? c.message : c.added);
        EXPECT_EQ(deleted.DelEndKz(), c.deleted != nullptr);
        EXPECT_EQ(hex(deleted), c.deleted == nullptr ? c.message : c.deleted);
    }
}

TEST(Mif32, GrowsByAFixedSlack) {
    Mif32 mif;
    const unsigned char byte = 1;
    EXPECT_TRUE(mif.CheckSize(0) && mif.RawAddStr("") && mif.RawAddBin(&byte, 0));
    EXPECT_EQ(state(mif), "none of 0") << "nothing fits without a buffer";
    EXPECT_TRUE(mif.RawAddDWord(0));
    EXPECT_EQ(state(mif), "00000000 of 1004");
    EXPECT_TRUE(mif.CheckSize(1000));
    EXPECT_EQ(state(mif), "00000000 of 1004");
    EXPECT_TRUE(mif.CheckSize(1001));
    EXPECT_EQ(state(mif), "00000000 of 2005");
    EXPECT_FALSE(mif.CheckSize(0xFFFFFFFF)) << "the sum would wrap";
    EXPECT_FALSE(mif.CheckSize(0xFFFFFFFF - 4 - 999)) << "with the slack it would";
    EXPECT_EQ(state(mif), "00000000 of 2005, failed");
}

// A value may come from the message itself, also when the buffer moves for it.
TEST(Mif32, AddsItsOwnBytes) {
    const std::string filler(1500, 'x');
    Mif32 mif;
    mif.AddStr(1, filler);
    const std::string message(reinterpret_cast<const char*>(mif.GetData()), mif.GetLen());
    for (int round = 0; round < 40; ++round) {
        ASSERT_TRUE(mif.AddBin(2, mif.GetData(), 1504));
        ASSERT_TRUE(mif.RawAddBin(mif.GetData(), 1504));
        const char* const end = reinterpret_cast<const char*>(mif.GetData()) + mif.GetLen();
        ASSERT_EQ(std::string(end - 1504, 1504), message);
        ASSERT_EQ(std::string(end - 3008, 1504), message);
    }
    EXPECT_TRUE(mif.SetData(mif.GetData() + 4, 1500));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(mif.GetData()), mif.GetLen()), filler);
    for (const unsigned int offset : {0u, 1u, 1499u}) {
        EXPECT_FALSE(mif.SetExternalMem(mif.GetData() + offset, 1, 0)) << "it would be freed";
    }
    EXPECT_EQ(mif.GetLen(), 1500u);
}

TEST(Mif32, TakesData) {
    Mif32 mif(reinterpret_cast<const unsigned char*>("abc"), 3);
    EXPECT_EQ(state(mif), "616263 of 3");
    EXPECT_TRUE(mif.SetData(mif.GetData(), 1));
    EXPECT_EQ(state(mif), "616263 of 3") << "its own buffer changes nothing";
    mif.CheckSize(0xFFFFFFFF);
    EXPECT_TRUE(mif.SetData("de", 2));
    EXPECT_EQ(state(mif), "6465 of 2, failed") << "only emptying clears the flag";
    EXPECT_TRUE(mif.SetData("x", 0));
    EXPECT_EQ(state(mif), "none of 0");
    mif.SetData("abc", 3);
    EXPECT_TRUE(mif.Alloc(2));
    EXPECT_EQ(state(mif), " of 2");
    EXPECT_TRUE(mif.RawAddWord(0x0102));
    EXPECT_EQ(state(mif), "0201 of 2");
    EXPECT_TRUE(mif.SetData(static_cast<const char*>(nullptr), 5));
    EXPECT_EQ(state(mif), "none of 0");
    EXPECT_TRUE(mif.Alloc(0));
    EXPECT_TRUE(mif.RawAddByte(1));
    EXPECT_EQ(state(mif), "01 of 1001");
}

TEST(Mif32, WorksInExternalMemory) {
    Bytes memory(8, 0xEE);
    unsigned int freeBytes = 77;
    Mif32 mif;
    EXPECT_FALSE(mif.IsExternalMem(&freeBytes));
    EXPECT_EQ(freeBytes, 77u);
    EXPECT_FALSE(mif.SetExternalMem(nullptr, 8, 0));
    EXPECT_FALSE(mif.SetExternalMem(memory.data(), 0, 0));
    mif.CheckSize(0xFFFFFFFF);
    EXPECT_TRUE(mif.SetExternalMem(memory.data(), 8, 2));
    EXPECT_EQ(state(mif), "eeee of 8, external");
    EXPECT_TRUE(mif.IsExternalMem(&freeBytes));
    EXPECT_EQ(freeBytes, 6u);
    EXPECT_TRUE(mif.IsExternalMem(nullptr));
    EXPECT_FALSE(mif.Alloc(5));
    EXPECT_TRUE(mif.SetExternalMem(memory.data(), 8, 2)) << "the same once more";
    EXPECT_TRUE(mif.AddStr(1, "a"));
    EXPECT_EQ(state(mif), "eeee0100010061 of 8, external");

    Mif32 shared(mif);
    EXPECT_TRUE(shared.RawAddByte(5)) << "fits exactly";
    EXPECT_EQ(hex(memory.data(), 8), "eeee010001006105");
    shared.ClearBuffer();
    EXPECT_EQ(state(shared), "none of 0");
    EXPECT_EQ(memory[7], 5) << "forgotten untouched";
    EXPECT_TRUE(mif.SetData("a", 1));
    EXPECT_EQ(state(mif), "61 of 1");

    unsigned char array[4] = {1, 2, 3, 4};
    EXPECT_TRUE(mif.SetExternalMem(array, 4, 4));
    mif = Mif32(array, 1);
    EXPECT_EQ(state(mif), "01 of 1");
    EXPECT_EQ(hex(array, 4), "01020304") << "neither wiped nor freed";
}

TEST(Mif32, RefusesWhatExternalMemoryHasNoRoomFor) {
    struct Case {
        const char* name;
        bool (*add)(Mif32& mif);
        std::size_t size;
    };
    const Case cases[] = {
        {"RawAddByte", [](Mif32& mif) { return mif.RawAddByte(1); }, 1},
        {"RawAddBin", [](Mif32& mif) { return mif.RawAddBin(Bytes(3).data(), 3); }, 3},
        {"RawAddStr", [](Mif32& mif) { return mif.RawAddStr("abc"); }, 3},
        {"AddInt", [](Mif32& mif) { return mif.AddInt(1, 2); }, 8},
        {"AddStr", [](Mif32& mif) { return mif.AddStr(1, "abc"); }, 7},
        {"AddStr, empty", [](Mif32& mif) { return mif.AddStr(1, ""); }, 4},
        {"AddBin", [](Mif32& mif) { return mif.AddBin(1, Bytes(9).data(), 9); }, 13},
        {"AddIpAddr",
         [](Mif32& mif) {
             const QorIpAddr v6("::1");
             return mif.AddIpAddr(1, &v6);
         },
         20},
        {"AddEndKz", [](Mif32& mif) { return mif.AddEndKz(); }, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes memory(4 + c.size, 0);
        Mif32 mif;
        mif.SetExternalMem(memory.data(), static_cast<unsigned int>(memory.size() - 1), 4);
        EXPECT_FALSE(c.add(mif));
        EXPECT_EQ(mif.GetLen(), 4u);
        EXPECT_EQ(memory, Bytes(memory.size()));
        mif.SetExternalMem(memory.data(), static_cast<unsigned int>(memory.size()), 4);
        EXPECT_TRUE(c.add(mif));
        EXPECT_EQ(mif.GetLen(), memory.size());
    }
}

// Lengths may be set beyond the memory; nothing is read or written there, and what growing adds
// is zero.
TEST(Mif32, DoesNotTrustALengthBeyondItsMemory) {
    Bytes memory = unhex("01000000ffff");
    Mif32 external;
    EXPECT_TRUE(external.SetExternalMem(memory.data(), 6, 0xFFFFFFFF));
    unsigned int freeBytes = 77;
    EXPECT_TRUE(external.IsExternalMem(&freeBytes));
    EXPECT_EQ(freeBytes, 0u);
    EXPECT_FALSE(external.RawAddByte(1));
    EXPECT_FALSE(external.AddEndKz()) << "nobody would find that marker at the end";
    EXPECT_FALSE(external.DelEndKz());
    EXPECT_EQ(external.GetLen(), 0xFFFFFFFF);
    testing::internal::CaptureStdout();
    external.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Len  : -1\nData : 01 00 00 00 ff ff \n");

    Mif32 owned(memory.data(), 6);
    owned.SetLen(7);
    EXPECT_FALSE(owned.AddEndKz());
    EXPECT_FALSE(owned.DelEndKz());
    EXPECT_EQ(owned.GetLen(), 7u);
    Mif32 copy(owned);
    for (Mif32* const mif : {&owned, &copy}) {
        EXPECT_TRUE(mif->RawAddByte(5));
        EXPECT_EQ(state(*mif), "01000000ffff0005 of 1008");
    }
    Mif32 none;
    none.SetLen(3);
    EXPECT_FALSE(none.DelEndKz());
    EXPECT_TRUE(none.AddEndKz());
    EXPECT_EQ(hex(none), "000000ffff");
}

TEST(Mif32, CopiesTheWholeAllocation) {
    Mif32 original;
    original.RawAddWord(1);
    const Mif32 copy(original);
    Mif32 assigned(reinterpret_cast<const unsigned char*>("x"), 1);
    assigned = original;
    original.GetData()[0] = 9;
    EXPECT_EQ(state(copy), "0100 of 1002");
    EXPECT_EQ(state(assigned), "0100 of 1002");
    const Mif32& self = assigned;
    assigned = self;
    EXPECT_EQ(state(assigned), "0100 of 1002");
    assigned.CheckSize(0xFFFFFFFF);
    EXPECT_EQ(state(Mif32(assigned)), "0100 of 1002, failed");
    assigned = Mif32();
    EXPECT_EQ(state(assigned), "none of 0");
}

TEST(Mif32, WipesTheWholeAllocation) {
    Mif32 mif;
    mif.RawAddBin(Bytes(500).data(), 500);
    memset(mif.GetData(), 0xEE, 1500);
    mif.SetLen(1);
    mif.ClearBuffer();
    EXPECT_EQ(state(mif), " of 1500");
    EXPECT_EQ(Bytes(mif.GetData(), mif.GetData() + 1500), Bytes(1500));
    Mif32().ClearBuffer();
}

#if defined(__GLIBC__)
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
#endif

TEST(Mif32, PrintsAtMost65535Bytes) {
    const Bytes bytes(70000, 0x0A);
    const Mif32 mif(bytes.data(), 70000);
    testing::internal::CaptureStdout();
    mif.Print();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.substr(0, 26), "Len  : 70000\nData : 0a 0a ");
    EXPECT_EQ(out.size(), strlen("Len  : 70000\nData : \n") + 65535 * 3);
}

#if defined(__linux__) && !defined(QOR_SANITIZED)
// In a process of its own, whose memory ends at 256 MiB.
[[noreturn]] void runOutOfMemory() {
    const rlimit limit = {256U << 20, 256U << 20};
    setrlimit(RLIMIT_AS, &limit);
    Mif32 mif;
    mif.RawAddDWord(1);
    const bool kept = !mif.CheckSize(1U << 30) && state(mif) == "01000000 of 1004, failed";
    mif.allocatedLength = 1U << 30; // a copy asks for as much
    const Mif32 copy(mif);
    mif.allocatedLength = 1004;
    const bool empty = state(copy) == "none of 0, failed" && copy.GetLen() == 0;
    const bool noData = !mif.SetData(mif.GetData() + 1, 1U << 30) &&
                        state(mif) == "none of 1004, failed" && mif.GetLen() == 4;
    const bool usable = mif.RawAddByte(1) && state(mif) == "0000000001 of 1005, failed";
    unsigned char array[4] = {};
    const bool owned = mif.SetExternalMem(array, 4, 4) && !mif.SetData(array + 1, 1U << 30) &&
                       state(mif) == "none of 4, failed";
    std::exit((kept ? 0 : 1) + (empty ? 0 : 2) + (noData ? 0 : 4) + (usable ? 0 : 8) +
              (owned ? 0 : 16));
}

TEST(Mif32, SurvivesTheLackOfMemory) {
    EXPECT_EXIT(runOutOfMemory(), testing::ExitedWithCode(0), "");
}
#endif

} // namespace
