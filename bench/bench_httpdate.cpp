// HTTP dates against libcurl, in the forms that both read.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include "httpvalue.h"

namespace {

constexpr long expected = 784111777;

// Measures calls whose result is right; a wrong one has no rate.
template <class Call>
void measure(benchmark::State& state, Call call, const char* text) {
    if (call(text) != expected) {
        state.SkipWithError("wrong result");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(call(text));
    }
    state.SetItemsProcessed(state.iterations());
}

void parseDate(benchmark::State& state, const char* text) {
    measure(state, StrToDate, text);
}

void parseDateCurl(benchmark::State& state, const char* text) {
    measure(
        state, [](const char* date) { return static_cast<long>(curl_getdate(date, nullptr)); },
        text);
}

BENCHMARK_CAPTURE(parseDate, rfc1123, "Sun, 06 Nov 1994 08:49:37 GMT");
BENCHMARK_CAPTURE(parseDateCurl, rfc1123, "Sun, 06 Nov 1994 08:49:37 GMT");
BENCHMARK_CAPTURE(parseDate, rfc850, "Sunday, 06-Nov-94 08:49:37 GMT");
BENCHMARK_CAPTURE(parseDateCurl, rfc850, "Sunday, 06-Nov-94 08:49:37 GMT");
BENCHMARK_CAPTURE(parseDate, yearLast, "Sun Nov 6 08:49:37 GMT 1994");
BENCHMARK_CAPTURE(parseDateCurl, yearLast, "Sun Nov 6 08:49:37 GMT 1994");

} // namespace

BENCHMARK_MAIN();
