#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utime.h>
#if defined(__linux__)
#include <sched.h>
#include <sys/mount.h>
#endif

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

#include "own_log.h"

namespace fs = std::filesystem;

namespace {

// What the next calls do: a number of bytes that are moved at most, or a negative errno. Behind the
// last one the calls are the system's own.
using Steps = std::vector<int>;
Steps reads;
Steps writes;
Steps closes;
int ownerError = 0;
size_t largestRead = 0;

template <class Call>
ssize_t take(Steps& steps, size_t size, Call call) {
    if (steps.empty()) {
        return call(size);
    }
    const int step = steps.front();
    steps.erase(steps.begin());
    errno = step < 0 ? -step : errno;
    return step < 0 ? -1 : call(std::min(size, static_cast<size_t>(step)));
}

template <class Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" {

ssize_t read(int fd, void* buffer, size_t size) {
    static const auto real = systems<ssize_t(int, void*, size_t)>("read");
    largestRead = std::max(largestRead, size);
    return take(reads, size, [&](size_t count) { return real(fd, buffer, count); });
}

ssize_t write(int fd, const void* buffer, size_t size) {
    static const auto real = systems<ssize_t(int, const void*, size_t)>("write");
    EXPECT_TRUE(writes.empty() || (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0);
    return take(writes, size, [&](size_t count) { return real(fd, buffer, count); });
}

int close(int fd) {
    const int result = systems<int(int)>("close")(fd);
    return static_cast<int>(take(closes, 0, [=](size_t) { return result; }));
}

int fchown(int fd, uid_t owner, gid_t group) {
    errno = ownerError;
    if (errno == 0 && systems<int(int, uid_t, gid_t)>("fchown")(fd, owner, group) == 0) {
        return 0;
    }
    // Where the program had to lend itself a user name space there is no owner to give.
    return errno == EINVAL ? 0 : -1;
}

} // extern "C"

namespace {

constexpr time_t someTime = 1500000001;

std::string get(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

std::string sorted(const std::multiset<std::string>& texts) {
    std::string all;
    for (const std::string& one : texts) {
        all += (all.empty() ? "" : " ") + one;
    }
    return all;
}

// All paths below the working directory.
std::string tree() {
    std::multiset<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
        paths.insert(entry.path().string().substr(2));
    }
    return sorted(paths);
}

std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// Makes "directory/", "file" and "link>target", and nothing else, in the working directory.
void make(const std::string& paths) {
    for (const std::string& old : words(tree())) {
        fs::remove_all(old);
    }
    for (const std::string& path : words(paths)) {
        const size_t arrow = path.find('>');
        fs::create_directories(fs::path("./" + path.substr(0, arrow)).parent_path());
        if (arrow != std::string::npos) {
            fs::create_symlink(path.substr(arrow + 1), path.substr(0, arrow));
        } else if (path.back() != '/') {
            std::ofstream(path) << "0123456789";
        }
    }
}

// Runs a function where permissions count.
void asOrdinaryUser(const std::function<void()>& body) {
    const pid_t child = startChild([&] {
        EXPECT_TRUE(geteuid() != 0 || setgroups(0, nullptr) + setgid(65534) + setuid(65534) == 0);
        body();
    });
    EXPECT_EQ(waitForChild(child), 0);
}

class QorOsFiles : public OwnLog {
protected:
    void SetUp() override {
        OwnLog::SetUp();
        pstLog = nullptr;
        const std::string directory = testing::TempDir() + text("qoros_file_%u", dProcessId());
        ASSERT_TRUE(fs::create_directory(directory));
        chmod(directory.c_str(), 0777);
        fs::current_path(directory);
        umask(022);
        lowest = dup(0);
        close(lowest);
    }

    void TearDown() override {
        EXPECT_EQ(dup(0), lowest) << "a descriptor leaked";
        close(lowest);
        const fs::path directory = fs::current_path();
        fs::current_path(before);
        fs::remove_all(directory);
        OwnLog::TearDown();
    }

