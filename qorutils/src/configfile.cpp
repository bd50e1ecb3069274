// The document: opening, closing, and edits, which splice the text.
#include "configfile.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <new>

#include "configfile_io.h"
#include "configfile_text.h"
#include "qoros.h"
#include "secret.h"

using configtext::findLineEnd;
using configtext::isLineEnd;
using configtext::rawValue;

namespace {

// Room that the text of a file has besides the file's own bytes, terminator included.
constexpr std::size_t spareBytes = 12;
// Lines are taken in pieces of at most this many bytes.
constexpr std::size_t pieceSize = 510;

// What edits add is formatted into buffers of these sizes.
constexpr unsigned int addedSize = 400;
constexpr unsigned int writtenSize = 512;
constexpr std::size_t encodedSize = 513;

// Kept: lines are taken in pieces, as texts, so that a zero byte takes the rest of its piece along,
// the line end included. Closes the gaps in place, wipes what is left over behind the text, and
// returns its length.
std::size_t dropBehindZeros(char* text, std::size_t length) {
    if (std::memchr(text, '\0', length) == nullptr) {
        return length;
    }
    std::size_t kept = 0;
    for (std::size_t pos = 0; pos < length;) {
        char* const piece = text + pos;
        const std::size_t room = std::min(pieceSize, length - pos);
        char* const lineFeed = configtext::find('\n', piece, piece + room);
        pos += std::min(room, static_cast<std::size_t>(lineFeed - piece) + 1);
        const std::size_t size = strlen_qor(piece, static_cast<std::size_t>(text + pos - piece));
        std::memmove(text + kept, piece, size);
        kept += size;
    }
    secret::wipe(text + kept, length - kept);
    return kept;
}

// Reads the file's text into new memory and ends its last line. Null where that fails. Kept: the
// file's size counts modulo 2^32.
char* readText(int fd, off_t fileSize, std::size_t* length) {
    const std::size_t size = static_cast<std::uint32_t>(fileSize) + spareBytes;
    char* const text = static_cast<char*>(std::malloc(size));
    const ssize_t got = text == nullptr ? -1 : configio::readAll(fd, text, size - 1);
    if (got < 0) {
        secret::dispose(text, size);
        return nullptr;
    }
    *length = dropBehindZeros(text, static_cast<std::size_t>(got));
    char* const end = text + *length;
    *end = '\0';
    if (end == text || end[-1] != '\n') {
        strcat_qor(end, size - *length, "\n");
        *length += std::strlen(end);
    }
    return text;
}

// A value as it stands in the text. Kept: the cut at 512 bytes, two more than a lookup reads.
void encodeValue(const char* value, char (&encoded)[encodedSize]) {
    std::size_t length = 0;
    for (const char* p = value; *p != '\0'; ++p) {
        const std::size_t needed = *p == '#' ? 2 : 1;
        if (length + needed >= encodedSize) {
            break;
        }
        if (*p == '\t') {
            continue;
        }
        encoded[length] = isLineEnd(*p) ? ' ' : *p;
        encoded[length + needed - 1] = encoded[length];
        length += needed;
    }
    encoded[length] = '\0';
}

// Kept: only lines that are written `name=` can be deleted; configfile_text.h compares the rules.
bool isLineOf(const char* name, const char* line, const char* lineStop) {
    configtext::NameMatcher matcher(name, 0);
    for (const char* p = line; p < lineStop && *p != '#'; ++p) {
        if (*p == '=') {
            return matcher.matches();
        }
        if (*p != '\t' && !matcher.take(*p)) {
            return false;
        }
    }
    return false;
}

} // namespace

ConfigFile::ConfigFile() {
    static_assert(offsetof(ConfigFile, fileName) == 0);
    static_assert(offsetof(ConfigFile, openedEncrypted) == 1024);
    static_assert(offsetof(ConfigFile, text) == 1032);
    static_assert(offsetof(ConfigFile, textLength) == 1040);
    static_assert(offsetof(ConfigFile, groupCursor) == 1048);
    static_assert(offsetof(ConfigFile, paramCursor) == 1056);
    static_assert(offsetof(ConfigFile, paramEnd) == 1064);
    static_assert(offsetof(ConfigFile, dirty) == 1072);
    static_assert(offsetof(ConfigFile, options) == 1076);
    static_assert(offsetof(ConfigFile, decryptValue) == 1080);
    static_assert(offsetof(ConfigFile, encryptValue) == 1088);
    static_assert(sizeof(ConfigFile) == 1096);
    fileName[0] = '\0';
}

