// Shared memory, mutexes, events, threads and processes where the system refuses what they need.
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "failing_calls.h"
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

// Makes an object and closes it without a fault.
template <class Object>
int made(uint32_t (*make)(Object**, uint32_t), uint32_t (*close)(Object*), uint32_t objectKey) {
    Object* object = nullptr;
    const uint32_t done = make(&object, objectKey);
    const torture::Aside aside;
    const bool right = done != 0 ? close(object) == 1 : object == nullptr;
    return right ? clean(done) : -1;
}

// Opens an object that is there.
template <class Object>
int opened(uint32_t (*create)(Object**, uint32_t), uint32_t (*open)(Object**, uint32_t),
           uint32_t (*close)(Object*)) {
    Object* first = nullptr;
    {
        const torture::Aside aside;
        create(&first, key);
    }
    Object* second = nullptr;
    const uint32_t done = open(&second, key);
    const torture::Aside aside;
    const bool right = (done != 0 ? close(second) == 1 : second == nullptr) && close(first) == 1;
    return right ? clean(done) : -1;
}

// Takes a named mutex, or gives it back.
int taken(bool release) {
    QorOsMutex* mutex = nullptr;
    {
        const torture::Aside aside;
        QorOsMutexCreate(&mutex, key);
        if (release) {
            QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
        }
    }
    const uint32_t done =
        release ? QorOsMutexRelease(mutex) : QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
    const torture::Aside aside;
    return QorOsMutexClose(mutex) == 1 ? clean(done) : -1;
}

TEST(ObjectsTorture, AreRefused) {
    torture::failEach(
        {
            {"a log object",
             [] {
                 QorOsLogRec* log = QorOspLogNew();
                 const uint32_t done = log != nullptr ? 1 : 0;
                 const torture::Aside aside;
                 QorOsvLogDelete(&log);
                 return clean(done);
             },
             "memory ENOMEM 0, shmget ENOSPC 0, shmat EMFILE 0"},
            {"a segment",
             [] {
                 QorOsMmf segment;
                 const uint32_t done = QorOsMmfCreate(&segment, 10, nullptr, key, 0);
                 const torture::Aside aside;
                 const bool right = done == (segment.address != nullptr ? 1u : 0u);
                 return QorOsMmfClose(&segment) == 1 && right ? clean(done) : -1;
             },
             "shmget ENOSPC 0, shmat EMFILE 0"},
            {"a mutex", [] { return made(QorOsMutexCreate, QorOsMutexClose, 0); },
             "memory ENOMEM 0, pthread_mutexattr_init ENOMEM 0, pthread_mutex_init EAGAIN 0"},
            {"an event", [] { return made(QorOsEventCreate, QorOsEventClose, 0); },
             "memory ENOMEM 0, pthread_mutex_init EAGAIN 0, pthread_cond_init ENOMEM 0"},
            {"a named mutex", [] { return made(QorOsMutexCreate, QorOsMutexClose, key); },
             "memory ENOMEM 0, semget ENOSPC 0, semctl EACCES 0, shmget ENOSPC 0, shmat EMFILE 0"},
            {"a named event", [] { return made(QorOsEventCreate, QorOsEventClose, key); },
             "memory ENOMEM 0, semget ENOSPC 0, semctl EACCES 0, shmget ENOSPC 0, shmat EMFILE 0"},
            {"another handle on a mutex",
             [] { return opened(QorOsMutexCreate, QorOsMutexCreate, QorOsMutexClose); },
             "memory ENOMEM 0, semget ENOSPC 0"},
            {"an open of a mutex",
             [] { return opened(QorOsMutexCreate, QorOsMutexOpen, QorOsMutexClose); },
             "memory ENOMEM 0, semget ENOENT 0"},
            {"an open of an event",
             [] { return opened(QorOsEventCreate, QorOsEventOpen, QorOsEventClose); },
             "memory ENOMEM 0, semget ENOENT 0"},
            {"a wait", [] { return taken(false); }, "semop EINTR 1, semop EIDRM 0"},
            {"a release", [] { return taken(true); }, "semop EIDRM 0"},
        },
        Cause::inErrno);
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
        const bool right = done != 0 ? QorOsMmfClose(&file) == 1 : file.fd == -1 && !file.address;
        return right ? static_cast<int>(flushed) : -1;
    };
    torture::failEach({{"a mapped file", map,
                        "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, "
                        "write ENOSPC 0, write EINTR 1, mmap ENODEV 0, msync EIO 0"}},
                      Cause::inErrno);
    torture::failEach({{"a mapped file on a full disk", map, "write one-byte 0"}});
}

