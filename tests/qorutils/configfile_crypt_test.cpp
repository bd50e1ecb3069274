#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "configfile.h"
#include "qorutils/src/configfile_hex.h"
#include "qorutils/src/filecalls.h"
#include "qorutils/src/secret.h"
#include "temp_directory.h"

namespace {

std::map<const void*, std::size_t> secrets; // what is allocated, with its size
int allocationsLeft = -1;                   // without a limit
int transferLimit = -1; // for a single read or write; the next ones move nothing

bool isSecret(const void* bytes, std::size_t size) {
    const auto found = secrets.find(bytes);
    return found != secrets.end() && found->second == size;
}

} // namespace

// In place of the library's own.
namespace secret {

void* allocate(std::size_t size) {
    if (allocationsLeft-- == 0) {
        return nullptr;
    }
    void* const bytes = std::calloc(1, size);
    secrets[bytes] = size;
    return bytes;
}

void release(void* bytes, std::size_t size) {
    const auto* const first = static_cast<unsigned char*>(bytes);
    EXPECT_EQ(std::count(first, first + size, 0), static_cast<std::ptrdiff_t>(size)) << "not wiped";
    secrets.erase(bytes);
    std::free(bytes);
}

} // namespace secret

namespace filecalls {

std::size_t allowed(std::size_t size) {
    return transferLimit < 0
               ? size
               : std::min(size, static_cast<std::size_t>(std::exchange(transferLimit, 0)));
}

ssize_t readBytes(int fd, char* buffer, std::size_t size) {
    return read(fd, buffer, allowed(size));
}

ssize_t writeBytes(int fd, const char* buffer, std::size_t size) {
    return write(fd, buffer, allowed(size));
}

} // namespace filecalls

namespace {

// AES-256-CBC with the padding of PKCS #7, also in place.
bool cbc(int encrypt, const unsigned char* in, std::size_t size, unsigned char* out,
         unsigned int* length) {
    unsigned char key[32] = "key";
    int done = 0;
    int last = 0;
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    const bool worked =
        EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, key, key, encrypt) == 1 &&
        EVP_CipherUpdate(context, out, &done, in, static_cast<int>(size)) == 1 &&
        EVP_CipherFinal_ex(context, out + done, &last) == 1;
    EVP_CIPHER_CTX_free(context);
    *length = static_cast<unsigned int>(done + last);
    return worked;
}

// The context of the ciphers of values: what they give, and what they were given.
struct Value {
    signed char result;
    unsigned int length; // of what is given, all 'p'; 0: the CBC's own output
    std::string seen;
};

signed char encryptValue(unsigned char* plain, unsigned long plainLen, unsigned char* out,
                         unsigned long outSize, unsigned int* outLen, void* context) {
    auto* const value = static_cast<Value*>(context);
    EXPECT_TRUE(isSecret(out, outSize) && outSize == 512 && *outLen == 0);
    value->seen.assign(reinterpret_cast<char*>(plain), plainLen);
    if (value->length == 0) {
        return cbc(1, plain, plainLen, out, outLen) ? 1 : 0;
    }
    *outLen = value->length;
    std::memset(out, 'p', std::min(value->length, 512U));
    return value->result;
}

signed char decryptValue(unsigned char* cipher, unsigned long cipherLen, char* out,
                         unsigned long outSize, void* context) {
    auto* const value = static_cast<Value*>(context);
    EXPECT_TRUE(isSecret(cipher, 512) && isSecret(out, outSize) && outSize == 512);
    value->seen.assign(reinterpret_cast<char*>(cipher), cipherLen);
    unsigned int length = 0;
    if (value->length == 0) {
        return cbc(0, cipher, cipherLen, reinterpret_cast<unsigned char*>(out), &length) ? 1 : 0;
    }
    std::memset(out, 'p', value->length); // without a terminator
    return value->result;
}

