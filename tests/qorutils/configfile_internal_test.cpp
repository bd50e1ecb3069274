// What only a test inside the library sees: failing system calls and short memory, sizes of huge
// files, and that all copies of a text are overwritten.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "configfile.h"
#include "qorutils/src/configfile_hex.h"
#include "qorutils/src/filecalls.h"
#include "qorutils/src/secret.h"
#include "temp_directory.h"

namespace {

// What the next calls do: a number of bytes that are moved at most, or a negative errno. Behind the
// last one the calls are the system's own.
using Steps = std::vector<int>;
Steps steps;
off_t claimedSize = -1;   // of every file; -1: its own
int allocationsLeft = -1; // without a limit
std::string wiped;        // what was overwritten

template <class Call>
ssize_t take(std::size_t size, Call call) {
    const int step = steps.empty() ? INT_MAX : steps.front();
    steps.erase(steps.begin(), steps.begin() + (steps.empty() ? 0 : 1));
    errno = -step;
    return step <= 0 ? std::max(step, -1) : call(std::min(size, static_cast<std::size_t>(step)));
}

std::size_t timesWiped(const std::string& text) {
    std::size_t times = 0;
    for (std::size_t at = 0; (at = wiped.find(text, at)) != std::string::npos; ++at) {
        ++times;
    }
    return times;
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

off_t seekEnd(int fd) {
    const off_t size = lseek(fd, 0, SEEK_END);
    return claimedSize < 0 ? size : claimedSize;
}

int closeFile(int fd) {
    close(fd);
    return static_cast<int>(take(0, [](std::size_t) { return 0; }));
}

} // namespace filecalls

namespace secret {

void wipe(void* bytes, std::size_t size) {
    wiped.append(static_cast<char*>(bytes), size).push_back('|');
    std::memset(bytes, 0, size);
}

void* allocate(std::size_t size) {
    return allocationsLeft-- == 0 ? nullptr : std::calloc(1, size);
}

void release(void* bytes, std::size_t size) {
    const auto* const first = static_cast<char*>(bytes);
    EXPECT_EQ(std::count(first, first + size, 0), static_cast<std::ptrdiff_t>(size)) << "not wiped";
    std::free(bytes);
}

} // namespace secret

namespace {

signed char cipherOfFiles(unsigned char*, unsigned long, unsigned int*) {
    return 1;
}

signed char encryptValue(unsigned char* plain, unsigned long length, unsigned char* out,
                         unsigned long, unsigned int* outLen, void*) {
    std::memcpy(out, plain, length);
    *outLen = static_cast<unsigned int>(length);
    return 1;
}

signed char decryptValue(unsigned char* cipher, unsigned long length, char* out, unsigned long,
                         void*) {
    std::memcpy(out, cipher, length);
    return 1;
}

// A file is opened, edited and closed, in plain and enciphered; afterwards no descriptor is left.
TEST(ConfigFileCalls, WorkInPieces) {
    const std::tuple<const char*, Steps, Steps, int, int, int, std::string> cases[] = {
        {"short", {4, -EINTR, -EINTR, 1}, {1, -EINTR, 4}, 1, 1, 1, "[g]\nk=new\nl=1\n"},
        {"the file became shorter", {7, 0}, {}, 1, 0, 1, "[g]\nk=new\n"},
        {"a read error behind some bytes", {7, -EIO}, {}, 0, 0, 1, ""},
        {"kept: Close tells of no write error", {}, {7, -ENOSPC}, 1, 1, 0, "[g]\nk=n"},
        {"nothing is taken any more", {}, {7, 0}, 1, 1, 0, "[g]\nk=n"},
        {"an error only of close", {}, {99, -EIO}, 1, 1, 0, "[g]\nk=new\nl=1\n"},
    };
    const support::TempDirectory directory;
    const std::string path = directory.path("file");
    const int lowest = open("/dev/null", O_RDONLY);
    close(lowest);
    for (std::size_t i = 0; i < 2 * std::size(cases); ++i) {
        const auto& [name, reading, writing, opens, opensCrypt, closesCrypt, file] = cases[i / 2];
        const bool crypt = i % 2 == 1;
        SCOPED_TRACE(name + std::string(crypt ? ", enciphered" : ""));
        directory.write("file", "[g]\nk=old\nl=1\n");
        ConfigFile config;
        steps = reading;
        wiped.clear();
        const int opened = crypt ? config.OpenFileCrypt(path.c_str(), cipherOfFiles)
                                 : config.OpenFile(path.c_str());
        EXPECT_EQ(opened, crypt ? opensCrypt : opens);
        EXPECT_EQ(config.WriteStr("g", "k", "new"), 1);
        EXPECT_GE(timesWiped("k=o"), 1U);
        steps = writing;
        EXPECT_EQ(crypt ? config.CloseFileCrypt(cipherOfFiles) : config.Close(),
                  crypt ? closesCrypt : 1);
        EXPECT_TRUE(steps.empty());
        EXPECT_EQ(directory.read("file"), opened == 1 ? file : "\n\n[g]\nk=new\n");
        const int next = open("/dev/null", O_RDONLY);
        EXPECT_EQ(next, lowest);
        close(next);
    }
}

TEST(ConfigFileCalls, MeetHugeFilesAndShortMemory) {
    const support::TempDirectory directory;
    const std::string path = directory.path("file");
    ConfigFile config;
    directory.write("file", "a=12345678901234567890\n");
    claimedSize = (off_t{1} << 32) + 5;
    EXPECT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_STREQ(config.GetBuffer(), "a=12345678901234") << "kept: 5 bytes and 11 more";
    for (const int tooLarge : {1, 0}) {
        claimedSize = off_t{UINT_MAX} - 64 + tooLarge;
        allocationsLeft = 0;
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), cipherOfFiles), 0);
        EXPECT_EQ(allocationsLeft, tooLarge - 1) << "memory is asked for up to 4 GiB - 65 bytes";
    }
    claimedSize = -1;
    ASSERT_EQ(config.AddStr("g", "k", "1"), 1);
    allocationsLeft = 0;
    EXPECT_EQ(config.CloseFileCrypt(cipherOfFiles), 1) << "kept: tells nothing of short memory";
    EXPECT_EQ(directory.read("file"), "a=12345678901234567890\n");
    config.SetValueEncryptFunc(encryptValue);
    config.SetValueDecryptFunc(decryptValue);
    ASSERT_EQ(config.OpenMem("[g]\nk=crypt:00\n", -1), 1);
    for (const int left : {0, 1, 2}) {
        char out[8];
        signed char wasEncrypted = 0;
        allocationsLeft = left;
        EXPECT_EQ(config.ReadStrCrypt("g", "k", out, sizeof out, &wasEncrypted, nullptr), 0);
        allocationsLeft = left;
        EXPECT_EQ(config.WriteStrCrypt("g", "k", "v", nullptr), 0);
    }
    allocationsLeft = -1;
}

