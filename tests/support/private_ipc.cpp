#include "private_ipc.h"

#if defined(__linux__)
#include <linux/capability.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <iostream>

namespace support {

void PrivateIpc::SetUp() {
#if defined(__linux__)
    if (unshare(CLONE_NEWIPC) == 0) {
        return;
    }
    // Without the privilege a user name space lends it. What else it lends goes back at once, since
    // tests count on being refused things.
    if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
        syscall(SYS_capset, &header, none);
        return;
    }
#endif
    std::cerr << "System V objects are shared with the machine\n";
}

} // namespace support
