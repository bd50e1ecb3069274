// For x86-64 processors with MULX (BMI2) and the two carry chains of ADCX and ADOX (ADX): rows of
// any length, and blocks of eight rows of eight limbs, whose sums stay in registers. Blocks serve
// numbers of whole blocks, as those of keys of 1,024, 2,048, 3,072 and 4,096 bits are; rows serve
// the others.
#include "limb_rows.h"

#include "internal/replaceable.h"

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
    __asm__ __volatile__("xorl %k[low], %k[low]\n\t" steps "movl $0, %k[low]\n\t"                  \
                         "adcxq %[low], %[" #last "]\n\t"                                          \
                         "adoxq %[low], %[" #last "]\n\t"                                          \
                         : [even] "+&r"(even), [odd] "=&r"(odd), [low] "=&r"(low)                  \
                         : [a] "r"(a), [sum] "r"(sum), "d"(factor)                                 \
                         : "cc", "memory");                                                        \
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

constexpr std::size_t blockLimbs = 8;

// One row of a block: r0 to r7, the sum's limbs, take the multiple of the eight limbs of `a` by
// RDX. `finish` does away with r0 once it is complete; it then becomes the limb above r7.
#define QOR_BLOCK_STEP(offset, to, above)                                                          \
    "mulxq " #offset "(%[a]), %[low], %[high]\n\t"                                                 \
    "adcxq %[low], %%" #to "\n\t"                                                                  \
    "adoxq %[high], %%" #above "\n\t"

#define QOR_BLOCK_ROW(begin, finish, r0, r1, r2, r3, r4, r5, r6, r7)                               \
    begin "xorl %k[high], %k[high]\n\t" QOR_BLOCK_STEP(0, r0, r1) finish                           \
        "movl $0, %%" #r0 "d\n\t" QOR_BLOCK_STEP(8, r1, r2) QOR_BLOCK_STEP(16, r2, r3)             \
            QOR_BLOCK_STEP(24, r3, r4) QOR_BLOCK_STEP(32, r4, r5) QOR_BLOCK_STEP(40, r5, r6)       \
                QOR_BLOCK_STEP(48, r6, r7) QOR_BLOCK_STEP(56, r7, r0) "movl $0, %k[low]\n\t"       \
                                                                      "adcxq %[low], %%" #r0       \
                                                                      "\n\t"

// A row of a product: by the next limb of `b`.
#define QOR_PRODUCT_ROW(offset, r0, r1, r2, r3, r4, r5, r6, r7)                                    \
    QOR_BLOCK_ROW("movq " #offset "(%[b]), %%rdx\n\t", "movq %%" #r0 ", " #offset "(%[sum])\n\t",  \
                  r0, r1, r2, r3, r4, r5, r6, r7)

// A row of a reduction: by the factor that makes r0 zero, which is kept in its place.
#define QOR_REDUCTION_ROW(offset, r0, r1, r2, r3, r4, r5, r6, r7)                                  \
    QOR_BLOCK_ROW("movq %%" #r0 ", %%rdx\n\t"                                                      \
                  "imulq %[negativeInverse], %%rdx\n\t"                                            \
                  "movq %%rdx, " #offset "(%[sum])\n\t",                                           \
                  "", r0, r1, r2, r3, r4, r5, r6, r7)

#define QOR_EIGHT_ROWS(row)                                                                        \
    row(0, r8, r9, r10, r11, r12, r13, r14, r15) row(8, r9, r10, r11, r12, r13, r14, r15, r8)      \
        row(16, r10, r11, r12, r13, r14, r15, r8, r9)                                              \
            row(24, r11, r12, r13, r14, r15, r8, r9, r10)                                          \
                row(32, r12, r13, r14, r15, r8, r9, r10, r11)                                      \
                    row(40, r13, r14, r15, r8, r9, r10, r11, r12)                                  \
                        row(48, r14, r15, r8, r9, r10, r11, r12, r13)                              \
                            row(56, r15, r8, r9, r10, r11, r12, r13, r14)

#define QOR_EACH_LIMB(instruction)                                                                 \
    instruction(0, r8) instruction(8, r9) instruction(16, r10) instruction(24, r11)                \
        instruction(32, r12) instruction(40, r13) instruction(48, r14) instruction(56, r15)
