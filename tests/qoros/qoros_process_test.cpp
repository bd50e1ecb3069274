#include <dlfcn.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <regex>
#include <vector>

#include "own_log.h"
#include "qoros/src/linux/qoros_cmdline.h"
#include "temp_directory.h"

namespace {

std::atomic<int> forksLeft{-1};    // behind them the system has no process; without end below 0
std::atomic<int> interruptions{0}; // how many of the next waits a signal ends

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" pid_t fork() {
    // Looked up once, since the process in the middle must not wait for a lock of the loader.
    static const auto systemsFork = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"));
    forksLeft -= forksLeft > 0 ? 1 : 0;
    errno = EAGAIN;
    return forksLeft == 0 ? -1 : systemsFork();
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    errno = EINTR;
    return interruptions > 0 && interruptions-- > 0 ? -1 : wait4(pid, status, options, nullptr);
}

namespace {

std::string repeated(const std::string& piece, int count) {
    return count == 0 ? "" : piece + repeated(piece, count - 1);
}

std::string split(const std::string& line) {
    const CommandLine vector = parseProcessCommandline(line.c_str());
    std::string entries = vector ? "" : strerror(errno);
    for (char** entry = vector.get(); vector && *entry != nullptr; ++entry) {
        entries += text("[%s]", *entry);
    }
    return entries;
}

TEST(QorOsCommandLine, IsSplitAtBlanksOutsideQuotes) {
    const std::string cases[][2] = {
        {"", "[][]"},
        {" ls", "[][][ls]"},
        {R"("a b" c")", R"(["a]["a][b c])"},
        {"p  a\tb\nc   d ", "[p][p][a\tb\nc][d]"},
        {R"(p a "b c" d"e f"g)", "[p][p][a][b c][de fg]"},
        {R"(p "a""b"c "" d "")", "[p][p][abc][][d][]"},
        {R"(p "x\"y" "x\y\ z\\" z)", R"([p][p][x"y][x\y\ z\\][z])"},
        {R"(p a\"b c" \ d)", R"([p][p][a\b c][\][d])"},
        {R"(p a "b\" c )", R"([p][p][a][b" c ])"},
        {R"(p ")", "[p][p][]"},
        {R"(p a "b\)", "[p][p][a]"},
        {R"(p a"b\)", "[p][p][a]"},
        {"p" + repeated(" a", 4095), "[p][p]" + repeated("[a]", 4095)},
        {"p" + repeated(" a", 4095) + " ", strerror(E2BIG)},
    };
    for (const auto& [line, expected] : cases) {
        EXPECT_EQ(split(line), expected) << line;
    }
}

class QorOsProcesses : public OwnLog {
protected:
    void SetUp() override {
        OwnLog::SetUp();
        EXPECT_EQ(std::system(placed(R"(cd @; umask 0; mkfifo in out; ln -s loop loop
            mkdir a b c a/script b/directory
            >a/tool; >b/tool; chmod 700 b/tool; >c/tool; chmod 077 c/tool
            echo 'exit 4' >c/script
            echo 'test "$0|$#|$2" = "@/b/script|2|two words" && exit 5' >b/script
            printf '#!/bin/sh\nexit 6' >b/here
            echo 'exit 9' >b/sh; chmod 755 b/script b/here b/sh)")
                                  .c_str()),
                  0);
    }
    void TearDown() override {
        forksLeft = -1;
        setenv("PATH", oldPath.c_str(), 1);
        EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1) << "a child is left";
        OwnLog::TearDown();
    }

    // Puts the test's directory in the place of each "@".
    std::string placed(const std::string& text) const {
        return std::regex_replace(text, std::regex("@"), directory.path());
    }
    // "-" unsets it.
    void setPath(const std::string& list) const {
        EXPECT_EQ(list == "-" ? unsetenv("PATH") : setenv("PATH", placed(list).c_str(), 1), 0);
    }
    uint32_t start(const std::string& line, QorOsProcess** out) const {
        return QorOsCreateProcessAsyn(placed(line).c_str(), nullptr, out);
    }
    int64_t exitCode(const std::string& line) const {
        QorOsProcess* process = nullptr;
        uint32_t code = 0;
        EXPECT_EQ(start(line, &process), 1u);
        return QorOsProcessWait(process, &code) == 1 ? int64_t{code} : -1;
    }

