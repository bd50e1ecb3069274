// Configuration texts: what is found in them, what edits make of them, and how they are kept in
// files and enciphered.
#include "configfile.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>

#include "config_texts.h"
#include "temp_directory.h"

namespace {

// So many letters.
std::string x(std::size_t count) {
    return std::string(count, 'x');
}

struct ConfigFileText : testing::Test {
    void open(const std::string& text, unsigned int options = 0) {
        EXPECT_EQ(config.SetOptions(options) + config.OpenMem(text.c_str(), -1), 2);
    }
    std::string read(const std::string& name) const {
        char value[600];
        const bool found = config.ReadStrDef("G", name.c_str(), value, 600, "(none)") == 1;
        return found == (value != std::string("(none)")) ? value : "another result";
    }
    // All lines of a group, with a bar behind each.
    std::string list(const char* group) {
        std::string lines;
        char name[300], value[300];
        for (auto more = config.GetFirstParam(group, name, 300, value, 300); more != 0;
             more = config.GetNextParam(name, 300, value, 300)) {
            lines += name + std::string("=") + value + "|";
        }
        return lines;
    }

    const support::TempDirectory directory;
    const std::string path = directory.path("file"), other = directory.path("other");
    ConfigFile config;
};

TEST_F(ConfigFileText, FindsAndListsGroups) {
    const std::tuple<const char*, const char*, const char*, int, const char*> cases[] = {
        {"in text order", "x\n[b]\n[ A ]\r  [b][]\n[]", "B", 1, "b| A |b||"},
        {"not first on their lines", "#[g]\n\t[g]\nx[g]\n[a] [g]#[b]\n", "g", 0, "a|"},
        {"kept: comments count in lists", "[a#b]\nx]\n[c#d]\n[e]", "c#d", 1, "a#b]\nx|e|"},
        {"names end at brackets", "[a\n[b]c]\n[d", "b]c", 0, "b|"}};
    for (const auto& [name, text, wanted, exists, listed] : cases) {
        open(text, 2);
        EXPECT_EQ(config.ExistGroup(wanted), exists) << name;
        std::string groups;
        char group[16];
        for (auto more = config.GetFirstGroup(group, 16); more != 0;
             more = config.GetNextGroup(group, 16)) {
            groups += group + std::string("|");
        }
        EXPECT_EQ(groups, listed) << name;
    }
}

TEST_F(ConfigFileText, FindsAndListsValues) {
    const struct {
        const char* name;
        std::string lines, wanted, value, listed;
        unsigned int options = 0;
    } cases[] = {
        {"bytes 0x20 apart that are no letters", "@=1\n", "`", "(none)", "@=1|"},
        {"kept: a last line without its end", "a=1\nk=v", "k", "v", "a=1|"},
        {"case, line ends", "#\rK=v\r\n\r\nk=2\r", "k", "v", "K=v|k=2|"},
        {"kept: blanks in the name", "\t m \tk = x\n", "mk", "x", "m k=x|"},
        {"quotes and tabs go", "\"k\"=\ta\tb\t\n", "k", "ab", "k=ab|"},
        {"kept: last letters", "k\xE9=1\nk=\xE9t\xE9\x01\n", "k", "\xE9t", "k=1|k=\xE9t|"},
        {"comments", "#k=1\nk#=2\nkeys=3\nk=v # = ## \"c\n", "k", "v", "keys=3|k=v|"},
        {"doubled", "k=##a##b###c\n", "k", "#a#b#", "k=#a#b#|"},
        {"no comments", "#k=a#b##c\n", "#k", "a#b##c", "#k=a#b##c|", 2},
        {"quoted, kept: doubled", "k=\"##\"b\xE9\"c\n", "k", "##\"b\xE9", "k=##\"b\xE9|", 1},
        {"never closed", "a=\" x # \nk= v \"#c\n", "k", "v \"", "a= x # |k=v \"|", 1},
        // Lookups give up lines of 511 characters. Kept: the iteration ends at 256.
        {"names 255, 256", x(255) + "=1\n" + x(256) + "=\nk=3\n", "k", "3", x(255) + "=1|"},
        {"values 255, 256", "a=" + x(255) + "\nk=" + x(256), "k", x(256), "a=" + x(255) + "|"},
        {"name of 511", x(511) + "=v\n", x(511), "(none)", ""},
        {"values 511, 510", "k=" + x(511) + "k=1\nk=" + x(510) + "\n", "k", x(510), ""}};
    for (const auto& c : cases) {
        open("k=before any group\n[other]\nk=other\n[g]\n" + c.lines, c.options);
        EXPECT_EQ(config.SetOptions(4), 0) << "changes nothing";
        EXPECT_EQ(read(c.wanted), c.value) << c.name;
        EXPECT_EQ(list("G"), c.listed) << c.name;
    }
    open("[g]\nKey1=a\nkey2=b=c\nkey2=D\nkey3=akey4=x");
    EXPECT_EQ(config.ExistStr("g", "key2", "D") + config.ExistNStr("g", "key99", "D", 3), 2);
    EXPECT_EQ(config.ExistStr("g", "key2", "d") + config.ExistNStr("g", "key", "x", 3), 0);
}

TEST_F(ConfigFileText, IsConverted) {
    const std::string zeros(254, '0');
    // As a number and as a truth value with the default 9.
    const std::tuple<std::string, unsigned int, int> cases[] = {
        {"+01x", 1, 1},      {"-5", 4294967291, 9}, {"0x10", 0, 9}, {"yes", 0, 1},
        {"ON", 0, 1},        {"0", 0, 0},           {"oFF", 0, 0},  {"No", 0, 0},
        {zeros + "1", 1, 1}, {zeros + "01", 0, 9}};
    unsigned int value = 1;
    signed char truth = 1;
    for (const auto& [text, number, isTrue] : cases) {
        open("[g]\nk=" + text);
        EXPECT_TRUE(config.ReadIntDef("g", "k", &value, 5) == 1 && value == number) << text;
        EXPECT_TRUE(config.ReadBoolDef("g", "k", &truth, 9) == 1 && truth == isTrue) << text;
    }
    EXPECT_TRUE(config.ReadIntDef("g", "none", &value, 5) == 0 && value == 5);
}

TEST_F(ConfigFileText, HasWordsForMasksAndNumbers) {
    const CONFIGBITMASK bits[] = {{1, "TCP"}, {2, "UDP"}, {12, "Wide"},
                                  {0, "0"},   {0, "No"},  {16, ""}};
    const CONFIGSTR2INT words[] = {{1, "TCP"}, {2, "UDP"}, {3, "udp"}, {2, "Two"}, {9, nullptr}};
    // The last is what is read back with the default 64.
    const std::tuple<unsigned int, const char*, const char*, unsigned int> cases[] = {
        {0, "", "No", 64}, {3, "TCP,UDP", "TCP, UDP", 67}, {36, "Wide", "No", 76}};
    unsigned int value = 1;
    for (const auto& [mask, written, shown, readBack] : cases) {
        char out[16];
        EXPECT_TRUE(config.OpenMem("", 0) == 1 && config.WriteBitMask("g", "k", bits, mask) == 1);
        EXPECT_EQ(read("k"), written);
        ConfigFile::BitMask2Text(mask, bits, out, sizeof out);
        EXPECT_STREQ(out, shown);
        EXPECT_TRUE(config.ReadBitMaskDef("g", "k", bits, &value, 64) == 1 && value == readBack);
    }
    open("[g]\nk=tcp/udp;,| wide|\nl=uDP \n");
    EXPECT_TRUE(config.ReadBitMaskDef("g", "k", bits, &value, 64) == 0 && value == 76);
    EXPECT_TRUE(config.ReadStr2IntDef("g", "k", words, &value, 7) == 0 && value == 7);
    EXPECT_TRUE(config.ReadStr2IntDef("g", "l", words, &value, 7) == 1 && value == 2);
    EXPECT_STREQ(ConfigFile::Int2Text(2, words), "UDP");
    EXPECT_STREQ(ConfigFile::Int2Text(9, words), nullptr) << "kept";
}

TEST_F(ConfigFileText, IsSplicedByEdits) {
    enum Edit { set, add, erase, eraseAll };
    const std::string o511 = "k=" + x(509) + "##\n"; // 511 characters with both marks
    const struct {
        Edit edit;
        const char* name;
        std::string key, value, before, after; // the same text where the edit is refused
        unsigned int options = 0;
    } cases[] = {
        {set, "ends, marks, tabs", "k", "a\r\n#\tb%s", "[g]\nk=1\n", "[g]\nk=a  ##b%s\n"},
        {set, "kept: behind a comment", "k", "v", "[g]\nk= # c\n", "[g]\nk= # cv\n"},
        {set, "kept: a tab leaves the old end", "k", "v", "[g]\nk=a\tb\n", "[g]\nk=vb\n"},
        {set, "kept: always doubled", "k", "#", "[g]\nk=\"#\" x\n", "[g]\nk=\"##\" x\n", 3},
        {set, "kept: 511", "k", "v", "[g]\n" + o511, "[g]\n" + o511 + "k=v\n"},
        {set, "kept: no line end is added", "l", "2", "[g]\nk=1", "[g]\nk=1l=2\n"},
        {set, "513 are cut to 512", "k", x(513), "[g]\nk=a##", "[g]\nk=" + x(512)},
        {set, "a mark does not fit", "k", x(511) + "#v", "[g]\nk=1", "[g]\nk=" + x(511)},
        {set, "line of 512", "k", x(509), "[g]\n", "[g]\nk=" + x(509)},
        {add, "kept: line of 400", "k", "#" + x(395), "[g]\n[h]", "[g]\n\nk=#" + x(395) + "[h]"},
        {add, "group of 400", "k", x(391), "", "\n\n[G]\nk=" + x(391)},
        {erase, "kept: empty lines go, too", "K", "", "[g]\nk=v\r\n\n \nk=2\n", "[g]\n \nk=2\n"},
        {erase, "kept: blanks count", "k", "", "[g]\nk =v\n k=v\n", "[g]\nk =v\n k=v\n"},
        {erase, "kept: a comment, ever", "k#", "", "[g]\nk#=v\n", "[g]\nk#=v\n", 2},
        {eraseAll, "kept: up to the bracket", "", "", "a\n\n[g]\nk=v\n  [h]\n", "a\n\n [h]\n"}};
    for (const auto& c : cases) {
        open(c.before, c.options);
        const char *const key = c.key.c_str(), *const value = c.value.c_str();
        const auto done = c.edit == set     ? config.WriteStr("G", key, value)
                          : c.edit == add   ? config.AddStr("G", key, value)
                          : c.edit == erase ? config.DeleteValue("G", key)
                                            : config.DeleteGroup("G");
        EXPECT_EQ(done, c.before == c.after ? 0 : 1) << c.name;
        EXPECT_EQ(config.GetBuffer(), c.after) << c.name;
    }
}

TEST_F(ConfigFileText, IsTakenFromMemory) {
    EXPECT_EQ(config.ExistGroup("g") + config.AddStr("g", "k", "v"), 0) << "closed";
    EXPECT_EQ(config.OpenMem("[h]\n[g]\ni=0\0", 0x7fffffff), 1) << "nothing behind a zero byte";
    EXPECT_EQ(config.OpenMem(config.GetBuffer() + 4, 4), 1) << "its own text";
    EXPECT_TRUE(config.WriteInt("g", "i", ~0U) == 1 && config.WriteBool("g", "t", 2) == 1);
    EXPECT_EQ(config.WriteStr(nullptr, "i", "") + config.WriteStr("g", nullptr, ""), 0);
    EXPECT_EQ(config.AddStr("g", "i", nullptr) + config.ReadInt("g", "i", nullptr), 0);
    EXPECT_STREQ(config.GetBuffer(), "[g]\ni=-1\nt=On\n");
    char name[] = "####";
    EXPECT_TRUE(config.GetFirstGroup(name, 3) && config.GetFirstParam("g", name, 2, nullptr, 0));
    EXPECT_EQ(std::string(name, 4), std::string("i\0##", 4));
    EXPECT_EQ(config.OpenMem(nullptr, 5), 1) << "which ends iterations";
    EXPECT_EQ(config.GetNextGroup(name, 4) + config.GetNextParam(name, 4, nullptr, 0), 0);
}

TEST_F(ConfigFileText, AgreesWithAModelAtEveryEdit) {
    const char *const names[] = {"k", "key", "l"}, *const values[] = {"1", "a b", "x=[y]", ""};
    std::mt19937 random(20260731);
    std::string model = "|"; // each line of the group, and a bar
    open("k=0\n[f]\nk=1\n[g] # first\n; Key\n \n[h]\nk=2\n");
    for (int i = 0; i < 10000 && !HasFailure(); ++i) {
        const std::string name = names[random() % 3], value = values[random() % 4];
        const auto start = model.find("|" + name + "="), stop = model.find('|', start + 1);
        const auto from = start + name.size() + 2;
        const bool found = start != std::string::npos;
        EXPECT_EQ(read(name), found ? model.substr(from, stop - from) : "(none)");
        const unsigned int operation = random() % 4;
        if (operation < 2) {
            EXPECT_EQ(config.DeleteValue("g", name.c_str()), found);
            model.erase(found ? start : 0, found ? stop - start : 0);
        } else if (operation == 2 && found) {
            EXPECT_EQ(config.WriteStr("g", name.c_str(), value.c_str()), 1);
            model.replace(from, stop - from, value);
        } else {
            const auto add = found ? &ConfigFile::AddStr : &ConfigFile::WriteStr;
            EXPECT_EQ((config.*add)("g", name.c_str(), value.c_str()), 1);
            model += name + "=" + value + "|";
        }
        EXPECT_EQ(list("f") + "|" + list("g") + list("h"), "k=1|" + model + "k=2|") << "step " << i;
    }
}

TEST_F(ConfigFileText, IsReadFromFiles) {
    const std::string zero(1, '\0'), path1023 = std::string(1023 - path.size(), '/') + path;
    const std::pair<std::string, std::string> filesAndTexts[] = {
        // Kept: a zero byte takes the rest of its line or piece along.
        {"a" + zero + "b\nc\n" + zero + "\nd", "ac\nd\n"},
        {x(510) + zero + "y\nz", x(510) + "z\n"},
        {"a=1\r", "a=1\r\n"}};
    for (const auto& [bytes, text] : filesAndTexts) {
        directory.write("file", bytes);
        EXPECT_EQ(config.OpenFile(path1023.c_str()), 1);
        EXPECT_EQ(config.GetBuffer(), text);
    }
    EXPECT_TRUE(config.OpenFile((path1023 + "2").c_str()) == 0 && *config.GetBuffer() == 0);
    EXPECT_TRUE(config.WriteStr("g", "k", "v") == 1 && config.Close() == 1);
    EXPECT_EQ(directory.read("file"), "a=1\r") << "a cut name would be another file's";
    EXPECT_TRUE(mkfifo(other.c_str(), 0600) == 0 && config.OpenFile(other.c_str()) == 0);
}

// What other programs keep in their files stays as it is, but for the one value.
TEST_F(ConfigFileText, StaysButForTheValue) {
    for (const auto& t : support::configTexts) {
        directory.write("file", t.before + t.value + t.after);
        ASSERT_TRUE(support::setModificationTime(path, 1000));
        char value[16];
        EXPECT_EQ(ConfigFileReadStrDef(path.c_str(), t.group, t.key, value, sizeof value, ""), 1);
        EXPECT_STREQ(value, t.value);
        EXPECT_EQ(support::modificationTime(path), 1000) << t.name << " was written";
        EXPECT_EQ(config.OpenFile(path.c_str()), 1);
        EXPECT_TRUE(config.WriteStr(t.group, t.key, t.newValue) == 1 && config.Close() == 1);
        EXPECT_EQ(directory.read("file"), t.before + t.newValue + t.after);
    }
}

// What the ciphers return, the length that those of values give or those of files add, and what
// they were given.
struct {
    int result, length;
    std::string seen;
    mode_t mask;
} cipher;

signed char changeFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    EXPECT_EQ(std::count(buffer + *length, buffer + bufferSize, 0), 64);
    umask(cipher.mask = umask(0));
    *length += static_cast<unsigned int>(cipher.length);
    return static_cast<signed char>(cipher.result);
}

