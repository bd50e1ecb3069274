#include "qorcrypto_random.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <atomic>

#include "chacha20.h"
#include "internal/wipe.h"
#include "randomcalls.h"

namespace qorcrypt {

namespace {

constexpr std::size_t reseedInterval = std::size_t{1} << 20; // bytes handed out
constexpr std::size_t bufferBlocks = 15;
constexpr std::size_t bufferSize = bufferBlocks * chacha20BlockSize;

// What a generator knows, in pages of its own. All zero, which is what the kernel leaves of it in a
// child process, asks for a seed.
struct State {
    unsigned char key[chacha20KeySize];
    unsigned char buffer[bufferSize];
    std::size_t unused;      // bytes at the end of the buffer that nobody has had
    std::size_t untilReseed; // bytes that the seed is still good for
    unsigned int forks;      // what tells a child from its parent without the kernel's help
    pid_t pid;
};

// A child process must not repeat its parent's bytes. The process number alone does not tell: a
// grandchild can bear the number of the process that it stems from, and name spaces have a first
// process each. So the kernel is asked to clear the state in every child, however it came about.
// Where it can't, fork() counts itself, and the number catches those who fork past the C library.
std::atomic<unsigned int> forkCount{0};
std::atomic<bool> forksAreCounted{false};

void countFork() {
    forkCount.fetch_add(1, std::memory_order_relaxed);
}

bool watchForks() {
    // Two threads at once make each fork count twice, which does no harm.
    if (!forksAreCounted.load(std::memory_order_relaxed)) {
        if (pthread_atfork(nullptr, nullptr, countFork) != 0) {
            return false;
        }
        forksAreCounted.store(true, std::memory_order_relaxed);
    }
    return true;
}

int openSeedDevice() {
    int fd;
    do {
        fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool readFully(int fd, unsigned char* out, std::size_t size) {
    while (size > 0) {
        const ssize_t count = read(fd, out, size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        out += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// As opposed to a file that somebody put in its place.
bool isCharacterDevice(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode);
}

bool readSeed(unsigned char (&seed)[chacha20KeySize]) {
    const int fd = openSeedDevice();
    if (fd < 0) {
        return false;
    }
    const bool complete = isCharacterDevice(fd) && readFully(fd, seed, sizeof seed);
    close(fd);
    return complete;
}

// The generator of a thread. One for all behind a lock would make threads wait for each other, and
// a child that was forked while another thread held the lock could never take it.
class Generator {
public:
    constexpr Generator() = default;
    ~Generator();
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    bool fill(unsigned char* out, std::size_t size);

private:
    bool mapState();
    void forgetAfterFork();
    bool reseed();
    void makeBlocks(unsigned char* out, std::size_t blocks);
    std::size_t takeSome(unsigned char* out, std::size_t size);

    State* state_ = nullptr;
    bool kernelWipes_ = false;
};

Generator::~Generator() {
    if (state_ != nullptr) {
        qorWipe(state_, sizeof *state_);
        munmap(state_, sizeof *state_);
    }
}

bool Generator::mapState() {
    void* const pages =
        mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    if (pages == MAP_FAILED) {
        return false;
    }
    kernelWipes_ = randomcalls::wipeOnFork(pages, sizeof(State));
    if (!kernelWipes_ && !watchForks()) {
        munmap(pages, sizeof(State));
        return false;
    }
    state_ = static_cast<State*>(pages);
    return true;
}

void Generator::forgetAfterFork() {
    if (kernelWipes_) {
        return;
    }
    const unsigned int forks = forkCount.load(std::memory_order_relaxed);
    const pid_t pid = getpid();
    if (state_->forks != forks || state_->pid != pid) {
        qorWipe(state_, sizeof *state_);
        state_->forks = forks;
        state_->pid = pid;
    }
}

// Adds a seed to the key, so that a poor one doesn't weaken a good key, and drops what the old key
// has made.
bool Generator::reseed() {
    unsigned char seed[chacha20KeySize];
    const bool complete = readSeed(seed);
    if (complete) {
        std::transform(seed, seed + sizeof seed, state_->key, state_->key,
                       [](unsigned char a, unsigned char b) { return a ^ b; });
        qorWipe(state_->buffer, sizeof state_->buffer);
        state_->unused = 0;
        state_->untilReseed = reseedInterval;
    }
    qorWipe(seed, sizeof seed);
    return complete;
}

// Fast key erasure: the first half of block 0 replaces the key, the blocks behind it are output.
void Generator::makeBlocks(unsigned char* out, std::size_t blocks) {
    constexpr unsigned char nonce[chacha20NonceSize] = {};
    unsigned char next[chacha20BlockSize];
    chacha20KeyStream(state_->key, 0, nonce, next, 1);
    chacha20KeyStream(state_->key, 1, nonce, out, blocks);
    memcpy(state_->key, next, sizeof state_->key);
    qorWipe(next, sizeof next);
}

// Hands out what one step gives: whole blocks to those who want many, else a part of the buffer.
std::size_t Generator::takeSome(unsigned char* out, std::size_t size) {
    if (size > bufferSize) {
        const std::size_t blocks = size / chacha20BlockSize;
        makeBlocks(out, blocks);
        return blocks * chacha20BlockSize;
    }
    if (state_->unused == 0) {
        makeBlocks(state_->buffer, bufferBlocks);
        state_->unused = bufferSize;
    }
    const std::size_t taken = std::min(size, state_->unused);
    unsigned char* const from = state_->buffer + (bufferSize - state_->unused);
    memcpy(out, from, taken);
    qorWipe(from, taken);
    state_->unused -= taken;
    return taken;
}

bool Generator::fill(unsigned char* out, std::size_t size) {
    if (state_ == nullptr && !mapState()) {
        return false;
    }
    forgetAfterFork();
    while (size > 0) {
        if (state_->untilReseed == 0 && !reseed()) {
            return false;
        }
        const std::size_t taken = takeSome(out, std::min(size, state_->untilReseed));
        state_->untilReseed -= taken;
        out += taken;
        size -= taken;
    }
    return true;
}

// A thread's other destructors may still ask for bytes when its generator is gone.
thread_local bool ownGeneratorIsGone = false;

struct OwnGenerator {
    Generator generator;
    ~OwnGenerator() {
        ownGeneratorIsGone = true;
    }
};

thread_local OwnGenerator own;

bool fillFromOwn(unsigned char* out, std::size_t size) {
    if (ownGeneratorIsGone) {
        Generator passing;
        return passing.fill(out, size);
    }
    return own.generator.fill(out, size);
}

} // namespace

} // namespace qorcrypt

int QorRandomBytes(void* out, size_t size) {
    if (size == 0) {
        return 1;
    }
    if (out == nullptr) {
        return 0;
    }
    if (!qorcrypt::fillFromOwn(static_cast<unsigned char*>(out), size)) {
        qorWipe(out, size);
        return 0;
    }
    return 1;
}
