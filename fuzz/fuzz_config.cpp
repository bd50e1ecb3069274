// Configuration texts. The input is a byte of options, a group, a name, a value, and the text, each
// but the last ended by a zero byte. Everything that reads and edits runs over the text, and what
// must hold whatever it says is checked. Values are also read as words and as enciphered ones. With
// option bytes from 4 to 7 it also goes through a file, and from 8 to 11 through a file whose
// cipher returns what the text begins with.
#include <unistd.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "configfile.h"

namespace {

// Stops the run with the check's text; asserts would vanish from release builds.
#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "does not hold: %s\n", #condition);                               \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : bytes(data, data + size) {}

    std::string takeText() {
        const std::string text = bytes.substr(0, bytes.find('\0'));
        bytes.erase(0, text.size() + 1);
        return text;
    }
    const std::string& rest() const {
        return bytes;
    }

private:
    std::string bytes;
};

struct Question {
    unsigned int options;
    std::string group;
    std::string name;
    std::string value;
};

void open(ConfigFile& config, const Question& question, const std::string& text) {
    CHECK(config.SetOptions(question.options) == 1);
    CHECK(config.OpenMem(text.data(), static_cast<int>(text.size())) == 1);
    CHECK(text.compare(0, text.find('\0'), config.GetBuffer()) == 0);
}

