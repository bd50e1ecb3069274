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
    const std::string missing = "missing, in plain, or for another key or place\n";
    const struct {
        const char *line, *command; // PROGRAM stands for the example
        int exitCode;
        std::string output; // behind the program's name, if that is no value
    } cases[] = {
        {"printf '%s\\n' 's3cret # \"1\"'", "set key value db password", 0, ""},
        {":", "get key value db password", 0, "s3cret # \"1\"\n"},
        {":", "get key value db host", 1, "host: " + missing},
        {":", "get other value db password", 1, "password: " + missing},
        {"sed -i s/host=.*/host=$(grep -o crypt:.* value)/ value", "get key value db host", 1,
         "host: " + missing},
        {":", "get short value db password", 1,
         "short: can't be read, or holds less than 32 bytes\n"},
        {"printf %0225d 0", "set key value db password", 1, "password: does not fit a line\n"},
        {"printf %0512d 0", "set key value db password", 1,
         "standard input: no line, or too long\n"},
        {"printf x", "set key /dev/full db password", 1, "/dev/full: can't be written\n"},
        {"printf x", "set key $(printf %01024d 0) db password", 1,
         std::string(1023, '0') + "0: can't be written\n"},
        {":", "get key value db password", 0, "s3cret # \"1\"\n"},
        {"printf s3cret", "--whole set key whole db password", 0, ""},
        {"printf ' x'", "--whole set key whole db password", 1, "password: does not fit a line\n"},
        {"printf x", "--whole set other whole db password", 1,
         "whole: can't be read, or is for another key\n"},
        {"printf x", "--whole set key none/whole db password", 1, "none/whole: can't be written\n"},
        {":", "--whole get key whole db password", 0, "s3cret\n"},
        {":", "--whole get key whole", 2,
         "usage: encrypted_config [--whole] get|set KEYFILE CONFIG GROUP NAME\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        const Outcome outcome = runShell("cd " + directory.path() + " && " + c.line +
                                         " | " QORMON_TOOL " " + c.command);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_EQ(outcome.output, (c.exitCode == 1 ? "encrypted_config: " : "") + c.output);
    }
    const std::string lines = "[db]\nhost=crypt:";
    EXPECT_EQ(directory.read("value").substr(0, lines.size()), lines);
    EXPECT_EQ(directory.read("whole").size(),
              std::string("\n\n[db]\npassword=s3cret\n").size() + 28);
    EXPECT_EQ((directory.read("value") + directory.read("whole")).find("s3cret"),
              std::string::npos);
}

} // namespace
