#include <dlfcn.h>
#include <fcntl.h>

#include <filesystem>

#include "own_log.h"

namespace fs = std::filesystem;

namespace {

int hostError = 0;
std::string programLink; // empty to ask the system

} // namespace

// The library's objects are linked into this program, so that these stand in for the system's.
extern "C" int gethostname(char* buffer, size_t size) {
    std::string("host.example.com\0", 17).copy(buffer, size);
    errno = hostError;
    return hostError == 0 ? 0 : -1;
}

extern "C" ssize_t readlink(const char* path, char* buffer, size_t size) {
    if (programLink.empty() || path != text("/proc/%u/exe", dProcessId())) {
        return readlinkat(AT_FDCWD, path, buffer, size);
    }
    errno = ENOENT;
    return programLink == "none" ? -1 : static_cast<ssize_t>(programLink.copy(buffer, size));
}

namespace {

fs::path program() {
    return fs::canonical(testing::internal::GetArgvs()[0]);
}

TEST(QorOsModule, LoadsLibrariesAndFindsSymbols) {
    const std::string library = program().parent_path() / "module_fixture.so";
    const char* error = "unchanged";
    void* const handle = QorOsDlLoadEx(library.c_str(), &error);
    void* const answer = QorOsDlGetAddrEx(handle, "qorFixtureAnswer", &error);
    ASSERT_NE(answer, nullptr) << error;
    EXPECT_STREQ(error, "unchanged");
    EXPECT_EQ(reinterpret_cast<int (*)()>(answer)(), 42);
    EXPECT_EQ(QorOsDlGetAddrEx(handle, "none", &error), nullptr);
    EXPECT_NE(std::string(error).find("none"), std::string::npos) << error;
    EXPECT_TRUE(QorOsDlGetAddr(handle, "") == nullptr && !QorOsDlGetAddr(handle, nullptr));
    EXPECT_EQ(QorOsDlGetAddrEx(nullptr, "malloc", &error), nullptr);
    EXPECT_EQ(error, nullptr) << "the loader was asked";
    EXPECT_EQ(QorOsDlFree(handle), 1u);
    EXPECT_EQ(dlopen(library.c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr) << "still loaded";
    EXPECT_EQ(QorOsDlFree(nullptr), 1u);

    EXPECT_EQ(QorOsDlLoad("./none.so"), nullptr);
    EXPECT_EQ(QorOsDlLoadEx(nullptr, nullptr), nullptr);
    EXPECT_EQ(QorOsDlLoadEx("", &error), nullptr); // the loader still knows of the call before
    EXPECT_NE(std::string(error).find("none.so"), std::string::npos) << error;
}

TEST(QorOsModule, GivesTheShortNameOfTheMachine) {
    // The buffer is expected up to its end, "#" where it was not written.
    const auto check = [](uint32_t size, int error, const std::string& expected) {
        char buffer[32] = "##################";
        buffer[size + 1] = '\0';
        uint32_t told = size;
        hostError = error;
        EXPECT_EQ(QorOsGetComputerName(buffer, &told), error == 0) << size << " " << error;
        EXPECT_EQ(std::string(buffer, expected.size() + 1), expected + '\0');
        EXPECT_EQ(told, error == 0 ? strlen(expected.c_str()) : size) << expected;
        EXPECT_EQ(QorOsGetComputerName(nullptr, &told) + QorOsGetComputerName(buffer, nullptr), 0u);
    };
    check(18, 0, std::string("host\0example.com\0#", 18));
    check(17, 0, "host");
    check(4, 0, "hos");
    check(8, ENAMETOOLONG, "host.ex");
    check(8, EINVAL, "host.ex");
    check(8, EPERM, "host.exa#");
    check(0, EINVAL, "#");
}

TEST(QorOsModule, FindsTheRunningProgram) {
    char path[4096] = "";
    char name[256] = "";
    EXPECT_EQ(QorOsGetModuleFileName(path, sizeof path, name, sizeof name, nullptr), 1u);
    EXPECT_EQ(fs::path(path) / name, program());
    EXPECT_EQ(QorOsGetModulePath(path, sizeof path, nullptr), 1u);
    EXPECT_EQ(path, program().parent_path());
    EXPECT_EQ(QorOsGetModulePath(nullptr, 1, nullptr), 0u);
}

#if defined(__linux__)
TEST(QorOsModule, TakesTheLinkApart) {
    // What is not written stays "#".
    const auto check = [](const std::string& link, uint32_t pathSize, const char* expectedPath,
                          const char* expectedName, int expectedError) {
        char path[16] = "#";
        char name[8] = "#";
        uint32_t error = 1;
        programLink = link;
        errno = EIO;
        EXPECT_EQ(QorOsGetModuleFileName(path, pathSize, name, 5, &error), expectedError == 0);
        EXPECT_EQ(errno, expectedError) << link;
        EXPECT_EQ(error, static_cast<uint32_t>(expectedError));
        EXPECT_STREQ(path, expectedPath);
        EXPECT_STREQ(name, expectedName);
    };
    check("/opt/my/prog", 13, "/opt/my", "prog", 0);
    check("/opt/my/programs", 17, "/opt/my", "prog", 0);
    check("/opt/my/prog", 12, "#", "#", ENAMETOOLONG);
    check("/prog", 6, "", "prog", 0);
    check("prog", 5, "#", "#", EINVAL);
    check("none", 5, "#", "#", ENOENT);
    check("/" + std::string(4094, 'x'), 4096, "", "xxxx", 0);
    check("/" + std::string(4095, 'x'), 9999, "#", "#", ENAMETOOLONG);
    programLink.clear();
}
#endif

} // namespace
