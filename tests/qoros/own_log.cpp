#include "own_log.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <regex>
#include <utility>

#include "private_ipc.h"

namespace seams {

std::atomic<Clock> clock{Clock::Real};
std::atomic<int> attributesError{0};
std::atomic<int> cancelError{0};
std::atomic<int> attachError{0};
std::atomic<int> removeError{0};
std::atomic<int> cancels{0};
int flushFlags = 0;
std::function<int(const timeval&)> onSleep;
std::function<void(const std::string&)> onSyslog;

} // namespace seams

namespace {

timeval stoppedAt;
std::string syslogText;

const auto* const privateIpc = testing::AddGlobalTestEnvironment(new support::PrivateIpc);

timeval realTime() {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    return {real.tv_sec, static_cast<suseconds_t>(real.tv_nsec / 1000)};
}

int failWith(int error) {
    errno = error;
    return -1;
}

// The system's own function of that name.
template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" {

int gettimeofday(struct timeval* now, void*) {
    errno = EIO; // a success may change it, too
    if (seams::clock == seams::Clock::Broken) {
        return -1;
    }
    *now = seams::clock == seams::Clock::Stopped ? stoppedAt : realTime();
    return 0;
}

time_t time(time_t*) {
    return seams::clock == seams::Clock::Stopped ? stoppedAt.tv_sec : realTime().tv_sec;
}

int select(int count, fd_set* in, fd_set* out, fd_set* except, struct timeval* limit) {
    if (count == 0 && seams::onSleep) {
        return seams::onSleep(*limit);
    }
    static auto* const real = systems<decltype(select)>("select");
    return real(count, in, out, except, limit);
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
    if (seams::onSyslog) {
        seams::onSyslog(body);
    }
    errno = EIO;
}

int pthread_attr_init(pthread_attr_t* attributes) {
    const int error = seams::attributesError;
    return error != 0 ? error
                      : systems<decltype(pthread_attr_init)>("pthread_attr_init")(attributes);
}

int pthread_cancel(pthread_t thread) {
    ++seams::cancels;
    const int error = seams::cancelError;
    return error != 0 ? error : systems<decltype(pthread_cancel)>("pthread_cancel")(thread);
}

void* shmat(int id, const void* address, int flags) {
    if (seams::attachError != 0) {
        return reinterpret_cast<void*>(static_cast<intptr_t>(failWith(seams::attachError)));
    }
    return systems<decltype(shmat)>("shmat")(id, address, flags);
}

int shmctl(int id, int command, struct shmid_ds* status) {
    if (command == IPC_RMID && seams::removeError != 0) {
        return failWith(seams::removeError);
    }
    return systems<decltype(shmctl)>("shmctl")(id, command, status);
}

int msync(void* address, size_t length, int flags) {
    seams::flushFlags = flags;
    return systems<decltype(msync)>("msync")(address, length, flags);
}

} // extern "C"

void seams::stopClockAt(int64_t seconds, int32_t microseconds) {
    stoppedAt.tv_sec = seconds;
    stoppedAt.tv_usec = microseconds;
    clock = Clock::Stopped;
}

std::string seams::takeSyslog() {
    return std::exchange(syslogText, "");
}

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
    seams::clock = seams::Clock::Real;
    log = QorOspLogNew();
    ASSERT_NE(log, nullptr) << "the control block could not be attached: " << strerror(errno);
    QorOsvSetLogLevel(log, QOR_LOG_STDOUT | QOR_LOG_FATAL | QOR_LOG_ERROR | QOR_LOG_TRACE |
                               QOR_LOG_DEBUG);
    pstLog = log;
}

void OwnLog::TearDown() {
    pstLog = nullptr;
    seams::onSleep = nullptr;
    seams::onSyslog = nullptr;
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
