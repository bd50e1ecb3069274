// How a proxy's name gets into the member of a client.
#pragma once

#include <cstddef>

#include "qoros.h"

namespace proxyhost {

// Stores a name whole; false, and nothing changed, where it does not fit: a cut one is another
// host.
template <std::size_t size>
bool set(char (&member)[size], const char* host) {
    if (strlen_qor(host, size) == size) {
        return false;
    }
    strcpy_qor(member, size, host);
    return true;
}

} // namespace proxyhost
