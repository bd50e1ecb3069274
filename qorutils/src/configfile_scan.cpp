// Finding groups and values, and walking through them. The text is scanned anew for each question.
#include "configfile.h"

#include <strings.h>

#include <cstring>

#include <algorithm>
#include <string_view>

#include "configfile_text.h"
#include "qoros.h"
#include "secret.h"

using configtext::find;
using configtext::findLineEnd;
using configtext::isLineEnd;
using configtext::isSameLetter;
using configtext::rawValue;

namespace {

// A line from which this many characters are collected is given up by a lookup ...
constexpr std::size_t lookupLimit = 511;
// ... and ends an iteration.
constexpr std::size_t iterationLimit = 256;

constexpr unsigned int optionQuotes = 1;
constexpr unsigned int optionNoComments = 2;

// Only blanks may stand before a header's bracket on its line, no tab.
bool isLineInitial(const char* textStart, const char* bracket) {
    while (bracket > textStart && bracket[-1] == ' ') {
        --bracket;
    }
    return bracket == textStart || isLineEnd(bracket[-1]);
}

// The first line-initial `[` in [from, stop), or stop.
char* findHeader(const char* textStart, char* from, char* stop) {
    for (char* p = find('[', from, stop); p < stop; p = find('[', p + 1, stop)) {
        if (isLineInitial(textStart, p)) {
            return p;
        }
    }
    return stop;
}

// Whether the header's name, which ends at the first `]` before the next header, is the wanted one.
// Its length and its last letter tell most others apart.
bool isHeaderOf(char* header, char* next, const char* group, std::size_t length) {
    char* const name = header + 1;
    if (static_cast<std::size_t>(next - name) <= length || name[length] != ']' ||
        (length > 0 && !isSameLetter(name[length - 1], group[length - 1]))) {
        return false;
    }
    char* const closing = name + length;
    return find(']', name, closing) == closing && strncasecmp(name, group, length) == 0;
}

// What lookups drop from the name in a line.
constexpr bool isDropped(char c) {
    return c == ' ' || c == '\t' || c == '"';
}

// Whether the name that ends at `stop` may be the wanted one, as far as it holds no blanks. Another
// `=` means that this is no name, and keeps the time in proportion to the text.
bool mayBe(std::string_view wanted, const char* from, const char* stop) {
    while (!wanted.empty() && stop > from && !isDropped(stop[-1])) {
        --stop;
        if (*stop == '=' || !isSameLetter(*stop, wanted.back())) {
            return false;
        }
        wanted.remove_suffix(1);
    }
    return wanted.empty() || stop > from;
}

// The begin of the first line in [from, stop) whose name may be the wanted one, or stop. An
// `=` is found faster than a line end, and names are told apart soonest at their ends.
char* findLineOf(std::string_view wanted, char* from, char* stop) {
    for (char* equals = find('=', from, stop); equals < stop;
         equals = find('=', equals + 1, stop)) {
        char* nameStop = equals;
        while (nameStop > from && isDropped(nameStop[-1])) {
            --nameStop;
        }
        if (mayBe(wanted, from, nameStop)) {
            while (nameStop > from && !isLineEnd(nameStop[-1])) {
                --nameStop;
            }
            return nameStop;
        }
    }
    return stop;
}

// The first `]` in [from, stop) that stands in no comment, or stop.
char* findUncommentedBracket(char* from, char* stop) {
    bool inComment = false;
    for (char* p = from; p < stop; ++p) {
        if (*p == ']' && !inComment) {
            return p;
        }
        inComment = !isLineEnd(*p) && (inComment || *p == '#');
    }
    return stop;
}

} // namespace

// What is collected of one name or value.
struct ConfigFile::Collected {
    explicit Collected(std::size_t lengthLimit) : limit(lengthLimit) {}
    ~Collected() {
        secret::wipe(text, length);
    }
    Collected(const Collected&) = delete;
    Collected& operator=(const Collected&) = delete;

    // False once the limit is reached, with which the line is given up.
    bool collect(char* p) {
        if (length == 0) {
            position = p;
        }
        text[length++] = *p;
        return length < limit;
    }

    std::size_t limit;
    std::size_t length = 0;
    char* position = nullptr;  // of the first collected character in the configuration text
    bool quoted = false;       // a quotation was opened
    bool closed = false;       // ... and another quote followed
    std::size_t lastQuote = 0; // index in text of the last one that did
    char text[configtext::lineBufferSize];
};

