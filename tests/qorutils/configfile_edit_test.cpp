#include "configfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace {

using Edit = std::function<int(ConfigFile&)>;

std::string repeat(char c, std::size_t count) {
    return std::string(count, c);
}

Edit write(const std::string& group, const std::string& name, const std::string& value) {
    return [=](ConfigFile& config) {
        return config.WriteStr(group.c_str(), name.c_str(), value.c_str());
    };
}

Edit add(const std::string& group, const std::string& name, const std::string& value) {
    return [=](ConfigFile& config) {
        return config.AddStr(group.c_str(), name.c_str(), value.c_str());
    };
}

Edit erase(const std::string& group, const std::string& name) {
    return [=](ConfigFile& config) { return config.DeleteValue(group.c_str(), name.c_str()); };
}

Edit eraseGroup(const std::string& group) {
    return [=](ConfigFile& config) { return config.DeleteGroup(group.c_str()); };
}

struct EditCase {
    const char* name;
    std::string before;
    Edit edit;
    std::string after;
    int result = 1;
    unsigned int options = 0;
};

template <std::size_t count>
void check(const EditCase (&cases)[count]) {
    for (const EditCase& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigFile config;
        ASSERT_EQ(config.SetOptions(c.options), 1);
        ASSERT_EQ(config.OpenMem(c.before.c_str(), -1), 1);
        EXPECT_EQ(c.edit(config), c.result);
        EXPECT_EQ(config.GetBuffer(), c.after);
    }
}

