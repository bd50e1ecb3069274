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

// Where it has seconds, the time at which the library's clock stands still. With less than no
// microseconds the clock fails.
inline timeval stoppedAt{};
inline std::atomic<int> clockReads{0};

// Stands in for each sleep. Nothing sleeps then.
inline std::function<int(const timeval&)> onSleep;

// Is told of each message that goes to syslog.
inline std::function<void()> onSyslog;

// How syslog was opened, once or more often, and what went there: "PRIORITY TEXT", each on a line
// of its own.
inline std::string syslogOpened;
inline std::string syslogText;

} // namespace seams

// A text formatted as by printf.
std::string text(const char* format, ...) QOR_PRINTF(1, 2);

// "(5=text", as messages give an error.
inline std::string errorText(int error) {
    return text("(%d=%s", error, strerror(error));
}

// The sum of results of calls, which are made in this order.
uint32_t sum(std::initializer_list<uint32_t> results);

// Gives the OS layer a log object of its own that writes every level to standard output.
class OwnLog : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // What a call writes to standard output, without the time stamps of messages.
    static std::string messages(const std::function<void()>& body);

    // The result of a call and its messages, with "@" for the numbers of the process and the thread
    // that make it, and "#" for addresses and for identifiers in brackets.
    static void expectCall(const std::string& told, uint32_t result,
                           const std::function<uint32_t()>& call);

    QorOsLogRec* log = nullptr;
};

// Runs a function in a process forked from the test, where its failed expectations are shown.
pid_t startChild(const std::function<void()>& body);
// Waits for its end: 0 where no expectation failed and no signal came.
int waitForChild(pid_t child);

// Runs a function in each of several threads and waits for their ends.
void inThreads(int count, const std::function<void(int)>& body);
