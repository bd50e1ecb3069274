// Enciphered values and files: what callers' ciphers take and give, framed.
#include "configfile.h"

#include <strings.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstring>

#include "configfile_hex.h"
#include "configfile_io.h"
#include "configfile_text.h"
#include "qoros.h"
#include "secret.h"

using configio::Written;

namespace {

// In front of an enciphered value's digits.
constexpr char prefix[] = "crypt:";
constexpr std::size_t prefixLength = sizeof prefix - 1;

// Room for one value, as text or as bytes.
constexpr unsigned int valueSize = 512;

// Zero bytes behind a file's data, so that a block cipher may pad in place.
constexpr std::size_t spareBytes = 64;

// The largest data whose size with the spare bytes is an unsigned int, as the ciphers count.
constexpr std::size_t longestData = UINT_MAX - spareBytes;

bool readWhole(int fd, void* buffer, std::size_t size) {
    const ssize_t got = configio::readAll(fd, buffer, size);
    return got >= 0 && static_cast<std::size_t>(got) == size;
}

} // namespace

void ConfigFile::SetValueEncryptFunc(ConfigValueEncryptFunc encrypt) {
    encryptValue = encrypt;
}

void ConfigFile::SetValueDecryptFunc(ConfigValueDecryptFunc decrypt) {
    decryptValue = decrypt;
}

// Kept: what does not fit `out` is cut off.
signed char ConfigFile::strEncrypt(const char* plain, char* out, unsigned int outSize,
                                   void* context) {
    if (encryptValue == nullptr) {
        return 0;
    }
    strcpy_qor(out, outSize, "");
    if (*plain == '\0') {
        return 1;
    }
    const secret::Buffer cipher(valueSize);
    if (!cipher) {
        return 0;
    }
    // The ciphers take what they read through pointers to what they could write.
    auto* const bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(plain));
    unsigned int length = 0;
    if (encryptValue(bytes, std::strlen(plain), cipher.bytes(), valueSize, &length, context) == 0 ||
        length > valueSize) {
        return 0;
    }
    confighex::write(cipher.bytes(), length, out, outSize);
    return 1;
}

signed char ConfigFile::strDecrypt(const char* hexText, char* out, unsigned int outSize,
                                   void* context) const {
    if (decryptValue == nullptr) {
        return 0;
    }
    strcpy_qor(out, outSize, "");
    if (*hexText == '\0') {
        return 1;
    }
    const secret::Buffer cipher(valueSize);
    std::size_t length = 0;
    if (!cipher || !confighex::read(hexText, cipher.bytes(), valueSize, &length)) {
        return 0;
    }
    const signed char result = decryptValue(cipher.bytes(), length, out, outSize, context);
    out[outSize - 1] = '\0';
    return result;
}

signed char ConfigFile::ReadStrCrypt(const char* group, const char* name, char* out,
                                     unsigned int size, signed char* wasEncrypted,
                                     void* context) const {
    // Kept: without a cipher plain values can't be read here either.
    if (decryptValue == nullptr || group == nullptr || name == nullptr || out == nullptr ||
        wasEncrypted == nullptr) {
        return 0;
    }
    const secret::Buffer value(valueSize);
    const secret::Buffer plain(valueSize);
    if (!value || !plain) {
        return 0;
    }
    if (ReadStr(group, name, value.text(), valueSize) == 0) {
        *wasEncrypted = 0;
        return 0;
    }
    const bool encrypted = strncasecmp(value.text(), prefix, prefixLength) == 0;
    if (encrypted &&
        strDecrypt(value.text() + prefixLength, plain.text(), valueSize, context) == 0) {
        return 0;
    }
    *wasEncrypted = encrypted ? 1 : 0;
    strcpy_qor(out, size, encrypted ? plain.text() : value.text());
    return 1;
}

signed char ConfigFile::WriteStrCrypt(const char* group, const char* name, const char* value,
                                      void* context) {
    if (encryptValue == nullptr || group == nullptr || name == nullptr || value == nullptr) {
        return 0;
    }
    const secret::Buffer digits(valueSize);
    const secret::Buffer written(valueSize);
    if (!digits || !written || strEncrypt(value, digits.text(), valueSize, context) == 0) {
        return 0;
    }
    // Kept: the cut at 511 characters, one more than a lookup reads.
    sprintf_qor(written.text(), valueSize, "%s%s", prefix, digits.text());
    return WriteStr(group, name, written.text());
}

// Reads and deciphers a file and takes its text over, as OpenMem does.
bool ConfigFile::openDeciphered(const char* path, ConfigFileDecryptFunc decrypt) {
    off_t fileSize = 0;
    const int fd = configio::openToRead(path, &fileSize);
    if (fd < 0) {
        return false;
    }
    const std::size_t size = static_cast<std::size_t>(fileSize);
    if (size > longestData) {
        close(fd);
        return false;
    }
    const secret::Buffer buffer(size + spareBytes);
    const bool complete = buffer && readWhole(fd, buffer.bytes(), size);
    close(fd);
    unsigned int length = static_cast<unsigned int>(size);
    if (!complete || decrypt(buffer.bytes(), buffer.size(), &length) != 1) {
        return false;
    }
    return length <= buffer.size() && openCopy(buffer.text(), length) != 0;
}

signed char ConfigFile::OpenFileCrypt(const char* path, ConfigFileDecryptFunc decrypt) {
    if (path == nullptr || decrypt == nullptr) {
        return 0;
    }
    // The path may stand in the text, which goes before the name is attached.
    char newName[sizeof fileName];
    strcpy_qor(newName, sizeof newName, nameFits(path) ? path : "");
    const bool opened = openDeciphered(newName, decrypt);
    if (!opened) {
        // Kept: an earlier text stays and gets the new name, under which its edits do not belong.
        writeBack();
        dirty = 0;
    }
    attachName(newName);
    ensureText();
    openedEncrypted = opened ? 1 : 0;
    return opened ? 1 : 0;
}

// Writes the text enciphered. False where the file does not hold all that the cipher gave.
bool ConfigFile::writeEnciphered(ConfigFileEncryptFunc encrypt) const {
    // Kept: the umask is set for the cipher, too, and without a buffer or an enciphered text
    // nothing is written, which the caller learns from the cipher alone.
    const configio::GroupUmask mask;
    if (textLength > longestData) {
        return true;
    }
    const secret::Buffer buffer(textLength + spareBytes);
    if (!buffer) {
        return true;
    }
    std::memcpy(buffer.bytes(), text, textLength);
    unsigned int length = static_cast<unsigned int>(textLength);
    if (encrypt(buffer.bytes(), buffer.size(), &length) == 0) {
        return true;
    }
    return length <= buffer.size() &&
           configio::writeFile(fileName, buffer.bytes(), length) == Written::whole;
}

signed char ConfigFile::CloseFileCrypt(ConfigFileEncryptFunc encrypt) {
    if (encrypt == nullptr) {
        return 0;
    }
    const bool failed = isToBeWritten() && !writeEnciphered(encrypt);
    discard();
    return failed ? 0 : 1;
}