TEST(ConfigFileEdit, WritesValues) {
    const std::string v505 = repeat('v', 505);
    const EditCase cases[] = {
        {"in place", "[g]\n k = old # c\n", write("G", "K", "new"), "[g]\n k = new # c\n"},
        {"first of two", "[g]\nk=1\nk=2\n", write("g", "k", "3"), "[g]\nk=3\nk=2\n"},
        {"doubled marks are replaced whole", "[g]\nk=##a##b\n", write("g", "k", "c"), "[g]\nk=c\n"},
        {"empty before", "[g]\nk=\nl=\n", write("g", "k", "v"), "[g]\nk=v\nl=\n"},
        {"empty before, at the text's end", "[g]\nk=", write("g", "k", "v"), "[g]\nk=v"},
        {"empty afterwards", "[g]\nk= v\n", write("g", "k", ""), "[g]\nk= \n"},
        {"a value that begins with '='", "[g]\nk==a\n", write("g", "k", "b"), "[g]\nk=b\n"},
        {"inside quotes", "[g]\nk=\" a \" x\n", write("g", "k", "b"), "[g]\nk=\"b\" x\n", 1, 1},
        {"inside empty quotes", "[g]\nk=\"\"\n", write("g", "k", "b"), "[g]\nk=\"b\"\n", 1, 1},
        {"line ends, marks and tabs", "[g]\nk=1\n", write("g", "k", "a\r\n#\tb%s"),
         "[g]\nk=a  ##b%s\n"},
        {"kept: behind the comment of an empty value", "[g]\nk= # c\n", write("g", "k", "v"),
         "[g]\nk= # cv\n"},
        {"kept: a tab leaves some of the old value", "[g]\nk=a\tb\n", write("g", "k", "v"),
         "[g]\nk=vb\n"},
        {"kept: letters that were trimmed stay", "[g]\nk=a\xE9\n", write("g", "k", "v"),
         "[g]\nk=v\xE9\n"},
        {"510 with the doubled mark, in place", "[g]\nk=" + repeat('v', 508) + "##\n",
         write("g", "k", "x"), "[g]\nk=x\n"},
        {"kept: 511 with the doubled mark, read as 510", "[g]\nk=" + repeat('v', 509) + "##\n",
         write("g", "k", "x"), "[g]\nk=" + repeat('v', 509) + "##\nk=x\n"},
        {"kept: a mark is doubled whatever the options", "[g]\nk=\"#\"\n", write("g", "k", "#"),
         "[g]\nk=\"##\"\n", 1, 3},
        {"new line before the next header", "[g]\nk=1\n\n [h]\n", write("g", "l", "2"),
         "[g]\nk=1\n\n l=2\n[h]\n"},
        {"new line at the text's end", "[h]\n[g]\n", write("g", "k", "#"), "[h]\n[g]\nk=##\n"},
        {"kept: no line end is added", "[g]\nk=1", write("g", "l", "2"), "[g]\nk=1l=2\n"},
        {"new group", "k=1\n", write("g", "k", "2"), "k=1\n\n\n[g]\nk=2\n"},
        {"new group in an empty text", "", write("g", "k", "2"), "\n\n[g]\nk=2\n"},
        {"hostile names go in as they are", "", write("%n", "[h]\n%s", "v"),
         "\n\n[%n]\n[h]\n%s=v\n"},
        {"511 characters in place", "[g]\nk=1", write("g", "k", repeat('v', 511)),
         "[g]\nk=" + repeat('v', 511)},
        {"512", "[g]\nk=1", write("g", "k", repeat('v', 512)), "[g]\nk=" + repeat('v', 512)},
        {"513 are cut", "[g]\nk=1", write("g", "k", repeat('v', 513)),
         "[g]\nk=" + repeat('v', 512)},
        {"a mark that just fits", "[g]\nk=1", write("g", "k", repeat('v', 510) + "#"),
         "[g]\nk=" + repeat('v', 510) + "##"},
        {"a mark that does not fit", "[g]\nk=1", write("g", "k", repeat('v', 511) + "#v"),
         "[g]\nk=" + repeat('v', 511)},
        {"tabs count nothing", "[g]\nk=1", write("g", "k", "\t" + repeat('v', 512)),
         "[g]\nk=" + repeat('v', 512)},
        {"a line of 511", "[g]\n", write("g", "name", v505), "[g]\nname=" + v505 + "\n"},
        {"a line of 512 loses its end", "[g]\n", write("g", "name1", v505), "[g]\nname1=" + v505},
        {"a group of 511", "", write("group", "k", repeat('v', 500 - 2)),
         "\n\n[group]\nk=" + repeat('v', 498) + "\n"},
        {"a group of 512", "", write("group", "k", repeat('v', 499)),
         "\n\n[group]\nk=" + repeat('v', 499)},
        {"a number", "[g]\nk=1\n",
         [](ConfigFile& config) { return config.WriteInt("g", "k", UINT_MAX); }, "[g]\nk=-1\n"},
        {"true", "[g]\nk=1\n", [](ConfigFile& config) { return config.WriteBool("g", "k", 2); },
         "[g]\nk=On\n"},
        {"false", "[g]\nk=1\n", [](ConfigFile& config) { return config.WriteBool("g", "k", 0); },
         "[g]\nk=Off\n"},
    };
    check(cases);
}

TEST(ConfigFileEdit, AddsLines) {
    const EditCase cases[] = {
        {"never replaces", "[g]\nk=1\n[h]\n", add("g", "k", "a#\tb"), "[g]\nk=1\n\nk=a#\tb\n[h]\n"},
        {"at the text's end", "[g]\nk=1", add("G", "l", "2"), "[g]\nk=1\nl=2\n"},
        {"new group", "x\n", add("g", "k", "1"), "x\n\n\n[g]\nk=1\n"},
        {"a line of 399", "[g]\n[h]", add("g", "k", repeat('v', 395)),
         "[g]\n\nk=" + repeat('v', 395) + "\n[h]"},
        {"kept: a line of 400 runs into the header", "[g]\n[h]", add("g", "k", repeat('v', 396)),
         "[g]\n\nk=" + repeat('v', 396) + "[h]"},
        {"a group of 399", "", add("g", "k", repeat('v', 390)),
         "\n\n[g]\nk=" + repeat('v', 390) + "\n"},
        {"a group of 400", "", add("g", "k", repeat('v', 391)), "\n\n[g]\nk=" + repeat('v', 391)},
    };
    check(cases);
}

