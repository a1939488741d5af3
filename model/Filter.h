#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/FilterOrder.h"

namespace Ormek {

/// The public description of a listing query: a page, a data type, a search text, and how to sort.
/// A value; copies are deep but for the companion, which is shared.
///
/// A fresh filter asks for nothing (count 0) of any type, ascending, containers first, without
/// deleted entries, and lets the cache answer.
class Filter {
  public:
    /// Index of the page's first entry.
    std::uint32_t getOffset() const { return _offset; }
    /// Number of entries asked for.
    std::uint32_t getCount() const { return _count; }
    /// 0 for folders and documents; 4, 8 or 16 for documents, folders or key-value entries alone.
    std::int32_t getDataType() const { return _dataType; }
    /// Search text; empty finds everything.
    std::string getQuery() const { return _query; }
    bool getAscending() const { return flag(Ascending); }
    bool getContainerFirst() const { return flag(ContainerFirst); }
    /// Whether deleted entries are listed too.
    bool getDeleted() const { return flag(Deleted); }
    /// Whether the data service is asked even if the page is held.
    bool getByPassCache() const { return _byPassCache; }

    void setOffset(std::uint32_t offset) { _offset = offset; }
    void setCount(std::uint32_t count) { _count = count; }
    /// Throws std::invalid_argument outside 0…31.
    void setDataType(std::int32_t type);
    void setQuery(std::string text) { _query = std::move(text); }
    void setAscending(bool on) { flag(Ascending, on); }
    void setContainerFirst(bool on) { flag(ContainerFirst, on); }
    void setDeleted(bool on) { flag(Deleted, on); }
    void setByPassCache(bool on) { _byPassCache = on; }
    /// The value is free text, such as "asc" or "desc".
    void setOrder(std::map<FilterOrder, std::string> order) { _order = std::move(order); }

  protected:
    /// Throws std::invalid_argument outside 0…31.
    static void checkDataType(std::int32_t type);
    /// The order map as "key:value" pairs, keys as numbers in ascending order, joined by commas.
    std::string renderOrder() const;
    /// Whether both describe the same listing; page, by-pass flag and companion do not take part.
    bool sameListing(const Filter& other) const;
    bool nameContainsQuery(std::string_view name) const;

  private:
    enum Flag : std::uint32_t { Ascending = 1, ContainerFirst = 2, Deleted = 4 };

    bool flag(Flag bit) const { return (_flags & bit) != 0; }
    void flag(Flag bit, bool on) { _flags = on ? (_flags | bit) : (_flags & ~bit); }

    std::map<FilterOrder, std::string> _order;
    std::uint32_t _offset = 0;
    std::uint32_t _count = 0;
    std::int32_t _dataType = 0;
    std::string _query;
    std::uint32_t _flags = Ascending | ContainerFirst;
    std::string _spareText;
    bool _byPassCache = false;
    std::shared_ptr<void> _companion;
    std::vector<std::array<std::string, 3>> _records;
};

}  // namespace Ormek
