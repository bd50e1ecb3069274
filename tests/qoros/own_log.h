// What the tests of the OS layer's internals share: calls of the system that they replace, and the
// messages that the layer writes.
#pragma once

#include <gtest/gtest.h>

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "qoros/src/linux/qoros_internal.h"

namespace seams {

// The clock that the library reads: the system's, one that stands still, or none at all.
enum class Clock { Real, Stopped, Broken };
extern std::atomic<Clock> clock;
void stopClockAt(int64_t seconds, int32_t microseconds);

// Errors with which pthread_attr_init, pthread_cancel, shmat and the removal of a segment fail;
// with 0 they work.
extern std::atomic<int> attributesError;
extern std::atomic<int> cancelError;
extern std::atomic<int> attachError;
extern std::atomic<int> removeError;

// How often pthread_cancel was called, and the flags that msync got last.
extern std::atomic<int> cancels;
extern int flushFlags;

// Stands in for a sleep; nothing sleeps then.
extern std::function<int(const timeval&)> onSleep;

// Sees each text that goes to syslog.
extern std::function<void(const std::string&)> onSyslog;

// What went to syslog since the last call: "open IDENTITY OPTION FACILITY" and "PRIORITY TEXT",
// each on a line of its own.
std::string takeSyslog();

} // namespace seams

// What a function writes to standard output.
std::string standardOutput(const std::function<void()>& body);

// The end of many messages, for the calling thread.
std::string pidTid();

// "(5=text", as messages give an error.
std::string errorText(int error);

// A text formatted as by printf.
std::string text(const char* format, ...) QOR_PRINTF(1, 2);

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
