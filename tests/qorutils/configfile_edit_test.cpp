#include "configfile.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>
#include <utility>

#include "config_texts.h"
#include "temp_directory.h"

namespace {

using Edit = signed char (*)(ConfigFile& config, const char* name, const char* value);

const Edit set = [](ConfigFile& c, const char* n, const char* v) { return c.WriteStr("G", n, v); };
const Edit add = [](ConfigFile& c, const char* n, const char* v) { return c.AddStr("G", n, v); };
const Edit erase = [](ConfigFile& c, const char* n, const char*) { return c.DeleteValue("G", n); };
const Edit eraseAll = [](ConfigFile& c, const char*, const char*) { return c.DeleteGroup("G"); };

// So many letters.
std::string x(std::size_t count) {
    return std::string(count, 'x');
}

TEST(ConfigFileEdit, SplicesTheText) {
    const std::string o511 = "[g]\nk=" + x(509) + "##\n"; // 511 characters with both marks
    const struct {
        Edit edit;
        const char* name;
        std::string key, value, before, after; // the same text where the edit is refused
        unsigned int options = 0;
    } cases[] = {
        {set, "inside quotes", "k", "b", "[g]\nk=\" a \" x\n", "[g]\nk=\"b\" x\n", 1},
        {set, "ends, marks, tabs", "k", "a\r\n#\tb%s", "[g]\nk=1\n", "[g]\nk=a  ##b%s\n"},
        {set, "kept: behind a comment", "k", "v", "[g]\nk= # c\n", "[g]\nk= # cv\n"},
        {set, "kept: a tab leaves the old end", "k", "v", "[g]\nk=a\tb\n", "[g]\nk=vb\n"},
        {set, "kept: trimmed letters stay", "k", "v", "[g]\nk=a\xE9\n", "[g]\nk=v\xE9\n"},
        {set, "kept: always doubled", "k", "#", "[g]\nk=\"#\"\n", "[g]\nk=\"##\"\n", 3},
        {set, "over 510", "k", "v", "[g]\nk=" + x(508) + "##\n", "[g]\nk=v\n"},
        {set, "kept: 511", "k", "v", o511, o511 + "k=v\n"},
        {set, "before a header", "l", "2", "[g]\nk=1\n\n [h]\n", "[g]\nk=1\n\n l=2\n[h]\n"},
        {set, "kept: no line end is added", "l", "2", "[g]\nk=1", "[g]\nk=1l=2\n"},
        {set, "513 are cut to 512", "k", x(513), "[g]\nk=1", "[g]\nk=" + x(512)},
        {set, "a mark does not", "k", x(511) + "#v", "[g]\nk=1", "[g]\nk=" + x(511)},
        {set, "line of 512", "k", x(509), "[g]\n", "[g]\nk=" + x(509)},
        {add, "never replaces", "k", "a#\tb", "[g]\nk=1\n[h]\n", "[g]\nk=1\n\nk=a#\tb\n[h]\n"},
        {add, "kept: line of 400", "k", x(396), "[g]\n[h]", "[g]\n\nk=" + x(396) + "[h]"},
        {add, "group of 400", "k", x(391), "", "\n\n[G]\nk=" + x(391)},
        {erase, "kept: empty lines go, too", "K", "", "[g]\nk=v\r\n\n \nk=2\n", "[g]\n \nk=2\n"},
        {erase, "kept: blanks count", "k", "", "[g]\nk =v\n k=v\n", "[g]\nk =v\n k=v\n"},
        {erase, "quotes count, tabs do not", "\"K\"", "", "[g]\n\t\"k\"\t=v\n", "[g]\n"},
        {erase, "kept: a comment, ever", "k#", "", "[g]\nk#=v\n", "[g]\nk#=v\n", 2},
        {erase, "name of 512", x(512), "", "[g]\n" + x(512) + "=v", "[g]\n" + x(512) + "=v"},
        {eraseAll, "kept: up to the bracket", "", "", "a\n\n[g]\nk=v\n  [h]\n", "a\n\n [h]\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        ASSERT_EQ(config.SetOptions(c.options), 1);
        ASSERT_EQ(config.OpenMem(c.before.c_str(), -1), 1);
        EXPECT_EQ(c.edit(config, c.key.c_str(), c.value.c_str()), c.before == c.after ? 0 : 1);
        EXPECT_EQ(config.GetBuffer(), c.after);
    }
}

TEST(ConfigFileEdit, OpensMemoryAndRefusesNull) {
    ConfigFile config;
    EXPECT_EQ(config.WriteStr("g", "k", "v"), 0) << "closed";
    EXPECT_EQ(config.OpenMem(nullptr, 5), 1);
    EXPECT_STREQ(config.GetBuffer(), "");
    EXPECT_EQ(config.OpenMem("[h]\n[g]\ni=0\0", INT_MAX), 1) << "nothing behind a zero byte";
    EXPECT_EQ(config.WriteInt("g", "i", UINT_MAX), 1);
    EXPECT_STREQ(config.GetBuffer(), "[h]\n[g]\ni=-1");
    EXPECT_EQ(config.OpenMem(config.GetBuffer() + 4, 4), 1) << "its own text";
    EXPECT_TRUE(config.WriteBool("g", "t", 2) == 1 && config.WriteBool("g", "f", 0) == 1);
    EXPECT_EQ(config.DeleteValue("g", nullptr) + config.DeleteGroup(nullptr), 0);
    for (const int missing : {0, 1, 2}) {
        const char* const group = missing == 0 ? nullptr : "g";
        const char* const name = missing == 1 ? nullptr : "k";
        const char* const value = missing == 2 ? nullptr : "v";
        EXPECT_EQ(config.WriteStr(group, name, value) + config.AddStr(group, name, value), 0);
    }
    EXPECT_STREQ(config.GetBuffer(), "[g]\nt=On\nf=Off\n");
}

struct ConfigFileOnDisk : testing::Test {
    void put(const std::string& bytes) const {
        directory.write("file", bytes);
    }
    std::string get() const {
        return directory.read("file");
    }

    const support::TempDirectory directory;
    const std::string path = directory.path("file");
};

TEST_F(ConfigFileOnDisk, ReadsTexts) {
    const std::string zero(1, '\0');
    const std::pair<std::string, std::string> filesAndTexts[] = {
        {"a=1", "a=1\n"},
        {"a=1\r", "a=1\r\n"},
        // Kept: a zero byte takes the rest of its line or piece along.
        {"a" + zero + "b\nc\n" + zero + "\nd", "ac\nd\n"},
        {x(509) + zero + "y\n", x(509) + "y\n"},
        {x(510) + zero + "y\nz", x(510) + "z\n"},
    };
    ConfigFile config;
    for (const auto& [bytes, text] : filesAndTexts) {
        put(bytes);
        EXPECT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_EQ(config.GetBuffer(), text);
    }
    EXPECT_EQ(config.OpenFile("/dev/null"), 1);
    EXPECT_STREQ(config.GetBuffer(), "\n");
}

TEST_F(ConfigFileOnDisk, WritesBackWhatWasEdited) {
    put("[g]\nk=1");
    {
        ConfigFile config;
        ASSERT_TRUE(config.OpenFile(path.c_str()) == 1 && config.DeleteGroup("g") == 1);
        ASSERT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_EQ(get(), "[g]\nk=1") << "kept: opening drops the edit";
        ASSERT_EQ(config.WriteStr("g", "k", "2"), 1);
        ASSERT_TRUE(config.OpenMem("", 0) == 1 && config.WriteStr("h", "k", "3") == 1);
        EXPECT_EQ(config.Close(), 1);
        EXPECT_EQ(get(), "[g]\nk=2\n") << "a text from memory has no file";
        ASSERT_TRUE(config.OpenFile(path.c_str()) == 1 && config.DeleteValue("g", "k") == 1);
    }
    EXPECT_EQ(get(), "[g]\n") << "destroyed";
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", nullptr), 1) << "kept: it opened";
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", "4"), 1);
    EXPECT_EQ(get(), "[g]\n\nk=4\n");
}

// What other programs keep in their files stays as it is, but for the one value.
TEST_F(ConfigFileOnDisk, ChangesNothingButTheValue) {
    for (const auto& t : support::configTexts) {
        SCOPED_TRACE(t.name);
        put(t.before + t.value + t.after);
        ASSERT_TRUE(support::setModificationTime(path, 1000));
        ConfigFile config;
        char value[32];
        EXPECT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_EQ(config.ReadStr(t.group, t.key, value, sizeof value), 1);
        EXPECT_STREQ(value, t.value);
        EXPECT_EQ(config.Close(), 1);
        EXPECT_EQ(get(), t.before + t.value + t.after);
        EXPECT_EQ(support::modificationTime(path), 1000) << "not written";
        EXPECT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_TRUE(config.WriteStr(t.group, t.key, t.newValue) == 1 && config.Close() == 1);
        EXPECT_EQ(get(), t.before + t.newValue + t.after);
    }
}

TEST_F(ConfigFileOnDisk, CreatesAMissingFile) {
    const mode_t oldMask = umask(077);
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", "v"), 0);
    EXPECT_FALSE(std::filesystem::exists(path)) << "but not so";
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(path.c_str()), 0);
    EXPECT_TRUE(config.WriteStr("g", "k", "v") == 1 && config.Close() == 1);
    EXPECT_EQ(umask(oldMask), mode_t{077});
    EXPECT_EQ(get(), "\n\n[g]\nk=v\n");
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0664});
}

