// The first bytes of a download's response: receiving them and what they say.
#pragma once

#include "tcpclient.h"

namespace httpget {

constexpr unsigned int unknownLength = 0xFFFFFFFF;

struct ResponseStart {
    unsigned char bytes[4096];
    unsigned int held = 0; // bytes received so far

    // What the headers say, once receiveHeaders has found their end.
    unsigned int length = unknownLength; // of the body
    unsigned int bodyOffset = 0;         // one behind `held` where a last line feed is to come
    char date[50] = "";                  // of the file; empty where none was told
};

// Receives until a single read brings more than a few bytes; false when there comes no more.
bool receiveFirstBytes(TcpClient& tcp, ResponseStart& start);

// Whether the response that begins so has a status of three digits.
bool hasStatus(const ResponseStart& start, const char* status);

// Copies the first line, with every "%" as a space.
void copyFirstLine(const ResponseStart& start, char* line, unsigned int size);

enum class Headers {
    understood,
    brokenOff, // a receive failed
    endless,   // there was no end, or it does not fit
};

// Receives and reads the headers up to the blank line. Where a length was found before that, the
// body is taken to begin behind the bytes that are held then.
Headers receiveHeaders(TcpClient& tcp, ResponseStart& start);

} // namespace httpget
