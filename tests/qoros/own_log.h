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

// The error with which pthread_cancel fails, with 0 it works, and how often it was called.
inline std::atomic<int> cancelError{0};
inline std::atomic<int> cancels{0};

// Stands in for each sleep. Nothing sleeps then.
inline std::function<int(const timeval&)> onSleep;

// Is told of each message that goes to syslog.
inline std::function<void()> onSyslog;

// How syslog was opened, once or more often, and what went there since it was taken last:
// "PRIORITY TEXT", each on a line of its own.
inline std::string syslogOpened;
inline std::string syslogText;
inline std::string takeSyslog() {
    return std::exchange(syslogText, "");
}

} // namespace seams

// A text formatted as by printf.
std::string text(const char* format, ...) QOR_PRINTF(1, 2);

// "(5=text", as messages give an error.
inline std::string errorText(int error) {
    return text("(%d=%s", error, strerror(error));
}

// Gives the OS layer a log object of its own that writes every level to standard output.
class OwnLog : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // What a call writes to standard output, without the time stamps of messages.
    static std::string messages(const std::function<void()>& body);

    QorOsLogRec* log = nullptr;
};

// Runs a function in a process forked from the test, where its failed expectations are shown.
pid_t startChild(const std::function<void()>& body);
// Waits for its end: 0 where no expectation failed and no signal came.
int waitForChild(pid_t child);

// A gate that one process or thread opens, once or more often, and another one waits at. It keeps
// its descriptors for the rest of the program.
class Gate {
public:
    Gate() {
        EXPECT_EQ(pipe(ends), 0);
    }
    void open() {
        EXPECT_EQ(write(ends[1], "", 1), 1);
    }
    bool wait() { // passes one opening
        char byte;
        return read(ends[0], &byte, 1) == 1;
    }

private:
    int ends[2];
};
