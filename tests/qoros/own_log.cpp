#include "own_log.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cstdarg>
#include <regex>

#include "private_ipc.h"

namespace {

timeval stoppedAt;
std::string syslogText;

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

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
    if (seams::keyAnnounced) {
        return 1;
    }
    return systems<decltype(select)>("select")(count, in, out, except, limit);
}

extern "C" {

int gettimeofday(struct timeval* now, void*) {
    const int result = systems<int(timeval*, void*)>("gettimeofday")(now, nullptr);
    ++seams::clockReads;
    *now = seams::clock == seams::Clock::Stopped ? stoppedAt : *now;
    errno = EIO; // a success may change it, too
    return seams::clock == seams::Clock::Broken ? -1 : result;
}

time_t time(time_t*) {
    return seams::clock == seams::Clock::Stopped ? stoppedAt.tv_sec
                                                 : systems<time_t(time_t*)>("time")(nullptr);
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
        seams::onSyslog();
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

std::string seams::takeSyslog() {
    return std::exchange(syslogText, "");
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

std::string pidTid() {
    return text("pid=%u tid=%ld)", dProcessId(), dThreadId());
}

std::string errorText(int error) {
    return text("(%d=%s", error, strerror(error));
}

void OwnLog::SetUp() {
    seams::clock = seams::Clock::Real;
    log = QorOspLogNew();
    ASSERT_NE(log, nullptr) << "the control block could not be attached: " << strerror(errno);
    QorOsvSetLogLevel(log, 0xFFFFFFFFu);
    pstLog = log;
}

void OwnLog::TearDown() {
    pstLog = nullptr;
    seams::cancelError = seams::attachError = seams::removeError = 0;
    seams::onSleep = nullptr;
    seams::onSyslog = nullptr;
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsvLogDelete(&log);
}

std::string OwnLog::messages(const std::function<void()>& body) {
    static const std::regex stamp(R"((^|\n)\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )");
    return std::regex_replace(standardOutput(body), stamp, "$1");
}

void OwnLog::expectMessages(const std::string& expected, const std::function<void()>& body) {
    EXPECT_EQ(messages(body), expected);
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

Gate::Gate() {
    EXPECT_EQ(pipe(ends), 0);
}

Gate::~Gate() {
    close(ends[0]);
    close(ends[1]);
}

void Gate::open() {
    EXPECT_EQ(write(ends[1], "", 1), 1);
}

bool Gate::wait() {
    pollfd opening{ends[0], POLLIN, 0};
    char byte;
    return poll(&opening, 1, 30000) == 1 && read(ends[0], &byte, 1) == 1;
}
