#include "basicauth.h"

#include <algorithm>
#include <cstring>

#include "base64.h"
#include "qoros.h"

namespace basicauth {

bool encode(const char* user, const char* password, std::size_t limit,
            char (&encoded)[encodedSize]) {
    if (strlen(user) + strlen(password) > std::min(limit, longestTexts)) {
        return false;
    }
    char joined[longestTexts + sizeof ":"];
    const int length = sprintf_qor(joined, sizeof joined, "%s:%s", user, password);
    QorInetB64Encode(reinterpret_cast<const unsigned char*>(joined), length, encoded, nullptr);
    return true;
}

} // namespace basicauth
