/**
 * @file configfile.h
 * Configuration files: groups of `name=value` lines, held in memory as one text.
 *
 * A ConfigFile is opened from a file or from memory, answers questions by scanning its text, and is
 * edited by splicing lines in and out; closing an edited document that came from a file writes it
 * back. The text format is described in docs/config-format.md.
 *
 * A ConfigFile is used by one thread at a time; nothing here takes a lock. Group names and value
 * names compare without regard to case. Truth results are 1 and 0. A null argument gives 0 and
 * changes nothing unless a declaration says otherwise; buffer sizes are in bytes, terminator
 * included, and every text written into a buffer is cut to fit and terminated.
 *
 * Texts may hold passwords, so all memory in which the library keeps or copies one, its own stack
 * included, is overwritten before it is released. What callers and their ciphers hold is theirs to
 * overwrite, and what the C library leaves behind of a text that it formats is not reached.
 */
#pragma once

#include <cstddef>
#include <cstdint>

#include "qorapi.h"

/**
 * @name Ciphers
 * The library holds no cipher: callers install theirs. Each returns non-zero for success.
 * @{
 */

/**
 * Enciphers one value.
 * @param plain    the text, `plainLen` bytes
 * @param out      room for `outSize` bytes, which is 512
 * @param outLen   holds 0; takes the number of bytes written to `out`, more than 512 are a failure
 * @param context  what the caller passed to the write
 */
using ConfigValueEncryptFunc = signed char (*)(unsigned char* plain, unsigned long plainLen,
                                               unsigned char* out, unsigned long outSize,
                                               unsigned int* outLen, void* context);

/** Deciphers one value of `cipherLen` bytes into a text of at most `outSize` bytes, which is 512. A
 *  missing terminator is added, in the last byte at the latest. */
using ConfigValueDecryptFunc = signed char (*)(unsigned char* cipher, unsigned long cipherLen,
                                               char* out, unsigned long outSize, void* context);

/**
 * Deciphers a whole file in place.
 * @param bufferSize  the file's bytes and 64 spare zero bytes
 * @param length      holds the number of bytes in the file; takes the length of the plain text
 * @return exactly 1 for success
 */
using ConfigFileDecryptFunc = signed char (*)(unsigned char* buffer, unsigned long bufferSize,
                                              unsigned int* length);

/**
 * Enciphers a whole text in place.
 * @param bufferSize  the text's bytes and 64 spare zero bytes
 * @param length      holds the text's length; takes the number of bytes to write, which may be 0
 */
using ConfigFileEncryptFunc = signed char (*)(unsigned char* buffer, unsigned long bufferSize,
                                              unsigned int* length);

/** @} */

/**
 * A row of a table of words. A row whose text is empty or null ends it; that row's value does not
 * count.
 */
struct CONFIGSTR2INT {
    std::uint32_t value; /**< the number for which the word stands */
    const char* text;    /**< the word */
};

/** The same for words that stand for bits. */
struct CONFIGBITMASK {
    std::uint32_t value; /**< the bit, or the bits, for which the word stands */
    const char* text;    /**< the word */
};

/** One configuration text and, where it came from a file, that file's name. */
class QOR_API ConfigFile {
public:
    /** A closed document: every question is answered with 0 until something is opened. */
    ConfigFile();
    /** Closes the document like Close. */
    ~ConfigFile();
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    /**
     * Reads the file at `path` and attaches its name, so that Close writes edits back to it.
     * An earlier text is released without being written. A missing line end is added behind the
     * last line. A zero byte takes along what follows it, up to the end of its line or of the
     * 510-byte piece in which the line is read. The size is taken modulo 2^32; of a file that is
     * larger, or grows meanwhile, only that many bytes and up to 11 more are read.
     * @return 1 if the file was read. Otherwise the document is empty, and the name stays attached,
     *         so that Close creates the file after edits. Besides regular files only character
     *         devices are read, 11 bytes of them and only what is there at once. A path of more
     *         than 1023 bytes is refused, and no name is attached then.
     */
    signed char OpenFile(const char* path);

    /**
     * Closes the document, which writes it back where Close would, and copies `length` bytes of
     * `source`, or all of it up to its zero byte if `length` is negative. The text ends at its
     * first zero byte. Null gives an empty document. No file is attached, so edits are never
     * written.
     * @return 0 only if memory is short; the document is empty then
     */
    signed char OpenMem(const char* source, int length);

    /**
     * Writes an edited document to the file whose name is attached, created with the permissions
     * rw-rw-r-- where it does not exist (the umask of the whole process is 2 meanwhile), and
     * releases the text.
     * @return 0 only if that file can't be opened for writing, as a pipe that nobody reads; the
     * text is released all the same. A write that fails is not reported.
     */
    signed char Close();

