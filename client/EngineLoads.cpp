// Loads, and how the pages that they bring reach the cache.

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <type_traits>

#include "client/Engine.h"
#include "client/EntryStates.h"

namespace Ormek {

namespace {

constexpr int TagService = 16;
constexpr std::int32_t DocumentType = 4;
constexpr std::int32_t FolderType = 8;

bool samePage(const FilterInternal& a, const FilterInternal& b) {
    return a.getOffset() == b.getOffset() && a.getCount() == b.getCount() && a.sameListing(b);
}

std::vector<unsigned long> idsOf(const Nimra::Page& page) {
    std::vector<unsigned long> ids;
    for (const Nimra::Folder& folder : page.folders) {
        ids.push_back(folder.id);
    }
    for (const Nimra::Document& document : page.documents) {
        ids.push_back(document.id);
    }
    return ids;
}

// Whether an entry is in a listing, but for its kind, which no action changes.
bool isListed(const Edits::State& entry, const FilterInternal& filter) {
    return filter.matchesDataId(entry.folderId) &&
           entry.name.find(filter.getQuery()) != std::string::npos;
}

template <class Record>
constexpr bool isFolderRecord = std::is_same_v<Record, Nimra::Folder>;

template <class Record>
void refresh(ItemInternal& item, const Record& record) {
    item.name(record.name);
    item.parentId(record.parentId);
    item.ownerId(record.ownerId);
    item.created(record.created);
    item.updated(record.updated);
    item.deleted(record.deleted);
}

}  // namespace

QueryResultInternal& Client::Engine::internalOf(const Load& load) {
    return dynamic_cast<QueryResultInternal&>(*load.directory);
}

bool Client::Engine::isCurrent(const Directory& directory, const FilterInternal& filter) {
    const auto& internal = dynamic_cast<const QueryResultInternal&>(*directory);
    return internal.isPageLoaded(filter) && internal.isPageCurrent(filter);
}

// Whether a listing is known from end to end.
bool Client::Engine::isComplete(const Directory& directory) {
    const auto& internal = dynamic_cast<const QueryResultInternal&>(*directory);
    FilterInternal all = internal.filter();
    all.setOffset(0);
    all.setCount(std::numeric_limits<std::uint32_t>::max());
    return internal.isPageCurrent(all);
}

// --- Loads ---------------------------------------------------------------------------------

bool Client::Engine::join(const State& state, const FilterInternal& filter) {
    const auto underWay = std::find_if(_loads.begin(), _loads.end(), [&](const auto& entry) {
        const Load& load = entry.second;
        return load.kind != LoadKind::LookUp && !load.doubted && samePage(load.filter, filter);
    });
    // What is held and current is answered from memory all the same.
    if (underWay == _loads.end() || isCurrent(underWay->second.directory, filter)) {
        return false;
    }
    underWay->second.waiters.push_back(state);
    state->answer.source = AnswerSource::JoinedLoad;
    ++_statistics.joinedLoads;
    return true;
}

void Client::Engine::await(const State& state, LoadKind kind, const FilterInternal& filter,
                           const Directory& directory, unsigned long operationId) {
    ++_statistics.loads;
    state->answer.source = AnswerSource::Load;
    _loads.emplace(operationId, Load{kind, filter, directory, {state}, _newsCount, false});
}

void Client::Engine::reload(const State& state, LoadKind kind, FilterInternal filter,
                            Directory directory) {
    filter.setByPassCache(true);
    const unsigned long operationId =
        kind == LoadKind::Tags ? _cache.loadFromService(_services[TagService], filter, this)
                               : _cache.get(filter, directory, this);
    await(state, kind, filter, directory, operationId);
}

Client::Engine::Load Client::Engine::takeLoad(unsigned long operationId) {
    const auto found = _loads.find(operationId);
    if (found == _loads.end()) {
        return {LoadKind::LookUp, {}, nullptr, {}};
    }
    Load load = std::move(found->second);
    _loads.erase(found);
    return load;
}

void Client::Engine::loadFailed(const Load& load, const Nimra::ServiceError& error) {
    ++_statistics.failedLoads;
    concludeEach(load, [&](const State& state) {
        if (load.kind != LoadKind::LookUp) {
            state->answer.held = load.directory->count();
            state->answer.total = load.directory->totalCount();
        }
        fail(state, error);
    });
}

void Client::Engine::pageLoaded(unsigned long operationId, const Nimra::ItemFilter& /*filter*/,
                                Nimra::Page& page) {
    Load load = takeLoad(operationId);
    if (!load.directory) {
        return;
    }
    load.doubted = isOutdated(load, page);
    try {
        receivePage(load, page);
    } catch (const Nimra::ServiceError& error) {
        loadFailed(load, error);
    } catch (...) {
        loadFailed(load, _outOfMemory);
    }
}

void Client::Engine::receivePage(const Load& load, Nimra::Page& page) {
    const unsigned long folderId = load.filter.dataIds().front();
    if (!isFolderHeld(folderId)) {
        throw Nimra::ServiceError(Nimra::Reason::NotFound, "the folder is no longer there");
    }
    if (load.doubted && load.kind == LoadKind::LookUp) {
        concludeEach(load, [&](const State& state) { walk(state); });
        return;
    }
    Outdated outdated;
    mergePage(load, page, outdated);
    if (load.doubted && load.kind == LoadKind::Tags) {
        internalOf(load).invalidate();
    } else if (load.doubted) {
        outdated.insert(folderId);
    }
    for (const unsigned long id : outdated) {
        invalidate(id, load.doubted ? nullptr : load.directory.get());
    }
    concludeEach(load, [&](const State& state) {
        if (load.kind == LoadKind::LookUp) {
            lookedUp(state, load.directory);
        } else {
            answer(state, *load.directory, load.filter);
        }
    });
}

// Whoever waits must hear of the end, even without memory to say why, or would wait for ever.
template <class Conclude>
void Client::Engine::concludeEach(const Load& load, Conclude conclude) {
    for (const Waiter& waiter : load.waiters) {
        const State state = waiter.lock();
        if (!state) {
            continue;
        }
        try {
            conclude(state);
        } catch (...) {
            failWithoutWords(*state);
        }
    }
}

// --- What is newer than a page -------------------------------------------------------------

// Whether the page may be how things were before a change made elsewhere: in the folder, or to
// an entry that comes with it.
bool Client::Engine::isOutdated(const Load& load, const Nimra::Page& page) const {
    const auto isNewsHere = [&](const auto& record) { return isNews(record.id, load); };
    return load.doubted || std::any_of(page.folders.begin(), page.folders.end(), isNewsHere) ||
           std::any_of(page.documents.begin(), page.documents.end(), isNewsHere) ||
           std::any_of(page.tags.begin(), page.tags.end(), isNewsHere);
}

bool Client::Engine::isNews(unsigned long id, const Load& load) const {
    const auto told = _news.find(id);
    return told != _news.end() && told->second > load.newsBefore;
}

// A page does not take back what was told since it was asked for.
void Client::Engine::keepNews(const Load& load, Nimra::Page& page) {
    keepNews(load, page.folders);
    keepNews(load, page.documents);
}

template <class Record>
void Client::Engine::keepNews(const Load& load, std::vector<Record>& records) {
    const unsigned long folderId = load.filter.dataIds().front();
    std::vector<Record> kept;
    for (Record& record : records) {
        if (!isNews(record.id, load) || update(record, folderId)) {
            kept.push_back(std::move(record));
        }
    }
    records = std::move(kept);
}

// Makes a record say what is known of the entry; false when it is no longer what it says, or where.
template <class Record>
bool Client::Engine::update(Record& record, unsigned long folderId) {
    const std::shared_ptr<Item> item = _cache.getItemInternal(record.id);
    const Shown served = item ? servedOf(record.id) : std::nullopt;
    if (!served || served->folderId != folderId ||
        isFolderRecord<Record> != (_cache.castContainer(item) != nullptr)) {
        return false;
    }
    apply(*served, record);
    record.updated = item->updated();
    if constexpr (!isFolderRecord<Record>) {
        const std::shared_ptr<Object> object = _cache.castObject(item);
        record.length = object->length();
        record.mimeType = object->mimeType();
    }
    return true;
}

// What came into the folder since the page was asked for is not in it, and stays all the same.
void Client::Engine::keepArrivals(const Load& load) {
    const unsigned long folderId = load.filter.dataIds().front();
    QueryResultInternal& listing = internalOf(load);
    for (const auto& [id, number] : _news) {
        const std::shared_ptr<Item> item = _cache.getItemInternal(id);
        if (isNews(id, load) && item && item->parentId() == folderId && !_edits.has(id) &&
            listing.filter().matchesQuery(*item)) {
            listing.addItem(item, false);
        }
    }
}

// --- Merging -------------------------------------------------------------------------------

void Client::Engine::mergePage(const Load& load, Nimra::Page& page, Outdated& outdated) {
    if (load.kind == LoadKind::Tags) {
        refreshTags(page.tags);
        _cache.addKeyValues(load.filter, load.directory, std::move(page.tags), page.totalCount);
    } else {
        mergeEntries(load, page, outdated);
    }
}

void Client::Engine::mergeEntries(const Load& load, Nimra::Page& page, Outdated& outdated) {
    if (load.doubted) {
        keepNews(load, page);
    }
    const std::vector<unsigned long> delivered = idsOf(page);
    const bool wasLoaded =
        load.kind == LoadKind::Listing && internalOf(load).isPageLoaded(load.filter);
    const Before before = this->before(delivered);
    const std::vector<std::shared_ptr<Item>> stood = standing(load, page.totalCount);
    for (Nimra::Folder& folder : page.folders) {
        receive(folder, outdated);
        refreshFolder(folder);
    }
    for (Nimra::Document& document : page.documents) {
        receive(document, outdated);
    }
    const std::optional<unsigned long> heldElsewhere = heldOutside(load, page.totalCount);
    setArrivalsAside(load);
    // The cache puts what is new in the place of what has its name, and that may be gone.
    const unsigned long folderId = load.filter.dataIds().front();
    const std::set<unsigned long> namesakes = _listings.namesakes(folderId, page);
    for (const unsigned long id : namesakes) {
        doubt(folderId, id);
    }
    addToCache(load, page);
    // What an action shows there stays.
    for (const unsigned long id : namesakes) {
        const Shown shown = _edits.shown(id);
        if (shown && shown->folderId == folderId) {
            _listings.enter(_cache.getItemInternal(id));
        }
    }
    keepEdits(load, delivered);
    if (load.doubted) {
        keepArrivals(load);
    }
    if (load.kind == LoadKind::Listing) {
        // What was found by name before may be gone now.
        forgetFound(folderId);
    }
    tell(before, wasLoaded);
    if (doubtDelivered(load, delivered)) {
        outdated.insert(folderId);
    }
    if (!load.doubted && !stillHeld(load, heldElsewhere)) {
        tellUnexplained(load, outdated);
    }
    doubtVanished(load, stood);
    if (!load.doubted) {
        dropVanished(load);
    }
}

void Client::Engine::addToCache(const Load& load, Nimra::Page& page) {
    if (page.documents.empty() && load.filter.getDataType() == FolderType) {
        _cache.addItems(load.filter, load.directory, std::move(page.folders), page.totalCount);
    } else if (page.folders.empty() && load.filter.getDataType() == DocumentType) {
        _cache.addItems(load.filter, load.directory, std::move(page.documents), page.totalCount);
    } else {
        _cache.addItems(load.filter, load.directory, std::move(page.folders),
                        std::move(page.documents), page.totalCount);
    }
}

// What the service says of an entry, before it is merged: actions under way are applied to it, and
// listings that it does not come with are told what is new about it.
template <class Record>
void Client::Engine::receive(Record& record, Outdated& outdated) {
    if (_edits.has(record.id)) {
        _edits.served(record.id, stateOf(record));
        if (const Shown shown = _edits.shown(record.id)) {
            apply(*shown, record);
        }
    }
    const std::shared_ptr<Item> known = _cache.getItemInternal(record.id);
    if (!known) {
        return;
    }
    if (isFolderRecord<Record> != (_cache.castContainer(known) != nullptr)) {
        // Another thing under the same id; the cache would keep the first one.
        drop(record.id);
        return;
    }
    if (known->parentId() != record.parentId) {
        outdated.insert({known->parentId(), record.parentId});
        leave(*known, record.parentId);
    } else if (known->name() != record.name) {
        outdated.insert(record.parentId);
        // Searches are answered from memory, too, while the service is off.
        if (const auto internal = OrmekCast::castItemInternal(known)) {
            internal->name(record.name);
            if (!isHidden(record.id)) {
                _listings.refit(known);
            }
        }
    }
}

template void Client::Engine::receive(Nimra::Document&, Outdated&);
template void Client::Engine::receive(Nimra::Folder&, Outdated&);

// The total that comes with a page does not count what is only on its way into the folder, whatever
// the listing makes of an entry with a server id.
void Client::Engine::setArrivalsAside(const Load& load) {
    const unsigned long folderId = load.filter.dataIds().front();
    for (const unsigned long id : _edits.shownIn(folderId)) {
        const Shown served = _edits.served(id);
        if (!served || served->folderId != folderId) {
            internalOf(load).removeItem(id);
        }
    }
}

// A page that was asked for before an action does not undo it.
void Client::Engine::keepEdits(const Load& load, const std::vector<unsigned long>& delivered) {
    const unsigned long folderId = load.filter.dataIds().front();
    QueryResultInternal& listing = internalOf(load);
    for (const unsigned long id : delivered) {
        if (!_edits.has(id)) {
            continue;
        }
        const Shown shown = _edits.shown(id);
        if (!shown || shown->folderId != folderId) {
            _listings.remember(folderId, id);
            _listings.leave(folderId, id);
            listing.removeItem(id);
        } else if (load.kind == LoadKind::Listing && !isListed(*shown, load.filter)) {
            _listings.remember(folderId, id);
            listing.removeItem(id);
        }
    }
    for (const unsigned long id : _edits.shownIn(folderId)) {
        const std::shared_ptr<Item> item = _cache.getItemInternal(id);
        const Shown served = _edits.served(id);
        const bool isServed = served && isListed(*served, load.filter);
        if (item && !isServed && listing.filter().matchesQuery(*item)) {
            listing.addItem(item, false);
        }
    }
}

// What a page may take the place of.
std::vector<std::shared_ptr<Item>> Client::Engine::standing(const Load& load, unsigned long total) {
    if (load.kind == LoadKind::LookUp) {
        return {};
    }
    auto stood = load.directory->page(load.filter.getOffset(), load.filter.getCount());
    const auto behind = load.directory->page(total, std::numeric_limits<unsigned long>::max());
    stood.insert(stood.end(), behind.begin(), behind.end());
    return stood;
}

// What comes by another way than with the folder's whole listing may leave without a trace there.
// Returns whether one that is known from end to end lacks something.
bool Client::Engine::doubtDelivered(const Load& load, const std::vector<unsigned long>& delivered) {
    const unsigned long folderId = load.filter.dataIds().front();
    const Directory whole = _listings.whole(folderId);
    bool lacks = false;
    for (const unsigned long id : delivered) {
        if (!whole || !whole->contains(id)) {
            doubt(folderId, id);
            lacks = lacks || !_edits.has(id);
        }
    }
    return lacks && whole && whole != load.directory && isComplete(whole);
}

// A total that nothing here explains makes every other page doubtful. One entry that is on such a
// page, to tell by.
std::optional<unsigned long> Client::Engine::heldOutside(const Load& load, unsigned long total) {
    const QueryResultInternal& listing = internalOf(load);
    if (load.kind == LoadKind::LookUp || total == listing.totalCount()) {
        return std::nullopt;
    }
    const unsigned long begin = load.filter.getOffset();
    const unsigned long end = begin + load.filter.getCount();
    for (const std::shared_ptr<Item>& item : listing.items()) {
        const auto position = listing.heldPositionOf(item->id());
        if (position && (*position < begin || *position >= end)) {
            return item->id();
        }
    }
    return std::nullopt;
}

// Also where there is no other listing, and once.
void Client::Engine::tellUnexplained(const Load& load, Outdated& outdated) {
    const unsigned long folderId = load.filter.dataIds().front();
    _listings.invalidate(folderId, load.directory.get());
    outdated.erase(folderId);
    events.push(ListingInvalidated{folderId});
}

bool Client::Engine::stillHeld(const Load& load, std::optional<unsigned long> id) {
    const QueryResultInternal& listing = internalOf(load);
    return !id || listing.heldPositionOf(*id) || !listing.contains(*id);
}

void Client::Engine::doubtVanished(const Load& load,
                                   const std::vector<std::shared_ptr<Item>>& stood) {
    const unsigned long folderId = load.filter.dataIds().front();
    for (const std::shared_ptr<Item>& item : stood) {
        if (item->parentId() == folderId && !load.directory->contains(item->id())) {
            doubt(folderId, item->id());
        }
    }
}

// The entry of a folder may be there no longer: the folder's listing decides, once it is known from
// end to end.
void Client::Engine::doubt(unsigned long folderId, unsigned long id) {
    _doubtful[folderId].insert(id);
}

void Client::Engine::dropVanished(const Load& load) {
    const unsigned long folderId = load.filter.dataIds().front();
    const auto doubtful = _doubtful.find(folderId);
    const bool decides = load.kind == LoadKind::Listing && load.filter.getQuery().empty();
    if (!decides || doubtful == _doubtful.end() || !isComplete(load.directory)) {
        return;
    }
    const std::set<unsigned long> ids = std::move(doubtful->second);
    _doubtful.erase(doubtful);
    const auto listed = [&](unsigned long id) { return load.directory->contains(id); };
    for (const unsigned long id : ids) {
        const std::shared_ptr<Item> item = _cache.getItemInternal(id);
        if (!item || item->parentId() != folderId || (listed(id) && isWhole(load.filter))) {
            continue;
        }
        if (listed(id) || _edits.has(id) || !load.filter.matchesQuery(*item)) {
            doubt(folderId, id);
        } else {
            lose(id);
        }
    }
}

void Client::Engine::believe(unsigned long folderId, unsigned long id) noexcept {
    const auto doubtful = _doubtful.find(folderId);
    if (doubtful != _doubtful.end() && doubtful->second.erase(id) != 0 &&
        doubtful->second.empty()) {
        _doubtful.erase(doubtful);
    }
}

// Of one entry of a folder, or of all.
void Client::Engine::forgetFound(unsigned long folderId, unsigned long id) noexcept {
    auto found = _found.lower_bound({folderId, {}});
    while (found != _found.end() && found->first.first == folderId) {
        found = id == 0 || found->second == id ? _found.erase(found) : std::next(found);
    }
}

// The cache refreshes documents it knows when they are delivered again, but not folders.
void Client::Engine::refreshFolder(const Nimra::Folder& folder) {
    const auto container = _cache.castContainer(_cache.getItemInternal(folder.id));
    if (const auto internal = OrmekCast::castItemInternal(container)) {
        refresh(*internal, folder);
        internal->driveId(folder.driveId);
        internal->firstText(folder.secondLeading);
        internal->secondText(folder.firstLeading);
        internal->thirdText(folder.fourthTrailing);
        internal->shares(folder.shares);
        internal->setACLMap(folder.ownerId, folder.accessLevel);
    }
}

// Nor does it refresh tags: what is kept under a key stays.
void Client::Engine::refreshTags(const std::vector<Nimra::Tag>& tags) {
    for (const Nimra::Tag& tag : tags) {
        const auto kept = _cache.keyValues().find(tag.tagKey);
        if (kept == _cache.keyValues().end()) {
            continue;
        }
        if (const auto object = OrmekCast::castObjectInternal(_cache.castObject(kept->second))) {
            // Another tag under the same key is the service's mistake, and not for us to mix.
            if (object->id() != tag.id) {
                continue;
            }
            refresh(*object, tag);
            object->setKeyValues(tag.keyValues());
        }
    }
}

void Client::Engine::refreshObject(ObjectInternal& object, const Nimra::Document& record) {
    refresh(object, record);
    object.length(record.length);
    object.setMimeType(record.mimeType);
    object.setKeyValues(record.keyValues());
    object.description(record.description);
    object.setACLMap(record.ownerId, record.aclMode);
    object._shares = record.shares;
    object._state = record.state;
    object.dataLoaded(true);
}

}  // namespace Ormek
