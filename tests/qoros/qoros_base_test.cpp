#include "own_log.h"

namespace {

using QorOsBase = OwnLog;

TEST_F(QorOsBase, ShutsDownAndComesUpAgain) {
    EXPECT_EQ(messages(QorOsSetShutdown), "### QorOsSetShutdown: shutd=1\n");
    EXPECT_EQ(QorOsGetSystemUp(), 0u);
    QorOsSetSystemUp();
    EXPECT_EQ(QorOsGetSystemUp(), 1u);
    EXPECT_EQ(sum({QorOsIsOpenSslInitialized(), QorOsIsSslInitialized()}), 0u);
    EXPECT_EQ(sum({QorOsIsOpenSslInitialized(), QorOsIsSslInitialized()}), 2u);
}

TEST_F(QorOsBase, TellsTimesAndDeadlines) {
    const auto check = [](timeval now, uint32_t milliseconds, const char* deadline) {
        seams::stoppedAt = now;
        timespec found{};
        setTimespec(&found, 1704);
        EXPECT_EQ(text("%ld s %ld ns", found.tv_sec, found.tv_nsec), deadline);
        EXPECT_EQ(QorOsGetTimeInmSec(), milliseconds);
    };
    EXPECT_LE(time(nullptr) - QorOsGetTimeInSec(), 1);
    EXPECT_LE(QorOsGetUpTime(), 600);
    check({4294967, 295999}, 4294967295, "4294968 s 999999000 ns");
    check({4294967, 296000}, 0, "4294969 s 0 ns");
    EXPECT_DEATH(check({1, -1}, 0, ""),
                 "qoros/src/linux/qoros.cpp.* setTimespec.*\"error getting time\" == NULL");
}

TEST_F(QorOsBase, SleepsOnlyWholeSecondsAboveOne) {
    std::string slept;
    seams::onSleep = [&](const timeval& duration) {
        slept += text("%ld s %ld us, ", duration.tv_sec, long{duration.tv_usec});
        return -1;
    };
    for (const uint32_t milliseconds : {999u, 1000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(QorOsSleep(milliseconds), -1);
    }
    EXPECT_EQ(slept, "0 s 999000 us, 1 s 0 us, 4294967 s 295 us, ");
}

} // namespace
