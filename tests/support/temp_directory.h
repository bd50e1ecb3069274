// A directory of a test's own, removed with all that is in it.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h> // mkdtemp on macOS

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>

namespace support {

class TempDirectory {
public:
    TempDirectory() {
        if (mkdtemp(path_.data()) == nullptr) {
            std::abort(); // no test can go on
        }
    }
    ~TempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    // The path of a file in the directory, or its own.
    std::string path(const std::string& name) const {
        return path_ + "/" + name;
    }
    const std::string& path() const {
        return path_;
    }
    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
    }
    // What a file holds; empty also where there is none.
    std::string read(const std::string& name) const {
        std::stringstream bytes;
        bytes << std::ifstream(path(name), std::ios::binary).rdbuf();
        return bytes.str();
    }

private:
    std::string path_ = (std::filesystem::temp_directory_path() / "qormon3-XXXXXX").string();
};

// The time of a file's last modification; -1 where there is no such file.
inline std::time_t modificationTime(const std::string& path) {
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_mtime : -1;
}

inline bool setModificationTime(const std::string& path, std::time_t time) {
    const timespec times[] = {{time, 0}, {time, 0}};
    return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
}

} // namespace support
