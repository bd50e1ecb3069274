/* C programs read these headers as they are and link the shared library. Each family has one check:
   that its names are exported unmangled and that its types mean the same on both sides. */
#include <stdio.h>
#include <string.h>

#include "base64.h"
#include "qoros.h"
#include "qorurl.h"
#include "utf8conv.h"

static int failures = 0;

static void check(int passed, const char* family) {
    if (!passed) {
        fprintf(stderr, "%s failed\n", family);
        ++failures;
    }
}

static int qorosWorks(void) {
    char text[4] = "";
    return strcpy_qor(text, sizeof text, "abcdef") == text && strcmp(text, "abc") == 0;
}

static int base64Works(void) {
    char text[5] = "";
    unsigned int length = 0;
    return QorInetB64Encode((const unsigned char*)"Man", 3, text, &length) == 4 &&
           strcmp(text, "TWFu") == 0 && length == 4 && CalcBase64Len(49) == 70;
}

static int utf8convWorks(void) {
    char text[4] = "";
    AnsiToUtf8("&#x20AC;", text, 3);
    return strcmp(text, "\xE2\x82\xAC") == 0;
}

static int qorurlWorks(void) {
    QORINET_URL url;
    int works = QorInetUrlParse("https://host:8443/path", &url, 80) == 1;
    works = works && url.secure == 1 && url.port == 8443 && strcmp(url.host, "host") == 0 &&
            strcmp(url.path, "path") == 0;
    QorInetUrlFree(&url);
    return works && url.host == NULL && sizeof url == 45;
}

int main(void) {
    check(qorosWorks(), "qoros");
    check(base64Works(), "base64");
    check(utf8convWorks(), "utf8conv");
    check(qorurlWorks(), "qorurl");
    return failures == 0 ? 0 : 1;
}
