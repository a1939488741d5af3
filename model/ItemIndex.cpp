#include "model/ItemIndex.h"

#include <algorithm>
#include <utility>

namespace Ormek {

namespace {

constexpr std::size_t SmallestTable = 16;
constexpr ItemIndex::Cell EmptyCell{nullptr, 0, 0};

}  // namespace

void ItemIndex::reserve(std::size_t more) {
    // At most four fifths full.
    std::size_t size = std::max(_cells.size(), SmallestTable);
    while ((_used + more) * 5 > size * 4) {
        size *= 2;
    }
    if (size == _cells.size()) {
        return;
    }
    std::vector<Cell> larger(size, EmptyCell);
    std::swap(_cells, larger);
    for (const Cell& cell : larger) {
        if (cell.item) {
            place(cell);
        }
    }
}

void ItemIndex::insert(std::uint64_t hash, const Item* item, std::uint32_t number) noexcept {
    place({item, fold(hash), number});
    ++_used;
}

void ItemIndex::place(const Cell& cell) noexcept {
    std::size_t at = home(cell.hash);
    while (_cells[at].item) {
        at = next(at);
    }
    _cells[at] = cell;
}

// Looks at all of them where there is none under this hash.
ItemIndex::Cell* ItemIndex::search(std::uint64_t hash, const Item* item,
                                   std::uint32_t number) noexcept {
    std::size_t at = 0;
    const auto isWanted = [&](const Cell& cell) {
        at = static_cast<std::size_t>(&cell - _cells.data());
        return cell.item == item && cell.number == number;
    };
    const bool found = find(hash, isWanted) || std::any_of(_cells.begin(), _cells.end(), isWanted);
    return found ? &_cells[at] : nullptr;
}

bool ItemIndex::erase(std::uint64_t hash, const Item* item, std::uint32_t number) noexcept {
    const Cell* cell = search(hash, item, number);
    if (cell) {
        closeGap(static_cast<std::size_t>(cell - _cells.data()));
        --_used;
    }
    return cell;
}

void ItemIndex::renumber(std::uint64_t hash, const Item* item, std::uint32_t from,
                         std::uint32_t to) noexcept {
    if (Cell* cell = search(hash, item, from)) {
        cell->number = to;
    }
}

void ItemIndex::move(std::uint64_t from, const Item* item, std::uint64_t to) noexcept {
    if (fold(from) == fold(to)) {
        return;
    }
    const auto moveOne = [&](const Cell& cell) {
        if (cell.item != item) {
            return false;
        }
        const std::uint32_t number = cell.number;
        closeGap(static_cast<std::size_t>(&cell - _cells.data()));
        place({item, fold(to), number});
        return true;
    };
    while (find(from, moveOne)) {
    }
}

// Moves up what could not be found any more behind an empty cell.
void ItemIndex::closeGap(std::size_t gap) noexcept {
    for (std::size_t at = next(gap); _cells[at].item; at = next(at)) {
        const std::size_t mask = _cells.size() - 1;
        const std::size_t distanceFromHome = (at - home(_cells[at].hash)) & mask;
        if (distanceFromHome >= ((at - gap) & mask)) {
            _cells[gap] = _cells[at];
            gap = at;
        }
    }
    _cells[gap] = EmptyCell;
}

void ItemIndex::clear() noexcept {
    std::fill(_cells.begin(), _cells.end(), EmptyCell);
    _used = 0;
}

}  // namespace Ormek