TEST(ConfigFileEdit, Deletes) {
    const std::string n511 = repeat('n', 511);
    const EditCase cases[] = {
        {"a line and the empty ones behind it", "[g]\na=1\nk=v\r\n\r\n\nb=2\n", erase("G", "K"),
         "[g]\na=1\nb=2\n"},
        {"up to a line of blanks", "[g]\nk=v\n\n \nb=2\n", erase("g", "k"), "[g]\n \nb=2\n"},
        {"the first of two", "[g]\nk=1\nk=2\n", erase("g", "k"), "[g]\nk=2\n"},
        {"without a line end", "[g]\nk=v", erase("g", "k"), "[g]\n"},
        {"the next header stays", "[g]\nk=v\n\n[h]\n", erase("g", "k"), "[g]\n[h]\n"},
        {"in its group only", "[g]\n[h]\nk=v\n", erase("g", "k"), "[g]\n[h]\nk=v\n", 0},
        {"kept: blank before '='", "[g]\nk =v\n", erase("g", "k"), "[g]\nk =v\n", 0},
        {"blank in front", "[g]\n k=v\n", erase("g", "k"), "[g]\n k=v\n", 0},
        {"tabs do not count", "[g]\n\tk\t=v\n", erase("g", "k"), "[g]\n"},
        {"quotes count", "[g]\n\"k\"=v\n", erase("g", "\"K\""), "[g]\n"},
        {"a comment", "[g]\n#k=v\nk#=v\n", erase("g", "k"), "[g]\n#k=v\nk#=v\n", 0},
        {"kept: a comment whatever the options", "[g]\nk#=v\n", erase("g", "k#"), "[g]\nk#=v\n", 0,
         2},
        {"a second '='", "[g]\na=k=v\n", erase("g", "k"), "[g]\na=k=v\n", 0},
        {"a longer name", "[g]\nkk=v\n", erase("g", "k"), "[g]\nkk=v\n", 0},
        {"a name of 511", "[g]\n" + n511 + "=v\n", erase("g", n511), "[g]\n"},
        {"a name of 512", "[g]\nn" + n511 + "=v\n", erase("g", "n" + n511),
         "[g]\nn" + n511 + "=v\n", 0},
        {"from the group's bracket on", "[g]a=v\nb=1\n", erase("g", "[g]a"), "b=1\n"},
        {"no group", "k=v\n", erase("g", "k"), "k=v\n", 0},
        {"group", "[a]\nx=1\n\n[g]\nk=v\n\n[h]\n", eraseGroup("G"), "[a]\nx=1\n\n\n[h]\n"},
        {"last group", "[a]\n[g]\nk=v\n", eraseGroup("g"), "[a]\n"},
        {"group before an indented header", "[g]\nk=v\n  [h]\n", eraseGroup("g"), " [h]\n"},
        {"missing group", "[a]\n", eraseGroup("g"), "[a]\n", 0},
    };
    check(cases);
}

TEST(ConfigFileEdit, RefusesNullAndClosedDocuments) {
    ConfigFile config;
    EXPECT_EQ(config.GetBuffer(), nullptr);
    EXPECT_EQ(config.WriteStr("g", "k", "v"), 0);
    EXPECT_EQ(config.ExistGroup("g"), 0);
    char name[8];
    EXPECT_EQ(config.GetNextGroup(name, sizeof name), 0);
    EXPECT_EQ(config.GetNextParam(name, sizeof name, nullptr, 0), 0);
    ASSERT_EQ(config.OpenMem(nullptr, 5), 1);
    EXPECT_STREQ(config.GetBuffer(), "");
    ASSERT_EQ(config.OpenMem("[g]\nk=v\n", -1), 1);
    for (const auto edit : {&ConfigFile::WriteStr, &ConfigFile::AddStr}) {
        EXPECT_EQ((config.*edit)(nullptr, "k", "v"), 0);
        EXPECT_EQ((config.*edit)("g", nullptr, "v"), 0);
        EXPECT_EQ((config.*edit)("g", "k", nullptr), 0);
    }
    EXPECT_EQ(config.DeleteValue(nullptr, "k"), 0);
    EXPECT_EQ(config.DeleteValue("g", nullptr), 0);
    EXPECT_EQ(config.DeleteGroup(nullptr), 0);
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=v\n");
}

