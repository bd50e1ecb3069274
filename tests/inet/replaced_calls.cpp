#include "replaced_calls.h"

#include "inet/netcalls.h"

Calls calls;

// In place of the library's own. The qualified names make sure that it declares them like this.

int netcalls::resolveHost(const char* host, addrinfo** list) {
    return calls.resolve(host, list);
}

void netcalls::freeResolved(addrinfo* list) {
    calls.release(list);
}

int netcalls::connectSocket(int sock, const sockaddr* address, socklen_t length) {
    return calls.connectTo(sock, address, length);
}

ssize_t netcalls::sendBytes(int sock, const void* data, std::size_t size) {
    return calls.transmit(sock, data, size);
}

ssize_t netcalls::receiveBytes(int sock, void* data, std::size_t size, int flags) {
    return calls.take(sock, data, size, flags);
}

bool netcalls::setOption(int sock, int level, int option, const void* value, socklen_t size) {
    return calls.setOption(sock, level, option, value, size) == 0;
}

bool netcalls::beginThread(void* (*routine)(void*), void* argument) {
    return calls.begin(routine, argument);
}

void netcalls::pauseFor(unsigned int milliseconds) {
    calls.pause(milliseconds);
}