struct ValuesCrypt : testing::Test {
    ValuesCrypt() {
        config.SetValueEncryptFunc(encryptValue);
        config.SetValueDecryptFunc(decryptValue);
    }
    signed char read(Value* value) {
        return config.ReadStrCrypt("g", "k", out, sizeof out, &wasEncrypted, value);
    }
    ConfigFile config;
    char out[600] = "kept";
    signed char wasEncrypted = 7;
};

TEST_F(ValuesCrypt, AreRead) {
    const struct {
        std::string text, seen;
        Value value;
        int result, wasEncrypted; // 7: as it was
        std::string out;
    } cases[] = {
        {"k= plain ", "", {}, 1, 0, "plain"},
        {"k=CRYPT:610A", "a\n", {1, 2, ""}, 1, 1, "pp"},
        {"k=crypt:61626", "ab\6", {-1, 512, ""}, 1, 1, std::string(511, 'p')},
        {"k=crypt:+f4zzz-f0x 6y",
         "\xF\4\4\xF1" + std::string(1, '\0') + "\6\6",
         {1, 1, ""},
         1,
         1,
         "p"},
        {"k=crypt:zz", std::string(1, '\0'), {1, 1, ""}, 1, 1, "p"},
        {"k=crypt:", "", {0, 1, ""}, 1, 1, ""},
        {"k=crypt", "", {}, 1, 0, "crypt"},
        {"k=crypt:61", "a", {0, 1, ""}, 0, 7, "kept"},
        {"l=1", "", {}, 0, 0, "kept"},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.text);
        std::strcpy(out, "kept");
        wasEncrypted = 7;
        ASSERT_EQ(config.OpenMem(("[g]\n" + c.text).c_str(), -1), 1);
        EXPECT_EQ(read(&c.value), c.result);
        EXPECT_EQ(wasEncrypted, c.wasEncrypted);
        EXPECT_EQ(out, c.out);
        EXPECT_EQ(c.value.seen, c.seen);
    }
}

TEST_F(ValuesCrypt, AreWritten) {
    const struct {
        Value value;
        const char* plain;
        int result;
        std::size_t digits;
        bool readable;
    } cases[] = {
        {{1, 0, ""}, "a # \"b\" \xE9\n", 1, 32, true},
        {{0, 3, ""}, "", 1, 0, true},
        {{-1, 1, ""}, "v", 1, 2, true},
        {{0, 1, ""}, "v", 0, 0, false},
        {{1, 252, ""}, "v", 1, 504, true},
        {{1, 253, ""}, "v", 1, 505, false},
        {{1, 512, ""}, "v", 1, 505, false},
        {{1, 513, ""}, "v", 0, 0, false},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.value.length);
        wasEncrypted = 0;
        ASSERT_EQ(config.OpenMem("[g]\nk=1\n", -1), 1);
        EXPECT_EQ(config.WriteStrCrypt("g", "k", c.plain, &c.value), c.result);
        EXPECT_EQ(c.value.seen, c.plain);
        const std::string text = config.GetBuffer();
        EXPECT_EQ(text.size(), c.result == 1 ? c.digits + 13 : 8) << text;
        EXPECT_EQ(read(&c.value) == 1 && wasEncrypted == 1, c.readable);
        EXPECT_TRUE(c.value.length > 0 || std::strcmp(out, c.plain) == 0) << out;
    }
}

