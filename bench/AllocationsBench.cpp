// What an answer from memory allocates, and what a cached document keeps.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <optional>

#include "bench/Allocations.h"
#include "bench/Corpus.h"
#include "bench/FilledCache.h"

namespace Ormek::Bench {

namespace {

// --- An answer from memory -----------------------------------------------------------------

FilterInternal longFilter(const Corpus& corpus) {
    FilterInternal filter = pageFilter(corpus.folderId(0), 0);
    filter.setQuery("holiday photographs of the year");
    filter.setOrder({{FilterOrder{}, "ascending"}});
    filter.setTagLabels({{"a label that is long enough", "a value that is long enough"}});
    return filter;
}

// The page itself, handed out by value, is counted apart.
void answer(benchmark::State& state) {
    const Corpus corpus(1000);
    FilledCache filled(corpus);
    filled.deliverAll();
    const FilterInternal filter = pageFilter(corpus.folderId(0), 0);
    const FilterInternal strange = longFilter(corpus);
    const auto directory = filled.makeDirectory(strange);
    filled.cache().addItems(strange, directory, {}, corpus.page(0, 0), corpus.size());
    long blocks = 0;
    long pageBlocks = 0;
    for (auto _ : state) {
        for (const FilterInternal* asked : {&filter, &strange}) {
            std::shared_ptr<QueryResult> result;
            const Allocations before = Allocations::ofThisThread();
            filled.cache().get(*asked, result, nullptr);
            const Allocations answered = Allocations::ofThisThread();
            benchmark::DoNotOptimize(result->page(0, PageSize));
            blocks += (answered - before).blocks;
            pageBlocks += (Allocations::ofThisThread() - answered).blocks;
        }
    }
    const auto perAnswer = benchmark::Counter::kAvgIterations;
    state.counters["blocks"] = {static_cast<double>(blocks), perAnswer};
    state.counters["pageBlocks"] = {static_cast<double>(pageBlocks), perAnswer};
}

// The filter is taken by value by get() with a listener, by get() without one, by getDirectory()
// and by isPageLoaded().
void copies(benchmark::State& state) {
    constexpr int TakenByValue = 4;
    const Corpus corpus(1000);
    const FilterInternal filter = pageFilter(corpus.folderId(0), 0);
    const FilterInternal strange = longFilter(corpus);
    long blocks = 0;
    for (auto _ : state) {
        for (const FilterInternal* asked : {&filter, &strange}) {
            for (int copy = 0; copy < TakenByValue; ++copy) {
                const Allocations before = Allocations::ofThisThread();
                FilterInternal taken = *asked;
                blocks += (Allocations::ofThisThread() - before).blocks;
                benchmark::DoNotOptimize(taken);
            }
        }
    }
    state.counters["blocks"] = {static_cast<double>(blocks), benchmark::Counter::kAvgIterations};
    // The vector that holds a page.
    state.counters["pageBlocks"] = 2;
}

BENCHMARK(answer)->Name("AnswerAllocations/ormek");
BENCHMARK(copies)->Name("AnswerAllocations/copies");

// --- A cached document ---------------------------------------------------------------------

unsigned long residentBytes() {
    std::ifstream statistics("/proc/self/statm");
    unsigned long total = 0;
    unsigned long resident = 0;
    statistics >> total >> resident;
    return resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
}

// What the documents of a filled cache keep, each with its place in a listing.
void memory(benchmark::State& state) {
    const Corpus corpus(static_cast<std::size_t>(state.range(0)));
    // What the program itself takes when it does this for the first time is no entry's.
    FilledCache(Corpus(100)).deliverAll();
    // Once only: memory that was freed before would be taken for nothing.
    for (auto _ : state) {
        malloc_trim(0);
        const unsigned long residentBefore = residentBytes();
        const Allocations before = Allocations::ofThisThread();
        std::optional<FilledCache> filled(corpus);
        filled->deliverAll();
        const auto entries = static_cast<double>(corpus.size());
        state.counters["resident"] =
            static_cast<double>(residentBytes() - residentBefore) / entries;
        state.counters["allocated"] =
            static_cast<double>((Allocations::ofThisThread() - before).bytes) / entries;
    }
}

// The blocks of one entry and of its node in the store, as the prescribed members need them.
void memoryOfMembers(benchmark::State& state) {
    const Corpus corpus(1000);
    const Nimra::Document record = corpus.record(0, 0);
    for (auto _ : state) {
        std::unordered_map<unsigned long, std::shared_ptr<Item>> store;
        store.reserve(16);
        const Allocations before = Allocations::ofThisThread();
        store.emplace(record.id, entryOf(record));
        state.counters["allocated"] =
            static_cast<double>((Allocations::ofThisThread() - before).bytes);
    }
}

BENCHMARK(memory)
    ->Name("Memory/ormek")
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Iterations(1);
BENCHMARK(memoryOfMembers)->Name("Memory/members")->Iterations(1);

}  // namespace

}  // namespace Ormek::Bench
