#include <sys/time.h>

#include <chrono>
#include <csignal>

#include "own_log.h"

namespace {

class QorOsBase : public OwnLog {};

double secondsOf(const std::function<void()>& body) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST_F(QorOsBase, ShutsDownAndComesUpAgain) {
    EXPECT_EQ(QorOsGetSystemUp(), 1u);
    EXPECT_EQ(messages(QorOsSetShutdown), "### QorOsSetShutdown: shutd=1\n");
    EXPECT_EQ(QorOsGetSystemUp(), 0u);
    QorOsSetSystemUp();
    EXPECT_EQ(QorOsGetSystemUp(), 1u);
}

TEST_F(QorOsBase, LatchesOpenOnceAndApart) {
    EXPECT_EQ(QorOsIsOpenSslInitialized(), 0u);
    EXPECT_EQ(QorOsIsOpenSslInitialized(), 1u);
    EXPECT_EQ(QorOsIsSslInitialized(), 0u);
    EXPECT_EQ(QorOsIsSslInitialized(), 1u);
}

TEST_F(QorOsBase, CountsMillisecondsModulo32Bits) {
    struct Case {
        const char* name;
        int64_t seconds;
        int32_t microseconds;
        uint32_t expected;
    };
    const Case cases[] = {
        {"microseconds are cut", 1, 999999, 1999},
        {"last value", 4294967, 295999, 4294967295u},
        {"wraps", 4294967, 296000, 0},
        {"today", 1700000000, 1000, static_cast<uint32_t>(1700000000001u)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        seams::stopClockAt(c.seconds, c.microseconds);
        EXPECT_EQ(QorOsGetTimeInmSec(), c.expected);
    }
}

TEST_F(QorOsBase, CountsOnlyWholeSecondsAboveOne) {
    const int64_t begin = QorOsGetTimeInSec();
    EXPECT_NEAR(static_cast<double>(begin), static_cast<double>(time(nullptr)), 1.0);
    const int64_t up = QorOsGetUpTime();
    const double slept = secondsOf([] { EXPECT_EQ(QorOsSleep(1900), 0); });
    EXPECT_GE(slept, 1.0009);
    EXPECT_LT(slept, 1.8);
    EXPECT_GE(QorOsGetUpTime() - up, 1);
    EXPECT_LE(QorOsGetUpTime() - up, 3);
    EXPECT_GE(QorOsGetTimeInSec() - begin, 1);
}

TEST_F(QorOsBase, SleepsMillisecondsBelowOneSecond) {
    EXPECT_GE(secondsOf([] { QorOsSleep(120); }), 0.12);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval soon{{0, 0}, {0, 50000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_LT(secondsOf([] { EXPECT_EQ(QorOsSleep(30000), -1); }), 20.0);
}

TEST_F(QorOsBase, FindsTheDeadline) {
    struct Case {
        const char* name;
        int32_t microseconds;
        uint32_t milliseconds;
        time_t seconds;
        long nanoseconds;
    };
    const Case cases[] = {
        {"now", 1, 0, 100, 1000},
        {"below the carry", 999, 1999, 101, 999999000},
        {"carry at one second", 1000, 1999, 102, 0},
        {"carry", 999999, 999, 101, 998999000},
        {"longest finite", 0, 0xFFFFFFFE, 100 + 4294967, 294000000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        seams::stopClockAt(100, c.microseconds);
        timespec deadline{};
        setTimespec(&deadline, c.milliseconds);
        EXPECT_EQ(deadline.tv_sec, c.seconds);
        EXPECT_EQ(deadline.tv_nsec, c.nanoseconds);
    }
}

TEST(QorOsBaseDeathTest, StopsWithoutAClock) {
    timespec deadline;
    EXPECT_DEATH(
        {
            seams::breakClock();
            setTimespec(&deadline, 1);
        },
        "qoros/src/linux/qoros.cpp.* setTimespec.*\"error getting time\" == NULL");
}

} // namespace
