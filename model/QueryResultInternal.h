#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "model/FilterInternal.h"
#include "model/PagePart.h"
#include "model/QueryResult.h"

namespace Ormek {

/// The directory of one filter, with what the cache does to it.
///
/// Two questions are kept apart. `isPageLoaded` asks whether a page was ever delivered; local
/// edits and totals never take that back. `isPageCurrent` asks whether it may still be shown as
/// the truth; whoever shows listings asks this first and loads the page again, past the cache,
/// when the answer is no.
class QueryResultInternal : public virtual QueryResult {
  public:
    /// An empty directory: no page, no entry.
    explicit QueryResultInternal(FilterInternal filter);
    /// A copy of entries, pages, total and, where `other` has or remembers one, filter.
    explicit QueryResultInternal(QueryResult& other);
    QueryResultInternal& operator=(const QueryResultInternal&) = delete;
    ~QueryResultInternal() override;

    /// The filter the directory was made for; never changes.
    const FilterInternal& filter() const { return _filter; }

    /// Whether the page that `filter` asks for has been delivered: it was added as such, or added
    /// pages cover its positions. Positions at or behind the reported total need no cover when the
    /// page starts before it; a count of 0 only answers to its very page.
    bool isPageLoaded(FilterInternal filter) const;
    /// Whether every position of the page before the total is held. See `addItems`.
    bool isPageCurrent(const FilterInternal& filter) const;
    /// The position of an entry of that id in the service's listing, if it stands at one that is
    /// held.
    std::optional<unsigned long> heldPositionOf(unsigned long id) const;
    /// Takes every position's hold away, for a change that the directory was not told of.
    void invalidate();

    /// Records a delivered page.
    void addPage(unsigned long offset, unsigned long count);
    using QueryResult::totalCount;
    /// Records the total that came with the page.
    void totalCount(unsigned long total);
    /// Places a delivery at its offset and holds its positions. The page is as long as the one that
    /// was added last, if that had this offset, else as the delivery. What stood in it and is not
    /// delivered again leaves; with `Folders` or `Documents` only entries of that kind leave, and
    /// folders stand before documents. An empty pointer keeps its position. An entry that stands
    /// elsewhere moves here. What is delivered beyond the page replaces nothing there.
    void addItems(unsigned long offset, std::vector<std::shared_ptr<Item>> items,
                  PagePart part = PagePart::Whole);
    /// A local addition, which has no position in the service's listing: to the front when `flag`
    /// is set, else to the end. Directly after `removeItemByName` and with the flag set it takes
    /// the vacated place instead. An entry already present stays where it is; an empty pointer is
    /// ignored.
    void addItem(std::shared_ptr<Item> item, bool flag);
    /// Removes every occurrence of `id`; what stands behind moves up. An unknown id is a no-op.
    void removeItem(unsigned long id);
    /// Removes this very entry or else the first one of its name. False, and nothing changed, when
    /// there is none or the pointer is empty.
    bool removeItemByName(std::shared_ptr<Item> item);
    /// Undoes a removal: puts an entry back to the position that `heldPositionOf` told before; what
    /// stands from there on moves down. The position is not held, since others may have left or
    /// come meanwhile. An entry already present stays where it is; an empty pointer is ignored.
    void restoreItem(std::shared_ptr<Item> item, unsigned long position);

    /// Does what `removeItemByName(item)` and, with its result or `flag`, `addItem` do.
    void replaceItem(const std::shared_ptr<Item>& item, bool flag);

  private:
    FilterInternal _filter;
};

}  // namespace Ormek
