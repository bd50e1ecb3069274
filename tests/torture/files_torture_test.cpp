// The OS layer's files and directories where the system refuses, breaks off, or goes in small
// steps.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "failing_calls.h"
#include "qoros.h"
#include "temp_directory.h"

namespace {

// What an operation finds in a directory of its own.
struct Paths {
    const char* file; // holds "bytes"
    const char* none;
    const char* tree; // holds inner/file
};

uint32_t search(const Paths& paths) {
    char name[QOR_PATH_SIZE];
    QorOsFind find;
    const uint32_t done = QorOsFindFirst(&find, paths.tree, name, nullptr, nullptr, nullptr);
    return done != 0 ? QorOsFindClose(&find) : find.dir == nullptr ? 0 : 9;
}

uint32_t size(const Paths& paths) {
    uint32_t bytes = 7;
    const uint32_t done = QorOsGetFileSize(paths.file, &bytes);
    return bytes == (done != 0 ? 5 : 0) ? done : 9;
}

// 9 where a copy is none.
uint32_t copy(const Paths& paths) {
    const uint32_t done = QorOsCopyFile(paths.file, paths.none, 1);
    const torture::Aside aside;
    std::string bytes;
    std::ifstream(paths.none) >> bytes;
    return done == 0 || bytes == "bytes" ? done : 9;
}

TEST(FilesTorture, AreRefused) {
    const struct {
        const char* name;
        uint32_t (*operation)(const Paths&);
        const char* faults;
    } cases[] = {
        {"a copy", copy,
         "memory ENOMEM 0, open EACCES 0, open EINTR 1, fstat EIO 0, ftruncate EIO 0, read EIO 0, "
         "read EINTR 1, read one-byte 1, write ENOSPC 0, write EINTR 1, write one-byte 1, "
         "fchown EPERM 0, close EIO 0, utime EPERM 0"},
        {"a search", search,
         "stat EACCES 0, opendir EMFILE 0, readdir EIO 0, fstatat EACCES 0, closedir EIO 0"},
        {"a size", size, "stat EACCES 0"},
        {"a time", [](const Paths& p) { return QorOsSetFileTime(p.file, 1); }, "utime EPERM 0"},
        {"a name", [](const Paths& p) { return QorOsRenameFile(p.file, p.none); },
         "rename EXDEV 0"},
        {"a removal", [](const Paths& p) { return QorOsDeleteFile(p.file); }, "unlink EBUSY 0"},
        {"a directory", [](const Paths& p) { return QorOsChkAndCreateDir(p.none); },
         "mkdir ENOSPC 0"},
        {"a look", [](const Paths& p) { return QorOsFileExists(p.file); }, "access EACCES 0"},
    };
    for (const auto& c : cases) {
        const support::TempDirectory directory;
        const std::string file = directory.path("file");
        const std::string none = directory.path("none");
        const std::string tree = directory.path("tree");
        const auto operation = [&] {
            {
                const torture::Aside aside;
                std::filesystem::remove_all(none);
                std::filesystem::create_directory(tree);
                directory.write("tree/entry", "");
                directory.write("file", "bytes");
            }
            return static_cast<int>(c.operation({file.c_str(), none.c_str(), tree.c_str()}));
        };
        torture::failEach({{c.name, operation, c.faults}}, torture::Cause::inErrno);
    }
}

// Whether a tree, or what a link in it leads to, is gone.
int removesTrees(const support::TempDirectory& directory, bool linked) {
    const std::string tree = directory.path("tree");
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

TEST(FilesTorture, StayInTrees) {
    const support::TempDirectory directory;
    torture::failEach({{"a tree", [&] { return removesTrees(directory, false); },
                        "memory ENOMEM 0, opendir EMFILE 0, fstatat EIO 0, lstat EIO 0, "
                        "unlink EBUSY 0, rmdir EBUSY 0"},
                       {"one with a link", [&] { return removesTrees(directory, true); },
                        "memory ENOMEM 0, lstat EIO 0, stat EIO 0, opendir EMFILE 0"}});
}

int loadsAModule() {
    void* const module = QorOsDlLoad("libm.so.6");
    const bool found = QorOsDlGetAddr(module, "cos") != nullptr;
    return static_cast<int>(QorOsDlFree(module) != 0 && found);
}

TEST(ModulesTorture, AreNotLoaded) {
    torture::failEach(
        {{"a module", loadsAModule, "dlopen ENOENT 0, dlsym EINVAL 0, dlclose EINVAL 0"}});
}

TEST(ModulesTorture, AreNotTold) {
    char text[QOR_PATH_SIZE];
    uint32_t length = sizeof text;
    torture::failEach(
        {{"the program's path",
          [&] { return static_cast<int>(QorOsGetModulePath(text, sizeof text, nullptr)); },
          "readlink EACCES 0"},
         {"the computer's name",
          [&] { return static_cast<int>(QorOsGetComputerName(text, &(length = sizeof text))); },
          "gethostname EPERM 0"}},
        torture::Cause::inErrno);
}

} // namespace
