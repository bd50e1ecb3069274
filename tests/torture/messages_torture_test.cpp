// Message buffers, addresses, lists, strings and URLs without memory.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "failing_calls.h"
#include "httpvalue.h"
#include "mif32.h"
#include "qoripaddr.h"
#include "qoros.h"
#include "qorurl.h"
#include "tfstring.h"

namespace {

constexpr char longText[] = "a text that is longer than the message it is to stand in";

// A message of one entry, which no operation touches.
struct Filled : Mif32 {
    Filled() {
        const torture::Aside aside;
        AddInt(1, 7);
    }
};

bool holdsTheEntry(const Mif32& message) {
    unsigned int value = 0;
    return message.GetInt(1, &value, 1) && value == 7;
}

// 1 for success; 0 where the message is as before and says that memory was short.
int outcome(bool done, const Mif32& message, unsigned int lengthBefore) {
    const bool right =
        message.allocationFailed == (done ? 0 : 1) && (done || message.GetLen() == lengthBefore);
    return right ? static_cast<int>(done) : -1;
}

int assigns() {
    const Filled message;
    Filled copy;
    copy = message;
    return outcome(holdsTheEntry(copy), copy, 0);
}

int growsWithAValue() {
    Mif32 message;
    {
        const torture::Aside aside;
        message.Alloc(8);
        message.AddInt(1, 7);
    }
    const bool done = message.AddStr(2, longText);
    return holdsTheEntry(message) ? outcome(done, message, 8) : -1;
}

int replacesAValue(bool external) {
    unsigned char bytes[200];
    Filled message;
    {
        const torture::Aside aside;
        message.AddStr(2, "short");
        if (external) {
            const Mif32 copy(message);
            memcpy(bytes, copy.GetData(), copy.GetLen());
            message.SetExternalMem(bytes, sizeof bytes, copy.GetLen());
        }
    }
    const bool done = message.UpdStr(2, longText, 1);
    char text[sizeof longText];
    const bool whole = holdsTheEntry(message) && message.GetStr(2, text, sizeof text, 1) &&
                       strcmp(text, done ? longText : "short") == 0;
    return whole ? static_cast<int>(done) : -1;
}

TEST(MessagesTorture, WithoutMemory) {
    torture::failEach({
        {"a first value",
         [] {
             Mif32 message;
             return outcome(message.AddInt(1, 2), message, 0);
         },
         "memory ENOMEM 0"},
        {"a value that makes it grow", growsWithAValue, "memory ENOMEM 0"},
        {"a copy",
         [] {
             const Filled message;
             const Mif32 copy(message);
             return outcome(holdsTheEntry(copy), copy, 0);
         },
         "memory ENOMEM 0"},
        {"an assignment", assigns, "memory ENOMEM 0"},
        {"SetData",
         [] {
             Filled message;
             const bool done = message.SetData("\1\0\0\0", 4);
             const int result = outcome(done, message, 8);
             return done || message.GetData() == nullptr ? result : -1;
         },
         "memory ENOMEM 0"},
        {"a longer value", [] { return replacesAValue(false); }, "memory ENOMEM 0"},
        {"one in external memory", [] { return replacesAValue(true); }, "memory ENOMEM 0"},
    });
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

int joinsPlainTexts() {
    char* const text = concatenateString(nullptr, "first", 5, 0);
    char* const grown = text == nullptr ? nullptr : concatenateString(text, " second", 7, 0);
    const bool kept = text == nullptr || grown != nullptr || strcmp(text, "first") == 0;
    free(grown != nullptr ? grown : text);
    return kept ? static_cast<int>(grown != nullptr) : -1;
}

// The complete pairs of two that are read, less 1.
int readsPairs() {
    QOR::TemplLinkedList<HTTPVALUE*> list;
    const char text[] = "Name: value\r\nOther: a<CR>b\r\n";
    HTTPVALUE::parseHttpValues(list, text, sizeof text - 1);
    int whole = -1;
    for (const char* const name : {"Name", "Other"}) {
        const HTTPVALUE* const pair = HTTPVALUE::findHttpValue(list, name);
        whole += pair != nullptr && pair->value != nullptr ? 1 : 0;
    }
    return whole == static_cast<int>(list.count) - 1 ? whole : -2;
}

int parsesAUrl() {
    QORINET_URL url = {};
    const int done = QorInetUrlParse("http://host:8080/path", &url, 80);
    QorInetUrlFree(&url);
    return done;
}

TEST(TextsTorture, WithoutMemory) {
    torture::failEach({
        {"an address as a text",
         [] {
             QorIpAddr address("10.0.0.1");
             const char* const text = address.GetStr();
             return *text == '\0' ? 0 : strcmp(text, "10.0.0.1") == 0 ? 1 : -1;
         },
         "memory ENOMEM 0"},
        {"TFstring", joinsTexts, "memory ENOMEM 0"},
        {"concatenateString", joinsPlainTexts, "memory ENOMEM 0"},
        {"a list of values", readsPairs, "memory ENOMEM -1 -1 -1 -1 0"},
        {"a URL", parsesAUrl, "memory ENOMEM 0"},
    });
}

} // namespace
