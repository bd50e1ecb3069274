#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include "own_log.h"

namespace {

constexpr key_t key = 0x51420001;

// The segment of the key, -1 where there is none.
int segment() {
    return shmget(key, 0, 0);
}

class QorOsMmfTest : public OwnLog {
protected:
    void SetUp() override {
        OwnLog::SetUp();
        directory = testing::TempDir() + text("qoros_mmf_%u", dProcessId());
        ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
        file = directory + "/block";
    }

    void TearDown() override {
        OwnLog::TearDown();
        shmctl(segment(), IPC_RMID, nullptr);
        unlink(file.c_str());
        rmdir(directory.c_str());
    }

    // Creates the block of a file, or else of the segment, and tells with which messages.
    std::string creating(uint32_t size, const char* name, uint32_t result) {
        mmf = {7, 7, 7, this, 7, 7};
        return messages([&] { EXPECT_EQ(QorOsMmfCreate(&mmf, size, name, key, 0), result); });
    }

    std::string closing(uint32_t result) {
        return messages([&] { EXPECT_EQ(QorOsMmfClose(&mmf), result); });
    }

    // A record as a text; the last three are whether there is a block, whether it is new, and the
    // error.
    void expectRecord(int fd, int id, uint32_t size, bool block, uint32_t created, int error) {
        EXPECT_EQ(text("%d %d %u %d %u %u", mmf.fd, mmf.shmId, mmf.size, mmf.address != nullptr,
                       mmf.created, mmf.lastError),
                  text("%d %d %u %d %u %d", fd, id, size, block, created, error));
    }

