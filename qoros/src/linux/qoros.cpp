#include "qoros_internal.h"

#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>
#if !defined(__APPLE__)
#include <sys/syscall.h>
#endif

#include <cstring>

#include "internal/qorassert.h"

std::atomic<bool> fShutdown{false};

namespace {

std::atomic<time_t> dQorOsUpTime{0};
std::atomic<unsigned char> bOpenSslInit{0};
std::atomic<unsigned char> bSslInit{0};

// strerror_r comes in two kinds: one fills the buffer, the other returns a text that may be its
// own.
[[maybe_unused]] const char* cpszChosen(int dResult, const char* cpszBuffer) {
    return dResult == 0 ? cpszBuffer : "Unknown error";
}

[[maybe_unused]] const char* cpszChosen(const char* cpszResult, const char*) {
    return cpszResult;
}

} // namespace

ErrorText::ErrorText(int dError)
    : szBuffer{}, cpszText(cpszChosen(strerror_r(dError, szBuffer, sizeof szBuffer), szBuffer)) {}

unsigned int dProcessId() {
    return static_cast<unsigned int>(getpid());
}

long dThreadId() {
#if defined(__APPLE__)
    uint64_t dThread = 0;
    pthread_threadid_np(nullptr, &dThread);
    return static_cast<long>(dThread);
#else
    return syscall(SYS_gettid);
#endif
}

void QorOsInit() {
    time_t unset = 0;
    dQorOsUpTime.compare_exchange_strong(unset, time(nullptr));
}

void QorOsSetSystemUp() {
    fShutdown = false;
}

void QorOsSetShutdown() {
    fShutdown = true;
    QOROS_LOG(QOR_LOG_ERROR, "### QorOsSetShutdown: shutd=%d", 1);
}

unsigned int QorOsGetSystemUp() {
    return fShutdown ? 0 : 1;
}

unsigned int QorOsIsOpenSslInitialized() {
    return bOpenSslInit.exchange(1);
}

unsigned int QorOsIsSslInitialized() {
    return bSslInit.exchange(1);
}

uint32_t QorOsGetTimeInmSec() {
    timeval now{};
    gettimeofday(&now, nullptr);
    // In 32 bits, so that the value wraps and differences stay right.
    return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec) / 1000u;
}

int64_t QorOsGetTimeInSec() {
    return time(nullptr);
}

int64_t QorOsGetUpTime() {
    QorOsInit();
    return static_cast<int64_t>(difftime(time(nullptr), dQorOsUpTime));
}

int32_t QorOsSleep(uint32_t milliseconds) {
    timeval duration{};
    if (milliseconds < 1000) {
        duration.tv_usec = static_cast<suseconds_t>(milliseconds) * 1000;
    } else {
        // Kept: the remainder is not scaled. Callers pass whole seconds or less than one.
        duration.tv_sec = static_cast<time_t>(milliseconds / 1000);
        duration.tv_usec = static_cast<suseconds_t>(milliseconds % 1000);
    }
    return select(0, nullptr, nullptr, nullptr, &duration);
}

void setTimespec(timespec* pstOut, uint32_t dMilliseconds) {
    constexpr long dNanosecondsPerSecond = 1000000000;
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        qorAssertionFailed("\"error getting time\" == NULL", cpszModule, __LINE__, __func__);
    }
    pstOut->tv_sec = now.tv_sec + static_cast<time_t>(dMilliseconds / 1000);
    pstOut->tv_nsec =
        static_cast<long>(now.tv_usec) * 1000 + static_cast<long>(dMilliseconds % 1000) * 1000000;
    if (pstOut->tv_nsec >= dNanosecondsPerSecond) {
        pstOut->tv_sec += 1;
        pstOut->tv_nsec -= dNanosecondsPerSecond;
    }
}