ConfigFile::~ConfigFile() {
    Close();
}

// Takes over a text. Positions in the old one are void, so no iteration goes on. The old one may
// hold passwords, or be the plain text of an enciphered file.
void ConfigFile::replaceText(char* newText, std::uint64_t newLength) {
    secret::dispose(text, textLength);
    text = newText;
    textLength = newLength;
    groupCursor = nullptr;
    paramCursor = nullptr;
    paramEnd = nullptr;
}

void ConfigFile::ensureText() {
    if (text == nullptr) {
        replaceText(static_cast<char*>(std::calloc(1, 1)), 0);
    }
}

bool ConfigFile::nameFits(const char* path) {
    return strlen_qor(path, sizeof fileName) < sizeof fileName;
}

// A name that does not fit would be cut, and Close would write to another file.
void ConfigFile::attachName(const char* path) {
    strcpy_qor(fileName, sizeof fileName, nameFits(path) ? path : "");
}

bool ConfigFile::readFile() {
    off_t fileSize = 0;
    const int fd = configio::openToRead(fileName, &fileSize);
    if (fd < 0) {
        return false;
    }
    std::size_t length = 0;
    char* const fileText = readText(fd, fileSize, &length);
    close(fd);
    if (fileText == nullptr) {
        return false;
    }
    replaceText(fileText, length);
    return true;
}

signed char ConfigFile::OpenFile(const char* path) {
    if (path == nullptr) {
        return 0;
    }
    attachName(path);
    replaceText(nullptr, 0);
    const bool opened = nameFits(path) && readFile();
    ensureText();
    openedEncrypted = 0;
    dirty = 0;
    return opened ? 1 : 0;
}

// Closes the document and takes over a copy of a text, which ends at its first zero byte or behind
// `limit` bytes. What stands behind a zero byte is not copied: nothing would wipe it.
signed char ConfigFile::openCopy(const char* source, std::size_t limit) {
    const std::size_t size = strlen_qor(source, limit);
    // Copied before the old text goes, which may be the source.
    char* const copy = static_cast<char*>(std::malloc(size + 1));
    if (copy != nullptr) {
        std::memcpy(copy, source, size);
        copy[size] = '\0';
    }
    Close();
    replaceText(copy, copy == nullptr ? 0 : size);
    ensureText();
    return copy == nullptr ? 0 : 1;
}

signed char ConfigFile::OpenMem(const char* source, int length) {
    if (source == nullptr) {
        return openCopy("", 0);
    }
    return openCopy(source, length < 0 ? SIZE_MAX : static_cast<std::size_t>(length));
}

bool ConfigFile::isToBeWritten() const {
    return dirty == 1 && fileName[0] != '\0' && text != nullptr;
}

// Writes an edited document to its file; false where that can't be opened.
bool ConfigFile::writeBack() const {
    if (!isToBeWritten()) {
        return true;
    }
    const configio::GroupUmask mask;
    return configio::writeFile(fileName, text, textLength) != configio::Written::notOpened;
}

// Releases the text, written or not, and forgets where it came from.
void ConfigFile::discard() {
    replaceText(nullptr, 0);
    fileName[0] = '\0';
    dirty = 0;
    openedEncrypted = 0;
}

signed char ConfigFile::Close() {
    const bool written = writeBack();
    discard();
    return written ? 1 : 0;
}

char* ConfigFile::GetBuffer() const {
    return text;
}

signed char ConfigFile::SetOptions(unsigned int newOptions) {
    if (newOptions >= 4) {
        return 0;
    }
    options = newOptions;
    return 1;
}

