#include <dlfcn.h>
#include <fcntl.h>

#include "own_log.h"

namespace {

std::string programLink; // empty to ask the system

} // namespace

// The library's objects are linked into this program, so that this stands in for the system's.
extern "C" ssize_t readlink(const char* path, char* buffer, size_t size) {
    return programLink.empty() ? readlinkat(AT_FDCWD, path, buffer, size)
                               : static_cast<ssize_t>(programLink.copy(buffer, size));
}

namespace {

TEST(QorOsModule, LoadsLibrariesAndFindsSymbols) {
    char path[4096];
    const char* error = "unchanged";
    ASSERT_EQ(QorOsGetModulePath(path, sizeof path, nullptr), 1u); // where the library is
    void* const handle = QorOsDlLoadEx(strcat(path, "/module_fixture.so"), &error);
    const void* const answer = QorOsDlGetAddrEx(handle, "qorFixtureAnswer", &error);
    ASSERT_STREQ(error, "unchanged");
    EXPECT_EQ(*static_cast<const int*>(answer), 42);
    EXPECT_EQ(QorOsDlGetAddr(handle, "none"), nullptr);
    EXPECT_EQ(QorOsDlLoadEx("", &error), nullptr); // the loader still knows of the call before
    EXPECT_NE(std::string(error).find("none"), std::string::npos) << error;
    EXPECT_EQ(QorOsDlFree(handle) + QorOsDlFree(nullptr), 2u);
    EXPECT_EQ(dlopen(path, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "still loaded";
}

#if defined(__linux__)
TEST(QorOsModule, TakesTheLinkApart) {
    const std::string longest = "/" + std::string(4095, 'x');
    const std::tuple<std::string, uint32_t, const char*> cases[] = {
        {"/opt/my/programs", 17, "0 0 /opt/my prog"},
        {"/opt/my/prog", 12, "36 36 # #"},
        {"/prog", 6, "0 0  prog"},
        {longest, 9999, "36 36 # #"},
        {"prog", 5, "22 22 # #"}};
    for (const auto& [link, size, expected] : cases) {
        char path[4096] = "#";
        char name[5] = "#";
        uint32_t error = EIO;
        programLink = link;
        QorOsGetModuleFileName(path, size, name, 5, &error);
        EXPECT_EQ(text("%d %u %s %s", errno, error, path, name), expected) << link;
    }
    programLink.clear();
}
#endif

} // namespace
