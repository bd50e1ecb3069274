// System V objects that no other program sees.
#pragma once

#include <gtest/gtest.h>

namespace support {

// Moves the test program into an IPC name space of its own, where the system has them and allows
// it. Elsewhere its tests take turns with others, and a running product is in their way.
class PrivateIpc : public testing::Environment {
public:
    void SetUp() override;
};

} // namespace support
