#include "qoros/src/linux/qoros_namedsem.h"

#include <signal.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>

#include "named_objects.h"

namespace {

constexpr uint32_t key = 0x51430001;

class NamedSemaphores : public NamedObjects {};
using NamedSemaphoresDeathTest = NamedSemaphores;

// The line about a handle that was counted, the last of `all`.
std::string counted(const char* function, int id, int value, uint32_t all, uint32_t named,
                    uint32_t slots) {
    return told(text("TRACE %s(%d): semval=%d LocSemCnt=%u Shm=%p GlobSemCnt=%u NamedSemCnt=%u "
                     "MaxNamedIdx=%u Log=FFFFFFFF",
                     function, id, value, all, static_cast<void*>(pstShm.load()), all, named,
                     slots));
}

std::string slotLine(const char* what, int id, const char* kind, int slot, uint32_t count,
                     uint32_t named, uint32_t slots) {
    return told(text("TRACE %s(%d)%s cnt[%d]=%u SemCnt=%u MaxIdx=%u", what, id, kind, slot, count,
                     named, slots));
}

TEST_F(NamedSemaphores, AreCountedAndRemovedWithTheLastHandle) {
    uint32_t unnamed = 0;
    EXPECT_TRUE(QorOsCreate(&unnamed, 0, 5, cEventKind));
    EXPECT_EQ(QorOsSemaphoreVal(unnamed), 5);
    QorOsMutex* mutex = nullptr;
    QorOsMutex* again = nullptr;
    const std::string created = messages([&] { mutex = createMutex(key); });
    const int id = semaphore(key);
    EXPECT_EQ(created, slotLine("fIncNamedSemCnt", id, " new:", 0, 1, 1, 1) +
                           counted("QorOsCreateM", id, 1, 2, 1, 1));
    EXPECT_EQ(mutex->type, QOR_MUTEX_SYSV);
    EXPECT_EQ(mutex->semId, static_cast<uint32_t>(id));
    QorOsEvent* const event = createEvent(key + 1);
    const int eventId = semaphore(key + 1);
    EXPECT_EQ(QorOsSemaphoreVal(event->semId), 0);
    expectMessages(slotLine("fIncNamedSemCnt", id, " inc:", 0, 2, 3, 2) +
                       counted("QorOsOpenM", id, 1, 4, 3, 2),
                   [&] { EXPECT_EQ(QorOsMutexOpen(&again, key), 1u); });
    expectBlock(text("2 4 3 2 [0]=%d*2 [1]=%d*1", id, eventId));

    const auto closing = [shm = static_cast<void*>(pstShm.load())](
                             const char* function, int sem, uint32_t all, const std::string& slot) {
        return told(text("TRACE %s(%d): LocSemCnt=%u Shm=%p", function, sem, all, shm)) +
               text("TRACE QorOsClose shm: GlobSemCnt=%u NamedSemCnt=%u MaxNamedIdx=2 "
                    "Log=FFFFFFFF\n%sTRACE QorOsClose shm: GlobSemCnt=%u\n",
                    all, all - 1, slot.c_str(), all - 1);
    };
    expectMessages(closing("QorOsCloseM", id, 4, slotLine("dDecNamedSemCnt", id, ":", 0, 1, 2, 2)),
                   [&] { EXPECT_EQ(QorOsMutexClose(mutex), 1u); });
    EXPECT_EQ(semaphore(key), id);
    expectMessages(closing("QorOsCloseM", id, 3, slotLine("dDecNamedSemCnt", id, ":", 0, 0, 1, 2)),
                   [&] { EXPECT_EQ(QorOsMutexClose(again), 1u); });
    EXPECT_EQ(semaphore(key), -1);
    expectBlock(text("2 2 1 2 [1]=%d*1", eventId));
    EXPECT_EQ(QorOsEventClose(event), 1u);
    expectMessages(closing("QorOsCloseE", static_cast<int>(unnamed), 1, "") +
                       "TRACE QorOsClose: DeleteLog=0\n",
                   [&] { EXPECT_TRUE(QorOsClose(unnamed, cEventKind)); });
    expectBlock("1 0 0 2");
}

TEST_F(NamedSemaphores, AreNotCountedBeyondTheTable) {
    QorOsMutex* mutexes[QOR_SHM_SLOTS];
    for (uint32_t i = 0; i < QOR_SHM_SLOTS; ++i) {
        mutexes[i] = createMutex(key + i);
    }
    QorOsEvent* event = nullptr;
    const std::string shown = messages([&] { event = createEvent(key + 60); });
    const int id = semaphore(key + 60);
    EXPECT_EQ(shown, text("ERROR QorOsCreateE(%d): shared mem not installed or runs over\n", id) +
                         counted("QorOsCreateE", id, 0, 61, 61, 60));
    // Another process opens it, and its close removes it for both.
    const pid_t other = startProcess([&] {
        QorOsEvent* opened = nullptr;
        EXPECT_EQ(QorOsEventOpen(&opened, key + 60), 1u);
        EXPECT_EQ(QorOsEventClose(opened), 1u);
    });
    EXPECT_EQ(waitForChild(other), 0);
    EXPECT_EQ(QorOsEventClose(event), 0u);
    // A place that becomes free is the next one's, without a new count of slots.
    EXPECT_EQ(QorOsMutexClose(mutexes[7]), 1u);
    mutexes[7] = createMutex(key + 61);
    EXPECT_EQ(pstShm.load()->slots[7].semId, mutexes[7]->semId);
    EXPECT_EQ(pstShm.load()->MaxNamedIdx, 60u);
    pstShm.load()->MaxNamedIdx = UINT32_MAX; // whoever wrote that: nothing behind the table is read
    EXPECT_FALSE(fIncNamedSemCnt(0x7FFFFFFF));
    for (QorOsMutex* const mutex : mutexes) {
        EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    }
    expectBlock("2 1 3 4294967295"); // one event is still open, and thrice there was no place
    QorOsLogRec* left = pstLog.exchange(nullptr);
    QorOsvLogDelete(&left);
    pstShm = nullptr;
}

// Opening makes no table of a block as it is new.
TEST_F(NamedSemaphores, AreNotCountedInATableThatNobodyMade) {
    int id = semget(static_cast<key_t>(key), 1, IPC_CREAT | 0666);
    QorOsvResLogLevel(log, QOR_LOG_TRACE);
    QorOsMutex* mutex = nullptr;
    expectMessages(text("ERROR QorOsOpenM(%d): shared mem not installed or runs over\n", id),
                   [&] { EXPECT_EQ(QorOsMutexOpen(&mutex, key), 1u); });
    EXPECT_EQ(pstShm.load()->GlobSemCnt, 1u);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    EXPECT_FALSE(QorOsCreate(nullptr, key, 1, cMutexKind) || QorOsOpen(nullptr, key, cMutexKind) ||
                 fIncNamedSemCnt(1));
    EXPECT_TRUE(QorOsClose(0xFFFFFFFF, cMutexKind));

    seams::attachError = EMFILE; // without a log object there is no semaphore
    testing::internal::CaptureStderr();
    EXPECT_EQ(QorOsMutexCreate(&mutex, key), 0u);
    EXPECT_EQ(errno, EMFILE);
    id = semget(static_cast<key_t>(key), 1, IPC_CREAT | IPC_EXCL | 0666);
    EXPECT_EQ(QorOsMutexOpen(&mutex, key), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              text("FATAL QorOsOpenM(%d): pstLog is not created (%s", id, pidTid().c_str()));
    EXPECT_EQ(semctl(id, 0, IPC_RMID), 0);
}

TEST_F(NamedSemaphores, OutliveAProcessThatIsKilled) {
    Gate taken;
    Gate never;
    const pid_t victim = startProcess([&] {
        QorOsMutex* const mutex = createMutex(key);
        createEvent(key + 1);
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 1u);
        taken.open();
        never.wait();
    });
    ASSERT_TRUE(taken.wait());
    ASSERT_EQ(kill(victim, SIGKILL), 0);
    waitForChild(victim);
    const int id = semaphore(key);
    const int eventId = semaphore(key + 1);
    expectBlock(text("2 2 2 2 [0]=%d*1 [1]=%d*1", id, eventId));
    QorOsMutex* const mutex = createMutex(key); // opens, and the value stays
    uint32_t result = 7;
    QorOsMutexWait(mutex, 0, &result);
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    expectBlock(text("3 3 3 2 [0]=%d*2 [1]=%d*1", id, eventId));
    EXPECT_EQ(sum({QorOsMutexRelease(mutex), QorOsMutexWait(mutex, 0, &result)}), 2u);
    EXPECT_EQ(result, QOR_WAIT_DONE);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    EXPECT_EQ(semaphore(key), id);
    semctl(id, 0, IPC_RMID);
    semctl(eventId, 0, IPC_RMID);
}

