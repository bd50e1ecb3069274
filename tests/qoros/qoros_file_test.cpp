// Every case has a fresh directory, and deletions are shut in there by a changed root.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utime.h>
#if defined(__linux__)
#include <sched.h>
#endif

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

#include "environment.h"
#include "own_log.h"
#include "qoros/src/linux/qoros_filecalls.h"
#include "temp_directory.h"

namespace fs = std::filesystem;

namespace {

// What the next reads, writes and closes of a copy do, in their order: a number of bytes that are
// moved at most, or a negative errno. Behind the last one the calls are the system's own.
using Steps = std::vector<int>;
Steps steps;
size_t largestRead = 0;

template <class Call>
ssize_t take(size_t size, Call call) {
    if (steps.empty()) {
        return call(size);
    }
    const int step = steps.front();
    steps.erase(steps.begin());
    errno = step < 0 ? -step : errno;
    return step < 0 ? -1 : call(std::min(size, static_cast<size_t>(step)));
}

} // namespace

// In place of the library's own.
namespace oscalls {

ssize_t dRead(int fd, char* cpBuffer, size_t dSize) {
    largestRead = std::max(largestRead, dSize);
    return take(dSize, [=](size_t count) { return read(fd, cpBuffer, count); });
}

ssize_t dWrite(int fd, const char* cpBytes, size_t dSize) {
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    return take(dSize, [=](size_t count) { return write(fd, cpBytes, count); });
}

// An ordinary user's run is in a user name space, which has no owner to give.
bool fChangeOwner(int fd, uid_t dOwner, gid_t dGroup) {
    return fchown(fd, dOwner, dGroup) == 0 || errno == EINVAL;
}

bool fClose(int fd) {
    return close(fd) == 0 && take(0, [](size_t) { return 0; }) == 0;
}

} // namespace oscalls

namespace {

constexpr time_t someTime = 1500000001;
constexpr int untouched = 4711; // what errno holds before a call

// Where the fresh directories are made.
std::string root;

std::string repeat(size_t count, const char* text) {
    std::string all;
    while (count-- > 0) {
        all += text;
    }
    return all;
}

std::string get(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

using Names = std::multiset<std::string>;

Names words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// Enters a new directory that has "directory/", "link>target" and "file", which holds its path.
void enter(const std::string& paths) {
    static int count = 0;
    const fs::path fresh = root + "/" + std::to_string(++count);
    fs::create_directory(fresh);
    fs::current_path(fresh);
    for (const std::string& path : words(paths)) {
        const size_t arrow = path.find('>');
        fs::create_directories(fs::path("./" + path.substr(0, arrow)).parent_path());
        if (arrow != std::string::npos) {
            fs::create_symlink(path.substr(arrow + 1), path.substr(0, arrow));
        } else if (path.back() != '/') {
            std::ofstream(path) << path;
        }
    }
}

// All paths below the working directory: "directory", "link", "file", and "file=text" where that
// holds something else.
Names tree() {
    Names paths;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
        const std::string path = entry.path().string().substr(2);
        const bool own = entry.is_symlink() || entry.is_directory() || get(path) == path;
        paths.insert(own ? path : path + "=" + get(path));
    }
    return paths;
}

struct Case {
    std::string name;
    std::function<uint32_t()> call;
    std::string before, after; // the tree
    int error = 0;             // other than 0 where the call fails
};

void expectTrees(const std::vector<Case>& cases) {
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        enter(row.before);
        errno = untouched;
        EXPECT_EQ(row.call() != 0 ? 0 : errno, row.error);
        EXPECT_EQ(tree(), words(row.after));
    }
}

std::function<uint32_t()> on(const std::string& path, uint32_t (*call)(const char*)) {
    return [=] { return call(path.c_str()); };
}

std::function<uint32_t()> copy(const char* source, const char* destination, int failIfExists = 0,
                               const Steps& script = {}) {
    return [=] {
        steps = script;
        const uint32_t copied = QorOsCopyFile(source, destination, failIfExists);
        EXPECT_TRUE(steps.empty());
        return copied;
    };
}

void inChild(const std::function<void()>& body) {
    EXPECT_EQ(waitForChild(startChild(body)), 0);
}

