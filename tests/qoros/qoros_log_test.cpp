#include <sys/shm.h>

#include <algorithm>

#include "own_log.h"

namespace {

using QorOsLog = OwnLog;

TEST_F(QorOsLog, GoesWhereTheMaskSendsIt) {
    const std::string shown = "7\nx len=    0\n\ny len=    0\n\n";
    const std::string sent = "6 7\n6  len=    0\n\n6 y len=    0\n\n";
    const auto check = [&](QorOsLogRec* to, uint32_t mask, uint32_t level,
                           const std::string& lines) {
        SCOPED_TRACE(text("level %X under %X", level, mask));
        *log->mask = mask;
        seams::clockReads = 0;
        errno = ENOENT;
        const std::string output = messages([&] {
            QorOsvLog(to, level, "%d", 7);
            QorOsvLogData(to, level, "x", "", 0, 0);
            QorOsvvLogData(to, level, "", 0, 0, "y");
            QOROS_LOG(~mask, "%d", errno = EDOM); // is not evaluated
        });
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(output + std::exchange(seams::syslogText, ""), lines);
        EXPECT_EQ(seams::clockReads == 0, lines.empty());
    };
    check(log, QOR_LOG_STDOUT | QOR_LOG_TRACE, QOR_LOG_DEBUG, "");
    check(log, QOR_LOG_STDOUT | QOR_LOG_FATAL, QOR_LOG_FATAL | QOR_LOG_DEBUG, shown);
    check(log, QOR_LOG_DEBUG, QOR_LOG_DEBUG, sent);
    check(log, 0xFFFFFFFF, QOR_LOG_STDOUT, "");
    check(nullptr, QOR_LOG_ERROR, QOR_LOG_ERROR, "");
    EXPECT_EQ(seams::syslogOpened, "QorOsLog 1 8");
}

TEST_F(QorOsLog, TellsWhatASearchLooksAt) {
    const auto search = [this](const char* pattern, uint32_t level) {
        *log->mask = QOR_LOG_STDOUT | level;
        QorOsFind find;
        char name[QOR_PATH_SIZE];
        return messages([&] { QorOsFindFirst(&find, pattern, name, nullptr, nullptr, nullptr); });
    };
    EXPECT_EQ(search("no/x*", QOR_LOG_ERROR),
              "ERROR FindFirst: opendir failed: 2=No such file or directory\n");
    EXPECT_EQ(search("no/x*", QOR_LOG_TRACE),
              "TRACE FindFirst: splitted input - path=no, file=x*\n");
    const std::string looked = "TRACE FindNext: file = .. ; search file = ..*x\n";
    EXPECT_NE(search("..*x", QOR_LOG_TRACE).find(looked), std::string::npos);
}

TEST_F(QorOsLog, CutsAndDumps) {
    const auto bytes = "ABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOPABCDEFGHIJKLMNOP...";
    const int32_t numbers[20] = {10, 0, 0, 1, -1, INT32_MIN};
    const std::string row =
        "          41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50   ABCDEFGHIJKLMNOP\n";
    const std::string limits = "          1F 20 7F 80 FF" + std::string(36, ' ') + ". \x7F..\n\n";
    // Behind a caption of a length that leaves fewer of the 1280 bytes.
    const auto check = [this](size_t caption, const void* data, int32_t length, int32_t mode,
                              const std::string& expected) {
        const std::string text(caption, 'c');
        const std::string shown = messages(
            [&] { QorOsvvLogData(log, QOR_LOG_TRACE, data, length, mode, "%s", text.c_str()); });
        EXPECT_EQ(shown, text.substr(0, 1279) + expected);
    };
    check(0, bytes, 65, 1, " len=   65\n" + row + row + row + row + "\n");
    check(0, "\x1F\x20\x7F\x80\xFF", 5, 1, " len=    5\n" + limits);
    check(0, numbers, 17, 2, " len=   17\n   10.0.0.1.-1.-2147483648.0.0.0.0.0.0.0.0.0.0\n");
    check(0, numbers, -1, 2, " len=   -1\n  \n"); // kept: one of the three spaces goes
    check(0, nullptr, 1, 1, "\npvData = NULL !!!");
    check(1255, bytes, 2, 1, " len=    2\n          41\n");
    check(1262, numbers, 2, 2, " len=    2\n  \n");
    check(1280, bytes, 2, 1, "");
    const std::string text(1543, 'm');
    EXPECT_EQ(messages([&] { QorOsvLog(log, QOR_LOG_ERROR, "%s", text.c_str()); }), text.substr(1));
}

// A process counts its time from its first log object on, and shows captions whole as long as it
// has no stamp; hence the fresh one.
TEST(QorOsLogDeathTest, StampsTheTimeByItsOwnCountOfYears) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto check = [](const char* zone, timeval now, const std::string& caption,
                          const std::string& shown) {
        EXPECT_EQ(setenv("TZ", zone, 1), 0);
        seams::stoppedAt = now;
        QorOsLogRec* log = QorOspLogNew(); // takes the time zone
        QorOsvSetLogLevel(log, 3);
        testing::internal::CaptureStdout();
        QorOsvLogData(log, 2, caption.c_str(), nullptr, 0, 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), shown + "\npvData = NULL !!!");
        QorOsvLogDelete(&log);
    };
    const auto stamp = [&] {
        const std::string a(243, 'a');
        check("UTC", {100, -1}, a.substr(1), " - " + a.substr(1));
        check("UTC", {100, -1}, a, " - " + a.substr(2));
        check("UTC", {978307199, 1000}, a, "100-12-31 23:59:59,001 - " + a.substr(12));
        check("XYZ-2", {978300000, 999}, "x", "01-01-01 00:00:00,000 - x");
        check("UTC", {107, -1}, "x", "01-01-01 00:00:00,000 - x");
        exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(stamp(), testing::ExitedWithCode(0), "");
}

TEST_F(QorOsLog, SharesTheMaskWithAnotherProcess) {
    const auto other = [] {
        QorOsLogRec* own = QorOspLogNew();
        QorOsvSetLogLevel(own, QOR_LOG_STDOUT | QOR_LOG_DEBUG);
        QorOsvLog(own, QOR_LOG_DEBUG, "other");
        QorOsvLogDelete(&own);
        _exit(0); // what is not flushed is lost
    };
    *log->mask = QOR_LOG_ERROR;
    const std::string shown = messages([&] {
        EXPECT_EQ(waitForChild(startChild(other)), 0);
        QorOsvLog(log, QOR_LOG_DEBUG, "this");
    });
    EXPECT_EQ(shown, "other\nthis\n");
    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    EXPECT_EQ(QorOsdGetLogLevel(log), QOR_LOG_DEBUG | QOR_LOG_ERROR);
    shmid_ds status{};
    ASSERT_EQ(shmctl(shmget(QOR_SHM_KEY, 500, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
}

TEST_F(QorOsLog, TakesMessagesFromTwoThreads) {
    const auto write = [this](int) { QorOsvLog(log, QOR_LOG_TRACE, "a"); };
    const std::string shown = messages([&] { inThreads(2, write); });
    EXPECT_EQ(std::count(shown.begin(), shown.end(), 'a'), 2);
}

} // namespace
