// Merging the pages that the service layer delivers.

#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"
#include "model/WriteSide.h"

namespace Ormek {

namespace {

using PageList = std::vector<std::shared_ptr<Item>>;

void recordPage(QueryResultInternal& directory, const FilterInternal& filter,
                unsigned long totalCount) {
    directory.addPage(filter.getOffset(), filter.getCount());
    directory.totalCount(totalCount);
}

void traceCounts(const char* label, const QueryResult& directory) {
    if (tracing()) {
        trace(label, directory.totalCount(), " = ", directory.count(), "\n");
    }
}

void markIdLoaded(const std::shared_ptr<Item>& item) {
    ItemInternal* const internal = item ? writeSide(*item) : nullptr;
    if (internal) {
        internal->idLoaded(true);
    } else if (const auto derived = OrmekCast::castItemInternal(item)) {
        derived->idLoaded(true);
    }
}

}  // namespace

// Folders and documents. Of the three operations only this one traces the counts.
void DirectoryCache::addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                              std::vector<Nimra::Folder> folders,
                              std::vector<Nimra::Document> documents, unsigned long totalCount) {
    trace("Ormek::DirectoryCache::addItems 3 ", totalCount, "\n");
    trace("Ormek::DirectoryCache::addItems 3.1 filter.count ", filter.getCount(), "\n");
    QueryResultInternal& directory = internalOf(result);
    recordPage(directory, filter, totalCount);
    traceCounts("Ormek::DirectoryCache::addItems query count ", directory);
    PageList page;
    page.reserve(folders.size() + documents.size());
    for (const Nimra::Folder& folder : folders) {
        const std::shared_ptr<Container> container = getContainer(folder);
        if (!getItemInternal(folder.id)) {
            cacheContainerPtrInternal(container);
        }
        page.push_back(_items[folder.id]);
        markIdLoaded(_items[folder.id]);
    }
    traceCounts("Ormek::DirectoryCache::addItems query count2c ", directory);
    for (Nimra::Document& document : documents) {
        auto object = std::make_shared<ObjectInternal>(document, _objectUpdater);
        if (getItemInternal(document.id)) {
            trace("------> addItems ELSE statement ", "\n");
            page.push_back(updateObject(document, false));
        } else {
            trace("------> addItems if statement item == NULL ", "\n");
            page.push_back(cacheObjectPtrInternal(std::move(object)));
        }
        markIdLoaded(_items[document.id]);
    }
    trace("filter offset? ", filter.getOffset(), "\n");
    const std::lock_guard lock(_mutex);
    traceCounts("Ormek::DirectoryCache::addItems query count2a ", directory);
    directory.addItems(filter.getOffset(), std::move(page));
    traceCounts("Ormek::DirectoryCache::addItems query count2b ", directory);
}

// Folders. Every numbered line but "8" prints the total, which is meant.
void DirectoryCache::addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                              std::vector<Nimra::Folder> folders, unsigned long totalCount) {
    trace("Ormek::DirectoryCache::addItems 1 ", totalCount, "\n");
    QueryResultInternal& directory = internalOf(result);
    recordPage(directory, filter, totalCount);
    trace("Ormek::DirectoryCache::addItems 3 ", totalCount, "\n");
    PageList page;
    page.reserve(folders.size());
    for (const Nimra::Folder& folder : folders) {
        const std::shared_ptr<Container> container = getContainer(folder);
        const std::shared_ptr<Item> known = getItemInternal(folder.id);
        trace("Ormek::DirectoryCache::addItems 4 ", totalCount, "\n");
        if (!known) {
            cacheContainerPtrInternal(container);
            trace("Ormek::DirectoryCache::addItems 5 ", totalCount, "\n");
        }
        trace("Ormek::DirectoryCache::addItems 6 ", totalCount, "\n");
        trace("Ormek::DirectoryCache::addItems 8",
              static_cast<const void*>(_items[folder.id].get()), "\n");
        page.push_back(_items[folder.id]);
        markIdLoaded(_items[folder.id]);
        trace("Ormek::DirectoryCache::addItems 7 ", totalCount, "\n");
    }
    {
        const std::lock_guard lock(_mutex);
        directory.addItems(filter.getOffset(), std::move(page), PagePart::Folders);
    }
    trace("Ormek::DirectoryCache::addItems 2 ", totalCount, "\n");
}

// Documents. Ids are marked as loaded by the id update alone, and so only on new ones.
void DirectoryCache::addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                              std::vector<Nimra::Document> documents, unsigned long totalCount) {
    trace("Ormek::DirectoryCache::addItems 2 ", totalCount, "\n");
    QueryResultInternal& directory = internalOf(result);
    recordPage(directory, filter, totalCount);
    PageList page;
    page.reserve(documents.size());
    for (Nimra::Document& document : documents) {
        std::shared_ptr<Object> object = std::make_shared<ObjectInternal>(document, _objectUpdater);
        if (getItemInternal(document.id)) {
            object = updateObject(document, false);
        } else {
            object = cacheObjectPtrInternal(std::move(object));
            // Empty where the store has an empty entry under the id.
            if (object) {
                updateItemId(object->id(), document.id);
            }
        }
        page.push_back(std::move(object));
    }
    {
        const std::lock_guard lock(_mutex);
        directory.addItems(filter.getOffset(), std::move(page), PagePart::Documents);
    }
    trace("Ormek::DirectoryCache::addItems Items were added to dir.", "\n");
}

void DirectoryCache::addKeyValues(FilterInternal filter, std::shared_ptr<QueryResult> result,
                                  std::vector<Nimra::Tag> tags, unsigned long totalCount) {
    trace("Ormek::DirectoryCache::addTags ", totalCount, "\n");
    QueryResultInternal& directory = internalOf(result);
    recordPage(directory, filter, totalCount);
    PageList page;
    page.reserve(tags.size());
    for (const Nimra::Tag& tag : tags) {
        cacheKeyValuePtr(tag.tagKey, getObjectFromTag(tag));
        if (tracing()) {
            trace("gettag push back ", tag.keyValues()["artist"].first, " ", tag.tagKey, "\n");
        }
        page.push_back(_keyValues[tag.tagKey]);
        // The first tag's slot in every iteration, which is meant.
        trace("item vector original adress3 ",
              static_cast<const void*>(&_keyValues[tags.front().tagKey]), "\n");
    }
    directory.addItems(filter.getOffset(), std::move(page));
    trace("_keyValues items count ", _keyValues.size(), "\n");
}

}  // namespace Ormek
