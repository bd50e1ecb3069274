// The system's calls behind the network clients, for tests that break them on purpose.
#pragma once

#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <thread>

#include "loopback.h"

// What the library gets where it makes these calls: the system's own answer, until a test puts
// something else here.
struct Calls {
    std::function<int(const char*, addrinfo**)> resolve = [](const char* host, addrinfo** list) {
        return getaddrinfo(host, nullptr, nullptr, list);
    };
    std::function<void(addrinfo*)> release = freeaddrinfo;
    std::function<int(int, const sockaddr*, socklen_t)> connectTo = connect;
    std::function<ssize_t(int, const void*, std::size_t)> transmit = support::sendQuietly;
    std::function<ssize_t(int, void*, std::size_t, int)> take = recv;
    std::function<int(int, int, int, const void*, socklen_t)> setOption = setsockopt;
    std::function<bool(void* (*)(void*), void*)> begin = [](void* (*routine)(void*),
                                                            void* argument) {
        std::thread(routine, argument).detach();
        return true;
    };
};

extern Calls calls;

// Each test begins and ends with the system's own calls.
class ReplacedCalls : public testing::Test {
protected:
    void TearDown() override {
        calls = Calls();
    }
};
