#include "own_log.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cstdarg>
#include <future>
#include <numeric>
#include <regex>
#include <vector>

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

} // extern "C"

std::string text(const char* format, ...) {
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return buffer;
}

uint32_t sum(std::initializer_list<uint32_t> results) {
    return std::accumulate(results.begin(), results.end(), 0u);
}

void OwnLog::SetUp() {
    log = QorOspLogNew();
    ASSERT_NE(log, nullptr) << "the control block could not be attached: " << strerror(errno);
    QorOsvSetLogLevel(log, 0xFFFFFFFFu);
    pstLog = log;
}

void OwnLog::TearDown() {
    pstLog = nullptr;
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

void OwnLog::expectCall(const std::string& told, uint32_t result,
                        const std::function<uint32_t()>& call) {
    static const std::regex numbers(R"(0x[0-9a-f]{9,}|(\()[0-9]+(\)))");
    const std::regex caller(text("pid=%u tid=%ld", dProcessId(), dThreadId()));
    const std::string shown = messages([&] { EXPECT_EQ(call(), result) << told; });
    EXPECT_EQ(std::regex_replace(std::regex_replace(shown, caller, "@"), numbers, "$1#$2"), told);
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

void inThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::future<void>> threads;
    for (int i = 0; i < count; ++i) {
        threads.push_back(std::async(std::launch::async, body, i));
    }
}
