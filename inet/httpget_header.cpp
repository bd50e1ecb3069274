#include "httpget_header.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "netcalls.h"
#include "qoros.h"

namespace httpget {

namespace {

constexpr unsigned int fewBytes = 12; // "HTTP/1.0 200"
constexpr unsigned int statusOffset = 9;
constexpr unsigned int statusLength = 3;
constexpr unsigned int pause = 100; // ms before a further receive
constexpr int furtherReceives = 50;

// Receives behind the bytes that are held, and adds to their number; false without any, and where
// there is no room.
bool receiveMore(TcpClient& tcp, ResponseStart& start) {
    unsigned int count = sizeof start.bytes - start.held;
    if (count == 0 || tcp.Receive(start.bytes + start.held, &count) == 0) {
        return false;
    }
    start.held += count;
    return true;
}

// The rest of a line that begins with a header's name; null for another line.
const char* valueOf(const char* line, const char* name) {
    const std::size_t length = strlen(name);
    return strncasecmp(line, name, length) == 0 ? line + length : nullptr;
}

// What was read from the header lines so far.
struct Facts {
    bool hasLength = false;
    unsigned int length = unknownLength;
    char date[sizeof ResponseStart::date] = "";
};

void takeLine(const char* line, Facts& facts) {
    if (const char* const length = valueOf(line, "Content-length: ")) {
        facts.hasLength = true;
        facts.length = static_cast<unsigned int>(strtol(length, nullptr, 10));
    } else if (const char* const modified = valueOf(line, "Last-Modified: ")) {
        strcpy_qor(facts.date, sizeof facts.date, modified);
    } else if (const char* const sent = valueOf(line, "Date: ")) {
        if (facts.date[0] == '\0') {
            strcpy_qor(facts.date, sizeof facts.date, sent);
        }
    }
}

// Reads the lines of what is held. The result is the body's offset, 0 where the blank line is not
// there yet.
unsigned int readLines(const ResponseStart& start, Facts& facts) {
    char line[200];
    unsigned int length = 0;
    for (unsigned int at = 0; at < start.held; ++at) {
        const char c = static_cast<char>(start.bytes[at]);
        if (c == '\r') {
            line[length] = '\0';
            length = 0;
            takeLine(line, facts);
            if (at + 2 < start.held && start.bytes[at + 2] == '\r') {
                return at + 4;
            }
        } else if (c != '\n' && length < sizeof line - 1) {
            line[length++] = c;
        }
    }
    return 0;
}

} // namespace

bool receiveFirstBytes(TcpClient& tcp, ResponseStart& start) {
    unsigned int before = 0;
    do {
        if (start.held > 0) {
            netcalls::pauseFor(pause);
        }
        before = start.held;
        if (!receiveMore(tcp, start)) {
            return false;
        }
    } while (start.held - before <= fewBytes);
    return true;
}

bool hasStatus(const ResponseStart& start, const char* status) {
    return start.held >= statusOffset + statusLength &&
           memcmp(start.bytes + statusOffset, status, statusLength) == 0;
}

void copyFirstLine(const ResponseStart& start, char* line, unsigned int size) {
    const auto* const text = reinterpret_cast<const char*>(start.bytes);
    const char* const end = std::find_if(
        text, text + start.held, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
    strncpy_qor(line, size, text, static_cast<std::size_t>(end - text));
    std::replace(line, line + strlen(line), '%', ' ');
}

Headers receiveHeaders(TcpClient& tcp, ResponseStart& start) {
    for (int further = 0;; ++further) {
        Facts facts;
        const unsigned int body = readLines(start, facts);
        const bool full = start.held == sizeof start.bytes;
        if (body != 0 || (facts.hasLength && !full)) {
            // Kept: headers whose length came in an earlier packet than their end lose that end to
            // the body.
            start.bodyOffset = body != 0 ? body : start.held;
            start.length = facts.length;
            strcpy_qor(start.date, sizeof start.date, facts.date);
            return Headers::understood;
        }
        if (full || further == furtherReceives) {
            return Headers::endless;
        }
        netcalls::pauseFor(pause);
        if (!receiveMore(tcp, start)) {
            return Headers::brokenOff;
        }
    }
}

} // namespace httpget