    /** The text, for reading, until the next edit, open or close; null for a closed document. */
    char* GetBuffer() const;

    /**
     * Sets how values are read. Bit 0: a value may stand in double quotes. Bit 1: `#` starts no
     * comment. Other bits are refused. The options outlive closing.
     * @return 1 if accepted; otherwise nothing changes
     */
    signed char SetOptions(unsigned int newOptions);

    /**
     * @name Reading
     * The value of the first line with the given name, in the first group with the given name. A
     * value is found only if what is collected of its line before and behind the `=` stays below
     * 511 characters each.
     * @{
     */

    /**
     * Stores the value in `out`, or `defaultValue` where group or name are missing. With a null
     * argument `out` keeps what it holds.
     * @return 1 if the value was found
     */
    signed char ReadStrDef(const char* group, const char* name, char* out, unsigned int size,
                           const char* defaultValue) const;

    /** ReadStrDef with the empty text as default. */
    signed char ReadStr(const char* group, const char* name, char* out, unsigned int size) const;

    /**
     * Stores the value as a number: leading white space, a sign, decimal digits; what follows is
     * ignored, a value without digits is 0. Negative numbers are stored as their two's complement,
     * larger ones lose the bits above 32. The default is stored where group or name are missing or
     * null.
     * @return 1 if the value was found, whatever its text
     */
    signed char ReadIntDef(const char* group, const char* name, unsigned int* out,
                           unsigned int defaultValue) const;

    /** ReadIntDef with the default 0. */
    signed char ReadInt(const char* group, const char* name, unsigned int* out) const;

    /**
     * Stores 1 for a text whose number is 1 and for "On" and "Yes", 0 for "0", "Off" and "No", and
     * the default for every other text and where group or name are missing or null.
     * @return 1 if the value was found, whatever its text
     */
    signed char ReadBoolDef(const char* group, const char* name, signed char* out,
                            signed char defaultValue) const;

    /** ReadBoolDef with the default 0. */
    signed char ReadBool(const char* group, const char* name, signed char* out) const;

    /**
     * Stores the number of the first word in `table` that equals the value, case aside. Where none
     * does, and where group or name are missing, it stores the default. With a null argument `out`
     * keeps what it holds.
     * @return 1 if the value is a word of the table
     */
    signed char ReadStr2IntDef(const char* group, const char* name, const CONFIGSTR2INT* table,
                               unsigned int* out, unsigned int defaultValue) const;

    /** ReadStr2IntDef with the default 0. */
    signed char ReadStr2Int(const char* group, const char* name, const CONFIGSTR2INT* table,
                            unsigned int* out) const;

    /**
     * Stores the default with the bits of all words in the value added, case aside; the default's
     * own bits always stay set. The words stand between any number of `,`, `;`, `|` and blanks.
     * With a null argument `out` keeps what it holds.
     * @return 1 if the value was found and all its words are in `table`; unknown ones are passed
     *         over
     */
    signed char ReadBitMaskDef(const char* group, const char* name, const CONFIGBITMASK* table,
                               unsigned int* out, unsigned int defaultValue) const;

    /** ReadBitMaskDef with the default 0. */
    signed char ReadBitMask(const char* group, const char* name, const CONFIGBITMASK* table,
                            unsigned int* out) const;

    /** 1 if the group exists. */
    signed char ExistGroup(const char* group) const;

    /** 1 if some line with this name in the group has exactly this value, case and all. */
    signed char ExistStr(const char* group, const char* name, const char* value) const;

    /** Like ExistStr, among the lines whose names begin with the first `length` bytes of `name`;
     *  with a `length` of 0 whole names count. */
    signed char ExistNStr(const char* group, const char* name, const char* value,
                          unsigned int length) const;

    /** @} */

    /**
     * @name Iteration
     * Each call stores the next item and returns 1, or 0 at the end. Edits, opening and closing end
     * an iteration.
     * @{
     */

    /**
     * The first group's name, in text order. Unlike lookups the iteration knows comments, whatever
     * the options say: a header with `#` in front of its `]` is not listed, or with a name that
     * reaches to a later `]`.
     */
    signed char GetFirstGroup(char* out, unsigned int size);
    /** The name of the group behind the one stored last. */
    signed char GetNextGroup(char* out, unsigned int size);

    /**
     * Selects a group and goes on like GetNextParam. Each call looks for the group from the text's
     * start, so a walk through all groups takes time in proportion to groups times text.
     */
    signed char GetFirstParam(const char* group, char* nameOut, unsigned int nameSize,
                              char* valueOut, unsigned int valueSize);

    /**
     * The next value line of the selected group; `valueOut` may be null. Blanks inside names are
     * kept. A line from which 256 characters of a name or a value are collected ends the iteration,
     * and so does a last line without a line end.
     * @return 0 at the end. `nameOut` is empty then, or holds the name of the line that ended the
     *         iteration by its value or by its missing end; `valueOut` is as it was.
     */
    signed char GetNextParam(char* nameOut, unsigned int nameSize, char* valueOut,
                             unsigned int valueSize);

