// Dates of HTTP, in more forms than it has.
#include "httpvalue.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace {

struct NamedNumber {
    std::string_view name;
    long number;
};

// In the order of their names, for the binary search.
constexpr NamedNumber months[] = {
    {"apr", 3},       {"april", 3}, {"aug", 7},       {"august", 7},    {"dec", 11},
    {"december", 11}, {"feb", 1},   {"february", 1},  {"jan", 0},       {"january", 0},
    {"jul", 6},       {"july", 6},  {"jun", 5},       {"june", 5},      {"mar", 2},
    {"march", 2},     {"may", 4},   {"nov", 10},      {"november", 10}, {"oct", 9},
    {"october", 9},   {"sep", 8},   {"september", 8},
};
constexpr NamedNumber weekdays[] = {
    {"fri", 5},      {"friday", 5},  {"mon", 1},    {"monday", 1},    {"sat", 6},
    {"saturday", 6}, {"sun", 0},     {"sunday", 0}, {"thu", 4},       {"thursday", 4},
    {"tue", 2},      {"tuesday", 2}, {"wed", 3},    {"wednesday", 3},
};

template <std::size_t count>
constexpr bool isSorted(const NamedNumber (&table)[count]) {
    for (std::size_t i = 1; i < count; ++i) {
        if (!(table[i - 1].name < table[i].name)) {
            return false;
        }
    }
    return true;
}
static_assert(isSorted(months) && isSorted(weekdays));

constexpr std::size_t longestName = std::string_view("september").size();

constexpr long daysBeforeMonth[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
constexpr long march = 2;

// The forms in the order in which they are tried, in the notation of strptime and the meaning of
// scanf: a number may have blanks and a sign in front of it, a blank stands for any number of them,
// also none. Since no more is read than the fields need, no form has the "GMT" that may end it.
constexpr const char* forms[] = {
    "%d-%b-%Y %H:%M:%S",        "%d %b %Y %H:%M:%S",     "%H:%M:%S GMT %d-%b-%Y",
    "%H:%M:%S GMT %d %b %Y",    "%a, %d-%b-%Y %H:%M:%S", "%a, %d %b %Y %H:%M:%S",
    "%a %b %d %H:%M:%S GMT %Y",
};

struct Date {
    long year; // as written
    long month;
    long day;
    long hour;
    long minute;
    long second;
};

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

const char* skipBlanks(const char* text) {
    while (isBlank(*text)) {
        ++text;
    }
    return text;
}

void lowerCase(char* text) {
    for (; *text != '\0'; ++text) {
        if (*text >= 'A' && *text <= 'Z') {
            *text = static_cast<char>(*text - 'A' + 'a');
        }
    }
}

template <std::size_t count>
bool findNumber(const NamedNumber (&table)[count], std::string_view name, long& number) {
    const NamedNumber* const found = std::lower_bound(
        std::begin(table), std::end(table), name,
        [](const NamedNumber& row, std::string_view key) { return row.name < key; });
    if (found == std::end(table) || found->name != name) {
        return false;
    }
    number = found->number;
    return true;
}

// Reads a number as scanf does for an int, with the same limits: beyond 64 bits it stops at the
// largest one, and the low 32 bits count.
bool readNumber(const char*& text, long& number) {
    text = skipBlanks(text);
    const bool negative = *text == '-';
    if (negative || *text == '+') {
        ++text;
    }
    if (!isDigit(*text)) {
        return false;
    }
    constexpr std::uint64_t largest = INT64_MAX;
    std::uint64_t magnitude = 0;
    for (; isDigit(*text); ++text) {
        const auto digit = static_cast<std::uint64_t>(*text - '0');
        magnitude = magnitude > largest / 10 ? UINT64_MAX : magnitude * 10 + digit;
    }
    magnitude = std::min(magnitude, negative ? largest + 1 : largest);
    number =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(negative ? 0 - magnitude : magnitude));
    return true;
}

// Reads a word of letters and looks it up.
template <std::size_t count>
bool readName(const char*& text, const NamedNumber (&table)[count], long& number) {
    char name[longestName + 1] = "";
    std::size_t length = 0;
    for (; isLetter(*text); ++text) {
        if (length == longestName) {
            return false;
        }
        name[length++] = *text;
    }
    lowerCase(name);
    return findNumber(table, {name, length}, number);
}

bool readField(char field, const char*& text, Date& date) {
    long weekday = 0; // has to be one, no more
    switch (field) {
    case 'a':
        return readName(text, weekdays, weekday);
    case 'b':
        return readName(text, months, date.month);
    case 'd':
        return readNumber(text, date.day);
    case 'Y':
        return readNumber(text, date.year);
    case 'H':
        return readNumber(text, date.hour);
    case 'M':
        return readNumber(text, date.minute);
    default:
        return readNumber(text, date.second);
    }
}

bool readForm(const char* form, const char* text, Date& date) {
    for (; *form != '\0'; ++form) {
        if (*form == '%') {
            if (!readField(*++form, text, date)) {
                return false;
            }
        } else if (*form == ' ') {
            text = skipBlanks(text);
        } else if (*text++ != *form) {
            return false;
        }
    }
    return true;
}

long yearsSince1900(long year) {
    if (year < 70) {
        return year + 100;
    }
    // Kept: 1900 itself counts from 1900, too.
    return year <= 1900 ? year : year - 1900;
}

bool isLeapYear(long year) {
    return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

// All fields have 32 bits, so that nothing overflows here. Kept: the count of leap days cuts
// towards zero and knows no centuries, which makes most dates before 1969 and all from 2101 on a
// day late or more.
long secondsSince1970(const Date& date) {
    const long years = yearsSince1900(date.year);
    long days = (years - 69) / 4 + 365 * years - 25550 + daysBeforeMonth[date.month] + date.day - 1;
    if (date.month >= march && isLeapYear(years + 1900)) {
        ++days;
    }
    return ((days * 24 + date.hour) * 60 + date.minute) * 60 + date.second;
}

} // namespace

long StrToDate(const char* text) {
    if (text == nullptr) {
        return -1;
    }
    while (*text == ' ' || *text == '\t') {
        ++text;
    }
    for (const char* form : forms) {
        Date date = {};
        if (readForm(form, text, date)) {
            return secondsSince1970(date);
        }
    }
    return -1;
}

int scan_mon(char* text, long* value) {
    if (text == nullptr || value == nullptr) {
        return 0;
    }
    lowerCase(text);
    return findNumber(months, text, *value) ? 1 : 0;
}

int scan_wday(char* text, long* value) {
    if (text == nullptr || value == nullptr) {
        return 0;
    }
    lowerCase(text);
    return findNumber(weekdays, text, *value) ? 1 : 0;
}
