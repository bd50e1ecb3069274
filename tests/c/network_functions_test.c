/* The network clients as a C program uses them: through handles, with a server of its own in a
   second thread, and with null handles. */
#define _XOPEN_SOURCE 700

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "qorinet.h"

static int failures = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: %s fails\n", __LINE__, #condition);                          \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

static const char answer[] = "HTTP/1.0 200 OK\r\n"
                             "Content-Length: 5\r\n"
                             "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\nhello";

/* Answers each connection after its first bytes, and ends with the listener. */
static void* serve(void* listener) {
    char request[4096];
    int peer;
    while ((peer = accept(*(int*)listener, NULL, NULL)) >= 0) {
        if (recv(peer, request, sizeof request, 0) > 0) {
            CHECK(send(peer, answer, sizeof answer - 1, 0) == sizeof answer - 1);
            (void)recv(peer, request, sizeof request, 0); /* until the client is done */
        }
        close(peer);
    }
    return NULL;
}

static unsigned short listenOnLoopback(int* listener) {
    struct sockaddr_in address;
    socklen_t size = sizeof address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    CHECK(inet_pton(AF_INET, "127.0.0.1", &address.sin_addr) == 1);
    *listener = socket(AF_INET, SOCK_STREAM, 0);
    CHECK(QorInetSetSockOpt(*listener, 1) == 1);
    CHECK(bind(*listener, (struct sockaddr*)&address, size) == 0);
    CHECK(listen(*listener, 4) == 0);
    CHECK(getsockname(*listener, (struct sockaddr*)&address, &size) == 0);
    return ntohs(address.sin_port);
}

static void takeNullHandles(void) {
    unsigned char bytes[4] = "abc";
    unsigned int length = 4;
    signed char updated = 9;
    QorInetTcpClientClose(NULL);
    CHECK(QorInetTcpClientConnect(NULL, "127.0.0.1", 80, 0) == 0);
    CHECK(QorInetTcpClientDisconnect(NULL) == 0);
    CHECK(QorInetTcpClientReceive(NULL, bytes, &length) == 0 && length == 4);
    CHECK(QorInetTcpClientSend(NULL, bytes, 3) == 0);
    CHECK(QorInetTcpClientWaitForReceive(NULL, 0) == 0);
    CHECK(QorInetTcpClientIsConnected(NULL) == 0);
    QorInetHttpGetClose(NULL);
    QorInetHttpGetSetProxy(NULL, "proxy", 80);
    QorInetHttpGetSetProxyAuthentication(NULL, "user", "password");
    CHECK(QorInetHttpGetHttpRequest(NULL, "http://h/", "file", &updated) == 0 && updated == 9);
    CHECK(strcmp(QorInetHttpGetGetErrStr(NULL), "") == 0);
}

static void talk(unsigned short port) {
    unsigned char bytes[sizeof answer];
    unsigned int length = sizeof bytes;
    void* const client = QorInetTcpClientCreate();
    CHECK(QorInetTcpClientSend(client, (const unsigned char*)"hi", 2) == 0);
    CHECK(QorInetTcpClientConnect(client, "127.0.0.1", port, 0) == 1);
    CHECK(QorInetTcpClientIsConnected(client) == 1);
    CHECK(QorInetTcpClientWaitForReceive(client, 0) == 0);
    CHECK(QorInetTcpClientSend(client, (const unsigned char*)"hi", 2) == 1);
    CHECK(QorInetTcpClientWaitForReceive(client, 10) == 1);
    CHECK(QorInetTcpClientReceive(client, bytes, &length) == 1);
    CHECK(length == sizeof answer - 1 && memcmp(bytes, answer, length) == 0);
    CHECK(QorInetTcpClientDisconnect(client) == 1);
    CHECK(QorInetTcpClientIsConnected(client) == 0);
    QorInetTcpClientClose(client);
}

/* Asks for a URL; 1 when that gave the server's text. */
static int download(void* get, const char* url, const char* path) {
    char text[8] = "";
    FILE* file;
    signed char updated = 0;
    if (QorInetHttpGetHttpRequest(get, url, path, &updated) != 1 || updated != 1) {
        return 0;
    }
    file = fopen(path, "rb");
    if (file != NULL) {
        CHECK(fgets(text, sizeof text, file) != NULL);
        fclose(file);
    }
    return strcmp(text, "hello") == 0;
}

static void fetch(unsigned short port) {
    char path[] = "/tmp/qormon3-XXXXXX";
    char url[64], host[129];
    void* const get = QorInetHttpGetCreate();
    close(mkstemp(path));
    snprintf(url, sizeof url, "http://127.0.0.1:%u/", port);
    CHECK(download(get, url, path));
    CHECK(strcmp(QorInetHttpGetGetErrStr(get), "") == 0);

    /* The proxy is what is asked, as long as one is set; what can't be one changes nothing. */
    QorInetHttpGetSetProxyAuthentication(get, "user", "password");
    QorInetHttpGetSetProxy(get, "127.0.0.1", port);
    memset(host, 'h', sizeof host - 1);
    host[sizeof host - 1] = '\0';
    QorInetHttpGetSetProxy(get, host, 1);
    QorInetHttpGetSetProxy(get, NULL, 1);
    CHECK(download(get, "http://127.0.0.1:1/", path));
    QorInetHttpGetSetProxy(get, "", 1);
    CHECK(!download(get, "http://127.0.0.1:1/", path));
    CHECK(strcmp(QorInetHttpGetGetErrStr(get), "Connect to 127.0.0.1 failed") == 0);
    host[127] = '\0';
    QorInetHttpGetSetProxy(get, host, port);
    CHECK(!download(get, url, path));
    QorInetHttpGetClose(get);
    unlink(path);
}

int main(void) {
    pthread_t server;
    int listener = -1;
    const unsigned short port = listenOnLoopback(&listener);
    QorInetInitWsa();
    CHECK(QorInetStrToDate("Sun, 06 Nov 1994 08:49:37 GMT") == 784111777);
    CHECK(QorInetStrToDate("yesterday") == -1);
    takeNullHandles();
    if (pthread_create(&server, NULL, serve, &listener) != 0) {
        return 1;
    }
    talk(port);
    fetch(port);
    shutdown(listener, SHUT_RDWR); /* accept gives up */
    pthread_join(server, NULL);
    close(listener);
    return failures != 0;
}
