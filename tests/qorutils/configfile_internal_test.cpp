// What only a test inside the library sees: files that hold less than their size says, and that all
// copies of a text are overwritten.
#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include "configfile.h"
#include "qorutils/src/filecalls.h"
#include "qorutils/src/secret.h"
#include "temp_directory.h"

namespace {

off_t fileSize = 0;     // of every file
int oldWiped, newWiped; // how often memory was overwritten that held the old value, and the new one

} // namespace

// In place of the library's own.
off_t filecalls::seekEnd(int) {
    return fileSize;
}

void secret::wipe(void* bytes, std::size_t size) {
    const std::string_view text(static_cast<char*>(bytes), size);
    oldWiped += text.find("OLD") == std::string_view::npos ? 0 : 1;
    newWiped += text.find("2222") == std::string_view::npos ? 0 : 1;
    std::fill_n(static_cast<char*>(bytes), size, '\0');
}

namespace {

const support::TempDirectory directory;
const std::string path = directory.path("file");
const CONFIGBITMASK bits[] = {{1, "2222"}, {0, ""}};
char out[64];
unsigned int number;
signed char was;

// A cipher of anything.
const auto keep = [](auto...) -> signed char { return 1; };

TEST(ConfigFileInside, ReadsFilesOfOtherSizes) {
    ConfigFile config;
    directory.write("file", "a=12345678901234567890\n");
    fileSize = (off_t{1} << 32) + 5;
    EXPECT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_STREQ(config.GetBuffer(), "a=12345678901234") << "kept: 5 bytes and 11 more";
    fileSize = 24;
    EXPECT_EQ(config.OpenFileCrypt(path.c_str(), keep), 0) << "one byte is missing";
}

TEST(ConfigFileInside, OverwritesSecrets) {
    const std::tuple<const char*, void (*)(ConfigFile&), int, int> cases[] = {
        {"read", [](ConfigFile& c) { c.ReadInt("g", "k", &number); }, 2, 0},
        {"compare", [](ConfigFile& c) { c.ExistStr("g", "k", "OLD"); }, 2, 0},
        {"replace", [](ConfigFile& c) { c.WriteStr("g", "k", "2222"); }, 3, 1},
        {"insert", [](ConfigFile& c) { c.WriteStr("g", "l", "2222"); }, 1, 2},
        {"add", [](ConfigFile& c) { c.AddStr("g", "k", "2222"); }, 1, 1},
        {"write a mask", [](ConfigFile& c) { c.WriteBitMask("g", "k", bits, 1); }, 3, 2},
        {"encipher", [](ConfigFile& c) { c.WriteStrCrypt("g", "k", "2222", nullptr); }, 3, 1},
        {"decipher", [](ConfigFile& c) { c.ReadStrCrypt("g", "c", out, 64, &was, nullptr); }, 0, 2},
        {"file", [](ConfigFile& c) { c.OpenFile(path.c_str()); }, 1, 1},
        {"enciphered", [](ConfigFile& c) { c.OpenFileCrypt(path.c_str(), keep); }, 1, 1}};
    directory.write("file", {"a\0 2222\n", 8});
    fileSize = 8;
    for (const auto& [name, call, copiesOfOld, copiesOfNew] : cases) {
        ConfigFile config;
        config.SetValueEncryptFunc([](auto* text, auto, auto* bytes, auto, auto* length, auto*) {
            std::copy_n(text, *length = 4, bytes);
            return static_cast<signed char>(1);
        });
        config.SetValueDecryptFunc([](auto* bytes, auto, auto* text, auto, auto*) {
            std::copy_n(bytes, 4, text);
            return static_cast<signed char>(1);
        });
        ASSERT_EQ(config.OpenMem("[g]\nk=OLD\nc=crypt:32323232\n", -1), 1);
        oldWiped = newWiped = 0;
        call(config);
        EXPECT_EQ(oldWiped, copiesOfOld) << name;
        EXPECT_EQ(newWiped, copiesOfNew) << name;
    }
}

} // namespace
