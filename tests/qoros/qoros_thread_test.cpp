#include <pthread.h>
#include <sched.h>

#include "own_log.h"

namespace {

using QorOsThread = OwnLog;

void* waitForCancel(void*) {
    for (;;) {
        pthread_testcancel();
        sched_yield();
    }
}

TEST_F(QorOsThread, StartsOnceAndIsCancelledOnce) {
    uint64_t handle = 0;
    uint32_t state = 0;
    EXPECT_EQ(QorOsThreadStart(&handle, &state, waitForCancel, nullptr), 1u);
    const uint64_t begun = std::exchange(handle, 7u);
    EXPECT_EQ(QorOsThreadStart(&handle, &state, waitForCancel, nullptr), 1u);
    EXPECT_EQ(handle, 0u) << "it runs already";
    const auto cancel = [&] {
        QorOsThreadCancel(&(handle = begun));
        return handle == begun;
    };
    const std::string none = "ERROR QorOsThreadCancel: failed " + errorText(ESRCH) + " @)\n";
    const pid_t forked = startChild([&] { expectCall(none, true, cancel); });
    EXPECT_EQ(waitForChild(forked), 0) << "it has no such thread";
    expectCall("TRACE QorOsThreadCancel: hndl=# (@)\n", false, cancel);
    // A handle variable decides, whatever it holds.
    expectCall("TRACE QorOsThreadStop(0=w): do thread cancel\n", 1, [&] {
        return sum({QorOsThreadStop(&handle, &state, 1, nullptr, 0, "w"), state});
    });
    pstLog = nullptr;
    while (!cancel()) { // until it ended and is none of those that may be cancelled
        usleep(1000);
    }
}

// Stops by a state word. Its callback keeps the word that it finds.
uint32_t found = 0;

uint32_t stop(uint32_t* state, int32_t limit) {
    const auto look = [](uint64_t word) { found = *reinterpret_cast<uint32_t*>(word); };
    return QorOsThreadStop(nullptr, state, limit, look, reinterpret_cast<uint64_t>(state), "w");
}

TEST_F(QorOsThread, PollsForAnAnswerUpToTheLimit) {
    const auto check = [](int limit, int answered, int made, const std::string& late) {
        uint32_t state = 1;
        int polls = 0;
        seams::onSleep = [&](const timeval& duration) {
            state = ++polls == answered ? 0 : state;
            return duration.tv_usec == 100000 ? 0 : ++polls;
        };
        expectCall("TRACE QorOsThreadStop: do thread w stop\n" + late +
                       "TRACE QorOsThreadStop: thread w is stopped\n",
                   late.empty() ? 1 : 0, [&] { return stop(&state, limit); });
        EXPECT_EQ(text("%d %u", polls, found), text("%d 3", made));
    };
    check(5, 0, 5, "INFO  QorOsThreadStop: w timed out (500 ms)\n");
    check(2, 2, 2, "INFO  QorOsThreadStop: w timed out (200 ms)\n");
    check(0, 3, 3, "");
    check(-1, 3, 3, "");
}

TEST_F(QorOsThread, LeavesAThreadAloneThatStopsByItself) {
    uint32_t state = 0;
    expectCall("TRACE QorOsThreadStop: thread w is stopped\n"
               "ERROR QorOsThreadStop: !!! w parameter are missing !!!\n",
               2, [&] {
                   return sum({stop(&state, 1), stop(nullptr, 1)});
               });
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