TEST_F(ConfigFileText, IsWrittenBackWhereEdited) {
    const mode_t oldMask = umask(077);
    EXPECT_EQ(config.OpenFile(path.c_str()), 0);
    EXPECT_TRUE(config.WriteStr("g", "k", "1") == 1 && config.Close() == 1);
    EXPECT_EQ(umask(oldMask), mode_t{077});
    struct stat info = {};
    EXPECT_TRUE(stat(path.c_str(), &info) == 0 && (info.st_mode & 0777) == 0664);
    ASSERT_TRUE(config.OpenFile(path.c_str()) == 1 && config.DeleteGroup("g") == 1);
    ASSERT_TRUE(config.OpenFile(path.c_str()) == 1 && config.AddStr("h", "k", "2") == 1);
    EXPECT_EQ(directory.read("file"), "\n\n[g]\nk=1\n") << "kept: opening drops the edit";
    ASSERT_TRUE(config.OpenMem("", 0) == 1 && config.WriteStr("h", "k", "3") == 1);
    EXPECT_EQ(config.Close(), 1) << "a text from memory has no file";
    EXPECT_EQ(ConfigFile::AddConfig(path.c_str(), "g", "k", nullptr), 1) << "kept: it opened";
    // Kept: whatever but CloseFileCrypt writes a deciphered text in plain, and where opening fails
    // the earlier text gets the new name.
    cipher = {1, 0, "", 0};
    EXPECT_EQ(config.OpenFileCrypt(path.c_str(), changeFile), 1);
    EXPECT_EQ(config.DeleteGroup("h"), 1);
    EXPECT_EQ(config.OpenFileCrypt(other.c_str(), changeFile), 0);
    EXPECT_EQ(config.OpenFileCrypt(other.c_str(), changeFile), 0);
    char out[4];
    EXPECT_EQ(ConfigFileReadStrDef(other.c_str(), "g", "k", out, sizeof out, "none"), 0);
    EXPECT_STREQ(out, "non");
    EXPECT_EQ(directory.read("file"), "\n\n[g]\nk=1\n\n\n");
    EXPECT_TRUE(config.DeleteGroup("g") == 1 && config.Close() == 1);
    EXPECT_EQ(directory.read("other"), "\n\n");
}

