// Message buffers, addresses, lists, strings and URLs without memory.
#include <gtest/gtest.h>

#include <cerrno>
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

using torture::memory;

constexpr char longText[] = "a text that is longer than the message it stands in at first";

// 1 where an operation on a message succeeded, 0 where it failed and the message is as before with
// the failure noted.
int outcome(bool done, const Mif32& message, unsigned int lengthBefore) {
    if (done) {
        return message.allocationFailed == 0 ? 1 : -1;
    }
    return message.GetLen() == lengthBefore && message.allocationFailed == 1 ? 0 : -1;
}

// A message of one entry in memory of the call's own.
class Filled : public Mif32 {
public:
    Filled() {
        const torture::Aside aside;
        AddInt(1, 7);
    }
};

bool holdsTheEntry(const Mif32& message) {
    unsigned int value = 0;
    return message.GetInt(1, &value, 1) && value == 7;
}

int copies() {
    const Filled message;
    const Mif32 copy(message);
    return outcome(holdsTheEntry(copy), copy, 0);
}

int assigns() {
    const Filled message;
    Filled copy;
    copy = message;
    return outcome(holdsTheEntry(copy), copy, 0);
}

int replacesTheMessage() {
    Filled message;
    const unsigned int length = message.GetLen();
    const bool done = message.SetData("\1\0\0\0", 4);
    return outcome(done, message, length) == 0 && message.GetData() != nullptr
               ? -1
               : outcome(done, message, length);
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
    const std::vector<torture::Fault> fails = {{memory, ENOMEM, {0}}};
    torture::failEach({
        {"a first value",
         [] {
             Mif32 message;
             return outcome(message.AddInt(1, 2), message, 0);
         },
         fails},
        {"Alloc",
         [] {
             Mif32 message;
             return message.Alloc(9) ? 1 : message.GetAllocLen() == 0 ? 0 : -1;
         },
         fails},
        {"a value that makes it grow", growsWithAValue, fails},
        {"a copy", copies, fails},
        {"an assignment", assigns, fails},
        {"SetData", replacesTheMessage, fails},
        {"a longer value", [] { return replacesAValue(false); }, fails},
        {"a longer value in external memory", [] { return replacesAValue(true); }, fails},
    });
}

int joinsTexts() {
    char* text = nullptr;
    QOR::TFstring joined(&text, 0);
    int done = joined.Add("beginning");
    char* const first = text;
    done = done != 0 && joined.Add(" and a longer end") != 0 ? 1 : 0;
    // Lost and not released on failure: the caller may hold it.
    free(done != 0 ? text : first);
    return done != 0 || text == nullptr ? done : -1;
}

int keepsItsTextWithoutMemory() {
    char* text = nullptr;
    char* grown = nullptr;
    {
        const torture::Aside aside;
        text = concatenateString(nullptr, "first", 5, 0);
    }
    grown = concatenateString(text, " second", 7, 0);
    const bool kept =
        strcmp(grown != nullptr ? grown : text, grown != nullptr ? "first second" : "first") == 0;
    free(grown != nullptr ? grown : text);
    return kept ? grown != nullptr : -1;
}

// The number of complete pairs that a text of two gives, less 1; -1 for an incomplete one.
int readsPairs() {
    QOR::TemplLinkedList<HTTPVALUE*> list;
    const char text[] = "Name: value\r\nOther: a<CR>b\r\n";
    HTTPVALUE::parseHttpValues(list, text, sizeof text - 1);
    const HTTPVALUE* const first = HTTPVALUE::findHttpValue(list, "Name");
    const HTTPVALUE* const second = HTTPVALUE::findHttpValue(list, "Other");
    const bool whole =
        (list.count < 1 || (first != nullptr && strcmp(first->value, "value") == 0)) &&
        (list.count < 2 || (second != nullptr && strcmp(second->value, "a\nb") == 0));
    return whole ? static_cast<int>(list.count) - 1 : -2;
}

int parsesAUrl() {
    QORINET_URL url = {};
    const int done = QorInetUrlParse("http://host:8080/path", &url, 80);
    QorInetUrlFree(&url);
    return done;
}

TEST(TextsTorture, WithoutMemory) {
    const std::vector<torture::Fault> fails = {{memory, ENOMEM, {0}}};
    torture::failEach({
        {"an address as a text",
         [] {
             QorIpAddr address("10.0.0.1");
             const char* const text = address.GetStr();
             return strcmp(text, "10.0.0.1") == 0 ? 1 : *text == '\0' ? 0 : -1;
         },
         fails},
        {"TFstring", joinsTexts, fails},
        {"concatenateString", keepsItsTextWithoutMemory, fails},
        {"a list of values", readsPairs, {{memory, ENOMEM, {-1, -1, -1, -1, 0}}}},
        {"a URL", parsesAUrl, fails},
    });
}

} // namespace
