#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "child_process.h"
#include "own_log.h"

namespace {

class QorOsThread : public OwnLog {};

// What a started thread tells about itself.
struct Report {
    support::Gate made;
    pthread_t self;
    std::size_t stack = 0;
    bool detached = true;
};

void* report(void* argument) {
    auto* const told = static_cast<Report*>(argument);
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

// A worker that ends when its state word asks for it.
struct Worker {
    uint32_t state = 0;
    support::Gate started;
    support::Gate mayLook;
    support::Gate ended;
};

void* obey(void* argument) {
    auto* const worker = static_cast<Worker*>(argument);
    worker->started.open();
    worker->mayLook.wait();
    while (__atomic_load_n(&worker->state, __ATOMIC_ACQUIRE) != 3) {
        usleep(1000);
    }
    __atomic_store_n(&worker->state, 0u, __ATOMIC_RELEASE);
    worker->ended.open();
    return nullptr;
}

void letLook(uint64_t worker) {
    reinterpret_cast<Worker*>(worker)->mayLook.open();
}

TEST_F(QorOsThread, BeginsWithABoundedStack) {
    struct Case {
        const char* name;
        uint32_t stackSize;
        std::size_t least;
        std::size_t most;
    };
    const Case cases[] = {
        {"default", 0, 1, 0x40000},
        {"as given", 0x100000, 0x100000, 0x100000},
        {"refused: the system's default", 1, 0x40001, SIZE_MAX},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Report told;
        uint64_t handle = 0;
        EXPECT_EQ(
            messages([&] { EXPECT_EQ(QorOsThreadBegin(&handle, report, c.stackSize, &told), 1u); }),
            "TRACE QorOsThreadBegin: ok (" + pidTid() + "\n");
        ASSERT_TRUE(told.made.wait());
        EXPECT_EQ(memcmp(&handle, &told.self, sizeof handle), 0);
        EXPECT_GE(told.stack, c.least);
        EXPECT_LE(told.stack, c.most);
        EXPECT_TRUE(told.detached);
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
            EXPECT_EQ(QorOsThreadStart(&kept, &state, report, nullptr), 0u);
        });
        EXPECT_EQ(handle, 0u);
        EXPECT_EQ(kept, 7u);
        EXPECT_EQ(state, 0u);
    });
    EXPECT_EQ(poor.wait(), 0);
}

TEST_F(QorOsThread, EndsWithTheValueOne) {
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr, [](void*) -> void* { QorOsThreadEnd(); }, nullptr),
              0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(result), 1u);
}

TEST_F(QorOsThread, CancelsAndForgets) {
    support::Gate unwound;
    support::Gate started;
    support::Gate* gates[] = {&started, &unwound};
    uint64_t handle = 0;
    const auto block = [](void* argument) -> void* {
        auto** const both = static_cast<support::Gate**>(argument);
        pthread_cleanup_push([](void* gate) { static_cast<support::Gate*>(gate)->open(); },
                             both[1]);
        both[0]->open();
        for (;;) {
            pthread_testcancel();
            sched_yield();
        }
        pthread_cleanup_pop(0);
        return nullptr;
    };
    QorOsThreadCancel(nullptr);
    expectMessages("", [&] { QorOsThreadCancel(&handle); });
    ASSERT_EQ(QorOsThreadStart(&handle, nullptr, block, gates), 1u);
    ASSERT_TRUE(started.wait());
    const uint64_t begun = handle;

    seams::failCancel(ESRCH);
    expectMessages("ERROR QorOsThreadCancel: failed " + errorText(ESRCH) + " " + pidTid() + "\n",
                   [&] { QorOsThreadCancel(&handle); });
    EXPECT_EQ(handle, begun);
    seams::failCancel(0);

    uint32_t state = 1;
    expectMessages(
        text("TRACE QorOsThreadStop(%lu=): do thread cancel\n"
             "TRACE QorOsThreadCancel: hndl=%p (%s\n",
             static_cast<unsigned long>(begun), reinterpret_cast<void*>(begun), pidTid().c_str()),
        [&] { EXPECT_EQ(QorOsThreadStop(&handle, &state, 1, nullptr, 0, nullptr), 1u); });
    EXPECT_EQ(handle, 0u);
    EXPECT_EQ(state, 0u);
    EXPECT_TRUE(unwound.wait());

    state = 1; // a handle variable decides, whatever it holds
    expectMessages("TRACE QorOsThreadStop(0=w): do thread cancel\n",
                   [&] { EXPECT_EQ(QorOsThreadStop(&handle, &state, 1, nullptr, 0, "w"), 1u); });
    EXPECT_EQ(state, 0u);
}

