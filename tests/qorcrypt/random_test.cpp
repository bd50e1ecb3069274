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
#include <thread>

#include <gtest/gtest.h>

#include "hex.h"
#include "qorcrypt/src/chacha20.h"
#include "qorcrypto_random.h"
#include "replaced_randomcalls.h"

namespace {

// Each case meets a generator that has no seed yet: that of a new thread.
void inNewThread(const RandomCalls& calls, const std::function<void()>& body) {
    randomCalls = calls;
    std::thread(body).join();
    randomCalls = {};
}

Bytes draw(std::size_t size, int result = 1) {
    Bytes bytes(size, 0xEE);
    EXPECT_EQ(QorRandomBytes(bytes.data(), size), result);
    return bytes;
}

RandomCalls calls(const std::function<void(RandomCalls&)>& change) {
    RandomCalls changed;
    change(changed);
    return changed;
}

// RFC 8439, section 2.4.2, whose counter starts at 1.
TEST(ChaCha20, GivesThePublishedKeyStream) {
    unsigned char key[32];
    for (unsigned char i = 0; i < 32; ++i) {
        key[i] = i;
    }
    const unsigned char nonce[12] = {0, 0, 0, 0, 0, 0, 0, 0x4A};
    unsigned char stream[128];
    qorcrypt::chacha20KeyStream(key, 1, nonce, stream, 2);
    EXPECT_EQ(hex(stream, 16), "224f51f3401bd9e12fde276fb8631ded");
    EXPECT_EQ(hex(stream + 64, 16), "69a6749f3f630f4122cafe28ec4dc47e");
}

// What fast key erasure makes of the key: output, and the key that follows it.
Bytes modelOutput(unsigned char (&key)[32], std::size_t blocks) {
    const unsigned char nonce[12] = {};
    Bytes stream(64 * (blocks + 1));
    qorcrypt::chacha20KeyStream(key, 0, nonce, stream.data(), blocks + 1);
    std::copy_n(stream.begin(), 32, key);
    return {stream.begin() + 64, stream.end()};
}

TEST(Random, ReplacesTheKeyWithEachRefill) {
    inNewThread(calls([](RandomCalls& c) { c.fixedSeed = true; }), [] {
        unsigned char key[32];
        for (unsigned char i = 0; i < 32; ++i) {
            key[i] = i;
        }
        Bytes drawn;
        for (const std::size_t size : {1u, 0u, 59u, 900u, 31u * 64, 960u}) {
            const Bytes piece = draw(size);
            drawn.insert(drawn.end(), piece.begin(), piece.end());
        }
        Bytes expected = modelOutput(key, 15);
        for (const std::size_t blocks : {31u, 15u}) {
            const Bytes piece = modelOutput(key, blocks);
            expected.insert(expected.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(hex(drawn.data(), drawn.size()), hex(expected.data(), expected.size()));
    });
}

TEST(Random, GivesNothingWithoutASeed) {
    const struct {
        const char* name;
        RandomCalls calls;
        int result;
    } rows[] = {
        {"no device", calls([](RandomCalls& c) { c.opens = false; }), 0},
        {"a file in its place", calls([](RandomCalls& c) { c.isDevice = false; }), 0},
        {"read fails", calls([](RandomCalls& c) { c.reads = false; }), 0},
        {"end of file", calls([](RandomCalls& c) { c.readLimit = 0; }), 0},
        {"open is interrupted", calls([](RandomCalls& c) { c.openInterrupts = 2; }), 1},
        {"read is interrupted", calls([](RandomCalls& c) { c.readInterrupts = 2; }), 1},
        {"short reads", calls([](RandomCalls& c) { c.readLimit = 1; }), 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        inNewThread(row.calls, [&row] {
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
    inNewThread({}, [] {
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

// The process number and the bytes that a child draws come through a pipe.
Bytes drawInChild(const std::function<pid_t()>& forkProcess) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = forkProcess();
    if (child == 0) {
        unsigned char bytes[64] = {};
        const bool drawn = QorRandomBytes(bytes, sizeof bytes) == 1;
        const bool told = write(ends[1], bytes, sizeof bytes) == sizeof bytes;
        _exit(drawn && told ? 0 : 1);
    }
    Bytes bytes(64);
    EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), 64);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    close(ends[0]);
    close(ends[1]);
    return bytes;
}

TEST(Random, DiffersInChildProcesses) {
    const auto plainFork = [] { return fork(); };
    struct Row {
        const char* name;
        bool kernelWipes;
        std::function<pid_t()> forkProcess;
    };
    std::vector<Row> rows = {{"fork, wiped by the kernel", true, plainFork},
                             {"fork, counted", false, plainFork}};
#if defined(__linux__)
    // Past the C library, which calls nobody then.
    const auto rawFork = [] {
        return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    };
    rows.push_back({"system call, wiped by the kernel", true, rawFork});
    rows.push_back({"system call, told by the process number", false, rawFork});
#endif
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        inNewThread(calls([&row](RandomCalls& c) { c.kernelWipes = row.kernelWipes; }), [&row] {
            draw(16);
            const Bytes first = drawInChild(row.forkProcess);
            const Bytes second = drawInChild(row.forkProcess);
            const Bytes own = draw(64);
            EXPECT_NE(first, second);
            EXPECT_NE(first, own);
            EXPECT_NE(second, own);
        });
    }
}

struct DrawsAtTheEnd {
    ~DrawsAtTheEnd() {
        EXPECT_NE(draw(40), draw(40));
    }
};

TEST(Random, ServesDestructorsOfItsThread) {
    inNewThread({}, [] {
        // It is made before the thread's generator, and thus goes after it.
        thread_local DrawsAtTheEnd last;
        static_cast<void>(&last);
        draw(1);
    });
}

} // namespace
