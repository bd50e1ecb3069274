// What a library changes in a configuration file when one value is set: the lines and bytes that
// are not the same as before, by the shortest difference. The new value itself is part of them.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#define SI_CONVERT_ICU
#include <SimpleIni.h>
#include <glib.h>
#include <iniparser/iniparser.h>

#include "config_texts.h"
#include "configfile.h"
#include "temp_directory.h"

namespace {

using support::ConfigText;

// Each gives whether the library could read the file, set the value and write the file. Where a
// library can be told to keep more of it, it is.
using Edit = bool (*)(const char* path, const ConfigText& text);

bool editConfigFile(const char* path, const ConfigText& text) {
    ConfigFile config;
    return config.OpenFile(path) != 0 &&
           config.WriteStr(text.group, text.key, text.newValue) != 0 && config.Close() != 0;
}

bool editGKeyFile(const char* path, const ConfigText& text) {
    GKeyFile* const config = g_key_file_new();
    const auto keepAll =
        static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
    bool done = g_key_file_load_from_file(config, path, keepAll, nullptr) != 0;
    if (done) {
        g_key_file_set_string(config, text.group, text.key, text.newValue);
        done = g_key_file_save_to_file(config, path, nullptr) != 0;
    }
    g_key_file_free(config);
    return done;
}

bool editSimpleIni(const char* path, const ConfigText& text) {
    CSimpleIniA config;
    config.SetMultiKey(true);
    config.SetAllowKeyOnly(true);
    return config.LoadFile(path) == SI_OK &&
           config.SetValue(text.group, text.key, text.newValue, nullptr, true) >= 0 &&
           config.SaveFile(path) == SI_OK;
}

bool editIniparser(const char* path, const ConfigText& text) {
    dictionary* const config = iniparser_load(path);
    if (config == nullptr) {
        return false;
    }
    const std::string key = std::string(text.group) + ":" + text.key;
    std::FILE* const file = std::fopen(path, "w");
    const bool done = iniparser_set(config, key.c_str(), text.newValue) == 0 && file != nullptr;
    if (file != nullptr) {
        iniparser_dump_ini(config, file);
        std::fclose(file);
    }
    iniparser_freedict(config);
    return done;
}

// How many elements the longest common subsequence leaves over in both.
template <typename Sequence>
std::size_t difference(const Sequence& a, const Sequence& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (const auto& element : a) {
        std::size_t diagonal = 0;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t above = row[j + 1];
            row[j + 1] = element == b[j] ? diagonal + 1 : std::max(above, row[j]);
            diagonal = above;
        }
    }
    return a.size() + b.size() - 2 * row.back();
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size(); start += lines.back().size()) {
        lines.push_back(text.substr(start, text.find('\n', start) - start + 1));
    }
    return lines;
}

void printCell(const ConfigText& text, Edit edit) {
    const support::TempDirectory directory;
    const std::string before = text.before + text.value + text.after;
    directory.write("file", before);
    if (!edit(directory.path("file").c_str(), text)) {
        std::printf(" refused |");
        return;
    }
    const std::string after = directory.read("file");
    std::printf(" %zu / %zu |", difference(linesOf(before), linesOf(after)),
                difference(before, after));
}

} // namespace

int main() {
    const Edit edits[] = {editConfigFile, editGKeyFile, editSimpleIni, editIniparser};
    std::puts("Lines / bytes that differ, taken away and added, when one value is set\n\n"
              "| text | lines | ConfigFile | GKeyFile | SimpleIni | iniparser |\n"
              "|---|---|---|---|---|---|");
    for (const ConfigText& text : support::configTexts) {
        std::printf("| %s | %zu |", text.name,
                    linesOf(text.before + text.value + text.after).size());
        for (const Edit edit : edits) {
            printCell(text, edit);
        }
        std::puts("");
    }
}
