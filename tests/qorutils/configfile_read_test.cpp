#include "configfile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

const std::string notFound = "(not found)";

// So many letters.
std::string x(std::size_t count) {
    return std::string(count, 'x');
}

// A document over an exact copy, so that a byte too far shows.
void open(ConfigFile& config, const std::string& text, unsigned int options = 0) {
    ASSERT_EQ(config.SetOptions(options), 1);
    const std::vector<char> bytes(text.begin(), text.end());
    ASSERT_EQ(config.OpenMem(bytes.data(), static_cast<int>(bytes.size())), 1);
}

std::string valueOf(const ConfigFile& config, const std::string& group, const std::string& name) {
    char value[600];
    const auto found = config.ReadStr(group.c_str(), name.c_str(), value, sizeof value);
    return found != 0 ? value : notFound;
}

// The lines that the iteration gives, as "name=value".
Texts linesOf(ConfigFile& config, const std::string& group) {
    Texts lines;
    char name[300];
    char value[300];
    for (auto more = config.GetFirstParam(group.c_str(), name, sizeof name, value, sizeof value);
         more != 0; more = config.GetNextParam(name, sizeof name, value, sizeof value)) {
        lines.push_back(std::string(name) + "=" + value);
    }
    EXPECT_EQ(config.GetNextParam(name, sizeof name, value, sizeof value), 0) << "stays at its end";
    EXPECT_STREQ(name, "");
    return lines;
}

Texts groupsOf(ConfigFile& config) {
    Texts groups;
    char name[300];
    for (auto more = config.GetFirstGroup(name, sizeof name); more != 0;
         more = config.GetNextGroup(name, sizeof name)) {
        groups.emplace_back(name);
    }
    EXPECT_EQ(config.GetNextGroup(name, sizeof name), 0) << "stays at its end";
    return groups;
}

TEST(ConfigFileRead, FindsAndListsGroups) {
    const std::tuple<const char*, std::string, const char*, int, Texts> cases[] = {
        {"in text order", "x\n[b]\n[ A ]\r  [b][]\n[]", "B", 1, {"b", " A ", "b", ""}},
        {"not first on their lines", "#[g]\n\t[g]\nx[g]\n[a] [g]#[b]\n", "g", 0, {"a"}},
        {"kept: a comment in the brackets is listed", "[a#b]\nx]\n", "a#b", 1, {"a#b]\nx"}},
        {"kept: or hides the header", "[a#b]\n[c]", "a#b", 1, {"c"}},
        {"unclosed name ends at the next header", "[a\n[b]\n[c", "a\n[b", 0, {"b"}},
        {"ends at the first closing bracket", "[a]b]\n", "a]b", 0, {"a"}},
    };
    for (const auto& [name, text, wanted, exists, listed] : cases) {
        ConfigFile config;
        open(config, text, 2);
        EXPECT_EQ(config.ExistGroup(wanted), exists) << name;
        EXPECT_EQ(groupsOf(config), listed) << name;
    }
}

