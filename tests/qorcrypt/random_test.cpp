// Random bytes: the construction, missing seeds, child processes.
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <numeric>
#include <thread>

#include <gtest/gtest.h>

#include "gmp_number.h"
#include "qorcrypt/src/chacha20.h"
#include "qorcrypt/src/randomcalls.h"
#include "qorcrypto_random.h"

static bool kernelWipes = true;

bool randomcalls::wipeOnFork(void* pages, std::size_t size) {
#if defined(MADV_WIPEONFORK)
    return kernelWipes && madvise(pages, size, MADV_WIPEONFORK) == 0;
#else
    return pages == nullptr && size == 0;
#endif
}

namespace {

// The system gives no seed where no file can be opened.
void withoutSeeds(const std::function<void()>& body) {
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    body();
    setrlimit(RLIMIT_NOFILE, &before);
}

Bytes draw(std::size_t size, int result = 1) {
    Bytes bytes(size, 0xEE);
    EXPECT_EQ(QorRandomBytes(bytes.data(), size), result);
    EXPECT_TRUE(result == 1 || bytes == Bytes(size));
    return bytes;
}

// The key stream of RFC 8439, section 2.4.2, whose counter starts at 1; and fast key erasure: each
// refill makes another key first, which is no part of the output.
TEST(Random, IsAKeyStreamOfManyKeys) {
    unsigned char key[32];
    std::iota(key, key + sizeof key, static_cast<unsigned char>(0));
    Bytes stream(960);
    qorcrypt::chacha20KeyStream(key, 1, {0, 0, 0, 0, 0, 0, 0, 0x4A}, stream.data(), 2);
    EXPECT_EQ(hex(&stream[0], 16) + hex(&stream[64], 16),
              "224f51f3401bd9e12fde276fb8631ded69a6749f3f630f4122cafe28ec4dc47e");
    const Bytes first = draw(stream.size());
    std::copy_n(first.begin(), sizeof key, key);
    qorcrypt::chacha20KeyStream(key, 0, {}, stream.data(), stream.size() / 64);
    const Bytes second = draw(stream.size());
    EXPECT_TRUE(second != first && second != stream);
}

// A new thread's generator has no seed yet; one is good for a mebibyte.
TEST(Random, GivesNothingWithoutASeed) {
    const auto work = [] {
        withoutSeeds([] { draw(40, 0); });
        draw((1 << 20) - 10);
        withoutSeeds([] {
            draw(9);
            draw(2, 0); // not even the first byte
        });
    };
    std::thread(work).join();
    EXPECT_EQ(QorRandomBytes(nullptr, 1), 0);
}

TEST(Random, IsMissedByRsa) {
    QorRsaKey key;
    ASSERT_EQ(RsaNumbers(607, 521).setInto(key), QorRsaResult::Ok);
    const Bytes in(141);
    Bytes out(141);
    const auto work = [&] {
        EXPECT_EQ(key.EncryptType2(in.data(), 9, out.data(), 141), QorRsaResult::NoRandom);
        EXPECT_EQ(key.DecryptType2OrRandom(in.data(), 141, out.data(), 9), QorRsaResult::NoRandom);
    };
    std::thread([&] { withoutSeeds(work); }).join();
    EXPECT_EQ(out, in);
}

TEST(Random, DiffersInChildProcesses) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const auto drawInChild = [&ends] {
        const pid_t child = fork();
        if (child == 0) {
            _exit(write(ends[1], draw(64).data(), 64) == 64 ? 0 : 1);
        }
        Bytes bytes(64);
        EXPECT_EQ(read(ends[0], bytes.data(), 64), 64);
        EXPECT_EQ(waitpid(child, nullptr, 0), child);
        return bytes;
    };
    const auto work = [&] {
        draw(64);
        const Bytes first = drawInChild();
        const Bytes second = drawInChild();
        const Bytes own = draw(64);
        EXPECT_TRUE(first != second && first != own && second != own) << kernelWipes;
    };
    for (const bool wipes : {false, true}) {
        kernelWipes = wipes;
        std::thread(work).join();
    }
    close(ends[0]);
    close(ends[1]);
}

} // namespace
