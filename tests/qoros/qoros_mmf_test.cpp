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
    static constexpr uint32_t key = 0x51420001;

    void SetUp() override {
        OwnLog::SetUp();
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        char pattern[] = "/tmp/qoros_mmf_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        directory = pattern;
        file = directory + "/block";
    }

    void TearDown() override {
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        unlink(file.c_str());
        rmdir(directory.c_str());
        OwnLog::TearDown();
    }

    std::string contents() const {
        std::ifstream in(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    void writeFile(const std::string& bytes) const {
        std::ofstream(file, std::ios::binary) << bytes;
    }

    // How many descriptors the process has open.
    static int openDescriptors() {
        int open = 0;
        for (int fd = 0; fd < 256; ++fd) {
            open += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
        }
        return open;
    }

    std::string directory;
    std::string file;
};

std::string number(int64_t value) {
    return std::to_string(value);
}

std::string pointer(const void* address) {
    char text[32];
    sprintf_qor(text, sizeof text, "%p", address);
    return text;
}

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
        EXPECT_EQ(shown, "TRACE QorOsMmfCreate: mmap( " + pointer(mmf.address) + ", " +
                             number(c.size) + " ) ok\n");
        EXPECT_EQ(mmf.shmId, -1);
        EXPECT_EQ(mmf.size, c.size);
        EXPECT_EQ(mmf.created, c.before < 0 ? 1u : 0u);
        EXPECT_EQ(mmf.lastError, 0u);
        EXPECT_NE(fcntl(mmf.fd, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(contents(), old + std::string(c.size - old.size(), '\0'));
        struct stat status {};
        ASSERT_EQ(fstat(mmf.fd, &status), 0);
        if (c.before < 0) {
            EXPECT_EQ(status.st_mode & 0777, 0600);
        }
        static_cast<char*>(mmf.address)[c.size - 1] = 'x';
        const int fd = mmf.fd;
        const std::string address = pointer(mmf.address);
        EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfClose(&mmf), 1u); }),
                  "TRACE QorOsMmfClose: unmap(" + address + ") now\n");
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
        if (QorOsMmfCreate(&own, 1, file.c_str(), 0, 0) != 1 || own.size != 20000) {
            return 1;
        }
        strcpy_qor(static_cast<char*>(own.address) + 15000, 6, "hello");
        return QorOsMmfClose(&own) == 1 ? 0 : 2;
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
    EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfFlush(&mmf, block + page - 1, 2), 0u); }),
              "ERROR QorOsMmfFlush: msync failed " + errorText(ENOMEM) + ")\n");
    EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
}

TEST_F(QorOsMmfTest, TellsWhyAFileCannotBeMapped) {
    const std::string lost = directory + "/no/file";
    writeFile("");
    ASSERT_EQ(truncate(file.c_str(), 0x100000000), 0);
    struct Case {
        const char* name;
        std::string path;
        uint32_t size;
        int error;
        std::string message;
    };
    const std::string opens = "FATAL QorOsMmfCreate: file ";
    const Case cases[] = {
        {"no directory", lost, 10, ENOENT, opens + lost + " could not be created (%)"},
        {"a directory", directory, 10, EISDIR, opens + directory + " could not be opened (%)"},
        {"4 GiB", file, 10, EOVERFLOW,
         "ERROR QorOsMmfCreate: file status " + file + " could not be read (%)"},
#if defined(__linux__)
        {"full", "/dev/full", 10, ENOSPC,
         "FATAL QorOsMmfCreate: write (10 bytes) to created file /dev/full failed (%)"},
        {"nothing to map", "/dev/null", 0, EINVAL,
         "TRACE QorOsMmfCreate: mmap( " + pointer(nullptr) + ", 0 ) ok"},
#endif
    };
    const int descriptors = openDescriptors();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QorOsMmf mmf;
        std::string expected = c.message + "\n";
        const std::size_t hole = expected.find("(%)");
        if (hole != std::string::npos) {
            expected.replace(hole, 2, errorText(c.error));
        }
        EXPECT_EQ(messages([&] {
                      EXPECT_EQ(QorOsMmfCreate(&mmf, c.size, c.path.c_str(), 0, 0), 0u);
                      EXPECT_EQ(errno, c.error);
                  }),
                  expected);
        EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(c.error));
        EXPECT_EQ(mmf.fd, -1);
        EXPECT_EQ(mmf.created, 0u);
        EXPECT_EQ(mmf.address, nullptr);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(QorOsMmfClose(&mmf), 1u);
    }
}

