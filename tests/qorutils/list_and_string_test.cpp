#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "templlinkedlist.h"
#include "tfstring.h"

namespace {

using Letters = QOR::TemplLinkedList<char*>;
using Element = Letters::Element;

char letters[] = "abcx"; // the data that stands for a letter is its place here

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
    const char* const cases[][3] = {
        // before, the letter, after
        {"a", "a", ""},   {"abc", "a", "bc"},   {"abc", "b", "ac"}, {"abc", "c", "ab"},
        {"ab", "b", "a"}, {"abab", "b", "aab"}, {"ab", "x", "ab"},  {"", "x", ""},
    };
    for (const bool byElement : {false, true}) {
        for (const auto& [before, letter, after] : cases) {
            Letters list;
            list.LeaveDataOnExit();
            Element other(strchr(letters, *letter));
            Element* gone = nullptr; // the first one with the data
            for (const char* each = before; *each != '\0'; ++each) {
                EXPECT_EQ(list.Add(strchr(letters, *each)), 1);
                gone = gone == nullptr && *each == *letter ? list.tail : gone;
            }
            EXPECT_EQ(byElement ? list.Del(&other) : list.Del(other.data), gone != nullptr);
            EXPECT_EQ(contents(list), after);
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
    }
    EXPECT_EQ(events, "abdce");
    Letters text; // the address sanitizer tells whether it was freed
    text.FreeDataOnExit();
    text.Add(strdup("from malloc"));
}

// An element that a program puts into a list by itself.
struct OwnElement : Element {
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
std::size_t slotOf(Function function) {
    std::size_t offset = 0;
    memcpy(&offset, &function, sizeof offset);
    return offset / sizeof(void*);
}

TEST(TemplLinkedList, KeepsTheOrderOfItsVirtualFunctions) {
    // The destructors take the first two.
    EXPECT_TRUE(slotOf(&Letters::Clear) == 2 && slotOf(&Letters::Add) == 3 &&
                slotOf<signed char (Letters::*)(char*)>(&Letters::Del) == 4 &&
                slotOf<signed char (Letters::*)(Element*)>(&Letters::Del) == 5 &&
                slotOf(&Letters::dump) == 6 && slotOf(&Letters::LeaveDataOnExit) == 7 &&
                slotOf(&Letters::DeleteDataOnExit) == 8 &&
                slotOf(&Letters::DeleteArrayDataOnExit) == 9 &&
                slotOf(&Letters::FreeDataOnExit) == 10 && slotOf(&Element::dump) == 2);
}

// Result, text, length and capacity after an operation.
std::string after(const QOR::TFstring& builder, int result) {
    const char* const text = *builder.target;
    return std::to_string(result) + ' ' + (text == nullptr ? "-" : text) + ' ' +
           std::to_string(builder.length) + '/' + std::to_string(builder.capacity);
}

TEST(TFstring, AppendsAndGrowsByTens) {
    for (const auto& [initialSize, expected] :
         {std::pair(0u, "1 - 0/0"), std::pair(9u, "1  0/10"), std::pair(10u, "1  0/20")}) {
        char* text = letters; // replaced at once
        const QOR::TFstring builder(&text, initialSize);
        EXPECT_EQ(after(builder, 1), expected);
        free(text);
    }
    char* text = nullptr;
    QOR::TFstring builder(&text, 0);
    EXPECT_EQ(after(builder, builder.Add("abcdef", 2)), "1 ab 2/10");
    EXPECT_EQ(after(builder, builder.Add("a", 0)), "1 ab 2/10");
    EXPECT_EQ(after(builder, builder.Add("cdefghi")), "1 abcdefghi 9/10");
    EXPECT_EQ(after(builder, builder.Add("j", 1)), "1 abcdefghij 10/20");
    EXPECT_EQ(after(builder, builder.Add("k", 3)), "1 abcdefghijk 13/20") << "the length told";
    EXPECT_EQ(after(builder, builder.Add("12345678901234567")),
              "1 abcdefghijk12345678901234567 30/40");
    free(text);
    EXPECT_EQ(builder.Add(nullptr) + builder.Add(nullptr, 1), 0);
    EXPECT_EQ(QOR::TFstring(nullptr, 1).Add("x"), 0);
}

TEST(TFstring, StartsAfreshWhereItLostItsString) {
    char* text = nullptr;
    QOR::TFstring builder(&text, 1);
    // Length and extra wrap; their sum does not; the next capacity does.
    for (const unsigned int extra : {0xFFFFFFFEu, 0xFFFFFFFCu, 4294967287u}) {
        EXPECT_EQ(builder.Add("abc"), 1);
        char* const lost = text;
        EXPECT_EQ(after(builder, builder.Add("x", extra)), "0 - 0/0");
        EXPECT_STREQ(lost, "abc");
        free(lost);
    }
    builder.Add("abc");
    text[1] = '\0'; // as callers may
    EXPECT_EQ(after(builder, builder.Add("xyz")), "1 axyz 6/10");
    free(std::exchange(text, nullptr)); // and this
    EXPECT_EQ(after(builder, builder.Add("xyz")), "1 xyz 3/10");
    memset(text, 'x', 10); // this they may not; no room and no terminator
    EXPECT_EQ(after(builder, builder.Add("y")), "1 xxxxxxxxx 4/10");
    free(text);
}

} // namespace
