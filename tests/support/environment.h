// What the machine offers to the tests.
#pragma once

#include <gtest/gtest.h>

namespace support {

// True in continuous integration, where everything that a test may need has to be there.
bool runsInCi();

} // namespace support

// Ends the test because the machine lacks something: a skip for a developer, a failure under CI.
#define QOR_SKIP_OR_FAIL(reason)                                                                   \
    do {                                                                                           \
        if (support::runsInCi()) {                                                                 \
            FAIL() << (reason);                                                                    \
        }                                                                                          \
        GTEST_SKIP() << (reason);                                                                  \
    } while (false)