TEST_F(NamedSemaphores, TakeAndGive) {
    QorOsMutex* const mutex = createMutex(key);
    QorOsEvent* const event = createEvent(key + 1);
    const std::string m = text("M(%u)", mutex->semId);
    const std::string e = text("E(%u)", event->semId);
    const std::string set = text("QorOsEventSet(%p)", static_cast<void*>(event));
    const auto line = [](const std::string& place, int value) {
        return told(text("DEBUG %s: semval=%d", place.c_str(), value));
    };
    uint32_t results[] = {7, 7, 7};
    expectMessages(
        line("QorOsSet" + m + " entry", 1) + line("QorOsSet" + m + " exit", 0) +
            line("QorOsSet" + m + " entry", 0) + line("QorOsSet" + m + " exit-NO_WAIT", 0) +
            line("QorOsRelease" + m + " entry", 0) + line("QorOsRelease" + m + " exit", 1) +
            line("QorOsRelease" + m + " entry", 1) + line(set + " entry", 0) +
            line(set + ": exit", 1) + line("QorOsRelease" + e + " entry", 1) +
            line("QorOsRelease" + e + " exit", 2) + line(set + " entry", 2) +
            line(set + ": exit", 1) + line("QorOsSet" + e + " entry", 1) +
            line("QorOsSet" + e + " exit", 0),
        [&] {
            EXPECT_EQ(sum({QorOsMutexWait(mutex, 0, &results[0]),
                           QorOsMutexWait(mutex, 0, &results[1]), QorOsMutexRelease(mutex),
                           QorOsMutexRelease(mutex), QorOsEventSet(event), QorOsEventReset(event),
                           QorOsEventSet(event), QorOsEventWait(event, QOR_INFINITE, &results[2])}),
                      8u);
        });
    EXPECT_EQ(text("%u %u %u", results[0], results[1], results[2]), "1 999 1");

    // Nothing is read that only a message would show.
    EXPECT_EQ(quietCalls([&] {
                  sum({QorOsMutexWait(mutex, 0, nullptr), QorOsMutexWait(mutex, 0, nullptr),
                       QorOsMutexRelease(mutex), QorOsEventSet(event), QorOsEventReset(event),
                       QorOsEventWait(event, QOR_INFINITE, nullptr),
                       QorOsMutexClose(createMutex(key)), QorOsMutexClose(mutex)});
              }),
              "semop semop GETVAL semop semctl semop semop semget semget semctl ");
    QorOsEventClose(event);
}

