// One value out of a large configuration file, against the libraries that a program would take
// instead: open the file, read the value, close. Then one value out of an open document, and many
// different ones out of an open document of a usual size.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <glib.h>
#include <ini.h>
#include <iniparser/iniparser.h>

#include "configfile.h"

namespace {

constexpr int lineCount = 10000;

// A file of so many lines in that many groups; the line that is wanted stands in the middle.
struct ConfigurationFile {
    explicit ConfigurationFile(int groups, int lines = lineCount)
        : linesPerGroup(lines / groups - 1) {
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

// A document of 1,000 lines in as many groups as the argument says, and the group and name of each
// of its values, shuffled.
struct UsualFile {
    explicit UsualFile(int groups) : file(groups, 1000) {
        for (int i = 0; i < groups; ++i) {
            for (int line = 0; line < file.linesPerGroup; ++line) {
                places.emplace_back("Service" + std::to_string(i),
                                    "ParameterNumber" + std::to_string(line));
            }
        }
        std::shuffle(places.begin(), places.end(), std::minstd_rand());
    }

    // Calls something 1,000 times, each time with another place as long as there are others.
    template <typename Use>
    void each(Use use) const {
        for (std::size_t i = 0; i < 1000; ++i) {
            const auto& place = places[i % places.size()];
            use(place.first.c_str(), place.second.c_str());
        }
    }

    ConfigurationFile file;
    std::vector<std::pair<std::string, std::string>> places;
};

void thousandReadsConfigFile(benchmark::State& state) {
    const UsualFile usual(static_cast<int>(state.range(0)));
    ConfigFile config;
    config.OpenFile(usual.file.path);
    for (auto iteration : state) {
        usual.each([&](const char* group, const char* name) {
            char value[64];
            check(state, config.ReadStr(group, name, value, sizeof value) != 0);
            benchmark::DoNotOptimize(value);
        });
    }
}
BENCHMARK(thousandReadsConfigFile)->Arg(100)->Arg(10)->Arg(1)->Unit(benchmark::kMicrosecond);

void thousandWritesConfigFile(benchmark::State& state) {
    const UsualFile usual(static_cast<int>(state.range(0)));
    ConfigFile config;
    config.OpenFile(usual.file.path);
    config.OpenMem(config.GetBuffer(), -1);
    unsigned int number = 0;
    for (auto iteration : state) {
        usual.each([&](const char* group, const char* name) {
            check(state, config.WriteInt(group, name, ++number) != 0);
        });
    }
}
BENCHMARK(thousandWritesConfigFile)->Arg(100)->Arg(10)->Arg(1)->Unit(benchmark::kMicrosecond);

GKeyFile* openGKeyFile(const UsualFile& usual) {
    GKeyFile* const config = g_key_file_new();
    g_key_file_load_from_file(config, usual.file.path, G_KEY_FILE_NONE, nullptr);
    return config;
}

void thousandReadsGKeyFile(benchmark::State& state) {
    const UsualFile usual(static_cast<int>(state.range(0)));
    GKeyFile* const config = openGKeyFile(usual);
    for (auto iteration : state) {
        usual.each([&](const char* group, const char* name) {
            char* const value = g_key_file_get_string(config, group, name, nullptr);
            check(state, value != nullptr);
            g_free(value);
        });
    }
    g_key_file_free(config);
}
BENCHMARK(thousandReadsGKeyFile)->Arg(100)->Arg(10)->Arg(1)->Unit(benchmark::kMicrosecond);

void thousandWritesGKeyFile(benchmark::State& state) {
    const UsualFile usual(static_cast<int>(state.range(0)));
    GKeyFile* const config = openGKeyFile(usual);
    int number = 0;
    for (auto iteration : state) {
        usual.each([&](const char* group, const char* name) {
            g_key_file_set_integer(config, group, name, ++number);
        });
    }
    g_key_file_free(config);
}
BENCHMARK(thousandWritesGKeyFile)->Arg(100)->Arg(10)->Arg(1)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
