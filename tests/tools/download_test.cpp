// The tool's downloads: what it says of them, and the bar that it draws on a
// terminal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

#include "scripted_server.h"
#include "temp_directory.h"
#include "tool_run.h"

namespace {

using namespace support;

const std::string pieceWarning = "; remove it, or the next download may take it for whole\n";

TEST(QormonGet, SaysWhatCameOfADownload) {
    const std::string sized = "HTTP/1.0 200 OK\r\nContent-Length: ",
                      news = answer("200 OK", "news");
    // The answer, what the file holds before, and what afterwards.
    const std::tuple<std::string, std::string, int, std::string, std::string> cases[] = {
        {news, "", 0, "downloaded 4 bytes to FILE\n", "news"},
        {answer("304 Same", ""), "old", 0, "not modified: FILE is up to date\n", "old"},
        {answer("304 Same", ""), "", 1,
         "qormon get: the server calls the file unmodified, but there is no FILE yet\n", ""},
        {answer("404 \x1B[1m", ""), "old", 1, "qormon get: HTTP Error: HTTP/1.0 404 ?[1m\n", "old"},
        {sized + "9\r\n\r\npiece", "old", 1,
         "qormon get: the transfer broke off\nqormon get: FILE stays behind with 5 bytes" +
             pieceWarning,
         "piece"},
        {sized + "4\r\nDate: now\r\n\r\nnews", "", 1, "qormon get: Set file time failed\n", "news"},
        {sized + std::string(5000, 'x'), "old", 1,
         "qormon get: no file came: the server's headers have no end, or the URL "
         "is too long for a request\n",
         "old"},
    };
    for (const auto& [response, before, exitCode, output, after] : cases) {
        SCOPED_TRACE(output);
        const TempDirectory directory;
        const std::string file = directory.path("f");
        if (!before.empty()) {
            directory.write("f", before);
        }
        ScriptedServer server({{readRequest(), sendBytes(response)}});
        const Outcome outcome = run("get " + server.url("/x ") + file);
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_EQ(outcome.output, filled(output, "FILE", file));
        EXPECT_EQ(directory.read("f"), after);
    }
    EXPECT_EQ(run("get http://127.0.0.1/x /").output, "qormon get: / is a directory\n");
}

TEST(QormonGet, BringsItsCredentialsToTheProxy) {
    const TempDirectory directory;
    ScriptedServer proxy({{readRequest(), sendBytes(answer("200 OK", "news"))}});
    EXPECT_EQ(run("get http://far.example/x " + directory.path("f") + " --proxy 127.0.0.1:" +
                  std::to_string(proxy.port()) + " --proxy-user user:secret")
                  .exitCode,
              0);
    const std::string request = proxy.received(0);
    EXPECT_EQ(request.find("GET http://far.example:80/x HTTP/1.0\r\n"), 0u);
    EXPECT_NE(request.find("\r\nProxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"), request.npos);
}

TEST(QormonGet, EndsAtCtrlC) {
    const TempDirectory directory;
    const std::string file = directory.path("f");
    const Step interrupt = [&](ScriptedServer&) {
        // The file is written to only when the tool has made its preparations.
        return waitUntil([&] { return !directory.read("f").empty(); }) &&
               kill(std::atoi(directory.read("pid").c_str()), SIGINT) == 0;
    };
    ScriptedServer server(
        {{readRequest(),
          sendBytes("HTTP/1.0 200 OK\r\nContent-Length: 99999\r\n\r\n" + std::string(20000, 'x')),
          interrupt, readToEnd()}});
    std::signal(SIGINT, SIG_DFL); // it is inherited, and may be ignored here
    const Outcome outcome =
        runShell("sh -c 'echo $$ >" + directory.path("pid") +
                 "; exec \"$@\"' sh '" QORMON_TOOL "' get " + server.url("/x ") + file);
    EXPECT_EQ(outcome.exitCode, 1);
    const std::regex text("qormon get: interrupted\nqormon get: " + file +
                          " stays behind with [1-9][0-9]* bytes" + pieceWarning);
    EXPECT_TRUE(std::regex_match(outcome.output, text)) << outcome.output;
    EXPECT_EQ(server.wait(), "");
}

// A terminal of which nobody reads while a program runs: it holds a few kilobytes.
class Terminal {
public:
    explicit Terminal(unsigned short columns) {
        const winsize size = {24, columns, 0, 0};
        if (grantpt(master_) == 0 && unlockpt(master_) == 0) {
            name = ptsname(master_);
        }
        slave_ = open(name.c_str(), O_RDWR | O_NOCTTY);
        ioctl(slave_, TIOCSWINSZ, &size);
        makeNonBlocking(master_);
    }
    ~Terminal() {
        close(slave_);
        close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // All that was shown so far.
    const std::string& shown() {
        char piece[1024];
        for (ssize_t n = 0; (n = read(master_, piece, sizeof piece)) > 0;) {
            shown_.append(piece, static_cast<std::size_t>(n));
        }
        return shown_;
    }

    std::string name;

private:
    const int master_ = posix_openpt(O_RDWR | O_NOCTTY);
    int slave_ = -1;
    std::string shown_;
};

TEST(QormonGet, DrawsABarOnATerminal) {
    const std::string length = "Content-Length: 200000\r\n", body(200000, 'x');
    // Columns of 0 are unknown, and taken from the environment. The line is drawn over and over.
    const std::tuple<unsigned short, std::string, std::string, std::size_t, const char*> cases[] = {
        {120, length, body, 119,
         "\r  0 % \\[-{40}\\]  0 B of 195.3 KiB(\r [ 1-9][0-9] % \\[#*-+\\]  [^\r]*/s *)+"
         "\r100 % \\[#{40}\\]  195.3 KiB of 195.3 KiB  [0-9.]+ [KM]iB/s *\r\n"},
        {0, length, body, 49,
         "\r  0 %  0 B of[^\r]*(\r [ 1-9][0-9] % [^\r]*)+\r100 %  195.3 KiB of [^\r]*\r\n"},
        {8, length, body, 7, "\r  0 %  (\r [ 1-9][0-9] %  )+\r100 %  \r\n"},
        {80, "Content-Length: 0\r\n", "", 79, "(\r100 % \\[#{31}\\]  0 B of 0 B){2}\r\n"},
        {60, "", body, 59, "\r  0 B(\r  [1-9][^%\r]*)+\r  195.3 KiB  [0-9.]+ [KM]iB/s *\r\n"},
    };
    const TempDirectory directory;
    for (const auto& [columns, head, content, widest, expected] : cases) {
        SCOPED_TRACE(columns);
        Terminal terminal(columns);
        const Step awaitBar = [&](ScriptedServer&) {
            return waitUntil([&] { return !terminal.shown().empty(); });
        };
        ScriptedServer server(
            {{readRequest(), sendBytes("HTTP/1.0 200 OK\r\n" + head + "\r\n"), awaitBar,
              pauseFor(std::chrono::milliseconds(150)), sendBytes(content)}});
        runShell("COLUMNS=50 '" QORMON_TOOL "' get " + server.url("/x ") + directory.path("f") +
                 std::to_string(columns) + " 2>" + terminal.name);
        EXPECT_EQ(server.wait(), "");
        const std::string& shown = terminal.shown();
        EXPECT_TRUE(std::regex_match(shown, std::regex(expected))) << shown;
        std::stringstream lines(shown);
        for (std::string line; std::getline(lines, line, '\r');) {
            EXPECT_LE(line.size(), widest);
        }
    }
}

TEST(QormonUpdate, FetchesWhatIsOffered) {
    const std::string line = "download        http://far.example/p.pkg\n";
    const std::string offer = "UrlDownload = http://far.example/p.pkg",
                      news = answer("200 OK", "news");
    const std::tuple<const char*, std::string, std::string, std::string, int, std::string> cases[] =
        {
            {"", offer, news, "", 0, line + "downloaded 4 bytes to FILE\n"},
            {"", offer, answer("304 Same", ""), "old", 0,
             line + "not modified: FILE is up to date\n"},
            {"", offer, answer("404 No", ""), "", 1,
             line + "qormon update: the download of http://far.example/p.pkg failed\n"},
            {"--json 2>/dev/null", offer, news, "", 0,
             "{\"urlDownload\": \"http://far.example/p.pkg\"}\n"},
            {"", "UrlDownload = https://h/p", "", "", 1,
             "download        https://h/p\n"
             "qormon update: https can't be spoken, only http: https://h/p\n"},
            {"", "UrlDownload = http://h/\x1B[1m", "", "", 1,
             "download        http://h/?[1m\n"
             "qormon update: a URL has no blanks and control characters: http://h/?[1m\n"},
            {"", "Version = 3", "", "", 1,
             "version         3\nqormon update: http://u.example/u offers no download\n"},
        };
    for (const auto& [options, offered, response, before, exitCode, output] : cases) {
        SCOPED_TRACE(output);
        const TempDirectory directory;
        const std::string file = directory.path("f");
        if (!before.empty()) {
            directory.write("f", before);
        }
        ScriptedServer proxy(
            {{readRequest(), sendBytes(answer("200 OK", "[Language 2]\n" + offered + "\n"))},
             {readRequest(), sendBytes(response)}});
        const Outcome outcome =
            run("update http://u.example/u --proxy 127.0.0.1:" + std::to_string(proxy.port()) +
                " --download " + file + " " + options);
        EXPECT_EQ(outcome.exitCode, exitCode);
        EXPECT_EQ(outcome.output, filled(output, "FILE", file));
        EXPECT_EQ(proxy.received(0).find("GET http://u.example/u HTTP/1.0\r"), 0u);
        EXPECT_EQ(proxy.received(1).find("GET http://far.example:80/p.pkg HTTP/1.0\r") == 0,
                  !response.empty());
    }
}

TEST(QormonDemo, GoesTheWholeRoad) {
    const TempDirectory directory;
    const Outcome outcome = runShell("TMPDIR=" + directory.path() + " '" QORMON_TOOL "' demo");
    EXPECT_EQ(outcome.exitCode, 0);
    const std::regex text("update server   (http://127\\.0\\.0\\.1:[0-9]+)/update\\.cfg\n"
                          "product         Example Client\n[^]*\nfile size       7340032\n"
                          "download        \\1/example-client-3\\.pkg\n[^]*\n"
                          "first download\ndownloaded 7340032 bytes to ([^ ]+)\n"
                          "second download\nnot modified: \\2 is up to date\n"
                          "server's time   (Fri, 01 Mar 2024 12:00:00 GMT)\nfile's time     \\3\n");
    EXPECT_TRUE(std::regex_match(outcome.output, text)) << outcome.output;
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

} // namespace
