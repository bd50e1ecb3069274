#include "child_process.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

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
}

int ChildProcess::wait() const {
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

Gate::Gate() {
    if (pipe(ends) != 0) {
        std::abort();
    }
}

Gate::~Gate() {
    close(ends[0]);
    close(ends[1]);
}

void Gate::open() {
    EXPECT_EQ(write(ends[1], "", 1), 1);
}

bool Gate::wait() {
    pollfd opening{ends[0], POLLIN, 0};
    char byte;
    return poll(&opening, 1, 30000) == 1 && read(ends[0], &byte, 1) == 1;
}

} // namespace support
