#include "arguments.h"
#include "commands.h"
#include "download.h"
#include "update_facts.h"
#include "usage.h"

#include <cstdio>

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon update URL [--language N] [--proxy HOST:PORT] [--download FILE] [--json]\n"
    "\n"
    "Asks the update server at URL for the newest release and prints what it offers.\n"
    "  --language N       the group of the description to read (2 where it has no such group)\n"
    "  --proxy HOST:PORT  goes through an HTTP proxy\n"
    "  --download FILE    fetches it into FILE, if the server's is newer\n"
    "  --json             prints one JSON object instead of a table\n";
constexpr Usage usage = {"update", usageText};

constexpr unsigned int defaultLanguage = 2;
constexpr unsigned int highestLanguage = 0x7FFFFFFF;

struct Request {
    std::string url;
    unsigned int language = defaultLanguage;
    HostAndPort proxy{"", 0};
    bool json = false;
    std::optional<std::string> file; // to download what is offered into
};

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
    if (const std::string* text = arguments.value("--download")) {
        request.file = *text;
    }
    return readProxy(arguments, request.proxy);
}

int complain(const std::string& what) {
    std::fprintf(stderr, "qormon update: %s\n", what.c_str());
    return exitNegative;
}

// Downloads what the server offers.
int fetch(const Request& request, const std::vector<UpdateFact>& facts) {
    std::fflush(stdout); // what went wrong is read behind the table
    const UpdateFact* const fact = findFact(facts, "urlDownload");
    if (fact == nullptr) {
        return complain(request.url + " offers no download");
    }
    const std::string refusal = refusalOf(fact->value);
    if (!refusal.empty()) {
        return complain(refusal);
    }
    // With --json standard output belongs to the object.
    Download download{"update", request.json ? stderr : stdout, fact->value, *request.file};
    download.proxy = request.proxy;
    return exitCodeAfter(download, getUpdate(download));
}

int answer(const Request& request) {
    const auto facts =
        checkForUpdate(request.language, request.url, request.proxy.host, request.proxy.port);
    if (!facts) {
        return complain("no answer from " + request.url);
    }
    if (request.json) {
        printJson(*facts);
    } else {
        printTable(*facts);
    }
    if (facts->empty()) {
        return complain(request.url + " offers nothing");
    }
    return request.file ? fetch(request, *facts) : exitSuccess;
}

} // namespace

int commandUpdate(const Words& words) {
    const Arguments arguments(words,
                              {{"--language", "N"},
                               {"--proxy", "HOST:PORT"},
                               {"--download", "FILE"},
                               {"--json", nullptr},
                               {"--help", nullptr}},
                              1);
    if (arguments.has("--help")) {
        return usage.show();
    }
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    Request request;
    const std::string error = readRequest(arguments, request);
    if (!error.empty()) {
        return usage.refuse(error);
    }
    return answer(request);
}

} // namespace qormon
