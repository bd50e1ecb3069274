// What the machine offers to the tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

// Ends the test because the machine lacks something: a skip for a developer, but a failure in
// continuous integration, where everything that a test may need has to be there.
#define QOR_SKIP_OR_FAIL(reason)                                                                   \
    do {                                                                                           \
        if (std::getenv("CI") != nullptr) {                                                        \
            FAIL() << (reason);                                                                    \
        }                                                                                          \
        GTEST_SKIP() << (reason);                                                                  \
    } while (false)