TEST_F(ConfigFileText, MeetsCiphersThatFail) {
    // The cipher's result and what it adds; what opening and closing give, and the file.
    const std::tuple<const char*, int, int, int, int, std::string> cases[] = {
        {"all taken, then 8 of 10 bytes", 1, -8, 1, 1, "\n\n"},
        {"kept: closing tells nothing of the cipher", 0, 0, 0, 1, ""},
        {"kept: only opening needs exactly 1", 2, 0, 0, 1, "\n\n[g]\nk=2\n"},
        {"beyond the buffer", 1, 65, 0, 0, ""}};
    for (const auto& [name, result, length, opened, closed, after] : cases) {
        directory.write("file", "[g]\nk=1\n");
        cipher = {result, length, "", 0};
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), changeFile), opened) << name;
        ASSERT_TRUE(config.WriteStr("g", "k", "2") == 1 && remove(path.c_str()) == 0);
        EXPECT_EQ(config.CloseFileCrypt(changeFile), closed) << name;
        EXPECT_TRUE(cipher.mask == 2 && config.GetBuffer() == nullptr) << name;
        EXPECT_EQ(directory.read("file"), after) << name;
    }
    EXPECT_EQ(config.OpenFileCrypt(nullptr, changeFile) + config.OpenFileCrypt("", nullptr), 0);
}

