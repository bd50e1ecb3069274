#include <openssl/evp.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>

#include "configfile.h"
#include "temp_directory.h"

namespace {

// What the ciphers give, and what they were given.
struct {
    int result;
    long long length; // -1: of a file, as it was; -2: one more than the buffer holds
    std::string seen;
    mode_t mask;
} cipher;

signed char encryptValue(unsigned char* plain, unsigned long plainLen, unsigned char* out,
                         unsigned long outSize, unsigned int* outLen, void* context) {
    EXPECT_TRUE(outSize == 512 && *outLen == 0 && context == &cipher);
    cipher.seen.assign(plain, plain + plainLen);
    *outLen = static_cast<unsigned int>(cipher.length);
    std::fill_n(out, std::min(*outLen, 512U), 0x77);
    return static_cast<signed char>(cipher.result);
}

// Without a terminator.
signed char decryptValue(unsigned char* bytes, unsigned long length, char* out,
                         unsigned long outSize, void* context) {
    EXPECT_TRUE(outSize == 512 && context == &cipher);
    cipher.seen.assign(bytes, bytes + length);
    std::fill_n(out, cipher.length, 'p');
    return static_cast<signed char>(cipher.result);
}

signed char changeFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    EXPECT_TRUE(bufferSize == *length + 64UL &&
                std::count(buffer + *length, buffer + bufferSize, 0) == 64);
    cipher.seen.assign(buffer, buffer + *length);
    umask(cipher.mask = umask(0));
    *length += cipher.length == -2 ? 65 : 0;
    *length = cipher.length < 0 ? *length : static_cast<unsigned int>(cipher.length);
    return static_cast<signed char>(cipher.result);
}

// AES-256-CBC in place, with the padding of PKCS #7.
template <int encrypt>
signed char cbc(unsigned char* buffer, unsigned long, unsigned int* length) {
    const unsigned char key[32] = "key";
    int done = 0, last = 0;
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, key, key, encrypt);
    EVP_CipherUpdate(context, buffer, &done, buffer, static_cast<int>(*length));
    const int worked = EVP_CipherFinal_ex(context, buffer + done, &last);
    EVP_CIPHER_CTX_free(context);
    *length = static_cast<unsigned int>(done + last);
    return static_cast<signed char>(worked);
}

struct ConfigFileCrypt : testing::Test {
    ConfigFileCrypt() : oldMask(umask(077)) {
        config.SetValueEncryptFunc(encryptValue);
        config.SetValueDecryptFunc(decryptValue);
    }
    ~ConfigFileCrypt() override {
        EXPECT_EQ(umask(oldMask), mode_t{077});
    }
    const mode_t oldMask;
    const support::TempDirectory directory;
    const std::string path = directory.path("file"), other = directory.path("other");
    ConfigFile config;
};

TEST_F(ConfigFileCrypt, ReadsValues) {
    // What the cipher returns and how much; the result, wasEncrypted (7: as it was), the value.
    const std::tuple<std::string, int, int, int, int, std::string, std::string> cases[] = {
        {"k= plain ", 0, 0, 1, 0, "plain", ""},
        {"k=CRYPT:610A", 1, 2, 1, 1, "pp", "a\n"},
        {"k=crypt:zz61zz6", -1, 512, 1, 1, std::string(511, 'p'), {"\0aa\6", 4}},
        {"k=crypt", 0, 0, 1, 0, "crypt", ""},
        {"k=crypt:61", 0, 1, 0, 7, "kept", "a"},
        {"l=1", 0, 0, 0, 0, "kept", ""},
    };
    for (const auto& [text, cipherResult, length, result, was, value, seen] : cases) {
        char out[600] = "kept";
        signed char wasEncrypted = 7;
        cipher = {cipherResult, length, "", 0};
        config.OpenMem(("[g]\n" + text).c_str(), -1);
        EXPECT_EQ(config.ReadStrCrypt("g", "k", out, 600, &wasEncrypted, &cipher), result) << text;
        EXPECT_TRUE(wasEncrypted == was && out == value && cipher.seen == seen) << text;
    }
}

