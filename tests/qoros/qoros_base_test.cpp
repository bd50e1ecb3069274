#include <chrono>

#include "own_log.h"

namespace {

class QorOsBase : public OwnLog {};

TEST_F(QorOsBase, ShutsDownAndComesUpAgain) {
    EXPECT_EQ(QorOsGetSystemUp(), 1u);
    expectMessages("### QorOsSetShutdown: shutd=1\n", QorOsSetShutdown);
    EXPECT_EQ(QorOsGetSystemUp(), 0u);
    QorOsSetSystemUp();
    EXPECT_EQ(QorOsGetSystemUp(), 1u);
}

TEST_F(QorOsBase, LatchesOpenOnceAndApart) {
    for (const auto latch : {QorOsIsOpenSslInitialized, QorOsIsSslInitialized}) {
        EXPECT_EQ(latch(), 0u);
        EXPECT_EQ(latch(), 1u);
    }
}

TEST_F(QorOsBase, CountsMillisecondsModulo32BitsAndSeconds) {
    const auto check = [](int64_t seconds, int32_t microseconds, uint32_t expected) {
        seams::stopClockAt(seconds, microseconds);
        EXPECT_EQ(QorOsGetTimeInmSec(), expected);
        EXPECT_EQ(QorOsGetTimeInSec(), seconds);
    };
    check(1, 999999, 1999);
    check(4294967, 295999, 4294967295);
    check(4294967, 296000, 0);
    check(1700000000, 1000, static_cast<uint32_t>(1700000000001));
}

TEST_F(QorOsBase, CountsOnlyWholeSecondsAboveOne) {
    const auto check = [](uint32_t milliseconds, int result, const std::string& expected) {
        seams::onSleep = [&](const timeval& duration) {
            EXPECT_EQ(text("%ld s %ld us", duration.tv_sec, long{duration.tv_usec}), expected);
            return result;
        };
        EXPECT_EQ(QorOsSleep(milliseconds), result);
    };
    check(0, 0, "0 s 0 us");
    check(999, -1, "0 s 999000 us");
    check(1000, 0, "1 s 0 us");
    check(1999, 0, "1 s 999 us");
    check(0xFFFFFFFF, 0, "4294967 s 295 us");
    seams::onSleep = nullptr;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(QorOsSleep(50), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST_F(QorOsBase, FindsTheDeadline) {
    const auto check = [](int32_t now, uint32_t milliseconds, const char* expected) {
        seams::stopClockAt(100, now);
        timespec deadline{};
        setTimespec(&deadline, milliseconds);
        EXPECT_EQ(text("%ld s %ld ns", deadline.tv_sec, deadline.tv_nsec), expected);
    };
    check(1, 0, "100 s 1000 ns");
    check(999, 1999, "101 s 999999000 ns");
    check(1000, 1999, "102 s 0 ns");
    check(999999, 999, "101 s 998999000 ns");
    check(0, 0xFFFFFFFE, "4295067 s 294000000 ns");
}

TEST(QorOsBaseDeathTest, StopsWithoutAClock) {
    timespec deadline;
    EXPECT_DEATH((seams::clock = seams::Clock::Broken, setTimespec(&deadline, 1)),
                 "qoros/src/linux/qoros.cpp.* setTimespec.*\"error getting time\" == NULL");
}

} // namespace
