#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <regex>

#include "own_log.h"
#include "qoros/src/linux/qoros_cmdline.h"
#include "temp_directory.h"

namespace {

std::string repeated(const std::string& piece, int count) {
    return count == 0 ? "" : piece + repeated(piece, count - 1);
}

TEST(QorOsCommandLine, IsSplitAtBlanksOutsideQuotes) {
    const std::string cases[][2] = {
        {" ls", "[][][ls]"},
        {R"("a b" c")", R"(["a]["a][b c])"},
        {"p  a\tb\nc   d ", "[p][p][a\tb\nc][d]"},
        {R"(p a "b c" d"e f"g)", "[p][p][a][b c][de fg]"},
        {R"(p "a""b"c "" d "")", "[p][p][abc][][d][]"},
        {R"(p "x\"y" "x\y\ z\\" z)", R"([p][p][x"y][x\y\ z\\][z])"},
        {R"(p a\"b c" \ "d)", R"([p][p][a\b c][\][d])"},
        {R"(p a "b\)", "[p][p][a]"},
        {"p" + repeated(" a", 4095), "[p][p]" + repeated("[a]", 4095)},
        {"p" + repeated(" a", 4095) + " ", ""},
    };
    for (const auto& [line, expected] : cases) {
        const CommandLine vector = parseProcessCommandline(line.c_str());
        std::string entries;
        for (char** entry = vector.get(); entry != nullptr && *entry != nullptr; ++entry) {
            entries += text("[%s]", *entry);
        }
        EXPECT_EQ(entries, expected) << line;
    }
    EXPECT_EQ(errno, E2BIG);
}

// Without the fixture's log but for messages: a program that is on its way would keep the block.
class QorOsProcesses : public OwnLog {
protected:
    void SetUp() override {
        EXPECT_EQ(std::system(placed(R"(cd @; umask 0; mkfifo in out
            mkdir a b c a/script; >a/tool; >b/tool; >c/tool; chmod 077 c/tool
            echo 'exit 4' >c/script
            echo 'test "$0|$#|$2" = "@/b/script|2|two words" && exit 5' >b/script
            chmod 700 b/tool b/script)")
                                  .c_str()),
                  0);
    }
    void TearDown() override {
        setenv("PATH", oldPath.c_str(), 1);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }

    // Puts the test's directory in the place of each "@".
    std::string placed(const std::string& text) const {
        return std::regex_replace(text, std::regex("@"), directory.path());
    }
    // "-" unsets it.
    void setPath(const std::string& list) const {
        EXPECT_EQ(list == "-" ? unsetenv("PATH") : setenv("PATH", placed(list).c_str(), 1), 0);
    }
    uint32_t exitCode(const std::string& line) const {
        QorOsProcess* process = nullptr;
        uint32_t code = 999;
        EXPECT_EQ(QorOsCreateProcessAsyn(placed(line).c_str(), nullptr, &process), 1u);
        return QorOsProcessWait(process, &code) == 1 ? code : 999;
    }

    const support::TempDirectory directory;
    const std::string oldPath = getenv("PATH");
};

TEST_F(QorOsProcesses, AreFoundInSystemDirectoriesAndThenInPath) {
    // The directory is as long as it may be for a name of 6.
    const std::string longest = "@/b" + std::string(1024 - 6 - directory.path("b").size(), '/');
    const std::string cases[][3] = {
        {"tool", "@/a:@/c:@/b", "@/b/tool"},
        {"tool", "-", "tool"},
        {"sh", "@/b", "/bin/sh"},
        {"tmp", "@/a::@/b", "/tmp"},
        {"toolxx", longest, longest + "/tool"},
        {"toolxx", longest + "/", "toolxx"},
    };
    std::string buffer(QOR_PATH_SIZE, '/');
    EXPECT_EQ(QorOsdGetPath(buffer.data()), 0u) << "it has no end";
    for (const auto& [name, list, expected] : cases) {
        setPath(list);
        buffer.replace(0, name.size() + 1, name.c_str(), name.size() + 1);
        EXPECT_EQ(QorOsdGetPath(buffer.data()), expected == name ? 0 : placed(expected).size());
        EXPECT_EQ(buffer.c_str(), placed(expected));
    }
}

TEST_F(QorOsProcesses, RunInTheShell) {
    const std::string limit(1024 - 8, 'x'); // behind "sh -c : "
    const auto status = [this](const std::string& line) {
        uint32_t code = 0;
        return QorOsCreateProcessEx(placed(line).c_str(), 0, &code) == 0 ? code : 0;
    };
    EXPECT_EQ(status("sh -c : ; kill -9 $$"), 9u);
    EXPECT_EQ(status("@/none 2>&-"), 127u);
    EXPECT_EQ(status("sh -c : x" + limit), UINT32_MAX);
    EXPECT_EQ(status(" \n\tsh\t \n-c  'exit 7' "), 7u);
    OwnLog::SetUp();
    expectCall("TRACE QorOsCreateProcess: cmd execed: '/bin/sh -c : " + limit.substr(1) +
                   "'=0 (@)\n",
               1, [&] { return QorOsCreateProcess(("sh -c : " + limit).c_str()); });
    expectCall("ERROR QorOsCreateProcess: command line ( \t\n) is empty (@)\n", 0,
               [] { return QorOsCreateProcess(" \t\n"); });
    expectCall("ERROR QorOsCreateProcess: command (none) cannot be found (@)\n", 0,
               [] { return QorOsCreateProcess("none x"); });
    OwnLog::TearDown();
    const std::string background = placed("sh -c 'read x; cat' <@/in >@/out");
    EXPECT_EQ(QorOsCreateProcessSw(background.c_str(), 0x10000), 1u);
    directory.write("in", "first\nsecond");
    EXPECT_EQ(directory.read("out"), "second");
}

TEST_F(QorOsProcesses, TellTheirExitCodes) {
    std::filesystem::current_path(directory.path("b"));
    const std::tuple<std::string, std::string, uint32_t> cases[] = {
        {"-", R"(sh -c "kill -9 $$")", 0},
        {"/bin", R"( sh -c "exit 1")", 127},
        {"@/none:@/a:@/a/tool:@/b", R"(script 1 "two words")", 5},
        {"@/" + std::string(5000, 'x') + ":@/b", R"(script 1 "two words")", 5},
        {"@/a:", "tool", 0}, // in the working directory
    };
    for (const auto& [list, line, expected] : cases) {
        setPath(list);
        EXPECT_EQ(exitCode(line), expected) << list << " " << line;
    }
    std::filesystem::current_path("/");
}

TEST_F(QorOsProcesses, AreWatched) {
    QorOsProcess* process = nullptr;
    siginfo_t end;
    EXPECT_EQ(QorOsCreateProcessAsyn("sleep 60", nullptr, &process), 1u);
    EXPECT_EQ(QorOsTerminateProcess(process), 1u);
    EXPECT_EQ(waitid(P_PID, process->pid, &end, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(end.si_status, SIGTERM);
    EXPECT_EQ(sum({QorOsTerminateProcess(process), process->pid}), 0u);
    EXPECT_EQ(QorOsProcessWait(process, nullptr), 1u);
    QorOsProcess other{static_cast<uint32_t>(getppid()), 0};
    EXPECT_EQ(QorOsProcessIsRunning(&other), 1u) << "it is no child";
}

TEST_F(QorOsProcesses, RunDetached) {
    const std::string line = placed(R"(sh -c "echo $$ >@/out; read x <@/in")");
    EXPECT_EQ(QorOsCreateProcessAsyn(line.c_str(), nullptr, nullptr), 1u);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "it is a child of the caller";
    const pid_t program = std::stoi(directory.read("out"));
    const pid_t session = getsid(program);
    EXPECT_TRUE(session > 0 && session != getsid(0) && session != program) << session;
    directory.write("in", "\n");
}

// In an unprivileged process that may have no more processes and threads.
TEST_F(QorOsProcesses, TellWhenTheSystemHasNone) {
    const pid_t poor = startChild([] {
        const rlimit none{0, 0};
        ASSERT_TRUE(setrlimit(RLIMIT_NPROC, &none) == 0 && (getuid() != 0 || setuid(65534) == 0));
        QorOsProcess* process = nullptr;
        uint32_t state = 0;
        EXPECT_EQ(QorOsCreateProcessAsyn("sh", nullptr, &process), 0u);
        EXPECT_NE(reinterpret_cast<uintptr_t>(process), 0u);
        EXPECT_EQ(sum({QorOsThreadStart(nullptr, &state, nullptr, nullptr), state}), 0u);
    });
    EXPECT_EQ(waitForChild(poor), 0);
}

TEST_F(QorOsProcesses, StartFromManyThreads) {
    inThreads(24, [this](int i) {
        EXPECT_EQ(exitCode(text("sh -c \"exit %d\"", i)), static_cast<uint32_t>(i));
        EXPECT_EQ(QorOsCreateProcessAsyn("sh -c :", nullptr, nullptr), 1u);
    });
}

} // namespace
