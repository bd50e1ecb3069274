// Mutexes and events against what they are made of: a recursive mutex of POSIX threads, semop, and
// a condition variable. Logging is off.
#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <thread>

#include "qoros.h"

namespace {

constexpr uint32_t benchKey = 0x51440001;

// Takes and releases a mutex that nobody else wants.
void pairOfMutex(benchmark::State& state, uint32_t key) {
    QorOsMutex* mutex = nullptr;
    if (QorOsMutexCreate(&mutex, key) == 0) {
        state.SkipWithError("no mutex");
        return;
    }
    for (auto _ : state) {
        QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
        QorOsMutexRelease(mutex);
    }
    QorOsMutexClose(mutex);
}

void localMutex(benchmark::State& state) {
    pairOfMutex(state, 0);
}

void recursiveMutex(benchmark::State& state) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_t mutex;
    pthread_mutex_init(&mutex, &attributes);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}

void namedMutex(benchmark::State& state) {
    pairOfMutex(state, benchKey);
}

void change(int id, short by) {
    sembuf operation{};
    operation.sem_op = by;
    semop(id, &operation, 1);
}

// Takes and releases by semop alone, or reading the value in between, as a release has to.
template <bool reads>
void bareSemop(benchmark::State& state) {
    const int id = semget(IPC_PRIVATE, 1, 0600);
    change(id, 1);
    for (auto _ : state) {
        change(id, -1);
        if (reads) {
            benchmark::DoNotOptimize(semctl(id, 0, GETVAL));
        }
        change(id, 1);
    }
    semctl(id, 0, IPC_RMID);
}

struct LocalEvent {
    LocalEvent() {
        QorOsEventCreate(&event, 0);
    }
    ~LocalEvent() {
        QorOsEventClose(event);
    }
    void set() {
        QorOsEventSet(event);
    }
    void wait() {
        QorOsEventWait(event, QOR_INFINITE, nullptr);
    }
    QorOsEvent* event = nullptr;
};

// The same with the bare condition.
struct Condition {
    void set() {
        pthread_mutex_lock(&mutex);
        signalled = true;
        pthread_cond_broadcast(&condition);
        pthread_mutex_unlock(&mutex);
    }
    void wait() {
        pthread_mutex_lock(&mutex);
        while (!signalled) {
            pthread_cond_wait(&condition, &mutex);
        }
        signalled = false;
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    bool signalled = false;
};

// Two threads wake each other in turn.
template <class Event>
void handOver(benchmark::State& state) {
    Event there;
    Event back;
    bool ends = false; // passed on by the event
    std::thread other([&] {
        for (there.wait(); !ends; there.wait()) {
            back.set();
        }
    });
    for (auto _ : state) {
        there.set();
        back.wait();
    }
    ends = true;
    there.set();
    other.join();
}

// Sets and waits in the same thread, so that nothing sleeps.
template <class Event>
void setAndWait(benchmark::State& state) {
    Event event;
    for (auto _ : state) {
        event.set();
        event.wait();
    }
}

BENCHMARK(localMutex);
BENCHMARK(recursiveMutex);
BENCHMARK(namedMutex);
BENCHMARK(bareSemop<false>);
BENCHMARK(bareSemop<true>);
BENCHMARK(handOver<LocalEvent>)->UseRealTime();
BENCHMARK(handOver<Condition>)->UseRealTime();
BENCHMARK(setAndWait<LocalEvent>);
BENCHMARK(setAndWait<Condition>);

} // namespace

BENCHMARK_MAIN();
