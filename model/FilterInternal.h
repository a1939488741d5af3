#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "model/Filter.h"

namespace Ormek {

class Item;

/// A listing query as the cache sees it: a `Filter`, the folders it is about, and what it takes to
/// recognise the directory that answers it. A value.
class FilterInternal : public Filter {
  public:
    FilterInternal() = default;
    explicit FilterInternal(const Filter& filter) : Filter(filter) {}

    /// Ids of the folders whose entries are listed.
    std::vector<unsigned long> getDataId() const { return _dataId; }
    /// The same without a copy.
    const std::vector<unsigned long>& dataIds() const { return _dataId; }
    /// The user whose listing it is.
    unsigned long getUserId() const { return _userId; }
    std::string getGroup() const { return _group; }
    std::string getPath() const { return _path; }
    std::string getUrl() const { return _url; }
    std::map<std::string, std::string> getTagLabels() const { return _tagLabels; }
    /// The data types that the query covers, ascending; empty when none was named.
    std::vector<std::int32_t> getDataTypes();
    /// The order map as "key:value" pairs, keys as numbers in ascending order, joined by commas.
    std::string order() const { return renderOrder(); }

    void setDataId(std::vector<unsigned long> ids) { _dataId = std::move(ids); }
    void setUserId(unsigned long id) { _userId = id; }
    void setGroup(std::string group) { _group = std::move(group); }
    void setPath(std::string path) { _path = std::move(path); }
    void setUrl(std::string url) { _url = std::move(url); }
    void setTagLabels(std::map<std::string, std::string> labels) { _tagLabels = std::move(labels); }
    /// Replaces the set of data types. Throws std::invalid_argument, and changes nothing, when one
    /// is outside 0…31.
    void setDataTypes(const std::vector<std::int32_t>& types);

    /// Whether both filters describe the same listing. Offset, count, by-pass flag, companion and
    /// `contextId` do not take part; the user does, so that one user's listing never answers
    /// another's.
    bool equals(FilterInternal other) const { return sameListing(other); }
    /// The same without a copy.
    bool sameListing(const FilterInternal& other) const;
    /// Whether `id` is among the data ids.
    bool matchesDataId(unsigned long id) const;
    /// Whether an entry belongs to this listing, as far as the entry alone can tell: its parent is
    /// among the data ids, its type fits (4, 8 and 16 restrict; an entry of type 0 is judged by
    /// its kind), it is not deleted or deleted ones are asked for, and its name contains the
    /// search text, byte for byte. A filter by path, url, group or tag labels matches nothing.
    bool matchesQuery(const Item& item) const;

  private:
    std::uint32_t restrictingTypes() const;

    std::vector<unsigned long> _dataId;

  public:
    /// Passed on to the service unchanged.
    bool serviceFlag = false;

  private:
    std::uint32_t _dataTypes = 0;  // Bit n stands for data type n.

  public:
    /// The server id that must be known before a load may be sent, usually the folder's; 0 while
    /// it is not, and the load is parked.
    unsigned long contextId = 0;

  private:
    std::map<std::string, std::string> _tagLabels;
    std::string _group;
    std::string _path;
    std::string _url;
    std::string _spareText;
    bool _spareFlag = false;
    std::string _lastSpareText;
    unsigned long _userId = 0;
};

}  // namespace Ormek
