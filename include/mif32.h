/**
 * @file mif32.h
 * Mif32: a growable buffer of tagged entries, in which modules exchange structured records.
 *
 * A message is a sequence of entries without header, padding or alignment: a 16-bit identifier, a
 * 16-bit length and the value, numbers little-endian. The identifier 0xFFFF alone, without length
 * and value, marks the end. docs/mif32-format.md describes the format with an example.
 *
 * A Mif32 is used by one thread at a time. Nothing throws and nothing is logged: failures are
 * false results, and then the message is unchanged unless said otherwise.
 */
#pragma once

#include "qorapi.h"

#include <string>

class QorIpAddr;

/**
 * One message and its memory.
 *
 * The memory is either owned (heap memory that grows on demand, overwritten with zeros before the
 * object gives it up at its end) or external (the caller's, see SetExternalMem; never grown, wiped
 * or freed).
 */
class QOR_API Mif32 {
public:
    /** No buffer, all fields zero. */
    Mif32();
    /** Starts empty and calls SetData. */
    Mif32(const unsigned char* bytes, unsigned int len);
    /**
     * Copies fields and flags. Owned memory is duplicated with its whole allocated length; external
     * memory is shared, so that both objects append to the same bytes. Where memory is short the
     * copy is empty and `allocationFailed` is set.
     */
    Mif32(const Mif32& other);
    /** Overwrites owned memory with zeros and frees it. */
    ~Mif32();

    /** Frees owned memory, then copies as the copy constructor does. */
    Mif32& operator=(const Mif32& other);

    /** @name Memory
     *  @{ */

    /**
     * Replaces the message by a copy of `len` bytes, in owned memory of exactly that size. Null or
     * a `len` of 0 leaves no buffer and clears all fields. The current buffer's own address changes
     * nothing, whatever `len` says; bytes behind it in the buffer may be given.
     * @return false where memory is short: the message is lost and there is no buffer then,
     *         `allocationFailed` is set, and the length fields stay as they were
     */
    bool SetData(const unsigned char* bytes, unsigned int len);
    /** The same for characters. */
    bool SetData(const char* bytes, unsigned int len);

    /** Replaces the message by an empty one in owned memory of `size` bytes, which are not cleared.
     * False for external memory, which stays, and where memory is short: the message is lost and
     * there is no buffer then. `allocationFailed` keeps its value. */
    bool Alloc(unsigned short size);

    /**
     * Makes room for `extra` bytes behind the message. Owned memory that is too small is
     * reallocated to 1,000 bytes more than are needed; external memory never grows. For 0 bytes
     * there need not be a buffer, and none is allocated.
     * @return false where the room can't be had; buffer and allocated length are unchanged, and for
     *         owned memory `allocationFailed` is set
     */
    bool CheckSize(unsigned int extra);

    /**
     * Works in the caller's memory from now on and frees owned memory.
     * @param buf stays the caller's and must outlive its use here
     * @param allocLen size of `buf` in bytes
     * @param usedLen length of the message in it; a length beyond `allocLen` leaves no room
     * @return false, with nothing changed, for null, an `allocLen` of 0, and a `buf` inside the
     *         owned memory, which would be freed
     */
    bool SetExternalMem(unsigned char* buf, unsigned int allocLen, unsigned int usedLen);

    /** True when the memory is the caller's; `freeBytes`, unless null, then receives the room left
     * in it, 0 when the length exceeds the allocation. */
    bool IsExternalMem(unsigned int* freeBytes) const;

    /** Owned memory: empties the message, overwrites the whole allocation with zeros and keeps it.
     * External memory: forgets it untouched, so that there is no buffer. */
    void ClearBuffer();

    /** @} */
    /**
     * @name Adding entries
     * Each appends one entry; false where there is no room and for a null pointer. Identifier
     * 0xFFFF is the end marker: with an empty value its two bytes are appended, and with any other
     * the result is false. A source inside the message itself is allowed.
     * @{
     */

