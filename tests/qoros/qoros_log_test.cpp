#include <sys/shm.h>
#include <syslog.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "child_process.h"
#include "own_log.h"

namespace {

class QorOsLog : public OwnLog {};

constexpr char stampPattern[] = R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )";

TEST_F(QorOsLog, WritesToStandardOutputWithAStampOrToSyslogWithout) {
    const auto write = [this] { QorOsvLog(log, QOR_LOG_DEBUG, "DEBUG %d", 7); };
    const std::string shown = standardOutput(write);
    EXPECT_TRUE(std::regex_match(shown, std::regex(std::string(stampPattern) + "DEBUG 7\n")))
        << shown;
    EXPECT_EQ(seams::takeSyslog(), "");

    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    expectMessages("", [&] {
        write();
        write();
    });
    const std::string info = text("%d DEBUG 7\n", LOG_INFO);
    const std::string open = text("open QorOsLog %d %d\n", LOG_PID, LOG_USER);
    std::string sent = seams::takeSyslog();
    if (sent.compare(0, open.size(), open) == 0) { // only the first message of a process opens
        sent.erase(0, open.size());
    }
    EXPECT_EQ(sent, info + info);
}

TEST_F(QorOsLog, LetsALevelThroughThatSharesABitOtherThanTheSelector) {
    struct Case {
        const char* name;
        uint32_t mask;
        uint32_t level;
        bool passes;
    };
    const Case cases[] = {
        {"level set", QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_TRACE, true},
        {"level clear", QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_DEBUG, false},
        {"one of two", QOR_LOG_STDOUT | QOR_LOG_FATAL, QOR_LOG_FATAL | QOR_LOG_DEBUG, true},
        {"smallest level", 3, 2, true},
        {"level 1", 0xFFFFFFFFu, 1, false},
        {"level 0", 0xFFFFFFFFu, 0, false},
        {"highest bit", QOR_LOG_STDOUT | 0x80000000u, 0x80000000u, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsvSetLogLevel(log, c.mask);
        EXPECT_EQ(QorOsdGetLogLevel(log), c.mask);
        EXPECT_EQ(messages([&] { QorOsvLog(log, c.level, "x"); }), c.passes ? "x\n" : "");
        EXPECT_EQ(messages([&] { QorOsvLogData(log, c.level, "x", "", 0, 0); }),
                  c.passes ? "x len=    0\n\n" : "");
        EXPECT_EQ(messages([&] { QorOsvvLogData(log, c.level, "", 0, 0, "x"); }),
                  c.passes ? "x len=    0\n\n" : "");
    }
    EXPECT_EQ(seams::takeSyslog(), "");
}

TEST_F(QorOsLog, DoesNothingWithoutALog) {
    QorOsLogRec* none = nullptr;
    expectMessages("", [&] {
        QorOsvSetLogLevel(none, 1);
        QorOsvResLogLevel(none, 1);
        QorOsvLog(none, QOR_LOG_ERROR, "x");
        QorOsvLogData(none, QOR_LOG_ERROR, "x", "", 0, 1);
        QorOsvvLogData(none, QOR_LOG_ERROR, "", 0, 1, "x");
        QorOsvLogDelete(&none);
        QorOsvLogDelete(nullptr);
    });
    EXPECT_EQ(QorOsdGetLogLevel(none), 0u);
}

TEST_F(QorOsLog, EvaluatesNothingForALevelThatIsOff) {
    int evaluated = 0;
    const auto write = [&] { QOROS_LOG(QOR_LOG_DEBUG, "%d", ++evaluated); };
    EXPECT_EQ(messages(write), "1\n");
    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    write();
    EXPECT_EQ(evaluated, 1);
}

TEST_F(QorOsLog, CutsTextsToTheirBuffers) {
    struct Case {
        std::size_t length;
        std::string tail; // after as many characters as the limit lets through
    };
    for (const Case& c : {Case{1541, "\n"}, Case{1542, ""}, Case{1543, ""}}) {
        SCOPED_TRACE(c.length);
        const std::string text(c.length, 'm');
        EXPECT_EQ(messages([&] { QorOsvLog(log, QOR_LOG_ERROR, "%s", text.c_str()); }),
                  text.substr(0, 1542) + c.tail);
    }
    // The stamp takes 24 of the header's 256 bytes.
    for (const std::size_t length : {231u, 232u, 233u, 300u}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'c');
        EXPECT_EQ(messages([&] { QorOsvLogData(log, QOR_LOG_ERROR, text.c_str(), "", 0, 0); }),
                  text.substr(0, 232) + " len=    0\n\n");
    }
    for (const Case& c : {Case{1266, " len=    0\n\n"}, Case{1267, " len=    0\n\n"},
                          Case{1268, " len=    0\n"}, Case{1279, ""}, Case{1280, ""}}) {
        SCOPED_TRACE(c.length);
        const std::string text(c.length, 'v');
        EXPECT_EQ(
            messages([&] { QorOsvvLogData(log, QOR_LOG_ERROR, "", 0, 0, "%s", text.c_str()); }),
            text.substr(0, 1279) + c.tail);
    }
}

