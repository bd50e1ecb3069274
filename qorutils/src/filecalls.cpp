#include "filecalls.h"

#include <unistd.h>

#include "internal/replaceable.h"

namespace filecalls {

QOR_REPLACEABLE off_t seekEnd(int fd) {
    return lseek(fd, 0, SEEK_END);
}

} // namespace filecalls
