#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <vector>

#include "own_log.h"

namespace {

class QorOsThread : public OwnLog {};

// What a started thread tells about itself. It finds its own handle and clears it.
struct Report {
    Gate made;
    uint64_t handle = 7;
    uint64_t found = 0;
    pthread_t self{};
    std::size_t stack = 0;
    int kind = PTHREAD_CREATE_DETACHED;
};

void* report(void* argument) {
    auto* const told = static_cast<Report*>(argument);
    told->found = std::exchange(told->handle, 0u);
    told->self = pthread_self();
#if defined(__APPLE__)
    told->stack = pthread_get_stacksize_np(told->self);
#else
    pthread_attr_t attributes;
    pthread_getattr_np(told->self, &attributes);
    pthread_attr_getstacksize(&attributes, &told->stack);
    pthread_attr_getdetachstate(&attributes, &told->kind);
    pthread_attr_destroy(&attributes);
#endif
    told->made.open();
    return nullptr;
}

// A message about a failure, made by the calling thread.
std::string failed(const char* function, int error) {
    return text("ERROR %s: failed %s %s\n", function, errorText(error).c_str(), pidTid().c_str());
}

// Waits until the system is no longer asked to cancel a thread; one that is still there is spared.
bool ends(uint64_t handle) {
    seams::cancelError = EBUSY;
    bool ended = false;
    standardOutput([&] {
        for (int i = 0; !ended && i < 10000; ++i) {
            const int before = seams::cancels;
            QorOsThreadCancel(&handle);
            ended = seams::cancels == before;
            usleep(ended ? 0 : 1000);
        }
    });
    seams::cancelError = 0;
    return ended;
}

TEST_F(QorOsThread, BeginsWithABoundedStackAndKnowsItsHandle) {
    const auto check = [](int64_t stackSize, std::size_t least, std::size_t most) {
        SCOPED_TRACE(stackSize);
        Report told;
        expectMessages("TRACE QorOsThreadBegin: ok (" + pidTid() + "\n", [&] {
            const uint32_t size = static_cast<uint32_t>(stackSize);
            EXPECT_EQ(stackSize < 0 ? QorOsThreadStart(&told.handle, nullptr, report, &told)
                                    : QorOsThreadBegin(&told.handle, report, size, &told),
                      1u);
        });
        ASSERT_TRUE(told.made.wait());
        EXPECT_EQ(memcmp(&told.found, &told.self, sizeof told.found), 0);
        EXPECT_EQ(told.handle, 0u) << "written after the thread had begun";
        EXPECT_TRUE(told.stack >= least && told.stack <= most) << told.stack;
        EXPECT_EQ(told.kind, PTHREAD_CREATE_DETACHED);
        EXPECT_TRUE(ends(told.found));
    };
    check(0, 1, 0x40000);
    check(0x100000, 0x100000, 0x100000);
    check(1, 0x40001, SIZE_MAX); // refused: the system's default
    check(-1, 1, 0x40000);       // by QorOsThreadStart
    EXPECT_EQ(QorOsThreadBegin(nullptr, report, 0, nullptr), 0u);
}

TEST_F(QorOsThread, TellsWhyNoneBegins) {
    // An unprivileged process that may have no more threads.
    const pid_t poor = startChild([] {
        const rlimit none{0, 0};
        ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
        ASSERT_TRUE(getuid() != 0 || setuid(65534) == 0);
        uint64_t handle = 7;
        uint64_t kept = 7;
        uint32_t state = 0;
        const std::string message = failed("QorOsThreadBegin", EAGAIN);
        expectMessages(message + message, [&] {
            EXPECT_EQ(QorOsThreadBegin(&handle, report, 0, nullptr), 0u);
            EXPECT_EQ(std::exchange(errno, 0), EAGAIN);
            EXPECT_EQ(QorOsThreadStart(&kept, &state, report, nullptr), 0u);
            EXPECT_EQ(errno, EAGAIN);
        });
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(kept, 7u);
        EXPECT_EQ(state, 0u);
    });
    EXPECT_EQ(waitForChild(poor), 0);
}

void* blockUntilCancelled(void*) {
    for (;;) {
        pthread_testcancel();
        sched_yield();
    }
}

TEST_F(QorOsThread, CancelsAndForgets) {
    uint64_t handle = 0;
    QorOsThreadCancel(nullptr);
    ASSERT_EQ(QorOsThreadStart(&handle, nullptr, blockUntilCancelled, nullptr), 1u);
    const uint64_t begun = handle;
    const auto cancelInVain = [&](int error) {
        expectMessages(failed("QorOsThreadCancel", error), [&] { QorOsThreadCancel(&handle); });
        EXPECT_EQ(handle, begun);
    };
    seams::cancelError = EPERM;
    cancelInVain(EPERM);
    seams::cancelError = 0;
    const pid_t forked = startChild([&] { cancelInVain(ESRCH); }); // it has no such thread
    EXPECT_EQ(waitForChild(forked), 0);

    const auto stop = [&] {
        uint32_t state = 1;
        EXPECT_EQ(QorOsThreadStop(&handle, &state, 1, nullptr, 0, "w"), 1u);
        EXPECT_EQ(state, 0u);
    };
    expectMessages(text("TRACE QorOsThreadStop(%lu=w): do thread cancel\n"
                        "TRACE QorOsThreadCancel: hndl=%p (%s\n",
                        static_cast<unsigned long>(begun), reinterpret_cast<void*>(begun),
                        pidTid().c_str()),
                   stop);
    EXPECT_EQ(handle, 0u);
    EXPECT_TRUE(ends(begun));
    // A handle variable decides, whatever it holds.
    expectMessages("TRACE QorOsThreadStop(0=w): do thread cancel\n", stop);
}

void* passAndEnd(void* gate) {
    static_cast<Gate*>(gate)->wait();
    QorOsThreadEnd();
}

TEST_F(QorOsThread, CancelsNoThreadThatHasEnded) {
    QorOsvResLogLevel(log, QOR_LOG_TRACE);
    Gate gate;
    std::vector<uint64_t> handles(200); // more than whose stacks the system keeps
    for (uint64_t& handle : handles) {
        ASSERT_EQ(QorOsThreadBegin(&handle, passAndEnd, 0, &gate), 1u);
    }
    for (std::size_t i = 0; i <= handles.size(); ++i) {
        gate.open();
    }
    for (uint64_t& handle : handles) {
        const uint64_t ended = handle;
        ASSERT_TRUE(ends(ended));
        expectMessages(failed("QorOsThreadCancel", ESRCH), [&] { QorOsThreadCancel(&handle); });
        EXPECT_EQ(handle, ended);
    }

    pthread_t thread;
    void* result = nullptr;
    ASSERT_EQ(pthread_create(&thread, nullptr, passAndEnd, &gate), 0);
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(result), 1u);
}

