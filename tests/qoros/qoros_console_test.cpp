#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "own_log.h"

namespace {

int keyboard = -1;
std::string pressed; // as soon as the terminal hands over single keys

// Stands in for the system's.
extern "C" int tcsetattr(int fd, int when, const struct termios* settings) {
    void* const real = dlsym(RTLD_NEXT, "tcsetattr");
    const int result = reinterpret_cast<decltype(tcsetattr)*>(real)(fd, when, settings);
    if (!pressed.empty() && (settings->c_lflag & ICANON) == 0) {
        EXPECT_EQ(settings->c_cc[VMIN], 1);
        EXPECT_EQ(settings->c_cc[VTIME], 0);
        EXPECT_NE(write(keyboard, pressed.data(), pressed.size()), -1);
        pollfd arrival{fd, POLLIN, 0};
        EXPECT_EQ(poll(&arrival, 1, 10000), 1);
        pressed.clear();
    }
    return result;
}

// What the terminal showed up to now.
std::string shown() {
    EXPECT_EQ(write(0, "|", 1), 1);
    std::string text;
    for (char c = 0; c != '|' && read(keyboard, &c, 1) == 1; text += c) {
    }
    return text;
}

// A pseudo-terminal stands in the place of descriptor 0, with the test at the keyboard.
TEST(QorOsConsole, TakesASingleKey) {
    const int saved = dup(0);
    keyboard = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(keyboard) == 0 && unlockpt(keyboard) == 0);
    const int screen = open(ptsname(keyboard), O_RDWR | O_NOCTTY);
    ASSERT_EQ(dup2(screen, 0), 0);
    termios before{};
    ASSERT_EQ(tcgetattr(0, &before), 0);
    before.c_cc[VMIN] = 4;
    before.c_cc[VTIME] = 5;
    ASSERT_EQ(tcsetattr(0, TCSANOW, &before), 0);
    const auto check = [&](uint32_t (*get)(int), int echo, const char* keys, uint32_t expected,
                           const char* onScreen) {
        SCOPED_TRACE(testing::Message() << "key " << expected << ", echo " << echo);
        pressed = keys;
        EXPECT_EQ(get(echo), expected);
        termios after{};
        EXPECT_EQ(tcgetattr(0, &after), 0);
        EXPECT_EQ(after.c_lflag, before.c_lflag);
        EXPECT_EQ(after.c_cc[VMIN], 4);
        EXPECT_EQ(after.c_cc[VTIME], 5);
        EXPECT_EQ(shown(), onScreen);
    };
    check(QorOsGetCh, 0, "k", 'k', "|");
    check(QorOsGetCh, 1, "k", 'k', "k|");
    check(QorOsGetCh, 0, "\xE4", 0xE4, "|");
    check(QorOsGetChNoWait, 0, "xy", 'x', "|");
    check(QorOsGetChNoWait, 0, "", 'y', "|");
    check(QorOsGetChNoWait, 0, "", 0, "|");
    check(QorOsGetChNoWait, 1, "\xE4", 0xE4, "\xE4|");
    // A key that another reader takes before it can be read.
    ASSERT_EQ(fcntl(0, F_SETFL, O_RDWR | O_NONBLOCK), 0);
    seams::keyAnnounced = true;
    check(QorOsGetChNoWait, 0, "", 1, "|");
    seams::keyAnnounced = false;

    const int file = open("/dev/null", O_RDONLY); // is no terminal
    ASSERT_EQ(dup2(file, 0), 0);
    EXPECT_EQ(QorOsGetCh(0), 0xFFFFFFFFu);
    EXPECT_EQ(QorOsGetChNoWait(1), 0xFFFFFFFFu);
    dup2(saved, 0);
    for (const int descriptor : {saved, screen, keyboard, file}) {
        close(descriptor);
    }
}

} // namespace
