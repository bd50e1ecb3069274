#include <sys/shm.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cwchar>
#include <regex>
#include <thread>
#include <utility>

#include "child_process.h"
#include "own_log.h"

namespace {

class QorOsLog : public OwnLog {};

const std::string stampPattern = R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )";

TEST_F(QorOsLog, WritesToStandardOutputWithAStampOrToSyslogWithout) {
    const auto write = [this] { QorOsvLog(log, QOR_LOG_DEBUG, "DEBUG %d", 7); };
    const std::string shown = standardOutput(write);
    EXPECT_TRUE(std::regex_match(shown, std::regex(stampPattern + "DEBUG 7\n"))) << shown;
    EXPECT_EQ(seams::takeSyslog(), "");

    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    EXPECT_EQ(standardOutput([&] { (write(), write()); }), "");
    const std::string info = text("%d DEBUG 7\n", LOG_INFO);
    const std::string sent = seams::takeSyslog();
    if (sent != info + info) { // only the first message of a process opens
        EXPECT_EQ(sent, text("open QorOsLog %d %d\n", LOG_PID, LOG_USER) + info + info);
    }
}

TEST_F(QorOsLog, LetsALevelThroughThatSharesABitOtherThanTheSelector) {
    struct Case {
        uint32_t mask;
        uint32_t level;
        bool passes;
    };
    const Case cases[] = {
        {QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_TRACE, true},
        {QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_DEBUG, false},
        {QOR_LOG_STDOUT | QOR_LOG_FATAL, QOR_LOG_FATAL | QOR_LOG_DEBUG, true},
        {QOR_LOG_STDOUT | 2, 2, true},
        {0xFFFFFFFF, 1, false},
        {0xFFFFFFFF, 0, false},
        {QOR_LOG_STDOUT | 0x80000000, 0x80000000, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(text("level %X under %X", c.level, c.mask));
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsvSetLogLevel(log, c.mask);
        EXPECT_EQ(QorOsdGetLogLevel(log), c.mask);
        expectMessages(c.passes ? "x\nx len=    0\n\nx len=    0\n\n" : "", [&] {
            QorOsvLog(log, c.level, "x");
            QorOsvLogData(log, c.level, "x", "", 0, 0);
            QorOsvvLogData(log, c.level, "", 0, 0, "x");
        });
    }
    EXPECT_EQ(seams::takeSyslog(), "");
}

TEST_F(QorOsLog, DoesNothingWithoutALogOrLevel) {
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
    // Nor are arguments evaluated for a level that is off.
    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    int evaluated = 0;
    QOROS_LOG(QOR_LOG_DEBUG, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
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
    constexpr wint_t euro = 0x20AC; // unknown in the locale "C"
    expectMessages("ab\nab len=    0\n\n", [&] {
        QorOsvLog(log, QOR_LOG_ERROR, "ab%lc", euro);
        QorOsvvLogData(log, QOR_LOG_ERROR, "", 0, 0, "ab%lc", euro);
    });
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

// A process counts its time from its first log object on, and shows captions whole as long as it
// has no stamp; hence the fresh one.
TEST(QorOsLogDeathTest, BeginsWithoutAStamp) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto write = [] {
        seams::stopClockAt(100, 0);
        QorOsLogRec* log = QorOspLogNew();
        seams::stopClockAt(107, 0);
        const bool counted = QorOsGetUpTime() == 7;
        seams::clock = seams::Clock::Broken;
        QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_ERROR);
        const std::string shown = standardOutput([&] {
            QorOsvLogData(log, QOR_LOG_ERROR, std::string(242, 'a').c_str(), "", 0, 0);
            QorOsvLogData(log, QOR_LOG_ERROR, std::string(243, 'b').c_str(), "", 0, 0);
        });
        const std::string rest = " len=    0\n\n";
        const std::string captions =
            " - " + std::string(242, 'a') + rest + " - " + std::string(241, 'b') + rest;
        _exit(counted && shown == captions ? 0 : 1);
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
    QorOsLogRec* second = QorOspLogNew(); // takes the time zone of its creation
    EXPECT_EQ(standardOutput(write), "24-02-29 14:34:56,070 - x\n");
    QorOsvLogDelete(&second);
    seams::clock = seams::Clock::Broken;
    EXPECT_EQ(standardOutput(write), "24-02-29 14:34:56,070 - x\n");
    unsetenv("TZ");
    tzset();
}

TEST_F(QorOsLog, KeepsErrno) {
    messages([this] {
        for (int i = 0; i < 2; ++i) { // on standard output and to syslog
            errno = ERANGE;
            QorOsvLog(log, QOR_LOG_ERROR, "%s", "x");
            EXPECT_EQ(std::exchange(errno, EDOM), ERANGE);
            QorOsvLogData(log, QOR_LOG_ERROR, "x", "y", 1, 1);
            EXPECT_EQ(std::exchange(errno, ERANGE), EDOM);
            QorOsvvLogData(log, QOR_LOG_ERROR, nullptr, 1, 1, "x");
            EXPECT_EQ(errno, ERANGE);
            QOROS_LOG(QOR_LOG_ERROR, "%d", errno = EIO);
            EXPECT_EQ(errno, ERANGE);
            QorOsvResLogLevel(log, QOR_LOG_STDOUT);
        }
    });
}

TEST_F(QorOsLog, GivesEachMessageTheLevelOfItsWord) {
    const auto scenario = [] {
        QorOsMmf mmf;
        QorOsMmfCreate(&mmf, 1, "/no/file", 0, 0); // FATAL
        QorOsMmfOpen(&mmf, nullptr, 0x51420002);   // ERROR
        QorOsMmfCreate(&mmf, 1, nullptr, 0, 0);    // 2 TRACE
        const void* const block = mmf.address;
        QorOsMmfClose(&mmf); // 2 TRACE
        shmdt(block);
        QorOsMmfFlush(nullptr, nullptr, UINT32_MAX); // ERROR
        uint64_t handle = 7;
        QorOsThreadCancel(&handle); // ERROR
        QorOsThreadBegin(
            &handle, [](void* none) { return none; }, 0, nullptr); // TRACE
        uint32_t state = 1;
        QorOsThreadStop(nullptr, &state, 1, nullptr, 0, nullptr);  // 2 TRACE, ERROR
        QorOsThreadStop(nullptr, nullptr, 1, nullptr, 0, nullptr); // ERROR
        QorOsSetShutdown();                                        // ERROR
        QorOsSetSystemUp();
    };
    struct Case {
        uint32_t bit;
        const char* lines;
    };
    seams::onSleep = [](const timeval&) { return 0; };
    for (const Case& c :
         {Case{QOR_LOG_FATAL, "(FATAL .*\n){1}"}, Case{QOR_LOG_TRACE, "(TRACE .*\n){7}"},
          Case{QOR_LOG_ERROR, "((ERROR |INFO  |### ).*\n){6}"}, Case{QOR_LOG_DEBUG, ""}}) {
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsvSetLogLevel(log, QOR_LOG_STDOUT | c.bit);
        const std::string shown = messages(scenario);
        EXPECT_TRUE(std::regex_match(shown, std::regex(c.lines))) << c.lines << "\n" << shown;
    }
}

// A datagram for each write: what stood in the buffer goes first, and nothing stays in it.
TEST_F(QorOsLog, FlushesStandardOutputBeforeAndAfter) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    support::ChildProcess writer([&] {
        dup2(ends[1], STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        fputs("before", stdout);
        QorOsvLog(log, QOR_LOG_ERROR, "x");
        _exit(0);
    });
    EXPECT_EQ(writer.wait(), 0);
    char sent[2][100] = {};
    EXPECT_EQ(recv(ends[0], sent[0], 99, MSG_DONTWAIT), 6);
    EXPECT_EQ(recv(ends[0], sent[1], 99, MSG_DONTWAIT), 26) << sent[1];
    close(ends[0]);
    close(ends[1]);
}

TEST_F(QorOsLog, DumpsData) {
    const std::string bytes = "ABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOP...";
    const unsigned char limits[] = {0x1F, 0x20, 0x7F, 0x80, 0xFF};
    const int32_t numbers[20] = {10, 0, 0, 1, -1, INT32_MIN};
    const std::string indent(9, ' ');
    const std::string fifteen = indent + " 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F";
    const std::string row = fifteen + " 50   ABCDEFGHIJKLMNOP\n";
    const std::string rows = row + row + row;
    const std::string four = indent + " 41 42 43 44" + std::string(36, ' ') + "   ABCD\n";
    struct Case {
        const char* name;
        const void* data;
        int32_t length;
        int32_t mode;
        std::string expected;
        std::size_t size = 1280;
    };
    const Case cases[] = {
        {"20 bytes", bytes.data(), 20, 1, " len=   20\n" + row + four + "\n"},
        {"no bytes", bytes.data(), 0, 1, " len=    0\n\n"},
        {"negative length", bytes.data(), -5, 1, " len=   -5\n\n"},
        {"one line", bytes.data(), 16, 1, " len=   16\n" + row + "\n"},
        {"63 bytes", bytes.data(), 63, 1,
         " len=   63\n" + rows + fifteen + "      ABCDEFGHIJKLMNO\n\n"},
        {"64 bytes", bytes.data(), 64, 1, " len=   64\n" + rows + row + "\n"},
        {"65 bytes show 64", bytes.data(), 65, 1, " len=   65\n" + rows + row + "\n"},
        {"characters at their limits", limits, 5, 1,
         " len=    5\n" + indent + " 1F 20 7F 80 FF" + std::string(36, ' ') + ". \x7F..\n\n"},
        {"address", numbers, 4, 2, " len=    4\n   10.0.0.1\n"},
        {"unaligned", reinterpret_cast<const char*>(numbers) + 1, 1, 2, " len=    1\n   0\n"},
        {"negative numbers", numbers + 4, 2, 2, " len=    2\n   -1.-2147483648\n"},
        {"16 numbers at most", numbers + 1, 17, 2,
         " len=   17\n   0.0.1.-1.-2147483648.0.0.0.0.0.0.0.0.0.0.0\n"},
        {"no number", numbers, 0, 2, " len=    0\n  \n"},
        {"negative count", numbers, -1, 2, " len=   -1\n  \n"},
        {"other mode", nullptr, 12345, 3, " len=12345\n\n"},
        {"length of six digits", nullptr, 123456, 0, " len=123456\n\n"},
        // Cut by whole pieces, two bytes before the end.
        {"size 0", bytes.data(), 2, 1, "#", 0},
        {"size 1", bytes.data(), 2, 1, "", 1},
        {"size 11", bytes.data(), 2, 1, " len=    2", 11},
        {"size 12", bytes.data(), 2, 1, " len=    2\n", 12},
        {"size 13", bytes.data(), 2, 1, " len=    2\n\n", 13},
        {"size 21", bytes.data(), 2, 1, " len=    2\n\n", 21},
        {"size 22", bytes.data(), 2, 1, " len=    2\n" + indent + "\n", 22},
        {"size 24", bytes.data(), 2, 1, " len=    2\n" + indent + "\n", 24},
        {"size 25", bytes.data(), 2, 1, " len=    2\n" + indent + " 41\n", 25},
        {"numbers, size 15", numbers, 2, 2, " len=    2\n\n", 15},
        {"numbers, size 16", numbers, 2, 2, " len=    2\n  \n", 16},
        {"numbers, size 18", numbers, 2, 2, " len=    2\n  \n", 18},
        {"numbers, size 19", numbers, 2, 2, " len=    2\n   10\n", 19},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string out(1300, '#');
        vPrepLogData(out.data(), c.size, c.data, c.length, c.mode);
        EXPECT_EQ(out.find_first_not_of('#', c.size), std::string::npos) << "wrote behind the size";
        EXPECT_EQ(c.size == 0 ? "#" : out.c_str(), c.expected);
    }
    const std::string none = "\npvData = NULL !!!";
    const std::string dump = cases[0].expected;
    expectMessages(dump + "cap" + dump + "f:1" + dump + "f:2" + none, [&] {
        QorOsvLogData(log, QOR_LOG_TRACE, nullptr, bytes.data(), 20, 1);
        QorOsvLogData(log, QOR_LOG_TRACE, "cap", bytes.data(), 20, 1);
        QorOsvvLogData(log, QOR_LOG_TRACE, bytes.data(), 20, 1, "%s:%d", "f", 1);
        QorOsvvLogData(log, QOR_LOG_TRACE, nullptr, 20, 1, "%s:%d", "f", 2);
    });
    expectMessages("cap" + none,
                   [this] { QorOsvLogData(log, QOR_LOG_TRACE, "cap", nullptr, 20, 1); });
}

TEST_F(QorOsLog, SharesTheMaskWithAnotherProcessUntilTheLastUserLeaves) {
    support::Gate attached;
    support::Gate set;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    support::ChildProcess other([&] {
        QorOsLogRec* own = QorOspLogNew();
        attached.open();
        set.wait();
        // What the first process set decides.
        const std::string shown = standardOutput([&] { QorOsvLog(own, QOR_LOG_DEBUG, "d"); });
        EXPECT_TRUE(std::regex_match(shown, std::regex(stampPattern + "d\n"))) << shown;
        QorOsvResLogLevel(own, QOR_LOG_STDOUT);
        QorOsvLog(own, QOR_LOG_DEBUG, "s");
        EXPECT_NE(seams::takeSyslog().find(text("%d s\n", LOG_INFO)), std::string::npos);
        QorOsvSetLogLevel(own, QOR_LOG_ERROR);
        QorOsvLogDelete(&own);
        EXPECT_EQ(own, nullptr);
    });
    ASSERT_TRUE(attached.wait());
    const auto* const block = static_cast<const QorOsShmCtl*>(log->shm.address);
    EXPECT_EQ(block->ShmUsers, 2u);
    EXPECT_EQ(QorOsdGetLogLevel(log), 0u);
    QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_DEBUG);
    set.open();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(block->Log, QOR_LOG_DEBUG | QOR_LOG_ERROR);
    EXPECT_EQ(block->ShmUsers, 1u);

    shmid_ds status{};
    ASSERT_EQ(shmctl(shmget(QOR_SHM_KEY, 0, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 500u);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
    pstLog = nullptr;
    QorOsvLogDelete(&log);
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
}

TEST_F(QorOsLog, TakesMessagesFromSeveralThreads) {
    const auto write = [this](const char* name) {
        for (int i = 0; i < 200; ++i) {
            QorOsvLog(log, QOR_LOG_TRACE, "%s", name);
            QorOsvSetLogLevel(log, QOR_LOG_FATAL);
        }
    };
    const std::string shown = messages([&] {
        std::thread first(write, "a");
        write("b");
        first.join();
    });
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'a'), 200);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'b'), 200);
}

} // namespace
