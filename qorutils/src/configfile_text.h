// What reading and editing a configuration text have in common: the ends of lines and the
// comparison of names.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstring>

#include <algorithm>

namespace configtext {

// Lookups and edits keep this many bytes of a line's name or value, terminator included.
constexpr std::size_t lineBufferSize = 512;

// A flag of getValuePos: `##` stays as it stands, for a value that is to be replaced in place.
constexpr unsigned int rawValue = 1;

constexpr bool isLineEnd(char c) {
    return c == '\n' || c == '\r';
}

// The first c in [from, stop), or stop.
inline char* find(char c, char* from, char* stop) {
    void* const found = std::memchr(from, c, static_cast<std::size_t>(stop - from));
    return found == nullptr ? stop : static_cast<char*>(found);
}

// The first LF or CR in [from, stop), or stop. Looking in windows keeps the search for one of them
// from running through the whole text where lines end with the other.
inline char* findLineEnd(char* from, char* stop) {
    constexpr std::ptrdiff_t window = 128;
    while (from < stop) {
        char* const windowStop = from + std::min(window, stop - from);
        char* const lineFeed = find('\n', from, windowStop);
        char* const lineEnd = find('\r', from, lineFeed);
        if (lineEnd < windowStop) {
            return lineEnd;
        }
        from = windowStop;
    }
    return stop;
}

// Three functions walk through a line's name, each in its own way, and all of it is kept:
//
//                   lookup: matchName     iteration: collectName    deletion: isLineOf
//   tabs            dropped               dropped                   dropped
//   blanks          dropped               dropped at the start      kept
//   `"`             dropped               dropped                   kept
//   `#` comments    unless option bit 1   unless option bit 1       always
//   at the end      nothing goes          deleteLastSpace           nothing goes
//   longest name    510                   255                       511

// As strcasecmp compares. Two bytes of ASCII that differ in more than the bit of the case
// differ in every locale, which spares most lines the conversion.
inline bool isSameLetter(char a, char b) {
    const unsigned int first = static_cast<unsigned char>(a);
    const unsigned int second = static_cast<unsigned char>(b);
    if (first == second) {
        return true;
    }
    if ((first | second) < 0x80 && (first ^ second) != 0x20) {
        return false;
    }
    return std::tolower(static_cast<int>(first)) == std::tolower(static_cast<int>(second));
}

// Compares a line's name, character by character, with the one that is looked for. A length above 0
// limits the comparison to that many bytes, as strncasecmp would; otherwise all count.
class NameMatcher {
public:
    NameMatcher(const char* wanted, std::size_t length)
        : name(wanted), compared(length == 0 ? static_cast<std::size_t>(-1) : length) {}

    // False once the line's name differs or no longer fits a line buffer.
    bool take(char c) {
        if (count < compared && !isSameLetter(c, name[count])) {
            return false;
        }
        ++count;
        return count < lineBufferSize;
    }

    // How much of the line's name was taken.
    std::size_t length() const {
        return count;
    }

    // Whether what was taken is the whole name, or as much of it as is compared.
    bool matches() const {
        return count >= compared || name[count] == '\0';
    }

private:
    const char* name;
    std::size_t compared;
    std::size_t count = 0;
};

} // namespace configtext
