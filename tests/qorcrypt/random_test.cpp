// Random bytes: the construction, missing seeds, child processes.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif

#include <algorithm>
#include <csignal>
#include <functional>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "hex.h"
#include "qorcrypt/src/chacha20.h"
#include "qorcrypto_random.h"
#include "replaced_randomcalls.h"

namespace {

// Each case meets a generator that has no seed yet: that of a new thread.
void inNewThread(const std::function<void(RandomCalls&)>& change,
                 const std::function<void()>& body) {
    change(randomCalls = {});
    std::thread(body).join();
    randomCalls = {};
}

Bytes draw(std::size_t size, int result = 1) {
    Bytes bytes(size, 0xEE);
    EXPECT_EQ(QorRandomBytes(bytes.data(), size), result);
    return bytes;
}

struct Key {
    unsigned char bytes[32];
    Key() {
        std::iota(bytes, bytes + 32, static_cast<unsigned char>(0));
    }
};

// RFC 8439, section 2.4.2, whose counter starts at 1.
TEST(ChaCha20, GivesThePublishedKeyStream) {
    const unsigned char nonce[12] = {0, 0, 0, 0, 0, 0, 0, 0x4A};
    unsigned char stream[128];
    qorcrypt::chacha20KeyStream(Key().bytes, 1, nonce, stream, 2);
    EXPECT_EQ(hex(stream, 16), "224f51f3401bd9e12fde276fb8631ded");
    EXPECT_EQ(hex(stream + 64, 16), "69a6749f3f630f4122cafe28ec4dc47e");
}

// Fast key erasure: block 0 gives the next key, those behind it are output.
TEST(Random, ReplacesTheKeyWithEachRefill) {
    inNewThread([](RandomCalls& c) { c.fixedSeed = true; },
                [] {
                    const unsigned char nonce[12] = {};
                    Key key;
                    Bytes expected;
                    for (const std::size_t blocks : {15u, 31u, 15u}) {
                        Bytes stream(64 * (blocks + 1));
                        qorcrypt::chacha20KeyStream(key.bytes, 0, nonce, stream.data(), blocks + 1);
                        std::copy_n(stream.begin(), 32, key.bytes);
                        expected.insert(expected.end(), stream.begin() + 64, stream.end());
                    }
                    Bytes drawn;
                    for (const std::size_t size : {1u, 0u, 59u, 900u, 31u * 64, 960u}) {
                        const Bytes piece = draw(size);
                        drawn.insert(drawn.end(), piece.begin(), piece.end());
                    }
                    EXPECT_EQ(drawn, expected);
                });
}

TEST(Random, GivesNothingWithoutASeed) {
    const struct {
        const char* name;
        std::function<void(RandomCalls&)> change;
        int result;
    } rows[] = {
        {"no device", [](RandomCalls& c) { c.opens = false; }, 0},
        {"a file in its place", [](RandomCalls& c) { c.isDevice = false; }, 0},
        {"read fails", [](RandomCalls& c) { c.reads = false; }, 0},
        {"end of file", [](RandomCalls& c) { c.readLimit = 0; }, 0},
        {"interrupts", [](RandomCalls& c) { c.openInterrupts = c.readInterrupts = 2; }, 1},
        {"short reads", [](RandomCalls& c) { c.readLimit = 1; }, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        inNewThread(row.change, [&row] {
            const Bytes bytes = draw(40, row.result);
            EXPECT_EQ(bytes == Bytes(40), row.result == 0);
            EXPECT_NE(bytes, Bytes(40, 0xEE));
            EXPECT_EQ(randomCalls.openCount, randomCalls.closeCount);
            EXPECT_EQ(randomCalls.openFlags, randomCalls.opens ? O_RDONLY | O_CLOEXEC : 0);
            randomCalls = {};
            EXPECT_NE(draw(40), bytes) << "the next call asks again";
        });
    }
    EXPECT_EQ(QorRandomBytes(nullptr, 1), 0);
}

TEST(Random, ReseedsAfterEachMebibyte) {
    inNewThread([](RandomCalls&) {},
                [] {
                    constexpr std::size_t interval = 1 << 20;
                    draw(interval - 1);
                    draw(1);
                    EXPECT_EQ(randomCalls.openCount, 1);
                    draw(2 * interval);
                    EXPECT_EQ(randomCalls.openCount, 3);
                    draw(interval - 10);
                    randomCalls.opens = false;
                    EXPECT_EQ(draw(11, 0), Bytes(11)) << "not even the first ten";
                });
}

// What a child draws comes through a pipe.
Bytes drawInChild(bool pastTheCLibrary) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    pid_t child = -1;
    if (!pastTheCLibrary) {
        child = fork();
    }
#if defined(__linux__)
    if (pastTheCLibrary) {
        child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    }
#endif
    Bytes bytes(64);
    if (child == 0) {
        const bool drawn = QorRandomBytes(bytes.data(), 64) == 1;
        _exit(drawn && write(ends[1], bytes.data(), 64) == 64 ? 0 : 1);
    }
    EXPECT_EQ(read(ends[0], bytes.data(), 64), 64);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    close(ends[0]);
    close(ends[1]);
    return bytes;
}

TEST(Random, DiffersInChildProcesses) {
    for (const bool kernelWipes : {true, false}) {
        for (const bool pastTheCLibrary : {false, true}) {
#if !defined(__linux__)
            if (pastTheCLibrary) {
                continue;
            }
#endif
            SCOPED_TRACE(pastTheCLibrary);
            SCOPED_TRACE(kernelWipes);
            inNewThread([=](RandomCalls& c) { c.kernelWipes = kernelWipes; },
                        [=] {
                            draw(16);
                            const Bytes first = drawInChild(pastTheCLibrary);
                            const Bytes second = drawInChild(pastTheCLibrary);
                            const Bytes own = draw(64);
                            EXPECT_TRUE(first != second && first != own && second != own);
                        });
        }
    }
}

struct DrawsAtTheEnd {
    ~DrawsAtTheEnd() {
        EXPECT_NE(draw(40), draw(40));
    }
};

TEST(Random, ServesDestructorsOfItsThread) {
    inNewThread([](RandomCalls&) {},
                [] {
                    // It is made before the thread's generator, and thus goes after it.
                    thread_local DrawsAtTheEnd last;
                    static_cast<void>(&last);
                    draw(1);
                });
}

} // namespace
