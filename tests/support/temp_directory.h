// A directory of a test's own, removed with all that is in it.
#pragma once

#include <ctime>
#include <string>

namespace support {

class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    // The path of a file in the directory, or its own.
    std::string path(const std::string& name) const {
        return path_ + "/" + name;
    }
    const std::string& path() const {
        return path_;
    }
    void write(const std::string& name, const std::string& bytes) const;
    // What a file holds; empty also where there is none.
    std::string read(const std::string& name) const;

private:
    std::string path_;
};

// The time of a file's last modification; -1 where there is no such file.
std::time_t modificationTime(const std::string& path);
bool setModificationTime(const std::string& path, std::time_t time);

} // namespace support
