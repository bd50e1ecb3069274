// Shared memory, mutexes, events, threads and processes where the system refuses what they need.
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "failing_calls.h"
#include "loopback.h"
#include "private_ipc.h"
#include "qoros.h"
#include "temp_directory.h"

namespace {

using torture::Cause;

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

constexpr uint32_t key = 0x51A7;

// The result of an operation where neither semaphore nor segment stays behind, otherwise -1.
int clean(uint32_t done) {
    const torture::Aside aside;
    const bool left =
        semget(key, 0, 0) != -1 || shmget(key, 0, 0) != -1 || shmget(QOR_SHM_KEY, 0, 0) != -1;
    return left ? -1 : static_cast<int>(done);
}

// Makes or opens an object, beside one that `create` has made.
template <class Object>
int made(uint32_t (*make)(Object**, uint32_t), uint32_t (*close)(Object*), uint32_t objectKey,
         uint32_t (*create)(Object**, uint32_t) = nullptr) {
    Object* first = nullptr;
    if (create != nullptr) {
        const torture::Aside aside;
        create(&first, objectKey);
    }
    Object* second = nullptr;
    const uint32_t done = make(&second, objectKey);
    const torture::Aside aside;
    const bool right = (done != 0 ? close(second) == 1 : second == nullptr) &&
                       (first == nullptr || close(first) == 1);
    return right ? clean(done) : -1;
}

int waitsForAMutex() {
    QorOsMutex* mutex = nullptr;
    {
        const torture::Aside aside;
        QorOsMutexCreate(&mutex, key);
    }
    const uint32_t done = QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
    const torture::Aside aside;
    return QorOsMutexClose(mutex) == 1 ? clean(done) : -1;
}

int makesALog() {
    QorOsLogRec* log = QorOspLogNew();
    const uint32_t done = log != nullptr ? 1 : 0;
    const torture::Aside aside;
    QorOsvLogDelete(&log);
    return clean(done);
}

int makesASegment() {
    QorOsMmf segment;
    const uint32_t done = QorOsMmfCreate(&segment, 10, nullptr, key, 0);
    const torture::Aside aside;
    return QorOsMmfClose(&segment) == 1 ? clean(done) : -1;
}

// Closes a segment that has as many users; 10 more where it still has its address.
int closesASegment(int users) {
    QorOsMmf mine;
    {
        const torture::Aside aside;
        QorOsMmfCreate(&mine, 10, nullptr, key, 0);
    }
    const int segment = mine.shmId;
    void* const address = mine.address;
    void* const other = users > 1 ? shmat(segment, nullptr, 0) : nullptr;
    const uint32_t done = QorOsMmfClose(&mine);
    const torture::Aside aside;
    shmdt(address);
    shmdt(other);
    shmctl(segment, IPC_RMID, nullptr);
    return clean(done) + (mine.address != nullptr ? 10 : 0);
}

TEST(ObjectsTorture, AreRefused) {
    constexpr char named[] =
        "memory ENOMEM 0, semget ENOSPC 0, semctl EACCES 0, shmget ENOSPC 0, shmat EMFILE 0";
    torture::failEach(
        {{"a log object", makesALog, "memory ENOMEM 0, shmget ENOSPC 0, shmat EMFILE 0"},
         {"a segment", makesASegment, "shmget ENOSPC 0, shmat EMFILE 0"},
         {"a segment's end", [] { return closesASegment(1); }, "shmctl EACCES 11 10"},
         {"a segment that others use", [] { return closesASegment(2); },
          "shmctl EACCES 11, shmdt EINVAL 1"},
         {"a mutex", [] { return made(QorOsMutexCreate, QorOsMutexClose, 0); },
          "memory ENOMEM 0, pthread_mutexattr_init ENOMEM 0, pthread_mutexattr_settype EINVAL 0, "
          "pthread_mutex_init EAGAIN 0"},
         {"an event", [] { return made(QorOsEventCreate, QorOsEventClose, 0); },
          "memory ENOMEM 0, pthread_mutex_init EAGAIN 0, pthread_cond_init ENOMEM 0"},
         {"a named mutex", [] { return made(QorOsMutexCreate, QorOsMutexClose, key); }, named},
         {"a named event", [] { return made(QorOsEventCreate, QorOsEventClose, key); }, named},
         {"an open mutex",
          [] { return made(QorOsMutexOpen, QorOsMutexClose, key, QorOsMutexCreate); },
          "memory ENOMEM 0, semget EACCES 0"},
         {"an open event",
          [] { return made(QorOsEventOpen, QorOsEventClose, key, QorOsEventCreate); },
          "memory ENOMEM 0, semget EACCES 0"},
         {"a wait", waitsForAMutex, "semop EINTR 1, semop EIDRM 0"}},
        Cause::inErrno);
}

int closesAFile(const std::string& path) {
    QorOsMmf file;
    {
        const torture::Aside aside;
        QorOsMmfCreate(&file, 9, path.c_str(), 0, 0);
    }
    const uint32_t done = QorOsMmfClose(&file);
    const torture::Aside aside;
    file.fd = -1;
    return done != 0 || QorOsMmfClose(&file) == 1 ? static_cast<int>(done) : -1;
}

TEST(MappedFilesTorture, AreRefused) {
    const support::TempDirectory directory;
    const std::string path = directory.path("file");
    const auto map = [&] {
        {
            const torture::Aside aside;
            directory.write("file", "old");
        }
        QorOsMmf file;
        const uint32_t done = QorOsMmfCreate(&file, 9, path.c_str(), 0, 0);
        const bool flushed = done != 0 && QorOsMmfFlush(&file, file.address, 9) != 0;
        const torture::Aside aside;
        return done == 0 || QorOsMmfClose(&file) == 1 ? static_cast<int>(flushed) : -1;
    };
    torture::failEach({{"a mapped file", map,
                        "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, "
                        "write ENOSPC 0, write EINTR 1, mmap ENODEV 0, msync EIO 0"},
                       {"its end", [&] { return closesAFile(path); }, "munmap EINVAL 0"}},
                      Cause::inErrno);
    torture::failEach({{"a mapped file on a full disk", map, "write one-byte 0"}});
}

int startsAThread() {
    static std::atomic<bool> ran;
    ran = false;
    uint64_t handle = 7;
    const auto routine = [](void*) -> void* {
        ran = true;
        return nullptr;
    };
    const uint32_t done = QorOsThreadBegin(&handle, routine, 0, nullptr);
    return support::waitUntil([=] { return done == 0 || ran; }) ? static_cast<int>(done) : -1;
}

TEST(ThreadsTorture, AreRefused) {
    torture::failEach({{"a thread", startsAThread, "memory ENOMEM 0, pthread_create EAGAIN 0"}},
                      Cause::inErrno);
}

// The exit code of a program that gives 1; 0 where it was not started or not waited for.
int runs() {
    QorOsProcess* process = nullptr;
    uint32_t code = 0;
    const bool done = QorOsCreateProcessAsyn("/bin/sh -c \"exit 1\"", nullptr, &process) != 0 &&
                      QorOsProcessWait(process, &code) != 0;
    return done ? static_cast<int>(code) : 0;
}

// Without those that nobody could wait for.
int alone(uint32_t done) {
    const torture::Aside aside;
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return static_cast<int>(done);
}

TEST(ProcessesTorture, AreRefused) {
    constexpr char faults[] = "fork EAGAIN 0, waitpid EINTR 1, waitpid ECHILD 0";
    const auto detaches = [] { return alone(QorOsCreateProcessAsyn("true", nullptr, nullptr)); };
    torture::failEach({{"a program", [] { return alone(static_cast<uint32_t>(runs())); }, faults},
                       {"a detached program", detaches, faults}},
                      Cause::inErrno);
    // What the new process cannot do, for want of memory or a program, shows in its exit code.
    torture::failEach(
        {{"a program in its process", runs, "memory ENOMEM 0 127, execv EACCES 127"}});
}

} // namespace