TEST(ConfigFileEdit, EndsAnIteration) {
    ConfigFile config;
    ASSERT_EQ(config.OpenMem("[g]\nk=1\nl=2\n[h]\n", -1), 1);
    char name[8];
    ASSERT_EQ(config.GetFirstGroup(name, sizeof name), 1);
    ASSERT_EQ(config.GetFirstParam("g", name, sizeof name, nullptr, 0), 1);
    ASSERT_EQ(config.DeleteValue("g", "k"), 1);
    EXPECT_EQ(config.GetNextGroup(name, sizeof name), 0);
    EXPECT_EQ(config.GetNextParam(name, sizeof name, nullptr, 0), 0);
}

TEST(ConfigFileEdit, OpensMemory) {
    ConfigFile config;
    EXPECT_EQ(config.OpenMem("[g]\nk=value", 9), 1);
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=val");
    EXPECT_EQ(config.OpenMem(config.GetBuffer() + 4, -1), 1) << "its own text";
    EXPECT_STREQ(config.GetBuffer(), "k=val");
    EXPECT_EQ(config.OpenMem("abc", 0), 1);
    EXPECT_STREQ(config.GetBuffer(), "");
    EXPECT_EQ(config.OpenMem("[g]\nk=a\0[h]\n", 12), 1);
    EXPECT_EQ(config.ExistGroup("h"), 0);
    EXPECT_EQ(config.WriteStr("g", "k", "b"), 1);
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=b");
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(config.GetBuffer(), nullptr);
}

class ConfigFileOnDisk : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/configfile.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        directory = pattern;
        path = directory + "/file";
    }
    void TearDown() override {
        std::filesystem::remove_all(directory);
    }

    void put(const std::string& bytes) const {
        std::ofstream(path, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    std::string get() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string directory;
    std::string path;
};

TEST_F(ConfigFileOnDisk, ReadsTexts) {
    const std::string piece = repeat('x', 509);
    const struct {
        const char* name;
        std::string bytes;
        std::string expected;
    } cases[] = {
        {"line end missing", "a=1", "a=1\n"},
        {"line end there", "a=1\n", "a=1\n"},
        {"CR is none here", "a=1\r", "a=1\r\n"},
        {"empty", "", "\n"},
        {"long line", repeat('x', 2000) + "\n", repeat('x', 2000) + "\n"},
        {"kept: a zero byte takes the rest of its line along", std::string("a\0b\nc\n\0\nd", 10),
         "ac\nd\n"},
        {"a zero byte that ends a piece", piece + '\0' + "y\n", piece + "y\n"},
        {"a zero byte that begins the next piece", piece + 'x' + '\0' + "y\nz", piece + "xz\n"},
        {"zero bytes only", std::string(600, '\0'), "\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        put(c.bytes);
        ConfigFile config;
        EXPECT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_EQ(config.GetBuffer(), c.expected);
    }
}

TEST_F(ConfigFileOnDisk, TakesTheSizeModulo32Bits) {
    put("a=12345678901234567890\n");
    ASSERT_EQ(truncate(path.c_str(), (off_t{1} << 32) + 5), 0);
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_STREQ(config.GetBuffer(), "a=12345678901234") << "5 bytes and 11 spare ones";
    EXPECT_EQ(config.AddStr("g", "k", "1"), 1);
    EXPECT_STREQ(config.GetBuffer(), "a=12345678901234\n\n[g]\nk=1\n");
}

TEST_F(ConfigFileOnDisk, WritesBackWhatWasEdited) {
    put("[g]\nk=1");
    ConfigFile config;
    ASSERT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(get(), "[g]\nk=1") << "not edited";
    ASSERT_EQ(config.OpenFile(path.c_str()), 1);
    ASSERT_EQ(config.WriteStr("g", "k", "2"), 1);
    EXPECT_EQ(get(), "[g]\nk=1") << "not closed";
    ASSERT_EQ(config.OpenMem("[h]\n", -1), 1);
    EXPECT_EQ(get(), "[g]\nk=2\n");
    ASSERT_EQ(config.WriteStr("h", "k", "3"), 1);
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(get(), "[g]\nk=2\n") << "a text from memory has no file";
    {
        ConfigFile scoped;
        ASSERT_EQ(scoped.OpenFile(path.c_str()), 1);
        ASSERT_EQ(scoped.DeleteValue("g", "k"), 1);
    }
    EXPECT_EQ(get(), "[g]\n") << "destroyed";
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", nullptr), 1) << "kept: it opened";
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", "4"), 1);
    EXPECT_EQ(get(), "[g]\n\nk=4\n");
    put("[g]\nk=5");
    ASSERT_EQ(config.OpenFile(path.c_str()), 1);
    ASSERT_EQ(config.DeleteGroup("g"), 1);
    ASSERT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=5\n") << "opening again drops the edit";
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(get(), "[g]\nk=5") << "and there is nothing to write";
}

TEST_F(ConfigFileOnDisk, CreatesAMissingFile) {
    const mode_t oldMask = umask(077);
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(path.c_str()), 0);
    EXPECT_STREQ(config.GetBuffer(), "");
    EXPECT_EQ(config.WriteStr("g", "k", "v"), 1);
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(umask(oldMask), mode_t{077});
    EXPECT_EQ(get(), "\n\n[g]\nk=v\n");
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, mode_t{0664});
    EXPECT_EQ(ConfigFile::AddConfig((path + "2").c_str(), "g", "k", "v"), 0);
    EXPECT_FALSE(std::filesystem::exists(path + "2"));
}

