// Changes made elsewhere: told by a feed, or seen in a page.

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Document;
using Nimra::Folder;
using Nimra::Reason;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};
const Nimra::KeyValues Red{{"colour", {"red", false}}};

class RemoteChangesTest : public ActingTest {
  protected:
    /// The root holds the folders 10 "music" and 11 "texts", and the documents 20 "a" and 21 "b";
    /// the folder 10 holds the folder 12 "deep" and the document 30 "song", 12 the document 31 "x".
    void fillRoot() {
        service.addFolder(10, Root, "music");
        service.addFolder(11, Root, "texts");
        service.addFolder(12, 10, "deep");
        addDocuments(20, {"a", "b"});
        addDocuments(30, {"song"}, 10);
        addDocuments(31, {"x"}, 12);
        for (const unsigned long folderId : {Root, 10UL, 11UL, 12UL}) {
            list(folderId);
            list(folderId, descending());
            list(folderId, searching("a"));
        }
        service.forgetLog();
        events.clear();
    }
    /// The service changes a document, and its feed says so.
    template <class Change>
    void changeDocument(unsigned long id, Change change) {
        Document record(0, 0, 0, "");
        service.editDocument(id, [&](Document& document) {
            change(document);
            record = document;
        });
        client().onRemoteChange(record);
    }
    template <class Change>
    void changeFolder(unsigned long id, Change change) {
        Folder record;
        service.editFolder(id, [&](Folder& folder) {
            change(folder);
            record = folder;
        });
        client().onRemoteChange(record);
    }
    void removeElsewhere(unsigned long id) {
        service.drop(id);
        client().onRemoteRemoval(id);
    }
    void expectServersPicture(const std::vector<unsigned long>& folderIds = {1, 10, 11, 12}) {
        service.release();
        settle();
        for (const unsigned long folderId : folderIds) {
            for (const ListOptions& options : {ListOptions(), descending(), searching("a")}) {
                const auto shown = listed(folderId, options);
                EXPECT_EQ(shown, listed(folderId, reloaded(options)));
            }
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

// --- Created ---------------------------------------------------------------------------------

TEST_F(RemoteChangesTest, NewEntriesComeIntoEveryListingThatTheyBelongTo) {
    fillRoot();
    service.addDocument(40, Root, "aa");
    service.addFolder(41, Root, "new");
    Document document(40, Root, 1, "aa");
    document.length = 9;
    document.setKeyValue("colour", {"blue", true});
    client().onRemoteChange(document);
    client().onRemoteChange(Folder(41, Root, 1, "new"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "aa", "new"));
    EXPECT_THAT(held(Root, descending()), ElementsAre("texts", "music", "b", "a", "aa", "new"));
    EXPECT_THAT(held(Root, searching("a")), ElementsAre("a", "aa"));
    EXPECT_EQ(keyValuesOf(40), Blue);
    EXPECT_TRUE(client().item(41)->idLoaded());
    const auto added = told<EntryAdded>();
    ASSERT_THAT(added, SizeIs(2));
    EXPECT_EQ(added[0].id, 40U);
    EXPECT_EQ(added[0].now.name, "aa");
    EXPECT_EQ(added[0].now.length, 9U);
    EXPECT_FALSE(added[0].now.isFolder);
    EXPECT_EQ(added[1].id, 41U);
    EXPECT_TRUE(added[1].now.isFolder);
    EXPECT_EQ(lastTold<ListingInvalidated>().folderId, Root);
    EXPECT_THAT(service.log(), IsEmpty());
    // It can be used at once.
    expectDone(client().createDocument(41, "inside"));
    expectServersPicture({Root, 10, 41});
}

TEST_F(RemoteChangesTest, WhatLiesInAFolderThatIsNotHeldIsLeftOut) {
    fillRoot();
    const Statistics before = client().statistics();
    client().onRemoteChange(Document(40, 4711, 1, "aa"));
    client().onRemoteChange(Folder(41, 4711, 1, "new"));
    client().onRemoteChange(Document(42, 20, 1, "in a document"));
    EXPECT_FALSE(client().item(40));
    EXPECT_FALSE(client().item(41));
    EXPECT_FALSE(client().item(42));
    EXPECT_EQ(client().statistics().entries, before.entries);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(RemoteChangesTest, NewEntryInAFolderThatWasNeverListedIsHeld) {
    service.addFolder(10, Root, "music");
    find("music");
    service.addDocument(40, 10, "new");
    client().onRemoteChange(Document(40, 10, 1, "new"));
    EXPECT_EQ(client().pathOf(40), "/music/new");
    EXPECT_THAT(told<ListingInvalidated>(), IsEmpty());
    EXPECT_THAT(listed(10), ElementsAre("new"));
}

// --- Changed, renamed ------------------------------------------------------------------------

TEST_F(RemoteChangesTest, ChangedDocumentSaysSoEverywhere) {
    fillRoot();
    const auto item = client().item(20);
    changeDocument(20, [](Document& document) {
        document.length = 77;
        document.mimeType = "text/plain";
        document.updated = 5;
        document.setKeyValue("colour", {"blue", true});
    });
    EXPECT_EQ(client().item(20), item);
    EXPECT_EQ(dynamic_cast<const Object&>(*item).length(), 77U);
    ASSERT_THAT(told<EntryChanged>(), SizeIs(1));
    const EntryChanged change = lastTold<EntryChanged>();
    EXPECT_EQ(change.id, 20U);
    EXPECT_EQ(change.was.length, 0U);
    EXPECT_THAT(change.was.keyValues, IsEmpty());
    EXPECT_EQ(change.now.length, 77U);
    EXPECT_EQ(change.now.mimeType, "text/plain");
    EXPECT_EQ(change.now.updated, 5U);
    EXPECT_EQ(change.now.keyValues, Blue);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, SameRecordAgainTellsOfNoChange) {
    fillRoot();
    changeDocument(20, [](const Document&) {});
    changeFolder(10, [](const Folder&) {});
    EXPECT_THAT(told<EntryChanged>(), IsEmpty());
    EXPECT_THAT(told<EntryAdded>(), IsEmpty());
}

TEST_F(RemoteChangesTest, RenamedEntriesComeIntoTheSearchesThatFindThem) {
    fillRoot();
    changeDocument(20, [](Document& document) { document.name = "z"; });
    changeDocument(21, [](Document& document) { document.name = "ba"; });
    changeFolder(11, [](Folder& folder) { folder.name = "papers"; });
    EXPECT_THAT(held(Root), ElementsAre("music", "papers", "z", "ba"));
    EXPECT_THAT(held(Root, searching("a")), ElementsAre("ba", "papers"));
    EXPECT_THAT(told<EntryChanged>(), SizeIs(3));
    EXPECT_EQ(lastTold<EntryChanged>().was.name, "texts");
    EXPECT_EQ(lastTold<EntryChanged>().now.name, "papers");
    expectServersPicture();
}

TEST_F(RemoteChangesTest, ChangedEntryOnAPageThatIsNotHeldIsNotDrawnForward) {
    addDocuments(20, {"a", "b", "c", "d"});
    list(Root, page(0, 2));
    find("d");
    changeDocument(23, [](Document& document) { document.length = 7; });
    EXPECT_THAT(held(Root, page(0, 2)), ElementsAre("a", "b"));
    client().setOnline(false);
    EXPECT_EQ(client().poll(client().list(Root, page(0, 2))).held, 2U);
    client().setOnline(true);
    EXPECT_THAT(listed(Root), ElementsAre("a", "b", "c", "d"));
}

// --- Moved -----------------------------------------------------------------------------------

TEST_F(RemoteChangesTest, MovedEntriesLeaveTheOldListingsAndComeIntoTheNew) {
    fillRoot();
    changeDocument(20, [](Document& document) { document.parentId = 10; });
    changeFolder(12, [](Folder& folder) { folder.parentId = Root; });
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b", "deep"));
    EXPECT_THAT(held(Root, descending()), ElementsAre("texts", "music", "b", "deep"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    EXPECT_THAT(held(10), ElementsAre("song", "a"));
    EXPECT_THAT(held(10, searching("a")), ElementsAre("a"));
    EXPECT_EQ(client().pathOf(31), "/deep/x");
    EXPECT_EQ(client().item(20)->oldParentId(), Root);
    ASSERT_THAT(told<EntryChanged>(), SizeIs(2));
    EXPECT_EQ(lastTold<EntryChanged>().was.folderId, 10U);
    EXPECT_EQ(lastTold<EntryChanged>().now.folderId, Root);
    std::vector<unsigned long> invalidated;
    for (const ListingInvalidated& one : told<ListingInvalidated>()) {
        invalidated.push_back(one.folderId);
    }
    EXPECT_THAT(invalidated, Contains(Root));
    EXPECT_THAT(invalidated, Contains(10U));
    EXPECT_THAT(invalidated, Not(Contains(11U)));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, EntryThatMovedToAFolderThatIsNotHeldIsGoneWithWhatIsInIt) {
    fillRoot();
    client().onRemoteChange(Folder(10, 4711, 1, "music"));
    client().onRemoteChange(Document(20, 4711, 1, "a"));
    EXPECT_THAT(held(Root), ElementsAre("texts", "b"));
    for (const unsigned long id : {10UL, 12UL, 20UL, 30UL, 31UL}) {
        EXPECT_FALSE(client().item(id)) << id;
    }
    EXPECT_EQ(list(12).error->reason(), Reason::NotFound);
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(5));
}

TEST_F(RemoteChangesTest, KnownEntryThatAPageBringsFromAnotherFolderLeavesTheOldListing) {
    fillRoot();
    service.editDocument(20, [](Document& document) { document.parentId = 11; });
    service.editFolder(12, [](Folder& folder) { folder.parentId = 11; });
    EXPECT_THAT(listed(11, reloaded()), ElementsAre("deep", "a"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    EXPECT_THAT(held(10), ElementsAre("song"));
    EXPECT_EQ(client().pathOf(31), "/texts/deep/x");
    std::vector<unsigned long> invalidated;
    for (const ListingInvalidated& one : told<ListingInvalidated>()) {
        invalidated.push_back(one.folderId);
    }
    EXPECT_THAT(invalidated, Contains(Root));
    EXPECT_THAT(invalidated, Contains(10U));
    ASSERT_THAT(told<EntryChanged>(), SizeIs(2));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, KnownEntryThatALookUpBringsFromAnotherFolderLeavesTheOldListing) {
    fillRoot();
    service.editDocument(20, [](Document& document) { document.parentId = 11; });
    EXPECT_EQ(idAt("texts/a"), 20U);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_EQ(client().pathOf(20), "/texts/a");
    expectServersPicture();
}

// --- Removed ---------------------------------------------------------------------------------

TEST_F(RemoteChangesTest, RemovedDocumentIsGoneFromEveryListing) {
    fillRoot();
    removeElsewhere(20);
    EXPECT_FALSE(client().item(20));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(held(Root, descending()), ElementsAre("texts", "music", "b"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    ASSERT_THAT(told<EntryRemoved>(), SizeIs(1));
    EXPECT_EQ(lastTold<EntryRemoved>().id, 20U);
    EXPECT_EQ(lastTold<EntryRemoved>().was.name, "a");
    expectServersPicture();
}

TEST_F(RemoteChangesTest, RemovedFolderTakesWhatIsInItAlong) {
    fillRoot();
    for (const unsigned long id : {30UL, 31UL, 12UL}) {
        service.drop(id);
    }
    removeElsewhere(10);
    std::vector<unsigned long> removed;
    for (const EntryRemoved& one : told<EntryRemoved>()) {
        removed.push_back(one.id);
    }
    EXPECT_THAT(removed, ::testing::UnorderedElementsAre(10U, 12U, 30U, 31U));
    for (const unsigned long id : removed) {
        EXPECT_FALSE(client().item(id));
    }
    EXPECT_EQ(list(10).error->reason(), Reason::NotFound);
    EXPECT_EQ(find("music/deep").error->reason(), Reason::NotFound);
    // It comes back under its id, empty.
    service.addFolder(10, Root, "music");
    client().onRemoteChange(Folder(10, Root, 1, "music"));
    EXPECT_THAT(listed(10), IsEmpty());
    expectServersPicture({Root, 10, 11});
}

TEST_F(RemoteChangesTest, UnknownEntryIsRemovedInVain) {
    fillRoot();
    client().onRemoteRemoval(4711);
    EXPECT_THAT(events, IsEmpty());
    expectServersPicture();
}

TEST_F(RemoteChangesTest, FoldersThatContainEachOtherCanBeRemoved) {
    fillRoot();
    client().onRemoteChange(Folder(10, 12, 1, "music"));
    EXPECT_EQ(client().pathOf(10), "");
    expectRefusedAtOnce(client().move(11, 4711), Reason::NotFound);
    service.hold();
    const Action renamed = client().rename(12, "deeper");
    const Action other = client().rename(10, "sound");
    client().onRemoteRemoval(10);
    for (const unsigned long id : {30UL, 31UL}) {
        EXPECT_FALSE(client().item(id));
    }
    for (const unsigned long id : {10UL, 12UL, 30UL, 31UL}) {
        service.drop(id);
    }
    service.release();
    expectFailed(renamed, Reason::NotFound);
    expectFailed(other, Reason::NotFound);
    EXPECT_FALSE(client().item(10));
    EXPECT_FALSE(client().item(12));
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(4));
    expectServersPicture({Root, 11});
}

TEST_F(RemoteChangesTest, FolderThatContainsItselfCanBeRemoved) {
    fillRoot();
    client().onRemoteChange(Folder(10, 10, 1, "music"));
    client().onRemoteRemoval(10);
    EXPECT_FALSE(client().item(10));
    EXPECT_FALSE(client().item(31));
}

TEST_F(RemoteChangesTest, TagsAndPathsInAFolderThatWentAndCameBackAreAskedForAgain) {
    fillRoot();
    service.addTag(50, 10, "artist", "x");
    client().wait(client().tags(10), Patience);
    find("music/song");
    removeElsewhere(10);
    for (const unsigned long id : {30UL, 31UL, 12UL, 50UL}) {
        service.drop(id);
    }
    service.addFolder(10, Root, "music");
    client().onRemoteChange(Folder(10, Root, 1, "music"));
    const Answer tags = client().wait(client().tags(10), Patience);
    EXPECT_EQ(tags.source, AnswerSource::Load);
    EXPECT_THAT(tags.entries, IsEmpty());
    EXPECT_EQ(find("music/song").error->reason(), Reason::NotFound);
}

TEST_F(RemoteChangesTest, NamesInAFolderThatCameBackAreFoundInItsListing) {
    fillRoot();
    client().onRemoteRemoval(10);
    client().onRemoteChange(Folder(10, Root, 1, "music"));
    list(10, reloaded());
    service.forgetLog();
    EXPECT_EQ(find("music/song").source, AnswerSource::Memory);
    EXPECT_THAT(service.log(), IsEmpty());
}

// --- Another kind under the same id ------------------------------------------------------------

TEST_F(RemoteChangesTest, FolderThatIsADocumentNowIsShownAsOne) {
    fillRoot();
    for (const unsigned long id : {30UL, 31UL, 12UL, 10UL}) {
        service.drop(id);
    }
    service.addDocument(10, Root, "music");
    client().onRemoteChange(Document(10, Root, 1, "music"));
    EXPECT_TRUE(std::dynamic_pointer_cast<Object>(client().item(10)));
    EXPECT_FALSE(client().item(30));
    EXPECT_THAT(held(Root), ElementsAre("texts", "a", "b", "music"));
    EXPECT_EQ(list(10).error->reason(), Reason::NotFound);
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(4));
    ASSERT_THAT(told<EntryAdded>(), SizeIs(1));
    EXPECT_FALSE(lastTold<EntryAdded>().now.isFolder);
    EXPECT_THAT(told<EntryChanged>(), IsEmpty());
    expectServersPicture({Root, 11});
}

TEST_F(RemoteChangesTest, DocumentThatIsAFolderNowIsShownAsOneWhateverIsPending) {
    fillRoot();
    service.failNext("rename", Reason::Refused);
    service.hold();
    const Action renamed = client().rename(20, "z");
    service.drop(20);
    service.addFolder(20, Root, "a");
    client().onRemoteChange(Folder(20, Root, 1, "a"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b", "z"));
    EXPECT_THAT(held(Root, descending()), Contains("z"));
    service.release();
    expectFailed(renamed, Reason::Refused);
    EXPECT_EQ(client().pathOf(20), "/a");
    EXPECT_THAT(listed(20), IsEmpty());
    expectServersPicture({Root, 20});
}

TEST_F(RemoteChangesTest, PageShowsAnotherKindToo) {
    fillRoot();
    service.drop(20);
    service.addFolder(20, Root, "a");
    EXPECT_THAT(listed(Root, reloaded()), ElementsAre("a", "music", "texts", "b"));
    EXPECT_THAT(listed(20), IsEmpty());
    service.drop(20);
    service.addDocument(20, Root, "a");
    EXPECT_THAT(listed(Root, reloaded()), ElementsAre("music", "texts", "a", "b"));
    expectServersPicture();
}

// --- While actions are under way ----------------------------------------------------------------

TEST_F(RemoteChangesTest, RenameUnderWayIsKeptOverANameGivenElsewhere) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission);
    service.hold();
    const Action renamed = client().rename(20, "mine");
    changeDocument(20, [](Document& document) {
        document.name = "theirs";
        document.length = 7;
    });
    EXPECT_EQ(client().item(20)->name(), "mine");
    EXPECT_EQ(dynamic_cast<const Object&>(*client().item(20)).length(), 7U);
    service.release();
    expectFailed(renamed, Reason::NoPermission);
    EXPECT_EQ(client().item(20)->name(), "theirs");
    expectServersPicture();
}

TEST_F(RemoteChangesTest, MoveUnderWayIsKeptOverAMoveElsewhere) {
    fillRoot();
    service.failNext("move", Reason::NoPermission);
    service.hold();
    const Action moved = client().move(20, 10);
    changeDocument(20, [](Document& document) { document.parentId = 11; });
    EXPECT_EQ(client().pathOf(20), "/music/a");
    EXPECT_THAT(held(10), ElementsAre("deep", "song", "a"));
    EXPECT_THAT(held(11), IsEmpty());
    service.release();
    expectFailed(moved, Reason::NoPermission);
    EXPECT_EQ(client().pathOf(20), "/texts/a");
    EXPECT_THAT(held(10), ElementsAre("deep", "song"));
    EXPECT_THAT(held(11), ElementsAre("a"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, RemovalUnderWayIsKeptOverAChangeElsewhere) {
    fillRoot();
    service.failNext("remove", Reason::NoPermission);
    service.hold();
    const Action removed = client().remove(20);
    changeDocument(20, [](Document& document) {
        document.name = "aa";
        document.parentId = 11;
    });
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(held(11), IsEmpty());
    EXPECT_THAT(told<EntryAdded>(), IsEmpty());
    service.release();
    expectFailed(removed, Reason::NoPermission);
    EXPECT_EQ(client().pathOf(20), "/texts/aa");
    EXPECT_THAT(held(11), ElementsAre("aa"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, MetaDataUnderWayAreKeptOverOthers) {
    fillRoot();
    service.failNext("save", Reason::NoPermission);
    service.hold();
    const Action saved = client().saveMetaData(20, Red);
    changeDocument(20, [](Document& document) { document._keyValues = Blue; });
    EXPECT_EQ(keyValuesOf(20), Red);
    service.release();
    expectFailed(saved, Reason::NoPermission);
    EXPECT_EQ(keyValuesOf(20), Blue);
}

TEST_F(RemoteChangesTest, EntryThatIsRemovedElsewhereIsGoneAndItsActionsFail) {
    fillRoot();
    service.hold();
    const Action renamed = client().rename(20, "z");
    const Action moved = client().move(20, 10);
    const Action removed = client().remove(21);
    removeElsewhere(20);
    removeElsewhere(21);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts"));
    EXPECT_THAT(held(10), ElementsAre("deep", "song"));
    expectRefusedAtOnce(client().open(20), Reason::NotFound);
    service.release();
    for (const Action& action : {renamed, moved, removed}) {
        expectFailed(action, Reason::NotFound);
        EXPECT_FALSE(client().poll(action).entry);
        EXPECT_EQ(outcomesOf(action), 1U);
    }
    EXPECT_FALSE(client().item(20));
    EXPECT_FALSE(client().item(21));
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(2));
    expectServersPicture();
}

TEST_F(RemoteChangesTest, EntryThatIsBackBeforeItsActionFailsIsShownAsItIs) {
    fillRoot();
    service.hold();
    const Action renamed = client().rename(20, "z");
    client().onRemoteRemoval(20);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    client().onRemoteChange(Document(20, Root, 1, "a"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "z", "b"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    service.release();
    expectDone(renamed);
    expectServersPicture();
}

TEST_F(RemoteChangesTest, ActionThatIsDoneOnWhatWasToldToBeRemovedBringsItBack) {
    fillRoot();
    service.hold();
    const Action renamed = client().rename(20, "z");
    client().onRemoteRemoval(20);
    service.release();
    expectDone(renamed);
    EXPECT_EQ(client().poll(renamed).entry->name, "z");
    EXPECT_EQ(client().pathOf(20), "/z");
    expectServersPicture();
}

TEST_F(RemoteChangesTest, FolderThatIsRemovedElsewhereTakesAlongWhatTheServiceHadThere) {
    fillRoot();
    list(11);
    service.hold();
    const Action out = client().move(30, Root);
    const Action in = client().move(20, 10);
    const Action made = client().createDocument(10, "new");
    const Action renamed = client().rename(31, "y");
    for (const unsigned long id : {30UL, 31UL, 12UL, 10UL}) {
        service.drop(id);
    }
    client().onRemoteRemoval(10);
    EXPECT_THAT(held(Root), ElementsAre("texts", "b"));
    service.release();
    for (const Action& action : {out, in, made, renamed}) {
        expectFailed(action, Reason::NotFound);
    }
    EXPECT_EQ(client().pathOf(20), "/a");
    EXPECT_THAT(held(Root), ElementsAre("texts", "a", "b"));
    for (const unsigned long id : {10UL, 12UL, 30UL, 31UL, made.entryId()}) {
        EXPECT_FALSE(client().item(id));
    }
    expectServersPicture({Root, 11});
}

TEST_F(RemoteChangesTest, EntryThatIsMovedOutOfSightByTheServiceIsNotShown) {
    fillRoot();
    service.hold();
    const Action renamed = client().rename(20, "z");
    const Action made = client().createDocument(11, "new");
    service.addFolder(4711, Root, "unseen");
    service.editDocument(20, [](Document& document) { document.parentId = 4711; });
    client().onRemoteChange(Document(20, 4711, 1, "a"));
    EXPECT_FALSE(client().poll(client().open(20)).operationId);
    client().onRemoteRemoval(11);
    service.release();
    expectDone(renamed);
    expectDone(made);
    EXPECT_FALSE(client().poll(renamed).entry);
    EXPECT_FALSE(client().poll(made).entry);
    EXPECT_FALSE(client().item(20));
    EXPECT_FALSE(client().item(Given));
}

// --- While pages are under way -------------------------------------------------------------------

TEST_F(RemoteChangesTest, PageThatWasAskedForBeforeAChangeIsAskedForAgain) {
    fillRoot();
    // Of how things were before: the feed is ahead of the page.
    service.hold();
    const Query query = client().list(Root, reloaded());
    awaitLog(1);
    Document renamed(20, Root, 1, "z");
    client().onRemoteChange(renamed);
    client().onRemoteRemoval(21);
    service.release();
    EXPECT_EQ(client().wait(query, Patience).state, AnswerState::Answered);
    service.editDocument(20, [](Document& document) { document.name = "z"; });
    service.drop(21);
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "z"));
    EXPECT_FALSE(client().item(21));
}

TEST_F(RemoteChangesTest, PageThatWasAskedForBeforeADoubtIsAskedForAgain) {
    fillRoot();
    service.hold();
    const Query query = client().list(Root, reloaded());
    const Query tags = client().tags(Root);
    awaitLog(1);
    client().onRemoteDoubt(Root);
    service.release();
    client().wait(query, Patience);
    client().wait(tags, Patience);
    EXPECT_EQ(list(Root).source, AnswerSource::Load);
    EXPECT_EQ(client().wait(client().tags(Root), Patience).source, AnswerSource::Load);
    EXPECT_EQ(list(Root).source, AnswerSource::Memory);
}

TEST_F(RemoteChangesTest, NameThatWasLookedUpBeforeAChangeIsLookedUpAgain) {
    fillRoot();
    service.addDocument(40, Root, "c");
    service.hold();
    const Query query = client().find("c");
    awaitLog(1);
    client().onRemoteRemoval(40);
    service.releaseOne();
    while (service.log().size() < 2) {
        ASSERT_EQ(client().poll(query).state, AnswerState::Pending);
        std::this_thread::yield();
    }
    service.drop(40);
    service.release();
    EXPECT_EQ(client().wait(query, Patience).state, AnswerState::Failed);
    EXPECT_FALSE(client().item(40));
}

TEST_F(RemoteChangesTest, PageOfAFolderThatIsGoneMeanwhileIsLeftOut) {
    fillRoot();
    service.hold();
    const Query query = client().list(10, reloaded());
    awaitLog(1);
    client().onRemoteRemoval(10);
    service.release();
    const Answer answer = client().wait(query, Patience);
    ASSERT_EQ(answer.state, AnswerState::Failed);
    EXPECT_EQ(answer.error->reason(), Reason::NotFound);
    EXPECT_FALSE(client().item(30));
    EXPECT_FALSE(client().item(12));
}

// --- Doubt -----------------------------------------------------------------------------------

TEST_F(RemoteChangesTest, ListingInDoubtIsLoadedAgain) {
    fillRoot();
    service.addTag(50, Root, "artist", "x");
    client().wait(client().tags(Root), Patience);
    client().onRemoteDoubt(Root);
    ASSERT_THAT(told<ListingInvalidated>(), SizeIs(1));
    EXPECT_EQ(lastTold<ListingInvalidated>().folderId, Root);
    for (const ListOptions& options : {ListOptions(), descending(), searching("a")}) {
        EXPECT_EQ(list(Root, options).source, AnswerSource::Load);
        EXPECT_EQ(list(Root, options).source, AnswerSource::Memory);
    }
    EXPECT_EQ(client().wait(client().tags(Root), Patience).source, AnswerSource::Load);
    EXPECT_EQ(list(10).source, AnswerSource::Memory);
}

TEST_F(RemoteChangesTest, EmptyListingInDoubtIsLoadedAgainToo) {
    fillRoot();
    EXPECT_THAT(listed(11), IsEmpty());
    service.addDocument(40, 11, "new");
    client().onRemoteDoubt(11);
    EXPECT_THAT(listed(11), ElementsAre("new"));
}

TEST_F(RemoteChangesTest, DoubtAboutAFolderThatIsNotHeldTellsNothing) {
    fillRoot();
    client().onRemoteDoubt(4711);
    client().onRemoteDoubt(0);
    EXPECT_THAT(events, IsEmpty());
}

// --- Bad ids ---------------------------------------------------------------------------------

TEST_F(RemoteChangesTest, BadIdsThrowAndChangeNothing) {
    fillRoot();
    for (const unsigned long id : {0UL, Root, Nimra::FirstLocalId, Nimra::createLocalId()}) {
        EXPECT_THROW(client().onRemoteChange(Document(id, 10, 1, "x")), std::invalid_argument);
        EXPECT_THROW(client().onRemoteChange(Folder(id, 10, 1, "x")), std::invalid_argument);
        EXPECT_THROW(client().onRemoteRemoval(id), std::invalid_argument);
    }
    EXPECT_THAT(events, IsEmpty());
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
    EXPECT_THAT(held(10), ElementsAre("deep", "song"));
    EXPECT_EQ(list(Root).source, AnswerSource::Memory);
}

TEST_F(RemoteChangesTest, LocalEntryCannotBeRemovedElsewhere) {
    fillRoot();
    client().setOnline(false);
    const Action made = client().createFolder(Root, "new");
    EXPECT_THROW(client().onRemoteRemoval(made.entryId()), std::invalid_argument);
    EXPECT_TRUE(client().item(made.entryId()));
}

}  // namespace
}  // namespace Ormek::Testing
