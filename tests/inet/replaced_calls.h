// The system's calls behind the network clients, for tests that break them on purpose.
#pragma once

#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <thread>

inline bool beginDetached(void* (*routine)(void*), void* argument) {
    std::thread(routine, argument).detach();
    return true;
}

// What the library gets where it makes these calls. A test puts in what it expects to be called.
struct Calls {
    std::function<int(const char*, addrinfo**)> resolve;
    std::function<void(addrinfo*)> release;
    std::function<int(int, const sockaddr*, socklen_t)> connectTo;
    std::function<ssize_t(int, const void*, std::size_t)> transmit;
    std::function<ssize_t(int, void*, std::size_t, int)> take;
    std::function<int(int, int, int, const void*, socklen_t)> setOption = setsockopt;
    std::function<bool(void* (*)(void*), void*)> begin = beginDetached;
    std::function<void(unsigned int)> pause;
};

extern Calls calls;

// Each test begins anew.
class ReplacedCalls : public testing::Test {
protected:
    void TearDown() override {
        calls = Calls();
    }
};