// Without a stamp the whole caption shows, so that its own limit does. A stamp from earlier in this
// process would be kept, hence the fresh one.
TEST(QorOsLogDeathTest, CutsACaptionOf243) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto write = [] {
        seams::clock = seams::Clock::Broken;
        QorOsLogRec* log = QorOspLogNew();
        QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_ERROR);
        const std::string shown = standardOutput([&] {
            QorOsvLogData(log, QOR_LOG_ERROR, std::string(242, 'a').c_str(), "", 0, 0);
            QorOsvLogData(log, QOR_LOG_ERROR, std::string(243, 'b').c_str(), "", 0, 0);
        });
        QorOsvLogDelete(&log);
        const std::string rest = " len=    0\n\n";
        _exit(shown == " - " + std::string(242, 'a') + rest + " - " + std::string(241, 'b') + rest
                  ? 0
                  : 1);
    };
    EXPECT_EXIT(write(), testing::ExitedWithCode(0), "");
}

TEST_F(QorOsLog, StampsTheTimeByItsOwnCountOfYears) {
    struct Case {
        const char* name;
        int64_t seconds;
        int32_t microseconds;
        std::string expected;
    };
    const Case cases[] = {
        {"last of 1999", 946684799, 999999, "99-12-31 23:59:59,999"},
        {"2000 has three digits", 946684800, 0, "100-01-01 00:00:00,000"},
        {"last of 2000", 978307199, 1000, "100-12-31 23:59:59,001"},
        {"2001", 978307200, 999, "01-01-01 00:00:00,000"},
        {"a day in 2024", 1709210096, 70000, "24-02-29 12:34:56,070"},
    };
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    tzset();
    const auto write = [this] { QorOsvLog(log, QOR_LOG_ERROR, "x"); };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        seams::stopClockAt(c.seconds, c.microseconds);
        EXPECT_EQ(standardOutput(write), c.expected + " - x\n");
    }
    ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0);
    tzset();
    EXPECT_EQ(standardOutput(write), "24-02-29 14:34:56,070 - x\n");
    seams::clock = seams::Clock::Broken;
    EXPECT_EQ(standardOutput(write), "24-02-29 14:34:56,070 - x\n");
    unsetenv("TZ");
    tzset();
}

TEST_F(QorOsLog, KeepsErrno) {
    messages([this] {
        errno = ERANGE;
        QorOsvLog(log, QOR_LOG_ERROR, "%s", "x");
        QorOsvLogData(log, QOR_LOG_ERROR, "x", "y", 1, 1);
        QorOsvvLogData(log, QOR_LOG_ERROR, nullptr, 1, 1, "x");
        EXPECT_EQ(errno, ERANGE);
    });
}

TEST_F(QorOsLog, DumpsData) {
    unsigned char bytes[100];
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        bytes[i] = static_cast<unsigned char>('A' + i % 16);
    }
    const unsigned char limits[] = {0x1F, 0x20, 0x7F, 0x80, 0xFF};
    const int32_t numbers[20] = {10, 0, 0, 1, -1, INT32_MIN};
    const std::string row = "          41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50"
                            "   ABCDEFGHIJKLMNOP\n";
    const std::string four = "          41 42 43 44" + std::string(36, ' ') + "   ABCD\n";
    const std::string fifteen =
        "          41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F      ABCDEFGHIJKLMNO\n";
    struct Case {
        const char* name;
        const void* data;
        int32_t length;
        int32_t mode;
        std::string expected;
    };
    const Case cases[] = {
        {"20 bytes", bytes, 20, 1, " len=   20\n" + row + four + "\n"},
        {"no bytes", bytes, 0, 1, " len=    0\n\n"},
        {"negative length", bytes, -5, 1, " len=   -5\n\n"},
        {"one line", bytes, 16, 1, " len=   16\n" + row + "\n"},
        {"63 bytes", bytes, 63, 1, " len=   63\n" + row + row + row + fifteen + "\n"},
        {"64 bytes", bytes, 64, 1, " len=   64\n" + row + row + row + row + "\n"},
        {"100 bytes show 64", bytes, 100, 1, " len=  100\n" + row + row + row + row + "\n"},
        {"characters at their limits", limits, 5, 1,
         " len=    5\n          1F 20 7F 80 FF" + std::string(33, ' ') + "   . \x7F..\n\n"},
        {"address", numbers, 4, 2, " len=    4\n   10.0.0.1\n"},
        {"unaligned", reinterpret_cast<const char*>(numbers) + 1, 1, 2, " len=    1\n   0\n"},
        {"negative numbers", numbers + 4, 2, 2, " len=    2\n   -1.-2147483648\n"},
        {"16 numbers at most", numbers + 1, 17, 2,
         " len=   17\n   0.0.1.-1.-2147483648.0.0.0.0.0.0.0.0.0.0.0\n"},
        {"no number", numbers, 0, 2, " len=    0\n  \n"},
        {"negative count", numbers, -1, 2, " len=   -1\n  \n"},
        {"other mode", bytes, 12345, 3, " len=12345\n\n"},
        {"length of six digits", bytes, 123456, 0, " len=123456\n\n"},
        {"no data", nullptr, 20, 1, "\npvData = NULL !!!"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(
            messages([&] { QorOsvLogData(log, QOR_LOG_TRACE, "cap", c.data, c.length, c.mode); }),
            "cap" + c.expected);
        EXPECT_EQ(messages([&] {
                      QorOsvvLogData(log, QOR_LOG_TRACE, c.data, c.length, c.mode, "%s:%d", "f", 1);
                  }),
                  "f:1" + c.expected);
    }
    EXPECT_EQ(messages([&] { QorOsvLogData(log, QOR_LOG_TRACE, nullptr, "", 0, 0); }),
              " len=    0\n\n");
}

