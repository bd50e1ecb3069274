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

// 1 with the value, 0 with outputs as before.
int readsAnEncipheredValue() {
    ConfigFile config;
    {
        const torture::Aside aside;
        config.SetValueDecryptFunc(unflipValue);
        config.OpenMem("[Group]\nName=crypt:e1\n", -1);
    }
    char value[8] = "before";
    signed char enciphered = 7;
    const int done =
        config.ReadStrCrypt("Group", "Name", value, sizeof value, &enciphered, nullptr);
    const bool right =
        strcmp(value, done != 0 ? "a" : "before") == 0 && enciphered == (done != 0 ? 1 : 7);
    return right ? done : -1;
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

    // The operation's result where the file holds what that says; with 10 more for an empty file,
    // 20 more for one that stayed as it was.
    int written(int done, const std::string& before, const std::string& now) const {
        const torture::Aside aside;
        const std::string file = directory.read("file");
        if (file == (done != 0 ? now : before)) {
            return done;
        }
        return done + (file.empty() ? 10 : file == before ? 20 : 100);
    }

    int closeEdited(bool enciphered) const {
        const auto onDisk = [=](const char* plain) { return enciphered ? flipped(plain) : plain; };
        write(onDisk(text));
        ConfigFile config;
        {
            const torture::Aside aside;
            enciphered ? config.OpenFileCrypt(path.c_str(), flipFile)
                       : config.OpenFile(path.c_str());
            config.WriteStr("Group", "Name", "new");
        }
        const int done = enciphered ? config.CloseFileCrypt(flipFile) : config.Close();
        const torture::Aside aside;
        return written(done, onDisk(text), onDisk(edited));
    }

    const support::TempDirectory directory;
    const std::string path = directory.path("file");
};

TEST_F(ConfigTorture, InMemory) {
    const struct {
        const char* name;
        signed char (*edit)(ConfigFile&);
        const char* now;
    } edits[] = {
        {"OpenMem", [](ConfigFile& c) { return c.OpenMem(edited, -1); }, edited},
        {"WriteStr", [](ConfigFile& c) { return c.WriteStr("Group", "Name", "new"); }, edited},
        {"AddStr", [](ConfigFile& c) { return c.AddStr("Other", "a", "b"); },
         "[Group]\nName=old\n\n\n[Other]\na=b\n"},
        {"DeleteValue", [](ConfigFile& c) { return c.DeleteValue("Group", "Name"); }, "[Group]\n"},
        {"WriteStrCrypt",
         [](ConfigFile& c) { return c.WriteStrCrypt("Group", "Name", "a", nullptr); },
         "[Group]\nName=crypt:e1\n"},
    };
    for (const auto& c : edits) {
        const auto operation = [&] {
            ConfigFile config;
            {
                const torture::Aside aside;
                config.SetValueEncryptFunc(flipValue);
                config.OpenMem(text, -1);
            }
            const bool reopens = c.edit == edits[0].edit;
            return after(c.edit(config), config, reopens ? "" : text, c.now);
        };
        torture::failEach({{c.name, operation, "memory ENOMEM 0"}});
    }
    torture::failEach({{"ReadStrCrypt", readsAnEncipheredValue, "memory ENOMEM 0"}});
}

constexpr char reading[] = "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, lseek EIO 0,"
                           "read EIO 0, read EINTR 1, read one-byte 1";

TEST_F(ConfigTorture, OnDisk) {
    write(text);
    torture::failEach({
        {"OpenFile",
         [this] {
             ConfigFile config;
             return after(config.OpenFile(path.c_str()), config, "", text);
         },
         reading},
        {"Close", [this] { return closeEdited(false); },
         "open EACCES 0, open EINTR 1, write EIO 11, write EINTR 1, write one-byte 1"},
        {"AddConfig",
         [this] {
             write("");
             return written(ConfigFile::AddConfig(path.c_str(), "G", "a", "b"), "",
                            "\n\n\n[G]\na=b\n");
         },
         "memory ENOMEM 0 0 11, open EACCES 0 11, write EINTR 1, write one-byte 1"},
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
         reading},
        // Without memory the file stays, and only the cipher, which is not called, could tell.
        {"CloseFileCrypt", [this] { return closeEdited(true); },
         "memory ENOMEM 21, open EACCES 0, open EINTR 1, write EIO 10, write EINTR 1, "
         "write one-byte 1"},
    });
}

} // namespace
