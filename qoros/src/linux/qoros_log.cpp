#include "qoros_internal.h"

#include <sys/time.h>
#include <syslog.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Programs built at different times attach the same block.
static_assert(sizeof(QorOsShmCtl) == 500);
static_assert(offsetof(QorOsShmCtl, Log) == 0);
static_assert(offsetof(QorOsShmCtl, ShmUsers) == 4);
static_assert(offsetof(QorOsShmCtl, GlobSemCnt) == 8);
static_assert(offsetof(QorOsShmCtl, NamedSemCnt) == 12);
static_assert(offsetof(QorOsShmCtl, MaxNamedIdx) == 16);
static_assert(offsetof(QorOsShmCtl, slots) == 20);
static_assert(sizeof(QorOsShmSlot) == 8);
static_assert(offsetof(QorOsShmSlot, cnt) == 4);

static_assert(offsetof(QorOsLogRec, LocSemCnt) == 0);
static_assert(offsetof(QorOsLogRec, mask) == sizeof(void*));
static_assert(offsetof(QorOsLogRec, privateMask) == 2 * sizeof(void*));
static_assert(offsetof(QorOsLogRec, shm) == 3 * sizeof(void*));

std::atomic<QorOsLogRec*> pstLog{nullptr};
std::atomic<QorOsShmCtl*> pstShm{nullptr};

namespace {

constexpr size_t dHeaderSize = 257;
constexpr size_t dBodySize = 1543;
constexpr size_t dDumpSize = 1280;
constexpr char cpszNoData[] = "\npvData = NULL !!!";

// The last time stamp, for all threads. Its words are atomic, so that the worst that two threads do
// to each other is a mixture of two stamps.
constexpr size_t dTimeWords = 4;
std::atomic<uint64_t> szTime[dTimeWords];

using TimeText = char[dTimeWords * sizeof(uint64_t)];

std::atomic<uint32_t> dLogOpen{0};

void vStoreTime(const TimeText& szText) {
    for (size_t i = 0; i < dTimeWords; ++i) {
        uint64_t dWord;
        memcpy(&dWord, szText + i * sizeof dWord, sizeof dWord);
        szTime[i].store(dWord, std::memory_order_relaxed);
    }
}

void vLoadTime(TimeText& szText) {
    for (size_t i = 0; i < dTimeWords; ++i) {
        const uint64_t dWord = szTime[i].load(std::memory_order_relaxed);
        memcpy(szText + i * sizeof dWord, &dWord, sizeof dWord);
    }
    szText[sizeof szText - 1] = '\0';
}

// Where the clock can't be read the last stamp stays.
void cpszGetTime() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        return;
    }
    tm parts{};
    if (localtime_r(&now.tv_sec, &parts) == nullptr) {
        return;
    }
    // Kept: the year 2000 shows as 100, later ones with two digits.
    const int year = parts.tm_year >= 101 ? parts.tm_year - 100 : parts.tm_year;
    TimeText szText{};
    sprintf_qor(szText, sizeof szText, "%02d-%02d-%02d %02d:%02d:%02d,%03ld", year,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<long>(now.tv_usec / 1000));
    vStoreTime(szText);
}

// What was formatted before a failure stays.
QOR_PRINTF(3, 0)
void vFormat(char* cpOut, size_t dSize, const char* cpszFormat, va_list arguments) {
    cpOut[0] = '\0';
    vsnprintf(cpOut, dSize, cpszFormat, arguments);
    cpOut[dSize - 1] = '\0';
}

// Writes the time stamp and " - ", with the caption behind them.
void vPrepHeader(char (&szHeader)[dHeaderSize], const char* cpszCaption) {
    TimeText szNow;
    cpszGetTime();
    vLoadTime(szNow);
    sprintf_qor(szHeader, sizeof szHeader, "%s - %s", szNow, cpszCaption);
}

// Syslog stamps its own time and gets no header. Every level goes there as LOG_INFO.
void vWrSyslog(const char* cpszBody) {
    // Kept: bit 28 of the counter does not say that the log is open.
    if ((dLogOpen.load(std::memory_order_relaxed) & 0xEFFFFFFFu) == 0) {
        dLogOpen.fetch_add(1, std::memory_order_relaxed);
        openlog("QorOsLog", LOG_PID, LOG_USER);
    }
    syslog(LOG_INFO, "%s", cpszBody);
}

void vWrLog(const char* cpszHeader, const char* cpszBody, uint32_t dMask) {
    if ((dMask & QOR_LOG_STDOUT) == 0) {
        vWrSyslog(cpszBody);
        return;
    }
    fflush(stdout);
    if (*cpszHeader != '\0') {
        fputs(cpszHeader, stdout);
    }
    fputs(cpszBody, stdout);
    fflush(stdout);
}

