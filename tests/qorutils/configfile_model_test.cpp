// Random edits of a document and of a plain list of its lines, side by side; after each of them the
// texts are the same, and so is what every read gives.
#include "configfile.h"

#include <strings.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned int seed = 20260731;

struct Line {
    std::string name, before, value, after; // the last three are the text

    bool isHeader() const {
        return before[0] == '[';
    }
    bool isOf(const std::string& wanted) const {
        return strcasecmp(name.c_str(), wanted.c_str()) == 0;
    }
};

using Lines = std::vector<Line>;

struct Model {
    Lines lines;

    Lines::iterator group(const std::string& name) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const Line& l) { return l.isHeader() && l.isOf(name); });
    }
    Lines::iterator groupStop(const std::string& name) {
        const auto header = group(name);
        return std::find_if(header + (header != lines.end() ? 1 : 0), lines.end(),
                            [](const Line& l) { return l.isHeader(); });
    }
    // The first line of the name, or of those without blanks around it; else the group's stop.
    Lines::iterator find(const std::string& groupName, const std::string& name, bool deletable) {
        return std::find_if(group(groupName), groupStop(groupName), [&](const Line& l) {
            return !l.isHeader() && l.isOf(name) && (!deletable || l.before[l.name.size()] == '=');
        });
    }
    void write(const std::string& groupName, const std::string& name, const std::string& value) {
        const auto line = find(groupName, name, false);
        line == groupStop(groupName) ? add(groupName, name, value, "") : void(line->value = value);
    }
    void add(const std::string& groupName, const std::string& name, const std::string& value,
             const std::string& before) {
        Lines added{{"", before, "", ""}, {name, name + "=", value, "\n"}};
        if (group(groupName) == lines.end()) {
            added[0].before = "\n\n";
            added.insert(added.begin() + 1, {groupName, "[" + groupName + "]\n", "", ""});
        }
        lines.insert(groupStop(groupName), added.begin(), added.end());
    }
    bool erase(const std::string& groupName, const std::string& name) {
        const auto line = find(groupName, name, true);
        const auto stop = groupStop(groupName);
        if (line == stop) {
            return false;
        }
        lines.erase(line, std::find_if(line + 1, stop, [](const Line& l) {
                        return l.before.find_first_not_of('\n') != std::string::npos;
                    }));
        return true;
    }
    bool eraseGroup(const std::string& name) {
        const bool exists = group(name) != lines.end();
        const auto next = lines.erase(group(name), groupStop(name));
        if (exists && next != lines.end()) { // the line end in front of its bracket stays
            lines.insert(next, {"", "\n", "", ""});
        }
        return exists;
    }
    std::string text() const {
        std::string all;
        for (const Line& line : lines) {
            all += line.before + line.value + line.after;
        }
        return all;
    }
};

void expectSameReads(ConfigFile& config, Model& model, const char* group, const char* wanted) {
    char name[64], value[64];
    const auto stop = model.groupStop(group);
    const auto line = model.find(group, wanted, false);
    EXPECT_EQ(config.ReadStrDef(group, wanted, value, sizeof value, "none"), line != stop);
    EXPECT_EQ(value, line != stop ? line->value : "none");
    auto more = config.GetFirstParam(group, name, sizeof name, value, sizeof value);
    for (auto each = model.group(group); each < stop; ++each) {
        if (!each->isHeader() && !each->name.empty()) {
            EXPECT_EQ(more, 1);
            EXPECT_EQ(name + std::string(value), each->name + each->value);
            more = config.GetNextParam(name, sizeof name, value, sizeof value);
        }
    }
    EXPECT_EQ(more, 0);
}

TEST(ConfigFileModel, AgreesAfterEveryEdit) {
    const char* const groups[] = {"g", "Hh", "new"};
    const char* const names[] = {"k", "Key", "k2"};
    const char* const values[] = {"1", "a b", "x=[y]", "\"q\""};
    std::mt19937 random(seed);
    const auto pick = [&random](auto& list) { return list[random() % std::size(list)]; };
    ConfigFile config;
    Model model;
    for (int i = 0; i < 10000 && !HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
        if (i % 50 == 0) {
            model.lines = {{"k", "k=", "0", "\n"},        {"G", "[G] # first\n", "", ""},
                           {"k", "k = ", "o", " # k=\n"}, {"", "; Key\n", "", ""},
                           {"KEY", "KEY=", "\"", " \n"},  {"", "\n", "", ""},
                           {"k", "k=", "2", "\n"},        {"hh", "[hh]\n", "", ""},
                           {"g", "[g]\n", "", ""},        {"K2", "K2=", "3", "# #\n"}};
            ASSERT_EQ(config.OpenMem(model.text().c_str(), -1), 1);
        }
        const char *const group = pick(groups), *const name = pick(names),
                          *const value = pick(values);
        const unsigned int operation = random() % 8;
        if (operation < 4) {
            EXPECT_EQ(config.WriteStr(group, name, value), 1);
            model.write(group, name, value);
        } else if (operation == 4) {
            EXPECT_EQ(config.AddStr(group, name, value), 1);
            model.add(group, name, value, "\n");
        } else if (operation < 7) {
            EXPECT_EQ(config.DeleteValue(group, name), model.erase(group, name));
        } else {
            EXPECT_EQ(config.DeleteGroup(group), model.eraseGroup(group));
        }
        ASSERT_EQ(config.GetBuffer(), model.text());
        for (const char* each : groups) {
            expectSameReads(config, model, each, pick(names));
        }
    }
}

} // namespace
