#include "arguments.h"
#include "commands.h"
#include "text.h"
#include "usage.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>

#include "qoripaddr.h"
#include "qormif.h"

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon mif FILE [--json]\n"
    "\n"
    "Prints the entries of a message that a file holds: offset, identifier, length, what the\n"
    "value can be (a number, an address, a text) and a hexadecimal dump of it. The exit code is 1\n"
    "where the message is damaged; what comes before the damage is printed.\n"
    "  --json  prints one JSON object\n";
constexpr Usage usage = {"mif", usageText};

using Bytes = std::vector<unsigned char>;

constexpr std::size_t largestFile = 64U << 20; // bytes; no message comes near
constexpr std::size_t identifierSize = 2;
constexpr unsigned int endMarker = 0xFFFF;
constexpr std::size_t bytesPerLine = 16;

// Bytes of the message where they lie.
struct Value {
    const unsigned char* bytes;
    std::size_t size;
};

struct Entry {
    std::size_t offset;
    unsigned int identifier;
    Value value;
};

struct Message {
    std::size_t end = 0; // offset behind the last entry
    bool endsWithMarker = false;
    bool damaged = false;
};

// Reads a whole file; the result is an error text, empty where there is none.
std::string readFile(const std::string& name, Bytes& bytes) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "rb"),
                                                               std::fclose);
    unsigned char piece[65536];
    while (file != nullptr && bytes.size() <= largestFile) {
        const std::size_t count = std::fread(piece, 1, sizeof piece, file.get());
        bytes.insert(bytes.end(), piece, piece + count);
        if (count == 0) {
            break;
        }
    }
    if (file == nullptr || std::ferror(file.get()) != 0) {
        return std::generic_category().message(errno);
    }
    return bytes.size() > largestFile ? "too large for a message" : "";
}

// Hands out each entry as it is found. The library looks entries up by identifier: what is left of
// the message begins with the next.
template <typename Handle>
Message walk(Bytes& bytes, Handle handle) {
    Message message;
    std::size_t& offset = message.end;
    while (!message.endsWithMarker && bytes.size() - offset >= identifierSize) {
        unsigned char* const rest = bytes.data() + offset;
        const unsigned int identifier = rest[0] | static_cast<unsigned int>(rest[1]) << 8;
        message.endsWithMarker = identifier == endMarker;
        unsigned char* value = nullptr;
        unsigned int length = 0;
        if (qormifGetBinDataPtr(rest, static_cast<unsigned int>(bytes.size() - offset),
                                static_cast<unsigned short>(identifier), &value, &length, 1) == 0) {
            break;
        }
        handle(Entry{offset, identifier, {value, length}});
        offset = static_cast<std::size_t>(value - bytes.data()) + length;
    }
    message.damaged = !message.endsWithMarker && offset != bytes.size();
    return message;
}

// ---- What a value can be ----

struct Reading {
    const char* key;
    std::string text;
    bool isNumber;
};

std::vector<Reading> readingsOf(const Value& value) {
    std::vector<Reading> readings;
    std::uint64_t number = 0;
    if (value.size == 4 || value.size == 8) {
        std::memcpy(&number, value.bytes, value.size);
        readings.push_back({"number", std::to_string(number), true});
    }
    QorIpAddr address;
    if (address.SetIpAddrFromMif(value.bytes, static_cast<unsigned int>(value.size))) {
        readings.push_back({"address", address.GetStr(), false});
    }
    const std::string text(value.bytes, value.bytes + value.size);
    if (!text.empty() && printable(text) == text) {
        readings.push_back({"text", text, false});
    }
    return readings;
}

std::string hexadecimal(const Value& value, std::size_t start, std::size_t end,
                        const char* separator) {
    std::string text;
    for (std::size_t i = start; i < end; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", value.bytes[i]);
        text += i == start ? "" : separator;
        text += digits;
    }
    return text;
}

// ---- For a person ----

void printDump(const Value& value) {
    for (std::size_t start = 0; start < value.size; start += bytesPerLine) {
        const std::size_t end = std::min(start + bytesPerLine, value.size);
        std::string characters;
        for (std::size_t i = start; i < end; ++i) {
            const bool isPlain = value.bytes[i] >= ' ' && value.bytes[i] <= '~';
            characters += isPlain ? static_cast<char>(value.bytes[i]) : '.';
        }
        std::printf("          %-47s  %s\n", hexadecimal(value, start, end, " ").c_str(),
                    characters.c_str());
    }
}

void printEntry(const Entry& entry) {
    std::printf("%8zu  %10u  %6zu", entry.offset, entry.identifier, entry.value.size);
    const char* separator = "  ";
    for (const Reading& reading : readingsOf(entry.value)) {
        const char* const quote = std::strcmp(reading.key, "text") == 0 ? "\"" : "";
        std::printf("%s%s%s%s", separator, quote, reading.text.c_str(), quote);
        separator = ", ";
    }
    std::printf("\n");
    printDump(entry.value);
}

Message printList(Bytes& bytes) {
    std::printf("%8s  %10s  %6s  value\n", "offset", "identifier", "length");
    const Message message = walk(bytes, printEntry);
    if (message.endsWithMarker) {
        std::printf("%8zu  end marker, bytes behind it: %zu\n", message.end,
                    bytes.size() - message.end - identifierSize);
    }
    return message;
}

// ---- For a program ----

void printJsonEntry(const Entry& entry) {
    std::printf("%s{\"offset\": %zu, \"identifier\": %u, \"length\": %zu",
                entry.offset == 0 ? "" : ", ", entry.offset, entry.identifier, entry.value.size);
    for (const Reading& reading : readingsOf(entry.value)) {
        const std::string value = reading.isNumber ? reading.text : jsonString(reading.text);
        std::printf(", \"%s\": %s", reading.key, value.c_str());
    }
    std::printf(", \"hex\": \"%s\"}", hexadecimal(entry.value, 0, entry.value.size, "").c_str());
}

Message printJson(Bytes& bytes) {
    std::printf("{\"entries\": [");
    const Message message = walk(bytes, printJsonEntry);
    std::printf("], \"end\": %zu, \"size\": %zu, \"endMarker\": %s, \"damaged\": %s}\n",
                message.end, bytes.size(), message.endsWithMarker ? "true" : "false",
                message.damaged ? "true" : "false");
    return message;
}

int complain(const std::string& about, const std::string& what) {
    std::fprintf(stderr, "qormon mif: %s: %s\n", printable(about).c_str(), what.c_str());
    return exitNegative;
}

int show(const std::string& file, bool asJson) {
    Bytes bytes;
    const std::string error = readFile(file, bytes);
    if (!error.empty()) {
        return complain(file, error);
    }
    const Message message = asJson ? printJson(bytes) : printList(bytes);
    if (!message.damaged) {
        return exitSuccess;
    }
    std::fflush(stdout); // so that the complaint comes last
    return complain(file, "damaged at offset " + std::to_string(message.end) + " of " +
                              std::to_string(bytes.size()) + ": no whole entry");
}

} // namespace

int commandMif(const Words& words) {
    const Arguments arguments(words, {{"--json", nullptr}, {"--help", nullptr}}, 1);
    if (arguments.has("--help")) {
        return usage.show();
    }
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    return show(arguments.operand(0), arguments.has("--json"));
}

} // namespace qormon