    const fs::path before = fs::current_path();
    int lowest = -1;
};

using QorOsCopy = QorOsFiles;
using QorOsDirectories = QorOsFiles;
using QorOsSearch = QorOsFiles;

TEST_F(QorOsFiles, AreAskedStampedRenamedAndDeleted) {
    make("file dir/ link>file gone>nothing");
    EXPECT_EQ(truncate("file", 0x100000005), 0);
    EXPECT_EQ(QorOsSetFileTime("link", someTime), 1u);
    EXPECT_EQ(statusOf("file").st_atime, someTime);
    EXPECT_EQ(statusOf("file").st_mtime, someTime);
    const struct {
        const char* path;
        uint32_t there, size, entry; // what it leads to, the name itself
    } rows[] = {{"link", 1, 5, 1},
                {"file", 1, 5, 1},
                {"gone", 0, 0, 1},
                {"no", 0, 0, 0},
                {nullptr, 0, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.path));
        uint32_t size = 7;
        EXPECT_EQ(QorOsFileExists(row.path), row.there);
        EXPECT_EQ(QorOsGetFileSize(row.path, &size), row.there);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(QorOsSetFileTime(row.path, 1), row.there);
        EXPECT_EQ(QorOsDeleteDir(row.path) + QorOsRenameFile(row.path, "dir/new"), row.entry);
        EXPECT_EQ(QorOsDeleteFile(row.entry != 0 ? "dir/new" : row.path), row.entry);
    }
    EXPECT_EQ(QorOsGetFileSize("dir", nullptr) + QorOsRenameFile("dir", nullptr), 0u);
    EXPECT_EQ(QorOsDeleteDir("dir"), 1u);
    EXPECT_EQ(tree(), "");
}

TEST_F(QorOsCopy, TakesDataOwnerModeAndTimesAlong) {
    const size_t block = static_cast<size_t>(statusOf(".").st_blksize);
    std::ofstream("source") << std::string(2 * block, 'b') << '\0' << "end";
    EXPECT_EQ(chmod("source", 0640), 0);
    EXPECT_TRUE(geteuid() != 0 || chown("source", 1234, 4321) == 0);
    const utimbuf times{someTime - 10, someTime};
    for (const mode_t mode : {mode_t{0640}, mode_t{0604}}) {
        EXPECT_EQ(utime("source", &times), 0);
        largestRead = 0;
        EXPECT_EQ(QorOsCopyFile("source", "copy", mode == 0640), 1u);
        EXPECT_EQ(largestRead, block);
        const struct stat from = statusOf("source");
        const struct stat to = statusOf("copy");
        EXPECT_EQ(text("%o", to.st_mode & 07777), text("%o", mode));
        EXPECT_TRUE(to.st_uid == from.st_uid && to.st_gid == from.st_gid);
        EXPECT_TRUE(to.st_atime == someTime - 10 && to.st_mtime == someTime);
        EXPECT_TRUE(get("copy") == get("source"));
        std::ofstream("copy", std::ios::app) << "longer";
        chmod("copy", 0604); // what is there keeps it
    }
}

TEST_F(QorOsCopy, IsRefusedBeforeTheDestinationChanges) {
    make("dir/ file other link>file gone>nothing");
    fs::create_hard_link("file", "same");
    const struct {
        const char *source, *destination;
        int failIfExists, error;
    } rows[] = {
        {"file", "file", 0, EINVAL}, {"file", "same", 0, EINVAL}, {"link", "file", 0, EINVAL},
        {"file", "link", 0, EINVAL}, {"dir", "other", 0, EISDIR}, {"dir", "new", 0, EISDIR},
        {"no", "other", 0, ENOENT},  {"no", "other", 1, EEXIST},  {"file", "other", 1, EEXIST},
        {"file", "gone", 1, EEXIST}, {"file", "dir", 0, EISDIR},  {nullptr, "other", 0, 0},
        {"file", nullptr, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.source) + testing::PrintToString(row.destination));
        errno = 0;
        EXPECT_EQ(QorOsCopyFile(row.source, row.destination, row.failIfExists), 0u);
        EXPECT_EQ(errno, row.error);
        EXPECT_EQ(tree() + get("file") + get("other"),
                  "dir file gone link other same01234567890123456789");
    }
}

