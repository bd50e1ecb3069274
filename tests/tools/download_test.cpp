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

#include "environment.h"
#include "real_servers.h"
#include "scripted_server.h"
#include "tool_run.h"

namespace {

using namespace support;

const char pieceWarning[] = "; remove it, or the next download may take it for whole\n";

TEST(QormonGet, SaysWhatCameOfADownload) {
    struct Case {
        const char* name;
        std::string answer;
        const char* file; // FILE is one in the test's own directory
        const char* before;
        int exitCode;
        std::string output;
        const char* after;
    };
    const Case cases[] = {
        {"whole", answer("200 OK", "news"), "FILE", "", 0, "downloaded 4 bytes to FILE\n", "news"},
        {"not modified", answer("304 Same", ""), "FILE", "old", 0,
         "not modified: FILE is up to date\n", "old"},
        {"of nothing", answer("304 Same", ""), "FILE", "", 1,
         "qormon get: the server calls the file unmodified, but there is no FILE "
         "yet\n",
         ""},
        {"404", answer("404 \x1B[1m", ""), "FILE", "old", 1,
         "qormon get: HTTP Error: HTTP/1.0 404 ?[1m\n", "old"},
        {"broken off", "HTTP/1.0 200 OK\r\nContent-Length: 9\r\n\r\npiece", "FILE", "old", 1,
         std::string("qormon get: the transfer broke off\n"
                     "qormon get: FILE stays behind with 5 bytes") +
             pieceWarning,
         "piece"},
        {"no date", "HTTP/1.0 200 OK\r\nDate: now\r\nContent-Length: 4\r\n\r\nnews", "FILE", "", 1,
         "qormon get: Set file time failed\n", "news"},
        {"endless headers", "HTTP/1.0 200 OK\r\n" + std::string(5000, 'x'), "FILE", "old", 1,
         "qormon get: no file came: the server's headers have no end, or the URL "
         "is too long for a "
         "request\n",
         "old"},
        {"full disk", answer("200 OK", "news"), "/dev/full", "", 1,
         "qormon get: Can't write destination file\n", ""},
        {"no such directory", answer("200 OK", "news"), "FILE/x", "", 1,
         "qormon get: Can't open destination file\n", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const TempDirectory directory;
        const std::string file = directory.path("f");
        if (*c.before != '\0') {
            directory.write("f", c.before);
        }
        ScriptedServer server({{readRequest(), sendBytes(c.answer)}});
        const Outcome outcome = run("get " + server.url("/x ") + filled(c.file, "FILE", file));
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_EQ(outcome.output, filled(c.output, "FILE", file));
        EXPECT_EQ(directory.read("f"), c.after);
    }
    EXPECT_EQ(run("get http://127.0.0.1/x /").output, "qormon get: / is a directory\n");
}

TEST(QormonGet, GoesThroughAProxyThatWantsCredentials) {
    Nginx nginx;
    nginx.addFile("f.bin", std::string(300000, 'x'), 784111777);
    Tinyproxy proxy;
    proxy.requireCredentials("user", "secret");
    if (!nginx.start() || !proxy.start()) {
        QOR_SKIP_OR_FAIL(nginx.problem() + proxy.problem());
    }
    const TempDirectory directory;
    const std::string file = directory.path("f");
    const std::string arguments = "get " + nginx.url("/f.bin") + " " + file +
                                  " --proxy 127.0.0.1:" + std::to_string(proxy.port());
    EXPECT_EQ(run(arguments + " --proxy-user user:wrong").exitCode, 1);
    EXPECT_EQ(run(arguments + " --proxy-user user:secret").output,
              "downloaded 300000 bytes to " + file + "\n");
    EXPECT_EQ(modificationTime(file), 784111777);
    EXPECT_EQ(run(arguments + " --proxy-user user:secret").output,
              "not modified: " + file + " is up to date\n");
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
    std::signal(SIGINT,
                SIG_DFL); // a background process may have been started with it ignored
    const Outcome outcome =
        runShell("sh -c 'echo $$ >" + directory.path("pid") +
                 "; exec \"$@\"' sh '" QORMON_TOOL "' get " + server.url("/x ") + file);
    EXPECT_EQ(outcome.exitCode, 1);
    const std::regex text("qormon get: interrupted\nqormon get: " + file +
                          " stays behind with [1-9][0-9]* bytes" + pieceWarning);
    EXPECT_TRUE(std::regex_match(outcome.output, text)) << outcome.output;
    EXPECT_EQ(server.wait(), "");
}

// A terminal of which nobody reads while a program runs: it holds a few
// kilobytes.
class Terminal {
public:
    explicit Terminal(unsigned short columns) : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
        if (grantpt(master_) == 0 && unlockpt(master_) == 0) {
            name_ = ptsname(master_);
        }
        slave_ = open(name_.c_str(), O_RDWR | O_NOCTTY);
        const winsize size = {24, columns, 0, 0};
        ioctl(slave_, TIOCSWINSZ, &size);
        makeNonBlocking(master_);
    }
    ~Terminal() {
        close(slave_);
        close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    const std::string& name() const {
        return name_;
    }
    // All that was shown so far.
    const std::string& shown() {
        char piece[1024];
        for (ssize_t n = 0; (n = read(master_, piece, sizeof piece)) > 0;) {
            shown_.append(piece, static_cast<std::size_t>(n));
        }
        return shown_;
    }

private:
    int master_;
    int slave_ = -1;
    std::string name_;
    std::string shown_;
};

TEST(QormonGet, DrawsABarOnATerminal) {
    struct Case {
        const char* name;
        unsigned short columns; // 0: unknown
        const char* length;
        std::size_t size; // of the body
        std::size_t widest;
        const char* lines; // a regular expression: the line, drawn over and over
    };
    const Case cases[] = {
        {"wide", 120, "Content-Length: 200000\r\n", 200000, 119,
         "\r  0 % \\[-{40}\\]  0 B of 195.3 KiB(\r [ 1-9][0-9] % \\[#*-+\\]  "
         "[^\r]*/s *)+"
         "\r100 % \\[#{40}\\]  195.3 KiB of 195.3 KiB  [0-9.]+ [KM]iB/s *\r\n"},
        {"environment", 0, "Content-Length: 200000\r\n", 200000, 49,
         "\r  0 %  0 B of[^\r]*(\r [ 1-9][0-9] % [^\r]*)+\r100 %  195.3 KiB of "
         "[^\r]*\r\n"},
        {"narrow", 8, "Content-Length: 200000\r\n", 200000, 7,
         "\r  0 %  (\r [ 1-9][0-9] %  )+\r100 %  \r\n"},
        {"nothing to come", 80, "Content-Length: 0\r\n", 0, 79,
         "(\r100 % \\[#{31}\\]  0 B of 0 B){2}\r\n"},
        {"unknown length", 60, "", 200000, 59,
         "\r  0 B(\r  [1-9][^%\r]*)+\r  195.3 KiB  [0-9.]+ [KM]iB/s *\r\n"},
    };
    const TempDirectory directory;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Terminal terminal(c.columns);
        const Step awaitBar = [&](ScriptedServer&) {
            return waitUntil([&] { return !terminal.shown().empty(); });
        };
        ScriptedServer server(
            {{readRequest(), sendBytes(std::string("HTTP/1.0 200 OK\r\n") + c.length + "\r\n"),
              awaitBar, pauseFor(std::chrono::milliseconds(150)),
              sendBytes(std::string(c.size, 'x'))}});
        runShell("COLUMNS=50 '" QORMON_TOOL "' get " + server.url("/x ") + directory.path("f") +
                 std::to_string(c.columns) + " 2>" + terminal.name());
        EXPECT_EQ(server.wait(), "");
        const std::string& shown = terminal.shown();
        EXPECT_TRUE(std::regex_match(shown, std::regex(c.lines))) << shown;
        std::size_t widest = 0;
        std::stringstream lines(shown);
        for (std::string line; std::getline(lines, line, '\r');) {
            widest = std::max(widest, line.size());
        }
        EXPECT_LE(widest, c.widest);
    }
}

TEST(QormonUpdate, FetchesWhatIsOffered) {
    struct Case {
        const char* options;
        const char* url; // that the server offers
        std::string answer;
        const char* before; // what the file holds; empty: there is none
        int exitCode;
        const char* output; // behind the table
    };
    const char place[] = "http://far.example/p.pkg";
    const Case cases[] = {
        {"", place, answer("200 OK", "news"), "", 0,
         "download        http://far.example/p.pkg\ndownloaded 4 bytes to "
         "FILE\n"},
        {"", place, answer("304 Same", ""), "old", 0,
         "download        http://far.example/p.pkg\nnot modified: FILE is up to "
         "date\n"},
        {"", place, answer("404 No", ""), "", 1,
         "download        http://far.example/p.pkg\n"
         "qormon update: the download of http://far.example/p.pkg failed\n"},
        {"--json 2>/dev/null", place, answer("200 OK", "news"), "", 0,
         "{\"urlDownload\": \"http://far.example/p.pkg\"}\n"},
        {"", "https://h/p", "", "", 1,
         "download        https://h/p\n"
         "qormon update: https can't be spoken, only http: https://h/p\n"},
        {"", "http://h/\x1B[1m", "", "", 1,
         "download        http://h/?[1m\n"
         "qormon update: a URL has no blanks and control characters: "
         "http://h/?[1m\n"},
        {"", nullptr, "", "", 1,
         "version         3\nqormon update: http://u.example/u offers no "
         "download\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.options) + (c.url == nullptr ? "" : c.url) + c.answer);
        const TempDirectory directory;
        const std::string file = directory.path("f");
        if (*c.before != '\0') {
            directory.write("f", c.before);
        }
        const std::string line =
            c.url == nullptr ? "Version = 3" : "UrlDownload = " + std::string(c.url);
        ScriptedServer proxy(
            {{readRequest(), sendBytes(answer("200 OK", "[Language 2]\n" + line + "\n"))},
             {readRequest(), sendBytes(c.answer)}});
        const Outcome outcome =
            run("update http://u.example/u --proxy 127.0.0.1:" + std::to_string(proxy.port()) +
                " --download " + file + " " + c.options);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_EQ(outcome.output, filled(c.output, "FILE", file));
        if (!c.answer.empty()) {
            EXPECT_EQ(proxy.received(1).substr(0, 41),
                      "GET http://far.example:80/p.pkg HTTP/1.0\r");
        }
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
