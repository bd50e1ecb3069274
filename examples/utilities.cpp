// A list of names, joined into one text, as Base64 and back, and text for a UTF-8 reader.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base64.h"
#include "templlinkedlist.h"
#include "tfstring.h"
#include "utf8conv.h"

namespace {

using Names = QOR::TemplLinkedList<char*>;

// The list owns the copy, unless it can't take it.
bool add(Names& names, const char* name) {
    char* const copy = strdup(name);
    if (copy == nullptr || names.Add(copy) == 0) {
        free(copy);
        return false;
    }
    return true;
}

// A text for the caller to free; null without memory.
char* join(const Names& names) {
    char* text = nullptr;
    QOR::TFstring builder(&text, 16);
    for (auto* element = names.head; element != nullptr; element = element->next) {
        char* const before = text; // to be released where the text can't grow
        if (builder.Add(element->data) == 0 || builder.Add("\n") == 0) {
            if (text == nullptr) {
                free(before);
            }
            return nullptr;
        }
    }
    return text;
}

} // namespace

int main() {
    Names names;
    names.FreeDataOnExit();
    if (!add(names, "first") || !add(names, "second")) {
        return 1;
    }
    char* const text = join(names);
    if (text == nullptr) {
        return 1;
    }
    const auto length = static_cast<unsigned int>(std::strlen(text));
    std::printf("%u names in %u characters\n", names.count, length);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text);
    unsigned char coded[64];
    unsigned char decoded[64];
    const unsigned int codedSize = Base64Encode(bytes, length, coded, sizeof coded);
    const unsigned int size = Base64Decode(coded, codedSize, decoded, sizeof decoded);
    std::printf("%.*s, the same again: %d\n", static_cast<int>(codedSize),
                reinterpret_cast<const char*>(coded),
                size == length && std::memcmp(decoded, text, size) == 0);
    free(text);

    char utf8[32];
    AnsiToUtf8("Gr&#252;n &#x20AC;5", utf8, sizeof utf8 - 1);
    std::printf("%s\n", utf8);
    return 0;
}