void ConfigFile::deleteLastSpace(char* value) {
    std::size_t length = std::strlen(value);
    // Kept: as a signed value every byte from 0x80 on counts as a space, so a value that ends in
    // such letters loses them unless it is quoted.
    while (length > 0 && static_cast<signed char>(value[length - 1]) <= ' ') {
        --length;
    }
    value[length] = '\0';
}

// The end of a range as a half-open one has it: the terminator behind the text never belongs to it.
char* ConfigFile::rangeStop(char* end) const {
    char* const textStop = text + textLength;
    return end < textStop ? end + 1 : textStop;
}

bool ConfigFile::hasComments() const {
    return (options & optionNoComments) == 0;
}

signed char ConfigFile::getGroupPos(const char* group, char** start, char** end) const {
    if (group == nullptr || start == nullptr || end == nullptr || text == nullptr) {
        return 0;
    }
    const std::size_t length = std::strlen(group);
    char* const stop = text + textLength;
    *end = stop;
    char* next = nullptr;
    for (char* header = findHeader(text, text, stop); header < stop; header = next) {
        next = findHeader(text, header + 1, stop);
        if (isHeaderOf(header, next, group, length)) {
            *start = header;
            *end = next < stop ? next - 1 : stop;
            return 1;
        }
    }
    return 0;
}

// The position behind the `=` of a line with the given name, else null.
char* ConfigFile::matchName(const char* name, unsigned int nameLen, char* line,
                            char* lineStop) const {
    configtext::NameMatcher matcher(name, nameLen);
    for (char* p = line; p < lineStop; ++p) {
        if (isDropped(*p)) {
            continue;
        }
        if (*p == '=') {
            return matcher.matches() ? p + 1 : nullptr;
        }
        const bool startsComment = *p == '#' && hasComments();
        if (startsComment || !matcher.take(*p) || matcher.length() >= lookupLimit) {
            return nullptr;
        }
    }
    return nullptr;
}

// Collects the value that begins at `from`; false where it reaches the limit.
bool ConfigFile::collectValue(char* from, char* lineStop, unsigned int flags,
                              Collected* value) const {
    for (char* p = from; p < lineStop; ++p) {
        const bool started = value->quoted || value->length > 0;
        if (*p == '\t' || (*p == ' ' && !started)) {
            continue;
        }
        if (*p == '"' && !started && (options & optionQuotes) != 0) {
            value->quoted = true;
            continue;
        }
        if (*p == '"' && value->quoted) {
            value->closed = true;
            value->lastQuote = value->length;
        }
        const bool isMark = *p == '#' && !value->quoted && hasComments();
        if (isMark && (p + 1 == lineStop || p[1] != '#')) {
            return true; // a comment
        }
        if (!value->collect(p)) {
            return false;
        }
        if (isMark) { // `##` stands for one literal `#`
            ++p;
            if ((flags & rawValue) != 0 && !value->collect(p)) {
                return false;
            }
        }
    }
    return true;
}

void ConfigFile::finishValue(Collected* value) {
    value->text[value->length] = '\0';
    if (!value->quoted) {
        deleteLastSpace(value->text);
    } else if (value->closed) {
        value->text[value->lastQuote] = '\0';
    }
}

signed char ConfigFile::getValuePos(const char* name, unsigned int nameLen, char* from, char* to,
                                    char** valuePos, char* out, unsigned int outSize,
                                    unsigned int flags) const {
    *valuePos = nullptr;
    char* const stop = rangeStop(to);
    // A line whose name only begins with the wanted one may end with anything.
    const std::string_view nameEnd(name, nameLen == 0 ? std::strlen(name) : 0);
    char* lineStop = nullptr;
    for (char* line = findLineOf(nameEnd, from, stop); line < stop;
         line = findLineOf(nameEnd, std::min(lineStop + 1, stop), stop)) {
        lineStop = findLineEnd(line, stop);
        char* const valueStart = matchName(name, nameLen, line, lineStop);
        if (valueStart == nullptr) {
            continue;
        }
        Collected value(lookupLimit);
        if (!collectValue(valueStart, lineStop, flags, &value)) {
            continue;
        }
        // Kept: an empty value has its place at the line's end, behind blanks and comment.
        *valuePos = value.position == nullptr ? lineStop : value.position;
        finishValue(&value);
        strcpy_qor(out, outSize, value.text);
        return 1;
    }
    return 0;
}

signed char ConfigFile::readValue(const char* group, const char* name, char* out,
                                  unsigned int size) const {
    char* start = nullptr;
    char* end = nullptr;
    char* position = nullptr;
    if (name == nullptr || getGroupPos(group, &start, &end) == 0) {
        return 0;
    }
    return getValuePos(name, 0, start, end, &position, out, size, 0);
}

