// Takes a command's words apart into options and operands.
#pragma once

#include "commands.h"

#include <map>
#include <optional>
#include <string>

namespace qormon {

// An option that a command knows. One that takes a value has its name shown in the usage.
struct Option {
    const char* name;      // with its dashes
    const char* valueName; // null for a switch
};

class Arguments {
public:
    // Takes words apart by the options that are known; `--` ends the options. An unknown option, a
    // missing value or a wrong number of operands leaves an error text.
    Arguments(const Words& words, const std::vector<Option>& known, std::size_t operandCount);

    const std::string& error() const {
        return error_;
    }

    bool has(const char* option) const {
        return options_.count(option) != 0;
    }

    // The option's value; null where it was not given.
    const std::string* value(const char* option) const;

    const std::string& operand(std::size_t index) const {
        return operands_[index];
    }

private:
    bool takeOption(const Words& words, std::size_t& index, const std::vector<Option>& known);

    std::map<std::string, std::string> options_;
    Words operands_;
    std::string error_;
};

struct HostAndPort {
    std::string host;
    unsigned int port;
};

// Reads HOST:PORT with a port from 1 to 65535; an IPv6 address may stand in brackets. A host longer
// than the library holds is refused, since a cut one is another host.
std::optional<HostAndPort> parseHostAndPort(const std::string& text);

// Takes the value of --proxy, where it was given. The result is an error text, empty where there is
// none.
std::string readProxy(const Arguments& arguments, HostAndPort& proxy);

// Says why a URL can't be fetched; empty where nothing is wrong with it.
std::string refusalOf(const std::string& url);

// Reads a whole decimal number from 0 to the limit.
std::optional<unsigned int> parseNumber(const std::string& text, unsigned int limit);

} // namespace qormon
