// Command lines as QorOsCreateProcessAsyn takes them apart.
#pragma once

#include <cstddef>

#include <memory>

// How many entries a vector has at most, before the null that always ends it.
constexpr size_t dMaxCommandEntries = 4097;

struct CommandLineDeleter {
    void operator()(char** ppszVector) const;
};

// The program, the program once more as the argument 0 of the new process, and the arguments, each
// a heap text; a null behind the last one.
using CommandLine = std::unique_ptr<char*, CommandLineDeleter>;

// Null with E2BIG in errno where there are too many entries, with ENOMEM where memory is short.
CommandLine parseProcessCommandline(const char* cpszLine);
