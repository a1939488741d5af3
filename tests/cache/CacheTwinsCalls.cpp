#include <algorithm>
#include <iterator>
#include <utility>

#include "tests/cache/CacheTwins.h"
#include "tests/cache/ModelConversions.h"

namespace Ormek::Testing {

namespace {

template <class Record>
std::vector<Record> all(const ModelRecords& plain, Record (*convert)(const ModelRecord&)) {
    std::vector<Record> records;
    std::transform(plain.begin(), plain.end(), std::back_inserter(records), convert);
    return records;
}

/// As XML escapes it.
std::string escaped(const std::string& name) {
    std::string text;
    for (const char letter : name) {
        text += letter == '&'   ? "&amp;"
                : letter == '<' ? "&lt;"
                : letter == '>' ? "&gt;"
                                : std::string(1, letter);
    }
    return text;
}

}  // namespace

// --- What the caller does for himself ------------------------------------------------------

CacheTwins::Given CacheTwins::makeObject(Draw& draw) const {
    const ModelRecord record = anyRecord(draw);
    Given given;
    given.object = std::make_shared<ObjectInternal>(documentOf(record), nullptr);
    given.model = _model.objectOf(record);
    given.model->hasUpdater = false;
    given.model->idLoaded = draw.oneIn(2);
    given.object->idLoaded(given.model->idLoaded);
    given.model->type = draw.oneIn(4) ? 0 : draw.oneIn(4) ? 16 : 4;
    given.object->type(given.model->type);
    return given;
}

CacheTwins::Given CacheTwins::makeContainer(Draw& draw) const {
    const ModelRecord record = anyRecord(draw);
    Given given;
    given.container = std::make_shared<ContainerInternal>(folderOf(record), nullptr);
    given.model = CacheModel().getContainer(record);
    given.model->idLoaded = draw.oneIn(2);
    given.container->idLoaded(given.model->idLoaded);
    return given;
}

void CacheTwins::giveObject(Draw& draw) {
    Given& given = anyObject(draw);
    given = makeObject(draw);
}

void CacheTwins::giveContainer(Draw& draw) {
    Given& given = anyContainer(draw);
    given = makeContainer(draw);
}

void CacheTwins::changeServices(Draw& draw) {
    const unsigned long map = draw.below(2);
    const int key = static_cast<int>(std::array{0, 4, 16}[draw.below(3)]);
    switch (draw.below(4)) {
        case 0:
            _services[map].erase(key);
            _modelServices[map].erase(key);
            break;
        case 1:
            _services[map][key] = nullptr;
            _modelServices[map][key] = "none";
            break;
        case 2:
            _services[map][key] = &_plainService;
            _modelServices[map][key] = "plain";
            break;
        default:
            _services[map][key] = &_network;
            _modelServices[map][key] = "network";
    }
}

// --- Wiring --------------------------------------------------------------------------------

void CacheTwins::setServices(Draw& draw) {
    const unsigned long map = draw.below(2);
    _cache.setServices(&_services[map]);
    _model.services = &_modelServices[map];
}

void CacheTwins::setObjectUpdater(Draw& draw) {
    _model.hasUpdater = draw.oneIn(2);
    _cache.setObjectUpdater(_model.hasUpdater ? &_updater : nullptr);
}

void CacheTwins::setOpWithoutIdsQueue(Draw& draw) {
    const unsigned long queue = draw.below(2);
    _cache.setOpWithoutIdsQueue(&_queues[queue]);
    _model.queue = &_modelQueues[queue];
}

// --- Look-ups ------------------------------------------------------------------------------

void CacheTwins::getItem(Draw& draw) {
    const unsigned long id = anyId(draw);
    answerEntry(_cache.getItem(id), _model.getItem(id));
}

void CacheTwins::getItemInternal(Draw& draw) {
    const unsigned long id = anyId(draw);
    answerEntry(_cache.getItemInternal(id), _model.getItem(id));
}

void CacheTwins::itemInCache(Draw& draw) {
    const unsigned long id = anyId(draw);
    answer(_cache.ItemInCache(id), _model.itemInCache(id));
}

void CacheTwins::itemInCacheByName(Draw& draw) {
    const unsigned long parentId = anyFolder(draw);
    const std::string name = anyName(draw);
    answerEntry(_cache.ItemInCache(parentId, name), _model.itemInCache(parentId, name));
}

void CacheTwins::itemHasChild(Draw& draw) {
    const unsigned long parentId = anyFolder(draw);
    if (!_model.items.empty()) {
        answer(_cache.ItemHasChild(parentId), _model.itemHasChild(parentId));
    }
}

void CacheTwins::itemCount(Draw& draw) {
    const unsigned long id = anyId(draw);
    answer(static_cast<unsigned long>(_cache.itemCount(id)), _model.items.count(id));
}

void CacheTwins::itemsSize(Draw&) { answer(_cache.itemsSize(), _model.items.size()); }

void CacheTwins::getChildren(Draw& draw) {
    const unsigned long parentId = anyFolder(draw);
    _realEntries = _cache.getChildren(parentId);
    _modelEntries = _model.getChildren(parentId);
}

void CacheTwins::getDirectoryById(Draw& draw) {
    const unsigned long dataId = draw.below(4);
    answerDirectory(_cache.getDirectory(dataId), _model.getDirectory(dataId));
}

void CacheTwins::printAllItems(Draw&) {
    _cache.printAllItems();
    _model.printAllItems();
}

void CacheTwins::castContainer(Draw& draw) {
    const Given& object = anyObject(draw);
    const Given& container = anyContainer(draw);
    answerEntry(_cache.castContainer(object.object), nullptr);
    answerEntry(_cache.castContainer(container.container), container.model);
    answerEntry(_cache.castContainer(nullptr), nullptr);
}

void CacheTwins::castObject(Draw& draw) {
    const Given& object = anyObject(draw);
    const Given& container = anyContainer(draw);
    answerEntry(_cache.castObject(object.object), object.model);
    answerEntry(_cache.castObject(container.container), nullptr);
    answerEntry(_cache.castObject(nullptr), nullptr);
}

// --- Objects -------------------------------------------------------------------------------

void CacheTwins::cacheObject(Draw& draw) {
    const Given& given = anyObject(draw);
    Object value = *given.object;
    const auto real = draw.oneIn(2) ? _cache.cacheObject(value) : _cache.cacheObjectInternal(value);
    answerEntry(real, _model.cacheObject(_model.copyOf(*given.model)));
}

void CacheTwins::cacheObjectPtr(Draw& draw) {
    const Given& given = anyObject(draw);
    const auto real = draw.oneIn(2) ? _cache.cacheObjectPtr(given.object)
                                    : _cache.cacheObjectPtrInternal(given.object);
    answerEntry(real, _model.cacheObject(given.model));
}

void CacheTwins::addObject(Draw& draw) {
    const Given& given = anyObject(draw);
    const bool flag = draw.oneIn(2);
    answerEntry(_cache.addObject(*given.object, flag),
                _model.addObject(_model.copyOf(*given.model), flag));
}

void CacheTwins::addObjectPtr(Draw& draw) {
    const Given& given = anyObject(draw);
    const bool flag = draw.oneIn(2);
    answerEntry(_cache.addObjectPtr(given.object, flag), _model.addObject(given.model, flag));
}

void CacheTwins::addOrReplaceObjectPtr(Draw& draw) {
    const Given& given = anyObject(draw);
    const bool flag = draw.oneIn(2);
    answerEntry(_cache.addOrReplaceObjectPtr(given.object, flag),
                _model.addOrReplaceObject(given.model, flag));
}

void CacheTwins::addDocument(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    answerEntry(_cache.addDocument(documentOf(record), draw.oneIn(2)), _model.addDocument(record));
}

void CacheTwins::updateObject(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    Nimra::Document document = documentOf(record);
    answerEntry(_cache.updateObject(document, draw.oneIn(2)), _model.updateObject(record));
}

void CacheTwins::updateObjectMetaData(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    Nimra::Document document = documentOf(record);
    _cache.updateObjectMetaData(document);
    _model.updateObjectMetaData(record);
}

void CacheTwins::getObject(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    answerEntry(_cache.getObject(documentOf(record)), _model.objectOf(record));
}

void CacheTwins::getObjectFromTag(Draw& draw) {
    const ModelRecord tag = anyTag(draw);
    answerEntry(_cache.getObjectFromTag(tagOf(tag)), _model.objectOfTag(tag));
}

void CacheTwins::cacheKeyValue(Draw& draw) {
    const Given& given = anyObject(draw);
    const std::string key = anyName(draw);
    _cache.cacheKeyValue(key, *given.object);
    _model.cacheKeyValue(key, _model.copyOf(*given.model));
}

void CacheTwins::cacheKeyValuePtr(Draw& draw) {
    const Given& given = anyObject(draw);
    const std::string key = anyName(draw);
    _cache.cacheKeyValuePtr(key, given.object);
    _model.cacheKeyValue(key, given.model);
}

// --- Containers ----------------------------------------------------------------------------

void CacheTwins::cacheContainer(Draw& draw) {
    const Given& given = anyContainer(draw);
    Container value = *given.container;
    const auto real =
        draw.oneIn(2) ? _cache.cacheContainer(value) : _cache.cacheContainerInternal(value);
    answerEntry(real, _model.cacheContainer(*given.model));
}

void CacheTwins::cacheContainerPtr(Draw& draw) {
    const Given& given = anyContainer(draw);
    draw.oneIn(2) ? _cache.cacheContainerPtr(given.container)
                  : _cache.cacheContainerPtrInternal(given.container);
    _model.cacheContainerPtr(given.model);
}

void CacheTwins::cacheItemPtr(Draw& draw) {
    const Given& given = draw.oneIn(2) ? anyContainer(draw) : anyObject(draw);
    _cache.cacheItemPtr(given.object ? std::shared_ptr<Item>(given.object) : given.container);
    _model.cacheItem(given.model);
}

void CacheTwins::addContainer(Draw& draw) {
    const Given& given = anyContainer(draw);
    answerEntry(_cache.addContainer(*given.container), _model.addContainer(*given.model));
}

void CacheTwins::addContainerPtr(Draw& draw) {
    const Given& given = anyContainer(draw);
    const bool flag = draw.oneIn(2);
    answerEntry(_cache.addContainerPtr(given.container, flag),
                _model.addContainerPtr(given.model, flag));
}

void CacheTwins::addFolder(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    answerEntry(_cache.addFolder(folderOf(record), draw.oneIn(2)), _model.addFolder(record));
}

void CacheTwins::getContainer(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    answerEntry(_cache.getContainer(folderOf(record)), _model.getContainer(record));
}

void CacheTwins::replaceContainer(Draw& draw) {
    const Given& given = anyContainer(draw);
    _cache.replaceContainer(*given.container);
    _model.replaceContainer(*given.model);
}

void CacheTwins::itemToFolder(Draw& draw) {
    const Given& given = draw.oneIn(2) ? anyContainer(draw) : anyObject(draw);
    Item* const item =
        given.object ? static_cast<Item*>(given.object.get()) : given.container.get();
    answer(describeReal(_cache.itemToFolder(item)),
           describeFolder(_model.itemToFolder(*given.model)));
}

// --- Removal, new parents, new ids ---------------------------------------------------------

void CacheTwins::removeItemFromCache(Draw& draw) {
    const unsigned long id = anyId(draw);
    _cache.removeItemFromCache(id);
    _model.removeItemFromCache(id);
}

void CacheTwins::removeItem(Draw& draw) {
    const unsigned long parentId = anyFolder(draw);
    const unsigned long id = anyId(draw);
    _cache.removeItem(parentId, id);
    _model.removeItem(parentId, id);
}

void CacheTwins::removeFolder(Draw& draw) {
    const ModelRecord record = anyRecord(draw);
    _cache.removeFolder(folderOf(record));
    _model.removeItem(record.parentId, record.id);
}

void CacheTwins::removeContainer(Draw& draw) {
    const Given& given = anyContainer(draw);
    _cache.removeContainer(*given.container);
    _model.removeItem(given.model->parentId, given.model->id);
}

void CacheTwins::removeItemFromDirectories(Draw& draw) {
    const unsigned long dataId = anyFolder(draw);
    const unsigned long id = anyId(draw);
    _cache.removeItemFromDirectories(dataId, id);
    _model.removeItemFromDirectories(dataId, id);
}

void CacheTwins::updateItemId(Draw& draw) {
    const unsigned long oldId = anyId(draw);
    const unsigned long newId = anyId(draw);
    _cache.updateItemId(oldId, newId);
    _model.updateItemId(oldId, newId);
}

void CacheTwins::updateItemParentIds(Draw& draw) {
    const unsigned long oldParentId = anyFolder(draw);
    const unsigned long newParentId = anyFolder(draw);
    _cache.updateItemParentIds(oldParentId, newParentId);
    _model.updateItemParentIds(oldParentId, newParentId);
}

// --- Queries -------------------------------------------------------------------------------

void CacheTwins::get(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Result& result = anyResult(draw);
    answer(_cache.get(filterOf(filter), result.real), _model.get(filter, result.model));
    answerDirectory(result.real, result.model);
}

void CacheTwins::getWithListener(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Result& result = anyResult(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    answer(_cache.get(filterOf(filter), result.real, listener),
           _model.get(filter, result.model, nameOf(listener)));
    answerDirectory(result.real, result.model);
}

void CacheTwins::getKeyValues(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Result& result = anyResult(draw);
    answer(_cache.getKeyValues(filterOf(filter), result.real),
           _model.getKeyValues(filter, result.model));
    answerDirectory(result.real, result.model);
}

void CacheTwins::getKeyValuesWithListener(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Result& result = anyResult(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    answer(_cache.getKeyValues(filterOf(filter), result.real, listener),
           _model.getKeyValues(filter, result.model, nameOf(listener)));
    answerDirectory(result.real, result.model);
}

void CacheTwins::getDirectory(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    answerDirectory(_cache.getDirectory(filterOf(filter)), _model.getDirectory(filter));
}

void CacheTwins::getKeyValueDirectory(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    answerDirectory(_cache.getKeyValueDirectory(filterOf(filter)),
                    _model.getKeyValueDirectory(filter));
}

void CacheTwins::add(Draw& draw) {
    const Result source = anyDirectory(draw);
    Result& result = anyResult(draw);
    if (source.real) {
        result = {_cache.add(*source.real), std::make_shared<ModelDirectory>(*source.model)};
    } else {
        result = {_cache.add(QueryResult()), std::make_shared<ModelDirectory>()};
    }
}

void CacheTwins::loadDirectory(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    answer(_cache.loadDirectory(filterOf(filter), anyResult(draw).real, listener),
           _model.loadDirectory(filter, nameOf(listener)));
}

void CacheTwins::loadFromService(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    Nimra::DataService* const service = draw.oneIn(3)   ? nullptr
                                        : draw.oneIn(2) ? &_plainService
                                                        : &_network;
    answer(_cache.loadFromService(service, filterOf(filter), listener),
           _model.loadFromService(nameOf(service), filter, nameOf(listener)));
}

void CacheTwins::filterConverter(Draw& draw) {
    const ModelFilter filter = anyFilter(draw);
    answer(describeReal(_cache.filterConverter(filterOf(filter))), _model.filterConverter(filter));
}

// --- Merging -------------------------------------------------------------------------------

void CacheTwins::addItems(Draw& draw) {
    const Result result = anyDirectory(draw);
    if (!result.real) {
        return;
    }
    const ModelFilter page = anyPageOf(draw, *result.model);
    const ModelRecords folders = anyRecords(draw);
    const ModelRecords documents = anyRecords(draw);
    const unsigned long total = anyTotal(draw, page, folders.size() + documents.size());
    _cache.addItems(filterOf(page), result.real, all(folders, folderOf), all(documents, documentOf),
                    total);
    _model.addItems(page, *result.model, folders, documents, total);
}

void CacheTwins::addItemsOfFolders(Draw& draw) {
    const Result result = anyDirectory(draw);
    if (!result.real) {
        return;
    }
    const ModelFilter page = anyPageOf(draw, *result.model);
    const ModelRecords folders = anyRecords(draw);
    const unsigned long total = anyTotal(draw, page, folders.size());
    _cache.addItems(filterOf(page), result.real, all(folders, folderOf), total);
    _model.addFolders(page, *result.model, folders, total);
}

void CacheTwins::addItemsOfDocuments(Draw& draw) {
    const Result result = anyDirectory(draw);
    if (!result.real) {
        return;
    }
    const ModelFilter page = anyPageOf(draw, *result.model);
    const ModelRecords documents = anyRecords(draw);
    const unsigned long total = anyTotal(draw, page, documents.size());
    _cache.addItems(filterOf(page), result.real, all(documents, documentOf), total);
    _model.addDocuments(page, *result.model, documents, total);
}

void CacheTwins::addKeyValues(Draw& draw) {
    const Result result = anyDirectory(draw);
    if (!result.real) {
        return;
    }
    const ModelFilter page = anyPageOf(draw, *result.model);
    const ModelRecords tags = anyTags(draw);
    const unsigned long total = anyTotal(draw, page, tags.size());
    _cache.addKeyValues(filterOf(page), result.real, all(tags, tagOf), total);
    _model.addKeyValues(page, *result.model, tags, total);
}

// --- Actions -------------------------------------------------------------------------------

void CacheTwins::renameItem(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const std::string name = anyName(draw);
        _cache.renameItem(id, name);
        _model.renameItem(id, name);
    }
}

void CacheTwins::renameDocument(Draw& draw) {
    ModelRecord record = anyRecord(draw);
    record.id = anyLiveId(draw);
    if (record.id != 0) {
        _cache.renameDocument(documentOf(record));
        _model.renameItem(record.id, escaped(record.name));
    }
}

void CacheTwins::renameObject(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long folder = anyFolder(draw);
        const unsigned long user = anyUser(draw);
        const std::string name = anyName(draw);
        Nimra::ItemEventProtocol* const listener = anyListener(draw);
        answer(_cache.renameObject(folder, id, user, name, listener),
               _model.renameObject(folder, id, user, name, nameOf(listener)));
    }
}

void CacheTwins::moveItem(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long newParentId = anyFolder(draw);
        const unsigned long oldParentId = anyFolder(draw);
        _cache.moveItem(id, newParentId, oldParentId);
        _model.moveItem(id, newParentId, oldParentId);
    }
}

