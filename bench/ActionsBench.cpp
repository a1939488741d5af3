// A user's changes to single entries, with so many directories alive.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <unordered_map>

#include "bench/Scene.h"
#include "bench/Timing.h"

namespace Ormek::Bench {

namespace {

/// What somebody builds from Boost.MultiIndex: a store of all entries, and a container of the same
/// kind for every directory.
class RankedTree {
  public:
    explicit RankedTree(const Corpus& corpus) {
        corpus.interleaved([&](std::size_t folder, std::size_t page) {
            for (const Nimra::Document& record : corpus.page(folder, page)) {
                const RankedStore::Record entry{record.id, record.parentId, record.name,
                                                entryOf(record)};
                _store.insert(entry);
                _directories[record.parentId].insert(entry);
            }
        });
    }

    void rename(unsigned long id, const std::string& name) { _store.rename(id, name); }
    void move(unsigned long id, unsigned long to, unsigned long from) {
        _store.move(id, to);
        const auto left = _directories.find(from);
        const auto entered = _directories.find(to);
        if (left != _directories.end() && entered != _directories.end()) {
            entered->second.insert(left->second.take(id));
        } else if (left != _directories.end()) {
            _outside = left->second.take(id);
        } else if (entered != _directories.end()) {
            entered->second.insert(std::move(_outside));
        }
    }
    void remove(unsigned long parentId, unsigned long id) {
        _directories[parentId].erase(id);
        _store.erase(id);
    }
    void insert(const RankedStore::Record& entry) {
        _store.insert(entry);
        _directories[entry.parentId].insert(entry);
    }

  private:
    RankedStore _store;
    std::unordered_map<unsigned long, RankedStore> _directories;
    RankedStore::Record _outside;
};

/// The cache and its yardstick with the same directories. Benchmarks leave the same entries in
/// them, but not in the same places.
struct Tree {
    static Tree& of(long directories, long entriesEach) {
        static std::map<std::pair<long, long>, Tree> trees;
        return trees.try_emplace({directories, entriesEach}, directories, entriesEach)
            .first->second;
    }

    Tree(long directories, long entriesEach)
        : corpus(static_cast<std::size_t>(directories * entriesEach),
                 static_cast<std::size_t>(entriesEach)) {}

    DirectoryCache& cache() {
        if (!_cache) {
            _cache = std::make_unique<FilledCache>(corpus);
            _cache->deliverAll();
        }
        return _cache->cache();
    }
    FilledCache& filled() {
        cache();
        return *_cache;
    }
    RankedTree& ranked() {
        if (!_ranked) {
            _ranked = std::make_unique<RankedTree>(corpus);
        }
        return *_ranked;
    }

    const Corpus corpus;

