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

bool same(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

struct Line {
    enum { Header, Value, Other } kind;
    std::string name, before, value, after; // the last three are the text
};

std::string encoded(std::string value) {
    const std::size_t mark = value.find('#');
    return mark == std::string::npos ? value : value.insert(mark, "#");
}

using Lines = std::vector<Line>;

struct Model {
    Lines lines;

    Lines::iterator nextHeader(Lines::iterator from) {
        return std::find_if(from, lines.end(), [](auto& l) { return l.kind == Line::Header; });
    }
    Lines::iterator group(const std::string& name) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](auto& l) { return l.kind == Line::Header && same(l.name, name); });
    }
    Lines::iterator groupStop(const std::string& name) {
        const auto header = group(name);
        return header == lines.end() ? header : nextHeader(header + 1);
    }
    // The first line of the name; without blanks around it where it is to be deleted.
    Lines::iterator find(const std::string& groupName, const std::string& name, bool deletable) {
        const auto stop = groupStop(groupName);
        const auto found = std::find_if(group(groupName), stop, [&](auto& l) {
            return l.kind == Line::Value && same(l.name, name) &&
                   !(deletable && l.before.find(' ') != std::string::npos);
        });
        return found == stop ? lines.end() : found;
    }
    void write(const std::string& groupName, const std::string& name, const std::string& value) {
        const auto line = find(groupName, name, false);
        if (line == lines.end()) {
            return add(groupName, name, encoded(value), "");
        }
        // Behind a comment a value is written over an empty one.
        const bool hidden = line->value.empty() && line->after != "\n";
        hidden ? line->after.insert(line->after.size() - 1, encoded(value))
               : line->value = encoded(value);
    }
    void add(const std::string& groupName, const std::string& name, const std::string& value,
             const std::string& before) {
        Lines added{{Line::Other, "", before, "", ""},
                    {Line::Value, name, name + "=", value, "\n"}};
        if (group(groupName) == lines.end()) {
            added[0].before = "\n\n";
            added.insert(added.begin() + 1,
                         {Line::Header, groupName, "[" + groupName + "]\n", "", ""});
        }
        lines.insert(groupStop(groupName), added.begin(), added.end());
    }
    bool erase(const std::string& groupName, const std::string& name) {
        const auto line = find(groupName, name, true);
        if (line == lines.end()) {
            return false;
        }
        auto stop = line + 1;
        while (stop != lines.end() && stop->before.find_first_not_of('\n') == std::string::npos) {
            ++stop;
        }
        lines.erase(line, stop);
        return true;
    }
    bool eraseGroup(const std::string& name) {
        const auto header = group(name);
        if (header == lines.end()) {
            return false;
        }
        const auto next = lines.erase(header, groupStop(name));
        if (next != lines.end()) { // the line end in front of its bracket stays
            lines.insert(next, {Line::Other, "", "\n", "", ""});
        }
        return true;
    }
    std::string text() const {
        std::string all;
        for (const Line& line : lines) {
            all += line.before + line.value + line.after;
        }
        return all;
    }
};

// A value as it is read.
std::string decoded(std::string value) {
    const std::size_t mark = value.find("##");
    return mark == std::string::npos ? value : value.erase(mark, 1);
}

const char* const groups[] = {"g", "Hh", "new"};
const char* const names[] = {"k", "Key", "k2"};
const char* const values[] = {"", "1", "a b", "a#b", "x=[y]", "\"q\""};

void expectSameReads(ConfigFile& config, Model& model) {
    char name[64];
    char value[64];
    for (const char* group : groups) {
        EXPECT_EQ(config.ExistGroup(group), model.group(group) != model.lines.end());
        for (const char* wanted : names) {
            const auto line = model.find(group, wanted, false);
            const bool found = line != model.lines.end();
            EXPECT_EQ(config.ReadStrDef(group, wanted, value, sizeof value, "none"), found);
            EXPECT_EQ(value, found ? decoded(line->value) : "none");
            EXPECT_EQ(config.ExistStr(group, wanted, value), found);
        }
        auto more = config.GetFirstParam(group, name, sizeof name, value, sizeof value);
        const auto stop = model.groupStop(group);
        for (auto line = model.group(group); line < stop; ++line) {
            if (line->kind == Line::Value) {
                EXPECT_EQ(more, 1);
                EXPECT_EQ(name + ("=" + std::string(value)),
                          line->name + "=" + decoded(line->value));
                more = config.GetNextParam(name, sizeof name, value, sizeof value);
            }
        }
        EXPECT_EQ(more, 0);
    }
    auto more = config.GetFirstGroup(name, sizeof name);
    for (const Line& line : model.lines) {
        if (line.kind == Line::Header) {
            EXPECT_EQ(more, 1);
            EXPECT_EQ(name, line.name);
            more = config.GetNextGroup(name, sizeof name);
        }
    }
    EXPECT_EQ(more, 0);
}

TEST(ConfigFileModel, AgreesAfterEveryEdit) {
    std::mt19937 random(seed);
    const auto pick = [&random](auto& list) { return list[random() % std::size(list)]; };
    ConfigFile config;
    Model model;
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
        if (i % 50 == 0) {
            model.lines = {{Line::Value, "k", "k=", "0", "\n"},
                           {Line::Header, "G", "[G] # first\n", "", ""},
                           {Line::Value, "k", " k = ", "old##", " # k=2\n"},
                           {Line::Other, "", "; Key\n", "", ""},
                           {Line::Value, "KEY", "\tKEY=", "\"", "\n"},
                           {Line::Other, "", "\n", "", ""},
                           {Line::Value, "k", "k=", "2", "\n"},
                           {Line::Header, "hh", "[hh]\n", "", ""},
                           {Line::Header, "g", "[g]\n", "", ""},
                           {Line::Value, "K2", "K2\t=", "", " # none\n"}};
            ASSERT_EQ(config.OpenMem(model.text().c_str(), -1), 1);
        }
        const std::string group = pick(groups), name = pick(names), value = pick(values);
        const unsigned int operation = random() % 8;
        if (operation < 4) {
            EXPECT_EQ(config.WriteStr(group.c_str(), name.c_str(), value.c_str()), 1);
            model.write(group, name, value);
        } else if (operation == 4) {
            EXPECT_EQ(config.AddStr(group.c_str(), name.c_str(), "added"), 1);
            model.add(group, name, "added", "\n");
        } else if (operation < 7) {
            EXPECT_EQ(config.DeleteValue(group.c_str(), name.c_str()), model.erase(group, name));
        } else {
            EXPECT_EQ(config.DeleteGroup(group.c_str()), model.eraseGroup(group));
        }
        ASSERT_EQ(config.GetBuffer(), model.text());
        expectSameReads(config, model);
    }
}

} // namespace
