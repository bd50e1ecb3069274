// What an update server offers, read back from the message that CheckForUpdate gives.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qormon {

struct UpdateFact {
    const char* label; // for a person
    const char* key;   // for a program
    bool isNumber;
    std::string value;
};

// One update check. No value: no answer at all; an empty list: an answer that offers nothing.
std::optional<std::vector<UpdateFact>> checkForUpdate(unsigned int language, const std::string& url,
                                                      const std::string& proxyHost,
                                                      unsigned int proxyPort);

// The fact of that key; null where it is not offered. It stays the list's.
const UpdateFact* findFact(const std::vector<UpdateFact>& facts, const char* key);

void printTable(const std::vector<UpdateFact>& facts);
void printJson(const std::vector<UpdateFact>& facts);

} // namespace qormon
