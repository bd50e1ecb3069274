#include "qoros.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>
#if defined(__linux__)
#include <sched.h>
#include <sys/mount.h>
#endif

#include <csignal>
#include <set>

#include "environment.h"
#include "temp_directory.h"

using namespace std::string_literals;

namespace {

using Call = uint32_t (*)(const char* path);

struct Row {
    std::string before; // a script that makes the tree
    std::string path;
    int error; // other than 0 where the call fails
    std::string after;
};

// Shows a tree: all paths but hidden ones, what the copy "b" has from "a", and the ends of files.
constexpr char show[] =
    "{ find * | LC_ALL=C sort; find b -perm 604 -exec echo mode \\;;"
    "  find b -user 12 -group 34 -exec echo owner \\;;"
    "  find b ! -newer a -atime +999 -exec echo times \\;;"
    "  find * -type f -exec tail -c 4 {} \\;; } 2>/dev/null | tr '\\n' ' ' >.shown";

// Runs a call where a deletion that loses its way finds nothing but the test's own directory, and
// on a stack as QorOsThreadBegin gives it. The exit code is its error.
[[noreturn]] void shutIn(Call call, const std::string& path) {
    const rlimit stack{262144, 262144};
    const bool in = chroot(".") == 0 && setrlimit(RLIMIT_STACK, &stack) == 0;
    _exit(!in ? 255 : call(path.c_str()) != 0 ? 0 : errno);
}

void expectTrees(Call call, const std::vector<Row>& rows) {
    if (geteuid() != 0) {
        QOR_SKIP_OR_FAIL("needs the privilege to shut calls in");
    }
    for (const Row& row : rows) {
        SCOPED_TRACE(row.before);
        const support::TempDirectory directory;
        ASSERT_EQ(chdir(directory.path().c_str()) + chmod(".", 0777), 0);
        EXPECT_EQ(system(row.before.c_str()), 0);
        EXPECT_EXIT(shutIn(call, row.path), testing::ExitedWithCode(row.error), "");
        system(show);
        EXPECT_EQ(directory.read(".shown"), row.after);
    }
}

uint32_t copy(const char* path) {
    return QorOsCopyFile("a", path, 0);
}

// Copies to a small file system, which only this process sees, or else under a limit for all files.
uint32_t copyToAFullDisk(const char* path) {
    const rlimit most{131072, 131072};
    EXPECT_TRUE(signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &most) == 0);
#if defined(__linux__)
    static_cast<void>(unshare(CLONE_NEWNS) == 0 &&
                      mount("", "/", "", MS_REC | MS_PRIVATE, "") == 0 &&
                      mount("tmpfs", ".disk", "tmpfs", 0, "size=64k") == 0);
#endif
    const uint32_t copied = copy(path);
    errno = errno == EFBIG ? ENOSPC : errno;
    return copied;
}

TEST(QorOsCopyDeathTest, TakesAttributesAndSparesWhatIsThere) {
    const std::string old =
        "echo 1 >a; chown 12:34 a; touch -t 200001020304 a; touch -at 200101020304 a; chmod 604 a;";
    expectTrees(copy,
                {{old, "b", 0, "a b mode owner times 1 1 "},
                 {old + "echo 22 >b", "b", 0, "a b owner times 1 1 "}, // kept: the mode
                 {"echo end | dd of=a bs=1 seek=1073741824 2>/dev/null", "b", 0, "a b end end "},
                 {"echo 1 >a; ln -s a b", "b", EINVAL, "a b 1 "},
                 {"mkdir a; echo 2 >b", "b", EISDIR, "a b 2 "}});
    expectTrees([](const char* path) { return setuid(65534) == 0 ? copy(path) : 9; },
                {{old, "b", EPERM, "a b mode times 1 1 "}}); // kept: the data are there
    expectTrees(copyToAFullDisk,
                {{"mkdir .disk; printf %0200000d 0 >a", ".disk/b", ENOSPC, "a 0000"}});
    expectTrees([](const char* path) { return QorOsCopyFile("a", path, 1); },
                {{"echo 1 >a; echo 2 >b", "b", EEXIST, "a b 1 2 "},
                 {"echo 1 >a; ln -s no b", "b", EEXIST, "a b 1 "}});
    expectTrees([](const char* path) { return QorOsRenameFile(path, "b"); },
                {{"echo 1 >a; echo 2 >b", "a", 0, "b 1 "}});
    expectTrees(QorOsDeleteFile, {{"echo 1 >a; ln -s a b", "b", 0, "a 1 "}});
}

TEST(QorOsDirectoriesDeathTest, AreCreatedAlongAPath) {
    const std::string longest = "ab" + std::string(495, '/') + "cd"; // 499 bytes
    expectTrees(QorOsChkAndCreateDir, {{"mkdir a; ln -s a to", "to/x//y/", 0, "a a/x a/x/y to "},
                                       {":", "x\\y\\z\\", 0, "x x\\y x\\y\\z\\ "}, // kept
                                       {":", "x", 0, ""},                          // kept
                                       {"echo 1 >ab", "ab", 0, "ab 1 "},           // kept
                                       {"echo 1 >ab", "ab/x", EEXIST, "ab 1 "},
                                       {":", longest, 0, "ab ab/cd "},
                                       {":", longest + "e", ENAMETOOLONG, ""}});
}

