// Runs the tool, and looks at its exit code and at what it prints.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <tuple>
#include <utility>

#include "hex.h"
#include "loopback.h"
#include "scripted_server.h"
#include "temp_directory.h"
#include "tool_run.h"

namespace {

// What a server may send to harm a terminal or a program: an escape sequence, a
// control character in UTF-8, a byte that is no UTF-8, a change of the writing
// direction, JSON's own characters.
const char description[] = "[Language 2]\n"
                           "ProductName = A\x1B[1m\"\xC2\x9B\\\xFF\xE2\x80\xAE\xC3\xA9z\n"
                           "Version = 3\n"
                           "[Language 7]\n"
                           "ProductName = Seven\n";

TEST(Qormon, AnswersACommandLine) {
    // The output is a regular expression that matches somewhere.
    const std::tuple<const char*, int, const char*> cases[] = {
        {"", 2, "^usage: qormon COMMAND"},
        {"--help", 0, "^usage: qormon COMMAND"},
        {"frobnicate", 2, "^qormon: unknown command frobnicate\n"},
        {"demo --help", 0, "^usage: qormon demo\n"},
        {"demo now", 2, "^usage: qormon demo\n"},
        {"demo >/dev/full", 1, "^qormon: standard output: No space left on device\n$"},
        {"get --help", 0, "^usage: qormon get URL FILE"},
        {"get http://h/", 2, "^qormon get: an argument is missing\n"},
        {"get https://h/ f", 2, "^qormon get: https can't be spoken, only http: https://h/\n"},
        {"get ftp://h/ f", 2, "^qormon get: no port from 1 to 65535 in ftp://h/\n"},
        {"get http://h:65536/ f", 2, "^qormon get: no port from 1 to 65535 in"},
        {"get http:///x f", 2, "^qormon get: no URL: http:///x\n"},
        {"get 'http://h/ x' f", 2, "^qormon get: a URL has no blanks and control characters: "},
        {"get \"$(printf 'http://h/\\033')\" f", 2, "control characters: http://h/\\?\n"},
        {"get http://h/ f --proxy h", 2, "^qormon get: no HOST:PORT: h\n"},
        {"get http://h/ f --proxy-user u:p", 2, "^qormon get: --proxy-user needs --proxy\n"},
        {"get http://h/ f --proxy h:1 --proxy-user secret", 2,
         "^qormon get: --proxy-user needs USER:PASSWORD\n"},
        {"get http://h/ f --proxy h:1 --proxy-user u:$(printf %0198d 0)", 2,
         "^qormon get: USER and PASSWORD have more than 198 characters\n"},
        {"ip --help", 0, "^usage: qormon ip ADDRESS"},
        {"ip 10.1.2", 2, "^qormon ip: no address: 10.1.2\n"},
        {"ip 10.1.2.3/33", 2, "^qormon ip: no prefix length for IPv4: 33\n"},
        {"ip 10.0.0.0-", 2, "^qormon ip: no range of addresses: 10.0.0.0-\n"},
        {"ip 10.0.0-10.0.0.1", 2, "^qormon ip: no range of addresses: 10.0.0-10.0.0.1\n"},
        {"ip 1.2.3.4-::", 1, "^qormon ip: 1.2.3.4-:: is no block\n$"},
        {"ip 127.0.0.1", 0, "\nkind            local host\n"},
        {"ip ::ffff:1.2.3.4", 0, "\nkind            IPv4-mapped\nas IPv4         1.2.3.4\n"},
        {"ip ::/128", 0, "\nfamily          IPv6\nkind            any host\nas IPv6  "},
        {"ip 9::-9::7", 0, "^family          IPv6\nblock           9::/125\nfirst address   9::\n"},
        {"ip 10.1.2.3/31", 0,
         "^address         10.1.2.3\nfamily          IPv4\nkind            other\n[^]*"
         "as number       0x0A010203, 167838211\n[^]*\nin full [^]*:ffff:0a01:0203\n"
         "block           10.1.2.2/31\nfirst address   10.1.2.2\nlast address    10.1.2.3\n$"},
        {"mif --help", 0, "^usage: qormon mif FILE"},
        {"mif", 2, "^qormon mif: an argument is missing\nusage: "},
        {"mif /", 1, "^qormon mif: /: Is a directory\n$"},
        {"mif /missing", 1, "^qormon mif: /missing: No such file or directory\n$"},
        {"update --help", 0, "^usage: qormon update URL"},
        {"update", 2, "^qormon update: an argument is missing\n"},
        {"update a b", 2, "^qormon update: one argument too many: b\n"},
        {"update --fast http://h/", 2, "^qormon update: unknown option --fast\n"},
        {"update http://h/ --language", 2, "^qormon update: --language needs N\n"},
        {"update http://h/ --language -1", 2, "^qormon update: no language number: -1\n"},
        {"update http://h/ --language 2147483648", 2, "^qormon update: no language number"},
        {"update http://h/ --proxy host", 2, "^qormon update: no HOST:PORT: host\n"},
        {"update http://h/ --proxy host:65536", 2, "^qormon update: no HOST:PORT"},
        {"update http://h/ --proxy :80", 2, "^qormon update: no HOST:PORT"},
        {"update -- --odd", 2, "^qormon update: no URL: --odd\n"},
        {"update HTTPS://h/", 2, "^qormon update: https can't be spoken, only http: HTTPS://h/\n"},
    };
    for (const auto& [arguments, exitCode, output] : cases) {
        SCOPED_TRACE(arguments);
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_TRUE(std::regex_search(outcome.output, std::regex(output))) << outcome.output;
    }
}

TEST(Qormon, ShowsWhatAServerOffers) {
    const std::string answered = answer("200 OK", description);
    const std::tuple<const char*, std::string, int, const char*> cases[] = {
        {"", answered, 0, "product         A?[1m\"?\\??\xC3\xA9z\nversion         3\n"},
        {"--json", answered, 0,
         "{\"productName\": \"A\\u001b[1m\\\"\\u009b\\\\\\u00ff\\u202e\xC3\xA9z\", "
         "\"version\": 3}\n"},
        {"--language 7", answered, 0, "product         Seven\n"},
        {"--json", answer("404 No", description), 1, "qormon update: URL offers nothing\n{}\n"},
    };
    for (const auto& [options, response, exitCode, output] : cases) {
        SCOPED_TRACE(options);
        support::ScriptedServer server({{support::readRequest(), support::sendBytes(response)}});
        const std::string url = server.url("/u.cfg");
        const Outcome outcome = run("update " + url + " " + options);
        EXPECT_EQ(outcome.output, filled(output, "URL", url));
        EXPECT_EQ(outcome.exitCode, exitCode);
    }
}

TEST(Qormon, ShowsAMessage) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"010004006100000002000200686903000800610062636465666704000200411bffff00", "", 0,
         "  offset  identifier  length  value\n"
         "       0           1       4  97, 0.0.0.97\n"
         "          61 00 00 00                                      a...\n"
         "       8           2       2  \"hi\"\n"
         "          68 69                                            hi\n"
         "      14           3       8  7450754115369566305\n"
         "          61 00 62 63 64 65 66 67                          a.bcdefg\n"
         "      26           4       2\n"
         "          41 1b                                            A.\n"
         "      32  end marker, bytes behind it: 1\n"},
        {"010004006122226102000200ff", "--json", 1,
         "{\"entries\": [{\"offset\": 0, \"identifier\": 1, \"length\": 4, \"number\": 1629626977, "
         "\"address\": \"97.34.34.97\", \"text\": \"a\\\"\\\"a\", \"hex\": \"61222261\"}], "
         "\"end\": 8, "
         "\"size\": 13, \"endMarker\": false, \"damaged\": true}\n"
         "qormon mif: FILE: damaged at offset 8 of 13: no whole entry\n"},
    };
    const support::TempDirectory directory;
    for (const auto& [message, option, exitCode, output] : cases) {
        const Bytes bytes = unhex(message);
        directory.write("message", std::string(bytes.begin(), bytes.end()));
        const Outcome outcome = run("mif " + directory.path("message") + " " + option);
        EXPECT_EQ(outcome.output, filled(output, "FILE", directory.path("message")));
        EXPECT_EQ(outcome.exitCode, exitCode);
    }
}

TEST(Qormon, SaysThatNobodyAnswers) {
    const std::string place = "127.0.0.1:" + std::to_string(support::refusingPort());
    const std::pair<const char*, const char*> cases[] = {
        {"update http://PLACE/x", "qormon update: no answer from http://PLACE/x\n"},
        {"get http://PLACE/x none", "qormon get: Connect to 127.0.0.1 failed\n"},
        {"get http://h/ none --proxy PLACE --proxy-user u:$(printf %0197d 0)",
         "qormon get: Connect to h failed\n"},
    };
    for (const auto& [arguments, output] : cases) {
        const Outcome outcome = run(filled(arguments, "PLACE", place));
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.output, filled(output, "PLACE", place));
    }
}

} // namespace
