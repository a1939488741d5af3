// What becomes of the picture when the service says no.

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Reason;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};
const Nimra::KeyValues Red{{"colour", {"red", false}}};

class UndoTest : public ActingTest {
  protected:
    /// The root holds the folders 10 "music" and 11 "texts", and the documents 20 "a" … 24 "e".
    void fillRoot() {
        service.addFolder(10, Root, "music");
        service.addFolder(11, Root, "texts");
        addDocuments(20, {"a", "b", "c", "d", "e"});
        addDocuments(30, {"song", "tune"}, 10);
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            list(folderId);
            list(folderId, descending());
            list(folderId, searching("a"));
            list(folderId, only(ListKind::Documents));
        }
        service.forgetLog();
    }
    void expectRootUntouched() {
        EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "c", "d", "e"));
        EXPECT_THAT(held(Root, descending()),
                    ElementsAre("texts", "music", "e", "d", "c", "b", "a"));
        EXPECT_THAT(held(Root, searching("a")), ElementsAre("a"));
        EXPECT_THAT(held(Root, only(ListKind::Documents)), ElementsAre("a", "b", "c", "d", "e"));
    }
    /// Nothing was undone in the cache that the service has done, nor the other way round.
    void expectServersPicture() {
        settle();
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

// --- Renaming ------------------------------------------------------------------------------

TEST_F(UndoTest, RefusedRenameGetsItsOldNameBack) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission);
    const Action action = client().rename(20, "z");
    EXPECT_EQ(client().item(20)->name(), "z");
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(client().poll(action).entry->name, "a");
    EXPECT_STREQ(client().poll(action).error->what(), "scripted failure of rename");
    EXPECT_EQ(idAt("a"), 20U);
    expectRootUntouched();
    expectServersPicture();
}

TEST_F(UndoTest, RefusedRenameComesBackToItsPlaceInSearches) {
    fillRoot();
    addDocuments(40, {"ab", "ac"});
    list(Root, reloaded(searching("a")));
    service.failNext("rename", Reason::NoPermission);
    service.hold();
    const Action action = client().rename(20, "z");
    EXPECT_THAT(held(Root, searching("a")), ElementsAre("ab", "ac"));
    service.release();
    expectFailed(action, Reason::NoPermission);
    EXPECT_THAT(held(Root, searching("a")), ElementsAre("a", "ab", "ac"));
}

TEST_F(UndoTest, RefusedRenameUnderALaterOneThatIsPendingLeavesThatOne) {
    fillRoot();
    service.failNext("rename 20 in 1 to y", Reason::NoPermission);
    service.hold();
    const Action first = client().rename(20, "y");
    const Action second = client().rename(20, "z");
    service.releaseOne();
    expectFailed(first, Reason::NoPermission);
    EXPECT_TRUE(isPending(second));
    EXPECT_EQ(client().item(20)->name(), "z");
    EXPECT_EQ(client().poll(first).entry->name, "z");
    service.release();
    expectDone(second);
    EXPECT_EQ(client().item(20)->name(), "z");
    expectServersPicture();
}

TEST_F(UndoTest, LaterRefusedRenameLeavesTheNameOfTheFirst) {
    fillRoot();
    service.failNext("rename 20 in 1 to z", Reason::NoPermission);
    service.hold();
    const Action first = client().rename(20, "y");
    const Action second = client().rename(20, "z");
    service.release();
    expectFailed(second, Reason::NoPermission);
    EXPECT_EQ(client().poll(first).state, ActionState::Done);
    EXPECT_EQ(client().item(20)->name(), "y");
    expectServersPicture();
}

TEST_F(UndoTest, LaterRenameRefusedFirstLeavesTheNameOfTheFirst) {
    fillRoot();
    service.hold();
    const Action blocker = client().open(24);
    const Action first = client().rename(20, "y");
    const Action second = client().rename(20, "z");
    EXPECT_TRUE(client().cancel(second.operationId()));
    expectFailed(second, Reason::Refused);
    EXPECT_EQ(client().item(20)->name(), "y");
    EXPECT_TRUE(isPending(first));
    EXPECT_TRUE(client().cancel(first.operationId()));
    expectFailed(first, Reason::Refused);
    expectRootUntouched();
    service.release();
    expectDone(blocker);
}

