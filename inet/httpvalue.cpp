#include "httpvalue.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

template class QOR::TemplLinkedList<HTTPVALUE*>;

static_assert(offsetof(HTTPVALUE, name) == 0 && offsetof(HTTPVALUE, value) == sizeof(void*) &&
              sizeof(HTTPVALUE) == 2 * sizeof(void*));

namespace {

constexpr std::size_t markLength = 2;
constexpr char nameEnd[] = ": ";
constexpr char valueEnd[] = "\r\n";

constexpr char lineBreak[] = "<CR>";
constexpr std::size_t lineBreakLength = sizeof lineBreak - 1;

// The offset of the next mark, or `len`. Kept: the first character of a mark takes the one behind
// it along where that is not the second one.
std::size_t findMark(const char* text, std::size_t len, std::size_t at,
                     const char (&mark)[markLength + 1]) {
    while (at + 1 < len) {
        const void* const found = memchr(text + at, mark[0], len - 1 - at);
        if (found == nullptr) {
            break;
        }
        at = static_cast<std::size_t>(static_cast<const char*>(found) - text);
        if (text[at + 1] == mark[1]) {
            return at;
        }
        at += markLength;
    }
    return len;
}

// False without memory, or where the list does not take the pair.
bool addPair(QOR::TemplLinkedList<HTTPVALUE*>& list, std::string_view name,
             std::string_view value) {
    std::unique_ptr<HTTPVALUE> pair(new (std::nothrow) HTTPVALUE);
    if (pair == nullptr) {
        return false;
    }
    pair->name = strndup(name.data(), name.size());
    pair->value = HTTPVALUE::replaceCR(strndup(value.data(), value.size()));
    if (pair->name == nullptr || pair->value == nullptr || list.Add(pair.get()) == 0) {
        return false;
    }
    static_cast<void>(pair.release()); // the list's from now on
    return true;
}

} // namespace

HTTPVALUE::HTTPVALUE() = default;

HTTPVALUE::~HTTPVALUE() {
    free(name);
    free(value);
}

void HTTPVALUE::parseHttpValues(QOR::TemplLinkedList<HTTPVALUE*>& list, const char* text,
                                unsigned int len) {
    if (text == nullptr) {
        return;
    }
    std::size_t start = 0;
    for (;;) {
        const std::size_t colon = findMark(text, len, start, nameEnd);
        if (colon == len) {
            return;
        }
        const std::size_t valueStart = colon + markLength;
        const std::size_t lineEnd = findMark(text, len, valueStart, valueEnd);
        if (lineEnd == len || !addPair(list, {text + start, colon - start},
                                       {text + valueStart, lineEnd - valueStart})) {
            return;
        }
        start = lineEnd + markLength;
    }
}

HTTPVALUE* HTTPVALUE::findHttpValue(QOR::TemplLinkedList<HTTPVALUE*>& list, const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    for (auto* element = list.head; element != nullptr; element = element->next) {
        HTTPVALUE* const pair = element->data;
        if (pair != nullptr && pair->name != nullptr && strcmp(pair->name, name) == 0) {
            return pair;
        }
    }
    return nullptr;
}

char* HTTPVALUE::replaceCR(char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    char* out = text;
    for (const char* in = text; *in != '\0';) {
        if (strncmp(in, lineBreak, lineBreakLength) == 0) {
            *out++ = '\n';
            in += lineBreakLength;
        } else {
            *out++ = *in++;
        }
    }
    *out = '\0';
    return text;
}