TEST_F(QorOsCopy, WorksInPiecesAndTellsTheFirstFailure) {
    const struct {
        const char* name;
        Steps reading, writing, closing;
        int owner, error; // 0 where the copy succeeds
        size_t copied;
    } rows[] = {
        {"short, interrupted", {4, -EINTR, -EINTR, 1}, {1, -EINTR, 2, 1}, {}, 0, 0, 10},
        {"a read fails", {4, -EIO}, {}, {}, 0, EIO, 4},
        {"a write fails", {}, {4, -ENOSPC}, {}, 0, ENOSPC, 4},
        {"nothing is taken", {}, {4, 0}, {}, 0, ENOSPC, 4},
        {"the destination is not closed", {}, {}, {-EIO}, 0, EIO, 10},
        {"the source is not closed", {}, {}, {0, -EIO}, 0, EIO, 10},
        {"kept: the owner is refused", {}, {}, {-EIO, -EDQUOT}, EPERM, EPERM, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        make("source");
        QorOsSetFileTime("source", someTime);
        reads = row.reading;
        writes = row.writing;
        closes = row.closing;
        ownerError = row.owner;
        EXPECT_EQ(QorOsCopyFile("source", "copy", 0), row.error == 0 ? 1u : 0u);
        EXPECT_TRUE(row.error == 0 || errno == row.error) << errno;
        EXPECT_TRUE(reads.empty() && writes.empty() && closes.empty());
        ownerError = 0;
        EXPECT_EQ(statusOf("copy").st_mtime == someTime, row.copied == 10);
        EXPECT_EQ(get("copy"), std::string("0123456789", row.copied));
    }
}

TEST_F(QorOsCopy, GivesUpOnAFullDisk) {
    make("disk/");
    std::ofstream("source") << std::string(100000, 's');
    const pid_t full = startChild([] {
        int error = EFBIG;
#if defined(__linux__)
        if (unshare(CLONE_NEWNS) == 0 &&
            mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("disk", "disk", "tmpfs", 0, "size=65536") == 0) {
            error = ENOSPC;
        }
#endif
        // Where there is no small disk to be had, files may not grow instead.
        const rlimit limit{65536, 65536};
        signal(SIGXFSZ, SIG_IGN);
        EXPECT_TRUE(error == ENOSPC || setrlimit(RLIMIT_FSIZE, &limit) == 0);
        EXPECT_EQ(QorOsCopyFile("source", "disk/copy", 0), 0u);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(statusOf("disk/copy").st_size, 65536);
    });
    EXPECT_EQ(waitForChild(full), 0);
}

TEST_F(QorOsCopy, TakesAHoleOfAGigabyteAndAFifo) {
    make("holes");
    EXPECT_EQ(truncate("holes", 1 << 30), 0);
    std::ofstream("holes", std::ios::app) << "end";
    EXPECT_EQ(QorOsCopyFile("holes", "copy", 0), 1u);
    std::ifstream copy("copy");
    copy.seekg((1 << 30) - 1);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copy), {}), std::string("\0end", 4));
    unlink("copy");

    EXPECT_EQ(mkfifo("fifo", 0600), 0);
    const pid_t writer = startChild([] { std::ofstream("fifo") << "through"; });
    EXPECT_EQ(QorOsCopyFile("fifo", "copy", 0), 1u);
    EXPECT_EQ(waitForChild(writer), 0);
    EXPECT_EQ(get("copy"), "through");
}

TEST_F(QorOsCopy, OfAnotherUsersFileFailsThoughTheDataIsThere) {
    make("file");
    const bool own = geteuid() != 0;
    asOrdinaryUser([&] {
        EXPECT_EQ(QorOsCopyFile("file", "copy", 0), own ? 1u : 0u);
        EXPECT_TRUE(own || errno == EPERM);
        EXPECT_EQ(get("copy"), "0123456789");
    });
}