void CacheTwins::moveObject(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long newParentId = anyFolder(draw);
        const unsigned long oldParentId = anyFolder(draw);
        const unsigned long user = anyUser(draw);
        const std::string name = anyName(draw);
        Nimra::ItemEventProtocol* const listener = anyListener(draw);
        answer(_cache.moveObject(user, oldParentId, id, newParentId, name, listener),
               _model.moveObject(user, oldParentId, id, newParentId, name, nameOf(listener)));
    }
}

void CacheTwins::removeObject(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long folder = anyFolder(draw);
        const unsigned long user = anyUser(draw);
        Nimra::ItemEventProtocol* const listener = anyListener(draw);
        answer(_cache.removeObject(folder, id, user, listener),
               _model.removeObject(folder, id, user, nameOf(listener)));
    }
}

void CacheTwins::createObject(Draw& draw) {
    const Given& given = anyObject(draw);
    const auto values = anyKeyValues(draw);
    const unsigned long user = anyUser(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    answer(_cache.createObject(given.object, values, user, listener),
           _model.createObject(*given.model, values, user, nameOf(listener)));
}

void CacheTwins::getStreams(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long folder = anyFolder(draw);
        const unsigned long user = anyUser(draw);
        const std::string name = anyName(draw);
        Nimra::ItemEventProtocol* const listener = anyListener(draw);
        answer(_cache.getStreams(folder, id, user, name, listener),
               _model.getStreams(folder, id, user, name, nameOf(listener)));
    }
}

