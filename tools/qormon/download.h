// Fetches a file for a command: with a progress bar, until Ctrl-C, and with a word on what came of
// it.
#pragma once

#include <cstdio>
#include <string>

#include "arguments.h"

namespace qormon {

struct Download {
    const char* command; // that speaks, for example "get"
    std::FILE* result;   // gets the line that tells of success; failures go to standard error
    std::string url;     // one that refusalOf finds nothing wrong with
    std::string file;
    HostAndPort proxy{"", 0};
    std::string proxyUser = {};
    std::string proxyPassword = {};
};

enum class Ending {
    downloaded,
    notModified,
    failed,    // no file came, or a whole one that could not be given its time
    brokenOff, // the file holds a piece
};

// Downloads by HttpGet.
Ending getFile(const Download& download);

// Downloads by DownloadUpdate, which gives no reasons and takes no credentials.
Ending getUpdate(const Download& download);

// The exit code of a command that ends so; says what is left of a download that broke off.
int exitCodeAfter(const Download& download, Ending ending);

} // namespace qormon
