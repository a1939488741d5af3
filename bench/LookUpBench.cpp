// Single entries by id, and pages by offset.

#include <benchmark/benchmark.h>

#include "bench/Scene.h"
#include "bench/Timing.h"

namespace Ormek::Bench {

namespace {

constexpr std::size_t Draws = 1U << 16U;

void sizes(benchmark::internal::Benchmark* benchmark) {
    for (const long size : {1'000L, 100'000L, 1'000'000L}) {
        benchmark->Arg(size);
    }
}

Scene& sceneOf(const benchmark::State& state) {
    return Scene::of(static_cast<std::size_t>(state.range(0)));
}

// --- One entry -----------------------------------------------------------------------------

template <class Find>
void findEach(benchmark::State& state, Find find) {
    const std::vector<unsigned long> ids = sceneOf(state).corpus.shuffledIds();
    Round round(ids);
    for (auto _ : state) {
        benchmark::DoNotOptimize(find(round.next()));
    }
}

void getItem(benchmark::State& state) {
    DirectoryCache& cache = sceneOf(state).cache().cache();
    findEach(state, [&](unsigned long id) { return cache.getItem(id); });
}

void getItemFromMap(benchmark::State& state) {
    const auto& map = sceneOf(state).map();
    findEach(state, [&](unsigned long id) { return map.find(id)->second; });
}

void getItemFromBoost(benchmark::State& state) {
    const RankedStore& ranked = sceneOf(state).ranked();
    findEach(state, [&](unsigned long id) { return ranked.find(id); });
}

void getItemFromSqlite(benchmark::State& state) {
    SqlStore& sql = sceneOf(state).sql();
    findEach(state, [&](unsigned long id) { return sql.read(id); });
}

BENCHMARK(getItem)->Name("GetItem/ormek")->Apply(sizes);
BENCHMARK(getItemFromMap)->Name("GetItem/map")->Apply(sizes);
BENCHMARK(getItemFromBoost)->Name("GetItem/boost")->Apply(sizes);
BENCHMARK(getItemFromSqlite)->Name("GetItem/sqlite")->Apply(sizes);

// --- One page ------------------------------------------------------------------------------

// Calls `read(folder, offset)` for random folders and, unless one is given, random offsets.
template <class Read>
void readEach(benchmark::State& state, Read read) {
    const Corpus& corpus = sceneOf(state).corpus;
    const auto folders = randomNumbers(Draws, corpus.folders());
    const auto offsets = randomNumbers(Draws, corpus.entriesPerFolder() - PageSize + 1);
    Round folder(folders);
    Round offset(offsets);
    for (auto _ : state) {
        benchmark::DoNotOptimize(read(folder.next(), offset.next()));
    }
}

auto readPage(FilledCache& filled, const Corpus& corpus, std::size_t folder, std::size_t offset) {
    std::shared_ptr<QueryResult> result;
    filled.cache().get(pageFilter(corpus.folderId(folder), offset), result, nullptr);
    return result->page(offset, PageSize);
}

void page(benchmark::State& state) {
    Scene& scene = sceneOf(state);
    FilledCache& filled = scene.cache();
    readEach(state, [&](std::size_t folder, std::size_t offset) {
        return readPage(filled, scene.corpus, folder, offset);
    });
}

std::vector<std::shared_ptr<Item>> slice(const std::vector<std::shared_ptr<Item>>& entries,
                                         std::size_t offset) {
    const auto begin = entries.begin() + static_cast<std::ptrdiff_t>(offset);
    return {begin, begin + static_cast<std::ptrdiff_t>(PageSize)};
}

void pageFromVector(benchmark::State& state) {
    const auto& vectors = sceneOf(state).vectors();
    readEach(state, [&](std::size_t folder, std::size_t offset) {
        return slice(vectors[folder], offset);
    });
}

void pageFromBoost(benchmark::State& state) {
    Scene& scene = sceneOf(state);
    const RankedStore& ranked = scene.ranked();
    readEach(state, [&](std::size_t folder, std::size_t offset) {
        return ranked.page(scene.corpus.folderId(folder), offset, PageSize);
    });
}

void pageFromSqlite(benchmark::State& state) {
    Scene& scene = sceneOf(state);
    SqlStore& sql = scene.sql();
    readEach(state, [&](std::size_t folder, std::size_t offset) {
        return sql.readPage(scene.corpus.folderId(folder), offset, PageSize);
    });
}

BENCHMARK(page)->Name("Page/ormek")->Apply(sizes);
BENCHMARK(pageFromVector)->Name("Page/vector")->Apply(sizes);
BENCHMARK(pageFromBoost)->Name("Page/boost")->Apply(sizes);
BENCHMARK(pageFromSqlite)->Name("Page/sqlite")->Apply(sizes);

// --- One page at a given offset of a listing of 10,000 --------------------------------------

constexpr std::size_t OffsetScene = 10'000;

void offsets(benchmark::internal::Benchmark* benchmark) {
    for (const long offset : {0L, 2'500L, 5'000L, 7'500L, 9'900L}) {
        benchmark->Arg(offset);
    }
}

void pageAt(benchmark::State& state) {
    Scene& scene = Scene::of(OffsetScene);
    FilledCache& filled = scene.cache();
    const auto offset = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(readPage(filled, scene.corpus, 0, offset));
    }
}

void pageAtFromVector(benchmark::State& state) {
    const auto& entries = Scene::of(OffsetScene).vectors().front();
    const auto offset = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(slice(entries, offset));
    }
}

void pageAtFromSqlite(benchmark::State& state) {
    Scene& scene = Scene::of(OffsetScene);
    SqlStore& sql = scene.sql();
    const auto offset = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(sql.readPage(scene.corpus.folderId(0), offset, PageSize));
    }
}

BENCHMARK(pageAt)->Name("PageAt/ormek")->Apply(offsets);
BENCHMARK(pageAtFromVector)->Name("PageAt/vector")->Apply(offsets);
BENCHMARK(pageAtFromSqlite)->Name("PageAt/sqlite")->Apply(offsets);

}  // namespace

}  // namespace Ormek::Bench
