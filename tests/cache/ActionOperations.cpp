#include <memory>
#include <string>
#include <utility>

#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

void lookService(W& w) { w.services.try_emplace(4, nullptr); }

CacheEdit rename(unsigned long id) {
    return [=](W& w) { w.internal(id).name(w.newName); };
}

std::unique_ptr<Nimra::FileOperation> operationFor(W& w, Nimra::Document document,
                                                   unsigned int kind) {
    auto operation =
        std::make_unique<Nimra::FileOperation>(0, std::move(document), kind, &w.listener);
    operation->setService(dynamic_cast<Nimra::DocumentServiceNetwork*>(w.services[4]));
    return operation;
}

CacheEdit send(std::function<Nimra::Document(W&)> document, unsigned int kind) {
    return [=, document = std::move(document)](W& w) {
        w.handler.queueOperation(operationFor(w, document(w), kind).release());
    };
}
CacheEdit park(std::function<Nimra::Document(W&)> document, unsigned int kind) {
    return [=, document = std::move(document)](W& w) {
        w.parked.push(operationFor(w, document(w), kind).release());
    };
}

std::function<Nimra::Document(W&)> named(unsigned long id, unsigned long user) {
    return [=](W& w) { return Nimra::Document(id, W::Folder, user, w.newName); };
}
std::function<Nimra::Document(W&)> nameless(unsigned long id, unsigned long user) {
    return [=](W&) { return Nimra::Document(id, W::Folder, user, ""); };
}
std::function<Nimra::Document(W&)> moved(unsigned long id, unsigned long user) {
    return [=](W& w) {
        Nimra::Document document(id, W::OtherFolder, user, w.newName);
        document.oldParentId = W::Folder;
        return document;
    };
}
std::function<Nimra::Document(W&)> saved(unsigned long id, unsigned long user) {
    return [=](W& w) {
        Nimra::Document document(id, W::Folder, user, w.newName);
        document.length = 123;
        document.mimeType = "application/of-the-caller";
        document._keyValues = w.keyValues;
        return document;
    };
}

CacheSteps move(unsigned long id) {
    return {[=](W& w) { w.internal(id).oldParentId(W::Folder); },
            [=](W& w) { w.internal(id).parentId(W::OtherFolder); },
            [=](W& w) { w.directory(0).addItem(w.stored(id), false); },
            [=](W& w) { w.directory(1).removeItem(id); },
            [=](W& w) { w.directory(2).removeItem(id); }};
}

CacheOperations renaming() {
    return {
        {"renameItem",
         asItIs,
         [](W& w) { w.cache.renameItem(W::Document, w.newName); },
         {rename(W::Document)}},
        {"renameDocument",
         [](W& w) { w.newName = w.knownDocument.name = "<a rather long name>"; },
         [](W& w) { w.cache.renameDocument(w.knownDocument); },
         {[](W& w) { w.internal(W::Document).name("&lt;a rather long name&gt;"); }}},
        {"renameObject, sent",
         asItIs,
         [](W& w) {
             w.cache.renameObject(W::Folder, W::Document, W::User, w.newName, &w.listener);
         },
         {rename(W::Document), send(named(W::Document, W::User), 6)}},
        {"renameObject, parked",
         asItIs,
         [](W& w) { w.cache.renameObject(W::Folder, W::Unsent, W::User, w.newName, &w.listener); },
         {rename(W::Unsent), park(named(W::Unsent, W::User), 6)}},
    };
}

CacheOperations moving() {
    return {
        {"moveItem", asItIs, [](W& w) { w.cache.moveItem(W::Document, W::OtherFolder, W::Folder); },
         move(W::Document)},
        {"moveItem, no directory",
         withoutDirectories,
         [](W& w) { w.cache.moveItem(W::Document, W::OtherFolder, W::Folder); },
         {move(W::Document)[0], move(W::Document)[1]}},
        {"moveObject, sent", asItIs,
         [](W& w) {
             w.cache.moveObject(W::User, W::Folder, W::Document, W::OtherFolder, w.newName,
                                &w.listener);
         },
         move(W::Document) + CacheSteps{send(moved(W::Document, W::User), 4)}},
        {"moveObject, parked, no service", withoutServices,
         [](W& w) {
             w.cache.moveObject(W::Nobody, W::Folder, W::Document, W::OtherFolder, w.newName,
                                &w.listener);
         },
         move(W::Document) + CacheSteps{lookService, park(moved(W::Document, W::Nobody), 4)}},
    };
}

CacheOperations removing() {
    return {
        {"removeObject, sent",
         asItIs,
         [](W& w) { w.cache.removeObject(W::Folder, W::Document, W::User, &w.listener); },
         {send(nameless(W::Document, W::User), 5),
          [](W& w) { w.directory(1).removeItem(W::Document); }}},
        {"removeObject, parked, no service",
         withoutServices,
         [](W& w) { w.cache.removeObject(W::Folder, W::Unsent, W::User, &w.listener); },
         {lookService, park(nameless(W::Unsent, W::User), 5),
          [](W& w) { w.directory(1).removeItem(W::Unsent); }}},
    };
}

