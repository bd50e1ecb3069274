// What a command says of how it is used.
#pragma once

#include <string>

namespace qormon {

struct Usage {
    const char* command; // its name
    const char* text;    // whole, as --help prints it

    // Prints the text; the exit code.
    int show() const;

    // Says why the words are wrong, with the text behind it; the exit code.
    int refuse(const std::string& why) const;
};

} // namespace qormon