    /** Any value; null is allowed for a length of 0. */
    bool Add(unsigned short id, const unsigned char* value, unsigned short len);

    /** 4 bytes, 0 or 1. */
    bool AddBool(unsigned short id, bool value);
    /** 4 bytes. */
    bool AddInt(unsigned short id, unsigned int value);
    /** 8 bytes for a value above 0xFFFFFFFF, otherwise 4. */
    bool AddInt64(unsigned short id, unsigned long long value);
    /** 4 bytes: the low 32 bits. */
    bool AddTime(unsigned short id, long value);
    /** The characters without terminator; their number is taken modulo 65,536, so that 65,536
     * characters add an empty entry. */
    bool AddStr(unsigned short id, const char* value);
    /** The characters up to the first zero byte, as above. */
    bool AddStr(unsigned short id, const std::string& value);
    /** Raw bytes; `len` is taken modulo 65,536. */
    bool AddBin(unsigned short id, const unsigned char* value, unsigned int len);
    /** 4 bytes: QorIpAddr::GetIpV4Addr, 0 for an address without an IPv4 form. */
    bool AddIpAddrV4(unsigned short id, const QorIpAddr* value);
    /** 16 bytes in network order for IPv6, as AddIpAddrV4 for IPv4, an empty entry when unset. */
    bool AddIpAddr(unsigned short id, const QorIpAddr* value);

    /** @} */
    /**
     * @name Appending raw bytes
     * Without identifier and length; numbers little-endian. False where there is no room and for a
     * null pointer.
     * @{
     */
    /** 1 byte. */
    bool RawAddByte(unsigned char value);
    /** 2 bytes. */
    bool RawAddWord(unsigned short value);
    /** 4 bytes. */
    bool RawAddDWord(unsigned int value);
    /** 8 bytes. */
    bool RawAddLDWord(unsigned long long value);
    /** `len` bytes. */
    bool RawAddBin(const unsigned char* value, unsigned int len);
    /** The characters without terminator. */
    bool RawAddStr(const char* value);

    /** @} */
    /** @name End marker
     *  @{ */

    /** Appends the end marker unless the message has it already, at its end or with a single byte
     * behind it. False where there is no room, where a marker stands inside the message with more
     * data behind it, and where the length exceeds the memory. */
    bool AddEndKz();
    /** Removes the end marker; false, with nothing changed, where the entries do not end with one
     * and where the length exceeds the memory. */
    bool DelEndKz();

    /** @} */
    /**
     * @name Finding and reading
     * An entry is named by its identifier and its occurrence: 1 for the first entry with that
     * identifier, 2 for the second. False where there is no such entry, for occurrence 0, and for a
     * null `out` where nothing else is said; outputs are untouched then where nothing else is said.
     * A lookup walks the message from its start and ends at the end marker, at a truncated entry,
     * and where the message or its memory ends.
     * @{
     */

    /** Tells where an entry's value is: `valueOffset` receives its distance in bytes from the
     * message's start, `valueLen` its length in bytes; each may be null. */
    bool Seek(unsigned short id, unsigned int* valueOffset, unsigned int* valueLen,
              unsigned int occurrence) const;
    /** Seek without the offset. */
    bool SearchValue(unsigned short id, unsigned int* valueLen, unsigned int occurrence) const;

    /** Copies the value and a terminator; false where both do not fit into `outSize` bytes. */
    bool GetStr(unsigned short id, char* out, unsigned short outSize,
                unsigned int occurrence) const;
    /** Assigns the value up to its first zero byte; null only tests. False for a value of 65,535
     * bytes, which can't be read this way, and where memory is short. */
    bool GetStr(unsigned short id, std::string* out, unsigned int occurrence) const;

