// Runs the tool, and looks at its exit code, at what it prints, and at what becomes of files.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "scripted_server.h"
#include "temp_directory.h"
#include "tool_run.h"

namespace {

using namespace support;

TEST(Qormon, AnswersACommandLine) {
    const struct {
        const char* arguments;
        int exitCode;
        const char* output; // a regular expression that matches at the begin
    } cases[] = {
        {"", 2, "usage: qormon COMMAND"},
        {"demo >/dev/full", 1, "qormon: standard output: No space left on device\n$"},
        {"get \"$(printf 'http://h/\\033')\" f", 2, ".*control characters: http://h/\\?\n"},
        {"get http://h/ f --proxy-user u:p", 2, "qormon get: --proxy-user needs --proxy\n"},
        {"get http://h/ f --proxy h:1 --proxy-user secret", 2, ".*needs USER:PASSWORD\n"},
        {"get http://h/ f --proxy h:1 --proxy-user u:$(printf %0198d 0)", 2, ".*more than 198"},
        {"get http://h/ /", 1, "qormon get: / is a directory\n"},
        {"update http://127.0.0.1:$PORT/x", 1, "qormon update: no answer from http://127.0.0.1"},
        {"update a b", 2, "qormon update: one argument too many: b\n"},
        {"update --fast http://h/", 2, "qormon update: unknown option --fast\n"},
        {"update http://h/ --language 2147483648", 2, "qormon update: no language number"},
        {"update http://h/ --proxy h:65536", 2, "qormon update: no HOST:PORT"},
        {"update HTTPS://h/", 2, "qormon update: https can't be spoken, only http: HTTPS://h/\n"},
        {"ip 10.1.2.3/33", 2, "qormon ip: no prefix length for IPv4: 33\n"},
        {"ip ::ffff:1.2.3.4", 0, "[^]*\nkind            IPv4-mapped\nas IPv4         1.2.3.4\n"},
        {"ip 10.1.2.3/31", 0,
         "[^]*\nas number       0x0A010203, 167838211\n[^]*:ffff:0a01:0203\n"
         "block           10.1.2.2/31\nfirst address   10.1.2.2\nlast address    10.1.2.3\n$"},
        {"mif $DIRECTORY/whole", 0,
         "[^]*\n       0           1       4  97, 0.0.0.97\n          61 00 00 00  +a\\.\\.\\.\n"
         "[^]* 7017280452245743464, \"hgfedcba\"\n[^]* end marker, bytes behind it: 1\n$"},
        {"mif $DIRECTORY/cut --json", 1,
         "\\{\"entries\": \\[\\{\"offset\": 0, [^]*\"text\": \"a\\\\\"\\\\\"a\", \"hex\": "
         "\"61222261\"\\}\\], "
         "\"end\": 8, [^]*\"damaged\": true\\}\nqormon mif: [^]*damaged at offset 8 of 9: no whole "
         "entry\n$"},
    };
    const TempDirectory directory;
    directory.write("whole", std::string("\1\0\4\0a\0\0\0\3\0\x8\0hgfedcba\xFF\xFF", 23));
    directory.write("cut", std::string("\1\0\4\0a\"\"a\2", 9));
    setenv("DIRECTORY", directory.path().c_str(), 1);
    setenv("PORT", std::to_string(refusingPort()).c_str(), 1);
    for (const auto& [arguments, exitCode, output] : cases) {
        expectRun(arguments, exitCode, std::string("^") + output);
    }
    for (const char* command : {"config", "demo", "get", "ip", "ipc", "log", "mif", "update"}) {
        expectRun(std::string(command) + " --help", 0, std::string("^usage: qormon ") + command);
    }
}

// With what may harm a terminal or a program: an escape sequence, a control character in UTF-8, a
// byte that is no UTF-8, a change of the writing direction, JSON's own characters.
const std::string offer =
    answer("200 OK", "[Language 2]\nProductName = A\x1B[1m\"\xC2\x9B\\\xFF\xE2\x80\xAE\xC3\xA9z\n"
                     "UrlDownload = http://h/p\n[Language 7]\nUrlDownload = http://h/\x1B[1m\n");
const std::string table = "product         A?[1m\"?\\??\xC3\xA9z\ndownload        http://h/p\n";
const std::string sized = "HTTP/1.0 200 OK\r\nContent-Length: ";
const std::string news = sized + "4\r\n\r\nnews";
const std::string same = answer("304 Same", "");
const std::string missing = answer("404 \x1B[1m", "");

TEST(Qormon, SaysWhatCameOfARequest) {
    const std::string get = "get http://h/x f", update = "update http://h/u ";
    const std::string fetch = update + "--download f ";
    const struct {
        std::string arguments;
        std::vector<std::string> answers;
        std::string output; // then the exit code, and what the file f holds, which was old
    } cases[] = {
        {get + " --proxy-user user:secret", {news}, "downloaded 4 bytes to f\n0\nnews"},
        {get, {same}, "not modified: f is up to date\n0\nold"},
        {"get http://h/x new",
         {same},
         "qormon get: the server calls the file unmodified, but there is no new yet\n1\nold"},
        {get, {missing}, "qormon get: HTTP Error: HTTP/1.0 404 ?[1m\n1\nold"},
        {get,
         {sized + "9\r\n\r\npiece"},
         "qormon get: the transfer broke off\n"
         "qormon get: f stays behind with 5 bytes; remove it, or the next download may take it for "
         "whole\n1\npiece"},
        {update + "--json", {missing}, "qormon update: http://h/u offers nothing\n{}\n1\nold"},
        {fetch, {offer, news}, table + "downloaded 4 bytes to f\n0\nnews"},
        {fetch,
         {offer, missing},
         table + "qormon update: the download of http://h/p failed\n1\nold"},
        {fetch + "--json 2>/dev/null",
         {offer, news},
         "{\"productName\": \"A\\u001b[1m\\\"\\u009b\\\\\\u00ff\\u202e\xC3\xA9z\", "
         "\"urlDownload\": \"http://h/p\"}\n0\nnews"},
        {fetch + "--language 7",
         {offer},
         "download        http://h/?[1m\n"
         "qormon update: a URL has no blanks and control characters: http://h/?[1m\n1\nold"},
    };
    for (const auto& c : cases) {
        const TempDirectory directory;
        directory.write("f", "old");
        std::vector<Script> scripts;
        for (const std::string& each : c.answers) {
            scripts.push_back({readRequest(), sendBytes(each)});
        }
        ScriptedServer proxy(scripts);
        const Outcome outcome =
            runShell("cd " + directory.path() + "; '" QORMON_TOOL "' " + c.arguments +
                     " --proxy 127.0.0.1:" + std::to_string(proxy.port()) + "; echo $?; cat f");
        EXPECT_EQ(outcome.output, c.output);
        EXPECT_EQ(proxy.wait(), "") << c.output;
        EXPECT_EQ(proxy.received(0).find(": Basic dXNlcjpzZWNyZXQ=\r") == std::string::npos,
                  c.arguments.find("secret") == std::string::npos);
    }
}

// The line is drawn over and over.
TEST(QormonGet, DrawsABarOnATerminal) {
    const std::tuple<unsigned short, std::size_t, std::string> cases[] = {
        {120, 195000,
         "\r  0 % \\[-{40}\\]  0 B of 190.4 KiB(\r[^\r]*)*"
         "\r100 % \\[#{40}\\]  190.4 KiB of 190.4 KiB  [0-9.]+ [KM]iB/s *\r\n"},
        {80, 0, "(\r100 % \\[#{31}\\]  0 B of 0 B){2}\r\n"},
        {8, 9, "\r  0 %  (\r[^\r]{7})*\r100 %  \r\n"},
    };
    const TempDirectory directory;
    for (const auto& [columns, size, expected] : cases) {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
        ASSERT_EQ(grantpt(terminal) + unlockpt(terminal), 0);
        const std::string name = ptsname(terminal);
        const int user = open(name.c_str(), O_RDWR | O_NOCTTY);
        const winsize window = {24, columns, 0, 0};
        ioctl(user, TIOCSWINSZ, &window);
        const Script script = {readRequest(), sendBytes(answer("200 OK", std::string(size, 'x')))};
        ScriptedServer server({script});
        runShell("cd " + directory.path() + "; '" QORMON_TOOL "' get " + server.url("/x f") +
                 std::to_string(columns) + " 2>" + name);
        makeNonBlocking(terminal);
        std::string shown;
        for (char c = 0; read(terminal, &c, 1) == 1;) {
            shown += c;
        }
        EXPECT_TRUE(std::regex_match(shown, std::regex(expected))) << shown;
        close(user);
        close(terminal);
    }
}

TEST(QormonDemo, GoesTheWholeRoad) {
    const TempDirectory directory;
    const Outcome outcome = runShell("TMPDIR=" + directory.path() + " '" QORMON_TOOL "' demo");
    EXPECT_EQ(outcome.exitCode, 0);
    const std::regex text(
        "update server   (http:[^]*)/update\\.cfg\nproduct         Example Client\n"
        "[^]*\ndownload        \\1/example-client-3\\.pkg\n[^]*\n"
        "first download\ndownloaded 7340032 bytes to ([^ ]+)\n"
        "second download\nnot modified: \\2 is up to date\n"
        "server's time   (Fri, 01 Mar 2024 12:00:00 GMT)\nfile's time     \\3\n");
    EXPECT_TRUE(outcome.exitCode == 0 && std::regex_match(outcome.output, text)) << outcome.output;
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

} // namespace
