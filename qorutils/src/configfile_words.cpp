// Values that are words of a table: one number, or the bits of a mask.
#include "configfile.h"

#include <strings.h>

#include <cstddef>
#include <cstring>

#include "qoros.h"
#include "secret.h"

static_assert(offsetof(CONFIGSTR2INT, value) == 0 && offsetof(CONFIGSTR2INT, text) == 8 &&
              sizeof(CONFIGSTR2INT) == 16);
static_assert(offsetof(CONFIGBITMASK, value) == 0 && offsetof(CONFIGBITMASK, text) == 8 &&
              sizeof(CONFIGBITMASK) == 16);

namespace {

constexpr unsigned int wordsSize = 512;

// Kept: three rules that differ on purpose. Reading takes words between any of these separators ...
constexpr char readSeparators[] = ",;| ";
// ... writing joins the rows that share a bit with the mask ...
constexpr char writtenSeparator[] = ",";
// ... and showing joins the rows all of whose bits are in it.
constexpr char shownSeparator[] = ", ";

template <class Row>
bool isEnd(const Row& row) {
    return row.text == nullptr || row.text[0] == '\0';
}

// The first row with the word, case aside; null if there is none.
template <class Row>
const Row* findWord(const Row* table, const char* word) {
    for (const Row* row = table; !isEnd(*row); ++row) {
        if (strcasecmp(row->text, word) == 0) {
            return row;
        }
    }
    return nullptr;
}

// Stores the default and reads the value; false where an argument or the value is missing.
bool readWords(const ConfigFile& config, const char* group, const char* name,
               char (&value)[wordsSize], unsigned int* out, unsigned int defaultValue) {
    if (group == nullptr || name == nullptr || out == nullptr) {
        return false;
    }
    *out = defaultValue;
    return config.ReadStr(group, name, value, sizeof value) != 0;
}

// Appends a word, behind a separator unless it is the first one.
void appendWord(char* out, unsigned int size, const char* separator, const char* word, bool first) {
    strcat_qor(out, size, first ? "" : separator);
    strcat_qor(out, size, word);
}

} // namespace

signed char ConfigFile::ReadStr2IntDef(const char* group, const char* name,
                                       const CONFIGSTR2INT* table, unsigned int* out,
                                       unsigned int defaultValue) const {
    secret::Text<wordsSize> value;
    if (table == nullptr || !readWords(*this, group, name, value.chars, out, defaultValue)) {
        return 0;
    }
    const CONFIGSTR2INT* const row = findWord(table, value.chars);
    if (row == nullptr) {
        return 0;
    }
    *out = row->value;
    return 1;
}

signed char ConfigFile::ReadStr2Int(const char* group, const char* name, const CONFIGSTR2INT* table,
                                    unsigned int* out) const {
    return ReadStr2IntDef(group, name, table, out, 0);
}

signed char ConfigFile::ReadBitMaskDef(const char* group, const char* name,
                                       const CONFIGBITMASK* table, unsigned int* out,
                                       unsigned int defaultValue) const {
    secret::Text<wordsSize> value;
    if (table == nullptr || !readWords(*this, group, name, value.chars, out, defaultValue)) {
        return 0;
    }
    signed char result = 1;
    char* rest = nullptr;
    for (const char* word = strtok_r(value.chars, readSeparators, &rest); word != nullptr;
         word = strtok_r(nullptr, readSeparators, &rest)) {
        const CONFIGBITMASK* const row = findWord(table, word);
        // Kept: the default's bits stay set, and an unknown word does not keep the others out.
        *out |= row == nullptr ? 0 : row->value;
        result = row == nullptr ? 0 : result;
    }
    return result;
}

signed char ConfigFile::ReadBitMask(const char* group, const char* name, const CONFIGBITMASK* table,
                                    unsigned int* out) const {
    return ReadBitMaskDef(group, name, table, out, 0);
}

signed char ConfigFile::WriteBitMask(const char* group, const char* name,
                                     const CONFIGBITMASK* table, unsigned int mask) {
    if (group == nullptr || name == nullptr || table == nullptr) {
        return 0;
    }
    secret::Text<wordsSize> words;
    words.chars[0] = '\0';
    for (const CONFIGBITMASK* row = table; !isEnd(*row); ++row) {
        if ((row->value & mask) != 0) {
            appendWord(words.chars, wordsSize, writtenSeparator, row->text, words.chars[0] == '\0');
        }
    }
    return WriteStr(group, name, words.chars);
}

const char* ConfigFile::Int2Text(unsigned int value, const CONFIGSTR2INT* table) {
    if (table == nullptr) {
        return "";
    }
    const CONFIGSTR2INT* row = table;
    while (!isEnd(*row) && row->value != value) {
        ++row;
    }
    return row->text;
}

void ConfigFile::BitMask2Text(unsigned int mask, const CONFIGBITMASK* table, char* out,
                              unsigned int size) {
    if (table == nullptr || out == nullptr) {
        return;
    }
    strcpy_qor(out, size, "");
    bool first = true;
    const char* zeroText = "";
    for (const CONFIGBITMASK* row = table; !isEnd(*row); ++row) {
        if (row->value == 0) {
            zeroText = row->text;
        } else if ((row->value & mask) == row->value) {
            appendWord(out, size, shownSeparator, row->text, first);
            first = false;
        }
    }
    if (first) {
        strcpy_qor(out, size, zeroText);
    }
}
