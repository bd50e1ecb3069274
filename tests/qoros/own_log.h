// What the tests of the OS layer's internals share: calls of the system that they replace, the
// messages that the layer writes, and second processes.
#pragma once

#include <gtest/gtest.h>

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "qoros/src/linux/qoros_internal.h"

namespace seams {

// The clock that the library reads: the system's, one that stands still, or none at all.
enum class Clock { Real, Stopped, Broken };
inline std::atomic<Clock> clock{Clock::Real};
void stopClockAt(int64_t seconds, int32_t microseconds);
inline std::atomic<int> clockReads{0};

// Errors with which pthread_cancel, shmat and the removal of a segment fail; with 0 they work.
inline std::atomic<int> cancelError{0};
inline int attachError = 0;
inline int removeError = 0;

// How often pthread_cancel was called, and the flags that msync got last.
inline std::atomic<int> cancels{0};
inline int flushFlags = 0;

// Stands in for each sleep. Nothing sleeps then.
inline std::function<int(const timeval&)> onSleep;

// Whether the look at the keyboard tells of a key, even where there is none.
inline bool keyAnnounced = false;

// Is told of each message that goes to syslog.
inline std::function<void()> onSyslog;

// What went to syslog since it was taken last: "open IDENTITY OPTION FACILITY" and "PRIORITY TEXT",
// each on a line of its own.
std::string takeSyslog();

} // namespace seams

// What a function writes to standard output.
std::string standardOutput(const std::function<void()>& body);

// A text formatted as by printf.
std::string text(const char* format, ...) QOR_PRINTF(1, 2);

// "pid=1 tid=2)", the end of many messages, for the calling thread.
std::string pidTid();

// "(5=text", as messages give an error.
std::string errorText(int error);

// Gives the OS layer a log object of its own that writes every level to standard output.
class OwnLog : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // The messages of a call, without their time stamps.
    static std::string messages(const std::function<void()>& body);
    static void expectMessages(const std::string& expected, const std::function<void()>& body);

    QorOsLogRec* log = nullptr;
};

// Runs a function in a process forked from the test, where its failed expectations are shown.
pid_t startChild(const std::function<void()>& body);
// Waits for its end: 0 where no expectation failed and no signal came.
int waitForChild(pid_t child);

// A gate that one process or thread opens, once or more often, and another one waits at.
class Gate {
public:
    Gate();
    ~Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open();
    bool wait(); // passes one opening; false when none comes within 30 s

private:
    int ends[2];
};