TEST_F(QorOsMmfTest, TellsOfAShortWrite) {
    writeFile(std::string(100, 'o'));
    support::ChildProcess limited([&] {
        const rlimit limit{4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        QorOsMmf mmf;
        uint32_t result = 1;
        // Over a pipe, since a file for the output would be cut by the limit.
        QorOsvResLogLevel(log, QOR_LOG_STDOUT);
        result = QorOsMmfCreate(&mmf, 8192, file.c_str(), 0, 0);
        const std::string expected = " FATAL QorOsMmfCreate: write (8092 bytes) to created file " +
                                     file + " failed " + errorText(ENOSPC) + ")\n";
        const std::string sent = seams::takeSyslog();
        return result == 0 && mmf.lastError == ENOSPC && mmf.fd == -1 &&
                       sent.find(expected) != std::string::npos
                   ? 0
                   : 1;
    });
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(contents().size(), 4096u);
}

TEST_F(QorOsMmfTest, CreatesOrOpensASegment) {
    QorOsMmf first;
    const auto created = messages([&] {
        EXPECT_EQ(QorOsMmfOpen(&first, nullptr, key), 0u);
        EXPECT_EQ(first.lastError, static_cast<uint32_t>(ENOENT));
        EXPECT_EQ(QorOsMmfCreate(&first, 10, "", key, 1), 1u);
    });
    const std::string id = number(first.shmId);
    EXPECT_EQ(created, "ERROR QorOsMmfOpen: open shm (key=0x51420001) failed " + errorText(ENOENT) +
                           ")\nTRACE QorOsMmfCreate(" + id +
                           "): shm (key=0x51420001) is created\nTRACE fMmfAttach(" + id +
                           "): shm (addr=" + pointer(first.address) + ") is attached now: 1\n");
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
        uint32_t usable = 0;
        const std::string shown =
            messages([&] { usable = QorOsMmfCreate(&own, 99999, nullptr, key, 0); });
        const bool right =
            usable == 1 && own.created == 0 && own.lastError == EEXIST &&
            strcmp(static_cast<char*>(own.address), "here") == 0 &&
            shown.find("TRACE QorOsMmfOpen(" + id + "): shm (key=0x51420001) is opened\n") == 0;
        open.open();
        close.wait();
        usable = 0;
        const std::string closed = messages([&] { usable = QorOsMmfClose(&own); });
        return right && usable == 1 && own.shmId == -1 &&
                       closed == "TRACE QorOsMmfClose(" + id +
                                     "): shm 1 attached processes\nTRACE QorOsMmfClose(" + id +
                                     "): close shm\n"
                   ? 0
                   : 1;
    });
    ASSERT_TRUE(open.wait());
    const std::string address = pointer(first.address);
    EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfClose(&first), 1u); }),
              "TRACE QorOsMmfClose(" + id + "): shm 2 attached processes\nTRACE QorOsMmfClose(" +
                  id + "): detach shm (" + address + ")\n");
    EXPECT_EQ(first.address, nullptr);
    EXPECT_EQ(number(first.shmId), id);
    EXPECT_NE(shmget(key, 0, 0), -1);
    close.open();
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(shmget(key, 0, 0), -1);
    EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfClose(&first), 1u); }), "") << "it is gone";
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
    EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfCreate(&mmf, 0, nullptr, key, 0), 0u); }),
              "FATAL QorOsMmfCreate: shm (key=0x51420001) failed " + errorText(EINVAL) + ")\n");
    EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EINVAL));

    const int owned = shmget(static_cast<key_t>(key), 10, IPC_CREAT | 0666);
    support::ChildProcess stranger([&] {
        if (getuid() == 0 && setuid(65534) != 0) {
            return 2;
        }
        // A segment of its own that nobody may attach is removed by the attempt.
        const key_t shut = 0x51420002;
        if (shmget(shut, 10, IPC_CREAT | IPC_EXCL) == -1) {
            return 3;
        }
        QorOsMmf own;
        uint32_t usable = 1;
        std::string shown =
            messages([&] { usable = QorOsMmfCreate(&own, 10, nullptr, 0x51420002, 0); });
        const std::string failed = errorText(EACCES) + ")\n";
        if (usable != 0 || own.shmId != -1 || own.lastError != EACCES || shmget(shut, 0, 0) != -1 ||
            shown.find("FATAL fMmfAttach: shmat failed " + failed +
                       "FATAL QorOsMmfCreate: key=0x51420002 already created, but QorOsMmfOpen "
                       "failed " +
                       failed) == std::string::npos) {
            return 4;
        }
        return 0;
    });
    EXPECT_EQ(stranger.wait(), 0);

    if (getuid() == 0) { // somebody else's segment cannot be removed
        support::ChildProcess user([&] {
            QorOsMmf own;
            uint32_t closed = 1;
            const bool ready = setuid(65534) == 0 && QorOsMmfOpen(&own, nullptr, key) == 1;
            const std::string shown = messages([&] { closed = QorOsMmfClose(&own); });
            return ready && closed == 0 && own.lastError == EPERM && own.shmId == owned &&
                           own.address != nullptr &&
                           shown.find("ERROR QorOsMmfClose(" + number(owned) +
                                      "): shmctl failed ( " + errorText(EPERM).substr(1) +
                                      " )\n") != std::string::npos
                       ? 0
                       : 1;
        });
        EXPECT_EQ(user.wait(), 0);
    }
}

