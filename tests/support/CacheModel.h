#pragma once

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ListingModel.h"

namespace Ormek::Testing {

/// A query as plain data.
struct ModelFilter {
    std::vector<unsigned long> dataIds;
    unsigned long userId = 0;
    unsigned long contextId = 0;
    unsigned int offset = 0;
    unsigned int count = 0;
    int dataType = 0;
    std::vector<int> dataTypes;  // Ascending.
    std::string query;
    std::string order;  // Of the one key that is ordered by; none when empty.
    std::string path;
    std::string url;
    std::string group;
    std::map<std::string, std::string> tagLabels;
    bool ascending = true;
    bool containerFirst = true;
    bool deleted = false;
    bool serviceFlag = false;
    bool byPassCache = false;
};

/// A directory of the cache.
struct ModelDirectory {
    ModelFilter filter;
    ListingModel listing;
};

using ModelDirectoryPtr = std::shared_ptr<ModelDirectory>;

/// A folder, document or tag as the service layer hands it over.
struct ModelRecord {
    unsigned long id = 0;
    unsigned long parentId = 0;
    unsigned long oldParentId = 0;
    unsigned long ownerId = 0;
    unsigned long driveId = 0;
    unsigned long created = 0;
    unsigned long updated = 0;
    unsigned long deleted = 0;
    std::string name;
    std::map<unsigned long, unsigned long> shares;
    std::string firstLeading;   // Of a folder.
    std::string secondLeading;  // Of a folder.
    std::string lastTrailing;   // Of a folder.
    int access = 0;
    std::string description;
    std::string mimeType;
    unsigned long length = 0;
    int state = 1;
    std::string tagKey;
    std::map<std::string, std::pair<std::string, bool>> keyValues;
};

using ModelRecords = std::vector<ModelRecord>;

/// A request for the service layer; the text says all of it but the id.
struct ModelOperation {
    unsigned long id;
    std::string text;
};

/// What services there are, by data type. Known by a name; "network" is what documents need.
using ModelServices = std::map<int, std::string>;

/// The whole cache once more, as simply as it can be said: plain data, and the trace as the texts
/// that are fixed. An address in it is "<address>". Meant to be compared with the real one, call by
/// call; shares no code with it.
class CacheModel {
  public:
    // What the caller has to set up.
    ModelServices* services = nullptr;
    std::vector<ModelOperation>* queue = nullptr;
    bool hasUpdater = false;
    unsigned long lastOperationId = 0;
    /// The order in which the store's keys are walked, which nothing prescribes.
    std::vector<unsigned long> order;

    // The state.
    std::map<unsigned long, ModelEntryPtr> items;
    std::map<std::string, ModelEntryPtr> keyValues;
    std::list<ModelDirectoryPtr> directories;
    std::list<ModelDirectoryPtr> keyValueDirectories;
    std::string loadListener = "none";
    std::vector<ModelOperation> sent;
    std::string trace;

    // Look-ups.
    ModelEntryPtr getItem(unsigned long id);
    bool itemInCache(unsigned long id);
    ModelEntryPtr itemInCache(unsigned long parentId, const std::string& name);
    bool itemHasChild(unsigned long parentId);
    std::vector<ModelEntryPtr> getChildren(unsigned long parentId);
    ModelDirectoryPtr getDirectory(unsigned long dataId);
    void printAllItems();

    // Objects. A copy is what a plain value becomes when the cache stores it.
    ModelEntryPtr copyOf(const ModelEntry& entry) const;
    ModelEntryPtr cacheObject(const ModelEntryPtr& object);
    ModelEntryPtr addObject(const ModelEntryPtr& object, bool flag);
    ModelEntryPtr addOrReplaceObject(const ModelEntryPtr& object, bool flag);
    ModelEntryPtr addDocument(const ModelRecord& document);
    ModelEntryPtr updateObject(const ModelRecord& document);
    void updateObjectMetaData(const ModelRecord& document);
    ModelEntryPtr objectOf(const ModelRecord& document) const;
    ModelEntryPtr objectOfTag(const ModelRecord& tag) const;
    void cacheKeyValue(const std::string& key, const ModelEntryPtr& object);

    // Containers.
    ModelEntryPtr cacheContainer(const ModelEntry& container);
    void cacheContainerPtr(const ModelEntryPtr& container);
    void cacheItem(const ModelEntryPtr& entry);
    ModelEntryPtr addContainer(const ModelEntry& container);
    ModelEntryPtr addContainerPtr(const ModelEntryPtr& container, bool flag);
    ModelEntryPtr addFolder(const ModelRecord& folder);
    ModelEntryPtr getContainer(const ModelRecord& folder);
    void replaceContainer(const ModelEntry& container);
    ModelRecord itemToFolder(const ModelEntry& entry) const;