// A worker that ends when its state word asks for it.
void* obey(void* state) {
    while (__atomic_load_n(static_cast<uint32_t*>(state), __ATOMIC_ACQUIRE) != 3) {
        usleep(1000);
    }
    __atomic_store_n(static_cast<uint32_t*>(state), 0u, __ATOMIC_RELEASE);
    return nullptr;
}

TEST_F(QorOsThread, StartsOnceAndStopsByTheStateWord) {
    uint32_t state = 0;
    uint64_t handle = 0;
    EXPECT_EQ(QorOsThreadStart(&handle, &state, obey, &state), 1u);
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(__atomic_load_n(&state, __ATOMIC_ACQUIRE), 1u);
    EXPECT_EQ(QorOsThreadStop(nullptr, &state, 300, nullptr, 0, nullptr), 1u);
    EXPECT_EQ(__atomic_load_n(&state, __ATOMIC_ACQUIRE), 0u);

    // A thread that runs or is asked to stop: nothing starts, and the handle is none.
    for (const uint32_t busy : {1u, 3u}) {
        state = busy;
        expectMessages("", [&] {
            EXPECT_EQ(QorOsThreadStart(&(handle = 7), &state, obey, &state), 1u);
            EXPECT_EQ(QorOsThreadStart(nullptr, &state, obey, &state), 1u);
        });
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(state, busy);
    }
}

// Stops by a state word. Its callback keeps the word that it finds.
uint32_t found = 0;

uint32_t stop(uint32_t* state, int32_t limit) {
    const auto look = [](uint64_t word) { found = *reinterpret_cast<uint32_t*>(word); };
    found = 7;
    return QorOsThreadStop(nullptr, state, limit, look, reinterpret_cast<uint64_t>(state), "w");
}

TEST_F(QorOsThread, PollsForAnAnswerUpToTheLimit) {
    const auto check = [](int32_t limit, int answered, int expectedPolls, const char* timeOut) {
        SCOPED_TRACE(text("answered in poll %d of %d", answered, limit));
        uint32_t state = 1;
        int polls = 0;
        seams::onSleep = [&](const timeval& duration) {
            EXPECT_EQ(duration.tv_sec * 1000000 + duration.tv_usec, 100000);
            state = ++polls == answered ? 0 : state;
            return 0;
        };
        expectMessages(text("TRACE QorOsThreadStop: do thread w stop\n%s"
                            "TRACE QorOsThreadStop: thread w is stopped\n",
                            timeOut),
                       [&] { EXPECT_EQ(stop(&state, limit), *timeOut == '\0' ? 1u : 0u); });
        EXPECT_EQ(polls, expectedPolls);
        EXPECT_EQ(found, 3u);
        EXPECT_EQ(state, answered == 0 ? 3u : 0u);
    };
    check(5, 0, 5, "INFO  QorOsThreadStop: w timed out (500 ms)\n");
    check(2, 2, 2, "INFO  QorOsThreadStop: w timed out (200 ms)\n");
    check(2, 1, 1, "");
    check(0, 3, 3, ""); // no limit
    check(-1, 3, 3, "");
}

TEST_F(QorOsThread, LeavesAThreadAloneThatStopsByItself) {
    uint32_t state = 0;
    expectMessages("TRACE QorOsThreadStop: thread w is stopped\n"
                   "ERROR QorOsThreadStop: !!! w parameter are missing !!!\n",
                   [&] { EXPECT_EQ(stop(&state, 1) + stop(nullptr, 1), 2u); });
    EXPECT_EQ(found, 7u) << "there was nobody to wake";

    // It ends between the look at its word and the request.
    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    seams::onSyslog = [&] { state = 0; };
    EXPECT_EQ(stop(&(state = 1), 1), 1u);
    EXPECT_EQ(found, 0u) << "a stop request stands over the end";
}

TEST_F(QorOsThread, CallsOnceForTheWholeProcess) {
    static std::string ran;
    EXPECT_EQ(QorOsCallOnce([] { ran += "first"; }), 0);
    EXPECT_EQ(QorOsCallOnce([] { ran += "second"; }), 0);
    EXPECT_EQ(ran, "first");
}

} // namespace
