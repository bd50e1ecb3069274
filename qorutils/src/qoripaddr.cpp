#include "qoripaddr.h"

#include <netinet/in.h>

#include <cstdlib>
#include <cstring>

#include <algorithm>

#include "ip_sizes.h"
#include "qoros.h"

namespace {

constexpr std::size_t textBytes = 64;
constexpr unsigned char mappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
constexpr unsigned char localHostV4[ipV4Bytes] = {127, 0, 0, 1};
constexpr unsigned char localHostV6[ipV6Bytes] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr unsigned char anyHost[ipV6Bytes] = {};

// Programs lay the class out for themselves. Both compilers know the offsets in a class with a
// virtual destructor, though the standard leaves that to them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(QorIpAddr, address) == sizeof(void*) &&
                  offsetof(QorIpAddr, length) == sizeof(void*) + 16 &&
                  offsetof(QorIpAddr, text) == sizeof(void*) + 24 &&
                  sizeof(QorIpAddr) == 2 * sizeof(void*) + 24,
              "programs access the members at these places");
#pragma GCC diagnostic pop

// The number that 4 bytes in network order stand for.
unsigned int loadHostOrder(const unsigned char* bytes) {
    return static_cast<unsigned int>(bytes[0]) << 24 | static_cast<unsigned int>(bytes[1]) << 16 |
           static_cast<unsigned int>(bytes[2]) << 8 | bytes[3];
}

// The bytes may be the object's own.
void setBytes(QorIpAddr& addr, const unsigned char* bytes, unsigned int count) {
    memmove(addr.address, bytes, count);
    memset(addr.address + count, 0, sizeof addr.address - count);
    addr.length = count;
}

// How many of the 16 bytes the length covers: it may be anything, since it is taken unchecked.
std::size_t usedBytes(const QorIpAddr& addr) {
    return std::min(addr.length, ipV6Bytes);
}

bool hasIpV4Number(const QorIpAddr& addr) {
    return addr.length == ipV4Bytes || addr.IsV4Mapped();
}

// IPv4 against IPv4, or against IPv4-mapped in either direction: the numbers are what counts.
bool comparedAsIpV4(const QorIpAddr& left, const QorIpAddr& right) {
    return (left.length == ipV4Bytes && hasIpV4Number(right)) ||
           (left.IsV4Mapped() && right.length == ipV4Bytes);
}

// Below, at or above 0 in `order`; false where the two can't be ordered. Kept: all four comparisons
// are false then, those that include equality too.
bool findOrder(const QorIpAddr& left, const QorIpAddr& right, int& order) {
    if (left.length == 0) {
        return false;
    }
    if (comparedAsIpV4(left, right)) {
        const unsigned int leftNumber = left.GetIpV4Addr();
        const unsigned int rightNumber = right.GetIpV4Addr();
        order = leftNumber < rightNumber ? -1 : leftNumber > rightNumber;
        return true;
    }
    if (left.length != right.length) {
        return false;
    }
    order = memcmp(left.address, right.address, usedBytes(left));
    return true;
}

// Writes the text, which is much shorter than the room; false, with nothing written, for an unset
// address.
bool formatAddress(const QorIpAddr& addr, char (&out)[textBytes]) {
    switch (addr.length) {
    case ipV4Bytes:
        return qor_inet_ntop4(addr.address, out, textBytes) != nullptr;
    case ipV6Bytes:
        return qor_inet_ntop6(addr.address, out, textBytes) != nullptr;
    default:
        return false;
    }
}

} // namespace

QorIpAddr::QorIpAddr() : address{}, length(0), text(nullptr) {}

QorIpAddr::QorIpAddr(unsigned int hostOrder) : QorIpAddr() {
    *this = hostOrder;
}

QorIpAddr::QorIpAddr(const char* addressText) : QorIpAddr() {
    SetIpAddr(addressText);
}

QorIpAddr::QorIpAddr(const unsigned char* bytes, unsigned int len) : QorIpAddr() {
    if (bytes != nullptr) {
        memcpy(address, bytes, std::min(len, ipV6Bytes));
        length = len;
    }
}

QorIpAddr::QorIpAddr(const QorIpAddr& other) : length(other.length), text(nullptr) {
    memcpy(address, other.address, sizeof address);
}

QorIpAddr::~QorIpAddr() {
    free(text);
}

bool QorIpAddr::SetIpAddr(const char* addressText) {
    return SetIpV4Addr(addressText) || SetIpV6Addr(addressText);
}

