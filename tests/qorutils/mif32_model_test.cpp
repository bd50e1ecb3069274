// Random operations on a Mif32 and on a plain string of bytes, side by side; after each of them
// every reader is asked.
#include "mif32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qormif.h"

namespace {

unsigned int sizeOf(const std::string& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

unsigned char* pointer(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string numberBytes(unsigned long long number, std::size_t count) {
    return std::string(reinterpret_cast<const char*>(&number), count);
}

// An entry as every reader has to give it, by what is `found` and its value.
struct Reads {
    const Mif32& mif;
    unsigned short id;
    unsigned int occurrence;
    bool found;
    std::string value;

    using Got = std::pair<bool, unsigned long long>; // a result, and what the output holds

    template <typename Function, typename... Outputs>
    bool raw(Function function, Outputs... outputs) const {
        return function(mif.data, mif.length, id, outputs..., occurrence) != 0;
    }

    void expectNumbers() const {
        const bool isInt = found && value.size() == 4;
        const bool isLong = isInt || (found && value.size() == 8);
        unsigned long long number = 0, e = 7, f = 7;
        std::memcpy(&number, value.data(), isLong ? value.size() : 0);
        unsigned int a = 7, b = 7;
        int c = 7;
        bool d = number == 0;
        EXPECT_EQ((Got{mif.GetInt(id, &a, occurrence), a}), (Got{isInt, isInt ? number : 7}));
        EXPECT_EQ((Got{raw(qormifGetInt, &b), b}), (Got{isInt, a}));
        EXPECT_EQ(mif.GetInt(id, &c, occurrence), isInt);
        EXPECT_EQ(static_cast<unsigned int>(c), isInt ? a : 0) << "overwritten on failure too";
        EXPECT_EQ((Got{mif.GetBool(id, &d, occurrence), d}), (Got{isInt, isInt == (number != 0)}));
        const unsigned long long written = occurrence == 0 ? 7 : number;
        EXPECT_EQ((Got{mif.GetInt64(id, &e, occurrence), e}), (Got{isLong, written}));
        EXPECT_EQ((Got{raw(qormifGetInt64, &f), f}),
                  (Got{isLong, mif.GetLen() == 0 ? 7 : written}));
    }

    // Into an output that is as large as has to be, or a byte shorter.
    void expectCopies(unsigned int missing) const {
        const unsigned int size = sizeOf(value), room = size + 1 - missing;
        const bool fits = found && missing == 0;
        const bool fits16 = fits && room <= 0xFFFF; // the next is 0 in 16 bits
        const std::string untouched(size + 1, '#');
        const std::string text = fits ? value + '\0' : untouched;
        std::string a = untouched, b = a, c = a, d = a;
        EXPECT_EQ(mif.GetStr(id, a.data(), static_cast<unsigned short>(room), occurrence), fits16);
        EXPECT_TRUE(a == (fits16 ? text : untouched));
        EXPECT_EQ(raw(qormifGetStr, b.data(), room), fits);
        EXPECT_TRUE(b == text);
        unsigned int e = room - 1, f = e;
        EXPECT_EQ((Got{mif.GetBin(id, pointer(c), &e, occurrence), e}), (Got{fits, room - 1}));
        EXPECT_EQ((Got{raw(qormifGetBinData, pointer(d), &f), f}),
                  (Got{fits, found && !fits ? 0 : room - 1}));
        EXPECT_TRUE(c == (fits ? value + '#' : untouched) && d == c);
    }

    void expectPlace() const {
        const Got expected{found, found ? sizeOf(value) : 7};
        std::string string = "#";
        unsigned int offset = 0, a = found ? 0 : 7, b = 7, c = 7, d = 7, e = 7;
        unsigned char *place = nullptr, *same = nullptr;
        const bool isReadable = found && value.size() < 0xFFFF;
        EXPECT_EQ(mif.GetStr(id, &string, occurrence), isReadable);
        EXPECT_EQ(string, isReadable ? value.c_str() : "#");
        EXPECT_EQ((Got{mif.GetBin(id, nullptr, &a, occurrence), a}), expected);
        EXPECT_EQ((Got{mif.Seek(id, &offset, &b, occurrence), b}), expected);
        EXPECT_EQ((Got{mif.SearchValue(id, &e, occurrence), e}), expected);
        EXPECT_EQ((Got{mif.GetBinPtr(id, &place, &c, occurrence), c}), expected);
        EXPECT_EQ((Got{raw(qormifGetBinDataPtr, &same, &d), d}), expected);
        EXPECT_TRUE(place == same && place == (found ? mif.GetData() + offset : nullptr));
    }

    void expect() const {
        expectNumbers();
        expectCopies(0);
        if (!value.empty()) {
            expectCopies(1);
        }
        expectPlace();
    }
};

struct Model {
    std::string bytes;
    std::size_t room = 0; // the most that fits

    std::size_t word(std::size_t at) const {
        return static_cast<unsigned char>(bytes[at]) +
               256U * static_cast<unsigned char>(bytes[at + 1]);
    }
    // The value's offset; 0 where there is none.
    std::size_t seek(unsigned short id, unsigned int occurrence) const {
        for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4 + word(at + 2)) {
            if (word(at) == 0xFFFF || at + 4 + word(at + 2) > bytes.size()) {
                return 0;
            }
            if (word(at) == id && --occurrence == 0) {
                return at + 4;
            }
        }
        return 0;
    }
    Reads reads(const Mif32& mif, unsigned short id, unsigned int occurrence) const {
        const std::size_t at = seek(id, occurrence);
        return {mif, id, occurrence, at != 0, at == 0 ? "" : bytes.substr(at, word(at - 2))};
    }
    bool replace(std::size_t at, std::size_t count, const std::string& with) {
        const bool fits = bytes.size() - count + with.size() <= room;
        bytes.replace(at, fits ? count : 0, fits ? with : "");
        return fits;
    }
    bool add(std::size_t at, unsigned short id, const std::string& value) {
        return replace(at, 0, numberBytes(id | value.size() << 16, 4) + value);
    }
    // Where the entries end; the end marker stands there if there is one.
    std::size_t end() const {
        std::size_t at = 0;
        while (at + 4 <= bytes.size() && word(at) != 0xFFFF) {
            at += 4 + word(at + 2);
        }
        return at;
    }
    bool hasMarker(std::size_t bytesBehind) const {
        return end() + 2 + bytesBehind == bytes.size() && word(end()) == 0xFFFF;
    }
    bool terminate() {
        return hasMarker(0) || hasMarker(1) ||
               (end() + 4 > bytes.size() && replace(bytes.size(), 0, "\xFF\xFF"));
    }
    bool unterminate() {
        return hasMarker(0) && replace(end(), 2, "");
    }
    bool update(unsigned short id, const std::string& value, unsigned int occurrence) {
        const std::size_t at = seek(id, occurrence);
        if (at == 0 && occurrence != 0) {
            add(hasMarker(0) ? end() : bytes.size(), id, value);
        }
        return at != 0 && replace(at, word(at - 2), value) &&
               replace(at - 2, 2, numberBytes(value.size(), 2));
    }
    bool overwrite(unsigned short id, const std::string& four, unsigned int occurrence,
                   std::size_t allocated) {
        const std::size_t at = seek(id, occurrence);
        if (at == 0 || at + 4 > allocated) {
            return at == 0 && update(id, four, occurrence);
        }
        const std::size_t count = std::min<std::size_t>(4, bytes.size() - at);
        return replace(at, count, four.substr(0, count));
    }
    bool erase(unsigned short id) {
        const std::size_t at = seek(id, 1);
        return at != 0 && replace(at - 4, 4 + word(at - 2), "");
    }
};

class Mif32Model : public testing::Test {
protected:
    static constexpr unsigned int seed = 20261122;

    unsigned int pick(unsigned int count) {
        return static_cast<unsigned int>(random_() % count);
    }

    // A message of no bytes or, at times, of bytes without structure, in either kind of memory.
    void restart() {
        model_.bytes.clear();
        for (unsigned int left = pick(3) == 0 ? pick(24) : 0; left > 0; --left) {
            model_.bytes += "\0\1\2\4\xFE\xFF"[pick(6)];
        }
        const unsigned int used = sizeOf(model_.bytes);
        mif_.SetData(model_.bytes.data(), used);
        model_.room = ~0U;
        if (pick(2) == 0) {
            model_.room = used + 1 + pick(60);
            memory_ = std::vector<unsigned char>(model_.bytes.begin(), model_.bytes.end());
            memory_.resize(model_.room);
            memory_.shrink_to_fit();
            mif_.SetExternalMem(memory_.data(), static_cast<unsigned int>(model_.room), used);
        }
    }

    void step(unsigned short id, unsigned int occurrence) {
        std::string value(pick(40) == 0 ? 300 : pick(10), static_cast<char>(pick(256)));
        const unsigned short size = static_cast<unsigned short>(value.size());
        const unsigned long long number = pick(2) == 0 ? 5 : 0x1234567890;
        const unsigned int low = static_cast<unsigned int>(number);
        const std::string four = numberBytes(low, 4);
        const std::string some = numberBytes(number, number > 0xFFFFFFFF ? 8 : 4);
        const Reads old = model_.reads(mif_, id, occurrence);
        // UpdInt64 changes a length always in the first entry.
        const unsigned int changed = old.found && old.value.size() != some.size() ? 1 : occurrence;
        const auto compare = [](bool result, bool expected) { EXPECT_EQ(result, expected); };
        switch (pick(8)) {
        case 0:
            return compare(mif_.Add(id, pointer(value), size),
                           model_.add(model_.bytes.size(), id, value));
        case 1:
            return compare(mif_.UpdInt(id, low, occurrence),
                           model_.overwrite(id, four, occurrence, mif_.GetAllocLen()));
        case 2:
            return compare(mif_.UpdInt64(id, number, occurrence), model_.update(id, some, changed));
        case 3:
            return compare(mif_.UpdBin(id, pointer(value), size, occurrence),
                           model_.update(id, value, occurrence));
        case 4:
            return compare(old.raw(qormifUpdInt, low),
                           old.value.size() == 4 && model_.update(id, four, occurrence));
        case 5:
            return compare(mif_.DelOid(id), model_.erase(id));
        case 6:
            return compare(mif_.AddEndKz(), model_.terminate());
        default:
            return compare(mif_.DelEndKz(), model_.unterminate());
        }
    }

    std::mt19937 random_{seed};
    std::vector<unsigned char> memory_;
    Mif32 mif_;
    Model model_;
};

TEST_F(Mif32Model, AgreesAfterEveryOperation) {
    constexpr unsigned short ids[] = {1, 2, 0x0100, 0xFFFE};
    for (int i = 0; i < 300000 && !HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
        if (i % 40 == 0) {
            restart();
        }
        const unsigned short id = ids[pick(4)];
        const unsigned int occurrence = pick(4);
        step(id, occurrence);
        ASSERT_EQ(std::string(mif_.GetData(), mif_.GetData() + mif_.GetLen()), model_.bytes);
        model_.reads(mif_, id, occurrence).expect();
    }
}

// The longest ones, of which a std::string takes only the first.
TEST_F(Mif32Model, ReadsTheLongestValues) {
    for (const unsigned int occurrence : {1U, 2U}) {
        std::string value(0xFFFD + occurrence, 'x');
        EXPECT_TRUE(mif_.AddBin(1, pointer(value), sizeOf(value)));
        Reads{mif_, 1, occurrence, true, value}.expect();
    }
}

} // namespace
