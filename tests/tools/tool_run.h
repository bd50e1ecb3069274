// Runs the tool as a person or a script does.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <regex>
#include <string>

struct Outcome {
    int exitCode;
    std::string output; // standard output and standard error
};

inline Outcome runShell(const std::string& line) {
    const std::string command = "{ " + line + "; } 2>&1 </dev/null";
    std::FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;) {
        output += static_cast<char>(c);
    }
    int status =
        pipe != nullptr ? pclose(pipe) : -1; // not const: some systems' macros take its address
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

#if defined(QORMON_TOOL)
inline Outcome run(const std::string& arguments) {
    return runShell("'" QORMON_TOOL "' " + arguments);
}

// Looks at the exit code, and for a regular expression in the output.
inline void expectRun(const std::string& arguments, int exitCode, const std::string& pattern) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, exitCode) << arguments;
    const bool matches = std::regex_search(outcome.output, std::regex(pattern));
    EXPECT_TRUE(matches) << arguments << outcome.output;
}
#endif

// An answer of a server, with the length of its body.
inline std::string answer(const char* status, const std::string& body) {
    return std::string("HTTP/1.0 ") + status +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// The text with each place of a name taken by a value.
inline std::string filled(std::string text, const std::string& name, const std::string& value) {
    for (std::size_t at = text.find(name); at != std::string::npos;
         at = text.find(name, at + value.size())) {
        text.replace(at, name.size(), value);
    }
    return text;
}
