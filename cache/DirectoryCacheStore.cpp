// The store: wiring, look-ups, removal, new parents and new ids.

#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"
#include "model/WriteSide.h"

namespace Ormek {

DirectoryCache::DirectoryCache()
    : _indexes(std::make_unique<Indexes>(_directories, _keyValueDirectories)) {}

DirectoryCache::~DirectoryCache() = default;

void DirectoryCache::setServices(std::map<int, Nimra::DataService*>* services) {
    _services = services;
}

void DirectoryCache::setObjectUpdater(ObjectUpdater* updater) { _objectUpdater = updater; }

void DirectoryCache::setOpWithoutIdsQueue(QueuedOperationsManager* queue) {
    _opWithoutIdsQueue = queue;
}

std::shared_ptr<Item> DirectoryCache::getItem(unsigned long id) {
    trace("Ormek::DirectoryCache::getItem 1\n");
    const auto found = _items.find(id);
    if (found == _items.end() || !found->second) {
        trace("Ormek::DirectoryCache::getItem didnt find item with id: ", id, "\n");
        return nullptr;
    }
    const std::shared_ptr<Item>& item = found->second;
    if (tracing()) {
        trace("Ormek::DirectoryCache::getItem 1.2 parentId: ", item->parentId(), " ",
              item->oldParentId(), " ", item->id(), "\n");
    }
    return item;
}

std::shared_ptr<Item> DirectoryCache::getItemInternal(unsigned long id) {
    const std::lock_guard lock(_itemsMutex);
    return getItem(id);
}

bool DirectoryCache::ItemInCache(unsigned long id) {
    trace("Ormek::DirectoryCache::ItemInCache: \n");
    if (_items.count(id) != 0) {
        trace("Ormek::DirectoryCache::ItemInCache: -----------> true \n");
        return true;
    }
    trace("Ormek::DirectoryCache::ItemInCache: -----------> false \n");
    return false;
}

std::shared_ptr<Item> DirectoryCache::ItemInCache(unsigned long parentId, std::string name) {
    std::shared_ptr<Item> result;
    for (const auto& entry : _items) {
        const std::shared_ptr<Item>& item = entry.second;
        if (item && item->parentId() == parentId && item->name() == name) {
            trace("Item Found: ", name, "\n");
            result = item;
        }
    }
    return result;
}

bool DirectoryCache::ItemHasChild(unsigned long parentId) {
    const std::shared_ptr<Item>& first = _items.begin()->second;
    return first && first->parentId() == parentId;
}

int DirectoryCache::itemCount(unsigned long id) { return static_cast<int>(_items.count(id)); }

unsigned long DirectoryCache::itemsSize() { return _items.size(); }

std::vector<std::shared_ptr<Item>> DirectoryCache::getChildren(unsigned long parentId) {
    std::vector<std::shared_ptr<Item>> children;
    for (const auto& entry : _items) {
        if (entry.second && entry.second->parentId() == parentId) {
            children.push_back(entry.second);
        }
    }
    return children;
}

std::shared_ptr<QueryResult> DirectoryCache::getDirectory(unsigned long dataId) {
    std::shared_ptr<QueryResult> found;
    _indexes->listings.visit(dataId, [&](const std::shared_ptr<QueryResult>& directory) {
        if (!internalOf(directory).filter().matchesDataId(dataId)) {
            return false;
        }
        found = directory;
        return true;
    });
    return found;
}

void DirectoryCache::printAllItems() {
    trace("Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n");
    for (const auto& entry : _items) {
        const std::shared_ptr<Item>& item = entry.second;
        if (!item || !tracing()) {
            continue;
        }
        trace("NAME: ", item->name(), "\n");
        trace("ID: ", item->id(), "\n");
        trace("PARENT ID: ", item->parentId(), "\n");
        trace("OLD PARENT ID: ", item->oldParentId(), "\n");
        trace("TYPE: ", item->type(), "\n");
        trace("DRIVE ID: ", item->driveId(), "\n");
    }
}

std::shared_ptr<Container> DirectoryCache::castContainer(std::shared_ptr<Item> item) {
    if (ContainerInternal* container = item ? containerWriteSide(*item) : nullptr) {
        return {item, container};
    }
    return std::dynamic_pointer_cast<Container>(item);
}

void DirectoryCache::removeItemFromCache(unsigned long id) {
    const std::lock_guard lock(_itemsMutex);
    _items.erase(id);
}

void DirectoryCache::removeItem(unsigned long parentId, unsigned long id) {
    const std::lock_guard lock(_mutex);
    _indexes->listings.visit(parentId, [=](const std::shared_ptr<QueryResult>& directory) {
        QueryResultInternal& internal = internalOf(directory);
        if (internal.filter().matchesDataId(parentId)) {
            internal.removeItem(id);
        }
        return false;
    });
    removeItemFromCache(id);
}

void DirectoryCache::removeFolder(Nimra::Folder folder) { removeItem(folder.parentId, folder.id); }

void DirectoryCache::removeContainer(Container container) {
    removeItem(container.parentId(), container.id());
}

// Unlike removeItem this stops at the first directory, which is meant.
void DirectoryCache::removeItemFromDirectories(unsigned long dataId, unsigned long itemId) {
    const std::lock_guard lock(_mutex);
    _indexes->listings.visit(dataId, [=](const std::shared_ptr<QueryResult>& directory) {
        QueryResultInternal& internal = internalOf(directory);
        const bool isIt = internal.filter().matchesDataId(dataId);
        if (isIt) {
            internal.removeItem(itemId);
        }
        return isIt;
    });
}

void DirectoryCache::updateItemId(unsigned long oldId, unsigned long newId) {
    const std::lock_guard lock(_itemsMutex);
    const auto found = _items.find(oldId);
    if (found == _items.end() || !found->second) {
        trace("Ormek::DirectoryCache::updateItemId COULD NOT FIND ITEM WE ARE TRYING TO UPDATE\n");
        return;
    }
    const std::shared_ptr<Item> item = found->second;
    if (tracing()) {
        trace("Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: ", item->id(), " ",
              item->name(), "\n");
    }
    const std::shared_ptr<ItemInternal> internal = OrmekCast::castItemInternal(item);
    if (internal) {
        internal->id(newId);
    }
    // The entry keeps its node, so that nothing is allocated and nothing can fail in between.
    auto node = _items.extract(found);
    node.key() = newId;
    const std::shared_ptr<Item>& stored = _items.insert(std::move(node)).position->second;
    if (internal) {
        internal->idLoaded(true);
    }
    trace("Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: ", newId, "\n");
    trace("Ormek::DirectoryCache::updateItemId IDLOADED: ", stored && stored->idLoaded() ? 1 : 0,
          "\n");
    trace("Ormek::DirectoryCache::updateItemId IDLOADED: ", stored ? stored->id() : 0, "\n");
}

void DirectoryCache::updateItemParentIds(unsigned long oldParentId, unsigned long newParentId) {
    const std::lock_guard lock(_itemsMutex);
    for (const auto& entry : _items) {
        if (!entry.second || entry.second->parentId() != oldParentId) {
            continue;
        }
        if (const auto internal = OrmekCast::castItemInternal(entry.second)) {
            internal->parentId(newParentId);
        }
    }
}

}  // namespace Ormek