  private:
    std::unique_ptr<FilledCache> _cache;
    std::unique_ptr<RankedTree> _ranked;
};

Tree& treeOf(const benchmark::State& state) { return Tree::of(state.range(0), state.range(1)); }

// --- Renaming ------------------------------------------------------------------------------

template <class Rename>
void renameEach(benchmark::State& state, Rename rename) {
    const std::vector<unsigned long> ids = treeOf(state).corpus.shuffledIds();
    Round id(ids);
    std::size_t number = 0;
    for (auto _ : state) {
        number = (number + 7919) % 10'000;
        rename(id.next(), nameAt(number));
    }
}

void renameInCache(benchmark::State& state) {
    DirectoryCache& cache = treeOf(state).cache();
    renameEach(state,
               [&](unsigned long id, const std::string& name) { cache.renameItem(id, name); });
}

void renameInBoost(benchmark::State& state) {
    RankedTree& ranked = treeOf(state).ranked();
    renameEach(state, [&](unsigned long id, const std::string& name) { ranked.rename(id, name); });
}

// --- Moving --------------------------------------------------------------------------------

constexpr unsigned long NowhereId = 1;

// To another folder and, the next time round, back. A single directory is left and entered in turn.
template <class Move>
void moveEach(benchmark::State& state, Move move) {
    const Corpus& corpus = treeOf(state).corpus;
    const auto folders = randomNumbers(4096, corpus.folders());
    const auto others = randomNumbers(4095, corpus.folders());
    const auto positions = randomNumbers(4097, corpus.entriesPerFolder());
    Round folder(folders);
    Round other(others);
    Round position(positions);
    unsigned long id = 0;
    unsigned long from = 0;
    unsigned long to = 0;
    for (auto _ : state) {
        if (to == 0) {
            const std::size_t f = folder.next();
            const std::size_t o = other.next();
            id = corpus.id(f, position.next());
            from = corpus.folderId(f);
            to = f == o ? NowhereId : corpus.folderId(o);
            move(id, to, from);
        } else {
            move(id, from, to);
            to = 0;
        }
    }
    if (to != 0) {
        move(id, from, to);
    }
}

void moveInCache(benchmark::State& state) {
    DirectoryCache& cache = treeOf(state).cache();
    moveEach(state, [&](unsigned long id, unsigned long to, unsigned long from) {
        cache.moveItem(id, to, from);
    });
}

void moveInBoost(benchmark::State& state) {
    RankedTree& ranked = treeOf(state).ranked();
    moveEach(state, [&](unsigned long id, unsigned long to, unsigned long from) {
        ranked.move(id, to, from);
    });
}

// --- Removing ------------------------------------------------------------------------------

// Half a folder's entries in random order; `restore(folder)` puts them back.
template <class Remove, class Restore>
void removeEach(benchmark::State& state, Remove remove, Restore restore) {
    const Corpus& corpus = treeOf(state).corpus;
    const auto folders = randomNumbers(1000, corpus.folders());
    Round folder(folders);
    std::vector<std::size_t> positions(corpus.entriesPerFolder());
    std::iota(positions.begin(), positions.end(), std::size_t{0});
    std::mt19937_64 random(1);
    Stopwatch watch;
    const std::size_t half = positions.size() / 2;
    for (auto _ : state) {
        const std::size_t f = folder.next();
        std::shuffle(positions.begin(), positions.end(), random);
        watch.time([&] {
            for (std::size_t index = 0; index < half; ++index) {
                remove(corpus.folderId(f), corpus.id(f, positions[index]));
            }
        });
        watch.report(state);
        restore(f, positions, half);
    }
    state.counters["operations"] = static_cast<double>(half);
}

void removeFromCache(benchmark::State& state) {
    FilledCache& filled = treeOf(state).filled();
    const Corpus& corpus = treeOf(state).corpus;
    removeEach(
        state,
        [&](unsigned long folderId, unsigned long id) { filled.cache().removeItem(folderId, id); },
        [&](std::size_t folder, const std::vector<std::size_t>& /*removed*/, std::size_t /*half*/) {
            for (std::size_t page = 0; page < corpus.pagesPerFolder(); ++page) {
                filled.deliver(folder, page);
            }
        });
}

void removeFromBoost(benchmark::State& state) {
    RankedTree& ranked = treeOf(state).ranked();
    const Corpus& corpus = treeOf(state).corpus;
    removeEach(
        state, [&](unsigned long folderId, unsigned long id) { ranked.remove(folderId, id); },
        [&](std::size_t folder, const std::vector<std::size_t>& removed, std::size_t half) {
            for (std::size_t index = 0; index < half; ++index) {
                const Nimra::Document record = corpus.record(folder, removed[index]);
                ranked.insert({record.id, record.parentId, record.name, entryOf(record)});
            }
        });
}

void directories(benchmark::internal::Benchmark* benchmark) {
    benchmark->Args({10, 100});
    for (const long count : {1L, 10L, 100L}) {
        benchmark->Args({count, 10'000});
    }
}

BENCHMARK(renameInCache)->Name("Rename/ormek")->Apply(directories);
BENCHMARK(renameInBoost)->Name("Rename/boost")->Apply(directories);
BENCHMARK(moveInCache)->Name("Move/ormek")->Apply(directories);
BENCHMARK(moveInBoost)->Name("Move/boost")->Apply(directories);
BENCHMARK(removeFromCache)->Name("Remove/ormek")->Apply(directories)->UseManualTime();
BENCHMARK(removeFromBoost)->Name("Remove/boost")->Apply(directories)->UseManualTime();

}  // namespace

}  // namespace Ormek::Bench