TEST(ConfigFileRead, FindsAndListsValues) {
    const std::string blanks510(510, ' ');
    const std::string a255 = "a=" + x(255);
    const struct {
        const char* name;
        unsigned int options;
        std::string lines, wanted, value;
        Texts listed;
    } cases[] = {
        {"bytes 0x20 apart that are no letters", 0, "@=1\n", "`", notFound, {"@=1"}},
        {"kept: a last line without its end", 0, "a=1\nk=v", "k", "v", {"a=1"}},
        {"case, line ends", 0, "#\rK=v\r\n\r\nk=2\r", "k", "v", {"K=v", "k=2"}},
        {"kept: blanks in the name", 0, "\t m \tk = x\n", "mk", "x", {"m k=x"}},
        {"quotes and tabs go", 0, "\"k\"=\ta\tb\t\n", "k", "ab", {"k=ab"}},
        {"kept: last letters", 0, "k\xE9=1\nk=\xE9t\xE9\x01\n", "k", "\xE9t", {"k=1", "k=\xE9t"}},
        {"comments", 0, "#k=1\nk#=2\nkeys=3\nk=v # = ## \"c\n", "k", "v", {"keys=3", "k=v"}},
        {"doubled", 0, "k=##a##b###c\n", "k", "#a#b#", {"k=#a#b#"}},
        {"no comments", 2, "#k=a#b##c\n", "#k", "a#b##c", {"#k=a#b##c"}},
        {"quoted up to the last quote", 1, "k=\"a\"b\xE9\"c\n", "k", "a\"b\xE9", {"k=a\"b\xE9"}},
        {"kept: quoted, doubled stays", 1, "k=\"a##\tb\"\n", "k", "a##b", {"k=a##b"}},
        {"never closed", 1, "a=\" x # \nk= v #c\n", "k", "v", {"a= x # ", "k=v"}},
        {"quote behind the value's start", 1, "k=a \"b\" #c\n", "k", "a \"b\"", {"k=a \"b\""}},
        // Lookups give up lines of 511 characters. Kept: the iteration ends at 256.
        {"names of 255, 256", 0, x(255) + "=1\n" + x(256) + "=2\nk=3\n", "k", "3", {x(255) + "=1"}},
        {"values of 255, 256", 0, "a=" + x(255) + "#\nk=" + x(256) + "\nb=\n", "k", x(256), {a255}},
        {"name of 511", 0, x(511) + "=v\n", x(511), notFound, {}},
        {"values of 511, 510", 0, "k=" + x(511) + "k=1\nk=" + x(510) + "\n", "k", x(510), {}},
        {"value of 511 with its blanks", 0, "k=v" + blanks510 + "\n", "k", notFound, {}},
        {"what is skipped", 0, "k=" + blanks510 + " v#" + x(600) + "\n", "k", "v", {"k=v"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, "k=before any group\n[other]\nk=other\n[g]\n" + c.lines, c.options);
        EXPECT_EQ(config.SetOptions(4), 0) << "changes nothing";
        EXPECT_EQ(valueOf(config, "G", c.wanted), c.value);
        EXPECT_EQ(linesOf(config, "G"), c.listed);
        for (std::size_t i = c.lines.size(); i-- > 0;) { // what a prefix gives ends with it
            open(config, "[g]\n" + c.lines.substr(0, i), c.options);
            EXPECT_LE(linesOf(config, "g").size(), c.listed.size());
            EXPECT_LE(valueOf(config, "g", c.wanted).size(), std::max(i, notFound.size()));
        }
    }
}

TEST(ConfigFileRead, FillsItsOutputs) {
    ConfigFile config;
    char name[] = "#####", value[] = "#####";
    open(config, "[g]\nname=value\n[h]\na=1\nb=2");
    EXPECT_EQ(config.ReadStr("g", "name", name, 3), 1);
    EXPECT_EQ(std::string(name, sizeof name), std::string("va\0##\0", 6));
    EXPECT_EQ(config.GetFirstParam("g", name, 3, value, 4), 1);
    EXPECT_EQ(std::string(name, 3) + std::string(value, 6), std::string("na\0val\0#\0", 9));
    EXPECT_EQ(config.GetFirstParam("h", name, 3, value, 4), 1);
    EXPECT_EQ(config.GetNextParam(name, 3, value, 4), 0);
    EXPECT_EQ(name + std::string(value), "b1") << "the line that ends the iteration, as it was";
    EXPECT_EQ(config.GetFirstParam("missing", name, 3, nullptr, 0), 0);
    EXPECT_EQ(config.GetNextParam(name, 3, value, 4), 0) << "ended";
    EXPECT_EQ(config.GetFirstGroup(name, 2), 1);
    EXPECT_EQ(config.GetFirstGroup(nullptr, 8), 0);
    EXPECT_EQ(config.GetNextGroup(nullptr, 8), 0);
    EXPECT_EQ(config.GetNextGroup(name, 2), 1) << "an iteration goes on";
    EXPECT_STREQ(name, "h");
    EXPECT_EQ(config.GetFirstParam("h", name, 2, nullptr, 0), 1);
    EXPECT_EQ(config.DeleteGroup("g"), 1) << "which ends iterations";
    EXPECT_TRUE(config.GetNextGroup(name, 2) == 0 && config.GetNextParam(name, 2, value, 2) == 0);
}

TEST(ConfigFileRead, ComparesValues) {
    ConfigFile config;
    open(config, "[g]\nKey1=a\nkey2=b=c\nkey2=D\nkey3=akey4=x\nk=e");
    EXPECT_EQ(config.ExistStr("g", "key2", "d"), 0) << "case of the value";
    EXPECT_EQ(config.ExistStr("g", "key2", "D"), 1) << "every line of the name";
    EXPECT_EQ(config.ExistNStr("g", "key9", "D", 3), 1) << "every line of the prefix";
    EXPECT_EQ(config.ExistNStr("g", "key1", "D", 4), 0) << "the length is the name's";
    EXPECT_EQ(config.ExistNStr("g", "key", "a", 4), 0) << "longer than the name";
    EXPECT_EQ(config.ExistNStr("g", "key", "x", 3), 0) << "a value is no line";
    EXPECT_EQ(config.ExistNStr("g", "key", "e", 3), 0) << "shorter than the prefix";
    EXPECT_EQ(config.ExistStr("g", "k", "f"), 0) << "and no line behind it";
}

TEST(ConfigFileRead, ConvertsNumbersAndTruth) {
    const signed char kept = 9; // the default
    const std::string zeros(254, '0');
    const std::tuple<std::string, unsigned int, signed char> textsNumbersTruths[] = {
        {"+01x", 1, 1},
        {"-5", UINT_MAX - 4, kept},
        {"0x10", 0, kept},
        {"4294967297", 1, kept},
        {"yes", 0, 1},
        {"ON", 0, 1},
        {"0", 0, 0},
        {"oFF", 0, 0},
        {"No", 0, 0},
        {zeros + "1", 1, 1},
        {zeros + "01", 0, kept}};
    for (const auto& [text, expectedNumber, expectedTruth] : textsNumbersTruths) {
        SCOPED_TRACE(text);
        ConfigFile config;
        open(config, "[g]\nk=" + text + "\n");
        unsigned int number = 7;
        signed char truth = 7;
        EXPECT_EQ(config.ReadIntDef("g", "k", &number, 5), 1);
        EXPECT_EQ(number, expectedNumber);
        EXPECT_EQ(config.ReadBoolDef("g", "k", &truth, kept), 1);
        EXPECT_EQ(truth, expectedTruth);
    }
}

TEST(ConfigFileRead, StoresDefaultsAndRefusesNull) {
    ConfigFile config;
    open(config, "[g]\nk=1\n[h]\n");
    char kept[8] = "kept";
    for (const auto& [group, name] : std::initializer_list<std::pair<const char*, const char*>>{
             {"g", "none"}, {"h", "k"}, {nullptr, "k"}, {"g", nullptr}}) {
        unsigned int number = 7;
        signed char truth = 7;
        char text[] = "kept";
        EXPECT_TRUE(config.ReadIntDef(group, name, &number, 5) == 0 && number == 5);
        EXPECT_TRUE(config.ReadInt(group, name, &number) == 0 && number == 0);
        EXPECT_TRUE(config.ReadBoolDef(group, name, &truth, 1) == 0 && truth == 1);
        EXPECT_TRUE(config.ReadBool(group, name, &truth) == 0 && truth == 0);
        EXPECT_EQ(config.ReadStrDef(group, name, text, 2, "default"), 0);
        EXPECT_STREQ(text, group == nullptr || name == nullptr ? "kept" : "d");
        EXPECT_EQ(config.ExistStr(group, name, "1"), 0);
    }
    EXPECT_EQ(config.ReadStrDef("g", "k", nullptr, 8, ""), 0);
    EXPECT_EQ(config.ReadStrDef("g", "k", kept, 8, nullptr), 0);
    EXPECT_EQ(config.ReadInt("g", "k", nullptr) + config.ReadBool("g", "k", nullptr), 0);
    EXPECT_EQ(config.ExistStr("g", "k", nullptr) + config.ExistGroup(nullptr), 0);
    EXPECT_EQ(config.GetFirstParam(nullptr, kept, 8, nullptr, 0), 0);
    EXPECT_EQ(config.GetFirstParam("g", nullptr, 8, nullptr, 8), 0);
    EXPECT_EQ(config.GetNextParam(nullptr, 8, nullptr, 8), 0);
    EXPECT_STREQ(kept, "kept");
}

} // namespace