    /** @} */

    /**
     * @name Editing
     * Each edit marks the document as changed and replaces the text: positions in it, such as a
     * GetBuffer result, are invalid afterwards. Groups and names are written as they are given.
     * @return 0 if there is no document or memory is short, which leaves the text as it was
     * @{
     */

    /**
     * Replaces the value of an existing line, or adds the line as the group's last, or appends the
     * group. Line ends in the value become blanks, tabs vanish, `#` is doubled; the value is cut to
     * 512 bytes, an added line to 511.
     *
     * Not every value is read back as it was written: blanks at its ends go, and with option bit 0
     * a quote that it begins with; `#` stays doubled in a quoted value and with option bit 1, and
     * doubles again with each rewrite. An added line continues a last line that lacks its end. An
     * old value of 511 characters or more, each `##` counted as two, is not replaced: the line is
     * added, and reads go on finding the first one where they count 510 or less.
     */
    signed char WriteStr(const char* group, const char* name, const char* value);

    /** Writes the value as a signed decimal number. */
    signed char WriteInt(const char* group, const char* name, unsigned int value);

    /** Writes "Off" for 0 and "On" for everything else. */
    signed char WriteBool(const char* group, const char* name, signed char value);

    /**
     * Writes the words of all rows that share a bit with `mask`, with a comma between them, cut to
     * 511 bytes; an empty value where there are none.
     */
    signed char WriteBitMask(const char* group, const char* name, const CONFIGBITMASK* table,
                             unsigned int mask);

    /**
     * Adds a line behind an empty one at the group's end, or appends the group, even where the name
     * exists. The value is written unchanged; what is added is cut to 399 bytes.
     */
    signed char AddStr(const char* group, const char* name, const char* value);

    /**
     * Removes the first line that is written `name=`, without blanks around the name, and the empty
     * lines behind it. `#` begins a comment here whatever the options say.
     * @return also 0 if there is none
     */
    signed char DeleteValue(const char* group, const char* name);

    /**
     * Removes a group, header and body, up to the character before the next header's bracket, which
     * stays: a line end, or the last blank in front of the bracket.
     * @return also 0 if there is none
     */
    signed char DeleteGroup(const char* group);

    /**
     * Opens `file`, adds one line with AddStr and writes it back.
     * @return 1 if the file opened
     */
    static signed char AddConfig(const char* file, const char* group, const char* name,
                                 const char* value);

    /** @} */

    /** The word of the first row with this value, else the text of the row that ends the table;
     *  the empty text for a null table. It belongs to the table. */
    static const char* Int2Text(unsigned int value, const CONFIGSTR2INT* table);

    /**
     * Stores the words of all rows whose bits are all in `mask`, with ", " between them. A row of
     * value 0 shows a mask for which there is no word; the last such row counts.
     */
    static void BitMask2Text(unsigned int mask, const CONFIGBITMASK* table, char* out,
                             unsigned int size);

    /**
     * @name Enciphered values
     * Single values as "crypt:" and hexadecimal digits. The ciphers stay installed when the
     * document is closed; `context` is passed to them and may be null.
     * @{
     */

    /** Installs the cipher of WriteStrCrypt; null for none. */
    void SetValueEncryptFunc(ConfigValueEncryptFunc encrypt);

    /** Installs the cipher of ReadStrCrypt; null for none. */
    void SetValueDecryptFunc(ConfigValueDecryptFunc decrypt);

    /**
     * Stores a value, deciphered if it begins with "crypt:", and whether it does. Without a cipher
     * plain values can't be read either. Where group or name are missing `wasEncrypted` becomes 0;
     * otherwise a failure leaves both outputs as they are.
     * @return 1 if the value was found and the cipher, which is not called for an empty text,
     *         returned non-zero
     */
    signed char ReadStrCrypt(const char* group, const char* name, char* out, unsigned int size,
                             signed char* wasEncrypted, void* context) const;

    /**
     * Enciphers a value and writes it like WriteStr; an empty one as "crypt:", without a call of
     * the cipher. A value of which the cipher makes more than 252 bytes is written cut and is not
     * found again; a line that is added is cut to 511 bytes, name and line end included.
     * @return 0 also if there is no cipher or it failed
     */
    signed char WriteStrCrypt(const char* group, const char* name, const char* value,
                              void* context);

    /** @} */

    /**
     * @name Enciphered files
     * Whatever but CloseFileCrypt writes an edited document writes it in plain, also over the
     * enciphered file from which it came: Close, the destructor, OpenMem, and OpenFileCrypt over an
     * open document, even where that then fails.
     * @{
     */

