// What the tests of mutexes and events share: calls of the system that they replace and count, and
// a look at the shared control block from outside.
#pragma once

#include <memory>
#include <vector>

#include "own_log.h"

namespace seams {

// Errors with which the next calls of semget and semop fail, in this order; then they work.
inline std::vector<int> semgetErrors;
inline std::vector<int> semopErrors;

// A command of semctl that fails, and its error.
inline int semctlCommand = -1;
inline int semctlError = 0;

// Errors with which the functions of POSIX threads that make an object fail; with 0 they work.
inline int attributeError = 0;
inline int recursiveError = 0;
inline int mutexError = 0;
inline int condError = 0;

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

// The semaphore of a key; -1 where there is none.
int semaphore(uint32_t key);

// As startChild, but without what the library holds in the test.
pid_t startProcess(const std::function<void()>& body);

// Runs a function in each of several processes at the same time and waits for their ends.
void inProcesses(int count, const std::function<void(int)>& body);

// Runs a function in each of several threads and waits for their ends.
void inThreads(int count, const std::function<void(int)>& body);

QorOsMutex* createMutex(uint32_t key);
QorOsEvent* createEvent(uint32_t key);
