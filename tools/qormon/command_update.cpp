#include "arguments.h"
#include "commands.h"
#include "update_facts.h"

#include <cstdio>

#include "qorurl.h"

namespace qormon {

namespace {

constexpr char usage[] =
    "usage: qormon update URL [--language N] [--proxy HOST:PORT] [--json]\n"
    "\n"
    "Asks the update server at URL for the newest release and prints what it offers.\n"
    "  --language N       the group of the description to read (2 where it has no such group)\n"
    "  --proxy HOST:PORT  goes through an HTTP proxy\n"
    "  --json             prints one JSON object instead of a table\n";

constexpr unsigned int httpPort = 80;
constexpr unsigned int defaultLanguage = 2;
constexpr unsigned int highestLanguage = 0x7FFFFFFF;

struct Request {
    std::string url;
    unsigned int language = defaultLanguage;
    HostAndPort proxy{"", 0};
    bool json = false;
};

int refuse(const std::string& why) {
    std::fprintf(stderr, "qormon update: %s\n%s", why.c_str(), usage);
    return exitUsage;
}

// Says what is wrong with a URL; empty where nothing is.
std::string refusalOf(const std::string& url) {
    QORINET_URL parts = {};
    const bool parsed = QorInetUrlParse(url.c_str(), &parts, httpPort) != 0;
    const bool secure = parts.secure != 0;
    QorInetUrlFree(&parts);
    if (!parsed) {
        return "no URL: " + url;
    }
    return secure ? "https can't be spoken, only http: " + url : "";
}

// Fills the request; the result is an error text, empty where there is none.
std::string readRequest(const Arguments& arguments, Request& request) {
    request.url = arguments.operand(0);
    request.json = arguments.has("--json");
    std::string refusal = refusalOf(request.url);
    if (!refusal.empty()) {
        return refusal;
    }
    if (const std::string* text = arguments.value("--language")) {
        const std::optional<unsigned int> number = parseNumber(*text, highestLanguage);
        if (!number) {
            return "no language number: " + *text;
        }
        request.language = *number;
    }
    if (const std::string* text = arguments.value("--proxy")) {
        const std::optional<HostAndPort> proxy = parseHostAndPort(*text);
        if (!proxy) {
            return "no HOST:PORT: " + *text;
        }
        request.proxy = *proxy;
    }
    return "";
}

int answer(const Request& request) {
    const auto facts =
        checkForUpdate(request.language, request.url, request.proxy.host, request.proxy.port);
    if (!facts) {
        std::fprintf(stderr, "qormon update: no answer from %s\n", request.url.c_str());
        return exitNegative;
    }
    if (request.json) {
        printJson(*facts);
    } else {
        printTable(*facts);
    }
    if (facts->empty()) {
        std::fprintf(stderr, "qormon update: %s offers nothing\n", request.url.c_str());
        return exitNegative;
    }
    return exitSuccess;
}

} // namespace

int commandUpdate(const Words& words) {
    const Arguments arguments(
        words,
        {{"--language", "N"}, {"--proxy", "HOST:PORT"}, {"--json", nullptr}, {"--help", nullptr}},
        1);
    if (arguments.has("--help")) {
        std::fputs(usage, stdout);
        return exitSuccess;
    }
    if (!arguments.error().empty()) {
        return refuse(arguments.error());
    }
    Request request;
    const std::string error = readRequest(arguments, request);
    if (!error.empty()) {
        return refuse(error);
    }
    return answer(request);
}

} // namespace qormon
