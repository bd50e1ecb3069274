#include "commands.h"

#include <cstdio>
#include <cstring>

namespace {

struct Command {
    const char* name;
    int (*run)(const qormon::Words&);
    const char* summary;
};

constexpr Command commands[] = {
    {"config", qormon::commandConfig, "values of a configuration file, read and edited"},
    {"demo", qormon::commandDemo, "the main job against a loopback server of its own"},
    {"get", qormon::commandGet, "a file from a web server, if it is newer"},
    {"ip", qormon::commandIp, "an address, a block or a range in all its forms"},
    {"ipc", qormon::commandIpc, "the shared control block, its semaphores and leftovers"},
    {"log", qormon::commandLog, "the log mask that all processes share"},
    {"mif", qormon::commandMif, "the entries of a message, with a hexadecimal dump"},
    {"update", qormon::commandUpdate, "what an update server offers"},
};

void printUsage(std::FILE* stream) {
    std::fputs("usage: qormon COMMAND [ARGUMENT...]\n\n", stream);
    for (const Command& command : commands) {
        std::fprintf(stream, "  %-8s %s\n", command.name, command.summary);
    }
    std::fputs("\nqormon COMMAND --help tells more. Exit codes: 0 success, 1 a negative answer,\n"
               "2 wrong usage.\n",
               stream);
}

// Output that could not be written is no success.
int finish(int exitCode) {
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return exitCode;
    }
    std::perror("qormon: standard output");
    return qormon::exitNegative;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        printUsage(stderr);
        return qormon::exitUsage;
    }
    if (std::strcmp(argv[1], "--help") == 0) {
        printUsage(stdout);
        return finish(qormon::exitSuccess);
    }
    for (const Command& command : commands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return finish(command.run(qormon::Words(argv + 2, argv + argc)));
        }
    }
    std::fprintf(stderr, "qormon: unknown command %s\n", argv[1]);
    printUsage(stderr);
    return qormon::exitUsage;
}
