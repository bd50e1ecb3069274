// A copy of 256 MiB against the standard library's, which lets the system copy, and against the
// program cp.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "qoros.h"
#include "temp_directory.h"

namespace {

constexpr std::size_t fileSize = 256 * 1024 * 1024;

// What all copies of the run share; gone with the program.
struct Files {
    Files() {
        std::mt19937_64 random(1);
        std::string bytes(fileSize, '\0');
        for (std::size_t at = 0; at < fileSize; at += sizeof(std::uint64_t)) {
            const std::uint64_t word = random();
            std::memcpy(&bytes[at], &word, sizeof word);
        }
        directory.write("source", bytes);
    }

    const support::TempDirectory directory;
    const std::string source = directory.path("source");
    const std::string copy = directory.path("copy");
};

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// Processor time of this process and of those that it has waited for.
double processorSeconds() {
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        sum += seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }
    return sum;
}

// Each copy is a new file.
template <class Copy>
void measure(benchmark::State& state, Copy copy) {
    static const Files files;
    double processor = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(files.copy);
        state.ResumeTiming();
        const double before = processorSeconds();
        copy(files);
        processor += processorSeconds() - before;
    }
    if (std::filesystem::file_size(files.copy) != fileSize) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fileSize));
    state.counters["processor"] = benchmark::Counter(processor, benchmark::Counter::kAvgIterations);
}

void copyHere(benchmark::State& state) {
    measure(state,
            [](const Files& files) { QorOsCopyFile(files.source.c_str(), files.copy.c_str(), 1); });
}

void copyStandardLibrary(benchmark::State& state) {
    measure(state,
            [](const Files& files) { std::filesystem::copy_file(files.source, files.copy); });
}

void copyCp(benchmark::State& state) {
    measure(state, [](const Files& files) {
        const std::string command = "cp -p " + files.source + " " + files.copy;
        benchmark::DoNotOptimize(std::system(command.c_str()));
    });
}

BENCHMARK(copyHere)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(copyStandardLibrary)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(copyCp)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
