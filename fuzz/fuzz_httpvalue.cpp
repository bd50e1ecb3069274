// Value lists over hostile bytes: each pair is found by its name, and holds no more than there was.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "httpvalue.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QOR::TemplLinkedList<HTTPVALUE*> list;
    HTTPVALUE::parseHttpValues(list, reinterpret_cast<const char*>(data),
                               static_cast<unsigned int>(size));
    std::size_t held = 0;
    for (auto* element = list.head; element != nullptr; element = element->next) {
        const HTTPVALUE& pair = *element->data;
        held += strlen(pair.name) + strlen(pair.value) + 4; // ": " and the line's end
        require(HTTPVALUE::findHttpValue(list, pair.name) != nullptr);
        require(strstr(pair.value, "<CR>") == nullptr);
    }
    require(held <= size);
    return 0;
}
