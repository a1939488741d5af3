#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "cache/NodePool.h"
#include "model/Container.h"
#include "model/ContainerInternal.h"
#include "model/FilterInternal.h"
#include "model/Item.h"
#include "model/Object.h"
#include "model/ObjectInternal.h"
#include "model/ObjectUpdater.h"
#include "model/OrmekCast.h"
#include "model/QueryResult.h"
#include "model/QueryResultInternal.h"
#include "service/DataLoaderOperation.h"
#include "service/DataService.h"
#include "service/Document.h"
#include "service/DocumentServiceNetwork.h"
#include "service/FileOperation.h"
#include "service/Folder.h"
#include "service/ItemEventProtocol.h"
#include "service/ItemFilter.h"
#include "service/OperationHandler.h"
#include "service/QueuedOperationsManager.h"
#include "service/Tag.h"

namespace Ormek {

/// An in-memory picture of a user's remote file tree.
///
/// It holds every entry once, by id, and the result sets ("directories") of the listings that were
/// asked for. A listing whose page is held is answered at once; one that is not starts a load,
/// whose page comes back later through `addItems` or `addKeyValues`.
///
/// Ownership. Entries and directories are shared pointers and live as long as any holder. The
/// services, the updater, the parked queue and the listeners are not owned and must outlive their
/// use. Operations belong to the handler named "Requests" or to the parked queue once handed over.
///
/// Threads. The cache has no thread of its own and never waits for a service. It has two mutexes:
/// one for the store, one for the directories; each operation below says which it takes. Most
/// queries and look-ups take none: callers serialise those with the edits. The two are not always
/// nested in the same order, and that is meant.
///
/// Errors. Absence is an empty pointer, false or 0. Nothing is thrown but what the standard
/// library throws (std::bad_alloc, std::system_error when a mutex cannot be locked, whatever
/// std::cout was told to throw) and what a handler or a parked queue of your own throws. Pointers
/// that are handed in must not be null unless said.
///
/// Trace. Most operations write trace lines to std::cout, whose texts are fixed. With std::cout in
/// a failed state, set before other threads use the cache, nothing is formatted and nothing
/// written.
class DirectoryCache {
  public:
    DirectoryCache();
    DirectoryCache(const DirectoryCache&) = delete;
    DirectoryCache& operator=(const DirectoryCache&) = delete;
    ~DirectoryCache();

    // --- Wiring. No lock. ------------------------------------------------------------------

    /// Data services by data type: 0 listings, 16 key-value listings, 4 documents. A key that is
    /// missing when it is needed is inserted with a null service. Needed before the first load.
    void setServices(std::map<int, Nimra::DataService*>* services);
    /// What every entry that the cache makes is built with.
    void setObjectUpdater(ObjectUpdater* updater);
    /// Where operations go that need an id which the server has not given yet. Needed before the
    /// first operation.
    void setOpWithoutIdsQueue(QueuedOperationsManager* queue);

    // --- Store: look-ups. No lock unless said. ---------------------------------------------
    // Some operations leave an empty entry under an id by looking it up. It counts as a key and
    // in the store's size; for everything else there is no entry.

    /// The entry, or an empty pointer.
    std::shared_ptr<Item> getItem(unsigned long id);
    /// The same under the store's mutex.
    std::shared_ptr<Item> getItemInternal(unsigned long id);
    /// Whether `id` is a key of the store.
    bool ItemInCache(unsigned long id);
    /// The entry with that parent and exactly that name, or an empty pointer; the last one in
    /// iteration order when there are several.
    std::shared_ptr<Item> ItemInCache(unsigned long parentId, std::string name);
    /// Whether the store's first entry in iteration order has that parent. The store must not be
    /// empty.
    bool ItemHasChild(unsigned long parentId);
    /// 1 when `id` is a key of the store, else 0.
    int itemCount(unsigned long id);
    /// Number of entries in the store.
    unsigned long itemsSize();
    /// All entries with that parent, in iteration order.
    std::vector<std::shared_ptr<Item>> getChildren(unsigned long parentId);
    /// The first directory that has `dataId` among its data ids, or an empty pointer.
    std::shared_ptr<QueryResult> getDirectory(unsigned long dataId);
    /// Prints every entry of the store.
    void printAllItems();
    /// The entry as a container; empty when it is not one. Shares ownership.
    std::shared_ptr<Container> castContainer(std::shared_ptr<Item> item);
    /// The entry as an object; empty when it is not one. Shares ownership.
    std::shared_ptr<Object> castObject(std::shared_ptr<Item> item);