void CacheTwins::saveMetaData(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        ModelRecord document;
        document.id = id;
        document.parentId = anyFolder(draw);
        document.ownerId = anyUser(draw);
        document.name = anyName(draw);
        document.length = draw.below(1000);
        document.mimeType = anyName(draw);
        document.keyValues = anyKeyValues(draw);
        Nimra::ItemEventProtocol* const listener = anyListener(draw);
        answer(
            _cache.saveMetaData(document.ownerId, document.parentId, id, document.name,
                                document.length, document.mimeType, document.keyValues, listener),
            _model.saveMetaData(document, nameOf(listener)));
    }
}

void CacheTwins::getObjectSession(Draw& draw) {
    const unsigned long folder = draw.oneIn(4) ? -1UL : anyFolder(draw);
    const unsigned long id = draw.oneIn(4) ? -1UL : anyId(draw);
    const unsigned long user = anyUser(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    answer(_cache.getObjectSession(folder, id, user, listener),
           _model.getObjectSession(folder, id, user, nameOf(listener)));
}

// Of an object of the caller's, which may be the very one that is cached.
void CacheTwins::objectEvent(Draw& draw) {
    const Given& given = anyObject(draw);
    const unsigned int kind = static_cast<unsigned int>(draw.below(16));
    const unsigned long user = anyUser(draw);
    Nimra::ItemEventProtocol* const listener = anyListener(draw);
    const auto cached = _model.items.find(given.model->id);
    if (cached != _model.items.end() && cached->second) {
        answer(_cache.objectEvent(*given.object, user, kind, listener),
               _model.objectEvent(*given.model, user, kind, nameOf(listener)));
    }
}

void CacheTwins::onRemoteObjectMoved(Draw& draw) {
    if (const unsigned long id = anyLiveId(draw)) {
        const unsigned long newParentId = anyFolder(draw);
        answer(_cache.onRemoteObjectMoved(newParentId, id),
               _model.onRemoteObjectMoved(newParentId, id));
    }
}

}  // namespace Ormek::Testing