TEST_F(ValuesCrypt, NeedCiphersArgumentsAndMemory) {
    Value value{1, 1, ""};
    ASSERT_EQ(config.OpenMem("[g]\nk=crypt:00\n", -1), 1);
    for (const int left : {0, 1, 2}) {
        allocationsLeft = left;
        EXPECT_EQ(read(&value), 0);
        allocationsLeft = left;
        EXPECT_EQ(config.WriteStrCrypt("g", "k", "v", &value), 0);
    }
    allocationsLeft = -1;
    for (const int missing : {0, 1, 2, 3}) {
        const char* const group = missing == 0 ? nullptr : "g";
        const char* const name = missing == 1 ? nullptr : "k";
        char* const to = missing == 2 ? nullptr : out;
        signed char* const was = missing == 3 ? nullptr : &wasEncrypted;
        EXPECT_EQ(config.ReadStrCrypt(group, name, to, 5, was, &value), 0);
        EXPECT_EQ(config.WriteStrCrypt(group, name, missing > 1 ? nullptr : "v", &value), 0);
    }
    config.SetValueEncryptFunc(nullptr);
    EXPECT_EQ(config.WriteStrCrypt("g", "k", "", &value), 0);
    EXPECT_STREQ(config.GetBuffer(), "[g]\nk=crypt:00\n");
    ASSERT_EQ(config.OpenMem("[g]\nk=plain\n", -1), 1);
    EXPECT_EQ(read(nullptr), 1) << "the cipher outlives opening";
    config.SetValueDecryptFunc(nullptr);
    EXPECT_EQ(read(nullptr), 0) << "kept: plain values need a cipher, too";
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
    unsigned char bytes[512];
    std::size_t count = 0;
    EXPECT_TRUE(confighex::read(std::string(1024, 'f').c_str(), bytes, sizeof bytes, &count));
    EXPECT_EQ(count, 512U);
    EXPECT_FALSE(confighex::read(std::string(1025, 'f').c_str(), bytes, sizeof bytes, &count));
    for (const auto& [size, text] : {std::pair(4U, "ff"), std::pair(5U, "ffff")}) {
        char out[8] = "";
        confighex::write(bytes, sizeof bytes, out, size);
        EXPECT_STREQ(out, text);
    }
}

// What the ciphers of files do beside CBC, and what they saw.
struct {
    int result;
    long long length; // -1: the CBC's own; -2: one more than the buffer holds
    unsigned long bufferSize;
    unsigned int given;
    mode_t mask;
} file;

signed char transform(int encrypt, unsigned char* buffer, unsigned long bufferSize,
                      unsigned int* length) {
    file.bufferSize = bufferSize;
    file.given = *length;
    file.mask = umask(0);
    umask(file.mask);
    EXPECT_TRUE(isSecret(buffer, bufferSize));
    EXPECT_EQ(std::count(buffer + *length, buffer + bufferSize, 0), 64);
    cbc(encrypt, buffer, *length, buffer, length);
    if (file.length != -1) {
        *length = static_cast<unsigned int>(
            file.length == -2 ? static_cast<long long>(bufferSize) + 1 : file.length);
    }
    return static_cast<signed char>(file.result);
}

signed char encryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    return transform(1, buffer, bufferSize, length);
}

signed char decryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    return transform(0, buffer, bufferSize, length);
}

struct FilesCrypt : testing::Test {
    FilesCrypt() {
        file = {1, -1, 0, 0, 0};
    }
    ~FilesCrypt() override {
        EXPECT_TRUE(secrets.empty());
    }
    std::string enciphered(const std::string& text) const {
        std::string out(text.size() + 64, '\0');
        unsigned int length = 0;
        cbc(1, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
            reinterpret_cast<unsigned char*>(out.data()), &length);
        return out.substr(0, length);
    }
    support::TempDirectory directory;
    const std::string path = directory.path("file");
    ConfigFile config;
};

TEST_F(FilesCrypt, AreReadAndWritten) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 1000000U}) {
        SCOPED_TRACE(size);
        const std::string body = size == 0 ? "" : std::string(size - 1, 'x') + "\n";
        directory.write("file", enciphered(body + "[g]"));
        ASSERT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), 1);
        EXPECT_EQ(config.GetBuffer(), body + "[g]") << "without a line end";
        ASSERT_EQ(config.DeleteGroup("g"), 1);
        const mode_t oldMask = umask(077);
        EXPECT_EQ(config.CloseFileCrypt(encryptFile), 1);
        EXPECT_EQ(umask(oldMask), mode_t{077});
        EXPECT_TRUE(file.mask == 2 && file.given == size && file.bufferSize == size + 64);
        EXPECT_TRUE(directory.read("file") == enciphered(body));
        ASSERT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), 1);
        EXPECT_TRUE(config.GetBuffer() == body);
        file.result = 0;
        EXPECT_EQ(config.CloseFileCrypt(encryptFile), 1) << "nothing to write";
        file.result = 1;
    }
}

