#include "qoros.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>

namespace {

// Copies at most dCount bytes of cpSrc and fills what is left of them with zeros, as the standard
// library's strncpy does; no terminator follows a source that is as long.
void vCopyPadded(char* cpDest, const char* cpSrc, size_t dCount) {
    const size_t dLength = strnlen(cpSrc, dCount);
    memcpy(cpDest, cpSrc, dLength);
    memset(cpDest + dLength, 0, dCount - dLength);
}

// The length of a destination, which may lack its terminator: no byte behind dSize + 1 is read.
size_t dDestLength(const char* cpDest, size_t dSize) {
    return strnlen(cpDest, dSize == SIZE_MAX ? dSize : dSize + 1);
}

template <int (*fConvert)(int)>
char* cpConvertBytes(char* cpText) {
    for (char* cp = cpText; *cp != '\0'; ++cp) {
        *cp = static_cast<char>(fConvert(static_cast<unsigned char>(*cp)));
    }
    return cpText;
}

// Copies dCount bytes, turning backslash and double quote into a double quote. A backslash that
// ends the input is lost (kept: the command-line splitter depends on it). Returns the end.
char* cpCopyUnescaped(char* cpDest, const char* cpSrc, size_t dCount) {
    bool fPending = false;
    for (size_t i = 0; i < dCount; ++i) {
        const char c = cpSrc[i];
        if (!fPending && c == '\\') {
            fPending = true;
            continue;
        }
        if (fPending && c != '"') {
            *cpDest++ = '\\';
        }
        *cpDest++ = c;
        fPending = false;
    }
    return cpDest;
}

} // namespace

char* strcpy_qor(char* dest, size_t size, const char* src) {
    if (dest == nullptr || src == nullptr) {
        return nullptr;
    }
    if (size == 0) {
        return dest;
    }
    const size_t length = strnlen(src, size - 1);
    memcpy(dest, src, length);
    dest[length] = '\0';
    return dest;
}

char* strncpy_qor(char* dest, size_t size, const char* src, size_t count) {
    return strcpy_qor(dest, count < size ? count + 1 : size, src);
}

char* strcat_qor(char* dest, size_t size, const char* src) {
    if (dest == nullptr || src == nullptr) {
        return nullptr;
    }
    if (size == 0) {
        return dest;
    }
    const size_t length = dDestLength(dest, size);
    if (length > size) {
        return dest;
    }
    const size_t room = size - length;
    const size_t added = strnlen(src, room);
    if (added == room) {
        // Kept: a text that fills the size loses its last character to the terminator.
        vCopyPadded(dest + length, src, room);
        dest[size - 1] = '\0';
        return dest;
    }
    memcpy(dest + length, src, added + 1);
    return dest;
}

char* strncat_qor(char* dest, size_t size, const char* src, size_t count) {
    if (dest == nullptr || src == nullptr) {
        return nullptr;
    }
    if (size == 0 || count == 0) {
        return dest;
    }
    const size_t length = dDestLength(dest, size);
    if (length > size) {
        return dest;
    }
    // Kept: the whole source decides, not its first count bytes. Where it fits, no terminator is
    // written behind count bytes, since callers count on a buffer that they have zeroed.
    const size_t room = size - length;
    const bool fits = strnlen(src, room) < room;
    vCopyPadded(dest + length, src, std::min(room, count));
    if (!fits) {
        dest[size - 1] = '\0';
    }
    return dest;
}

size_t strlen_qor(const char* string, size_t max) {
    return max == 0 ? 0 : strnlen(string, max);
}

int sprintf_qor(char* dest, size_t size, const char* format, ...) {
    if (size == 0) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    // Some systems refuse a size beyond what the result can say.
    const int length = vsnprintf(dest, std::min<size_t>(size, INT_MAX), format, arguments);
    va_end(arguments);
    dest[size - 1] = '\0';
    return length < 0 ? static_cast<int>(strlen(dest)) : length;
}

char* strupr(char* string) {
    return cpConvertBytes<toupper>(string);
}

char* strlwr(char* string) {
    return cpConvertBytes<tolower>(string);
}

char* concatenateString(char* buffer, const char* src, size_t count, int unescape) {
    if (src == nullptr) {
        return nullptr;
    }
    const size_t length = buffer == nullptr ? 0 : strlen(buffer);
    if (count >= SIZE_MAX - length) {
        errno = ENOMEM;
        return nullptr;
    }
    char* const grown = static_cast<char*>(realloc(buffer, length + count + 1));
    if (grown == nullptr) {
        return nullptr;
    }
    char* end = grown + length;
    if (unescape != 0) {
        end = cpCopyUnescaped(end, src, count);
    } else {
        memcpy(end, src, count);
        end += count;
    }
    *end = '\0';
    return grown;
}