// Runs a function where permissions count.
void asOrdinaryUser(const std::function<void()>& body) {
    inChild([&] {
        EXPECT_TRUE(geteuid() != 0 || setgid(65534) + setuid(65534) == 0);
        body();
    });
}

class QorOsFiles : public testing::Test {
protected:
    QorOsFiles() {
        root = temp.path();
        fs::permissions(root, fs::perms::all);
        mask = umask(0);
    }
    ~QorOsFiles() override {
        fs::current_path(before);
        umask(mask);
    }

    const fs::path before = fs::current_path();
    const support::TempDirectory temp;
    mode_t mask = 0;
};

using QorOsCopy = QorOsFiles;
using QorOsDirectories = QorOsFiles;
using QorOsSearch = QorOsFiles;

TEST_F(QorOsFiles, HaveSizesTimesAndNames) {
    enter("file link>file gone>nothing");
    EXPECT_EQ(truncate("file", 0x100000005), 0); // its size is cut to 32 bits
    for (const char* path : {"file", "link", "gone", "no", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(testing::PrintToString(path));
        const bool there = path != nullptr && fs::exists(path);
        uint32_t size = 7;
        EXPECT_EQ(QorOsGetFileSize(path, &size), there ? 1u : 0u);
        EXPECT_EQ(size, there ? 5u : 0u);
        EXPECT_EQ(QorOsSetFileTime(path, someTime), there ? 1u : 0u);
        EXPECT_EQ(support::modificationTime("file"), someTime);
        EXPECT_EQ(QorOsFileExists(path), there ? 1u : 0u);
    }
    EXPECT_EQ(QorOsGetFileSize("file", nullptr) + QorOsRenameFile("file", nullptr) +
                  QorOsRenameFile(nullptr, "new") + QorOsDeleteFile(nullptr),
              0u);
    enter("a b link>b");
    EXPECT_EQ(QorOsRenameFile("a", "b") + 2 * QorOsRenameFile("a", "b"), 1u);
    EXPECT_EQ(QorOsDeleteFile("link") + 2 * QorOsDeleteFile("link"), 1u);
    EXPECT_EQ(tree(), words("b=a"));
}

TEST_F(QorOsCopy, WorksInPiecesOrTellsTheFirstFailure) {
    const auto inSteps = [](const Steps& script) { return copy("file", "new", 0, script); };
    const char* two = "dir/ file gone>nothing link>other other";
    const char* same = "dir file gone link other";
    expectTrees({
        {"short calls", inSteps({-EINTR, 2, -EINTR, 1, 1}), "file", "file new=file"},
        {"a bad read", inSteps({2, 2, -EIO, -EPERM, -EPERM}), "file", "file new=fi", EIO},
        {"a bad write", inSteps({4, 2, -EIO, -EPERM, -EPERM}), "file", "file new=fi", EIO},
        {"a write of nothing", inSteps({4, 2, 0}), "file", "file new=fi", ENOSPC},
        {"both closes bad", inSteps({4, 4, 0, -EIO, -EPERM}), "file", "file new=file", EIO},
        {"the last one bad", inSteps({4, 4, 0, 0, -EINTR}), "file", "file new=file", EINTR},
        {"an existing destination", copy("file", "other", 1), two, same, EEXIST},
        {"an existing link to nothing", copy("file", "gone", 1), two, same, EEXIST},
        {"the same file", copy("other", "other"), two, same, EINVAL},
        {"a link to the file", copy("link", "other"), two, same, EINVAL},
        {"onto a directory", copy("file", "dir"), two, same, EISDIR},
        {"a directory", copy("dir", "other"), two, same, EISDIR},
        {"no source", copy("no", "other"), two, same, ENOENT},
        {"null source", copy(nullptr, "other"), two, same, untouched},
        {"null destination", copy("file", nullptr), two, same, untouched},
    });
}

TEST_F(QorOsCopy, TakesDataOwnerModeAndTimesAlong) {
    enter("");
    for (const mode_t mode : {mode_t{0640}, mode_t{0604}}) {
        std::ofstream("source") << repeat(10000, "b") << mode;
        EXPECT_EQ(chmod("source", 0640), 0);
        EXPECT_TRUE(geteuid() != 0 || chown("source", 1234, 4321) == 0);
        const utimbuf times{someTime - 10, someTime};
        EXPECT_EQ(utime("source", &times), 0);
        EXPECT_EQ(QorOsCopyFile("source", "copy", 0), 1u);
        struct stat from;
        struct stat to;
        EXPECT_EQ(stat("source", &from) + stat("copy", &to), 0);
        EXPECT_TRUE(to.st_uid == from.st_uid && to.st_gid == from.st_gid);
        EXPECT_TRUE(to.st_atime == someTime - 10 && to.st_mtime == someTime);
        EXPECT_EQ(to.st_mode & 07777, mode);
        EXPECT_EQ(largestRead, static_cast<size_t>(to.st_blksize));
        EXPECT_EQ(get("copy"), get("source"));
        // Another time the destination is there, is longer, and keeps its mode.
        std::ofstream("copy", std::ios::app) << "longer";
        EXPECT_EQ(chmod("copy", 0604), 0);
    }
}

TEST_F(QorOsCopy, TakesAHoleOfAGigabyte) {
    enter("");
    std::ofstream("holes").seekp(1 << 30) << "end";
    EXPECT_EQ(QorOsCopyFile("holes", "copy", 0), 1u);
    std::ifstream copied("copy");
    copied.seekg((1 << 30) - 1);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copied), {}), std::string("\0end", 4));
}

