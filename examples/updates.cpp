// Asks an update server what the newest release is, and fetches it where it is newer.
#include <cstdio>
#include <string>

#include "mif32.h"
#include "qoros_file.h"
#include "qorupdate.h"

namespace {

enum Identifier : unsigned short { productName = 1, build = 3, urlDownload = 5, fileSize = 8 };

constexpr int english = 2;
constexpr unsigned int ownBuild = 1200;

signed char progress(void* /*context*/, unsigned int done, unsigned int total) {
    std::printf("%u of %u bytes\n", done, total);
    return 1; // 0 would abort
}

bool fetch(const std::string& url, const char* file, unsigned int announced) {
    unsigned int size = 0;
    if (DownloadUpdate(url.c_str(), file, nullptr, 0, progress, nullptr) != 0 &&
        QorOsGetFileSize(file, &size) != 0 && size == announced) {
        return true;
    }
    std::fprintf(stderr, "the download failed\n");
    QorOsDeleteFile(file); // which may hold a piece
    return false;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: updates URL FILE\n");
        return 2;
    }
    unsigned char memory[4096];
    const unsigned int length = CheckForUpdate(english, argv[1], nullptr, 0, memory, sizeof memory);
    const Mif32 message(memory, length);
    std::string name;
    std::string url;
    unsigned int newest = 0;
    unsigned int size = 0;
    if (!message.GetStr(productName, &name, 1) || !message.GetInt(build, &newest, 1)) {
        std::fprintf(stderr, length == 0 ? "no server\n" : "no description\n");
        return 1;
    }
    std::printf("%s, build %u\n", name.c_str(), newest);
    if (newest <= ownBuild) {
        return 0;
    }
    return message.GetStr(urlDownload, &url, 1) && message.GetInt(fileSize, &size, 1) &&
                   fetch(url, argv[2], size)
               ? 0
               : 1;
}
