#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

void givenKnown(W& w) { w.giveObject(W::Document, W::Folder); }
void givenIdOfContainer(W& w) { w.giveObject(W::SubFolder, W::Folder); }
void givenIdOfEmpty(W& w) { w.giveObject(W::Empty, W::Folder); }

void givenNamesake(W& w) {
    w.giveObject(W::NewDocument, W::Folder);
    w.newObject->name(w.stored(W::Document)->name());
    w.plainObject = *w.newObject;
}

void storeCopy(W& w) {
    w.stored(w.newObject->id()) = std::make_shared<ObjectInternal>(w.plainObject, &w.updater);
}
void storeItself(W& w) { w.stored(w.newObject->id()) = w.newObject; }

void removeNamesake(W& w) { w.directory(1).removeItemByName(w.newObject); }

CacheEdit addStored(unsigned long id, bool flag) {
    return [=](W& w) { w.directory(1).addItem(w.stored(id), flag); };
}

CacheOperations cachingObjects() {
    return {
        {"cacheObject, new", asItIs, [](W& w) { w.cache.cacheObject(w.plainObject); }, {storeCopy}},
        {"cacheObject, known", givenKnown, [](W& w) { w.cache.cacheObject(w.plainObject); }, {}},
        {"cacheObject, container there",
         givenIdOfContainer,
         [](W& w) { w.cache.cacheObject(w.plainObject); },
         {}},
        {"cacheObject, empty entry there",
         givenIdOfEmpty,
         [](W& w) { w.cache.cacheObject(w.plainObject); },
         {}},
        {"cacheObjectInternal, new",
         asItIs,
         [](W& w) { w.cache.cacheObjectInternal(w.plainObject); },
         {storeCopy}},
        {"cacheObjectInternal, known",
         givenKnown,
         [](W& w) { w.cache.cacheObjectInternal(w.plainObject); },
         {}},
        {"cacheObjectPtr, new",
         asItIs,
         [](W& w) { w.cache.cacheObjectPtr(w.newObject); },
         {storeItself}},
        {"cacheObjectPtr, known",
         givenKnown,
         [](W& w) { w.cache.cacheObjectPtr(w.newObject); },
         {}},
        {"cacheObjectPtrInternal, new",
         asItIs,
         [](W& w) { w.cache.cacheObjectPtrInternal(w.newObject); },
         {storeItself}},
        {"cacheObjectPtrInternal, known",
         givenKnown,
         [](W& w) { w.cache.cacheObjectPtrInternal(w.newObject); },
         {}},
    };
}

CacheOperations addingObjects() {
    return {
        {"addObject, new",
         asItIs,
         [](W& w) { w.cache.addObject(w.plainObject, false); },
         {storeCopy, addStored(W::NewDocument, false)}},
        {"addObject, new, to the front",
         asItIs,
         [](W& w) { w.cache.addObject(w.plainObject, true); },
         {storeCopy, addStored(W::NewDocument, true)}},
        {"addObject, known", givenKnown, [](W& w) { w.cache.addObject(w.plainObject, true); }, {}},
        {"addObject, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addObject(w.plainObject, false); },
         {storeCopy}},
        {"addObject, container there",
         givenIdOfContainer,
         [](W& w) { w.cache.addObject(w.plainObject, false); },
         {}},
        {"addObjectPtr, new",
         asItIs,
         [](W& w) { w.cache.addObjectPtr(w.newObject, true); },
         {storeItself, addStored(W::NewDocument, true)}},
        {"addObjectPtr, known",
         givenKnown,
         [](W& w) { w.cache.addObjectPtr(w.newObject, true); },
         {}},
        {"addObjectPtr, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addObjectPtr(w.newObject, true); },
         {storeItself}},
        {"addOrReplaceObjectPtr, new",
         asItIs,
         [](W& w) { w.cache.addOrReplaceObjectPtr(w.newObject, false); },
         {storeItself, addStored(W::NewDocument, false)}},
        {"addOrReplaceObjectPtr, known",
         givenKnown,
         [](W& w) { w.cache.addOrReplaceObjectPtr(w.newObject, true); },
         {[](W& w) { w.directory(1).removeItemByName(w.stored(W::Document)); },
          addStored(W::Document, true)}},
        {"addOrReplaceObjectPtr, namesake",
         givenNamesake,
         [](W& w) { w.cache.addOrReplaceObjectPtr(w.newObject, false); },
         {storeItself, removeNamesake, addStored(W::NewDocument, true)}},
        {"addOrReplaceObjectPtr, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addOrReplaceObjectPtr(w.newObject, false); },
         {storeItself}},
        {"addDocument, new",
         asItIs,
         [](W& w) { w.cache.addDocument(w.newDocument, true); },
         {storeNewDocument(true), addStored(W::NewDocument, false)}},
        {"addDocument, known",
         asItIs,
         [](W& w) { w.cache.addDocument(w.knownDocument, true); },
         {}},
        {"addDocument, no directory",
         withoutDirectories,
         [](W& w) { w.cache.addDocument(w.newDocument, true); },
         {storeNewDocument(true)}},
    };
}

