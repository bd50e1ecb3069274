// System V objects of the tests' own.
#pragma once

#if defined(__linux__)
#include <linux/capability.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace support {

// Moves the process into an IPC name space of its own, where the system has them and allows it, and
// says whether it did. Elsewhere such tests take turns, and a running product is in their way.
inline bool enterPrivateIpc() {
#if defined(__linux__)
    if (unshare(CLONE_NEWIPC) == 0) {
        return true;
    }
    // Without the privilege a user name space lends it. What else it lends goes back at once, since
    // tests count on being refused things.
    if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
        return syscall(SYS_capset, &header, none) == 0;
    }
#endif
    return false;
}

} // namespace support
