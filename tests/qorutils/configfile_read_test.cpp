#include "configfile.h"

#include <gtest/gtest.h>

#include <strings.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

const std::string notFound = "(not found)";

std::string repeat(char c, std::size_t count) {
    return std::string(count, c);
}

// A document over an exact copy, so that a byte too far shows.
void open(ConfigFile& config, const std::string& text, unsigned int options = 0) {
    ASSERT_EQ(config.SetOptions(options), 1);
    const std::vector<char> bytes(text.begin(), text.end());
    ASSERT_EQ(config.OpenMem(bytes.data(), static_cast<int>(bytes.size())), 1);
}

std::string valueOf(const ConfigFile& config, const std::string& group, const std::string& name) {
    char value[600];
    const auto found = config.ReadStrDef(group.c_str(), name.c_str(), value, sizeof value, "#none");
    EXPECT_EQ(found == 0, std::strcmp(value, "#none") == 0);
    return found != 0 ? value : notFound;
}

Lines linesOf(ConfigFile& config, const std::string& group) {
    Lines lines;
    char name[300];
    char value[300];
    for (auto more = config.GetFirstParam(group.c_str(), name, sizeof name, value, sizeof value);
         more != 0; more = config.GetNextParam(name, sizeof name, value, sizeof value)) {
        lines.emplace_back(name, value);
    }
    EXPECT_EQ(config.GetNextParam(name, sizeof name, value, sizeof value), 0) << "stays at its end";
    EXPECT_STREQ(name, "");
    return lines;
}

std::vector<std::string> groupsOf(ConfigFile& config) {
    std::vector<std::string> groups;
    char name[300];
    for (auto more = config.GetFirstGroup(name, sizeof name); more != 0;
         more = config.GetNextGroup(name, sizeof name)) {
        groups.emplace_back(name);
    }
    EXPECT_EQ(config.GetNextGroup(name, sizeof name), 0) << "stays at its end";
    return groups;
}

TEST(ConfigFileRead, FindsGroups) {
    const struct {
        const char* name;
        const char* text;
        const char* group;
        bool expected;
    } cases[] = {
        {"case does not count", "[net]\n", "NET", true},
        {"blanks inside count", "[ Net ]\n", " Net ", true},
        {"without its blanks", "[ Net ]\n", "Net", false},
        {"prefix of a group", "[Network]\n", "Net", false},
        {"longer than the group", "[Net]\n", "Network", false},
        {"indented", "x\n  [g]", "g", true},
        {"a tab before the bracket", "\t[g]\n", "g", false},
        {"behind CR", "x\r[g]\r", "g", true},
        {"not first on its line", "x [g]\n", "g", false},
        {"second header on a line", "[a] [g]\n", "g", false},
        {"second bracket", "[[g]\n", "g", false},
        {"second bracket belongs to the name", "[[g]\n", "[g", true},
        {"commented out", "#[g]\n", "g", false},
        {"kept: a comment in the brackets is none", "[a#b]\n", "a#b", true},
        {"name over two lines", "[a\nb]\n", "a\nb", true},
        {"unclosed, then a header", "[a\n[b]\n", "b", true},
        {"unclosed name ends at the next header", "[a\n[b]\n", "a\n[b", false},
        {"unclosed", "[g", "g", false},
        {"ends at the first closing bracket", "[a]b]\n", "a]b", false},
        {"empty name", "[]\n", "", true},
        {"empty text", "", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, c.text);
        EXPECT_EQ(config.ExistGroup(c.group), c.expected ? 1 : 0);
    }
}

