#include "own_log.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cstdarg>
#include <regex>

#include "private_ipc.h"

namespace {

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

// The system's own function of that name.
template <typename Function>
Function* systems(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
int select(int count, fd_set* in, fd_set* out, fd_set* except, struct timeval* limit) {
    return count == 0 && seams::onSleep
               ? seams::onSleep(*limit)
               : systems<decltype(select)>("select")(count, in, out, except, limit);
}

extern "C" {

int gettimeofday(struct timeval* now, void*) {
    const int result = systems<int(timeval*, void*)>("gettimeofday")(now, nullptr);
    ++seams::clockReads;
    *now = seams::stoppedAt.tv_sec != 0 ? seams::stoppedAt : *now;
    errno = EIO; // a success may change it, too
    return now->tv_usec < 0 ? -1 : result;
}

time_t time(time_t*) {
    return seams::stoppedAt.tv_sec != 0 ? seams::stoppedAt.tv_sec
                                        : systems<time_t(time_t*)>("time")(nullptr);
}

void openlog(const char* identity, int option, int facility) {
    seams::syslogOpened += text("%s %d %d", identity, option, facility);
}

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format); // the library gives "%s" and a message
    seams::syslogText += text("%d %s", priority, va_arg(arguments, const char*));
    va_end(arguments);
    if (seams::onSyslog) {
        seams::onSyslog();
    }
    errno = EIO;
}

int pthread_cancel(pthread_t thread) {
    ++seams::cancels;
    const int error = seams::cancelError;
    return error != 0 ? error : systems<decltype(pthread_cancel)>("pthread_cancel")(thread);
}

} // extern "C"

std::string text(const char* format, ...) {
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

void OwnLog::SetUp() {
    log = QorOspLogNew();
    ASSERT_NE(log, nullptr) << "the control block could not be attached: " << strerror(errno);
    QorOsvSetLogLevel(log, 0xFFFFFFFFu);
    pstLog = log;
}

void OwnLog::TearDown() {
    pstLog = nullptr;
    seams::cancelError = 0;
    seams::stoppedAt = {};
    seams::onSleep = nullptr;
    seams::onSyslog = nullptr;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsvLogDelete(&log);
}

std::string OwnLog::messages(const std::function<void()>& body) {
    static const std::regex stamp(R"((^|\n)\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )");
    testing::internal::CaptureStdout();
    body();
    return std::regex_replace(testing::internal::GetCapturedStdout(), stamp, "$1");
}

pid_t startChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        body();
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

int waitForChild(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}
