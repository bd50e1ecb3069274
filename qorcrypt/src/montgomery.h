// Arithmetic modulo a fixed odd number, on arrays of as many limbs as it has. The Montgomery form
// of x is x * R mod m with R = 2^(limbBits * count). Times depend on lengths only, except that
// powerPublic's depends on its exponent.
#pragma once

#include <cstdint>

#include "limb_buffer.h"

namespace qorcrypt {

class Montgomery {
public:
    // The modulus is odd and above 1. False where memory is short.
    bool set(const Limb* modulus, std::size_t count);
    bool copyFrom(const Montgomery& other);

    std::size_t count() const {
        return limbCount;
    }
    const Limb* modulus() const {
        return numbers.data();
    }
    // R^2 mod m, the factor that brings a number into Montgomery form.
    const Limb* squareOfR() const {
        return numbers.data() + limbCount;
    }

    // The limbs of `work` that the powers need, and the other operations.
    std::size_t workSize() const {
        return 2 * limbCount;
    }
    std::size_t powerPublicWorkSize() const {
        return 4 * limbCount;
    }
    std::size_t powerWorkSize() const {
        return (tableSize + 4) * limbCount;
    }

    // out = a * b / R mod m, where one factor is below m and the other one any number of `count`
    // limbs. Results may be operands, here and below.
    void multiply(Limb* out, const Limb* a, const Limb* b, Limb* work) const;
    void square(Limb* out, const Limb* a, Limb* work) const;
    // out = a mod m, for a number of 2 * count limbs below m * R; it is used up.
    void reduceWide(Limb* out, Limb* a, Limb* work) const;
    // out = base^exponent mod m for a base of `count` limbs, neither in Montgomery form. Every bit
    // of the exponent's limbs is walked through, leading zeros included.
    void power(Limb* out, const Limb* base, const Limb* exponent, std::size_t exponentCount,
               Limb* work) const;
    // The same for an odd exponent that everybody may know, and a base below m.
    void powerPublic(Limb* out, const Limb* base, std::uint64_t exponent, Limb* work) const;

private:
    static constexpr std::size_t windowBits = 5;
    static constexpr std::size_t tableSize = std::size_t{1} << windowBits;

    void fillTable(Limb* table, const Limb* base, Limb* work) const;
    void gather(Limb* out, const Limb* table, Limb index) const;

    LimbBuffer numbers; // m, R^2 mod m
    std::size_t limbCount = 0;
    Limb negativeInverse = 0; // -1 / m in one limb
};

} // namespace qorcrypt
