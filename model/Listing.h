#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/Additions.h"
#include "model/EntryList.h"
#include "model/PagePart.h"
#include "model/RangeSet.h"

namespace Ormek {

/// One listing of the service, as far as it is known: entries by their position there, local
/// additions, which have none yet, and which positions are held, that is, may still be shown as
/// the truth. Not safe to share between threads; `QueryResult` guards it.
///
/// A listing paged by offset loses or repeats entries as soon as something is removed between two
/// pages. Here a position that an entry was moved away from, or that a changed total casts doubt
/// on, is no longer held, and its page is asked for again; what a delivery brings always wins.
///
/// When memory runs out, an operation throws std::bad_alloc and changes nothing; replaceItem() may
/// have removed what it replaces.
class Listing {
  public:
    using Entry = EntryList::Entry;

    unsigned long count() const;
    unsigned long totalCount() const { return _totalCount; }
    std::vector<Entry> items() const;
    std::vector<Entry> page(unsigned long offset, unsigned long count) const;
    Entry itemByName(const std::string& name) const;
    bool contains(unsigned long id) const;
    bool isPageLoaded(unsigned long offset, unsigned long count) const;
    bool isPageCurrent(unsigned long offset, unsigned long count) const;
    std::optional<unsigned long> heldPositionOf(unsigned long id) const;

    void invalidate();
    void addPage(unsigned long offset, unsigned long count);
    void totalCount(unsigned long total);
    void addItems(unsigned long offset, std::vector<Entry> delivered, PagePart part);
    void addItem(Entry item, bool front);
    void removeItem(unsigned long id);
    bool removeItemByName(const Entry& item);
    void restoreItem(Entry item, unsigned long position);
    void replaceItem(const Entry& item, bool front);

  private:
    struct Page {
        unsigned long begin = 0;
        unsigned long end = 0;
    };

    // Where removeItemByName made room, for an addItem that follows at once.
    struct Vacancy {
        enum class Place { Front, Position, Back } place;
        unsigned long position;  // Or the index among the additions.
        bool held;
        bool counted;
        Entry entry;
    };

    // What the service says about the length of the listing.
    struct Totals {
        std::optional<unsigned long> last;  // The last one that was believed.
        bool believed = false;              // Whether the newest one is.
        bool judged = true;                 // False between a report and its delivery.
        bool explained = true;              // Whether local edits explained it when it came.
        unsigned long removals = 0;         // Local ones since the last one.
    };

    Page pageAt(unsigned long offset, unsigned long delivered) const;
    std::vector<Entry> arrange(const Page& page, std::vector<Entry> delivered, PagePart part) const;
    void dropBlocked(const Page& page, std::vector<Entry>& arranged) const;
    std::vector<unsigned long> positionsLeft(const Page& page,
                                             const std::vector<Entry>& arranged) const;
    bool isExplained(unsigned long total) const;
    Totals judge(unsigned long offset, const std::vector<Entry>& delivered, RangeSet& held) const;
    std::optional<unsigned long> limit() const;
    void place(const Page& page, std::vector<Entry> arranged) noexcept;
    bool contains(const Item& item) const;
    bool containsObject(const Item& item) const;
    bool stillStands(const Entry& addition) const;
    void appendToPage(std::vector<Entry>& page, const Additions& additions) const;
    void eraseAt(unsigned long position) noexcept;
    void shiftEvicted(unsigned long position, bool up) noexcept;
    void forget(const Item& item) noexcept;
    void makeRoom(unsigned long begin, unsigned long end);
    void reserveEvicted();
    void restoreEvicted(const Page& page) noexcept;
    void leaveBehindTotal() noexcept;
    std::optional<Vacancy> findByName(const Entry& item) const;
    Additions& additionsAt(Vacancy::Place place);
    void fill(const Vacancy& vacancy, const Entry& item);

    EntryList _entries;
    Additions _front;
    Additions _back;
    RangeSet _loaded;                        // Positions of pages that were added.
    std::vector<unsigned long> _emptyPages;  // Offsets of added pages of count 0.
    RangeSet _held;
    unsigned long _totalCount = 0;
    Totals _totals;
    bool _doubted = false;  // Since the last delivery: not even an empty listing is held then.
    std::optional<std::pair<unsigned long, unsigned long>> _announced;  // Offset and count.
    bool _merging = false;          // Between the announcement of a page and its delivery.
    std::vector<Vacancy> _evicted;  // By name, while merging.
    std::optional<Vacancy> _vacancy;
};

}  // namespace Ormek
