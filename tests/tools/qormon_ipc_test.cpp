// The commands that look at what processes share, run beside a process that shares it.
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <string>

#include "private_ipc.h"
#include "qoros.h"
#include "tool_run.h"

namespace {

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

constexpr uint32_t key = 0x51450001;

// Runs a function in a process of its own, which ends with the handles that it still has.
void inProcess(void (*body)(QorOsMutex* mutex, QorOsEvent* event)) {
    const pid_t child = fork();
    if (child == 0) {
        QorOsMutex* mutex = nullptr;
        QorOsEvent* event = nullptr;
        EXPECT_EQ(QorOsMutexCreate(&mutex, key) + QorOsEventCreate(&event, key + 1), 2u);
        body(mutex, event);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(QormonIpc, ChangesTheLogMaskOfOtherProcesses) {
    expectRun("log set error loud", 2, "^qormon log: no level: loud\n");
    expectRun("log show", 1, "^qormon log: no control block: no process holds a named mutex or ");
    const int small = shmget(QOR_SHM_KEY, 499, IPC_CREAT | 0600);
    expectRun("log set all", 1, "^qormon log: its key belongs to a segment that is too small");
    shmctl(small, IPC_RMID, nullptr);

    QorOsLogRec* log = QorOspLogNew();
    expectRun("log show", 0, "^log mask        0x00000000\nlevels          none\n$");
    expectRun("log set error stdout", 0, "0x08000001\nlevels          stdout error\n$");
    expectRun("log show --json", 0,
              "^\\{\"mask\": 134217729, \"levels\": \\[\"stdout\", \"error\"\\]\\}\n$");
    expectRun("log reset all", 0, "0x00000001\n");
    expectRun("log set all", 0, "0x68000005\nlevels          stdout fatal error trace debug\n$");
    EXPECT_EQ(QorOsdGetLogLevel(log), 0x68000005u);
    QorOsvLogDelete(&log);
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
}

TEST(QormonIpc, ShowsSemaphoresAndFreesTheSlotsOfThoseThatAreGone) {
    inProcess([](QorOsMutex* mutex, QorOsEvent* event) {
        const std::string id = std::to_string(mutex->semId);
        const std::string gone = std::to_string(event->semId);
        expectRun("ipc clean", 0, "^nothing to remove\n$");
        semctl(static_cast<int>(event->semId), 0, IPC_RMID);
        expectRun(
            "ipc", 0,
            "^segment         [0-9]+\nattached        1\nusers           1\n[^]*\nhandles     "
            "    2\nnamed handles   2\nslots so far    2\n\nslot .*\n   0 +" +
                id + " +1 +1 +0 +[0-9]+  live\n   1 +" + gone + " +1 +- +- +-  gone\n$");
        expectRun("ipc --json", 0,
                  "\"handles\": 2, [^]*, \"value\": 1, [^]*\"state\": \"gone\"\\}");
        const std::string what = " slot 1, whose semaphore " + gone + " is gone\n";
        expectRun("ipc clean", 0, "^would remove" + what + "qormon ipc clean --yes does it.\n$");
        expectRun("ipc clean --yes", 0, "^removing" + what + "$");
        expectRun("ipc", 0, "handles         2\nnamed handles   1\n[^]*  live\n$");
        EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    });
    EXPECT_EQ(shmctl(shmget(QOR_SHM_KEY, 0, 0), IPC_RMID, nullptr), 0) << "a handle still counts";
}

TEST(QormonIpc, RemovesWhatDeadProcessesLeft) {
    inProcess([](QorOsMutex*, QorOsEvent*) {});
    // What is no semaphore of the product's stays: somebody got the identifier in the meantime.
    const int foreign = semget(IPC_PRIVATE, 2, 0600);
    auto* const block = static_cast<QorOsShmCtl*>(shmat(shmget(QOR_SHM_KEY, 0, 0), nullptr, 0));
    block->slots[2] = {static_cast<uint32_t>(foreign), 1};
    shmdt(block);
    expectRun("ipc", 0,
              "attached        0\n[^]*\n   0 [^]* 1 +0 +[0-9]+  left over\n[^]*\n   2 [^]*  foreign"
              "\n\nNo process has the block attached: 2 handles were never closed.\n$");
    const std::string what = " semaphore [0-9]+, left over in slot 0\n[a-z ]+ semaphore [0-9]+, "
                             "left over in slot 1\n[a-z ]+ the control block, segment [0-9]+\n";
    expectRun("ipc clean", 0, "^would remove" + what + "qormon ipc");
    expectRun("ipc clean --yes", 0, "^removing" + what + "$");
    EXPECT_EQ(semget(static_cast<key_t>(key), 0, 0), -1);
    EXPECT_EQ(semget(static_cast<key_t>(key + 1), 0, 0), -1);
    expectRun("ipc clean --yes", 1, "^qormon ipc: no control block");
    EXPECT_EQ(semctl(foreign, 0, IPC_RMID), 0);
}

} // namespace
