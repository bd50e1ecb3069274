// Configuration files without memory, and on files that refuse, break off, or go on in small steps.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "configfile.h"
#include "failing_calls.h"
#include "temp_directory.h"

namespace {

using torture::doesLess;
using torture::Fault;
using torture::memory;

constexpr char text[] = "[Group]\nName=old\n";
constexpr char edited[] = "[Group]\nName=new\n";

signed char flipFile(unsigned char* bytes, unsigned long, unsigned int* length) {
    for (unsigned int i = 0; i < *length; ++i) {
        bytes[i] = static_cast<unsigned char>(bytes[i] ^ 0x80);
    }
    return 1;
}

std::string flipped(std::string bytes) {
    for (char& c : bytes) {
        c = static_cast<char>(c ^ 0x80);
    }
    return bytes;
}

signed char flipValue(unsigned char* plain, unsigned long length, unsigned char* out, unsigned long,
                      unsigned int* outLength, void*) {
    memcpy(out, plain, length);
    *outLength = static_cast<unsigned int>(length);
    return flipFile(out, length, outLength);
}

signed char unflipValue(unsigned char* cipher, unsigned long length, char* out, unsigned long size,
                        void*) {
    unsigned int count = 0;
    const bool done =
        length < size && flipValue(cipher, length, reinterpret_cast<unsigned char*>(out), size,
                                   &count, nullptr) == 1;
    return done ? 1 : 0;
}

// With a document, and the file behind it.
class ConfigTorture : public testing::Test {
protected:
    // The operation's result, or -1 where the document is neither what it was nor what it became.
    static int after(signed char done, const ConfigFile& config, const char* before,
                     const char* now) {
        const char* const is = config.GetBuffer();
        return strcmp(is == nullptr ? "" : is, done != 0 ? now : before) == 0 ? done : -1;
    }

    void write(const std::string& bytes) const {
        const torture::Aside aside;
        directory.write("file", bytes);
    }

    int closeEdited(bool enciphered) const {
        ConfigFile config;
        {
            const torture::Aside aside;
            directory.write("file", enciphered ? flipped(text) : text);
            enciphered ? config.OpenFileCrypt(path.c_str(), flipFile)
                       : config.OpenFile(path.c_str());
            config.WriteStr("Group", "Name", "new");
        }
        const int done = enciphered ? config.CloseFileCrypt(flipFile) : config.Close();
        const torture::Aside aside;
        const std::string file = directory.read("file");
        const char* const whole = done != 0 ? edited : text;
        return file == (enciphered ? flipped(whole) : whole) ? done : file.empty() ? 2 : 3;
    }

    const support::TempDirectory directory;
    const std::string path = directory.path("file");
};

TEST_F(ConfigTorture, InMemory) {
    const std::vector<Fault> fails = {{memory, ENOMEM, {0}}};
    const auto withText = [](auto operation) {
        return [operation] {
            ConfigFile config;
            {
                const torture::Aside aside;
                config.SetValueEncryptFunc(flipValue);
                config.SetValueDecryptFunc(unflipValue);
                config.OpenMem(text, -1);
            }
            return operation(config);
        };
    };
    using Config = ConfigFile;
    torture::failEach({
        {"OpenMem",
         [] {
             Config config;
             return after(config.OpenMem(text, -1), config, "", text);
         },
         fails},
        {"another OpenMem",
         withText(
             [](Config& config) { return after(config.OpenMem(edited, -1), config, "", edited); }),
         {{memory, ENOMEM, {0, 0}}}},
        {"WriteStr", withText([](Config& config) {
             return after(config.WriteStr("Group", "Name", "new"), config, text, edited);
         }),
         fails},
        {"WriteStr of a group", withText([](Config& config) {
             return after(config.WriteStr("Other", "a", "b"), config, text,
                          "[Group]\nName=old\n\n\n[Other]\na=b\n");
         }),
         fails},
        {"AddStr", withText([](Config& config) {
             return after(config.AddStr("Group", "a", "b"), config, text,
                          "[Group]\nName=old\n\na=b\n");
         }),
         fails},
        {"DeleteValue", withText([](Config& config) {
             return after(config.DeleteValue("Group", "Name"), config, text, "[Group]\n");
         }),
         fails},
        {"WriteStrCrypt", withText([](Config& config) {
             return after(config.WriteStrCrypt("Group", "Name", "a", nullptr), config, text,
                          "[Group]\nName=crypt:e1\n");
         }),
         fails},
        {"ReadStrCrypt", withText([](Config& config) {
             {
                 const torture::Aside aside;
                 config.OpenMem("[Group]\nName=crypt:e1\n", -1);
             }
             char value[8] = "before";
             signed char enciphered = 7;
             const int done =
                 config.ReadStrCrypt("Group", "Name", value, sizeof value, &enciphered, nullptr);
             const bool right = done != 0 ? strcmp(value, "a") == 0 && enciphered == 1
                                          : strcmp(value, "before") == 0 && enciphered == 7;
             return right ? done : -1;
         }),
         fails},
    });
}

TEST_F(ConfigTorture, OnDisk) {
    write(text);
    torture::failEach({
        {"OpenFile",
         [this] {
             ConfigFile config;
             return after(config.OpenFile(path.c_str()), config, "", text);
         },
         {{memory, ENOMEM, {0}},
          {"open", EACCES, {0}},
          {"open", EINTR, {1}},
          {"fstat", EIO, {0}},
          {"lseek", EIO, {0}},
          {"read", EIO, {0}},
          {"read", EINTR, {1}},
          {"read", doesLess, {1}}}},
        // The third result: the file could be opened, which empties it.
        {"Close",
         [this] { return closeEdited(false); },
         {{"open", EACCES, {0}},
          {"open", EINTR, {1}},
          {"write", EIO, {2}},
          {"write", EINTR, {1}},
          {"write", doesLess, {1}}}},
        {"AddConfig",
         [this] {
             write("");
             const int done = ConfigFile::AddConfig(path.c_str(), "G", "a", "b");
             const torture::Aside aside;
             const std::string file = directory.read("file");
             return file == (done != 0 ? "\n\n\n[G]\na=b\n" : "") ? done : file.empty() ? 2 : 3;
         },
         {{memory, ENOMEM, {0, 0, 2}},
          {"open", EACCES, {0, 2}},
          {"read", EINTR, {1}},
          {"write", EINTR, {1}},
          {"write", doesLess, {1}}}},
    });
}

TEST_F(ConfigTorture, OnDiskEnciphered) {
    write(flipped(text));
    torture::failEach({
        {"OpenFileCrypt",
         [this] {
             ConfigFile config;
             return after(config.OpenFileCrypt(path.c_str(), flipFile), config, "", text);
         },
         {{memory, ENOMEM, {0}},
          {"open", EACCES, {0}},
          {"open", EINTR, {1}},
          {"fstat", EIO, {0}},
          {"lseek", EIO, {0}},
          {"read", EIO, {0}},
          {"read", EINTR, {1}},
          {"read", doesLess, {1}}}},
        // Without memory the file stays, and only the cipher, which is not called, could tell.
        {"CloseFileCrypt",
         [this] { return closeEdited(true); },
         {{memory, ENOMEM, {3}},
          {"open", EACCES, {0}},
          {"open", EINTR, {1}},
          {"write", EIO, {2}},
          {"write", EINTR, {1}},
          {"write", doesLess, {1}}}},
    });
}

} // namespace
