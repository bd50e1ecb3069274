#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utime.h>

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

// What the next calls do, a character each: a digit moves at most so many bytes, "i" is interrupted
// and "x" fails. Behind the last one they are the system's own.
std::string reads;
std::string writes;
std::string closes;
size_t largestRead = 0;

ssize_t step(std::string& steps, size_t size) {
    const char now = steps.empty() ? '-' : steps.front();
    steps.erase(0, 1);
    if (now == 'i' || now == 'x') {
        errno = now == 'i' ? EINTR : EIO;
        return -1;
    }
    return static_cast<ssize_t>(now == '-' ? size : std::min(size, static_cast<size_t>(now - '0')));
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
    const ssize_t most = step(reads, size);
    return most < 0 ? -1 : real(fd, buffer, static_cast<size_t>(most));
}

ssize_t write(int fd, const void* buffer, size_t size) {
    static const auto real = systems<ssize_t(int, const void*, size_t)>("write");
    EXPECT_TRUE(writes.empty() || (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0);
    const ssize_t most = step(writes, size);
    return most < 0 ? -1 : real(fd, buffer, static_cast<size_t>(most));
}

int close(int fd) {
    const int result = systems<int(int)>("close")(fd);
    return step(closes, 0) < 0 ? -1 : result;
}

// Where the program had to lend itself a user name space there is no owner to give.
int fchown(int fd, uid_t owner, gid_t group) {
    const int result = systems<int(int, uid_t, gid_t)>("fchown")(fd, owner, group);
    return result == -1 && errno == EINVAL ? 0 : result;
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

using Names = std::multiset<std::string>;

Names words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// All paths below the working directory.
Names tree() {
    Names paths;
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
        paths.insert(entry.path().string().substr(2));
    }
    return paths;
}

// Makes "directory/", "file", which holds "at file", and "link>target", and nothing else, in the
// working directory.
void make(const std::string& paths) {
    for (const std::string& old : tree()) {
        fs::remove_all(old);
    }
    for (const std::string& path : words(paths)) {
        const size_t arrow = path.find('>');
        fs::create_directories(fs::path("./" + path.substr(0, arrow)).parent_path());
        if (arrow != std::string::npos) {
            fs::create_symlink(path.substr(arrow + 1), path.substr(0, arrow));
        } else if (path.back() != '/') {
            std::ofstream(path) << "at " + path;
        }
    }
}

// Runs a function where permissions count.
void asOrdinaryUser(const std::function<void()>& body) {
    const pid_t child = startChild([&] {
        EXPECT_TRUE(geteuid() != 0 || setgid(65534) + setuid(65534) == 0);
        body();
    });
    EXPECT_EQ(waitForChild(child), 0);
}

class QorOsFiles : public OwnLog {
protected:
    void SetUp() override {
        OwnLog::SetUp();
        pstLog = nullptr;
        directory = testing::TempDir() + "qoros_file_XXXXXX";
        ASSERT_NE(mkdtemp(directory.data()), nullptr);
        chmod(directory.c_str(), 0777);
        fs::current_path(directory);
        umask(022);
        lowest = dup(0);
        close(lowest);
    }

    void TearDown() override {
        EXPECT_EQ(dup(0), lowest) << "a descriptor leaked";
        close(lowest);
        fs::current_path(before);
        fs::remove_all(directory);
        OwnLog::TearDown();
    }

    const fs::path before = fs::current_path();
    std::string directory;
    int lowest = -1;
};

using QorOsCopy = QorOsFiles;
using QorOsDirectories = QorOsFiles;
using QorOsSearch = QorOsFiles;

TEST_F(QorOsFiles, HaveSizesTimesAndNames) {
    make("file link>file gone>nothing");
    EXPECT_EQ(truncate("file", 0x100000005), 0);
    for (const char* path : {"file", "link", "gone", "no", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(testing::PrintToString(path));
        const bool there = path != nullptr && fs::exists(path);
        uint32_t size = 7;
        EXPECT_EQ(QorOsGetFileSize(path, &size), there ? 1u : 0u);
        EXPECT_EQ(size, there ? 5u : 0u);
        EXPECT_EQ(QorOsSetFileTime(path, someTime), there ? 1u : 0u);
        EXPECT_EQ(QorOsFileExists(path), there ? 1u : 0u);
    }
    EXPECT_EQ(statusOf("file").st_atime, someTime);
    EXPECT_EQ(statusOf("file").st_mtime, someTime);
    EXPECT_EQ(QorOsRenameFile("gone", "link"), 1u);
    EXPECT_EQ(QorOsRenameFile("gone", "link"), 0u);
    EXPECT_EQ(tree(), words("file link"));
    EXPECT_EQ(QorOsGetFileSize("file", nullptr) + QorOsRenameFile("file", nullptr) +
                  QorOsRenameFile(nullptr, "new"),
              0u);
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

TEST_F(QorOsCopy, WorksInPiecesOrTellsTheFirstFailure) {
    const struct {
        const char *source, *destination;
        int failIfExists, error;
        const char* other; // what the file of that name holds then
        const char *reading = "", *writing = "", *closing = "";
    } rows[] = {
        {"file", "other", 0, 0, "at file", "4ii1", "1i21"},
        {"file", "other", 0, EIO, "at f", "4x", "", "ii"},
        {"file", "other", 0, EIO, "at f", "", "4x", "ii"},
        {"file", "other", 0, ENOSPC, "at f", "", "40"},
        {"file", "other", 0, EIO, "at file", "", "", "xi"},
        {"file", "other", 0, EIO, "at file", "", "", "0x"},
        {"file", "other", 1, EEXIST, "at other"},
        {"file", "gone", 1, EEXIST, "at other"},
        {"file", "file", 0, EINVAL, "at other"},
        {"other", "same", 0, EINVAL, "at other"},
        {"link", "other", 0, EINVAL, "at other"},
        {"file", "dir", 0, EISDIR, "at other"},
        {"dir", "other", 0, EISDIR, "at other"},
        {"no", "other", 0, ENOENT, "at other"},
        {nullptr, "other", 0, 0, "at other"},
        {"file", nullptr, 0, 0, "at other"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(text("%td", &row - rows));
        make("dir/ file other link>other gone>nothing");
        fs::create_hard_link("other", "same");
        QorOsSetFileTime("file", someTime);
        reads = row.reading;
        writes = row.writing;
        closes = row.closing;
        errno = 0;
        const bool copied = QorOsCopyFile(row.source, row.destination, row.failIfExists) != 0;
        EXPECT_TRUE(errno == row.error || copied) << errno;
        EXPECT_EQ(copied, &row == rows);
        EXPECT_EQ(reads + writes + closes, "");
        EXPECT_EQ(statusOf("other").st_mtime == someTime, row.other == std::string("at file"));
        EXPECT_EQ(get("other"), row.other);
        EXPECT_EQ(get("file"), "at file");
        EXPECT_EQ(tree(), words("dir file gone link other same"));
    }
}

TEST_F(QorOsCopy, FailsWithTheDataThereWhereTheOwnerIsRefusedOrTheDiskIsFull) {
    make("file");
    const bool own = geteuid() != 0;
    asOrdinaryUser([&] {
        EXPECT_EQ(QorOsCopyFile("file", "copy", 0), own ? 1u : 0u);
        EXPECT_TRUE(own || errno == EPERM);
        EXPECT_EQ(get("copy"), "at file");
        EXPECT_EQ(statusOf("copy").st_mtime, statusOf("file").st_mtime);
        const rlimit room{4, 4}; // of each file
        signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
        EXPECT_EQ(QorOsCopyFile("file", "copy", 0), 0u);
        EXPECT_EQ(errno, EFBIG);
        EXPECT_EQ(get("copy"), "at f");
#if defined(__linux__)
        EXPECT_EQ(QorOsCopyFile("file", "/dev/full", 0), 0u);
        EXPECT_EQ(errno, ENOSPC);
#endif
    });
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

// Each call as it changes a tree, on the stack that QorOsThreadBegin gives.
TEST_F(QorOsDirectories, AreCreatedAndRemoved) {
    const auto create = QorOsChkAndCreateDir;
    const auto remove = QorOsDeleteDirTree;
    const auto names = [](size_t count) { return std::string(count, 'n'); };
    const std::string longest = names(250) + "/" + std::string(248, 'm');
    const std::string wide = "t/" + std::string(251, 'd');
    std::string deep = "t";
    while (deep.size() + 2 < 256) {
        deep += "/t";
    }
    const struct {
        uint32_t (*call)(const char*);
        std::string path, before, after;
        int error = 0; // other than 0 where the call fails
    } rows[] = {
        {create, "a/b/c", "a/", "a a/b a/b/c"},
        {create, "x\\y\\z", "", "x x\\y x\\y\\z"},
        {create, "x\\", "", "x\\"},
        {create, "x//y/.", "", "x x/y"},
        {create, "to/x/", "a/ to>a", "a a/x to"},
        {create, "x", "", ""},
        {create, "", "", ""},
        {create, "xy", "", "xy"},
        {create, "file", "file", "file"},
        {create, "file/x", "file", "file", EEXIST},
        {create, "x/" + names(256) + "/y", "", "x", ENAMETOOLONG},
        {create, longest, "", names(250) + " " + longest},
        {create, longest + "m", "", "", ENAMETOOLONG},
        {create, "a/" + std::string(498, '/'), "a/", "a"},
        {remove, "t", "t/file t/.hidden t/a/b/c/ t/a/b/file t/link>../kept kept", "kept"},
        {remove, "t", "t/to>../out t/file out/a/file out/file", "out t t/to", ENOTEMPTY},
        {remove, "t/to", "t/to>../out t/file out/a/ out/file", "out t t/file t/to", ENOTDIR},
        {remove, "t", "t/gone>nothing", "t t/gone", ENOTEMPTY},
        {remove, "t", "t/a/l>.. t/a/m>.. t/a/n>../.. out/file", "t t/a t/a/l t/a/m t/a/n",
         ENOTEMPTY},
        {remove, "t", deep + "/", ""},
        {remove, "t", "t/" + names(253), ""},
        {remove, "t", "t/" + names(254), "t t/" + names(254), ENOTEMPTY},
        {remove, wide, wide + "/f", "t"},
        {remove, wide, wide + "/ff", "t " + wide + " " + wide + "/ff", ENOTEMPTY},
        {remove, "./" + wide + "ddd", wide + "ddd/", "t"},
        {remove, "file", "file", "file", ENOTDIR},
        {QorOsDeleteDir, "d", "d/", ""},
        {QorOsDeleteDir, "file", "file", "file", ENOTDIR},
        {QorOsDeleteFile, "link", "file link>file", "file"},
        {QorOsDeleteFile, "no", "file", "file", ENOENT},
    };
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs the privilege to shut a deletion in";
    }
    const pid_t child = startChild([&] {
        // A deletion that loses its way finds nothing but the test's own directory.
        if (chroot(".") != 0 || chdir("/") != 0) {
            ADD_FAILURE() << "the deletion is not shut in";
            return;
        }
        const rlimit stack{256 * 1024, 256 * 1024};
        EXPECT_EQ(setrlimit(RLIMIT_STACK, &stack), 0);
        for (const auto& row : rows) {
            SCOPED_TRACE(row.path + " in " + row.before);
            make(row.before);
            EXPECT_EQ(row.call(row.path.c_str()), row.error == 0 ? 1u : 0u);
            EXPECT_TRUE(row.error == 0 || errno == row.error) << errno;
            EXPECT_EQ(tree(), words(row.after));
            EXPECT_EQ(row.call(nullptr), 0u);
        }
    });
    EXPECT_EQ(waitForChild(child), 0);
}

TEST_F(QorOsDirectories, AreCreatedForTheirOwner) {
    asOrdinaryUser([] {
        EXPECT_EQ(QorOsChkAndCreateDir("new/new"), 1u);
        EXPECT_EQ(statusOf("new").st_mode & 0777, 0700u);
        EXPECT_EQ(statusOf("new/new").st_mode & 0777, 0700u);
        umask(0200);
        EXPECT_EQ(QorOsChkAndCreateDir("unwritable"), 1u);
        EXPECT_EQ(QorOsChkAndCreateDir("unwritable2/."), 0u);
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
    const auto times = [](size_t count, char byte) { return std::string(count, byte); };
    const struct {
        std::string patterns, found; // each pattern finds the same
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
        {"d/to s*r/in s*r/", "in"},
        {"d*", "d/"},
        {"file", "file"},
        {"l/" + times(254, 'n') + "*", times(255, 'n')},
        {"no gone gone* no/* /*", "", ENOENT},
        {"locked listed/*", "", EACCES},
        {"d" + times(1023, '/') + " d" + times(1024, '/') + "x*", "", ENAMETOOLONG},
        {"." + times(1021, '/') + "d d/*" + times(1023, 'x'), "", ENAMETOOLONG},
    };
    make("d/sub/ d/ab d/aXb*c d/txt d/x.txt d/.hid d/to>../s*r d/toFile>x.txt file gone>nothing "
         "listed/x locked/x s*r/in l/" +
         times(255, 'n'));
    chmod("locked", 0);
    chmod("listed", 0444);
    asOrdinaryUser([&] {
        for (const auto& row : rows) {
            for (const std::string& pattern : words(row.patterns)) {
                SCOPED_TRACE(pattern);
                errno = 0;
                EXPECT_EQ(found(pattern), words(row.found));
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
    close(dirfd(find.dir)); // so that closing it again fails
    EXPECT_EQ(QorOsFindClose(&find), 0u);
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);

    // One of two entries goes while the search is between them.
    EXPECT_EQ(QorOsFindFirst(&find, "*", name, nullptr, nullptr, nullptr), 1u);
    const std::string other = name == std::string("file") ? "to" : "file";
    unlink(other.c_str());
    EXPECT_EQ(QorOsFindNext(&find, nullptr, &type, &time, &size), 0u);
    EXPECT_EQ(QorOsFindNext(&find, name, &type, &time, &size), 0u);
    EXPECT_EQ(text("%s %u %u %u", name, type, time, size), other + text(" 1 %ld 5", someTime));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(QorOsFindClose(&find), 1u);

    EXPECT_EQ(QorOsFindFirst(&find, nullptr, name, nullptr, nullptr, nullptr) +
                  QorOsFindFirst(&find, "*", nullptr, nullptr, nullptr, nullptr) +
                  QorOsFindFirst(nullptr, "*", name, nullptr, nullptr, nullptr) +
                  QorOsFindNext(nullptr, name, nullptr, nullptr, nullptr) + QorOsFindClose(nullptr),
              0u);
}

TEST_F(QorOsSearch, TellsWhatItLooksAt) {
    make("d/x");
    pstLog = log;
    Names lines;
    std::istringstream shown(messages([] { found("d/*z"); }));
    for (std::string line; std::getline(shown, line);) {
        lines.insert(line);
    }
    EXPECT_EQ(lines, Names({"TRACE FindFirst: splitted input - path=d, file=*z",
                            "TRACE FindNext: file = . ; search file = *z",
                            "TRACE FindNext: file = .. ; search file = *z",
                            "TRACE FindNext: file = x ; search file = *z"}));
    const std::string no = errorText(ENOENT).substr(1);
    expectMessages("TRACE FindFirst: splitted input - path=./no, file=z*\n"
                   "ERROR FindFirst: opendir failed: " +
                       no + "\n",
                   [] { found("./no/z*"); });
    pstLog = nullptr;
}

} // namespace