// Each copy that a call makes of the old value OLD and of the new one 2222.
TEST(ConfigFileSecrets, AreOverwritten) {
    static char out[64];
    static unsigned int number;
    static signed char wasEncrypted;
    static const CONFIGSTR2INT words[] = {{1, "2222"}, {0, ""}};
    static const CONFIGBITMASK bits[] = {{1, "2222"}, {0, ""}};
    static const support::TempDirectory directory;
    static const std::string path = directory.path("file");
    const std::tuple<const char*, void (*)(ConfigFile&), std::size_t, std::size_t> cases[] = {
        {"read", [](ConfigFile& c) { c.ReadStr("g", "k", out, 64); }, 1, 0},
        {"number", [](ConfigFile& c) { c.ReadInt("g", "k", &number); }, 2, 0},
        {"word", [](ConfigFile& c) { c.ReadStr2Int("g", "k", words, &number); }, 2, 0},
        {"mask", [](ConfigFile& c) { c.ReadBitMask("g", "k", bits, &number); }, 2, 0},
        {"compare", [](ConfigFile& c) { c.ExistStr("g", "k", "OLD"); }, 2, 0},
        {"list", [](ConfigFile& c) { c.GetFirstParam("g", out, 64, out, 64); }, 1, 0},
        {"replace", [](ConfigFile& c) { c.WriteStr("g", "k", "2222"); }, 3, 1},
        {"insert", [](ConfigFile& c) { c.WriteStr("g", "l", "2222"); }, 1, 2},
        {"append", [](ConfigFile& c) { c.WriteStr("h", "k", "2222"); }, 1, 2},
        {"add", [](ConfigFile& c) { c.AddStr("g", "k", "2222"); }, 1, 1},
        {"write a mask", [](ConfigFile& c) { c.WriteBitMask("g", "k", bits, 1); }, 3, 2},
        {"encipher", [](ConfigFile& c) { c.WriteStrCrypt("g", "k", "2222", nullptr); }, 3, 1},
        {"read in plain",
         [](ConfigFile& c) { c.ReadStrCrypt("g", "k", out, 64, &wasEncrypted, nullptr); }, 2, 0},
        {"decipher",
         [](ConfigFile& c) { c.ReadStrCrypt("g", "c", out, 64, &wasEncrypted, nullptr); }, 0, 2},
        {"close", [](ConfigFile& c) { c.Close(); }, 1, 0},
        {"file", [](ConfigFile& c) { c.OpenFile(path.c_str()); }, 1, 1},
        {"enciphered", [](ConfigFile& c) { c.OpenFileCrypt(path.c_str(), cipherOfFiles); }, 1, 1},
    };
    directory.write("file", {"a\0 2222\n", 8});
    for (const auto& [name, call, copiesOfOld, copiesOfNew] : cases) {
        ConfigFile config;
        config.SetValueEncryptFunc(encryptValue);
        config.SetValueDecryptFunc(decryptValue);
        ASSERT_EQ(config.OpenMem("[g]\nk=OLD\nc=crypt:32323232\n", -1), 1);
        wiped.clear();
        call(config);
        EXPECT_EQ(timesWiped("OLD"), copiesOfOld) << name;
        EXPECT_EQ(timesWiped("2222"), copiesOfNew) << name;
    }
}

TEST(HexText, IsReadAsScanfReadsIt) {
    for (unsigned int i = 0; i < 0x10000; ++i) {
        const char pair[] = {static_cast<char>(i >> 8), static_cast<char>(i), '\0'};
        unsigned int expected = 0x5a;
        std::sscanf(pair, "%02x", &expected);
        unsigned char byte = 0x5a;
        confighex::readPair(pair, &byte);
        ASSERT_EQ(byte, static_cast<unsigned char>(expected)) << i;
    }
}

} // namespace
