#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Item.h"
#include "model/ItemIndex.h"

namespace Ormek {

/// Whether two entries of one listing are the same: the same object, or the same id, which is not
/// 0. Key-value entries are the same only as the same object.
bool sameEntry(const Item& a, const Item& b);

/// Entries by position, with vacant positions between them. The cost of an operation grows with
/// the square root of the number of entries; far positions cost nothing.
///
/// An entry's id and name may change while it stands here. An index finds an entry by what these
/// were; a miss counts only while no id or name anywhere has changed since the index was made, see
/// `ItemInternal::idChanges`.
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

    /// Makes room for `put` at `begin` … `end - 1`, and for so many entries more at positions that
    /// were made room for before. Changes no entry, whether it fails or not.
    void reserve(unsigned long begin, unsigned long end, unsigned long more = 0);
    /// Fills a vacant position for which there is room.
    void put(unsigned long position, Entry entry) noexcept;
    /// Vacates a position; empty when it is vacant already.
    Entry take(unsigned long position) noexcept;
    /// Vacates the positions `begin` … `end - 1`.
    void vacate(unsigned long begin, unsigned long end) noexcept;
    /// Takes a position out; what stands behind it moves up by one.
    Entry erase(unsigned long position) noexcept;
    /// Puts an entry between two positions: what stands from there on moves down by one.
    void insert(unsigned long position, Entry entry);
    /// Vacates everything from a position on.
    void truncate(unsigned long position) noexcept;

    /// Where an entry stands, ascending; usually once or not at all.
    std::vector<unsigned long> positionsOf(const Item& entry) const;
    /// Whether an entry stands here.
    bool contains(const Item& entry) const noexcept;
    /// Where entries of this id stand, ascending.
    std::vector<unsigned long> positionsOfId(unsigned long id) const;
    /// Where the first entry of this name stands.
    std::optional<unsigned long> firstOfName(const std::string& name) const;

  private:
    // A run of positions, vacant ones (null) among them, behind a gap of positions never filled.
    struct Chunk {
        unsigned long gap;
        std::uint32_t number;
        std::vector<Entry> slots;
    };
    // A place within the chunks.
    struct Place {
        std::size_t chunk;
        std::size_t slot;
    };

    static constexpr std::size_t ChunkSize = 256;

    std::optional<Place> find(unsigned long position) const noexcept;
    void fillGap(unsigned long begin, unsigned long end);
    void dropChunkIfEmpty(std::size_t chunk) noexcept;

    void link(const Entry& entry, std::uint32_t number) noexcept;
    void unlink(const Entry& entry, std::uint32_t number) noexcept;
    void trustIndex() const noexcept;
    void rebuildIndex() const noexcept;
    template <class Wanted>
    void collect(std::uint64_t hash, Wanted wanted, std::vector<unsigned long>& positions) const;
    void addPositions(const Item* item, std::uint32_t number,
                      std::vector<unsigned long>& positions) const;
    void indexNames() const;

    std::vector<Chunk> _chunks;
    std::uint32_t _lastNumber = 0;
    unsigned long _size = 0;

    // The indexes are only memories of what a walk would find.
    mutable ItemIndex _byId;
    mutable unsigned long _idChanges = 0;
    mutable bool _idsAreFixed = true;
    mutable std::optional<ItemIndex> _byName;
    mutable unsigned long _nameChanges = 0;
    mutable bool _namesAreFixed = true;
};

}  // namespace Ormek
