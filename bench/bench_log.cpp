// A log line that nobody wants, against one of syslog.
#include <benchmark/benchmark.h>
#include <syslog.h>

#include "qoros.h"

namespace {

void logLineOff(benchmark::State& state) {
    QorOsLogRec* log = QorOspLogNew();
    if (log == nullptr) {
        state.SkipWithError("no log");
        return;
    }
    int line = 0;
    for (auto _ : state) {
        QorOsvLog(log, QOR_LOG_DEBUG, "line %d", ++line);
    }
    QorOsvLogDelete(&log);
}

void syslogLineOff(benchmark::State& state) {
    setlogmask(LOG_UPTO(LOG_ERR));
    int line = 0;
    for (auto _ : state) {
        syslog(LOG_DEBUG, "line %d", ++line);
    }
}

BENCHMARK(logLineOff);
BENCHMARK(syslogLineOff);

} // namespace

BENCHMARK_MAIN();
