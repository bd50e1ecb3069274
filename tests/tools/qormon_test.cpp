// Runs the tool as a person or a script does, and looks at its exit code and at what it prints.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <regex>
#include <string>

#include "real_servers.h"

namespace {

struct Outcome {
    int exitCode;
    std::string output; // standard output and standard error
};

Outcome run(const std::string& arguments) {
    const std::string command = std::string(QORMON_TOOL) + " " + arguments + " 2>&1 </dev/null";
    std::FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, "the tool can't be started"};
    }
    std::string output;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output += static_cast<char>(c);
    }
    int status = pclose(pipe); // not const: some systems' macros take its address
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(Qormon, AnswersACommandLine) {
    struct Case {
        const char* arguments;
        int exitCode;
        const char* output; // a regular expression that matches somewhere
    };
    const Case cases[] = {
        {"", 2, "^usage: qormon COMMAND"},
        {"--help", 0, "^usage: qormon COMMAND"},
        {"frobnicate", 2, "^qormon: unknown command frobnicate\n"},
        {"demo --help", 0, "^usage: qormon demo\n"},
        {"demo now", 2, "^usage: qormon demo\n"},
        {"update --help", 0, "^usage: qormon update URL"},
        {"update", 2, "^qormon update: an argument is missing\n"},
        {"update a b", 2, "^qormon update: one argument too many: b\n"},
        {"update --fast http://h/", 2, "^qormon update: unknown option --fast\n"},
        {"update http://h/ --language", 2, "^qormon update: --language needs N\n"},
        {"update http://h/ --language -1", 2, "^qormon update: no language number: -1\n"},
        {"update http://h/ --language 2147483648", 2, "^qormon update: no language number"},
        {"update http://h/ --proxy host", 2, "^qormon update: no HOST:PORT: host\n"},
        {"update http://h/ --proxy host:65536", 2, "^qormon update: no HOST:PORT"},
        {"update http://h/ --proxy :80", 2, "^qormon update: no HOST:PORT"},
        {"update -- --odd", 1, "^qormon update: no answer from --odd\n"},
        {"update http://127.0.0.1:1/x", 1,
         "^qormon update: no answer from http://127.0.0.1:1/x\n$"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = run(c.arguments);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_TRUE(std::regex_search(outcome.output, std::regex(c.output))) << outcome.output;
    }
}

TEST(Qormon, DemoPrintsWhatTheServerOffers) {
    const Outcome outcome = run("demo");
    EXPECT_EQ(outcome.exitCode, 0);
    const std::regex table("^update server   http://127\\.0\\.0\\.1:[0-9]+/update\\.cfg\n"
                           "product         Example Client\n"
                           "version         3\n"
                           "build           1204\n"
                           "service pack    1\n"
                           "file size       7340032\n"
                           "download        http://127\\.0\\.0\\.1/example-client-3\\.pkg\n"
                           "more about it   http://127\\.0\\.0\\.1/whats-new\\.html\n$");
    EXPECT_TRUE(std::regex_search(outcome.output, table)) << outcome.output;
}

} // namespace