// Letters and digits only, so that none of the format's characters changes the meaning.
bool isPlain(const std::string& text, std::size_t limit) {
    for (const char c : text) {
        if (static_cast<signed char>(c) < 0 || std::isalnum(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return text.size() < limit;
}

// All forms of reading see the same value; a false result leaves the default.
bool read(const ConfigFile& config, const Question& question, std::string* value) {
    const char* const group = question.group.c_str();
    const char* const name = question.name.c_str();
    char text[512];
    char cut[5];
    unsigned int number = 0;
    signed char truth = 0;
    const bool found = config.ReadStrDef(group, name, text, sizeof text, "default") != 0;
    CHECK(config.ReadStr(group, name, cut, sizeof cut) == (found ? 1 : 0));
    CHECK(std::strlen(text) < 511 && std::strlen(cut) < sizeof cut);
    CHECK(found ? std::strncmp(text, cut, sizeof cut - 1) == 0 : std::strcmp(text, "default") == 0);
    CHECK(config.ReadIntDef(group, name, &number, 7) == (found ? 1 : 0));
    CHECK(config.ReadBoolDef(group, name, &truth, 7) == (found ? 1 : 0));
    CHECK(found ? truth == 0 || truth == 1 || truth == 7 : number == 7 && truth == 7);
    CHECK(!found || config.ExistStr(group, name, text) == 1);
    CHECK(!found || config.ExistGroup(group) == 1);
    config.ExistNStr(group, name, question.value.c_str(), 3);
    *value = text;
    return found;
}

signed char encrypt(unsigned char* plain, unsigned long plainLen, unsigned char* out,
                    unsigned long outSize, unsigned int* outLen, void*) {
    *outLen = static_cast<unsigned int>(plainLen < outSize ? plainLen : outSize);
    std::memcpy(out, plain, *outLen);
    return 1;
}

// Without a terminator.
signed char decrypt(unsigned char* cipher, unsigned long cipherLen, char* out,
                    unsigned long outSize, void*) {
    CHECK(cipherLen <= outSize);
    std::memcpy(out, cipher, cipherLen);
    return 1;
}

// Values that are words or enciphered; where a value is written into a line of its own, it is read
// back.
void convert(const Question& question, const std::string& text) {
    const char* const group = question.group.c_str();
    const char* const name = question.name.c_str();
    const CONFIGBITMASK words[] = {{1, "a"}, {6, question.value.c_str()}, {8, "b"}, {0, ""}};
    ConfigFile config;
    open(config, question, text);
    config.SetValueEncryptFunc(encrypt);
    config.SetValueDecryptFunc(decrypt);
    std::vector<char> out(512);
    signed char wasEncrypted = 7;
    unsigned int mask = 0;
    const bool found = config.ReadStr(group, name, out.data(), 512) != 0;
    CHECK(config.ReadStrCrypt(group, name, out.data(), 512, &wasEncrypted, nullptr) ==
          (found ? 1 : 0));
    CHECK(wasEncrypted == 0 || (found && wasEncrypted == 1));
    CHECK(config.ReadBitMaskDef(group, name, words, &mask, 16) == 0 || found);
    CHECK((mask & 16) == 16 && mask < 32);
    std::vector<char> shown(8);
    ConfigFile::BitMask2Text(mask, words, shown.data(), 8);
    CHECK(std::strlen(shown.data()) < 8);
    config.WriteBitMask(group, name, words, mask);
    open(config, question, "[g]\nk=\n");
    CHECK(config.WriteStrCrypt("g", "k", question.value.c_str(), nullptr) == 1);
    const bool fits = question.value.size() <= 252;
    CHECK((config.ReadStrCrypt("g", "k", out.data(), 512, &wasEncrypted, nullptr) == 1) == fits);
    CHECK(!fits || question.value == out.data());
}

// As many lines, into buffers that are far too small.
void walkInto(ConfigFile& config, const std::string& group, std::size_t lines) {
    std::vector<char> name(3);
    std::vector<char> value(5);
    for (auto more = config.GetFirstParam(group.c_str(), name.data(), 3, value.data(), 5);
         more != 0; more = config.GetNextParam(name.data(), 3, value.data(), 5)) {
        CHECK(lines-- > 0 && std::strlen(name.data()) < 3 && std::strlen(value.data()) < 5);
    }
    CHECK(lines == 0);
    for (auto more = config.GetFirstGroup(name.data(), 3); more != 0;
         more = config.GetNextGroup(name.data(), 3)) {
        CHECK(std::strlen(name.data()) < 3);
    }
}

// Each step of an iteration moves forward, so there are never more steps than bytes.
void walk(ConfigFile& config, const std::string& group) {
    char name[512];
    char value[512];
    std::size_t groups = 0;
    std::size_t lines = 0;
    const std::size_t length = std::strlen(config.GetBuffer());
    for (auto more = config.GetFirstGroup(name, sizeof name); more != 0;
         more = config.GetNextGroup(name, sizeof name)) {
        CHECK(++groups <= length);
    }
    for (auto more = config.GetFirstParam(group.c_str(), name, 100, value, 300); more != 0;
         more = config.GetNextParam(name, 100, value, 300)) {
        CHECK(++lines <= length && std::strlen(name) < 100 && std::strlen(value) < 256);
    }
    walkInto(config, group, lines);
}

void remove(const Question& question, const std::string& text) {
    ConfigFile config;
    open(config, question, text);
    for (const bool wholeGroup : {false, true}) {
        std::size_t length = std::strlen(config.GetBuffer());
        const auto once = [&] {
            return wholeGroup ? config.DeleteGroup(question.group.c_str())
                              : config.DeleteValue(question.group.c_str(), question.name.c_str());
        };
        while (once() != 0) {
            CHECK(std::strlen(config.GetBuffer()) < length);
            length = std::strlen(config.GetBuffer());
        }
    }
    CHECK(config.ExistGroup(question.group.c_str()) == 0);
}

// An added line is read back as it was written, where nothing of the text around it interferes.
void write(const Question& question, const std::string& text) {
    ConfigFile config;
    open(config, question, text.substr(0, text.find('\0')) + "\n");
    std::string value;
    const bool existed = read(config, question, &value);
    CHECK(config.WriteStr(question.group.c_str(), question.name.c_str(), question.value.c_str()) ==
          1);
    const bool found = read(config, question, &value);
    if (!existed && isPlain(question.group, 60) && isPlain(question.name, 60) &&
        isPlain(question.value, 300)) {
        CHECK(found && value == question.value);
    }
    CHECK(config.AddStr(question.group.c_str(), question.name.c_str(), question.value.c_str()) ==
          1);
    read(config, question, &value);
    walk(config, question.group);
    CHECK(config.Close() == 1);
}

struct TemporaryFile {
    explicit TemporaryFile(const std::string& text) {
        const int fd = mkstemp(path);
        const auto size = static_cast<ssize_t>(text.size());
        CHECK(fd >= 0 && ::write(fd, text.data(), text.size()) == size && close(fd) == 0);
    }
    ~TemporaryFile() {
        unlink(path);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    char path[sizeof "/tmp/fuzz_config.XXXXXX"] = "/tmp/fuzz_config.XXXXXX";
};

// A file says what the same bytes in memory say, and ends its last line. Behind a first zero byte
// they differ.
void readFile(const std::string& text) {
    const TemporaryFile file(text);
    ConfigFile config;
    CHECK(config.OpenFile(file.path) == 1);
    const std::string found = config.GetBuffer();
    const std::string inMemory = text.substr(0, text.find('\0'));
    CHECK(found.compare(0, inMemory.size(), inMemory) == 0);
    CHECK(found.back() == '\n' && found.size() <= text.size() + 1);
    if (inMemory.size() == text.size()) {
        const bool ended = !text.empty() && text.back() == '\n';
        CHECK(found.size() == text.size() + (ended ? 0 : 1));
    }
}

// What the cipher of a file returns: a result and a length.
signed char cipherResult;
unsigned int cipherLength;

signed char decryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    CHECK(bufferSize == *length + 64UL && buffer[*length] == 0 && buffer[bufferSize - 1] == 0);
    *length = cipherLength;
    return cipherResult;
}

// The first byte of the text is the result, the next four are the length.
void readEnciphered(const std::string& text) {
    if (text.size() < 5) {
        return;
    }
    cipherResult = static_cast<signed char>(text[0]);
    std::memcpy(&cipherLength, text.data() + 1, sizeof cipherLength);
    const TemporaryFile file(text);
    ConfigFile config;
    const bool fits = cipherLength <= text.size() + 64;
    CHECK(config.OpenFileCrypt(file.path, decryptFile) == (cipherResult == 1 && fits ? 1 : 0));
    std::string plain = text + std::string(64, '\0');
    plain.resize(cipherResult == 1 && fits ? cipherLength : 0);
    CHECK(plain.substr(0, plain.find('\0')) == config.GetBuffer());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Input input(data + 1, size - 1);
    const Question question{data[0] & 3u, input.takeText(), input.takeText(), input.takeText()};
    ConfigFile config;
    open(config, question, input.rest());
    std::string value;
    read(config, question, &value);
    walk(config, question.group);
    remove(question, input.rest());
    write(question, input.rest());
    convert(question, input.rest());
    if (data[0] >> 2 == 1) {
        readFile(input.rest());
    } else if (data[0] >> 2 == 2) {
        readEnciphered(input.rest());
    }
    return 0;
}
