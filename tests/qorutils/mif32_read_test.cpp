#include "mif32.h"

#include <gtest/gtest.h>

#include <string>

#include "hex.h"
#include "mif32_steps.h"

namespace {

TEST(Mif32Read, TakesNullOutputsWhereTheyAreAllowed) {
    Mif32 mif;
    mif.AddInt(1, 5);
    mif.AddStr(2, "");
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

TEST(Mif32Read, Updates) {
    const Bytes abc = {'a', 'b', 'c'};
    Mif32 mif;
    walk(mif,
         {
             {[](Mif32& m) { return m.UpdInt(1, 5, 1); }, "!0100040005000000 of 1008"},
             {[](Mif32& m) { return m.UpdInt(1, 6, 1); }, "0100040006000000 of 1008"},
             {[](Mif32& m) { return m.UpdInt(1, 6, 0); }, "!0100040006000000 of 1008"},
             {[&](Mif32& m) { return m.UpdBin(1, abc.data(), 3, 1); }, "01000300616263 of 17"},
             {[](Mif32& m) { return m.UpdStr(1, "a", 1); }, "0100010061 of 15"},
             {[](Mif32& m) { return m.AddEndKz(); }, "0100010061ffff of 15"},
             // What follows a short value is overwritten.
             {[](Mif32& m) { return m.UpdInt(1, 0x04030201, 1); }, "01000100010203 of 15"},
             {[](Mif32& m) { return m.UpdBin(1, nullptr, 0, 1); }, "!01000100010203 of 15"},
             {[](Mif32& m) { return m.UpdStr(1, nullptr, 1); }, "!01000100010203 of 15"},
             {[](Mif32& m) { return m.UpdStr(1, std::string(65537, 'a').c_str(), 1); },
              "01000100610203 of 17"},
             {[](Mif32& m) { return m.DelOid(1); }, "0203 of 17"},
             {[](Mif32& m) { return m.DelOid(1); }, "!0203 of 17"},
             {[](Mif32& m) { return m.SetData("\xFF\xFF", 2); }, "ffff of 2"},
             // The size grows as if the marker had not been there.
             {[](Mif32& m) { return m.UpdInt64(1, 5, 1); }, "!0100040005000000ffff of 1008"},
             {[](Mif32& m) { return m.UpdInt64(1, 1ULL << 32, 1); },
              "010008000000000001000000ffff of 24"},
             // Only the first one is replaced.
             {[](Mif32& m) { return m.DelEndKz() && m.AddStr(1, "a"); },
              "0100080000000000010000000100010061 of 24"},
             {[](Mif32& m) { return m.UpdInt64(1, 5, 2); }, "01000400050000000100010061 of 23"},
         });
}

// The value may lie in the message, and the marker that moves may be part of it.
TEST(Mif32Read, UpdatesFromItsOwnBytes) {
    Mif32 mif;
    mif.AddStr(1, "abc");
    mif.AddEndKz();
    EXPECT_FALSE(mif.UpdBin(2, mif.GetData(), 9, 1));
    EXPECT_EQ(content(mif), "010003006162630200090001000300616263ffffffff");
    EXPECT_TRUE(mif.UpdBin(1, mif.GetData() + 4, 9, 1));
    EXPECT_EQ(content(mif), "010009006162630200090001000200090001000300616263ffffffff");
}

// A length beyond the memory: readers end with the memory, what would move bytes refuses.
TEST(Mif32Read, DoesNotFollowALengthBeyondItsMemory) {
    for (const unsigned int used : {14U, 0xFFFFFFFFU}) {
        const Bytes before = unhex("01000400050000000200040000");
        Bytes memory = before;
        Mif32 mif;
        mif.SetExternalMem(memory.data(), 13, used);
        unsigned int value = 7;
        EXPECT_TRUE(mif.GetInt(1, &value, 1) && value == 5 && !mif.GetInt(2, &value, 1));
        EXPECT_FALSE(mif.UpdStr(1, "", 1) || mif.DelOid(1) || mif.UpdInt(2, 1, 1));
        EXPECT_TRUE(mif.GetLen() == used && memory == before);
        EXPECT_TRUE(mif.UpdInt(1, 6, 1) && memory[4] == 6);
    }
}

} // namespace
