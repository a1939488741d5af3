#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "model/Item.h"
#include "service/Document.h"

namespace Ormek::Bench {

constexpr unsigned long PageSize = 100;

/// Records as a service delivers them: ids random, names of 30 letters in the order of their
/// positions, each with a type, an access row and one key value. A folder has 10,000 of them, or
/// all when there are fewer.
class Corpus {
  public:
    static constexpr std::size_t LargestFolder = 10'000;

    /// The same for the same arguments.
    explicit Corpus(std::size_t entries, std::size_t largestFolder = LargestFolder);

    std::size_t size() const { return _ids.size(); }
    std::size_t folders() const { return _folderIds.size(); }
    std::size_t entriesPerFolder() const { return _ids.size() / _folderIds.size(); }
    std::size_t pagesPerFolder() const { return entriesPerFolder() / PageSize; }

    unsigned long folderId(std::size_t folder) const { return _folderIds[folder]; }
    unsigned long id(std::size_t folder, std::size_t position) const {
        return _ids[folder * entriesPerFolder() + position];
    }
    /// Every id, in random order.
    std::vector<unsigned long> shuffledIds() const;

    Nimra::Document record(std::size_t folder, std::size_t position) const;
    std::vector<Nimra::Document> page(std::size_t folder, std::size_t page) const;

    /// Calls `visit(folder, page)` in the order in which a client that shows many folders at once
    /// would load them, so that what belongs to one folder is scattered over the memory.
    template <class Visit>
    void interleaved(Visit visit) const {
        for (std::size_t page = 0; page < pagesPerFolder(); ++page) {
            for (std::size_t folder = 0; folder < folders(); ++folder) {
                visit(folder, page);
            }
        }
    }

  private:
    std::vector<unsigned long> _folderIds;
    std::vector<unsigned long> _ids;
};

/// A name of 30 letters that stands in the order of positions.
std::string nameAt(std::size_t position);

/// What the cache makes of a record.
std::shared_ptr<Item> entryOf(const Nimra::Document& record);

/// So many numbers below `limit`, to go round in; the same for the same arguments.
std::vector<std::size_t> randomNumbers(std::size_t count, std::size_t limit);

}  // namespace Ormek::Bench
