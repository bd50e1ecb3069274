#include "named_objects.h"

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif

#include <cstdarg>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Takes the next error of a list; 0 when it is empty.
int next(std::vector<int>& errors) {
    if (errors.empty()) {
        return 0;
    }
    const int error = errors.front();
    errors.erase(errors.begin());
    return error;
}

// The system calls since the count began; null while nothing is counted.
std::string* calls = nullptr;

void tally(const char* call) {
    if (calls != nullptr) {
        *calls += call;
    }
}

// All semaphores of the name space, as the system lists them.
std::string semaphores() {
    std::ifstream list("/proc/sysvipc/sem");
    return std::string(std::istreambuf_iterator<char>(list), {});
}

std::string before;

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" {

int semget(key_t key, int count, int flags) {
    errno = next(seams::semgetErrors);
    return errno != 0 ? -1 : systems<decltype(semget)>("semget")(key, count, flags);
}

int semop(int id, sembuf* operations, size_t count) {
    tally("semop ");
    errno = next(seams::semopErrors);
    return errno != 0 ? -1 : systems<decltype(semop)>("semop")(id, operations, count);
}

int semctl(int id, int number, int command, ...) {
    tally(command == GETVAL ? "GETVAL " : "semctl ");
    errno = command == seams::semctlCommand ? seams::semctlError : 0;
    if (errno != 0) {
        return -1;
    }
    void* argument = nullptr;
    if (command != GETVAL && command != IPC_RMID) {
        va_list arguments;
        va_start(arguments, command);
        argument = va_arg(arguments, void*);
        va_end(arguments);
    }
    return systems<decltype(semctl)>("semctl")(id, number, command, argument);
}

pid_t getpid() {
    tally("getpid ");
    return systems<decltype(getpid)>("getpid")();
}

#if defined(__linux__)
// Passes on as many arguments as there may be, whether they were given or not.
__attribute__((no_sanitize("address"))) long syscall(long number, ...) {
    tally(number == SYS_gettid ? "gettid " : "syscall ");
    va_list arguments;
    va_start(arguments, number);
    long passed[6];
    for (long& each : passed) {
        each = va_arg(arguments, long);
    }
    va_end(arguments);
    return systems<long(long, ...)>("syscall")(number, passed[0], passed[1], passed[2], passed[3],
                                               passed[4], passed[5]);
}
#endif

int pthread_mutexattr_init(pthread_mutexattr_t* attributes) {
    return seams::attributeError != 0
               ? seams::attributeError
               : systems<decltype(pthread_mutexattr_init)>("pthread_mutexattr_init")(attributes);
}

int pthread_mutexattr_settype(pthread_mutexattr_t* attributes, int kind) {
    return seams::recursiveError != 0 ? seams::recursiveError
                                      : systems<decltype(pthread_mutexattr_settype)>(
                                            "pthread_mutexattr_settype")(attributes, kind);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return seams::mutexError != 0
               ? seams::mutexError
               : systems<decltype(pthread_mutex_init)>("pthread_mutex_init")(mutex, attributes);
}

int pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t*) {
    if (seams::condError == 0) { // the system's comes in two versions
        *condition = PTHREAD_COND_INITIALIZER;
    }
    return seams::condError;
}

} // extern "C"

void NamedObjects::SetUp() {
    OwnLog::SetUp();
    pstLog =
        nullptr; // the library makes its own, next to the one that keeps the block for the test
    before = semaphores();
}

void NamedObjects::TearDown() {
    seams::semgetErrors.clear();
    seams::semopErrors.clear();
    seams::semctlCommand = -1;
    seams::attributeError = seams::recursiveError = seams::mutexError = seams::condError = 0;
    EXPECT_EQ(pstLog.load(), nullptr);
    EXPECT_EQ(pstShm.load(), nullptr);
    EXPECT_EQ(semaphores(), before);
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

void inProcesses(int count, const std::function<void(int)>& body) {
    std::vector<pid_t> processes;
    for (int i = 0; i < count; ++i) {
        processes.push_back(startProcess([&] { body(i); }));
    }
    for (const pid_t process : processes) {
        EXPECT_EQ(waitForChild(process), 0);
    }
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

QorOsMutex* createMutex(uint32_t key) {
    QorOsMutex* mutex = nullptr;
    EXPECT_EQ(QorOsMutexCreate(&mutex, key), 1u);
    return mutex;
}

QorOsEvent* createEvent(uint32_t key) {
    QorOsEvent* event = nullptr;
    EXPECT_EQ(QorOsEventCreate(&event, key), 1u);
    return event;
}
