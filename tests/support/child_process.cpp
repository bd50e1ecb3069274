#include "child_process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

namespace support {

ChildProcess::ChildProcess(const std::function<void()>& body) : pid(fork()) {
    if (pid == 0) {
        body();
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    if (pid == -1) {
        std::abort();
    }
}

ChildProcess::~ChildProcess() {
    if (pid != -1) {
        kill(pid, SIGKILL);
        wait();
    }
}

int ChildProcess::wait() {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Gate::wait() {
    pollfd opening{ends[0], POLLIN, 0};
    char byte;
    return poll(&opening, 1, 30000) == 1 && read(ends[0], &byte, 1) == 1;
}

} // namespace support
