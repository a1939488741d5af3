// One listing that grows and shrinks: how the whole of the work grows with the listing.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>

#include "bench/Corpus.h"
#include "bench/FilledCache.h"
#include "bench/Timing.h"

namespace Ormek::Bench {

namespace {

void sizes(benchmark::internal::Benchmark* benchmark) {
    for (const long size : {1'000L, 10'000L, 100'000L}) {
        benchmark->Arg(size);
    }
    benchmark->UseManualTime();
}

Corpus oneFolder(const benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    return Corpus(size, size);
}

void fill(benchmark::State& state) {
    const Corpus corpus = oneFolder(state);
    for (auto _ : state) {
        FilledCache filled(corpus);
        Stopwatch watch;
        for (std::size_t page = 0; page < corpus.pagesPerFolder(); ++page) {
            std::vector<Nimra::Document> records = corpus.page(0, page);
            watch.time([&] {
                filled.cache().addItems(pageFilter(corpus.folderId(0), page * PageSize),
                                        filled.directory(0), {}, std::move(records), corpus.size());
            });
        }
        watch.report(state);
    }
}

// --- Emptying ------------------------------------------------------------------------------

enum class From { Front, Middle, Anywhere };

std::vector<unsigned long> removalOrder(const Corpus& corpus, From from) {
    if (from == From::Anywhere) {
        return corpus.shuffledIds();
    }
    std::vector<unsigned long> ids(corpus.size());
    const std::size_t middle = corpus.size() / 2;
    for (std::size_t step = 0; step < ids.size(); ++step) {
        // From the middle: one before it, one behind it, further and further out.
        const std::size_t position = from == From::Front ? step
                                     : step % 2 == 0     ? middle + step / 2
                                                         : middle - 1 - step / 2;
        ids[step] = corpus.id(0, position);
    }
    return ids;
}

double percentile(std::vector<double>& values, double share) {
    const auto rank = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + rank, values.end());
    return values[static_cast<std::size_t>(rank)];
}

void empty(benchmark::State& state, From from) {
    const Corpus corpus = oneFolder(state);
    const std::vector<unsigned long> ids = removalOrder(corpus, from);
    const unsigned long folderId = corpus.folderId(0);
    std::vector<double> each;
    for (auto _ : state) {
        using Clock = std::chrono::steady_clock;
        FilledCache filled(corpus);
        filled.deliverAll();
        Stopwatch watch;
        watch.time([&] {
            Clock::time_point before = Clock::now();
            for (const unsigned long id : ids) {
                filled.cache().removeItem(folderId, id);
                const Clock::time_point now = Clock::now();
                each.push_back(std::chrono::duration<double>(now - before).count());
                before = now;
            }
        });
        watch.report(state);
        if (filled.directory(0)->count() != 0) {
            state.SkipWithError("not empty");
        }
    }
    state.counters["p99.9"] = percentile(each, 0.999);
    state.counters["longest"] = *std::max_element(each.begin(), each.end());
}

BENCHMARK(fill)->Name("Fill/ormek")->Apply(sizes);
BENCHMARK_CAPTURE(empty, front, From::Front)->Name("EmptyFront/ormek")->Apply(sizes);
BENCHMARK_CAPTURE(empty, middle, From::Middle)->Name("EmptyMiddle/ormek")->Apply(sizes);
BENCHMARK_CAPTURE(empty, random, From::Anywhere)->Name("EmptyRandom/ormek")->Apply(sizes);

// --- Known documents ------------------------------------------------------------------------

// A folder of which one page was shown in ascending order is refreshed in descending order: all of
// its documents are known, and each gets a place in the first listing too.
void refreshElsewhere(benchmark::State& state) {
    const Corpus corpus = oneFolder(state);
    for (auto _ : state) {
        FilledCache filled(corpus);
        filled.deliver(0, 0);
        FilterInternal filter = pageFilter(corpus.folderId(0), 0);
        filter.setAscending(false);
        const auto descending = filled.makeDirectory(filter);
        Stopwatch watch;
        const auto deliverAll = [&](bool timed) {
            for (std::size_t page = 0; page < corpus.pagesPerFolder(); ++page) {
                filter.setOffset(static_cast<std::uint32_t>(page * PageSize));
                auto records = corpus.page(0, corpus.pagesPerFolder() - 1 - page);
                std::reverse(records.begin(), records.end());
                const auto merge = [&] {
                    filled.cache().addItems(filter, descending, {}, std::move(records),
                                            corpus.size());
                };
                timed ? watch.time(merge) : merge();
            }
        };
        deliverAll(false);
        deliverAll(true);
        watch.report(state);
    }
}

// A folder whose documents were all renamed elsewhere is refreshed page by page.
void refreshRenamed(benchmark::State& state) {
    const Corpus corpus = oneFolder(state);
    for (auto _ : state) {
        FilledCache filled(corpus);
        filled.deliverAll();
        Stopwatch watch;
        for (std::size_t page = 0; page < corpus.pagesPerFolder(); ++page) {
            auto records = corpus.page(0, page);
            for (Nimra::Document& record : records) {
                record.name += " (copy)";
            }
            watch.time([&] {
                filled.cache().addItems(pageFilter(corpus.folderId(0), page * PageSize),
                                        filled.directory(0), {}, std::move(records), corpus.size());
            });
        }
        watch.report(state);
    }
}

// Documents that were made here get their ids from the service one by one, while the listing is
// looked into.
void updateIds(benchmark::State& state) {
    const Corpus corpus = oneFolder(state);
    for (auto _ : state) {
        FilledCache filled(corpus);
        filled.deliverAll();
        Stopwatch watch;
        watch.time([&] {
            for (std::size_t position = 0; position < corpus.size(); position += 10) {
                const unsigned long id = corpus.id(0, position);
                filled.cache().updateItemId(id, id + 1);
                filled.cache().removeItem(corpus.folderId(0), id + 1);
            }
        });
        watch.report(state);
    }
}

// The same listing with one entry that has no id yet.
void emptyBesideOneWithoutId(benchmark::State& state) {
    const Corpus corpus = oneFolder(state);
    const std::vector<unsigned long> ids = corpus.shuffledIds();
    for (auto _ : state) {
        FilledCache filled(corpus);
        filled.deliverAll();
        // Behind the others, where no other record stands.
        const auto directory = std::dynamic_pointer_cast<QueryResultInternal>(filled.directory(0));
        directory->addPage(corpus.size(), 1);
        directory->totalCount(corpus.size() + 1);
        directory->addItems(corpus.size(), {entryOf(Nimra::Document(0, 1, 1, ""))});
        Stopwatch watch;
        watch.time([&] {
            for (const unsigned long id : ids) {
                filled.cache().removeItem(corpus.folderId(0), id);
            }
        });
        watch.report(state);
    }
}

BENCHMARK(refreshElsewhere)->Name("RefreshElsewhere/ormek")->Apply(sizes);
BENCHMARK(refreshRenamed)->Name("RefreshRenamed/ormek")->Apply(sizes);
BENCHMARK(updateIds)->Name("UpdateIds/ormek")->Apply(sizes);
BENCHMARK(emptyBesideOneWithoutId)->Name("EmptyBesideOneWithoutId/ormek")->Apply(sizes);

}  // namespace

}  // namespace Ormek::Bench
