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

// The line about a handle that was counted, for the library's own log.
std::string counted(const char* function, int id, int value, uint32_t all, uint32_t named,
                    uint32_t slots) {
    return text("TRACE %s(%d): semval=%d LocSemCnt=%u Shm=%p GlobSemCnt=%u NamedSemCnt=%u "
                "MaxNamedIdx=%u Log=FFFFFFFF (%s\n",
                function, id, value, pstLog.load()->LocSemCnt, static_cast<void*>(pstShm.load()),
                all, named, slots, pidTid().c_str());
}

std::string slotLine(const char* what, int id, const char* kind, int slot, uint32_t count,
                     uint32_t named, uint32_t slots) {
    return text("TRACE %s(%d)%s cnt[%d]=%u SemCnt=%u MaxIdx=%u (%s\n", what, id, kind, slot, count,
                named, slots, pidTid().c_str());
}

// A line that ends with an error.
std::string refused(const std::string& line, int error) {
    return line + " " + errorText(error) + " " + pidTid() + "\n";
}

std::string failed(const std::string& line, int error) {
    return refused(line + " failed", error);
}

TEST_F(NamedSemaphores, AreCountedAndRemovedWithTheLastHandle) {
    QorOsMutex* mutex = nullptr;
    QorOsMutex* again = nullptr;
    const std::string created = messages([&] { mutex = createMutex(key); });
    const int id = semaphore(key);
    EXPECT_EQ(created, slotLine("fIncNamedSemCnt", id, " new:", 0, 1, 1, 1) +
                           counted("QorOsCreateM", id, 1, 1, 1, 1));
    EXPECT_EQ(mutex->type, QOR_MUTEX_SYSV);
    EXPECT_EQ(mutex->semId, static_cast<uint32_t>(id));
    QorOsEvent* const event = createEvent(key + 1);
    const int eventId = semaphore(key + 1);
    EXPECT_EQ(QorOsSemaphoreVal(event->semId), 0);
    const std::string opened = messages([&] { EXPECT_EQ(QorOsMutexOpen(&again, key), 1u); });
    EXPECT_EQ(opened, slotLine("fIncNamedSemCnt", id, " inc:", 0, 2, 3, 2) +
                          counted("QorOsOpenM", id, 1, 3, 3, 2));
    expectBlock(text("2 3 3 2 [0]=%d*2 [1]=%d*1", id, eventId));

    void* const shm = pstShm.load();
    const auto closing = [&](char kind, int sem, uint32_t all, uint32_t slot, uint32_t left) {
        return text("TRACE QorOsClose%c(%d): LocSemCnt=%u Shm=%p (%s\n"
                    "TRACE QorOsClose shm: GlobSemCnt=%u NamedSemCnt=%u MaxNamedIdx=2 "
                    "Log=FFFFFFFF\n",
                    kind, sem, all, shm, pidTid().c_str(), all, all) +
               slotLine("dDecNamedSemCnt", sem, ":", static_cast<int>(slot), left, all - 1, 2) +
               text("TRACE QorOsClose shm: GlobSemCnt=%u\n", all - 1);
    };
    expectMessages(closing('M', id, 3, 0, 1), [&] { EXPECT_EQ(QorOsMutexClose(mutex), 1u); });
    EXPECT_EQ(semaphore(key), id);
    expectMessages(closing('M', id, 2, 0, 0), [&] { EXPECT_EQ(QorOsMutexClose(again), 1u); });
    EXPECT_EQ(semaphore(key), -1);
    expectBlock(text("2 1 1 2 [1]=%d*1", eventId));
    expectMessages(closing('E', eventId, 1, 1, 0) + "TRACE QorOsClose: DeleteLog=0\n",
                   [&] { EXPECT_EQ(QorOsEventClose(event), 1u); });
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
        EXPECT_EQ(pstShm.load()->NamedSemCnt, 62u);
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

// A block as it is new is no table yet, and opening makes none.
TEST_F(NamedSemaphores, AreNotCountedInATableThatNobodyMade) {
    const int id = semget(static_cast<key_t>(key), 1, IPC_CREAT | 0666);
    QorOsMutex* mutex = nullptr;
    expectMessages(text("ERROR QorOsOpenM(%d): shared mem not installed or runs over\n", id), [&] {
        QorOsvResLogLevel(log, QOR_LOG_TRACE);
        EXPECT_EQ(QorOsMutexOpen(&mutex, key), 1u);
    });
    EXPECT_EQ(pstShm.load()->GlobSemCnt, 1u);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    uint32_t unnamed = 0;
    EXPECT_TRUE(QorOsCreate(&unnamed, 0, 5, cEventKind));
    EXPECT_EQ(QorOsSemaphoreVal(unnamed), 5);
    expectBlock("2 1 0 0");
    EXPECT_TRUE(QorOsClose(unnamed, cEventKind));
    EXPECT_EQ(QorOsSemaphoreVal(unnamed), -1);
    EXPECT_FALSE(QorOsCreate(nullptr, key, 1, cMutexKind) || QorOsOpen(nullptr, key, cMutexKind) ||
                 QorOsOpen(&unnamed, 0, cMutexKind) || fIncNamedSemCnt(1));
    EXPECT_TRUE(QorOsClose(0xFFFFFFFF, cMutexKind));
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
    EXPECT_EQ(QorOsMutexWait(mutex, 0, &result), 1u);
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    expectBlock(text("3 3 3 2 [0]=%d*2 [1]=%d*1", id, eventId));
    EXPECT_EQ(QorOsMutexRelease(mutex), 1u);
    EXPECT_EQ(QorOsMutexWait(mutex, 0, &result), 1u);
    EXPECT_EQ(result, QOR_WAIT_DONE);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    EXPECT_EQ(semaphore(key), id);
    semctl(id, 0, IPC_RMID);
    semctl(eventId, 0, IPC_RMID);
}

TEST_F(NamedSemaphores, TakeAndGive) {
    QorOsMutex* const mutex = createMutex(key);
    QorOsEvent* const event = createEvent(key + 1);
    const uint32_t m = mutex->semId;
    const uint32_t e = event->semId;
    const auto line = [](const char* function, uint32_t id, const char* place, int value) {
        return text("DEBUG %s(%u) %s: semval=%d (%s\n", function, id, place, value,
                    pidTid().c_str());
    };
    const auto check = [](uint32_t id, int value, const std::string& lines, const auto& call) {
        SCOPED_TRACE(lines);
        expectMessages(lines, [&] { EXPECT_EQ(call(), 1u); });
        EXPECT_EQ(QorOsSemaphoreVal(id), value);
    };
    uint32_t result = 7;
    const auto wait = [&] { return QorOsMutexWait(mutex, 0, &result); };
    check(m, 0, line("QorOsSetM", m, "entry", 1) + line("QorOsSetM", m, "exit", 0), wait);
    EXPECT_EQ(result, QOR_WAIT_DONE);
    check(m, 0, line("QorOsSetM", m, "entry", 0) + line("QorOsSetM", m, "exit-NO_WAIT", 0), wait);
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    const std::string entered = line("QorOsReleaseM", m, "entry", 0);
    const auto release = [&] { return QorOsMutexRelease(mutex); };
    check(m, 1, entered + line("QorOsReleaseM", m, "exit", 1), release);
    check(m, 1, line("QorOsReleaseM", m, "entry", 1), release);

    const auto set = [&] { return QorOsEventSet(event); };
    const auto setting = [&](int from) {
        return text("DEBUG QorOsEventSet(%p) entry: semval=%d (%s\n"
                    "DEBUG QorOsEventSet(%p): exit: semval=1 (%s\n",
                    static_cast<void*>(event), from, pidTid().c_str(), static_cast<void*>(event),
                    pidTid().c_str());
    };
    check(e, 1, setting(0), set);
    check(e, 1, setting(1), set);
    check(e, 2, line("QorOsReleaseE", e, "entry", 1) + line("QorOsReleaseE", e, "exit", 2),
          [&] { return QorOsEventReset(event); });
    check(e, 1, line("QorOsSetE", e, "entry", 2) + line("QorOsSetE", e, "exit", 1),
          [&] { return QorOsEventWait(event, QOR_INFINITE, nullptr); });

    // Nothing is read that only a message would show.
    EXPECT_EQ(quietCalls([&] { (wait(), release()); }), "semop GETVAL semop ");
    EXPECT_EQ(quietCalls(wait) + "| " + quietCalls(wait), "semop | semop ");
    EXPECT_EQ(quietCalls([&] { (set(), QorOsEventReset(event)); }), "semctl semop ");
    EXPECT_EQ(quietCalls([&] { QorOsEventWait(event, QOR_INFINITE, nullptr); }), "semop ");
    EXPECT_EQ(quietCalls([&] { QorOsMutexClose(createMutex(key)); }), "");
    QorOsEventClose(event);
    EXPECT_EQ(quietCalls([&] { QorOsMutexClose(mutex); }), "semctl ");
}

TEST_F(NamedSemaphores, TellWhyTheyFail) {
    QorOsMutex* const held = createMutex(key); // messages are dropped without one
    QorOsMutex* mutex = held;
    QorOsvResLogLevel(log, QOR_LOG_TRACE);
    const auto refuses = [&](const std::string& lines, int error, const auto& call) {
        SCOPED_TRACE(lines);
        expectMessages(lines, [&] { EXPECT_EQ(call(), 0u); });
        EXPECT_EQ(errno, error);
        EXPECT_EQ(pstShm.load()->GlobSemCnt, 1u);
    };
    const auto create = [&] { return QorOsMutexCreate(&mutex, key + 1); };
    seams::semgetErrors = {EACCES};
    refuses(failed("FATAL QorOsCreateM: semget (key=0x51430002)", EACCES), EACCES, create);
    EXPECT_EQ(mutex, nullptr);
    seams::semgetErrors = {EEXIST, ENOENT};
    refuses(failed("FATAL QorOsOpenM(-1): semctl", ENOENT) +
                failed("FATAL QorOsCreateM: key=0x51430002 already created, but QorOsOpen", ENOENT),
            ENOENT, create);
    seams::semctlCommand = SETVAL;
    seams::semctlError = ERANGE;
    refuses(failed("FATAL QorOsCreateM: semctl", ERANGE), ERANGE, create);
    EXPECT_EQ(semaphore(key + 1), -1);
    testing::internal::CaptureStderr();
    QorOsEvent event{QOR_EVENT_NAMED, {}};
    event.semId = held->semId;
    const std::string set = text("QorOsEventSet(%p)", static_cast<void*>(&event));
    expectMessages("DEBUG " + set + " entry: semval=1 (" + pidTid() + "\nDEBUG " + set +
                       ": exit: semval=1 (" + pidTid() + "\n",
                   [&] { EXPECT_EQ(QorOsEventSet(&event), 1u); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), failed("FATAL " + set + ": semctl", ERANGE));

    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    const unsigned int id = held->semId;
    seams::semopErrors = {EIDRM, EIDRM, EFBIG};
    seams::semctlCommand = GETVAL;
    seams::semctlError = EPERM;
    uint32_t result = 7;
    refuses(refused(text("ERROR QorOsSetM(%u): semop failed (semval=-1)", id), EIDRM), EIDRM,
            [&] { return QorOsMutexWait(held, QOR_INFINITE, &result); });
    EXPECT_EQ(result, QOR_WAIT_ERROR);
    EXPECT_EQ(QorOsMutexWait(held, 0, &result), 1u) << "without a wait every error is a time-out";
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    refuses(refused(text("ERROR QorOsReleaseM(%u): semop failed (semval=-1)", id), EFBIG), EFBIG,
            [&] { return QorOsMutexRelease(held); });

    // A close that fails leaves what it did not get to, and frees the record.
    seams::semctlCommand = IPC_RMID;
    refuses(failed("ERROR QorOsCloseM: semctl", EPERM), EPERM,
            [&] { return QorOsMutexClose(held); });
    expectBlock("2 1 0 1");
    seams::semctlCommand = -1;
    EXPECT_TRUE(QorOsClose(id, cMutexKind));
}

TEST_F(NamedSemaphores, NeedTheLogObject) {
    seams::attachError = EMFILE;
    QorOsMutex* mutex = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(QorOsMutexCreate(&mutex, key), 0u);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(semaphore(key), -1);
    const int id = semget(static_cast<key_t>(key), 1, IPC_CREAT | 0666);
    testing::internal::CaptureStderr();
    EXPECT_EQ(QorOsMutexOpen(&mutex, key), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              text("FATAL QorOsOpenM(%d): pstLog is not created (%s", id, pidTid().c_str()));
    semctl(id, 0, IPC_RMID);
}

TEST_F(NamedSemaphores, GiveUpAfterASignalOnceTheProgramShutsDown) {
    QorOsMutex* const mutex = createMutex(key);
    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    int slept = 0;
    bool shutsDown = false;
    seams::onSleep = [&](const timeval& pause) {
        ++slept;
        EXPECT_EQ(pause.tv_sec * 1000000 + pause.tv_usec, 50000);
        fShutdown = shutsDown;
        errno = EDOM;
        return 0;
    };
    const auto interrupted = [](int down) {
        return text("!!!!!! semop interrupted: %d=%s shutd=%d\n", EINTR, strerror(EINTR), down);
    };
    uint32_t result = 7;
    seams::semopErrors = {EINTR, EINTR};
    expectMessages(interrupted(0) + interrupted(0),
                   [&] { EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, &result), 1u); });
    EXPECT_EQ(result, QOR_WAIT_DONE);
    shutsDown = true;
    seams::semopErrors = {EINTR};
    expectMessages(
        interrupted(0) +
            refused(text("ERROR QorOsSetM(%u): semop failed (semval=0)", mutex->semId), EINTR),
        [&] { EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, &result), 0u); });
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(result, QOR_WAIT_ERROR);
    EXPECT_EQ(slept, 3);
    QorOsSetSystemUp();
    QorOsMutexClose(mutex);
}

