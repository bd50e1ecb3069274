// System V objects of the tests' own.
#pragma once

namespace support {

// Moves the process into an IPC name space of its own, where the system has them and allows it, and
// says whether it did. Elsewhere such tests take turns, and a running product is in their way.
bool enterPrivateIpc();

} // namespace support