TEST_F(UndoTest, RenamesRefusedOneAfterTheOtherEndAtTheOldName) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission, 2);
    const Action first = client().rename(20, "y");
    const Action second = client().rename(20, "z");
    expectFailed(first, Reason::NoPermission);
    expectFailed(second, Reason::NoPermission);
    EXPECT_EQ(client().poll(second).entry->name, "a");
    expectRootUntouched();
}

TEST_F(UndoTest, RenameOntoATakenNameIsRefusedByTheService) {
    fillRoot();
    const Action action = client().rename(20, "b");
    expectFailed(action, Reason::Exists);
    EXPECT_EQ(client().item(20)->name(), "a");
    EXPECT_EQ(client().item(21)->name(), "b");
    expectServersPicture();
}

TEST_F(UndoTest, RefusedRenameOfAFolderGivesItsPathBack) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission);
    const Action action = client().rename(10, "sound");
    EXPECT_EQ(client().pathOf(30), "/sound/song");
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(client().pathOf(30), "/music/song");
    expectServersPicture();
}

// --- Moving --------------------------------------------------------------------------------

TEST_F(UndoTest, RefusedMoveComesBackToEveryListingWhereItStood) {
    fillRoot();
    service.failNext("move", Reason::NoPermission);
    service.hold();
    const Action action = client().move(20, 10);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b", "c", "d", "e"));
    EXPECT_THAT(held(10), ElementsAre("song", "tune", "a"));
    service.release();
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(client().poll(action).entry->folderId, Root);
    EXPECT_EQ(client().pathOf(20), "/a");
    expectRootUntouched();
    EXPECT_THAT(held(10), ElementsAre("song", "tune"));
    EXPECT_THAT(held(10, descending()), ElementsAre("tune", "song"));
    EXPECT_THAT(held(10, searching("a")), IsEmpty());
    EXPECT_THAT(held(10, only(ListKind::Documents)), ElementsAre("song", "tune"));
    expectServersPicture();
}

TEST_F(UndoTest, MovesRefusedOneAfterTheOtherEndInTheFirstFolder) {
    fillRoot();
    service.failNext("move", Reason::NoPermission, 2);
    service.hold();
    const Action first = client().move(20, 10);
    const Action second = client().move(20, 11);
    EXPECT_THAT(held(11), ElementsAre("a"));
    service.releaseOne();
    expectFailed(first, Reason::NoPermission);
    EXPECT_EQ(client().pathOf(20), "/texts/a");
    service.release();
    expectFailed(second, Reason::NoPermission);
    expectRootUntouched();
    EXPECT_THAT(held(10), ElementsAre("song", "tune"));
    EXPECT_THAT(held(11), IsEmpty());
    expectServersPicture();
}

TEST_F(UndoTest, SecondMoveRefusedAlone) {
    fillRoot();
    service.failNext("move 20 a from 10", Reason::NoPermission);
    client().move(20, 10);
    expectFailed(client().move(20, 11), Reason::NoPermission);
    EXPECT_EQ(client().pathOf(20), "/music/a");
    EXPECT_THAT(held(10), ElementsAre("song", "tune", "a"));
    expectServersPicture();
}

TEST_F(UndoTest, RefusedMoveUnderALaterRenameKeepsTheNewName) {
    fillRoot();
    service.failNext("move", Reason::NoPermission);
    service.hold();
    const Action move = client().move(20, 10);
    const Action rename = client().rename(20, "z");
    service.releaseOne();
    expectFailed(move, Reason::NoPermission);
    EXPECT_EQ(client().pathOf(20), "/z");
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "z", "b", "c", "d", "e"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    EXPECT_THAT(held(10), ElementsAre("song", "tune"));
    service.release();
    expectDone(rename);
    EXPECT_EQ(client().pathOf(20), "/z");
    expectServersPicture();
}

