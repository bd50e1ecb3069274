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

#include "private_ipc.h"

namespace {

timeval stoppedAt;

const auto* const privateIpc = testing::AddGlobalTestEnvironment(new support::PrivateIpc);

// The system's own function of that name.
template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
int select(int count, fd_set* in, fd_set* out, fd_set* except, struct timeval* limit) {
    if (count == 0 && seams::onSleep) {
        return seams::onSleep(*limit);
    }
    return systems<decltype(select)>("select")(count, in, out, except, limit);
}

extern "C" {

int gettimeofday(struct timeval* now, void*) {
    const int result = systems<int(timeval*, void*)>("gettimeofday")(now, nullptr);
    *now = seams::clock == seams::Clock::Stopped ? stoppedAt : *now;
    errno = EIO; // a success may change it, too
    return seams::clock == seams::Clock::Broken ? -1 : result;
}

time_t time(time_t*) {
    return seams::clock == seams::Clock::Stopped ? stoppedAt.tv_sec
                                                 : systems<time_t(time_t*)>("time")(nullptr);
}

void openlog(const char* identity, int option, int facility) {
    seams::syslogText += text("open %s %d %d\n", identity, option, facility);
}

void syslog(int priority, const char* format, ...) {
    char body[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(body, sizeof body, format, arguments);
    va_end(arguments);
    seams::syslogText += text("%d %s", priority, body);
    if (seams::onSyslog) {
        seams::onSyslog(body);
    }
    errno = EIO;
}

int pthread_cancel(pthread_t thread) {
    ++seams::cancels;
    const int error = seams::cancelError;
    return error != 0 ? error : systems<decltype(pthread_cancel)>("pthread_cancel")(thread);
}

void* shmat(int id, const void* address, int flags) {
    errno = seams::attachError;
    return errno != 0 ? reinterpret_cast<void*>(intptr_t{-1})
                      : systems<decltype(shmat)>("shmat")(id, address, flags);
}

int shmctl(int id, int command, struct shmid_ds* status) {
    errno = command == IPC_RMID ? seams::removeError : 0;
    return errno != 0 ? -1 : systems<decltype(shmctl)>("shmctl")(id, command, status);
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

std::string standardOutput(const std::function<void()>& body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
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
    seams::cancelError = seams::attachError = seams::removeError = 0;
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
