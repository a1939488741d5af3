#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cache/DirectoryCache.h"
#include "fuzz/Input.h"
#include "fuzz/TraceSink.h"
#include "service/LocalIds.h"
#include "tests/support/Fakes.h"

namespace Ormek::Fuzzing {

/// Any operations of a cache in any order, with any arguments that keep their preconditions. After
/// each one it is looked at all that the cache shows.
///
/// Ids stay within what a service and a client do: a document that is made here has a local id and
/// gets a server id once, one that no other document was given.
class CacheOperations {
  public:
    explicit CacheOperations(Input input) : _input(input), _sink(_input.flag()) {}

    void run() {
        for (int operations = 0; operations < MostOperations && !_input.isEmpty(); ++operations) {
            operate();
            lookAtEverything();
        }
    }

  private:
    static constexpr int MostOperations = 400;
    static constexpr unsigned Folders = 3;     // Their ids are 1 … 3.
    static constexpr unsigned Documents = 24;  // Server ids, from 10 on.
    static constexpr unsigned Locals = 4;

    using Directory = std::shared_ptr<QueryResult>;

    struct Listing {
        FilterInternal filter;
        Directory directory;
    };
    struct Loaded {
        std::set<std::pair<std::uint32_t, std::uint32_t>> pages;
        unsigned long total = 0;
    };

    // --- Arguments ---------------------------------------------------------------------------

    unsigned long folderId() { return _input.below(Folders) + 1; }
    unsigned long documentId() { return _input.below(Documents) + 10; }
    unsigned long localId() { return Nimra::FirstLocalId + _input.below(Locals); }
    unsigned long anyId() {
        switch (_input.below(8)) {
            case 0:
                return folderId();
            case 1:
                return 0;
            case 2:
            case 3:
            case 4:
                return localId();
            default:
                return documentId();
        }
    }
    unsigned long userId() { return _input.below(3); }
    std::string name() {
        return _input.below(4) == 0 ? _input.text(40)
                                    : std::string(1, static_cast<char>('a' + _input.below(5)));
    }
    std::uint32_t position() {
        const unsigned value = _input.byte();
        return value < 250 ? value % 50 : std::numeric_limits<std::uint32_t>::max() - (value - 250);
    }

    // Mostly plain listings of few folders, so that what is done meets in them.
    FilterInternal filter() {
        FilterInternal filter;
        filter.setDataId({folderId()});
        filter.setOffset(position());
        filter.setCount(position());
        filter.contextId = 1;
        switch (_input.below(16)) {
            case 0:
                filter.setDataType(4);
                break;
            case 1:
                filter.setDataType(8);
                break;
            case 2:
                filter.setDataTypes({4, 8});
                break;
            case 3:
                filter.setAscending(false);
                break;
            case 4:
                filter.setDeleted(true);
                break;
            case 5:
                filter.setByPassCache(true);
                break;
            case 6:
                filter.contextId = 0;
                break;
            case 7:
                filter.setQuery("a");
                break;
            default:
                break;
        }
        return filter;
    }

    Nimra::Document document(unsigned long id) {
        Nimra::Document record(id, folderId(), userId(), name());
        record.deleted = _input.below(8) == 0 ? 1 : 0;
        record.length = _input.byte();
        if (_input.below(4) == 0) {
            record.setKeyValue(name(), {name(), _input.flag()});
        }
        return record;
    }
    Nimra::Folder folder(unsigned long id) { return {id, folderId(), userId(), name()}; }

    std::shared_ptr<ObjectInternal> object() {
        const unsigned long id = anyId();
        auto made = Testing::makeObject(id, folderId(), name());
        made->idLoaded(!Nimra::isLocalId(id));
        return made;
    }