    support::TempDirectory directory;
    const std::string oldPath = getenv("PATH");
};

TEST_F(QorOsProcesses, AreFoundInSystemDirectoriesAndThenInPath) {
    // The directory is as long as it may be for a name of 6.
    const std::string longest = "@/b" + std::string(1024 - 6 - directory.path("b").size(), '/');
    const std::string cases[][3] = {
        {"tool", "@/a:@/c:@/none:@/b", "@/b/tool"},
        {"tool", "-", ""},
        {"sh", "@/b", "/bin/sh"},
        {"directory", "@/b", "@/b/directory"},
        {"tmp", "@/a:", ""},
        {"tmp", "@/a::@/b", "/tmp"},
        {"toolxx", longest, longest + "/tool"},
        {"toolxx", longest + "/", ""},
    };
    std::vector<char> buffer(QOR_PATH_SIZE);
    for (const auto& [name, list, expected] : cases) {
        setPath(list);
        strcpy_qor(buffer.data(), buffer.size(), name.c_str());
        EXPECT_EQ(QorOsdGetPath(buffer.data()), placed(expected).size()) << list;
        EXPECT_EQ(buffer.data(), expected.empty() ? name : placed(expected)) << list;
    }
    buffer.assign(buffer.size(), '/');
    EXPECT_EQ(QorOsdGetPath(buffer.data()) + QorOsdGetPath(nullptr), 0u);
}

TEST_F(QorOsProcesses, RunInTheShell) {
    const auto check = [this](const std::string& line, uint32_t expected, const char* level,
                              const std::string& told) {
        uint32_t status = 1;
        const std::string message = text("%s QorOsCreateProcess: %s (", level, told.c_str());
        expectMessages(placed(message) + pidTid() + "\n", [&] {
            EXPECT_EQ(QorOsCreateProcessEx(placed(line).c_str(), 0, &status), expected == 0);
        });
        EXPECT_EQ(status, expected) << line;
    };
    const std::string limit(1024 - 8, 'x'); // behind "sh -c : "
    check("@/b/here \t", 6, "TRACE", "cmd execed: '@/b/here'=6");
    check(" \n\tsh\t \n-c  'exit 7' ", 7, "TRACE", "cmd execed: '/bin/sh -c  'exit 7' '=7");
    check("sh -c : ; kill -9 $$", 9, "TRACE", "cmd execed: '/bin/sh -c : ; kill -9 $$'=9");
    check("@/none 2>&-", 127, "TRACE", "cmd execed: '@/none 2>&-'=127");
    check("sh -c : " + limit, 0, "TRACE", "cmd execed: '/bin/sh -c : " + limit.substr(1) + "'=0");
    check(" \t\n", UINT32_MAX, "ERROR", "command line ( \t\n) is empty");
    check("sh " + limit + "xxxxxx", UINT32_MAX, "ERROR",
          "command line (sh " + limit + "xxxxxx) is too long");
    check("none x", UINT32_MAX, "ERROR", "command (none) cannot be found");
    signal(SIGCHLD, SIG_IGN); // so that the system does not tell
    check("sh -c :", UINT32_MAX, "TRACE", "cmd execed: '/bin/sh -c :'=4294967295");
    signal(SIGCHLD, SIG_DFL);
    pstLog = nullptr;
    EXPECT_EQ(QorOsCreateProcess("sh -c 'exit 0'"), 1u);
    EXPECT_EQ(QorOsCreateProcess(nullptr), 0u);
    const std::string background = placed("sh -c 'read x; cat' <@/in >@/out");
    EXPECT_EQ(QorOsCreateProcessSw(background.c_str(), 0x10000), 1u);
    directory.write("in", "first\nsecond");
    EXPECT_EQ(directory.read("out"), "second");
}

TEST_F(QorOsProcesses, TellTheirExitCodes) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path("b"));
    interruptions = 2;
    const auto check = [this](const std::string& list, const std::string& line, int64_t expected) {
        setPath(list);
        EXPECT_EQ(exitCode(line), expected) << list << " " << line;
    };
    check("@", R"(/bin/sh -c "exit 7")", 7);
    check("@", R"(/bin/sh -c "kill -9 $$")", 0);
    check("@", R"(@/b/script 1 "two words")", 5);
    check("@", "@/none", 127);
    check("-", R"(sh -c "exit 4")", 4);
    check("@/b", "sh", 9); // in PATH alone
    check("@/none:@/a:@/c:@/a/tool:@/b", R"(script 1 "two words")", 5);
    check("@/" + std::string(5000, 'x') + ":@/b", "here", 6);
    check("@/loop:@/b", "here", 127);
    check("@/a:@/c", "script", 127);
    check("/bin", R"( sh -c "exit 1")", 127);
    check("/bin", "sh" + repeated(" x", 4096), 127);
    check("", "here", 6); // in the working directory
    check("@/a:", "here", 6);
    std::filesystem::current_path(before);
}

