#include "tests/support/CacheModel.h"

#include <algorithm>

namespace Ormek::Testing {

namespace {

const std::string Address = "<address>";

std::string text(const std::string& piece) { return piece; }
std::string text(const char* piece) { return piece; }
std::string text(unsigned long piece) { return std::to_string(piece); }
std::string text(unsigned int piece) { return std::to_string(piece); }
std::string text(int piece) { return std::to_string(piece); }

std::string addressIf(bool exists) { return exists ? Address : "0"; }

bool contains(const std::vector<unsigned long>& ids, unsigned long id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

std::string describe(const std::map<std::string, std::pair<std::string, bool>>& keyValues) {
    std::string all;
    for (const auto& [key, value] : keyValues) {
        all += ' ' + key + '=' + value.first + (value.second ? "!" : "");
    }
    return all;
}

/// Which of folders, documents and tags a query names; none means all.
bool typeFits(const ModelFilter& filter, const ModelEntry& entry) {
    std::vector<int> named = filter.dataTypes;
    named.push_back(filter.dataType);
    bool restricted = false;
    for (const int type : named) {
        restricted = restricted || type == 4 || type == 8 || type == 16;
    }
    const int kind = entry.isFolder ? 8 : 4;
    const int type = entry.type != 0 ? entry.type : kind;
    const bool restricting = type == 4 || type == 8 || type == 16;
    return !restricted ||
           (restricting && std::find(named.begin(), named.end(), type) != named.end());
}

bool matches(const ModelFilter& filter, const ModelEntry& entry) {
    const bool unjudged = !filter.path.empty() || !filter.url.empty() || !filter.group.empty() ||
                          !filter.tagLabels.empty();
    return !unjudged && contains(filter.dataIds, entry.parentId) &&
           (entry.deleted == 0 || filter.deleted) && typeFits(filter, entry) &&
           entry.name.find(filter.query) != std::string::npos;
}

/// The page, the by-pass flag and the context say nothing about which listing it is.
bool sameListing(const ModelFilter& a, const ModelFilter& b) {
    return a.dataIds == b.dataIds && a.userId == b.userId && a.dataType == b.dataType &&
           a.dataTypes == b.dataTypes && a.query == b.query && a.order == b.order &&
           a.path == b.path && a.url == b.url && a.group == b.group && a.tagLabels == b.tagLabels &&
           a.ascending == b.ascending && a.containerFirst == b.containerFirst &&
           a.deleted == b.deleted && a.serviceFlag == b.serviceFlag;
}

}  // namespace

// --- Text ----------------------------------------------------------------------------------

template <class... Pieces>
void CacheModel::write(const Pieces&... pieces) {
    ((trace += text(pieces)), ...);
}

std::string CacheModel::describe(const ModelEntry& entry) {
    std::string all = entry.isFolder ? "folder" : "object";
    for (const unsigned long number :
         {entry.id, entry.parentId, entry.oldParentId, entry.ownerId, entry.driveId, entry.created,
          entry.updated, entry.deleted, entry.length}) {
        all += ' ' + std::to_string(number);
    }
    all += " type " + std::to_string(entry.type) + " state " + std::to_string(entry.state);
    all += entry.idLoaded ? " id" : "";
    all += entry.dataLoaded ? " data" : "";
    all += entry.hasUpdater ? " updater" : "";
    for (const std::string* string : {&entry.name, &entry.description, &entry.firstText,
                                      &entry.secondText, &entry.thirdText, &entry.mimeType}) {
        all += " '" + *string + '\'';
    }
    for (const auto& [user, rows] : entry.shares) {
        all += " shared " + std::to_string(user) + 'x' + std::to_string(rows);
    }
    for (const auto& [user, level] : entry.access) {
        all += " access " + std::to_string(user) + ':' + std::to_string(level);
    }
    return all + Testing::describe(entry.keyValues);
}

std::string CacheModel::describeFile(const ModelRecord& document, unsigned int kind,
                                     const std::string& service, const std::string& protocol) {
    std::string all = "file " + std::to_string(kind);
    for (const unsigned long number : {document.id, document.parentId, document.oldParentId,
                                       document.ownerId, document.length}) {
        all += ' ' + std::to_string(number);
    }
    return all + " '" + document.name + "' '" + document.mimeType + '\'' +
           Testing::describe(document.keyValues) + " service " + service + " protocol " + protocol;
}

std::string CacheModel::describe(const ModelFilter& filter) {
    std::string all = "load " + std::to_string(filter.userId) + ' ' +
                      std::to_string(filter.offset) + ' ' + std::to_string(filter.count) +
                      " type " + std::to_string(filter.dataType) + " of";
    for (const unsigned long id : filter.dataIds) {
        all += ' ' + std::to_string(id);
    }
    for (const std::string* string : {&filter.query, &filter.path, &filter.url, &filter.group}) {
        all += " '" + *string + '\'';
    }
    for (const auto& [label, value] : filter.tagLabels) {
        all += ' ' + label + '=' + value;
    }
    all += filter.ascending ? " ascending" : "";
    all += filter.containerFirst ? " folders first" : "";
    all += filter.deleted ? " deleted" : "";
    all += filter.serviceFlag ? " flag" : "";
    return all;
}

// --- Look-ups ------------------------------------------------------------------------------

ModelEntryPtr CacheModel::getItem(unsigned long id) {
    write("Ormek::DirectoryCache::getItem 1\n");
    const auto found = items.find(id);
    if (found == items.end() || !found->second) {
        write("Ormek::DirectoryCache::getItem didnt find item with id: ", id, "\n");
        return nullptr;
    }
    const ModelEntry& entry = *found->second;
    write("Ormek::DirectoryCache::getItem 1.2 parentId: ", entry.parentId, " ", entry.oldParentId,
          " ", entry.id, "\n");
    return found->second;
}

bool CacheModel::itemInCache(unsigned long id) {
    const bool known = items.count(id) != 0;
    write("Ormek::DirectoryCache::ItemInCache: \n");
    write("Ormek::DirectoryCache::ItemInCache: -----------> ", known ? "true" : "false", " \n");
    return known;
}

ModelEntryPtr CacheModel::itemInCache(unsigned long parentId, const std::string& name) {
    ModelEntryPtr last;
    for (const unsigned long id : order) {
        const ModelEntryPtr& entry = items.at(id);
        if (entry && entry->parentId == parentId && entry->name == name) {
            write("Item Found: ", name, "\n");
            last = entry;
        }
    }
    return last;
}

bool CacheModel::itemHasChild(unsigned long parentId) {
    const ModelEntryPtr& first = items.at(order.front());
    return first && first->parentId == parentId;
}

std::vector<ModelEntryPtr> CacheModel::getChildren(unsigned long parentId) {
    std::vector<ModelEntryPtr> children;
    for (const unsigned long id : order) {
        if (items.at(id) && items.at(id)->parentId == parentId) {
            children.push_back(items.at(id));
        }
    }
    return children;
}

ModelDirectoryPtr CacheModel::getDirectory(unsigned long dataId) {
    for (const ModelDirectoryPtr& directory : directories) {
        if (Testing::contains(directory->filter.dataIds, dataId)) {
            return directory;
        }
    }
    return nullptr;
}

void CacheModel::printAllItems() {
    write("Ormek::DirectoryCache::printAllItems PRINTING ALL ITEMS\n");
    for (const unsigned long id : order) {
        if (const ModelEntryPtr& entry = items.at(id)) {
            write("NAME: ", entry->name, "\nID: ", entry->id, "\nPARENT ID: ", entry->parentId,
                  "\nOLD PARENT ID: ", entry->oldParentId, "\nTYPE: ", entry->type,
                  "\nDRIVE ID: ", entry->driveId, "\n");
        }
    }
}

// --- Objects -------------------------------------------------------------------------------

ModelEntryPtr CacheModel::copyOf(const ModelEntry& entry) const {
    const auto copy = std::make_shared<ModelEntry>(entry);
    copy->hasUpdater = hasUpdater;
    return copy;
}

void CacheModel::store(unsigned long id, const ModelEntryPtr& entry) { items.emplace(id, entry); }

ModelEntryPtr CacheModel::storedObject(unsigned long id) {
    const ModelEntryPtr& entry = items[id];
    return entry && !entry->isFolder ? entry : nullptr;
}

ModelEntryPtr CacheModel::storedContainer(unsigned long id) {
    const ModelEntryPtr& entry = items[id];
    return entry && entry->isFolder ? entry : nullptr;
}

ModelDirectory* CacheModel::firstThatMatches(const ModelEntry& entry) {
    for (const ModelDirectoryPtr& directory : directories) {
        if (matches(directory->filter, entry)) {
            return directory.get();
        }
    }
    return nullptr;
}

void CacheModel::addToFirst(const ModelEntry& entry, const ModelEntryPtr& stored, bool flag) {
    if (ModelDirectory* directory = firstThatMatches(entry)) {
        directory->listing.addItem(stored, flag);
    }
}

ModelEntryPtr CacheModel::cacheObject(const ModelEntryPtr& object) {
    write("--------OBJECT ID:  ", object->id, "------------", "\n");
    store(object->id, object);
    return storedObject(object->id);
}

ModelEntryPtr CacheModel::addObject(const ModelEntryPtr& object, bool flag) {
    write("\nOrmek::DirectoryCache::addObject: ", object->name, "\n");
    addToFirst(*object, cacheObject(object), flag);
    return storedObject(object->id);
}

ModelEntryPtr CacheModel::addOrReplaceObject(const ModelEntryPtr& object, bool flag) {
    write("\nOrmek::DirectoryCache::addObject: ", object->name, "\n");
    const ModelEntryPtr stored = cacheObject(object);
    if (ModelDirectory* directory = firstThatMatches(*object)) {
        const bool removed = directory->listing.removeItemByName(stored);
        directory->listing.addItem(stored, removed || flag);
    }
    return storedObject(object->id);
}

ModelEntryPtr CacheModel::objectOf(const ModelRecord& document) const {
    const auto object = std::make_shared<ModelEntry>();
    object->id = document.id;
    object->parentId = document.parentId;
    object->oldParentId = document.oldParentId;
    object->ownerId = document.ownerId;
    object->created = document.created;
    object->updated = document.updated;
    object->deleted = document.deleted;
    object->type = 4;
    object->hasUpdater = hasUpdater;
    object->name = document.name;
    object->description = document.description;
    object->shares = document.shares;
    object->access[document.ownerId] = document.access;
    object->length = document.length;
    object->state = document.state;
    object->mimeType = document.mimeType;
    object->keyValues = document.keyValues;
    return object;
}

ModelEntryPtr CacheModel::objectOfTag(const ModelRecord& tag) const {
    const auto object = std::make_shared<ModelEntry>();
    object->id = tag.id;
    object->parentId = tag.parentId;
    object->ownerId = tag.ownerId;
    object->created = tag.created;
    object->updated = tag.updated;
    object->deleted = tag.deleted;
    object->type = 16;
    object->hasUpdater = hasUpdater;
    object->name = tag.name;
    object->keyValues = tag.keyValues;
    return object;
}

ModelEntryPtr CacheModel::addDocument(const ModelRecord& document) {
    const ModelEntryPtr object = objectOf(document);
    object->dataLoaded = true;
    return addObject(object, false);
}

ModelEntryPtr CacheModel::updateObject(const ModelRecord& document) {
    write("DEBUG 1\n");
    const ModelEntryPtr entry = getItem(document.id);
    write("DEBUG 2\nDEBUG 3\n");
    if (!entry || entry->isFolder) {
        write("DEBUG 8\n");
        return nullptr;
    }
    entry->state = document.state;
    entry->id = document.id;
    entry->parentId = document.parentId;
    entry->name = document.name;
    entry->ownerId = document.ownerId;
    entry->created = document.created;
    entry->updated = document.updated;
    entry->deleted = document.deleted;
    entry->length = document.length;
    entry->type = 4;
    entry->keyValues = document.keyValues;
    write("DEBUG 4\n");
    entry->mimeType = document.mimeType;
    entry->dataLoaded = true;
    entry->shares = document.shares;
    entry->access[document.ownerId] = document.access;
    entry->description = document.description;
    write("DEBUG 5\nDEBUG 6\n");
    addOrReplaceObject(entry, false);
    write("DEBUG 7\n");
    return entry;
}

void CacheModel::updateObjectMetaData(const ModelRecord& document) {
    const ModelEntryPtr entry = getItem(document.id);
    if (!entry || entry->isFolder) {
        return;
    }
    entry->keyValues = document.keyValues;
    entry->created = document.created;
    entry->updated = document.updated;
    entry->length = document.length;
    entry->type = 4;
    entry->mimeType = document.mimeType;
    entry->dataLoaded = true;
}

void CacheModel::cacheKeyValue(const std::string& key, const ModelEntryPtr& object) {
    keyValues.emplace(key, object);
}

// --- Containers ----------------------------------------------------------------------------

ModelEntryPtr CacheModel::cacheContainer(const ModelEntry& container) {
    write("Ormek::DirectoryCache::cacheContainer 1: ", container.id, " ", addressIf(hasUpdater),
          "\n");
    write("Ormek::DirectoryCache::cacheContainer 2: \n");
    write("id: ", container.id, " obj id: ", container.id, "\n");
    write("Ormek::DirectoryCache::cacheContainer 3: \n");
    store(container.id, copyOf(container));
    write("Ormek::DirectoryCache::cacheContainer 4: \n");
    return storedContainer(container.id);
}

void CacheModel::cacheContainerPtr(const ModelEntryPtr& container) {
    write("Ormek::DirectoryCache::cacheContainerPtr 1 \n");
    cacheItem(container);
}

void CacheModel::cacheItem(const ModelEntryPtr& entry) { store(entry->id, entry); }

ModelEntryPtr CacheModel::addContainer(const ModelEntry& container) {
    write("\nOrmek::DirectoryCache::addContainer: 1 ", container.name,
          " containerId: ", container.id, " parentId: ", container.parentId, "\n");
    const ModelEntryPtr stored = cacheContainer(container);
    write("Ormek::DirectoryCache::addContainer 2: ", stored ? stored->name : "",
          " containerPtr ID: ", stored ? stored->id : 0, "\n");
    if (ModelDirectory* directory = firstThatMatches(container)) {
        write("Adding container to queryresult\n");
        if (stored) {
            directory->listing.addItem(getItem(stored->id), false);
        }
    }
    return stored;
}

ModelEntryPtr CacheModel::addContainerPtr(const ModelEntryPtr& container, bool flag) {
    write("\nOrmek::DirectoryCache::addContainer: 1 ", container->name,
          " containerId: ", container->id, "\n");
    cacheContainerPtr(container);
    write("Ormek::DirectoryCache::addContainer 2: ", container->name,
          " containerPtr ID: ", container->id, "\n");
    if (ModelDirectory* directory = firstThatMatches(*container)) {
        directory->listing.addItem(getItem(container->id), flag);
    }
    return container;
}

ModelEntryPtr CacheModel::addFolder(const ModelRecord& folder) {
    return addContainerPtr(getContainer(folder), false);
}

ModelEntryPtr CacheModel::getContainer(const ModelRecord& folder) {
    write("::DirectoryCache::getContainer() ", addressIf(hasUpdater), "\n");
    const auto container = std::make_shared<ModelEntry>();
    container->isFolder = true;
    container->id = folder.id;
    container->parentId = folder.parentId;
    container->oldParentId = folder.oldParentId;
    container->ownerId = folder.ownerId;
    container->driveId = folder.driveId;
    container->created = folder.created;
    container->updated = folder.updated;
    container->deleted = folder.deleted;
    container->type = 8;
    container->hasUpdater = hasUpdater;
    container->name = folder.name;
    // The two leading texts are crossed.
    container->firstText = folder.secondLeading;
    container->secondText = folder.firstLeading;
    container->thirdText = folder.lastTrailing;
    container->shares = folder.shares;
    container->access[folder.ownerId] = folder.access;
    return container;
}

void CacheModel::replaceContainer(const ModelEntry& container) {
    const ModelEntry copy = container;
    removeItem(copy.parentId, copy.id);
    addContainer(copy);
}

ModelRecord CacheModel::itemToFolder(const ModelEntry& entry) const {
    ModelRecord folder;
    folder.id = entry.id;
    folder.parentId = entry.parentId;
    folder.oldParentId = entry.oldParentId;
    folder.ownerId = entry.ownerId;
    folder.driveId = entry.driveId;
    folder.created = entry.created;
    folder.updated = entry.updated;
    folder.deleted = entry.deleted;
    folder.name = entry.name;
    folder.shares = entry.shares;
    folder.secondLeading = entry.firstText;
    folder.firstLeading = entry.secondText;
    folder.lastTrailing = entry.thirdText;
    const auto row = entry.access.find(entry.ownerId);
    folder.access = row == entry.access.end() ? 0 : row->second;
    return folder;
}

// --- Removal, new parents, new ids ---------------------------------------------------------

void CacheModel::removeItemFromCache(unsigned long id) { items.erase(id); }

void CacheModel::removeItem(unsigned long parentId, unsigned long id) {
    for (const ModelDirectoryPtr& directory : directories) {
        if (Testing::contains(directory->filter.dataIds, parentId)) {
            directory->listing.removeItem(id);
        }
    }
    removeItemFromCache(id);
}

void CacheModel::removeItemFromDirectories(unsigned long dataId, unsigned long itemId) {
    if (const ModelDirectoryPtr directory = getDirectory(dataId)) {
        directory->listing.removeItem(itemId);
    }
}

void CacheModel::updateItemId(unsigned long oldId, unsigned long newId) {
    const auto found = items.find(oldId);
    if (found == items.end() || !found->second) {
        write("Ormek::DirectoryCache::updateItemId COULD NOT FIND ITEM WE ARE TRYING TO UPDATE\n");
        return;
    }
    const ModelEntryPtr entry = found->second;
    write("Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: ", entry->id, " ",
          entry->name, "\n");
    entry->id = newId;
    items.erase(oldId);
    store(newId, entry);
    entry->idLoaded = true;
    const ModelEntryPtr& there = items.at(newId);
    write("Ormek::DirectoryCache::updateItemId UPDATED ITEM TO NEWID: ", newId, "\n");
    write("Ormek::DirectoryCache::updateItemId IDLOADED: ", there && there->idLoaded ? 1 : 0, "\n");
    write("Ormek::DirectoryCache::updateItemId IDLOADED: ", there ? there->id : 0, "\n");
}

void CacheModel::updateItemParentIds(unsigned long oldParentId, unsigned long newParentId) {
    // An entry that stands under several keys has its new parent once it was met.
    for (const auto& [id, entry] : items) {
        if (entry && entry->parentId == oldParentId) {
            entry->parentId = newParentId;
        }
    }
}

// --- Queries -------------------------------------------------------------------------------

bool CacheModel::get(const ModelFilter& filter, ModelDirectoryPtr& result) {
    write("in DirectoryCache::get(Ormek::FilterInternal filter\n");
    result = getDirectory(filter);
    if (!result) {
        result = std::make_shared<ModelDirectory>(ModelDirectory{filter, {}});
        directories.push_back(result);
        write("\nOrmek::DirectoryCache::get 1 ", Address, " Added directory", Address, "\n");
        return false;
    }
    const bool loaded = result->listing.isPageLoaded(filter.offset, filter.count);
    write("\nOrmek::DirectoryCache::get ", loaded ? "3 Page already loaded" : "2 Page not loaded",
          "\n");
    return loaded;
}

unsigned long CacheModel::get(const ModelFilter& filter, ModelDirectoryPtr& result,
                              const std::string& listener) {
    write("!filter.getbyPassCache = (true) ", filter.byPassCache ? 0 : 1, "\n");
    if (!filter.byPassCache && get(filter, result)) {
        write("Ormek::DirectoryCache::get found the directory ", Address, "\n");
        return 0;
    }
    return loadDirectory(filter, listener);
}

bool CacheModel::getKeyValues(const ModelFilter& filter, ModelDirectoryPtr& result) {
    result = getKeyValueDirectory(filter);
    if (result) {
        write("Ormek::DirectoryCache::gettag dir found ", Address, " ", Address, "\n");
        return true;
    }
    result = std::make_shared<ModelDirectory>(ModelDirectory{filter, {}});
    keyValueDirectories.push_back(result);
    write("\nOrmek::DirectoryCache::gettag 1 ", Address, " Added directory", Address, " ", Address,
          "\n");
    return false;
}

unsigned long CacheModel::getKeyValues(const ModelFilter& filter, ModelDirectoryPtr& result,
                                       const std::string& listener) {
    if (getKeyValues(filter, result)) {
        write("Ormek::DirectoryCache::gettag found dir returning ", Address, "\n");
        return 0;
    }
    write("Ormek::DirectoryCache::gettag found dir failed ", Address, "\n");
    const std::string load = filterConverter(filter);
    const std::string service = services->try_emplace(16, "none").first->second;
    return send(load + " service " + service + " protocol " + listener, filter.contextId != 0);
}

void CacheModel::writeEntries(const ModelDirectory& directory) {
    for (const ModelEntryPtr& entry : directory.listing.items()) {
        write("item in directory: ", entry->id, " name: ", entry->name, "\n");
    }
}

ModelDirectoryPtr CacheModel::getDirectory(const ModelFilter& filter) {
    write("\nOrmek::DirectoryCache::getDirectory count", directories.size(), "\n");
    for (const ModelDirectoryPtr& directory : directories) {
        writeEntries(*directory);
        if (sameListing(directory->filter, filter)) {
            writeEntries(*directory);
            write("it: ", Address, "\n");
            return directory;
        }
    }
    write("\nOrmek::DirectoryCache::getDirectory 2 Couldn't find directory\n");
    return nullptr;
}

ModelDirectoryPtr CacheModel::getKeyValueDirectory(const ModelFilter& filter) {
    write("\nOrmek::DirectoryCache::gettagDirectory count", keyValueDirectories.size(), "\n");
    for (const ModelDirectoryPtr& directory : keyValueDirectories) {
        if (sameListing(directory->filter, filter)) {
            write("\nOrmek::DirectoryCache::gettagDirectory 1 Found directory\n");
            return directory;
        }
    }
    write("\nOrmek::DirectoryCache::getDirectory 2 Couldn't find directory\n");
    return nullptr;
}

unsigned long CacheModel::loadDirectory(const ModelFilter& filter, const std::string& listener) {
    for (const int type : filter.dataTypes) {
        write("----------------------> types in vector ", type, "\n");
    }
    write("----------------------> types in vector 0\n");
    write("Ormek::DirectoryCache::loadDirectory 1, types.size(): ", filter.dataTypes.size(), "\n");
    loadListener = listener;
    const std::string service = services->try_emplace(0, "none").first->second;
    return loadFromService(service, filter, listener);
}

unsigned long CacheModel::loadFromService(const std::string& service, const ModelFilter& filter,
                                          const std::string& listener) {
    write("Ormek::DirectoryCache::loadFromService 1\nOrmek::DirectoryCache::loadFromService 2\n");
    const std::string load = filterConverter(filter);
    for (const char* number : {"3", "4", "5"}) {
        write("Ormek::DirectoryCache::loadFromService ", number, "\n");
    }
    write("Ormek::DirectoryCache::loadFromService ", filter.contextId != 0 ? "6 " : "7 ",
          filter.contextId, "\n");
    const unsigned long id =
        send(load + " service " + service + " protocol " + listener, filter.contextId != 0);
    write("Ormek::DirectoryCache::loadFromService 8\n");
    return id;
}

std::string CacheModel::filterConverter(const ModelFilter& filter) {
    const std::string label = " ---------------> DEBUG filterConverter filter ";
    write(label, "offset: ", filter.offset, "\n");
    write(label, "dataType: ", filter.dataType, "\n");
    write(label, "queryString: ", filter.query, "\n");
    return describe(filter);
}

// --- Merging -------------------------------------------------------------------------------

void CacheModel::recordPage(const ModelFilter& filter, ModelDirectory& result,
                            unsigned long total) {
    result.listing.addPage(filter.offset, filter.count);
    result.listing.totalCount(total);
}

void CacheModel::addItems(const ModelFilter& filter, ModelDirectory& result,
                          const ModelRecords& folders, const ModelRecords& documents,
                          unsigned long total) {
    const auto writeCounts = [&](const char* label) {
        write("Ormek::DirectoryCache::addItems query count", label, " ", result.listing.total(),
              " = ", result.listing.count(), "\n");
    };
    const auto markIdLoaded = [this](unsigned long id) {
        if (items[id]) {
            items[id]->idLoaded = true;
        }
    };
    write("Ormek::DirectoryCache::addItems 3 ", total, "\n");
    write("Ormek::DirectoryCache::addItems 3.1 filter.count ", filter.count, "\n");
    recordPage(filter, result, total);
    writeCounts("");
    std::vector<ModelEntryPtr> page;
    for (const ModelRecord& folder : folders) {
        const ModelEntryPtr container = getContainer(folder);
        if (!getItem(folder.id)) {
            cacheContainerPtr(container);
        }
        page.push_back(items[folder.id]);
        markIdLoaded(folder.id);
    }
    writeCounts("2c");
    for (const ModelRecord& document : documents) {
        const ModelEntryPtr object = objectOf(document);
        if (getItem(document.id)) {
            write("------> addItems ELSE statement \n");
            page.push_back(updateObject(document));
        } else {
            write("------> addItems if statement item == NULL \n");
            page.push_back(cacheObject(object));
        }
        markIdLoaded(document.id);
    }
    write("filter offset? ", filter.offset, "\n");
    writeCounts("2a");
    result.listing.addItems(filter.offset, page, ModelPart::Whole);
    writeCounts("2b");
}

void CacheModel::addFolders(const ModelFilter& filter, ModelDirectory& result,
                            const ModelRecords& folders, unsigned long total) {
    const auto writeTotal = [&](const char* number) {
        write("Ormek::DirectoryCache::addItems ", number, " ", total, "\n");
    };
    writeTotal("1");
    recordPage(filter, result, total);
    writeTotal("3");
    std::vector<ModelEntryPtr> page;
    for (const ModelRecord& folder : folders) {
        const ModelEntryPtr container = getContainer(folder);
        const bool known = getItem(folder.id) != nullptr;
        writeTotal("4");
        if (!known) {
            cacheContainerPtr(container);
            writeTotal("5");
        }
        writeTotal("6");
        const ModelEntryPtr entry = items[folder.id];
        write("Ormek::DirectoryCache::addItems 8", addressIf(entry != nullptr), "\n");
        page.push_back(entry);
        if (entry) {
            entry->idLoaded = true;
        }
        writeTotal("7");
    }
    result.listing.addItems(filter.offset, page, ModelPart::Folders);
    writeTotal("2");
}

void CacheModel::addDocuments(const ModelFilter& filter, ModelDirectory& result,
                              const ModelRecords& documents, unsigned long total) {
    write("Ormek::DirectoryCache::addItems 2 ", total, "\n");
    recordPage(filter, result, total);
    std::vector<ModelEntryPtr> page;
    for (const ModelRecord& document : documents) {
        ModelEntryPtr object = objectOf(document);
        if (getItem(document.id)) {
            object = updateObject(document);
        } else {
            object = cacheObject(object);
            if (object) {
                updateItemId(object->id, document.id);
            }
        }
        page.push_back(object);
    }
    result.listing.addItems(filter.offset, page, ModelPart::Documents);
    write("Ormek::DirectoryCache::addItems Items were added to dir.\n");
}

void CacheModel::addKeyValues(const ModelFilter& filter, ModelDirectory& result,
                              const ModelRecords& tags, unsigned long total) {
    write("Ormek::DirectoryCache::addTags ", total, "\n");
    recordPage(filter, result, total);
    std::vector<ModelEntryPtr> page;
    for (const ModelRecord& tag : tags) {
        cacheKeyValue(tag.tagKey, objectOfTag(tag));
        const auto artist = tag.keyValues.find("artist");
        write("gettag push back ", artist == tag.keyValues.end() ? "" : artist->second.first, " ",
              tag.tagKey, "\n");
        page.push_back(keyValues.at(tag.tagKey));
        write("item vector original adress3 ", Address, "\n");
    }
    result.listing.addItems(filter.offset, page, ModelPart::Whole);
    write("_keyValues items count ", keyValues.size(), "\n");
}

// --- Actions -------------------------------------------------------------------------------

std::string CacheModel::documentService() {
    const std::string& service = services->try_emplace(4, "none").first->second;
    return service == "network" ? service : "none";
}

unsigned long CacheModel::send(const std::string& text, bool ready) {
    (ready ? sent : *queue).push_back({++lastOperationId, text});
    return lastOperationId;
}

unsigned long CacheModel::sendDocument(const ModelRecord& document, unsigned int kind,
                                       const std::string& protocol) {
    const std::string operation = describeFile(document, kind, documentService(), protocol);
    const bool ready = getItem(document.id)->idLoaded && document.ownerId != 0;
    if (ready && kind == 5) {
        write("Ormek::DirectoryCache::removeDocument Sending operation\n");
    } else if (!ready && kind == 4) {
        write("Ormek::DirectoryCache::moveObject Queueing operation\n");
    } else if (!ready && kind == 5) {
        write("Ormek::DirectoryCache::removeDocument Queueing operation operationId: ",
              lastOperationId + 1, "\n");
    } else if (!ready) {
        write("queueing rename operation with op id: ", lastOperationId + 1, "\n");
    }
    return send(operation, ready);
}

void CacheModel::writeLengths(const std::string& label) {
    write(label, " items len: ", items.size(), "\n", label, " dir len: ", directories.size(), "\n");
}

void CacheModel::renameItem(unsigned long id, const std::string& name) {
    items.at(id)->name = name;
    write("Orm::DirectoryCache::renameItem newName: ", name, "\n");
    write("Orm::DirectoryCache::rename tempItem->name(): ", name, "\n");
}

unsigned long CacheModel::renameObject(unsigned long folderId, unsigned long id,
                                       unsigned long userId, const std::string& name,
                                       const std::string& protocol) {
    write("Ormek::DirectoryCache::renameDocument 1\n");
    writeLengths("Ormek::DirectoryCache::renameDocument 2");
    write("Ormek::DirectoryCache::renameDocument 2 newName: ", name, "\n");
    renameItem(id, name);
    writeLengths("Ormek::DirectoryCache::renameDocument 3");
    write("Ormek::Directory::Cache::renameDocument id: ", id, " folderId: ", folderId,
          " userId: ", userId, " newName: ", name, "\n");
    ModelRecord document;
    document.id = id;
    document.parentId = folderId;
    document.ownerId = userId;
    document.name = name;
    const unsigned long operation = sendDocument(document, 6, protocol);
    write("Ormek::DirectoryCache::renameDocument 4 \n");
    return operation;
}

void CacheModel::moveItem(unsigned long id, unsigned long newParentId, unsigned long oldParentId) {
    write("Ormek::DirectoryCache::moveItem itemId: ", id, "\n");
    const ModelEntryPtr entry = items.at(id);
    entry->oldParentId = oldParentId;
    entry->parentId = newParentId;
    for (const ModelDirectoryPtr& directory : directories) {
        if (Testing::contains(directory->filter.dataIds, oldParentId)) {
            write("DirectoryCache::Move removing item\n");
            directory->listing.removeItem(id);
        } else if (matches(directory->filter, *entry)) {
            write("DirectoryCache::Move adding item\n");
            directory->listing.addItem(entry, false);
        }
    }
}

unsigned long CacheModel::moveObject(unsigned long userId, unsigned long oldParentId,
                                     unsigned long id, unsigned long newParentId,
                                     const std::string& name, const std::string& protocol) {
    moveItem(id, newParentId, oldParentId);
    ModelRecord document;
    document.id = id;
    document.parentId = newParentId;
    document.oldParentId = oldParentId;
    document.ownerId = userId;
    document.name = name;
    return sendDocument(document, 4, protocol);
}

unsigned long CacheModel::removeObject(unsigned long parentId, unsigned long id,
                                       unsigned long userId, const std::string& protocol) {
    write("Ormek::DirectoryCache::removeDocument 1\n");
    writeLengths("Ormek::DirectoryCache::removeDocument 2");
    writeLengths("Ormek::DirectoryCache::removeDocument 3");
    ModelRecord document;
    document.id = id;
    document.parentId = parentId;
    document.ownerId = userId;
    const unsigned long operation = sendDocument(document, 5, protocol);
    removeItemFromDirectories(parentId, id);
    return operation;
}

unsigned long CacheModel::createObject(
    const ModelEntry& object, const std::map<std::string, std::pair<std::string, bool>>& values,
    unsigned long userId, const std::string& protocol) {
    ModelRecord document;
    document.id = object.id;
    document.parentId = object.parentId;
    document.ownerId = userId;
    document.name = object.name;
    document.keyValues = values;
    const std::string operation = describeFile(document, 2, documentService(), protocol);
    const ModelEntryPtr folder = getItem(object.parentId);
    if (!folder) {
        return ++lastOperationId;
    }
    if (folder->idLoaded && folder->id != 0) {
        return send(operation, true);
    }
    const std::string label = "-----------Ormek::UPLOAD ADDING OP TO QUEUE, SIZE ";
    write(label, "BEFORE: ", queue->size(), "--------------\n");
    const unsigned long id = send(operation, false);
    write(label, "AFTER: ", queue->size(), "--------------\n");
    return id;
}

unsigned long CacheModel::getStreams(unsigned long parentId, unsigned long id, unsigned long userId,
                                     const std::string& name, const std::string& protocol) {
    write("Ormek::Directory::Cache::getStreams id: ", id, " parentId: ", parentId,
          " userId: ", userId, " Name: ", name, "\n");
    ModelRecord document;
    document.id = id;
    document.parentId = parentId;
    document.ownerId = userId;
    document.name = name;
    const unsigned long operation = sendDocument(document, 10, protocol);
    write("Ormek::DirectoryCache::renameDocument 4 \n");
    return operation;
}

unsigned long CacheModel::saveMetaData(const ModelRecord& document, const std::string& protocol) {
    write("Ormek::Directory::Cache::saveMetaData id: ", document.id,
          " parentId: ", document.parentId, " userId: ", document.ownerId, " Name: ", document.name,
          "\n");
    const unsigned long operation = sendDocument(document, 13, protocol);
    write("Ormek::DirectoryCache::renameDocument 4 \n");
    return operation;
}

unsigned long CacheModel::getObjectSession(unsigned long folderId, unsigned long documentId,
                                           unsigned long userId, const std::string& protocol) {
    ModelFilter filter;
    filter.userId = userId;
    filter.url =
        "/v1/documents/" + std::to_string(folderId) + "/" + std::to_string(documentId) + "/session";
    write("\nOrmek::DirectoryCache::getObjectSession url ", filter.url, "\n");
    const std::string service = services->try_emplace(4, "none").first->second;
    return send(describe(filter) + " service " + service + " protocol " + protocol, userId != 0);
}

unsigned long CacheModel::objectEvent(const ModelEntry& object, unsigned long userId,
                                      unsigned int kind, const std::string& protocol) {
    ModelRecord document;
    switch (kind) {
        case 4:
            return moveObject(userId, object.oldParentId, object.id, object.parentId, object.name,
                              protocol);
        case 5:
            return removeObject(object.parentId, object.id, userId, protocol);
        case 6:
            write("Ormek::DirectoryCache::objectEvent Rename obj name: ", object.name, "\n");
            return renameObject(object.parentId, object.id, userId, object.name, protocol);
        case 10:
            return getStreams(object.parentId, object.id, userId, object.name, protocol);
        case 13:
            document.id = object.id;
            document.parentId = object.parentId;
            document.ownerId = userId;
            document.name = object.name;
            document.length = object.length;
            document.mimeType = object.mimeType;
            document.keyValues = object.keyValues;
            return saveMetaData(document, protocol);
        default:
            write("ERROR, Operation not implemented. \n");
            return 0;
    }
}

bool CacheModel::onRemoteObjectMoved(unsigned long newParentId, unsigned long id) {
    const ModelEntryPtr entry = getItem(id);
    if (entry->parentId == newParentId) {
        return false;
    }
    entry->oldParentId = entry->parentId;
    entry->parentId = newParentId;
    return true;
}

}  // namespace Ormek::Testing
