#include "bench/Scene.h"

#include <map>

namespace Ormek::Bench {

Scene& Scene::of(std::size_t entries) {
    static std::map<std::size_t, Scene> scenes;
    return scenes.try_emplace(entries, entries).first->second;
}

FilledCache& Scene::cache() {
    if (!_cache) {
        _cache = std::make_unique<FilledCache>(corpus);
        _cache->deliverAll();
    }
    return *_cache;
}

const std::vector<std::shared_ptr<Item>>& Scene::entries() {
    if (_entries.empty()) {
        _entries.resize(corpus.size());
        corpus.interleaved([this](std::size_t folder, std::size_t page) {
            std::size_t index = folder * corpus.entriesPerFolder() + page * PageSize;
            for (const Nimra::Document& record : corpus.page(folder, page)) {
                _entries[index++] = entryOf(record);
            }
        });
    }
    return _entries;
}

// With entries of its own, so that nodes and entries lie as they come, like the cache's.
std::unordered_map<unsigned long, std::shared_ptr<Item>>& Scene::map() {
    if (_map.empty()) {
        corpus.interleaved([this](std::size_t folder, std::size_t page) {
            for (const Nimra::Document& record : corpus.page(folder, page)) {
                _map.emplace(record.id, entryOf(record));
            }
        });
    }
    return _map;
}

std::vector<std::vector<std::shared_ptr<Item>>>& Scene::vectors() {
    if (_vectors.empty()) {
        const auto length = static_cast<std::ptrdiff_t>(corpus.entriesPerFolder());
        auto begin = entries().begin();
        for (std::size_t folder = 0; folder < corpus.folders(); ++folder, begin += length) {
            _vectors.emplace_back(begin, begin + length);
        }
    }
    return _vectors;
}

FloorStore& Scene::floor() {
    if (!_floor) {
        _floor = std::make_unique<FloorStore>();
        corpus.interleaved([this](std::size_t folder, std::size_t page) {
            _floor->merge(corpus.folderId(folder), page * PageSize, corpus.page(folder, page));
        });
    }
    return *_floor;
}

RankedStore& Scene::ranked() {
    if (!_ranked) {
        _ranked = std::make_unique<RankedStore>();
        for (const auto& item : entries()) {
            _ranked->insert({item->id(), item->parentId(), item->name(), item});
        }
    }
    return *_ranked;
}

SqlStore& Scene::sql() {
    if (!_sql) {
        _sql = std::make_unique<SqlStore>();
        corpus.interleaved([this](std::size_t folder, std::size_t page) {
            _sql->merge(corpus.page(folder, page));
        });
    }
    return *_sql;
}

}  // namespace Ormek::Bench
