// Mutexes and events, those of a process and those that processes share.
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <fstream>
#include <vector>

#include "own_log.h"
#include "qoros/src/linux/qoros_namedsem.h"

namespace {

constexpr uint32_t key = 0x51430001;

// How often a semaphore's value was read.
std::atomic<int> reads{0};

} // namespace

// The library's objects are linked into this program, so that this stands in for the system's.
extern "C" int semctl(int id, int number, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*); // passed on, given or not
    va_end(arguments);
    reads += command == GETVAL ? 1 : 0;
    const auto systems = reinterpret_cast<decltype(semctl)*>(dlsym(RTLD_NEXT, "semctl"));
    return systems(id, number, command, argument);
}

namespace {

template <class Object>
Object* made(uint32_t (*make)(Object**, uint32_t), uint32_t objectKey) {
    Object* object = nullptr;
    EXPECT_EQ(make(&object, objectKey), 1u);
    return object;
}

// Counts under a mutex in two steps, between which another's count would be lost.
void count(QorOsMutex* mutex, std::atomic<int>& counter) {
    inThreads(4, [&](int) {
        for (int i = 0; i < 3125; ++i) {
            QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
            const int seen = counter.load(std::memory_order_relaxed);
            counter.store(seen + 1, std::memory_order_relaxed);
            QorOsMutexRelease(mutex);
        }
    });
}

using LocalObjects = OwnLog;
using LocalObjectsDeathTest = LocalObjects;

// The thread sanitizer would report the misuse itself.
#if !defined(__has_feature)
#define __has_feature(feature) 0
#endif
#if !__has_feature(thread_sanitizer)
TEST_F(LocalObjects, MutexKnowsItsOwnerAndWaitsForItAtTheEnd) {
    QorOsMutex* const mutex = made(QorOsMutexCreate, 0);
    uint32_t result = 7;
    const auto wait = [&] { return sum({QorOsMutexWait(mutex, QOR_INFINITE, &result), result}); };
    const auto release = [&] { return QorOsMutexRelease(mutex); };
    EXPECT_EQ(sum({wait(), wait(), release()}), 5u);
    inThreads(1, [&](int) { EXPECT_EQ(pthread_mutex_trylock(&mutex->mutex), EBUSY); });
    expectCall("DEBUG QorOsMutexRelease(#) (@)\n", 1, release);
    expectCall(text("ERROR QorOsMutexRelease(#) rc=1=%s (@)\n", strerror(EPERM)), 0, release);
    expectCall("DEBUG QorOsMutexWait(#) (@)\n", 2, wait);
    QorOsvResLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_TRACE);
    int refusals = 0;
    seams::onSyslog = [&] { ++refusals == 3 ? pthread_mutex_unlock(&mutex->mutex) : 0; };
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    EXPECT_EQ(refusals, 3);
}
#endif

TEST_F(LocalObjectsDeathTest, EndTheProgram) {
    QorOsMutex mutex{QOR_MUTEX_PTHREAD, {}};
    QorOsEvent event{QOR_EVENT_NAMED, {}};
    const auto wait = [&](bool onEvent) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        onEvent ? QorOsEventWait(&event, 0xFFFFFFFE, nullptr) : QorOsMutexWait(&mutex, 0, nullptr);
    };
    EXPECT_EXIT(wait(true), testing::ExitedWithCode(0),
                "Timeout in Events not supported for MacOSX \\(you're timeout=-2\\)\n$");
    const std::string words =
        "invalid timeout, only infinite supported for local pthread based mutexes\\.";
    EXPECT_EXIT(wait(false), testing::ExitedWithCode(1),
                " - ERROR QorOsMutexWait\\(0x[0-9a-f]+\\) " + words + " \\(pid=[0-9]+ tid=[0-9]+" +
                    "\\)\nQorOsMutexWait - " + words + "QorOsMutexWait - " + words + "\n$");
    mutex.type = 2;
    EXPECT_DEATH(wait(false), "qoros/src/linux/qoros\\.cpp.*pMtx->type == QOR_MUTEX_PTHREAD "
                              "\\|\\| pMtx->type == QOR_MUTEX_SYSV");
    EXPECT_DEATH(QorOsMutexClose(&mutex), "pMtx->type == QOR_MUTEX_SYSV");
}

