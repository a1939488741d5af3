#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "bench/Corpus.h"
#include "bench/FilledCache.h"
#include "bench/FloorStore.h"
#include "bench/RankedStore.h"
#include "bench/SqlStore.h"

namespace Ormek::Bench {

/// One corpus in the cache and in everything that it is compared with; each is filled when it is
/// first asked for. Benchmarks leave the contents as they found them.
class Scene {
  public:
    /// The scene of so many entries, which lives as long as the process.
    static Scene& of(std::size_t entries);

    explicit Scene(std::size_t entries) : corpus(entries) {}

    FilledCache& cache();
    /// By id.
    std::unordered_map<unsigned long, std::shared_ptr<Item>>& map();
    /// By folder and position.
    std::vector<std::vector<std::shared_ptr<Item>>>& vectors();
    FloorStore& floor();
    RankedStore& ranked();
    SqlStore& sql();

    const Corpus corpus;

  private:
    // Entries of the simple peers, which are shared by these.
    const std::vector<std::shared_ptr<Item>>& entries();

    std::unique_ptr<FilledCache> _cache;
    std::vector<std::shared_ptr<Item>> _entries;
    std::unordered_map<unsigned long, std::shared_ptr<Item>> _map;
    std::vector<std::vector<std::shared_ptr<Item>>> _vectors;
    std::unique_ptr<FloorStore> _floor;
    std::unique_ptr<RankedStore> _ranked;
    std::unique_ptr<SqlStore> _sql;
};

}  // namespace Ormek::Bench