TEST_F(UndoTest, MoveOntoATakenNameIsRefusedByTheService) {
    fillRoot();
    addDocuments(40, {"a"}, 10);
    expectFailed(client().move(20, 10), Reason::Exists);
    EXPECT_EQ(client().pathOf(20), "/a");
    // The service knows of an entry that was not known here.
    EXPECT_THAT(listed(10), ElementsAre("a", "song", "tune"));
    expectServersPicture();
}

TEST_F(UndoTest, MoveOfWhatTheServiceNoLongerHasLoadsTheListingsAgain) {
    fillRoot();
    service.drop(20);
    expectFailed(client().move(20, 10), Reason::NotFound);
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "b", "c", "d", "e"));
    expectServersPicture();
}

// --- Removing ------------------------------------------------------------------------------

TEST_F(UndoTest, RefusedRemovalComesBackWhereItStood) {
    fillRoot();
    service.failNext("remove", Reason::NoPermission);
    service.hold();
    const Action action = client().remove(21);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "c", "d", "e"));
    service.release();
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(client().poll(action).entry->name, "b");
    expectRootUntouched();
    expectServersPicture();
}

class RemovalOrderTest : public UndoTest,
                         public ::testing::WithParamInterface<std::vector<unsigned long>> {};

TEST_P(RemovalOrderTest, RemovalsRefusedTogetherComeBackInTheirOrder) {
    fillRoot();
    service.failNext("remove", Reason::NoPermission, 3);
    service.hold();
    for (const unsigned long id : GetParam()) {
        client().remove(id);
    }
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b", "e"));
    service.release();
    settle();
    EXPECT_THAT(told<Outcome>(), SizeIs(3));
    expectRootUntouched();
    expectServersPicture();
}

INSTANTIATE_TEST_SUITE_P(Orders, RemovalOrderTest,
                         ::testing::Values(std::vector<unsigned long>{20, 22, 23},
                                           std::vector<unsigned long>{23, 22, 20},
                                           std::vector<unsigned long>{22, 20, 23},
                                           std::vector<unsigned long>{20, 23, 22},
                                           std::vector<unsigned long>{23, 20, 22}));

TEST_F(UndoTest, RemovalRefusedBesideOneThatWasDoneComesBackWhereItBelongs) {
    fillRoot();
    service.failNext("remove 23", Reason::NoPermission);
    service.hold();
    client().remove(21);
    client().remove(23);
    service.release();
    settle();
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "c", "d", "e"));
    EXPECT_THAT(held(Root, descending()), ElementsAre("texts", "music", "e", "d", "c", "a"));
    expectServersPicture();
}

TEST_F(UndoTest, RefusedRemovalOfAFolderBringsItBackWithWhatIsInIt) {
    fillRoot();
    const Action action = client().remove("music");
    expectFailed(action, Reason::Refused);
    EXPECT_THAT(client().poll(action).error->what(), HasSubstr("not empty"));
    expectRootUntouched();
    EXPECT_THAT(held(10), ElementsAre("song", "tune"));
    EXPECT_EQ(client().pathOf(30), "/music/song");
    expectServersPicture();
}

TEST_F(UndoTest, RefusedRemovalAfterAMoveThatIsPendingComesBackInTheNewFolder) {
    fillRoot();
    service.failNext("remove", Reason::NoPermission);
    service.hold();
    const Action move = client().move(20, 10);
    const Action removal = client().remove(20);
    EXPECT_THAT(held(10), ElementsAre("song", "tune"));
    service.release();
    expectFailed(removal, Reason::NoPermission);
    EXPECT_EQ(client().poll(move).state, ActionState::Done);
    EXPECT_THAT(held(10), ElementsAre("song", "tune", "a"));
    expectServersPicture();
}

TEST_F(UndoTest, RemovalAndTheMoveBeforeItRefusedLeaveNoTrace) {
    fillRoot();
    service.failNext("move", Reason::NoPermission);
    service.failNext("remove", Reason::NoPermission);
    service.hold();
    client().move(20, 10);
    const Action removal = client().remove(20);
    service.release();
    expectFailed(removal, Reason::NoPermission);
    expectRootUntouched();
    expectServersPicture();
}

