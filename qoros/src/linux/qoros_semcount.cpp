// The handles on named semaphores: in the table and the counters of the shared control block, and
// in the process's log object, which lives as long as there are any.
#include <algorithm>

#include "qoros_internal.h"
#include "qoros_namedsem.h"

namespace {

// The words of the block change under the hands of all processes.
uint32_t dLoad(const uint32_t& dWord) {
    return __atomic_load_n(&dWord, __ATOMIC_RELAXED);
}

void vStore(uint32_t& dWord, uint32_t dValue) {
    __atomic_store_n(&dWord, dValue, __ATOMIC_RELAXED);
}

// These two return the new value.
uint32_t dIncrement(uint32_t& dWord) {
    return __atomic_add_fetch(&dWord, 1u, __ATOMIC_RELAXED);
}

uint32_t dDecrement(uint32_t& dWord) {
    return __atomic_sub_fetch(&dWord, 1u, __ATOMIC_RELAXED);
}

// The slots to search; whoever shares the block may have written any number there.
uint32_t dUsedSlots(const QorOsShmCtl& stCtl) {
    return std::min<uint32_t>(dLoad(stCtl.MaxNamedIdx), QOR_SHM_SLOTS);
}

// The slot that counts a semaphore; null when none does.
QorOsShmSlot* pstFindSlot(QorOsShmCtl& stCtl, uint32_t dSem) {
    QorOsShmSlot* const pstEnd = stCtl.slots + dUsedSlots(stCtl);
    QorOsShmSlot* const pstFound =
        std::find_if(stCtl.slots, pstEnd,
                     [dSem](const QorOsShmSlot& stSlot) { return dLoad(stSlot.semId) == dSem; });
    return pstFound == pstEnd ? nullptr : pstFound;
}

bool fTakeSlot(QorOsShmSlot& stSlot, uint32_t dSem) {
    uint32_t dExpected = QOR_SHM_FREE_SLOT;
    return __atomic_compare_exchange_n(&stSlot.semId, &dExpected, dSem, false, __ATOMIC_RELAXED,
                                       __ATOMIC_RELAXED);
}

// Puts a semaphore into the first free slot; null when there is none.
QorOsShmSlot* pstAddSlot(QorOsShmCtl& stCtl, uint32_t dSem) {
    for (QorOsShmSlot& stSlot : stCtl.slots) {
        if (fTakeSlot(stSlot, dSem)) {
            vStore(stSlot.cnt, 1);
            if (&stSlot - stCtl.slots == static_cast<ptrdiff_t>(dLoad(stCtl.MaxNamedIdx))) {
                dIncrement(stCtl.MaxNamedIdx);
            }
            return &stSlot;
        }
    }
    return nullptr;
}

} // namespace

bool fAttachLog() {
    QorOsLogRec* pstOwn = pstLog.load(std::memory_order_acquire);
    if (pstOwn == nullptr) {
        QorOsLogRec* pstNew = QorOspLogNew();
        if (pstNew == nullptr) {
            return false;
        }
        if (pstLog.compare_exchange_strong(pstOwn, pstNew)) {
            pstOwn = pstNew;
        } else {
            QorOsvLogDelete(&pstNew); // another thread was faster
        }
    }
    pstShm = static_cast<QorOsShmCtl*>(pstOwn->shm.address);
    return true;
}

void vInitUnusedTable() {
    QorOsShmCtl& stCtl = *pstShm;
    if (dLoad(stCtl.GlobSemCnt) != 0) {
        return;
    }
    vStore(stCtl.NamedSemCnt, 0);
    vStore(stCtl.MaxNamedIdx, 0);
    for (QorOsShmSlot& stSlot : stCtl.slots) {
        vStore(stSlot.semId, QOR_SHM_FREE_SLOT);
        vStore(stSlot.cnt, 0);
    }
}

void vCountHandle(const char* cpszName, uint32_t dSem, bool fNamed, char cKind) {
    QorOsLogRec* const pstOwn = pstLog;
    QorOsShmCtl* const pstCtl = pstShm;
    dIncrement(pstOwn->LocSemCnt);
    dIncrement(pstCtl->GlobSemCnt);
    const int dShown = static_cast<int>(dSem);
    if (fNamed && !fIncNamedSemCnt(dSem)) {
        QOROS_LOG(QOR_LOG_ERROR, "ERROR %s%c(%d): shared mem not installed or runs over", cpszName,
                  cKind, dShown);
    }
    QOROS_LOG(QOR_LOG_TRACE,
              "TRACE %s%c(%d): semval=%d LocSemCnt=%u Shm=%p GlobSemCnt=%u NamedSemCnt=%u "
              "MaxNamedIdx=%u Log=%08X (pid=%u tid=%ld)",
              cpszName, cKind, dShown, QorOsSemaphoreVal(dSem), dLoad(pstOwn->LocSemCnt),
              static_cast<void*>(pstCtl), dLoad(pstCtl->GlobSemCnt), dLoad(pstCtl->NamedSemCnt),
              dLoad(pstCtl->MaxNamedIdx), dLoad(pstCtl->Log), dProcessId(), dThreadId());
}

