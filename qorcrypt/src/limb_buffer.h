// Memory for limbs that is wiped before it is released.
#pragma once

#include <cstring>

#include "internal/wipe.h"
#include "limbs.h"

namespace qorcrypt {

// Zeros; null where memory is short. Tests replace both: to make it short, and to see that what is
// freed, if not null, was wiped.
Limb* allocateLimbs(std::size_t count);
void freeLimbs(Limb* limbs);

// Limbs in memory of its own, wiped before it is given up.
class LimbBuffer {
public:
    LimbBuffer() = default;
    LimbBuffer(const LimbBuffer&) = delete;
    LimbBuffer& operator=(const LimbBuffer&) = delete;
    ~LimbBuffer() {
        release();
    }

    // Zeros. False where memory is short; there is none then.
    bool allocate(std::size_t limbCount) {
        release();
        limbs = allocateLimbs(limbCount);
        count = limbs != nullptr ? limbCount : 0;
        return limbs != nullptr;
    }

    bool copyFrom(const LimbBuffer& other) {
        if (other.count == 0) {
            release();
            return true;
        }
        if (!allocate(other.count)) {
            return false;
        }
        std::memcpy(limbs, other.limbs, count * limbBytes);
        return true;
    }

    Limb* data() {
        return limbs;
    }
    const Limb* data() const {
        return limbs;
    }
    std::size_t size() const {
        return count;
    }

private:
    void release() {
        qorWipe(limbs, count * limbBytes);
        freeLimbs(limbs);
        limbs = nullptr;
        count = 0;
    }

    Limb* limbs = nullptr;
    std::size_t count = 0;
};

// A block of bytes, likewise.
class Block {
public:
    bool allocate(std::size_t size) {
        return limbs.allocate(limbsForBytes(size));
    }
    unsigned char* bytes() {
        return reinterpret_cast<unsigned char*>(limbs.data());
    }

private:
    LimbBuffer limbs;
};

// Hands out the parts of one buffer, in order.
class LimbParts {
public:
    explicit LimbParts(LimbBuffer& buffer) : next(buffer.data()) {}

    Limb* take(std::size_t count) {
        Limb* part = next;
        next += count;
        return part;
    }

private:
    Limb* next;
};

} // namespace qorcrypt