TEST_F(ConfigFileOnDisk, RefusesWhatIsNoFile) {
    const std::string pipe = directory + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& name : {directory, pipe, std::string()}) {
        SCOPED_TRACE(name);
        ConfigFile config;
        ASSERT_EQ(config.OpenMem("[g]\n", -1), 1);
        EXPECT_EQ(config.OpenFile(name.c_str()), 0);
        EXPECT_STREQ(config.GetBuffer(), "");
    }
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(nullptr), 0);
    for (const std::string& name : {directory, pipe}) {
        EXPECT_EQ(config.OpenFile(name.c_str()), 0);
        EXPECT_EQ(config.WriteStr("g", "k", "v"), 1);
        EXPECT_EQ(config.Close(), 0) << name << " can't be written";
        EXPECT_EQ(config.GetBuffer(), nullptr);
    }
}

TEST_F(ConfigFileOnDisk, ReadsDevices) {
    ConfigFile config;
    for (const char* const device : {"/dev/null", "/dev/zero"}) {
        EXPECT_EQ(config.OpenFile(device), 1);
        EXPECT_STREQ(config.GetBuffer(), "\n") << device;
    }
    EXPECT_EQ(config.OpenFile("/dev/urandom"), 1);
    EXPECT_LE(std::strlen(config.GetBuffer()), 11u);
}

TEST_F(ConfigFileOnDisk, RefusesAPathThatDoesNotFit) {
    path = directory + repeat('/', 1023 - directory.size() - 1) + "f";
    put("[g]\nk=1\n");
    ConfigFile config;
    EXPECT_EQ(config.OpenFile(path.c_str()), 1);
    EXPECT_EQ(config.WriteStr("g", "k", "2"), 1);
    EXPECT_EQ(config.OpenFile((path + "2").c_str()), 0);
    EXPECT_STREQ(config.GetBuffer(), "");
    EXPECT_EQ(config.WriteStr("g", "k", "3"), 1);
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(get(), "[g]\nk=1\n") << "the name without its last byte is another file";
}

TEST_F(ConfigFileOnDisk, ReadsOneValueInOneCall) {
    put("[g]\nk=value\n");
    char out[4] = "###";
    EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), "g", "k", out, sizeof out, "none"), 1);
    EXPECT_STREQ(out, "val");
    EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), "g", "l", out, sizeof out, "none"), 0);
    EXPECT_STREQ(out, "non");
    EXPECT_EQ(ConfigFileReadStrDef((path + "2").c_str(), "g", "k", out, sizeof out, "two"), 0);
    EXPECT_STREQ(out, "two");
    EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), "g", "k", out, sizeof out, nullptr), 0);
    EXPECT_EQ(ConfigFileReadStrDef(nullptr, "g", "k", out, sizeof out, "none"), 0);
    EXPECT_STREQ(out, "two");
}

} // namespace