// The whole dump " len=    2\n", nine spaces, ..., cut by whole pieces, two bytes before the end.
TEST(QorOsLogDump, TakesWholePiecesThatFit) {
    struct Case {
        std::size_t size;
        int32_t mode;
        std::string expected;
    };
    const std::string head = " len=    2\n";
    const Case cases[] = {
        {0, 1, "#"},
        {1, 1, ""},
        {2, 1, " "},
        {11, 1, " len=    2"},
        {12, 1, head},
        {13, 1, head + "\n"},
        {21, 1, head + "\n"},
        {22, 1, head + std::string(9, ' ') + "\n"},
        {24, 1, head + std::string(9, ' ') + "\n"},
        {25, 1, head + std::string(9, ' ') + " 41\n"},
        {15, 2, head + "\n"},
        {16, 2, head + "  \n"},
        {18, 2, head + "   7\n"},
        {20, 2, head + "   7\n"},
        {21, 2, head + "   7.88\n"},
    };
    const unsigned char bytes[] = {'A', 'B'};
    const int32_t numbers[] = {7, 88};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "size " << c.size << " mode " << c.mode);
        std::string out(40, '#');
        const void* const data = c.mode == 1 ? static_cast<const void*>(bytes) : numbers;
        vPrepLogData(out.data(), c.size, data, 2, c.mode);
        EXPECT_EQ(out.find_first_not_of('#', c.size), std::string::npos) << "wrote behind the size";
        EXPECT_EQ(c.size == 0 ? "#" : out.c_str(), c.expected);
    }
}

TEST_F(QorOsLog, SharesTheMaskWithAnotherProcess) {
    support::Gate attached;
    support::Gate set;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    support::ChildProcess other([&] {
        QorOsLogRec* own = QorOspLogNew();
        attached.open();
        set.wait();
        // What the first process set decides.
        expectMessages("d\n", [&] { QorOsvLog(own, QOR_LOG_DEBUG, "d"); });
        QorOsvResLogLevel(own, QOR_LOG_STDOUT);
        QorOsvLog(own, QOR_LOG_DEBUG, "s");
        EXPECT_NE(seams::takeSyslog().find(text("%d s\n", LOG_INFO)), std::string::npos);
        QorOsvSetLogLevel(own, QOR_LOG_ERROR);
        QorOsvLogDelete(&own);
    });
    ASSERT_TRUE(attached.wait());
    const auto* const block = static_cast<const QorOsShmCtl*>(log->shm.address);
    EXPECT_EQ(block->ShmUsers, 2u);
    EXPECT_EQ(QorOsdGetLogLevel(log), 0u);
    QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_DEBUG);
    set.open();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(QorOsdGetLogLevel(log), QOR_LOG_DEBUG | QOR_LOG_ERROR);
    EXPECT_EQ(block->ShmUsers, 1u);
    EXPECT_EQ(block->Log, QorOsdGetLogLevel(log));
}

TEST_F(QorOsLog, LeavesWithItsLastUser) {
    pstLog = nullptr;
    const key_t key = static_cast<key_t>(QOR_SHM_KEY);
    shmid_ds status{};
    ASSERT_EQ(shmctl(shmget(key, 0, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 500u);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
    QorOsLogRec* second = QorOspLogNew();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->shm.created, 0u);
    EXPECT_EQ(static_cast<QorOsShmCtl*>(second->shm.address)->ShmUsers, 2u);
    QorOsvLogDelete(&second);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(shmget(key, 0, 0), -1);
    QorOsvLogDelete(&log);
    EXPECT_EQ(shmget(key, 0, 0), -1);
}

TEST_F(QorOsLog, TakesMessagesFromSeveralThreads) {
    const std::string shown = messages([this] {
        const auto write = [this](const char* name) {
            for (int i = 0; i < 200; ++i) {
                QorOsvLog(log, QOR_LOG_TRACE, "%s", name);
                QorOsvSetLogLevel(log, QOR_LOG_FATAL);
            }
        };
        std::thread first(write, "a");
        write("b");
        first.join();
    });
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'a'), 200);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'b'), 200);
}

} // namespace
