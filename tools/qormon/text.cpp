#include "text.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace qormon {

namespace {

unsigned int byteAt(const std::string& text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

struct Utf8Form {
    unsigned int mask;
    unsigned int lead;
    std::size_t length;
    unsigned int smallest; // shorter forms hold smaller code points
};

constexpr Utf8Form utf8Forms[] = {
    {0x80, 0x00, 1, 0x0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

struct CodeRange {
    unsigned int first;
    unsigned int last;
};

// The controls, which terminals obey in their UTF-8 form too, and the line ends and writing
// directions with which a server could rearrange what a person reads.
constexpr CodeRange harmfulCodes[] = {
    {0x00, 0x1F}, {0x7F, 0x9F}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069},
};

constexpr CodeRange surrogates = {0xD800, 0xDFFF};
constexpr unsigned int highestCode = 0x10FFFF;

bool isIn(const CodeRange& range, unsigned int code) {
    return code >= range.first && code <= range.last;
}

bool isHarmful(unsigned int code) {
    return std::any_of(std::begin(harmfulCodes), std::end(harmfulCodes),
                       [code](const CodeRange& range) { return isIn(range, code); });
}

struct Character {
    unsigned int code;
    std::size_t length; // of its UTF-8 form (RFC 3629); 0 where there is none
};

Character noCharacter(const std::string& text, std::size_t at) {
    return {byteAt(text, at), 0};
}

Character characterAt(const std::string& text, std::size_t start) {
    const unsigned int first = byteAt(text, start);
    const auto form =
        std::find_if(std::begin(utf8Forms), std::end(utf8Forms),
                     [first](const Utf8Form& each) { return (first & each.mask) == each.lead; });
    if (form == std::end(utf8Forms) || text.size() - start < form->length) {
        return noCharacter(text, start);
    }
    unsigned int code = first & ~form->mask;
    for (std::size_t i = start + 1; i < start + form->length; ++i) {
        if ((byteAt(text, i) & 0xC0) != 0x80) {
            return noCharacter(text, start);
        }
        code = code << 6 | (byteAt(text, i) & 0x3F);
    }
    if (code < form->smallest || code > highestCode || isIn(surrogates, code)) {
        return noCharacter(text, start);
    }
    return {code, form->length};
}

std::string jsonEscape(unsigned int code) {
    if (code == '"' || code == '\\') {
        return {'\\', static_cast<char>(code)};
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", code & 0xFFFF);
    return escape;
}

} // namespace

std::string printable(const std::string& text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        if (character.length == 0 || isHarmful(character.code)) {
            shown += '?';
        } else {
            shown.append(text, i, character.length);
        }
        i += std::max<std::size_t>(character.length, 1);
    }
    return shown;
}

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        const unsigned int code = character.code;
        if (character.length == 0 || isHarmful(code) || code == '"' || code == '\\') {
            quoted += jsonEscape(code);
        } else {
            quoted.append(text, i, character.length);
        }
        i += std::max<std::size_t>(character.length, 1);
    }
    return quoted + '"';
}

} // namespace qormon
