#include <chrono>

#include "own_log.h"

namespace {

class QorOsBase : public OwnLog {};

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

TEST_F(QorOsBase, CountsMillisecondsModulo32BitsAndSeconds) {
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
        EXPECT_EQ(QorOsGetTimeInSec(), c.seconds);
    }
}

TEST_F(QorOsBase, CountsOnlyWholeSecondsAboveOne) {
    struct Case {
        uint32_t milliseconds;
        time_t seconds;
        suseconds_t microseconds;
    };
    for (const Case& c : {Case{0, 0, 0}, Case{999, 0, 999000}, Case{1000, 1, 0}, Case{1999, 1, 999},
                          Case{0xFFFFFFFF, 4294967, 295}}) {
        SCOPED_TRACE(c.milliseconds);
        for (const int result : {0, -1}) {
            seams::onSleep = [&](const timeval& duration) {
                EXPECT_EQ(duration.tv_sec, c.seconds);
                EXPECT_EQ(duration.tv_usec, c.microseconds);
                return result;
            };
            EXPECT_EQ(QorOsSleep(c.milliseconds), result);
        }
    }
    seams::onSleep = nullptr;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(QorOsSleep(50), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
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
            seams::clock = seams::Clock::Broken;
            setTimespec(&deadline, 1);
        },
        "qoros/src/linux/qoros.cpp.* setTimespec.*\"error getting time\" == NULL");
}

} // namespace