    // One byte for most, so that an input is enough for many pages. No id is there twice in one.
    std::vector<Nimra::Document> documents(unsigned long parentId, std::size_t most) {
        std::vector<Nimra::Document> records;
        const std::size_t count = std::min<std::size_t>(_input.below(12), most);
        unsigned long id = documentId();
        while (records.size() < count && id < 10 + Documents) {
            const unsigned byte = _input.byte();
            if (byte >= 224) {
                records.push_back(document(id));
            } else {
                records.emplace_back(id, parentId, 1,
                                     std::string(1, static_cast<char>('a' + byte % 8)));
            }
            id += 1 + byte / 8 % 2;
        }
        return records;
    }
    std::vector<Nimra::Folder> folders(unsigned long parentId, std::size_t most) {
        std::vector<Nimra::Folder> records;
        const std::size_t count = std::min<std::size_t>(_input.below(4), most);
        for (unsigned long id = folderId(); records.size() < count && id <= Folders; ++id) {
            records.push_back(_input.below(8) == 0 ? folder(id)
                                                   : Nimra::Folder(id, parentId, 1, name()));
        }
        return records;
    }

    // The write side of what is cached under an id; null when it has none.
    std::shared_ptr<ItemInternal> cached(unsigned long id) {
        const auto found = _wired.probe.items().find(id);
        return found == _wired.probe.items().end() ? nullptr
                                                   : OrmekCast::castItemInternal(found->second);
    }

    // --- Operations --------------------------------------------------------------------------

    void operate() {
        switch (_input.below(16)) {
            case 0:
                return query();
            case 1:
            case 2:
            case 3:
                return deliver();
            case 4:
                return queryTags();
            case 5:
                return addObject();
            case 6:
                return addContainer();
            case 7:
                return remove();
            case 8:
                return rename();
            case 9:
                return move();
            case 10:
                return act();
            case 11:
                return giveIds();
            case 12:
                return update();
            case 13:
                return look();
            case 14:
                return handOn();
            default:
                return readListing();
        }
    }

    void query() {
        Listing listing{filter(), nullptr};
        if (_cache.get(listing.filter, listing.directory, nullptr) != 0 && listing.directory) {
            _asked.push_back(listing);
        }
    }

    void deliver() {
        if (_asked.empty()) {
            return query();
        }
        Listing& listing = _asked[_input.byte() % _asked.size()];
        if (_input.flag()) {
            listing.filter.setOffset(position());
        }
        const std::uint32_t count = listing.filter.getCount();
        const unsigned long parent = listing.filter.getDataId().front();
        const unsigned long total = _input.byte();
        switch (_input.below(3)) {
            case 0: {
                const std::vector<Nimra::Folder> first = folders(parent, count);
                const auto second = documents(parent, count - first.size());
                _cache.addItems(listing.filter, listing.directory, first, second, total);
                break;
            }
            case 1:
                _cache.addItems(listing.filter, listing.directory, folders(parent, count), total);
                break;
            default:
                _cache.addItems(listing.filter, listing.directory, documents(parent, count), total);
        }
        remember(listing, total);
    }

    void remember(const Listing& listing, unsigned long total) {
        Loaded& loaded = _loaded[listing.directory.get()];
        loaded.pages.emplace(listing.filter.getOffset(), listing.filter.getCount());
        loaded.total = total;
    }

    void queryTags() {
        Listing listing{filter(), nullptr};
        listing.filter.setDataType(16);
        _cache.getKeyValues(listing.filter, listing.directory, nullptr);
        std::vector<Nimra::Tag> tags(_input.below(4));
        for (Nimra::Tag& tag : tags) {
            tag.id = documentId();
            tag.name = name();
            tag.tagKey = name();
            tag.setKeyValue(_input.flag() ? "artist" : name(), {name(), _input.flag()});
        }
        const unsigned long total = _input.byte();
        _cache.addKeyValues(listing.filter, listing.directory, tags, total);
        remember(listing, total);
    }

    void addObject() {
        const std::shared_ptr<ObjectInternal> made = object();
        const bool front = _input.flag();
        switch (_input.below(8)) {
            case 0:
                _cache.addObject(*made, front);
                return;
            case 1:
                _cache.addObjectPtr(made, front);
                return;
            case 2:
                _cache.addOrReplaceObjectPtr(made, front);
                return;
            case 3:
                _cache.addDocument(document(documentId()), front);
                return;
            case 4:
                _cache.cacheObject(*made);
                return;
            case 5:
                _cache.cacheObjectPtrInternal(made);
                return;
            case 6:
                _cache.cacheKeyValue(name(), *made);
                return;
            default:
                _cache.cacheItemPtr(made);
        }
    }

