// Keeps secrets in a configuration file: single values of a readable file, or the whole file,
// enciphered with AES-256-GCM by OpenSSL. The library holds no cipher; this program shows how one
// is installed.
//
//     (umask 077; head -c 32 /dev/urandom >key)
//     encrypted_config set key service.conf Database Password        # of a line that it reads
//     encrypted_config get key service.conf Database Password
//     encrypted_config --whole set key secret.conf Database Host     # the same in a file of which
//     encrypted_config --whole get key secret.conf Database Host     # nothing can be read
//
// Values come from standard input, since everybody sees the arguments in the list of processes.
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
#include <string>
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

// What does not stay in memory.
template <class Element, std::size_t size>
struct Secret {
    Element data[size] = {};
    ~Secret() {
        OPENSSL_cleanse(data, sizeof data);
    }
};
using Key = Secret<unsigned char, keySize>;
using Value = Secret<char, 512>;

// The context of the ciphers of values. The place is authenticated along with the value, so that
// nobody moves an enciphered value to where it means something else.
struct Place {
    Key key;
    std::string groupAndName;
};

// Ciphers of files get no context, so their key has to be reachable from everywhere.
Key fileKey;
// Whether the file's cipher worked: CloseFileCrypt gives 1 also where it did not.
bool fileSealed = false;

// Derives one key for one purpose from the random bytes in a file, of which it takes the first 64.
bool loadKey(const char* path, const char* purpose, Key* key) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "rb"), std::fclose);
    if (!file || std::setvbuf(file.get(), nullptr, _IONBF, 0) != 0) {
        return false;
    }
    Secret<unsigned char, 64> base;
    const std::size_t size = std::fread(base.data, 1, sizeof base.data, file.get());
    const Owner<EVP_KDF, EVP_KDF_free> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const Owner<EVP_KDF_CTX, EVP_KDF_CTX_free> context(EVP_KDF_CTX_new(kdf.get()));
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, base.data, size),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<char*>(purpose),
                                          std::strlen(purpose)),
        OSSL_PARAM_construct_end()};
    return size >= keySize && context &&
           EVP_KDF_derive(context.get(), key->data, keySize, parameters) == 1;
}

// Enciphers or deciphers `size` bytes at `in`. What is deciphered is to be used only if the result
// is true: otherwise the key or the place is another one, or somebody changed a byte.
bool gcm(bool encrypt, const Key& key, const std::string& place, const unsigned char* nonce,
         const unsigned char* in, std::size_t size, unsigned char* out, unsigned char* tag) {
    const Owner<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> owner(EVP_CIPHER_CTX_new());
    EVP_CIPHER_CTX* const context = owner.get();
    const auto* const placeBytes = reinterpret_cast<const unsigned char*>(place.data());
    int done = 0;
    int last = 0;
    return context != nullptr &&
           EVP_CipherInit_ex(context, EVP_aes_256_gcm(), nullptr, key.data, nonce, encrypt) == 1 &&
           (encrypt || EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, tagSize, tag) == 1) &&
           EVP_CipherUpdate(context, nullptr, &done, placeBytes, static_cast<int>(place.size())) ==
               1 &&
           EVP_CipherUpdate(context, out, &done, in, static_cast<int>(size)) == 1 &&
           EVP_CipherFinal_ex(context, out + done, &last) == 1 &&
           (!encrypt || EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, tagSize, tag) == 1);
}

// The four ciphers that the library calls. All write the nonce, the enciphered bytes, the tag.

signed char encryptValue(unsigned char* plain, unsigned long plainLen, unsigned char* out,
                         unsigned long outSize, unsigned int* outLen, void* context) {
    if (plainLen > outSize - overhead || RAND_bytes(out, nonceSize) != 1) {
        return 0;
    }
    const Place& place = *static_cast<const Place*>(context);
    unsigned char* const data = out + nonceSize;
    *outLen = static_cast<unsigned int>(plainLen + overhead);
    return gcm(true, place.key, place.groupAndName, out, plain, plainLen, data, data + plainLen);
}

signed char decryptValue(unsigned char* cipher, unsigned long cipherLen, char* out,
                         unsigned long outSize, void* context) {
    if (cipherLen < overhead || cipherLen - overhead >= outSize) {
        return 0;
    }
    const Place& place = *static_cast<const Place*>(context);
    const std::size_t size = cipherLen - overhead;
    unsigned char* const data = cipher + nonceSize;
    out[size] = '\0';
    return gcm(false, place.key, place.groupAndName, cipher, data, size,
               reinterpret_cast<unsigned char*>(out), data + size);
}

signed char encryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    const std::size_t size = *length;
    // OpenSSL counts in int.
    if (bufferSize > INT_MAX || size + overhead > bufferSize) {
        return 0;
    }
    unsigned char* const data = buffer + nonceSize;
    std::memmove(data, buffer, size);
    *length = static_cast<unsigned int>(size + overhead);
    fileSealed = RAND_bytes(buffer, nonceSize) == 1 &&
                 gcm(true, fileKey, "", buffer, data, size, data, data + size);
    return fileSealed;
}

