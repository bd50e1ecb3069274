// Second processes, and the handshakes between them and the test.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <functional>

namespace support {

// A process forked from the test. It runs a function, whose failed expectations are shown and end
// the process with 1 instead of 0.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void()>& body);
    // Kills it where nobody waited for it.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits for the end: the exit status, or 128 and the signal that ended it.
    int wait();

private:
    pid_t pid;
};

// A gate that one process or thread opens, once or more often, and another one waits at.
class Gate {
public:
    Gate() {
        if (pipe(ends) != 0) {
            std::abort();
        }
    }
    ~Gate() {
        close(ends[0]);
        close(ends[1]);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open() {
        if (write(ends[1], "", 1) != 1) {
            std::abort();
        }
    }
    // Passes one opening; false when none comes within 30 s.
    bool wait();

private:
    int ends[2];
};

} // namespace support
