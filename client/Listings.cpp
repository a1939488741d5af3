#include "client/Listings.h"

#include <algorithm>

namespace Ormek {

namespace {

QueryResultInternal& internalOf(const std::shared_ptr<QueryResult>& listing) {
    return dynamic_cast<QueryResultInternal&>(*listing);
}

}  // namespace

template <class Use>
void Listings::each(Use use) const {
    for (const std::shared_ptr<QueryResult>& listing : _cache.directories()) {
        use(internalOf(listing));
    }
}

template <class Use>
void Listings::eachOf(unsigned long folderId, Use use) const {
    each([&](QueryResultInternal& listing) {
        if (listing.filter().matchesDataId(folderId)) {
            use(listing);
        }
    });
}

std::shared_ptr<QueryResult> Listings::open(const FilterInternal& filter) {
    std::shared_ptr<QueryResult> listing = _cache.getDirectory(filter);
    if (listing) {
        return listing;
    }
    _cache.get(filter, listing);
    for (const unsigned long folderId : filter.getDataId()) {
        for (const std::shared_ptr<Item>& child : _cache.getChildren(folderId)) {
            if (filter.matchesQuery(*child)) {
                internalOf(listing).addItem(child, false);
            }
        }
    }
    return listing;
}

std::shared_ptr<QueryResult> Listings::whole(unsigned long folderId) const {
    const auto found = _whole.find(folderId);
    return found == _whole.end() ? nullptr : found->second;
}

void Listings::setWhole(unsigned long folderId, std::shared_ptr<QueryResult> listing) {
    _whole[folderId] = std::move(listing);
}

// --- Edits ---------------------------------------------------------------------------------

void Listings::remember(unsigned long folderId, unsigned long id) {
    Spots& known = _spots[id];
    if (known.folderId != folderId) {
        known = {folderId, {}};
    }
    for (const std::shared_ptr<QueryResult>& listing : _cache.directories()) {
        const QueryResultInternal& internal = internalOf(listing);
        if (!internal.filter().matchesDataId(folderId) || !internal.contains(id)) {
            continue;
        }
        const std::optional<unsigned long> position = internal.heldPositionOf(id);
        const auto spot = std::find_if(
            known.spots.begin(), known.spots.end(),
            [&](const Spot& candidate) { return candidate.listing.lock() == listing; });
        if (spot != known.spots.end()) {
            spot->position = position;
        } else {
            known.spots.push_back({listing, position});
        }
    }
}

void Listings::forget(unsigned long id) { _spots.erase(id); }

void Listings::leave(unsigned long folderId, unsigned long id) {
    eachOf(folderId, [&](QueryResultInternal& listing) { listing.removeItem(id); });
}

void Listings::enter(const std::shared_ptr<Item>& entry) {
    const auto remembered = _spots.find(entry->id());
    const bool returns =
        remembered != _spots.end() && remembered->second.folderId == entry->parentId();
    if (!returns) {
        each([&](QueryResultInternal& listing) {
            if (listing.filter().matchesQuery(*entry)) {
                listing.addItem(entry, false);
            }
        });
        return;
    }
    for (const Spot& spot : remembered->second.spots) {
        const std::shared_ptr<QueryResult> listing = spot.listing.lock();
        if (!listing || !internalOf(listing).filter().matchesQuery(*entry)) {
            continue;
        }
        if (spot.position) {
            internalOf(listing).restoreItem(entry, *spot.position);
        } else {
            internalOf(listing).addItem(entry, false);
        }
    }
}

void Listings::refit(const std::shared_ptr<Item>& entry) noexcept {
    eachOf(entry->parentId(), [&](QueryResultInternal& listing) {
        try {
            if (listing.filter().getQuery().empty()) {
                return;
            }
            if (listing.filter().matchesQuery(*entry)) {
                listing.addItem(entry, false);
            } else {
                listing.removeItem(entry->id());
            }
        } catch (...) {
            // Without memory to put it right it is loaded again.
            listing.invalidate();
        }
    });
}

bool Listings::invalidate(unsigned long folderId, const QueryResult* except) {
    bool any = false;
    eachOf(folderId, [&](QueryResultInternal& listing) {
        if (&listing != except) {
            listing.invalidate();
            any = true;
        }
    });
    return any;
}

// --- Folders that come and go --------------------------------------------------------------

void Listings::rekey(unsigned long localId, unsigned long serverId) {
    std::vector<QueryResultInternal*> old;
    eachOf(localId, [&](QueryResultInternal& listing) { old.push_back(&listing); });
    for (QueryResultInternal* listing : old) {
        FilterInternal filter = listing->filter();
        filter.setDataId({serverId});
        filter.contextId = serverId;
        std::shared_ptr<QueryResult> anew;
        _cache.get(filter, anew);
        for (const std::shared_ptr<Item>& entry : listing->items()) {
            internalOf(anew).addItem(entry, false);
            listing->removeItem(entry->id());
        }
        const auto whole = _whole.find(localId);
        if (whole != _whole.end() && whole->second.get() == listing) {
            _whole[serverId] = anew;
        }
    }
    _whole.erase(localId);
    _spots.erase(localId);
}

void Listings::close(unsigned long folderId) {
    eachOf(folderId, [](QueryResultInternal& listing) {
        for (const std::shared_ptr<Item>& entry : listing.items()) {
            listing.removeItem(entry->id());
        }
        listing.invalidate();
    });
    _whole.erase(folderId);
}

}  // namespace Ormek