signed char decryptFile(unsigned char* buffer, unsigned long bufferSize, unsigned int* length) {
    if (bufferSize > INT_MAX || *length < overhead) {
        return 0;
    }
    const std::size_t size = *length - overhead;
    unsigned char* const data = buffer + nonceSize;
    if (!gcm(false, fileKey, "", buffer, data, size, data, data + size)) {
        return 0;
    }
    std::memmove(buffer, data, size);
    *length = static_cast<unsigned int>(size);
    return 1;
}

struct Request {
    bool whole; // the file is enciphered, not single values
    const char *path, *group, *name;
    Place place;
};

bool open(ConfigFile& config, const Request& request) {
    config.SetValueEncryptFunc(encryptValue);
    config.SetValueDecryptFunc(decryptValue);
    return request.whole ? config.OpenFileCrypt(request.path, decryptFile) != 0
                         : config.OpenFile(request.path) != 0;
}

bool read(const ConfigFile& config, Request& request, Value* value) {
    constexpr unsigned int size = sizeof value->data;
    if (request.whole) {
        return config.ReadStr(request.group, request.name, value->data, size) != 0;
    }
    // Who can write the file can also put a plain value there, which is refused. An empty value
    // proves nothing: it is the bare prefix, which no cipher has seen.
    signed char wasEncrypted = 0;
    return config.ReadStrCrypt(request.group, request.name, value->data, size, &wasEncrypted,
                               &request.place) != 0 &&
           wasEncrypted != 0;
}

bool isThere(const ConfigFile& config, Request& request, const Value& value) {
    Value found;
    return read(config, request, &found) && std::strcmp(found.data, value.data) == 0;
}

int fail(const char* problem, const char* what) {
    std::fprintf(stderr, "encrypted_config: %s: %s\n", what, problem);
    return 1;
}

int get(Request& request) {
    ConfigFile config;
    Value value;
    if (!open(config, request)) {
        return fail("can't be read, or is for another key", request.path);
    }
    if (!read(config, request, &value)) {
        return fail("missing, in plain, or for another key or place", request.name);
    }
    return std::puts(value.data) == EOF ? fail("can't be printed", request.name) : 0;
}

int set(Request& request, const Value& value) {
    ConfigFile config;
    std::error_code ignored;
    // Only a missing file is started afresh: what can't be read would be overwritten.
    if (!open(config, request) && std::filesystem::exists(request.path, ignored)) {
        return fail("can't be read, or is for another key", request.path);
    }
    const signed char written =
        request.whole
            ? config.WriteStr(request.group, request.name, value.data)
            : config.WriteStrCrypt(request.group, request.name, value.data, &request.place);
    // A line has limits, and not every character survives in it.
    if (written == 0 || !isThere(config, request, value)) {
        // Opening drops the edit; otherwise the end of `config` would write it, and in plain.
        config.OpenFile(request.path);
        return fail("does not fit a line", request.name);
    }
    const bool closed =
        request.whole ? config.CloseFileCrypt(encryptFile) != 0 && fileSealed : config.Close() != 0;
    // Close does not tell whether the file could be written whole, only the file does.
    return closed && open(config, request) && isThere(config, request, value)
               ? 0
               : fail("can't be written", request.path);
}

// Takes a line from standard input.
bool takeValue(Value* value) {
    if (std::fgets(value->data, sizeof value->data, stdin) == nullptr) {
        return false;
    }
    char* const lineEnd = std::strchr(value->data, '\n');
    if (lineEnd != nullptr) {
        *lineEnd = '\0';
    }
    return lineEnd != nullptr || std::feof(stdin) != 0;
}

} // namespace

int main(int argc, char** argv) {
    const bool whole = argc > 1 && std::strcmp(argv[1], "--whole") == 0;
    char** const arguments = argv + (whole ? 2 : 1);
    const std::string command = argc > 2 ? arguments[0] : "";
    if (argc != (whole ? 7 : 6) || (command != "get" && command != "set")) {
        std::fputs("usage: encrypted_config [--whole] get|set KEYFILE CONFIG GROUP NAME\n", stderr);
        return 2;
    }
    // The buffers of the streams would keep the values.
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Request request{whole, arguments[2], arguments[3], arguments[4], {}};
    request.place.groupAndName = std::string(request.group) + '\0' + request.name;
    if (!loadKey(arguments[1], "configuration value", &request.place.key) ||
        !loadKey(arguments[1], "configuration file", &fileKey)) {
        return fail("can't be read, or holds less than 32 bytes", arguments[1]);
    }
    if (command == "get") {
        return get(request);
    }
    Value value;
    return takeValue(&value) ? set(request, value) : fail("no line, or too long", "standard input");
}
