#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Ormek {

class Item;

/// Finds entries by a hash, several under one if need be: an open-addressing table with linear
/// probing and 16 bytes a cell. What it finds has to be checked, since what was hashed may have
/// changed in the entry since.
class ItemIndex {
  public:
    /// An entry and a number of the owner's choice.
    struct Cell {
        const Item* item;
        std::uint32_t hash;
        std::uint32_t number;
    };

    /// Makes room for so many more; insert() cannot fail for them. Changes nothing on failure.
    void reserve(std::size_t more);
    void insert(std::uint64_t hash, const Item* item, std::uint32_t number) noexcept;
    /// Takes out such a cell, also when another thread has just changed what was hashed; it only
    /// takes longer then. False when there is none.
    bool erase(std::uint64_t hash, const Item* item, std::uint32_t number) noexcept;
    /// Gives such a cell another number, with the same care.
    void renumber(std::uint64_t hash, const Item* item, std::uint32_t from,
                  std::uint32_t to) noexcept;
    /// Whether this entry has a cell.
    bool has(std::uint64_t hash, const Item* item) const {
        return find(hash, [item](const Cell& cell) { return cell.item == item; });
    }
    /// Moves all cells of this entry to another hash.
    void move(std::uint64_t from, const Item* item, std::uint64_t to) noexcept;
    void clear() noexcept;

    /// Calls `visit(cell)` for everything under a hash, until it returns true.
    template <class Visit>
    bool find(std::uint64_t hash, Visit visit) const {
        if (_cells.empty()) {
            return false;
        }
        const std::uint32_t folded = fold(hash);
        for (std::size_t at = home(folded); _cells[at].item; at = next(at)) {
            if (_cells[at].hash == folded && visit(_cells[at])) {
                return true;
            }
        }
        return false;
    }

  private:
    // The upper half of a product is the well-mixed one (Knuth, multiplicative hashing); its own
    // upper bits are mixed in, since the table looks at the lower ones.
    static std::uint32_t fold(std::uint64_t hash) {
        const std::uint64_t product = hash * 0x9E3779B97F4A7C15ULL;
        return static_cast<std::uint32_t>((product >> 32U) ^ (product >> 48U));
    }
    std::size_t home(std::uint32_t hash) const { return hash & (_cells.size() - 1); }
    std::size_t next(std::size_t at) const { return (at + 1) & (_cells.size() - 1); }
    void place(const Cell& cell) noexcept;
    Cell* search(std::uint64_t hash, const Item* item, std::uint32_t number) noexcept;
    void closeGap(std::size_t gap) noexcept;

    std::vector<Cell> _cells;  // A power of two of them; never full.
    std::size_t _used = 0;
};

}  // namespace Ormek
