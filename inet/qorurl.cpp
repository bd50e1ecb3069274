#include "qorurl.h"

#include <strings.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "qoros.h"

static_assert(sizeof(QORINET_URL) == 45, "callers share this layout");
static_assert(offsetof(QORINET_URL, reserved) == 0, "callers share this layout");
static_assert(offsetof(QORINET_URL, secure) == 8, "callers share this layout");
static_assert(offsetof(QORINET_URL, host) == 9, "callers share this layout");
static_assert(offsetof(QORINET_URL, port) == 17, "callers share this layout");
static_assert(offsetof(QORINET_URL, text1) == 21, "callers share this layout");
static_assert(offsetof(QORINET_URL, text2) == 29, "callers share this layout");
static_assert(offsetof(QORINET_URL, path) == 37, "callers share this layout");

namespace {

constexpr std::size_t portTextSize = 200;
constexpr unsigned int httpPort = 80;
constexpr unsigned int httpsPort = 443;

bool skipPrefix(const char*& text, const char* prefix) {
    const std::size_t length = strlen(prefix);
    if (strncasecmp(text, prefix, length) != 0) {
        return false;
    }
    text += length;
    return true;
}

void takeScheme(const char*& text, QORINET_URL* out) {
    if (skipPrefix(text, "https://")) {
        out->secure = 1;
        out->port = httpsPort;
    } else if (skipPrefix(text, "http://")) {
        out->port = httpPort;
    }
}

char* newText(const char* start, const char* end) {
    const auto length = static_cast<std::size_t>(end - start);
    char* const text = static_cast<char*>(calloc(length + 1, 1));
    if (text != nullptr) {
        memcpy(text, start, length);
    }
    return text;
}

unsigned int portBetween(const char* start, const char* end) {
    char text[portTextSize] = "";
    strncpy_qor(text, sizeof text, start, static_cast<std::size_t>(end - start));
    // As atol, but with a defined result for numbers that are too large.
    return static_cast<unsigned int>(strtol(text, nullptr, 10));
}

} // namespace

int QorInetUrlParse(const char* url, QORINET_URL* out, unsigned int defaultPort) {
    if (url == nullptr || *url == '\0' || out == nullptr) {
        return 0;
    }
    memset(out, 0, sizeof *out);
    out->port = defaultPort;
    takeScheme(url, out);

    // Kept: the first ":" is the port's, also where it belongs to the path or to an IPv6 address,
    // and the host before it is set even if the parse fails.
    const char* const colon = strchr(url, ':');
    if (colon != nullptr) {
        out->host = newText(url, colon);
    }
    const char* const slash = strchr(colon != nullptr ? colon : url, '/');
    if (slash == nullptr) {
        return 0;
    }
    if (colon != nullptr) {
        out->port = portBetween(colon + 1, slash);
    } else {
        out->host = newText(url, slash);
    }
    out->path = newText(slash + 1, slash + strlen(slash));
    return out->host != nullptr && out->path != nullptr ? 1 : 0;
}

void QorInetUrlFree(QORINET_URL* url) {
    if (url == nullptr) {
        return;
    }
    free(url->host);
    free(url->text1);
    free(url->text2);
    free(url->path);
    memset(url, 0, sizeof *url);
}
