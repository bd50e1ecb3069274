// Messages that tests can spell out.
#pragma once

#include <numeric>
#include <regex>

#include "own_log.h"

// The sum of results of calls, which are made in this order.
inline uint32_t sum(std::initializer_list<uint32_t> results) {
    return std::accumulate(results.begin(), results.end(), 0u);
}

class PlainLog : public OwnLog {
protected:
    // The result of a call and its messages, with "@" for the numbers of the process and the thread
    // that make it, and "#" for addresses and for identifiers in brackets.
    static void expectCall(const std::string& told, uint32_t result,
                           const std::function<uint32_t()>& call) {
        static const std::regex numbers(R"(0x[0-9a-f]{9,}|(\()[0-9]+(\)))");
        const std::regex caller(text("pid=%u tid=%ld", dProcessId(), dThreadId()));
        const std::string shown = messages([&] { EXPECT_EQ(call(), result) << told; });
        EXPECT_EQ(std::regex_replace(std::regex_replace(shown, caller, "@"), numbers, "$1#$2"),
                  told);
    }
};
