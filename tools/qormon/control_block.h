// The control block that all processes of the product share, from outside.
#pragma once

#include <string>

#include "qoros.h"

namespace qormon {

// Attaches the block for as long as it lives, without becoming one of the users that it counts.
class ControlBlock {
public:
    enum class Access { Read, Write };

    explicit ControlBlock(Access access);
    ~ControlBlock();
    ControlBlock(const ControlBlock&) = delete;
    ControlBlock& operator=(const ControlBlock&) = delete;

    // Why there is none to see; empty where it is attached.
    const std::string& error() const {
        return error_;
    }

    int segment() const {
        return segment_;
    }

    // How many processes have it attached beside this one.
    unsigned long others() const;

    // A word of it, which others may change at any time.
    uint32_t load(const uint32_t QorOsShmCtl::*word) const {
        return __atomic_load_n(&(block_->*word), __ATOMIC_RELAXED);
    }

    QorOsShmSlot slot(int index) const;

    // These need Access::Write.
    void setLog(uint32_t bits);
    void resetLog(uint32_t bits);

    // Frees a slot if it still holds the semaphore.
    void freeSlot(int index, uint32_t semId);

    // Removes the block; false with the cause in errno.
    bool remove() const;

private:
    int segment_;
    QorOsShmCtl* block_ = nullptr;
    unsigned long othersAtFirst_ = 0;
    std::string error_;
};

// Says for a command why there is no block, and gives its exit code.
int tellWhyNot(const char* command, const ControlBlock& block);

} // namespace qormon