    void addContainer() {
        // Now and then under the id of a document, which the store may have already.
        const unsigned long id = _input.below(8) == 0 ? documentId() : folderId();
        const auto made = Testing::makeContainer(id, folderId(), name());
        switch (_input.below(6)) {
            case 0:
                _cache.addContainer(*made);
                return;
            case 1:
                _cache.addContainerPtr(made, _input.flag());
                return;
            case 2:
                _cache.addFolder(folder(folderId()), _input.flag());
                return;
            case 3:
                return _cache.replaceContainer(*made);
            case 4:
                _cache.cacheContainer(*made);
                return;
            default:
                _cache.cacheContainerPtrInternal(made);
        }
    }

    void remove() {
        const unsigned long id = anyId();
        switch (_input.below(5)) {
            case 0:
                return _cache.removeItem(folderId(), id);
            case 1:
                return _cache.removeFolder(folder(folderId()));
            case 2:
                return _cache.removeContainer(*Testing::makeContainer(folderId(), folderId(), ""));
            case 3:
                return _cache.removeItemFromDirectories(folderId(), id);
            default:
                return _cache.removeItemFromCache(id);
        }
    }

    void rename() {
        const unsigned long id = anyId();
        if (!cached(id)) {
            return;
        }
        switch (_input.below(3)) {
            case 0:
                return _cache.renameItem(id, name());
            case 1:
                return _cache.renameDocument(document(id));
            default:
                _cache.renameObject(folderId(), id, userId(), name(), nullptr);
        }
    }

    void move() {
        const unsigned long id = anyId();
        if (!cached(id)) {
            return;
        }
        switch (_input.below(3)) {
            case 0:
                return _cache.moveItem(id, folderId(), folderId());
            case 1:
                _cache.moveObject(userId(), folderId(), id, folderId(), name(), nullptr);
                return;
            default:
                _cache.onRemoteObjectMoved(folderId(), id);
        }
    }

    void act() {
        const unsigned long id = anyId();
        if (_input.below(6) == 0) {
            _cache.getObjectSession(folderId(), id, userId(), nullptr);
            return;
        }
        if (_input.below(4) == 0) {
            return create();
        }
        if (!cached(id)) {
            return;
        }
        switch (_input.below(4)) {
            case 0:
                _cache.removeObject(folderId(), id, userId(), nullptr);
                return;
            case 1:
                _cache.getStreams(folderId(), id, userId(), name(), nullptr);
                return;
            case 2:
                _cache.saveMetaData(userId(), folderId(), id, name(), _input.number(), name(),
                                    {{name(), {name(), true}}}, nullptr);
                return;
            default:
                if (const auto object = _cache.castObject(_wired.probe.items().at(id))) {
                    _cache.objectEvent(*object, userId(), _input.below(16), nullptr);
                }
        }
    }

    // Without its folder, the operation would stay allocated.
    void create() {
        const std::shared_ptr<ObjectInternal> made = object();
        if (cached(made->parentId())) {
            _cache.createObject(made, {{name(), {name(), false}}}, userId(), nullptr);
        }
    }

    void giveIds() {
        const unsigned long local = localId();
        const unsigned long server = documentId();
        if (_input.below(3) == 0) {
            return _cache.updateItemParentIds(folderId(), folderId());
        }
        if (_given.insert(server).second) {
            if (cached(server)) {
                leaveListings(local);
            }
            _cache.updateItemId(local, server);
            _wired.parked.idKnown(local, server);
        }
    }

    // What has come by another way before its id was known stands there already.
    void leaveListings(unsigned long id) {
        for (const Directory& directory : _wired.probe.directories()) {
            dynamic_cast<QueryResultInternal&>(*directory).removeItem(id);
        }
    }

    void update() {
        Nimra::Document record = document(documentId());
        if (_input.flag()) {
            _cache.updateObject(record, _input.flag());
        } else {
            _cache.updateObjectMetaData(record);
        }
    }