void vAppendData(char (&szBody)[dDumpSize], const void* pvData, int32_t dLength, int32_t dMode) {
    if (pvData == nullptr) {
        strcat_qor(szBody, sizeof szBody, cpszNoData);
        return;
    }
    const size_t dUsed = strlen(szBody);
    vPrepLogData(szBody + dUsed, sizeof szBody - dUsed, pvData, dLength, dMode);
}

// The block of a log object, which is null when it is not attached.
QorOsShmCtl* pstAttached(const QorOsLogRec* pst) {
    return pst->shm.shmId == -1 ? nullptr : static_cast<QorOsShmCtl*>(pst->shm.address);
}

void vCountUser(QorOsLogRec* pst) {
    QorOsShmCtl* const pstCtl = pstAttached(pst);
    if (pst->shm.lastError == 0) {
        __atomic_store_n(&pstCtl->ShmUsers, 1u, __ATOMIC_RELAXED);
        __atomic_store_n(&pstCtl->GlobSemCnt, 0u, __ATOMIC_RELAXED);
    } else {
        __atomic_fetch_add(&pstCtl->ShmUsers, 1u, __ATOMIC_RELAXED);
    }
}

} // namespace

QorOsLogRec* QorOspLogNew() {
    static std::atomic<QorOsLogRec*> pstLast{nullptr}; // read by nobody, and stale after a delete
    QorOsInit();
    // Here and not for each message: without TZ it allocates and looks at the zone's file.
    tzset();
    QorOsLogRec* const log = static_cast<QorOsLogRec*>(calloc(1, sizeof(QorOsLogRec)));
    if (log == nullptr) {
        return nullptr;
    }
    log->privateMask = 0x80000000u;
    log->mask = &log->privateMask;
    QorOsMmfCreate(&log->shm, sizeof(QorOsShmCtl), nullptr, QOR_SHM_KEY, 0);
    if (log->shm.address == nullptr) {
        vFree(log);
        return nullptr;
    }
    log->mask = &pstAttached(log)->Log;
    vCountUser(log);
    pstLast = log;
    return log;
}

void QorOsvLogDelete(QorOsLogRec** log) {
    if (log == nullptr || *log == nullptr) {
        return;
    }
    QorOsShmCtl* const attached = pstAttached(*log);
    if (attached != nullptr) {
        __atomic_fetch_sub(&attached->ShmUsers, 1u, __ATOMIC_RELAXED);
        QorOsMmfClose(&(*log)->shm);
    }
    free(*log);
    *log = nullptr;
}

void QorOsvSetLogLevel(QorOsLogRec* log, uint32_t bits) {
    if (log != nullptr) {
        __atomic_fetch_or(log->mask, bits, __ATOMIC_RELAXED);
    }
}

void QorOsvResLogLevel(QorOsLogRec* log, uint32_t bits) {
    if (log != nullptr) {
        __atomic_fetch_and(log->mask, ~bits, __ATOMIC_RELAXED);
    }
}

uint32_t QorOsdGetLogLevel(const QorOsLogRec* log) {
    return log == nullptr ? 0 : __atomic_load_n(log->mask, __ATOMIC_RELAXED);
}

void QorOsvLog(const QorOsLogRec* log, uint32_t level, const char* format, ...) {
    if (!fLogPasses(log, level)) {
        return;
    }
    const ErrnoKeeper keeper;
    char header[dHeaderSize];
    vPrepHeader(header, "");
    char body[dBodySize];
    va_list arguments;
    va_start(arguments, format);
    vFormat(body, sizeof body, format, arguments);
    va_end(arguments);
    strcat_qor(body, sizeof body, "\n");
    vWrLog(header, body, QorOsdGetLogLevel(log));
}

void QorOsvLogData(const QorOsLogRec* log, uint32_t level, const char* text, const void* data,
                   int32_t length, int32_t mode) {
    if (!fLogPasses(log, level)) {
        return;
    }
    const ErrnoKeeper keeper;
    // Kept: a caption of 243 characters and more is cut to 241, a shorter one is whole.
    char caption[243];
    const bool fits = text == nullptr || strlen_qor(text, sizeof caption) < sizeof caption;
    strncpy_qor(caption, sizeof caption, text == nullptr ? "" : text, fits ? 242 : 241);
    char header[dHeaderSize];
    vPrepHeader(header, caption);
    char body[dDumpSize];
    body[0] = '\0';
    vAppendData(body, data, length, mode);
    vWrLog(header, body, QorOsdGetLogLevel(log));
}

void QorOsvvLogData(const QorOsLogRec* log, uint32_t level, const void* data, int32_t length,
                    int32_t mode, const char* format, ...) {
    if (!fLogPasses(log, level)) {
        return;
    }
    const ErrnoKeeper keeper;
    char header[dHeaderSize];
    vPrepHeader(header, "");
    char body[dDumpSize];
    va_list arguments;
    va_start(arguments, format);
    vFormat(body, sizeof body, format, arguments);
    va_end(arguments);
    vAppendData(body, data, length, mode);
    vWrLog(header, body, QorOsdGetLogLevel(log));
}
