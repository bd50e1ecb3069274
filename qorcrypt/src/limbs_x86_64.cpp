// The rows for x86-64 processors with MULX (BMI2) and the two carry chains of ADCX and ADOX (ADX).
#include "limb_rows.h"

// On the definition only: a replacement that sees the declaration has to win.
#define LIMBS_REPLACEABLE __attribute__((weak))

#if defined(__x86_64__)

#include <cpuid.h>

// One limb: the low half of the product goes to the sum by the carry flag, the high half of the
// limb before by the overflow flag, so that neither addition waits for the other's carry.
#define QOR_STEP(offset, before, high)                                                             \
    "mulxq " #offset "(%[a]), %[low], %[" #high "]\n\t"                                            \
    "adcxq " #offset "(%[sum]), %[low]\n\t"                                                        \
    "adoxq %[" #before "], %[low]\n\t"                                                             \
    "movq %[low], " #offset "(%[sum])\n\t"

#define QOR_STEPS_2 QOR_STEP(0, even, odd) QOR_STEP(8, odd, even)
#define QOR_STEPS_4 QOR_STEPS_2 QOR_STEP(16, even, odd) QOR_STEP(24, odd, even)
#define QOR_STEPS_6 QOR_STEPS_4 QOR_STEP(32, even, odd) QOR_STEP(40, odd, even)
#define QOR_STEPS_8 QOR_STEPS_6 QOR_STEP(48, even, odd) QOR_STEP(56, odd, even)

// Steps that begin with both flags clear and the carry so far in `even`, and end with the carry in
// the register that the last step has left it in.
#define QOR_ROW(steps, last)                                                                       \
    Limb even = carry, odd, low;                                                                   \
    __asm__("xorl %k[low], %k[low]\n\t" steps "movl $0, %k[low]\n\t"                               \
            "adcxq %[low], %[" #last "]\n\t"                                                       \
            "adoxq %[low], %[" #last "]\n\t"                                                       \
            : [even] "+&r"(even), [odd] "=&r"(odd), [low] "=&r"(low)                               \
            : [a] "r"(a), [sum] "r"(sum), "d"(factor)                                              \
            : "cc", "memory");                                                                     \
    return last

namespace qorcrypt {
namespace {

template <int count>
inline Limb addFixed(Limb* sum, const Limb* a, Limb factor, Limb carry);

#define QOR_FIXED_ROW(count, steps, last)                                                          \
    template <>                                                                                    \
    inline Limb addFixed<count>(Limb * sum, const Limb* a, Limb factor, Limb carry) {              \
        QOR_ROW(steps, last);                                                                      \
    }

QOR_FIXED_ROW(1, QOR_STEP(0, even, odd), odd)
QOR_FIXED_ROW(2, QOR_STEPS_2, even)
QOR_FIXED_ROW(3, QOR_STEPS_2 QOR_STEP(16, even, odd), odd)
QOR_FIXED_ROW(4, QOR_STEPS_4, even)
QOR_FIXED_ROW(5, QOR_STEPS_4 QOR_STEP(32, even, odd), odd)
QOR_FIXED_ROW(6, QOR_STEPS_6, even)
QOR_FIXED_ROW(7, QOR_STEPS_6 QOR_STEP(48, even, odd), odd)
QOR_FIXED_ROW(8, QOR_STEPS_8, even)

struct AdxRow {
    static Limb add(Limb* sum, const Limb* a, std::size_t count, Limb factor) {
        Limb carry = 0;
        for (; count >= 8; count -= 8, sum += 8, a += 8) {
            carry = addFixed<8>(sum, a, factor, carry);
        }
        switch (count) {
        case 1:
            return addFixed<1>(sum, a, factor, carry);
        case 2:
            return addFixed<2>(sum, a, factor, carry);
        case 3:
            return addFixed<3>(sum, a, factor, carry);
        case 4:
            return addFixed<4>(sum, a, factor, carry);
        case 5:
            return addFixed<5>(sum, a, factor, carry);
        case 6:
            return addFixed<6>(sum, a, factor, carry);
        case 7:
            return addFixed<7>(sum, a, factor, carry);
        default:
            return carry;
        }
    }
};

constexpr LimbKernel adxKernel = kernelOf<AdxRow>();

bool hasAdx() {
    constexpr unsigned int bmi2AndAdx = 1U << 8 | 1U << 19;
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bmi2AndAdx) == bmi2AndAdx;
}

} // namespace

LIMBS_REPLACEABLE const LimbKernel* fastKernel() {
    return hasAdx() ? &adxKernel : nullptr;
}

} // namespace qorcrypt

#else

namespace qorcrypt {

LIMBS_REPLACEABLE const LimbKernel* fastKernel() {
    return nullptr;
}

} // namespace qorcrypt

#endif
