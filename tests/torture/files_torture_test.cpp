// The OS layer's files and directories where the system refuses, breaks off, or goes in small
// steps.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "failing_calls.h"
#include "qoros.h"
#include "temp_directory.h"

namespace {

using torture::Cause;

class FilesTorture : public testing::Test {
protected:
    std::string path(const char* name) const {
        return directory_.path(name);
    }
    void write(const char* name, const char* bytes) const {
        const torture::Aside aside;
        directory_.write(name, bytes);
    }
    // 1 with the bytes where a copy succeeded; where it failed 0, and 10 with the bytes.
    int copies() const {
        write("from", "bytes");
        const uint32_t done = QorOsCopyFile(from_.c_str(), to_.c_str(), 1);
        const torture::Aside aside;
        const bool whole = directory_.read("to") == "bytes";
        unlink(to_.c_str());
        return done != 0 ? (whole ? 1 : -1) : whole ? 10 : 0;
    }
    int removesATree() const {
        {
            const torture::Aside aside;
            mkdir(tree_.c_str(), 0700);
            mkdir((tree_ + "/inner").c_str(), 0700);
            directory_.write("tree/inner/file", "");
        }
        const uint32_t done = QorOsDeleteDirTree(tree_.c_str());
        const torture::Aside aside;
        return (access(tree_.c_str(), F_OK) != 0) == (done != 0) ? static_cast<int>(done) : -1;
    }

    // Empties a directory outside of the tree through a link, which stays and so does the tree.
    int emptiesThroughALink() const {
        {
            const torture::Aside aside;
            mkdir(tree_.c_str(), 0700);
            mkdir(path("outside").c_str(), 0700);
            directory_.write("outside/file", "");
            static_cast<void>(symlink("../outside", (tree_ + "/link").c_str()));
        }
        const uint32_t done = QorOsDeleteDirTree(tree_.c_str());
        const torture::Aside aside;
        return done != 0 ? -1 : static_cast<int>(access(path("outside/file").c_str(), F_OK) != 0);
    }

    const support::TempDirectory directory_;
    const std::string from_ = path("from");
    const std::string to_ = path("to");
    const std::string tree_ = path("tree");
};

TEST_F(FilesTorture, AreCopied) {
    torture::failEach({{"a copy", [this] { return copies(); },
                        "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, "
                        "ftruncate EIO 0, read EIO 0 10, read EINTR 1, read one-byte 1, "
                        "write ENOSPC 0, write EINTR 1, write one-byte 1, fchown EPERM 10, "
                        "close EIO 10, utime EPERM 10"}},
                      Cause::inErrno);
}

TEST_F(FilesTorture, AreSearchedAndChanged) {
    write("from", "bytes");
    const std::string inner = path("a/b");
    const auto call = [](auto function) {
        return [function] { return static_cast<int>(function()); };
    };
    const auto searches = [this] {
        char name[QOR_PATH_SIZE];
        QorOsFind find;
        const uint32_t done =
            QorOsFindFirst(&find, directory_.path().c_str(), name, nullptr, nullptr, nullptr);
        return done != 0 ? static_cast<int>(QorOsFindClose(&find)) : find.dir == nullptr ? 0 : -1;
    };
    torture::failEach(
        {
            {"a search", searches,
             "stat EACCES 0, opendir EMFILE 0, readdir EIO 0, fstatat EACCES 0, closedir EIO 0"},
            {"a size", call([this] {
                 uint32_t size = 7;
                 const uint32_t done = QorOsGetFileSize(from_.c_str(), &size);
                 return size == (done != 0 ? 5 : 0) ? done : 9;
             }),
             "stat EACCES 0"},
            {"a time", call([this] { return QorOsSetFileTime(from_.c_str(), 1); }),
             "utime EPERM 0"},
            {"a rename", call([this] {
                 const uint32_t done = QorOsRenameFile(from_.c_str(), to_.c_str());
                 const torture::Aside aside;
                 rename(to_.c_str(), from_.c_str());
                 return done;
             }),
             "rename EXDEV 0"},
            {"directories", call([&] {
                 const uint32_t done = QorOsChkAndCreateDir(inner.c_str());
                 const torture::Aside aside;
                 rmdir(inner.c_str());
                 rmdir(path("a").c_str());
                 return done;
             }),
             "mkdir ENOSPC 0"},
            {"a deletion", call([this] {
                 const uint32_t done = QorOsDeleteFile(from_.c_str());
                 write("from", "bytes");
                 return done;
             }),
             "unlink EBUSY 0"},
        },
        Cause::inErrno);
}

TEST_F(FilesTorture, AreRemovedAsTrees) {
    torture::failEach({{"a tree", [this] { return removesATree(); },
                        "memory ENOMEM 0, opendir EMFILE 0, fstatat EIO 0, "
                        "lstat EIO 0, unlink EBUSY 0, rmdir EBUSY 0"},
                       {"one with a link", [this] { return emptiesThroughALink(); },
                        "memory ENOMEM 0, lstat EIO 0, stat EIO 0, opendir EMFILE 0"}});
}

TEST(ModulesTorture, AreNotTold) {
    torture::failEach({{"the program's path",
                        [] {
                            char path[QOR_PATH_SIZE] = "before";
                            uint32_t error = 0;
                            const uint32_t done = QorOsGetModulePath(path, sizeof path, &error);
                            const bool kept = strcmp(path, "before") == 0 && error != 0;
                            return (done == 0) == kept ? static_cast<int>(done) : -1;
                        },
                        "readlink EACCES 0"},
                       {"the computer's name",
                        [] {
                            char name[100];
                            uint32_t size = sizeof name;
                            return static_cast<int>(QorOsGetComputerName(name, &size));
                        },
                        "gethostname EPERM 0"}},
                      Cause::inErrno);
}

} // namespace