TEST(QorOsDirectoriesDeathTest, AreDeletedWithWhatIsInThem) {
    const std::string wide = "t/" + std::string(251, '0'); // 253 bytes
    const std::string makeWide = "W=t/$(printf %0251d 0); mkdir -p $W; ";
    // Cut to 255 bytes the file's path would be that of the link, which has to stay.
    const std::string uncut = "t " + wide + " " + wide + "/l " + wide + "/lf ";
    expectTrees(QorOsDeleteDirTree,
                {{"mkdir -p t/a/b; touch t/a/b/f t/.h t/f k; ln -s ../k t", "t", 0, "k "},
                 {"mkdir -p t o/a p; touch o/a/f p/f; ln -s ../o ../p t", "t", ENOTEMPTY,
                  "o p t t/o t/p "},                                  // kept
                 {"mkdir t; ln -s no t/l", "t", ENOTEMPTY, "t t/l "}, // kept
                 {"mkdir t; ln -s . t/l; ln -s .. t/m", "t", ENOTEMPTY, "t t/l t/m "},
                 {"mkdir -p $(printf 't/%.0s' $(seq 128))", "t", 0, ""},
                 {makeWide + "touch $W/f", wide, 0, "t "},
                 {makeWide + "touch $W/lf; ln -s .. $W/l", wide, ENOTEMPTY, uncut},
                 {":", wide + "/xy", ENAMETOOLONG, ""}});
    expectTrees(
        [](const char* path) { return setuid(65534) == 0 ? QorOsDeleteDirTree(path) : 9; },
        {{"mkdir -p -m 777 t/u; touch t/u/f; chmod 0 t/u", "t", ENOTEMPTY, "t t/u t/u/f "}});
    expectTrees(QorOsDeleteDir, {{"mkdir -p t/d", "t/d", 0, "t "}});
}

// What a search gives: names, with "/" for a directory and the size of what has the time 7, and the
// one that ends it with ".".
std::set<std::string> found(const std::string& pattern) {
    QorOsFind find;
    char name[QOR_PATH_SIZE] = "";
    uint32_t type = 0, time = 0, size = 0;
    std::set<std::string> names;
    uint32_t more = QorOsFindFirst(&find, pattern.c_str(), name, &type, &time, &size);
    for (; more != 0; more = QorOsFindNext(&find, name, &type, &time, &size)) {
        const std::string bytes = time == 7 ? "=" + std::to_string(size) : "";
        names.insert(name + (type == QOR_ENTRY_DIRECTORY ? "/" : bytes));
    }
    EXPECT_EQ(QorOsFindClose(&find), 1u);
    names.insert(name + "."s);
    return names;
}

TEST(QorOsSearch, FindsWhatMatches) {
    const support::TempDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    EXPECT_EQ(QorOsChkAndCreateDir("d/sub"), 1u);
    EXPECT_EQ(std::filesystem::status("d").permissions(), std::filesystem::perms::owner_all);
    ASSERT_EQ(system("mkdir s l 'a*b'; ln -s ../s d/to; ln -s txt d/.hid; ln -s no gone; touch "
                     "s/in 'a*b/in'; "
                     "touch l/$(printf %0255d 0) d/ab 'd/aXb*c' d/txt d/x.txt"),
              0);
    EXPECT_EQ(truncate("d/txt", 0x100000005), 0); // size and time are cut to 32 bits
    EXPECT_EQ(QorOsSetFileTime("d/txt", 0x100000007), 1u);
    uint32_t size = 0;
    EXPECT_TRUE(QorOsGetFileSize("d/.hid", &size) == 1 && size == 5);
    const std::string name(255, '0');
    const std::string slashes(1022, '/');
    const struct {
        std::vector<std::string> patterns;
        std::set<std::string> found;
        int error;
    } rows[] = {
        {{"d", "d" + slashes, "d/*", "d/*.*", "d/*."},
         {".", ".hid=5", "aXb*c", "ab", "sub/", "to/", "txt=5", "x.txt"},
         0},
        {{"d/*.txt", "d/" + slashes + "x*"}, {".", "x.txt"}, 0},
        {{"d/.*"}, {".", "../", "./", ".hid=5"}, 0},
        {{"d/a*b"}, {".", "ab"}, 0},
        {{"d/a*b*c"}, {".", "aXb*c"}, 0},
        {{"a*b/"}, {".", "in"}, 0},
        {{"l/" + name}, {".", name}, 0},
        {{"d/ab*b"}, {"."}, 0},
        {{"g*"}, {"gone."}, ENOENT},
        {{"no", "gone", "/*"}, {"."}, ENOENT},
        {{"d/" + slashes, "." + slashes.substr(1) + "d", "d//" + slashes + "x*"},
         {"."},
         ENAMETOOLONG},
    };
    for (const auto& row : rows) {
        for (const std::string& pattern : row.patterns) {
            errno = 0;
            EXPECT_EQ(found(pattern), row.found) << pattern;
            EXPECT_EQ(errno, row.error) << pattern;
        }
    }
}

} // namespace
