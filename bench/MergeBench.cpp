// Merging delivered pages of documents, new and known, with so many entries cached already.

#include <benchmark/benchmark.h>

#include "bench/Scene.h"
#include "bench/Timing.h"

namespace Ormek::Bench {

namespace {

void sizes(benchmark::internal::Benchmark* benchmark) {
    for (const long size : {1'000L, 100'000L, 1'000'000L}) {
        benchmark->Arg(size);
    }
    benchmark->UseManualTime();
}

Scene& sceneOf(const benchmark::State& state) {
    return Scene::of(static_cast<std::size_t>(state.range(0)));
}

// A further folder, page by page. Once it is complete, `clear()` takes it out again.
template <class Merge, class Clear>
void mergeNew(benchmark::State& state, const Corpus& further, Merge merge, Clear clear) {
    std::size_t page = 0;
    Stopwatch watch;
    for (auto _ : state) {
        std::vector<Nimra::Document> records = further.page(0, page);
        watch.time([&] { merge(page * PageSize, std::move(records)); });
        watch.report(state);
        if (++page == further.pagesPerFolder()) {
            clear();
            page = 0;
        }
    }
    clear();
}

template <class Merge>
void mergeKnown(benchmark::State& state, Merge merge) {
    const Corpus& corpus = sceneOf(state).corpus;
    const auto folders = randomNumbers(1000, corpus.folders());
    const auto pages = randomNumbers(1000, corpus.pagesPerFolder());
    Round folder(folders);
    Round page(pages);
    Stopwatch watch;
    for (auto _ : state) {
        const std::size_t f = folder.next();
        const std::size_t p = page.next();
        std::vector<Nimra::Document> records = corpus.page(f, p);
        watch.time([&] { merge(corpus.folderId(f), f, p * PageSize, std::move(records)); });
        watch.report(state);
    }
}

// Other ids than those of the scenes.
const Corpus& furtherFolder() {
    static const Corpus further(10'000 - PageSize);
    return further;
}

void newIntoCache(benchmark::State& state) {
    const Corpus& further = furtherFolder();
    const unsigned long folderId = further.folderId(0);
    FilledCache& filled = sceneOf(state).cache();
    DirectoryCache& cache = filled.cache();
    std::shared_ptr<QueryResult> directory = filled.makeDirectory(pageFilter(folderId, 0));
    mergeNew(
        state, further,
        [&](std::size_t offset, std::vector<Nimra::Document> records) {
            cache.addItems(pageFilter(folderId, offset), directory, {}, std::move(records),
                           further.size());
        },
        [&] {
            for (const auto& entry : directory->items()) {
                cache.removeItem(folderId, entry->id());
            }
        });
}

void newIntoFloor(benchmark::State& state) {
    const Corpus& further = furtherFolder();
    const unsigned long folderId = further.folderId(0);
    FloorStore& floor = sceneOf(state).floor();
    mergeNew(
        state, further,
        [&](std::size_t offset, std::vector<Nimra::Document> records) {
            floor.merge(folderId, offset, std::move(records));
        },
        [&] { floor.clear(folderId); });
}

void newIntoSqlite(benchmark::State& state) {
    const Corpus& further = furtherFolder();
    SqlStore& sql = sceneOf(state).sql();
    mergeNew(
        state, further,
        [&](std::size_t /*offset*/, std::vector<Nimra::Document> records) { sql.merge(records); },
        [&] { sql.removeFolder(further.folderId(0)); });
}

void knownIntoCache(benchmark::State& state) {
    Scene& scene = sceneOf(state);
    FilledCache& filled = scene.cache();
    const unsigned long total = scene.corpus.entriesPerFolder();
    mergeKnown(state, [&](unsigned long folderId, std::size_t folder, std::size_t offset,
                          std::vector<Nimra::Document> records) {
        filled.cache().addItems(pageFilter(folderId, offset), filled.directory(folder), {},
                                std::move(records), total);
    });
}

void knownIntoFloor(benchmark::State& state) {
    FloorStore& floor = sceneOf(state).floor();
    mergeKnown(state, [&](unsigned long folderId, std::size_t /*folder*/, std::size_t offset,
                          std::vector<Nimra::Document> records) {
        floor.merge(folderId, offset, std::move(records));
    });
}

void knownIntoSqlite(benchmark::State& state) {
    SqlStore& sql = sceneOf(state).sql();
    mergeKnown(state,
               [&](unsigned long /*folderId*/, std::size_t /*folder*/, std::size_t /*offset*/,
                   std::vector<Nimra::Document> records) { sql.merge(records); });
}

BENCHMARK(newIntoCache)->Name("MergeNew/ormek")->Apply(sizes);
BENCHMARK(newIntoFloor)->Name("MergeNew/floor")->Apply(sizes);
BENCHMARK(newIntoSqlite)->Name("MergeNew/sqlite")->Apply(sizes);
BENCHMARK(knownIntoCache)->Name("MergeKnown/ormek")->Apply(sizes);
BENCHMARK(knownIntoFloor)->Name("MergeKnown/floor")->Apply(sizes);
BENCHMARK(knownIntoSqlite)->Name("MergeKnown/sqlite")->Apply(sizes);

}  // namespace

}  // namespace Ormek::Bench
