#include "download.h"

#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <optional>

#include "httpget.h"
#include "progress.h"
#include "qoros.h"
#include "qorupdate.h"
#include "text.h"

namespace qormon {

namespace {

std::atomic<bool> interruptCame{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler stores it");

extern "C" void noteInterrupt(int) {
    interruptCame.store(true);
}

// Takes Ctrl-C for the wish to end a download, once: a second one ends the program. Where signals
// of that kind are ignored, as in a shell's background, they stay so.
class InterruptWatch {
public:
    InterruptWatch() {
        interruptCame.store(false);
        if (sigaction(SIGINT, nullptr, &before_) != 0 || before_.sa_handler == SIG_IGN) {
            return;
        }
        struct sigaction action = {};
        action.sa_handler = noteInterrupt;
        action.sa_flags = static_cast<int>(SA_RESETHAND); // and no restart: a wait ends at once
        sigemptyset(&action.sa_mask);
        begun_ = sigaction(SIGINT, &action, nullptr) == 0;
    }
    ~InterruptWatch() {
        if (begun_) {
            sigaction(SIGINT, &before_, nullptr);
        }
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    bool cameIn() const {
        return begun_ && interruptCame.load();
    }

private:
    bool begun_ = false;
    struct sigaction before_ = {};
};

// Follows a transfer from its begin on, although callbacks, which pass Ctrl-C on, come only once
// the file is open: that empties it, and a program that ended there could not tell.
class Follower {
public:
    static signed char follow(void* context, unsigned int done, unsigned int total) {
        return static_cast<Follower*>(context)->takeNote(done, total) ? 1 : 0;
    }
    void finish() {
        progress_.finish();
    }
    bool fileWasOpened() const {
        return fileWasOpened_;
    }
    bool wasInterrupted() const {
        return interrupt_.cameIn();
    }
    unsigned int done() const {
        return done_;
    }
    // As the server announced it; unknownTotal also as long as the file was not opened.
    unsigned int total() const {
        return total_;
    }

private:
    bool takeNote(unsigned int done, unsigned int total) {
        fileWasOpened_ = true;
        done_ = done;
        total_ = total;
        progress_.show(done, total);
        return !wasInterrupted();
    }

    Progress progress_{stderr};
    InterruptWatch interrupt_;
    bool fileWasOpened_ = false;
    unsigned int done_ = 0;
    unsigned int total_ = unknownTotal;
};

// Calls the library; a failure leaves its text, or none, in `problem`.
using Fetch = std::function<bool(HttpGetCallback callback, void* context, std::string& problem)>;

void complain(const Download& download, const std::string& what) {
    std::fprintf(stderr, "qormon %s: %s\n", download.command, printable(what).c_str());
}

Ending fail(const Download& download, const std::string& why) {
    complain(download, why);
    return Ending::failed;
}

// The size of a file, which is none of a device or the like.
std::optional<off_t> sizeOf(const std::string& file) {
    struct stat info = {};
    if (stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    return info.st_size;
}

// Looks at the file itself: what was handed to a full disk counts as done as well.
bool leftPiece(const Download& download, const Follower& follower) {
    return follower.fileWasOpened() &&
           (follower.total() == unknownTotal ||
            sizeOf(download.file) != static_cast<off_t>(follower.total()));
}

// A piece bears the time of the server's file, so that the next request would find it up to date.
void warnOfPiece(const Download& download) {
    if (const std::optional<off_t> size = sizeOf(download.file)) {
        complain(download, download.file + " stays behind with " + std::to_string(*size) +
                               " bytes; remove it, or the next download may take it for whole");
    }
}

std::string reasonOf(const Follower& follower, const std::string& problem) {
    if (follower.wasInterrupted()) {
        return "interrupted";
    }
    if (!problem.empty()) {
        return problem;
    }
    return follower.fileWasOpened() ? "the transfer broke off"
                                    : "no file came: the server's headers have no end, or the URL "
                                      "is too long for a request";
}

Ending tellUnmodified(const Download& download, bool wasThere) {
    if (!wasThere) {
        return fail(download, "the server calls the file unmodified, but there is no " +
                                  download.file + " yet");
    }
    std::fprintf(download.result, "not modified: %s is up to date\n",
                 printable(download.file).c_str());
    return Ending::notModified;
}

Ending run(const Download& download, const Fetch& fetch) {
    struct stat before = {};
    const bool wasThere = stat(download.file.c_str(), &before) == 0;
    if (wasThere && S_ISDIR(before.st_mode)) {
        return fail(download, download.file + " is a directory");
    }
    std::fflush(stdout); // before the bar, which goes to standard error
    Follower follower;
    std::string problem;
    const bool done = fetch(Follower::follow, &follower, problem);
    follower.finish();
    if (!done) {
        complain(download, reasonOf(follower, problem));
        return leftPiece(download, follower) ? Ending::brokenOff : Ending::failed;
    }
    if (!follower.fileWasOpened()) {
        return tellUnmodified(download, wasThere);
    }
    std::fprintf(download.result, "downloaded %u bytes to %s\n", follower.done(),
                 printable(download.file).c_str());
    return Ending::downloaded;
}

} // namespace

Ending getFile(const Download& download) {
    return run(download, [&](HttpGetCallback callback, void* context, std::string& problem) {
        HttpGet get;
        strcpy_qor(get.proxyHost, sizeof get.proxyHost, download.proxy.host.c_str());
        get.proxyPort = download.proxy.port;
        get.SetProxyAuthentication(download.proxyUser.c_str(), download.proxyPassword.c_str());
        const bool done = get.HttpRequestCB(download.url.c_str(), download.file.c_str(), nullptr,
                                            callback, context) != 0;
        problem = get.errorText;
        return done;
    });
}

Ending getUpdate(const Download& download) {
    return run(download, [&](HttpGetCallback callback, void* context, std::string& problem) {
        problem = "the download of " + download.url + " failed";
        return DownloadUpdate(download.url.c_str(), download.file.c_str(),
                              download.proxy.host.c_str(), static_cast<int>(download.proxy.port),
                              callback, context) != 0;
    });
}

int exitCodeAfter(const Download& download, Ending ending) {
    if (ending == Ending::brokenOff) {
        warnOfPiece(download);
    }
    return ending == Ending::downloaded || ending == Ending::notModified ? exitSuccess
                                                                         : exitNegative;
}

} // namespace qormon
