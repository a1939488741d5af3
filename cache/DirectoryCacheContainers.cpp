// The store: folders.

#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"

namespace Ormek {

std::shared_ptr<Container> DirectoryCache::cacheContainer(Container& container) {
    trace("Ormek::DirectoryCache::cacheContainer 1: ", container.id(), " ",
          static_cast<const void*>(_objectUpdater), "\n");
    const auto stored = std::make_shared<ContainerInternal>(container, _objectUpdater);
    trace("Ormek::DirectoryCache::cacheContainer 2: \n");
    trace("id: ", container.id(), " obj id: ", stored->id(), "\n");
    trace("Ormek::DirectoryCache::cacheContainer 3: \n");
    const auto entry = _items.try_emplace(stored->id(), stored).first;
    trace("Ormek::DirectoryCache::cacheContainer 4: \n");
    return castContainer(entry->second);
}

std::shared_ptr<Container> DirectoryCache::cacheContainerInternal(Container& container) {
    const std::lock_guard lock(_itemsMutex);
    return cacheContainer(container);
}

void DirectoryCache::cacheContainerPtr(std::shared_ptr<Container> container) {
    trace("Ormek::DirectoryCache::cacheContainerPtr 1 \n");
    cacheItemPtr(std::move(container));
}

void DirectoryCache::cacheContainerPtrInternal(std::shared_ptr<Container> container) {
    const std::lock_guard lock(_itemsMutex);
    cacheContainerPtr(std::move(container));
}

void DirectoryCache::cacheItemPtr(std::shared_ptr<Item> item) {
    const unsigned long id = item->id();
    _items.try_emplace(id, std::move(item));
}

std::shared_ptr<Container> DirectoryCache::addContainer(Container& container) {
    if (tracing()) {
        trace("\n", "Ormek::DirectoryCache::addContainer: 1 ", container.name(),
              " containerId: ", container.id(), " parentId: ", container.parentId(), "\n");
    }
    // Empty where an object, or an empty entry, has the id: nothing is added to a directory then.
    std::shared_ptr<Container> stored = cacheContainerInternal(container);
    if (tracing()) {
        trace("Ormek::DirectoryCache::addContainer 2: ", stored ? stored->name() : std::string(),
              " containerPtr ID: ", stored ? stored->id() : 0, "\n");
    }
    const std::lock_guard lock(_mutex);
    if (QueryResultInternal* directory = firstDirectoryOf(container)) {
        trace("Adding container to queryresult\n");
        directory->addItem(stored ? getItemInternal(stored->id()) : nullptr, false);
    }
    return stored;
}

std::shared_ptr<Container> DirectoryCache::addContainerPtr(std::shared_ptr<Container> container,
                                                           bool flag) {
    if (tracing()) {
        trace("\n", "Ormek::DirectoryCache::addContainer: 1 ", container->name(),
              " containerId: ", container->id(), "\n");
    }
    cacheContainerPtrInternal(container);
    if (tracing()) {
        trace("Ormek::DirectoryCache::addContainer 2: ", container->name(),
              " containerPtr ID: ", container->id(), "\n");
    }
    const std::lock_guard lock(_mutex);
    if (QueryResultInternal* directory = firstDirectoryOf(*container)) {
        directory->addItem(getItemInternal(container->id()), flag);
    }
    return container;
}

// The flag is dropped, which is meant.
std::shared_ptr<Container> DirectoryCache::addFolder(Nimra::Folder folder, bool /*flag*/) {
    return addContainerPtr(getContainer(folder), false);
}

// The trace alone carries no namespace, which is meant.
std::shared_ptr<Container> DirectoryCache::getContainer(Nimra::Folder folder) {
    trace("::DirectoryCache::getContainer() ", static_cast<const void*>(_objectUpdater), "\n");
    return std::make_shared<ContainerInternal>(folder, _objectUpdater);
}

void DirectoryCache::replaceContainer(Container& container) {
    removeItem(container.parentId(), container.id());
    addContainer(container);
}

Nimra::Folder DirectoryCache::itemToFolder(Item* item) {
    Nimra::Folder folder;
    folder.id = item->id();
    folder.parentId = item->parentId();
    folder.name = item->name();
    folder.ownerId = item->ownerId();
    folder.driveId = item->driveId();
    folder.oldParentId = item->oldParentId();
    folder.fourthTrailing = item->thirdText();
    folder.created = item->created();
    folder.updated = item->updated();
    folder.deleted = item->deleted();
    folder.shares = item->shares();
    folder.secondLeading = item->firstText();
    folder.firstLeading = item->secondText();
    folder.accessLevel = item->ACLMap()[item->ownerId()];
    return folder;
}

}  // namespace Ormek
