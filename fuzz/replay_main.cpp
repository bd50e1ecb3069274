// Stands in for libFuzzer where there is none: runs the target over every file that is named, or
// that lies in a directory that is named.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "%s can't be read\n", path.c_str());
        return false;
    }
    // An exact-size heap copy lets the address sanitizer see the first byte too far.
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path argument = argv[i];
        if (!std::filesystem::is_directory(argument)) {
            if (!replay(argument)) {
                return 1;
            }
            ++replayed;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argument)) {
            if (!replay(entry.path())) {
                return 1;
            }
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