TEST_F(NamedSemaphores, TellWhyTheyFail) {
    QorOsMutex* const held = createMutex(key); // messages are dropped without one
    const uint32_t id = held->semId;
    QorOsMutex* mutex = held;
    uint32_t result = 7;
    testing::internal::CaptureStderr();
    QorOsEvent event{QOR_EVENT_NAMED, {}};
    event.semId = id;
    seams::semErrors = {0, ERANGE};
    const std::string set = text("QorOsEventSet(%p)", static_cast<void*>(&event));
    expectMessages(told("DEBUG " + set + " entry: semval=1") +
                       told("DEBUG " + set + ": exit: semval=1"),
                   [&] { EXPECT_EQ(QorOsEventSet(&event), 1u); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              told("FATAL " + set + ": semctl failed", ERANGE));

    QorOsvResLogLevel(log, QOR_LOG_TRACE | QOR_LOG_DEBUG);
    seams::semErrors = {EIDRM};
    EXPECT_EQ(QorOsMutexWait(held, 0, &result), 1u) << "without a wait every error is a time-out";
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    const auto check = [&](std::vector<int> errors, int error, const auto& call,
                           const std::string& lines) {
        seams::semErrors = std::move(errors);
        expectMessages(told(lines, error), [&] { EXPECT_EQ(call(), 0u); });
        EXPECT_EQ(errno, error) << lines;
    };
    const auto create = [&] { return QorOsMutexCreate(&mutex, key + 1); };
    const auto wait = [&] { return QorOsMutexWait(held, QOR_INFINITE, &result); };
    const std::string fatal = "FATAL QorOsCreateM: ";
    check({EACCES}, EACCES, create, fatal + "semget (key=0x51430002) failed");
    check({EEXIST, ENOENT}, ENOENT, create,
          told("FATAL QorOsOpenM(-1): semctl failed", ENOENT) + fatal +
              "key=0x51430002 already created, but QorOsOpen failed");
    check({0, ERANGE}, ERANGE, create, fatal + "semctl failed");
    check({EIDRM, EPERM}, EIDRM, wait, text("ERROR QorOsSetM(%u): semop failed (semval=-1)", id));
    check(
        {EPERM, EFBIG}, EFBIG, [&] { return QorOsMutexRelease(held); },
        text("ERROR QorOsReleaseM(%u): semop failed (semval=1)", id));
    // Leaves what it did not get to, and frees the record.
    check(
        {EPERM}, EPERM, [&] { return QorOsMutexClose(held); }, "ERROR QorOsCloseM: semctl failed");
    EXPECT_EQ(mutex, nullptr);
    EXPECT_EQ(result, QOR_WAIT_ERROR);
    EXPECT_EQ(semaphore(key + 1), -1);
    expectBlock("2 1 0 1");
    EXPECT_TRUE(QorOsClose(id, cMutexKind));
}

TEST_F(NamedSemaphores, GiveUpAfterASignalOnceTheProgramShutsDown) {
    QorOsMutex* const mutex = createMutex(key);
    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    int pauses = 0;
    seams::onSleep = [&](const timeval& pause) {
        EXPECT_EQ(pause.tv_sec * 1000000 + pause.tv_usec, 50000);
        fShutdown = ++pauses == 3;
        errno = EDOM;
        return 0;
    };
    uint32_t results[] = {7, 7};
    const auto wait = [&](int i) { return QorOsMutexWait(mutex, QOR_INFINITE, &results[i]); };
    const std::string interrupted =
        text("!!!!!! semop interrupted: %d=%s shutd=0\n", EINTR, strerror(EINTR));
    const std::string failed = text("ERROR QorOsSetM(%u): semop failed (semval=0)", mutex->semId);
    seams::semErrors = {EINTR, EINTR, 0, EINTR};
    expectMessages(interrupted + interrupted + interrupted + told(failed, EINTR), [&] {
        EXPECT_EQ(sum({wait(0), wait(1)}), 1u);
    });
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(results[0], QOR_WAIT_DONE);
    EXPECT_EQ(results[1], QOR_WAIT_ERROR);
    QorOsSetSystemUp();
    QorOsMutexClose(mutex);
}

TEST_F(NamedSemaphoresDeathTest, EndTheProcessForAFiniteTimeout) {
    QorOsEvent* const event = createEvent(key);
    const auto end = [&] {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsEventWait(event, 0xFFFFFFFE, nullptr);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0),
                "^Timeout in Events not supported for MacOSX \\(you're timeout=-2\\)\n$");
    QorOsEventClose(event);
}

