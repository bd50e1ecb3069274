// The commands that look at what processes share, run beside a process that shares it.
#include <gtest/gtest.h>

#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <tuple>

#include "private_ipc.h"
#include "qoros.h"
#include "tool_run.h"

namespace {

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

constexpr uint32_t key = 0x51450001;

void expectRun(const std::string& arguments, int exitCode, const std::string& pattern) {
    SCOPED_TRACE(arguments);
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, exitCode);
    EXPECT_TRUE(std::regex_search(outcome.output, std::regex(pattern))) << outcome.output;
}

// Runs a function in a process of its own, which ends with the handles that it still has.
void inProcess(void (*body)()) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(QormonIpc, AnswersACommandLine) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"log --help", 0, "^usage: qormon log show"},
        {"log", 2, "^qormon log: an argument is missing\n"},
        {"log shout", 2, "^qormon log: neither show nor set nor reset: shout\n"},
        {"log set", 2, "^qormon log: a level is missing\n"},
        {"log set error loud", 2, "^qormon log: no level: loud\n"},
        {"log show", 1, "^qormon log: no control block: no process holds a named mutex or event\n"},
        {"ipc --help", 0, "^usage: qormon ipc [^]*kern.sysv"},
        {"ipc clean --all", 2, "^qormon ipc: unknown option --all\n"},
        {"ipc", 1, "^qormon ipc: no control block"},
        {"ipc clean --yes", 1, "^qormon ipc: no control block"},
    };
    for (const auto& [arguments, exitCode, output] : cases) {
        expectRun(arguments, exitCode, output);
    }
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1) << "looking makes none";
    const int small = shmget(QOR_SHM_KEY, 499, IPC_CREAT | 0600);
    expectRun("log set all", 1, "^qormon log: its key belongs to a segment that is too small");
    shmctl(small, IPC_RMID, nullptr);
}

TEST(QormonIpc, ChangesTheLogMaskOfOtherProcesses) {
    QorOsLogRec* log = QorOspLogNew();
    ASSERT_NE(log, nullptr);
    const std::pair<const char*, const char*> steps[] = {
        {"show", "log mask        0x00000000\nlevels          none\n"},
        {"set error stdout", "log mask        0x08000001\nlevels          stdout error\n"},
        {"set trace", "log mask        0x28000001\nlevels          stdout error trace\n"},
        {"show --json",
         "\\{\"mask\": 671088641, \"levels\": \\[\"stdout\", \"error\", \"trace\"\\]\\}\n"},
        {"reset all", "log mask        0x00000001\nlevels          stdout\n"},
        {"set all", "log mask        0x68000005\nlevels          stdout fatal error trace debug\n"},
    };
    for (const auto& [arguments, output] : steps) {
        expectRun(std::string("log ") + arguments, 0, std::string("^") + output + "$");
    }
    EXPECT_EQ(QorOsdGetLogLevel(log), 0x68000005u);
    QorOsvLogDelete(&log);
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
}

void showAndFreeSlots() {
    QorOsMutex* mutex = nullptr;
    QorOsEvent* event = nullptr;
    ASSERT_EQ(QorOsMutexCreate(&mutex, key) + QorOsEventCreate(&event, key + 1), 2u);
    const std::string id = std::to_string(mutex->semId);
    const std::string gone = std::to_string(event->semId);
    expectRun("ipc clean", 0, "^nothing to remove\n$");
    ASSERT_EQ(semctl(static_cast<int>(event->semId), 0, IPC_RMID), 0);
    const std::string rest = "users           1\nlog mask        0x00000000\nhandles         2\n";
    expectRun("ipc", 0,
              "^segment         [0-9]+\nattached        1\n" + rest +
                  "named handles   2\nslots so far    2\n\nslot .*\n   0 +" + id +
                  " +1 +1 +0 +[0-9]+  live\n   1 +" + gone + " +1 +- +- +-  gone\n$");
    expectRun("ipc --json", 0,
              "\"handles\": 2, [^]*, \"slots\": \\[\\{\"slot\": 0, \"semaphore\": " + id +
                  ", \"handles\": 1, \"value\": 1, [^]*\"state\": \"gone\"\\}\\]\\}\n$");
    const std::string what = " slot 1, whose semaphore " + gone + " is gone\n";
    expectRun("ipc clean", 0, "^would remove" + what + "qormon ipc clean --yes does it.\n$");
    expectRun("ipc clean --yes", 0, "^removing" + what + "$");
    expectRun("ipc", 0, rest + "named handles   1\n[^]*  live\n$");
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
}

TEST(QormonIpc, ShowsSemaphoresAndFreesTheSlotsOfThoseThatAreGone) {
    inProcess(showAndFreeSlots);
    EXPECT_EQ(shmctl(shmget(QOR_SHM_KEY, 0, 0), IPC_RMID, nullptr), 0) << "a handle still counts";
}

TEST(QormonIpc, RemovesWhatDeadProcessesLeft) {
    inProcess([] {
        QorOsMutex* mutex = nullptr;
        QorOsEvent* event = nullptr;
        ASSERT_EQ(QorOsMutexCreate(&mutex, key) + QorOsEventCreate(&event, key + 1), 2u);
    });
    const int id = semget(static_cast<key_t>(key), 0, 0);
    const int segment = shmget(QOR_SHM_KEY, 0, 0);
    // What is no semaphore of the product's stays: somebody got the identifier in the meantime.
    const int foreign = semget(IPC_PRIVATE, 2, 0600);
    auto* const block = static_cast<QorOsShmCtl*>(shmat(segment, nullptr, 0));
    block->slots[2] = {static_cast<uint32_t>(foreign), 1};
    shmdt(block);
    expectRun("ipc", 0,
              "attached        0\nusers           1\n[^]*\n   0 [^]* 1 +0 +[0-9]+  left over\n"
              "[^]*\n   2 [^]*  foreign\n\n"
              "No process has the block attached: 2 handles were never closed.\n$");
    const std::string what = " semaphore " + std::to_string(id) +
                             ", left over in slot 0\n[a-z ]+ semaphore [0-9]+, left over in slot "
                             "1\n[a-z ]+ the control block, segment [0-9]+\n";
    expectRun("ipc clean", 0, "^would remove" + what + "qormon ipc");
    EXPECT_EQ(semget(static_cast<key_t>(key), 0, 0), id);
    expectRun("ipc clean --yes", 0, "^removing" + what + "$");
    EXPECT_EQ(semget(static_cast<key_t>(key), 0, 0), -1);
    EXPECT_EQ(semget(static_cast<key_t>(key + 1), 0, 0), -1);
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
    EXPECT_EQ(semctl(foreign, 0, IPC_RMID), 0);
}

} // namespace