TEST_F(QorOsProcesses, AreWatched) {
    QorOsProcess* process = nullptr;
    uint32_t code = 9;
    for (const bool terminated : {false, true}) {
        siginfo_t end;
        ASSERT_EQ(start(R"(/bin/sh -c "read x <@/in; exit 3")", &process), 1u);
        EXPECT_EQ(QorOsProcessIsRunning(process), 1u);
        if (terminated) {
            EXPECT_EQ(QorOsTerminateProcess(process), 1u);
        } else {
            directory.write("in", "\n");
        }
        ASSERT_EQ(waitid(P_PID, process->pid, &end, WEXITED | WNOWAIT), 0);
        EXPECT_EQ(end.si_status, terminated ? SIGTERM : 3);
        EXPECT_EQ(QorOsTerminateProcess(process) + process->pid, 0u);
        EXPECT_EQ(QorOsProcessIsRunning(process), 0u);
        EXPECT_EQ(QorOsProcessWait(process, terminated ? nullptr : &code), 1u);
        EXPECT_EQ(code, 3u);
    }
    for (const uint32_t pid : {static_cast<uint32_t>(getppid()), UINT32_MAX}) { // no children
        process = static_cast<QorOsProcess*>(calloc(1, sizeof(QorOsProcess)));
        process->pid = pid;
        EXPECT_EQ(QorOsProcessIsRunning(process), pid == UINT32_MAX ? 0u : 1u);
        EXPECT_EQ(QorOsProcessWait(process, &code), 0u);
        EXPECT_EQ(code, 3u);
    }
    EXPECT_EQ(QorOsProcessIsRunning(nullptr) + QorOsTerminateProcess(nullptr), 0u);
    EXPECT_EQ(QorOsProcessWait(nullptr, &code), 0u);
}

TEST_F(QorOsProcesses, RunDetached) {
    interruptions = 1;
    EXPECT_EQ(start(R"(/bin/sh -c "echo $$ >@/out; read x <@/in")", nullptr), 1u);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "it is a child of the caller";
    const pid_t program = static_cast<pid_t>(std::stol(directory.read("out")));
    const pid_t session = getsid(program);
    EXPECT_TRUE(session > 0 && session != getsid(0) && session != program) << session;
    directory.write("in", "\n");
    EXPECT_EQ(start("@/none", nullptr), 1u);
}

TEST_F(QorOsProcesses, TellWhenTheSystemHasNone) {
    QorOsProcess* process = nullptr;
    EXPECT_TRUE(QorOsCreateProcessAsyn(nullptr, nullptr, &process) == 0 && process == nullptr);
    // For the process that is watched, for the one in the middle, and for the program behind it.
    for (const int which : {0, 1, 2}) {
        forksLeft = which == 2 ? 2 : 1;
        EXPECT_EQ(start("/bin/sh", which == 0 ? &process : nullptr), 0u) << which;
        EXPECT_EQ(std::exchange(errno, 0), EAGAIN);
    }
    EXPECT_NE(reinterpret_cast<uintptr_t>(process), 0u);
    const uint32_t descriptor = static_cast<uint32_t>(dup(0));
    EXPECT_EQ(QorOsCloseHdl(descriptor), 1u);
    EXPECT_EQ(QorOsCloseHdl(descriptor), 0u);
}

TEST_F(QorOsProcesses, StartFromManyThreads) {
    std::vector<std::future<void>> threads; // which it waits for
    for (uint32_t i = 0; i < 24; ++i) {
        threads.push_back(std::async(std::launch::async, [this, i] {
            EXPECT_EQ(exitCode(text("sh -c \"exit %u\"", i)), i);
            EXPECT_EQ(start("sh -c :", nullptr), 1u);
        }));
    }
}

} // namespace
