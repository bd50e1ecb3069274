#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "qoros.h"

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
        EXPECT_EQ(write(keyboard, pressed.data(), pressed.size()),
                  static_cast<ssize_t>(pressed.size()));
        pollfd arrival{fd, POLLIN, 0};
        EXPECT_EQ(poll(&arrival, 1, 10000), 1);
        pressed.clear();
    }
    return result;
}

// A pseudo-terminal in the place of descriptor 0, with the test at the keyboard.
class QorOsConsole : public testing::Test {
protected:
    void SetUp() override {
        keyboard = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_TRUE(grantpt(keyboard) == 0 && unlockpt(keyboard) == 0);
        const int screen = open(ptsname(keyboard), O_RDWR | O_NOCTTY);
        saved = dup(0);
        ASSERT_EQ(dup2(screen, 0), 0);
        close(screen);
    }

    void TearDown() override {
        dup2(saved, 0);
        close(saved);
        close(keyboard);
    }

    // What the terminal showed up to now.
    static std::string shown() {
        EXPECT_EQ(write(0, "|", 1), 1);
        std::string text;
        char c = 0;
        while (c != '|' && read(keyboard, &c, 1) == 1) {
            text += c;
        }
        return text;
    }

    int saved = -1;
};

TEST_F(QorOsConsole, TakesASingleKey) {
    struct Case {
        const char* name;
        uint32_t (*get)(int echo);
        int echo;
        char key;
        const char* shown;
    };
    const Case cases[] = {
        {"hidden", QorOsGetCh, 0, 'k', "|"},
        {"shown", QorOsGetCh, 1, 'k', "k|"},
        {"byte above 0x7F", QorOsGetCh, 0, '\xE4', "|"},
        {"without a wait, hidden", QorOsGetChNoWait, 0, 'k', "|"},
        {"without a wait, shown", QorOsGetChNoWait, 1, '\xE4', "\xE4|"},
    };
    termios before{};
    ASSERT_EQ(tcgetattr(0, &before), 0);
    before.c_cc[VMIN] = 4;
    before.c_cc[VTIME] = 5;
    ASSERT_EQ(tcsetattr(0, TCSANOW, &before), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        pressed = c.key;
        EXPECT_EQ(c.get(c.echo), static_cast<unsigned char>(c.key));
        termios after{};
        EXPECT_EQ(tcgetattr(0, &after), 0);
        EXPECT_EQ(after.c_lflag, before.c_lflag);
        EXPECT_EQ(after.c_cc[VMIN], 4);
        EXPECT_EQ(after.c_cc[VTIME], 5);
        EXPECT_EQ(shown(), c.shown);
    }
}

TEST_F(QorOsConsole, WaitsForNoKey) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(QorOsGetChNoWait(0), 0u);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
    pressed = "xy";
    EXPECT_EQ(QorOsGetChNoWait(0), static_cast<uint32_t>('x'));
    EXPECT_EQ(QorOsGetChNoWait(0), static_cast<uint32_t>('y'));
    EXPECT_EQ(QorOsGetChNoWait(0), 0u);
}

TEST_F(QorOsConsole, NeedsATerminal) {
    const int file = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(file, 0), 0);
    EXPECT_EQ(QorOsGetCh(0), 0xFFFFFFFFu);
    EXPECT_EQ(QorOsGetChNoWait(1), 0xFFFFFFFFu);
    close(file);
}

} // namespace
