#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory_resource>
#include <span>
#include <string>
#include <vector>

#include "backend/FolderEntry.h"
#include "backend/OpenFolder.h"

namespace Nimra {

/// Byte order of the names, if asked for behind the folders.
struct ListingOrder {
    bool ascending = true;
    bool foldersFirst = true;

    bool operator()(const FolderEntry& a, const FolderEntry& b) const;
    bool operator==(const ListingOrder&) const = default;
};

/// Which entries of a folder a listing shows, and in which order.
struct Listing {
    bool folders = true;
    bool documents = true;
    std::string query = {};  ///< Part of the name; empty matches all.
    ListingOrder order = {};

    bool shows(const FolderEntry& entry) const;
    bool operator==(const Listing&) const = default;
};

/// The names and kinds of a folder's entries as one reading found them, without anything that would
/// take a look at each entry. It shows one listing at a time and sorts no more of it than is asked
/// for. Owns the names that it hands out. One thread at a time.
class FolderSnapshot {
  public:
    /// Reads the folder, which must be open for reading, and for the first time since it was
    /// opened. Throws ServiceError.
    explicit FolderSnapshot(const OpenFolder& folder);

    /// Whether a folder of this status is the one that was read and has the same entries still.
    bool isCurrent(const struct statx& folder) const;

    /// Whether there are files under way, or what was left of them, which are no entries.
    bool hidesFiles() const { return _hidesFiles; }

    /// All entries, in no order.
    std::span<const FolderEntry> entries() const { return _entries; }

    /// Chooses what the functions below are about; cheap when it is what they are about already.
    void select(Listing listing);
    /// The entries of the listing, in no order.
    std::span<const FolderEntry> selected() const { return entries().first(_selected); }
    /// The entries of the listing at the positions `offset` … `offset + count - 1`; fewer at its
    /// end.
    std::span<const FolderEntry> page(std::size_t offset, std::size_t count);

  private:
    /// What changes when an entry comes, goes or is renamed.
    struct Stamp {
        std::uint32_t deviceMajor, deviceMinor;
        std::uint64_t inode;
        std::int64_t modified, changed;
        std::uint32_t modifiedNs, changedNs;

        explicit Stamp(const struct statx& status);
        bool operator==(const Stamp&) const = default;
    };

    FolderSnapshot(const OpenFolder& folder, const timespec& now);
    void read(const OpenFolder& folder);
    void add(const OpenFolder& folder, const char* name, unsigned char type);
    void removeRepetitions();
    void sortUpTo(std::size_t end);
    static bool isSettled(const Stamp& stamp, const timespec& now);

    Stamp _stamp;
    bool _settled;
    bool _hidesFiles = false;
    std::pmr::monotonic_buffer_resource _names;
    std::vector<FolderEntry> _entries;  ///< First those of the listing, of these the sorted ones.
    Listing _listing;
    std::size_t _selected = 0;
    std::size_t _sorted = 0;
};

}  // namespace Nimra