TEST_F(QorOsDirectories, AreCreatedOnAPath) {
    const std::string half(250, 'n');
    const std::string longest = half + "/" + std::string(248, 'm');
    const struct {
        std::string path, after;
        int error = 0; // other than 0 where the path can't be created
    } rows[] = {
        {"a/b/c", "a a/b a/b/c file to"},
        {"x\\y\\z", "a file to x x\\y x\\y\\z"},
        {"x\\", "a file to x\\"},
        {"x//y/", "a file to x x/y"},
        {"x/.", "a file to x"},
        {"xy", "a file to xy"},
        {"x", "a file to"},
        {"", "a file to"},
        {"file", "a file to"},
        {"file/x", "a file to", EEXIST},
        {"to/x/y", "a a/x a/x/y file to"},
        {"x/" + std::string(256, 'n') + "/y", "a file to x", ENAMETOOLONG},
        {longest, "a file " + half + " " + longest + " to"},
        {longest + "m", "a file to", ENAMETOOLONG},
        {"a/" + std::string(498, '/'), "a file to"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        make("a/ file to>a");
        EXPECT_EQ(QorOsChkAndCreateDir(row.path.c_str()), row.error == 0 ? 1u : 0u);
        EXPECT_TRUE(row.error == 0 || errno == row.error) << errno;
        EXPECT_EQ(tree(), row.after);
    }
    EXPECT_EQ(QorOsChkAndCreateDir(nullptr), 0u);
    asOrdinaryUser([] {
        EXPECT_EQ(QorOsChkAndCreateDir("new/new"), 1u);
        EXPECT_EQ(statusOf("new").st_mode & statusOf("new/new").st_mode & 0777, 0700u);
        umask(0200);
        EXPECT_EQ(QorOsChkAndCreateDir("unwritable"), 1u);
        EXPECT_EQ(QorOsChkAndCreateDir("unwritable2/."), 0u);
        EXPECT_EQ(errno, EACCES);
    });
}

TEST_F(QorOsDirectories, AreRemovedWithWhatIsInThem) {
    const std::string deep = "t/" + std::string(251, 'd');
    const std::string name(253, 'n');
    const struct {
        std::string path, before, after;
    } rows[] = {
        {"t", "t/file t/.hidden t/a/b/c/ t/a/b/file t/link>../kept kept", "kept"},
        {"t", "t/to>../out t/file out/a/file out/file", "out t t/to"},
        {"t/to", "t/to>../out t/file out/a/ out/file", "out t t/file t/to"},
        {"t", "t/gone>nothing", "t t/gone"},
        {"t", "t/a/l>.. t/a/m>.. t/a/n>../.. t/file out/file", "t t/a t/a/l t/a/m t/a/n"},
        {"t", "t/" + name, ""},
        {"t", "t/" + name + "n", "t t/" + name + "n"},
        {deep, deep + "/f", "t"},
        {deep, deep + "/ff", "t " + deep + " " + deep + "/ff"},
        {"./" + deep + "ddd", deep + "ddd/", "t"},
        {"file", "file", "file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path + ": " + row.before);
        make(row.before);
        const uint32_t removed = QorOsDeleteDirTree(row.path.c_str());
        EXPECT_EQ(removed, fs::exists(row.path) ? 0u : 1u);
        EXPECT_EQ(tree(), row.after);
    }
    EXPECT_EQ(QorOsDeleteDirTree(nullptr), 0u);
}

TEST_F(QorOsDirectories, AreRemovedAsDeepAsPathsGoOnASmallStack) {
    std::string deep = "t";
    while (deep.size() + 2 < 256) {
        deep += "/t";
    }
    make(deep + "/");
    const auto remove = [](void* done) -> void* {
        EXPECT_EQ(QorOsDeleteDirTree("t"), 1u);
        static_cast<Gate*>(done)->open();
        return nullptr;
    };
    Gate done;
    uint64_t thread = 0;
    EXPECT_EQ(QorOsThreadBegin(&thread, remove, 0, &done), 1u);
    EXPECT_TRUE(done.wait());
    EXPECT_EQ(tree(), "");
}

// What a search gives: names, those of directories with a "/".
std::string found(const std::string& pattern) {
    QorOsFind find;
    std::multiset<std::string> names;
    char name[QOR_PATH_SIZE] = "";
    uint32_t type = 0;
    uint32_t more = QorOsFindFirst(&find, pattern.c_str(), name, &type, nullptr, nullptr);
    EXPECT_EQ(find.dir != nullptr, more != 0);
    for (; more != 0; more = QorOsFindNext(&find, name, &type, nullptr, nullptr)) {
        names.insert(name + std::string(type == QOR_ENTRY_DIRECTORY ? "/" : ""));
    }
    EXPECT_EQ(QorOsFindClose(&find), 1u);
    return sorted(names);
}

TEST_F(QorOsSearch, FindsWhatMatches) {
    const auto times = [](size_t count, char byte) { return std::string(count, byte); };
    const struct {
        std::string patterns, found; // the patterns give the same
        int error = 0;
    } rows[] = {
        {"d d/ d/* d/*.* d/*. ./d d" + times(1022, '/') + " ." + times(1020, '/') + "d",
         ".hid aXb*c ab sub/ to/ toFile txt x.txt"},
        {"d/*.txt d/x* d/x.txt d" + times(1023, '/') + "x*", "x.txt"},
        {"d/*txt", "txt x.txt"},
        {"d/.*", "../ ./ .hid"},
        {"d/a*b", "ab"},
        {"d/a*b*c", "aXb*c"},
        {"d/toFile", "toFile"},
        {"d/** d/ab*b d/X* d/sub d/*" + times(1022, 'x'), ""},
        {"d/to", "inner"},
        {"d*", "d/"},
        {"s*r/in s*r/", "in"},
        {"file", "file"},
        {"l/" + times(254, 'n') + "*", times(255, 'n')},
        {"no gone gone* no/* /*", "", ENOENT},
        {"locked listed/*", "", EACCES},
        {"d" + times(1023, '/') + " d" + times(1024, '/') + "x* ." + times(1021, '/') + "d d/*" +
             times(1023, 'x'),
         "", ENAMETOOLONG},
    };
    make("d/sub/ d/ab d/aXb*c d/txt d/x.txt d/.hid d/to>../i d/toFile>x.txt file gone>nothing "
         "i/inner listed/x locked/x s*r/in l/" +
         times(255, 'n'));
    chmod("locked", 0);
    chmod("listed", 0444);
    asOrdinaryUser([&] {
        for (const auto& row : rows) {
            for (const std::string& pattern : words(row.patterns)) {
                SCOPED_TRACE(pattern);
                errno = 0;
                EXPECT_EQ(found(pattern), row.found);
                EXPECT_EQ(errno, row.error);
            }
        }
    });
    EXPECT_EQ(chmod("locked", 0700) + chmod("listed", 0700), 0);
}

TEST_F(QorOsSearch, GivesTypeTimeAndSizeAndGoesOn) {
    make("file to>file");
    EXPECT_EQ(truncate("file", 0x100000005), 0);
    QorOsSetFileTime("file", someTime);
    QorOsFind find;
    char name[QOR_PATH_SIZE];
    uint32_t type = 0;
    uint32_t time = 0;
    uint32_t size = 0;
    EXPECT_EQ(QorOsFindFirst(&find, "to", name, &type, &time, &size), 1u);
    EXPECT_EQ(text("%s %u %u %u", name, type, time, size), text("to 1 %ld 5", someTime));
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(QorOsFindNext(&find, nullptr, &type, &time, &size), 0u);
    close(dirfd(find.dir)); // so that closing it again fails
    EXPECT_EQ(QorOsFindClose(&find), 0u);
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);

    // One of two entries goes while the search is between them.
    EXPECT_EQ(QorOsFindFirst(&find, "*", name, nullptr, nullptr, nullptr), 1u);
    const std::string other = name == std::string("file") ? "to" : "file";
    unlink(other.c_str());
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);
    EXPECT_EQ(text("%s %u %u %u", name, type, time, size), other + text(" 1 %ld 5", someTime));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(QorOsFindClose(&find), 1u);

    EXPECT_EQ(QorOsFindFirst(&find, nullptr, name, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(QorOsFindFirst(&find, "*", nullptr, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(QorOsFindFirst(nullptr, "*", name, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(QorOsFindNext(nullptr, name, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(QorOsFindClose(nullptr), 0u);
}

TEST_F(QorOsSearch, TellsWhatItLooksAt) {
    make("d/x");
    pstLog = log;
    std::multiset<std::string> lines;
    std::istringstream shown(messages([] { found("d/*z"); }));
    for (std::string line; std::getline(shown, line);) {
        lines.insert(line + "\n");
    }
    EXPECT_EQ(sorted(lines), "TRACE FindFirst: splitted input - path=d, file=*z\n "
                             "TRACE FindNext: file = . ; search file = *z\n "
                             "TRACE FindNext: file = .. ; search file = *z\n "
                             "TRACE FindNext: file = x ; search file = *z\n");
    expectMessages("TRACE FindFirst: splitted input - path=./no, file=z*\n"
                   "ERROR FindFirst: opendir failed: " +
                       errorText(ENOENT).substr(1) + "\n",
                   [] { found("./no/z*"); });
    pstLog = nullptr;
}

} // namespace
