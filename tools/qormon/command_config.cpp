#include "arguments.h"
#include "commands.h"
#include "text.h"
#include "usage.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>
#include <system_error>

#include "configfile.h"
#include "qoros.h"

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon config list FILE [--json]\n"
    "       qormon config get FILE GROUP NAME [--json]\n"
    "       qormon config set FILE GROUP NAME VALUE\n"
    "       qormon config delete FILE GROUP [NAME]\n"
    "\n"
    "Lists a configuration file, or reads, writes or deletes one value or a whole group of it.\n"
    "What is not edited keeps every byte, but a last line without an end gets one. A file that\n"
    "would not change is not written.\n"
    "  --json         prints one JSON object\n"
    "  --quotes       values may stand in double quotes\n"
    "  --no-comments  a # begins no comment\n"
    "  --             ends the options, before a NAME or VALUE that begins with a dash\n"
    "\n"
    "Characters that a terminal would obey are shown as question marks. The exit code is 1 where\n"
    "a group or a name is missing, or the file can't be read or changed as told.\n";
constexpr Usage usage = {"config", usageText};

// What the library reads, and therefore what is written.
constexpr std::size_t longestValue = 510;
// A line with a longer name or value ends the list of its group.
constexpr std::size_t longestListed = 255;
constexpr off_t largestFile = off_t{64} << 20; // bytes; no configuration comes near

// A file with what is wanted of it.
struct Request {
    const Arguments& arguments;
    std::size_t operandCount;
    ConfigFile config;

    const std::string& file() const {
        return arguments.operand(0);
    }
    const std::string& group() const {
        return arguments.operand(1);
    }
    const std::string& name() const {
        return arguments.operand(2);
    }
    bool json() const {
        return arguments.has("--json");
    }
    unsigned int options() const {
        return (arguments.has("--quotes") ? 1U : 0U) | (arguments.has("--no-comments") ? 2U : 0U);
    }
};

int complain(const Request& request, const std::string& what) {
    std::fflush(stdout); // so that the complaint comes last
    std::fprintf(stderr, "qormon config: %s: %s\n", printable(request.file()).c_str(),
                 printable(what).c_str());
    return exitNegative;
}

// Why the file can't be read or should not be edited; empty where nothing is wrong with it.
std::string refusalOfFile(const std::string& file) {
    struct stat status;
    if (stat(file.c_str(), &status) != 0) {
        return std::generic_category().message(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? "Is a directory" : "no regular file";
    }
    if (status.st_size > largestFile) {
        return "too large for a configuration file";
    }
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        return std::generic_category().message(errno);
    }
    // The library takes zero bytes out together with what follows them.
    const std::istreambuf_iterator<char> end;
    return std::find(std::istreambuf_iterator<char>(stream), end, '\0') == end
               ? ""
               : "no text, it holds zero bytes";
}

// The name as lookups see it in a line.
std::string lookupName(std::string name) {
    name.erase(
        std::remove_if(name.begin(), name.end(), [](char c) { return c == ' ' || c == '"'; }),
        name.end());
    return name;
}

bool read(const ConfigFile& config, const Request& request, std::string& value) {
    char text[longestValue + 1];
    const std::string name = lookupName(request.name());
    const bool found =
        config.ReadStr(request.group().c_str(), name.c_str(), text, sizeof text) != 0;
    value = found ? text : "";
    return found;
}

// Whether more characters than that stand in some line, or in front of one of the stops in it.
bool hasLineAbove(const ConfigFile& config, std::size_t length, const char* stops) {
    const std::string text = config.GetBuffer();
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
        end = std::min(text.find_first_of("\r\n", start), text.size());
        if (std::min(text.find_first_of(stops, start), end) - start > length) {
            return true;
        }
    }
    return false;
}

std::string inGroup(const Request& request) {
    return " in group [" + request.group() + "]";
}

// Says that the group or the name is missing.
int complainOfNothing(const Request& request) {
    if (request.config.ExistGroup(request.group().c_str()) == 0) {
        return complain(request, "no group [" + request.group() + "]");
    }
    const bool passedOver = hasLineAbove(request.config, longestValue, "\r\n");
    return complain(request, "no " + request.name() + inGroup(request) +
                                 (passedOver ? ", lines of over 510 characters aside" : ""));
}

// ---- list ----

struct Line {
    std::string name;
    std::string value;
};

