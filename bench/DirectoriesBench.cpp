// Finding the directory that answers a query among many, the one that is asked for being the last.

#include <benchmark/benchmark.h>

#include <list>

#include "bench/Corpus.h"
#include "bench/FilledCache.h"

namespace Ormek::Bench {

namespace {

/// Directories whose first page is delivered, so that it is answered from memory.
class Directories {
  public:
    /// The same for the same arguments; lives as long as the process.
    static Directories& of(long count, long entriesEach) {
        static std::map<std::pair<long, long>, Directories> all;
        return all.try_emplace({count, entriesEach}, count, entriesEach).first->second;
    }

    Directories(long count, long entriesEach)
        : _corpus(static_cast<std::size_t>(count * entriesEach),
                  static_cast<std::size_t>(entriesEach)),
          filled(_corpus),
          lastPage(pageFilter(_corpus.folderId(_corpus.folders() - 1), 0)) {
        filled.deliverAll();
        for (const auto& directory : filled.cache().directories()) {
            const auto& internal = dynamic_cast<const QueryResultInternal&>(*directory);
            byReference.push_back(
                std::make_shared<Reachable>(Reachable{internal.filter(), directory}));
        }
    }

    /// A directory whose filter can be had without a cast.
    struct Reachable {
        FilterInternal filter;
        std::shared_ptr<QueryResult> result;
    };

  private:
    const Corpus _corpus;

  public:
    FilledCache filled;
    std::list<std::shared_ptr<Reachable>> byReference;
    const FilterInternal lastPage;
};

Directories& directoriesOf(const benchmark::State& state) {
    return Directories::of(state.range(0), state.range(1));
}

void get(benchmark::State& state) {
    Directories& directories = directoriesOf(state);
    DirectoryCache& cache = directories.filled.cache();
    for (auto _ : state) {
        std::shared_ptr<QueryResult> result;
        if (cache.get(directories.lastPage, result, nullptr) != 0) {
            state.SkipWithError("not answered from memory");
        }
        benchmark::DoNotOptimize(result);
    }
}

// --- The floor: the calls of the interface with their copies, and a walk that copies nothing. --

bool isLoaded(const Directories::Reachable& directory, FilterInternal filter) {
    return filter.getOffset() + filter.getCount() <= directory.result->totalCount();
}

std::shared_ptr<Directories::Reachable> find(const Directories& directories,
                                             FilterInternal filter) {
    for (const auto& directory : directories.byReference) {
        if (directory->filter.sameListing(filter)) {
            return directory;
        }
    }
    return nullptr;
}

bool getDirectly(const Directories& directories, FilterInternal filter,
                 std::shared_ptr<QueryResult>& result) {
    const auto directory = find(directories, filter);
    result = directory->result;
    return isLoaded(*directory, filter);
}

unsigned long getDirectlyOrLoad(const Directories& directories, FilterInternal filter,
                                std::shared_ptr<QueryResult>& result) {
    return getDirectly(directories, filter, result) ? 0 : 1;
}

void walk(benchmark::State& state) {
    const Directories& directories = directoriesOf(state);
    for (auto _ : state) {
        std::shared_ptr<QueryResult> result;
        benchmark::DoNotOptimize(getDirectlyOrLoad(directories, directories.lastPage, result));
        benchmark::DoNotOptimize(result);
    }
}

// Number of directories, and of the entries in each.
void few(benchmark::internal::Benchmark* benchmark) { benchmark->Args({1, 100})->Args({100, 100}); }
void many(benchmark::internal::Benchmark* benchmark) {
    benchmark->Args({10'000, 100})->Args({100, 10'000});
}

BENCHMARK(get)->Name("Get/ormek")->Apply(few)->Apply(many);
BENCHMARK(walk)->Name("Get/walk")->Apply(few)->Apply(many);

}  // namespace

}  // namespace Ormek::Bench