// Ends a file as block ciphers do, or takes that away.
template <bool ends>
signed char pad(unsigned char* buffer, unsigned long, unsigned int* length) {
    const unsigned int count = ends ? 16 - *length % 16 : buffer[*length - 1];
    std::fill_n(buffer + *length, ends ? count : 0, count);
    *length += ends ? count : -count;
    return 1;
}

TEST_F(ConfigFileText, MayBePadded) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 1000000U}) {
        const std::string body = size == 0 ? "" : x(size - 1) + "\n";
        directory.write("file", body + "[g]");
        cipher = {1, 0, "", 0};
        open(path);
        ASSERT_EQ(config.OpenFileCrypt(config.GetBuffer(), changeFile), 1) << "its own text";
        EXPECT_TRUE(config.DeleteGroup("g") == 1 && config.CloseFileCrypt(pad<true>) == 1);
        EXPECT_EQ(directory.read("file").size(), size / 16 * 16 + 16);
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), pad<false>), 1);
        EXPECT_EQ(config.GetBuffer(), body);
    }
}

TEST_F(ConfigFileText, HasEncipheredValues) {
    signed char was = 7;
    char out[600] = "kept";
    open("[g]\nk=1\n");
    EXPECT_EQ(config.ReadStrCrypt("g", "k", out, 600, &was, &was), 0) << "kept: not even plain";
    config.SetValueDecryptFunc([](auto* bytes, auto length, auto* text, auto, auto*) {
        cipher.seen.assign(bytes, bytes + length);
        std::fill_n(text, cipher.length, 'x'); // not terminated
        return static_cast<signed char>(cipher.result);
    });
    config.SetValueEncryptFunc([](auto* text, auto size, auto* bytes, auto, auto* length, auto*) {
        cipher.seen.assign(text, text + size);
        std::fill_n(bytes, 512, 0x77);
        *length = static_cast<unsigned int>(cipher.length);
        return static_cast<signed char>(cipher.result);
    });
    // The cipher's result and length; the result, wasEncrypted, the value, the cipher's bytes.
    const std::tuple<const char*, int, int, int, int, std::string, std::string> readValues[] = {
        {"l=1", 0, 0, 0, 0, "kept", ""},
        {"k=crypt:61", 0, 1, 0, 0, "kept", "a"},
        {"k=CRYPT:+6-1 7zz0A6", -1, 512, 1, 1, x(511), "\6\xFF\a\a\n\6"},
        {"k= plain ", 0, 0, 1, 0, "plain", ""},
        {"k=crypt:", 0, 0, 1, 1, "", ""}};
    for (const auto& [text, result, length, readResult, wasEncrypted, value, seen] : readValues) {
        cipher = {result, length, "", 0};
        open(std::string("[g]\n") + text);
        EXPECT_EQ(config.ReadStrCrypt("g", "k", out, 600, &was, &cipher), readResult) << text;
        EXPECT_TRUE(was == wasEncrypted && out == value && cipher.seen == seen) << text;
    }
    // The cipher's result and length; the result, and how many digits.
    const std::tuple<const char*, int, int, int, std::size_t> writtenValues[] = {
        {"# \xE9\n", -1, 2, 1, 4}, {"", 0, 0, 1, 0},      {"v", 0, 1, 0, 0},
        {"v", 1, 252, 1, 504},     {"v", 1, 512, 1, 505}, {"v", 1, 513, 0, 0}};
    for (const auto& [plain, result, length, writeResult, digits] : writtenValues) {
        cipher = {result, length, "", 0};
        open("[g]\nk=1\n");
        EXPECT_EQ(config.WriteStrCrypt("g", "k", plain, &cipher), writeResult) << length;
        const std::string value = writeResult == 0 ? "1" : "crypt:" + std::string(digits, '7');
        EXPECT_EQ(config.GetBuffer() + cipher.seen, "[g]\nk=" + value + "\n" + plain);
    }
}

} // namespace