// Leaves room for 64 KiB, on a small file system in "disk", which only this process sees, or else
// in any file. Gives the error of going beyond it.
int fillDisk() {
#if defined(__linux__)
    if (unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, "") == 0 &&
        mount("tmpfs", "disk", "tmpfs", 0, "size=64k") == 0) {
        return ENOSPC;
    }
#endif
    const rlimit room{65536, 65536};
    signal(SIGXFSZ, SIG_IGN);
    return setrlimit(RLIMIT_FSIZE, &room) == 0 ? EFBIG : 0;
}

TEST_F(QorOsCopy, FailsWithTheDataThereWhereTheDiskIsFullOrTheOwnerRefused) {
    enter("disk/ file");
    std::ofstream("large") << repeat(100000, "b");
    inChild([] {
        const int error = fillDisk();
        EXPECT_EQ(QorOsCopyFile("large", "disk/copy", 0), 0u);
        EXPECT_EQ(errno, error);
        EXPECT_TRUE(get("disk/copy") == repeat(65536, "b"));
    });
    if (geteuid() != 0) {
        QOR_SKIP_OR_FAIL("needs the privilege to make another user's file");
    }
    support::setModificationTime("file", someTime);
    asOrdinaryUser([] {
        EXPECT_EQ(QorOsCopyFile("file", "copy", 0), 0u);
        EXPECT_EQ(errno, EPERM);
        EXPECT_EQ(get("copy"), "file");
        EXPECT_EQ(support::modificationTime("copy"), someTime);
    });
}

TEST_F(QorOsDirectories, AreCreatedAlongAPath) {
    const std::string top = repeat(250, "n");
    const std::string longest = top + "/" + repeat(248, "m"); // 499 bytes
    const auto at = [](const std::string& path) { return on(path, QorOsChkAndCreateDir); };
    expectTrees({
        {"two of three", at("a/b/c"), "a/", "a a/b a/b/c"},
        {"kept: backslashes", at("x\\y\\z\\"), "", "x x\\y x\\y\\z\\"},
        {"slashes, through a link", at("to/x//y/"), "a/ to>a", "a a/x a/x/y to"},
        {"one character", at("x"), "", ""},
        {"two characters", at("xy"), "", "xy"},
        {"kept: a file that exists", at("file"), "file", "file"},
        {"below a file", at("file/x"), "file", "file", EEXIST},
        {"499 bytes", at(longest), "", top + " " + longest},
        {"500 bytes", at(longest + "m"), "", "", ENAMETOOLONG},
        {"500 bytes that exist", at("a/" + repeat(498, "/")), "a/", "a"},
    });
    EXPECT_EQ(QorOsChkAndCreateDir(nullptr), 0u);
    asOrdinaryUser([] {
        enter("");
        EXPECT_EQ(QorOsChkAndCreateDir("new/new"), 1u);
        EXPECT_EQ(fs::status("new").permissions(), fs::perms::owner_all);
        EXPECT_EQ(fs::status("new/new").permissions(), fs::perms::owner_all);
        umask(0200);
        EXPECT_EQ(QorOsChkAndCreateDir("unwritable/."), 0u);
    });
}