    std::string contents() const {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    std::string directory;
    std::string file;
    QorOsMmf mmf{};
};

TEST_F(QorOsMmfTest, MapsAFileAtLeastAsLargeAsAsked) {
    const auto check = [&](uint32_t created, uint32_t before, uint32_t asked, uint32_t size) {
        SCOPED_TRACE(text("%u bytes of %u", asked, before));
        unlink(file.c_str());
        const std::string old(before, 'o');
        if (created == 0) {
            std::ofstream(file) << old;
        }
        const std::string shown = creating(asked, file.c_str(), 1);
        EXPECT_EQ(shown, text("TRACE QorOsMmfCreate: mmap( %p, %u ) ok\n", mmf.address, size));
        const int fd = mmf.fd;
        expectRecord(fd, -1, size, true, created, 0);
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(contents(), old + std::string(size - before, '\0'));
        struct stat status {};
        EXPECT_EQ(fstat(fd, &status), 0);
        EXPECT_TRUE(created == 0 || (status.st_mode & 0777) == 0600);
        static_cast<char*>(mmf.address)[size - 1] = 'x';
        const std::string unmap = text("TRACE QorOsMmfClose: unmap(%p) now\n", mmf.address);
        EXPECT_EQ(closing(1), unmap);
        expectRecord(fd, -1, size, false, created, 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        EXPECT_EQ(contents().back(), 'x');
    };
    check(1, 0, 4096, 4096);
    check(0, 4095, 4096, 4096);
    check(0, 4096, 4096, 4096);
    check(0, 10000, 4096, 10000);
}

TEST_F(QorOsMmfTest, FlushesFromTheStartOfAPageToTheEndOfTheRange) {
    const uint32_t page = static_cast<uint32_t>(getpagesize());
    creating(2 * page, file.c_str(), 1);
    char* const block = static_cast<char*>(mmf.address);
    EXPECT_EQ(QorOsMmfFlush(nullptr, block, 2 * page), 1u);
    EXPECT_EQ(seams::flushFlags, MS_SYNC);
    // Without the second page only what stays in the first can be written.
    ASSERT_EQ(munmap(block + page, page), 0);
    mmf.size = page;
    EXPECT_EQ(QorOsMmfFlush(&mmf, block + page - 1, 1), 1u);
    expectMessages("ERROR QorOsMmfFlush: msync failed " + errorText(ENOMEM) + ")\n",
                   [&] { EXPECT_EQ(QorOsMmfFlush(&mmf, block + page - 1, 2), 0u); });
    closing(1);
}

TEST_F(QorOsMmfTest, TellsWhyAFileCannotBeMapped) {
    const int nextDescriptor = dup(0);
    close(nextDescriptor);
    const auto check = [&](const std::string& path, off_t before, uint32_t asked, int error,
                           const std::string& message) {
        SCOPED_TRACE(message);
        std::ofstream(file).close();
        ASSERT_EQ(truncate(file.c_str(), before), 0);
        EXPECT_EQ(creating(asked, path.c_str(), 0),
                  error == EINVAL ? message : message + errorText(error) + ")\n");
        expectRecord(-1, -1, before == 1 ? 1 : 0, false, 0, error);
        closing(1);
        // While the messages are taken these hold the next one.
        EXPECT_EQ(fcntl(nextDescriptor + 1, F_GETFD), -1) << "a descriptor leaked";
    };
    const std::string create = "FATAL QorOsMmfCreate: ";
    const std::string lost = directory + "/no/file";
    check(lost, 0, 10, ENOENT, create + "file " + lost + " could not be created ");
    check(directory, 0, 10, EISDIR, create + "file " + directory + " could not be opened ");
    check(file, 0x100000000, 10, EOVERFLOW,
          "ERROR QorOsMmfCreate: file status " + file + " could not be read ");
    check(file, 1, 0x7FFFF002, EFBIG,
          create + "write (2147479553 bytes) to created file " + file + " failed ");
#if defined(__linux__)
    check("/dev/full", 0, 0x7FFFF000, ENOSPC,
          create + "write (2147479552 bytes) to created file /dev/full failed ");
    check("/dev/null", 0, 0, EINVAL, "TRACE QorOsMmfCreate: mmap( (nil), 0 ) ok\n");
#endif
}

TEST_F(QorOsMmfTest, TellsOfAShortWrite) {
    const pid_t limited = startChild([&] {
        const rlimit limit{4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(QorOsMmfCreate(&mmf, 8192, file.c_str(), 0, 0), 0u);
        EXPECT_EQ(errno, ENOSPC);
    });
    EXPECT_EQ(waitForChild(limited), 0);
    EXPECT_EQ(contents().size(), 4096u);
}

// The run-times of sanitizers need far more room for addresses than this leaves.
#if defined(__linux__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(QorOsMmfTest, TellsThatMemoryForZerosIsShort) {
    const pid_t limited = startChild([&] {
        const rlimit limit{0x40000000, 0x40000000};
        setrlimit(RLIMIT_AS, &limit);
        EXPECT_EQ(creating(0x7FFFF000, file.c_str(), 0),
                  "FATAL QorOsMmfCreate: no write buffer availabel " + errorText(ENOMEM) + ")\n");
        expectRecord(-1, -1, 0, false, 1, ENOMEM);
    });
    EXPECT_EQ(waitForChild(limited), 0);
}
#endif

TEST_F(QorOsMmfTest, CreatesOrOpensASegment) {
    const std::string missing = "ERROR QorOsMmfOpen: open shm (key=0x51420001) failed ";
    expectMessages(missing + errorText(ENOENT) + ")\n",
                   [&] { EXPECT_EQ(QorOsMmfOpen(&mmf, nullptr, key), 0u); });
    expectRecord(-1, -1, 0, false, 0, ENOENT);
    const std::string created = creating(10, "", 1);
    const int id = mmf.shmId;
    EXPECT_EQ(created, text("TRACE QorOsMmfCreate(%d): shm (key=0x51420001) is created\n"
                            "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 1\n",
                            id, id, mmf.address));
    expectRecord(-1, id, 0, true, 1, 0);
    strcpy_qor(static_cast<char*>(mmf.address), 10, "here");

    Gate open;
    Gate close;
    const pid_t other = startChild([&] {
        shmdt(mmf.address); // it came along with the fork
        const std::string opened = creating(99999, nullptr, 1);
        EXPECT_EQ(opened, text("TRACE QorOsMmfOpen(%d): shm (key=0x51420001) is opened\n"
                               "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 2\n",
                               id, id, mmf.address));
        expectRecord(-1, id, 0, true, 0, EEXIST);
        const char* const block = static_cast<char*>(mmf.address);
        open.open();
        close.wait();
        EXPECT_EQ(closing(1), text("TRACE QorOsMmfClose(%d): shm 1 attached processes\n"
                                   "TRACE QorOsMmfClose(%d): close shm\n",
                                   id, id));
        expectRecord(-1, -1, 0, false, 0, EEXIST);
        EXPECT_STREQ(block, "here") << "the last user's memory goes with its process";
    });
    ASSERT_TRUE(open.wait());
    const std::string detach = text("TRACE QorOsMmfClose(%d): shm 2 attached processes\n"
                                    "TRACE QorOsMmfClose(%d): detach shm (%p)\n",
                                    id, id, mmf.address);
    EXPECT_EQ(closing(1), detach);
    expectRecord(-1, id, 0, false, 1, 0);
    EXPECT_EQ(segment(), id);
    close.open();
    EXPECT_EQ(waitForChild(other), 0);
    EXPECT_EQ(segment(), -1);
    EXPECT_EQ(closing(1), "") << "it is gone";
}

TEST_F(QorOsMmfTest, TellsWhyASegmentFails) {
    EXPECT_EQ(creating(0, nullptr, 0),
              "FATAL QorOsMmfCreate: shm (key=0x51420001) failed " + errorText(EINVAL) + ")\n");
    expectRecord(-1, -1, 0, false, 0, EINVAL);
    EXPECT_EQ(QorOsMmfCreate(nullptr, 10, nullptr, key, 0), 0u);
    EXPECT_EQ(QorOsMmfOpen(nullptr, nullptr, key) + QorOsMmfClose(nullptr), 0u);

    // One that cannot be attached is removed by the attempt.
    ASSERT_NE(shmget(key, 10, IPC_CREAT | 0666), -1);
    seams::attachError = EACCES;
    const std::string refused = errorText(EACCES) + ")\n";
    const std::string shown = creating(10, nullptr, 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(shown.substr(shown.find('\n') + 1),
              "FATAL fMmfAttach: shmat failed " + refused +
                  "FATAL QorOsMmfCreate: key=0x51420001 already created, but QorOsMmfOpen failed " +
                  refused);
    expectRecord(-1, -1, 0, false, 0, EACCES);
    EXPECT_EQ(segment(), -1);
}

TEST_F(QorOsMmfTest, TellsWhyABlockCannotBeGivenUp) {
    const auto expectClosing = [&](uint32_t result, const std::string& message) {
        const std::string shown = closing(result);
        EXPECT_EQ(shown.substr(shown.rfind("ERROR")), message);
    };
    creating(4096, file.c_str(), 1);
    mmf.address = &mmf; // on no page's begin
    expectClosing(0, text("ERROR QorOsMmfClose: unmap(%p) failed ", mmf.address) +
                         errorText(EINVAL) + ")\n");
    expectRecord(mmf.fd, -1, 4096, true, 1, EINVAL);

    creating(10, nullptr, 1);
    const int id = mmf.shmId;
    const std::string close = text("ERROR QorOsMmfClose(%d): ", id);
    void* const block = std::exchange(mmf.address, &mmf);
    seams::removeError = EPERM;
    expectClosing(0, close + "shmctl failed ( " + errorText(EPERM).substr(1) + " )\n");
    expectRecord(-1, id, 0, true, 1, EPERM);
    shmat(id, nullptr, 0);
    expectClosing(1, close + "shm detaching failed " + errorText(EINVAL) + ")\n");
    expectRecord(-1, id, 0, false, 1, EINVAL);
    shmdt(block);
}

} // namespace
