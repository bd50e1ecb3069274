/**
 * @file qoripaddr.h
 * IP addresses: conversion between text and network-order bytes, and the QorIpAddr value class.
 *
 * The conversions don't ask the system's resolver and keep no state: they may be called from any
 * thread. A QorIpAddr is used by one thread at a time.
 *
 * An IPv4 address appears in three encodings: 4 bytes in network order (inside QorIpAddr, in socket
 * addresses, in the qor_inet functions), a 32-bit number in host order (192.168.0.1 is 0xC0A80001),
 * and in messages that number stored little-endian (see mif32.h).
 */
#pragma once

#include <sys/socket.h>

#include "qorapi.h"

#include <cstddef>

QOR_BEGIN_C

/**
 * Reads an IPv4 address of four decimal octets.
 * Leading zeros are allowed and do not mean octal. Nothing may stand before or behind the address.
 * @param text terminated by a zero byte
 * @param dest receives 4 bytes in network order, only on success
 * @return 1, or 0 where the text is no such address or a pointer is null
 */
QOR_API int qor_inet_pton4(const char* text, unsigned char* dest);

/**
 * Reads an IPv6 address in the forms of RFC 4291, section 2.2; digits of either case.
 * More tolerant than that text: a group may have more than four digits if the surplus ones are
 * leading zeros; one ":" may follow the last group; "::" may stand for no group at all, and then
 * the groups behind it read as zero.
 * @param text terminated by a zero byte
 * @param dest receives 16 bytes in network order, only on success
 * @return 1, or 0 where the text is no such address or a pointer is null
 */
QOR_API int qor_inet_pton6(const char* text, unsigned char* dest);

/**
 * Writes an IPv4 address as four decimal octets and a terminator: at most 16 bytes.
 * @param src 4 bytes in network order
 * @param size of `dest` in bytes. The terminator is not counted: a destination exactly as long as
 *        the text is accepted, and the terminator is written one byte beyond it.
 * @return `dest`, or null where the text is longer than `size` or a pointer is null; `dest` is then
 *         untouched
 */
QOR_API char* qor_inet_ntop4(const unsigned char* src, char* dest, std::size_t size);

/**
 * Writes an IPv6 address in lower-case digits with the longest run of two or more zero groups as
 * "::", of equal runs the first; addresses of the forms "::a.b.c.d" and "::ffff:a.b.c.d" with their
 * last 4 bytes as IPv4.
 * @param src 16 bytes in network order
 * @param size of `dest` in bytes; 40 is always enough
 * @return `dest`, or null where text and terminator do not fit or a pointer is null; `dest` is then
 *         untouched
 */
QOR_API char* qor_inet_ntop6(const unsigned char* src, char* dest, std::size_t size);

/**
 * Compares two address texts, each read as by QorIpAddr::SetIpAddr; a text that can't be read
 * counts as an unset address.
 * @param op 1 for ==, 2 for <, 3 for >, 4 for <=, 5 for >=
 * @return 1 where the comparison holds, otherwise 0, also for any other `op`
 */
QOR_API int qor_ipaddr_cmp(int op, const char* a, const char* b);

QOR_END_C

/**
 * One IPv4 or IPv6 address, or none.
 *
 * Setters that return false leave the address unset unless they say otherwise. Null pointers are
 * answered with false. An IPv4-mapped address is an IPv6 address "::ffff:a.b.c.d".
 */
class QOR_API QorIpAddr {
public:
    /** Unset. */
    QorIpAddr();

    /** The IPv4 address of a number in host order. */
    QorIpAddr(unsigned int hostOrder);

    /** As SetIpAddr; unset where the text is no address. */
    QorIpAddr(const char* addressText);

    /**
     * Takes over `len` bytes in network order as they are.
     * `len` becomes the length unchecked, but only 4 and 16 make an address; of a longer input the
     * first 16 bytes are kept. Unset where `bytes` is null.
     */
    QorIpAddr(const unsigned char* bytes, unsigned int len);

    /** Copies the address; each object has a text buffer of its own. */
    QorIpAddr(const QorIpAddr& other);

    /** Frees the text buffer. */
    virtual ~QorIpAddr();

    /** @name Setting
     *  @{ */

    /** Reads an IPv4 text or, failing that, an IPv6 text; see qor_inet_pton4, qor_inet_pton6. */
    bool SetIpAddr(const char* addressText);
    /** Reads an IPv4 text only. */
    bool SetIpV4Addr(const char* addressText);
    /** Reads an IPv6 text only. */
    bool SetIpV6Addr(const char* addressText);

    /** Takes 16 bytes as IPv6 or 4 bytes as IPv4, in network order; false for any other `len`. */
    bool SetIpAddrFromData(const unsigned char* bytes, unsigned int len);

