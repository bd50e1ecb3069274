#include "private_ipc.h"

#if defined(__linux__)
#include <linux/capability.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

bool support::enterPrivateIpc() {
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
