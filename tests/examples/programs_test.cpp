// The programs that the families' pages show, which print what the pages say.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "environment.h"
#include "private_ipc.h"
#include "real_servers.h"
#include "temp_directory.h"
#include "tool_run.h"

namespace {

[[maybe_unused]] const bool privateIpc = support::enterPrivateIpc();

// Time stamps of log lines become equal.
std::string unstamped(const std::string& text) {
    return std::regex_replace(text, std::regex(R"(\d\d-\d\d-\d\d \d\d:\d\d:\d\d,\d{3} - )"), "T ");
}

void expectOutput(const std::string& program, const std::string& arguments = "") {
    SCOPED_TRACE(program);
    const support::TempDirectory directory;
    const std::string path = QORMON_EXAMPLES "/" + program;
    const Outcome outcome = runShell("cd " + directory.path() + " && '" + path + "' " + arguments);
    const Outcome expected = runShell("cat '" + path + ".expected'");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(unstamped(outcome.output), unstamped(expected.output));
}

TEST(FamilyPrograms, PrintWhatTheirPagesSay) {
    for (const char* program : {"messages", "addresses", "os_layer", "utilities", "cryptography"}) {
        expectOutput(program);
    }
}

// The page says what becomes of the file.
TEST(FamilyPrograms, EditAFile) {
    const support::TempDirectory directory;
    std::string text = runShell("cat " QORMON_EXAMPLE_SOURCES "/service.conf").output;
    directory.write("service.conf", text);
    expectOutput("configuration", directory.path("service.conf"));
    EXPECT_EQ(directory.read("service.conf"), filled(text, "8080", "8081"));
}

TEST(FamilyPrograms, AskAServer) {
    support::Nginx nginx;
    nginx.addFile("news.txt", "What is new\n");
    nginx.addFile("client.pkg", std::string(9000, 'x'));
    if (!nginx.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem());
    }
    nginx.addFile("update.cfg",
                  "[Language 2]\nProductName = Example Client\nBuild = 1204\nFilesize = 9000\n"
                  "UrlDownload = " +
                      nginx.url("/client.pkg") + "\n");
    expectOutput("network", nginx.url("/news.txt") + " news.txt");
    expectOutput("network_c", nginx.url("/news.txt") + " news.txt");
    expectOutput("updates", nginx.url("/update.cfg") + " client.pkg");
}

} // namespace