    /** Takes a message value: 16 bytes of IPv6 in network order, or 4 bytes that are an IPv4
     * address as a little-endian number in host order; false for any other `len`. */
    bool SetIpAddrFromMif(const unsigned char* value, unsigned int len);
    /** As SetIpAddrFromMif for 4 bytes only; otherwise false, and the object stays as it is. */
    bool SetIpAddrFromMifV4(const unsigned char* value, unsigned int len);
    /** As SetIpAddrFromMif for 16 bytes only; otherwise false, and the object stays as it is. */
    bool SetIpAddrFromMifV6(const unsigned char* value, unsigned int len);

    void SetAnyHostV4();   /**< 0.0.0.0 */
    void SetAnyHostV6();   /**< :: */
    void SetLocalHostV4(); /**< 127.0.0.1 */
    void SetLocalHostV6(); /**< ::1 */

    /** Takes the address of an AF_INET or AF_INET6 socket address; false for other families. */
    bool SetFromSockAddr(const sockaddr_storage* sa);

    /** As SetIpAddr, whose result it gives: do not chain it. */
    bool operator=(const char* addressText);
    /** Sets the IPv4 address of a number in host order; true. */
    bool operator=(unsigned int hostOrder);
    /** Copies the length and as many address bytes; bytes behind them stay. */
    QorIpAddr& operator=(const QorIpAddr& other);

    /** Makes the address unset, with all bytes zero. */
    void Clear();

    /** @} */
    /** @name Conversion and queries
     *  @{ */

    /** Makes an IPv4 address of an IPv4-mapped one, leaving the bytes behind its 4 as they are;
     * false, with nothing changed, for any other address. */
    bool ConvertV6ToIpV4();
    /** Makes an IPv4-mapped address of an IPv4 one and leaves any other as it is; always true. */
    bool ConvertV4ToIpV6();
    /** True for an IPv6 address "::ffff:a.b.c.d". */
    bool IsV4Mapped() const;

    /** The number in host order of an IPv4 or IPv4-mapped address, 0 for any other. */
    unsigned int GetIpV4Addr() const;
    /** True for an IPv4 or IPv6 address that is not all zero. */
    bool IsConfigured() const;
    /** True for exactly 127.0.0.1 and exactly ::1. */
    bool IsLocalHost() const;
    /** AF_INET, AF_INET6, or 0 when unset. */
    int GetAF() const;

    /**
     * Fills a socket address: `size` bytes are zeroed, then family, address and port are stored.
     * The BSD length byte stays 0. An unset address leaves everything zero, the port too, and so
     * does an IPv6 address when `size` is below 28.
     * @param sa `size` bytes, but at least 8 for an IPv4 address: its family, port and address take
     *        the first 8 bytes whatever `size` says
     * @param port in host order
     */
    void InitSockAddr(sockaddr* sa, unsigned long size, unsigned short port) const;

    /**
     * The address as text, "" when unset.
     * @return a buffer of 64 bytes that belongs to the object, allocated by the first call; its
     *         content is valid until the next call and the object's end. "" where memory is short.
     */
    const char* GetStr();

    /**
     * Writes the address as text; `out` is made empty first.
     * @param size of `out` in bytes; with 0 nothing is written
     * @return false for an unset address, or where text and terminator do not fit
     */
    bool GetStr(char* out, unsigned int size) const;

    /** Byte `i` of the address; 0 when `i` exceeds the length or 15. For `i` equal to the length
     * it is the byte stored there. */
    unsigned char operator[](unsigned long i) const;

    /** @} */
    /**
     * @name Comparison
     * An IPv4 address equals, and is ordered with, the IPv4-mapped address of the same number. An
     * unset address on the left compares false with everything, another unset one included, so `!=`
     * is true. Between families that can't be compared all four orderings are false.
     * @{
     */
    /** Equal. */
    bool operator==(const QorIpAddr& other) const;
    /** Not equal. */
    bool operator!=(const QorIpAddr& other) const;
    /** Less. */
    bool operator<(const QorIpAddr& other) const;
    /** Greater. */
    bool operator>(const QorIpAddr& other) const;
    /** Less or equal. */
    bool operator<=(const QorIpAddr& other) const;
    /** Greater or equal. */
    bool operator>=(const QorIpAddr& other) const;
    /** @} */

    /** @name Fields, in fixed order. For reading; setting is done by the operations.
     *  @{ */
    unsigned char address[16]; /**< network order; an IPv4 address has the first 4 bytes */
    unsigned int length;       /**< 0 unset, 4 IPv4, 16 IPv6 */
    char* text;                /**< GetStr's 64 bytes, owned by the object; null before */
    /** @} */
};
