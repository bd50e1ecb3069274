#include "usage.h"
#include "commands.h"

#include <cstdio>

namespace qormon {

int Usage::show() const {
    std::fputs(text, stdout);
    return exitSuccess;
}

int Usage::refuse(const std::string& why) const {
    std::fprintf(stderr, "qormon %s: %s\n%s", command, why.c_str(), text);
    return exitUsage;
}

} // namespace qormon