TEST_F(QorOsDirectories, AreDeletedWithWhatIsInThem) {
    if (geteuid() != 0) {
        QOR_SKIP_OR_FAIL("needs the privilege to shut a deletion in");
    }
    const std::string wide = "t/" + repeat(251, "d"); // 253 bytes
    const std::string longest = wide + "nn";
    // Cut to 255 bytes the file's path would be that of the link, which has to stay.
    const std::string uncut = "t " + wide + " " + wide + "/l " + wide + "/lf";
    const auto at = [](const std::string& path) { return on(path, QorOsDeleteDirTree); };
    const std::vector<Case> cases = {
        {"a tree", at("t"), "t/file t/.hidden t/a/b/c/ t/a/b/file kept", "kept"},
        {"a link to a file", at("t"), "t/link>../kept kept", "kept"},
        {"kept: a link to a directory", at("t"), "t/to>../out out/a/f", "out t t/to", ENOTEMPTY},
        {"a link itself", at("to"), "to>out out/file", "out to", ENOTDIR},
        {"kept: a link to nothing", at("t"), "t/gone>nothing", "t t/gone", ENOTEMPTY},
        {"circles", at("t"), "t/l>. t/m>. t/n>.. out/f", "t t/l t/m t/n", ENOTEMPTY},
        {"the deepest tree", at("t"), repeat(128, "t/"), ""},
        {"an entry of 255", at("t"), longest, ""},
        {"an entry of 256, not cut", at(wide), wide + "/l>.. " + wide + "/lf", uncut, ENOTEMPTY},
        {"an entry of 255 below 253", at(wide), wide + "/f", "t"},
        {"256", at(longest + "n"), longest + "n/", "t " + longest + "n", ENAMETOOLONG},
        {"a star in a name", at("t*"), "t*/file tt/file", "tt tt/file"},
        {"a file", at("file"), "file", "file", ENOTDIR},
        {"an empty directory", on("d", QorOsDeleteDir), "d/", ""},
        {"a full directory", on("d", QorOsDeleteDir), "d/f", "d d/f", ENOTEMPTY},
    };
    inChild([&] {
        // A deletion that loses its way finds nothing but the test's own directory.
        if (chroot(root.c_str()) != 0 || chdir("/") != 0) {
            ADD_FAILURE() << "the deletion is not shut in";
            return;
        }
        root.clear();
        const rlimit stack{262144, 262144}; // what QorOsThreadBegin gives
        EXPECT_EQ(setrlimit(RLIMIT_STACK, &stack), 0);
        expectTrees(cases);
        EXPECT_EQ(QorOsDeleteDirTree(nullptr) + QorOsDeleteDir(nullptr), 0u);
    });
}

// What a search gives: names, those of directories with a "/".
Names found(const std::string& pattern) {
    QorOsFind find;
    Names names;
    char name[QOR_PATH_SIZE] = "";
    uint32_t type = 0;
    uint32_t more = QorOsFindFirst(&find, pattern.c_str(), name, &type, nullptr, nullptr);
    EXPECT_EQ(find.dir != nullptr, more != 0);
    for (; more != 0; more = QorOsFindNext(&find, name, &type, nullptr, nullptr)) {
        names.insert(name + std::string(type == QOR_ENTRY_DIRECTORY ? "/" : ""));
    }
    EXPECT_EQ(QorOsFindClose(&find), 1u);
    return names;
}