TEST_F(UndoTest, RemovalAfterARefusedRenameIsDone) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission);
    service.hold();
    const Action rename = client().rename(20, "z");
    const Action removal = client().remove(20);
    service.releaseOne();
    expectFailed(rename, Reason::NoPermission);
    EXPECT_FALSE(client().poll(rename).entry);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b", "c", "d", "e"));
    service.release();
    expectDone(removal);
    EXPECT_FALSE(client().item(20));
    expectServersPicture();
}

TEST_F(UndoTest, RemovalOfWhatTheServiceNoLongerHasFailsAndItIsGone) {
    fillRoot();
    service.drop(20);
    expectFailed(client().remove(20), Reason::NotFound);
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "b", "c", "d", "e"));
    expectServersPicture();
}

// --- Creating ------------------------------------------------------------------------------

TEST_F(UndoTest, RefusedCreationDisappears) {
    fillRoot();
    service.failNext("create", Reason::NoSpace);
    bool gone = false;
    const Action action = client().createDocument(Root, "az", std::make_unique<Mortal>(gone), Blue);
    expectFailed(action, Reason::NoSpace);
    EXPECT_TRUE(gone);
    EXPECT_FALSE(client().poll(action).entry);
    EXPECT_EQ(client().poll(action).entryId, action.entryId());
    EXPECT_FALSE(client().item(action.entryId()));
    EXPECT_EQ(client().pathOf(action.entryId()), "");
    expectRootUntouched();
    expectRefusedAtOnce(client().rename(action.entryId(), "x"), Reason::NotFound);
    expectServersPicture();
}

TEST_F(UndoTest, CreationUnderATakenNameDisappearsAndTheOtherEntryStays) {
    fillRoot();
    service.hold();
    const Action action = client().createDocument(Root, "a");
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "c", "d", "e", "a"));
    service.release();
    expectFailed(action, Reason::Exists);
    expectRootUntouched();
    EXPECT_EQ(idAt("a"), 20U);
    expectServersPicture();
}

TEST_F(UndoTest, RefusedFolderTakesAllWithItThatWaitedForIt) {
    fillRoot();
    service.failNext("makeFolder", Reason::NoPermission);
    service.hold();
    bool gone[3] = {false, false, false};
    const auto content = [&](int index) { return std::make_unique<Mortal>(gone[index]); };
    const Action folder = client().createFolder(Root, "new");
    const Action inside = client().createFolder(folder.entryId(), "inner");
    const Action first = client().createDocument(folder.entryId(), "x", content(0));
    const Action second = client().createDocument(inside.entryId(), "y", content(1));
    const Action renamed = client().rename(second.entryId(), "z");
    const Action moved = client().move(20, inside.entryId());
    const Action saved = client().saveMetaData(first.entryId(), Blue);
    const Action opened = client().open(first.entryId());
    const Action session = client().openSession(second.entryId());
    const Action removed = client().remove(first.entryId());
    const Action beside = client().createDocument(Root, "beside", content(2));
    EXPECT_EQ(client().pathOf(20), "/new/inner/a");
    EXPECT_EQ(client().waiting().size(), 10U);  // "beside" must not overtake the move.

    service.release();
    expectFailed(folder, Reason::NoPermission);
    for (const Action& lost :
         {inside, first, second, renamed, moved, saved, opened, session, removed}) {
        const Outcome outcome = client().poll(lost);
        EXPECT_EQ(outcome.state, ActionState::Failed);
        EXPECT_EQ(outcome.error->reason(), Reason::NoPermission);
        EXPECT_THAT(outcome.error->what(), HasSubstr("could not be made"));
        EXPECT_EQ(outcomesOf(lost), 1U);
    }
    expectDone(beside);
    EXPECT_TRUE(gone[0]);
    EXPECT_TRUE(gone[1]);
    EXPECT_TRUE(gone[2]);
    EXPECT_THAT(client().waiting(), IsEmpty());
    for (const Action& made : {folder, inside, first, second}) {
        EXPECT_FALSE(client().item(made.entryId()));
    }
    EXPECT_EQ(client().pathOf(20), "/a");
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "c", "d", "e", "beside"));
    EXPECT_THAT(held(Root, descending()),
                ElementsAre("texts", "music", "e", "d", "c", "b", "a", "beside"));
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder new in 1 by 1", "create beside in 1 by 1"));
    expectServersPicture();
}

