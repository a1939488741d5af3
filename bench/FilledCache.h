#pragma once

#include <map>
#include <memory>
#include <vector>

#include "bench/Corpus.h"
#include "cache/DirectoryCache.h"

namespace Ormek::Bench {

/// A cache with nobody behind it, and the directories of a corpus' folders.
class FilledCache {
  public:
    explicit FilledCache(const Corpus& corpus);

    DirectoryCache& cache() { return _cache; }
    const std::shared_ptr<QueryResult>& directory(std::size_t folder) const {
        return _directories[folder];
    }

    /// Asks for a listing that is not cached yet.
    std::shared_ptr<QueryResult> makeDirectory(const FilterInternal& filter);
    /// Delivers every page of every folder, interleaved.
    void deliverAll();
    void deliver(std::size_t folder, std::size_t page);

  private:
    const Corpus& _corpus;
    QueuedOperationsManager _parked;
    std::map<int, Nimra::DataService*> _services;
    DirectoryCache _cache;
    std::vector<std::shared_ptr<QueryResult>> _directories;
};

/// What a front end asks for when it shows a page of a folder.
FilterInternal pageFilter(unsigned long folderId, unsigned long offset);

}  // namespace Ormek::Bench
