// One side builds a message and sends its bytes; the other reads them where they lie, changes the
// message in place and lets it grow.
#include <unistd.h>

#include <cstdio>

#include "mif32.h"
#include "qoripaddr.h"
#include "qormif.h"

namespace {

enum Identifier : unsigned short { name = 1, address = 2, port = 3, note = 4 };

bool send(int descriptor) {
    const QorIpAddr home("192.168.0.1");
    Mif32 message;
    const bool built = message.AddStr(name, "gateway") && message.AddIpAddr(address, &home) &&
                       message.AddInt(port, 80) && message.AddInt(port, 8080) && message.AddEndKz();
    const auto size = static_cast<ssize_t>(message.GetLen());
    return built && write(descriptor, message.GetData(), message.GetLen()) == size;
}

void show(const unsigned char* bytes, unsigned int size) {
    char text[32] = "";
    QorIpAddr from;
    qormifGetStr(bytes, size, name, text, sizeof text, 1);
    qormifGetIpAddr(bytes, size, address, &from, 1);
    std::printf("%u bytes: %s at %s", size, text, from.GetStr());
    unsigned int value = 0;
    for (unsigned int i = 1; qormifGetInt(bytes, size, port, &value, i) != 0; ++i) {
        std::printf("%s%u", i == 1 ? ", ports " : " ", value);
    }
    std::printf("\n");
}

} // namespace

int main() {
    int ends[2];
    unsigned char bytes[256];
    if (pipe(ends) != 0 || !send(ends[1])) {
        std::perror("the message can't be sent");
        return 1;
    }
    const ssize_t received = read(ends[0], bytes, sizeof bytes);
    if (received <= 0) {
        std::perror("the message can't be received");
        return 1;
    }
    const auto size = static_cast<unsigned int>(received);
    show(bytes, size);

    if (qormifUpdInt(bytes, size, port, 8081, 2) == 0) { // the second port
        return 1;
    }
    show(bytes, size);

    Mif32 message; // in the same memory
    if (!message.SetExternalMem(bytes, sizeof bytes, size)) {
        return 1;
    }
    std::printf("updated: %d\n", message.UpdStr(name, "front gateway", 1));
    std::printf("updated: %d\n", message.UpdStr(note, "moved", 1)); // appends it
    show(bytes, message.GetLen());
    return 0;
}