TEST_F(NamedSemaphores, KeepProcessesAndThreadsApart) {
    auto& shared = *static_cast<std::atomic<int>*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsMutex* const held = createMutex(key);
    QorOsEvent* const event = createEvent(key + 1);
    const auto work = [&](bool gives) {
        QorOsMutex* const mutex = createMutex(key);
        inThreads(4, [&](int) {
            for (int i = 0; i < 3125; ++i) {
                QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
                // Two steps, in which another's count would be lost.
                const int seen = shared.load(std::memory_order_relaxed);
                shared.store(seen + 1, std::memory_order_relaxed);
                QorOsMutexRelease(mutex);
            }
        });
        QorOsMutexClose(mutex);
        // Handles come and go while others hold theirs, and an event lets one process pass a time.
        for (int i = 0; i < 1500; ++i) {
            QorOsEvent* own = nullptr;
            EXPECT_EQ(gives ? QorOsEventOpen(&own, key + 1) : QorOsEventCreate(&own, key + 1), 1u);
            gives ? QorOsEventReset(own) : QorOsEventWait(own, QOR_INFINITE, nullptr);
            EXPECT_EQ(QorOsEventClose(own), 1u);
        }
    };
    std::vector<pid_t> processes;
    for (int i = 0; i < 8; ++i) {
        processes.push_back(startProcess([&] { work(i % 2 == 0); }));
    }
    for (const pid_t process : processes) {
        EXPECT_EQ(waitForChild(process), 0);
    }
    EXPECT_EQ(shared, 100000);
    EXPECT_EQ(QorOsSemaphoreVal(event->semId), 0) << "as many signals were taken as given";
    EXPECT_EQ(QorOsSemaphoreVal(held->semId), 1);
    expectBlock(text("2 2 2 2 [0]=%u*1 [1]=%u*1", held->semId, event->semId));
    QorOsMutexClose(held);
    QorOsEventClose(event);
    munmap(&shared, sizeof shared);
}

} // namespace
