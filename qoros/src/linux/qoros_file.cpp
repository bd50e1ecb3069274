#include "qoros_internal.h"

#include <utime.h>

uint32_t QorOsSetFileTime(const char* path, int64_t time) {
    if (path == nullptr) {
        return 0;
    }
    utimbuf times{};
    times.actime = times.modtime = static_cast<time_t>(time);
    return utime(path, &times) == 0 ? 1 : 0;
}
