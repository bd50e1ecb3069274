// Many requests from several threads at once, after which the process holds what it held before.
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "environment.h"
#include "httpclient.h"
#include "httpget.h"
#include "loopback.h"
#include "real_servers.h"
#include "scripted_server.h"
#include "temp_directory.h"

// In the place of the library's function, for the library too.
extern "C" void __wrap_QorOsSleep(uint32_t milliseconds);
extern "C" void __wrap_QorOsSleep(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(milliseconds * 10));
}

namespace {

using namespace support;

constexpr unsigned int threads = 4;
constexpr unsigned int rounds = 100;
constexpr unsigned int warmUpRounds = 10; // in which caches and pools fill
constexpr unsigned int roundRequests = QORMON_SOAK_REQUESTS / rounds / threads; // of a thread
constexpr unsigned int oddAnswers = 5;                                          // of these
constexpr std::size_t body = 5000;
// A leak of 32 bytes in each request is twice that.
constexpr std::size_t tolerated = std::size_t{QORMON_SOAK_TOLERATED_KIB} << 10;

std::size_t residentBytes() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::vector<Script> oddScripts() {
    const std::vector<Step> answers[] = {
        {sendBytes("HTTP/1.0 200 OK\r\n\r\nno length")},
        {sendBytes("HTTP/1.0 200 OK\r\nContent-Length: 100\r\n\r\nearly")},
        {sendBytes("HTTP/1.0 500 100%s\r\n"), sendBytes("\r\n%n")},
        {sendBytes("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 404 No\r\nContent-Length: 0\r\n\r\n")},
        {sendBytes(std::string(9000, 'x'))},
    };
    std::vector<Script> scripts;
    for (unsigned int i = 0; i < threads * oddAnswers; ++i) {
        scripts.push_back({readRequest()});
        const auto& answer = answers[i % std::size(answers)];
        scripts.back().insert(scripts.back().end(), answer.begin(), answer.end());
    }
    return scripts;
}

class Soak : public testing::Test {
protected:
    // A page, alternately by each client; the file is up to date from its second time on.
    void askServer(unsigned int request, const std::string& file) {
        if (request % 2 == 0) {
            HttpClient http(nullptr);
            failed += http.Connect("127.0.0.1", nginx.port(), 0) == 0 || http.Get("/page") == 0 ||
                      http.statusCode != 200 || http.bodyLength != body;
            return;
        }
        HttpGet get;
        signed char updated = 0;
        failed += get.HttpRequest(nginx.url("/page").c_str(), file.c_str(), &updated) == 0;
    }

    void askOddServer(std::uint16_t port) {
        HttpClient http(nullptr);
        if (http.Connect("127.0.0.1", port, 0) != 0) {
            http.Get("/odd"); // whatever becomes of it
        }
    }

    void runRound() {
        const ScriptedServer odd(oddScripts());
        std::vector<std::thread> running;
        for (unsigned int thread = 0; thread < threads; ++thread) {
            running.emplace_back([this, thread, port = odd.port()] {
                const std::string file = directory.path("file" + std::to_string(thread));
                for (unsigned int i = 0; i < roundRequests; ++i) {
                    i < oddAnswers ? askOddServer(port) : askServer(i, file);
                }
            });
        }
        for (std::thread& thread : running) {
            thread.join();
        }
    }

    Nginx nginx;
    const TempDirectory directory;
    std::atomic<unsigned int> failed{0};
};

TEST_F(Soak, HoldsNothingAfterManyRequests) {
    nginx.addFile("page", std::string(body, 'p'));
    if (!nginx.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem());
    }
    std::size_t resident = 0;
    const std::size_t descriptors = openDescriptors();
    const std::size_t threadsBefore = runningThreads();
    for (unsigned int round = 0; round < rounds; ++round) {
        runRound();
        ASSERT_EQ(failed, 0u) << "round " << round;
        if (round == warmUpRounds) {
            resident = residentBytes();
        }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(waitUntil([=] { return runningThreads() <= threadsBefore; }));
    EXPECT_LT(residentBytes(), resident + tolerated);
}

} // namespace
