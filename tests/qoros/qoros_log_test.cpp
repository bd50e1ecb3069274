#include <sys/shm.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cwchar>
#include <regex>
#include <thread>

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
    const auto check = [this](uint32_t mask, uint32_t level, bool passes) {
        SCOPED_TRACE(text("level %X under %X", level, mask));
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsvSetLogLevel(log, mask);
        EXPECT_EQ(QorOsdGetLogLevel(log), mask);
        expectMessages(passes ? "x\nx len=    0\n\nx len=    0\n\n" : "", [&] {
            QorOsvLog(log, level, "x");
            QorOsvLogData(log, level, "x", "", 0, 0);
            QorOsvvLogData(log, level, "", 0, 0, "x");
        });
    };
    check(QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_DEBUG, false);
    check(QOR_LOG_STDOUT | QOR_LOG_FATAL, QOR_LOG_FATAL | QOR_LOG_DEBUG, true);
    check(QOR_LOG_STDOUT | 2, 2, true);
    check(0xFFFFFFFF, 1, false);
    check(0xFFFFFFFF, 0, false);
    check(QOR_LOG_STDOUT | 0x80000000, 0x80000000, true);
    EXPECT_EQ(seams::takeSyslog(), "");
}

TEST_F(QorOsLog, DoesNothingWithoutALogOrLevel) {
    QorOsLogRec* none = nullptr;
    QorOsvSetLogLevel(none, 1);
    QorOsvResLogLevel(none, 1);
    QorOsvLog(none, QOR_LOG_ERROR, "x");
    QorOsvLogData(none, QOR_LOG_ERROR, "x", "", 0, 1);
    QorOsvvLogData(none, QOR_LOG_ERROR, "", 0, 1, "x");
    QorOsvLogDelete(&none);
    QorOsvLogDelete(nullptr);
    EXPECT_EQ(QorOsdGetLogLevel(none), 0u);
    // Nor are arguments evaluated for a level that is off.
    QorOsvResLogLevel(log, QOR_LOG_DEBUG);
    int evaluated = 0;
    QOROS_LOG(QOR_LOG_DEBUG, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

TEST_F(QorOsLog, CutsTextsToTheirBuffers) {
    // Each text shows as many characters as the limit lets through, and then what fits behind it.
    const auto check = [](const auto& write, std::size_t limit, std::size_t length,
                          const std::string& tail) {
        SCOPED_TRACE(length);
        const std::string text(length, 'm');
        expectMessages(text.substr(0, limit) + tail, [&] { write(text.c_str()); });
    };
    const auto line = [this](const char* text) { QorOsvLog(log, QOR_LOG_ERROR, "%s", text); };
    check(line, 1542, 1541, "\n");
    check(line, 1542, 1542, "");
    check(line, 1542, 1543, "");
    const auto caption = [this](const char* text) {
        QorOsvLogData(log, QOR_LOG_ERROR, text, "", 0, 0);
    };
    check(caption, 232, 232, " len=    0\n\n"); // the stamp takes 24 of the header's 256 bytes
    check(caption, 232, 233, " len=    0\n\n");
    const auto dump = [this](const char* text) {
        QorOsvvLogData(log, QOR_LOG_ERROR, "", 0, 0, "%s", text);
    };
    check(dump, 1279, 1267, " len=    0\n\n");
    check(dump, 1279, 1268, " len=    0\n");
    check(dump, 1279, 1279, "");
    check(dump, 1279, 1280, "");
    constexpr wint_t euro = 0x20AC; // unknown in the locale "C"
    expectMessages("ab\n", [&] { QorOsvLog(log, QOR_LOG_ERROR, "ab%lc", euro); });
}

// A process counts its time from its first log object on, and shows captions whole as long as it
// has no stamp; hence the fresh one.
TEST(QorOsLogDeathTest, BeginsWithoutAStamp) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto write = [] {
        seams::stopClockAt(100, 0);
        QorOsLogRec* log = QorOspLogNew();
        seams::stopClockAt(107, 0);
        EXPECT_EQ(QorOsGetUpTime(), 7);
        seams::clock = seams::Clock::Broken;
        QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_ERROR);
        const std::string rest = " len=    0\n\n";
        EXPECT_EQ(standardOutput([&] {
                      QorOsvLogData(log, QOR_LOG_ERROR, std::string(242, 'a').c_str(), "", 0, 0);
                      QorOsvLogData(log, QOR_LOG_ERROR, std::string(243, 'b').c_str(), "", 0, 0);
                  }),
                  " - " + std::string(242, 'a') + rest + " - " + std::string(241, 'b') + rest);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(write(), testing::ExitedWithCode(0), "");
}

TEST_F(QorOsLog, StampsTheTimeByItsOwnCountOfYears) {
    const auto write = [this] { QorOsvLog(log, QOR_LOG_ERROR, "x"); };
    const auto check = [&](int64_t seconds, int32_t microseconds, const std::string& stamp) {
        seams::stopClockAt(seconds, microseconds);
        EXPECT_EQ(standardOutput(write), stamp + " - x\n");
    };
    ASSERT_EQ(setenv("TZ", "UTC", 1), 0);
    tzset();
    check(946684799, 999999, "99-12-31 23:59:59,999");
    check(946684800, 0, "100-01-01 00:00:00,000");
    check(978307199, 1000, "100-12-31 23:59:59,001");
    check(978307200, 999, "01-01-01 00:00:00,000");
    ASSERT_EQ(setenv("TZ", "XYZ-2", 1), 0);
    QorOsLogRec* second = QorOspLogNew(); // takes the time zone of its creation
    check(1709210096, 70000, "24-02-29 14:34:56,070");
    QorOsvLogDelete(&second);
    seams::clock = seams::Clock::Broken;
    EXPECT_EQ(standardOutput(write), "24-02-29 14:34:56,070 - x\n");
    unsetenv("TZ");
    tzset();
}

TEST_F(QorOsLog, KeepsErrno) {
    const auto check = [](int before, const std::function<void()>& write) {
        errno = before;
        write();
        EXPECT_EQ(errno, before);
    };
    messages([&] {
        for (int i = 0; i < 2; ++i) { // on standard output and to syslog
            check(ERANGE, [&] { QorOsvLog(log, QOR_LOG_ERROR, "%s", "x"); });
            check(EDOM, [&] { QorOsvLogData(log, QOR_LOG_ERROR, "x", "y", 1, 1); });
            check(ERANGE, [&] { QorOsvvLogData(log, QOR_LOG_ERROR, nullptr, 1, 1, "x"); });
            check(EDOM, [] { QOROS_LOG(QOR_LOG_ERROR, "%d", errno = EIO); });
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
    seams::onSleep = [](const timeval&) { return 0; };
    const auto check = [&](uint32_t bit, const char* lines) {
        QorOsvResLogLevel(log, 0xFFFFFFFFu);
        QorOsvSetLogLevel(log, QOR_LOG_STDOUT | bit);
        const std::string shown = messages(scenario);
        EXPECT_TRUE(std::regex_match(shown, std::regex(lines))) << lines << "\n" << shown;
    };
    check(QOR_LOG_FATAL, "(FATAL .*\n){1}");
    check(QOR_LOG_TRACE, "(TRACE .*\n){7}");
    check(QOR_LOG_ERROR, "((ERROR |INFO  |### ).*\n){6}");
    check(QOR_LOG_DEBUG, "");
}

void expectDump(std::size_t size, const void* data, int32_t length, int32_t mode,
                const std::string& expected) {
    SCOPED_TRACE(text("%d in mode %d into %zu bytes", length, mode, size));
    std::string out(1300, '#');
    vPrepLogData(out.data(), size, data, length, mode);
    EXPECT_EQ(out.find_first_not_of('#', size), std::string::npos) << "wrote behind the size";
    EXPECT_EQ(size == 0 ? "#" : out.c_str(), expected);
}

TEST_F(QorOsLog, DumpsData) {
    const char* const bytes = "ABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOP...";
    const unsigned char limits[] = {0x1F, 0x20, 0x7F, 0x80, 0xFF};
    const int32_t numbers[20] = {10, 0, 0, 1, -1, INT32_MIN};
    const std::string indent(9, ' ');
    const std::string fifteen = indent + " 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F";
    const std::string row = fifteen + " 50   ABCDEFGHIJKLMNOP\n";
    const std::string rows = row + row + row;
    const std::string four = indent + " 41 42 43 44" + std::string(36, ' ') + "   ABCD\n";
    const std::string five = indent + " 1F 20 7F 80 FF" + std::string(36, ' ') + ". \x7F..\n";
    const std::string twenty = " len=   20\n" + row + four + "\n";

    expectDump(1280, bytes, 20, 1, twenty);
    expectDump(1280, bytes, 16, 1, " len=   16\n" + row + "\n");
    expectDump(1280, bytes, 63, 1, " len=   63\n" + rows + fifteen + "      ABCDEFGHIJKLMNO\n\n");
    expectDump(1280, bytes, 65, 1, " len=   65\n" + rows + row + "\n");
    expectDump(1280, limits, 5, 1, " len=    5\n" + five + "\n");
    expectDump(1280, numbers, 4, 2, " len=    4\n   10.0.0.1\n");
    expectDump(1280, reinterpret_cast<const char*>(numbers) + 1, 1, 2, " len=    1\n   0\n");
    expectDump(1280, numbers + 4, 17, 2,
               " len=   17\n   -1.-2147483648.0.0.0.0.0.0.0.0.0.0.0.0.0.0\n");
    expectDump(1280, numbers, 0, 2, " len=    0\n  \n");
    expectDump(1280, nullptr, 123456, 3, " len=123456\n\n");
    // Cut by whole pieces, two bytes before the end.
    expectDump(0, bytes, 2, 1, "#");
    expectDump(1, bytes, 2, 1, "");
    expectDump(12, bytes, 2, 1, " len=    2\n");
    expectDump(22, bytes, 2, 1, " len=    2\n" + indent + "\n");
    expectDump(25, bytes, 2, 1, " len=    2\n" + indent + " 41\n");
    expectDump(18, numbers, 2, 2, " len=    2\n  \n");
    expectDump(19, numbers, 2, 2, " len=    2\n   10\n");

    const std::string none = "\npvData = NULL !!!";
    expectMessages(twenty + "cap" + twenty + "f:1" + twenty + "f:2" + none + "\ncap" + none, [&] {
        QorOsvLogData(log, QOR_LOG_TRACE, nullptr, bytes, 20, 1);
        QorOsvLogData(log, QOR_LOG_TRACE, "cap", bytes, 20, 1);
        QorOsvvLogData(log, QOR_LOG_TRACE, bytes, 20, 1, "%s:%d", "f", 1);
        QorOsvvLogData(log, QOR_LOG_TRACE, nullptr, 20, 1, "%s:%d", "f", 2);
        fputs("\n", stdout);
        QorOsvLogData(log, QOR_LOG_TRACE, "cap", nullptr, 20, 1);
    });
}

TEST_F(QorOsLog, SharesTheMaskWithAnotherProcessUntilTheLastUserLeaves) {
    Gate attached;
    Gate set;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    const pid_t other = startChild([&] {
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
    EXPECT_EQ(waitForChild(other), 0);
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

TEST_F(QorOsLog, FlushesStandardOutputBeforeAndAfter) {
    int ends[2]; // of a datagram socket, which keeps what was flushed apart
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    const pid_t writer = startChild([&] {
        dup2(ends[1], STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        fputs("before", stdout);
        QorOsvLog(log, QOR_LOG_ERROR, "x");
        _exit(0);
    });
    EXPECT_EQ(waitForChild(writer), 0);
    char sent[100];
    EXPECT_EQ(recv(ends[0], sent, sizeof sent, MSG_DONTWAIT), 6);
    EXPECT_EQ(recv(ends[0], sent, sizeof sent, MSG_DONTWAIT), 26);
    close(ends[0]);
    close(ends[1]);
}

} // namespace
