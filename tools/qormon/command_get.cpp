#include "arguments.h"
#include "commands.h"
#include "download.h"
#include "usage.h"

namespace qormon {

namespace {

constexpr char usageText[] =
    "usage: qormon get URL FILE [--proxy HOST:PORT] [--proxy-user USER:PASSWORD]\n"
    "\n"
    "Downloads what is at URL into FILE, and gives it the time that the server tells. Where\n"
    "there is a FILE, it is replaced only if the server's is newer.\n"
    "  --proxy HOST:PORT           goes through an HTTP proxy\n"
    "  --proxy-user USER:PASSWORD  logs on to it; others on this machine can read that in the\n"
    "                              list of processes\n"
    "\n"
    "Ctrl-C ends a download. A download that fails leaves in FILE what has come so far.\n";
constexpr Usage usage = {"get", usageText};

// Beyond that the library sends none.
constexpr std::size_t longestCredentials = 198; // USER and PASSWORD together

// Takes the credentials; the result is an error text, which shows nothing of them, or empty.
std::string readCredentials(const Arguments& arguments, Download& download) {
    const std::string* const text = arguments.value("--proxy-user");
    if (text == nullptr) {
        return "";
    }
    if (download.proxy.host.empty()) {
        return "--proxy-user needs --proxy";
    }
    const std::size_t colon = text->find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text->size()) {
        return "--proxy-user needs USER:PASSWORD";
    }
    if (text->size() - 1 > longestCredentials) {
        return "USER and PASSWORD have more than 198 characters";
    }
    download.proxyUser = text->substr(0, colon);
    download.proxyPassword = text->substr(colon + 1);
    return "";
}

// Fills the download; the result is an error text, empty where there is none.
std::string readDownload(const Arguments& arguments, Download& download) {
    download.url = arguments.operand(0);
    download.file = arguments.operand(1);
    std::string error = refusalOf(download.url);
    if (error.empty()) {
        error = readProxy(arguments, download.proxy);
    }
    return error.empty() ? readCredentials(arguments, download) : error;
}

} // namespace

int commandGet(const Words& words) {
    const Arguments arguments(
        words, {{"--proxy", "HOST:PORT"}, {"--proxy-user", "USER:PASSWORD"}, {"--help", nullptr}},
        2);
    if (arguments.has("--help")) {
        return usage.show();
    }
    if (!arguments.error().empty()) {
        return usage.refuse(arguments.error());
    }
    Download download{"get", stdout, "", ""};
    const std::string error = readDownload(arguments, download);
    if (!error.empty()) {
        return usage.refuse(error);
    }
    return exitCodeAfter(download, getFile(download));
}

} // namespace qormon
