#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "templlinkedlist.h"
#include "tfstring.h"

namespace {

using Letters = QOR::TemplLinkedList<char*>;

char letters[] = "abx"; // the data that stands for a letter is its place here

TEST(TemplLinkedList, UnlinksTheFirstElementWithTheData) {
    Letters list;
    list.LeaveDataOnExit();
    std::vector<std::unique_ptr<Letters::Element>> elements; // which are not released
    for (const char letter : {'a', 'b', 'a', 'b'}) {
        EXPECT_EQ(list.Add(strchr(letters, letter)), 1);
        elements.emplace_back(list.tail);
    }
    // One after the other is taken out of what the one before it left.
    for (const auto& [letter, left] :
         {std::pair('b', "aab"), {'b', "aa"}, {'x', "aa"}, {'a', "a"}, {'a', ""}, {'a', ""}}) {
        Letters::Element other(strchr(letters, letter));
        const unsigned int before = list.count;
        EXPECT_EQ(list.Del(&other), static_cast<int>(before - strlen(left)));
        std::string found;
        for (const auto* e = list.head; e != nullptr; e = e->next) {
            found += *e->data;
            EXPECT_TRUE(e->next != nullptr || e == list.tail) << left;
        }
        EXPECT_TRUE(found == left && list.count == found.size()) << left;
    }
    EXPECT_TRUE(list.tail == nullptr && list.Del(static_cast<Letters::Element*>(nullptr)) == 0);
}

// The address sanitizer tells whether each was released as it was made.
TEST(TemplLinkedList, ReleasesItsDataAsAsked) {
    Letters list;
    list.Add(new char);
    list.Clear();
    EXPECT_TRUE(list.head == nullptr && list.tail == nullptr && list.count == 0);
    list.DeleteArrayDataOnExit();
    list.Clear();
    list.Add(new char[2]); // what was asked stays
    list.Clear();
    list.FreeDataOnExit();
    list.Add(strdup("from malloc"));
}

TEST(TFstring, AppendsAndGrowsByTens) {
    char* text = letters; // replaced at once
    QOR::TFstring builder(&text, 9);
    // What is added, and the length told; result, text, length and capacity then.
    const std::tuple<const char*, unsigned int, std::string> cases[] = {
        {"abcdef", 2, "1 ab 2/10"},     {"cdefghi", 7, "1 abcdefghi 9/10"},
        {"j", 1, "1 abcdefghij 10/20"}, {"k", 23, "1 abcdefghijk 33/40"},
        {"x", 0xFFFFFFFE, "0 - 0/0"},                                  // length and extra wrap
        {"xyz", 3, "1 xyz 3/10"},       {"x", 4294967287u, "0 - 0/0"}, // the next capacity does
        {"xyz", 3, "1 xyz 3/10"}};
    for (const auto& [added, length, expected] : cases) {
        char* const held = text;
        const std::string result = std::to_string(builder.Add(added, length)) + ' ';
        EXPECT_EQ(result + (text == nullptr ? "-" : text) + ' ' + std::to_string(builder.length) +
                      '/' + std::to_string(builder.capacity),
                  expected);
        free(text == nullptr ? held : nullptr); // it was lost, not released
    }
    memset(text, 'x', 10); // no room and no terminator
    EXPECT_EQ(builder.Add("y") + builder.Add(nullptr), 1);
    EXPECT_STREQ(text, "xxxxxxxxx");
    free(std::exchange(text, nullptr)); // as callers may
    EXPECT_TRUE(builder.Add("abc") == 1 && builder.length == 3);
    free(text);
}

} // namespace
