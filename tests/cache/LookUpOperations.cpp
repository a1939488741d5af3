#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

}  // namespace

// Wiring, the plain look-ups and what is for diagnosis. None changes anything but the wiring.
CacheOperations lookUpOperations() {
    return {
        {"setServices", asItIs, [](W& w) { w.cache.setServices(&w.services); }, {}},
        {"setObjectUpdater", asItIs, [](W& w) { w.cache.setObjectUpdater(&w.updater); }, {}},
        {"setOpWithoutIdsQueue", asItIs, [](W& w) { w.cache.setOpWithoutIdsQueue(&w.parked); }, {}},
        {"getItem, known", asItIs, [](W& w) { w.cache.getItem(W::Document); }, {}},
        {"getItem, empty entry", asItIs, [](W& w) { w.cache.getItem(W::Empty); }, {}},
        {"getItem, unknown", asItIs, [](W& w) { w.cache.getItem(W::Absent); }, {}},
        {"getItemInternal, known", asItIs, [](W& w) { w.cache.getItemInternal(W::Document); }, {}},
        {"getItemInternal, unknown", asItIs, [](W& w) { w.cache.getItemInternal(W::Absent); }, {}},
        {"ItemInCache, known", asItIs, [](W& w) { w.cache.ItemInCache(W::Document); }, {}},
        {"ItemInCache, unknown", asItIs, [](W& w) { w.cache.ItemInCache(W::Absent); }, {}},
        {"ItemInCache, by name",
         [](W& w) { w.newName = w.stored(W::Document)->name(); },
         [](W& w) { w.cache.ItemInCache(W::Folder, w.newName); },
         {}},
        {"ItemInCache, by unknown name",
         asItIs,
         [](W& w) { w.cache.ItemInCache(W::Folder, w.newName); },
         {}},
        {"ItemHasChild", asItIs, [](W& w) { w.cache.ItemHasChild(W::Folder); }, {}},
        {"itemCount", asItIs, [](W& w) { w.cache.itemCount(W::Document); }, {}},
        {"itemsSize", asItIs, [](W& w) { w.cache.itemsSize(); }, {}},
        {"getChildren", asItIs, [](W& w) { w.cache.getChildren(W::Folder); }, {}},
        {"getChildren, none", asItIs, [](W& w) { w.cache.getChildren(W::Absent); }, {}},
        {"getDirectory, by id", asItIs, [](W& w) { w.cache.getDirectory(W::Folder); }, {}},
        {"getDirectory, by unknown id",
         asItIs,
         [](W& w) { w.cache.getDirectory(W::UnlistedFolder); },
         {}},
        {"printAllItems", asItIs, [](W& w) { w.cache.printAllItems(); }, {}},
        {"castContainer", asItIs, [](W& w) { w.cache.castContainer(w.newContainer); }, {}},
        {"castContainer, object", asItIs, [](W& w) { w.cache.castContainer(w.newObject); }, {}},
        {"castObject", asItIs, [](W& w) { w.cache.castObject(w.newObject); }, {}},
        {"castObject, container", asItIs, [](W& w) { w.cache.castObject(w.newContainer); }, {}},
        {"directories", asItIs, [](W& w) { w.cache.directories(); }, {}},
        {"keyValueDirectories", asItIs, [](W& w) { w.cache.keyValueDirectories(); }, {}},
        {"keyValues", asItIs, [](W& w) { w.cache.keyValues(); }, {}},
        {"loadListener", asItIs, [](W& w) { w.cache.loadListener(); }, {}},
    };
}

}  // namespace Ormek::Testing
