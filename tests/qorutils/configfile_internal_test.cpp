#include "configfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "qorutils/src/filecalls.h"

namespace {

// What the next calls do: a number of bytes that are moved at most, or a negative errno. Behind the
// last one the calls are the system's own.
using Steps = std::vector<int>;
Steps steps;

std::vector<int> opened; // the flags, call by call

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
    opened.push_back(flags);
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

class ConfigFileCalls : public testing::Test {
protected:
    void SetUp() override {
        const int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        close(fd);
    }
    void TearDown() override {
        unlink(path);
    }
    void put(const std::string& bytes) const {
        std::ofstream(path) << bytes;
    }
    std::string get() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    char path[32] = "/tmp/configcalls.XXXXXX";
};

TEST_F(ConfigFileCalls, ReadInPieces) {
    const struct {
        const char* name;
        Steps steps;
        int result;
        std::string text;
    } cases[] = {
        {"short reads", {1, 4}, 1, "[g]\nk=value\n"},
        {"interrupted", {-EINTR, 4, -EINTR, -EINTR}, 1, "[g]\nk=value\n"},
        {"the file became shorter", {7, 0}, 1, "[g]\nk=v\n"},
        {"an error", {-EIO}, 0, ""},
        {"an error behind some bytes", {7, -EIO}, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        put("[g]\nk=value\n");
        steps = c.steps;
        ConfigFile config;
        EXPECT_EQ(config.OpenFile(path), c.result);
        EXPECT_EQ(config.GetBuffer(), c.text);
        EXPECT_TRUE(steps.empty());
        ASSERT_EQ(config.AddStr("h", "k", "1"), 1);
        ASSERT_EQ(config.Close(), 1);
        EXPECT_EQ(get(), c.text + "\n\n[h]\nk=1\n") << "the name stays attached";
    }
}

TEST_F(ConfigFileCalls, WriteInPieces) {
    const struct {
        const char* name;
        Steps steps;
        std::string text;
    } cases[] = {
        {"short writes", {1, 4}, "[g]\nk=new\n"},
        {"interrupted", {-EINTR, 4, -EINTR, -EINTR}, "[g]\nk=new\n"},
        {"kept: an error goes unnoticed", {7, -ENOSPC}, "[g]\nk=n"},
        {"nothing is taken any more", {7, 0}, "[g]\nk=n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        put("[g]\nk=old\n");
        ConfigFile config;
        ASSERT_EQ(config.OpenFile(path), 1);
        ASSERT_EQ(config.WriteStr("g", "k", "new"), 1);
        steps = c.steps;
        EXPECT_EQ(config.Close(), 1);
        EXPECT_EQ(get(), c.text);
        EXPECT_TRUE(steps.empty());
    }
}

TEST_F(ConfigFileCalls, KeepTheirDescriptorsToThemselves) {
    const int before = open("/dev/null", O_RDONLY);
    close(before);
    opened.clear();
    for (int round = 0; round < 100; ++round) {
        const bool readable = round % 2 == 0;
        steps = readable ? Steps() : Steps{-EIO};
        ConfigFile config;
        ASSERT_EQ(config.OpenFile(path), readable ? 1 : 0);
        ASSERT_EQ(config.WriteInt("g", "k", 1), 1);
        EXPECT_EQ(config.Close(), 1);
    }
    EXPECT_EQ(opened.size(), 200u);
    for (const int flags : opened) {
        EXPECT_NE(flags & O_CLOEXEC, 0);
    }
    const int after = open("/dev/null", O_RDONLY);
    close(after);
    EXPECT_EQ(after, before);
}

} // namespace