struct Group {
    std::string name;
    std::vector<Line> lines;
    std::string unlisted; // the line with which the list ends before its time, if there is one
};

Group readGroup(ConfigFile& config, const std::string& groupName) {
    Group group{groupName, {}, ""};
    char name[longestListed + 1];
    char value[longestListed + 1];
    for (auto more =
             config.GetFirstParam(groupName.c_str(), name, sizeof name, value, sizeof value);
         more != 0; more = config.GetNextParam(name, sizeof name, value, sizeof value)) {
        group.lines.push_back({name, value});
    }
    group.unlisted = name;
    return group;
}

std::string folded(std::string name) {
    strlwr(name.data());
    return name;
}

// All groups; of those with one name the first, since only that one counts.
std::vector<Group> readGroups(ConfigFile& config) {
    std::vector<char> name(std::string(config.GetBuffer()).size() + 1);
    const unsigned int size = static_cast<unsigned int>(name.size());
    std::vector<Group> groups;
    std::set<std::string> known;
    for (auto more = config.GetFirstGroup(name.data(), size); more != 0;
         more = config.GetNextGroup(name.data(), size)) {
        if (known.insert(folded(name.data())).second) {
            groups.push_back(readGroup(config, name.data()));
        }
    }
    return groups;
}

void printText(const std::vector<Group>& groups) {
    const char* separator = "";
    for (const Group& group : groups) {
        std::printf("%s[%s]\n", separator, printable(group.name).c_str());
        for (const Line& line : group.lines) {
            std::printf("%s=%s\n", printable(line.name).c_str(), printable(line.value).c_str());
        }
        separator = "\n";
    }
}

std::string jsonLine(const Line& line) {
    return "{\"name\": " + jsonString(line.name) + ", \"value\": " + jsonString(line.value) + "}";
}

void printJson(const std::vector<Group>& groups) {
    std::printf("{\"groups\": [");
    const char* groupSeparator = "";
    for (const Group& group : groups) {
        std::printf("%s{\"name\": %s, \"values\": [", groupSeparator,
                    jsonString(group.name).c_str());
        const char* separator = "";
        for (const Line& line : group.lines) {
            std::printf("%s%s", separator, jsonLine(line).c_str());
            separator = ", ";
        }
        std::printf("]}");
        groupSeparator = ", ";
    }
    std::printf("]}\n");
}

int list(Request& request) {
    const std::vector<Group> groups = readGroups(request.config);
    request.json() ? printJson(groups) : printText(groups);
    const auto cut = std::find_if(groups.begin(), groups.end(),
                                  [](const Group& group) { return !group.unlisted.empty(); });
    if (cut != groups.end()) {
        return complain(request, "the list of group [" + cut->name + "] ends at " + cut->unlisted +
                                     ", whose value has over 255 characters");
    }
    // A name that is too long ends a list without a trace.
    const char* const nameStops = request.arguments.has("--no-comments") ? "=" : "=#";
    return hasLineAbove(request.config, longestListed, nameStops)
               ? complain(request, "a name of over 255 characters may end the list of its group")
               : exitSuccess;
}

// ---- get, set, delete ----

int get(Request& request) {
    Line line{request.name(), ""};
    if (!read(request.config, request, line.value)) {
        if (request.json()) {
            std::printf("{}\n");
        }
        return complainOfNothing(request);
    }
    std::printf("%s\n", (request.json() ? jsonLine(line) : printable(line.value)).c_str());
    return exitSuccess;
}

// Writes the file back, and looks whether it holds the text then: the library does not tell.
int save(Request& request) {
    const std::string text = request.config.GetBuffer();
    if (request.config.Close() == 0) {
        return complain(request, "can't be written");
    }
    const bool same =
        request.config.OpenFile(request.file().c_str()) != 0 && text == request.config.GetBuffer();
    return same ? exitSuccess : complain(request, "could not be written whole");
}

// What can't stand in the text as it is; empty where all can.
std::string refusalOfWords(const std::string& group, const std::string& name,
                           const std::string& value) {
    const auto isControl = [](char c) { return (c >= '\0' && c < ' ') || c == 0x7F; };
    for (const std::string* word : {&group, &name, &value}) {
        if (std::any_of(word->begin(), word->end(), isControl)) {
            return "no control characters and line ends: " + printable(*word);
        }
    }
    if (group.find(']') != std::string::npos) {
        return "no ] in a group's name: " + printable(group);
    }
    if (lookupName(name).empty() || lookupName(name)[0] == '[' ||
        name.find('=') != std::string::npos) {
        return "no name: " + printable(name);
    }
    return value.size() > longestValue ? "VALUE has more than 510 characters" : "";
}