#define QOR_LOAD(offset, limb) "movq " #offset "(%[sum]), %%" #limb "\n\t"
#define QOR_ADD(offset, limb) "adcq " #offset "(%[sum]), %%" #limb "\n\t"
#define QOR_ADD_TO(offset, limb) "adcq %%" #limb ", " #offset "(%[sum])\n\t"
#define QOR_SUBTRACT(offset, unused)                                                               \
    "movq " #offset "(%[a]), %[limb]\n\t"                                                          \
    "sbbq " #offset "(%[b]), %[limb]\n\t"                                                          \
    "movq %[limb], " #offset "(%[out])\n\t"

// With the carry, and keeping the one that comes out.
#define QOR_WITH_CARRY(instructions)                                                               \
    "negq %[carry]\n\t" instructions "movq $0, %[carry]\n\t"                                       \
    "adcq $0, %[carry]\n\t"

// Blocks from `a` to `end`, by the same eight factors: what the rows of one leave in the registers
// goes with the sum's next eight limbs into the next one. `first` is what the first block has
// instead of the rows of a product.
#define QOR_BLOCKS(first)                                                                          \
    QOR_EACH_LIMB(QOR_LOAD)                                                                        \
    first "1:\n\t" QOR_EIGHT_ROWS(QOR_PRODUCT_ROW) "2:\n\t"                                        \
                                                   "leaq 64(%[a]), %[a]\n\t"                       \
                                                   "leaq 64(%[sum]), %[sum]\n\t"                   \
                                                   "cmpq %[end], %[a]\n\t"                         \
                                                   "je 3f\n\t" QOR_WITH_CARRY(QOR_EACH_LIMB(       \
                                                       QOR_ADD)) "jmp 1b\n"                        \
                                                                 "3:\n\t" QOR_WITH_CARRY(          \
                                                                     QOR_EACH_LIMB(QOR_ADD_TO))

#define QOR_BLOCK_CLOBBERS                                                                         \
    "rdx", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15", "cc", "memory"

// sum[0 .. count + 8) += a[0 .. count) * b[0 .. 8); the carry. There is one block at least.
Limb addBlocks(Limb* sum, const Limb* a, std::size_t count, const Limb* b) {
    const Limb* const end = a + count;
    Limb carry = 0;
    Limb low;
    Limb high;
    __asm__ __volatile__(
        QOR_BLOCKS("")
        : [a] "+&r"(a), [sum] "+&r"(sum), [carry] "+m"(carry), [low] "=&r"(low), [high] "=&r"(high)
        : [b] "r"(b), [end] "m"(end)
        : QOR_BLOCK_CLOBBERS);
    return carry;
}

// Adds the multiple of a[0 .. count) to sum[0 .. count + 8) that makes the lowest eight limbs zero,
// where the factors are left instead; the carry.
Limb reduceBlocks(Limb* sum, const Limb* a, std::size_t count, Limb negativeInverse) {
    const Limb* const end = a + count;
    const Limb* const factors = sum;
    Limb carry = 0;
    Limb low;
    Limb high;
    __asm__ __volatile__(
        QOR_BLOCKS(QOR_EIGHT_ROWS(QOR_REDUCTION_ROW) "jmp 2f\n")
        : [a] "+&r"(a), [sum] "+&r"(sum), [carry] "+m"(carry), [low] "=&r"(low), [high] "=&r"(high)
        : [b] "r"(factors), [end] "m"(end), [negativeInverse] "m"(negativeInverse)
        : QOR_BLOCK_CLOBBERS);
    return carry;
}

// out = a - b, by blocks; the borrow.
Limb subtractBlocks(Limb* out, const Limb* a, const Limb* b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; i += blockLimbs) {
        Limb limb;
        __asm__ __volatile__(
            "negq %[borrow]\n\t" QOR_EACH_LIMB(QOR_SUBTRACT) "sbbq %[borrow], %[borrow]\n\t"
                                                             "negq %[borrow]\n\t"
            : [borrow] "+&r"(borrow), [limb] "=&r"(limb)
            : [a] "r"(a + i), [b] "r"(b + i), [out] "r"(out + i)
            : "cc", "memory");
    }
    return borrow;
}

Limb subtractAdx(Limb* out, const Limb* a, const Limb* b, std::size_t count) {
    return count % blockLimbs == 0 ? subtractBlocks(out, a, b, count)
                                   : portableKernel.subtract(out, a, b, count);
}

