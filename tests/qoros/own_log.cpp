#include "own_log.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <regex>
#include <utility>

#include "private_ipc.h"

namespace {

enum class Clock { Real, Stopped, Broken };

std::atomic<Clock> clockKind{Clock::Real};
timeval stoppedAt;
std::atomic<int> cancelError{0};
std::string syslogText;

const auto* const privateIpc = testing::AddGlobalTestEnvironment(new support::PrivateIpc);

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" {

int gettimeofday(struct timeval* now, void*) {
    if (clockKind == Clock::Broken) {
        errno = EPERM;
        return -1;
    }
    if (clockKind == Clock::Stopped) {
        *now = stoppedAt;
        return 0;
    }
    timespec real;
    const int result = clock_gettime(CLOCK_REALTIME, &real);
    now->tv_sec = real.tv_sec;
    now->tv_usec = static_cast<suseconds_t>(real.tv_nsec / 1000);
    return result;
}

void openlog(const char* identity, int option, int facility) {
    syslogText += text("open %s %d %d\n", identity, option, facility);
}

void syslog(int priority, const char* format, ...) {
    char body[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(body, sizeof body, format, arguments);
    va_end(arguments);
    syslogText += text("%d %s", priority, body);
}

int pthread_cancel(pthread_t thread) {
    if (cancelError != 0) {
        return cancelError;
    }
    void* const real = dlsym(RTLD_NEXT, "pthread_cancel");
    return reinterpret_cast<int (*)(pthread_t)>(real)(thread);
}

} // extern "C"

namespace seams {

void useRealClock() {
    clockKind = Clock::Real;
}

void stopClockAt(int64_t seconds, int32_t microseconds) {
    stoppedAt.tv_sec = seconds;
    stoppedAt.tv_usec = microseconds;
    clockKind = Clock::Stopped;
}

void breakClock() {
    clockKind = Clock::Broken;
}

std::string takeSyslog() {
    return std::exchange(syslogText, "");
}

void failCancel(int error) {
    cancelError = error;
}

} // namespace seams

std::string standardOutput(const std::function<void()>& body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

std::string pidTid() {
    return text("pid=%u tid=%ld)", dProcessId(), dThreadId());
}

std::string errorText(int error) {
    return text("(%d=%s", error, strerror(error));
}

std::string text(const char* format, ...) {
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

void OwnLog::SetUp() {
    seams::useRealClock();
    log = QorOspLogNew();
    ASSERT_NE(log, nullptr) << "the control block could not be attached: " << strerror(errno);
    QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_FATAL | QOR_LOG_ERROR | QOR_LOG_TRACE |
                               QOR_LOG_DEBUG);
    pstLog = log;
}

void OwnLog::TearDown() {
    pstLog = nullptr;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsvLogDelete(&log);
    EXPECT_EQ(log, nullptr);
}

std::string OwnLog::messages(const std::function<void()>& body) {
    static const std::regex stamp(R"((^|\n)\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )");
    return std::regex_replace(standardOutput(body), stamp, "$1");
}

void OwnLog::expectMessages(const std::string& expected, const std::function<void()>& body) {
    EXPECT_EQ(messages(body), expected);
}