    // Removal, new parents, new ids.
    void removeItemFromCache(unsigned long id);
    void removeItem(unsigned long parentId, unsigned long id);
    void removeItemFromDirectories(unsigned long dataId, unsigned long itemId);
    void updateItemId(unsigned long oldId, unsigned long newId);
    void updateItemParentIds(unsigned long oldParentId, unsigned long newParentId);

    // Queries.
    bool get(const ModelFilter& filter, ModelDirectoryPtr& result);
    unsigned long get(const ModelFilter& filter, ModelDirectoryPtr& result,
                      const std::string& listener);
    bool getKeyValues(const ModelFilter& filter, ModelDirectoryPtr& result);
    unsigned long getKeyValues(const ModelFilter& filter, ModelDirectoryPtr& result,
                               const std::string& listener);
    ModelDirectoryPtr getDirectory(const ModelFilter& filter);
    ModelDirectoryPtr getKeyValueDirectory(const ModelFilter& filter);
    unsigned long loadDirectory(const ModelFilter& filter, const std::string& listener);
    unsigned long loadFromService(const std::string& service, const ModelFilter& filter,
                                  const std::string& listener);
    /// The text of the service's form of the filter.
    std::string filterConverter(const ModelFilter& filter);

    // Merging.
    void addItems(const ModelFilter& filter, ModelDirectory& result, const ModelRecords& folders,
                  const ModelRecords& documents, unsigned long total);
    void addFolders(const ModelFilter& filter, ModelDirectory& result, const ModelRecords& folders,
                    unsigned long total);
    void addDocuments(const ModelFilter& filter, ModelDirectory& result,
                      const ModelRecords& documents, unsigned long total);
    void addKeyValues(const ModelFilter& filter, ModelDirectory& result, const ModelRecords& tags,
                      unsigned long total);

    // Actions.
    void renameItem(unsigned long id, const std::string& name);
    unsigned long renameObject(unsigned long folderId, unsigned long id, unsigned long userId,
                               const std::string& name, const std::string& protocol);
    void moveItem(unsigned long id, unsigned long newParentId, unsigned long oldParentId);
    unsigned long moveObject(unsigned long userId, unsigned long oldParentId, unsigned long id,
                             unsigned long newParentId, const std::string& name,
                             const std::string& protocol);
    unsigned long removeObject(unsigned long parentId, unsigned long id, unsigned long userId,
                               const std::string& protocol);
    unsigned long createObject(const ModelEntry& object,
                               const std::map<std::string, std::pair<std::string, bool>>& values,
                               unsigned long userId, const std::string& protocol);
    unsigned long getStreams(unsigned long parentId, unsigned long id, unsigned long userId,
                             const std::string& name, const std::string& protocol);
    unsigned long saveMetaData(const ModelRecord& document, const std::string& protocol);
    unsigned long getObjectSession(unsigned long folderId, unsigned long documentId,
                                   unsigned long userId, const std::string& protocol);
    unsigned long objectEvent(const ModelEntry& object, unsigned long userId, unsigned int kind,
                              const std::string& protocol);
    bool onRemoteObjectMoved(unsigned long newParentId, unsigned long id);

    // What is compared as text.
    static std::string describe(const ModelEntry& entry);
    static std::string describeFile(const ModelRecord& document, unsigned int kind,
                                    const std::string& service, const std::string& protocol);
    static std::string describe(const ModelFilter& filter);

  private:
    template <class... Pieces>
    void write(const Pieces&... pieces);
    void writeEntries(const ModelDirectory& directory);
    void writeLengths(const std::string& label);

    ModelDirectory* firstThatMatches(const ModelEntry& entry);
    void store(unsigned long id, const ModelEntryPtr& entry);
    ModelEntryPtr storedObject(unsigned long id);
    ModelEntryPtr storedContainer(unsigned long id);
    void addToFirst(const ModelEntry& entry, const ModelEntryPtr& stored, bool flag);
    void recordPage(const ModelFilter& filter, ModelDirectory& result, unsigned long total);
    unsigned long send(const std::string& text, bool ready);
    unsigned long sendDocument(const ModelRecord& document, unsigned int kind,
                               const std::string& protocol);
    std::string documentService();
};

}  // namespace Ormek::Testing
