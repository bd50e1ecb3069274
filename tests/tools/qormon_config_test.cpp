// `qormon config` on files: what it prints, its exit code, and what the file holds afterwards.
#include <gtest/gtest.h>

#include <string>

#include "temp_directory.h"
#include "tool_run.h"

namespace {

// With an escape sequence, a byte that is no UTF-8, and a last line without its end.
const std::string file = "; ours\r\n[Global]\r\n\tguest ok = yes # c\r\nport=80\r\n\r\n"
                         "[odd]\nesc\x1B[1m=\x9B\"\\\nk#1=2\n[GLOBAL]\nport=81\n[last]";
const std::string ended = file + "\n";

std::string edited(const std::string& from, const std::string& to) {
    return filled(ended, from, to);
}

TEST(QormonConfig, ReadsAndEditsFiles) {
    const std::string longLine = "[g]\nk=" + std::string(511, 'x') + "\nl=1\n";
    const std::string zero("[a]\0", 4);
    const std::string longComment = std::string(600, 'x') + "\nk=1\n";
    const struct {
        std::string arguments; // FILE stands for the file's name, here and in the output
        int exitCode;
        std::string output;        // its begin
        std::string before, after; // the same where the file must not be touched
    } cases[] = {
        {"list FILE", 0, "[Global]\nguest ok=yes\nport=80\n\n[odd]\nesc?[1m=?\"\\\n\n[last]\n",
         file, file},
        {"list FILE --json --no-comments", 0,
         R"({"groups": [{"name": "Global", "values": [{"name": "guest ok", "value": "yes # c"}, )"
         R"({"name": "port", "value": "80"}]}, {"name": "odd", "values": [{"name": "esc\u001b[1m")"
         R"(, "value": "\u009b\"\\"}, {"name": "k#1", "value": "2"}]}, {"name": "last", )"
         "\"values\": []}]}\n",
         file, file},
        {"list FILE", 1,
         "[g]\nqormon config: FILE: the list of group [g] ends at k, whose value has over 255 ",
         longLine, longLine},
        {"list FILE", 1, "[g]\nqormon config: FILE: a name of over 255 characters may end the list",
         "[g]\n" + std::string(256, ';') + "\nk=1\n", "[g]\n" + std::string(256, ';') + "\nk=1\n"},
        {"list FILE", 0, "[g]\nk=1\n", "[g]\n#" + longComment, "[g]\n#" + longComment},
        {"list FILE", 0, "", "", ""},
        {"get FILE global 'Guest OK'", 0, "yes\n", file, file},
        {"get FILE odd 'esc\x1B[1m'", 0, "?\"\\\n", file, file},
        {"get FILE Global none --json", 1, "{}\nqormon config: FILE: no none in group [Global]\n",
         file, file},
        {"get FILE none port", 1, "qormon config: FILE: no group [none]\n", file, file},
        {"get FILE g k", 1, "qormon config: FILE: no k in group [g], lines of over 510 characters ",
         longLine, longLine},
        {"get FILE g k --quotes", 0, "a \n", "[g]\nk=\"a \"\n", "[g]\nk=\"a \"\n"},
        {"set FILE global 'guest ok' no", 0, "", file, edited("= yes", "= no")},
        {"set FILE odd new 'a#b'", 0, "", file, edited("[GLOBAL]", "new=a##b\n[GLOBAL]")},
        {"set FILE new 'two words' -- -1", 0, "", "", "\n\n\n[new]\ntwo words=-1\n"},
        {"set FILE Global 'guest ok' yes", 0, "", file, file},
        {"set FILE Global port '80 '", 1, "qormon config: FILE: not changed, port would be read ba",
         file, file},
        {"set FILE g k 1", 0, "", longLine, longLine + "k=1\n"},
        {"set FILE g k $(printf %0511d 0)", 2, "qormon config: VALUE has more than 510 char", file,
         file},
        {"set FILE Global port \"$(printf '1\\n2')\"", 2, "qormon config: no control characters",
         file, file},
        {"set FILE Global 'a=b' 1", 2, "qormon config: no name: a=b\nusage", file, file},
        {"set FILE Global '[a' 1", 2, "qormon config: no name: [a\nusage", file, file},
        {"set FILE 'a]b' k 1", 2, "qormon config: no ] in a group's name: a]b\nusage", file, file},
        {"delete FILE Global port", 0, "", file, edited("port=80\r\n\r\n", "")},
        {"delete FILE Global 'guest ok'", 1, "qormon config: FILE: not changed, only a line that b",
         file, file},
        {"delete FILE Global none", 1, "qormon config: FILE: no none in group [Global]\n", file,
         file},
        {"delete FILE g k", 0, "qormon config: FILE: there is another k in group [g], which count",
         "[g]\nk =1\nk=2\n", "[g]\nk =1\n"},
        {"delete FILE last", 0, "", file, edited("[last]\n", "")},
        {"delete FILE none", 1, "qormon config: FILE: no group [none]\n", file, file},
        {"list FILE", 1, "qormon config: FILE: no text, it holds zero bytes\n", zero, zero},
        {"set FILE a b c", 1, "qormon config: FILE: no text, it holds zero", zero, zero},
        {"set FILE/none a b c", 1, "qormon config: FILE/none: Not a directory\n", "", ""},
        {"list /", 1, "qormon config: /: Is a directory\n", "", ""},
        {"list /dev/null", 1, "qormon config: /dev/null: no regular file\n", "", ""},
        {"delete FILE a b c", 2, "qormon config: one argument too many: c\nusage: ", "", ""},
        {"set FILE a b c --json", 2, "qormon config: unknown option --json\nusage: ", "", ""},
        {"list --help", 0, "usage: qormon config list ", "", ""},
        {"change FILE", 2, "qormon config: neither list nor get nor set nor", "", ""},
        {"", 2, "qormon config: an argument is missing\nusage:", "", ""},
    };
    const support::TempDirectory directory;
    const std::string path = directory.path("file");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        directory.write("file", c.before);
        ASSERT_TRUE(support::setModificationTime(path, 1000));
        const Outcome outcome = run("config " + filled(c.arguments, "FILE", path));
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        // What does not end a line goes on in the output.
        const std::string expected = filled(c.output, "FILE", path);
        const bool whole = expected.empty() || expected.back() == '\n';
        EXPECT_EQ(outcome.output.substr(0, whole ? std::string::npos : expected.size()), expected);
        EXPECT_EQ(directory.read("file"), c.after);
        EXPECT_EQ(support::modificationTime(path) == 1000, c.before == c.after);
    }
}

} // namespace