TEST_F(ConfigFileCrypt, WritesValues) {
    // What the cipher returns and how much; the result, the digits, and whether they are read.
    const std::tuple<int, int, int, std::size_t, int, const char*> cases[] = {
        {-1, 2, 1, 4, 1, "a # \xE9\n"}, {0, 3, 1, 0, 1, ""},      {0, 1, 0, 0, 0, "v"},
        {1, 252, 1, 504, 1, "v"},       {1, 253, 1, 505, 0, "v"}, {1, 512, 1, 505, 0, "v"},
        {1, 513, 0, 0, 0, "v"}};
    for (const auto& [cipherResult, length, result, digits, readable, plain] : cases) {
        cipher = {cipherResult, length, "", 0};
        config.OpenMem("[g]\nk=1\n", -1);
        EXPECT_EQ(config.WriteStrCrypt("g", "k", plain, &cipher), result) << length;
        EXPECT_EQ(cipher.seen, plain);
        const std::string value = result == 0 ? "1" : "crypt:" + std::string(digits, '7');
        EXPECT_EQ(config.GetBuffer(), "[g]\nk=" + value + "\n");
        char out[5];
        signed char was = 0;
        was &= config.ReadStrCrypt("g", "k", out, 5, &was, &cipher);
        EXPECT_EQ(was, readable) << length;
    }
}

TEST_F(ConfigFileCrypt, NeedsCiphersAndArguments) {
    char out[8];
    signed char was = 7;
    config.OpenMem("[g]\nk=1\n", -1);
    EXPECT_EQ(config.ReadStrCrypt(nullptr, "k", out, 8, &was, &cipher), 0);
    EXPECT_EQ(config.ReadStrCrypt("g", nullptr, out, 8, &was, &cipher), 0);
    EXPECT_EQ(config.ReadStrCrypt("g", "k", nullptr, 8, &was, &cipher), 0);
    EXPECT_EQ(config.ReadStrCrypt("g", "k", out, 8, nullptr, &cipher), 0);
    EXPECT_EQ(config.WriteStrCrypt("g", "k", nullptr, &cipher), 0);
    EXPECT_EQ(config.OpenFileCrypt("", nullptr) + config.CloseFileCrypt(nullptr), 0);
    EXPECT_EQ(config.OpenFileCrypt(nullptr, changeFile), 0);
    config.SetValueDecryptFunc(nullptr);
    EXPECT_EQ(config.ReadStrCrypt("g", "k", out, 8, &was, &cipher), 0) << "kept: not even plain";
    config.SetValueEncryptFunc(nullptr);
    EXPECT_EQ(config.WriteStrCrypt("g", "k", "", &cipher), 0);
    EXPECT_EQ(config.GetBuffer() + std::to_string(was), "[g]\nk=1\n7") << "still open";
}

TEST_F(ConfigFileCrypt, TakesCiphersThatPad) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 1000000U}) {
        SCOPED_TRACE(size);
        const std::string body = size == 0 ? "" : std::string(size - 1, 'x') + "\n";
        directory.write("file", body + "[g]");
        cipher = {1, -1, "", 0};
        ASSERT_EQ(config.OpenMem(path.c_str(), -1), 1);
        ASSERT_EQ(config.OpenFileCrypt(config.GetBuffer(), changeFile), 1) << "its own text";
        EXPECT_EQ(config.GetBuffer(), body + "[g]") << "without a line end";
        EXPECT_TRUE(config.DeleteGroup("g") == 1 && config.CloseFileCrypt(cbc<1>) == 1);
        EXPECT_EQ(directory.read("file").size(), size / 16 * 16 + 16);
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), cbc<0>), 1);
        EXPECT_EQ(config.GetBuffer(), body);
    }
}