// Replaces `count` characters at `pos`. One new buffer is filled before the old one goes, so that
// a failure leaves the text whole.
signed char ConfigFile::splice(unsigned long pos, unsigned long count, const char* added) {
    if (text == nullptr || pos > textLength || count > textLength - pos) {
        return 0;
    }
    const std::size_t addedLength = std::strlen(added);
    const std::size_t newLength = textLength - count + addedLength;
    char* const edited = static_cast<char*>(std::malloc(newLength + 1));
    if (edited == nullptr) {
        return 0;
    }
    std::memcpy(edited, text, pos);
    std::memcpy(edited + pos, added, addedLength);
    std::memcpy(edited + pos + addedLength, text + pos + count, textLength - pos - count + 1);
    replaceText(edited, newLength);
    dirty = 1;
    return 1;
}

signed char ConfigFile::addStr(const char* added, unsigned long pos) {
    return splice(std::min<unsigned long>(pos, textLength), 0, added);
}

signed char ConfigFile::delStr(unsigned long pos, unsigned long count) {
    return splice(pos, count, "");
}

signed char ConfigFile::appendGroup(const char* group, const char* name, const char* value,
                                    unsigned int size) {
    secret::Text<writtenSize> added;
    sprintf_qor(added.chars, size, "\n\n[%s]\n%s=%s\n", group, name, value);
    return addStr(added.chars, textLength);
}

signed char ConfigFile::WriteStr(const char* group, const char* name, const char* value) {
    if (group == nullptr || name == nullptr || value == nullptr) {
        return 0;
    }
    secret::Text<encodedSize> encoded;
    encodeValue(value, encoded.chars);
    char* start = nullptr;
    char* end = nullptr;
    if (getGroupPos(group, &start, &end) == 0) {
        return appendGroup(group, name, encoded.chars, writtenSize);
    }
    secret::Text<configtext::lineBufferSize> oldValue;
    char* position = nullptr;
    if (getValuePos(name, 0, start, end, &position, oldValue.chars, sizeof oldValue.chars,
                    rawValue) != 0) {
        // Kept: the old value counts as it was read, so tabs that stood in it leave some of it.
        return splice(static_cast<unsigned long>(position - text), std::strlen(oldValue.chars),
                      encoded.chars);
    }
    secret::Text<writtenSize> added;
    sprintf_qor(added.chars, sizeof added.chars, "%s=%s\n", name, encoded.chars);
    // Kept: no line end is put before the line, so it continues a last line that lacks its own.
    return addStr(added.chars, static_cast<unsigned long>(end + 1 - text));
}

signed char ConfigFile::AddStr(const char* group, const char* name, const char* value) {
    if (group == nullptr || name == nullptr || value == nullptr) {
        return 0;
    }
    char* start = nullptr;
    char* end = nullptr;
    if (getGroupPos(group, &start, &end) == 0) {
        return appendGroup(group, name, value, addedSize);
    }
    // Kept: a line that is cut loses its line end too and runs into the next group's header.
    secret::Text<addedSize> added;
    sprintf_qor(added.chars, sizeof added.chars, "\n%s=%s\n", name, value);
    return addStr(added.chars, static_cast<unsigned long>(end + 1 - text));
}

signed char ConfigFile::DeleteValue(const char* group, const char* name) {
    char* start = nullptr;
    char* end = nullptr;
    if (name == nullptr || getGroupPos(group, &start, &end) == 0) {
        return 0;
    }
    char* const stop = rangeStop(end);
    char* lineStop = nullptr;
    for (char* line = start; line < stop; line = lineStop + 1) {
        lineStop = findLineEnd(line, stop);
        if (!isLineOf(name, line, lineStop)) {
            continue;
        }
        while (lineStop < stop && isLineEnd(*lineStop)) {
            ++lineStop;
        }
        return delStr(static_cast<unsigned long>(line - text),
                      static_cast<unsigned long>(lineStop - line));
    }
    return 0;
}

signed char ConfigFile::DeleteGroup(const char* group) {
    char* start = nullptr;
    char* end = nullptr;
    if (getGroupPos(group, &start, &end) == 0) {
        return 0;
    }
    return delStr(static_cast<unsigned long>(start - text),
                  static_cast<unsigned long>(end - start));
}

signed char ConfigFile::AddConfig(const char* file, const char* group, const char* name,
                                  const char* value) {
    ConfigFile* const config = new (std::nothrow) ConfigFile;
    if (config == nullptr) {
        return 0;
    }
    const signed char opened = config->OpenFile(file);
    if (opened != 0) {
        config->AddStr(group, name, value);
        config->Close();
    }
    delete config;
    return opened;
}
