/* C programs read these headers as they are and link the shared library. Each family has one check:
   that its names are exported unmangled and that its types mean the same on both sides. */
#include <stdio.h>
#include <string.h>

#include "base64.h"
#include "qoros.h"
#include "qorurl.h"
#include "utf8conv.h"

static int failed(const char* family, int passed) {
    if (!passed) {
        fprintf(stderr, "%s failed\n", family);
    }
    return !passed;
}

int main(void) {
    char text[8] = "";
    unsigned int length = 0;
    QORINET_URL url;
    int failures = failed("qoros", strcmp(strcpy_qor(text, 4, "abcdef"), "abc") == 0);
    QorInetB64Encode((const unsigned char*)"Man", 3, text, &length);
    failures += failed("base64", strcmp(text, "TWFu") == 0 && length == 4);
    AnsiToUtf8("&#x20AC;", text, 3);
    failures += failed("utf8conv", strcmp(text, "\xE2\x82\xAC") == 0);
    QorInetUrlParse("https://host:8443/path", &url, 80);
    failures += failed("qorurl", sizeof url == 45 && url.port == 8443 && !strcmp(url.path, "path"));
    QorInetUrlFree(&url);
    return failures;
}