    // --- Store: objects. -------------------------------------------------------------------
    // A known id is never overwritten: the entry in the store stays, and is what is returned,
    // which gives an empty pointer when that entry is a container or empty.

    /// Stores a copy. No lock: to be serialised with whatever else touches the store.
    std::shared_ptr<Object> cacheObject(Object& object);
    /// The same under the store's mutex.
    std::shared_ptr<Object> cacheObjectInternal(Object& object);
    /// Stores the object itself. No lock, like the above.
    std::shared_ptr<Object> cacheObjectPtr(std::shared_ptr<Object> object);
    /// The same under the store's mutex.
    std::shared_ptr<Object> cacheObjectPtrInternal(std::shared_ptr<Object> object);
    /// Stores a copy and adds it to the first directory it matches. The store's mutex, then the
    /// directories'; what is returned is looked up after both, by a look-up that leaves an empty
    /// entry when the id has vanished meanwhile.
    std::shared_ptr<Object> addObject(Object object, bool flag);
    /// Stores the object itself and adds it to the first directory it matches. Locks as above.
    std::shared_ptr<Object> addObjectPtr(std::shared_ptr<Object> object, bool flag);
    /// Stores the object and replaces the one of its name in the first directory it matches. The
    /// store's mutex only: the directory is edited without a lock. Returns as above.
    std::shared_ptr<Object> addOrReplaceObjectPtr(std::shared_ptr<Object> object, bool flag);
    /// Stores and adds an object made from a record. The flag is dropped: it is added with false.
    /// Locks as above.
    std::shared_ptr<Object> addDocument(Nimra::Document document, bool flag);
    /// Refreshes a cached object from a newer record and places it anew; empty when the id is not
    /// cached or not an object's. The store's mutex for looking it up and storing it only: the
    /// object and the directory are changed without a lock. The flag is dropped.
    std::shared_ptr<Object> updateObject(Nimra::Document& document, bool flag);
    /// Refreshes the metadata of a cached object; does nothing when there is none. The store's
    /// mutex for the look-up only, the object is changed without a lock.
    void updateObjectMetaData(Nimra::Document& document);
    /// An unattached object made from a record. No lock.
    std::shared_ptr<Object> getObject(Nimra::Document document);
    /// An unattached key-value object made from a record. No lock.
    std::shared_ptr<Object> getObjectFromTag(Nimra::Tag tag);
    /// Stores a copy under a key, unless the key is taken. No lock.
    void cacheKeyValue(std::string key, Object& object);
    /// Stores the object itself under a key, unless the key is taken. No lock.
    void cacheKeyValuePtr(std::string key, std::shared_ptr<Object> object);

    // --- Store: containers. A known id is never overwritten. -------------------------------

