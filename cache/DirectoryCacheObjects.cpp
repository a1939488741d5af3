// The store: documents and key-value entries.

#include <map>
#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"
#include "model/WriteSide.h"

namespace Ormek {

namespace {

// addOrReplaceObjectPtr uses these words too, which is meant.
void traceAdding(const Object& object) {
    if (tracing()) {
        trace("\n", "Ormek::DirectoryCache::addObject: ", object.name(), "\n");
    }
}

// Without the reference that a cast of the pointer takes.
ObjectInternal* internalOf(Object* object) {
    ObjectInternal* const internal = object ? objectWriteSide(*object) : nullptr;
    return internal ? internal : dynamic_cast<ObjectInternal*>(object);
}

// castObject without the reference that it takes by value.
std::shared_ptr<Object> objectOf(const std::shared_ptr<Item>& item) {
    if (ObjectInternal* object = item ? objectWriteSide(*item) : nullptr) {
        return {item, object};
    }
    return std::dynamic_pointer_cast<Object>(item);
}

}  // namespace

std::shared_ptr<Object> DirectoryCache::castObject(std::shared_ptr<Item> item) {
    return objectOf(item);
}

std::shared_ptr<Object> DirectoryCache::cacheObject(Object& object) {
    return cacheObjectPtr(std::make_shared<ObjectInternal>(object, _objectUpdater));
}

std::shared_ptr<Object> DirectoryCache::cacheObjectInternal(Object& object) {
    const std::lock_guard lock(_itemsMutex);
    return cacheObject(object);
}

std::shared_ptr<Object> DirectoryCache::cacheObjectPtr(std::shared_ptr<Object> object) {
    const unsigned long id = object->id();
    trace("--------OBJECT ID:  ", id, "------------", "\n");
    const auto stored = _items.try_emplace(id, std::move(object)).first;
    return objectOf(stored->second);
}

std::shared_ptr<Object> DirectoryCache::cacheObjectPtrInternal(std::shared_ptr<Object> object) {
    const std::lock_guard lock(_itemsMutex);
    return cacheObjectPtr(std::move(object));
}

std::shared_ptr<Object> DirectoryCache::addObject(Object object, bool flag) {
    traceAdding(object);
    addToFirstDirectory(object, cacheObjectInternal(object), flag);
    return objectOf(_items[object.id()]);
}

std::shared_ptr<Object> DirectoryCache::addObjectPtr(std::shared_ptr<Object> object, bool flag) {
    traceAdding(*object);
    addToFirstDirectory(*object, cacheObjectPtrInternal(object), flag);
    return objectOf(_items[object->id()]);
}

void DirectoryCache::addToFirstDirectory(const Object& object, std::shared_ptr<Item> stored,
                                         bool flag) {
    const std::lock_guard lock(_mutex);
    if (QueryResultInternal* directory = firstDirectoryOf(object)) {
        directory->addItem(std::move(stored), flag);
    }
}

// The directory is edited without its mutex, which is meant.
std::shared_ptr<Object> DirectoryCache::addOrReplaceObjectPtr(std::shared_ptr<Object> object,
                                                              bool flag) {
    traceAdding(*object);
    const std::shared_ptr<Item> stored = cacheObjectPtrInternal(object);
    if (QueryResultInternal* directory = firstDirectoryOf(*object)) {
        directory->replaceItem(stored, flag);
    }
    return objectOf(_items[object->id()]);
}

// The flag is dropped, which is meant.
std::shared_ptr<Object> DirectoryCache::addDocument(Nimra::Document document, bool /*flag*/) {
    auto object = std::make_shared<ObjectInternal>(document, _objectUpdater);
    object->dataLoaded(true);
    return addObjectPtr(std::move(object), false);
}

// The flag is dropped, which is meant.
std::shared_ptr<Object> DirectoryCache::updateObject(Nimra::Document& document, bool /*flag*/) {
    trace("DEBUG 1\n");
    std::shared_ptr<Object> object = castObject(getItemInternal(document.id));
    trace("DEBUG 2\n");
    ObjectInternal* const internal = internalOf(object.get());
    trace("DEBUG 3\n");
    if (!internal) {
        trace("DEBUG 8\n");
        return nullptr;
    }
    internal->_state = document.state;
    internal->id(document.id);
    internal->parentId(document.parentId);
    internal->name(document.name);
    internal->ownerId(document.ownerId);
    internal->created(document.created);
    internal->updated(document.updated);
    internal->deleted(document.deleted);
    internal->length(document.length);
    internal->type(4);
    internal->setKeyValues(document.keyValues());
    trace("DEBUG 4\n");
    internal->setMimeType(document.mimeType);
    internal->dataLoaded(true);
    // From a copy, since an assignment that fails midway leaves neither the old rows nor the new.
    internal->_shares = std::map(document.shares);
    internal->setACLMap(document.ownerId, document.aclMode);
    internal->description(document.description);
    trace("DEBUG 5\n");
    trace("DEBUG 6\n");
    addOrReplaceObjectPtr(object, false);
    trace("DEBUG 7\n");
    return object;
}

void DirectoryCache::updateObjectMetaData(Nimra::Document& document) {
    const std::shared_ptr<ObjectInternal> object =
        OrmekCast::castObjectInternal(castObject(getItemInternal(document.id)));
    if (!object) {
        return;
    }
    object->setKeyValues(document.keyValues());
    object->created(document.created);
    object->updated(document.updated);
    object->length(document.length);
    object->type(4);
    object->setMimeType(document.mimeType);
    object->dataLoaded(true);
}

std::shared_ptr<Object> DirectoryCache::getObject(Nimra::Document document) {
    return std::make_shared<ObjectInternal>(document, _objectUpdater);
}

std::shared_ptr<Object> DirectoryCache::getObjectFromTag(Nimra::Tag tag) {
    auto object = std::make_shared<ObjectInternal>(_objectUpdater);
    object->id(tag.id);
    object->parentId(tag.parentId);
    object->name(tag.name);
    object->ownerId(tag.ownerId);
    object->created(tag.created);
    object->updated(tag.updated);
    object->deleted(tag.deleted);
    object->type(16);
    object->setKeyValues(tag.keyValues());
    return object;
}

void DirectoryCache::cacheKeyValue(std::string key, Object& object) {
    cacheKeyValuePtr(std::move(key), std::make_shared<ObjectInternal>(object, _objectUpdater));
}

void DirectoryCache::cacheKeyValuePtr(std::string key, std::shared_ptr<Object> object) {
    _keyValues.try_emplace(std::move(key), std::move(object));
}

QueryResultInternal* DirectoryCache::firstDirectoryOf(const Item& item) const {
    QueryResultInternal* found = nullptr;
    // What an entry matches is about its parent.
    _indexes->listings.visit(item.parentId(), [&](const std::shared_ptr<QueryResult>& directory) {
        QueryResultInternal& internal = internalOf(directory);
        if (!internal.filter().matchesQuery(item)) {
            return false;
        }
        found = &internal;
        return true;
    });
    return found;
}

}  // namespace Ormek