TEST_F(FilesCrypt, MayFail) {
    const std::string sealed = enciphered("\n\n[g]\nk=1\n");
    const struct {
        const char* name;
        int result;
        long long length;
        int transfer, allocations;
        int opened, closed;
        std::string written;
    } cases[] = {
        {"kept: closing tells nothing of the cipher", 0, -1, -1, -1, 0, 1, "old"},
        {"only opening needs exactly 1", 2, -1, -1, -1, 0, 1, sealed},
        {"beyond the buffer", 1, -2, -1, -1, 0, 0, "old"},
        {"negative as int", 1, UINT_MAX, -1, -1, 0, 0, "old"},
        {"nothing", 1, 0, -1, -1, 1, 1, ""},
        {"a short read or write", 1, -1, 3, -1, 0, 0, sealed.substr(0, 3)},
        {"kept: nor of short memory", 1, -1, -1, 0, 0, 1, "old"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto misbehave = [&] {
            file = {c.result, c.length, 0, 0, 0};
            transferLimit = c.transfer;
            allocationsLeft = c.allocations;
        };
        directory.write("file", sealed);
        misbehave();
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), c.opened);
        EXPECT_STREQ(config.GetBuffer(), "");
        directory.write("file", "old");
        file.result = 0;
        ASSERT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), 0);
        ASSERT_EQ(config.WriteStr("g", "k", "1"), 1);
        EXPECT_EQ(config.CloseFileCrypt(nullptr), 0);
        misbehave();
        EXPECT_EQ(config.CloseFileCrypt(encryptFile), c.closed);
        EXPECT_EQ(config.GetBuffer(), nullptr);
        EXPECT_EQ(directory.read("file"), c.written);
        transferLimit = allocationsLeft = -1;
    }
    EXPECT_EQ(config.OpenFileCrypt(directory.path("none/file").c_str(), decryptFile), 0);
    ASSERT_EQ(config.WriteStr("g", "k", "1"), 1);
    EXPECT_EQ(config.CloseFileCrypt(encryptFile), 0) << "can't be opened";
    ASSERT_EQ(truncate(path.c_str(), off_t{UINT_MAX} - 63), 0);
    EXPECT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), 0) << "more than unsigned int";
    EXPECT_EQ(config.OpenFileCrypt(nullptr, decryptFile), 0);
    EXPECT_EQ(config.OpenFileCrypt(path.c_str(), nullptr), 0);
}

TEST_F(FilesCrypt, LeaveAnEditedDocumentItsName) {
    const std::string other = directory.path("other");
    const std::string sealed = enciphered("[g]\nk=new\n");
    directory.write("file", sealed);
    for (const int works : {1, 0}) {
        SCOPED_TRACE(works);
        directory.write("other", "[g]\nk=1\n");
        ASSERT_EQ(config.OpenFile(other.c_str()), 1);
        ASSERT_EQ(config.WriteStr("g", "k", "2"), 1);
        file.result = works;
        EXPECT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), works);
        EXPECT_EQ(directory.read("other"), "[g]\nk=2\n");
        EXPECT_STREQ(config.GetBuffer(), works == 1 ? "[g]\nk=new\n" : "[g]\nk=2\n");
        file.result = 1;
        EXPECT_EQ(config.CloseFileCrypt(encryptFile), 1);
        EXPECT_EQ(directory.read("file"), sealed) << "not edited";
    }
    file.result = 0;
    ASSERT_EQ(config.OpenFile(other.c_str()), 1);
    ASSERT_EQ(config.OpenFileCrypt(path.c_str(), decryptFile), 0);
    ASSERT_EQ(config.WriteStr("g", "k", "3"), 1);
    EXPECT_EQ(config.Close(), 1);
    EXPECT_EQ(directory.read("file"), "[g]\nk=3\n") << "kept: the new name, and in plain";
}

} // namespace