TEST_F(QorOsMmfTest, TellsWhyABlockCannotBeGivenUp) {
    QorOsMmf mmf;
    ASSERT_EQ(QorOsMmfCreate(&mmf, 4096, file.c_str(), 0, 0), 1u);
    mmf.address = static_cast<char*>(mmf.address) + 1;
    const std::string odd = pointer(mmf.address);
    EXPECT_EQ(messages([&] { EXPECT_EQ(QorOsMmfClose(&mmf), 0u); }),
              "TRACE QorOsMmfClose: unmap(" + odd + ") now\nERROR QorOsMmfClose: unmap(" + odd +
                  ") failed " + errorText(EINVAL) + ")\n");
    EXPECT_EQ(mmf.lastError, static_cast<uint32_t>(EINVAL));
    munmap(static_cast<char*>(mmf.address) - 1, 4096);

    QorOsMmf first;
    QorOsMmf second;
    ASSERT_EQ(QorOsMmfCreate(&first, 10, nullptr, key, 0), 1u);
    ASSERT_EQ(QorOsMmfOpen(&second, nullptr, key), 1u);
    void* const right = second.address;
    second.address = static_cast<char*>(right) + 1;
    const std::string shown = messages([&] { EXPECT_EQ(QorOsMmfClose(&second), 1u); });
    EXPECT_NE(shown.find("shm detaching failed " + errorText(EINVAL) + ")\n"), std::string::npos);
    EXPECT_EQ(second.address, nullptr);
    shmdt(right);
    EXPECT_EQ(QorOsMmfClose(&first), 1u);
}

TEST_F(QorOsMmfTest, RefusesANullRecord) {
    EXPECT_EQ(QorOsMmfCreate(nullptr, 10, nullptr, key, 0), 0u);
    EXPECT_EQ(QorOsMmfOpen(nullptr, nullptr, key), 0u);
    EXPECT_EQ(QorOsMmfClose(nullptr), 0u);
}

} // namespace
