/* Talks to a web server over a connection of its own, then downloads the document. */
#include <stdio.h>
#include <string.h>

#include "qorinet.h"
#include "qorurl.h"

/* The size of the server's answer, of which the first line is shown; 0 where none came. */
static unsigned int ask(void* connection, const QORINET_URL* url) {
    char request[256];
    unsigned char part[1024];
    unsigned int size = 0;
    unsigned int count = sizeof part;
    const int length = snprintf(request, sizeof request, "GET /%s HTTP/1.0\r\n\r\n", url->path);
    if (length < 0 || (size_t)length >= sizeof request ||
        !QorInetTcpClientConnect(connection, url->host, url->port, 0) ||
        !QorInetTcpClientSend(connection, (const unsigned char*)request, (unsigned int)length)) {
        return 0;
    }
    while (QorInetTcpClientReceive(connection, part, &count)) { /* until the server closes */
        if (size == 0) {
            const unsigned char* const end = memchr(part, '\r', count);
            printf("%.*s\n", end != NULL ? (int)(end - part) : (int)count, (const char*)part);
        }
        size += count;
        count = sizeof part;
    }
    return size;
}

static int download(void* get, const char* url, const char* file) {
    signed char updated = 0;
    if (!QorInetHttpGetHttpRequest(get, url, file, &updated)) {
        fprintf(stderr, "no download: %s\n", QorInetHttpGetGetErrStr(get));
        remove(file); /* which may hold a piece */
        return 0;
    }
    puts(updated ? "downloaded" : "up to date");
    return 1;
}

int main(int argc, char** argv) {
    QORINET_URL url = {0};
    int done = 0;
    if (argc == 3 && QorInetUrlParse(argv[1], &url, 80)) {
        void* const connection = QorInetTcpClientCreate(); /* null is taken everywhere */
        void* const get = QorInetHttpGetCreate();
        done = ask(connection, &url) > 0 && download(get, argv[1], argv[2]);
        QorInetHttpGetClose(get);
        QorInetTcpClientClose(connection);
    }
    QorInetUrlFree(&url);
    return done ? 0 : 1;
}
