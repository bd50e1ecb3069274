#include "configfile.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const CONFIGBITMASK bits[] = {{1, "TCP"},     {2, "UDP"},  {12, "Wide"}, {0, "None"},
                              {0, "Nothing"}, {16, "udp"}, {32, ""}};
const CONFIGSTR2INT numbers[] = {{1, "TCP"}, {2, "UDP"}, {0, "Off"},
                                 {3, "udp"}, {2, "Two"}, {9, ""}};

TEST(ConfigFileWords, HaveThreeRulesForMasks) {
    const struct {
        unsigned int mask;
        const char *written, *shown;
    } masks[] = {
        {0, "", "Nothing"},
        {1, "TCP", "TCP"},
        {3, "TCP,UDP", "TCP, UDP"},
        {4, "Wide", "Nothing"},
        {14, "UDP,Wide", "UDP, Wide"},
        {32, "", "Nothing"},
    };
    ConfigFile config;
    for (const auto& m : masks) {
        SCOPED_TRACE(m.mask);
        char shown[32];
        config.OpenMem("[g]\n", -1);
        EXPECT_EQ(config.WriteBitMask("g", "k", bits, m.mask), 1);
        EXPECT_EQ(config.GetBuffer(), std::string("[g]\nk=") + m.written + "\n");
        ConfigFile::BitMask2Text(m.mask, bits, shown, sizeof shown);
        EXPECT_STREQ(shown, m.shown);
    }
    const struct {
        const char* text;
        unsigned int mask; // with the default 64
        signed char result;
    } texts[] = {
        {"tcp; udp", 67, 1}, {"TCP, UDP", 67, 1}, {"wide|tcp", 77, 1}, {"foo;,| udp;", 66, 0},
        {"tcp|foo", 65, 0},  {"", 64, 1},         {";|,", 64, 1},      {"tcp/udp", 64, 0},
        {"none", 64, 1},     {"tcp\tudp", 64, 0},
    };
    for (const auto& t : texts) {
        SCOPED_TRACE(t.text);
        config.OpenMem((std::string("[g]\nk=") + t.text + "\n").c_str(), -1);
        unsigned int mask = 7;
        EXPECT_EQ(config.ReadBitMaskDef("g", "k", bits, &mask, 64), t.result);
        EXPECT_EQ(mask, t.mask);
        EXPECT_EQ(config.ReadBitMask("g", "k", bits, &mask), t.result);
        EXPECT_EQ(mask, t.mask - 64);
    }
}

TEST(ConfigFileWords, StandForNumbers) {
    const struct {
        const char* text;
        unsigned int number; // with the default 7
        signed char result;
    } texts[] = {{"tcp ", 1, 1}, {"uDP", 2, 1}, {"off", 0, 1}, {"", 7, 0}, {"tcp,udp", 7, 0}};
    for (const auto& t : texts) {
        SCOPED_TRACE(t.text);
        ConfigFile config;
        config.OpenMem((std::string("[g]\nk=") + t.text + "\n").c_str(), -1);
        unsigned int number = 5;
        EXPECT_EQ(config.ReadStr2IntDef("g", "k", numbers, &number, 7), t.result);
        EXPECT_EQ(number, t.number);
        EXPECT_EQ(config.ReadStr2Int("g", "none", numbers, &number), 0);
        EXPECT_EQ(number, 0U);
    }
    EXPECT_STREQ(ConfigFile::Int2Text(2, numbers), "UDP");
    EXPECT_STREQ(ConfigFile::Int2Text(9, numbers), "");
    EXPECT_STREQ(ConfigFile::Int2Text(1, nullptr), "");
    const CONFIGSTR2INT endsWithNull[] = {{1, "TCP"}, {2, nullptr}};
    EXPECT_EQ(ConfigFile::Int2Text(2, endsWithNull), nullptr);
}

TEST(ConfigFileWords, StayInTheirBuffers) {
    const std::string words[] = {"########", "", "T", "TCP, ", "TCP, UD"};
    const unsigned int sizes[] = {0, 1, 2, 6, 8};
    for (std::size_t i = 0; i < 5; ++i) {
        char shown[] = "########";
        ConfigFile::BitMask2Text(3, bits, shown, sizes[i]);
        EXPECT_EQ(shown, words[i]);
    }
    const std::string longWord(300, 'w');
    const CONFIGBITMASK longBits[] = {{1, longWord.c_str()}, {1, longWord.c_str()}, {0, nullptr}};
    ConfigFile config;
    config.OpenMem("[g]\nk=1\n", -1);
    EXPECT_EQ(config.WriteBitMask("g", "k", longBits, 1), 1);
    EXPECT_EQ(config.GetBuffer(), "[g]\nk=" + longWord + "," + longWord.substr(90) + "\n");
}

TEST(ConfigFileWords, RefuseNull) {
    ConfigFile config;
    config.OpenMem("[g]\nk=TCP\n", -1);
    unsigned int out = 5;
    char shown[] = "kept";
    for (const int missing : {0, 1, 2, 3}) {
        const char* const group = missing == 0 ? nullptr : "g";
        const char* const name = missing == 1 ? nullptr : "k";
        const CONFIGBITMASK* const mask = missing == 2 ? nullptr : bits;
        unsigned int* const to = missing == 3 ? nullptr : &out;
        EXPECT_EQ(config.ReadBitMask(group, name, mask, to), 0);
        EXPECT_EQ(config.ReadStr2Int(group, name, missing == 2 ? nullptr : numbers, to), 0);
        EXPECT_EQ(config.WriteBitMask(group, name, mask, 2), missing == 3 ? 1 : 0);
        ConfigFile::BitMask2Text(1, mask, missing == 2 ? shown : nullptr, sizeof shown);
    }
    EXPECT_EQ(out, 5U);
    EXPECT_STREQ(shown, "kept");
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=UDP\n");
}

} // namespace