int startsAThread() {
    static int ran;
    uint64_t handle = 7;
    ran = 0;
    const auto routine = [](void* argument) -> void* {
        __atomic_store_n(static_cast<int*>(argument), 1, __ATOMIC_RELEASE);
        return nullptr;
    };
    const uint32_t done = QorOsThreadBegin(&handle, routine, 0, &ran);
    while (done != 0 && __atomic_load_n(&ran, __ATOMIC_ACQUIRE) == 0) {
        usleep(100);
    }
    return done != 0 || handle == 0 ? static_cast<int>(done) : -1;
}

// In a process of its own: the first thread of a process registers what forks need.
TEST(ThreadsTortureDeathTest, AreRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto refuse = [] {
        torture::failEach({{"a thread", startsAThread,
                            "pthread_atfork ENOMEM 0, memory ENOMEM 0, "
                            "pthread_attr_init ENOMEM 0, pthread_create EAGAIN 0"}},
                          Cause::inErrno);
        exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(refuse(), testing::ExitedWithCode(0), "");
}

// The exit code of a program that gives 1; 0 where it was not started or not waited for.
int runs() {
    QorOsProcess* process = nullptr;
    uint32_t code = 0;
    const bool done = QorOsCreateProcessAsyn("/bin/sh -c \"exit 1\"", nullptr, &process) != 0 &&
                      QorOsProcessWait(process, &code) != 0;
    const torture::Aside aside;
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return done ? static_cast<int>(code) : 0;
}

int searches() {
    QorOsProcess* process = nullptr;
    uint32_t code = 7;
    QorOsCreateProcessAsyn("true", nullptr, &process);
    QorOsProcessWait(process, &code);
    return code == 0 ? 1 : static_cast<int>(code);
}

TEST(ProcessesTorture, AreRefused) {
    torture::failEach(
        {
            {"a program", runs, "fork EAGAIN 0, waitpid EINTR 1, waitpid ECHILD 0"},
            {"a detached program",
             [] {
                 const uint32_t done = QorOsCreateProcessAsyn("true", nullptr, nullptr);
                 const torture::Aside aside;
                 while (waitpid(-1, nullptr, 0) > 0) {
                 }
                 return static_cast<int>(done);
             },
             "fork EAGAIN 0, waitpid EINTR 1, waitpid ECHILD 0"},
            {"a program in the shell", [] { return static_cast<int>(QorOsCreateProcess("true")); },
             "system EAGAIN 0"},
            {"an end",
             [] {
                 QorOsProcess* process = nullptr;
                 {
                     const torture::Aside aside;
                     QorOsCreateProcessAsyn("sleep 60", nullptr, &process);
                 }
                 const uint32_t done = QorOsTerminateProcess(process);
                 const torture::Aside aside;
                 QorOsTerminateProcess(process);
                 QorOsProcessWait(process, nullptr);
                 return static_cast<int>(done);
             },
             "waitpid EINTR 1, kill EPERM 0"},
        },
        Cause::inErrno);
    // What the new process cannot do, for want of memory or a program, shows in its exit code.
    torture::failEach({{"a program in its process", runs, "memory ENOMEM 0 127, execv EACCES 127"},
                       {"a program that is searched", searches, "execv ENOENT 1, execv EIO 127"}});
}

} // namespace
