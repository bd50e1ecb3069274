#include "text.h"

#include <cstdio>

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

bool isScalarValue(unsigned int code) {
    return code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

// The length of the UTF-8 sequence (RFC 3629) that starts at an index; 0 where there is none.
std::size_t utf8Length(const std::string& text, std::size_t start) {
    const unsigned int first = byteAt(text, start);
    for (const Utf8Form& form : utf8Forms) {
        if ((first & form.mask) != form.lead || text.size() - start < form.length) {
            continue;
        }
        unsigned int code = first & ~form.mask;
        for (std::size_t i = start + 1; i < start + form.length; ++i) {
            if ((byteAt(text, i) & 0xC0) != 0x80) {
                return 0;
            }
            code = code << 6 | (byteAt(text, i) & 0x3F);
        }
        return code >= form.smallest && isScalarValue(code) ? form.length : 0;
    }
    return 0;
}

bool isControl(unsigned int byte) {
    return byte < 0x20 || byte == 0x7F;
}

// The controls U+0080 to U+009F, which terminals obey in their UTF-8 form too.
bool isLongControl(const std::string& text, std::size_t start) {
    return byteAt(text, start) == 0xC2 && byteAt(text, start + 1) < 0xA0;
}

std::string jsonEscape(unsigned int code) {
    if (code == '"' || code == '\\') {
        return {'\\', static_cast<char>(code)};
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", code & 0xFF);
    return escape;
}

} // namespace

std::string printable(const std::string& text) {
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = utf8Length(text, i);
        if (length == 0 || isControl(byteAt(text, i)) || (length == 2 && isLongControl(text, i))) {
            shown += '?';
        } else {
            shown.append(text, i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return shown;
}

std::string jsonString(const std::string& text) {
    std::string quoted = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const unsigned int byte = byteAt(text, i);
        const std::size_t length = utf8Length(text, i);
        if (length == 0 || isControl(byte) || byte == '"' || byte == '\\') {
            quoted += jsonEscape(byte);
            ++i;
        } else {
            quoted.append(text, i, length);
            i += length;
        }
    }
    return quoted + '"';
}

} // namespace qormon
