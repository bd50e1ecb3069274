// The file call of this wing that a test program of internals replaces, so that files have the size
// that it says.
#pragma once

#include <sys/types.h>

namespace filecalls {

// lseek(2) to the end, where a file's size is.
off_t seekEnd(int fd);

} // namespace filecalls
