#include <pthread.h>
#include <sched.h>

#include "plain_log.h"

namespace {

class QorOsThread : public PlainLog {};

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
    seams::cancelError = EBUSY; // of one that is still there
    for (int before = -1; before != seams::cancels; usleep(1000)) {
        before = seams::cancels;
        messages([&] { cancel(); });
    }
}

// Stops by a state word. Its callback keeps the word that it finds.
uint32_t found = 0;

uint32_t stop(uint32_t* state, int32_t limit) {
    const auto look = [](uint64_t word) { found = *reinterpret_cast<uint32_t*>(word); };
    return QorOsThreadStop(nullptr, state, limit, look, reinterpret_cast<uint64_t>(state), "w");
}

TEST_F(QorOsThread, PollsForAnAnswerUpToTheLimit) {
    // The limit, in which poll it answers, how many there are.
    const int cases[][3] = {{5, 0, 5}, {2, 2, 2}, {2, 1, 1}, {0, 3, 3}, {-1, 3, 3}};
    for (const auto& row : cases) {
        uint32_t state = 1;
        int polls = 0;
        seams::onSleep = [&](const timeval& duration) {
            state = ++polls == row[1] ? 0 : state;
            return duration.tv_usec == 100000 ? 0 : ++polls;
        };
        const bool late = row[2] == row[0];
        const std::string limit = text("INFO  QorOsThreadStop: w timed out (%d00 ms)\n", row[0]);
        expectCall("TRACE QorOsThreadStop: do thread w stop\n" + (late ? limit : "") +
                       "TRACE QorOsThreadStop: thread w is stopped\n",
                   late ? 0 : 1, [&] { return stop(&state, row[0]); });
        EXPECT_EQ(text("%d %u", polls, found), text("%d 3", row[2]));
    }
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
