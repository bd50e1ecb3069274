#include "configfile.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

const CONFIGBITMASK bits[] = {{1, "TCP"},     {2, "UDP"},  {12, "Wide"}, {0, "None"},
                              {0, "Nothing"}, {16, "udp"}, {32, ""}};
const CONFIGSTR2INT numbers[] = {{1, "TCP"}, {2, "UDP"}, {3, "udp"}, {2, "Two"}, {9, ""}};

TEST(ConfigFileWords, HaveThreeRulesForMasks) {
    const std::tuple<unsigned int, const char*, const char*> masksWrittenShown[] = {
        {0, "", "Nothing"}, {3, "TCP,UDP", "TCP, UDP"}, {36, "Wide", "Nothing"}};
    ConfigFile config;
    for (const auto& [from, written, shown] : masksWrittenShown) {
        char out[32];
        config.OpenMem("", 0);
        EXPECT_EQ(config.WriteBitMask("g", "k", bits, from), 1);
        EXPECT_EQ(config.GetBuffer(), std::string("\n\n[g]\nk=") + written + "\n");
        ConfigFile::BitMask2Text(from, bits, out, sizeof out);
        EXPECT_STREQ(out, shown);
    }
    unsigned int mask = 7;
    // With the default 64.
    const std::tuple<const char*, unsigned int, int> textsMasksResults[] = {
        {"tcp; udp", 67, 1}, {"foo;,| wide|", 76, 0}, {"", 64, 1}, {"tcp/udp", 64, 0}};
    for (const auto& [text, expected, result] : textsMasksResults) {
        SCOPED_TRACE(text);
        config.OpenMem((std::string("[g]\nk=") + text).c_str(), -1);
        EXPECT_EQ(config.ReadBitMaskDef("g", "k", bits, &mask, 64), result);
        EXPECT_EQ(mask, expected);
    }
    EXPECT_TRUE(config.ReadBitMask("g", "none", bits, &mask) == 0 && mask == 0);
    const std::string word(300, 'w');
    const CONFIGBITMASK endsWithNull[] = {{1, word.c_str()}, {1, word.c_str()}, {0, nullptr}};
    config.WriteBitMask("g", "k", endsWithNull, 1);
    EXPECT_EQ(config.GetBuffer(), "[g]\nk=" + word + "," + word.substr(90));
}

TEST(ConfigFileWords, StandForNumbers) {
    ConfigFile config;
    unsigned int number = 9;
    // With the default 7.
    const std::tuple<const char*, unsigned int, int> textsNumbersResults[] = {
        {"tcp ", 1, 1}, {"uDP", 2, 1}, {"", 7, 0}, {"tcp,udp", 7, 0}};
    for (const auto& [text, expected, result] : textsNumbersResults) {
        config.OpenMem((std::string("[g]\nk=") + text).c_str(), -1);
        EXPECT_EQ(config.ReadStr2IntDef("g", "k", numbers, &number, 7), result) << text;
        EXPECT_EQ(number, expected) << text;
    }
    EXPECT_STREQ(ConfigFile::Int2Text(2, numbers), "UDP");
    EXPECT_EQ(std::string(ConfigFile::Int2Text(9, numbers)) + ConfigFile::Int2Text(1, nullptr), "");
    const CONFIGSTR2INT endsWithNull[] = {{1, "TCP"}, {2, nullptr}};
    EXPECT_EQ(ConfigFile::Int2Text(2, endsWithNull), nullptr) << "kept";
    char shown[] = "kept";
    EXPECT_EQ(config.ReadBitMask(nullptr, "k", bits, &number), 0);
    EXPECT_EQ(config.ReadBitMask("g", "k", nullptr, &number), 0);
    EXPECT_EQ(config.ReadStr2Int("g", nullptr, numbers, &number), 0);
    EXPECT_EQ(config.ReadStr2Int("g", "k", nullptr, &number), 0);
    EXPECT_EQ(config.ReadStr2Int("g", "k", numbers, nullptr), 0);
    EXPECT_EQ(config.WriteBitMask("g", "k", nullptr, 2), 0);
    ConfigFile::BitMask2Text(1, nullptr, shown, sizeof shown);
    ConfigFile::BitMask2Text(1, bits, nullptr, sizeof shown);
    EXPECT_EQ(shown + std::to_string(number), "kept7") << "null changes nothing";
    EXPECT_TRUE(config.ReadStr2Int("g", "none", numbers, &number) == 0 && number == 0);
}

} // namespace
