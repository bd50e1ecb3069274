#include "qoripaddr.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "ip_sizes.h"

namespace {

constexpr std::size_t groupCount = 8;
constexpr std::size_t ipV4TextBytes = 16; // "255.255.255.255" and its terminator
constexpr std::size_t ipV6TextBytes = 40; // eight groups of four digits and the terminator
constexpr unsigned int noDigit = 0xFF;

// ---- Text to bytes ----

// Values of the hexadecimal digits; noDigit for every other character, the terminator included.
constexpr std::array<std::uint8_t, 256> makeHexValues() {
    std::array<std::uint8_t, 256> values{};
    for (std::size_t c = 0; c < values.size(); ++c) {
        values[c] = noDigit;
    }
    for (std::uint8_t digit = 0; digit < 10; ++digit) {
        values[static_cast<std::size_t>('0') + digit] = digit;
    }
    for (std::uint8_t digit = 10; digit < 16; ++digit) {
        values[static_cast<std::size_t>('a') + digit - 10] = digit;
        values[static_cast<std::size_t>('A') + digit - 10] = digit;
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> hexValues = makeHexValues();

unsigned int hexValue(char c) {
    return hexValues[static_cast<unsigned char>(c)];
}

// Above 9 for everything that is no decimal digit.
unsigned int decimalValue(char c) {
    return static_cast<unsigned int>(static_cast<unsigned char>(c)) - '0';
}

// Reads one octet and moves the text behind its digits. Kept: there may be any number of leading
// zeros, and they do not mean octal.
bool readOctet(const char*& text, unsigned char& octet) {
    unsigned int value = decimalValue(*text);
    if (value > 9) {
        return false;
    }
    for (unsigned int digit = decimalValue(*++text); digit <= 9; digit = decimalValue(*++text)) {
        value = value * 10 + digit;
        if (value > 255) {
            return false;
        }
    }
    octet = static_cast<unsigned char>(value);
    return true;
}

// Reads an address, however many digits its octets have.
bool readIpV4(const char* text, unsigned char (&octets)[ipV4Bytes]) {
    for (std::size_t i = 0; i < ipV4Bytes; ++i) {
        if (!readOctet(text, octets[i]) || *text != (i + 1 < ipV4Bytes ? '.' : '\0')) {
            return false;
        }
        ++text;
    }
    return true;
}

// Reads an octet of one to three digits up to `end`, or fails. Which of them are there is decided
// by arithmetic, since a branch on it would be mispredicted every other time. No byte behind a
// terminator is read: each one is looked at only after the one before it was found to be none.
inline bool readShortOctet(const char*& text, char end, unsigned char& octet) {
    const unsigned int first = decimalValue(text[0]);
    if (first > 9) {
        return false;
    }
    const unsigned int second = decimalValue(text[1]);
    if (text[1] == '\0') {
        octet = static_cast<unsigned char>(first);
        ++text;
        return end == '\0';
    }
    const unsigned int third = decimalValue(text[2]);
    const unsigned int hasSecond = second <= 9;
    const unsigned int hasThird = hasSecond & static_cast<unsigned int>(third <= 9);
    const unsigned int two = hasSecond != 0 ? first * 10 + second : first;
    const unsigned int value = hasThird != 0 ? two * 10 + third : two;
    text += 1 + hasSecond + hasThird;
    octet = static_cast<unsigned char>(value);
    return value <= 255 && *text == end;
}

// Reads an address as it is nearly always written. What it refuses may still be one with more
// digits in an octet, for readIpV4.
bool readShortIpV4(const char* text, unsigned char (&octets)[ipV4Bytes]) {
    for (std::size_t i = 0; i < ipV4Bytes; ++i) {
        if (!readShortOctet(text, i + 1 < ipV4Bytes ? '.' : '\0', octets[i])) {
            return false;
        }
        ++text;
    }
    return true;
}

// An IPv6 address while it is read, group by group.
class IpV6Reader {
public:
    bool read(const char* text);
    const unsigned char* bytes() const {
        return address;
    }

private:
    bool endGroup();
    bool readIpV4Tail(const char* text);
    bool finish();
    void moveBehindGap();

    static constexpr std::size_t noGap = SIZE_MAX;

    unsigned char address[ipV6Bytes] = {};
    std::size_t used = 0;    // bytes stored so far
    std::size_t gap = noGap; // where "::" stands
    unsigned int group = 0;
    bool inGroup = false;
};

bool IpV6Reader::read(const char* text) {
    if (*text == ':' && *++text != ':') {
        return false;
    }
    const char* groupStart = text;
    for (char c = *text; c != '\0'; c = *++text) {
        const unsigned int digit = hexValue(c);
        if (digit != noDigit) {
            // Kept: only the value is limited, so that any number of zeros may lead the group.
            group = group << 4 | digit;
            inGroup = true;
            if (group > 0xFFFF) {
                return false;
            }
        } else if (c == ':') {
            groupStart = text + 1;
            if (!endGroup()) {
                return false;
            }
        } else {
            return c == '.' && readIpV4Tail(groupStart) && finish();
        }
    }
    // A ":" that ends the text behind a group has no effect (kept: callers' texts rely on it).
    return (!inGroup || endGroup()) && finish();
}

// A ":" or the end of the text: stores the group before it. Without one it is the second half of
// a "::", of which there may be only one.
bool IpV6Reader::endGroup() {
    if (!inGroup) {
        if (gap != noGap) {
            return false;
        }
        gap = used;
        return true;
    }
    if (used + 2 > ipV6Bytes) {
        return false;
    }
    address[used++] = static_cast<unsigned char>(group >> 8);
    address[used++] = static_cast<unsigned char>(group & 0xFF);
    group = 0;
    inGroup = false;
    return true;
}

bool IpV6Reader::readIpV4Tail(const char* text) {
    if (used + ipV4Bytes > ipV6Bytes || qor_inet_pton4(text, address + used) == 0) {
        return false;
    }
    used += ipV4Bytes;
    return true;
}

bool IpV6Reader::finish() {
    if (gap != noGap) {
        moveBehindGap();
        used = ipV6Bytes;
    }
    return used == ipV6Bytes;
}

// Moves what stands behind the gap to the end. Kept: where no byte is missing, each byte is moved
// onto itself and then cleared, so that the groups behind a superfluous "::" read as zero.
void IpV6Reader::moveBehindGap() {
    std::size_t to = ipV6Bytes;
    for (std::size_t from = used; from > gap;) {
        address[--to] = address[--from];
        address[from] = 0;
    }
}

// ---- Bytes to text ----

// The text of each octet with a dot behind it, in 4 bytes that are stored at once.
struct OctetText {
    char text[4];
};

constexpr std::array<OctetText, 256> makeOctetTexts() {
    std::array<OctetText, 256> texts{};
    for (unsigned int octet = 0; octet < texts.size(); ++octet) {
        std::size_t length = 0;
        if (octet >= 100) {
            texts[octet].text[length++] = static_cast<char>('0' + octet / 100);
        }
        if (octet >= 10) {
            texts[octet].text[length++] = static_cast<char>('0' + octet / 10 % 10);
        }
        texts[octet].text[length++] = static_cast<char>('0' + octet % 10);
        texts[octet].text[length] = '.';
    }
    return texts;
}

constexpr std::array<OctetText, 256> octetTexts = makeOctetTexts();

// Writes four octets and the terminator to a buffer of at least ipV4TextBytes and returns the
// text's length. Each octet is stored as 4 bytes, of which the next one overwrites the surplus.
std::size_t writeIpV4(const unsigned char* src, char* text) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < ipV4Bytes; ++i) {
        const unsigned int octet = src[i];
        memcpy(text + length, octetTexts[octet].text, sizeof(OctetText));
        length += octet >= 100 ? 4U : octet >= 10 ? 3U : 2U;
    }
    text[--length] = '\0'; // in place of the last dot
    return length;
}

// Writes a group without leading zeros and returns the end.
char* writeGroup(unsigned int group, char* text) {
    constexpr char digits[] = "0123456789abcdef";
    if (group > 0xFFF) {
        *text++ = digits[group >> 12];
    }
    if (group > 0xFF) {
        *text++ = digits[group >> 8 & 0xF];
    }
    if (group > 0xF) {
        *text++ = digits[group >> 4 & 0xF];
    }
    *text++ = digits[group & 0xF];
    return text;
}

struct Run {
    std::size_t start;
    std::size_t count;
};

// The longest run of zero groups, of equal ones the first.
Run longestZeroRun(const unsigned int (&groups)[groupCount]) {
    Run best{0, 0};
    std::size_t count = 0;
    for (std::size_t i = 0; i < groupCount; ++i) {
        count = groups[i] == 0 ? count + 1 : 0;
        if (count > best.count) {
            best = {i + 1 - count, count};
        }
    }
    return best;
}

bool hasIpV4Tail(const unsigned int (&groups)[groupCount], const Run& run) {
    return run.start == 0 && (run.count == 6 || (run.count == 5 && groups[5] == 0xFFFF));
}

// Writes the address and the terminator to a buffer of ipV6TextBytes and returns the text's length.
std::size_t writeIpV6(const unsigned char* src, char* const text) {
    unsigned int groups[groupCount];
    for (std::size_t i = 0; i < groupCount; ++i) {
        groups[i] = static_cast<unsigned int>(src[2 * i] << 8 | src[2 * i + 1]);
    }
    const Run run = longestZeroRun(groups);
    const bool ipV4Tail = hasIpV4Tail(groups, run);
    char* end = text;
    for (std::size_t i = 0; i < groupCount; ++i) {
        if (run.count >= 2 && i == run.start) {
            *end++ = ':';
            i += run.count;
            if (i == groupCount) {
                *end++ = ':';
                break;
            }
        }
        if (i != 0) {
            *end++ = ':';
        }
        if (ipV4Tail && i == 6) {
            end += writeIpV4(src + 12, end);
            break;
        }
        end = writeGroup(groups[i], end);
    }
    *end = '\0';
    return static_cast<std::size_t>(end - text);
}

} // namespace

