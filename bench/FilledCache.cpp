#include "bench/FilledCache.h"

namespace Ormek::Bench {

FilledCache::FilledCache(const Corpus& corpus) : _corpus(corpus) {
    _cache.setServices(&_services);
    _cache.setOpWithoutIdsQueue(&_parked);
    for (std::size_t folder = 0; folder < corpus.folders(); ++folder) {
        _directories.push_back(makeDirectory(pageFilter(corpus.folderId(folder), 0)));
    }
}

std::shared_ptr<QueryResult> FilledCache::makeDirectory(const FilterInternal& filter) {
    std::shared_ptr<QueryResult> directory;
    _cache.get(filter, directory);
    return directory;
}

void FilledCache::deliverAll() {
    _corpus.interleaved([this](std::size_t folder, std::size_t page) { deliver(folder, page); });
}

void FilledCache::deliver(std::size_t folder, std::size_t page) {
    _cache.addItems(pageFilter(_corpus.folderId(folder), page * PageSize), _directories[folder], {},
                    _corpus.page(folder, page), _corpus.entriesPerFolder());
}

FilterInternal pageFilter(unsigned long folderId, unsigned long offset) {
    FilterInternal filter;
    filter.setDataId({folderId});
    filter.contextId = folderId;
    filter.setUserId(1);
    filter.setOffset(static_cast<std::uint32_t>(offset));
    filter.setCount(PageSize);
    return filter;
}

}  // namespace Ormek::Bench