TEST_F(QorOsThread, StartsOnceAndStopsByTheStateWord) {
    Worker worker;
    uint64_t handle = 0;
    EXPECT_EQ(QorOsThreadStart(&handle, &worker.state, obey, &worker), 1u);
    EXPECT_NE(handle, 0u);
    ASSERT_TRUE(worker.started.wait());
    EXPECT_EQ(__atomic_load_n(&worker.state, __ATOMIC_ACQUIRE), 1u);

    // It runs: nothing starts, and the handle is none.
    expectMessages("", [&] {
        EXPECT_EQ(QorOsThreadStart(&handle, &worker.state, obey, &worker), 1u);
        EXPECT_EQ(QorOsThreadStart(nullptr, &worker.state, obey, &worker), 1u);
    });
    EXPECT_EQ(handle, 0u);

    const uint64_t address = reinterpret_cast<uint64_t>(&worker);
    expectMessages("TRACE QorOsThreadStop: do thread w stop\n"
                   "TRACE QorOsThreadStop: thread w is stopped\n",
                   [&] {
                       EXPECT_EQ(
                           QorOsThreadStop(nullptr, &worker.state, 300, letLook, address, "w"), 1u);
                   });
    EXPECT_TRUE(worker.ended.wait());
    EXPECT_EQ(__atomic_load_n(&worker.state, __ATOMIC_ACQUIRE), 0u);

    // No limit, and a worker that looks only later.
    ASSERT_EQ(QorOsThreadStart(nullptr, &worker.state, obey, &worker), 1u);
    ASSERT_TRUE(worker.started.wait());
    worker.mayLook.open();
    EXPECT_EQ(QorOsThreadStop(nullptr, &worker.state, 0, nullptr, 0, nullptr), 1u);
    EXPECT_TRUE(worker.ended.wait());
}

void count(uint64_t counter) {
    ++*reinterpret_cast<int*>(counter);
}

TEST_F(QorOsThread, StopsWaitingAtThePollLimit) {
    uint32_t state = 1;
    int called = 0;
    const auto stop = [&](int32_t limit) {
        return QorOsThreadStop(nullptr, &state, limit, count, reinterpret_cast<uint64_t>(&called),
                               "w");
    };
    for (const int32_t limit : {1, 5}) {
        SCOPED_TRACE(limit);
        const auto begin = std::chrono::steady_clock::now();
        expectMessages(text("TRACE QorOsThreadStop: do thread w stop\n"
                            "INFO  QorOsThreadStop: w timed out (%d ms)\n"
                            "TRACE QorOsThreadStop: thread w is stopped\n",
                            limit * 100),
                       [&] { EXPECT_EQ(stop(limit), 0u); });
        const auto waited = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(waited, std::chrono::milliseconds(limit * 100));
        EXPECT_LT(waited, std::chrono::milliseconds(limit * 100 + 400));
        EXPECT_EQ(state, 3u);
    }
    EXPECT_EQ(called, 2);

    state = 0;
    expectMessages("TRACE QorOsThreadStop: thread w is stopped\n", [&] { EXPECT_EQ(stop(1), 1u); });
    EXPECT_EQ(called, 2) << "there was nobody to wake";
    expectMessages("ERROR QorOsThreadStop: !!! w parameter are missing !!!\n",
                   [&] { EXPECT_EQ(QorOsThreadStop(nullptr, nullptr, 1, count, 0, "w"), 1u); });
}

void answerSoon(uint64_t state) {
    std::thread([state] {
        QorOsSleep(20);
        __atomic_store_n(reinterpret_cast<uint32_t*>(state), 0u, __ATOMIC_RELEASE);
    }).detach();
}

TEST_F(QorOsThread, TakesAnAnswerDuringTheLastPollForATimeOut) {
    struct Case {
        int32_t limit;
        uint32_t result;
    };
    for (const Case& c : {Case{1, 0}, Case{100, 1}, Case{-1, 1}}) {
        SCOPED_TRACE(c.limit);
        static uint32_t state;
        __atomic_store_n(&state, 1u, __ATOMIC_RELAXED);
        EXPECT_EQ(QorOsThreadStop(nullptr, &state, c.limit, answerSoon,
                                  reinterpret_cast<uint64_t>(&state), "w"),
                  c.result);
        while (__atomic_load_n(&state, __ATOMIC_ACQUIRE) != 0) {
            sched_yield();
        }
    }
}

int firstRan = 0;
int secondRan = 0;

TEST_F(QorOsThread, CallsOnceForTheWholeProcess) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(QorOsCallOnce([] { ++firstRan; }), 0);
        EXPECT_EQ(QorOsCallOnce([] { ++secondRan; }), 0);
    }
    EXPECT_EQ(firstRan, 1);
    EXPECT_EQ(secondRan, 0);
}

} // namespace
