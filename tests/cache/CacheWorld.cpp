#include "tests/cache/CacheWorld.h"

#include <iterator>
#include <map>
#include <utility>

#include "tests/support/StateText.h"

namespace Ormek::Testing {

namespace {

using Id = CacheWorld::Id;

std::shared_ptr<QueryResult> makeDirectory(const FilterInternal& filter,
                                           std::vector<std::shared_ptr<Item>> entries,
                                           unsigned long total) {
    auto directory = std::make_shared<QueryResultInternal>(filter);
    directory->addPage(filter.getOffset(), filter.getCount());
    directory->totalCount(total);
    directory->addItems(filter.getOffset(), std::move(entries));
    return directory;
}

FilterInternal pageOf(unsigned long folder, std::uint32_t offset, std::uint32_t count,
                      unsigned long user) {
    FilterInternal filter = folderFilter(folder, offset, count);
    filter.setUserId(user);
    return filter;
}

void fillIn(ItemInternal& item) {
    item.description("a description of some length");
    item.ownerId(Id::User);
    item.driveId(3);
    item.firstText("a first text of some length");
    item.secondText("a second text of some length");
    item.thirdText("a third text of some length");
    item.setACLMap(Id::User, 2);
    item._shares[4].push_back({});
}

void fillIn(ObjectInternal& object) {
    fillIn(static_cast<ItemInternal&>(object));
    object.length(100);
    object.setMimeType("application/of-some-length");
    object.setKeyValues({{"a key of some length", {"a value of some length", true}}});
}

template <class Record>
void stamp(Record& record) {
    record.created = 11;
    record.updated = 12;
    record.shares[6].push_back({});
}

void fillIn(Nimra::Document& document) {
    stamp(document);
    document.deleted = 0;
    document.description = "another description, as the service has it";
    document.mimeType = "application/as-the-service-has-it";
    document.length = 200;
    document.state = 7;
    document.aclMode = 3;
    document.setKeyValue("artist", {"an artist with a long name", false});
}

Nimra::Tag makeTag(std::string key) {
    Nimra::Tag tag;
    tag.id = 300;
    tag.parentId = Id::Folder;
    tag.name = "the name of a tag, at some length";
    tag.tagKey = std::move(key);
    tag.setKeyValue("artist", {"an artist with a long name", false});
    stamp(tag);
    return tag;
}

}  // namespace

CacheWorld::CacheWorld()
    : newDocument(NewDocument, Folder, User, "a new document from the service"),
      knownDocument(Document, Folder, User + 1, "the document under another name"),
      newFolder(NewFolder, Folder, User, "a new folder from the service"),
      knownFolder(SubFolder, Folder, User, "the folder under another name"),
      loadedPage(pageOf(Folder, 0, 3, User)),
      otherPage(pageOf(Folder, 3, 3, User)),
      newListing(pageOf(Folder, 0, 3, User + 2)),
      loadedTags(pageOf(Folder, 0, 3, User)),
      newTags(pageOf(OtherFolder, 0, 3, User)),
      keyValues{{"a key of the caller's", {"a value of the caller's", true}}},
      newName("a name that the caller has given") {
    fillStore();
    makeDirectories();
    makeTags();
    makeRecords();
    giveObject(NewDocument, Folder);
    giveContainer(NewFolder, Folder);
}

void CacheWorld::fillStore() {
    auto& items = probe.items();
    const auto addObject = [&](unsigned long id, unsigned long parentId, const char* name) {
        auto object = makeObject(id, parentId, name);
        fillIn(*object);
        items[id] = object;
    };
    items[Folder] = makeContainer(Folder, Root, "a folder that the service knows");
    items[UnsentFolder] = makeContainer(UnsentFolder, Root, "a folder that is to be created");
    items[SubFolder] = makeContainer(SubFolder, Folder, "a folder within the folder");
    items[Empty] = nullptr;
    addObject(Document, Folder, "a document that the service knows");
    addObject(Unsent, Folder, "a document that is to be created");
    internal(Folder).idLoaded(true);
    internal(Document).idLoaded(true);
    fillIn(internal(SubFolder));
}

void CacheWorld::makeDirectories() {
    auto& items = probe.items();
    probe.directories() = {
        makeDirectory(pageOf(OtherFolder, 0, 2, User),
                      {makeObject(80, OtherFolder, "a document that is elsewhere")}, 1),
        makeDirectory(loadedPage, {items[SubFolder], items[Document], items[Unsent]}, 4),
        makeDirectory(pageOf(Folder, 1, 1, User + 1), {items[Document]}, 3)};
}

void CacheWorld::makeTags() {
    newTag = makeTag("the key of a new tag");
    knownTag = makeTag("the key of a known tag");
    const auto entry = makeObject(301, Folder, "a tag that is cached");
    entry->type(16);
    probe.keyValues()[knownTag.tagKey] = entry;
    probe.keyValueDirectories() = {makeDirectory(loadedTags, {entry}, 1)};
}

void CacheWorld::makeRecords() {
    fillIn(newDocument);
    fillIn(knownDocument);
    stamp(newFolder);
    stamp(knownFolder);
    newListing.setDataTypes({4, 8});
    newListing.setOrder({{FilterOrder::Name, "a description of the order"}});
    otherPage.contextId = 0;
}

void CacheWorld::giveObject(unsigned long id, unsigned long parentId) {
    newObject = makeObject(id, parentId, "a document of the caller's");
    fillIn(*newObject);
    newObject->oldParentId(OtherFolder);
    plainObject = *newObject;
}

void CacheWorld::giveContainer(unsigned long id, unsigned long parentId) {
    newContainer = makeContainer(id, parentId, "a folder of the caller's");
    fillIn(*newContainer);
    plainContainer = *newContainer;
}

ItemInternal& CacheWorld::internal(unsigned long id) {
    return dynamic_cast<ItemInternal&>(*stored(id));
}

ObjectInternal& CacheWorld::object(unsigned long id) {
    return dynamic_cast<ObjectInternal&>(*stored(id));
}

QueryResultInternal& CacheWorld::directory(unsigned long index) {
    return internalOf(*std::next(probe.directories().begin(), static_cast<std::ptrdiff_t>(index)));
}

// --- State ---------------------------------------------------------------------------------

std::string CacheWorld::nameOfResult() {
    if (!result) {
        return "none";
    }
    std::string name = "other";
    unsigned long index = 0;
    for (const auto& directory : probe.directories()) {
        name = directory == result ? "directory " + std::to_string(index) : name;
        ++index;
    }
    for (const auto& directory : probe.keyValueDirectories()) {
        name = directory == result ? "tag directory " + std::to_string(index) : name;
        ++index;
    }
    return name;
}

std::string CacheWorld::state() {
    StateText text;
    text.entry("object", newObject);
    text.entry("container", newContainer);
    for (const auto& [id, item] : std::map(probe.items().begin(), probe.items().end())) {
        text.entry(std::to_string(id), item);
    }
    for (const auto& directory : probe.directories()) {
        text.directory("directory", internalOf(directory));
    }
    for (const auto& [key, item] : std::map(probe.keyValues().begin(), probe.keyValues().end())) {
        text.entry(key, item);
    }
    for (const auto& directory : probe.keyValueDirectories()) {
        text.directory("tag directory", internalOf(directory));
    }
    for (const auto& [key, service] : services) {
        text.line("service " + std::to_string(key) + (service ? "" : " none"));
    }
    text.line(cache.loadListener() ? "listener" : "no listener");
    text.line("result: " + nameOfResult());
    if (result) {
        text.directory("result", resultItself());
    }
    for (const Nimra::Operation* operation : handler.operations()) {
        text.operation("sent", *operation);
    }
    for (const Nimra::Operation* operation : parked.operations()) {
        text.operation("parked", *operation);
    }
    return text.text();
}

}  // namespace Ormek::Testing
