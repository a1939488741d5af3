#pragma once

#include <list>
#include <memory>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include "cache/DirectoryCache.h"

namespace Ormek {

/// Every directory of the cache is one of these; a pointer that is not breaks a precondition.
inline QueryResultInternal& internalOf(const std::shared_ptr<QueryResult>& directory) {
    QueryResult& result = *directory;
    // Costs a tenth of the search through the virtual base, which is left for derived classes.
    if (typeid(result) == typeid(QueryResultInternal)) {
        return *static_cast<QueryResultInternal*>(dynamic_cast<void*>(&result));
    }
    return dynamic_cast<QueryResultInternal&>(result);
}

/// Finds directories of a list without walking all of it, by the folders that they are about.
/// Relies on that directories are only appended and that a directory's filter never changes.
///
/// Each function calls `visit(directory)` in the order of the list, until it returns true: for
/// every directory that is meant, and maybe for others. `visit` has to look.
class DirectoryIndex {
  public:
    using List = std::list<std::shared_ptr<QueryResult>>;

    explicit DirectoryIndex(const List& list) : _list(list) {}

    /// Takes note of what was appended. Without memory for that, the list is walked from then on.
    void update() noexcept;

    /// The directories that have this id among their data ids.
    template <class Visit>
    void visit(unsigned long dataId, Visit visit) const {
        this->visit(dataId, dataId, visit);
    }
    /// The directories that have one of two.
    template <class Visit>
    void visit(unsigned long dataId, unsigned long other, Visit visit) const {
        if (isComplete()) {
            visitBoth(of(dataId), of(other), visit);
        } else {
            visitAll(visit);
        }
    }
    /// The directories whose listing is that of a filter.
    template <class Visit>
    void visitListings(const FilterInternal& filter, Visit visit) const {
        if (isComplete()) {
            const Entries& entries = candidates(filter);
            visitBoth(entries, entries, visit);
        } else {
            visitAll(visit);
        }
    }
    template <class Visit>
    void visitAll(Visit visit) const {
        for (const auto& directory : _list) {
            if (visit(directory)) {
                return;
            }
        }
    }

  private:
    struct Entry {
        std::size_t number;  // In the list.
        const std::shared_ptr<QueryResult>* directory;
    };
    using Entries = std::vector<Entry>;  // In the order of the list.

    bool isComplete() const { return _size == _list.size(); }
    void add(const std::shared_ptr<QueryResult>& directory);
    void clear() noexcept;
    const Entries& of(unsigned long dataId) const;
    const Entries& candidates(const FilterInternal& filter) const;

    // What is in both comes once.
    template <class Visit>
    static void visitBoth(const Entries& some, const Entries& others, Visit visit) {
        auto a = some.begin();
        auto b = others.begin();
        while (a != some.end() || b != others.end()) {
            const bool isA = b == others.end() || (a != some.end() && a->number <= b->number);
            const Entry& next = isA ? *a : *b;
            if (visit(*next.directory)) {
                return;
            }
            const std::size_t number = next.number;
            a += a != some.end() && a->number == number ? 1 : 0;
            b += b != others.end() && b->number == number ? 1 : 0;
        }
    }

    const List& _list;
    std::unordered_map<unsigned long, Entries> _byDataId;
    Entries _withoutDataId;
    std::size_t _size = 0;
};

/// One for each list of the cache.
struct DirectoryCache::Indexes {
    Indexes(const DirectoryIndex::List& directories,
            const DirectoryIndex::List& keyValueDirectories)
        : listings(directories), keyValues(keyValueDirectories) {}

    DirectoryIndex listings;
    DirectoryIndex keyValues;
};

}  // namespace Ormek