TEST_F(LocalObjects, EventWakesAllWhoWait) {
    pstLog = nullptr; // whose messages read the clock, too
    QorOsEvent* const event = made(QorOsEventCreate, 0);
    uint32_t result = 7;
    const auto wait = [](void* on) -> void* {
        return QorOsEventWait(static_cast<QorOsEvent*>(on), 30000, nullptr) == 1 ? on : nullptr;
    };
    seams::clockReads = 0;
    pthread_t threads[4];
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(pthread_create(&threads[i], nullptr, wait, event), 0);
        while (seams::clockReads <= i) { // which is done under the lock, that the wait gives up
            usleep(1000);
        }
    }
    pthread_cancel(threads[0]);
    for (pthread_t& thread : threads) {
        void* woken = nullptr;
        EXPECT_EQ(pthread_join(thread, &woken), 0);
        EXPECT_EQ(woken, &thread == threads ? PTHREAD_CANCELED : event);
        EXPECT_TRUE(woken == event || QorOsEventSet(event) == 1);
    }
    EXPECT_EQ(QorOsEventWait(event, 50, &result), 0u) << "the signal is taken";
    EXPECT_EQ(result, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(sum({QorOsEventSet(event), QorOsEventReset(event)}), 2u);
    EXPECT_EQ(QorOsEventWait(event, 0, nullptr), 0u);
    EXPECT_EQ(QorOsEventClose(event), 1u);
}

TEST_F(LocalObjects, KeepThreadsApart) {
    pstLog = nullptr;
    QorOsMutex* const mutex = made(QorOsMutexCreate, 0);
    QorOsEvent* const turns[] = {made(QorOsEventCreate, 0), made(QorOsEventCreate, 0)};
    std::atomic<int> counter{0};
    count(mutex, counter);
    EXPECT_EQ(counter, 12500);
    int shared = QorOsEventSet(turns[0]) == 1 ? 0 : -1; // by two threads in turns
    inThreads(2, [&](int own) {
        for (int i = 0; i < 12500; ++i) {
            QorOsEventWait(turns[own], QOR_INFINITE, nullptr);
            EXPECT_EQ(shared++ % 2, own);
            QorOsEventSet(turns[1 - own]);
        }
    });
    EXPECT_EQ(QorOsMutexClose(mutex) + QorOsEventClose(turns[0]) + QorOsEventClose(turns[1]), 3u);
}

// Each test begins and ends without semaphores and without the block; a test that makes leftovers
// takes them away.
class NamedSemaphores : public OwnLog {
protected:
    void SetUp() override {
        OwnLog::SetUp();
        pstLog = nullptr; // the library makes its own, next to the one that keeps the block
    }
    void TearDown() override {
        std::ifstream list("/proc/sysvipc/sem");
        EXPECT_LE(std::count(std::istreambuf_iterator<char>(list), {}, '\n'), 1) << "left over";
        OwnLog::TearDown();
        EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
    }

    // The words of the block as another process reads them: users, GlobSemCnt, NamedSemCnt,
    // MaxNamedIdx, and the slots.
    static void expectBlock(const std::vector<uint32_t>& expected) {
        const pid_t reader = startChild([&] {
            const void* const block = shmat(shmget(QOR_SHM_KEY, 0, 0), nullptr, SHM_RDONLY);
            const auto* const words = static_cast<const uint32_t*>(block) + 1;
            EXPECT_EQ(std::vector<uint32_t>(words, words + expected.size()), expected);
        });
        EXPECT_EQ(waitForChild(reader), 0);
    }
};

