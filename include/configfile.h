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
 */
#pragma once

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
 * @param outLen   takes the number of bytes written to `out`
 * @param context  what the caller passed to the write
 */
using ConfigValueEncryptFunc = signed char (*)(unsigned char* plain, unsigned long plainLen,
                                               unsigned char* out, unsigned long outSize,
                                               unsigned int* outLen, void* context);

/** Deciphers one value of `cipherLen` bytes into a terminated text of at most `outSize` (512). */
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
 * @param length      holds the text's length; takes the number of bytes to write
 */
using ConfigFileEncryptFunc = signed char (*)(unsigned char* buffer, unsigned long bufferSize,
                                              unsigned int* length);

/** @} */

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
    QOR_LOCAL bool readFile();
    QOR_LOCAL bool writeFile() const;

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