    void look() {
        const unsigned long id = anyId();
        const auto item = _cache.getItemInternal(id);
        check(!item || _cache.itemCount(id) == 1, "an entry without a key");
        check(_cache.ItemInCache(id) == (_cache.itemCount(id) == 1), "a key that is and is not");
        const std::string wanted = name();
        const unsigned long parent = folderId();
        const auto found = _cache.ItemInCache(parent, wanted);
        check(!found || (found->parentId() == parent && found->name() == wanted),
              "an entry of another name or folder was found");
        for (const auto& child : _cache.getChildren(parent)) {
            check(child && child->parentId() == parent, "a child of another folder");
        }
        if (_cache.itemsSize() != 0) {
            _cache.ItemHasChild(parent);
        }
        _cache.getDirectory(parent);
        _cache.printAllItems();
        if (item) {
            const Nimra::Folder record = _cache.itemToFolder(item.get());
            check(record.id == item->id() && record.name == item->name(), "another entry's record");
        }
    }

    void handOn() {
        switch (_input.below(6)) {
            case 0:
                _wired.parked.userKnown(1 + userId());
                return;
            case 1:
                _wired.parked.takeReady();
                return;
            case 2:
                _wired.parked.takeWaitingFor(localId());
                return;
            case 3:
                _wired.parked.cancel(_input.number());
                return;
            case 4:
                _wired.handler.take(_input.number());
                return;
            default:
                _wired.handler.take();
        }
    }

    void readListing() {
        const auto& directories = _wired.probe.directories();
        if (directories.empty()) {
            return;
        }
        const auto chosen = std::next(
            directories.begin(), static_cast<std::ptrdiff_t>(_input.byte() % directories.size()));
        auto& internal = dynamic_cast<QueryResultInternal&>(**chosen);
        const std::vector<std::shared_ptr<Item>> all = internal.items();
        const std::string wanted = name();
        const auto found = internal.itemByName(wanted);
        check(!found || found->name() == wanted, "an entry of another name");
        for (const auto& entry : internal.page(position(), position())) {
            check(std::find(all.begin(), all.end(), entry) != all.end(),
                  "a page has an entry that the listing lacks");
        }
        check(_cache.add(internal)->items() == all, "a copy differs");
        internal.isPageCurrent(filter());
        if (_input.below(4) == 0) {
            internal.invalidate();
        }
    }

    // --- What holds after each ---------------------------------------------------------------

    void lookAtEverything() {
        for (const Directory& directory : _wired.probe.directories()) {
            lookAt(*directory);
            std::set<unsigned long> ids;
            for (const auto& entry : directory->items()) {
                check(entry->id() == 0 || ids.insert(entry->id()).second,
                      "an id is in a listing twice");
            }
        }
        for (const Directory& directory : _wired.probe.keyValueDirectories()) {
            lookAt(*directory);
        }
        check(_cache.itemsSize() == _wired.probe.items().size(), "the store's size");
        check(_wired.parked.size() == _wired.parked.operations().size(), "the parked queue's size");
        check(_wired.parked.size() == _wired.parked.waiting().size(), "the parked queue's reasons");
    }

    void lookAt(const QueryResult& directory) {
        const std::vector<std::shared_ptr<Item>> all = directory.items();
        check(directory.count() == all.size(), "the count of a listing");
        check(std::find(all.begin(), all.end(), nullptr) == all.end(), "an empty pointer");
        const Loaded& loaded = _loaded[&directory];
        check(directory.totalCount() == loaded.total, "the total of a listing");
        const auto& internal = dynamic_cast<const QueryResultInternal&>(directory);
        for (const auto& [offset, count] : loaded.pages) {
            check(internal.isPageLoaded(Testing::folderFilter(1, offset, count)),
                  "a loaded page was taken back");
        }
    }

    Input _input;
    TraceSink _sink;
    Testing::WiredCache _wired;
    DirectoryCache& _cache = _wired.cache;
    std::vector<Listing> _asked;
    std::map<const QueryResult*, Loaded> _loaded;
    std::set<unsigned long> _given;
};

inline void cacheOperations(Input input) { CacheOperations(input).run(); }

}  // namespace Ormek::Fuzzing
