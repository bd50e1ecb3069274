#include "named_objects.h"

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdarg>
#include <fstream>
#include <thread>

namespace {

template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The system calls since the count began; null while nothing is counted.
std::string* calls = nullptr;

void tally(const char* call) {
    if (calls != nullptr) {
        *calls += call;
    }
}

// Counts a call; true when it is to fail, with the cause in errno.
bool refused(const char* call) {
    tally(call);
    if (seams::semErrors.empty()) {
        return false;
    }
    errno = seams::semErrors.front();
    seams::semErrors.erase(seams::semErrors.begin());
    return errno != 0;
}

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" {

int semget(key_t key, int count, int flags) {
    return refused("semget ") ? -1 : systems<decltype(semget)>("semget")(key, count, flags);
}

int semop(int id, sembuf* operations, size_t count) {
    return refused("semop ") ? -1 : systems<decltype(semop)>("semop")(id, operations, count);
}

int semctl(int id, int number, int command, ...) {
    if (refused(command == GETVAL ? "GETVAL " : "semctl ")) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*); // passed on, given or not
    va_end(arguments);
    return systems<decltype(semctl)>("semctl")(id, number, command, argument);
}

// Every message asks for it.
pid_t getpid() {
    tally("getpid ");
    return systems<decltype(getpid)>("getpid")();
}

} // extern "C"

void NamedObjects::SetUp() {
    OwnLog::SetUp();
    pstLog = nullptr; // the library makes its own, next to the one that keeps the block
}

void NamedObjects::TearDown() {
    EXPECT_TRUE(seams::semErrors.empty()) << "fewer calls than expected";
    seams::semErrors.clear();
    EXPECT_TRUE(pstLog == nullptr || pstLog == log);
    EXPECT_EQ(pstShm.load(), nullptr);
    std::ifstream list("/proc/sysvipc/sem");
    std::string line;
    EXPECT_FALSE(std::getline(list, line) && std::getline(list, line)) << "left over: " << line;
    OwnLog::TearDown();
    EXPECT_EQ(shmget(QOR_SHM_KEY, 0, 0), -1);
}

void NamedObjects::expectBlock(const std::string& expected) {
    const pid_t reader = startProcess([&] {
        const int id = shmget(QOR_SHM_KEY, 0, 0);
        const auto* const words = static_cast<const uint32_t*>(shmat(id, nullptr, SHM_RDONLY));
        std::string shown = text("%u %u %u %u", words[1], words[2], words[3], words[4]);
        for (int i = 0; i < 60; ++i) {
            const uint32_t* const slot = words + 5 + 2 * i;
            shown += slot[0] == 0xFFFFFFFF ? "" : text(" [%d]=%u*%u", i, slot[0], slot[1]);
        }
        EXPECT_EQ(shown, expected);
    });
    EXPECT_EQ(waitForChild(reader), 0);
}

std::string NamedObjects::quietCalls(const std::function<void()>& body) {
    std::string counted;
    const uint32_t mask = QorOsdGetLogLevel(log);
    QorOsvResLogLevel(log, mask);
    calls = &counted;
    body();
    calls = nullptr;
    QorOsvSetLogLevel(log, mask);
    return counted;
}

int semaphore(uint32_t key) {
    return semget(static_cast<key_t>(key), 0, 0);
}

pid_t startProcess(const std::function<void()>& body) {
    return startChild([&] {
        pstLog = nullptr;
        pstShm = nullptr;
        body();
    });
}

void inThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
