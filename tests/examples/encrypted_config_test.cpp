#include <gtest/gtest.h>

#include <string>

#include "temp_directory.h"
#include "tool_run.h"

namespace {

TEST(EncryptedConfig, KeepsValuesAndWholeFiles) {
    const support::TempDirectory directory;
    directory.write("key", std::string(32, 'k'));
    directory.write("other", std::string(31, 'k') + "l");
    directory.write("value", "[db]\nhost=plain\n");
    const struct {
        const char *before, *command;
        int exitCode;
        std::string output; // its begin
    } cases[] = {
        {"echo 's3cret # \"1\"' | ", "set key value db password", 0, ""},
        {"", "get key value db password", 0, "s3cret # \"1\"\n"},
        {"", "get key value db host", 1, "host: missing, in plain, or"},
        {"", "get other value db password", 1, "password: missing, in plain, or"},
        {"sed -i s/=plain/=$(grep -o c.*:.* value)/ value; ", "get key value db host", 1,
         "host: m"},
        {"printf %0225d 0 | ", "set key value db password", 1, "password: does not fit a line"},
        {"echo x | ", "set key /dev/full db password", 1, "/dev/full: can't be written"},
        {"", "get key value db password", 0, "s3cret # \"1\"\n"},
        {"printf s3cret | ", "--whole set key whole db password", 0, ""},
        {"echo ' x' | ", "--whole set key whole db password", 1, "password: does not fit a line"},
        {"echo x | ", "--whole set other whole db password", 1, "whole: can't be read, or is for"},
        {"", "--whole get key whole db password", 0, "s3cret\n"},
        {"", "--whole get key whole", 2, "usage: encrypted_config [--whole] get|set "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        const Outcome outcome =
            runShell("cd " + directory.path() + " && " + c.before + QORMON_TOOL " " + c.command);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        const std::string expected = (c.exitCode == 1 ? "encrypted_config: " : "") + c.output;
        EXPECT_EQ(outcome.output.substr(0, c.exitCode == 0 ? 99 : expected.size()), expected);
    }
    const std::string value = directory.read("value"), whole = directory.read("whole");
    EXPECT_EQ(value.rfind("[db]\nhost=crypt:", 0), 0U);
    EXPECT_EQ(whole.size(), std::string("\n\n[db]\npassword=s3cret\n").size() + 28);
    EXPECT_EQ((value + whole).find("s3cret"), std::string::npos);
}

} // namespace
