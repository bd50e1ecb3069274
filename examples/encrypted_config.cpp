// Keeps secrets in a configuration file: single values of a readable file, or the whole file,
// enciphered with AES-256-GCM by OpenSSL. The library holds no cipher; this program shows how one
// is installed.
//
//     head -c 32 /dev/urandom >key
//     encrypted_config key service.conf Database Password s3cret    # enciphers and writes a value
//     encrypted_config key service.conf Database Password           # prints it
//     encrypted_config --whole key secret.conf Database Host db1    # the same in a file of which
//     encrypted_config --whole key secret.conf Database Host        # nothing can be read
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "configfile.h"

namespace {

constexpr std::size_t keySize = 32;
constexpr int nonceSize = 12;
constexpr int tagSize = 16;
// What is enciphered grows by the nonce in front and the tag behind; both fit the 64 spare bytes
// that the library gives to ciphers of files.
constexpr std::size_t overhead = nonceSize + tagSize;

template <class Object, void (*release)(Object*)>
struct Releaser {
    void operator()(Object* object) const {
        release(object);
    }
};
template <class Object, void (*release)(Object*)>
using Owner = std::unique_ptr<Object, Releaser<Object, release>>;
using CipherContext = Owner<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

// A key that does not stay in memory.
struct Key {
    unsigned char bytes[keySize] = {};
    ~Key() {
        OPENSSL_cleanse(bytes, sizeof bytes);
    }
};

// The key for files. Ciphers of files get no context, so it has to be reachable from everywhere.
Key fileKey;
// Whether the file's cipher worked: CloseFileCrypt gives 1 also where it did not.
bool fileSealed = false;

// Derives one key for one purpose from the random bytes in a file, of which it takes the first 64.
bool loadKey(const char* path, const char* purpose, Key* key) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "rb"), std::fclose);
    unsigned char base[64] = {};
    const std::size_t size = file ? std::fread(base, 1, sizeof base, file.get()) : 0;
    const Owner<EVP_KDF, EVP_KDF_free> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const Owner<EVP_KDF_CTX, EVP_KDF_CTX_free> context(EVP_KDF_CTX_new(kdf.get()));
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, base, size),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<char*>(purpose),
                                          std::strlen(purpose)),
        OSSL_PARAM_construct_end()};
    const bool derived = size >= keySize && context &&
                         EVP_KDF_derive(context.get(), key->bytes, keySize, parameters) == 1;
    OPENSSL_cleanse(base, sizeof base);
    return derived;
}

// Enciphers `size` bytes that stand at out + nonceSize already; the nonce goes in front of them,
// the tag behind.
bool sealInPlace(const Key& key, unsigned char* out, std::size_t size) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    unsigned char* const data = out + nonceSize;
    int done = 0;
    int last = 0;
    return context && RAND_bytes(out, nonceSize) == 1 &&
           EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes, out) == 1 &&
           EVP_EncryptUpdate(context.get(), data, &done, data, static_cast<int>(size)) == 1 &&
           EVP_EncryptFinal_ex(context.get(), data + done, &last) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, tagSize, data + size) == 1;
}

// Deciphers `size` bytes between the nonce at `sealed` and the tag. What comes out is to be used
// only if the result is true: otherwise the key is another one, or somebody changed a byte.
bool unseal(const Key& key, unsigned char* sealed, std::size_t size, unsigned char* plain) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    unsigned char* const data = sealed + nonceSize;
    int done = 0;
    int last = 0;
    return context &&
           EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes, sealed) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, tagSize, data + size) == 1 &&
           EVP_DecryptUpdate(context.get(), plain, &done, data, static_cast<int>(size)) == 1 &&
           EVP_DecryptFinal_ex(context.get(), plain + done, &last) == 1;
}

// The four ciphers that the library calls.

signed char encryptValue(unsigned char* plain, unsigned long plainLen, unsigned char* out,
                         unsigned long outSize, unsigned int* outLen, void* context) {
    if (plainLen > outSize - overhead) {
        return 0;
    }
    std::memcpy(out + nonceSize, plain, plainLen);
    *outLen = static_cast<unsigned int>(plainLen + overhead);
    return sealInPlace(*static_cast<const Key*>(context), out, plainLen) ? 1 : 0;
}

signed char decryptValue(unsigned char* cipher, unsigned long cipherLen, char* out,
                         unsigned long outSize, void* context) {
    if (cipherLen < overhead || cipherLen - overhead >= outSize) {
        return 0;
    }
    const std::size_t size = cipherLen - overhead;
    out[size] = '\0';
    return unseal(*static_cast<const Key*>(context), cipher, size,
                  reinterpret_cast<unsigned char*>(out))
               ? 1
               : 0;
}

