#include <iterator>
#include <memory>

#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;

void withOldResult(W& w) { w.result = w.probe.directories().front(); }

void clearResult(W& w) { w.result.reset(); }
void appendDirectory(W& w) {
    w.probe.directories().push_back(std::make_shared<QueryResultInternal>(w.newListing));
}
void appendTagDirectory(W& w) {
    w.probe.keyValueDirectories().push_back(std::make_shared<QueryResultInternal>(w.newTags));
}
void answerWithLast(W& w) { w.result = w.probe.directories().back(); }
void answerWithLastTags(W& w) { w.result = w.probe.keyValueDirectories().back(); }
void answerWithKnown(W& w) { w.result = *std::next(w.probe.directories().begin()); }
void answerWithKnownTags(W& w) { w.result = w.probe.keyValueDirectories().front(); }
void noteListener(W& w) { w.probe.loadListener() = &w.listener; }
void withoutContext(W& w) {
    w.newListing.contextId = 0;
    w.newTags.contextId = 0;
}
void byPassing(W& w) {
    w.loadedPage.setByPassCache(true);
    withOldResult(w);
}

/// A null service where there is none.
CacheEdit lookService(int key) {
    return [=](W& w) { w.services.try_emplace(key, nullptr); };
}

std::unique_ptr<Nimra::DataLoaderOperation> loadOf(W& w, FilterInternal& filter, int key) {
    auto operation = std::make_unique<Nimra::DataLoaderOperation>(
        0, w.cache.filterConverter(filter), &w.listener);
    operation->setService(w.services[key]);
    return operation;
}

CacheEdit send(FilterInternal W::*filter, int key) {
    return [=](W& w) { w.handler.queueOperation(loadOf(w, w.*filter, key).release()); };
}
CacheEdit park(FilterInternal W::*filter, int key) {
    return [=](W& w) { w.parked.push(loadOf(w, w.*filter, key).release()); };
}

CacheOperations askingForPages() {
    return {
        {"get, new",
         withOldResult,
         [](W& w) { w.cache.get(w.newListing, w.result); },
         {clearResult, appendDirectory, answerWithLast}},
        {"get, first of all",
         withoutDirectories,
         [](W& w) { w.cache.get(w.newListing, w.result); },
         {appendDirectory, answerWithLast}},
        {"get, loaded",
         withOldResult,
         [](W& w) { w.cache.get(w.loadedPage, w.result); },
         {answerWithKnown}},
        {"get, not loaded",
         withOldResult,
         [](W& w) { w.cache.get(w.otherPage, w.result); },
         {answerWithKnown}},
        {"get with a listener, loaded",
         withOldResult,
         [](W& w) { w.cache.get(w.loadedPage, w.result, &w.listener); },
         {answerWithKnown}},
        {"get with a listener, new",
         withOldResult,
         [](W& w) { w.cache.get(w.newListing, w.result, &w.listener); },
         {clearResult, appendDirectory, answerWithLast, noteListener, send(&W::newListing, 0)}},
        {"get with a listener, new, parked",
         [](W& w) {
             withOldResult(w);
             withoutContext(w);
         },
         [](W& w) { w.cache.get(w.newListing, w.result, &w.listener); },
         {clearResult, appendDirectory, answerWithLast, noteListener, park(&W::newListing, 0)}},
        {"get with a listener, not loaded",
         asItIs,
         [](W& w) { w.cache.get(w.otherPage, w.result, &w.listener); },
         {answerWithKnown, noteListener, park(&W::otherPage, 0)}},
        {"get with a listener, by-passing",
         byPassing,
         [](W& w) { w.cache.get(w.loadedPage, w.result, &w.listener); },
         {noteListener, send(&W::loadedPage, 0)}},
        {"getDirectory, known", asItIs, [](W& w) { w.cache.getDirectory(w.loadedPage); }, {}},
        {"getDirectory, unknown", asItIs, [](W& w) { w.cache.getDirectory(w.newListing); }, {}},
        {"getDirectory, none",
         withoutDirectories,
         [](W& w) { w.cache.getDirectory(w.loadedPage); },
         {}},
        {"add", asItIs, [](W& w) { w.cache.add(w.directory(1)); }, {}},
        {"add, plain", asItIs, [](W& w) { w.cache.add(QueryResult()); }, {}},
    };
}

CacheOperations askingForTags() {
    return {
        {"getKeyValues, new",
         withOldResult,
         [](W& w) { w.cache.getKeyValues(w.newTags, w.result); },
         {clearResult, appendTagDirectory, answerWithLastTags}},
        {"getKeyValues, known",
         withOldResult,
         [](W& w) { w.cache.getKeyValues(w.loadedTags, w.result); },
         {answerWithKnownTags}},
        {"getKeyValues with a listener, known",
         withOldResult,
         [](W& w) { w.cache.getKeyValues(w.loadedTags, w.result, &w.listener); },
         {answerWithKnownTags}},
        {"getKeyValues with a listener, new",
         withOldResult,
         [](W& w) { w.cache.getKeyValues(w.newTags, w.result, &w.listener); },
         {clearResult, appendTagDirectory, answerWithLastTags, send(&W::newTags, 16)}},
        {"getKeyValues with a listener, new, no service, parked",
         [](W& w) {
             withoutServices(w);
             withoutContext(w);
         },
         [](W& w) { w.cache.getKeyValues(w.newTags, w.result, &w.listener); },
         {appendTagDirectory, answerWithLastTags, lookService(16), park(&W::newTags, 16)}},
        {"getKeyValueDirectory, known",
         asItIs,
         [](W& w) { w.cache.getKeyValueDirectory(w.loadedTags); },
         {}},
        {"getKeyValueDirectory, unknown",
         asItIs,
         [](W& w) { w.cache.getKeyValueDirectory(w.newTags); },
         {}},
    };
}

CacheOperations loading() {
    return {
        {"loadDirectory, sent",
         withOldResult,
         [](W& w) { w.cache.loadDirectory(w.newListing, w.result, &w.listener); },
         {noteListener, send(&W::newListing, 0)}},
        {"loadDirectory, parked",
         withoutContext,
         [](W& w) { w.cache.loadDirectory(w.newListing, w.result, &w.listener); },
         {noteListener, park(&W::newListing, 0)}},
        {"loadDirectory, no service",
         withoutServices,
         [](W& w) { w.cache.loadDirectory(w.newListing, w.result, &w.listener); },
         {noteListener, lookService(0), send(&W::newListing, 0)}},
        {"loadFromService, sent",
         asItIs,
         [](W& w) { w.cache.loadFromService(&w.tags, w.loadedPage, &w.listener); },
         {send(&W::loadedPage, 16)}},
        {"loadFromService, parked",
         asItIs,
         [](W& w) { w.cache.loadFromService(&w.tags, w.otherPage, &w.listener); },
         {park(&W::otherPage, 16)}},
        {"filterConverter", asItIs, [](W& w) { w.cache.filterConverter(w.newListing); }, {}},
    };
}

}  // namespace

CacheOperations queryOperations() { return askingForPages() + askingForTags() + loading(); }

}  // namespace Ormek::Testing
