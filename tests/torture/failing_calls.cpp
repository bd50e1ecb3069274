#include "failing_calls.h"

#include <sys/mman.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <sstream>
#include <string>

#include "loopback.h"

namespace torture {

namespace {

// More calls than any operation makes.
constexpr int mostCalls = 300;

struct Fault {
    std::string call;
    std::string how; // the error's name or number, or one-byte
    int error = 0;
    std::vector<int> results; // for the first, second, ... call; the last counts on
};

int errorNamed(const std::string& name) {
    if (name == "one-byte") {
        return doesLess;
    }
    for (int error = 1; error < 256; ++error) {
        const char* const known = strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return std::stoi(name);
}

std::vector<Fault> faultsOf(const char* text) {
    std::vector<Fault> faults;
    std::istringstream all(text);
    for (std::string one; std::getline(all, one, ',');) {
        Fault fault;
        std::istringstream words(one);
        words >> fault.call >> fault.how;
        fault.error = errorNamed(fault.how);
        fault.results.assign(std::istream_iterator<int>(words), {});
        faults.push_back(fault);
    }
    return faults;
}

// The calls until the one that fails, 0 or less once it has failed; shared with forked processes.
std::atomic<int>& callsLeft() {
    static auto* const shared = new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
    return *shared;
}

// Of the thread that runs the operation, and of the processes that it forks.
const char* failingCall = "";
int failingError = 0;
int throwingNews = 0;
thread_local bool inOperation = false;

// The live allocations of operations, which other threads may release.
constexpr std::size_t mostAllocations = 256;
std::atomic<void*> live[mostAllocations];
std::atomic<int> liveCount{0};

// Runs the operation with the n-th call failing; false when it made fewer calls.
bool attempt(const Row& row, const Fault& fault, int n, Cause cause) {
    const std::size_t descriptors = support::openDescriptors();
    failingCall = fault.call.c_str();
    failingError = fault.error;
    callsLeft() = n;
    throwingNews = 0;
    errno = 0;
    inOperation = true;
    const int result = row.operation();
    const int error = errno;
    inOperation = false;
    const bool reached = callsLeft() <= 0;
    const auto step = static_cast<std::size_t>(n) < fault.results.size()
                          ? static_cast<std::size_t>(n) - 1
                          : fault.results.size() - 1;
    EXPECT_EQ(result, reached ? fault.results[step] : 1);
    if (reached && cause == Cause::inErrno && result == 0) {
        EXPECT_EQ(error, fault.error) << strerror(error);
    }
    // A thread of the library's may still be on its way out.
    EXPECT_TRUE(support::waitUntil([] { return liveCount == 0; })) << liveCount << " not released";
    EXPECT_TRUE(support::waitUntil([=] { return support::openDescriptors() == descriptors; }));
    EXPECT_EQ(throwingNews, 0);
    return reached;
}

} // namespace

int errorOfThisCall(const char* call) {
    if (!inOperation || strcmp(call, failingCall) != 0 || callsLeft()-- != 1) {
        return 0;
    }
    errno = failingError == doesLess ? errno : failingError;
    return failingError;
}

void noteThrowingNew() {
    throwingNews += inOperation ? 1 : 0;
}

void* noteAllocation(void* bytes) {
    for (std::size_t i = 0; inOperation && bytes != nullptr; i = (i + 1) % mostAllocations) {
        void* none = nullptr;
        if (live[i].compare_exchange_strong(none, bytes)) {
            ++liveCount;
            break;
        }
    }
    return bytes;
}

bool noteRelease(void* bytes) {
    for (std::size_t i = 0; liveCount != 0 && bytes != nullptr && i < mostAllocations; ++i) {
        void* expected = bytes;
        if (live[i].compare_exchange_strong(expected, nullptr)) {
            --liveCount;
            return true;
        }
    }
    return false;
}

Aside::Aside() : before_(inOperation), error_(errno) {
    inOperation = false;
}

Aside::~Aside() {
    inOperation = before_;
    errno = error_;
}

void failEach(const std::vector<Row>& rows, Cause cause) {
    for (const Row& row : rows) {
        for (const Fault& fault : faultsOf(row.faults)) {
            int n = 1;
            bool reached = true;
            for (; reached && n < mostCalls && !testing::Test::HasFailure(); ++n) {
                SCOPED_TRACE(std::string(row.name) + ": " + fault.call + " " + std::to_string(n) +
                             " " + fault.how);
                reached = attempt(row, fault, n, cause);
            }
            ASSERT_FALSE(testing::Test::HasFailure());
            ASSERT_TRUE(n > 2 && n < mostCalls)
                << row.name << ": " << fault.call << " was called " << n - 2 << " times";
        }
    }
}

} // namespace torture
