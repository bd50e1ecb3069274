// Message buffers, lists, strings and URLs without memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "failing_calls.h"
#include "httpvalue.h"
#include "mif32.h"
#include "qoripaddr.h"
#include "qorurl.h"
#include "tfstring.h"

namespace {

constexpr char fails[] = "memory ENOMEM 0";
constexpr char longText[] = "a text that is longer than the message it is to stand in";
constexpr unsigned int oneEntry = 8; // bytes

// 1 for success; 0 where the message is as long as before and still has its entry.
int change(bool (*operation)(Mif32&)) {
    Mif32 message;
    {
        const torture::Aside aside;
        message.Alloc(oneEntry);
        message.AddInt(1, 7);
    }
    const bool done = operation(message);
    unsigned int value = 0;
    const bool kept = message.GetLen() == oneEntry && message.GetInt(1, &value, 1) && value == 7;
    return done || kept ? static_cast<int>(done) : -1;
}

TEST(MessagesTorture, WithoutMemory) {
    const struct {
        const char* name;
        bool (*operation)(Mif32&);
    } cases[] = {
        {"a value that makes it grow", [](Mif32& m) { return m.AddStr(2, longText); }},
        {"a longer value", [](Mif32& m) { return m.UpdStr(1, longText, 1); }},
        {"a copy", [](Mif32& m) { return Mif32(m).allocationFailed == 0; }},
        {"an assignment", [](Mif32& m) { return (Mif32() = m).GetLen() == oneEntry; }},
        {"a first value", [](Mif32&) { return Mif32().AddInt(1, 2); }},
        {"a message of its own", [](Mif32&) { return Mif32().SetData("\1\0\0\0", 4); }},
    };
    for (const auto& c : cases) {
        torture::failEach({{c.name, [&c] { return change(c.operation); }, fails}});
    }
}

int joinsTexts() {
    char* text = nullptr;
    QOR::TFstring joined(&text, 0);
    const int begun = joined.Add("beginning");
    char* const first = text;
    const int done = begun != 0 ? joined.Add(" and a longer end") : 0;
    free(done != 0 ? text : first); // what is lost on failure the caller may still hold
    return done != 0 || text == nullptr ? done : -1;
}

// How many of two pairs are read, less 1.
int readsPairs() {
    QOR::TemplLinkedList<HTTPVALUE*> list;
    const char text[] = "Name: value\r\nOther: a<CR>b\r\n";
    HTTPVALUE::parseHttpValues(list, text, sizeof text - 1);
    const bool whole = list.tail == nullptr || list.tail->data->value != nullptr;
    return whole ? static_cast<int>(list.count) - 1 : -2;
}

int parsesAUrl() {
    QORINET_URL url = {};
    const int done = QorInetUrlParse("http://host:8080/path", &url, 80);
    QorInetUrlFree(&url);
    return done;
}

int writesAnAddress() {
    QorIpAddr address("10.0.0.1");
    const char* const text = address.GetStr();
    return *text == '\0' ? 0 : strcmp(text, "10.0.0.1") == 0 ? 1 : -1;
}

TEST(TextsTorture, WithoutMemory) {
    torture::failEach({{"an address as a text", writesAnAddress, fails},
                       {"TFstring", joinsTexts, fails},
                       {"a list of values", readsPairs, "memory ENOMEM -1 -1 -1 -1 0"},
                       {"a URL", parsesAUrl, fails}});
}

} // namespace