TEST_F(QorOsSearch, FindsWhatMatches) {
    const std::string longName = repeat(255, "n");
    const std::string tooLong = "d" + repeat(1023, "/") + " d" + repeat(1024, "/") + "x* ." +
                                repeat(1021, "/") + "d d/*" + repeat(1023, "x");
    const std::string all = ".hid aXb*c ab sub/ to/ toFile txt x.txt";
    const struct {
        const char* name;
        std::string patterns, found; // each pattern finds the same
        int error = 0;
    } rows[] = {
        {"a directory", "d d/ d" + repeat(1022, "/") + " ." + repeat(1020, "/") + "d", all},
        {"everything", "d/* d/*.* d/*.", all},
        {"a prefix or suffix", "d/*.txt d/x* d/x.* d" + repeat(1023, "/") + "x*", "x.txt"},
        {"a suffix that is a name", "d/*txt", "txt x.txt"},
        {"kept: points", "d/.*", "../ ./ .hid"},
        {"both, without overlap", "d/a*b", "ab"},
        {"a second star is itself", "d/a*b*c", "aXb*c"},
        {"no such name", "d/ab*b d/** d/X* d/sub d/*" + repeat(1022, "x"), ""},
        {"a whole name", "d/toFile", "toFile"},
        {"a star in the directory", "s*r/in s*r/", "in"},
        {"the working directory", "d*", "d/"},
        {"a name of 255 bytes", "l/" + repeat(254, "n") + "* l/" + longName, longName},
        {"nothing there", "no gone gone* no/*", "", ENOENT},
        {"kept: not the root", "/*", "", ENOENT},
        {"kept: entries that can't be examined", "locked locked/* listed/*", "", EACCES},
        {"too long", tooLong, "", ENAMETOOLONG},
    };
    enter("d/sub/ d/ab d/aXb*c d/txt d/x.txt d/.hid d/to>../s*r d/toFile>x.txt file "
          "gone>nothing listed/x locked/x s*r/in l/" +
          longName);
    chmod("locked", 0);
    chmod("listed", 0444);
    asOrdinaryUser([&] {
        for (const auto& row : rows) {
            for (const std::string& pattern : words(row.patterns)) {
                SCOPED_TRACE(row.name + (": " + pattern));
                errno = 0;
                EXPECT_EQ(found(pattern), words(row.found));
                EXPECT_EQ(errno, row.error);
            }
        }
    });
    EXPECT_EQ(chmod("locked", 0700) + chmod("listed", 0700), 0);
}

TEST_F(QorOsSearch, GivesTypeTimeAndSizeAndGoesOn) {
    enter("file to>file");
    EXPECT_EQ(truncate("file", 0x100000005), 0); // size and time are cut to 32 bits
    support::setModificationTime("file", 0x100000007);
    QorOsFind find;
    char name[QOR_PATH_SIZE];
    uint32_t type = 0, time = 0, size = 0;
    EXPECT_EQ(QorOsFindFirst(&find, "to", name, &type, &time, &size), 1u);
    EXPECT_EQ(text("%s %u %u %u", name, type, time, size), "to 1 7 5");
    EXPECT_EQ(QorOsFindNext(&find, name, nullptr, nullptr, nullptr), 0u);
    EXPECT_STREQ(name, "");
    close(dirfd(find.dir)); // so that closing it again fails
    EXPECT_EQ(QorOsFindClose(&find) + QorOsFindNext(&find, name, &type, &time, &size), 0u);

    // One of two entries goes while the search is between them.
    EXPECT_EQ(QorOsFindFirst(&find, "*", name, nullptr, nullptr, nullptr), 1u);
    const std::string other = name == std::string("file") ? "to" : "file";
    unlink(other.c_str());
    EXPECT_EQ(QorOsFindNext(&find, nullptr, &type, &time, &size), 0u);
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(text("%s %u %u %u", name, type, time, size), other + " 1 7 5");
    EXPECT_EQ(QorOsFindClose(&find), 1u);

    EXPECT_EQ(QorOsFindFirst(&find, nullptr, name, nullptr, nullptr, nullptr) +
                  QorOsFindFirst(&find, "*", nullptr, nullptr, nullptr, nullptr) +
                  QorOsFindFirst(nullptr, "*", name, nullptr, nullptr, nullptr) +
                  QorOsFindNext(nullptr, name, &type, &time, &size) + QorOsFindClose(nullptr),
              0u);
}

using QorOsSearchLog = OwnLog;

TEST_F(QorOsSearchLog, TellsWhatItLooksAt) {
    const support::TempDirectory temp;
    const char* path = temp.path().c_str();
    const std::string looking = text("TRACE FindFirst: splitted input - path=%s, file=*z\n", path);
    EXPECT_EQ(words(messages([=] { found(path + std::string("/*z")); })), // come in any order
              words(looking + "TRACE FindNext: file = . ; search file = *z\n"
                              "TRACE FindNext: file = .. ; search file = *z\n"));
    rmdir(path);
    expectMessages(looking + "ERROR FindFirst: opendir failed: " + errorText(ENOENT).substr(1) +
                       "\n",
                   [=] { found(path + std::string("/*z")); });
}

} // namespace
