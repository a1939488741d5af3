#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

void givenKnown(W& w) { w.giveContainer(W::SubFolder, W::Folder); }
void givenIdOfObject(W& w) { w.giveContainer(W::Document, W::Folder); }

void storeCopy(W& w) {
    w.stored(w.newContainer->id()) =
        std::make_shared<ContainerInternal>(w.plainContainer, &w.updater);
}
void storeItself(W& w) { w.stored(w.newContainer->id()) = w.newContainer; }

CacheEdit addStored(unsigned long id, bool flag) {
    return [=](W& w) { w.directory(1).addItem(w.stored(id), flag); };
}

/// Unlisted until now, so that adding it to the first directory shows.
void givenKnownUnlisted(W& w) {
    givenKnown(w);
    w.directory(1).removeItem(W::SubFolder);
}

CacheOperations cachingContainers() {
    return {
        {"cacheContainer, new",
         asItIs,
         [](W& w) { w.cache.cacheContainer(w.plainContainer); },
         {storeCopy}},
        {"cacheContainer, known",
         givenKnown,
         [](W& w) { w.cache.cacheContainer(w.plainContainer); },
         {}},
        {"cacheContainer, object there",
         givenIdOfObject,
         [](W& w) { w.cache.cacheContainer(w.plainContainer); },
         {}},
        {"cacheContainerInternal, new",
         asItIs,
         [](W& w) { w.cache.cacheContainerInternal(w.plainContainer); },
         {storeCopy}},
        {"cacheContainerInternal, known",
         givenKnown,
         [](W& w) { w.cache.cacheContainerInternal(w.plainContainer); },
         {}},
        {"cacheContainerPtr, new",
         asItIs,
         [](W& w) { w.cache.cacheContainerPtr(w.newContainer); },
         {storeItself}},
        {"cacheContainerPtr, known",
         givenKnown,
         [](W& w) { w.cache.cacheContainerPtr(w.newContainer); },
         {}},
        {"cacheContainerPtrInternal, new",
         asItIs,
         [](W& w) { w.cache.cacheContainerPtrInternal(w.newContainer); },
         {storeItself}},
        {"cacheContainerPtrInternal, known",
         givenKnown,
         [](W& w) { w.cache.cacheContainerPtrInternal(w.newContainer); },
         {}},
        {"cacheItemPtr, new",
         asItIs,
         [](W& w) { w.cache.cacheItemPtr(w.newContainer); },
         {storeItself}},
        {"cacheItemPtr, known", givenKnown, [](W& w) { w.cache.cacheItemPtr(w.newContainer); }, {}},
    };
}

CacheOperations addingContainers() {
    return {
        {"addContainer, new",
         asItIs,
         [](W& w) { w.cache.addContainer(w.plainContainer); },
         {storeCopy, addStored(W::NewFolder, false)}},
        {"addContainer, known",
         givenKnownUnlisted,
         [](W& w) { w.cache.addContainer(w.plainContainer); },
         {addStored(W::SubFolder, false)}},
        {"addContainer, object there",
         givenIdOfObject,
         [](W& w) { w.cache.addContainer(w.plainContainer); },
         {}},
        {"addContainer, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addContainer(w.plainContainer); },
         {storeCopy}},
        {"addContainerPtr, new",
         asItIs,
         [](W& w) { w.cache.addContainerPtr(w.newContainer, true); },
         {storeItself, addStored(W::NewFolder, true)}},
        {"addContainerPtr, known",
         givenKnownUnlisted,
         [](W& w) { w.cache.addContainerPtr(w.newContainer, true); },
         {addStored(W::SubFolder, true)}},
        {"addContainerPtr, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addContainerPtr(w.newContainer, true); },
         {storeItself}},
        {"addFolder, new",
         asItIs,
         [](W& w) { w.cache.addFolder(w.newFolder, true); },
         {storeNewFolder(), addStored(W::NewFolder, false)}},
        {"addFolder, known",
         givenKnownUnlisted,
         [](W& w) { w.cache.addFolder(w.knownFolder, true); },
         {addStored(W::SubFolder, false)}},
        {"addFolder, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addFolder(w.newFolder, true); },
         {storeNewFolder()}},
    };
}

CacheOperations otherwiseContainers() {
    return {
        {"getContainer", asItIs, [](W& w) { w.cache.getContainer(w.newFolder); }, {}},
        {"replaceContainer, known",
         givenKnown,
         [](W& w) { w.cache.replaceContainer(w.plainContainer); },
         {[](W& w) { w.directory(1).removeItem(W::SubFolder); },
          [](W& w) { w.directory(2).removeItem(W::SubFolder); },
          [](W& w) { w.probe.items().erase(W::SubFolder); }, storeCopy,
          addStored(W::SubFolder, false)}},
        {"replaceContainer, new",
         asItIs,
         [](W& w) { w.cache.replaceContainer(w.plainContainer); },
         {storeCopy, addStored(W::NewFolder, false)}},
        {"itemToFolder, container",
         asItIs,
         [](W& w) { w.cache.itemToFolder(w.newContainer.get()); },
         {}},
        {"itemToFolder, object", asItIs, [](W& w) { w.cache.itemToFolder(w.newObject.get()); }, {}},
        {"itemToFolder, no access row",
         [](W& w) { w.newContainer->ownerId(W::Absent); },
         [](W& w) { w.cache.itemToFolder(w.newContainer.get()); },
         {}},
    };
}

}  // namespace

CacheOperations containerOperations() {
    return cachingContainers() + addingContainers() + otherwiseContainers();
}

}  // namespace Ormek::Testing
