// Changes made elsewhere, as a service's change feed reports them.

#include <stdexcept>

#include "client/Engine.h"
#include "service/LocalIds.h"

namespace Ormek {

namespace {

void checkIsServerId(unsigned long id) {
    if (id == 0 || Nimra::isLocalId(id)) {
        throw std::invalid_argument("not a server id: " + std::to_string(id));
    }
}

}  // namespace

void Client::Engine::onRemoteChange(Nimra::Document document) {
    changeElsewhere(std::move(document));
}

void Client::Engine::onRemoteChange(Nimra::Folder folder) { changeElsewhere(std::move(folder)); }

template <class Record>
void Client::Engine::changeElsewhere(Record record) {
    checkIsServerId(record.id);
    if (record.id == _rootId) {
        throw std::invalid_argument("the root folder cannot be changed");
    }
    const unsigned long folderId = record.parentId;
    if (!isFolderHeld(folderId)) {
        loseElsewhere(record.id);
        return;
    }
    noteNews(record.id);
    doubtPages(folderId);
    const Before before = this->before({record.id});
    const Values stood = valuesOf(record.id);
    Outdated outdated{folderId};
    receive(record, outdated);
    const bool stands = stood && _cache.getItemInternal(record.id);
    const std::shared_ptr<Item> item = bringIn(record);
    if (stands && stood->folderId == item->parentId()) {
        _listings.refit(item);
    } else if (!isHidden(record.id)) {
        _listings.enter(item);
    }
    doubtLookUps(*item);
    doubt(folderId, record.id);
    // Its tag may be held where it lay before, also when the entry itself is not.
    _listings.invalidateTags(folderId, record.id);
    for (const unsigned long id : outdated) {
        invalidate(id);
    }
    tell(before);
}

std::shared_ptr<Item> Client::Engine::bringIn(Nimra::Document& document) {
    if (const auto known =
            OrmekCast::castObjectInternal(_cache.castObject(_cache.getItemInternal(document.id)))) {
        refreshObject(*known, document);
        return known;
    }
    const std::shared_ptr<Object> made = _cache.getObject(document);
    // An empty entry under the id would stay in its place.
    _cache.removeItemFromCache(document.id);
    _cache.cacheObjectPtrInternal(made);
    _cache.updateItemId(document.id, document.id);
    return made;
}

std::shared_ptr<Item> Client::Engine::bringIn(Nimra::Folder& folder) {
    if (auto known = _cache.getItemInternal(folder.id)) {
        refreshFolder(folder);
        return known;
    }
    const std::shared_ptr<Container> made = _cache.getContainer(folder);
    _cache.removeItemFromCache(folder.id);
    _cache.cacheContainerPtrInternal(made);
    _cache.updateItemId(folder.id, folder.id);
    return made;
}

void Client::Engine::onRemoteRemoval(unsigned long id) {
    if (id == _rootId) {
        throw std::invalid_argument("the root folder cannot be removed");
    }
    checkIsServerId(id);
    loseElsewhere(id);
}

void Client::Engine::loseElsewhere(unsigned long id) {
    noteNews(id);
    lose(id);
}

void Client::Engine::onRemoteDoubt(unsigned long folderId) {
    folderId = current(folderId);
    doubtLoads(folderId);
    invalidate(folderId);
}

// --- Loads that are under way meanwhile ------------------------------------------------------

// Any page may bring the entry, and the folder where it stood another length.
void Client::Engine::noteNews(unsigned long id) {
    if (_loads.empty()) {
        _news.clear();
        return;
    }
    _news[id] = ++_newsCount;
    if (const Shown served = servedOf(id)) {
        doubtPages(served->folderId);
    }
}

void Client::Engine::doubtLoads(unsigned long folderId) {
    for (auto& [operationId, load] : _loads) {
        load.doubted = load.doubted || load.filter.matchesDataId(folderId);
    }
}

void Client::Engine::doubtPages(unsigned long folderId) {
    for (auto& [operationId, load] : _loads) {
        load.doubted =
            load.doubted || (load.kind != LoadKind::LookUp && load.filter.matchesDataId(folderId));
    }
}

// A change of an entry of the folder: neither are its tags answered from memory, nor with a load
// that was asked for before.
void Client::Engine::doubtTags(unsigned long folderId, unsigned long id) noexcept {
    for (auto& [operationId, load] : _loads) {
        load.doubted =
            load.doubted || (load.kind == LoadKind::Tags && load.filter.matchesDataId(folderId));
    }
    _listings.invalidateTags(folderId, id);
}

// Whoever looks for this name is answered with the entry, which the service may not have had yet.
void Client::Engine::doubtLookUps(const Item& item) {
    for (auto& [operationId, load] : _loads) {
        if (load.kind == LoadKind::LookUp && load.filter.matchesDataId(item.parentId()) &&
            load.filter.getPath() == item.name()) {
            load.doubted = true;
            _found[{item.parentId(), item.name()}] = item.id();
        }
    }
}

}  // namespace Ormek
