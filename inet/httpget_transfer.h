// The body of a download on its way into a file.
#pragma once

#include "httpget_header.h"
#include "qorinet.h"

namespace httpget {

// Who follows a transfer; the callback may be null.
struct Follower {
    HttpGetCallback callback;
    void* context;

    // False when the transfer is to be aborted.
    bool call(unsigned int done, unsigned int total) const {
        return callback == nullptr || callback(context, done, total) != 0;
    }
};

enum class Transfer {
    complete,
    notCreated, // the file can't be opened
    notWritten, // the file system refused bytes
    brokenOff,  // bytes are missing, or the callback asked to abort
};

// Writes the body into the file: what is held of it, and what the connection brings.
Transfer receiveFile(TcpClient& tcp, const ResponseStart& start, const char* destFile,
                     const Follower& follower);

} // namespace httpget
