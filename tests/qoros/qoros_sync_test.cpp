#include <chrono>

#include "named_objects.h"

namespace {

// Messages of local objects go to the fixture's log.
class LocalObjects : public NamedObjects {
protected:
    void SetUp() override {
        NamedObjects::SetUp();
        pstLog = log;
    }

    void TearDown() override {
        pstLog = nullptr;
        NamedObjects::TearDown();
    }
};
using LocalObjectsDeathTest = LocalObjects;

// What another thread finds when it tries to take a mutex.
int tried(QorOsMutex* mutex) {
    int error = 0;
    inThreads(1, [&](int) {
        error = pthread_mutex_trylock(&mutex->mutex);
        if (error == 0) {
            pthread_mutex_unlock(&mutex->mutex);
        }
    });
    return error;
}

TEST_F(LocalObjects, MutexIsRecursive) {
    QorOsMutex* mutex = nullptr;
    const std::string at = text("(%p)", static_cast<void*>(&mutex));
    const std::string end = " (" + pidTid() + "\n";
    expectMessages("TRACE QorOsMutexCreate" + at + ":" + end,
                   [&] { EXPECT_EQ(QorOsMutexCreate(&mutex, 0), 1u); });
    EXPECT_EQ(mutex->type, QOR_MUTEX_PTHREAD);
    const std::string self = text("(%p)", static_cast<void*>(mutex));
    const std::string waited = "DEBUG QorOsMutexWait" + self + end;
    uint32_t result = 7;
    expectMessages(waited + waited, [&] {
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, &result), 1u);
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 1u);
    });
    EXPECT_EQ(result, QOR_WAIT_DONE);
    const std::string released = "DEBUG QorOsMutexRelease" + self + end;
    expectMessages(released, [&] { EXPECT_EQ(QorOsMutexRelease(mutex), 1u); });
    EXPECT_EQ(tried(mutex), EBUSY);
    QorOsMutexRelease(mutex);
    EXPECT_EQ(tried(mutex), 0);
    EXPECT_EQ(quietCalls([&] {
                  QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
                  QorOsMutexRelease(mutex);
              }),
              "");
    expectMessages("TRACE QorOsMutexClose" + self + ": rc=0" + end,
                   [&] { EXPECT_EQ(QorOsMutexClose(mutex), 1u); });
}

// The thread sanitizer would report the misuse itself.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_THREAD_SANITIZER
#endif
#endif
#if !defined(UNDER_THREAD_SANITIZER)
TEST_F(LocalObjects, MutexTellsOfErrorsAndWaitsForItsOwnerAtTheEnd) {
    QorOsMutex* mutex = createMutex(0);
    const std::string self = text("(%p)", static_cast<void*>(mutex));
    const auto line = [&](const char* function, int error) {
        return text("ERROR %s%s rc=%d=%s (%s\n", function, self.c_str(), error, strerror(error),
                    pidTid().c_str());
    };
    expectMessages(line("QorOsMutexRelease", EPERM),
                   [&] { EXPECT_EQ(QorOsMutexRelease(mutex), 0u); });
    EXPECT_EQ(errno, EPERM);
    pthread_mutexattr_t checked;
    pthread_mutexattr_init(&checked);
    pthread_mutexattr_settype(&checked, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&mutex->mutex, &checked);
    QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
    uint32_t result = 7;
    expectMessages(line("QorOsMutexWait", EDEADLK),
                   [&] { EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, &result), 0u); });
    EXPECT_EQ(result, QOR_WAIT_ERROR);

    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    QorOsvLog(log, QOR_LOG_ERROR, "opens the log");
    seams::takeSyslog();
    int refusals = 0;
    seams::onSyslog = [&] {
        if (++refusals == 2) {
            pthread_mutex_unlock(&mutex->mutex);
        }
    };
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    const std::string busy = "6 ERROR QorOsMutexClose" + self + ": destroy failed " +
                             text("(rc=%d=%s)\n", EBUSY, strerror(EBUSY));
    EXPECT_EQ(seams::takeSyslog(),
              busy + busy + "6 TRACE QorOsMutexClose" + self + ": rc=0 (" + pidTid() + "\n");
}
#endif

TEST_F(LocalObjects, RefuseNullAndUnknownKinds) {
    const auto check = [](const char* function, const char* parameter, const auto& call) {
        const std::string line = text("ERROR %s(%p) %s is NULL (%s\n", function,
                                      static_cast<void*>(nullptr), parameter, pidTid().c_str());
        expectMessages(line, [&] { EXPECT_EQ(call(nullptr), 0u); });
    };
    uint32_t result = 7;
    check("QorOsMutexClose", "aMutex", QorOsMutexClose);
    check("QorOsMutexRelease", "aMutex", QorOsMutexRelease);
    check("QorOsMutexWait", "aMutex",
          [&](QorOsMutex* none) { return QorOsMutexWait(none, 5, &result); });
    EXPECT_EQ(std::exchange(result, 7u), QOR_WAIT_ERROR);
    check("QorOsEventClose", "aEvent", QorOsEventClose);
    check("QorOsEventSet", "aEvent", QorOsEventSet);
    check("QorOsEventReset", "aEvent", QorOsEventReset);
    check("QorOsEventWait", "aEvent",
          [&](QorOsEvent* none) { return QorOsEventWait(none, 5, &result); });
    EXPECT_EQ(result, QOR_WAIT_ERROR);
    EXPECT_EQ(QorOsMutexCreate(nullptr, 0) + QorOsMutexOpen(nullptr, 1) +
                  QorOsEventCreate(nullptr, 0) + QorOsEventOpen(nullptr, 1),
              0u);
    QorOsMutex mutex{2, {}};
    QorOsMutex* none = &mutex;
    EXPECT_EQ(QorOsMutexOpen(&none, 0), 0u);
    EXPECT_EQ(none, nullptr);
    QorOsEvent event{2, {}};
    EXPECT_EQ(QorOsMutexRelease(&mutex) + QorOsEventSet(&event) + QorOsEventReset(&event) +
                  QorOsEventWait(&event, 0, nullptr) + QorOsEventClose(&event),
              0u);
}

