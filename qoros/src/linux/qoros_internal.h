// What the rooms of the OS layer share and nobody else sees.
#pragma once

#include "qoros.h"

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <atomic>

// The path that assertions of the whole OS layer name, from whichever room they stand in.
constexpr char cpszModule[] = "qoros/src/linux/qoros.cpp";

// Set while the program shuts down; interrupted waits on named semaphores then give up.
extern std::atomic<bool> fShutdown;

// The absolute time milliseconds from now, as the timed waits of POSIX threads take it. Aborts when
// the clock can't be read.
void setTimespec(timespec* pstOut, uint32_t dMilliseconds);

// open(2) of a file that started programs do not inherit. Opening a FIFO waits for its other side,
// which a signal must not cut short.
int dOpenUninterrupted(const char* cpszPath, int dFlags, mode_t dMode);

// The OS layer's own log object and the block it has attached. Both are null until the first named
// mutex or event of the process and after the last one: messages until then are dropped.
extern std::atomic<QorOsLogRec*> pstLog;
extern std::atomic<QorOsShmCtl*> pstShm;

// Writes a dump as a text of at most dSize - 1 bytes.
void vPrepLogData(char* cpOut, size_t dSize, const void* pvData, int32_t dLength, int32_t dMode);

// A message passes when it shares a bit other than the output selector with the mask.
inline bool fLogPasses(const QorOsLogRec* pst, uint32_t dLevel) {
    return pst != nullptr && (__atomic_load_n(pst->mask, __ATOMIC_RELAXED) & dLevel) >= 2;
}

// Keeps errno over clean-up and logging, which callers must not notice in it.
class ErrnoKeeper {
public:
    ErrnoKeeper() : dError(errno) {}
    ~ErrnoKeeper() {
        errno = dError;
    }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int dError;
};

// Frees memory and leaves errno alone, which free may change on some systems.
inline void vFree(void* pv) {
    const ErrnoKeeper keeper;
    free(pv);
}

// Fills an output that the caller may not want.
inline void vSetOutput(uint32_t* pdOut, uint32_t dValue) {
    if (pdOut != nullptr) {
        *pdOut = dValue;
    }
}

// Writes a message of the OS layer's own. Its arguments are evaluated only when the level passes,
// so that a line that is switched off costs no more than the test. It leaves errno alone.
#define QOROS_LOG(level, ...)                                                                      \
    do {                                                                                           \
        const QorOsLogRec* const pstOwnLog = pstLog.load(std::memory_order_acquire);               \
        if (fLogPasses(pstOwnLog, (level))) {                                                      \
            const ErrnoKeeper stOwnErrno;                                                          \
            QorOsvLog(pstOwnLog, (level), __VA_ARGS__);                                            \
        }                                                                                          \
    } while (false)

// The text of an error number, for the arguments of a message.
class ErrorText {
public:
    explicit ErrorText(int dError);
    ErrorText(const ErrorText&) = delete;
    ErrorText& operator=(const ErrorText&) = delete;
    const char* cpsz() const {
        return cpszText;
    }

private:
    char szBuffer[128];
    const char* cpszText;
};

// The numbers that messages give as pid=%u and tid=%ld; the thread's is the kernel's.
unsigned int dProcessId();
long dThreadId();

// The code that a process ended with, from its wait status; 0 where a signal ended it.
inline uint32_t dExitCode(int32_t dStatus) {
    return (static_cast<uint32_t>(dStatus) >> 8) & 255;
}
