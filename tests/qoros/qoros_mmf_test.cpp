#include <fcntl.h>
#include <sys/resource.h>
#include <sys/shm.h>

#include <algorithm>

#include "own_log.h"
#include "temp_directory.h"

namespace {

constexpr uint32_t key = 0x51420001;

class QorOsMmfTest : public OwnLog {
protected:
    const support::TempDirectory directory;
    const std::string file = directory.path("block");
    QorOsMmf mmf{};
};

// A record as a text; the fourth number is whether there is a block.
std::string record(const QorOsMmf& mmf) {
    return text("%d %d %u %d %u %u", mmf.fd, mmf.shmId, mmf.size, mmf.address != nullptr,
                mmf.created, mmf.lastError);
}

TEST_F(QorOsMmfTest, MapsAFileAtLeastAsLargeAsAsked) {
    for (const uint32_t before : {0u, 4095u, 10000u}) {
        std::string bytes(before, 'o');
        std::ofstream(before == 0 ? "/dev/null" : file) << bytes;
        EXPECT_EQ(QorOsMmfCreate(&mmf, 4096, file.c_str(), 0, 0), 1u);
        bytes.resize(std::max(before, 4096u));
        EXPECT_EQ(record(mmf), text("%d -1 %zu 1 %d 0", mmf.fd, bytes.size(), before == 0));
        EXPECT_EQ(directory.read("block"), bytes);
        EXPECT_NE(fcntl(mmf.fd, F_GETFD) & FD_CLOEXEC, 0);
        bytes.back() = static_cast<char*>(mmf.address)[bytes.size() - 1] = 'x';
        expectCall("TRACE QorOsMmfClose: unmap(#) now\n", 1, [&] { return QorOsMmfClose(&mmf); });
        EXPECT_TRUE(mmf.fd >= 0 && mmf.address == nullptr && fcntl(mmf.fd, F_GETFD) == -1);
        EXPECT_EQ(directory.read("block"), bytes);
    }
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

TEST_F(QorOsMmfTest, TellsWhyAFileCannotBeMapped) {
    const auto create = [&] { return QorOsMmfCreate(&mmf, 0, file.c_str(), 0, 0); };
    expectCall("TRACE QorOsMmfCreate: mmap( (nil), 0 ) ok\n", 0, create);
    EXPECT_EQ(record(mmf), text("-1 -1 0 0 1 %d", EINVAL));
    ASSERT_EQ(truncate(file.c_str(), 0x100000000), 0);
    expectCall("ERROR QorOsMmfCreate: file status " + file + " could not be read " +
                   errorText(EOVERFLOW) + ")\n",
               0, create);
}

// The run-times of sanitizers need far more room for addresses than this leaves.
#if defined(__linux__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(QorOsMmfTest, TellsThatMemoryForZerosIsShort) {
    const pid_t limited = startChild([&] {
        const rlimit limit{0x40000000, 0x40000000};
        setrlimit(RLIMIT_AS, &limit);
        expectCall("FATAL QorOsMmfCreate: no write buffer availabel " + errorText(ENOMEM) + ")\n",
                   0, [&] { return QorOsMmfCreate(&mmf, 0x7FFFF000, "/dev/null", 0, 0); });
    });
    EXPECT_EQ(waitForChild(limited), 0);
}
#endif

TEST_F(QorOsMmfTest, CreatesOrOpensASegment) {
    QorOsMmf first;
    EXPECT_EQ(QorOsMmfCreate(&first, 10, "", key, 0), 1u);
    expectCall("TRACE QorOsMmfOpen(#): shm (key=0x51420001) is opened\n"
               "TRACE fMmfAttach(#): shm (addr=#) is attached now: 2\n",
               1, [&] { return QorOsMmfCreate(&mmf, 99999, nullptr, key, 0); });
    EXPECT_EQ(record(first), text("-1 %d 0 1 1 0", mmf.shmId));
    EXPECT_EQ(record(mmf), text("-1 %d 0 1 0 %d", first.shmId, EEXIST));
    const char* const block = static_cast<char*>(mmf.address);
    strcpy_qor(static_cast<char*>(first.address), 10, "here");
    expectCall("TRACE QorOsMmfClose(#): shm 2 attached processes\n"
               "TRACE QorOsMmfClose(#): detach shm (#)\n",
               1, [&] { return QorOsMmfClose(&first); });
    EXPECT_EQ(record(first), text("-1 %d 0 0 1 0", mmf.shmId));
    EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
    EXPECT_EQ(record(mmf), text("-1 -1 0 0 0 %d", EEXIST));
    EXPECT_STREQ(block, "here") << "the last user's memory goes with its process";
    EXPECT_EQ(shmget(key, 0, 0), -1);
    shmdt(block);
    expectCall("", 1, [&] { return QorOsMmfClose(&first); }); // it is gone
}

} // namespace
