// Command lines: the program stands in front of the first blank, its arguments hold no more than
// there was, and where nothing is quoted they are what stands between the blanks.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <string>
#include <vector>

#include "qoros/src/linux/qoros_cmdline.h"
#include "require.h"

namespace {

// Each argument with a blank in front.
std::string joined(char** arguments) {
    std::string all;
    for (; *arguments != nullptr; ++arguments) {
        all += std::string(" ") + *arguments;
    }
    return all;
}

std::string withSingleBlanks(const char* text) {
    std::string out;
    for (; *text != '\0'; ++text) {
        const bool keep = *text != ' ' || (text[1] != ' ' && text[1] != '\0');
        out += keep ? std::string(1, *text) : "";
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<char> line(data, data + size); // up to its first zero byte, and of that size
    line.push_back('\0');
    line.resize(strlen(line.data()) + 1);
    line.shrink_to_fit();
    const std::size_t name = strcspn(line.data(), " ");
    const char* const rest = line.data() + name;

    const CommandLine vector = parseProcessCommandline(line.data());
    if (!vector) {
        require(errno == E2BIG && line.size() > 2 * (dMaxCommandEntries - 2));
        return 0;
    }
    char** const entries = vector.get();
    require(std::string(line.data(), name) == entries[0] && strcmp(entries[0], entries[1]) == 0);
    const std::string arguments = joined(entries + 2);
    require(arguments.size() <= strlen(rest));
    require(strchr(rest, '"') != nullptr || arguments == withSingleBlanks(rest));
    return 0;
}