TEST_F(ConfigFileCrypt, HandlesFiles) {
    const std::string text = "[g]\nk=1\n";
    // What the cipher returns, its length, the results of opening and closing, the file's bytes.
    const std::tuple<const char*, std::string, int, long long, int, int, std::string> cases[] = {
        {"well", text, 1, -1, 1, 1, "[g]\nk=2\n"},
        {"empty", "", 1, 0, 1, 1, ""},
        {"kept: closing tells nothing of the cipher", text, 0, -1, 0, 1, "-"},
        {"kept: only opening needs exactly 1", text, 2, -1, 0, 1, "\n\n[g]\nk=2\n"},
        {"beyond the buffer", text, 1, -2, 0, 0, "-"},
    };
    for (const auto& [name, before, result, length, opened, closed, after] : cases) {
        SCOPED_TRACE(name);
        directory.write("file", before);
        cipher = {result, length, "", 0};
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), changeFile), opened);
        EXPECT_EQ(cipher.seen, before);
        std::filesystem::remove(path);
        ASSERT_EQ(config.WriteStr("g", "k", "2"), 1);
        EXPECT_EQ(config.CloseFileCrypt(changeFile), closed);
        EXPECT_TRUE(cipher.mask == 2 && config.GetBuffer() == nullptr);
        const auto status = std::filesystem::status(path);
        EXPECT_EQ(exists(status) ? directory.read("file") : "-", after);
        EXPECT_TRUE(!exists(status) || status.permissions() == std::filesystem::perms{0664});
    }
    cipher = {1, -1, "not called", 0};
    EXPECT_TRUE(config.OpenMem("", 0) == 1 && config.AddStr("g", "k", "1") == 1);
    EXPECT_EQ(config.CloseFileCrypt(changeFile), 1) << "without a name";
    directory.write("file", text);
    EXPECT_TRUE(config.OpenFile(path.c_str()) == 1 && config.CloseFileCrypt(changeFile) == 1);
    EXPECT_EQ(cipher.seen, "not called") << "nor for an unchanged text";
    EXPECT_EQ(config.OpenFileCrypt(directory.path().c_str(), changeFile), 0);
    EXPECT_TRUE(config.AddStr("g", "k", "1") == 1 && config.CloseFileCrypt(changeFile) == 0);
    const std::string path1023 = std::string(1023 - path.size(), '/') + path;
    EXPECT_EQ(config.OpenFileCrypt(path1023.c_str(), changeFile), 1);
    EXPECT_EQ(config.OpenFileCrypt((path1023 + "2").c_str(), changeFile), 0) << "1,024";
}

// Kept: whatever but CloseFileCrypt writes a deciphered text writes it in plain.
TEST_F(ConfigFileCrypt, WritesPlainTextOtherwise) {
    const char* const texts[] = {nullptr, "new", "other", "[g]\nk=2", "[g]\nk=2"};
    directory.write("other", "other");
    for (int way = 0; way < 5; ++way) {
        directory.write("file", "[g]\nk=1");
        cipher = {1, -1, "", 0};
        config.OpenFileCrypt(path.c_str(), changeFile);
        ASSERT_EQ(config.WriteStr("g", "k", "2"), 1);
        cipher.result = way < 3 ? 1 : 0;
        EXPECT_EQ(way == 0   ? config.Close()
                  : way == 1 ? config.OpenMem("new", 3)
                             : config.OpenFileCrypt(other.c_str(), changeFile),
                  cipher.result)
            << way;
        EXPECT_EQ(directory.read("file"), "[g]\nk=2") << way;
        EXPECT_STREQ(config.GetBuffer(), texts[way]) << way;
    }
    EXPECT_EQ(directory.read("other"), "other") << "not by the failure";
    EXPECT_TRUE(config.WriteStr("g", "k", "3") == 1 && config.Close() == 1);
    EXPECT_EQ(directory.read("other"), "[g]\nk=3") << "kept: the earlier text under the new name";
}

} // namespace
