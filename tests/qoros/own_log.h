// What the tests of the OS layer's internals share: calls of the system that they replace, and the
// messages that the layer writes.
#pragma once

#include <gtest/gtest.h>

#include <sys/time.h>

#include <atomic>
#include <cstdint>
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

// Errors with which pthread_cancel, shmat and the removal of a segment fail; with 0 they work.
inline std::atomic<int> cancelError{0};
inline int attachError = 0;
inline int removeError = 0;

// How often pthread_cancel was called, and the flags that msync got last.
inline std::atomic<int> cancels{0};
inline int flushFlags = 0;

// Stands in for each sleep. Nothing sleeps then.
inline std::function<int(const timeval&)> onSleep;

// Sees each text that goes to syslog.
inline std::function<void(const std::string&)> onSyslog;

// What went to syslog since it was taken last: "open IDENTITY OPTION FACILITY" and "PRIORITY TEXT",
// each on a line of its own.
inline std::string syslogText;
inline std::string takeSyslog() {
    return std::exchange(syslogText, "");
}

} // namespace seams

// What a function writes to standard output.
std::string standardOutput(const std::function<void()>& body);

// A text formatted as by printf.
std::string text(const char* format, ...) QOR_PRINTF(1, 2);

// The end of many messages, for the calling thread.
inline std::string pidTid() {
    return text("pid=%u tid=%ld)", dProcessId(), dThreadId());
}

// "(5=text", as messages give an error.
inline std::string errorText(int error) {
    return text("(%d=%s", error, strerror(error));
}

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
