#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "model/FilterInternal.h"
#include "model/Item.h"
#include "model/Listing.h"

namespace Ormek {

/// One directory: the entries that answer one filter, as far as they have been loaded, and the
/// total that the service reported.
///
/// Entries stand by position in the service's listing and are shared with the cache. A result set
/// may be read while another thread edits it: it has a mutex of its own, under which it asks its
/// entries for id, name and type, and calls nobody else.
class QueryResult {
  public:
    QueryResult();
    /// A copy with the same entries, pages and total. One that is copied from a
    /// `QueryResultInternal` remembers its filter, so that a `QueryResultInternal` made from it is
    /// a whole copy.
    QueryResult(const QueryResult& other);
    QueryResult& operator=(const QueryResult& other);
    virtual ~QueryResult();

    /// Number of entries held.
    virtual unsigned long count() const;
    /// The total that the service reported last; 0 before the first report.
    virtual unsigned long totalCount() const;
    /// A snapshot of the entries in their order; never holds an empty pointer.
    virtual std::vector<std::shared_ptr<Item>> items() const;

    /// One page: the entries at the positions `offset` … `offset + count - 1` of the service's
    /// listing, without copying the rest; fewer where positions are vacant. Local additions at the
    /// front come with the page that starts at 0, those at the end with the page that reaches the
    /// end of the listing. The cost does not depend on the offset.
    std::vector<std::shared_ptr<Item>> page(unsigned long offset, unsigned long count) const;
    /// The first entry of exactly this name, or an empty pointer.
    std::shared_ptr<Item> itemByName(const std::string& name) const;
    /// Whether an entry of that id is held.
    bool contains(unsigned long id) const;

  private:
    friend class QueryResultInternal;

    // The filter of a directory that is being copied; null where there is none.
    std::shared_ptr<const FilterInternal> filterToRemember() const;
    Listing copyOfListing() const;

    mutable std::mutex _mutex;
    Listing _listing;
    std::shared_ptr<const FilterInternal> _rememberedFilter;
};

}  // namespace Ormek