TEST_F(UndoTest, DocumentWhoseMoveFailsWithItsFolderKeepsItsContent) {
    fillRoot();
    service.failNext("makeFolder", Reason::NoPermission);
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action document =
        client().createDocument(Root, "x", std::make_unique<TextSource>("content"));
    const Action move = client().move(document.entryId(), folder.entryId());
    service.release();
    expectFailed(folder, Reason::NoPermission);
    expectFailed(move, Reason::NoPermission);
    expectDone(document);
    EXPECT_EQ(service.contentOf(Given), "content");
    EXPECT_EQ(client().pathOf(Given), "/x");
    expectServersPicture();
}

TEST_F(UndoTest, OutcomeOfARefusedCreationComesBeforeThoseOfWhatWaitedForIt) {
    fillRoot();
    service.failNext("create", Reason::NoSpace);
    const Action creation = client().createDocument(Root, "x");
    const Action first = client().rename(creation.entryId(), "y");
    const Action second = client().saveMetaData(creation.entryId(), Blue);
    expectFailed(creation, Reason::NoSpace);
    const auto outcomes = told<Outcome>();
    ASSERT_THAT(outcomes, SizeIs(3));
    EXPECT_EQ(outcomes[0].operationId, creation.operationId());
    EXPECT_EQ(outcomes[1].operationId, first.operationId());
    EXPECT_EQ(outcomes[2].operationId, second.operationId());
    EXPECT_FALSE(outcomes[1].entry);
}

TEST_F(UndoTest, RefusedDocumentThatWasRemovedMeanwhileIsGoneOnce) {
    fillRoot();
    service.failNext("create", Reason::NoSpace);
    service.hold();
    const Action creation = client().createDocument(Root, "x");
    const Action removal = client().remove(creation.entryId());
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(1));
    service.release();
    expectFailed(creation, Reason::NoSpace);
    EXPECT_EQ(client().poll(removal).state, ActionState::Failed);
    EXPECT_THAT(told<EntryAdded>(), SizeIs(1));
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(1));
    expectRootUntouched();
}

// --- Metadata ------------------------------------------------------------------------------

TEST_F(UndoTest, RefusedMetaDataAreTakenBack) {
    fillRoot();
    expectDone(client().saveMetaData(20, Blue));
    service.failNext("save", Reason::NoPermission);
    const Action action = client().saveMetaData(20, Red);
    EXPECT_EQ(keyValuesOf(20), Red);
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(keyValuesOf(20), Blue);
    EXPECT_EQ(client().poll(action).entry->keyValues, Blue);
}

TEST_F(UndoTest, RefusedMetaDataUnderLaterOnesLeaveThose) {
    fillRoot();
    service.failNext("save", Reason::NoPermission);
    service.hold();
    const Action first = client().saveMetaData(20, Blue);
    const Action second = client().saveMetaData(20, Red);
    service.releaseOne();
    expectFailed(first, Reason::NoPermission);
    EXPECT_EQ(keyValuesOf(20), Red);
    service.release();
    expectDone(second);
    EXPECT_EQ(keyValuesOf(20), Red);
}

TEST_F(UndoTest, EachActionIsTakenBackAlone) {
    fillRoot();
    service.failNext("save", Reason::NoPermission);
    service.hold();
    const Action rename = client().rename(20, "z");
    const Action save = client().saveMetaData(20, Red);
    const Action move = client().move(20, 10);
    service.release();
    expectDone(rename);
    expectFailed(save, Reason::NoPermission);
    expectDone(move);
    EXPECT_EQ(client().pathOf(20), "/music/z");
    EXPECT_THAT(keyValuesOf(20), IsEmpty());
    expectServersPicture();
}

}  // namespace
}  // namespace Ormek::Testing
