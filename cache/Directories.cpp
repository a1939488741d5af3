#include "cache/Directories.h"

#include <algorithm>
#include <new>

namespace Ormek {

void DirectoryIndex::update() noexcept {
    try {
        if (_size + 1 == _list.size()) {
            add(_list.back());
            return;
        }
        clear();
        for (const auto& directory : _list) {
            add(directory);
        }
    } catch (const std::bad_alloc&) {
        clear();
    }
}

void DirectoryIndex::add(const std::shared_ptr<QueryResult>& directory) {
    const Entry entry{_size, &directory};
    const std::vector<unsigned long>& ids = internalOf(directory).filter().dataIds();
    if (ids.empty()) {
        _withoutDataId.push_back(entry);
    }
    for (const unsigned long id : ids) {
        Entries& entries = _byDataId[id];
        // A filter may name an id twice.
        if (entries.empty() || entries.back().number != entry.number) {
            entries.push_back(entry);
        }
    }
    ++_size;
}

void DirectoryIndex::clear() noexcept {
    _byDataId.clear();
    _withoutDataId.clear();
    _size = 0;
}

const DirectoryIndex::Entries& DirectoryIndex::of(unsigned long dataId) const {
    static const Entries none;
    const auto found = _byDataId.find(dataId);
    return found == _byDataId.end() ? none : found->second;
}

const DirectoryIndex::Entries& DirectoryIndex::candidates(const FilterInternal& filter) const {
    return filter.dataIds().empty() ? _withoutDataId : of(filter.dataIds().front());
}

}  // namespace Ormek
