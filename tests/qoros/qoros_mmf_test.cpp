#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>

#include "child_process.h"
#include "environment.h"
#include "own_log.h"

namespace {

class QorOsMmfTest : public OwnLog {
protected:
    static constexpr uint32_t key = 0x51420001;

    void SetUp() override {
        OwnLog::SetUp();
        shmctl(segment(), IPC_RMID, nullptr);
        char pattern[] = "/tmp/qoros_mmf_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        directory = pattern;
        file = directory + "/block";
    }

    void TearDown() override {
        shmctl(segment(), IPC_RMID, nullptr);
        unlink(file.c_str());
        rmdir(directory.c_str());
        OwnLog::TearDown();
    }

    // The segment of the key, -1 where there is none.
    static int segment() {
        return shmget(static_cast<key_t>(key), 0, 0);
    }

    std::string contents() const {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    void writeFile(const std::string& bytes) const {
        std::ofstream(file, std::ios::binary) << bytes;
    }

    std::string directory;
    std::string file;
};

TEST_F(QorOsMmfTest, MapsAFileAtLeastAsLargeAsAsked) {
    struct Case {
        const char* name;
        int before; // -1: there is no file
        uint32_t asked;
        uint32_t size;
    };
    const Case cases[] = {
        {"new", -1, 4096, 4096},
        {"grown", 100, 4096, 4096},
        {"grown by one", 4095, 4096, 4096},
        {"as it is", 4096, 4096, 4096},
        {"larger", 10000, 4096, 10000},
        {"nothing asked", 10, 0, 10},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        unlink(file.c_str());
        const std::string old(static_cast<std::size_t>(std::max(c.before, 0)), 'o');
        if (c.before >= 0) {
            writeFile(old);
        }
        QorOsMmf mmf;
        memset(&mmf, 0x5A, sizeof mmf);
        const std::string shown =
            messages([&] { EXPECT_EQ(QorOsMmfCreate(&mmf, c.asked, file.c_str(), key, 0), 1u); });
        EXPECT_EQ(shown, text("TRACE QorOsMmfCreate: mmap( %p, %u ) ok\n", mmf.address, c.size));
        EXPECT_EQ(mmf.shmId, -1);
        EXPECT_EQ(mmf.size, c.size);
        EXPECT_EQ(mmf.created, c.before < 0 ? 1u : 0u);
        EXPECT_EQ(mmf.lastError, 0u);
        EXPECT_NE(fcntl(mmf.fd, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(contents(), old + std::string(c.size - old.size(), '\0'));
        struct stat status {};
        ASSERT_EQ(fstat(mmf.fd, &status), 0);
        EXPECT_TRUE(c.before >= 0 || (status.st_mode & 0777) == 0600);
        static_cast<char*>(mmf.address)[c.size - 1] = 'x';
        const int fd = mmf.fd;
        expectMessages(text("TRACE QorOsMmfClose: unmap(%p) now\n", mmf.address),
                       [&] { EXPECT_EQ(QorOsMmfClose(&mmf), 1u); });
        EXPECT_EQ(mmf.address, nullptr);
        EXPECT_EQ(mmf.fd, fd);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        EXPECT_EQ(contents().back(), 'x');
    }
}

TEST_F(QorOsMmfTest, SharesAFileBetweenProcesses) {
    QorOsMmf mmf;
    ASSERT_EQ(QorOsMmfCreate(&mmf, 20000, file.c_str(), 0, 0), 1u);
    support::ChildProcess other([&] {
        QorOsMmf own;
        ASSERT_EQ(QorOsMmfCreate(&own, 1, file.c_str(), 0, 0), 1u);
        ASSERT_EQ(own.size, 20000u);
        strcpy_qor(static_cast<char*>(own.address) + 15000, 6, "hello");
        EXPECT_EQ(QorOsMmfClose(&own), 1u);
    });
    ASSERT_EQ(other.wait(), 0);
    EXPECT_STREQ(static_cast<char*>(mmf.address) + 15000, "hello");
    EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
}

TEST_F(QorOsMmfTest, FlushesFromTheStartOfAPageToTheEndOfTheRange) {
    const uint32_t page = static_cast<uint32_t>(getpagesize());
    QorOsMmf mmf;
    ASSERT_EQ(QorOsMmfCreate(&mmf, 2 * page, file.c_str(), 0, 0), 1u);
    char* const block = static_cast<char*>(mmf.address);
    EXPECT_EQ(QorOsMmfFlush(nullptr, block, 2 * page), 1u);
    // Without the second page only what stays in the first can be written.
    ASSERT_EQ(munmap(block + page, page), 0);
    mmf.size = page;
    EXPECT_EQ(QorOsMmfFlush(&mmf, block + page - 1, 1), 1u);
    expectMessages("ERROR QorOsMmfFlush: msync failed " + errorText(ENOMEM) + ")\n",
                   [&] { EXPECT_EQ(QorOsMmfFlush(&mmf, block + page - 1, 2), 0u); });
    EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
}

TEST_F(QorOsMmfTest, TellsWhyAFileCannotBeMapped) {
    const std::string lost = directory + "/no/file";
    writeFile("");
    ASSERT_EQ(truncate(file.c_str(), 0x100000000), 0);
    struct Case {
        std::string path;
        uint32_t size;
        int error;
        const char* message; // with the path, and the error in a pair of brackets
    };
    const Case cases[] = {
        {lost, 10, ENOENT, "FATAL QorOsMmfCreate: file %s could not be created %s)\n"},
        {directory, 10, EISDIR, "FATAL QorOsMmfCreate: file %s could not be opened %s)\n"},
        {file, 10, EOVERFLOW, "ERROR QorOsMmfCreate: file status %s could not be read %s)\n"},
#if defined(__linux__)
        {"/dev/full", 10, ENOSPC,
         "FATAL QorOsMmfCreate: write (10 bytes) to created file %s failed %s)\n"},
        {"/dev/null", 0, EINVAL, "TRACE QorOsMmfCreate: mmap( (nil), 0 ) ok\n"},
#endif
    };
    const int nextDescriptor = dup(0);
    close(nextDescriptor);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        std::string expected = c.message;
        for (const std::string& part : {c.path, errorText(c.error)}) {
            const std::size_t hole = expected.find("%s");
            expected.replace(std::min(hole, expected.size()), 2,
                             hole < expected.size() ? part : "");
        }
        QorOsMmf mmf;
        expectMessages(expected, [&] {
            EXPECT_EQ(QorOsMmfCreate(&mmf, c.size, c.path.c_str(), 0, 0), 0u);
            EXPECT_EQ(errno, c.error);
        });
        EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(c.error));
        EXPECT_EQ(mmf.fd, -1);
        EXPECT_EQ(mmf.created, 0u);
        EXPECT_EQ(mmf.address, nullptr);
        EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
        EXPECT_EQ(dup(0), nextDescriptor) << "a descriptor leaked";
        close(nextDescriptor);
    }
}

TEST_F(QorOsMmfTest, TellsOfAShortWrite) {
    writeFile(std::string(100, 'o'));
    support::ChildProcess limited([&] {
        const rlimit limit{4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        QorOsvResLogLevel(log, QOR_LOG_STDOUT); // its file would be cut by the limit too
        QorOsMmf mmf;
        EXPECT_EQ(QorOsMmfCreate(&mmf, 8192, file.c_str(), 0, 0), 0u);
        EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(ENOSPC));
        EXPECT_NE(
            seams::takeSyslog().find("FATAL QorOsMmfCreate: write (8092 bytes) to created file " +
                                     file + " failed " + errorText(ENOSPC) + ")\n"),
            std::string::npos);
    });
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(contents().size(), 4096u);
}

TEST_F(QorOsMmfTest, CreatesOrOpensASegment) {
    QorOsMmf first;
    const std::string shown = messages([&] {
        EXPECT_EQ(QorOsMmfOpen(&first, nullptr, key), 0u);
        EXPECT_EQ(first.lastError, static_cast<uint32_t>(ENOENT));
        EXPECT_EQ(QorOsMmfCreate(&first, 10, "", key, 1), 1u);
    });
    const int id = first.shmId;
    EXPECT_EQ(shown, text("ERROR QorOsMmfOpen: open shm (key=0x51420001) failed %s)\n"
                          "TRACE QorOsMmfCreate(%d): shm (key=0x51420001) is created\n"
                          "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 1\n",
                          errorText(ENOENT).c_str(), id, id, first.address));
    EXPECT_EQ(first.fd, -1);
    EXPECT_EQ(first.size, 0u);
    EXPECT_EQ(first.created, 1u);
    EXPECT_EQ(first.lastError, 0u);
    strcpy_qor(static_cast<char*>(first.address), 10, "here");

    support::Gate open;
    support::Gate close;
    support::ChildProcess other([&] {
        shmdt(first.address); // it came along with the fork
        QorOsMmf own;
        const std::string opened =
            messages([&] { EXPECT_EQ(QorOsMmfCreate(&own, 99999, nullptr, key, 0), 1u); });
        EXPECT_EQ(opened, text("TRACE QorOsMmfOpen(%d): shm (key=0x51420001) is opened\n"
                               "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 2\n",
                               id, id, own.address));
        EXPECT_EQ(own.created, 0u);
        EXPECT_EQ(own.lastError, static_cast<uint32_t>(EEXIST));
        EXPECT_STREQ(static_cast<char*>(own.address), "here");
        open.open();
        close.wait();
        expectMessages(text("TRACE QorOsMmfClose(%d): shm 1 attached processes\n"
                            "TRACE QorOsMmfClose(%d): close shm\n",
                            id, id),
                       [&] { EXPECT_EQ(QorOsMmfClose(&own), 1u); });
        EXPECT_EQ(own.shmId, -1);
    });
    ASSERT_TRUE(open.wait());
    expectMessages(text("TRACE QorOsMmfClose(%d): shm 2 attached processes\n"
                        "TRACE QorOsMmfClose(%d): detach shm (%p)\n",
                        id, id, first.address),
                   [&] { EXPECT_EQ(QorOsMmfClose(&first), 1u); });
    EXPECT_EQ(first.address, nullptr);
    EXPECT_EQ(first.shmId, id);
    EXPECT_EQ(segment(), id);
    close.open();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(segment(), -1);
    expectMessages("", [&] { EXPECT_EQ(QorOsMmfClose(&first), 1u) << "it is gone"; });
}

TEST_F(QorOsMmfTest, RemovesASegmentWithoutDetachingTheLastUser) {
    QorOsMmf mmf;
    ASSERT_EQ(QorOsMmfCreate(&mmf, 10, nullptr, key, 0), 1u);
    char* const block = static_cast<char*>(mmf.address);
    ASSERT_EQ(QorOsMmfClose(&mmf), 1u);
    EXPECT_EQ(mmf.shmId, -1);
    EXPECT_EQ(mmf.address, nullptr);
    strcpy_qor(block, 10, "still");
    EXPECT_STREQ(block, "still");
    shmdt(block);
}

TEST_F(QorOsMmfTest, TellsWhyASegmentFails) {
    QorOsMmf mmf;
    expectMessages("FATAL QorOsMmfCreate: shm (key=0x51420001) failed " + errorText(EINVAL) + ")\n",
                   [&] { EXPECT_EQ(QorOsMmfCreate(&mmf, 0, nullptr, key, 0), 0u); });
    EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(QorOsMmfCreate(nullptr, 10, nullptr, key, 0), 0u);
    EXPECT_EQ(QorOsMmfOpen(nullptr, nullptr, key), 0u);
    EXPECT_EQ(QorOsMmfClose(nullptr), 0u);

    // A user's own segment that nobody may attach is removed by the attempt.
    support::ChildProcess user([&] {
        ASSERT_TRUE(getuid() != 0 || setuid(65534) == 0);
        ASSERT_NE(shmget(static_cast<key_t>(key), 10, IPC_CREAT | IPC_EXCL), -1);
        const std::string refused = errorText(EACCES);
        const std::string shown =
            messages([&] { EXPECT_EQ(QorOsMmfCreate(&mmf, 10, nullptr, key, 0), 0u); });
        EXPECT_EQ(shown.substr(shown.find('\n') + 1),
                  text("FATAL fMmfAttach: shmat failed %s)\nFATAL QorOsMmfCreate: key=0x51420001 "
                       "already created, but QorOsMmfOpen failed %s)\n",
                       refused.c_str(), refused.c_str()));
        EXPECT_EQ(mmf.shmId, -1);
        EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EACCES));
        EXPECT_EQ(segment(), -1);
    });
    EXPECT_EQ(user.wait(), 0);
}

