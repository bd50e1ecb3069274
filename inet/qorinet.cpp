// The plain functions: each looks after a null handle and passes on.
#include "qorinet.h"

#include <sys/socket.h>

#include <new>

#include "httpget.h"
#include "httpvalue.h"
#include "netcalls.h"
#include "proxyhost.h"
#include "tcpclient.h"

namespace {

TcpClient* clientOf(void* handle) {
    return static_cast<TcpClient*>(handle);
}

HttpGet* downloadOf(void* handle) {
    return static_cast<HttpGet*>(handle);
}

bool setFlagOption(int sock, int option) {
    const int on = 1;
    return netcalls::setOption(sock, SOL_SOCKET, option, &on, sizeof on);
}

} // namespace

void QorInetInitWsa(void) {}

int QorInetSetSockOpt(int sock, signed char reuse) {
    bool all = netcalls::refuseSigPipe(sock);
    const linger resetOnClose = {1, 0};
    all &= netcalls::setOption(sock, SOL_SOCKET, SO_LINGER, &resetOnClose, sizeof resetOnClose);
    if (reuse != 0) {
        all &= setFlagOption(sock, SO_REUSEADDR);
        all &= setFlagOption(sock, SO_REUSEPORT);
    }
    return all ? 1 : 0;
}

long QorInetStrToDate(const char* text) {
    return StrToDate(text);
}

void* QorInetTcpClientCreate(void) {
    return new (std::nothrow) TcpClient;
}

void QorInetTcpClientClose(void* handle) {
    delete clientOf(handle);
}

int QorInetTcpClientConnect(void* handle, const char* host, unsigned int port, signed char useSsl) {
    return handle == nullptr ? 0 : clientOf(handle)->Connect(host, port, useSsl);
}

int QorInetTcpClientDisconnect(void* handle) {
    return handle == nullptr ? 0 : clientOf(handle)->Disconnect();
}

int QorInetTcpClientReceive(void* handle, unsigned char* buf, unsigned int* len) {
    return handle == nullptr ? 0 : clientOf(handle)->Receive(buf, len);
}

int QorInetTcpClientSend(void* handle, const unsigned char* data, unsigned int len) {
    return handle == nullptr ? 0 : clientOf(handle)->Send(data, len);
}

int QorInetTcpClientWaitForReceive(void* handle, unsigned int seconds) {
    return handle == nullptr ? 0 : clientOf(handle)->WaitForReceive(seconds);
}

int QorInetTcpClientIsConnected(void* handle) {
    return handle == nullptr ? 0 : clientOf(handle)->connected;
}

void* QorInetHttpGetCreate(void) {
    return new (std::nothrow) HttpGet;
}

void QorInetHttpGetClose(void* handle) {
    delete downloadOf(handle);
}

void QorInetHttpGetSetProxy(void* handle, const char* host, unsigned int port) {
    HttpGet* const get = downloadOf(handle);
    if (get != nullptr && host != nullptr && proxyhost::set(get->proxyHost, host)) {
        get->proxyPort = port;
    }
}

void QorInetHttpGetSetProxyAuthentication(void* handle, const char* user, const char* password) {
    if (handle != nullptr) {
        downloadOf(handle)->SetProxyAuthentication(user, password);
    }
}

int QorInetHttpGetHttpRequest(void* handle, const char* url, const char* destFile,
                              signed char* updated) {
    return handle == nullptr ? 0 : downloadOf(handle)->HttpRequest(url, destFile, updated);
}

const char* QorInetHttpGetGetErrStr(void* handle) {
    return handle == nullptr ? "" : downloadOf(handle)->errorText;
}