signed char encryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    const std::size_t size = *length;
    // OpenSSL counts in int.
    if (bufferSize > INT_MAX || size + overhead > bufferSize) {
        return 0;
    }
    std::memmove(buffer + nonceSize, buffer, size);
    *length = static_cast<unsigned int>(size + overhead);
    fileSealed = sealInPlace(fileKey, buffer, size);
    return fileSealed ? 1 : 0;
}

signed char decryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    if (bufferSize > INT_MAX || *length < overhead) {
        return 0;
    }
    const std::size_t size = *length - overhead;
    if (!unseal(fileKey, buffer, size, buffer + nonceSize)) {
        return 0;
    }
    std::memmove(buffer, buffer + nonceSize, size);
    *length = static_cast<unsigned int>(size);
    return 1;
}

int fail(const char* problem, const char* what) {
    std::fprintf(stderr, "encrypted_config: %s: %s\n", what, problem);
    return 1;
}

int print(const char* text) {
    return std::puts(text) == EOF || std::fflush(stdout) != 0 ? fail("can't be printed", "value")
                                                              : 0;
}

bool exists(const char* path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

struct Request {
    const char* path;
    const char* group;
    const char* name;
    const char* value; // null: print the one that is there
};

// A line has limits, and not every character survives in it, so what was written counts only if it
// is read back. Otherwise the edit is dropped, as opening a file does.
bool isKept(ConfigFile& config, const Request& request, bool found, const char* value) {
    if (found && std::strcmp(value, request.value) == 0) {
        return true;
    }
    config.OpenFile(request.path);
    return false;
}

// One value of a file that is readable otherwise.
int handleValue(const Request& request, Key* key) {
    ConfigFile config;
    config.SetValueEncryptFunc(encryptValue);
    config.SetValueDecryptFunc(decryptValue);
    // A missing file is an empty one, which Close creates.
    if (config.OpenFile(request.path) == 0 && exists(request.path)) {
        return fail("can't be read", request.path);
    }
    if (request.value != nullptr &&
        config.WriteStrCrypt(request.group, request.name, request.value, key) == 0) {
        return fail("can't be enciphered", request.name);
    }
    char value[512];
    signed char wasEncrypted = 0;
    const bool found = config.ReadStrCrypt(request.group, request.name, value, sizeof value,
                                           &wasEncrypted, key) != 0;
    if (request.value == nullptr) {
        return found ? print(value) : fail("missing, or for another key", request.name);
    }
    if (!isKept(config, request, found, value)) {
        return fail("does not fit a line", request.name);
    }
    return config.Close() != 0 ? 0 : fail("can't be written", request.path);
}

// One value of a file that is enciphered as a whole.
int handleFile(const Request& request) {
    ConfigFile config;
    // Only a missing file may be started afresh: one that can't be deciphered would be overwritten.
    if (config.OpenFileCrypt(request.path, decryptFile) == 0 && exists(request.path)) {
        return fail("can't be read, or is for another key", request.path);
    }
    if (request.value != nullptr &&
        config.WriteStr(request.group, request.name, request.value) == 0) {
        return fail("can't be written", request.name);
    }
    char value[512];
    const bool found = config.ReadStr(request.group, request.name, value, sizeof value) != 0;
    if (request.value == nullptr) {
        return found ? print(value) : fail("missing", request.name);
    }
    if (!isKept(config, request, found, value)) {
        return fail("does not fit a line", request.name);
    }
    // Never Close, which would write the plain text.
    const bool written = config.CloseFileCrypt(encryptFile) != 0 && fileSealed;
    return written ? 0 : fail("can't be enciphered or written", request.path);
}

} // namespace

int main(int argc, char** argv) {
    const bool whole = argc > 1 && std::strcmp(argv[1], "--whole") == 0;
    char** const arguments = argv + (whole ? 2 : 1);
    const int count = argc - (whole ? 2 : 1);
    if (count != 4 && count != 5) {
        std::fputs("usage: encrypted_config [--whole] KEYFILE CONFIG GROUP NAME [VALUE]\n", stderr);
        return 2;
    }
    Key valueKey;
    if (!loadKey(arguments[0], "configuration value", &valueKey) ||
        !loadKey(arguments[0], "configuration file", &fileKey)) {
        return fail("can't be read, or holds less than 32 bytes", arguments[0]);
    }
    const Request request{arguments[1], arguments[2], arguments[3],
                          count == 5 ? arguments[4] : nullptr};
    return whole ? handleFile(request) : handleValue(request, &valueKey);
}
