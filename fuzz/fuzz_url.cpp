// URL parsing over hostile text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "qorurl.h"
#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<char> text(size + 1);
    memcpy(text.data(), data, size);
    QORINET_URL url = {};
    const bool parsed = QorInetUrlParse(text.data(), &url, 8080) == 1;
    require(!parsed || (url.host != nullptr && url.path != nullptr &&
                        strlen(url.host) + strlen(url.path) < strlen(text.data())));
    QorInetUrlFree(&url);
    return 0;
}
