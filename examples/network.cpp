// Asks for a document, shows its beginning, and downloads it twice.
#include <cstdio>

#include "httpclient.h"
#include "httpget.h"
#include "qorurl.h"

namespace {

bool show(const QORINET_URL& url) {
    HttpClient http(nullptr); // makes a connection of its own
    if (http.Connect(url.host, url.port, 0) == 0 || http.Get(url.path) == 0) {
        std::fprintf(stderr, "no answer: %s\n", http.errorText);
        return false;
    }
    char type[64] = "none";
    http.GetHeaderParam("Content-Type: ", type, sizeof type);
    std::printf("status %u, type %s, %u bytes: %.11s\n", http.statusCode, type, http.bodyLength,
                http.body != nullptr ? http.body : "");
    return http.statusCode == 200;
}

signed char progress(void* context, unsigned int done, unsigned int total) {
    *static_cast<bool*>(context) = true;
    std::printf("%u of %u bytes\n", done, total);
    return 1; // 0 would abort
}

bool download(const char* url, const char* file) {
    HttpGet get;
    signed char updated = 0;
    bool begun = false;
    if (get.HttpRequestCB(url, file, &updated, progress, &begun) == 0) {
        std::fprintf(stderr, "no download: %s\n", get.errorText);
        if (begun) {
            std::remove(file); // which holds a piece
        }
        return false;
    }
    std::printf("%s\n", updated != 0 ? "downloaded" : "up to date");
    return true;
}

} // namespace

int main(int argc, char** argv) {
    QORINET_URL url = {};
    if (argc != 3 || QorInetUrlParse(argv[1], &url, 80) == 0) {
        std::fprintf(stderr, "usage: network URL FILE\n");
        QorInetUrlFree(&url); // a failure may leave a host
        return 2;
    }
    const bool answered = show(url);
    QorInetUrlFree(&url);
    return answered && download(argv[1], argv[2]) && download(argv[1], argv[2]) ? 0 : 1;
}