    /// Stores a copy and returns what the store has under its id: an empty pointer when that is an
    /// object or empty. No lock: to be serialised with whatever else touches the store.
    std::shared_ptr<Container> cacheContainer(Container& container);
    /// The same under the store's mutex.
    std::shared_ptr<Container> cacheContainerInternal(Container& container);
    /// Stores the container itself. No lock, like the above.
    void cacheContainerPtr(std::shared_ptr<Container> container);
    /// The same under the store's mutex.
    void cacheContainerPtrInternal(std::shared_ptr<Container> container);
    /// Stores any entry, silently. No lock, like the above.
    void cacheItemPtr(std::shared_ptr<Item> item);
    /// Stores a copy, adds what the store has under its id to the first directory that the argument
    /// matches, with the flag false, and returns it like cacheContainer. The store's mutex; then
    /// the directories' and, inside it, the store's again.
    std::shared_ptr<Container> addContainer(Container& container);
    /// The same for the container itself, with the caller's flag. Returns `container` even when the
    /// store kept another entry.
    std::shared_ptr<Container> addContainerPtr(std::shared_ptr<Container> container, bool flag);
    /// Stores and adds a container made from a record. The flag is dropped: it is added with
    /// false. Locks and result as above.
    std::shared_ptr<Container> addFolder(Nimra::Folder folder, bool flag);
    /// An unattached container made from a record. No lock.
    std::shared_ptr<Container> getContainer(Nimra::Folder folder);
    /// Removes the container and adds it again, with the locks of both. Somebody other than the
    /// cache must hold it.
    void replaceContainer(Container& container);
    /// A folder record made from any entry. No lock.
    Nimra::Folder itemToFolder(Item* item);

    // --- Store: removal, new parents, new ids. An unknown id does nothing. ------------------

    /// Takes an entry out of the store. The store's mutex.
    void removeItemFromCache(unsigned long id);
    /// Takes an entry out of every directory of `parentId` and out of the store. The directories'
    /// mutex and, inside it, the store's.
    void removeItem(unsigned long parentId, unsigned long id);
    /// The same for the folder that a record names, with the same locks.
    void removeFolder(Nimra::Folder folder);
    /// The same for a container, with the same locks.
    void removeContainer(Container container);
    /// Takes an entry out of the first directory of `dataId`. The directories' mutex.
    void removeItemFromDirectories(unsigned long dataId, unsigned long itemId);
    /// Gives an entry its server id and marks the id as loaded. When `newId` is taken, the entry
    /// there stays and this one is no longer in the store; in the listings both stay where they
    /// are, so take this one out of them first. The store's mutex.
    void updateItemId(unsigned long oldId, unsigned long newId);
    /// Gives every child of one parent another. The store's mutex.
    void updateItemParentIds(unsigned long oldParentId, unsigned long newParentId);

    // --- Queries. No lock. -----------------------------------------------------------------

    /// Finds or makes the directory of `filter` and says whether the page is in memory.
    bool get(FilterInternal filter, std::shared_ptr<QueryResult>& result);
    /// The same, and starts a load when it is not. With a filter that by-passes the cache nothing
    /// is looked up, `result` is left as it is, and a load is started. Returns 0 when answered
    /// from memory, else the operation's id.
    unsigned long get(FilterInternal filter, std::shared_ptr<QueryResult>& result,
                      Nimra::ItemEventProtocol* listener);
    /// Finds or makes the key-value directory of `filter` and says whether it was there already.
    /// Pages are not looked at.
    bool getKeyValues(FilterInternal filter, std::shared_ptr<QueryResult>& result);
    /// The same, and starts a load when it was not. Returns 0 when it was, else the operation's
    /// id. The by-pass flag plays no part.
    unsigned long getKeyValues(FilterInternal filter, std::shared_ptr<QueryResult>& result,
                               Nimra::ItemEventProtocol* listener);
    /// The directory of this listing, or an empty pointer.
    std::shared_ptr<QueryResult> getDirectory(FilterInternal filter);
    /// The key-value directory of this listing, or an empty pointer.
    std::shared_ptr<QueryResult> getKeyValueDirectory(FilterInternal filter);
    /// A copy of a result set, known to the caller alone.
    std::shared_ptr<QueryResult> add(QueryResult result);
    /// Starts a load from the service under key 0. `result` only has to live for the call.
    unsigned long loadDirectory(FilterInternal filter, std::shared_ptr<QueryResult> result,
                                Nimra::ItemEventProtocol* listener);
    /// Starts a load: sends it, or parks it while the filter's `contextId` is 0.
    unsigned long loadFromService(Nimra::DataService* service, FilterInternal filter,
                                  Nimra::ItemEventProtocol* listener);
    /// The service's form of a filter. The order description is not carried over: this is meant.
    Nimra::ItemFilter filterConverter(FilterInternal filter);

