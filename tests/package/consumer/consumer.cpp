// Prints the version that the headers tell, and what a message gives back.
#include <cstdio>
#include <string>

#include "mif32.h"

int main() {
    Mif32 message;
    std::string text;
    message.AddStr(1, "hello");
    message.GetStr(1, &text, 1);
    std::printf("%d.%d.%d %s\n", QORMON3_VERSION_MAJOR, QORMON3_VERSION_MINOR,
                QORMON3_VERSION_PATCH, text.c_str());
}
