#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Ormek::Testing {

/// A service that lists its entries by name, namesakes in the order they came in, and hands them
/// out by offset and count: what a result set has to keep up with.
class ListingServer {
  public:
    struct Record {
        unsigned long id;
        std::string name;
    };

    unsigned long total() const { return _records.size(); }
    const std::vector<Record>& records() const { return _records; }

    std::vector<Record> page(unsigned long offset, unsigned long count) const {
        const std::size_t begin = std::min<std::size_t>(offset, _records.size());
        const std::size_t length = std::min<std::size_t>(count, _records.size() - begin);
        const auto first = _records.begin() + static_cast<std::ptrdiff_t>(begin);
        return {first, first + static_cast<std::ptrdiff_t>(length)};
    }

    /// Behind its namesakes.
    void add(unsigned long id, std::string name) {
        const auto place = std::upper_bound(
            _records.begin(), _records.end(), name,
            [](const std::string& wanted, const Record& record) { return wanted < record.name; });
        _records.insert(place, {id, std::move(name)});
    }

    /// Another entry of that name takes the place of this one. Whether there was one to replace.
    bool replace(unsigned long id, unsigned long other) {
        const auto place = std::find_if(_records.begin(), _records.end(),
                                        [id](const Record& record) { return record.id == id; });
        if (place == _records.end()) {
            return false;
        }
        place->id = other;
        return true;
    }

    /// Whether there was one to remove.
    bool remove(unsigned long id) {
        return std::erase_if(_records, [id](const Record& record) { return record.id == id; }) != 0;
    }

    /// Whether there was one to rename.
    bool rename(unsigned long id, std::string name) {
        if (!remove(id)) {
            return false;
        }
        add(id, std::move(name));
        return true;
    }

  private:
    std::vector<Record> _records;
};

}  // namespace Ormek::Testing
