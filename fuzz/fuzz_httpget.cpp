// Gives bytes to HttpGet as a server's answer, in pieces that the input decides, and looks at what
// it says of the file that it wrote.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "httpget.h"
#include "inet/netcalls.h"
#include "pieces.h"
#include "require.h"

// In place of the library's own: nothing more comes by waiting.
void netcalls::pauseFor(unsigned int) {}

namespace {

// A file in the directory for temporary files, removed when the program ends.
struct Destination {
    Destination() {
        close(mkstemp(path));
    }
    ~Destination() {
        unlink(path);
    }
    char path[32] = "/tmp/fuzz_httpget.XXXXXX";
};

// What the callback was told last.
struct Progress {
    bool called = false;
    unsigned int done = 0;
};

signed char follow(void* context, unsigned int done, unsigned int total) {
    Progress& progress = *static_cast<Progress*>(context);
    require(progress.called ? done >= progress.done : done == 0);
    progress = {true, done};
    return total != 7; // such an answer is aborted
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Destination destination;
    HttpGet get;
    if (!pieces::connectToAnswer(*get.tcp, data, size)) {
        return 0;
    }
    char path[] = "path";
    QORINET_URL url = {};
    url.path = path;
    signed char updated = 9;
    Progress progress;
    const signed char result = get.getFile(url, destination.path, &updated, follow, &progress);
    require(strnlen(get.errorText, sizeof get.errorText) < sizeof get.errorText);
    require(updated == (result == 1 && progress.called ? 1 : 0));
    struct stat info = {};
    require(stat(destination.path, &info) == 0);
    require(!progress.called || info.st_size == progress.done);
    return 0;
}
