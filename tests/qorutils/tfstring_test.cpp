#include "tfstring.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

// A builder with its string.
struct Built {
    explicit Built(unsigned int initialSize) : builder(&text, initialSize) {}
    ~Built() {
        free(text);
    }
    Built(const Built&) = delete;
    Built& operator=(const Built&) = delete;

    std::string state() const {
        const std::string shown = text == nullptr ? "-" : '"' + std::string(text) + '"';
        return shown + ' ' + std::to_string(builder.length) + '/' +
               std::to_string(builder.capacity);
    }

    char* text = letters; // replaced at once
    QOR::TFstring builder;
    static char letters[2];
};
char Built::letters[2] = "x";

TEST(TFstring, AppendsAndGrowsByTens) {
    struct Case {
        unsigned int initialSize;
        std::vector<std::pair<std::string, unsigned int>>
            pieces;           // each with the length that is told
        std::string expected; // text, length, capacity
    };
    const Case cases[] = {
        {0, {}, R"(- 0/0)"},
        {0, {{"abc", 3}}, R"("abc" 3/10)"},
        {1, {}, R"("" 0/10)"},
        {9, {}, R"("" 0/10)"},
        {10, {}, R"("" 0/20)"},
        {1, {{"abc", 3}}, R"("abc" 3/10)"},
        {1, {{"abc", 3}, {"defghi", 6}}, R"("abcdefghi" 9/10)"},
        {1, {{"abc", 3}, {"defghij", 7}}, R"("abcdefghij" 10/20)"},
        {1, {{"0123456789012345678901234", 25}}, R"("0123456789012345678901234" 25/30)"},
        {1, {{"abcdef", 2}, {"", 0}}, R"("ab" 2/10)"},
        {1, {{"abc", 6}, {"defg", 4}}, R"("abcdefg" 10/20)"}, // more told than there was
        {1, {{"abc", 25}}, R"("abc" 25/30)"},
    };
    for (const Case& c : cases) {
        Built built(c.initialSize);
        for (const auto& [piece, told] : c.pieces) {
            // No more than what may be read: the terminator only where it counts.
            std::vector<char> exact(piece.c_str(), piece.c_str() + piece.size() + 1);
            exact.resize(std::min<std::size_t>(exact.size(), told));
            exact.shrink_to_fit();
            const char none = 0;
            EXPECT_EQ(built.builder.Add(exact.empty() ? &none : exact.data(), told), 1);
        }
        EXPECT_EQ(built.state(), c.expected);
    }
}

TEST(TFstring, LosesItsStringWhereItCannotGrow) {
    struct Case {
        const char* name;
        unsigned int extra;
    };
    const Case cases[] = {
        {"length and extra wrap", 0xFFFFFFFE},
        {"the sum does not wrap", 0xFFFFFFFF - 3},
        {"the next capacity wraps", 4294967290u - 3},
    };
    for (const Case& c : cases) {
        Built built(1);
        EXPECT_EQ(built.builder.Add("abc"), 1);
        EXPECT_EQ(built.builder.checkAndResize(c.extra), 0) << c.name;
        EXPECT_EQ(built.state(), "- 0/0") << c.name;
        EXPECT_EQ(built.builder.Add("abc"), 1);
        EXPECT_EQ(built.builder.Add("x", c.extra), 0) << c.name;
        EXPECT_EQ(built.builder.Add("de"), 1);
        EXPECT_EQ(built.state(), R"("de" 2/10)") << c.name;
    }
}

TEST(TFstring, BearsWhatCallersDoInBetween) {
    Built built(1);
    EXPECT_EQ(built.builder.Add(nullptr) + built.builder.Add(nullptr, 1), 0);
    built.builder.Add("abc");
    built.text[1] = '\0';
    EXPECT_EQ(built.builder.Add("xyz"), 1);
    EXPECT_EQ(built.state(), R"("axyz" 6/10)");

    free(std::exchange(built.text, nullptr));
    EXPECT_EQ(built.builder.Add("xyz"), 1);
    EXPECT_EQ(built.state(), R"("xyz" 3/10)");

    memset(built.text, 'x', 10); // leaves no room, and no terminator
    EXPECT_EQ(built.builder.Add("y"), 1);
    EXPECT_EQ(built.state(), R"("xxxxxxxxx" 4/10)");

    QOR::TFstring nowhere(nullptr, 1);
    EXPECT_EQ(nowhere.Add("x"), 0);
}

} // namespace
