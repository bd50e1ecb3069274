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
};
using LocalObjectsDeathTest = LocalObjects;

// A function and the object that a message names.
std::string call(const char* function, const void* object) {
    return text("%s(%p)", function, object);
}

// Whether another thread finds a mutex taken.
bool isTaken(QorOsMutex* mutex) {
    int error = 0;
    inThreads(1, [&](int) {
        error = pthread_mutex_trylock(&mutex->mutex);
        error == 0 ? pthread_mutex_unlock(&mutex->mutex) : 0;
    });
    return error != 0;
}

TEST_F(LocalObjects, MutexIsRecursive) {
    QorOsMutex* mutex = nullptr;
    expectMessages(told("TRACE " + call("QorOsMutexCreate", &mutex) + ":"),
                   [&] { EXPECT_EQ(QorOsMutexCreate(&mutex, 0), 1u); });
    EXPECT_EQ(mutex->type, QOR_MUTEX_PTHREAD);
    const std::string waited = told("DEBUG " + call("QorOsMutexWait", mutex));
    const std::string released = told("DEBUG " + call("QorOsMutexRelease", mutex));
    uint32_t result = 7;
    expectMessages(waited + waited + released, [&] {
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, &result), 1u);
        EXPECT_EQ(QorOsMutexWait(mutex, QOR_INFINITE, nullptr), 1u);
        EXPECT_EQ(QorOsMutexRelease(mutex), 1u);
    });
    EXPECT_EQ(result, QOR_WAIT_DONE);
    EXPECT_TRUE(isTaken(mutex));
    EXPECT_EQ(quietCalls([&] {
                  QorOsMutexRelease(mutex);
                  QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
                  QorOsMutexRelease(mutex);
              }),
              "");
    EXPECT_FALSE(isTaken(mutex));
    expectMessages(told("TRACE " + call("QorOsMutexClose", mutex) + ": rc=0"),
                   [&] { EXPECT_EQ(QorOsMutexClose(mutex), 1u); });
}

// The thread sanitizer would report the misuse itself.
#if !defined(__has_feature)
#define __has_feature(feature) 0
#endif
#if !__has_feature(thread_sanitizer)
TEST_F(LocalObjects, MutexTellsOfErrorsAndWaitsForItsOwnerAtTheEnd) {
    QorOsMutex* const mutex = createMutex(0);
    expectMessages(told("ERROR " + call("QorOsMutexRelease", mutex) +
                        text(" rc=%d=%s", EPERM, strerror(EPERM))),
                   [&] { EXPECT_EQ(QorOsMutexRelease(mutex), 0u); });
    QorOsvResLogLevel(log, QOR_LOG_STDOUT);
    QorOsvLog(log, QOR_LOG_ERROR, "opens the log");
    QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
    seams::takeSyslog();
    int refusals = 0;
    seams::onSyslog = [&] {
        if (++refusals == 2) {
            pthread_mutex_unlock(&mutex->mutex);
        }
    };
    const std::string closes = call("QorOsMutexClose", mutex);
    EXPECT_EQ(QorOsMutexClose(mutex), 1u);
    const std::string busy =
        "6 ERROR " + closes + text(": destroy failed (rc=%d=%s)\n", EBUSY, strerror(EBUSY));
    EXPECT_EQ(seams::takeSyslog(), busy + busy + told("6 TRACE " + closes + ": rc=0"));
}
#endif

TEST_F(LocalObjects, RefuseNullAndUnknownKinds) {
    uint32_t results[] = {7, 7};
    std::string lines;
    for (const char* const name : {"MutexClose", "MutexRelease", "MutexWait", "EventClose",
                                   "EventSet", "EventReset", "EventWait"}) {
        const std::string function = std::string("QorOs") + name;
        lines += told("ERROR " + call(function.c_str(), nullptr) + " a" +
                      std::string(name, strlen("Mutex")) + " is NULL");
    }
    expectMessages(lines, [&] {
        EXPECT_EQ(sum({QorOsMutexClose(nullptr), QorOsMutexRelease(nullptr),
                       QorOsMutexWait(nullptr, 5, &results[0]), QorOsEventClose(nullptr),
                       QorOsEventSet(nullptr), QorOsEventReset(nullptr),
                       QorOsEventWait(nullptr, 5, &results[1])}),
                  0u);
    });
    EXPECT_EQ(results[0] + results[1], QOR_WAIT_ERROR);
    QorOsMutex mutex{2, {}};
    QorOsMutex* none = &mutex;
    QorOsEvent event{2, {}};
    EXPECT_EQ(
        sum({QorOsMutexCreate(nullptr, 0), QorOsMutexOpen(nullptr, 1), QorOsMutexOpen(&none, 0),
             QorOsEventCreate(nullptr, 0), QorOsEventOpen(nullptr, 1), QorOsMutexRelease(&mutex),
             QorOsEventSet(&event), QorOsEventReset(&event), QorOsEventWait(&event, 0, nullptr),
             QorOsEventClose(&event)}),
        0u);
    EXPECT_EQ(none, nullptr);
}