TEST_F(QorOsMmfTest, TellsWhyABlockCannotBeGivenUp) {
    QorOsMmf mmf;
    ASSERT_EQ(QorOsMmfCreate(&mmf, 4096, file.c_str(), 0, 0), 1u);
    char* const block = static_cast<char*>(mmf.address);
    mmf.address = block + 1;
    expectMessages(text("TRACE QorOsMmfClose: unmap(%p) now\n"
                        "ERROR QorOsMmfClose: unmap(%p) failed %s)\n",
                        mmf.address, mmf.address, errorText(EINVAL).c_str()),
                   [&] { EXPECT_EQ(QorOsMmfClose(&mmf), 0u); });
    EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EINVAL));
    munmap(block, 4096);

    ASSERT_EQ(QorOsMmfCreate(&mmf, 10, nullptr, key, 0), 1u);
    QorOsMmf second = mmf;
    ASSERT_NE(shmat(mmf.shmId, nullptr, 0), nullptr);
    second.address = static_cast<char*>(mmf.address) + 1;
    const std::string shown = messages([&] { EXPECT_EQ(QorOsMmfClose(&second), 1u); });
    EXPECT_NE(shown.find(text("ERROR QorOsMmfClose(%d): shm detaching failed %s)\n", mmf.shmId,
                              errorText(EINVAL).c_str())),
              std::string::npos);
    EXPECT_EQ(second.address, nullptr);
}

// Somebody else's segment cannot be removed. It takes root to be two users.
TEST_F(QorOsMmfTest, TellsThatASegmentCannotBeRemoved) {
    if (getuid() != 0) {
        QOR_SKIP_OR_FAIL("needs to run as root");
    }
    const int owned = shmget(static_cast<key_t>(key), 10, IPC_CREAT | 0666);
    support::ChildProcess user([&] {
        QorOsMmf mmf;
        ASSERT_EQ(setuid(65534), 0);
        ASSERT_EQ(QorOsMmfOpen(&mmf, nullptr, key), 1u);
        expectMessages(text("TRACE QorOsMmfClose(%d): shm 1 attached processes\n"
                            "TRACE QorOsMmfClose(%d): close shm\n"
                            "ERROR QorOsMmfClose(%d): shmctl failed ( %s )\n",
                            owned, owned, owned, errorText(EPERM).substr(1).c_str()),
                       [&] { EXPECT_EQ(QorOsMmfClose(&mmf), 0u); });
        EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EPERM));
        EXPECT_NE(mmf.address, nullptr);
    });
    EXPECT_EQ(user.wait(), 0);
}

} // namespace
