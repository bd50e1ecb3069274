#include "temp_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h> // mkdtemp on macOS

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace support {

TempDirectory::TempDirectory()
    : path_((std::filesystem::temp_directory_path() / "qormon3-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        std::abort(); // no test can go on
    }
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TempDirectory::write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
}

std::string TempDirectory::read(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::time_t modificationTime(const std::string& path) {
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_mtime : -1;
}

bool setModificationTime(const std::string& path, std::time_t time) {
    const timespec times[] = {{time, 0}, {time, 0}};
    return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

} // namespace support