    /** Points at the value in the message, valid until the next change. `outPtr` may be null,
     * `outLen`, which receives the length in bytes, may not. */
    bool GetBinPtr(unsigned short id, unsigned char** outPtr, unsigned int* outLen,
                   unsigned int occurrence) const;
    /**
     * Copies the value.
     * @param out may be null to ask for the length only
     * @param ioLen size of `out` in bytes; receives the value's length. May not be null.
     * @return false, with `ioLen` untouched, also where the value is longer than `out`
     */
    bool GetBin(unsigned short id, unsigned char* out, unsigned int* ioLen,
                unsigned int occurrence) const;

    /** Reads a value of exactly 4 bytes. */
    bool GetInt(unsigned short id, unsigned int* out, unsigned int occurrence) const;
    /** The same for a signed number. `out` may be null to test only; it is overwritten on failure
     * too, with a meaningless value. */
    bool GetInt(unsigned short id, int* out, unsigned int occurrence) const;
    /** Reads a value of exactly 4 bytes, of which 0 is false. A null `out` ends the process with an
     * assertion. */
    bool GetBool(unsigned short id, bool* out, unsigned int occurrence) const;
    /** Reads a value of 8 or of 4 bytes; `out` is 0 where there is none, unless the occurrence is
     * 0. */
    bool GetInt64(unsigned short id, unsigned long long* out, unsigned int occurrence) const;

    /** @} */
    /**
     * @name Changing entries
     * The updates change an entry that is there and give true. Where there is none they append one,
     * keeping an end marker last, and give false: the result tells whether there was an entry. An
     * appended entry takes its place whole or not at all: without room for it and for the end
     * marker the message stays as it is. False, with nothing changed, for occurrence 0 and a null
     * pointer.
     * @{
     */

    /** Overwrites the first 4 bytes of the value, whatever its length: where that is shorter, what
     * follows is overwritten. False, with nothing written, where 4 bytes would leave the memory. */
    bool UpdInt(unsigned short id, unsigned int value, unsigned int occurrence);
    /**
     * Overwrites a value of the length that AddInt64 gives the number. Where the value has another
     * length UpdBin replaces it, and that always in the identifier's first entry.
     */
    bool UpdInt64(unsigned short id, unsigned long long value, unsigned int occurrence);
    /**
     * Replaces the value, whose length may change. Owned memory is reallocated to 10 bytes more
     * than the message. `value` may lie in the message itself.
     * @return false, with nothing changed, also where external memory can't hold the message or
     *         memory is short, and where the length exceeds the memory
     */
    bool UpdBin(unsigned short id, const unsigned char* value, unsigned short len,
                unsigned int occurrence);
    /** UpdBin with the characters without terminator, their number modulo 65,536. */
    bool UpdStr(unsigned short id, const char* value, unsigned int occurrence);

    /** Deletes the first entry with the identifier. False where there is none and where the length
     * exceeds the memory. */
    bool DelOid(unsigned short id);

    /** @} */
    /** @name Access
     *  @{ */

    /** The message's bytes, valid until the next change; null when there is no buffer. */
    unsigned char* GetData();
    /** The same for reading. */
    const unsigned char* GetData() const;
    /** Bytes in use. */
    unsigned int GetLen() const;
    /** Bytes available at GetData. */
    unsigned int GetAllocLen() const;
    /** Sets the bytes in use, unchecked: it may exceed the allocation. Reads then stop where the
     * memory ends, and growing fills what is between with zeros. */
    void SetLen(unsigned short len);

    /** Writes the length and at most the first 65,535 bytes in hexadecimal to standard output. */
    void Print() const;

    /** @} */
    /** @name Fields, in fixed order. For reading; changing is done by the operations.
     *  @{ */
    unsigned char* data;            /**< null when there is no buffer */
    unsigned int length;            /**< bytes in use */
    unsigned int allocatedLength;   /**< bytes available at `data` */
    unsigned char allocationFailed; /**< 1 once memory was short for SetData, growing or a copy,
                                         until SetData with no data, SetExternalMem or ClearBuffer
                                         of external memory clears it; a copy takes it along */
    unsigned char externalMemory;   /**< 1 when `data` is the caller's */
    /** @} */
};
