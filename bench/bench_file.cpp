// A copy of 256 MiB against the standard library's, which lets the system copy, and against the
// program cp.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "qoros.h"

namespace {

constexpr std::size_t fileSize = 256 * 1024 * 1024;

// What all copies of the run share; gone with the program.
struct Directory {
    Directory() {
        std::filesystem::create_directories(path);
        std::mt19937_64 random(1);
        std::vector<std::uint64_t> words(fileSize / sizeof(std::uint64_t));
        for (std::uint64_t& word : words) {
            word = random();
        }
        std::ofstream(source, std::ios::binary)
            .write(reinterpret_cast<const char*>(words.data()), fileSize);
    }
    ~Directory() {
        std::filesystem::remove_all(path);
    }

    const std::string path =
        (std::filesystem::temp_directory_path() / "qormon3_bench_file").string();
    const std::string source = path + "/source";
    const std::string copy = path + "/copy";
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
    static const Directory directory;
    double processor = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove(directory.copy);
        state.ResumeTiming();
        const double before = processorSeconds();
        copy(directory);
        processor += processorSeconds() - before;
    }
    if (std::filesystem::file_size(directory.copy) != fileSize) {
        state.SkipWithError("wrong result");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fileSize));
    state.counters["processor"] = benchmark::Counter(processor, benchmark::Counter::kAvgIterations);
}

void copyHere(benchmark::State& state) {
    measure(state, [](const Directory& directory) {
        QorOsCopyFile(directory.source.c_str(), directory.copy.c_str(), 1);
    });
}

void copyStandardLibrary(benchmark::State& state) {
    measure(state, [](const Directory& directory) {
        std::filesystem::copy_file(directory.source, directory.copy);
    });
}

void copyCp(benchmark::State& state) {
    measure(state, [](const Directory& directory) {
        const std::string command = "cp -p " + directory.source + " " + directory.copy;
        benchmark::DoNotOptimize(std::system(command.c_str()));
    });
}

BENCHMARK(copyHere)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(copyStandardLibrary)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(copyCp)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
