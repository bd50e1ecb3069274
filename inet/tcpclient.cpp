#include "tcpclient.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "netcalls.h"
#include "qorinet.h"
#include "qoros.h"

static_assert(offsetof(TcpClient, ssl) == 0 && offsetof(TcpClient, timeout) == 1 &&
                  offsetof(TcpClient, connected) == 5 && offsetof(TcpClient, hostName) == 6 &&
                  offsetof(TcpClient, port) == 134 && offsetof(TcpClient, lastError) == 138 &&
                  offsetof(TcpClient, sock) == 142 && offsetof(TcpClient, connecting) == 146 &&
                  offsetof(TcpClient, watchdogDone) == 150 && sizeof(TcpClient) == 154,
              "programs access the members at these places");

namespace {

constexpr unsigned int defaultTimeout = 15; // s

constexpr unsigned int errorNone = 0;
constexpr unsigned int errorConnect = 1;
constexpr unsigned int errorReceiveTimeout = 3;

constexpr std::uint32_t watchdogStep = 100; // ms between two looks at the connecting flag
constexpr std::uint32_t callerStep = 10;    // ms between two looks at the watchdog's flag

constexpr int sendRetries = 3;

// The values of the connecting flag. Whoever moves it away from connectRuns owns the socket: the
// watchdog by connectCut, before it closes; the caller by connectEnded, after which the watchdog
// leaves the connection alone.
constexpr unsigned char connectEnded = 0;
constexpr unsigned char connectRuns = 1;
constexpr unsigned char connectCut = 2;

// The flags that the two threads share are unaligned words of the packed object, which no system
// accesses atomically. Their small values live in one byte, which always can be.
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the first byte of a flag has to be its lowest"
#endif
unsigned char* sharedByte(TcpClient* client, std::size_t offset) {
    return reinterpret_cast<unsigned char*>(client) + offset;
}

unsigned char* connectingFlag(TcpClient* client) {
    return sharedByte(client, offsetof(TcpClient, connecting));
}

unsigned char* doneFlag(TcpClient* client) {
    return sharedByte(client, offsetof(TcpClient, watchdogDone));
}

// Watches a connect; true when it still runs at the time-out.
bool outlastsTimeout(TcpClient* client) {
    const std::uint64_t limit = std::uint64_t{client->timeout} * 1000;
    std::uint64_t elapsed = 0; // ms
    do {
        if (__atomic_load_n(connectingFlag(client), __ATOMIC_ACQUIRE) != connectRuns) {
            return false;
        }
        QorOsSleep(watchdogStep);
        elapsed += watchdogStep;
    } while (elapsed < limit);
    return true;
}

// The watchdog's claim on the socket; false when the connect has ended in the last moment.
bool claimCut(TcpClient* client) {
    unsigned char expected = connectRuns;
    return __atomic_compare_exchange_n(connectingFlag(client), &expected, connectCut, false,
                                       __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

// The caller's side: ends the connecting state; true when the watchdog was faster.
bool endConnecting(TcpClient* client) {
    return __atomic_exchange_n(connectingFlag(client), connectEnded, __ATOMIC_ACQ_REL) ==
           connectCut;
}

void awaitWatchdog(TcpClient* client) {
    while (__atomic_load_n(doneFlag(client), __ATOMIC_ACQUIRE) != 1) {
        QorOsSleep(callerStep);
    }
}

bool startWatchdog(TcpClient* client) {
    client->connecting = connectRuns;
    client->watchdogDone = 0;
    return netcalls::startThread(TcpClient::connectThread, client);
}

bool connectToAddress(int sock, QorIpAddr* addr, unsigned int port) {
    sockaddr_in6 buffer = {};
    static_assert(sizeof buffer == 28 && sizeof(sockaddr_in) == 16,
                  "as the address class takes it");
    sockaddr* const address = reinterpret_cast<sockaddr*>(&buffer);
    addr->InitSockAddr(address, sizeof buffer, static_cast<unsigned short>(port));
    const socklen_t length = addr->length == 4 ? sizeof(sockaddr_in) : sizeof buffer;
    return netcalls::connectSocket(sock, address, length) == 0;
}

signed char failConnect(TcpClient* client) {
    if (client->sock >= 0) {
        close(client->sock);
    }
    client->sock = -1;
    client->lastError = errorConnect;
    return 0;
}

// Stores a host that may stand in the member itself, also behind its begin. Gives the text to
// resolve, which is the whole one where it did not come from the member.
const char* storeHost(TcpClient* client, const char* host) {
    char* const member = client->hostName;
    const std::size_t size = sizeof client->hostName;
    // In numbers: pointers into different objects have no order.
    const std::uintptr_t at =
        reinterpret_cast<std::uintptr_t>(host) - reinterpret_cast<std::uintptr_t>(member);
    if (at >= size) {
        strcpy_qor(member, size, host);
        return host;
    }
    memmove(member, host, size - at);
    member[size - 1] = '\0';
    return member;
}

// Loads the first address of a family into addr; false when the list has none.
bool firstOfFamily(const addrinfo* list, int family, QorIpAddr* addr) {
    while (list != nullptr && list->ai_family != family) {
        list = list->ai_next;
    }
    if (list == nullptr) {
        return false;
    }
    sockaddr_storage storage = {};
    const std::size_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    memcpy(&storage, list->ai_addr, size);
    return addr->SetFromSockAddr(&storage);
}

// The wait before a receive: true when there is something to read. Otherwise len and the members
// say why not.
bool awaitBytes(TcpClient* client, unsigned int* len) {
    int ready = 0;
    for (unsigned int waits = 0; ready == 0 && waits < client->timeout; ++waits) {
        if (client->connected == 0) {
            return false;
        }
        ready = netcalls::waitReadable(client->sock, 1);
    }
    if (ready == 0 && client->connected != 0) {
        client->lastError = errorReceiveTimeout;
        client->connected = 0;
        *len = 0;
    }
    return ready > 0;
}

} // namespace

TcpClient::TcpClient()
    : ssl(0),
      timeout(defaultTimeout),
      connected(0),
      hostName(),
      port(0),
      lastError(errorNone),
      sock(-1),
      connecting(connectEnded),
      watchdogDone(0) {
    QorInetInitWsa();
}

TcpClient::~TcpClient() {
    Disconnect();
}

signed char TcpClient::Connect(const char* host, unsigned int serverPort, signed char useSsl) {
    if (host == nullptr) {
        return 0;
    }
    host = storeHost(this, host);
    QorIpAddr addr;
    if (addr.SetIpAddr(host)) {
        return Connect(&addr, serverPort, useSsl);
    }
    addrinfo* list = nullptr;
    if (netcalls::resolveHost(host, &list) != 0) {
        return 0;
    }
    signed char done = 0;
    for (const int family : {AF_INET, AF_INET6}) {
        if (done == 0 && firstOfFamily(list, family, &addr)) {
            done = Connect(&addr, serverPort, useSsl);
        }
    }
    freeaddrinfo(list);
    return done;
}

signed char TcpClient::Connect(QorIpAddr* addr, unsigned int serverPort, signed char useSsl) {
    if (addr == nullptr) {
        return 0;
    }
    ssl = useSsl;
    port = serverPort;
    sock = netcalls::openStreamSocket(addr->GetAF());
    if (sock < 0) {
        return 0;
    }
    QorInetSetSockOpt(sock, 0);

    // Without the watchdog the time-out could not be kept. The member belongs to the watchdog as
    // soon as it has cut the connect, so the descriptor is copied before.
    const int own = sock;
    if (!startWatchdog(this)) {
        connecting = connectEnded;
        return failConnect(this);
    }
    const bool stands = connectToAddress(own, addr, serverPort);
    const bool cut = endConnecting(this);
    if (stands && !cut) {
        connected = 1;
    }
    awaitWatchdog(this);
    return stands && !cut ? static_cast<signed char>(1) : failConnect(this);
}

// Closing the socket is what makes a pending connect fail. Nothing of the object is touched behind
// the last store: the caller may destroy it from then on.
void* TcpClient::connectThread(void* self) {
    TcpClient* const client = static_cast<TcpClient*>(self);
    if (outlastsTimeout(client) && claimCut(client)) {
        client->Disconnect();
    }
    __atomic_store_n(doneFlag(client), static_cast<unsigned char>(1), __ATOMIC_RELEASE);
    return nullptr;
}

signed char TcpClient::Disconnect() {
    if (sock >= 0) {
        shutdown(sock, SHUT_RDWR);
        close(sock); // not repeated after a signal: the descriptor is gone in any case
        sock = -1;
        connected = 0;
    }
    return 1;
}

signed char TcpClient::Send(const unsigned char* data, unsigned int len) {
    if (sock < 0) {
        return 0;
    }
    std::ptrdiff_t offset = 0;
    std::ptrdiff_t remaining = len;
    for (int retries = 0; remaining != 0;) {
        errno = 0;
        const ssize_t sent =
            netcalls::sendBytes(sock, data + offset, static_cast<std::size_t>(remaining));
        const bool failed = errno != 0 || sent < 0; // kept: by a signal, too
        if (failed && (errno != EAGAIN || retries++ == sendRetries)) {
            return 0;
        }
        // Kept: a retry after -1 begins one byte earlier and sends one byte more; at the begin of
        // the data that is the byte before it.
        offset += sent;
        remaining -= sent;
    }
    return 1;
}

signed char TcpClient::Receive(unsigned char* buf, unsigned int* len) {
    return receive(buf, len, 0, 1);
}

signed char TcpClient::Peek(unsigned char* buf, unsigned int* len) {
    // Kept: no MSG_PEEK, the bytes are taken out of the stream.
    return receive(buf, len, 0, 0);
}

signed char TcpClient::receive(unsigned char* buf, unsigned int* len, unsigned int flags,
                               signed char wait) {
    if (sock < 0 || len == nullptr) {
        return 0;
    }
    lastError = errorNone;
    if (wait != 0 && !awaitBytes(this, len)) {
        return 0;
    }
    const ssize_t got = recv(sock, buf, *len, static_cast<int>(flags));
    *len = got < 0 ? 0 : static_cast<unsigned int>(got);
    if (got > 0) {
        return 1;
    }
    if (got == 0 || errno == ECONNRESET || errno == ENOTCONN || errno == ETIMEDOUT) {
        connected = 0;
    }
    return 0;
}

signed char TcpClient::WaitForReceive(unsigned int seconds) {
    return sock >= 0 && netcalls::waitReadable(sock, seconds) == 1 ? 1 : 0;
}

void TcpClient::SetKeepAlive() {
#if defined(TCP_NOOPT)
    // Kept: the number that callers have always sent here is not a keep-alive switch.
    static_assert(TCP_NOOPT == 8, "option 8 on every system that has it");
    if (sock >= 0) {
        const int on = 1;
        netcalls::setOption(sock, IPPROTO_TCP, TCP_NOOPT, &on, sizeof on);
    }
#endif
}

signed char TcpClient::StartSSL() {
    if (connected == 0) {
        return 0;
    }
    ssl = 1;
    return 1;
}

signed char TcpClient::sslInit() {
    return 1;
}

signed char TcpClient::SetOption(TQorTcpClientOptions, void*, unsigned int) {
    return 0;
}

signed char TcpClient::GetOption(TQorTcpClientOptions, void*, unsigned int*) {
    return 0;
}