TEST_F(NamedSemaphores, AreCountedAndRemovedWithTheLastHandle) {
    QorOsMutex* const mutex = made(QorOsMutexCreate, key);
    QorOsEvent* const event = made(QorOsEventCreate, key + 1);
    QorOsMutex* again = nullptr;
    expectCall("TRACE fIncNamedSemCnt(#) inc: cnt[0]=2 SemCnt=3 MaxIdx=2 (@)\n"
               "TRACE QorOsOpenM(#): semval=1 LocSemCnt=3 Shm=# GlobSemCnt=3 NamedSemCnt=3 "
               "MaxNamedIdx=2 Log=FFFFFFFF (@)\n",
               1, [&] { return QorOsMutexOpen(&again, key); });
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    expectBlock({2, 2, 2, 2, again->semId, 1, event->semId, 1, UINT32_MAX});
    EXPECT_EQ(semget(key, 0, 0), static_cast<int>(again->semId));
    EXPECT_EQ(QorOsMutexClose(again), 1u);
    EXPECT_EQ(semget(key, 0, 0), -1);
    expectCall("TRACE QorOsCloseE(#): LocSemCnt=1 Shm=# (@)\n"
               "TRACE QorOsClose shm: GlobSemCnt=1 NamedSemCnt=1 MaxNamedIdx=2 Log=FFFFFFFF\n"
               "TRACE dDecNamedSemCnt(#): cnt[1]=0 SemCnt=0 MaxIdx=2 (@)\n"
               "TRACE QorOsClose shm: GlobSemCnt=0\nTRACE QorOsClose: DeleteLog=0\n",
               1, [&] { return QorOsEventClose(event); });
    expectBlock({1, 0, 0, 2, UINT32_MAX, 0, UINT32_MAX, 0});
}

TEST_F(NamedSemaphores, AreNotCountedBeyondTheTable) {
    std::vector<QorOsMutex*> mutexes;
    for (uint32_t i = 0; i < 60; ++i) {
        mutexes.push_back(made(QorOsMutexCreate, key + i));
    }
    QorOsEvent* event = nullptr;
    expectCall("ERROR QorOsCreateE(#): shared mem not installed or runs over\n"
               "TRACE QorOsCreateE(#): semval=0 LocSemCnt=61 Shm=# GlobSemCnt=61 NamedSemCnt=61 "
               "MaxNamedIdx=60 Log=FFFFFFFF (@)\n",
               1, [&] { return QorOsEventCreate(&event, key + 60); });
    // The first close removes it for everybody.
    EXPECT_EQ(QorOsEventClose(made(QorOsEventOpen, key + 60)), 1u);
    EXPECT_EQ(QorOsEventClose(event), 0u);
    // A place that becomes free is the next one's, without a new count of slots.
    EXPECT_EQ(QorOsMutexClose(mutexes[7]), 1u);
    mutexes[7] = made(QorOsMutexCreate, key + 61);
    EXPECT_EQ(pstShm.load()->slots[7].semId, mutexes[7]->semId);
    EXPECT_EQ(std::exchange(pstShm.load()->MaxNamedIdx, UINT32_MAX), 60u);
    EXPECT_FALSE(fIncNamedSemCnt(0x7FFFFFFF)) << "something is read behind the table";
    for (QorOsMutex* const mutex : mutexes) {
        EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    }
    expectBlock({2, 1, 3, UINT32_MAX}); // the event is counted still, and thrice there was no place
    vUncountHandle();
}

// Opening makes no table of a block as it is new.
TEST_F(NamedSemaphores, AreNotCountedInATableThatNobodyMade) {
    EXPECT_NE(semget(key, 1, IPC_CREAT | 0666), -1);
    QorOsMutex* const mutex = made(QorOsMutexOpen, key);
    EXPECT_EQ(pstShm.load()->MaxNamedIdx, 0u);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
}

TEST_F(NamedSemaphores, OutliveAProcessThatIsKilled) {
    const pid_t victim = startChild([] {
        QorOsMutexWait(made(QorOsMutexCreate, key), QOR_INFINITE, nullptr);
        raise(SIGKILL);
    });
    EXPECT_EQ(waitForChild(victim), SIGKILL);
    QorOsMutex* const mutex = made(QorOsMutexCreate, key); // opens, and the value stays
    expectBlock({3, 2, 2, 1, mutex->semId, 2});
    EXPECT_EQ(QorOsSemaphoreVal(mutex->semId), 0);
    EXPECT_EQ(sum({QorOsMutexRelease(mutex), QorOsMutexClose(mutex)}), 2u);
    EXPECT_EQ(semctl(semget(key, 0, 0), 0, IPC_RMID), 0);
}

TEST_F(NamedSemaphores, AreGivenUpAfterASignalInAProgramThatEnds) {
    QorOsMutex* const mutex = made(QorOsMutexCreate, key);
    EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 1u);
    const pid_t waiter = startChild([=] {
        QorOsSetShutdown();
        signal(SIGALRM, [](int) {});
        ualarm(10000, 10000); // us; one may come before the wait
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 0u);
        EXPECT_EQ(errno, EINTR);
    });
    EXPECT_EQ(waitForChild(waiter), 0);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
}

