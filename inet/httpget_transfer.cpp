#include "httpget_transfer.h"

#include <algorithm>
#include <cstdio>

namespace httpget {

namespace {

// A receive that a callback counts is of this size at most. The system is asked for many of them at
// once and they are counted as if each had come alone, which takes half the time.
constexpr unsigned int receiveSize = 4096;
constexpr unsigned int blockSize = 8 * receiveSize;
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
        const auto done = static_cast<unsigned int>(fwrite(bytes, 1, count, file_));
        written_ += done;
        return done == count;
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

// Counts the receives towards the next call back.
class Countdown {
public:
    // The bytes that may come before the call is due.
    unsigned int room() const {
        return left_ * receiveSize;
    }
    // True when the call is due.
    bool take(unsigned int bytes) {
        left_ -= (bytes + receiveSize - 1) / receiveSize;
        if (left_ != 0) {
            return false;
        }
        left_ = receivesBetweenCalls;
        return true;
    }

private:
    unsigned int left_ = receivesBetweenCalls;
};

// Writes what came in one block, and calls back where that is due.
Transfer takeBlock(const unsigned char* bytes, unsigned int count, unsigned int length,
                   Countdown& countdown, Destination& file, const Follower& follower) {
    while (count != 0) {
        const unsigned int part = std::min(count, countdown.room());
        if (!file.write(bytes, part)) {
            return Transfer::notWritten;
        }
        if (countdown.take(part) && !follower.call(file.written(), length)) {
            return Transfer::brokenOff;
        }
        bytes += part;
        count -= part;
    }
    return Transfer::complete;
}

// Receives what the bytes held lack of the body. The line feed of the blank line may come here too.
Transfer receiveRest(TcpClient& tcp, const ResponseStart& start, Destination& file,
                     const Follower& follower) {
    unsigned char block[blockSize];
    unsigned int lateLineFeed = start.bodyOffset > start.held ? 1 : 0;
    Countdown countdown;
    while (file.written() < start.length) {
        const unsigned int missing = start.length - file.written();
        unsigned int count = std::min(missing, blockSize - lateLineFeed) + lateLineFeed;
        if (tcp.Receive(block, &count) == 0) {
            return endsInOrder(tcp, start.length) ? Transfer::complete : Transfer::brokenOff;
        }
        const Transfer taken = takeBlock(block + lateLineFeed, count - lateLineFeed, start.length,
                                         countdown, file, follower);
        if (taken != Transfer::complete) {
            return taken;
        }
        lateLineFeed = 0;
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