TEST_F(LocalObjectsDeathTest, MutexEndsTheProgram) {
    QorOsMutex* const mutex = createMutex(0);
    const auto end = [&](uint32_t timeout, bool close) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        QorOsvResLogLevel(log, ~(QOR_LOG_STDOUT | QOR_LOG_ERROR));
        close ? QorOsMutexClose(mutex) : QorOsMutexWait(mutex, timeout, nullptr);
    };
    const std::string words = "invalid timeout, only infinite supported for local pthread based "
                              "mutexes\\.";
    const std::string shown = " - ERROR QorOsMutexWait\\(0x[0-9a-f]+\\) " + words +
                              " \\(pid=[0-9]+ tid=[0-9]+\\)\nQorOsMutexWait - " + words +
                              "QorOsMutexWait - " + words + "\n$";
    EXPECT_EXIT(end(0, false), testing::ExitedWithCode(1), shown);
    EXPECT_EXIT(end(1000, false), testing::ExitedWithCode(1), shown);
    mutex->type = 2;
    const char* const assertion = "qoros/src/linux/qoros\\.cpp.*pMtx->type == QOR_MUTEX_PTHREAD "
                                  "\\|\\| pMtx->type == QOR_MUTEX_SYSV";
    EXPECT_DEATH(end(QOR_INFINITE, false), assertion);
    EXPECT_DEATH(end(QOR_INFINITE, true), assertion);
    mutex->type = QOR_MUTEX_PTHREAD;
    QorOsMutexClose(mutex);
}

TEST_F(LocalObjects, EventTakesItsSignalBack) {
    QorOsEvent* event = nullptr;
    expectMessages(told("TRACE " + call("QorOsEventCreate", &event) + ":"),
                   [&] { EXPECT_EQ(QorOsEventCreate(&event, 0), 1u); });
    EXPECT_EQ(event->type, QOR_EVENT_LOCAL);
    const auto wait = [&](uint32_t timeout, uint32_t expected) {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point start = Clock::now();
        uint32_t result = 7;
        EXPECT_EQ(QorOsEventWait(event, timeout, &result), expected == QOR_WAIT_DONE ? 1u : 0u);
        EXPECT_EQ(result, expected);
        EXPECT_GE(Clock::now() - start + std::chrono::milliseconds(2),
                  std::chrono::milliseconds(expected == QOR_WAIT_TIMEOUT ? timeout : 0));
    };
    wait(50, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(QorOsEventSet(event) + QorOsEventSet(event), 2u);
    EXPECT_EQ(quietCalls([&] { wait(QOR_INFINITE, QOR_WAIT_DONE); }), "");
    wait(0, QOR_WAIT_TIMEOUT);
    EXPECT_EQ(sum({QorOsEventSet(event), QorOsEventReset(event)}), 2u);
    wait(0, QOR_WAIT_TIMEOUT);
    expectMessages(told("TRACE " + call("QorOsEventClose", event) + ": rc=0"),
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

// Eight threads count under one mutex, and two take turns by events.
TEST_F(LocalObjects, KeepThreadsApart) {
    pstLog = nullptr;
    constexpr int rounds = 12500;
    QorOsMutex* const mutex = createMutex(0);
    int count = 0;
    inThreads(8, [&](int) {
        for (int i = 0; i < rounds; ++i) {
            QorOsMutexWait(mutex, QOR_INFINITE, nullptr);
            ++count;
            QorOsMutexRelease(mutex);
        }
    });
    EXPECT_EQ(count, 8 * rounds);
    QorOsMutexClose(mutex);

    QorOsEvent* const turns[] = {createEvent(0), createEvent(0)};
    QorOsEventSet(turns[0]);
    inThreads(2, [&](int own) {
        for (int i = 0; i < rounds; ++i) {
            QorOsEventWait(turns[own], QOR_INFINITE, nullptr);
            EXPECT_EQ(++count % 2, 1 - own);
            QorOsEventSet(turns[1 - own]);
        }
    });
    QorOsEventClose(turns[0]);
    QorOsEventClose(turns[1]);
}

} // namespace
