// HTTP dates: no text may make the arithmetic overflow, and what stands behind a date has no
// effect.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "httpvalue.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<char> text(size + 1);
    memcpy(text.data(), data, size);
    const long date = StrToDate(text.data());
    text.resize(strlen(text.data()));
    text.insert(text.end(), {'!', '\0'}); // would make no number longer
    require(date == StrToDate(text.data()));
    return 0;
}
