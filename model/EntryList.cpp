#include "model/EntryList.h"

#include <algorithm>
#include <new>
#include <utility>

#include "model/MakeRoom.h"
#include "model/WriteSide.h"

namespace Ormek {

namespace {

constexpr int KeyValueType = 16;

/// Entries that do not tell of their changes are all found under this one.
constexpr std::uint64_t SilentHash = 0x5bd1e9955bd1e995ULL;

std::uint64_t idHashOf(const Item& item) {
    return writeSide(item) ? ItemInternal::idHash(item, item.id()) : SilentHash;
}

std::uint64_t nameHashOf(const Item& item) {
    const ItemInternal* internal = writeSide(item);
    return internal ? ItemInternal::nameHash(internal->nameView()) : SilentHash;
}

template <class Element>
auto iteratorAt(std::vector<Element>& elements, std::size_t index) {
    return elements.begin() + static_cast<std::ptrdiff_t>(index);
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
    : _chunks(other._chunks),
      _starts(other._starts),
      _places(other._places),
      _size(other._size),
      _silent(other._silent) {
    _unused.reserve(_places.size());
    _unused = other._unused;
    _byId.reserve(_size);
    rebuildIds();
}

EntryList& EntryList::operator=(const EntryList& other) {
    if (this != &other) {
        *this = EntryList(other);
    }
    return *this;
}

unsigned long EntryList::end() const { return _chunks.empty() ? 0 : endOf(_chunks.size() - 1); }

std::size_t EntryList::firstChunkBehind(unsigned long position) const noexcept {
    const auto behind = std::upper_bound(_starts.begin(), _starts.end(), position);
    return static_cast<std::size_t>(behind - _starts.begin());
}

std::optional<EntryList::Place> EntryList::find(unsigned long position) const noexcept {
    const std::size_t behind = firstChunkBehind(position);
    if (behind == 0 || !liesIn(behind - 1, position)) {
        return std::nullopt;
    }
    return Place{behind - 1, position - _starts[behind - 1]};
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
    const std::size_t behind = firstChunkBehind(begin);
    for (std::size_t index = behind == 0 ? 0 : behind - 1; index < _chunks.size(); ++index) {
        const unsigned long start = _starts[index];
        if (start >= end) {
            return;
        }
        const std::vector<Entry>& slots = _chunks[index].slots;
        const unsigned long last = std::min<unsigned long>(slots.size(), end - start);
        for (unsigned long slot = begin > start ? begin - start : 0; slot < last; ++slot) {
            if (slots[slot]) {
                target.push_back(slots[slot]);
            }
        }
    }
}

// --- Chunks --------------------------------------------------------------------------------

void EntryList::insertChunk(std::size_t index, unsigned long start, std::vector<Entry> slots) {
    makeRoom(_chunks);
    makeRoom(_starts);
    if (_unused.empty()) {
        makeRoom(_places);
        _unused.reserve(_places.capacity());
        _unused.push_back(static_cast<std::uint32_t>(_places.size()));
        _places.push_back(0);
    }
    // Nothing fails from here on.
    const std::uint32_t number = _unused.back();
    _unused.pop_back();
    _chunks.insert(iteratorAt(_chunks, index), Chunk{number, std::move(slots)});
    _starts.insert(iteratorAt(_starts, index), start);
    for (; index < _chunks.size(); ++index) {
        _places[_chunks[index].number] = static_cast<std::uint32_t>(index);
    }
}

// The only chunk is emptied instead: it keeps the room that was made in it.
void EntryList::dropChunk(std::size_t chunk) noexcept {
    if (_chunks.size() == 1) {
        _chunks.front().slots.clear();
        _starts.front() = 0;
        return;
    }
    _unused.push_back(_chunks[chunk].number);
    _chunks.erase(iteratorAt(_chunks, chunk));
    _starts.erase(iteratorAt(_starts, chunk));
    for (; chunk < _chunks.size(); ++chunk) {
        _places[_chunks[chunk].number] = static_cast<std::uint32_t>(chunk);
    }
}

// Into halves. Room that was reserved for more entries is there in both.
void EntryList::split(std::size_t chunk) {
    const std::size_t kept = _chunks[chunk].slots.size() / 2;
    std::vector<Entry> half;
    half.reserve(_chunks[chunk].slots.capacity() - kept);
    insertChunk(chunk + 1, _starts[chunk] + kept, std::move(half));
    // Nothing fails from here on.
    followChanges();
    Chunk& from = _chunks[chunk];
    Chunk& to = _chunks[chunk + 1];
    for (std::size_t slot = kept; slot < from.slots.size(); ++slot) {
        Entry& entry = from.slots[slot];
        if (entry) {
            _byId.renumber(idHashOf(*entry), entry.get(), from.number, to.number);
            if (_byName) {
                _byName->renumber(nameHashOf(*entry), entry.get(), from.number, to.number);
            }
        }
        to.slots.push_back(std::move(entry));
    }
    from.slots.resize(kept);
}

// Moves the chunks from this one on by one position.
void EntryList::moveFrom(std::size_t chunk, bool up) noexcept {
    for (; chunk < _starts.size(); ++chunk) {
        _starts[chunk] += up ? -1UL : 1UL;
    }
}

// Makes vacant slots of all positions that are in no chunk yet.
void EntryList::fillGap(unsigned long begin, unsigned long end) {
    while (begin < end) {
        const std::size_t behind = firstChunkBehind(begin);
        const unsigned long before = behind == 0 ? 0 : endOf(behind - 1);
        if (begin < before) {
            begin = before;
            continue;
        }
        const bool isLast = behind == _chunks.size();
        const unsigned long gap = (isLast ? end : std::min(end, _starts[behind])) - begin;
        const bool adjoins = behind > 0 && before == begin;
        const std::size_t size = adjoins ? _chunks[behind - 1].slots.size() : ChunkSize;
        if (size < ChunkSize) {
            const unsigned long count = std::min<unsigned long>(gap, ChunkSize - size);
            std::vector<Entry>& slots = _chunks[behind - 1].slots;
            slots.reserve(size == 0 ? count : ChunkSize);
            slots.resize(size + count);
        } else {
            const unsigned long count = std::min<unsigned long>(gap, ChunkSize);
            insertChunk(behind, begin, std::vector<Entry>(count));
        }
    }
}

// --- Editing -------------------------------------------------------------------------------

void EntryList::reserve(unsigned long begin, unsigned long end, unsigned long more) {
    _byId.reserve(end - begin + more);
    fillGap(begin, end);
}

void EntryList::reserveInsertions(unsigned long more) {
    _byId.reserve(more);
    if (_chunks.empty()) {
        insertChunk(0, 0, {});
    }
    for (Chunk& chunk : _chunks) {
        chunk.slots.reserve(chunk.slots.size() + more);
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
    Entry& slot = chunk.slots[place->slot];
    if (slot) {
        unlink(slot, chunk.number);
        --_size;
    }
    return std::exchange(slot, nullptr);
}

EntryList::Entry EntryList::erase(unsigned long position) noexcept {
    Entry entry = take(position);
    const std::size_t behind = firstChunkBehind(position);
    moveFrom(behind, true);
    if (behind > 0 && liesIn(behind - 1, position)) {
        std::vector<Entry>& slots = _chunks[behind - 1].slots;
        slots.erase(iteratorAt(slots, position - _starts[behind - 1]));
        if (slots.empty()) {
            dropChunk(behind - 1);
        }
    }
    return entry;
}

// The chunk that a position lies in or directly behind. Between two chunks it is the first one
// while that has room, so that what is taken out and put back, entry by entry, does not gather in
// one.
std::optional<std::size_t> EntryList::chunkToInsertInto(unsigned long position) const noexcept {
    const std::size_t behind = firstChunkBehind(position);
    if (behind == 0 || position > endOf(behind - 1)) {
        return std::nullopt;
    }
    const bool between = behind > 1 && position == _starts[behind - 1] &&
                         position == endOf(behind - 2) &&
                         _chunks[behind - 2].slots.size() < LargestChunk;
    return between ? behind - 2 : behind - 1;
}

void EntryList::makeSmaller(std::size_t chunk, unsigned long position) {
    if (position < endOf(chunk)) {
        split(chunk);
        return;
    }
    const std::vector<Entry>& slots = _chunks[chunk].slots;
    std::vector<Entry> next;
    next.reserve(std::max(ChunkSize, slots.capacity() - slots.size()));
    insertChunk(chunk + 1, position, std::move(next));
}

void EntryList::insert(unsigned long position, Entry entry) {
    _byId.reserve(1);
    std::optional<std::size_t> index = chunkToInsertInto(position);
    if (index && _chunks[*index].slots.size() >= LargestChunk) {
        try {
            makeSmaller(*index, position);
        } catch (const std::bad_alloc&) {
            // It may grow beyond its size where there is room.
        }
        index = chunkToInsertInto(position);
    }
    if (index) {
        Chunk& chunk = _chunks[*index];
        const auto before = iteratorAt(chunk.slots, position - _starts[*index]);
        link(*chunk.slots.insert(before, std::move(entry)), chunk.number);
        ++_size;
        moveFrom(*index + 1, false);
        return;
    }
    // In a gap, which goes on behind the new position as long as it was before.
    fillGap(position, position + 1);
    put(position, std::move(entry));
    moveFrom(firstChunkBehind(position), false);
}

void EntryList::vacate(unsigned long begin, unsigned long end) noexcept {
    const std::size_t behind = firstChunkBehind(begin);
    for (std::size_t index = behind == 0 ? 0 : behind - 1; index < _chunks.size(); ++index) {
        const unsigned long start = _starts[index];
        if (start >= end) {
            return;
        }
        Chunk& chunk = _chunks[index];
        const unsigned long last = std::min<unsigned long>(chunk.slots.size(), end - start);
        for (unsigned long slot = begin > start ? begin - start : 0; slot < last; ++slot) {
            if (chunk.slots[slot]) {
                unlink(chunk.slots[slot], chunk.number);
                chunk.slots[slot].reset();
                --_size;
            }
        }
    }
}

void EntryList::replace(unsigned long begin, std::vector<Entry> entries) noexcept {
    const std::size_t behind = firstChunkBehind(begin);
    std::size_t chunk = behind == 0 ? 0 : behind - 1;
    for (Entry& entry : entries) {
        while (begin >= endOf(chunk)) {
            ++chunk;
        }
        Entry& slot = _chunks[chunk].slots[begin++ - _starts[chunk]];
        // What stands there already is the most frequent case, and nothing is to be done for it.
        if (slot == entry) {
            continue;
        }
        if (slot) {
            unlink(slot, _chunks[chunk].number);
            --_size;
        }
        slot = std::move(entry);
        if (slot) {
            link(slot, _chunks[chunk].number);
            ++_size;
        }
    }
}

void EntryList::truncate(unsigned long position) noexcept {
    vacate(position, end());
    while (!_chunks.empty() && end() > position) {
        const std::size_t last = _chunks.size() - 1;
        if (_starts[last] < position) {
            std::vector<Entry>& slots = _chunks[last].slots;
            slots.erase(iteratorAt(slots, position - _starts[last]), slots.end());
            return;
        }
        dropChunk(last);
    }
}

// --- Indexes -------------------------------------------------------------------------------

void EntryList::link(const Entry& entry, std::uint32_t number) noexcept {
    _byId.insert(idHashOf(*entry), entry.get(), number);
    _silent += writeSide(*entry) ? 0 : 1;
    if (!_byName) {
        return;
    }
    try {
        _byName->reserve(1);
        _byName->insert(nameHashOf(*entry), entry.get(), number);
    } catch (const std::bad_alloc&) {
        _byName.reset();
    }
}

void EntryList::unlink(const Entry& entry, std::uint32_t number) noexcept {
    followChanges();
    _byId.erase(idHashOf(*entry), entry.get(), number);
    _silent -= writeSide(*entry) ? 0 : 1;
    if (_byName) {
        _byName->erase(nameHashOf(*entry), entry.get(), number);
    }
}

void EntryList::followChanges() const noexcept {
    followIds();
    if (_byName && !follow(ItemInternal::nameChanges(), _nameChanges, *_byName, nameHashOf)) {
        _byName.reset();
    }
}

void EntryList::followIds() const noexcept {
    if (!follow(ItemInternal::idChanges(), _idChanges, _byId, idHashOf)) {
        rebuildIds();
    }
}

// False when making the index anew is less work, or the only way.
template <class HashOf>
bool EntryList::follow(const ChangeLog& log, unsigned long& seen, ItemIndex& index,
                       HashOf hashOf) const noexcept {
    const unsigned long count = log.count();
    if (count - seen > _size) {
        return false;
    }
    for (; seen != count; ++seen) {
        const auto change = log.at(seen);
        if (!change) {
            return false;
        }
        if (index.has(change->before, change->item)) {
            index.move(change->before, change->item, hashOf(*change->item));
        }
    }
    return true;
}

void EntryList::rebuildIds() const noexcept {
    _byId.clear();
    _idChanges = ItemInternal::idChanges().count();
    for (const Chunk& chunk : _chunks) {
        for (const Entry& entry : chunk.slots) {
            if (entry) {
                _byId.insert(idHashOf(*entry), entry.get(), chunk.number);
            }
        }
    }
}

void EntryList::indexNames() const {
    followChanges();
    if (_byName) {
        return;
    }
    // Nothing of it counts before all of it is there.
    ItemIndex index;
    index.reserve(_size);
    const auto nameChanges = ItemInternal::nameChanges().count();
    for (const Chunk& chunk : _chunks) {
        for (const Entry& entry : chunk.slots) {
            if (entry) {
                index.insert(nameHashOf(*entry), entry.get(), chunk.number);
            }
        }
    }
    _byName = std::move(index);
    _nameChanges = nameChanges;
}

// --- Finding -------------------------------------------------------------------------------

// Calls `visit(cell)` for what may have this id, until it returns true.
template <class Visit>
bool EntryList::findById(std::uint64_t hash, Visit visit) const {
    followIds();
    return _byId.find(hash, visit) || (_silent != 0 && _byId.find(SilentHash, visit));
}

void EntryList::addPositions(const ItemIndex::Cell& cell,
                             std::vector<unsigned long>& positions) const {
    const std::size_t chunk = _places[cell.number];
    const std::vector<Entry>& slots = _chunks[chunk].slots;
    for (std::size_t slot = 0; slot < slots.size(); ++slot) {
        if (slots[slot].get() == cell.item) {
            positions.push_back(_starts[chunk] + slot);
        }
    }
}

unsigned long EntryList::firstPosition(const ItemIndex::Cell& cell) const noexcept {
    const std::size_t chunk = _places[cell.number];
    const std::vector<Entry>& slots = _chunks[chunk].slots;
    std::size_t slot = 0;
    while (slots[slot].get() != cell.item) {
        ++slot;
    }
    return _starts[chunk] + slot;
}

std::vector<unsigned long> EntryList::positionsOf(const Item& entry) const {
    std::vector<unsigned long> positions;
    findById(ItemInternal::idHash(entry, entry.id()), [&](const ItemIndex::Cell& cell) {
        if (sameEntry(*cell.item, entry)) {
            addPositions(cell, positions);
        }
        return false;
    });
    // An entry that stands twice in one chunk was found twice for each of its cells.
    if (positions.size() > 1) {
        std::sort(positions.begin(), positions.end());
        positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    }
    return positions;
}

template <class Wanted>
std::optional<unsigned long> EntryList::first(std::uint64_t hash, Wanted wanted) const {
    std::optional<unsigned long> found;
    findById(hash, [&](const ItemIndex::Cell& cell) {
        if (wanted(*cell.item)) {
            const unsigned long position = firstPosition(cell);
            found = std::min(found.value_or(position), position);
        }
        return false;
    });
    return found;
}

std::optional<unsigned long> EntryList::firstOf(const Item& entry) const noexcept {
    return first(ItemInternal::idHash(entry, entry.id()),
                 [&](const Item& other) { return &other == &entry; });
}

std::optional<unsigned long> EntryList::firstSame(const Item& entry) const noexcept {
    return first(ItemInternal::idHash(entry, entry.id()),
                 [&](const Item& other) { return sameEntry(other, entry); });
}

std::optional<unsigned long> EntryList::firstOfId(unsigned long id) const noexcept {
    if (id == 0) {
        return std::nullopt;
    }
    return first(id, [id](const Item& other) { return other.id() == id; });
}

bool EntryList::containsObject(const Item& entry) const noexcept {
    return findById(ItemInternal::idHash(entry, entry.id()),
                    [&](const ItemIndex::Cell& cell) { return cell.item == &entry; });
}

bool EntryList::contains(const Item& entry) const noexcept {
    return findById(ItemInternal::idHash(entry, entry.id()),
                    [&](const ItemIndex::Cell& cell) { return sameEntry(*cell.item, entry); });
}

bool EntryList::standsOnlyAt(unsigned long position, const Item& entry) const noexcept {
    const Entry* standing = at(position);
    if (!standing || standing->get() != &entry) {
        return false;
    }
    // One that stands there has one cell for it, which may be found twice.
    const ItemIndex::Cell* first = nullptr;
    return !findById(ItemInternal::idHash(entry, entry.id()), [&](const ItemIndex::Cell& cell) {
        if (!sameEntry(*cell.item, entry)) {
            return false;
        }
        const bool isAnother = first && first != &cell;
        first = &cell;
        return isAnother;
    });
}

std::optional<unsigned long> EntryList::firstOfName(const std::string& name) const {
    indexNames();
    std::optional<unsigned long> first;
    const auto look = [&](const ItemIndex::Cell& cell) {
        std::string room;
        if (nameOf(*cell.item, room) == name) {
            const unsigned long position = firstPosition(cell);
            first = std::min(first.value_or(position), position);
        }
        return false;
    };
    _byName->find(ItemInternal::nameHash(name), look);
    if (_silent != 0) {
        _byName->find(SilentHash, look);
    }
    return first;
}

}  // namespace Ormek
