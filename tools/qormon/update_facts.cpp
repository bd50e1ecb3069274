#include "update_facts.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "mif32.h"
#include "qorupdate.h"
#include "rows.h"
#include "text.h"

namespace qormon {

namespace {

struct FactName {
    unsigned short identifier;
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

// Three texts of 256 characters and four numbers with their headers fit several times over.
constexpr unsigned int messageCapacity = 4096;

std::optional<std::string> findValue(const Mif32& message, const FactName& name) {
    unsigned int number = 0;
    std::string text;
    if (name.isNumber) {
        return message.GetInt(name.identifier, &number, 1)
                   ? std::optional<std::string>(std::to_string(number))
                   : std::nullopt;
    }
    return message.GetStr(name.identifier, &text, 1) ? std::optional<std::string>(text)
                                                     : std::nullopt;
}

} // namespace

std::optional<std::vector<UpdateFact>> checkForUpdate(unsigned int language, const std::string& url,
                                                      const std::string& proxyHost,
                                                      unsigned int proxyPort) {
    std::vector<unsigned char> memory(messageCapacity);
    const unsigned int size =
        CheckForUpdate(static_cast<int>(language), url.c_str(), proxyHost.c_str(), proxyPort,
                       memory.data(), messageCapacity);
    if (size == 0) {
        return std::nullopt;
    }
    const Mif32 message(memory.data(), size);
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
        printRow(fact.label, printable(fact.value));
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