    // --- Merging loaded pages. -------------------------------------------------------------
    // `result` must be a `QueryResultInternal`. The first three take the store's mutex around
    // each look-up and insertion and the directories' around the last edit of `result`, never
    // both; known documents are refreshed like updateObject does. The last takes none.

    /// Merges one page of folders and documents.
    void addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                  std::vector<Nimra::Folder> folders, std::vector<Nimra::Document> documents,
                  unsigned long totalCount);
    /// Merges one page of folders.
    void addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                  std::vector<Nimra::Folder> folders, unsigned long totalCount);
    /// Merges one page of documents.
    void addItems(FilterInternal filter, std::shared_ptr<QueryResult> result,
                  std::vector<Nimra::Document> documents, unsigned long totalCount);
    /// Merges one page of tags. An entry that is already kept under a tag's key stays.
    void addKeyValues(FilterInternal filter, std::shared_ptr<QueryResult> result,
                      std::vector<Nimra::Tag> tags, unsigned long totalCount);

    // --- Actions of the user. --------------------------------------------------------------
    // Each hands an operation to the service layer, or parks it while the item has no server id,
    // and in any case when the user id is 0; it returns the operation's id at once, and the answer
    // goes to `protocol`. The item must be cached, but where said. Those that send look the item
    // up under the store's mutex and hand the operation over under none; what else they lock is
    // said below. Mind the order of the arguments: it differs.

    /// Gives a cached entry another name, and nothing else. No lock.
    void renameItem(unsigned long id, std::string newName);
    /// The same with the escaped name of a record. No lock.
    void renameDocument(Nimra::Document document);
    /// Renames the cached entry, without a lock, then sends.
    unsigned long renameObject(unsigned long folderId, unsigned long id, unsigned long userId,
                               std::string newName, Nimra::ItemEventProtocol* protocol);
    /// Gives a cached entry its new parent, takes it out of the directories of the old one and
    /// adds it to all others that it matches. The store's mutex and, inside it, the directories'.
    void moveItem(unsigned long itemId, unsigned long newParentId, unsigned long oldParentId);
    /// Moves the cached entry, with the locks of moveItem, then sends.
    unsigned long moveObject(unsigned long userId, unsigned long oldParentId, unsigned long itemId,
                             unsigned long newParentId, std::string name,
                             Nimra::ItemEventProtocol* protocol);
    /// Sends, then takes the entry out of the first directory of its folder, under the
    /// directories' mutex; it stays in the store.
    unsigned long removeObject(unsigned long parentId, unsigned long id, unsigned long userId,
                               Nimra::ItemEventProtocol* protocol);
    /// Sends a new document, or parks it while its folder has no server id or the id 0; the user
    /// plays no part. Neither the document nor its folder need be cached; without the folder
    /// nothing is sent or parked, and the operation stays allocated. The store's mutex to look the
    /// folder up.
    unsigned long createObject(std::shared_ptr<Object> object, KeyValueMap keyValues,
                               unsigned long userId, Nimra::ItemEventProtocol* protocol);
    /// Asks for a document's streams.
    unsigned long getStreams(unsigned long parentId, unsigned long id, unsigned long userId,
                             std::string name, Nimra::ItemEventProtocol* protocol);
    /// Stores a document's length, mime type and key values with the service.
    unsigned long saveMetaData(unsigned long userId, unsigned long parentId, unsigned long id,
                               std::string name, unsigned long length, std::string mimeType,
                               KeyValueMap keyValues, Nimra::ItemEventProtocol* protocol);
    /// Opens a session on a document, cached or not; parked only without a user. No lock.
    unsigned long getObjectSession(unsigned long folderId, unsigned long documentId,
                                   unsigned long userId, Nimra::ItemEventProtocol* protocol);
    /// Applies the action of a kind code to what `object` says now: 4 move, 5 remove, 6 rename,
    /// 10 streams, 13 save metadata, with that action's locks. 0 for any other kind.
    unsigned long objectEvent(Object& object, unsigned long userId, unsigned int kind,
                              Nimra::ItemEventProtocol* protocol);

    // --- Changes made elsewhere. -----------------------------------------------------------

    /// Gives a cached entry, which must be there, its new parent; true when it has another one
    /// than before. Directories are not touched. The store's mutex for the look-up only.
    bool onRemoteObjectMoved(unsigned long newParentId, unsigned long itemId);

    // --- For diagnosis and statistics. No lock. --------------------------------------------

    const std::list<std::shared_ptr<QueryResult>>& directories() const { return _directories; }
    const std::list<std::shared_ptr<QueryResult>>& keyValueDirectories() const {
        return _keyValueDirectories;
    }
    const std::unordered_map<std::string, std::shared_ptr<Item>>& keyValues() const {
        return _keyValues;
    }
    /// The listener of the last load of a directory.
    Nimra::ItemEventProtocol* loadListener() const { return _loadListener; }

  private:
    friend class DirectoryCacheProbe;

    struct Indexes;

    // The first directory that an entry matches; null when there is none.
    QueryResultInternal* firstDirectoryOf(const Item& item) const;
    // Takes the directories' mutex.
    void addToFirstDirectory(const Object& object, std::shared_ptr<Item> stored, bool flag);

    struct SendWords;
    static const SendWords MoveWords;
    static const SendWords RemoveWords;
    static const SendWords RenameWords;

    static Nimra::OperationHandler* requests();
    static std::unique_ptr<Nimra::DataLoaderOperation> newLoad(Nimra::ItemFilter filter,
                                                               Nimra::ItemEventProtocol* listener);
    std::unique_ptr<Nimra::FileOperation> newFileOperation(const Nimra::Document& document,
                                                           unsigned int kind,
                                                           Nimra::ItemEventProtocol* protocol);
    // The one way in which actions on a cached document leave. Takes the store's mutex to look the
    // item up, and no lock afterwards.
    unsigned long sendDocument(const Nimra::Document& document, unsigned int kind,
                               const SendWords& words, Nimra::ItemEventProtocol* protocol);
    // The same between the traces of streams and metadata.
    unsigned long sendTraced(const char* label, const Nimra::Document& document, unsigned int kind,
                             Nimra::ItemEventProtocol* protocol);
    void traceLengths(const char* label);
    void traceUploadQueue(const char* moment);
    // Inserts a null service where there is none.
    Nimra::DataService* serviceFor(int dataType);
    // Sends the operation when it is ready, else parks it. The id is read back from it afterwards.
    unsigned long handOver(std::unique_ptr<Nimra::Operation> operation,
                           Nimra::OperationHandler* handler, bool ready);

    std::list<std::shared_ptr<QueryResult>> _directories;
    std::list<std::shared_ptr<QueryResult>> _keyValueDirectories;
    NodePool _itemNodes;
    PooledMap<unsigned long, std::shared_ptr<Item>> _items{_itemNodes};
    std::unordered_map<std::string, std::shared_ptr<Item>> _keyValues;
    std::unique_ptr<Indexes> _indexes;  // Of both lists of directories.
    Nimra::ItemEventProtocol* _loadListener = nullptr;
    std::map<int, Nimra::DataService*>* _services = nullptr;
    ObjectUpdater* _objectUpdater = nullptr;
    QueuedOperationsManager* _opWithoutIdsQueue = nullptr;
    std::mutex _itemsMutex;
    std::mutex _mutex;
};

}  // namespace Ormek
