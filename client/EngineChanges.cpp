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
    doubtLoads(folderId);
    const Before before = this->before({record.id});
    const Values stood = valuesOf(record.id);
    receive(record, nullptr);
    const bool stands = stood && _cache.getItemInternal(record.id);
    const std::shared_ptr<Item> item = bringIn(record);
    if (stands && stood->folderId == item->parentId()) {
        _listings.refit(item);
    } else if (!isHidden(record.id)) {
        _listings.enter(item);
    }
    doubt(folderId, record.id);
    invalidate(folderId);
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
    if (const auto known = _cache.getItemInternal(folder.id)) {
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

// Any page that is under way may bring back what is not known, or no longer.
void Client::Engine::loseElsewhere(unsigned long id) {
    for (auto& [operationId, load] : _loads) {
        load.doubted = true;
    }
    lose(id);
}

void Client::Engine::onRemoteDoubt(unsigned long folderId) {
    folderId = current(folderId);
    doubtLoads(folderId);
    invalidate(folderId);
}

}  // namespace Ormek
