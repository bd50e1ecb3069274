// What the random generator asks of the system and not every system has. It is weak, so that a test
// program of internals is a system without it.
#pragma once

#include <cstddef>

namespace randomcalls {

// Has the kernel clear whole pages in every child process; false where it can't.
bool wipeOnFork(void* pages, std::size_t size);

} // namespace randomcalls
