#include <gtest/gtest.h>

#include <string>

#include "temp_directory.h"
#include "tool_run.h"

namespace {

TEST(EncryptedConfig, KeepsValuesAndWholeFiles) {
    const support::TempDirectory directory;
    directory.write("key", std::string(32, 'k'));
    directory.write("other", std::string(31, 'k') + "l");
    directory.write("short", std::string(31, 'k'));
    directory.write("value", "[db]\nhost=plain\n");
    const struct {
        const char* arguments;
        int exitCode;
        std::string output;
    } cases[] = {
        {"key value db password 's3cret # \"1\"'", 0, ""},
        {"key value DB Password", 0, "s3cret # \"1\"\n"},
        {"key value db host", 0, "plain\n"},
        {"key value db none", 1, "encrypted_config: none: missing, or for another key\n"},
        {"other value db password", 1, "encrypted_config: password: missing, or for another key\n"},
        {"short value db password", 1,
         "encrypted_config: short: can't be read, or holds less than 32 bytes\n"},
        {"key value db password $(printf %0225d 0)", 1,
         "encrypted_config: password: does not fit a line\n"},
        {"key value db password $(printf %0485d 0)", 1,
         "encrypted_config: password: can't be enciphered\n"},
        {"key value db password", 0, "s3cret # \"1\"\n"},
        {"--whole key whole db password s3cret", 0, ""},
        {"--whole key whole db password", 0, "s3cret\n"},
        {"--whole key whole db password ' s3cret'", 1,
         "encrypted_config: password: does not fit a line\n"},
        {"--whole other whole db password new", 1,
         "encrypted_config: whole: can't be read, or is for another key\n"},
        {"--whole key value db password new", 1,
         "encrypted_config: value: can't be read, or is for another key\n"},
        {"--whole key none/whole db password new", 1,
         "encrypted_config: none/whole: can't be enciphered or written\n"},
        {"--whole key whole db password", 0, "s3cret\n"},
        {"--whole key whole", 2,
         "usage: encrypted_config [--whole] KEYFILE CONFIG GROUP NAME [VALUE]\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome =
            runShell("cd " + directory.path() + " && " QORMON_TOOL " " + c.arguments);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_EQ(outcome.output, c.output);
    }
    EXPECT_EQ(directory.read("value").find("[db]\nhost=plain\npassword=crypt:"), 0U);
    EXPECT_EQ(directory.read("whole").size(),
              std::string("\n\n[db]\npassword=s3cret\n").size() + 28);
    for (const char* file : {"value", "whole"}) {
        EXPECT_EQ(directory.read(file).find("s3cret"), std::string::npos) << file;
    }
}

} // namespace
