#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

CacheEdit removeFrom(unsigned long directory, unsigned long id) {
    return [=](W& w) { w.directory(directory).removeItem(id); };
}
CacheEdit dropFromStore(unsigned long id) {
    return [=](W& w) { w.probe.items().erase(id); };
}

/// The entry goes from one key of the store to another that is not taken.
CacheEdit rekey(unsigned long oldId, unsigned long newId) {
    return [=](W& w) {
        const std::shared_ptr<Item> item = w.stored(oldId);
        w.probe.items().erase(oldId);
        w.stored(newId) = item;
    };
}

CacheOperations removing() {
    return {
        {"removeItemFromCache, known",
         asItIs,
         [](W& w) { w.cache.removeItemFromCache(W::Document); },
         {dropFromStore(W::Document)}},
        {"removeItemFromCache, unknown",
         asItIs,
         [](W& w) { w.cache.removeItemFromCache(W::Absent); },
         {}},
        {"removeItem, known",
         asItIs,
         [](W& w) { w.cache.removeItem(W::Folder, W::Document); },
         {removeFrom(1, W::Document), removeFrom(2, W::Document), dropFromStore(W::Document)}},
        {"removeItem, unknown", asItIs, [](W& w) { w.cache.removeItem(W::Folder, W::Absent); }, {}},
        {"removeItem, no directory",
         withoutDirectories,
         [](W& w) { w.cache.removeItem(W::Folder, W::Document); },
         {dropFromStore(W::Document)}},
        {"removeFolder, known",
         asItIs,
         [](W& w) { w.cache.removeFolder(w.knownFolder); },
         {removeFrom(1, W::SubFolder), dropFromStore(W::SubFolder)}},
        {"removeFolder, unknown", asItIs, [](W& w) { w.cache.removeFolder(w.newFolder); }, {}},
        {"removeContainer, known",
         [](W& w) { w.giveContainer(W::SubFolder, W::Folder); },
         [](W& w) { w.cache.removeContainer(w.plainContainer); },
         {removeFrom(1, W::SubFolder), dropFromStore(W::SubFolder)}},
        {"removeContainer, unknown",
         asItIs,
         [](W& w) { w.cache.removeContainer(w.plainContainer); },
         {}},
        {"removeItemFromDirectories, known",
         asItIs,
         [](W& w) { w.cache.removeItemFromDirectories(W::Folder, W::Document); },
         {removeFrom(1, W::Document)}},
        {"removeItemFromDirectories, unknown",
         asItIs,
         [](W& w) { w.cache.removeItemFromDirectories(W::Folder, W::Absent); },
         {}},
        {"removeItemFromDirectories, no directory",
         asItIs,
         [](W& w) { w.cache.removeItemFromDirectories(W::UnlistedFolder, W::Document); },
         {}},
    };
}

CacheOperations givingIdsAndParents() {
    return {
        {"updateItemId, known",
         asItIs,
         [](W& w) { w.cache.updateItemId(W::Unsent, W::Absent); },
         {[](W& w) { w.internal(W::Unsent).id(W::Absent); }, rekey(W::Unsent, W::Absent),
          [](W& w) { w.internal(W::Absent).idLoaded(true); }}},
        {"updateItemId, new id taken",
         asItIs,
         [](W& w) { w.cache.updateItemId(W::Unsent, W::Document); },
         {[](W& w) { w.internal(W::Unsent).id(W::Document); },
          [](W& w) {
              w.internal(W::Unsent).idLoaded(true);
              w.probe.items().erase(W::Unsent);
          }}},
        {"updateItemId, same id",
         asItIs,
         [](W& w) { w.cache.updateItemId(W::Unsent, W::Unsent); },
         {[](W& w) { w.internal(W::Unsent).idLoaded(true); }}},
        {"updateItemId, unknown",
         asItIs,
         [](W& w) { w.cache.updateItemId(W::Absent, W::NewDocument); },
         {}},
        {"updateItemId, empty entry",
         asItIs,
         [](W& w) { w.cache.updateItemId(W::Empty, W::NewDocument); },
         {}},
        {"updateItemParentIds, some",
         asItIs,
         [](W& w) { w.cache.updateItemParentIds(W::Folder, W::OtherFolder); },
         {[](W& w) {
             for (const unsigned long id : {W::Document, W::Unsent, W::SubFolder}) {
                 w.internal(id).parentId(W::OtherFolder);
             }
         }}},
        {"updateItemParentIds, none",
         asItIs,
         [](W& w) { w.cache.updateItemParentIds(W::Absent, W::OtherFolder); },
         {}},
        {"onRemoteObjectMoved, elsewhere",
         asItIs,
         [](W& w) { w.cache.onRemoteObjectMoved(W::OtherFolder, W::Document); },
         {[](W& w) { w.internal(W::Document).oldParentId(W::Folder); },
          [](W& w) { w.internal(W::Document).parentId(W::OtherFolder); }}},
        {"onRemoteObjectMoved, where it is",
         asItIs,
         [](W& w) { w.cache.onRemoteObjectMoved(W::Folder, W::Document); },
         {}},
    };
}

}  // namespace

CacheOperations removalOperations() { return removing() + givingIdsAndParents(); }

}  // namespace Ormek::Testing