void giveFor(W& w, unsigned long folder) { w.giveObject(W::NewDocument, folder); }

Nimra::Document created(W& w) {
    Nimra::Document document(W::NewDocument, w.newObject->parentId(), W::User, w.newObject->name());
    document._keyValues = w.keyValues;
    return document;
}

void create(W& w) { w.cache.createObject(w.newObject, w.keyValues, W::User, &w.listener); }

CacheOperations creating() {
    return {
        {"createObject, sent", [](W& w) { giveFor(w, W::Folder); }, create, {send(created, 2)}},
        {"createObject, parked, no service",
         [](W& w) {
             giveFor(w, W::UnsentFolder);
             withoutServices(w);
         },
         create,
         {lookService, park(created, 2)}},
        {"createObject, no folder", [](W& w) { giveFor(w, W::Absent); }, create, {}, true},
        {"createObject, no folder, no service",
         [](W& w) {
             giveFor(w, W::Empty);
             withoutServices(w);
         },
         create,
         {lookService},
         true},
    };
}

Nimra::ItemFilter sessionFilter(unsigned long user) {
    Nimra::ItemFilter filter;
    filter.userId = user;
    filter.url = "/v1/documents/7/70/session";
    return filter;
}

std::unique_ptr<Nimra::DataLoaderOperation> session(W& w, unsigned long user) {
    auto operation =
        std::make_unique<Nimra::DataLoaderOperation>(0, sessionFilter(user), &w.listener);
    operation->setService(w.services[4]);
    return operation;
}

CacheOperations asking() {
    return {
        {"getStreams, sent",
         asItIs,
         [](W& w) { w.cache.getStreams(W::Folder, W::Document, W::User, w.newName, &w.listener); },
         {send(named(W::Document, W::User), 10)}},
        {"getStreams, parked",
         asItIs,
         [](W& w) { w.cache.getStreams(W::Folder, W::Unsent, W::User, w.newName, &w.listener); },
         {park(named(W::Unsent, W::User), 10)}},
        {"saveMetaData, sent",
         asItIs,
         [](W& w) {
             w.cache.saveMetaData(W::User, W::Folder, W::Document, w.newName, 123,
                                  "application/of-the-caller", w.keyValues, &w.listener);
         },
         {send(saved(W::Document, W::User), 13)}},
        {"saveMetaData, parked",
         asItIs,
         [](W& w) {
             w.cache.saveMetaData(W::Nobody, W::Folder, W::Document, w.newName, 123,
                                  "application/of-the-caller", w.keyValues, &w.listener);
         },
         {park(saved(W::Document, W::Nobody), 13)}},
        {"getObjectSession, sent",
         asItIs,
         [](W& w) { w.cache.getObjectSession(W::Folder, W::Document, W::User, &w.listener); },
         {[](W& w) { w.handler.queueOperation(session(w, W::User).release()); }}},
        {"getObjectSession, parked, no service",
         withoutServices,
         [](W& w) { w.cache.getObjectSession(W::Folder, W::Document, W::Nobody, &w.listener); },
         {lookService, [](W& w) { w.parked.push(session(w, W::Nobody).release()); }}},
    };
}

/// The caller's own object, that says what is to be done with the document.
void giveKnown(W& w) {
    w.giveObject(W::Document, W::Folder);
    w.newObject->name(w.newName);
    w.newObject->length(123);
    w.newObject->setMimeType("application/of-the-caller");
    w.newObject->setKeyValues(w.keyValues);
    w.plainObject = *w.newObject;
}

void giveMoved(W& w) {
    giveKnown(w);
    w.newObject->parentId(W::OtherFolder);
    w.newObject->oldParentId(W::Folder);
    w.plainObject = *w.newObject;
}

CacheEdit event(unsigned int kind) {
    return [=](W& w) { w.cache.objectEvent(w.plainObject, W::User, kind, &w.listener); };
}

CacheOperations events() {
    return {
        {"objectEvent, move", giveMoved, event(4),
         move(W::Document) + CacheSteps{send(moved(W::Document, W::User), 4)}},
        {"objectEvent, remove",
         giveKnown,
         event(5),
         {send(nameless(W::Document, W::User), 5),
          [](W& w) { w.directory(1).removeItem(W::Document); }}},
        {"objectEvent, rename",
         giveKnown,
         event(6),
         {rename(W::Document), send(named(W::Document, W::User), 6)}},
        {"objectEvent, streams", giveKnown, event(10), {send(named(W::Document, W::User), 10)}},
        {"objectEvent, metadata", giveKnown, event(13), {send(saved(W::Document, W::User), 13)}},
        {"objectEvent, another kind", giveKnown, event(2), {}},
    };
}

}  // namespace

CacheOperations actionOperations() {
    return renaming() + moving() + removing() + creating() + asking() + events();
}

}  // namespace Ormek::Testing
