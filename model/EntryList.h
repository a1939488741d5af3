#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/ChangeLog.h"
#include "model/Item.h"
#include "model/ItemIndex.h"

namespace Ormek {

/// Whether two entries of one listing are the same: the same object, or the same id, which is not
/// 0. Key-value entries are the same only as the same object.
bool sameEntry(const Item& a, const Item& b);

/// Entries by position, with vacant positions between them. The cost of an operation grows with
/// the square root of the number of entries, or less; far positions cost nothing.
///
/// An entry's id and name may change while it stands here: the indexes follow the changes that
/// `ItemInternal` tells of. An entry of another class cannot tell; such ones are all kept under one
/// hash and asked one by one.
class EntryList {
  public:
    using Entry = std::shared_ptr<Item>;

    EntryList() = default;
    EntryList(const EntryList& other);
    EntryList(EntryList&&) = default;
    EntryList& operator=(const EntryList& other);
    EntryList& operator=(EntryList&&) = default;
    ~EntryList() = default;

    /// Number of entries.
    unsigned long size() const { return _size; }
    /// The position behind the last one that was ever filled.
    unsigned long end() const;
    /// The entry at a position; null when it is vacant.
    const Entry* at(unsigned long position) const;
    /// Appends the entries at `begin` … `end - 1`.
    void copyTo(std::vector<Entry>& target, unsigned long begin, unsigned long end) const;
    /// Calls `visit(entry)` for every entry, in order.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Chunk& chunk : _chunks) {
            for (const Entry& entry : chunk.slots) {
                if (entry) {
                    visit(entry);
                }
            }
        }
    }

    /// Makes room for `put` at `begin` … `end - 1`, and for so many entries more at positions that
    /// were made room for before. Changes no entry, whether it fails or not.
    void reserve(unsigned long begin, unsigned long end, unsigned long more = 0);
    /// Makes room for so many times `insert`, which cannot fail then.
    void reserveInsertions(unsigned long more);
    /// Fills a vacant position for which there is room.
    void put(unsigned long position, Entry entry) noexcept;
    /// Vacates a position; empty when it is vacant already.
    Entry take(unsigned long position) noexcept;
    /// Vacates the positions `begin` … `end - 1`.
    void vacate(unsigned long begin, unsigned long end) noexcept;
    /// Puts entries, from `begin` on, in the place of what stands there. There must be room.
    void replace(unsigned long begin, std::vector<Entry> entries) noexcept;
    /// Takes a position out; what stands behind it moves up by one.
    Entry erase(unsigned long position) noexcept;
    /// Puts an entry between two positions: what stands from there on moves down by one. Changes
    /// nothing when memory runs out.
    void insert(unsigned long position, Entry entry);
    /// Vacates everything from a position on.
    void truncate(unsigned long position) noexcept;

    /// Where an entry stands, ascending; usually once or not at all.
    std::vector<unsigned long> positionsOf(const Item& entry) const;
    /// Where this very object stands first.
    std::optional<unsigned long> firstOf(const Item& entry) const noexcept;
    /// Where this entry stands first.
    std::optional<unsigned long> firstSame(const Item& entry) const noexcept;
    /// Whether this very object stands here.
    bool containsObject(const Item& entry) const noexcept;
    /// Whether an entry stands here.
    bool contains(const Item& entry) const noexcept;
    /// Whether an entry stands at this position and nowhere else.
    bool standsOnlyAt(unsigned long position, const Item& entry) const noexcept;
    /// Where the first entry of this id stands; 0 is nobody's id.
    std::optional<unsigned long> firstOfId(unsigned long id) const noexcept;
    /// Where the first entry of this name stands.
    std::optional<unsigned long> firstOfName(const std::string& name) const;

  private:
    // A run of positions, vacant ones (null) among them. Empty only when it is the only one.
    struct Chunk {
        std::uint32_t number;
        std::vector<Entry> slots;
    };
    // A place within the chunks.
    struct Place {
        std::size_t chunk;
        std::size_t slot;
    };

    static constexpr std::size_t ChunkSize = 64;
    static constexpr std::size_t LargestChunk = 2 * ChunkSize;

    std::size_t firstChunkBehind(unsigned long position) const noexcept;
    unsigned long endOf(std::size_t chunk) const noexcept {
        return _starts[chunk] + _chunks[chunk].slots.size();
    }
    // Of a position that is not before the chunk. The last one of all has none behind it.
    bool liesIn(std::size_t chunk, unsigned long position) const noexcept {
        return position - _starts[chunk] < _chunks[chunk].slots.size();
    }
    std::optional<Place> find(unsigned long position) const noexcept;
    void insertChunk(std::size_t index, unsigned long start, std::vector<Entry> slots);
    void dropChunk(std::size_t chunk) noexcept;
    void split(std::size_t chunk);
    void makeSmaller(std::size_t chunk, unsigned long position);
    void moveFrom(std::size_t chunk, bool up) noexcept;
    void fillGap(unsigned long begin, unsigned long end);
    std::optional<std::size_t> chunkToInsertInto(unsigned long position) const noexcept;

    void link(const Entry& entry, std::uint32_t number) noexcept;
    void unlink(const Entry& entry, std::uint32_t number) noexcept;
    void followChanges() const noexcept;
    void followIds() const noexcept;
    template <class HashOf>
    bool follow(const ChangeLog& log, unsigned long& seen, ItemIndex& index,
                HashOf hashOf) const noexcept;
    void rebuildIds() const noexcept;
    void indexNames() const;

    template <class Visit>
    bool findById(std::uint64_t hash, Visit visit) const;
    void addPositions(const ItemIndex::Cell& cell, std::vector<unsigned long>& positions) const;
    unsigned long firstPosition(const ItemIndex::Cell& cell) const noexcept;
    template <class Wanted>
    std::optional<unsigned long> first(std::uint64_t hash, Wanted wanted) const;

    std::vector<Chunk> _chunks;
    std::vector<unsigned long> _starts;  // The position of each chunk's first slot.
    std::vector<std::uint32_t> _places;  // Where the chunk of a number is.
    std::vector<std::uint32_t> _unused;  // Numbers of no chunk; has room for all.
    unsigned long _size = 0;

    // The indexes are only memories of what a walk would find.
    mutable ItemIndex _byId;
    mutable unsigned long _idChanges = 0;
    mutable std::optional<ItemIndex> _byName;
    mutable unsigned long _nameChanges = 0;
    unsigned long _silent = 0;  // Entries that do not tell of their changes.
};

}  // namespace Ormek
