// What a Mif32 holds after each of a row of operations.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>

#include "hex.h"
#include "mif32.h"

inline std::string content(const Mif32& mif) {
    return hex(mif.GetData(), mif.GetLen());
}

// Bytes, allocated length and flags, as in "0102 of 1002, failed, external".
inline std::string state(const Mif32& mif) {
    return (mif.GetData() == nullptr ? "none" : content(mif)) + " of " +
           std::to_string(mif.GetAllocLen()) + (mif.allocationFailed != 0 ? ", failed" : "") +
           (mif.externalMemory != 0 ? ", external" : "");
}

struct Step {
    std::function<bool(Mif32& m)> act;
    std::string expected;
};

// Expects the state after each step, with "!" in front where the step's result is false.
inline void walk(Mif32& mif, std::initializer_list<Step> steps) {
    for (const Step& step : steps) {
        SCOPED_TRACE("step " + std::to_string(&step - steps.begin()));
        const bool result = step.act(mif);
        EXPECT_EQ((result ? "" : "!") + state(mif), step.expected);
    }
}