TEST(ConfigFileRead, ReadsValues) {
    const struct {
        const char* name;
        unsigned int options;
        std::string lines; // of the group "g"
        const char* wanted;
        std::string expected;
    } cases[] = {
        {"plain", 0, "k=v\n", "k", "v"},
        {"case of the name", 0, "Key=V\n", "kEY", "V"},
        {"no line end", 0, "k=v", "k", "v"},
        {"empty at the text's end", 0, "k=", "k", ""},
        {"CR LF", 0, "a=1\r\nk=v\r\n", "k", "v"},
        {"CR", 0, "a=1\rk=v\ra=2", "k", "v"},
        {"first of two", 0, "k=1\nk=2\n", "k", "1"},
        {"blanks and tabs in the name", 0, "\t my \tkey = x\n", "mykey", "x"},
        {"a blank in the wanted name", 0, "my key=x\n", "my key", notFound},
        {"quotes in the name", 0, "\"k\"=x\n", "k", "x"},
        {"prefix of the name", 0, "ke=x\n", "key", notFound},
        {"longer name", 0, "keys=x\n", "key", notFound},
        {"empty name", 0, " =x\n", "", "x"},
        {"no '='", 0, "k\nk=v\n", "k", "v"},
        {"name over two lines", 0, "k\n=v\n", "k", notFound},
        {"blanks around and inside", 0, "k=  a  b  \n", "k", "a  b"},
        {"tabs vanish", 0, "k=\ta\tb\t\n", "k", "ab"},
        {"'=' in the value", 0, "k==a=b\n", "k", "=a=b"},
        {"a later '=' starts nothing", 0, "a=k=v\n", "k", notFound},
        {"control characters and letters from 0x80 on end", 0, "k=caf\xC3\xA9\x01 \n", "k", "caf"},
        {"letters from 0x80 on inside", 0, "k=\xC3\xA9t\n", "k", "\xC3\xA9t"},
        {"next group is not read", 0, "a=1\n[h]\nk=v\n", "k", notFound},
        {"comment line", 0, "#k=v\n", "k", notFound},
        {"comment in the name", 0, "k#=v\n", "k", notFound},
        {"comment ends with CR", 0, "#\rk=v\n", "k", "v"},
        {"comment behind a value", 0, "k=v # = ## \"c\n", "k", "v"},
        {"comment instead of a value", 0, "k= # c\n", "k", ""},
        {"semicolon is no comment", 0, ";k=v;w\n", ";k", "v;w"},
        {"doubled", 0, "k=a##b\n", "k", "a#b"},
        {"doubled first", 0, "k=##a\n", "k", "#a"},
        {"three", 0, "k=a###b\n", "k", "a#"},
        {"four", 0, "k=####\n", "k", "##"},
        {"doubled at the text's end", 0, "k=a##", "k", "a#"},
        {"single at the text's end", 0, "k=a#", "k", "a"},
        {"no comments", 2, "k=a#b##c\n", "k", "a#b##c"},
        {"no comments in names", 2, "#k=v\n", "#k", "v"},
        {"quotes are ordinary", 0, "key = \"  x # y  \" ; z\n", "key", "\"  x"},
        {"quoted", 1, "key = \"  x # y  \" ; z\n", "key", "  x # y  "},
        {"quoted up to the last quote", 1, "k=\"a\"b\"c\n", "k", "a\"b"},
        {"quoted and empty", 1, "k=\"\"\n", "k", ""},
        {"quoted letters from 0x80 on", 1, "k=\"caf\xC3\xA9\"\n", "k", "caf\xC3\xA9"},
        {"quoted: doubled stays, tab goes", 1, "k=\"a##\tb\"\n", "k", "a##b"},
        {"never closed", 1, "k=\" a # \n", "k", " a # "},
        {"quote behind the value's start", 1, "k=a \"b\" #c\n", "k", "a \"b\""},
        {"the next line is not quoted", 1, "a=\"x\nk= v #c\n", "k", "v"},
        {"quoted, no comments", 3, "k=\"a#\" #\"b\n", "k", "a#\" #"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, "k=before any group\n[other]\nk=other\n[g]\n" + c.lines, c.options);
        EXPECT_EQ(valueOf(config, "G", c.wanted), c.expected);
    }
    ConfigFile config;
    open(config, "[a=b]c=d\n[g]\n[g]\nk=second\n");
    EXPECT_EQ(valueOf(config, "a=b", "[a"), "b]c=d");
    EXPECT_EQ(valueOf(config, "g", "k"), notFound) << "the first group of that name counts";
}

