#include "client/Listings.h"

#include <algorithm>
#include <utility>

#include "service/LocalIds.h"

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
    std::vector<Spot>& spots = _spots[id][folderId];
    for (const std::shared_ptr<QueryResult>& listing : _cache.directories()) {
        const QueryResultInternal& internal = internalOf(listing);
        if (!internal.filter().matchesDataId(folderId) || !internal.contains(id)) {
            continue;
        }
        std::optional<unsigned long> position = internal.heldPositionOf(id);
        if (position) {
            eachAbsent(*listing, [&](const Spot& absent) {
                *position += *absent.position <= *position ? 1 : 0;
            });
        }
        const auto known = std::find_if(spots.begin(), spots.end(), [&](const Spot& spot) {
            return spot.listing.lock() == listing;
        });
        if (known == spots.end()) {
            spots.push_back({listing, position});
        } else if (position) {
            known->position = position;
        }
    }
}

// The positions of others are told with the entry among the rest: it no longer counts.
void Listings::forget(unsigned long id) {
    const auto known = _spots.find(id);
    if (known == _spots.end()) {
        return;
    }
    const Spots forgotten = std::move(known->second);
    _spots.erase(known);
    for (const auto& [folderId, spots] : forgotten) {
        for (const Spot& spot : spots) {
            const std::shared_ptr<QueryResult> listing = spot.listing.lock();
            if (!listing || !spot.position || listing->contains(id)) {
                continue;
            }
            eachAbsent(*listing, [&](Spot& absent) {
                *absent.position -= *absent.position > *spot.position ? 1 : 0;
            });
        }
    }
}

// In the order of their positions.
template <class Use>
void Listings::eachAbsent(const QueryResult& listing, Use use) {
    std::vector<Spot*> absent;
    for (auto& [id, folders] : _spots) {
        for (auto& [folderId, spots] : folders) {
            for (Spot& spot : spots) {
                if (spot.position && spot.listing.lock().get() == &listing &&
                    !listing.contains(id)) {
                    absent.push_back(&spot);
                }
            }
        }
    }
    std::sort(absent.begin(), absent.end(),
              [](const Spot* a, const Spot* b) { return *a->position < *b->position; });
    std::for_each(absent.begin(), absent.end(), [&](Spot* spot) { use(*spot); });
}

const Listings::Spot* Listings::spotIn(const QueryResult& listing, unsigned long folderId,
                                       unsigned long id) const {
    const auto known = _spots.find(id);
    if (known == _spots.end() || !known->second.contains(folderId)) {
        return nullptr;
    }
    const std::vector<Spot>& spots = known->second.at(folderId);
    const auto found = std::find_if(spots.begin(), spots.end(), [&](const Spot& spot) {
        return spot.listing.lock().get() == &listing;
    });
    return found == spots.end() ? nullptr : &*found;
}

void Listings::putBack(const std::shared_ptr<Item>& entry, const Spot& spot) {
    QueryResultInternal& listing = internalOf(spot.listing.lock());
    if (!spot.position) {
        listing.addItem(entry, false);
        return;
    }
    unsigned long before = 0;
    eachAbsent(listing,
               [&](const Spot& absent) { before += *absent.position < *spot.position ? 1 : 0; });
    listing.restoreItem(entry, *spot.position - before);
}

void Listings::leave(unsigned long folderId, unsigned long id) noexcept {
    eachOf(folderId, [&](QueryResultInternal& listing) { listing.removeItem(id); });
}

void Listings::enter(const std::shared_ptr<Item>& entry) {
    const unsigned long folderId = entry->parentId();
    const auto remembered = _spots.find(entry->id());
    const bool returns = remembered != _spots.end() && remembered->second.contains(folderId);
    eachOf(folderId, [&](QueryResultInternal& listing) {
        if (!listing.filter().matchesQuery(*entry)) {
            return;
        }
        if (const Spot* spot = spotIn(listing, folderId, entry->id())) {
            putBack(entry, *spot);
        } else if (!returns || Nimra::isLocalId(folderId) || Nimra::isLocalId(entry->id())) {
            // What the service does not know yet, or what is in a folder that it does not know, is
            // on no page that is still to come.
            listing.addItem(entry, false);
        }
    });
}

std::set<unsigned long> Listings::namesakes(unsigned long folderId, const Nimra::Page& page) const {
    std::set<unsigned long> ids;
    eachOf(folderId, [&](const QueryResult& listing) {
        const auto look = [&](const auto& record) {
            const std::shared_ptr<Item> named = listing.itemByName(record.name);
            if (named && named->id() != record.id) {
                ids.insert(named->id());
            }
        };
        std::for_each(page.folders.begin(), page.folders.end(), look);
        std::for_each(page.documents.begin(), page.documents.end(), look);
    });
    return ids;
}

void Listings::refit(const std::shared_ptr<Item>& entry) noexcept {
    const unsigned long folderId = entry->parentId();
    eachOf(folderId, [&](QueryResultInternal& listing) {
        try {
            if (listing.filter().getQuery().empty()) {
                return;
            }
            if (!listing.filter().matchesQuery(*entry)) {
                listing.removeItem(entry->id());
            } else if (const Spot* spot = spotIn(listing, folderId, entry->id())) {
                putBack(entry, *spot);
            } else {
                listing.addItem(entry, false);
            }
        } catch (...) {
            // Without memory to put it right it is loaded again.
            listing.invalidate();
        }
    });
}

bool Listings::invalidate(unsigned long folderId, const QueryResult* except) noexcept {
    bool any = false;
    for (const auto* listings : {&_cache.directories(), &_cache.keyValueDirectories()}) {
        for (const std::shared_ptr<QueryResult>& listing : *listings) {
            if (listing.get() != except && internalOf(listing).filter().matchesDataId(folderId)) {
                internalOf(listing).invalidate();
                any = true;
            }
        }
    }
    return any;
}

void Listings::invalidateTags(unsigned long folderId, unsigned long id) noexcept {
    for (const std::shared_ptr<QueryResult>& listing : _cache.keyValueDirectories()) {
        if (internalOf(listing).filter().matchesDataId(folderId) || listing->contains(id)) {
            internalOf(listing).invalidate();
        }
    }
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
    if (auto node = _spots.extract(localId)) {
        node.key() = serverId;
        _spots.insert(std::move(node));
    }
    for (auto& [id, folders] : _spots) {
        folders.erase(localId);
    }
}

void Listings::close(unsigned long folderId) {
    invalidate(folderId);
    _whole.erase(folderId);
    eachOf(folderId, [](QueryResultInternal& listing) {
        for (const std::shared_ptr<Item>& entry : listing.items()) {
            listing.removeItem(entry->id());
        }
    });
}

}  // namespace Ormek
