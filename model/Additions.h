#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/EntryList.h"

namespace Ormek {

/// Local additions to one end of a listing, in order: entries that the service's listing does not
/// have yet, as far as is known. Each may be counted, that is, by the last total, which was
/// reported when its id was a server id already.
class Additions {
  public:
    using Entry = EntryList::Entry;

    bool empty() const { return _entries.size() == 0; }
    unsigned long size() const { return _entries.size(); }
    /// How many are not counted.
    unsigned long open() const;
    const Entry& at(unsigned long index) const { return *_entries.at(index); }
    bool isCounted(unsigned long index) const { return _counted[index] != 0; }
    /// Whether this one has a position in the service's listing by now.
    bool isOver(unsigned long index) const { return isCounted(index) && at(index)->idLoaded(); }
    bool contains(const Item& item) const noexcept { return !empty() && _entries.contains(item); }
    bool contains(unsigned long id) const { return _entries.firstOfId(id).has_value(); }
    bool containsObject(const Item& item) const noexcept {
        return !empty() && _entries.containsObject(item);
    }
    /// This very entry.
    std::optional<unsigned long> find(const Item& item) const;
    /// The first one of this name.
    std::optional<unsigned long> findName(const std::string& name) const;
    /// Calls `visit(entry, index)` for each.
    template <class Visit>
    void forEach(Visit visit) const {
        unsigned long index = 0;
        _entries.forEach([&](const Entry& entry) { visit(entry, index++); });
    }

    /// Makes room for so many times `insert`, which cannot fail then.
    void reserve(unsigned long more);
    /// Changes nothing when memory runs out.
    void insert(unsigned long index, Entry entry, bool counted);
    void erase(unsigned long index) noexcept;
    /// Takes out what is the same entry.
    void forget(const Item& item) noexcept;
    /// Takes out what has this id; how many of these were counted.
    unsigned long remove(unsigned long id) noexcept;
    /// Counts those whose id is a server id.
    void count() noexcept;
    /// Takes out what is over.
    void dropOver() noexcept;

  private:
    EntryList _entries;
    std::vector<unsigned char> _counted;
};

}  // namespace Ormek