signed char ConfigFile::ExistGroup(const char* group) const {
    char* start = nullptr;
    char* end = nullptr;
    return getGroupPos(group, &start, &end);
}

signed char ConfigFile::ExistStr(const char* group, const char* name, const char* value) const {
    return ExistNStr(group, name, value, 0);
}

signed char ConfigFile::ExistNStr(const char* group, const char* name, const char* value,
                                  unsigned int length) const {
    char* line = nullptr;
    char* end = nullptr;
    if (name == nullptr || value == nullptr || getGroupPos(group, &line, &end) == 0) {
        return 0;
    }
    char* const stop = rangeStop(end);
    char* position = nullptr;
    secret::Text<configtext::lineBufferSize> found;
    while (getValuePos(name, length, line, end, &position, found.chars, sizeof found.chars, 0) !=
           0) {
        if (std::strcmp(found.chars, value) == 0) {
            return 1;
        }
        line = std::min(findLineEnd(position, stop) + 1, stop); // the last line may lack its end
    }
    return 0;
}

signed char ConfigFile::GetFirstGroup(char* out, unsigned int size) {
    if (out == nullptr) {
        return 0;
    }
    groupCursor = text;
    return GetNextGroup(out, size);
}

signed char ConfigFile::GetNextGroup(char* out, unsigned int size) {
    if (out == nullptr || groupCursor == nullptr) {
        return 0;
    }
    char* const stop = text + textLength;
    char* next = nullptr;
    for (char* header = findHeader(text, groupCursor, stop); header < stop; header = next) {
        next = findHeader(text, header + 1, stop);
        // Kept: unlike lookups this scan honours comments, also inside the brackets.
        char* const closing = findUncommentedBracket(header + 1, next);
        if (closing < next) {
            strncpy_qor(out, size, header + 1, static_cast<std::size_t>(closing - header - 1));
            groupCursor = closing + 1;
            return 1;
        }
    }
    groupCursor = stop;
    return 0;
}

signed char ConfigFile::GetFirstParam(const char* group, char* nameOut, unsigned int nameSize,
                                      char* valueOut, unsigned int valueSize) {
    if (group == nullptr || nameOut == nullptr) {
        return 0;
    }
    if (getGroupPos(group, &paramCursor, &paramEnd) == 0) {
        paramCursor = nullptr;
    }
    return GetNextParam(nameOut, nameSize, valueOut, valueSize);
}

// Collects a line's name and finds the position behind its `=`, null for a line without a name.
// False where the name reaches the limit.
bool ConfigFile::collectName(char* line, char* lineStop, Collected* name, char** valueStart) const {
    *valueStart = nullptr;
    for (char* p = line; p < lineStop; ++p) {
        if (*p == '=') {
            name->text[name->length] = '\0';
            deleteLastSpace(name->text);
            *valueStart = p + 1;
            return true;
        }
        if (*p == '#' && hasComments()) {
            return true;
        }
        if (*p == '\t' || *p == '"' || (*p == ' ' && name->length == 0)) {
            continue;
        }
        if (!name->collect(p)) {
            return false;
        }
    }
    return true;
}

signed char ConfigFile::GetNextParam(char* nameOut, unsigned int nameSize, char* valueOut,
                                     unsigned int valueSize) {
    if (nameOut == nullptr) {
        return 0;
    }
    strcpy_qor(nameOut, nameSize, "");
    if (paramCursor == nullptr) {
        return 0;
    }
    char* const stop = rangeStop(paramEnd);
    for (char* line = paramCursor; line < stop; line = paramCursor) {
        char* const lineStop = findLineEnd(line, stop);
        paramCursor = lineStop + 1;
        Collected name(iterationLimit);
        char* valueStart = nullptr;
        // Kept: a line that is too long ends the iteration, and so does a last line without its
        // end, though lookups find that one.
        if (!collectName(line, lineStop, &name, &valueStart)) {
            break;
        }
        if (valueStart == nullptr) {
            continue;
        }
        strcpy_qor(nameOut, nameSize, name.text);
        Collected value(iterationLimit);
        if (!collectValue(valueStart, lineStop, 0, &value) || lineStop == stop) {
            break;
        }
        finishValue(&value);
        strcpy_qor(valueOut, valueSize, value.text);
        return 1;
    }
    paramCursor = nullptr;
    return 0;
}