TEST_F(ConfigFileOnDisk, RefusesPaths) {
    const std::string pipe = directory.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(nullptr), 0);
    for (const std::string& name : {directory.path(), pipe}) {
        ASSERT_EQ(config.OpenMem("[g]\n", -1), 1);
        EXPECT_EQ(config.OpenFile(name.c_str()), 0);
        EXPECT_STREQ(config.GetBuffer(), "");
        EXPECT_EQ(config.WriteStr("g", "k", "v"), 1);
        EXPECT_EQ(config.Close(), 0) << name << " can't be written";
    }
    const std::string start = directory.path();
    const std::string path1023 = start + std::string(1023 - start.size() - 4, '/') + "file";
    put("[g]\n");
    EXPECT_EQ(config.OpenFile(path1023.c_str()), 1);
    EXPECT_EQ(config.OpenFile((path1023 + "2").c_str()), 0);
    EXPECT_TRUE(config.WriteStr("g", "k", "v") == 1 && config.Close() == 1);
    EXPECT_EQ(get(), "[g]\n") << "the name without its last byte is another file";
}

TEST_F(ConfigFileOnDisk, ReadsOneValueInOneCall) {
    put("[g]\nk=value\n");
    char out[4] = "###";
    EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), "g", "k", out, sizeof out, "none"), 1);
    EXPECT_STREQ(out, "val");
    EXPECT_EQ(ConfigFileReadStrDef((path + "2").c_str(), "g", "k", out, sizeof out, "two"), 0);
    EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), "g", "k", out, sizeof out, nullptr), 0);
    EXPECT_STREQ(out, "two");
}

} // namespace
