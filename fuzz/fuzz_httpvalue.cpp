// Value lists over hostile bytes: each pair is found by its name, and holds no more than there was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "httpvalue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QOR::TemplLinkedList<HTTPVALUE*> list;
    HTTPVALUE::parseHttpValues(list, reinterpret_cast<const char*>(data),
                               static_cast<unsigned int>(size));
    std::size_t held = 0;
    for (auto* element = list.head; element != nullptr; element = element->next) {
        const HTTPVALUE& pair = *element->data;
        held += strlen(pair.name) + strlen(pair.value) + 4; // ": " and the line's end
        if (HTTPVALUE::findHttpValue(list, pair.name) == nullptr ||
            strstr(pair.value, "<CR>") != nullptr) {
            abort();
        }
    }
    if (held > size) {
        abort();
    }
    return 0;
}
