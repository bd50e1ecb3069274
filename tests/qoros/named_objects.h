// What the tests of mutexes and events share: System V calls that they break and count, and a look
// at the shared control block from outside.
#pragma once

#include <numeric>
#include <vector>

#include "own_log.h"

namespace seams {

// Errors of the next calls of semget, semop and semctl, in this order; with 0 a call works.
inline std::vector<int> semErrors;

} // namespace seams

// Each test begins and ends without semaphores and without the block; a test that makes leftovers
// takes them away.
class NamedObjects : public OwnLog {
protected:
    void SetUp() override;
    void TearDown() override;

    // The words of the block as another process reads them: "users GlobSemCnt NamedSemCnt
    // MaxNamedIdx" and " [index]=identifier*cnt" for each slot that is not free.
    static void expectBlock(const std::string& expected);

    // The system calls of a function that runs with every level off, each as a word.
    std::string quietCalls(const std::function<void()>& body);
};

// A message that ends with the numbers of the process and the thread, and one with an error before.
inline std::string told(const std::string& message) {
    return message + " (" + pidTid() + "\n";
}
inline std::string told(const std::string& message, int error) {
    return message + " " + errorText(error) + " " + pidTid() + "\n";
}

// As startChild, but without what the library holds in the test.
pid_t startProcess(const std::function<void()>& body);

// Runs a function in each of several threads and waits for their ends.
void inThreads(int count, const std::function<void(int)>& body);

// The sum of the results of calls, which are made in this order.
inline uint32_t sum(std::initializer_list<uint32_t> results) {
    return std::accumulate(results.begin(), results.end(), 0u);
}

// The semaphore of a key; -1 where there is none.
int semaphore(uint32_t key);

template <class Object>
Object* created(uint32_t (*create)(Object**, uint32_t), uint32_t key) {
    Object* object = nullptr;
    EXPECT_EQ(create(&object, key), 1u);
    return object;
}
inline QorOsMutex* createMutex(uint32_t key) {
    return created(QorOsMutexCreate, key);
}
inline QorOsEvent* createEvent(uint32_t key) {
    return created(QorOsEventCreate, key);
}