TEST_F(LocalObjectsDeathTest, MutexEndsTheProgram) {
    QorOsMutex* const mutex = createMutex(0);
    const auto end = [&](QorOsMutex* with, uint32_t timeout, bool close) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        QorOsvResLogLevel(log, ~(QOR_LOG_STDOUT | QOR_LOG_ERROR));
        close ? QorOsMutexClose(with) : QorOsMutexWait(with, timeout, nullptr);
    };
    const char* const words = "invalid timeout, only infinite supported for local pthread based "
                              "mutexes\\.";
    for (const uint32_t timeout : {0u, 1000u}) {
        EXPECT_EXIT(end(mutex, timeout, false), testing::ExitedWithCode(1),
                    text(" - ERROR QorOsMutexWait\\(%p\\) %s \\(pid=[0-9]+ tid=[0-9]+\\)\n"
                         "QorOsMutexWait - %sQorOsMutexWait - %s\n$",
                         static_cast<void*>(mutex), words, words, words));
    }
    mutex->type = 2;
    for (const bool close : {false, true}) {
        EXPECT_DEATH(end(mutex, QOR_INFINITE, close),
                     "qoros/src/linux/qoros\\.cpp.*pMtx->type == QOR_MUTEX_PTHREAD \\|\\| "
                     "pMtx->type == QOR_MUTEX_SYSV");
    }
    mutex->type = QOR_MUTEX_PTHREAD;
    QorOsMutexClose(mutex);
}

TEST_F(LocalObjects, EventTakesItsSignalBack) {
    QorOsEvent* event = nullptr;
    const std::string end = " (" + pidTid() + "\n";
    const std::string at = text("(%p)", static_cast<void*>(&event));
    expectMessages("TRACE QorOsEventCreate" + at + ":" + end,
                   [&] { EXPECT_EQ(QorOsEventCreate(&event, 0), 1u); });
    EXPECT_EQ(event->type, QOR_EVENT_LOCAL);
    uint32_t result = 7;
    const auto wait = [&](uint32_t timeout, uint32_t expected) {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(QorOsEventWait(event, timeout, &result), expected == QOR_WAIT_DONE ? 1u : 0u);
        EXPECT_EQ(result, expected);
        EXPECT_GE(Clock::now() - start + std::chrono::milliseconds(2),
                  std::chrono::milliseconds(expected == QOR_WAIT_TIMEOUT ? timeout : 0));
    };
    wait(50, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(QorOsEventSet(event) + QorOsEventSet(event), 2u);
    wait(QOR_INFINITE, QOR_WAIT_DONE);
    wait(0, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(QorOsEventSet(event) + QorOsEventReset(event), 2u);
    wait(0, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(quietCalls([&] {
                  QorOsEventSet(event);
                  QorOsEventWait(event, QOR_INFINITE, nullptr);
              }),
              "");
    expectMessages(text("TRACE QorOsEventClose(%p): rc=0", static_cast<void*>(event)) + end,
                   [&] { EXPECT_EQ(QorOsEventClose(event), 1u); });
}

// Lets threads wait for an event: they read the clock once they have its lock and give it up with
// the wait alone.
void awaitWaiters(int count) {
    for (int i = 0; i < 30000 && seams::clockReads < count; ++i) {
        usleep(1000);
    }
    EXPECT_EQ(seams::clockReads, count);
}

TEST_F(LocalObjects, EventWakesAllWhoWait) {
    QorOsvResLogLevel(log, 0xFFFFFFFFu);
    QorOsEvent* const event = createEvent(0);
    seams::clockReads = 0;
    const auto wait = [](void* on) -> void* {
        QorOsEventWait(static_cast<QorOsEvent*>(on), 30000, nullptr);
        return nullptr;
    };
    pthread_t cancelled; // leaves the event usable
    ASSERT_EQ(pthread_create(&cancelled, nullptr, wait, event), 0);
    awaitWaiters(1);
    EXPECT_EQ(pthread_cancel(cancelled), 0);
    EXPECT_EQ(pthread_join(cancelled, nullptr), 0);
    std::atomic<uint32_t> woken{0};
    inThreads(5, [&](int i) {
        if (i == 4) {
            awaitWaiters(5);
            EXPECT_EQ(QorOsEventSet(event), 1u);
            return;
        }
        uint32_t result = 7;
        woken += QorOsEventWait(event, 30000, &result);
        EXPECT_EQ(result, QOR_WAIT_DONE);
    });
    EXPECT_EQ(woken, 4u);
    EXPECT_EQ(QorOsEventWait(event, 0, nullptr), 0u) << "the signal is taken";
    QorOsEventClose(event);
}

} // namespace
