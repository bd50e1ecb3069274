// Ends the run where something does not hold; asserts would vanish from release builds.
#pragma once

#include <cstdlib>

inline void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}
