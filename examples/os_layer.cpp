// Two processes count in shared memory, one at a time, and log under the mask that both share.
#include <cstdio>

#include "qoros.h"

namespace {

constexpr uint32_t mutexKey = 0x51450101;
constexpr uint32_t memoryKey = 0x51450102;
constexpr int rounds = 1000;

struct Shared {
    QorOsLogRec* log = nullptr;
    QorOsMutex* mutex = nullptr;
    QorOsMmf memory = {};
};

// Whoever comes first creates what both share, whoever goes last removes it.
bool open(Shared& shared) {
    shared.log = QorOspLogNew();
    return shared.log != nullptr && QorOsMutexCreate(&shared.mutex, mutexKey) != 0 &&
           QorOsMmfCreate(&shared.memory, sizeof(uint32_t), nullptr, memoryKey, 0) != 0;
}

void close(Shared& shared) {
    if (shared.memory.address != nullptr) {
        QorOsMmfClose(&shared.memory);
    }
    QorOsMutexClose(shared.mutex);
    QorOsvLogDelete(&shared.log);
}

bool count(const Shared& shared) {
    auto* const counter = static_cast<uint32_t*>(shared.memory.address);
    int i = 0;
    for (; i < rounds && QorOsMutexWait(shared.mutex, QOR_INFINITE, nullptr) != 0; ++i) {
        ++*counter;
        QorOsMutexRelease(shared.mutex);
    }
    QorOsvLog(shared.log, QOR_LOG_ERROR, "%d rounds", i);
    return i == rounds;
}

// The first process starts the second one, counts beside it, and waits for it.
bool lead(const Shared& shared, const char* program) {
    char line[1024];
    QorOsProcess* second = nullptr;
    uint32_t exitCode = 1;
    sprintf_qor(line, sizeof line, "%s second", program);
    if (QorOsCreateProcessAsyn(line, nullptr, &second) == 0) {
        return false;
    }
    const bool counted = count(shared);
    QorOsProcessWait(second, &exitCode);
    std::printf("counted to %u\n", *static_cast<const uint32_t*>(shared.memory.address));
    return counted && exitCode == 0;
}

} // namespace

int main(int argc, char** argv) {
    Shared shared;
    bool done = open(shared);
    if (!done) {
        std::perror("nothing to share");
    } else if (argc == 2) {
        done = count(shared);
    } else {
        QorOsvSetLogLevel(shared.log, QOR_LOG_STDOUT | QOR_LOG_ERROR);
        done = lead(shared, argv[0]);
        QorOsvResLogLevel(shared.log, QOR_LOG_STDOUT | QOR_LOG_ERROR);
    }
    close(shared);
    return done ? 0 : 1;
}
