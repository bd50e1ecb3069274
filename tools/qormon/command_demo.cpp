#include "commands.h"
#include "download.h"
#include "loopback_server.h"
#include "update_facts.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "httpget.h"

namespace qormon {

namespace {

constexpr char usage[] =
    "usage: qormon demo\n"
    "\n"
    "Starts an update server on this machine, runs an update check against it,\n"
    "prints what it offers, and downloads that twice into a temporary directory:\n"
    "the second time the file is up to date.\n";

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
                               "Servicepack = 1\n";
constexpr unsigned int english = 2;
constexpr char descriptionPath[] = "/update.cfg";
constexpr char packageName[] = "example-client-3.pkg";
constexpr std::size_t packageSize = std::size_t{7} * 1024 * 1024;
constexpr std::time_t released = 1709294400; // Fri, 01 Mar 2024 12:00:00 GMT

// Removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::error_code error;
        path_ = (std::filesystem::temp_directory_path(error) / "qormon-demo-XXXXXX").string();
        if (error || mkdtemp(path_.data()) == nullptr) {
            path_.clear();
        }
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        if (!path_.empty()) {
            std::filesystem::remove_all(path_, ignored);
        }
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    // Empty where none could be made.
    const std::string& path() const {
        return path_;
    }

private:
    std::string path_;
};

// Bytes without a pattern that a person would see, the same each time.
std::string package() {
    std::string bytes(packageSize, '\0');
    unsigned int state = 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

Documents documentsOf(const std::string& baseUrl) {
    const std::string text = description + ("UrlInfo = " + baseUrl) +
                             "/whats-new.html\nUrlDownload = " + baseUrl + "/" + packageName +
                             "\nFilesize = " + std::to_string(packageSize) + "\n";
    return {{descriptionPath, {text, released}},
            {"/whats-new.html", {"<p>This download.</p>\n", released}},
            {std::string("/") + packageName, {package(), released}}};
}

int fail(const char* why) {
    std::fprintf(stderr, "qormon demo: %s\n", why);
    return exitNegative;
}

// Compares what came with what was announced.
int showFile(const std::string& file) {
    HttpGet get;
    unsigned int size = 0;
    char date[40] = "";
    if (get.getFileInfo(file.c_str(), &size, date) == 0) {
        return fail("the file is not there");
    }
    const std::string serverDate = httpDate(released);
    std::printf("server's time   %s\nfile's time     %s\n", serverDate.c_str(), date);
    if (size != packageSize || date != serverDate) {
        return fail("the file differs from the server's");
    }
    return exitSuccess;
}

int downloadTwice(const std::string& url) {
    const TemporaryDirectory directory;
    if (directory.path().empty()) {
        return fail("no temporary directory could be made");
    }
    const Download download{"demo", stdout, url, directory.path() + "/" + packageName};
    std::printf("\nfirst download\n");
    if (getUpdate(download) != Ending::downloaded) {
        return fail("the download failed");
    }
    std::printf("second download\n");
    if (getUpdate(download) != Ending::notModified) {
        return fail("the file was not found up to date");
    }
    return showFile(download.file);
}

int show() {
    LoopbackServer server;
    if (!server.start(documentsOf(server.baseUrl()))) {
        return fail("no loopback server could be started");
    }
    const std::string url = server.baseUrl() + descriptionPath;
    std::printf("update server   %s\n", url.c_str());
    const auto facts = checkForUpdate(english, url, "", 0);
    const UpdateFact* const place = facts ? findFact(*facts, "urlDownload") : nullptr;
    if (place == nullptr) {
        return fail("the update check gave no download");
    }
    printTable(*facts);
    return downloadTwice(place->value);
}

} // namespace

int commandDemo(const Words& words) {
    if (words.empty()) {
        return show();
    }
    const bool asksForHelp = words.size() == 1 && words[0] == "--help";
    std::fputs(usage, asksForHelp ? stdout : stderr);
    return asksForHelp ? exitSuccess : exitUsage;
}

} // namespace qormon
