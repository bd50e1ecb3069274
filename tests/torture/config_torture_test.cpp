// Configuration files without memory, and on files that refuse, break off, or go on in small steps.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "configfile.h"
#include "failing_calls.h"
#include "temp_directory.h"

namespace {

constexpr char text[] = "[Group]\nName=old\n";
constexpr char edited[] = "[Group]\nName=new\n";

signed char flipFile(unsigned char* bytes, unsigned long, unsigned int* length) {
    for (unsigned int i = 0; i < *length; ++i) {
        bytes[i] = static_cast<unsigned char>(bytes[i] ^ 0x80);
    }
    return 1;
}

std::string flipped(std::string bytes) {
    auto length = static_cast<unsigned int>(bytes.size());
    flipFile(reinterpret_cast<unsigned char*>(bytes.data()), length, &length);
    return bytes;
}

signed char flipValue(unsigned char* plain, unsigned long length, unsigned char* out, unsigned long,
                      unsigned int* outLength, void*) {
    *outLength = static_cast<unsigned int>(length);
    memcpy(out, plain, length);
    return flipFile(out, length, outLength);
}

signed char readsPlain(ConfigFile& config) {
    char value[4];
    signed char enciphered = 1;
    return config.ReadStrCrypt("Group", "Name", value, sizeof value, &enciphered, nullptr);
}

// The operation's result, or -1 where the document is not what that says.
int after(signed char done, const ConfigFile& config, const char* before, const char* now) {
    const char* const is = config.GetBuffer();
    return strcmp(is == nullptr ? "" : is, done != 0 ? now : before) == 0 ? done : -1;
}

TEST(ConfigTorture, InMemory) {
    using Config = ConfigFile;
    const struct {
        const char* name;
        signed char (*edit)(Config&);
        const char* before;
        const char* now;
    } cases[] = {
        {"OpenMem", [](Config& c) { return c.OpenMem(edited, -1); }, "", edited},
        {"WriteStr", [](Config& c) { return c.WriteStr("Group", "Name", "new"); }, text, edited},
        {"AddStr", [](Config& c) { return c.AddStr("Other", "a", "b"); }, text,
         "[Group]\nName=old\n\n\n[Other]\na=b\n"},
        {"DeleteValue", [](Config& c) { return c.DeleteValue("Group", "Name"); }, text,
         "[Group]\n"},
        {"ReadStrCrypt", readsPlain, text, text},
        {"WriteStrCrypt", [](Config& c) { return c.WriteStrCrypt("Group", "Name", "a", nullptr); },
         text, "[Group]\nName=crypt:e1\n"},
    };
    for (const auto& c : cases) {
        const auto edit = [&c] {
            Config config;
            {
                const torture::Aside aside;
                config.SetValueEncryptFunc(flipValue);
                config.SetValueDecryptFunc([](auto...) -> signed char { return 1; });
                config.OpenMem(text, -1);
            }
            return after(c.edit(config), config, c.before, c.now);
        };
        torture::failEach({{c.name, edit, "memory ENOMEM 0"}});
    }
}

class ConfigFileTorture : public testing::Test {
protected:
    void write(const std::string& bytes) const {
        const torture::Aside aside;
        directory.write("file", bytes);
    }
    int opens(bool enciphered) const {
        write(enciphered ? flipped(text) : text);
        ConfigFile config;
        return after(enciphered ? config.OpenFileCrypt(path.c_str(), flipFile)
                                : config.OpenFile(path.c_str()),
                     config, "", text);
    }
    int closes(bool enciphered) const {
        ConfigFile config;
        {
            const torture::Aside aside;
            write(enciphered ? flipped(text) : text);
            enciphered ? config.OpenFileCrypt(path.c_str(), flipFile)
                       : config.OpenFile(path.c_str());
            config.WriteStr("Group", "Name", "new");
        }
        const int done = enciphered ? config.CloseFileCrypt(flipFile) : config.Close();
        const torture::Aside aside;
        const std::string file = directory.read("file");
        return written(done, enciphered ? flipped(file) : file, text, edited);
    }
    // The result where the file holds what that says; with 10 more for an empty one, 20 more for
    // one that stayed.
    static int written(int done, const std::string& file, const char* before, const char* now) {
        const int otherwise = file.empty() ? 10 : file == before ? 20 : 100;
        return file == (done != 0 ? now : before) ? done : done + otherwise;
    }
    int adds() const {
        write("");
        const int done = ConfigFile::AddConfig(path.c_str(), "G", "a", "b");
        const torture::Aside aside;
        return written(done, directory.read("file"), "", "\n\n\n[G]\na=b\n");
    }

    const support::TempDirectory directory;
    const std::string path = directory.path("file");
};

TEST_F(ConfigFileTorture, OnDisk) {
    constexpr char reading[] =
        "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, lseek EIO 0, read EIO 0, "
        "read EINTR 1, read one-byte 1";
    // Without memory an enciphered file stays; only its cipher, which is not called, could tell.
    torture::failEach({
        {"OpenFile", [this] { return opens(false); }, reading},
        {"OpenFileCrypt", [this] { return opens(true); }, reading},
        {"Close", [this] { return closes(false); },
         "open EACCES 0, open EINTR 1, write EIO 11, write EINTR 1, write one-byte 1"},
        {"CloseFileCrypt", [this] { return closes(true); },
         "memory ENOMEM 21, open EACCES 0, open EINTR 1, write EIO 10, write EINTR 1, "
         "write one-byte 1"},
        {"AddConfig", [this] { return adds(); }, "memory ENOMEM 0 0 11, open EACCES 0 11"},
    });
}

} // namespace
