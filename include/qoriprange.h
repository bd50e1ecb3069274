/**
 * @file qoriprange.h
 * Blocks of IP addresses: from an address and a prefix length (CIDR, RFC 4632) to the block's first
 * and last address, and back.
 *
 * Each direction comes for IPv4 numbers, for QorIpAddr objects, for texts and for message values. A
 * prefix that is longer than the address counts as the address's whole length. In the other
 * direction two addresses are a block where they share their leading bits, and all bits behind them
 * are 0 in the first address and 1 in the last; the families must be the same, and an IPv4-mapped
 * address is an IPv6 one.
 *
 * Null pointers are answered with false. Outputs may be the variables of the inputs. The functions
 * may be called from any thread.
 */
#pragma once

#include "qoripaddr.h"

QOR_BEGIN_C

/**
 * The range of an IPv4 block. All three addresses are the 4 bytes in network order, as they stand
 * in memory: no numbers in host order.
 * @param prefix in bits, 0 to 32; more counts as 32
 * @return 1; 0, with nothing written, only where a pointer is null
 */
QOR_API int qor_ipaddr4_cidr2range(unsigned int addr, unsigned int prefix, unsigned int* low,
                                   unsigned int* high);

/**
 * The range of the block of an address text as message value: first and last address end to end,
 * each in network order. For IPv4 that is not the encoding of IPv4 addresses in messages, and not
 * what qor_ipaddr_range2cidr_MifFormat reads.
 * @param addr read as by QorIpAddr::SetIpAddr
 * @param prefix in bits; more than 32 or 128 counts as that
 * @param out untouched on failure
 * @param ioLen in: size of `out` in bytes; out: the bytes needed, 8 or 32, also where they are more
 *        than `out` has. Untouched where the text is no address.
 * @return 1, or 0 where the text is no address, `out` is too small or a pointer is null
 */
QOR_API int qor_ipaddr_cidr2range_MifFormat(const char* addr, unsigned int prefix,
                                            unsigned char* out, unsigned int* ioLen);

/**
 * The IPv4 block of a range. All three addresses are the 4 bytes in network order, as they stand in
 * memory: no numbers in host order.
 * @param network receives `low` with the bits behind the prefix cleared, also where the result is 0
 * @param prefix receives the number of leading bits that both share, also where the result is 0
 * @return 1 where the range is exactly one block, otherwise 0; with a null pointer nothing is
 * written
 */
QOR_API int qor_ipaddr4_range2cidr(unsigned int low, unsigned int high, unsigned int* network,
                                   unsigned int* prefix);

/**
 * The block of a range that is a message value: first and last address end to end, IPv6 in network
 * order, IPv4 as QorIpAddr::SetIpAddrFromMif reads it, a little-endian number in host order. For
 * IPv4 that is not what qor_ipaddr_cidr2range_MifFormat writes.
 * @param len of `data` in bytes: 8 or 32; one byte more is ignored
 * @param out receives the text of the first address, also where the range is no block; empty where
 *        it does not fit
 * @param outSize of `out` in bytes; with 0 nothing is written
 * @param prefix receives the number of leading bits that both share, also where the result is 0
 * @return 1 where the range is exactly one block and the text fits, otherwise 0; with another `len`
 *         or a null pointer nothing is written
 */
QOR_API int qor_ipaddr_range2cidr_MifFormat(const unsigned char* data, unsigned int len, char* out,
                                            unsigned int outSize, unsigned int* prefix);

QOR_END_C

/**
 * The range of an object's block. Writes one line for each byte of the mask to standard output,
 * "i=0 mask=ff" and so on; the other forms don't.
 * @param prefix in bits; more than 32 or 128 counts as that
 * @param low receives the first address; unset on failure
 * @param high receives the last address; untouched on failure
 * @return false, with no line written, where `addr` is neither IPv4 nor IPv6
 */
QOR_API bool qor_ipaddr_cidr2range(const QorIpAddr& addr, unsigned int prefix, QorIpAddr& low,
                                   QorIpAddr& high);

/**
 * The range of the block of an address text.
 * @param addr read as by QorIpAddr::SetIpAddr
 * @param prefix in bits; more than 32 or 128 counts as that
 * @param low receives the first address; empty where `addr` is no address or the text does not fit
 * @param lowSize of `low` in bytes; with 0 nothing is written
 * @param high receives the last address in the same way, whatever became of the first
 * @param highSize of `high` in bytes
 * @return false where the text is no address, a text does not fit or a pointer is null
 */
QOR_API bool qor_ipaddr_cidr2range(const char* addr, unsigned int prefix, char* low,
                                   unsigned int lowSize, char* high, unsigned int highSize);

/**
 * The block of a range; its network address is `low`.
 * @param prefix receives the number of leading bits that both share, also where the range is no
 *        block; untouched where the families differ
 * @return true where the range is exactly one block. Two unset addresses are one, of prefix 0.
 */
QOR_API bool qor_ipaddr_range2cidr(const QorIpAddr& low, const QorIpAddr& high,
                                   unsigned int& prefix);

/**
 * The block of a range of address texts, each read as by QorIpAddr::SetIpAddr.
 * @param out receives the text of the first address, also where the range is no block; empty where
 *        there is no such address or the text does not fit
 * @param outSize of `out` in bytes; with 0 nothing is written
 * @param prefix as above; 0 where neither text is an address, untouched where just one is
 * @return true where both texts are addresses, the range is exactly one block and the text fits.
 *         Where `out` or `prefix` is null nothing is written.
 */
QOR_API bool qor_ipaddr_range2cidr(const char* low, const char* high, char* out,
                                   unsigned int outSize, unsigned int* prefix);