bool QorIpAddr::SetIpV4Addr(const char* addressText) {
    Clear();
    if (qor_inet_pton4(addressText, address) == 0) {
        return false;
    }
    length = ipV4Bytes;
    return true;
}

bool QorIpAddr::SetIpV6Addr(const char* addressText) {
    Clear();
    if (qor_inet_pton6(addressText, address) == 0) {
        return false;
    }
    length = ipV6Bytes;
    return true;
}

bool QorIpAddr::SetIpAddrFromData(const unsigned char* bytes, unsigned int len) {
    if (bytes == nullptr || (len != ipV4Bytes && len != ipV6Bytes)) {
        Clear();
        return false;
    }
    setBytes(*this, bytes, len);
    return true;
}

bool QorIpAddr::SetIpAddrFromMif(const unsigned char* value, unsigned int len) {
    if (SetIpAddrFromMifV6(value, len) || SetIpAddrFromMifV4(value, len)) {
        return true;
    }
    Clear();
    return false;
}

// Kept, here and in the next one: unlike the other setters they leave the object when they fail.
bool QorIpAddr::SetIpAddrFromMifV4(const unsigned char* value, unsigned int len) {
    if (value == nullptr || len != ipV4Bytes) {
        return false;
    }
    const unsigned char bytes[ipV4Bytes] = {value[3], value[2], value[1], value[0]};
    setBytes(*this, bytes, ipV4Bytes);
    return true;
}

bool QorIpAddr::SetIpAddrFromMifV6(const unsigned char* value, unsigned int len) {
    if (value == nullptr || len != ipV6Bytes) {
        return false;
    }
    setBytes(*this, value, ipV6Bytes);
    return true;
}

void QorIpAddr::SetAnyHostV4() {
    setBytes(*this, anyHost, ipV4Bytes);
}

void QorIpAddr::SetAnyHostV6() {
    setBytes(*this, anyHost, ipV6Bytes);
}

void QorIpAddr::SetLocalHostV4() {
    setBytes(*this, localHostV4, ipV4Bytes);
}

void QorIpAddr::SetLocalHostV6() {
    setBytes(*this, localHostV6, ipV6Bytes);
}

bool QorIpAddr::SetFromSockAddr(const sockaddr_storage* sa) {
    Clear();
    if (sa == nullptr) {
        return false;
    }
    // Copied out, since what the caller has may be any of the three types.
    if (sa->ss_family == AF_INET) {
        sockaddr_in v4;
        memcpy(&v4, sa, sizeof v4);
        memcpy(address, &v4.sin_addr, ipV4Bytes);
        length = ipV4Bytes;
    } else if (sa->ss_family == AF_INET6) {
        sockaddr_in6 v6;
        memcpy(&v6, sa, sizeof v6);
        memcpy(address, &v6.sin6_addr, ipV6Bytes);
        length = ipV6Bytes;
    }
    return length != 0;
}

bool QorIpAddr::operator=(const char* addressText) {
    return SetIpAddr(addressText);
}

bool QorIpAddr::operator=(unsigned int hostOrder) {
    const unsigned char bytes[ipV4Bytes] = {
        static_cast<unsigned char>(hostOrder >> 24), static_cast<unsigned char>(hostOrder >> 16),
        static_cast<unsigned char>(hostOrder >> 8), static_cast<unsigned char>(hostOrder)};
    setBytes(*this, bytes, ipV4Bytes);
    return true;
}

QorIpAddr& QorIpAddr::operator=(const QorIpAddr& other) {
    if (this == &other) {
        return *this;
    }
    // Kept: what stands behind a shorter address stays, and operator[] shows its first byte.
    memcpy(address, other.address, usedBytes(other));
    length = other.length;
    return *this;
}

void QorIpAddr::Clear() {
    memset(address, 0, sizeof address);
    length = 0;
}

bool QorIpAddr::ConvertV6ToIpV4() {
    if (!IsV4Mapped()) {
        return false;
    }
    // Kept: the bytes behind the four stay.
    memcpy(address, address + sizeof mappedPrefix, ipV4Bytes);
    length = ipV4Bytes;
    return true;
}

bool QorIpAddr::ConvertV4ToIpV6() {
    if (length == ipV4Bytes) {
        memcpy(address + sizeof mappedPrefix, address, ipV4Bytes);
        memcpy(address, mappedPrefix, sizeof mappedPrefix);
        length = ipV6Bytes;
    }
    return true; // kept: also where there was nothing to convert
}

