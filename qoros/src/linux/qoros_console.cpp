#include "qoros_internal.h"

#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

namespace {

constexpr uint32_t dTerminalError = 0xFFFFFFFF;

// Hands over single keys instead of lines. The settings from before land in pstSaved.
bool fEnterKeyMode(termios* pstSaved, bool fEcho) {
    if (tcgetattr(STDIN_FILENO, pstSaved) != 0) {
        return false;
    }
    termios keys = *pstSaved;
    keys.c_lflag &= ~static_cast<tcflag_t>(fEcho ? ICANON : ICANON | ECHO);
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
    return tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
}

// The waiting key, or what select said when it could not be read.
int dReadWaitingKey() {
    fd_set input;
    FD_ZERO(&input);
    FD_SET(STDIN_FILENO, &input);
    timeval limit{0, 100};
    const int ready = select(STDIN_FILENO + 1, &input, nullptr, nullptr, &limit);
    unsigned char key = 0;
    if (ready > 0 && read(STDIN_FILENO, &key, 1) == 1) {
        return key;
    }
    return ready;
}

uint32_t dInKeyMode(int (*dReadKey)(), int dEcho) {
    termios saved{};
    if (!fEnterKeyMode(&saved, dEcho != 0)) {
        return dTerminalError;
    }
    const int key = dReadKey();
    if (tcsetattr(STDIN_FILENO, TCSANOW, &saved) != 0) {
        return dTerminalError;
    }
    return static_cast<uint32_t>(key);
}

} // namespace

uint32_t QorOsGetCh(int echo) {
    return dInKeyMode(getchar, echo);
}

uint32_t QorOsGetChNoWait(int echo) {
    return dInKeyMode(dReadWaitingKey, echo);
}
