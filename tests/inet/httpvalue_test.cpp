#include "httpvalue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Values = QOR::TemplLinkedList<HTTPVALUE*>;

// Reads an exact-size copy.
std::string pairsOf(const std::string& text) {
    const std::vector<char> exact(text.begin(), text.end());
    Values list;
    HTTPVALUE::parseHttpValues(list, exact.data(), static_cast<unsigned int>(exact.size()));
    std::string pairs;
    for (const Values::Element* e = list.head; e != nullptr; e = e->next) {
        pairs += std::string(e->data->name) + '=' + e->data->value + ';';
    }
    return pairs;
}

TEST(HttpValue, ReadsPairs) {
    struct Case {
        std::string text;
        std::string expected;
    };
    const Case cases[] = {
        {"Version: 1.0\r\nBuild: 7\r\n", "Version=1.0;Build=7;"},
        {"a: b\r\nc: d", "a=b;"},
        {"a: b\r\nc: d\r", "a=b;"},
        {"a: b\r\nc\r\n", "a=b;"},
        {"c\r\na: b\r\n", "c\r\na=b;"}, // no line end ends a name
        {" a : b \r\n", " a =b ;"},
        {": \r\n", "=;"},
        {"a: b: c\r\n", "a=b: c;"},
        {"a:b: c\r\n", "a:b=c;"},
        {"a:: b\r\n", ""}, // a ":" takes the next one along
        {"a::: b\r\n", "a::=b;"},
        {"a: b\r\r\nc: d\r\n", "a=b\r\r\nc: d;"}, // and so does a CR
        {"a: b\r\r\r\n", "a=b\r\r;"},
        {"a: b\nc: d\r\n", "a=b\nc: d;"},
        {std::string("a\0b: c\0d\r\n", 11), "a=c;"},
        {"note: a<CR>b\r\n", "note=a\nb;"},
        {"<CR>: <CR><CR><C<CR>R><cr><CR\r\n", "<CR>=\n\n<C\nR><cr><CR;"},
        {"", ""},
        {":", ""},
        {"\r\n: \r\n", "\r\n=;"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(pairsOf(c.text), c.expected) << c.text;
    }
    const std::string whole = "ab: c\r\nde: f<CR>g\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(pairsOf(whole.substr(0, length)), length < 7 ? "" : "ab=c;") << length;
    }
    Values list;
    HTTPVALUE::parseHttpValues(list, nullptr, 9);
    EXPECT_EQ(list.count, 0u);
}

TEST(HttpValue, FindsTheFirstPairOfAName) {
    Values list;
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, "a"), nullptr);
    list.Add(nullptr);
    list.Add(new HTTPVALUE);
    const char text[] = "ab: 1\r\na: 2\r\na: 3\r\n";
    HTTPVALUE::parseHttpValues(list, text, sizeof text - 1);
    const HTTPVALUE* const found = HTTPVALUE::findHttpValue(list, "a");
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->value, "2");
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, "A"), nullptr);
    EXPECT_EQ(HTTPVALUE::findHttpValue(list, nullptr), nullptr);
    EXPECT_EQ(HTTPVALUE::replaceCR(nullptr), nullptr);
}

// What leaks here is seen by the address sanitizer.
TEST(HttpValue, BelongsToTheList) {
    Values arrays;
    arrays.DeleteArrayDataOnExit();
    HTTPVALUE* const pairs = new HTTPVALUE[2];
    pairs[1].name = strdup("name");
    pairs[1].value = strdup("value");
    arrays.Add(pairs);

    struct FullList : Values {
        signed char Add(HTTPVALUE* data) override {
            return count == 1 ? static_cast<signed char>(0) : Values::Add(data);
        }
    } full;
    const char text[] = "a: 1\r\nb: 2\r\nc: 3\r\n";
    HTTPVALUE::parseHttpValues(full, text, sizeof text - 1);
    EXPECT_EQ(full.count, 1u);

    Values left;
    left.LeaveDataOnExit();
    HTTPVALUE::parseHttpValues(left, text, 6);
    ASSERT_EQ(left.count, 1u);
    HTTPVALUE* const own = left.head->data;
    left.Clear();
    EXPECT_STREQ(own->name, "a");
    delete own;
}

} // namespace
