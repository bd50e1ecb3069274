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
#include "own_log.h"

namespace {

class QorOsMmfTest : public OwnLog {
protected:
    static constexpr key_t key = 0x51420001;

    void SetUp() override {
        OwnLog::SetUp();
        shmctl(segment(), IPC_RMID, nullptr);
        char pattern[] = "/tmp/qoros_mmf_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        directory = pattern;
        file = directory + "/block";
        memset(&mmf, 0x5A, sizeof mmf);
    }

    void TearDown() override {
        OwnLog::TearDown();
        shmctl(segment(), IPC_RMID, nullptr);
        unlink(file.c_str());
        rmdir(directory.c_str());
    }

    // The segment of the key, -1 where there is none.
    static int segment() {
        return shmget(key, 0, 0);
    }

    // The messages of a create, of the file or else the segment, and of a close.
    static std::string creating(QorOsMmf* block, uint32_t size, const char* name, uint32_t result) {
        return messages([&] { EXPECT_EQ(QorOsMmfCreate(block, size, name, key, 0), result); });
    }

    static std::string closing(QorOsMmf* block, uint32_t result) {
        return messages([&] { EXPECT_EQ(QorOsMmfClose(block), result); });
    }

    // A record as a text, and that of a record without a block.
    static std::string record(const QorOsMmf& m) {
        return text("fd %d id %d size %u %s created %u error %u", m.fd, m.shmId, m.size,
                    m.address == nullptr ? "nowhere" : "there", m.created, m.lastError);
    }

    static std::string noBlock(int error, uint32_t size = 0) {
        return text("fd -1 id -1 size %u nowhere created 0 error %d", size, error);
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
    QorOsMmf mmf;
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
        const std::string shown = creating(&mmf, c.asked, file.c_str(), 1);
        EXPECT_EQ(shown, text("TRACE QorOsMmfCreate: mmap( %p, %u ) ok\n", mmf.address, c.size));
        const int fd = mmf.fd;
        EXPECT_EQ(record(mmf), text("fd %d id -1 size %u there created %d error 0", fd, c.size,
                                    c.before < 0 ? 1 : 0));
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(contents(), old + std::string(c.size - old.size(), '\0'));
        struct stat status {};
        ASSERT_EQ(fstat(fd, &status), 0);
        EXPECT_TRUE(c.before >= 0 || (status.st_mode & 0777) == 0600);
        static_cast<char*>(mmf.address)[c.size - 1] = 'x';
        const std::string unmap = text("TRACE QorOsMmfClose: unmap(%p) now\n", mmf.address);
        EXPECT_EQ(closing(&mmf, 1), unmap);
        EXPECT_EQ(mmf.address, nullptr);
        EXPECT_EQ(mmf.fd, fd);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        EXPECT_EQ(contents().back(), 'x');
    }
}

TEST_F(QorOsMmfTest, FlushesFromTheStartOfAPageToTheEndOfTheRange) {
    const uint32_t page = static_cast<uint32_t>(getpagesize());
    ASSERT_EQ(QorOsMmfCreate(&mmf, 2 * page, file.c_str(), 0, 0), 1u);
    char* const block = static_cast<char*>(mmf.address);
    EXPECT_EQ(QorOsMmfFlush(nullptr, block, 2 * page), 1u);
    EXPECT_EQ(seams::flushFlags, MS_SYNC);
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
    struct Case {
        std::string path;
        off_t before; // of the file
        uint32_t asked;
        int error;
        std::string message;
    };
    const Case cases[] = {
        {lost, 0, 10, ENOENT, "FATAL QorOsMmfCreate: file " + lost + " could not be created "},
        {directory, 0, 10, EISDIR,
         "FATAL QorOsMmfCreate: file " + directory + " could not be opened "},
        {file, 0x100000000, 10, EOVERFLOW,
         "ERROR QorOsMmfCreate: file status " + file + " could not be read "},
        {file, 1, 0x7FFFF002, EFBIG,
         "FATAL QorOsMmfCreate: write (2147479553 bytes) to created file " + file + " failed "},
#if defined(__linux__)
        {"/dev/full", 0, 0x7FFFF000, ENOSPC,
         "FATAL QorOsMmfCreate: write (2147479552 bytes) to created file /dev/full failed "},
        {"/dev/null", 0, 0, EINVAL, ""},
#endif
    };
    const int nextDescriptor = dup(0);
    close(nextDescriptor);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        writeFile("");
        ASSERT_EQ(truncate(file.c_str(), c.before), 0);
        EXPECT_EQ(creating(&mmf, c.asked, c.path.c_str(), 0),
                  c.message.empty() ? "TRACE QorOsMmfCreate: mmap( (nil), 0 ) ok\n"
                                    : c.message + errorText(c.error) + ")\n");
        EXPECT_EQ(record(mmf), noBlock(c.error, c.before == 1 ? 1 : 0));
        EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
        EXPECT_EQ(dup(0), nextDescriptor) << "a descriptor leaked";
        close(nextDescriptor);
        struct stat status {};
        EXPECT_EQ(stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_size, c.before);
    }
}

