#include "model/EntryList.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "model/ItemInternal.h"

namespace Ormek {

namespace {

constexpr int KeyValueType = 16;

std::uint64_t hashOf(const Item& item) {
    const unsigned long id = item.id();
    return id != 0 ? id : reinterpret_cast<std::uintptr_t>(&item);
}

std::uint64_t hashOf(const std::string& name) { return std::hash<std::string>()(name); }

/// Whether a change of the entry's id or name would be counted.
bool countsItsChanges(const Item& item) {
    return dynamic_cast<const ItemInternal*>(&item) != nullptr;
}

}  // namespace

bool sameEntry(const Item& a, const Item& b) {
    if (&a == &b) {
        return true;
    }
    const unsigned long id = a.id();
    return id != 0 && id == b.id() && a.type() != KeyValueType && b.type() != KeyValueType;
}

EntryList::EntryList(const EntryList& other)
    : _chunks(other._chunks), _lastNumber(other._lastNumber), _size(other._size) {
    _byId.reserve(_size);
    rebuildIndex();
}

EntryList& EntryList::operator=(const EntryList& other) {
    if (this != &other) {
        *this = EntryList(other);
    }
    return *this;
}

unsigned long EntryList::end() const {
    unsigned long position = 0;
    for (const Chunk& chunk : _chunks) {
        position += chunk.gap + chunk.slots.size();
    }
    return position;
}

std::optional<EntryList::Place> EntryList::find(unsigned long position) const noexcept {
    unsigned long start = 0;
    for (std::size_t index = 0; index < _chunks.size(); ++index) {
        const Chunk& chunk = _chunks[index];
        start += chunk.gap;
        if (position < start) {
            return std::nullopt;
        }
        if (position - start < chunk.slots.size()) {
            return Place{index, position - start};
        }
        start += chunk.slots.size();
    }
    return std::nullopt;
}

const EntryList::Entry* EntryList::at(unsigned long position) const {
    const auto place = find(position);
    if (!place) {
        return nullptr;
    }
    const Entry& entry = _chunks[place->chunk].slots[place->slot];
    return entry ? &entry : nullptr;
}

void EntryList::copyTo(std::vector<Entry>& target, unsigned long begin, unsigned long end) const {
    unsigned long start = 0;
    for (const Chunk& chunk : _chunks) {
        start += chunk.gap;
        if (start >= end) {
            return;
        }
        const unsigned long size = chunk.slots.size();
        const unsigned long last = std::min(size, end - start);
        for (unsigned long slot = begin > start ? begin - start : 0; slot < last; ++slot) {
            if (chunk.slots[slot]) {
                target.push_back(chunk.slots[slot]);
            }
        }
        start += size;
    }
}

// --- Editing -------------------------------------------------------------------------------

void EntryList::reserve(unsigned long begin, unsigned long end, unsigned long more) {
    _byId.reserve(end - begin + more);
    fillGap(begin, end);
}

// Makes vacant slots of all positions that are in no chunk yet.
void EntryList::fillGap(unsigned long begin, unsigned long end) {
    std::size_t index = 0;
    unsigned long chunkEnd = 0;  // Of the chunk before `index`.
    while (begin < end) {
        while (index < _chunks.size() && chunkEnd + _chunks[index].gap <= begin) {
            chunkEnd += _chunks[index].gap + _chunks[index].slots.size();
            ++index;
        }
        if (begin < chunkEnd) {
            begin = chunkEnd;
            continue;
        }
        const bool isLast = index == _chunks.size();
        const unsigned long gapEnd = isLast ? end : std::min(end, chunkEnd + _chunks[index].gap);
        const bool adjoins = index > 0 && chunkEnd == begin;
        const std::size_t room =
            adjoins ? ChunkSize - std::min(ChunkSize, _chunks[index - 1].slots.size()) : 0;
        const unsigned long count =
            std::min<unsigned long>(gapEnd - begin, room ? room : ChunkSize);
        const unsigned long gap = begin - chunkEnd;
        if (room) {
            std::vector<Entry>& slots = _chunks[index - 1].slots;
            slots.resize(slots.size() + count);
        } else {
            Chunk chunk{gap, _lastNumber + 1, std::vector<Entry>(count)};
            _chunks.insert(_chunks.begin() + static_cast<std::ptrdiff_t>(index), std::move(chunk));
            ++_lastNumber;
            ++index;
        }
        if (!isLast) {
            _chunks[index].gap -= gap + count;
        }
        chunkEnd = begin += count;
    }
}

void EntryList::put(unsigned long position, Entry entry) noexcept {
    const Place place = *find(position);
    Chunk& chunk = _chunks[place.chunk];
    link(entry, chunk.number);
    chunk.slots[place.slot] = std::move(entry);
    ++_size;
}

EntryList::Entry EntryList::take(unsigned long position) noexcept {
    const auto place = find(position);
    if (!place) {
        return nullptr;
    }
    Chunk& chunk = _chunks[place->chunk];
    Entry entry = std::move(chunk.slots[place->slot]);
    if (entry) {
        unlink(entry, chunk.number);
        --_size;
    }
    return entry;
}

EntryList::Entry EntryList::erase(unsigned long position) noexcept {
    Entry entry = take(position);
    unsigned long start = 0;
    for (std::size_t index = 0; index < _chunks.size(); ++index) {
        Chunk& chunk = _chunks[index];
        if (position - start < chunk.gap) {
            --chunk.gap;
            return entry;
        }
        start += chunk.gap;
        if (position - start < chunk.slots.size()) {
            chunk.slots.erase(chunk.slots.begin() + static_cast<std::ptrdiff_t>(position - start));
            dropChunkIfEmpty(index);
            return entry;
        }
        start += chunk.slots.size();
    }
    return entry;
}

void EntryList::dropChunkIfEmpty(std::size_t chunk) noexcept {
    if (!_chunks[chunk].slots.empty()) {
        return;
    }
    if (chunk + 1 < _chunks.size()) {
        _chunks[chunk + 1].gap += _chunks[chunk].gap;
    }
    _chunks.erase(_chunks.begin() + static_cast<std::ptrdiff_t>(chunk));
}

void EntryList::insert(unsigned long position, Entry entry) {
    _byId.reserve(1);
    unsigned long start = 0;
    for (Chunk& chunk : _chunks) {
        start += chunk.gap;
        // At the end of a chunk rather than at the start of the next one, so that what is taken out
        // and put back, entry by entry, does not gather in one chunk.
        const bool inside = position >= start && position - start < chunk.slots.size();
        const bool atEnd = position >= start && position - start == chunk.slots.size();
        if (inside || (atEnd && chunk.slots.size() < 2 * ChunkSize)) {
            const auto before = chunk.slots.begin() + static_cast<std::ptrdiff_t>(position - start);
            link(*chunk.slots.insert(before, std::move(entry)), chunk.number);
            ++_size;
            return;
        }
        start += chunk.slots.size();
    }
    // In a gap, which goes on behind the new position as long as it was before.
    fillGap(position, position + 1);
    put(position, std::move(entry));
    const std::size_t next = find(position)->chunk + 1;
    if (next < _chunks.size()) {
        ++_chunks[next].gap;
    }
}

void EntryList::vacate(unsigned long begin, unsigned long end) noexcept {
    unsigned long start = 0;
    for (Chunk& chunk : _chunks) {
        start += chunk.gap;
        if (start >= end) {
            return;
        }
        const unsigned long last = std::min<unsigned long>(chunk.slots.size(), end - start);
        for (unsigned long slot = begin > start ? begin - start : 0; slot < last; ++slot) {
            if (chunk.slots[slot]) {
                unlink(chunk.slots[slot], chunk.number);
                chunk.slots[slot].reset();
                --_size;
            }
        }
        start += chunk.slots.size();
    }
}

void EntryList::truncate(unsigned long position) noexcept {
    unsigned long start = end();
    while (!_chunks.empty() && start > position) {
        Chunk& chunk = _chunks.back();
        start -= chunk.slots.size();
        const std::size_t kept = position > start ? position - start : 0;
        for (std::size_t slot = kept; slot < chunk.slots.size(); ++slot) {
            if (chunk.slots[slot]) {
                unlink(chunk.slots[slot], chunk.number);
                --_size;
            }
        }
        if (kept != 0) {
            chunk.slots.erase(chunk.slots.begin() + static_cast<std::ptrdiff_t>(kept),
                              chunk.slots.end());
            return;
        }
        start -= chunk.gap;
        _chunks.pop_back();
    }
}

// --- Finding -------------------------------------------------------------------------------

void EntryList::link(const Entry& entry, std::uint32_t number) noexcept {
    _byId.insert(hashOf(*entry), entry.get(), number);
    const bool counted = countsItsChanges(*entry);
    _idsAreFixed = _idsAreFixed && counted && entry->id() != 0;
    if (!_byName) {
        return;
    }
    try {
        const std::string name = entry->name();
        _byName->reserve(1);
        _byName->insert(hashOf(name), entry.get(), number);
        _namesAreFixed = _namesAreFixed && counted && !name.empty();
    } catch (...) {
        _byName.reset();
    }
}

// A cell that is missed here goes when the index is rebuilt, which a changed id or name calls for
// before anything is looked up again.
void EntryList::unlink(const Entry& entry, std::uint32_t number) noexcept {
    _byId.erase(hashOf(*entry), entry.get(), number);
    if (!_byName) {
        return;
    }
    try {
        if (!_byName->erase(hashOf(entry->name()), entry.get(), number)) {
            _byName.reset();
        }
    } catch (...) {
        _byName.reset();
    }
}

void EntryList::trustIndex() const noexcept {
    if (!_idsAreFixed || _idChanges != ItemInternal::idChanges()) {
        rebuildIndex();
    }
}

void EntryList::rebuildIndex() const noexcept {
    _byId.clear();
    _idChanges = ItemInternal::idChanges();
    _idsAreFixed = true;
    for (const Chunk& chunk : _chunks) {
        for (const Entry& entry : chunk.slots) {
            if (entry) {
                _byId.insert(hashOf(*entry), entry.get(), chunk.number);
                _idsAreFixed = _idsAreFixed && entry->id() != 0 && countsItsChanges(*entry);
            }
        }
    }
}

void EntryList::indexNames() const {
    if (_byName && _namesAreFixed && _nameChanges == ItemInternal::nameChanges()) {
        return;
    }
    // Nothing of it counts before all of it is there.
    ItemIndex index;
    index.reserve(_size);
    const unsigned long nameChanges = ItemInternal::nameChanges();
    bool namesAreFixed = true;
    for (const Chunk& chunk : _chunks) {
        for (const Entry& entry : chunk.slots) {
            if (entry) {
                const std::string name = entry->name();
                index.insert(hashOf(name), entry.get(), chunk.number);
                namesAreFixed = namesAreFixed && !name.empty() && countsItsChanges(*entry);
            }
        }
    }
    _byName = std::move(index);
    _nameChanges = nameChanges;
    _namesAreFixed = namesAreFixed;
}

void EntryList::addPositions(const Item* item, std::uint32_t number,
                             std::vector<unsigned long>& positions) const {
    unsigned long start = 0;
    for (const Chunk& chunk : _chunks) {
        start += chunk.gap;
        if (chunk.number == number) {
            for (std::size_t slot = 0; slot < chunk.slots.size(); ++slot) {
                if (chunk.slots[slot].get() == item) {
                    positions.push_back(start + slot);
                }
            }
            return;
        }
        start += chunk.slots.size();
    }
}

template <class Wanted>
void EntryList::collect(std::uint64_t hash, Wanted wanted,
                        std::vector<unsigned long>& positions) const {
    trustIndex();
    _byId.find(hash, [&](const ItemIndex::Cell& cell) {
        if (wanted(*cell.item)) {
            addPositions(cell.item, cell.number, positions);
        }
        return false;
    });
    // An entry that stands twice in one chunk was found twice for each of its cells.
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
}

std::vector<unsigned long> EntryList::positionsOf(const Item& entry) const {
    std::vector<unsigned long> positions;
    collect(
        hashOf(entry), [&](const Item& other) { return sameEntry(other, entry); }, positions);
    return positions;
}

std::vector<unsigned long> EntryList::positionsOfId(unsigned long id) const {
    std::vector<unsigned long> positions;
    collect(
        id, [id](const Item& other) { return other.id() == id; }, positions);
    return positions;
}

bool EntryList::contains(const Item& entry) const noexcept {
    trustIndex();
    return _byId.find(hashOf(entry),
                      [&](const ItemIndex::Cell& cell) { return sameEntry(*cell.item, entry); });
}

std::optional<unsigned long> EntryList::firstOfName(const std::string& name) const {
    indexNames();
    std::vector<unsigned long> positions;
    _byName->find(hashOf(name), [&](const ItemIndex::Cell& cell) {
        if (cell.item->name() == name) {
            addPositions(cell.item, cell.number, positions);
        }
        return false;
    });
    if (positions.empty()) {
        return std::nullopt;
    }
    return *std::min_element(positions.begin(), positions.end());
}

}  // namespace Ormek