// Sets the value in a document; the line keeps its name where there is one.
bool write(ConfigFile& config, const Request& request, const std::string& value) {
    std::string old;
    const std::string name =
        read(config, request, old) ? lookupName(request.name()) : request.name();
    return config.WriteStr(request.group().c_str(), name.c_str(), value.c_str()) != 0;
}

int set(Request& request) {
    const std::string& value = request.arguments.operand(3);
    const std::string error = refusalOfWords(request.group(), request.name(), value);
    if (!error.empty()) {
        return usage.refuse(error);
    }
    std::string old;
    if (read(request.config, request, old) && old == value) {
        return exitSuccess;
    }
    // Not every value is read back as it was written, so the edit is tried beside the file.
    ConfigFile trial;
    trial.SetOptions(request.options());
    std::string back;
    if (trial.OpenMem(request.config.GetBuffer(), -1) == 0 || !write(trial, request, value)) {
        return complain(request, "memory is short");
    }
    if (!read(trial, request, back) || back != value) {
        return complain(request, "not changed, " + request.name() + " would be read back as \"" +
                                     back + "\"");
    }
    write(request.config, request, value);
    return save(request);
}

// Says that what was deleted had a second one behind it.
int saveDeletion(Request& request, bool another, const std::string& what) {
    const int exitCode = save(request);
    if (exitCode == exitSuccess && another) {
        complain(request, "there is another " + what + ", which counts now");
    }
    return exitCode;
}

int eraseGroup(Request& request) {
    if (request.config.DeleteGroup(request.group().c_str()) == 0) {
        return complainOfNothing(request);
    }
    const bool another = request.config.ExistGroup(request.group().c_str()) != 0;
    return saveDeletion(request, another, "group [" + request.group() + "]");
}

int erase(Request& request) {
    if (request.operandCount == 2) {
        return eraseGroup(request);
    }
    std::string value;
    const bool found = read(request.config, request, value);
    if (request.config.DeleteValue(request.group().c_str(), request.name().c_str()) != 0) {
        const bool another = read(request.config, request, value);
        return saveDeletion(request, another, request.name() + inGroup(request));
    }
    return found ? complain(request, "not changed, only a line that begins with \"" +
                                         request.name() + "=\" can be deleted")
                 : complainOfNothing(request);
}

struct Action {
    const char* name;
    std::size_t leastOperands;
    std::size_t mostOperands;
    bool takesJson;
    int (*run)(Request&);
};

constexpr Action actions[] = {
    {"list", 1, 1, true, list},
    {"get", 3, 3, true, get},
    {"set", 4, 4, false, set},
    {"delete", 2, 3, false, erase},
};

int perform(const Action& action, const Words& words) {
    std::vector<Option> options = {
        {"--quotes", nullptr}, {"--no-comments", nullptr}, {"--help", nullptr}};
    if (action.takesJson) {
        options.push_back({"--json", nullptr});
    }
    const Arguments least(words, options, action.leastOperands);
    const Arguments most(words, options, action.mostOperands);
    const bool few = least.error().empty();
    const Arguments& arguments = few ? least : most;
    if (arguments.has("--help")) {
        return usage.show();
    }
    if (!arguments.error().empty()) {
        return usage.refuse(printable(arguments.error()));
    }
    Request request{arguments, few ? action.leastOperands : action.mostOperands, {}};
    const std::string error = refusalOfFile(request.file());
    if (!error.empty()) {
        return complain(request, error);
    }
    request.config.SetOptions(request.options());
    return request.config.OpenFile(request.file().c_str()) != 0
               ? action.run(request)
               : complain(request, "can't be read");
}

} // namespace

int commandConfig(const Words& words) {
    if (words.empty()) {
        return usage.refuse("an argument is missing");
    }
    if (words[0] == "--help") {
        return usage.show();
    }
    const auto* const action =
        std::find_if(std::begin(actions), std::end(actions),
                     [&](const Action& each) { return words[0] == each.name; });
    if (action == std::end(actions)) {
        return usage.refuse("neither list nor get nor set nor delete: " + printable(words[0]));
    }
    return perform(*action, Words(words.begin() + 1, words.end()));
}

} // namespace qormon
