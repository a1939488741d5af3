#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "cache/DirectoryCache.h"

namespace Ormek {

/// Lets tests look into a cache and set it up past its operations.
class DirectoryCacheProbe {
  public:
    using Items = PooledMap<unsigned long, std::shared_ptr<Item>>;

    explicit DirectoryCacheProbe(DirectoryCache& cache) : _cache(cache) {}

    std::list<std::shared_ptr<QueryResult>>& directories() { return _cache._directories; }
    std::list<std::shared_ptr<QueryResult>>& keyValueDirectories() {
        return _cache._keyValueDirectories;
    }
    Items& items() { return _cache._items; }
    std::unordered_map<std::string, std::shared_ptr<Item>>& keyValues() {
        return _cache._keyValues;
    }
    Nimra::ItemEventProtocol*& loadListener() { return _cache._loadListener; }
    std::mutex& itemsMutex() { return _cache._itemsMutex; }
    std::mutex& mutex() { return _cache._mutex; }

  private:
    DirectoryCache& _cache;
};

}  // namespace Ormek
