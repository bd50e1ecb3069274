// Random operations on a Mif32 and on a plain string of bytes, side by side; after each of them
// every reader is asked.
#include "mif32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qormif.h"

namespace {

unsigned char* pointer(std::string& bytes) {
    return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string numberBytes(unsigned long long number, std::size_t count) {
    return std::string(reinterpret_cast<const char*>(&number), count);
}

class Mif32Model : public testing::Test {
protected:
    static constexpr unsigned int seed = 20261122;

    using Got = std::pair<bool, unsigned long long>; // a result, and what the output holds
    using Results = std::pair<bool, bool>;           // of the object and of the model

    unsigned int pick(unsigned int count) {
        return static_cast<unsigned int>(random() % count);
    }

    // ---- The model ----

    std::size_t word(std::size_t at) const {
        return static_cast<unsigned char>(bytes[at]) +
               256U * static_cast<unsigned char>(bytes[at + 1]);
    }
    // The offset of the value; 0 where there is none.
    std::size_t seek(unsigned int nth) const {
        for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4 + word(at + 2)) {
            if (word(at) == 0xFFFF || at + 4 + word(at + 2) > bytes.size()) {
                return 0;
            }
            if (word(at) == id && --nth == 0) {
                return at + 4;
            }
        }
        return 0;
    }
    bool replace(std::size_t at, std::size_t count, const std::string& with) {
        const bool fits = bytes.size() - count + with.size() <= room;
        bytes.replace(at, fits ? count : 0, fits ? with : "");
        return fits;
    }
    bool add(std::size_t at, const std::string& value) {
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
    bool update(const std::string& value, unsigned int nth) {
        const std::size_t at = seek(nth);
        if (at == 0 && nth != 0) {
            add(hasMarker(0) ? end() : bytes.size(), value);
        }
        return at != 0 && replace(at, word(at - 2), value) &&
               replace(at - 2, 2, numberBytes(value.size(), 2));
    }
    bool overwrite(const std::string& four) {
        const std::size_t at = seek(occurrence);
        if (at == 0 || at + 4 > mif.GetAllocLen()) {
            return at == 0 && update(four, occurrence);
        }
        const std::size_t count = std::min<std::size_t>(4, bytes.size() - at);
        return replace(at, count, four.substr(0, count));
    }

    // ---- Operations ----

    // A message of no bytes or, at times, of bytes without structure, in either kind of memory.
    void restart() {
        bytes.clear();
        for (unsigned int left = pick(3) == 0 ? pick(24) : 0; left > 0; --left) {
            bytes += "\0\1\2\4\xFE\xFF"[pick(6)];
        }
        const unsigned int used = static_cast<unsigned int>(bytes.size());
        mif.SetData(bytes.data(), used);
        room = ~0U;
        if (pick(2) == 0) {
            room = used + 1 + pick(60);
            memory = std::vector<unsigned char>(bytes.begin(), bytes.end());
            memory.resize(room);
            memory.shrink_to_fit();
            mif.SetExternalMem(memory.data(), static_cast<unsigned int>(room), used);
        }
    }

    Results step() {
        std::string value(pick(40) == 0 ? 300 : pick(36), '\0');
        std::iota(value.begin(), value.end(), static_cast<char>(pick(256)));
        const unsigned short size = static_cast<unsigned short>(value.size());
        const unsigned long long number = pick(2) == 0 ? 5 : 0x1234567890;
        const unsigned int low = static_cast<unsigned int>(number);
        const std::string four = numberBytes(low, 4);
        const std::string some = numberBytes(number, number > 0xFFFFFFFF ? 8 : 4);
        const std::size_t at = seek(occurrence);
        // UpdInt64 changes a length always in the first entry.
        const unsigned int changed = at != 0 && word(at - 2) != some.size() ? 1 : occurrence;
        switch (pick(8)) {
        case 0:
            return {mif.Add(id, pointer(value), size), add(bytes.size(), value)};
        case 1:
            return {mif.UpdInt(id, low, occurrence), overwrite(four)};
        case 2:
            return {mif.UpdInt64(id, number, occurrence), update(some, changed)};
        case 3:
            return {mif.UpdBin(id, pointer(value), size, occurrence), update(value, occurrence)};
        case 4:
            return {raw(qormifUpdInt, low),
                    at != 0 && word(at - 2) == 4 && update(four, occurrence)};
        case 5:
            return {mif.DelOid(id),
                    seek(1) != 0 && replace(seek(1) - 4, 4 + word(seek(1) - 2), "")};
        case 6:
            return {mif.AddEndKz(), terminate()};
        default:
            return {mif.DelEndKz(), hasMarker(0) && replace(end(), 2, "")};
        }
    }

    // ---- Readers ----

    template <typename Function, typename... Outputs>
    bool raw(Function function, Outputs... outputs) const {
        return function(mif.data, mif.length, id, outputs..., occurrence) != 0;
    }

    void expectNumbers(bool found, const std::string& value) const {
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
        EXPECT_EQ((Got{raw(qormifGetInt64, &f), f}), (Got{isLong, bytes.empty() ? 7 : written}));
    }

    // Into an output that is as large as has to be, or a byte shorter.
    void expectCopies(bool found, const std::string& value, unsigned int missing) const {
        const unsigned int size = static_cast<unsigned int>(value.size());
        const unsigned int space = size + 1 - missing;
        const bool fits = found && missing == 0;
        const bool fits16 = fits && space <= 0xFFFF; // the next is 0 in 16 bits
        const std::string untouched(size + 1, '#');
        const std::string text = fits ? value + '\0' : untouched;
        std::string a = untouched, b = a, c = a, d = a;
        EXPECT_EQ(mif.GetStr(id, a.data(), static_cast<unsigned short>(space), occurrence), fits16);
        EXPECT_TRUE(a == (fits16 ? text : untouched));
        EXPECT_EQ(raw(qormifGetStr, b.data(), space), fits);
        EXPECT_TRUE(b == text);
        unsigned int e = space - 1, f = e;
        EXPECT_EQ((Got{mif.GetBin(id, pointer(c), &e, occurrence), e}), (Got{fits, space - 1}));
        EXPECT_EQ((Got{raw(qormifGetBinData, pointer(d), &f), f}),
                  (Got{fits, found && !fits ? 0 : space - 1}));
        EXPECT_TRUE(c == (fits ? value + '#' : untouched) && d == c);
    }

    void expectPlace(bool found, const std::string& value) const {
        const Got expected{found, found ? value.size() : 7};
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
        EXPECT_TRUE(place == same && place == (found ? mif.data + offset : nullptr));
    }

    void expectReads() const {
        const std::size_t at = seek(occurrence);
        const std::string value = at == 0 ? "" : bytes.substr(at, word(at - 2));
        expectNumbers(at != 0, value);
        expectCopies(at != 0, value, 0);
        if (!value.empty()) {
            expectCopies(at != 0, value, 1);
        }
        expectPlace(at != 0, value);
    }

    std::mt19937 random{seed};
    std::vector<unsigned char> memory;
    Mif32 mif;
    std::string bytes;    // as they have to be
    std::size_t room = 0; // the most that fits
    unsigned short id = 1;
    unsigned int occurrence = 1;
};

TEST_F(Mif32Model, AgreesAfterEveryOperation) {
    constexpr unsigned short ids[] = {1, 2, 0x0100, 0xFFFE};
    for (int i = 0; i < 300000 && !HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
        if (i % 40 == 0) {
            restart();
        }
        id = ids[pick(4)];
        occurrence = pick(4);
        const auto [result, expected] = step();
        EXPECT_EQ(result, expected);
        ASSERT_EQ(std::string(mif.data, mif.data + mif.length), bytes);
        expectReads();
    }
}

// The longest ones, of which a std::string takes only the first.
TEST_F(Mif32Model, ReadsTheLongestValues) {
    for (const unsigned int size : {0xFFFEU, 0xFFFFU}) {
        std::string value(size, 'x');
        bytes = numberBytes(id | size << 16, 4) + value;
        mif.SetData(bytes.data(), size + 4);
        expectReads();
    }
}

} // namespace
