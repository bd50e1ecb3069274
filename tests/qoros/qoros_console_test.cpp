#include <termios.h>
#include <unistd.h>

#include "own_log.h"

namespace {

// Stands in for the terminal on descriptor 0: the settings that it gets (whether keys wait for a
// line and are shown, VMIN, VTIME), and how many calls it takes until they fail.
std::string settings;
int callsLeft = 100;

} // namespace

extern "C" int tcgetattr(int fd, struct termios* current) {
    current->c_lflag = ICANON | ECHO | ISIG;
    current->c_cc[VMIN] = 4;
    current->c_cc[VTIME] = 5;
    return fd == 0 && callsLeft-- > 0 ? 0 : -1;
}

extern "C" int tcsetattr(int fd, int when, const struct termios* set) {
    settings += text("%d%d%d%d ", (set->c_lflag & ICANON) != 0, (set->c_lflag & ECHO) != 0,
                     set->c_cc[VMIN], set->c_cc[VTIME]);
    return fd == 0 && when == TCSANOW && callsLeft-- > 0 ? 0 : -1;
}

TEST(QorOsConsole, TakesASingleKey) {
    int keyboard[2];
    ASSERT_TRUE(pipe(keyboard) == 0 && dup2(keyboard[0], 0) == 0);
    EXPECT_EQ(write(keyboard[1], "\xE4", 1), 1);
    EXPECT_EQ(QorOsGetCh(0), 0xE4u);
    EXPECT_EQ(write(keyboard[1], "\xE4y", 2), 2);
    EXPECT_EQ(QorOsGetChNoWait(1), 0xE4u);
    EXPECT_EQ(QorOsGetChNoWait(1), 'y');
    EXPECT_EQ(QorOsGetChNoWait(1), 0u);
    close(keyboard[1]);
    EXPECT_EQ(QorOsGetChNoWait(1), 1u); // kept: ready, and yet there is no key
    EXPECT_EQ(settings, "0010 1145 0110 1145 0110 1145 0110 1145 0110 1145 ");
    for (const int calls : {0, 1, 2}) {
        callsLeft = calls;
        EXPECT_EQ(QorOsGetChNoWait(0), 0xFFFFFFFF) << "after " << calls << " calls";
    }
}
