#include "update_facts.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "qorupdate.h"
#include "text.h"

namespace qormon {

namespace {

struct FactName {
    unsigned int identifier;
    const char* label;
    const char* key;
    bool isNumber;
};

// In the order in which a person reads them, not that of the message.
constexpr FactName factNames[] = {
    {1, "product", "productName", false},
    {2, "version", "version", true},
    {3, "build", "build", true},
    {4, "service pack", "servicePack", true},
    {8, "file size", "fileSize", true},
    {5, "download", "urlDownload", false},
    {6, "more about it", "urlInfo", false},
};

constexpr std::size_t headerSize = 4;
constexpr unsigned int endMark = 0xFFFF;
// Three texts of 256 characters and four numbers with their headers fit several times over.
constexpr std::size_t messageCapacity = 4096;

unsigned int littleEndian(const unsigned char* bytes, std::size_t size) {
    unsigned int number = 0;
    for (std::size_t i = size; i > 0; --i) {
        number = number << 8 | bytes[i - 1];
    }
    return number;
}

std::string valueText(const FactName& name, const unsigned char* value, std::size_t size) {
    if (name.isNumber) {
        return std::to_string(littleEndian(value, size < 4 ? size : 4));
    }
    return std::string(value, value + size);
}

// Finds an entry in a message: 16-bit identifier, 16-bit length, value, end to end.
std::optional<std::string> findValue(const std::vector<unsigned char>& message,
                                     const FactName& name) {
    std::size_t offset = 0;
    while (offset + headerSize <= message.size()) {
        const unsigned char* const entry = message.data() + offset;
        const unsigned int identifier = littleEndian(entry, 2);
        const std::size_t size = littleEndian(entry + 2, 2);
        if (identifier == endMark || offset + headerSize + size > message.size()) {
            return std::nullopt;
        }
        if (identifier == name.identifier) {
            return valueText(name, entry + headerSize, size);
        }
        offset += headerSize + size;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::vector<UpdateFact>> checkForUpdate(unsigned int language, const std::string& url,
                                                      const std::string& proxyHost,
                                                      unsigned int proxyPort) {
    std::vector<unsigned char> message(messageCapacity);
    const unsigned int size =
        CheckForUpdate(static_cast<int>(language), url.c_str(), proxyHost.c_str(), proxyPort,
                       message.data(), static_cast<unsigned int>(message.size()));
    if (size == 0) {
        return std::nullopt;
    }
    message.resize(size);
    std::vector<UpdateFact> facts;
    for (const FactName& name : factNames) {
        if (const std::optional<std::string> value = findValue(message, name)) {
            facts.push_back({name.label, name.key, name.isNumber, *value});
        }
    }
    return facts;
}

const UpdateFact* findFact(const std::vector<UpdateFact>& facts, const char* key) {
    const auto found = std::find_if(facts.begin(), facts.end(), [key](const UpdateFact& fact) {
        return std::strcmp(fact.key, key) == 0;
    });
    return found == facts.end() ? nullptr : &*found;
}

void printTable(const std::vector<UpdateFact>& facts) {
    for (const UpdateFact& fact : facts) {
        std::printf("%-14s  %s\n", fact.label, printable(fact.value).c_str());
    }
}

void printJson(const std::vector<UpdateFact>& facts) {
    std::printf("{");
    const char* separator = "";
    for (const UpdateFact& fact : facts) {
        const std::string value = fact.isNumber ? fact.value : jsonString(fact.value);
        std::printf("%s\"%s\": %s", separator, fact.key, value.c_str());
        separator = ", ";
    }
    std::printf("}\n");
}

} // namespace qormon
