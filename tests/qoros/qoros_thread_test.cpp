#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <utility>
#include <vector>

#include "child_process.h"
#include "own_log.h"

namespace {

class QorOsThread : public OwnLog {};

// What a started thread tells about itself. It finds its own handle and clears it.
struct Report {
    support::Gate made;
    uint64_t handle = 7;
    uint64_t found = 0;
    pthread_t self{};
    std::size_t stack = 0;
    bool detached = true;
};

void* report(void* argument) {
    auto* const told = static_cast<Report*>(argument);
    told->found = std::exchange(told->handle, 0u);
    told->self = pthread_self();
#if defined(__APPLE__)
    told->stack = pthread_get_stacksize_np(pthread_self());
#else
    pthread_attr_t attributes;
    int state = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &told->stack);
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    told->detached = state == PTHREAD_CREATE_DETACHED;
#endif
    told->made.open();
    return nullptr;
}

std::string cancelFailed(int error) {
    return "ERROR QorOsThreadCancel: failed " + errorText(error) + " " + pidTid() + "\n";
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
    struct Case {
        const char* name;
        int64_t stackSize; // -1: started by QorOsThreadStart
        std::size_t least;
        std::size_t most;
    };
    const Case cases[] = {
        {"default", 0, 1, 0x40000},
        {"as given", 0x100000, 0x100000, 0x100000},
        {"refused: the system's default", 1, 0x40001, SIZE_MAX},
        {"started", -1, 1, 0x40000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Report told;
        expectMessages("TRACE QorOsThreadBegin: ok (" + pidTid() + "\n", [&] {
            const uint32_t size = static_cast<uint32_t>(c.stackSize);
            EXPECT_EQ(c.stackSize < 0 ? QorOsThreadStart(&told.handle, nullptr, report, &told)
                                      : QorOsThreadBegin(&told.handle, report, size, &told),
                      1u);
        });
        ASSERT_TRUE(told.made.wait());
        EXPECT_EQ(memcmp(&told.found, &told.self, sizeof told.found), 0);
        EXPECT_EQ(told.handle, 0u) << "written after the thread had begun";
        EXPECT_GE(told.stack, c.least);
        EXPECT_LE(told.stack, c.most);
        EXPECT_TRUE(told.detached);
        EXPECT_TRUE(ends(told.found));
    }
    EXPECT_EQ(QorOsThreadBegin(nullptr, report, 0, nullptr), 0u);
}

TEST_F(QorOsThread, TellsWhyNoneBegins) {
    // An unprivileged process that may have no more threads.
    support::ChildProcess poor([] {
        const rlimit none{0, 0};
        ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
        ASSERT_TRUE(getuid() != 0 || setuid(65534) == 0);
        uint64_t handle = 7;
        uint64_t kept = 7;
        uint32_t state = 0;
        const std::string failed =
            "ERROR QorOsThreadBegin: failed " + errorText(EAGAIN) + " " + pidTid() + "\n";
        expectMessages(failed + failed, [&] {
            EXPECT_EQ(QorOsThreadBegin(&handle, report, 0, nullptr), 0u);
            EXPECT_EQ(std::exchange(errno, 0), EAGAIN);
            EXPECT_EQ(QorOsThreadStart(&kept, &state, report, nullptr), 0u);
            EXPECT_EQ(errno, EAGAIN);
        });
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(kept, 7u);
        EXPECT_EQ(state, 0u);
    });
    EXPECT_EQ(poor.wait(), 0);
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
    expectMessages("", [&] { QorOsThreadCancel(&handle); });
    ASSERT_EQ(QorOsThreadStart(&handle, nullptr, blockUntilCancelled, nullptr), 1u);
    const uint64_t begun = handle;

    seams::cancelError = EPERM;
    expectMessages(cancelFailed(EPERM), [&] { QorOsThreadCancel(&handle); });
    EXPECT_EQ(handle, begun);
    seams::cancelError = 0;
    support::ChildProcess forked([&] { // it has no such thread
        expectMessages(cancelFailed(ESRCH), [&] { QorOsThreadCancel(&handle); });
    });
    EXPECT_EQ(forked.wait(), 0);

    uint32_t state = 1;
    expectMessages(
        text("TRACE QorOsThreadStop(%lu=): do thread cancel\n"
             "TRACE QorOsThreadCancel: hndl=%p (%s\n",
             static_cast<unsigned long>(begun), reinterpret_cast<void*>(begun), pidTid().c_str()),
        [&] { EXPECT_EQ(QorOsThreadStop(&handle, &state, 1, nullptr, 0, nullptr), 1u); });
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(state, 0u);
    EXPECT_TRUE(ends(begun));

    state = 1; // a handle variable decides, whatever it holds
    expectMessages("TRACE QorOsThreadStop(0=w): do thread cancel\n",
                   [&] { EXPECT_EQ(QorOsThreadStop(&handle, &state, 1, nullptr, 0, "w"), 1u); });
    EXPECT_EQ(state, 0u);
}

void* passAndEnd(void* gate) {
    static_cast<support::Gate*>(gate)->wait();
    QorOsThreadEnd();
}

TEST_F(QorOsThread, CancelsNoThreadThatHasEnded) {
    QorOsvResLogLevel(log, QOR_LOG_TRACE);
    support::Gate gate;
    std::vector<uint64_t> handles(200); // more than whose stacks the system keeps
    for (uint64_t& handle : handles) {
        ASSERT_EQ(QorOsThreadBegin(&handle, passAndEnd, 0, &gate), 1u);
    }
    for (std::size_t i = 0; i <= handles.size(); ++i) {
        gate.open();
    }
    for (const uint64_t ended : handles) {
        ASSERT_TRUE(ends(ended));
    }
    for (const uint64_t ended : handles) {
        uint64_t handle = ended;
        expectMessages(cancelFailed(ESRCH), [&] { QorOsThreadCancel(&handle); });
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
        handle = 7;
        expectMessages("", [&] {
            EXPECT_EQ(QorOsThreadStart(&handle, &state, obey, &state), 1u);
            EXPECT_EQ(QorOsThreadStart(nullptr, &state, obey, &state), 1u);
        });
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(state, busy);
    }
}

// The stop callback of these tests: keeps the word that it finds.
uint32_t found = 0;

void look(uint64_t state) {
    found = *reinterpret_cast<uint32_t*>(state);
}

uint32_t stop(uint32_t* state, int32_t limit) {
    found = 7;
    return QorOsThreadStop(nullptr, state, limit, look, reinterpret_cast<uint64_t>(state), "w");
}

TEST_F(QorOsThread, PollsForAnAnswerUpToTheLimit) {
    struct Case {
        const char* name;
        int32_t limit;
        int answered; // during which poll
        int polls;
        const char* timeOut;
    };
    const Case cases[] = {
        {"never", 5, 0, 5, "INFO  QorOsThreadStop: w timed out (500 ms)\n"},
        {"during the last poll", 2, 2, 2, "INFO  QorOsThreadStop: w timed out (200 ms)\n"},
        {"before the last poll", 2, 1, 1, ""},
        {"no limit", 0, 3, 3, ""},
        {"nearly no limit", -1, 3, 3, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        uint32_t state = 1;
        int polls = 0;
        seams::onSleep = [&](const timeval& duration) {
            EXPECT_EQ(duration.tv_sec * 1000000 + duration.tv_usec, 100000);
            state = ++polls == c.answered ? 0 : state;
            return 0;
        };
        expectMessages(text("TRACE QorOsThreadStop: do thread w stop\n%s"
                            "TRACE QorOsThreadStop: thread w is stopped\n",
                            c.timeOut),
                       [&] { EXPECT_EQ(stop(&state, c.limit), *c.timeOut == '\0' ? 1u : 0u); });
        EXPECT_EQ(polls, c.polls);
        EXPECT_EQ(found, 3u);
        EXPECT_EQ(state, c.answered == 0 ? 3u : 0u);
    }
}

TEST_F(QorOsThread, LeavesAThreadAloneThatStopsByItself) {
    uint32_t state = 0;
    expectMessages("TRACE QorOsThreadStop: thread w is stopped\n"
                   "ERROR QorOsThreadStop: !!! w parameter are missing !!!\n",
                   [&] {
                       EXPECT_EQ(stop(&state, 1), 1u);
                       EXPECT_EQ(stop(nullptr, 1), 1u);
                   });
    EXPECT_EQ(found, 7u) << "there was nobody to wake";

    // It ends between the look at its word and the request.
    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    seams::onSyslog = [&](const std::string& message) {
        state = message == "TRACE QorOsThreadStop: do thread w stop\n" ? 0 : state;
    };
    state = 1;
    EXPECT_EQ(stop(&state, 1), 1u);
    EXPECT_EQ(found, 0u) << "a stop request stands over the end";
}

int firstRan = 0;
int secondRan = 0;

TEST_F(QorOsThread, CallsOnceForTheWholeProcess) {
    EXPECT_EQ(QorOsCallOnce([] { ++firstRan; }), 0);
    EXPECT_EQ(QorOsCallOnce([] { ++secondRan; }), 0);
    EXPECT_EQ(firstRan, 1);
    EXPECT_EQ(secondRan, 0);
}

} // namespace
