// Second processes, and the handshakes between them and the test.
#pragma once

#include <sys/types.h>

#include <functional>

namespace support {

// A process forked from the test. It runs a function, whose failed expectations are shown and end
// the process with 1 instead of 0.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void()>& body);
    // Waits for the end: 0 where no expectation failed and no signal came.
    int wait() const;

private:
    pid_t pid;
};

// A gate that one process or thread opens, once or more often, and another one waits at.
class Gate {
public:
    Gate();
    ~Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open();
    // Passes one opening; false when none comes within 30 s.
    bool wait();

private:
    int ends[2];
};

} // namespace support