TEST_F(NamedSemaphoresDeathTest, EndTheProcessForAFiniteTimeout) {
    QorOsEvent* const event = createEvent(key);
    for (const uint32_t timeout : {500u, 0xFFFFFFFEu}) {
        const auto end = [&] {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            QorOsvResLogLevel(log, 0xFFFFFFFFu);
            QorOsEventWait(event, timeout, nullptr);
        };
        EXPECT_EXIT(end(), testing::ExitedWithCode(0),
                    text("^Timeout in Events not supported for MacOSX \\(you're timeout=%d\\)\n$",
                         static_cast<int>(timeout)));
    }
    QorOsEventClose(event);
}

// Memory of all processes of a test.
struct Shared {
    std::atomic<int> counter{0};
    std::atomic<int> passed{0};
};

TEST_F(NamedSemaphores, KeepProcessesAndThreadsApart) {
    auto* const shared = new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                   MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsMutex* const held = createMutex(key);
    QorOsEvent* const event = createEvent(key + 1);
    const auto work = [&](int process) {
        QorOsMutex* const mutex = createMutex(key);
        inThreads(4, [&](int) {
            for (int i = 0; i < 3125; ++i) {
                EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 1u);
                // Two steps, in which another's count would be lost.
                const int seen = shared->counter.load(std::memory_order_relaxed);
                shared->counter.store(seen + 1, std::memory_order_relaxed);
                EXPECT_EQ(QorOsMutexRelease(mutex), 1u);
            }
        });
        QorOsMutexClose(mutex);
        // Handles come and go while others hold theirs, and an event lets one process pass a time.
        for (int i = 0; i < 500; ++i) {
            QorOsEvent* own = nullptr;
            EXPECT_EQ(process % 2 == 0 ? QorOsEventOpen(&own, key + 1)
                                       : QorOsEventCreate(&own, key + 1),
                      1u);
            EXPECT_EQ(process % 2 == 0 ? QorOsEventReset(own)
                                       : QorOsEventWait(own, QOR_INFINITE, nullptr),
                      1u);
            shared->passed.fetch_add(1);
            EXPECT_EQ(QorOsEventClose(own), 1u);
        }
    };
    inProcesses(8, work);
    EXPECT_EQ(shared->counter.load(), 100000);
    EXPECT_EQ(shared->passed.load(), 4000);
    EXPECT_EQ(QorOsSemaphoreVal(event->semId), 0) << "as many signals were taken as given";
    EXPECT_EQ(QorOsSemaphoreVal(held->semId), 1);
    expectBlock(text("2 2 2 2 [0]=%u*1 [1]=%u*1", held->semId, event->semId));
    QorOsMutexClose(held);
    QorOsEventClose(event);
    munmap(shared, sizeof(Shared));
}

} // namespace
