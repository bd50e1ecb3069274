#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "templlinkedlist.h"
#include "tfstring.h"

namespace {

using Letters = QOR::TemplLinkedList<char*>;
using Element = Letters::Element;

char letters[] = "abcx";

// The data that stands for a letter: its place.
char* place(char letter) {
    return strchr(letters, letter);
}

// The letters from the head on. Count and tail have to agree with them.
std::string contents(const Letters& list) {
    std::string found;
    const Element* last = nullptr;
    for (const Element* e = list.head; e != nullptr; e = e->next) {
        found += *e->data;
        last = e;
    }
    EXPECT_TRUE(list.count == found.size() && list.tail == last) << found;
    return found;
}

TEST(TemplLinkedList, UnlinksTheFirstElementWithTheData) {
    struct Case {
        std::string before;
        char data;
        std::string after;
    };
    const Case cases[] = {
        {"a", 'a', ""},   {"abc", 'a', "bc"},   {"abc", 'b', "ac"}, {"abc", 'c', "ab"},
        {"ab", 'b', "a"}, {"abab", 'b', "aab"}, {"ab", 'x', "ab"},  {"", 'x', ""},
    };
    for (const bool byElement : {false, true}) {
        for (const Case& c : cases) {
            Letters list;
            list.LeaveDataOnExit();
            Element other(place(c.data));
            Element* gone = nullptr; // the first one with the data
            for (const char letter : c.before) {
                EXPECT_EQ(list.Add(place(letter)), 1);
                gone = gone == nullptr && letter == c.data ? list.tail : gone;
            }
            EXPECT_EQ(byElement ? list.Del(&other) : list.Del(other.data), gone != nullptr);
            EXPECT_EQ(contents(list), c.after);
            delete gone; // it was not released
            EXPECT_EQ(list.Del(static_cast<Element*>(nullptr)), 0);
        }
    }
}

std::string events; // what was destroyed or dumped

struct Noted {
    ~Noted() {
        events += letter;
    }
    char letter;
};

TEST(TemplLinkedList, ReleasesItsDataAsAsked) {
    Noted own{'?'};
    {
        QOR::TemplLinkedList<Noted*> list;
        list.Add(new Noted{'a'});
        list.Add(nullptr);
        list.Add(new Noted{'b'});
        list.Clear();
        EXPECT_TRUE(list.head == nullptr && list.tail == nullptr && list.count == 0);
        list.DeleteArrayDataOnExit();
        list.Add(new Noted[2]{{'c'}, {'d'}});
        list.Clear();
        EXPECT_EQ(list.onExit, 2u); // also for what comes next
        list.LeaveDataOnExit();
        list.Add(&own);
        list.Clear();
        list.DeleteDataOnExit();
        list.Add(new Noted{'e'});
        EXPECT_EQ(events, "abdc");
    }
    EXPECT_EQ(events, "abdce");
    Letters text; // the address sanitizer tells these ways apart
    text.FreeDataOnExit();
    text.Add(strdup("from malloc"));
    text.Clear();
    text.DeleteArrayDataOnExit();
    text.Add(new char[2]);
}

// An element that a program puts into a list by itself.
struct OwnElement : Letters::Element {
    using Element::Element;
    ~OwnElement() override {
        events += '~';
    }
    void dump(char* buffer, unsigned int level) override {
        events += buffer + std::to_string(level) + ' ';
    }
};

TEST(TemplLinkedList, DumpsAndReleasesDerivedElements) {
    events.clear();
    char buffer[] = "at ";
    {
        Letters list;
        list.head = new OwnElement(nullptr);
        list.head->next = list.tail = new OwnElement(nullptr);
        list.Add(nullptr);
        list.dump(buffer, 6);
    }
    EXPECT_EQ(events, "at 7 at 7 ~~");
}

// The place of a virtual function in the table by which programs call it.
template <class Function>
std::ptrdiff_t slotOf(Function function) {
    std::ptrdiff_t offset = 0;
    memcpy(&offset, &function, sizeof offset);
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(TemplLinkedList, KeepsTheOrderOfItsVirtualFunctions) {
    // The destructors take the first two.
    EXPECT_TRUE(slotOf(&Letters::Clear) == 2 && slotOf(&Letters::Add) == 3 &&
                slotOf<signed char (Letters::*)(char*)>(&Letters::Del) == 4 &&
                slotOf<signed char (Letters::*)(Letters::Element*)>(&Letters::Del) == 5 &&
                slotOf(&Letters::dump) == 6 && slotOf(&Letters::LeaveDataOnExit) == 7 &&
                slotOf(&Letters::DeleteDataOnExit) == 8 &&
                slotOf(&Letters::DeleteArrayDataOnExit) == 9 &&
                slotOf(&Letters::FreeDataOnExit) == 10 && slotOf(&Letters::Element::dump) == 2);
}

std::string stateOf(const char* text, const QOR::TFstring& builder) {
    return (text == nullptr ? "-" : '"' + std::string(text) + '"') + ' ' +
           std::to_string(builder.length) + '/' + std::to_string(builder.capacity);
}

TEST(TFstring, AppendsAndGrowsByTens) {
    struct Case {
        unsigned int initialSize;
        std::vector<std::pair<std::string, unsigned int>> pieces; // each with the length told
        std::string expected;                                     // text, length, capacity
    };
    const std::string terminated("abc", 4);
    const Case cases[] = {
        {0, {}, "- 0/0"},
        {0, {{"abc", 3}}, R"("abc" 3/10)"},
        {9, {}, R"("" 0/10)"},
        {10, {}, R"("" 0/20)"},
        {1, {{"abc", 3}, {"defghij", 7}}, R"("abcdefghij" 10/20)"},
        {1, {{"01234567890123456789", 20}}, R"("01234567890123456789" 20/30)"},
        {1, {{"abcdef", 2}, {"a", 0}}, R"("ab" 2/10)"},
        {1, {{terminated, 6}, {"defg", 4}}, R"("abcdefg" 10/20)"}, // told more than there was
    };
    for (const Case& c : cases) {
        char letter = 'x';
        char* text = &letter; // replaced at once
        QOR::TFstring builder(&text, c.initialSize);
        for (const auto& [piece, told] : c.pieces) {
            const std::vector<char> exact(piece.begin(), piece.end());
            EXPECT_EQ(builder.Add(exact.data(), told), 1);
        }
        EXPECT_EQ(stateOf(text, builder), c.expected);
        free(text);
    }
}

TEST(TFstring, StartsAfreshWhereItLostItsString) {
    char* text = nullptr;
    QOR::TFstring builder(&text, 1);
    // Length and extra wrap; their sum does not; the next capacity does.
    for (const unsigned int extra : {0xFFFFFFFEu, 0xFFFFFFFCu, 4294967287u}) {
        EXPECT_EQ(builder.Add("abc"), 1);
        char* const lost = text;
        EXPECT_EQ(builder.Add("x", extra), 0);
        EXPECT_EQ(stateOf(text, builder), "- 0/0");
        EXPECT_STREQ(lost, "abc");
        free(lost);
    }
    builder.Add("abc");
    text[1] = '\0'; // as callers may
    builder.Add("xyz");
    EXPECT_EQ(stateOf(text, builder), R"("axyz" 6/10)");
    free(std::exchange(text, nullptr)); // and this
    builder.Add("xyz");
    EXPECT_EQ(stateOf(text, builder), R"("xyz" 3/10)");
    memset(text, 'x', 10); // this they may not; no room and no terminator
    builder.Add("y");
    EXPECT_EQ(stateOf(text, builder), R"("xxxxxxxxx" 4/10)");
    free(text);
    EXPECT_EQ(builder.Add(nullptr) + builder.Add(nullptr, 1), 0);
    EXPECT_EQ(QOR::TFstring(nullptr, 1).Add("x"), 0);
}

} // namespace
