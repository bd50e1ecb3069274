// Transfers from a server on this machine, against libcurl's easy interface: one file of 256 MB, a
// document of 1 kB, and an update check.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

#include "httpclient.h"
#include "httpget.h"
#include "qorupdate.h"
#include "real_servers.h"

namespace {

constexpr std::int64_t fileSize = 256 << 20;

// The server with its file, and the place for the downloads. All are there as long as the program.
struct Road {
    Road() {
        nginx.addServerLines("sendfile on;");
        nginx.addFile("file", std::string(fileSize, 'x'));
        nginx.addFile("small", std::string(1024, 'x'));
        nginx.addFile("update", "[Language 2]\nProductName=Product\nVersion=3\n");
        running = nginx.start();
    }
    support::Nginx nginx;
    support::TempDirectory directory;
    const std::string url = nginx.url("/file");
    const std::string destination = directory.path("file");
    bool running = false;
};

Road& road() {
    static Road only;
    return only;
}

// Each download begins without a file, so that none is conditional.
void measure(benchmark::State& state, bool (*download)()) {
    if (!road().running) {
        state.SkipWithError(road().nginx.problem().c_str());
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::error_code none;
        std::filesystem::remove(road().destination, none);
        state.ResumeTiming();
        if (!download() || std::filesystem::file_size(road().destination, none) !=
                               static_cast<std::uintmax_t>(fileSize)) {
            state.SkipWithError("the download failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * fileSize);
}

bool downloadByHttpGet() {
    HttpGet get;
    return get.HttpRequest(road().url.c_str(), road().destination.c_str(), nullptr) != 0;
}

bool downloadByCurl() {
    CURL* const curl = curl_easy_init();
    std::FILE* const file = std::fopen(road().destination.c_str(), "wb");
    bool done = false;
    if (curl != nullptr && file != nullptr) {
        curl_easy_setopt(curl, CURLOPT_URL, road().url.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, file);
        done = curl_easy_perform(curl) == CURLE_OK;
    }
    if (file != nullptr) {
        done = std::fclose(file) == 0 && done;
    }
    curl_easy_cleanup(curl);
    return done;
}

// A new connection for each.
void measureSmall(benchmark::State& state, bool (*get)()) {
    if (!road().running) {
        state.SkipWithError(road().nginx.problem().c_str());
        return;
    }
    for (auto _ : state) {
        if (!get()) {
            state.SkipWithError("the transfer failed");
        }
    }
}

void getByHttpClient(benchmark::State& state) {
    measureSmall(state, [] {
        HttpClient http(nullptr);
        return http.Connect("127.0.0.1", road().nginx.port(), 0) != 0 && http.Get("/small") != 0;
    });
}

void getByCurl(benchmark::State& state) {
    measureSmall(state, [] {
        static const std::string url = road().nginx.url("/small");
        std::string body;
        const auto append = [](char* bytes, std::size_t size, std::size_t count, void* out) {
            static_cast<std::string*>(out)->append(bytes, size * count);
            return size * count;
        };
        CURL* const curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +append);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
        const bool done = curl_easy_perform(curl) == CURLE_OK;
        curl_easy_cleanup(curl);
        return done && body.size() == 1024;
    });
}

void checkForUpdate(benchmark::State& state) {
    measureSmall(state, [] {
        static const std::string url = road().nginx.url("/update");
        char out[100];
        return CheckForUpdate(2, url.c_str(), nullptr, 0, out, sizeof out) > 2;
    });
}

BENCHMARK(getByHttpClient)->UseRealTime();
BENCHMARK(getByCurl)->UseRealTime();
BENCHMARK(checkForUpdate)->UseRealTime();
BENCHMARK_CAPTURE(measure, HttpGet, downloadByHttpGet)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(measure, libcurl, downloadByCurl)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
