#pragma once

#include <cstdlib>
#include <cstring>

#include "limbs.h"
#include "wipe.h"

namespace qorcrypt {

// Zeros, to be freed with free(3); null where memory is short. By itself so that tests can make it
// so.
Limb* allocateLimbs(std::size_t count);

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
        wipe(limbs, count * limbBytes);
        std::free(limbs);
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