// out = 2 * out + the squares of a's limbs, each at twice its place.
void doubleAndAddSquaresFast(Limb* out, const Limb* a, std::size_t count) {
    Limb low;
    Limb high;
    Limb sum;
    __asm__ __volatile__("xorl %k[sum], %k[sum]\n"
                         "1:\n\t"
                         "movq (%[a]), %%rdx\n\t"
                         "mulxq %%rdx, %[low], %[high]\n\t"
                         "movq (%[out]), %[sum]\n\t"
                         "adcxq %[sum], %[sum]\n\t"
                         "adoxq %[low], %[sum]\n\t"
                         "movq %[sum], (%[out])\n\t"
                         "movq 8(%[out]), %[sum]\n\t"
                         "adcxq %[sum], %[sum]\n\t"
                         "adoxq %[high], %[sum]\n\t"
                         "movq %[sum], 8(%[out])\n\t"
                         "leaq 8(%[a]), %[a]\n\t"
                         "leaq 16(%[out]), %[out]\n\t"
                         "leaq -1(%[count]), %[count]\n\t"
                         "jrcxz 2f\n\t"
                         "jmp 1b\n"
                         "2:\n\t"
                         : [out] "+&r"(out), [a] "+&r"(a), [count] "+&c"(count), [low] "=&r"(low),
                           [high] "=&r"(high), [sum] "=&r"(sum)
                         :
                         : "rdx", "cc", "memory");
}

// out[0 .. 16) = the products of different limbs of a[0 .. 8), each once.
void triangle(Limb* out, const Limb* a) {
    std::memset(out, 0, 2 * blockLimbs * limbBytes);
    out[8] = addFixed<7>(out + 1, a + 1, a[0], 0);
    out[9] = addFixed<6>(out + 3, a + 2, a[1], 0);
    out[10] = addFixed<5>(out + 5, a + 3, a[2], 0);
    out[11] = addFixed<4>(out + 7, a + 4, a[3], 0);
    out[12] = addFixed<3>(out + 9, a + 5, a[4], 0);
    out[13] = addFixed<2>(out + 11, a + 6, a[5], 0);
    out[14] = addFixed<1>(out + 13, a + 7, a[6], 0);
}

void multiplyAdx(Limb* out, const Limb* a, std::size_t aCount, const Limb* b, std::size_t bCount) {
    if (aCount % blockLimbs != 0 || bCount % blockLimbs != 0) {
        multiplyByRows<AdxRow>(out, a, aCount, b, bCount);
        return;
    }
    std::memset(out, 0, (aCount + bCount) * limbBytes);
    for (std::size_t j = 0; j < bCount; j += blockLimbs) {
        addBlocks(out + j, a, aCount, b + j);
    }
}

void squareAdx(Limb* out, const Limb* a, std::size_t count) {
    if (count % blockLimbs != 0) {
        squareByRows<AdxRow>(out, a, count);
        return;
    }
    for (std::size_t j = 0; j < count; j += blockLimbs) {
        triangle(out + 2 * j, a + j);
    }
    for (std::size_t j = 0; j + blockLimbs < count; j += blockLimbs) {
        const std::size_t next = j + blockLimbs;
        const Limb carry = addBlocks(out + next + j, a + next, count - next, a + j);
        addCarry(out + count + next, out + count + next, count - next, carry);
    }
    doubleAndAddSquaresFast(out, a, count);
}

Limb reduceAdx(Limb* wide, const Limb* modulus, Limb negativeInverse, std::size_t count) {
    if (count % blockLimbs != 0) {
        return reduceByRows<AdxRow>(wide, modulus, negativeInverse, count);
    }
    Limb top = 0;
    for (std::size_t j = 0; j < count; j += blockLimbs) {
        Limb* sum = wide + j;
        // Both carries belong above the limbs that this block's rows have reached.
        const Limb carry = top + reduceBlocks(sum, modulus, count, negativeInverse);
        Limb* above = sum + count + blockLimbs;
        top = j + blockLimbs < count ? addCarry(above, above, blockLimbs, carry) : carry;
    }
    return top;
}

constexpr LimbKernel adxKernel = {multiplyAdx, squareAdx, reduceAdx, subtractAdx};

bool hasAdx() {
    constexpr unsigned int bmi2AndAdx = 1U << 8 | 1U << 19;
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bmi2AndAdx) == bmi2AndAdx;
}

} // namespace

QOR_REPLACEABLE const LimbKernel* fastKernel() {
    return hasAdx() ? &adxKernel : nullptr;
}

} // namespace qorcrypt

#else

namespace qorcrypt {

QOR_REPLACEABLE const LimbKernel* fastKernel() {
    return nullptr;
}

} // namespace qorcrypt

#endif
