#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "qoros.h"

namespace {

constexpr uint32_t terminalError = 0xFFFFFFFF;

// A pseudo-terminal in the place of descriptor 0, with the test at the keyboard.
class QorOsConsole : public testing::Test {
protected:
    void SetUp() override {
        keyboard = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_NE(keyboard, -1);
        ASSERT_EQ(grantpt(keyboard), 0);
        ASSERT_EQ(unlockpt(keyboard), 0);
        screen = open(ptsname(keyboard), O_RDWR | O_NOCTTY);
        ASSERT_NE(screen, -1);
        saved = dup(0);
        ASSERT_EQ(dup2(screen, 0), 0);
    }

    void TearDown() override {
        if (saved == -1) {
            close(0);
        } else {
            dup2(saved, 0);
            close(saved);
        }
        close(screen);
        close(keyboard);
    }

    termios settings() const {
        termios now{};
        EXPECT_EQ(tcgetattr(screen, &now), 0);
        return now;
    }

    // Presses a key once the terminal hands over single keys.
    void pressInKeyMode(char key) const {
        termios now{};
        do {
            usleep(1000);
            tcgetattr(screen, &now);
        } while ((now.c_lflag & ICANON) != 0);
        ASSERT_EQ(write(keyboard, &key, 1), 1);
    }

    // What the terminal showed up to now.
    std::string shown() const {
        EXPECT_EQ(write(screen, "|", 1), 1);
        std::string text;
        char c = 0;
        while (c != '|' && read(keyboard, &c, 1) == 1) {
            text += c;
        }
        return text;
    }

    int keyboard = -1;
    int screen = -1;
    int saved = -1;
};

TEST_F(QorOsConsole, WaitsForASingleKey) {
    struct Case {
        const char* name;
        int echo;
        char key;
        const char* shown;
    };
    const Case cases[] = {
        {"hidden", 0, 'k', "|"},
        {"shown", 1, 'k', "k|"},
        {"byte above 0x7F", 0, '\xE4', "|"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const termios before = settings();
        ASSERT_NE(before.c_lflag & ICANON, 0u);
        std::thread typist([&] { pressInKeyMode(c.key); });
        EXPECT_EQ(QorOsGetCh(c.echo), static_cast<unsigned char>(c.key));
        typist.join();
        EXPECT_EQ(settings().c_lflag, before.c_lflag);
        EXPECT_EQ(shown(), c.shown);
    }
}

TEST_F(QorOsConsole, TakesAKeyOnlyIfOneWaits) {
    termios before = settings();
    EXPECT_EQ(QorOsGetChNoWait(0), 0u);
    before.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ASSERT_EQ(tcsetattr(screen, TCSANOW, &before), 0);
    ASSERT_EQ(write(keyboard, "xy", 2), 2);
    for (const char key : {'x', 'y'}) {
        uint32_t taken = 0;
        for (int i = 0; taken == 0 && i < 10000; ++i) { // a terminal takes a moment
            taken = QorOsGetChNoWait(0);
        }
        EXPECT_EQ(taken, static_cast<unsigned char>(key));
    }
    EXPECT_EQ(QorOsGetChNoWait(0), 0u);
    EXPECT_EQ(settings().c_lflag, before.c_lflag);
    EXPECT_EQ(settings().c_cc[VMIN], before.c_cc[VMIN]);
}

TEST_F(QorOsConsole, NeedsATerminal) {
    const int file = open("/dev/null", O_RDONLY);
    ASSERT_NE(file, -1);
    ASSERT_EQ(dup2(file, 0), 0);
    EXPECT_EQ(QorOsGetCh(0), terminalError);
    EXPECT_EQ(QorOsGetChNoWait(1), terminalError);
    close(file);
}

} // namespace
