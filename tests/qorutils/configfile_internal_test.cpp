#include "configfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "qorutils/src/filecalls.h"
#include "temp_directory.h"

namespace {

// What the next calls do: a number of bytes that are moved at most, or a negative errno. Behind the
// last one the calls are the system's own.
using Steps = std::vector<int>;
Steps steps;

template <class Transfer>
ssize_t take(std::size_t size, Transfer transfer) {
    if (steps.empty()) {
        return transfer(size);
    }
    const int step = steps.front();
    steps.erase(steps.begin());
    if (step < 0) {
        errno = -step;
        return -1;
    }
    return step == 0 ? 0 : transfer(std::min(size, static_cast<std::size_t>(step)));
}

} // namespace

// In place of the library's own.
namespace filecalls {

int openFile(const char* path, int flags) {
    EXPECT_NE(flags & O_CLOEXEC, 0);
    return open(path, flags, 0666);
}

ssize_t readBytes(int fd, char* buffer, std::size_t size) {
    return take(size, [=](std::size_t count) { return read(fd, buffer, count); });
}

ssize_t writeBytes(int fd, const char* buffer, std::size_t size) {
    return take(size, [=](std::size_t count) { return write(fd, buffer, count); });
}

} // namespace filecalls

namespace {

// A file is opened, edited and closed; afterwards no descriptor is left.
TEST(ConfigFileCalls, WorkInPieces) {
    const struct {
        const char* name;
        Steps reading, writing;
        int result; // of opening
        std::string file;
    } cases[] = {
        {"short, interrupted", {4, -EINTR, -EINTR, 1}, {1, -EINTR, 4}, 1, "[g]\nk=new\nl=1\n"},
        {"the file became shorter", {7, 0}, {}, 1, "[g]\nk=new\n"},
        {"a read error behind some bytes", {7, -EIO}, {}, 0, "\n\n[g]\nk=new\n"},
        {"kept: a write error goes unnoticed", {}, {7, -ENOSPC}, 1, "[g]\nk=n"},
        {"nothing is taken any more", {}, {7, 0}, 1, "[g]\nk=n"},
    };
    const support::TempDirectory directory;
    const std::string path = directory.path("file");
    const int lowest = open("/dev/null", O_RDONLY);
    close(lowest);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        directory.write("file", "[g]\nk=old\nl=1\n");
        ConfigFile config;
        steps = c.reading;
        EXPECT_EQ(config.OpenFile(path.c_str()), c.result);
        EXPECT_EQ(config.WriteStr("g", "k", "new"), 1);
        steps = c.writing;
        EXPECT_EQ(config.Close(), 1);
        EXPECT_TRUE(steps.empty());
        EXPECT_EQ(directory.read("file"), c.file);
        const int next = open("/dev/null", O_RDONLY);
        EXPECT_EQ(next, lowest);
        close(next);
    }
}

} // namespace
