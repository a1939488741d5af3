#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "cache/DirectoryCache.h"
#include "service/Page.h"

namespace Ormek {

/// The listings in a cache, as edits by the user and changes elsewhere concern them: an edit is
/// told to every listing that shows its folder, and can be taken back.
///
/// Not safe to share between threads; the cache must outlive it.
class Listings {
  public:
    explicit Listings(DirectoryCache& cache) : _cache(cache) {}

    /// The listing of a folder that only this machine knows: all that was made in it or moved
    /// there.
    std::shared_ptr<QueryResult> open(const FilterInternal& filter);
    /// The listing of a whole folder, in ascending order; empty when it was never asked for.
    std::shared_ptr<QueryResult> whole(unsigned long folderId) const;
    void setWhole(unsigned long folderId, std::shared_ptr<QueryResult> listing);

    /// Remembers where an entry stands in the listings of a folder, for when it comes back.
    void remember(unsigned long folderId, unsigned long id);
    /// Forgets what was remembered of an entry.
    void forget(unsigned long id);
    /// Takes an entry out of every listing of a folder.
    void leave(unsigned long folderId, unsigned long id) noexcept;
    /// Puts an entry into every listing of its folder that it belongs to: to where it is remembered
    /// to have stood, or to the end. In a folder where it is remembered it comes into no other
    /// listing than those it stood in.
    void enter(const std::shared_ptr<Item>& entry);
    /// An entry has another name: searches in its folder that it belongs to now have it, others do
    /// not.
    void refit(const std::shared_ptr<Item>& entry) noexcept;
    /// The entries in listings of a folder that have the name of another one on this page of it.
    std::set<unsigned long> namesakes(unsigned long folderId, const Nimra::Page& page) const;
    /// Every page of every listing of the folder and of its tags, but for `except`, is to be loaded
    /// before it is shown again. Returns whether there was any such listing.
    bool invalidate(unsigned long folderId, const QueryResult* except = nullptr) noexcept;
    /// The same for the listings of the folder's tags alone, and for those that show the entry.
    void invalidateTags(unsigned long folderId, unsigned long id) noexcept;
    /// Opens the listings of a folder anew, under the id that the service has given it, with all
    /// their entries; the old ones are left behind empty.
    void rekey(unsigned long localId, unsigned long serverId);
    /// Empties the listings of a folder that is gone; should it come back, they and its tags are
    /// loaded before they are shown again.
    void close(unsigned long folderId);

  private:
    // Where an entry stood in a listing, all others that are remembered there among the rest, also
    // those that have left; at no held position when it was a local addition.
    struct Spot {
        std::weak_ptr<QueryResult> listing;
        std::optional<unsigned long> position;
    };
    using Spots = std::map<unsigned long, std::vector<Spot>>;  // By folder id.

    template <class Use>
    void each(Use use) const;
    template <class Use>
    void eachOf(unsigned long folderId, Use use) const;

    const Spot* spotIn(const QueryResult& listing, unsigned long folderId, unsigned long id) const;
    template <class Use>
    void eachAbsent(const QueryResult& listing, Use use);
    void putBack(const std::shared_ptr<Item>& entry, const Spot& spot);

    DirectoryCache& _cache;
    std::unordered_map<unsigned long, std::shared_ptr<QueryResult>> _whole;  // By folder id.
    std::map<unsigned long, Spots> _spots;                                   // By entry id.
};

}  // namespace Ormek
