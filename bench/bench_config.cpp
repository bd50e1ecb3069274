// One value out of a large configuration file, against the libraries that a program would take
// instead: open the file, read the value, close. Then one value out of an open document.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>
#include <iniparser/iniparser.h>

#include "configfile.h"

namespace {

constexpr int lineCount = 10000;

// A file of 10,000 lines in that many groups; the line that is wanted stands in the middle.
struct ConfigurationFile {
    explicit ConfigurationFile(int groups) : linesPerGroup(lineCount / groups - 1) {
        const int fd = mkstemp(path);
        std::FILE* const file = fd < 0 ? nullptr : fdopen(fd, "w");
        if (file == nullptr) {
            std::perror(path);
            std::exit(1);
        }
        for (int i = 0; i < groups; ++i) {
            std::fprintf(file, "[Service%d]\n", i);
            for (int line = 0; line < linesPerGroup; ++line) {
                std::fprintf(file, "ParameterNumber%d=value %d/%d\n", line, i, line);
            }
        }
        std::fclose(file);
        const int middle = linesPerGroup / 2;
        group = "Service" + std::to_string(groups / 2);
        name = "ParameterNumber" + std::to_string(middle);
        value = "value " + std::to_string(groups / 2) + "/" + std::to_string(middle);
    }
    ConfigurationFile(const ConfigurationFile&) = delete;
    ConfigurationFile& operator=(const ConfigurationFile&) = delete;
    ~ConfigurationFile() {
        unlink(path);
    }

    int linesPerGroup;
    char path[32] = "/tmp/bench_config.XXXXXX";
    std::string group;
    std::string name;
    std::string value;
};

const ConfigurationFile& fileFor(const benchmark::State& state) {
    static const ConfigurationFile oneGroup(1);
    static const ConfigurationFile manyGroups(100);
    return state.range(0) == 1 ? oneGroup : manyGroups;
}

void check(benchmark::State& state, bool right) {
    if (!right) {
        state.SkipWithError("the value was not found");
    }
}

void fileConfigFile(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    for (auto iteration : state) {
        ConfigFile config;
        char value[64] = "";
        config.OpenFile(file.path);
        config.ReadStr(file.group.c_str(), file.name.c_str(), value, sizeof value);
        check(state, file.value == value);
    }
}
BENCHMARK(fileConfigFile)->Arg(100)->Arg(1);

void fileGKeyFile(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    for (auto iteration : state) {
        GKeyFile* const config = g_key_file_new();
        g_key_file_load_from_file(config, file.path, G_KEY_FILE_NONE, nullptr);
        char* const value =
            g_key_file_get_string(config, file.group.c_str(), file.name.c_str(), nullptr);
        check(state, value != nullptr && file.value == value);
        g_free(value);
        g_key_file_free(config);
    }
}
BENCHMARK(fileGKeyFile)->Arg(100)->Arg(1);

// inih keeps nothing: its handler sees every line.
struct Search {
    const ConfigurationFile& file;
    std::string found;
};

int takeWanted(void* context, const char* group, const char* name, const char* value) {
    Search* const search = static_cast<Search*>(context);
    if (search->file.group == group && search->file.name == name) {
        search->found = value;
    }
    return 1;
}

void fileInih(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    for (auto iteration : state) {
        Search search{file, {}};
        ini_parse(file.path, takeWanted, &search);
        check(state, search.found == file.value);
    }
}
BENCHMARK(fileInih)->Arg(100)->Arg(1);

void fileIniparser(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    const std::string key = file.group + ":" + file.name;
    for (auto iteration : state) {
        dictionary* const config = iniparser_load(file.path);
        const char* const value = iniparser_getstring(config, key.c_str(), "");
        check(state, file.value == value);
        iniparser_freedict(config);
    }
}
BENCHMARK(fileIniparser)->Arg(100)->Arg(1);

void openConfigFile(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    ConfigFile config;
    config.OpenFile(file.path);
    for (auto iteration : state) {
        char value[64] = "";
        config.ReadStr(file.group.c_str(), file.name.c_str(), value, sizeof value);
        check(state, file.value == value);
    }
}
BENCHMARK(openConfigFile)->Arg(100)->Arg(1);

// A walk through everything. GetFirstParam looks for its group from the text's start each time, so
// 100 groups cost some 50 searches through the whole text more than one group does.
void walkConfigFile(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    ConfigFile config;
    config.OpenFile(file.path);
    for (auto iteration : state) {
        int lines = 0;
        char group[64];
        char name[64];
        char value[64];
        for (auto more = config.GetFirstGroup(group, sizeof group); more != 0;
             more = config.GetNextGroup(group, sizeof group)) {
            for (auto line = config.GetFirstParam(group, name, sizeof name, value, sizeof value);
                 line != 0; line = config.GetNextParam(name, sizeof name, value, sizeof value)) {
                ++lines;
            }
        }
        check(state, lines == lineCount - static_cast<int>(state.range(0)));
    }
}
BENCHMARK(walkConfigFile)->Arg(100)->Arg(1);

void edit(benchmark::State& state) {
    const ConfigurationFile& file = fileFor(state);
    ConfigFile config;
    config.OpenFile(file.path);
    config.OpenMem(config.GetBuffer(), -1);
    unsigned int number = 0;
    for (auto iteration : state) {
        check(state, config.WriteInt(file.group.c_str(), file.name.c_str(), ++number) != 0);
    }
}
BENCHMARK(edit)->Arg(100)->Arg(1);

} // namespace

BENCHMARK_MAIN();
