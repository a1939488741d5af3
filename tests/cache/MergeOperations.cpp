#include <memory>
#include <utility>
#include <vector>

#include "tests/cache/CacheOperations.h"

namespace Ormek::Testing {

namespace {

using W = CacheWorld;
using Folders = std::vector<Nimra::Folder>;
using Documents = std::vector<Nimra::Document>;
using Tags = std::vector<Nimra::Tag>;

constexpr unsigned long Total = 9;

void intoKnown(W& w) { w.result = *std::next(w.probe.directories().begin()); }
void intoNew(W& w) { w.result = std::make_shared<QueryResultInternal>(w.newListing); }
void intoTags(W& w) { w.result = w.probe.keyValueDirectories().front(); }

void withIdsOfEmpty(W& w) {
    intoKnown(w);
    w.newFolder.id = W::Empty;
    w.newDocument.id = W::Empty;
}

CacheSteps recordPage(FilterInternal W::*filter) {
    return {
        [=](W& w) { w.resultItself().addPage((w.*filter).getOffset(), (w.*filter).getCount()); },
        [](W& w) { w.resultItself().totalCount(Total); }};
}

CacheEdit markIdLoaded(unsigned long id) {
    return [=](W& w) { w.internal(id).idLoaded(true); };
}

CacheEdit place(std::vector<unsigned long> ids, PagePart part = PagePart::Whole) {
    return [=, ids = std::move(ids)](W& w) {
        std::vector<std::shared_ptr<Item>> page;
        for (const unsigned long id : ids) {
            page.push_back(w.stored(id));
        }
        w.resultItself().addItems(0, page, part);
    };
}

CacheOperations mergingBoth() {
    return {
        {"addItems, both kinds, known and new", intoKnown,
         [](W& w) {
             w.cache.addItems(w.loadedPage, w.result, Folders{w.knownFolder, w.newFolder},
                              Documents{w.knownDocument, w.newDocument}, Total);
         },
         recordPage(&W::loadedPage) +
             CacheSteps{markIdLoaded(W::SubFolder), storeNewFolder(), markIdLoaded(W::NewFolder)} +
             refreshDocument() + replaceDocument() +
             CacheSteps{markIdLoaded(W::Document), storeNewDocument(false),
                        markIdLoaded(W::NewDocument),
                        place({W::SubFolder, W::NewFolder, W::Document, W::NewDocument})}},
        {"addItems, both kinds, into a new directory", intoNew,
         [](W& w) {
             w.cache.addItems(w.newListing, w.result, Folders{w.newFolder},
                              Documents{w.newDocument}, Total);
         },
         recordPage(&W::newListing) +
             CacheSteps{storeNewFolder(), markIdLoaded(W::NewFolder), storeNewDocument(false),
                        markIdLoaded(W::NewDocument), place({W::NewFolder, W::NewDocument})}},
        {"addItems, both kinds, empty entries", withIdsOfEmpty,
         [](W& w) {
             w.cache.addItems(w.loadedPage, w.result, Folders{w.newFolder},
                              Documents{w.newDocument}, Total);
         },
         recordPage(&W::loadedPage) + CacheSteps{place({W::Empty, W::Empty})}},
        {"addItems, both kinds, none", intoKnown,
         [](W& w) { w.cache.addItems(w.loadedPage, w.result, Folders{}, Documents{}, Total); },
         recordPage(&W::loadedPage) + CacheSteps{place({})}},
    };
}

CacheOperations mergingFolders() {
    return {
        {"addItems, folders, known and new", intoKnown,
         [](W& w) {
             w.cache.addItems(w.loadedPage, w.result, Folders{w.knownFolder, w.newFolder}, Total);
         },
         recordPage(&W::loadedPage) +
             CacheSteps{markIdLoaded(W::SubFolder), storeNewFolder(), markIdLoaded(W::NewFolder),
                        place({W::SubFolder, W::NewFolder}, PagePart::Folders)}},
        {"addItems, folders, empty entry", withIdsOfEmpty,
         [](W& w) { w.cache.addItems(w.loadedPage, w.result, Folders{w.newFolder}, Total); },
         recordPage(&W::loadedPage) + CacheSteps{place({W::Empty}, PagePart::Folders)}},
        {"addItems, folders, none", intoNew,
         [](W& w) { w.cache.addItems(w.newListing, w.result, Folders{}, Total); },
         recordPage(&W::newListing) + CacheSteps{place({}, PagePart::Folders)}},
    };
}

CacheOperations mergingDocuments() {
    return {
        {"addItems, documents, known and new", intoKnown,
         [](W& w) {
             w.cache.addItems(w.loadedPage, w.result, Documents{w.knownDocument, w.newDocument},
                              Total);
         },
         recordPage(&W::loadedPage) + refreshDocument() + replaceDocument() +
             CacheSteps{storeNewDocument(false), markIdLoaded(W::NewDocument),
                        place({W::Document, W::NewDocument}, PagePart::Documents)}},
        {"addItems, documents, empty entry", withIdsOfEmpty,
         [](W& w) { w.cache.addItems(w.loadedPage, w.result, Documents{w.newDocument}, Total); },
         recordPage(&W::loadedPage) + CacheSteps{place({W::Empty}, PagePart::Documents)}},
        {"addItems, documents, none", intoNew,
         [](W& w) { w.cache.addItems(w.newListing, w.result, Documents{}, Total); },
         recordPage(&W::newListing) + CacheSteps{place({}, PagePart::Documents)}},
    };
}

void storeNewTag(W& w) {
    w.probe.keyValues()[w.newTag.tagKey] = w.cache.getObjectFromTag(w.newTag);
}

CacheEdit placeTags(std::vector<Nimra::Tag W::*> tags) {
    return [tags = std::move(tags)](W& w) {
        std::vector<std::shared_ptr<Item>> page;
        for (const auto tag : tags) {
            page.push_back(w.probe.keyValues().at((w.*tag).tagKey));
        }
        w.resultItself().addItems(0, page);
    };
}

CacheOperations mergingTags() {
    return {
        {"addKeyValues, known and new", intoTags,
         [](W& w) {
             w.cache.addKeyValues(w.loadedTags, w.result, Tags{w.knownTag, w.newTag, w.newTag},
                                  Total);
         },
         recordPage(&W::loadedTags) +
             CacheSteps{storeNewTag, placeTags({&W::knownTag, &W::newTag, &W::newTag})}},
        {"addKeyValues, none", intoTags,
         [](W& w) { w.cache.addKeyValues(w.loadedTags, w.result, Tags{}, Total); },
         recordPage(&W::loadedTags) + CacheSteps{placeTags({})}},
    };
}

}  // namespace

CacheOperations mergeOperations() {
    return mergingBoth() + mergingFolders() + mergingDocuments() + mergingTags();
}

}  // namespace Ormek::Testing
