/* Prints the version that the headers tell, and what the library makes of a text. */
#include <stdio.h>

#include "base64.h"
#include "qorapi.h"

int main(void) {
    unsigned char text[8];
    unsigned int length = 0;
    QorInetB64Decode("aGVsbG8=", 0, text, &length);
    printf("%d.%d.%d %.*s\n", QORMON3_VERSION_MAJOR, QORMON3_VERSION_MINOR, QORMON3_VERSION_PATCH,
           (int)length, (const char*)text);
    return 0;
}
