// What a user does to a document: applied to the cache where it changes it, then sent or parked.

#include <string>
#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"

namespace Ormek {

namespace {

constexpr int DocumentServiceKey = 4;

constexpr unsigned int CreateKind = 2;
constexpr unsigned int MoveKind = 4;
constexpr unsigned int RemoveKind = 5;
constexpr unsigned int RenameKind = 6;
constexpr unsigned int StreamsKind = 10;
constexpr unsigned int SaveMetaDataKind = 13;

}  // namespace

/// What an action writes when its operation leaves.
struct DirectoryCache::SendWords {
    const char* sending;  // Null for none.
    const char* parking;
    bool parkingNamesId;
};

const DirectoryCache::SendWords DirectoryCache::MoveWords = {
    nullptr, "Ormek::DirectoryCache::moveObject Queueing operation", false};
const DirectoryCache::SendWords DirectoryCache::RemoveWords = {
    "Ormek::DirectoryCache::removeDocument Sending operation\n",
    "Ormek::DirectoryCache::removeDocument Queueing operation operationId: ", true};
// Streams and metadata use the words of a rename too, which is meant.
const DirectoryCache::SendWords DirectoryCache::RenameWords = {
    nullptr, "queueing rename operation with op id: ", true};

std::unique_ptr<Nimra::FileOperation> DirectoryCache::newFileOperation(
    const Nimra::Document& document, unsigned int kind, Nimra::ItemEventProtocol* protocol) {
    auto operation = std::make_unique<Nimra::FileOperation>(Nimra::OperationHandler::createId(),
                                                            document, kind, protocol);
    operation->setService(
        dynamic_cast<Nimra::DocumentServiceNetwork*>(serviceFor(DocumentServiceKey)));
    return operation;
}

unsigned long DirectoryCache::sendDocument(const Nimra::Document& document, unsigned int kind,
                                           const SendWords& words,
                                           Nimra::ItemEventProtocol* protocol) {
    Nimra::OperationHandler* handler = requests();
    auto operation = newFileOperation(document, kind, protocol);
    // The flag is read before the user id is looked at.
    const bool idLoaded = getItemInternal(document.id)->idLoaded();
    const bool ready = idLoaded && document.ownerId != 0;
    if (ready) {
        if (words.sending) {
            trace(words.sending);
        }
    } else if (words.parkingNamesId) {
        trace(words.parking, operation->id(), "\n");
    } else {
        trace(words.parking, "\n");
    }
    return handOver(std::move(operation), handler, ready);
}

void DirectoryCache::traceLengths(const char* label) {
    trace(label, " items len: ", _items.size(), "\n");
    trace(label, " dir len: ", _directories.size(), "\n");
}

// --- Renaming ------------------------------------------------------------------------------

void DirectoryCache::renameItem(unsigned long id, std::string newName) {
    const std::shared_ptr<ItemInternal> item = OrmekCast::castItemInternal(_items[id]);
    item->name(newName);
    traceAndFlush("Orm::DirectoryCache::renameItem newName: ", newName, "\n");
    if (tracing()) {
        traceAndFlush("Orm::DirectoryCache::rename tempItem->name(): ", item->name(), "\n");
    }
}

void DirectoryCache::renameDocument(Nimra::Document document) {
    renameItem(document.id, document.escapedName());
}

unsigned long DirectoryCache::renameObject(unsigned long folderId, unsigned long id,
                                           unsigned long userId, std::string newName,
                                           Nimra::ItemEventProtocol* protocol) {
    trace("Ormek::DirectoryCache::renameDocument 1", "\n");
    traceLengths("Ormek::DirectoryCache::renameDocument 2");
    trace("Ormek::DirectoryCache::renameDocument 2 newName: ", newName, "\n");
    renameItem(id, newName);
    traceLengths("Ormek::DirectoryCache::renameDocument 3");
    const Nimra::Document document(id, folderId, userId, newName);
    trace("Ormek::Directory::Cache::renameDocument id: ", id, " folderId: ", folderId,
          " userId: ", userId, " newName: ", newName, "\n");
    const unsigned long operationId = sendDocument(document, RenameKind, RenameWords, protocol);
    trace("Ormek::DirectoryCache::renameDocument 4 ", "\n");
    return operationId;
}

// --- Moving --------------------------------------------------------------------------------

// The two mutexes are nested the other way round than elsewhere, which is meant.
void DirectoryCache::moveItem(unsigned long itemId, unsigned long newParentId,
                              unsigned long oldParentId) {
    const std::lock_guard itemsLock(_itemsMutex);
    trace("Ormek::DirectoryCache::moveItem itemId: ", itemId, "\n");
    const std::shared_ptr<ItemInternal> item = OrmekCast::castItemInternal(_items[itemId]);
    item->oldParentId(oldParentId);
    item->parentId(newParentId);
    const std::lock_guard lock(_mutex);
    // What an entry matches is about its parent.
    const auto edit = [&](const std::shared_ptr<QueryResult>& directory) {
        QueryResultInternal& internal = internalOf(directory);
        if (internal.filter().matchesDataId(oldParentId)) {
            trace("DirectoryCache::Move removing item", "\n");
            internal.removeItem(itemId);
        } else if (internal.filter().matchesQuery(*item)) {
            trace("DirectoryCache::Move adding item", "\n");
            internal.addItem(item, false);
        }
        return false;
    };
    _indexes->listings.visit(oldParentId, item->parentId(), edit);
}

unsigned long DirectoryCache::moveObject(unsigned long userId, unsigned long oldParentId,
                                         unsigned long itemId, unsigned long newParentId,
                                         std::string name, Nimra::ItemEventProtocol* protocol) {
    moveItem(itemId, newParentId, oldParentId);
    Nimra::Document document(itemId, newParentId, userId, std::move(name));
    document.oldParentId = oldParentId;
    return sendDocument(document, MoveKind, MoveWords, protocol);
}

// --- Removing ------------------------------------------------------------------------------

unsigned long DirectoryCache::removeObject(unsigned long parentId, unsigned long id,
                                           unsigned long userId,
                                           Nimra::ItemEventProtocol* protocol) {
    trace("Ormek::DirectoryCache::removeDocument 1", "\n");
    traceLengths("Ormek::DirectoryCache::removeDocument 2");
    traceLengths("Ormek::DirectoryCache::removeDocument 3");
    const unsigned long operationId =
        sendDocument({id, parentId, userId, ""}, RemoveKind, RemoveWords, protocol);
    removeItemFromDirectories(parentId, id);
    return operationId;
}

// --- Creating ------------------------------------------------------------------------------

// Unlike the other actions this asks the folder, and the user plays no part.
unsigned long DirectoryCache::createObject(std::shared_ptr<Object> object, KeyValueMap keyValues,
                                           unsigned long userId,
                                           Nimra::ItemEventProtocol* protocol) {
    std::string name = object->name();
    const unsigned long parentId = object->parentId();
    Nimra::Document document(object->id(), parentId, userId, std::move(name));
    const std::shared_ptr<ObjectInternal> held = OrmekCast::castObjectInternal(object);
    for (const auto& [key, value] : keyValues) {
        document.addKeyValue(key, value);
    }
    Nimra::OperationHandler* handler = requests();
    auto operation = newFileOperation(document, CreateKind, protocol);
    const std::shared_ptr<Item> folder = getItemInternal(parentId);
    if (!folder) {
        // Neither sent nor parked: it stays allocated, which is meant.
        return operation.release()->id();
    }
    if (folder->idLoaded() && folder->id() != 0) {
        return handOver(std::move(operation), handler, true);
    }
    traceUploadQueue("BEFORE");
    const unsigned long operationId = handOver(std::move(operation), handler, false);
    traceUploadQueue("AFTER");
    return operationId;
}

void DirectoryCache::traceUploadQueue(const char* moment) {
    if (tracing()) {
        trace("-----------Ormek::UPLOAD ADDING OP TO QUEUE, SIZE ", moment, ": ",
              _opWithoutIdsQueue->size(), "--------------", "\n");
    }
}

// --- Streams, metadata, sessions -----------------------------------------------------------

unsigned long DirectoryCache::getStreams(unsigned long parentId, unsigned long id,
                                         unsigned long userId, std::string name,
                                         Nimra::ItemEventProtocol* protocol) {
    const Nimra::Document document(id, parentId, userId, std::move(name));
    return sendTraced("Ormek::Directory::Cache::getStreams id: ", document, StreamsKind, protocol);
}

unsigned long DirectoryCache::saveMetaData(unsigned long userId, unsigned long parentId,
                                           unsigned long id, std::string name, unsigned long length,
                                           std::string mimeType, KeyValueMap keyValues,
                                           Nimra::ItemEventProtocol* protocol) {
    Nimra::Document document(id, parentId, userId, std::move(name));
    document.length = length;
    document.mimeType = std::move(mimeType);
    for (const auto& [key, value] : keyValues) {
        document.setKeyValue(key, value);
    }
    return sendTraced("Ormek::Directory::Cache::saveMetaData id: ", document, SaveMetaDataKind,
                      protocol);
}

unsigned long DirectoryCache::sendTraced(const char* label, const Nimra::Document& document,
                                         unsigned int kind, Nimra::ItemEventProtocol* protocol) {
    trace(label, document.id, " parentId: ", document.parentId, " userId: ", document.ownerId,
          " Name: ", document.name, "\n");
    const unsigned long operationId = sendDocument(document, kind, RenameWords, protocol);
    trace("Ormek::DirectoryCache::renameDocument 4 ", "\n");
    return operationId;
}

unsigned long DirectoryCache::getObjectSession(unsigned long folderId, unsigned long documentId,
                                               unsigned long userId,
                                               Nimra::ItemEventProtocol* protocol) {
    const std::string path =
        "/v1/documents/" + std::to_string(folderId) + "/" + std::to_string(documentId) + "/session";
    trace("\n");
    trace("Ormek::DirectoryCache::getObjectSession url ", path, "\n");
    Nimra::ItemFilter filter;
    filter.userId = userId;
    filter.url = path;
    Nimra::OperationHandler* handler = requests();
    auto operation = newLoad(filter, protocol);
    operation->setService(serviceFor(DocumentServiceKey));
    return handOver(std::move(operation), handler, filter.userId != 0);
}

// --- Events --------------------------------------------------------------------------------

// Kind 2 is not dispatched here: creation goes through createObject only.
unsigned long DirectoryCache::objectEvent(Object& object, unsigned long userId, unsigned int kind,
                                          Nimra::ItemEventProtocol* protocol) {
    switch (kind) {
        case MoveKind:
            return moveObject(userId, object.oldParentId(), object.id(), object.parentId(),
                              object.name(), protocol);
        case RemoveKind:
            return removeObject(object.parentId(), object.id(), userId, protocol);
        case RenameKind:
            traceAndFlush("Ormek::DirectoryCache::objectEvent Rename obj name: ", object.name(),
                          "\n");
            return renameObject(object.parentId(), object.id(), userId, object.name(), protocol);
        case StreamsKind:
            return getStreams(object.parentId(), object.id(), userId, object.name(), protocol);
        case SaveMetaDataKind:
            return saveMetaData(userId, object.parentId(), object.id(), object.name(),
                                object.length(), object.mimeType(), object.keyValues(), protocol);
        default:
            trace("ERROR, Operation not implemented. ", "\n");
            return 0;
    }
}

}  // namespace Ormek