bool fIncNamedSemCnt(uint32_t dSem) {
    QorOsShmCtl* const pstCtl = pstShm;
    if (pstCtl == nullptr) {
        return false;
    }
    dIncrement(pstCtl->NamedSemCnt); // kept: also when the table is full
    QorOsShmSlot* pstSlot = pstFindSlot(*pstCtl, dSem);
    if (pstSlot != nullptr) {
        const uint32_t dCount = dIncrement(pstSlot->cnt);
        QOROS_LOG(QOR_LOG_TRACE,
                  "TRACE fIncNamedSemCnt(%u) inc: cnt[%d]=%u SemCnt=%u MaxIdx=%u (pid=%u tid=%ld)",
                  dSem, static_cast<int>(pstSlot - pstCtl->slots), dCount,
                  dLoad(pstCtl->NamedSemCnt), dLoad(pstCtl->MaxNamedIdx), dProcessId(),
                  dThreadId());
        return true;
    }
    pstSlot = pstAddSlot(*pstCtl, dSem);
    if (pstSlot == nullptr) {
        return false;
    }
    QOROS_LOG(QOR_LOG_TRACE,
              "TRACE fIncNamedSemCnt(%d) new: cnt[%d]=%u SemCnt=%u MaxIdx=%u (pid=%u tid=%ld)",
              static_cast<int>(dSem), static_cast<int>(pstSlot - pstCtl->slots), 1u,
              dLoad(pstCtl->NamedSemCnt), dLoad(pstCtl->MaxNamedIdx), dProcessId(), dThreadId());
    return true;
}

void vTellOfClose(uint32_t dSem, char cKind) {
    const QorOsLogRec* const pstOwn = pstLog;
    const QorOsShmCtl* const pstCtl = pstShm;
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsClose%c(%d): LocSemCnt=%d Shm=%p (pid=%u tid=%ld)", cKind,
              static_cast<int>(dSem), static_cast<int>(dLoad(pstOwn->LocSemCnt)),
              static_cast<const void*>(pstCtl), dProcessId(), dThreadId());
    if (pstCtl != nullptr) {
        QOROS_LOG(QOR_LOG_TRACE,
                  "TRACE QorOsClose shm: GlobSemCnt=%u NamedSemCnt=%u MaxNamedIdx=%u Log=%08X",
                  dLoad(pstCtl->GlobSemCnt), dLoad(pstCtl->NamedSemCnt), dLoad(pstCtl->MaxNamedIdx),
                  dLoad(pstCtl->Log));
    }
}

bool dDecNamedSemCnt(uint32_t dSem) {
    QorOsShmCtl* const pstCtl = pstShm;
    QorOsShmSlot* const pstSlot = pstCtl == nullptr ? nullptr : pstFindSlot(*pstCtl, dSem);
    if (pstSlot == nullptr) {
        return false;
    }
    dDecrement(pstCtl->NamedSemCnt);
    const uint32_t dLeft = dDecrement(pstSlot->cnt);
    if (dLeft == 0) {
        vStore(pstSlot->semId, QOR_SHM_FREE_SLOT);
    }
    QOROS_LOG(QOR_LOG_TRACE,
              "TRACE dDecNamedSemCnt(%d): cnt[%d]=%u SemCnt=%u MaxIdx=%u (pid=%u tid=%ld)",
              static_cast<int>(dSem), static_cast<int>(pstSlot - pstCtl->slots), dLeft,
              dLoad(pstCtl->NamedSemCnt), dLoad(pstCtl->MaxNamedIdx), dProcessId(), dThreadId());
    return dLeft > 0;
}

void vUncountHandle() {
    QorOsShmCtl* const pstCtl = pstShm;
    if (pstCtl != nullptr) {
        const uint32_t dLeft = dDecrement(pstCtl->GlobSemCnt);
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsClose shm: GlobSemCnt=%u", dLeft);
    }
    QorOsLogRec* pstOwn = pstLog;
    if (pstOwn != nullptr && dDecrement(pstOwn->LocSemCnt) == 0) {
        QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsClose: DeleteLog=%u", 0u);
        pstShm = nullptr;
        pstLog = nullptr;
        QorOsvLogDelete(&pstOwn);
    }
}