    /**
     * Reads and deciphers the file at `path`, takes the text over as it is, like OpenMem, which
     * first writes an edited document in plain to its own file, and attaches the name. The path may
     * stand in the earlier text.
     * @return 0 also if `decrypt` returns anything but 1 or a length beyond its buffer, if the file
     *         shrinks while it is read, has 4 GiB - 64 bytes or more, or is one that OpenFile
     *         refuses. With a null argument nothing changes then; otherwise an earlier text stays
     *         and gets the new name. If it was edited, it is written in plain to its own file, if
     *         that can be opened. Without an earlier text the document is empty, and CloseFileCrypt
     *         creates the file after edits.
     */
    signed char OpenFileCrypt(const char* path, ConfigFileDecryptFunc decrypt);

    /**
     * Writes an edited document enciphered to the file whose name is attached, created as by Close,
     * and releases the text. The umask of the process is 2 also while the cipher runs.
     * @return 0 if the file can't be opened or written whole, or `encrypt` returns a length beyond
     *         its buffer, which leaves the file as it is; with a null argument, which leaves the
     *         document open. If the cipher fails, memory is short, or the text has 4 GiB - 64 bytes
     *         or more, the file stays as it is and the result is 1: only the cipher itself tells.
     */
    signed char CloseFileCrypt(ConfigFileEncryptFunc encrypt);

    /** @} */

private:
    struct Collected;

    // Ranges of the text run from the first to the last character, both included; the end of the
    // last group is the terminator behind the text.
    QOR_LOCAL signed char getGroupPos(const char* group, char** start, char** end) const;
    QOR_LOCAL signed char getValuePos(const char* name, unsigned int nameLen, char* from, char* to,
                                      char** valuePos, char* out, unsigned int outSize,
                                      unsigned int flags) const;
    QOR_LOCAL static void deleteLastSpace(char* value);
    QOR_LOCAL signed char addStr(const char* added, unsigned long pos);
    QOR_LOCAL signed char delStr(unsigned long pos, unsigned long count);

    QOR_LOCAL signed char strEncrypt(const char* plain, char* out, unsigned int outSize,
                                     void* context);
    QOR_LOCAL signed char strDecrypt(const char* hexText, char* out, unsigned int outSize,
                                     void* context) const;

    QOR_LOCAL char* rangeStop(char* end) const;
    QOR_LOCAL bool hasComments() const;
    QOR_LOCAL char* matchName(const char* name, unsigned int nameLen, char* line,
                              char* lineStop) const;
    QOR_LOCAL bool collectName(char* line, char* lineStop, Collected* name,
                               char** valueStart) const;
    QOR_LOCAL bool collectValue(char* from, char* lineStop, unsigned int flags,
                                Collected* value) const;
    QOR_LOCAL static void finishValue(Collected* value);
    QOR_LOCAL signed char readValue(const char* group, const char* name, char* out,
                                    unsigned int size) const;
    QOR_LOCAL signed char splice(unsigned long pos, unsigned long count, const char* added);
    QOR_LOCAL signed char appendGroup(const char* group, const char* name, const char* value,
                                      unsigned int size);
    QOR_LOCAL void replaceText(char* newText, std::uint64_t newLength);
    QOR_LOCAL void ensureText();
    QOR_LOCAL static bool nameFits(const char* path);
    QOR_LOCAL void attachName(const char* path);
    QOR_LOCAL bool readFile();
    QOR_LOCAL signed char openCopy(const char* source, std::size_t limit);
    QOR_LOCAL bool isToBeWritten() const;
    QOR_LOCAL bool writeBack() const;
    QOR_LOCAL void discard();
    QOR_LOCAL bool openDeciphered(const char* path, ConfigFileDecryptFunc decrypt);
    QOR_LOCAL bool writeEnciphered(ConfigFileEncryptFunc encrypt) const;

    char fileName[1024];             // of the attached file; empty: none
    signed char openedEncrypted = 0; // nothing here reads it
    char* text = nullptr;            // from malloc
    std::uint64_t textLength = 0;
    char* groupCursor = nullptr; // null: no iteration under way
    char* paramCursor = nullptr;
    char* paramEnd = nullptr;
    signed char dirty = 0;
    std::uint32_t options = 0;
    ConfigValueDecryptFunc decryptValue = nullptr;
    ConfigValueEncryptFunc encryptValue = nullptr;
};

QOR_BEGIN_C

/**
 * Reads one value from a file: opens it, reads like ConfigFile::ReadStrDef, closes it.
 * @return 1 if the value was found; otherwise `out` holds `defaultValue`. A null argument gives 0
 *         and leaves `out` as it is.
 */
QOR_API signed char ConfigFileReadStrDef(const char* file, const char* group, const char* name,
                                         char* out, unsigned int size, const char* defaultValue);

QOR_END_C