TEST_F(NamedSemaphores, TakeAndGive) {
    QorOsMutex* const mutex = made(QorOsMutexCreate, key);
    QorOsEvent* const event = made(QorOsEventCreate, key + 1);
    uint32_t result = 7;
    const auto wait = [&] { return sum({QorOsMutexWait(mutex, 0, &result), result}); };
    const auto release = [&] { return QorOsMutexRelease(mutex); };
    const auto set = [&] { return sum({QorOsEventSet(event), QorOsEventReset(event)}); };
    const auto value = [&] { return QorOsSemaphoreVal(event->semId); };
    expectCall("DEBUG QorOsSetM(#) entry: semval=1 (@)\nDEBUG QorOsSetM(#) exit: semval=0 (@)\n", 2,
               wait);
    expectCall("DEBUG QorOsSetM(#) entry: semval=0 (@)\n"
               "DEBUG QorOsSetM(#) exit-NO_WAIT: semval=0 (@)\n",
               1 + QOR_WAIT_TIMEOUT, wait);
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    EXPECT_EQ(sum({set(), set(), release()}), 5u);
    EXPECT_EQ(value() + QorOsSemaphoreVal(mutex->semId), 3) << "a set gives 1, a reset 1 more";
    reads = 0;
    EXPECT_EQ(sum({wait(), release(), set()}), 5u);
    EXPECT_EQ(reads, 1) << "values are read for messages that nobody sees";
    EXPECT_EQ(QorOsMutexClose(mutex) + QorOsEventClose(event), 2u);
}

TEST_F(NamedSemaphores, TellWhyTheyFail) {
    QorOsMutex* const held = made(QorOsMutexCreate, key); // messages are dropped without one
    QorOsMutex* none = held;
    QorOsEvent gone{QOR_EVENT_NAMED, {}};
    gone.semId = held->semId;
    EXPECT_EQ(semctl(semget(key, 0, 0), 0, IPC_RMID), 0);
    uint32_t result = 7;
    EXPECT_EQ(QorOsEventSet(&gone), 1u);
    EXPECT_EQ(sum({QorOsEventWait(&gone, 0, &result), result}), 1 + QOR_WAIT_TIMEOUT);
    EXPECT_EQ(sum({QorOsMutexWait(held, QOR_INFINITE, &result), result}), 0u);
    expectCall("FATAL QorOsOpenM(-1): semctl failed " + errorText(ENOENT) + " @)\n", 0,
               [&] { return QorOsMutexOpen(&none, key); });
    EXPECT_EQ(QorOsMutexClose(held), 0u);
    expectBlock({2, 1, 0, 1}); // the handle that could not be closed is counted still
    vUncountHandle();
}

TEST_F(NamedSemaphores, KeepProcessesAndThreadsApart) {
    auto& shared = *static_cast<std::atomic<int>*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsMutex* const held = made(QorOsMutexCreate, key);
    QorOsEvent* const event = made(QorOsEventCreate, key + 1);
    std::vector<pid_t> processes;
    for (int number = 0; number < 8; ++number) {
        processes.push_back(startChild([&] {
            pstLog = nullptr; // it makes its own
            QorOsMutex* const mutex = made(QorOsMutexCreate, key);
            count(mutex, shared);
            // Handles come and go while others hold theirs, and an event lets one pass a time.
            for (int i = 0; i < 1500; ++i) {
                QorOsEvent* const own =
                    made(i % 2 == 0 ? QorOsEventOpen : QorOsEventCreate, key + 1);
                number % 2 == 0 ? QorOsEventReset(own) : QorOsEventWait(own, QOR_INFINITE, nullptr);
                EXPECT_EQ(QorOsEventClose(own), 1u);
            }
            QorOsMutexClose(mutex);
        }));
    }
    for (const pid_t process : processes) {
        EXPECT_EQ(waitForChild(process), 0);
    }
    EXPECT_EQ(shared, 100000);
    EXPECT_EQ(QorOsSemaphoreVal(event->semId), 0) << "as many signals were taken as given";
    expectBlock({2, 2, 2, 2, held->semId, 1, event->semId, 1, UINT32_MAX});
    EXPECT_EQ(QorOsMutexClose(held) + QorOsEventClose(event), 2u);
}

} // namespace