TEST_F(QorOsMmfTest, TellsOfAShortWrite) {
    writeFile(std::string(100, 'o'));
    support::ChildProcess limited([&] {
        const rlimit limit{4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        QorOsvResLogLevel(log, QOR_LOG_STDOUT); // its file would be cut by the limit too
        EXPECT_EQ(QorOsMmfCreate(&mmf, 8192, file.c_str(), 0, 0), 0u);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(record(mmf), noBlock(ENOSPC, 100));
        const std::string message = "FATAL QorOsMmfCreate: write (8092 bytes) to created file ";
        const std::string sent = seams::takeSyslog();
        EXPECT_NE(sent.find(message + file + " failed " + errorText(ENOSPC) + ")\n"),
                  std::string::npos);
    });
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(contents().size(), 4096u);
}

TEST_F(QorOsMmfTest, CreatesOrOpensASegment) {
    expectMessages("ERROR QorOsMmfOpen: open shm (key=0x51420001) failed " + errorText(ENOENT) +
                       ")\n",
                   [&] { EXPECT_EQ(QorOsMmfOpen(&mmf, nullptr, key), 0u); });
    EXPECT_EQ(record(mmf), noBlock(ENOENT));
    const std::string created = creating(&mmf, 10, "", 1);
    const int id = mmf.shmId;
    EXPECT_EQ(created, text("TRACE QorOsMmfCreate(%d): shm (key=0x51420001) is created\n"
                            "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 1\n",
                            id, id, mmf.address));
    EXPECT_EQ(record(mmf), text("fd -1 id %d size 0 there created 1 error 0", id));
    strcpy_qor(static_cast<char*>(mmf.address), 10, "here");

    support::Gate open;
    support::Gate close;
    support::ChildProcess other([&] {
        shmdt(mmf.address); // it came along with the fork
        const std::string opened = creating(&mmf, 99999, nullptr, 1);
        EXPECT_EQ(opened, text("TRACE QorOsMmfOpen(%d): shm (key=0x51420001) is opened\n"
                               "TRACE fMmfAttach(%d): shm (addr=%p) is attached now: 2\n",
                               id, id, mmf.address));
        EXPECT_EQ(record(mmf), text("fd -1 id %d size 0 there created 0 error %d", id, EEXIST));
        const char* const block = static_cast<char*>(mmf.address);
        open.open();
        close.wait();
        EXPECT_EQ(closing(&mmf, 1), text("TRACE QorOsMmfClose(%d): shm 1 attached processes\n"
                                         "TRACE QorOsMmfClose(%d): close shm\n",
                                         id, id));
        EXPECT_EQ(record(mmf), noBlock(EEXIST));
        EXPECT_STREQ(block, "here") << "the last user's memory goes with its process";
    });
    ASSERT_TRUE(open.wait());
    const std::string detach = text("TRACE QorOsMmfClose(%d): shm 2 attached processes\n"
                                    "TRACE QorOsMmfClose(%d): detach shm (%p)\n",
                                    id, id, mmf.address);
    EXPECT_EQ(closing(&mmf, 1), detach);
    EXPECT_EQ(record(mmf), text("fd -1 id %d size 0 nowhere created 1 error 0", id));
    EXPECT_EQ(segment(), id);
    close.open();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(segment(), -1);
    EXPECT_EQ(closing(&mmf, 1), "") << "it is gone";
}

TEST_F(QorOsMmfTest, TellsWhyASegmentFails) {
    EXPECT_EQ(creating(&mmf, 0, nullptr, 0),
              "FATAL QorOsMmfCreate: shm (key=0x51420001) failed " + errorText(EINVAL) + ")\n");
    EXPECT_EQ(record(mmf), noBlock(EINVAL));
    EXPECT_EQ(QorOsMmfCreate(nullptr, 10, nullptr, key, 0), 0u);
    EXPECT_EQ(QorOsMmfOpen(nullptr, nullptr, key), 0u);
    EXPECT_EQ(QorOsMmfClose(nullptr), 0u);

    // One that cannot be attached is removed by the attempt.
    ASSERT_NE(shmget(key, 10, IPC_CREAT | 0666), -1);
    seams::attachError = EACCES;
    const std::string refused = errorText(EACCES) + ")\n";
    const std::string shown = creating(&mmf, 10, nullptr, 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(shown.substr(shown.find('\n') + 1),
              "FATAL fMmfAttach: shmat failed " + refused +
                  "FATAL QorOsMmfCreate: key=0x51420001 already created, but QorOsMmfOpen failed " +
                  refused);
    EXPECT_EQ(record(mmf), noBlock(EACCES));
    EXPECT_EQ(segment(), -1);
}

TEST_F(QorOsMmfTest, TellsWhyABlockCannotBeGivenUp) {
    ASSERT_EQ(QorOsMmfCreate(&mmf, 4096, file.c_str(), 0, 0), 1u);
    char* block = static_cast<char*>(std::exchange(mmf.address, &mmf)); // on no page's begin
    EXPECT_EQ(closing(&mmf, 0), text("TRACE QorOsMmfClose: unmap(%p) now\n"
                                     "ERROR QorOsMmfClose: unmap(%p) failed %s)\n",
                                     mmf.address, mmf.address, errorText(EINVAL).c_str()));
    EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EINVAL));
    munmap(block, 4096);

    ASSERT_EQ(QorOsMmfCreate(&mmf, 10, nullptr, key, 0), 1u);
    const int id = mmf.shmId;
    block = static_cast<char*>(std::exchange(mmf.address, &mmf));
    seams::removeError = EPERM;
    EXPECT_EQ(closing(&mmf, 0), text("TRACE QorOsMmfClose(%d): shm 1 attached processes\n"
                                     "TRACE QorOsMmfClose(%d): close shm\n"
                                     "ERROR QorOsMmfClose(%d): shmctl failed ( %s )\n",
                                     id, id, id, errorText(EPERM).substr(1).c_str()));
    EXPECT_EQ(record(mmf), text("fd -1 id %d size 0 there created 1 error %d", id, EPERM));

    void* const second = shmat(id, nullptr, 0);
    const std::string shown = closing(&mmf, 1);
    EXPECT_EQ(
        shown.substr(shown.rfind("ERROR")),
        text("ERROR QorOsMmfClose(%d): shm detaching failed %s)\n", id, errorText(EINVAL).c_str()));
    EXPECT_EQ(record(mmf), text("fd -1 id %d size 0 nowhere created 1 error %d", id, EINVAL));
    shmdt(block);
    shmdt(second);
}

} // namespace
