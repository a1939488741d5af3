#include "tests/cache/ModelConversions.h"

#include <map>

namespace Ormek::Testing {

namespace {

template <class Record>
void fill(Record& record, const ModelRecord& plain) {
    record.id = plain.id;
    record.parentId = plain.parentId;
    record.ownerId = plain.ownerId;
    record.created = plain.created;
    record.updated = plain.updated;
    record.deleted = plain.deleted;
    record.name = plain.name;
    for (const auto& [user, rows] : plain.shares) {
        record.shares[user].resize(rows);
    }
}

std::map<unsigned long, unsigned long> rowsOf(
    const std::map<unsigned long, std::vector<ShareData>>& shares) {
    std::map<unsigned long, unsigned long> rows;
    for (const auto& [user, row] : shares) {
        rows[user] = row.size();
    }
    return rows;
}

ModelEntry plain(const Item& item) {
    ModelEntry entry;
    entry.isFolder = dynamic_cast<const Container*>(&item) != nullptr;
    entry.id = item.id();
    entry.parentId = item.parentId();
    entry.oldParentId = item.oldParentId();
    entry.ownerId = item.ownerId();
    entry.driveId = item.driveId();
    entry.created = item.created();
    entry.updated = item.updated();
    entry.deleted = item.deleted();
    entry.type = item.type();
    entry.idLoaded = item.idLoaded();
    entry.dataLoaded = item.dataLoaded();
    entry.name = item.name();
    entry.description = item.description();
    entry.firstText = item.firstText();
    entry.secondText = item.secondText();
    entry.thirdText = item.thirdText();
    entry.shares = rowsOf(item.shares());
    entry.access = item.ACLMap();
    if (const auto* internal = dynamic_cast<const ItemInternal*>(&item)) {
        entry.hasUpdater = internal->objectUpdater() != nullptr;
    }
    if (const auto* object = dynamic_cast<const ObjectInternal*>(&item)) {
        entry.length = object->length();
        entry.state = object->_state;
        entry.mimeType = object->mimeType();
        entry.keyValues = object->keyValues();
    }
    return entry;
}

ModelRecord plain(const Nimra::Document& document) {
    ModelRecord record;
    record.id = document.id;
    record.parentId = document.parentId;
    record.oldParentId = document.oldParentId;
    record.ownerId = document.ownerId;
    record.name = document.name;
    record.length = document.length;
    record.mimeType = document.mimeType;
    record.keyValues = document.keyValues();
    return record;
}

ModelRecord plain(const Nimra::Folder& folder) {
    ModelRecord record;
    record.id = folder.id;
    record.parentId = folder.parentId;
    record.oldParentId = folder.oldParentId;
    record.ownerId = folder.ownerId;
    record.driveId = folder.driveId;
    record.created = folder.created;
    record.updated = folder.updated;
    record.deleted = folder.deleted;
    record.name = folder.name;
    record.shares = rowsOf(folder.shares);
    record.firstLeading = folder.firstLeading;
    record.secondLeading = folder.secondLeading;
    record.lastTrailing = folder.fourthTrailing;
    record.access = folder.accessLevel;
    return record;
}

ModelFilter plain(const Nimra::ItemFilter& filter) {
    ModelFilter plain;
    plain.dataIds = filter.dataId;
    plain.userId = filter.userId;
    plain.offset = filter.offset;
    plain.count = filter.count;
    plain.dataType = filter.dataType;
    plain.query = filter.query;
    plain.path = filter.path;
    plain.url = filter.url;
    plain.group = filter.group;
    plain.tagLabels = filter.tagLabels;
    plain.ascending = filter.ascending;
    plain.containerFirst = filter.containerFirst;
    plain.deleted = filter.deleted;
    plain.serviceFlag = filter.serviceFlag;
    return plain;
}

}  // namespace

Nimra::Document documentOf(const ModelRecord& plain) {
    Nimra::Document document(0, 0, 0, "");
    fill(document, plain);
    document.oldParentId = plain.oldParentId;
    document.aclMode = plain.access;
    document.description = plain.description;
    document.mimeType = plain.mimeType;
    document.length = plain.length;
    document.state = plain.state;
    document._keyValues = plain.keyValues;
    return document;
}

Nimra::Folder folderOf(const ModelRecord& plain) {
    Nimra::Folder folder;
    fill(folder, plain);
    folder.oldParentId = plain.oldParentId;
    folder.driveId = plain.driveId;
    folder.accessLevel = plain.access;
    folder.firstLeading = plain.firstLeading;
    folder.secondLeading = plain.secondLeading;
    folder.fourthTrailing = plain.lastTrailing;
    return folder;
}

Nimra::Tag tagOf(const ModelRecord& plain) {
    Nimra::Tag tag;
    fill(tag, plain);
    tag.tagKey = plain.tagKey;
    tag._keyValues = plain.keyValues;
    return tag;
}

FilterInternal filterOf(const ModelFilter& plain) {
    FilterInternal filter;
    filter.setDataId(plain.dataIds);
    filter.setUserId(plain.userId);
    filter.contextId = plain.contextId;
    filter.setOffset(plain.offset);
    filter.setCount(plain.count);
    filter.setDataType(plain.dataType);
    filter.setDataTypes(plain.dataTypes);
    filter.setQuery(plain.query);
    if (!plain.order.empty()) {
        filter.setOrder({{FilterOrder::Name, plain.order}});
    }
    filter.setPath(plain.path);
    filter.setUrl(plain.url);
    filter.setGroup(plain.group);
    filter.setTagLabels(plain.tagLabels);
    filter.setAscending(plain.ascending);
    filter.setContainerFirst(plain.containerFirst);
    filter.setDeleted(plain.deleted);
    filter.serviceFlag = plain.serviceFlag;
    filter.setByPassCache(plain.byPassCache);
    return filter;
}

std::string describeReal(const Item& item) { return CacheModel::describe(plain(item)); }

std::string describeReal(const Nimra::Document& document, unsigned int kind,
                         const std::string& service, const std::string& protocol) {
    return CacheModel::describeFile(plain(document), kind, service, protocol);
}

// The order is never carried over, and so the model knows no word for it.
std::string describeReal(const Nimra::ItemFilter& filter) {
    return CacheModel::describe(plain(filter)) + filter.order() + filter.cursor;
}

std::string describeReal(const Nimra::Folder& folder) { return describeFolder(plain(folder)); }

std::string describeFolder(const ModelRecord& folder) {
    std::string all = "folder";
    for (const unsigned long number :
         {folder.id, folder.parentId, folder.oldParentId, folder.ownerId, folder.driveId,
          folder.created, folder.updated, folder.deleted}) {
        all += ' ' + std::to_string(number);
    }
    for (const std::string* text :
         {&folder.name, &folder.firstLeading, &folder.secondLeading, &folder.lastTrailing}) {
        all += " '" + *text + '\'';
    }
    for (const auto& [user, rows] : folder.shares) {
        all += " shared " + std::to_string(user) + 'x' + std::to_string(rows);
    }
    return all + " access " + std::to_string(folder.access);
}

}  // namespace Ormek::Testing
