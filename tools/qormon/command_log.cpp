#include "arguments.h"
#include "commands.h"
#include "control_block.h"
#include "rows.h"
#include "text.h"
#include "usage.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon log show [--json]\n"
    "       qormon log set LEVEL...\n"
    "       qormon log reset LEVEL...\n"
    "\n"
    "Shows the log mask that all processes of the product share, sets levels in it or resets "
    "them.\n"
    "It exists for as long as one of them holds a named mutex or event.\n"
    "\n"
    "LEVEL is fatal, error, trace, debug, all for these four, or stdout, which sends the messages\n"
    "to standard output instead of syslog.\n";
constexpr Usage usage = {"log", usageText};

struct Level {
    const char* name;
    uint32_t bits;
};

constexpr Level levels[] = {
    {"stdout", QOR_LOG_STDOUT}, {"fatal", QOR_LOG_FATAL}, {"error", QOR_LOG_ERROR},
    {"trace", QOR_LOG_TRACE},   {"debug", QOR_LOG_DEBUG},
};
constexpr uint32_t allLevels = QOR_LOG_FATAL | QOR_LOG_ERROR | QOR_LOG_TRACE | QOR_LOG_DEBUG;

// The bits of a level's name; 0 for none.
uint32_t bitsOf(const std::string& name) {
    const auto* const level = std::find_if(std::begin(levels), std::end(levels),
                                           [&](const Level& each) { return name == each.name; });
    if (level != std::end(levels)) {
        return level->bits;
    }
    return name == "all" ? allLevels : 0;
}

// The names of the levels in a mask, each between quotes, with a separator between them.
std::string namesIn(uint32_t mask, const char* quote, const char* separator) {
    std::string names;
    for (const Level& level : levels) {
        if ((mask & level.bits) != 0) {
            names += (names.empty() ? "" : separator) + (quote + std::string(level.name)) + quote;
        }
    }
    return names;
}

void show(uint32_t mask, bool json) {
    if (json) {
        std::printf("{\"mask\": %u, \"levels\": [%s]}\n", mask, namesIn(mask, "\"", ", ").c_str());
        return;
    }
    printHexadecimalRow("log mask", mask);
    printRow("levels", mask == 0 ? "none" : namesIn(mask, "", " "));
}

int showMask(const Words& words) {
    const Arguments arguments(words, {{"--json", nullptr}}, 0);
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    const ControlBlock block(ControlBlock::Access::Read);
    if (!block.error().empty()) {
        return tellWhyNot("log", block);
    }
    show(block.load(&QorOsShmCtl::Log), arguments.has("--json"));
    return exitSuccess;
}

int changeMask(const Words& names, void (ControlBlock::*change)(uint32_t)) {
    uint32_t bits = 0;
    for (const std::string& name : names) {
        if (bitsOf(name) == 0) {
            return usage.refuse("no level: " + printable(name));
        }
        bits |= bitsOf(name);
    }
    if (bits == 0) {
        return usage.refuse("a level is missing");
    }
    ControlBlock block(ControlBlock::Access::Write);
    if (!block.error().empty()) {
        return tellWhyNot("log", block);
    }
    (block.*change)(bits);
    show(block.load(&QorOsShmCtl::Log), false);
    return exitSuccess;
}

} // namespace

int commandLog(const Words& words) {
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
        return usage.show();
    }
    if (words.empty()) {
        return usage.refuse("an argument is missing");
    }
    const Words rest(words.begin() + 1, words.end());
    if (words[0] == "show") {
        return showMask(rest);
    }
    if (words[0] == "set") {
        return changeMask(rest, &ControlBlock::setLog);
    }
    if (words[0] == "reset") {
        return changeMask(rest, &ControlBlock::resetLog);
    }
    return usage.refuse("neither show nor set nor reset: " + printable(words[0]));
}

} // namespace qormon
