#include "templlinkedlist.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Letters = QOR::TemplLinkedList<char*>;

char letters[] = "abcx";

// The data that stands for a letter: its place.
char* place(char letter) {
    return strchr(letters, letter);
}

// The letters from the head on. Count and tail have to agree with them.
std::string contents(const Letters& list) {
    std::string found;
    const Letters::Element* last = nullptr;
    for (const Letters::Element* e = list.head; e != nullptr; e = e->next) {
        found += *e->data;
        last = e;
    }
    EXPECT_EQ(list.count, found.size());
    EXPECT_EQ(list.tail, last);
    return found;
}

TEST(TemplLinkedList, UnlinksTheFirstElementWithTheData) {
    struct Case {
        const char* name;
        std::string before;
        char data;
        std::string after;
    };
    const Case cases[] = {
        {"the only one", "a", 'a', ""},  {"first", "abc", 'a', "bc"},
        {"middle", "abc", 'b', "ac"},    {"last", "abc", 'c', "ab"},
        {"last of two", "ab", 'b', "a"}, {"twice there", "abab", 'b', "aab"},
        {"not there", "ab", 'x', "ab"},  {"empty", "", 'x', ""},
    };
    for (const bool byElement : {false, true}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            Letters list;
            list.LeaveDataOnExit();
            Letters::Element other(place('x'));
            Letters::Element* gone = nullptr; // the first one with the data
            Letters::Element* named = &other; // the last one
            for (const char letter : c.before) {
                EXPECT_EQ(list.Add(place(letter)), 1);
                named = letter == c.data ? list.tail : named;
                gone = gone == nullptr && letter == c.data ? list.tail : gone;
            }
            EXPECT_EQ(byElement ? list.Del(named) : list.Del(place(c.data)), gone != nullptr);
            EXPECT_EQ(contents(list), c.after);
            EXPECT_TRUE(gone == nullptr || gone->data == place(c.data));
            delete gone; // it was not released
            list.Add(place('x'));
            EXPECT_EQ(contents(list), c.after + 'x');
            EXPECT_EQ(list.Del(static_cast<Letters::Element*>(nullptr)), 0);
        }
    }
}

// Notes its letter when it is destroyed.
struct Noted {
    static std::string destroyed;
    ~Noted() {
        destroyed += letter;
    }
    char letter = '?';
};
std::string Noted::destroyed;

Noted* twoNoted(char first) {
    Noted* const pair = new Noted[2];
    pair[0].letter = first;
    pair[1].letter = static_cast<char>(first + 1);
    return pair;
}

TEST(TemplLinkedList, ReleasesItsDataAsAsked) {
    Noted own[2];
    {
        QOR::TemplLinkedList<Noted*> list;
        EXPECT_EQ(list.onExit, 1u);
        list.Add(new Noted{'a'});
        list.Add(nullptr);
        list.Add(new Noted{'b'});
        list.Clear();
        EXPECT_EQ(Noted::destroyed, "ab");
        EXPECT_TRUE(list.head == nullptr && list.tail == nullptr && list.count == 0);

        list.DeleteArrayDataOnExit();
        EXPECT_EQ(list.onExit, 2u);
        list.Add(twoNoted('c'));
        list.Add(twoNoted('e'));
        list.Clear();
        EXPECT_EQ(Noted::destroyed, "abdcfe");
        EXPECT_EQ(list.onExit, 2u); // also for what is added next

        list.LeaveDataOnExit();
        EXPECT_EQ(list.onExit, 0u);
        list.Add(&own[0]);
        list.Clear();
        EXPECT_EQ(Noted::destroyed, "abdcfe");

        list.DeleteDataOnExit();
        list.Add(new Noted{'g'});
    }
    EXPECT_EQ(Noted::destroyed, "abdcfeg");

    Letters text; // the instance that the library holds; the address sanitizer tells the ways apart
    text.FreeDataOnExit();
    EXPECT_EQ(text.onExit, 3u);
    text.Add(strdup("from malloc"));
    text.Clear();
    text.DeleteArrayDataOnExit();
    text.Add(new char[2]);
    text.Clear();
    text.DeleteDataOnExit();
    text.Add(new char);
}

// What a program may put into a list by itself.
struct OwnElement : Letters::Element {
    explicit OwnElement(std::string* elementLog) : Element(nullptr), log(elementLog) {}
    ~OwnElement() override {
        *log += '~';
    }
    void dump(char* buffer, unsigned int level) override {
        *log += buffer + std::to_string(level) + ' ';
    }
    std::string* log;
};

TEST(TemplLinkedList, DumpsAndReleasesDerivedElements) {
    std::string log;
    char buffer[] = "at ";
    {
        Letters list;
        list.head = new OwnElement(&log);
        list.head->next = list.tail = new OwnElement(&log);
        list.Add(nullptr);
        list.dump(buffer, 6);
    }
    EXPECT_EQ(log, "at 7 at 7 ~~");
}

// The place of a virtual function in the table by which programs call it.
template <class Function>
std::ptrdiff_t slotOf(Function function) {
    std::ptrdiff_t offset = 0;
    memcpy(&offset, &function, sizeof offset);
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(TemplLinkedList, KeepsTheOrderOfItsVirtualFunctions) {
    using DelData = signed char (Letters::*)(char*);
    using DelElement = signed char (Letters::*)(Letters::Element*);
    const std::vector<std::ptrdiff_t> slots = {
        slotOf(&Letters::Clear),
        slotOf(&Letters::Add),
        slotOf(static_cast<DelData>(&Letters::Del)),
        slotOf(static_cast<DelElement>(&Letters::Del)),
        slotOf(&Letters::dump),
        slotOf(&Letters::LeaveDataOnExit),
        slotOf(&Letters::DeleteDataOnExit),
        slotOf(&Letters::DeleteArrayDataOnExit),
        slotOf(&Letters::FreeDataOnExit),
        slotOf(&Letters::Element::dump),
    };
    // The destructors take the first two.
    EXPECT_EQ(slots, (std::vector<std::ptrdiff_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 2}));
}

} // namespace
