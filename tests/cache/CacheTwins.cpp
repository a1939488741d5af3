#include "tests/cache/CacheTwins.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "tests/cache/ModelConversions.h"

namespace Ormek::Testing {

namespace {

using KeyValues = std::map<std::string, std::pair<std::string, bool>>;

/// Names entries in the order in which they are met, with all they say at the first time.
class Numbering {
  public:
    template <class Pointer, class Describe>
    void add(const Pointer& entry, Describe describe) {
        if (!entry) {
            text += " none";
            return;
        }
        const auto [known, isNew] = _numbers.emplace(entry.get(), _numbers.size());
        text += " #" + std::to_string(known->second);
        if (isNew) {
            text += " (" + describe(*entry) + ')';
        }
    }
    void line(const std::string& words) { text += '\n' + words; }

    std::string text;

  private:
    std::map<const void*, unsigned long> _numbers;
};

std::string describeItem(const Item& item) { return describeReal(item); }
std::string describeModel(const ModelEntry& entry) { return CacheModel::describe(entry); }

template <class Directory>
std::string describePages(const Directory& directory) {
    std::string pages;
    for (unsigned int offset = 0; offset < 7; ++offset) {
        for (const unsigned int count : {0U, 1U, 3U}) {
            pages += directory.isPageLoaded(offset, count) ? 'L' : '-';
            pages += directory.isPageCurrent(offset, count) ? 'C' : '-';
        }
    }
    return pages;
}

/// A result set asked with plain numbers, as the model is.
struct Pages {
    bool isPageLoaded(unsigned int offset, unsigned int count) const {
        return directory.isPageLoaded(page(offset, count));
    }
    bool isPageCurrent(unsigned int offset, unsigned int count) const {
        return directory.isPageCurrent(page(offset, count));
    }
    static const FilterInternal& page(unsigned int offset, unsigned int count) {
        static FilterInternal filter;
        filter.setOffset(offset);
        filter.setCount(count);
        return filter;
    }
    const QueryResultInternal& directory;
};

void addDirectory(Numbering& text, const std::shared_ptr<QueryResult>& directory) {
    const auto& internal = dynamic_cast<const QueryResultInternal&>(*directory);
    text.line("directory " + std::to_string(internal.count()) + " of " +
              std::to_string(internal.totalCount()) + ' ' + describePages(Pages{internal}));
    for (const auto& item : internal.items()) {
        text.add(item, describeItem);
    }
}

void addDirectory(Numbering& text, const ModelDirectoryPtr& directory) {
    const ListingModel& listing = directory->listing;
    text.line("directory " + std::to_string(listing.count()) + " of " +
              std::to_string(listing.total()) + ' ' + describePages(listing));
    for (const auto& entry : listing.items()) {
        text.add(entry, describeModel);
    }
}

/// Which of the directories of a list it is; the number behind the last one when it is none.
template <class List, class Directory>
std::string numberIn(const List& list, const Directory& directory) {
    return std::to_string(
        std::distance(list.begin(), std::find(list.begin(), list.end(), directory)));
}

void addOperations(Numbering& text, const std::string& words, unsigned long count,
                   const std::string& last) {
    text.line(words + ' ' + std::to_string(count) + ' ' + last);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const CacheStep& step) {
    return out << CacheTwins::nameOf(step.operation) << ' ' << step.number;
}

unsigned long CacheTwins::Draw::below(unsigned long end) {
    // Knuth's generator; its upper bits are the good ones.
    _state = _state * 6364136223846793005UL + 1442695040888963407UL;
    return (_state >> 33UL) % end;
}

// --- Set-up --------------------------------------------------------------------------------

CacheTwins::CacheTwins() : _objects(4), _containers(3), _results(3) {
    _services.fill({{0, &_plainService}, {4, &_network}, {16, &_plainService}});
    _modelServices.fill({{0, "plain"}, {4, "network"}, {16, "plain"}});
    _cache.setServices(&_services[0]);
    _cache.setOpWithoutIdsQueue(&_queues[0]);
    _cache.setObjectUpdater(&_updater);
    _model.services = &_modelServices[0];
    _model.queue = &_modelQueues[0];
    _model.hasUpdater = true;
    _model.lastOperationId = Nimra::OperationHandler::createId();
    unsigned long number = 0;
    for (Given& given : _objects) {
        Draw draw(++number);
        given = makeObject(draw);
    }
    for (Given& given : _containers) {
        Draw draw(++number);
        given = makeContainer(draw);
    }
}

const std::vector<CacheTwins::Operation>& CacheTwins::table() {
    using T = CacheTwins;
    static const std::vector<Operation> operations{
        {"get", &T::get},
        {"getKeyValues", &T::getKeyValues},
        {"addItems", &T::addItems},
        {"addItems of folders", &T::addItemsOfFolders},
        {"addItems of documents", &T::addItemsOfDocuments},
        {"addKeyValues", &T::addKeyValues},
        {"addObjectPtr", &T::addObjectPtr},
        {"addOrReplaceObjectPtr", &T::addOrReplaceObjectPtr},
        {"addContainerPtr", &T::addContainerPtr},
        {"giveObject", &T::giveObject},
        // The rest.
        {"giveContainer", &T::giveContainer},
        {"changeServices", &T::changeServices},
        {"setServices", &T::setServices},
        {"setObjectUpdater", &T::setObjectUpdater},
        {"setOpWithoutIdsQueue", &T::setOpWithoutIdsQueue},
        {"getItem", &T::getItem},
        {"getItemInternal", &T::getItemInternal},
        {"ItemInCache", &T::itemInCache},
        {"ItemInCache by name", &T::itemInCacheByName},
        {"ItemHasChild", &T::itemHasChild},
        {"itemCount", &T::itemCount},
        {"itemsSize", &T::itemsSize},
        {"getChildren", &T::getChildren},
        {"getDirectory by id", &T::getDirectoryById},
        {"printAllItems", &T::printAllItems},
        {"castContainer", &T::castContainer},
        {"castObject", &T::castObject},
        {"cacheObject", &T::cacheObject},
        {"cacheObjectPtr", &T::cacheObjectPtr},
        {"addObject", &T::addObject},
        {"addDocument", &T::addDocument},
        {"updateObject", &T::updateObject},
        {"updateObjectMetaData", &T::updateObjectMetaData},
        {"getObject", &T::getObject},
        {"getObjectFromTag", &T::getObjectFromTag},
        {"cacheKeyValue", &T::cacheKeyValue},
        {"cacheKeyValuePtr", &T::cacheKeyValuePtr},
        {"cacheContainer", &T::cacheContainer},
        {"cacheContainerPtr", &T::cacheContainerPtr},
        {"cacheItemPtr", &T::cacheItemPtr},
        {"addContainer", &T::addContainer},
        {"addFolder", &T::addFolder},
        {"getContainer", &T::getContainer},
        {"replaceContainer", &T::replaceContainer},
        {"itemToFolder", &T::itemToFolder},
        {"removeItemFromCache", &T::removeItemFromCache},
        {"removeItem", &T::removeItem},
        {"removeFolder", &T::removeFolder},
        {"removeContainer", &T::removeContainer},
        {"removeItemFromDirectories", &T::removeItemFromDirectories},
        {"updateItemId", &T::updateItemId},
        {"updateItemParentIds", &T::updateItemParentIds},
        {"get with a listener", &T::getWithListener},
        {"getKeyValues with a listener", &T::getKeyValuesWithListener},
        {"getDirectory", &T::getDirectory},
        {"getKeyValueDirectory", &T::getKeyValueDirectory},
        {"add", &T::add},
        {"loadDirectory", &T::loadDirectory},
        {"loadFromService", &T::loadFromService},
        {"filterConverter", &T::filterConverter},
        {"renameItem", &T::renameItem},
        {"renameDocument", &T::renameDocument},
        {"renameObject", &T::renameObject},
        {"moveItem", &T::moveItem},
        {"moveObject", &T::moveObject},
        {"removeObject", &T::removeObject},
        {"createObject", &T::createObject},
        {"getStreams", &T::getStreams},
        {"saveMetaData", &T::saveMetaData},
        {"getObjectSession", &T::getObjectSession},
        {"objectEvent", &T::objectEvent},
        {"onRemoteObjectMoved", &T::onRemoteObjectMoved},
    };
    return operations;
}

unsigned long CacheTwins::operations() { return table().size(); }
unsigned long CacheTwins::fillingOperations() { return 10; }
const char* CacheTwins::nameOf(unsigned long operation) { return table()[operation].name; }

// --- What calls are given ------------------------------------------------------------------

std::string CacheTwins::anyName(Draw& draw) const {
    static const std::vector<std::string> names{
        "a", "b", "ab", "<x & y>", "", "a name that is not short", std::string(600, 'n')};
    return names[draw.below(names.size())];
}

unsigned long CacheTwins::anyLiveId(Draw& draw) const {
    std::vector<unsigned long> ids;
    for (const auto& [id, entry] : _model.items) {
        if (entry) {
            ids.push_back(id);
        }
    }
    return ids.empty() ? 0 : ids[draw.below(ids.size())];
}

KeyValues CacheTwins::anyKeyValues(Draw& draw) const {
    KeyValues values;
    for (const char* key : {"artist", "title"}) {
        if (draw.oneIn(3)) {
            values[key] = {anyName(draw), draw.oneIn(2)};
        }
    }
    return values;
}

ModelFilter CacheTwins::anyFilter(Draw& draw) const {
    ModelFilter filter;
    filter.dataIds = {anyFolder(draw)};
    filter.contextId = draw.below(3);
    filter.offset = static_cast<unsigned int>(draw.oneIn(2) ? 0 : draw.below(5));
    filter.count = static_cast<unsigned int>(draw.below(5));
    filter.byPassCache = draw.oneIn(6);
    // Most are plain, so that they meet again.
    switch (draw.below(16)) {
        case 0:
            filter.dataIds.push_back(anyFolder(draw));
            break;
        case 1:
            filter.userId = anyUser(draw);
            break;
        case 2:
            filter.dataType = static_cast<int>(4UL << draw.below(3));
            break;
        case 3:
            filter.dataTypes = {4, 8, 31};
            filter.dataTypes.resize(draw.below(4));
            break;
        case 4:
            filter.query = "a";
            break;
        case 5:
            filter.order = "asc";
            filter.ascending = draw.oneIn(2);
            break;
        case 6:
            filter.path = draw.oneIn(2) ? "/path" : "";
            filter.group = filter.path.empty() ? "group" : "";
            break;
        case 7:
            filter.url = draw.oneIn(2) ? "url" : "";
            filter.tagLabels["label"] = "value";
            break;
        case 8:
            filter.deleted = true;
            filter.containerFirst = draw.oneIn(2);
            filter.serviceFlag = draw.oneIn(2);
            break;
        default:
            break;
    }
    return filter;
}

ModelFilter CacheTwins::anyPageOf(Draw& draw, const ModelDirectory& directory) const {
    ModelFilter filter = directory.filter;
    filter.offset = static_cast<unsigned int>(draw.below(6));
    filter.count = static_cast<unsigned int>(draw.below(5));
    return filter;
}

ModelRecord CacheTwins::anyRecord(Draw& draw) const {
    ModelRecord record;
    record.id = anyId(draw);
    record.parentId = anyFolder(draw);
    record.oldParentId = draw.oneIn(4) ? anyFolder(draw) : 0;
    record.ownerId = anyUser(draw);
    record.driveId = draw.below(2);
    record.created = draw.below(100);
    record.updated = draw.below(100);
    record.deleted = draw.oneIn(8) ? 1 : 0;
    record.name = anyName(draw);
    if (draw.oneIn(4)) {
        record.shares[anyUser(draw)] = draw.below(3);
    }
    record.firstLeading = draw.oneIn(4) ? "first" : "";
    record.secondLeading = draw.oneIn(4) ? "second" : "";
    record.lastTrailing = draw.oneIn(4) ? "last" : "";
    record.access = static_cast<int>(draw.below(4));
    record.description = draw.oneIn(4) ? "description" : "";
    record.mimeType = draw.oneIn(2) ? "text/plain" : "";
    record.length = draw.below(1000);
    record.state = static_cast<int>(draw.below(3));
    record.keyValues = anyKeyValues(draw);
    return record;
}

ModelRecord CacheTwins::anyTag(Draw& draw) const {
    ModelRecord tag = anyRecord(draw);
    tag.tagKey = anyName(draw);
    return tag;
}

ModelRecords CacheTwins::anyRecords(Draw& draw) const {
    ModelRecords records(draw.below(4));
    std::generate(records.begin(), records.end(), [&] { return anyRecord(draw); });
    return records;
}

ModelRecords CacheTwins::anyTags(Draw& draw) const {
    ModelRecords records(draw.below(4));
    std::generate(records.begin(), records.end(), [&] { return anyTag(draw); });
    return records;
}

// Mostly one that the page does not contradict.
unsigned long CacheTwins::anyTotal(Draw& draw, const ModelFilter& page,
                                   unsigned long records) const {
    return draw.oneIn(4) ? draw.below(6) : page.offset + records + draw.below(3);
}

CacheTwins::Result CacheTwins::anyDirectory(Draw& draw) const {
    std::vector<Result> all;
    const auto append = [&all](const auto& real, const auto& model) {
        auto twin = model.begin();
        for (const auto& directory : real) {
            all.push_back({directory, *twin++});
        }
    };
    append(_cache.directories(), _model.directories);
    append(_cache.keyValueDirectories(), _model.keyValueDirectories);
    std::copy_if(_results.begin(), _results.end(), std::back_inserter(all),
                 [](const Result& result) { return result.real != nullptr; });
    return all.empty() ? Result() : all[draw.below(all.size())];
}

Nimra::ItemEventProtocol* CacheTwins::anyListener(Draw& draw) {
    const unsigned long number = draw.below(_listeners.size() + 1);
    return number == _listeners.size() ? nullptr : &_listeners[number];
}

std::string CacheTwins::nameOf(const Nimra::ItemEventProtocol* listener) const {
    return !listener ? "none" : listener == &_listeners[0] ? "first" : "second";
}

std::string CacheTwins::nameOf(const Nimra::DataService* service) const {
    return !service ? "none" : service == &_network ? "network" : "plain";
}

// --- What they answer ----------------------------------------------------------------------

void CacheTwins::answer(const std::string& real, const std::string& model) {
    _realAnswer += real + '\n';
    _modelAnswer += model + '\n';
}

void CacheTwins::answer(unsigned long real, unsigned long model) {
    answer(std::to_string(real), std::to_string(model));
}

void CacheTwins::answerEntry(const std::shared_ptr<Item>& real, const ModelEntryPtr& model) {
    _realEntries.push_back(real);
    _modelEntries.push_back(model);
}

void CacheTwins::answerDirectory(const std::shared_ptr<QueryResult>& real,
                                 const ModelDirectoryPtr& model) {
    answer(real ? numberIn(_cache.directories(), real) + ' ' +
                      numberIn(_cache.keyValueDirectories(), real)
                : "none",
           model ? numberIn(_model.directories, model) + ' ' +
                       numberIn(_model.keyValueDirectories, model)
                 : "none");
    _answered = {real, model};
}

// --- The comparison ------------------------------------------------------------------------

void CacheTwins::take(const CacheStep& step) {
    _model.order.clear();
    for (const auto& entry : _probe.items()) {
        _model.order.push_back(entry.first);
    }
    _realAnswer.clear();
    _modelAnswer.clear();
    _realEntries.clear();
    _modelEntries.clear();
    _answered = {};
    _model.trace.clear();
    Draw draw(step.number);
    const TraceCapture trace;
    (this->*table()[step.operation].call)(draw);
    compare(step, "answers", _realAnswer, _modelAnswer);
    compare(step, "writes", trace.normalised(), _model.trace);
    compare(step, "leaves", realState(), modelState());
}

void CacheTwins::compare(const CacheStep& step, const std::string& what, const std::string& real,
                         const std::string& model) {
    if (real != model) {
        _difference += std::string(nameOf(step.operation)) + ' ' + what + '\n' + real +
                       "\n--- where the model does\n" + model + '\n';
    }
}

std::string CacheTwins::realState() const {
    Numbering text;
    for (const auto& entry : _realEntries) {
        text.add(entry, describeItem);
    }
    for (const std::vector<Given>* all : {&_objects, &_containers}) {
        for (const Given& given : *all) {
            text.add(given.object ? std::shared_ptr<Item>(given.object) : given.container,
                     describeItem);
        }
    }
    const auto& items = const_cast<CacheTwins*>(this)->_probe.items();
    for (const auto& [id, item] : std::map(items.begin(), items.end())) {
        text.line(std::to_string(id));
        text.add(item, describeItem);
    }
    const auto& tags = _cache.keyValues();
    for (const auto& [key, item] : std::map(tags.begin(), tags.end())) {
        text.line(key);
        text.add(item, describeItem);
    }
    for (const auto* list : {&_cache.directories(), &_cache.keyValueDirectories()}) {
        text.line("list of " + std::to_string(list->size()));
        for (const auto& directory : *list) {
            addDirectory(text, directory);
        }
    }
    for (const Result& result : _results) {
        text.line("result");
        if (result.real) {
            addDirectory(text, result.real);
        }
    }
    for (const auto& services : _services) {
        for (const auto& [key, service] : services) {
            text.line(std::to_string(key) + ' ' + nameOf(service));
        }
    }
    text.line(nameOf(_cache.loadListener()));
    const auto addAll = [&](const std::vector<Nimra::Operation*>& operations) {
        addOperations(text, "operations", operations.size(),
                      operations.empty() ? "" : describe(*operations.back()));
    };
    addAll(_handler.operations());
    addAll(_queues[0].operations());
    addAll(_queues[1].operations());
    return text.text;
}

std::string CacheTwins::modelState() const {
    Numbering text;
    for (const auto& entry : _modelEntries) {
        text.add(entry, describeModel);
    }
    for (const std::vector<Given>* all : {&_objects, &_containers}) {
        for (const Given& given : *all) {
            text.add(given.model, describeModel);
        }
    }
    for (const auto& [id, entry] : _model.items) {
        text.line(std::to_string(id));
        text.add(entry, describeModel);
    }
    for (const auto& [key, entry] : _model.keyValues) {
        text.line(key);
        text.add(entry, describeModel);
    }
    for (const auto* list : {&_model.directories, &_model.keyValueDirectories}) {
        text.line("list of " + std::to_string(list->size()));
        for (const auto& directory : *list) {
            addDirectory(text, directory);
        }
    }
    for (const Result& result : _results) {
        text.line("result");
        if (result.model) {
            addDirectory(text, result.model);
        }
    }
    for (const ModelServices& services : _modelServices) {
        for (const auto& [key, service] : services) {
            text.line(std::to_string(key) + ' ' + service);
        }
    }
    text.line(_model.loadListener);
    const auto addAll = [&](const std::vector<ModelOperation>& operations) {
        addOperations(text, "operations", operations.size(),
                      operations.empty()
                          ? ""
                          : std::to_string(operations.back().id) + ' ' + operations.back().text);
    };
    addAll(_model.sent);
    addAll(_modelQueues[0]);
    addAll(_modelQueues[1]);
    return text.text;
}

std::string CacheTwins::describe(const Nimra::Operation& operation) const {
    const std::string id = std::to_string(operation.id()) + ' ';
    if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
        return id + describeReal(file->document(), file->kind(), nameOf(file->service()),
                                 nameOf(file->protocol()));
    }
    const auto& load = dynamic_cast<const Nimra::DataLoaderOperation&>(operation);
    return id + describeReal(load.filter()) + " service " + nameOf(load.service()) + " protocol " +
           nameOf(load.protocol());
}

}  // namespace Ormek::Testing