TEST(ConfigFileRead, GivesUpLinesOf511Characters) {
    const struct {
        const char* name;
        std::string line;
        std::string wanted;
        std::string expected;
    } cases[] = {
        {"name of 510", repeat('n', 510) + "=v", repeat('n', 510), "v"},
        {"name of 511", repeat('n', 511) + "=v", repeat('n', 511), notFound},
        {"value of 510", "k=" + repeat('v', 510), "k", repeat('v', 510)},
        {"value of 511", "k=" + repeat('v', 511), "k", notFound},
        {"value of 511 with its blanks", "k=v" + repeat(' ', 510), "k", notFound},
        {"what is skipped does not count", "k=" + repeat(' ', 600) + "v#" + repeat('c', 600), "k",
         "v"},
        {"flags end with the line", "a=\"" + repeat('v', 511) + "#\nk=v #c", "k", "v"},
        {"a later line", "k=" + repeat('v', 511) + "k=1\nk=2", "k", "2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, "[g]\n" + c.line + "\n", 1);
        EXPECT_EQ(valueOf(config, "g", c.wanted), c.expected);
    }
}

TEST(ConfigFileRead, CutsToTheCallersSize) {
    ConfigFile config;
    open(config, "[g]\nname=value\n");
    char out[4] = "###";
    EXPECT_EQ(config.ReadStr("g", "name", out, sizeof out), 1);
    EXPECT_STREQ(out, "val");
    EXPECT_EQ(config.ReadStrDef("g", "none", out, 3, "default"), 0);
    EXPECT_STREQ(out, "de");
    EXPECT_EQ(config.ReadStr("g", "none", out, sizeof out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(config.GetFirstGroup(out, 1), 1);
    EXPECT_STREQ(out, "");
    char name[] = "#####";
    char value[] = "#####";
    EXPECT_EQ(config.GetFirstParam("g", name, 3, value, 4), 1);
    EXPECT_EQ(std::string(name, sizeof name), std::string("na\0##\0", 6));
    EXPECT_EQ(std::string(value, sizeof value), std::string("val\0#\0", 6));
}

TEST(ConfigFileRead, EmptiesTheNameAtTheEnd) {
    ConfigFile config;
    char name[8] = "kept";
    char value[8] = "kept";
    const auto next = [&] { return config.GetNextParam(name, sizeof name, value, sizeof value); };
    const auto first = [&](const char* group) {
        return config.GetFirstParam(group, name, sizeof name, value, sizeof value);
    };
    EXPECT_EQ(next(), 0) << "closed";
    EXPECT_STREQ(name, "");
    open(config, "[g]\na=1\nl=2");
    EXPECT_EQ(first("g"), 1);
    EXPECT_EQ(first("missing"), 0);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(next(), 0) << "a missing group ends the iteration";
    EXPECT_EQ(first("g"), 1);
    EXPECT_EQ(next(), 0);
    EXPECT_STREQ(name, "l") << "the line that ends the iteration";
    EXPECT_STREQ(value, "1") << "as it was";
}

TEST(ConfigFileRead, ComparesValues) {
    ConfigFile config;
    open(config, "[g]\nKey1=a\nkey2=b=c\nkey2=D\nkey3=akey4=x\nk=e\n");
    const struct {
        const char* name;
        const char* wanted;
        const char* value;
        unsigned int length;
        int expected;
    } cases[] = {
        {"whole name", "key1", "a", 0, 1},
        {"case of the value", "key2", "d", 0, 0},
        {"every line of the name", "key2", "D", 0, 1},
        {"every line of the prefix", "key9", "D", 3, 1},
        {"the length is the name's", "key1", "D", 4, 0},
        {"longer than the name", "key", "a", 4, 0},
        {"a value is no line", "key", "x", 3, 0},
        {"shorter than the prefix", "key", "e", 3, 0},
        {"part of a value", "key2", "b", 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(config.ExistNStr("g", c.wanted, c.value, c.length), c.expected);
        if (c.length == 0) {
            EXPECT_EQ(config.ExistStr("g", c.wanted, c.value), c.expected);
        }
    }
}

TEST(ConfigFileRead, ConvertsNumbersAndTruth) {
    const signed char kept = 9; // the default
    const struct {
        std::string text;
        unsigned int number;
        signed char truth;
    } cases[] = {
        {"1", 1, 1},
        {"01", 1, 1},
        {"+1", 1, 1},
        {"1x", 1, 1},
        {"12abc", 12, 9},
        {"-5", UINT_MAX - 4, kept},
        {"0x10", 0, kept},
        {"", 0, kept},
        {"True", 0, 9},
        {"-1", UINT_MAX, 9},
        {"4294967297", 1, 9},
        {"yes", 0, 1},
        {"ON", 0, 1},
        {"0", 0, 0},
        {"oFF", 0, 0},
        {"No", 0, 0},
        {"00", 0, kept},
        {"False", 0, kept},
        {"2", 2, kept},
        {repeat('0', 254) + "1", 1, 1},
        {repeat('0', 255) + "1", 0, kept},
        {"99999999999999999999", UINT_MAX, kept},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        ConfigFile config;
        open(config, "[g]\nk=" + c.text + "\n");
        unsigned int number = 7;
        signed char truth = 7;
        EXPECT_EQ(config.ReadIntDef("g", "k", &number, 5), 1);
        EXPECT_EQ(number, c.number);
        EXPECT_EQ(config.ReadBoolDef("g", "k", &truth, kept), 1);
        EXPECT_EQ(truth, c.truth);
    }
}

TEST(ConfigFileRead, StoresDefaultsAndRefusesNull) {
    ConfigFile config;
    open(config, "[g]\nk=1\nl=2\n[h]\n");
    const struct {
        const char* group;
        const char* name;
    } cases[] = {{"g", "none"}, {"none", "k"}, {nullptr, "k"}, {"g", nullptr}};
    for (const auto& c : cases) {
        unsigned int number = 7;
        signed char truth = 7;
        char text[8] = "kept";
        EXPECT_EQ(config.ReadIntDef(c.group, c.name, &number, 5), 0);
        EXPECT_EQ(number, 5u);
        EXPECT_EQ(config.ReadInt(c.group, c.name, &number), 0);
        EXPECT_EQ(number, 0u);
        EXPECT_EQ(config.ReadBoolDef(c.group, c.name, &truth, 1), 0);
        EXPECT_EQ(truth, 1);
        EXPECT_EQ(config.ReadBool(c.group, c.name, &truth), 0);
        EXPECT_EQ(truth, 0);
        EXPECT_EQ(config.ReadStrDef(c.group, c.name, text, sizeof text, "d"), 0);
        EXPECT_STREQ(text, c.group == nullptr || c.name == nullptr ? "kept" : "d");
        EXPECT_EQ(config.ExistStr(c.group, c.name, "1"), 0);
    }
    char name[8] = "kept";
    EXPECT_EQ(config.ReadStrDef("g", "k", nullptr, 8, ""), 0);
    EXPECT_EQ(config.ReadStrDef("g", "k", name, sizeof name, nullptr), 0);
    EXPECT_EQ(config.ReadInt("g", "k", nullptr), 0);
    EXPECT_EQ(config.ReadBool("g", "k", nullptr), 0);
    EXPECT_EQ(config.ExistStr("g", "k", nullptr), 0);
    EXPECT_EQ(config.ExistGroup(nullptr), 0);
    EXPECT_EQ(config.GetFirstGroup(nullptr, 8), 0);
    EXPECT_EQ(config.GetFirstParam("g", nullptr, 8, nullptr, 8), 0);
    EXPECT_EQ(config.GetFirstParam(nullptr, name, sizeof name, nullptr, 0), 0);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(config.GetFirstGroup(name, sizeof name), 1);
    EXPECT_EQ(config.GetNextGroup(nullptr, 8), 0);
    EXPECT_EQ(config.GetNextGroup(name, sizeof name), 1) << "an iteration goes on";
    EXPECT_STREQ(name, "h");
    EXPECT_EQ(config.GetFirstParam("g", name, sizeof name, nullptr, 0), 1);
    EXPECT_STREQ(name, "k");
    EXPECT_EQ(config.GetNextParam(nullptr, 8, nullptr, 8), 0);
    EXPECT_EQ(config.GetNextParam(name, sizeof name, nullptr, 0), 1);
    EXPECT_STREQ(name, "l");
}

TEST(ConfigFileRead, AcceptsTwoOptionBits) {
    ConfigFile config;
    open(config, "[g]\nk=\"a\"\n", 1);
    EXPECT_EQ(config.SetOptions(4), 0);
    EXPECT_EQ(valueOf(config, "g", "k"), "a");
    EXPECT_EQ(config.SetOptions(3), 1);
    EXPECT_EQ(config.SetOptions(0), 1);
    EXPECT_EQ(valueOf(config, "g", "k"), "\"a\"");
}

TEST(ConfigFileRead, ListsGroups) {
    const struct {
        const char* name;
        const char* text;
        std::vector<std::string> expected;
    } cases[] = {
        {"in text order", "x\n[b]\n[ A ]\r  [b]", {"b", " A ", "b"}},
        {"not first on its line", "[a] [b]\nx[c]\n\t[d]", {"a"}},
        {"commented out", "#[Old]\n[a]#[b]\n", {"a"}},
        {"comment in the brackets", "[a#b]\nx]\n[c]", {"a#b]\nx", "c"}},
        {"unclosed", "[a\n[b]\n[c", {"b"}},
        {"empty", "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, c.text, 2);
        EXPECT_EQ(groupsOf(config), c.expected);
    }
}

TEST(ConfigFileRead, ListsValueLines) {
    const std::string n255 = repeat('n', 255);
    const std::string v255 = repeat('v', 255);
    const struct {
        const char* name;
        unsigned int options;
        std::string lines;
        Lines expected;
    } cases[] = {
        {"in text order", 0, "a=1\n\nno value\nb=2\r\n[h]\nc=3\n", {{"a", "1"}, {"b", "2"}}},
        {"blanks inside names stay", 0, "  my  key\t = x\n", {{"my  key", "x"}}},
        {"quotes and tabs in names go", 0, "\"q\"=1\na\tb=1\n", {{"q", "1"}, {"ab", "1"}}},
        {"names lose letters from 0x80 on", 0, "a\xC3\xA9=1\n", {{"a", "1"}}},
        {"empty name, empty value", 0, "=\n", {{"", ""}}},
        {"comments", 0, "#a=1\nb#=2\nc=3 #c=4\nd= a##b=\n", {{"c", "3"}, {"d", "a#b="}}},
        {"no comments", 2, "#a=1#\n", {{"#a", "1#"}}},
        {"quoted", 1, "a=\"  x # \" y\nb=\"open  \n", {{"a", "  x # "}, {"b", "open  "}}},
        {"quotes are ordinary", 0, "a=\" x \"\n", {{"a", "\" x \""}}},
        {"without a last line end", 0, "a=1\nb=2", {{"a", "1"}}},
        {"name of 255", 0, n255 + "=1\na=2\n", {{n255, "1"}, {"a", "2"}}},
        {"name of 256", 0, "a=1\nn" + n255 + "=1\na=2\n", {{"a", "1"}}},
        {"value of 255", 0, "a=" + v255 + "#c\na=2\n", {{"a", v255}, {"a", "2"}}},
        {"value of 256", 0, "a=v" + v255 + "\na=2\n", {}},
        {"255 without a value", 0, n255 + "\na=1\n", {{"a", "1"}}},
        {"256 without a value", 0, "n" + n255 + "\na=1\n", {}},
        {"long comment", 0, "#" + repeat('c', 600) + "\na=1\n", {{"a", "1"}}},
        {"none", 0, "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        open(config, "[other]\nx=y\n[g]\n" + c.lines, c.options);
        EXPECT_EQ(linesOf(config, "g"), c.expected);
        EXPECT_EQ(linesOf(config, "missing"), Lines());
    }
}

// Every proper prefix goes through every operation that reads; what is found lies in the text.
TEST(ConfigFileRead, ReadsEveryPrefix) {
    const std::string text = "x=0\n[ A ]\n k 1 = a##b # c\n\"q\" =\" x # \" y\r\n\r[b]#[c]\n"
                             "empty=\nn=-12\n  [c#]\nk=\xC3\xA9\t\n[d\n[e]\nlast = \"open";
    for (unsigned int options = 0; options < 4; ++options) {
        for (std::size_t length = 0; length <= text.size(); ++length) {
            SCOPED_TRACE(text.substr(0, length));
            ConfigFile config;
            open(config, text.substr(0, length), options);
            for (const std::string& group : groupsOf(config)) {
                EXPECT_EQ(config.ExistGroup(group.c_str()), 1);
                for (const auto& line : linesOf(config, group)) {
                    EXPECT_EQ(text.substr(0, length).find(line.second) == std::string::npos,
                              line.second == "a#b");
                }
                for (const char* name : {"k1", "q", "empty", "n", "k", "last", ""}) {
                    const std::string value = valueOf(config, group, name);
                    EXPECT_EQ(config.ExistStr(group.c_str(), name, value.c_str()) != 0,
                              value != notFound);
                    unsigned int number = 0;
                    signed char truth = 0;
                    EXPECT_EQ(config.ReadInt(group.c_str(), name, &number), value != notFound);
                    EXPECT_EQ(config.ReadBool(group.c_str(), name, &truth), value != notFound);
                }
            }
        }
    }
}

// A plain reader of plain texts has to agree.
TEST(ConfigFileRead, AgreesWithAPlainReader) {
    std::mt19937 random(7);
    const auto pick = [&random](unsigned int count) {
        return static_cast<unsigned int>(random() % count);
    };
    for (int round = 0; round < 300; ++round) {
        std::string text;
        std::vector<std::pair<std::string, Lines>> groups;
        for (unsigned int g = pick(5); g > 0; --g) {
            groups.emplace_back("Group" + std::to_string(pick(4)), Lines());
            text += repeat(' ', pick(2)) + "[" + groups.back().first + "]" + "\n";
            for (unsigned int i = pick(6); i > 0; --i) {
                const std::string name = "name" + std::to_string(pick(5));
                const std::string value = repeat('v', pick(3)) + std::to_string(pick(100));
                groups.back().second.emplace_back(name, value);
                text += name + repeat(' ', pick(2)) + "=" + repeat(' ', pick(3)) + value +
                        (pick(2) == 0 ? "" : " # name1 = 1") + (pick(2) == 0 ? "\n" : "\r\n");
            }
        }
        SCOPED_TRACE(text);
        ConfigFile config;
        open(config, text);
        ASSERT_EQ(groupsOf(config).size(), groups.size());
        for (int g = 0; g < 4; ++g) {
            const std::string group = "GROUP" + std::to_string(g);
            Lines lines;
            for (auto it = groups.rbegin(); it != groups.rend(); ++it) {
                lines = strcasecmp(it->first.c_str(), group.c_str()) == 0 ? it->second : lines;
            }
            EXPECT_EQ(linesOf(config, group), lines);
            for (int i = 0; i < 5; ++i) {
                const std::string name = "name" + std::to_string(i);
                std::string expected = notFound;
                for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
                    expected = it->first == name ? it->second : expected;
                }
                EXPECT_EQ(valueOf(config, group, name), expected);
            }
        }
    }
}

} // namespace
