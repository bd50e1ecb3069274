#include "private_ipc.h"

#if defined(__linux__)
#include <sched.h>
#endif

#include <iostream>

namespace support {

void PrivateIpc::SetUp() {
#if defined(__linux__)
    // Without the privilege a user name space of its own lends it.
    if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
        std::cerr << "System V objects are shared with the machine\n";
    }
#endif
}

} // namespace support
