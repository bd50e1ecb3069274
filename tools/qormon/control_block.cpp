#include "control_block.h"
#include "commands.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include <system_error>

namespace qormon {

namespace {

std::string causeOf(int error) {
    return error == ENOENT ? "no control block: no process holds a named mutex or event"
                           : "the control block: " + std::generic_category().message(error);
}

} // namespace

ControlBlock::ControlBlock(Access access)
    : segment_(shmget(static_cast<key_t>(QOR_SHM_KEY), 0, 0)) {
    shmid_ds status{};
    if (segment_ == -1 || shmctl(segment_, IPC_STAT, &status) == -1) {
        error_ = causeOf(errno);
        return;
    }
    if (status.shm_segsz < sizeof(QorOsShmCtl)) {
        error_ = "its key belongs to a segment that is too small for the control block";
        return;
    }
    void* const block = shmat(segment_, nullptr, access == Access::Read ? SHM_RDONLY : 0);
    if (block == reinterpret_cast<void*>(std::intptr_t{-1})) {
        error_ = causeOf(errno);
        return;
    }
    block_ = static_cast<QorOsShmCtl*>(block);
    othersAtFirst_ = others();
}

// A process that was the last to leave meanwhile took this one for another user and let the block
// stand. It goes as it would have gone then.
ControlBlock::~ControlBlock() {
    if (block_ == nullptr) {
        return;
    }
    if (othersAtFirst_ > 0 && others() == 0 && load(&QorOsShmCtl::ShmUsers) == 0) {
        remove();
    }
    shmdt(block_);
}

unsigned long ControlBlock::others() const {
    shmid_ds status{};
    if (shmctl(segment_, IPC_STAT, &status) == -1 || status.shm_nattch == 0) {
        return 0;
    }
    return static_cast<unsigned long>(status.shm_nattch) - 1;
}

QorOsShmSlot ControlBlock::slot(int index) const {
    const QorOsShmSlot& slot = block_->slots[index];
    return {__atomic_load_n(&slot.semId, __ATOMIC_RELAXED),
            __atomic_load_n(&slot.cnt, __ATOMIC_RELAXED)};
}

void ControlBlock::setLog(uint32_t bits) {
    __atomic_fetch_or(&block_->Log, bits, __ATOMIC_RELAXED);
}

void ControlBlock::resetLog(uint32_t bits) {
    __atomic_fetch_and(&block_->Log, ~bits, __ATOMIC_RELAXED);
}

void ControlBlock::freeSlot(int index, uint32_t semId) {
    QorOsShmSlot& slot = block_->slots[index];
    const uint32_t handles = __atomic_load_n(&slot.cnt, __ATOMIC_RELAXED);
    if (__atomic_compare_exchange_n(&slot.semId, &semId, QOR_SHM_FREE_SLOT, false, __ATOMIC_RELAXED,
                                    __ATOMIC_RELAXED)) {
        __atomic_fetch_sub(&block_->NamedSemCnt, handles, __ATOMIC_RELAXED);
    }
}

bool ControlBlock::remove() const {
    return shmctl(segment_, IPC_RMID, nullptr) == 0;
}

int tellWhyNot(const char* command, const ControlBlock& block) {
    std::fprintf(stderr, "qormon %s: %s\n", command, block.error().c_str());
    return exitNegative;
}

} // namespace qormon
