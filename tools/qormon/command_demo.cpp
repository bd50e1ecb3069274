#include "commands.h"
#include "loopback_server.h"
#include "update_facts.h"

#include <cstdio>

namespace qormon {

namespace {

constexpr char usage[] =
    "usage: qormon demo\n"
    "\n"
    "Starts an update server on this machine, runs an update check against it\n"
    "and prints what it offers.\n";

constexpr char description[] = "# What the demonstration's update server offers\n"
                               "[Language 1]\n"
                               "ProductName = Beispielprogramm\n"
                               "Version = 3\n"
                               "Build = 1204\n"
                               "\n"
                               "[Language 2]\n"
                               "ProductName = Example Client\n"
                               "Version = 3\n"
                               "Build = 1204\n"
                               "Servicepack = 1\n"
                               "UrlInfo = http://127.0.0.1/whats-new.html\n"
                               "UrlDownload = http://127.0.0.1/example-client-3.pkg\n"
                               "Filesize = 7340032\n";
constexpr unsigned int english = 2;

} // namespace

int commandDemo(const Words& words) {
    if (!words.empty()) {
        const bool asksForHelp = words.size() == 1 && words[0] == "--help";
        std::fputs(usage, asksForHelp ? stdout : stderr);
        return asksForHelp ? exitSuccess : exitUsage;
    }
    const std::map<std::string, std::string> documents = {{"/update.cfg", description}};
    const LoopbackServer server(documents);
    if (!server.isRunning()) {
        std::fprintf(stderr, "qormon demo: no loopback server could be started\n");
        return exitNegative;
    }
    const std::string url = server.baseUrl() + "/update.cfg";
    std::printf("update server   %s\n", url.c_str());
    const auto facts = checkForUpdate(english, url, "", 0);
    if (!facts || facts->empty()) {
        std::fprintf(stderr, "qormon demo: the update check gave nothing\n");
        return exitNegative;
    }
    printTable(*facts);
    return exitSuccess;
}

} // namespace qormon
