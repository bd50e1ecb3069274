#include "arguments.h"

#include <algorithm>

#include "qorurl.h"
#include "text.h"

namespace qormon {

namespace {

constexpr std::size_t longestHost = 127;
constexpr unsigned int httpPort = 80;
constexpr unsigned int highestPort = 65535;

std::string withoutBrackets(const std::string& host) {
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return bracketed ? host.substr(1, host.size() - 2) : host;
}

bool isBlankOrControl(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code <= 0x20 || code == 0x7F;
}

} // namespace

Arguments::Arguments(const Words& words, const std::vector<Option>& known,
                     std::size_t operandCount) {
    bool optionsEnded = false;
    for (std::size_t i = 0; i < words.size() && error_.empty(); ++i) {
        if (!optionsEnded && words[i] == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && words[i].size() > 1 && words[i][0] == '-') {
            if (!takeOption(words, i, known)) {
                return;
            }
        } else {
            operands_.push_back(words[i]);
        }
    }
    if (operands_.size() < operandCount) {
        error_ = "an argument is missing";
    } else if (operands_.size() > operandCount) {
        error_ = "one argument too many: " + operands_[operandCount];
    }
}

bool Arguments::takeOption(const Words& words, std::size_t& index,
                           const std::vector<Option>& known) {
    const std::string& word = words[index];
    const auto option = std::find_if(known.begin(), known.end(),
                                     [&word](const Option& each) { return word == each.name; });
    if (option == known.end()) {
        error_ = "unknown option " + word;
        return false;
    }
    if (option->valueName == nullptr) {
        options_[word] = "";
        return true;
    }
    if (index + 1 == words.size()) {
        error_ = word + " needs " + option->valueName;
        return false;
    }
    options_[word] = words[++index];
    return true;
}

const std::string* Arguments::value(const char* option) const {
    const auto found = options_.find(option);
    return found == options_.end() ? nullptr : &found->second;
}

std::optional<HostAndPort> parseHostAndPort(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    const std::string host = withoutBrackets(text.substr(0, colon));
    const std::optional<unsigned int> port = parseNumber(text.substr(colon + 1), highestPort);
    if (!port || *port == 0 || host.size() > longestHost) {
        return std::nullopt;
    }
    return HostAndPort{host, *port};
}

std::string readProxy(const Arguments& arguments, HostAndPort& proxy) {
    const std::string* const text = arguments.value("--proxy");
    if (text == nullptr) {
        return "";
    }
    const std::optional<HostAndPort> place = parseHostAndPort(*text);
    if (!place) {
        return "no HOST:PORT: " + *text;
    }
    proxy = *place;
    return "";
}

std::string refusalOf(const std::string& url) {
    // They would end the request's line, and what follows would be headers of the URL's own.
    if (std::any_of(url.begin(), url.end(), isBlankOrControl)) {
        return "a URL has no blanks and control characters: " + printable(url);
    }
    QORINET_URL parts = {};
    const bool parsed = QorInetUrlParse(url.c_str(), &parts, httpPort) != 0;
    const bool named = parsed && parts.host[0] != '\0';
    const bool secure = parts.secure != 0;
    const unsigned int port = parts.port;
    QorInetUrlFree(&parts);
    if (secure) {
        return "https can't be spoken, only http: " + printable(url);
    }
    if (!named) {
        return "no URL: " + printable(url);
    }
    // Of another scheme the parser makes a host, with what follows its colon as the port.
    return port == 0 || port > highestPort ? "no port from 1 to 65535 in " + printable(url) : "";
}

std::optional<unsigned int> parseNumber(const std::string& text, unsigned int limit) {
    unsigned long long number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        number = number * 10 + static_cast<unsigned int>(c - '0');
        if (number > limit) {
            return std::nullopt;
        }
    }
    if (text.empty()) {
        return std::nullopt;
    }
    return static_cast<unsigned int>(number);
}

} // namespace qormon
