// Character conversion, the growing string and the linked list against what the system and the
// language have.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdlib>
#include <list>
#include <string>

#include "templlinkedlist.h"
#include "tfstring.h"
#include "utf8conv.h"

namespace {

constexpr int pieces = 1000;
constexpr char piece[] = "twenty bytes of text";

const std::string ascii(1024, 'a');

int value = 0; // what the lists hold

void convertAnsiToUtf8(benchmark::State& state) {
    char out[2048];
    for (auto _ : state) {
        AnsiToUtf8(ascii.c_str(), out, sizeof out - 1);
        benchmark::DoNotOptimize(out);
    }
}

void convertIconv(benchmark::State& state) {
    const iconv_t converter = iconv_open("UTF-8", "ISO-8859-1");
    char out[2048];
    for (auto _ : state) {
        char* from = const_cast<char*>(ascii.data());
        std::size_t left = ascii.size();
        char* to = out;
        std::size_t room = sizeof out;
        if (iconv(converter, &from, &left, &to, &room) != 0) {
            state.SkipWithError("not converted");
        }
        benchmark::DoNotOptimize(out);
    }
    iconv_close(converter);
}

void growTFstring(benchmark::State& state) {
    for (auto _ : state) {
        char* text = nullptr;
        QOR::TFstring joined(&text, 0);
        for (int i = 0; i < pieces; ++i) {
            joined.Add(piece);
        }
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
}

void growStdString(benchmark::State& state) {
    for (auto _ : state) {
        std::string text;
        for (int i = 0; i < pieces; ++i) {
            text += piece;
        }
        benchmark::DoNotOptimize(text.data());
    }
}

void fillTemplLinkedList(benchmark::State& state) {
    for (auto _ : state) {
        QOR::TemplLinkedList<int*> list;
        list.onExit = QOR::TemplLinkedList<int*>::leaveData;
        for (int i = 0; i < pieces; ++i) {
            list.Add(&value);
        }
        benchmark::DoNotOptimize(list.count);
    }
}

void fillStdList(benchmark::State& state) {
    for (auto _ : state) {
        std::list<int*> list;
        for (int i = 0; i < pieces; ++i) {
            list.push_back(&value);
        }
        benchmark::DoNotOptimize(list.size());
    }
}

BENCHMARK(convertAnsiToUtf8);
BENCHMARK(convertIconv);
BENCHMARK(growTFstring);
BENCHMARK(growStdString);
BENCHMARK(fillTemplLinkedList);
BENCHMARK(fillStdList);

} // namespace

BENCHMARK_MAIN();