CacheOperations refreshingObjects() {
    return {
        {"updateObject, known", asItIs, [](W& w) { w.cache.updateObject(w.knownDocument, true); },
         refreshDocument() + replaceDocument()},
        {"updateObject, no directory", withoutDirectories,
         [](W& w) { w.cache.updateObject(w.knownDocument, true); }, refreshDocument()},
        {"updateObject, unknown",
         asItIs,
         [](W& w) { w.cache.updateObject(w.newDocument, true); },
         {}},
        {"updateObject, container there",
         [](W& w) { w.knownDocument.id = W::SubFolder; },
         [](W& w) { w.cache.updateObject(w.knownDocument, true); },
         {}},
        {"updateObjectMetaData, known",
         asItIs,
         [](W& w) { w.cache.updateObjectMetaData(w.knownDocument); },
         {[](W& w) { w.object(W::Document).setKeyValues(w.knownDocument.keyValues()); },
          [](W& w) { w.object(W::Document).created(w.knownDocument.created); },
          [](W& w) { w.object(W::Document).updated(w.knownDocument.updated); },
          [](W& w) { w.object(W::Document).length(w.knownDocument.length); },
          [](W& w) { w.object(W::Document).type(4); },
          [](W& w) { w.object(W::Document).setMimeType(w.knownDocument.mimeType); },
          [](W& w) { w.object(W::Document).dataLoaded(true); }}},
        {"updateObjectMetaData, unknown",
         asItIs,
         [](W& w) { w.cache.updateObjectMetaData(w.newDocument); },
         {}},
        {"getObject", asItIs, [](W& w) { w.cache.getObject(w.newDocument); }, {}},
        {"getObjectFromTag", asItIs, [](W& w) { w.cache.getObjectFromTag(w.newTag); }, {}},
    };
}

CacheOperations cachingKeyValues() {
    return {
        {"cacheKeyValue, new",
         asItIs,
         [](W& w) { w.cache.cacheKeyValue(w.newName, w.plainObject); },
         {[](W& w) {
             w.probe.keyValues()[w.newName] =
                 std::make_shared<ObjectInternal>(w.plainObject, &w.updater);
         }}},
        {"cacheKeyValue, known",
         asItIs,
         [](W& w) { w.cache.cacheKeyValue(w.knownTag.tagKey, w.plainObject); },
         {}},
        {"cacheKeyValuePtr, new",
         asItIs,
         [](W& w) { w.cache.cacheKeyValuePtr(w.newName, w.newObject); },
         {[](W& w) { w.probe.keyValues()[w.newName] = w.newObject; }}},
        {"cacheKeyValuePtr, known",
         asItIs,
         [](W& w) { w.cache.cacheKeyValuePtr(w.knownTag.tagKey, w.newObject); },
         {}},
    };
}

}  // namespace

CacheOperations objectOperations() {
    return cachingObjects() + addingObjects() + refreshingObjects() + cachingKeyValues();
}

// --- Steps of a refresh --------------------------------------------------------------------

CacheSteps refreshDocument() {
    return {
        [](W& w) { w.object(W::Document)._state = w.knownDocument.state; },
        [](W& w) { w.object(W::Document).id(w.knownDocument.id); },
        [](W& w) { w.object(W::Document).parentId(w.knownDocument.parentId); },
        [](W& w) { w.object(W::Document).name(w.knownDocument.name); },
        [](W& w) { w.object(W::Document).ownerId(w.knownDocument.ownerId); },
        [](W& w) { w.object(W::Document).created(w.knownDocument.created); },
        [](W& w) { w.object(W::Document).updated(w.knownDocument.updated); },
        [](W& w) { w.object(W::Document).deleted(w.knownDocument.deleted); },
        [](W& w) { w.object(W::Document).length(w.knownDocument.length); },
        [](W& w) { w.object(W::Document).type(4); },
        [](W& w) { w.object(W::Document).setKeyValues(w.knownDocument.keyValues()); },
        [](W& w) { w.object(W::Document).setMimeType(w.knownDocument.mimeType); },
        [](W& w) { w.object(W::Document).dataLoaded(true); },
        [](W& w) { w.object(W::Document)._shares = w.knownDocument.shares; },
        [](W& w) {
            w.object(W::Document).setACLMap(w.knownDocument.ownerId, w.knownDocument.aclMode);
        },
        [](W& w) { w.object(W::Document).description(w.knownDocument.description); },
    };
}

CacheSteps replaceDocument() {
    return {[](W& w) { w.directory(1).removeItemByName(w.stored(W::Document)); },
            [](W& w) { w.directory(1).addItem(w.stored(W::Document), true); }};
}

CacheEdit storeNewDocument(bool dataLoaded) {
    return [=](W& w) {
        const auto object = std::make_shared<ObjectInternal>(w.newDocument, &w.updater);
        object->dataLoaded(dataLoaded);
        w.stored(object->id()) = object;
    };
}

CacheEdit storeNewFolder() {
    return [](W& w) {
        w.stored(W::NewFolder) = std::make_shared<ContainerInternal>(w.newFolder, &w.updater);
    };
}

}  // namespace Ormek::Testing
