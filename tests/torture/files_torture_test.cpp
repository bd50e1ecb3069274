// The OS layer's files and directories where the system refuses, or goes in small steps.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "failing_calls.h"
#include "qoros.h"
#include "temp_directory.h"

namespace {

class FilesTorture : public testing::Test {
protected:
    int copies() const {
        {
            const torture::Aside aside;
            directory.write("file", "bytes");
            std::filesystem::remove(copy);
        }
        const uint32_t done = QorOsCopyFile(file.c_str(), copy.c_str(), 1);
        const torture::Aside aside;
        return done == 0 || directory.read("copy") == "bytes" ? static_cast<int>(done) : -1;
    }

    int searches() const {
        char name[QOR_PATH_SIZE];
        QorOsFind find;
        const uint32_t done =
            QorOsFindFirst(&find, directory.path().c_str(), name, nullptr, nullptr, nullptr);
        return done != 0 ? static_cast<int>(QorOsFindClose(&find)) : find.dir == nullptr ? 0 : -1;
    }

    // Whether a tree, or what a link in it leads to, is gone.
    int removesTrees(bool linked) const {
        const std::string inner = directory.path(linked ? "outside" : "tree/inner");
        {
            const torture::Aside aside;
            std::filesystem::create_directory(tree);
            std::filesystem::create_directory(inner);
            directory.write(linked ? "outside/file" : "tree/inner/file", "");
            static_cast<void>(linked && symlink("../outside", (tree + "/link").c_str()));
        }
        const uint32_t done = QorOsDeleteDirTree(tree.c_str());
        const torture::Aside aside;
        const bool gone = access((inner + "/file").c_str(), F_OK) != 0;
        return linked ? static_cast<int>(gone) : static_cast<int>(done);
    }

    const support::TempDirectory directory;
    const std::string file = directory.path("file");
    const std::string copy = directory.path("copy");
    const std::string tree = directory.path("tree");
};

TEST_F(FilesTorture, AreRefused) {
    torture::failEach(
        {{"a copy", [this] { return copies(); },
          "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, ftruncate EIO 0, "
          "read EIO 0, read EINTR 1, read one-byte 1, write ENOSPC 0, write EINTR 1, "
          "write one-byte 1, fchown EPERM 0, close EIO 0, utime EPERM 0"},
         {"a search", [this] { return searches(); },
          "stat EACCES 0, opendir EMFILE 0, readdir EIO 0, fstatat EACCES 0, closedir EIO 0"}},
        torture::Cause::inErrno);
}

TEST_F(FilesTorture, StayInTrees) {
    torture::failEach({{"a tree", [this] { return removesTrees(false); },
                        "memory ENOMEM 0, opendir EMFILE 0, fstatat EIO 0, lstat EIO 0, "
                        "unlink EBUSY 0, rmdir EBUSY 0"},
                       {"one with a link", [this] { return removesTrees(true); },
                        "memory ENOMEM 0, lstat EIO 0, stat EIO 0, opendir EMFILE 0"}});
}

} // namespace