bool QorIpAddr::IsV4Mapped() const {
    return length == ipV6Bytes && memcmp(address, mappedPrefix, sizeof mappedPrefix) == 0;
}

unsigned int QorIpAddr::GetIpV4Addr() const {
    if (length == ipV4Bytes) {
        return loadHostOrder(address);
    }
    return IsV4Mapped() ? loadHostOrder(address + sizeof mappedPrefix) : 0;
}

bool QorIpAddr::IsConfigured() const {
    return GetAF() != 0 && memcmp(address, anyHost, length) != 0;
}

bool QorIpAddr::IsLocalHost() const {
    return (length == ipV4Bytes && memcmp(address, localHostV4, ipV4Bytes) == 0) ||
           (length == ipV6Bytes && memcmp(address, localHostV6, ipV6Bytes) == 0);
}

int QorIpAddr::GetAF() const {
    switch (length) {
    case ipV4Bytes:
        return AF_INET;
    case ipV6Bytes:
        return AF_INET6;
    default:
        return 0;
    }
}

void QorIpAddr::InitSockAddr(sockaddr* sa, unsigned long size, unsigned short port) const {
    if (sa == nullptr) {
        return;
    }
    memset(sa, 0, size);
    // The fields are stored one by one: whatever is behind them has been zeroed or isn't ours. The
    // family goes through its own field, whose place and width differ between platforms.
    const in_port_t networkPort = htons(port);
    if (length == ipV4Bytes) {
        // Kept: the size is not tested, since callers pass that of whatever they allocated.
        sa->sa_family = AF_INET;
        memcpy(sa->sa_data, &networkPort, sizeof networkPort);
        memcpy(sa->sa_data + 2, address, ipV4Bytes);
    } else if (length == ipV6Bytes && size >= sizeof(sockaddr_in6)) {
        sockaddr_in6 v6 = {};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = networkPort;
        memcpy(&v6.sin6_addr, address, ipV6Bytes);
        memcpy(static_cast<void*>(sa), &v6, sizeof v6);
    }
}

const char* QorIpAddr::GetStr() {
    if (text == nullptr) {
        text = static_cast<char*>(malloc(textBytes));
        if (text == nullptr) {
            return "";
        }
    }
    GetStr(text, textBytes);
    return text;
}

bool QorIpAddr::GetStr(char* out, unsigned int size) const {
    if (out == nullptr || size == 0) {
        return false;
    }
    out[0] = '\0';
    char formatted[textBytes];
    if (!formatAddress(*this, formatted) || strlen_qor(formatted, textBytes) >= size) {
        return false;
    }
    strcpy_qor(out, size, formatted);
    return true;
}

unsigned char QorIpAddr::operator[](unsigned long i) const {
    // Kept: the byte at the length is given as well.
    return i > length || i >= sizeof address ? 0 : address[i];
}

// Kept: an unset address equals nothing, another unset one included.
bool QorIpAddr::operator==(const QorIpAddr& other) const {
    if (comparedAsIpV4(*this, other)) {
        return GetIpV4Addr() == other.GetIpV4Addr();
    }
    return length == ipV6Bytes && other.length == ipV6Bytes &&
           memcmp(address, other.address, ipV6Bytes) == 0;
}

bool QorIpAddr::operator!=(const QorIpAddr& other) const {
    return !(*this == other);
}

bool QorIpAddr::operator<(const QorIpAddr& other) const {
    int order = 0;
    return findOrder(*this, other, order) && order < 0;
}

bool QorIpAddr::operator>(const QorIpAddr& other) const {
    int order = 0;
    return findOrder(*this, other, order) && order > 0;
}

bool QorIpAddr::operator<=(const QorIpAddr& other) const {
    int order = 0;
    return findOrder(*this, other, order) && order <= 0;
}

bool QorIpAddr::operator>=(const QorIpAddr& other) const {
    int order = 0;
    return findOrder(*this, other, order) && order >= 0;
}

int qor_ipaddr_cmp(int op, const char* a, const char* b) {
    const QorIpAddr left(a);
    const QorIpAddr right(b);
    switch (op) {
    case 1:
        return left == right;
    case 2:
        return left < right;
    case 3:
        return left > right;
    case 4:
        return left <= right;
    case 5:
        return left >= right;
    default:
        return 0;
    }
}
