// The library as a C program uses it: that its names are exported unmangled, that its types mean
// the same on both sides, and the network clients through handles, also null ones, with a server
// of the program's own in a second thread.
#define _XOPEN_SOURCE 700

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base64.h"
#include "qorinet.h"
#include "qoros.h"
#include "qorurl.h"
#include "utf8conv.h"

static int failures = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: %s fails\n", __LINE__, #condition);                          \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static const char answer[] = "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n"
                             "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\nhello";

// Answers each connection after its first bytes, and ends with the listener.
static void* serve(void* listener) {
    char request[4096];
    int peer;
    while ((peer = accept(*(int*)listener, NULL, NULL)) >= 0) {
        if (recv(peer, request, sizeof request, 0) > 0) {
            CHECK(send(peer, answer, sizeof answer - 1, 0) == sizeof answer - 1);
            (void)recv(peer, request, sizeof request, 0); // until the client is done
        }
        close(peer);
    }
    return NULL;
}

static void useWhatNeedsNoServer(void) {
    unsigned char bytes[4] = "Man";
    char text[8] = "";
    unsigned int length = 4;
    signed char updated = 9;
    QORINET_URL url;
    CHECK(strcmp(strcpy_qor(text, 4, "abcdef"), "abc") == 0);
    CHECK(QorInetB64Encode(bytes, 3, text, NULL) == 4);
    AnsiToUtf8("&#x20AC;", text, 3);
    CHECK(strcmp(text, "\xE2\x82\xAC") == 0);
    QorInetUrlParse("https://host:8443/path", &url, 80);
    CHECK(sizeof url == 45 && url.port == 8443 && strcmp(url.path, "path") == 0);
    QorInetUrlFree(&url);
    QorInetInitWsa();
    CHECK(QorInetStrToDate("Sun, 06 Nov 1994 08:49:37 GMT") == 784111777);
    // Without a handle.
    QorInetTcpClientClose(NULL);
    CHECK(!QorInetTcpClientConnect(NULL, "127.0.0.1", 80, 0) && !QorInetTcpClientDisconnect(NULL));
    CHECK(!QorInetTcpClientReceive(NULL, bytes, &length) && length == 4);
    CHECK(!QorInetTcpClientSend(NULL, bytes, 3) && !QorInetTcpClientWaitForReceive(NULL, 0) &&
          !QorInetTcpClientIsConnected(NULL));
    QorInetHttpGetClose(NULL);
    QorInetHttpGetSetProxy(NULL, "proxy", 80);
    QorInetHttpGetSetProxyAuthentication(NULL, "user", "password");
    CHECK(!QorInetHttpGetHttpRequest(NULL, "http://h/", "file", &updated) && updated == 9);
    CHECK(*QorInetHttpGetGetErrStr(NULL) == '\0');
}

static void talk(unsigned short port) {
    unsigned char bytes[sizeof answer] = "hi";
    unsigned int length = sizeof bytes;
    void* const client = QorInetTcpClientCreate();
    CHECK(QorInetTcpClientConnect(client, "127.0.0.1", port, 0) == 1);
    CHECK(QorInetTcpClientIsConnected(client) && !QorInetTcpClientWaitForReceive(client, 0));
    CHECK(QorInetTcpClientSend(client, bytes, 2) && QorInetTcpClientWaitForReceive(client, 10));
    CHECK(QorInetTcpClientReceive(client, bytes, &length) == 1);
    CHECK(length == sizeof answer - 1 && memcmp(bytes, answer, length) == 0);
    CHECK(QorInetTcpClientDisconnect(client) == 1 && QorInetTcpClientIsConnected(client) == 0);
    QorInetTcpClientClose(client);
}

static void fetch(unsigned short port) {
    char path[] = "/tmp/qormon3-XXXXXX", host[129] = "", text[8] = "";
    const char* const url = "http://127.0.0.1:1/"; // where nobody listens
    signed char updated = 0;
    void* const get = QorInetHttpGetCreate();
    const int file = mkstemp(path);
    // The proxy is what is asked, as long as one is set; what can't be one changes nothing.
    QorInetHttpGetSetProxyAuthentication(get, "user", "password");
    QorInetHttpGetSetProxy(get, "127.0.0.1", port);
    QorInetHttpGetSetProxy(get, memset(host, 'h', 128), 1);
    QorInetHttpGetSetProxy(get, NULL, 1);
    CHECK(QorInetHttpGetHttpRequest(get, url, path, &updated) == 1 && updated == 1);
    CHECK(read(file, text, sizeof text) == 5 && strcmp(text, "hello") == 0);
    QorInetHttpGetSetProxy(get, "", 1);
    CHECK(QorInetHttpGetHttpRequest(get, url, path, &updated) == 0);
    CHECK(strcmp(QorInetHttpGetGetErrStr(get), "Connect to 127.0.0.1 failed") == 0);
    QorInetHttpGetClose(get);
    close(file);
    unlink(path);
}

int main(void) {
    pthread_t server;
    struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(0x7F000001)};
    socklen_t size = sizeof address;
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    CHECK(QorInetSetSockOpt(listener, 1) == 1);
    CHECK(bind(listener, (struct sockaddr*)&address, size) == 0 && listen(listener, 4) == 0);
    CHECK(getsockname(listener, (struct sockaddr*)&address, &size) == 0);
    CHECK(pthread_create(&server, NULL, serve, &listener) == 0);
    useWhatNeedsNoServer();
    talk(ntohs(address.sin_port));
    fetch(ntohs(address.sin_port));
    shutdown(listener, SHUT_RDWR); // accept gives up
    pthread_join(server, NULL);
    close(listener);
    return failures != 0;
}
