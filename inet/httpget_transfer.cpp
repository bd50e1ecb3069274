#include "httpget_transfer.h"

#include <algorithm>
#include <cstdio>

namespace httpget {

namespace {

constexpr unsigned int blockSize = 4096;
constexpr unsigned int receivesBetweenCalls = 10;

// A file that is written from its begin, and how much was.
class Destination {
public:
    explicit Destination(const char* path) : file_(fopen(path, "wb")) {}
    ~Destination() {
        close();
    }
    Destination(const Destination&) = delete;
    Destination& operator=(const Destination&) = delete;

    bool isOpen() const {
        return file_ != nullptr;
    }
    unsigned int written() const {
        return written_;
    }
    bool write(const unsigned char* bytes, unsigned int count) {
        written_ += count;
        return fwrite(bytes, 1, count, file_) == count;
    }
    // False where bytes did not reach the file system.
    bool close() {
        const bool closed = file_ == nullptr || fclose(file_) == 0;
        file_ = nullptr;
        return closed;
    }

private:
    std::FILE* file_;
    unsigned int written_ = 0;
};

// The end of the data is an end of the body only where no length was announced. A time-out is taken
// for the peer's close, from which it can't be told apart here.
bool endsInOrder(const TcpClient& tcp, unsigned int length) {
    return length == unknownLength && tcp.connected == 0;
}

// The bytes of the body that came with the headers.
bool writeHeldBytes(const ResponseStart& start, Destination& file) {
    if (start.bodyOffset >= start.held) {
        return true;
    }
    // Kept: all of them, also beyond the length announced.
    return file.write(start.bytes + start.bodyOffset, start.held - start.bodyOffset);
}

// Receives what the bytes held lack of the body. The line feed of the blank line may come here too.
Transfer receiveRest(TcpClient& tcp, const ResponseStart& start, Destination& file,
                     const Follower& follower) {
    unsigned char block[blockSize];
    unsigned int lateLineFeed = start.bodyOffset > start.held ? 1 : 0;
    unsigned int receives = 0;
    while (file.written() < start.length) {
        const unsigned int missing = start.length - file.written();
        unsigned int count = std::min(missing, blockSize - lateLineFeed) + lateLineFeed;
        if (tcp.Receive(block, &count) == 0) {
            return endsInOrder(tcp, start.length) ? Transfer::complete : Transfer::brokenOff;
        }
        if (!file.write(block + lateLineFeed, count - lateLineFeed)) {
            return Transfer::notWritten;
        }
        lateLineFeed = 0;
        const bool due = ++receives % receivesBetweenCalls == 0;
        if (due && !follower.call(file.written(), start.length)) {
            return Transfer::brokenOff;
        }
    }
    return Transfer::complete;
}

} // namespace

Transfer receiveFile(TcpClient& tcp, const ResponseStart& start, const char* destFile,
                     const Follower& follower) {
    Destination file(destFile);
    if (!file.isOpen()) {
        return Transfer::notCreated;
    }
    follower.call(0, start.length);
    Transfer result = writeHeldBytes(start, file) ? receiveRest(tcp, start, file, follower)
                                                  : Transfer::notWritten;
    follower.call(file.written(), start.length);
    if (!file.close() && result == Transfer::complete) {
        result = Transfer::notWritten;
    }
    return result;
}

} // namespace httpget
