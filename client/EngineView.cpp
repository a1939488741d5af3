// What is shown of an entry while actions on it are under way, and who is told when it changes.

#include "client/Engine.h"
#include "client/EntryStates.h"

namespace Ormek {

Edits::State stateOf(const Item& item) {
    const auto* object = dynamic_cast<const Object*>(&item);
    return {item.parentId(), item.name(), object ? object->keyValues() : Nimra::KeyValues()};
}

Edits::State stateOf(const Nimra::Document& document) {
    return {document.parentId, document.name, document.keyValues()};
}

Edits::State stateOf(const Nimra::Folder& folder) { return {folder.parentId, folder.name, {}}; }

void apply(const Edits::State& state, Nimra::Document& document) {
    document.parentId = state.folderId;
    document.name = state.name;
    document._keyValues = state.keyValues;
}

void apply(const Edits::State& state, Nimra::Folder& folder) {
    folder.parentId = state.folderId;
    folder.name = state.name;
}

bool Client::Engine::isHidden(unsigned long id) const {
    return _edits.has(id) && !_edits.shown(id);
}

Client::Engine::Shown Client::Engine::shownOf(unsigned long id) {
    if (_edits.has(id)) {
        return _edits.shown(id);
    }
    const std::shared_ptr<Item> item = _cache.getItemInternal(id);
    return item ? Shown(stateOf(*item)) : std::nullopt;
}

// What the service says of an entry, as far as is known.
Client::Engine::Shown Client::Engine::servedOf(unsigned long id) {
    return _edits.has(id) ? _edits.served(id) : shownOf(id);
}

Client::Engine::Values Client::Engine::valuesOf(unsigned long id) {
    const std::shared_ptr<Item> item = isHidden(id) ? nullptr : _cache.getItemInternal(id);
    if (!item) {
        return std::nullopt;
    }
    const auto* object = dynamic_cast<const Object*>(item.get());
    EntryValues values;
    values.folderId = item->parentId();
    values.name = item->name();
    values.isFolder = object == nullptr;
    values.updated = item->updated();
    if (object) {
        values.length = object->length();
        values.mimeType = object->mimeType();
        values.keyValues = object->keyValues();
    }
    return values;
}

// Brings the cache in line with what is to be shown of an entry.
void Client::Engine::show(unsigned long id, const Shown& was, const Shown& now) {
    const std::shared_ptr<Item> item = _cache.getItemInternal(id);
    if (!item || (!was && !now)) {
        return;
    }
    if (!now) {
        _listings.remember(was->folderId, id);
        _listings.leave(was->folderId, id);
        return;
    }
    if (item->name() != now->name) {
        _cache.renameItem(id, now->name);
        _listings.refit(item);
    }
    if (const auto object = OrmekCast::castObjectInternal(_cache.castObject(item))) {
        object->setKeyValues(now->keyValues);
    }
    showFolder(item, was.has_value(), now->folderId);
}

void Client::Engine::showFolder(const std::shared_ptr<Item>& item, bool wasShown,
                                unsigned long folderId) {
    const unsigned long left = item->parentId();
    if (left != folderId) {
        leave(*item, folderId);
    }
    if (!wasShown || left != folderId) {
        _listings.enter(item);
    }
}

// Takes an entry out of its folder's listings, and into another folder.
void Client::Engine::leave(const Item& item, unsigned long folderId) {
    const unsigned long id = item.id();
    _listings.leave(item.parentId(), id);
    believe(item.parentId(), id);
    _cache.onRemoteObjectMoved(folderId, id);
}

// The service has an entry no longer. Actions on it that are under way will fail, and say so; until
// then it is only hidden.
void Client::Engine::lose(unsigned long id) {
    const Before before = this->before({id});
    const Shown served = servedOf(id);
    _listings.invalidateTags(served ? served->folderId : 0, id);
    if (!_edits.has(id)) {
        drop(id);
    } else if (served) {
        const Shown was = _edits.shown(id);
        _edits.served(id, std::nullopt);
        show(id, was, _edits.shown(id));
        loseWhatIsIn(id);
    }
    tell(before);
}

// Takes an entry without actions under way out of the cache.
void Client::Engine::drop(unsigned long id) noexcept {
    const std::shared_ptr<Item> item = _cache.getItemInternal(id);
    if (!item) {
        return;
    }
    const unsigned long folderId = item->parentId();
    try {
        // Remembered and forgotten, so that what left before comes back beside its neighbours.
        _listings.remember(folderId, id);
    } catch (...) {
        // Without memory, it comes back elsewhere.
    }
    _listings.leave(folderId, id);
    _listings.forget(id);
    believe(folderId, id);
    forgetFound(folderId, id);
    _cache.removeItem(folderId, id);
    if (!_cache.castContainer(item)) {
        return;
    }
    _doubtful.erase(id);
    forgetFound(id);
    try {
        _listings.close(id);
        // Folders may contain each other, for a while: this one is no longer in any.
        loseWhatIsIn(id);
    } catch (...) {
        // It goes with the folder's listing, if that is ever loaded again.
    }
}

// What was moved there or made there here is only on its way to the service, and stays until that
// has failed; what was moved away from there here the service never moved.
void Client::Engine::loseWhatIsIn(unsigned long folderId) {
    std::vector<unsigned long> lost = _edits.servedIn(folderId);
    for (const std::shared_ptr<Item>& child : _cache.getChildren(folderId)) {
        if (!_edits.has(child->id())) {
            lost.push_back(child->id());
        }
    }
    for (const unsigned long id : lost) {
        lose(id);
    }
}

bool Client::Engine::isFolderHeld(unsigned long id) {
    return _cache.castContainer(_cache.getItemInternal(id)) != nullptr;
}

void Client::Engine::invalidate(unsigned long folderId, const QueryResult* except) noexcept {
    try {
        if (_listings.invalidate(folderId, except)) {
            events.push(ListingInvalidated{folderId});
        }
    } catch (...) {
        // Without memory it is not told.
    }
}

Client::Engine::Before Client::Engine::before(const std::vector<unsigned long>& ids) {
    Before before;
    if (events.hasListeners()) {
        for (const unsigned long id : ids) {
            before.emplace_back(id, valuesOf(id));
        }
    }
    return before;
}

// Without memory an event is not told.
void Client::Engine::tell(const Before& before, bool ofArrivals) noexcept {
    for (const auto& [id, was] : before) {
        try {
            tellOf(id, was, ofArrivals);
        } catch (...) {
        }
    }
}

void Client::Engine::tellOf(unsigned long id, const Values& was, bool ofArrivals) {
    // Ids may have become known meanwhile, which was told.
    id = current(id);
    Values before = was;
    if (before) {
        before->folderId = current(before->folderId);
    }
    const Values now = valuesOf(id);
    const bool isAnother = before && now && before->isFolder != now->isFolder;
    if (before && (!now || isAnother)) {
        events.push(EntryRemoved{id, *before});
    }
    if (now && ((!before && ofArrivals) || isAnother)) {
        events.push(EntryAdded{id, *now});
    } else if (before && now && *before != *now) {
        events.push(EntryChanged{id, *before, *now});
    }
}

}  // namespace Ormek
