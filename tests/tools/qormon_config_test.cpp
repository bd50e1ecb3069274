// `qormon config` on files: what it prints, its exit code, and what the file holds afterwards.
#include <string>

#include "temp_directory.h"
#include "tool_run.h"

namespace {

// With an escape sequence, a byte that is no UTF-8, and a last line without its end.
const std::string file = "; ours\r\n[Global]\r\n\tguest ok = yes # c\r\nport=80\r\n\r\n"
                         "[odd]\nesc\x1B[1m=\x9B\"\\\nk#1=2\n[GLOBAL]\nport=81\n[last]";

std::string edited(const std::string& from, const std::string& to) {
    return filled(file + "\n", from, to);
}

TEST(QormonConfig, ReadsAndEditsFiles) {
    const std::string longLine = "[g]\nk=" + std::string(511, 'x') + "\nl=1\n";
    const std::string longName = "[g]\n" + std::string(256, ';') + "\nk=1\n";
    const struct {
        std::string arguments;
        int exitCode;
        std::string output; // its begin
        std::string before = file, after = before;
    } cases[] = {
        {"list f", 0, "[Global]\nguest ok=yes\nport=80\n\n[odd]\nesc?[1m=?\"\\\n\n[last]\n"},
        {"list f --json --no-comments", 0,
         R"({"groups": [{"name": "Global", "values": [{"name": "guest ok", "value": "yes # c"}, )"
         R"({"name": "port", "value": "80"}]}, {"name": "odd", "values": [{"name": "esc\u001b[1m")"
         R"(, "value": "\u009b\"\\"}, {"name": "k#1", "value": "2"}]}, {"name": "last", )"},
        {"list f", 1, "[g]\nqormon config: f: the list of group [g] ends at k, whose", longLine},
        {"list f", 1, "[g]\nqormon config: f: a name of over 255 characters may end", longName},
        {"get f global 'Guest OK'", 0, "yes\n"},
        {"get f Global none --json", 1, "{}\nqormon config: f: no none in group [Global]\n"},
        {"get f none port", 1, "qormon config: f: no group [none]\n"},
        {"get f g k", 1, "qormon config: f: no k in group [g], lines of over 510 char", longLine},
        {"get f g k --quotes", 0, "a \n", "[g]\nk=\"a \"\n"},
        {"set f global 'guest ok' no", 0, "", file, edited("= yes", "= no")},
        {"set f odd new 'a#b'", 0, "", file, edited("[GLOBAL]", "new=a##b\n[GLOBAL]")},
        {"set f new 'two words' -- -1", 0, "", "", "\n\n\n[new]\ntwo words=-1\n"},
        {"set f Global 'guest ok' yes", 0, ""},
        {"set f Global port '80 '", 1, "qormon config: f: not changed, port would be read back"},
        {"set f g k $(printf %0511d 0)", 2, "qormon config: VALUE has more than 510 characters"},
        {"set f g k \"$(printf '1\\n2')\"", 2, "qormon config: no control characters"},
        {"set f 'a]b' k 1", 2, "qormon config: no ] in a group's name: a]b\nusage"},
        {"delete f Global port", 0, "", file, edited("port=80\r\n\r\n", "")},
        {"delete f Global 'guest ok'", 1, "qormon config: f: not changed, only a line that begins"},
        {"delete f g k", 0, "qormon config: f: there is another k in group [g], which counts now",
         "[g]\nk =1\nk=2\n", "[g]\nk =1\n"},
        {"set f a b c", 1, "qormon config: f: no text, it holds zero bytes\n", std::string(1, 0)},
        {"list /dev/null", 1, "qormon config: /dev/null: no regular file\n"},
    };
    const support::TempDirectory directory;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        directory.write("f", c.before);
        ASSERT_TRUE(support::setModificationTime(directory.path("f"), 1000));
        const Outcome outcome =
            runShell("cd " + directory.path() + "; '" QORMON_TOOL "' config " + c.arguments);
        EXPECT_EQ(outcome.exitCode, c.exitCode);
        EXPECT_EQ(outcome.output.substr(0, c.output.size()), c.output);
        EXPECT_TRUE(!c.output.empty() || outcome.output.empty()) << outcome.output;
        EXPECT_EQ(directory.read("f"), c.after);
        EXPECT_EQ(support::modificationTime(directory.path("f")) == 1000, c.before == c.after);
    }
}

} // namespace