int qor_inet_pton4(const char* text, unsigned char* dest) {
    if (text == nullptr || dest == nullptr) {
        return 0;
    }
    unsigned char octets[ipV4Bytes];
    if (!readShortIpV4(text, octets) && !readIpV4(text, octets)) {
        return 0;
    }
    memcpy(dest, octets, sizeof octets);
    return 1;
}

int qor_inet_pton6(const char* text, unsigned char* dest) {
    if (text == nullptr || dest == nullptr) {
        return 0;
    }
    IpV6Reader reader;
    if (!reader.read(text)) {
        return 0;
    }
    memcpy(dest, reader.bytes(), ipV6Bytes);
    return 1;
}

char* qor_inet_ntop4(const unsigned char* src, char* dest, std::size_t size) {
    if (src == nullptr || dest == nullptr) {
        return nullptr;
    }
    char text[ipV4TextBytes];
    const std::size_t length = writeIpV4(src, text);
    // Kept: the terminator is not counted, and programs pass buffers of exactly the text's length.
    if (length > size) {
        return nullptr;
    }
    memcpy(dest, text, length + 1);
    return dest;
}

char* qor_inet_ntop6(const unsigned char* src, char* dest, std::size_t size) {
    if (src == nullptr || dest == nullptr) {
        return nullptr;
    }
    char text[ipV6TextBytes];
    const std::size_t length = writeIpV6(src, text);
    if (length >= size) {
        return nullptr;
    }
    memcpy(dest, text, length + 1);
    return dest;
}
