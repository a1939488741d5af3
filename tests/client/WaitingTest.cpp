// Actions on what the service does not know yet, and while it is off.

#include <algorithm>
#include <atomic>

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Reason;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};

class WaitingTest : public ActingTest {
  protected:
    /// The root holds the folders 10 "music" and 11 "texts", and the documents 20 "a" and 21 "b".
    void fillRoot() {
        service.addFolder(10, Root, "music");
        service.addFolder(11, Root, "texts");
        addDocuments(20, {"a", "b"});
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            list(folderId);
        }
        service.forgetLog();
    }
    WaitingAction waitingFor(const Action& action) {
        const std::vector<WaitingAction> all = client().waiting();
        const auto found = std::find_if(all.begin(), all.end(), [&](const WaitingAction& waiting) {
            return waiting.operationId == action.operationId();
        });
        EXPECT_NE(found, all.end()) << "does not wait";
        return found == all.end() ? WaitingAction() : *found;
    }
    std::vector<unsigned long> waitingIds() {
        std::vector<unsigned long> ids;
        for (const WaitingAction& waiting : client().waiting()) {
            ids.push_back(waiting.operationId);
        }
        return ids;
    }
    void expectServersPicture(const std::vector<unsigned long>& folderIds = {1, 10, 11}) {
        settle();
        EXPECT_THAT(client().waiting(), IsEmpty());
        for (const unsigned long folderId : folderIds) {
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

// --- On what waits for its id -----------------------------------------------------------------

TEST_F(WaitingTest, ActionsOnADocumentThatIsBeingMadeFollowItToTheService) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action renamed = client().rename("new", "newer");
    const Action saved = client().saveMetaData(made.entryId(), Blue);
    const Action moved = client().move(made.entryId(), 10);
    const Action opened = client().open("music/newer");
    const Action session = client().openSession(made.entryId());
    EXPECT_EQ(renamed.entryId(), made.entryId());
    EXPECT_EQ(client().pathOf(made.entryId()), "/music/newer");
    EXPECT_EQ(keyValuesOf(made.entryId()), Blue);
    EXPECT_EQ(waitingFor(renamed).kind, ActionKind::Rename);
    EXPECT_THAT(waitingFor(renamed).forCreationOf, ElementsAre(made.entryId()));
    EXPECT_FALSE(waitingFor(renamed).forEarlier);
    EXPECT_FALSE(waitingFor(renamed).forService);
    EXPECT_TRUE(waitingFor(saved).forEarlier);

    service.release();
    for (const Action& action : {made, renamed, saved, moved, opened, session}) {
        expectDone(action);
        EXPECT_EQ(client().poll(action).entryId, Given);
    }
    EXPECT_THAT(service.actions(),
                ElementsAre("create new in 1 by 1", "rename 1000 in 1 to newer by 1",
                            "save 1000 newer in 1 by 1 length 0 type  colour=blue",
                            "move 1000 newer from 1 to 10 by 1", "open 1000 newer in 10 by 1",
                            "session 1000 in 10 by 1"));
    EXPECT_EQ(client().pathOf(Given), "/music/newer");
    expectServersPicture();
}

TEST_F(WaitingTest, DocumentsAndFoldersAreMadeInAFolderThatIsBeingMade) {
    fillRoot();
    service.hold();
    const Action outer = client().createFolder(Root, "outer");
    const Action inner = client().createFolder("outer", "inner");
    const Action document =
        client().createDocument("outer/inner", "x", std::make_unique<TextSource>("content"));
    EXPECT_THAT(listed(outer.entryId()), ElementsAre("inner"));
    EXPECT_THAT(listed(inner.entryId()), ElementsAre("x"));
    EXPECT_EQ(idAt("outer/inner/x"), document.entryId());
    EXPECT_THAT(waitingFor(inner).forCreationOf, ElementsAre(outer.entryId()));
    EXPECT_EQ(waitingFor(inner).kind, ActionKind::CreateFolder);
    EXPECT_EQ(waitingFor(inner).entryId, inner.entryId());
    EXPECT_THAT(waitingFor(document).forCreationOf, ElementsAre(inner.entryId()));

    service.release();
    expectDone(document);
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder outer in 1 by 1", "makeFolder inner in 1000 by 1",
                            "create x in 1001 by 1"));
    EXPECT_EQ(service.contentOf(1002), "content");
    EXPECT_EQ(client().pathOf(1002), "/outer/inner/x");
    expectServersPicture({Root, 1000, 1001});
}

TEST_F(WaitingTest, MoveIntoAFolderThatIsBeingMadeIsHeldBackAndKeepsItsPlace) {
    fillRoot();
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action moved = client().move(20, folder.entryId());
    const Action renamed = client().rename(20, "z");
    const Action saved = client().saveMetaData(20, Blue);
    const Action away = client().move(20, 11);
    const Action other = client().rename(21, "a");
    EXPECT_THAT(waitingFor(moved).forCreationOf, ElementsAre(folder.entryId()));
    EXPECT_TRUE(waitingFor(renamed).forEarlier);
    EXPECT_TRUE(waitingFor(saved).forEarlier);
    EXPECT_TRUE(waitingFor(away).forEarlier);
    EXPECT_EQ(client().pathOf(20), "/texts/z");
    service.release();
    for (const Action& action : {folder, moved, renamed, saved, away, other}) {
        expectDone(action);
    }
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder new in 1 by 1", "move 20 a from 1 to 1000 by 1",
                            "rename 20 in 1000 to z by 1",
                            "save 20 z in 1000 by 1 length 0 type  colour=blue",
                            "move 20 z from 1000 to 11 by 1", "rename 21 in 1 to a by 1"));
    expectServersPicture({Root, 10, 11, 1000});
}

TEST_F(WaitingTest, FolderThatIsBeingMadeIsMovedAndRenamedWithWhatIsInIt) {
    fillRoot();
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    client().createDocument(folder.entryId(), "x");
    client().rename(folder.entryId(), "newer");
    client().move(folder.entryId(), 10);
    client().createDocument("music/newer", "y");
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("x", "y"));
    EXPECT_THAT(listed(10), ElementsAre("newer"));
    service.release();
    settle();
    EXPECT_THAT(service.namesIn(10), ElementsAre("newer"));
    EXPECT_THAT(service.namesIn(Given), ElementsAre("x", "y"));
    expectServersPicture({Root, 10, Given});
}

TEST_F(WaitingTest, RemovalOfWhatIsBeingMadeFollowsTheCreation) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action removed = client().remove(made.entryId());
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
    service.release();
    expectDone(made);
    EXPECT_FALSE(client().poll(made).entry);
    EXPECT_EQ(client().poll(made).entryId, Given);
    expectDone(removed);
    EXPECT_THAT(service.actions(), ElementsAre("create new in 1 by 1", "remove 1000 in 1 by 1"));
    expectServersPicture();
}

TEST_F(WaitingTest, CreationUnderANameThatAWaitingRenameGivesUpDoesNotOvertakeIt) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "x");
    const Action renamed = client().rename(made.entryId(), "y");
    const Action again = client().createDocument(Root, "x");
    const Action folder = client().createFolder(Root, "z");
    EXPECT_TRUE(waitingFor(again).forEarlier);
    EXPECT_THAT(waitingFor(again).forCreationOf, IsEmpty());
    EXPECT_TRUE(waitingFor(folder).forEarlier);
    service.release();
    expectDone(renamed);
    expectDone(again);
    expectDone(folder);
    EXPECT_THAT(service.namesIn(Root), ElementsAre("music", "texts", "z", "a", "b", "x", "y"));
    expectServersPicture();
}

// --- Ids of the program -----------------------------------------------------------------------

TEST_F(WaitingTest, LocalIdsGoOnWorkingOnceTheServersAreKnown) {
    fillRoot();
    const Action folder = client().createFolder(Root, "new");
    expectDone(folder);
    const Action document = client().createDocument(folder.entryId(), "x");
    expectDone(document);
    ASSERT_TRUE(Nimra::isLocalId(folder.entryId()));
    EXPECT_THAT(told<EntryIdChanged>(), SizeIs(2));

    EXPECT_EQ(client().item(document.entryId())->id(), 1001U);
    EXPECT_EQ(client().item(document.entryId()), client().item(1001));
    EXPECT_EQ(client().pathOf(document.entryId()), "/new/x");
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("x"));
    EXPECT_THAT(listed(folder.entryId(), descending()), ElementsAre("x"));
    EXPECT_EQ(client().wait(client().tags(folder.entryId()), Patience).state,
              AnswerState::Answered);
    const Query found = client().find(folder.entryId(), "x");
    EXPECT_EQ(client().wait(found, Patience).entries.at(0)->id(), 1001U);
    service.forgetLog();
    expectDone(client().rename(document.entryId(), "y"));
    expectDone(client().move(document.entryId(), 10));
    expectDone(client().move(document.entryId(), folder.entryId()));
    expectDone(client().saveMetaData(document.entryId(), Blue));
    expectDone(client().open(document.entryId()));
    expectDone(client().openSession(document.entryId()));
    expectDone(client().remove(document.entryId()));
    EXPECT_FALSE(client().item(document.entryId()));
    expectRefusedAtOnce(client().remove(document.entryId()), Reason::NotFound);
    EXPECT_THAT(service.actions(),
                ElementsAre("rename 1001 in 1000 to y by 1", "move 1001 y from 1000 to 10 by 1",
                            "move 1001 y from 10 to 1000 by 1",
                            "save 1001 y in 1000 by 1 length 0 type  colour=blue",
                            "open 1001 y in 1000 by 1", "session 1001 in 1000 by 1",
                            "remove 1001 in 1000 by 1"));
    client().onRemoteDoubt(folder.entryId());
    service.addDocument(50, Given, "elsewhere");
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("elsewhere"));
}

TEST_F(WaitingTest, ListingOfARekeyedFolderHasItsEntriesEachOnce) {
    fillRoot();
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action first = client().createDocument(folder.entryId(), "x");
    client().createFolder(folder.entryId(), "inner");
    client().move(20, folder.entryId());
    const std::vector<ListOptions> kinds = {
        {}, descending(), searching("x"), only(ListKind::Folders), only(ListKind::Documents)};
    const std::vector<std::vector<std::string>> expected = {
        {"inner", "a", "x"}, {"inner", "x", "a"}, {"x"}, {"inner"}, {"a", "x"}};
    for (std::size_t index = 0; index < kinds.size(); ++index) {
        EXPECT_EQ(listed(folder.entryId(), kinds[index]), expected[index]) << index;
    }
    service.releaseOne();
    expectDone(folder);
    // Its entries are still on their way.
    EXPECT_TRUE(isPending(first));
    for (const unsigned long id : {folder.entryId(), Given}) {
        client().setOnline(false);
        for (std::size_t index = 0; index < kinds.size(); ++index) {
            const Answer answer = client().poll(client().list(id, kinds[index]));
            EXPECT_THAT(namesOf(answer), ::testing::UnorderedElementsAreArray(expected[index]));
            EXPECT_EQ(answer.held, expected[index].size());
        }
        client().setOnline(true);
    }
    service.release();
    settle();
    for (std::size_t index = 0; index < kinds.size(); ++index) {
        EXPECT_EQ(listed(Given, kinds[index]), expected[index]) << index;
        EXPECT_EQ(list(Given, kinds[index]).held, expected[index].size());
    }
    expectServersPicture({Root, Given});
}

TEST_F(WaitingTest, FolderThatWaitsIsListedInOrderWithPages) {
    client().setOnline(false);
    const Action folder = client().createFolder(Root, "new");
    const unsigned long id = folder.entryId();
    for (const char* name : {"d", "b", "e"}) {
        client().createDocument(id, name);
    }
    client().createFolder(id, "z");
    client().createFolder(id, "c");
    EXPECT_THAT(listed(id), ElementsAre("c", "z", "b", "d", "e"));
    EXPECT_THAT(listed(id, descending()), ElementsAre("z", "c", "e", "d", "b"));
    EXPECT_THAT(listed(id, page(1, 2)), ElementsAre("z", "b"));
    EXPECT_THAT(listed(id, page(4, 10)), ElementsAre("e"));
    EXPECT_THAT(listed(id, page(5, 10)), IsEmpty());
    EXPECT_EQ(list(id, page(1, 2)).total, 5U);
    client().createDocument(id, "a");
    EXPECT_THAT(listed(id), ElementsAre("c", "z", "a", "b", "d", "e"));
}

TEST_F(WaitingTest, WhatWasRemovedFromAFolderThatWaitsIsNotListed) {
    client().setOnline(false);
    const Action folder = client().createFolder(Root, "new");
    const Action x = client().createDocument(folder.entryId(), "x");
    client().createDocument(folder.entryId(), "y");
    const Action removal = client().remove(x.entryId());
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("y"));
    EXPECT_TRUE(client().cancel(removal.operationId()));
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("x", "y"));
}

TEST_F(WaitingTest, FolderThatWaitsHasNoTagsAndNothingThatWasNotMadeHere) {
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    client().createDocument(folder.entryId(), "x");
    const Answer tags = client().poll(client().tags(folder.entryId()));
    EXPECT_EQ(tags.state, AnswerState::Answered);
    EXPECT_THAT(tags.entries, IsEmpty());
    const Answer absent = client().poll(client().find(folder.entryId(), "y"));
    EXPECT_EQ(absent.error->reason(), Reason::NotFound);
    for (const Freshness freshness : {Freshness::Cached, Freshness::Reload}) {
        const Answer there = client().poll(client().find("new/x", freshness));
        ASSERT_EQ(there.state, AnswerState::Answered);
        EXPECT_EQ(there.entries.at(0)->name(), "x");
    }
}

// --- The answer comes last --------------------------------------------------------------------

TEST_F(WaitingTest, DocumentThatAPageBroughtBeforeTheAnswerStandsThereOnce) {
    fillRoot();
    list(Root, searching("new"));
    service.hold();
    const Query query = client().list(Root, descending());
    const Action made = client().createDocument(Root, "new");
    service.addDocument(500, Root, "new");
    service.createAs(500);
    service.releaseOne();
    EXPECT_EQ(client().wait(query, Patience).state, AnswerState::Answered);
    EXPECT_TRUE(client().item(500));
    service.release();
    expectDone(made);
    EXPECT_EQ(client().poll(made).entryId, 500U);
    for (const ListOptions& options : {ListOptions(), searching("new"), descending()}) {
        const std::vector<std::string> names = held(Root, options);
        EXPECT_EQ(std::count(names.begin(), names.end(), "new"), 1);
    }
    EXPECT_EQ(client().item(made.entryId()), client().item(500));
    expectServersPicture();
}

TEST_F(WaitingTest, FolderThatWasToldOfBeforeTheAnswerStandsThereOnceWithWhatIsInIt) {
    fillRoot();
    service.hold();
    const Action made = client().createFolder(Root, "new");
    const Action inside = client().createDocument(made.entryId(), "x");
    EXPECT_THAT(listed(made.entryId()), ElementsAre("x"));
    service.addFolder(500, Root, "new");
    service.addDocument(501, 500, "y");
    service.createAs(500);
    client().onRemoteChange(Nimra::Folder(500, Root, 1, "new"));
    client().onRemoteChange(Nimra::Document(501, 500, 1, "y"));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "new", "new"));
    service.release();
    expectDone(made);
    expectDone(inside);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "new"));
    EXPECT_THAT(listed(made.entryId()), ElementsAre("x", "y"));
    expectServersPicture({Root, 500});
}

TEST_F(WaitingTest, WhatWasDoneToEitherOfTheTwoIsKept) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    service.addDocument(500, Root, "new");
    service.createAs(500);
    client().onRemoteChange(Nimra::Document(500, Root, 1, "new"));
    const Action moved = client().move(made.entryId(), 10);
    const Action renamed = client().rename(500, "newer");
    service.releaseOne();
    expectDone(made);
    EXPECT_EQ(client().pathOf(500), "/music/newer");
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
    EXPECT_THAT(held(10), ElementsAre("newer"));
    service.failNext("rename", Reason::NoPermission);
    service.release();
    expectFailed(renamed, Reason::NoPermission);
    expectDone(moved);
    EXPECT_EQ(client().pathOf(500), "/music/new");
    expectServersPicture();
}

TEST_F(WaitingTest, RemovalOfTheLocalOneAlsoHidesTheOther) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    service.addDocument(500, Root, "new");
    service.createAs(500);
    client().onRemoteChange(Nimra::Document(500, Root, 1, "new"));
    const Action removed = client().remove(made.entryId());
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b", "new"));
    service.releaseOne();
    expectDone(made);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
    service.release();
    expectDone(removed);
    expectServersPicture();
}

// --- Offline ----------------------------------------------------------------------------------

TEST_F(WaitingTest, OfflineStretchArrivesInOrderWhenTheServiceIsBack) {
    fillRoot();
    EXPECT_TRUE(client().online());
    client().setOnline(false);
    client().setOnline(false);
    EXPECT_FALSE(client().online());
    const Action folder = client().createFolder(Root, "new");
    const std::vector<Action> all = {
        folder,
        client().createDocument("new", "x", std::make_unique<TextSource>("content")),
        client().rename("new/x", "y"),
        client().move("a", "new"),
        client().saveMetaData("new/y", Blue),
        client().rename("b", "a"),
        client().remove("texts"),
        client().move("new/y", "music"),
        client().open("music/y"),
    };
    for (const Action& action : all) {
        EXPECT_TRUE(isPending(action));
        EXPECT_TRUE(waitingFor(action).forService);
    }
    EXPECT_THAT(client().waiting(), SizeIs(all.size()));
    EXPECT_TRUE(client().waitUntilIdle(Patience));
    EXPECT_THAT(service.log(), IsEmpty());
    EXPECT_THAT(listed(Root), ElementsAre("music", "a", "new"));
    EXPECT_THAT(listed(folder.entryId()), ElementsAre("a"));
    EXPECT_THAT(listed(10), ElementsAre("y"));
    EXPECT_EQ(client().pathOf(20), "/new/a");

    client().setOnline(true);
    for (const Action& action : all) {
        expectDone(action);
        EXPECT_EQ(outcomesOf(action), 1U);
    }
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder new in 1 by 1", "create x in 1000 by 1",
                            "rename 1001 in 1000 to y by 1", "move 20 a from 1 to 1000 by 1",
                            "save 1001 y in 1000 by 1 length 7 type  colour=blue",
                            "rename 21 in 1 to a by 1", "remove 11 in 1 by 1",
                            "move 1001 y from 1000 to 10 by 1", "open 1001 y in 10 by 1"));
    EXPECT_THAT(service.namesIn(Root), ElementsAre("music", "new", "a"));
    EXPECT_THAT(service.namesIn(10), ElementsAre("y"));
    EXPECT_THAT(service.namesIn(1000), ElementsAre("a"));
    expectServersPicture({Root, 10, 1000});
}

TEST_F(WaitingTest, WaitingActionsComeInTheOrderTheyWereAskedFor) {
    fillRoot();
    client().setOnline(false);
    std::vector<unsigned long> asked;
    for (const std::string name : {"x", "y", "z"}) {
        const Action made = client().createDocument(Root, name);
        asked.push_back(made.operationId());
        asked.push_back(client().rename(20, name + "'").operationId());
        asked.push_back(client().saveMetaData(made.entryId(), Blue).operationId());
    }
    EXPECT_EQ(waitingIds(), asked);
    client().setOnline(true);
    settle();
    EXPECT_THAT(client().waiting(), IsEmpty());
}

TEST_F(WaitingTest, WhatTheServiceHasBegunDoesNotWait) {
    fillRoot();
    service.hold();
    const Action running = client().rename(20, "z");
    awaitLog(1);
    client().setOnline(false);
    const Action queued = client().rename(21, "y");
    EXPECT_THAT(waitingIds(), ElementsAre(queued.operationId()));
    EXPECT_FALSE(waitingFor(queued).forEarlier);
    EXPECT_THAT(waitingFor(queued).forCreationOf, IsEmpty());
    EXPECT_EQ(waitingFor(queued).entryId, 21U);
    service.release();
    expectDone(running);
    EXPECT_TRUE(isPending(queued));
    client().setOnline(true);
    expectDone(queued);
}

TEST_F(WaitingTest, OfflineAPageThatWasLoadedIsAnsweredAndAnotherIsNot) {
    fillRoot();
    client().setOnline(false);
    for (const Freshness freshness : {Freshness::Cached, Freshness::Reload}) {
        ListOptions options;
        options.freshness = freshness;
        const Answer held = client().poll(client().list(Root, options));
        EXPECT_EQ(held.state, AnswerState::Answered);
        EXPECT_THAT(namesOf(held), ElementsAre("music", "texts", "a", "b"));
    }
    const Answer never = client().poll(client().list(Root, descending()));
    EXPECT_EQ(never.state, AnswerState::Failed);
    EXPECT_EQ(never.error->reason(), Reason::NotReachable);
    EXPECT_EQ(client().poll(client().find("nothing")).error->reason(), Reason::NotReachable);
    EXPECT_EQ(client().poll(client().find("a")).state, AnswerState::Answered);
    EXPECT_EQ(client().poll(client().tags(Root)).error->reason(), Reason::NotReachable);
    EXPECT_THAT(service.log(), IsEmpty());
}

TEST_F(WaitingTest, OfflinePageOfWhichOnlyAPartIsHeldFailsWithThatPart) {
    addDocuments(20, {"a", "b", "c", "d"});
    list(Root, page(0, 2));
    const Statistics before = client().statistics();
    client().setOnline(false);
    const Answer part = client().poll(client().list(Root, page(1, 2)));
    EXPECT_EQ(part.state, AnswerState::Failed);
    EXPECT_EQ(part.error->reason(), Reason::NotReachable);
    EXPECT_THAT(namesOf(part), ElementsAre("b"));
    EXPECT_EQ(part.held, 2U);
    EXPECT_EQ(part.total, 4U);
    EXPECT_EQ(client().statistics().answeredFromMemory, before.answeredFromMemory);
}

TEST_F(WaitingTest, OfflinePageIsAnsweredThoughALoadOfItIsHeldBack) {
    fillRoot();
    service.hold();
    const Action running = client().rename(20, "z");
    awaitLog(1);
    const Query reload = client().list(Root, reloaded());
    client().onRemoteDoubt(Root);
    client().setOnline(false);
    const Answer held = client().poll(client().list(Root));
    EXPECT_EQ(held.state, AnswerState::Answered);
    EXPECT_THAT(namesOf(held), ElementsAre("music", "texts", "z", "b"));
    service.release();
    expectDone(running);
    EXPECT_EQ(client().poll(reload).state, AnswerState::Pending);
    client().setOnline(true);
    EXPECT_EQ(client().wait(reload, Patience).state, AnswerState::Answered);
}

// --- Cancelling -------------------------------------------------------------------------------

TEST_F(WaitingTest, ParkedActionCanBeCancelled) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action renamed = client().rename(made.entryId(), "newer");
    const Action saved = client().saveMetaData(made.entryId(), Blue);
    EXPECT_TRUE(client().cancel(renamed.operationId()));
    EXPECT_EQ(client().poll(renamed).state, ActionState::Failed);
    EXPECT_EQ(client().poll(renamed).error->reason(), Reason::Refused);
    EXPECT_EQ(client().poll(renamed).entry->name, "new");
    EXPECT_FALSE(client().cancel(renamed.operationId()));
    EXPECT_FALSE(waitingFor(saved).forEarlier);
    service.release();
    expectDone(saved);
    EXPECT_THAT(service.actions(), ElementsAre("create new in 1 by 1",
                                               "save 1000 newer in 1 by 1 length 0 type  "
                                               "colour=blue"));
    EXPECT_EQ(outcomesOf(renamed), 1U);
    expectServersPicture();
}

TEST_F(WaitingTest, CancelledActionLetsWhatWaitedForItGo) {
    fillRoot();
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action moved = client().move(20, folder.entryId());
    const Action other = client().rename(21, "c");
    EXPECT_TRUE(waitingFor(other).forEarlier);
    EXPECT_TRUE(client().cancel(moved.operationId()));
    EXPECT_THAT(client().waiting(), IsEmpty());
    EXPECT_EQ(client().pathOf(20), "/a");
    service.release();
    expectDone(other);
    expectServersPicture({Root, Given});
}

TEST_F(WaitingTest, WhatFollowsACancelledMoveNoLongerNeedsTheFolderItWentTo) {
    fillRoot();
    service.failNext("makeFolder", Reason::Refused);
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action moved = client().move(20, folder.entryId());
    const Action renamed = client().rename(20, "z");
    const Action saved = client().saveMetaData(20, Blue);
    const Action opened = client().open(20);
    const Action session = client().openSession(20);
    const Action movedOn = client().move(20, 10);
    const Action last = client().rename(20, "y");
    EXPECT_TRUE(client().cancel(moved.operationId()));
    EXPECT_THAT(client().waiting(), IsEmpty());
    EXPECT_EQ(client().pathOf(20), "/music/y");
    service.release();
    expectFailed(folder, Reason::Refused);
    for (const Action& action : {renamed, saved, opened, session, movedOn, last}) {
        expectDone(action);
    }
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder new in 1 by 1", "rename 20 in 1 to z by 1",
                            "save 20 z in 1 by 1 length 0 type  colour=blue", "open 20 z in 1 by 1",
                            "session 20 in 1 by 1", "move 20 z from 1 to 10 by 1",
                            "rename 20 in 10 to y by 1"));
    expectServersPicture();
}

TEST_F(WaitingTest, WhatFollowsACancelledMoveOfWhatIsBeingMadeIsSentWhereItStays) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action moved = client().move(made.entryId(), 10);
    const Action renamed = client().rename(made.entryId(), "newer");
    const Action session = client().openSession(made.entryId());
    EXPECT_TRUE(client().cancel(moved.operationId()));
    service.release();
    expectDone(renamed);
    expectDone(session);
    EXPECT_THAT(service.actions(),
                ElementsAre("create new in 1 by 1", "rename 1000 in 1 to newer by 1",
                            "session 1000 in 1 by 1"));
    expectServersPicture();
}

TEST_F(WaitingTest, ActionQueuedOfflineCanBeCancelled) {
    fillRoot();
    client().setOnline(false);
    const Action renamed = client().rename(20, "z");
    const Action moved = client().move(20, 10);
    EXPECT_TRUE(client().cancel(renamed.operationId()));
    expectFailed(renamed, Reason::Refused);
    EXPECT_EQ(client().pathOf(20), "/music/a");
    EXPECT_THAT(waitingIds(), ElementsAre(moved.operationId()));
    client().setOnline(true);
    expectDone(moved);
    EXPECT_THAT(service.actions(), ElementsAre("move 20 z from 1 to 10 by 1"));
    expectServersPicture();
}

TEST_F(WaitingTest, CancelledCreationTakesItsDependentsAlong) {
    for (const bool parked : {false, true}) {
        events.clear();
        client().setOnline(false);
        bool gone[2] = {false, false};
        const Action outer = client().createFolder(Root, parked ? "outer" : "other");
        const Action made = parked ? client().createFolder(outer.entryId(), "new")
                                   : client().createFolder(Root, "n");
        const Action inside =
            client().createDocument(made.entryId(), "x", std::make_unique<Mortal>(gone[0]));
        const Action renamed = client().rename(inside.entryId(), "y");
        const Action beside =
            client().createDocument(outer.entryId(), "z", std::make_unique<Mortal>(gone[1]));
        EXPECT_TRUE(client().cancel(made.operationId()));
        for (const Action& lost : {made, inside, renamed}) {
            EXPECT_EQ(client().poll(lost).state, ActionState::Failed);
            EXPECT_EQ(client().poll(lost).error->reason(), Reason::Refused);
            EXPECT_EQ(outcomesOf(lost), 1U);
            EXPECT_FALSE(client().item(lost.entryId()));
        }
        EXPECT_TRUE(gone[0]);
        EXPECT_FALSE(gone[1]);
        EXPECT_THAT(waitingIds(), ElementsAre(outer.operationId(), beside.operationId()));
        client().setOnline(true);
        expectDone(beside);
        EXPECT_TRUE(gone[1]);
    }
    EXPECT_THAT(service.actions(),
                ElementsAre("makeFolder other in 1 by 1", "create z in 1000 by 1",
                            "makeFolder outer in 1 by 1", "create z in 1002 by 1"));
}

TEST_F(WaitingTest, WhoeverWaitsForAParkedActionHearsAtOnceThatItWasCancelled) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action renamed = client().rename(made.entryId(), "newer");
    std::atomic<bool> failed{false};
    std::thread waiter(
        [&] { failed = client().wait(renamed, Patience).state == ActionState::Failed; });
    // Asleep by now, most likely; woken in any case.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(client().cancel(renamed.operationId()));
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, Patience / 2);
    EXPECT_TRUE(failed);
}

// --- The end ----------------------------------------------------------------------------------

TEST_F(WaitingTest, WhatStillWaitsIsReportedWhenTheClientGoes) {
    fillRoot();
    client().setOnline(false);
    bool gone[2] = {false, false};
    const Action folder = client().createFolder(Root, "new");
    const Action document =
        client().createDocument(folder.entryId(), "x", std::make_unique<Mortal>(gone[0]));
    const Action renamed = client().rename(document.entryId(), "y");
    const Action queued = client().rename(20, "z");
    const Action other = client().createDocument(Root, "beside", std::make_unique<Mortal>(gone[1]));
    events.clear();
    closeClient();
    EXPECT_TRUE(gone[0]);
    EXPECT_TRUE(gone[1]);
    for (const Action& action : {folder, document, renamed, queued, other}) {
        EXPECT_EQ(outcomesOf(action), 1U);
    }
    for (const Outcome& outcome : told<Outcome>()) {
        EXPECT_EQ(outcome.state, ActionState::Failed);
        EXPECT_EQ(outcome.error->reason(), Reason::NotReachable);
    }
    EXPECT_THAT(told<Outcome>(), SizeIs(5));
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(3));
    // A later client can still read what became of them.
    Client later(std::make_unique<ScriptedActions>());
    EXPECT_EQ(later.poll(renamed).state, ActionState::Failed);
}

TEST_F(WaitingTest, RunningActionIsWaitedForWhenTheClientGoesAndWhatWaitedForItIsReported) {
    fillRoot();
    service.hold();
    const Action made = client().createDocument(Root, "new");
    const Action renamed = client().rename(made.entryId(), "newer");
    awaitLog(1);
    std::thread later([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        service.release();
    });
    destroyClient();
    later.join();
    ASSERT_EQ(outcomesOf(made), 1U);
    ASSERT_EQ(outcomesOf(renamed), 1U);
    for (const Outcome& outcome : told<Outcome>()) {
        const bool isCreation = outcome.operationId == made.operationId();
        EXPECT_EQ(outcome.state, isCreation ? ActionState::Done : ActionState::Failed);
        EXPECT_EQ(outcome.entryId, Given);
    }
}

TEST_F(WaitingTest, WhatTheRunningActionCallsMayCallTheClientWhileItGoes) {
    /// Content that calls while it is read, which the service waits for.
    class Calling : public TextSource {
      public:
        explicit Calling(std::function<void()> call)
            : TextSource("content"), _call(std::move(call)) {}
        std::size_t read(char* buffer, std::size_t size) override {
            _call();
            return TextSource::read(buffer, size);
        }

      private:
        std::function<void()> _call;
    };
    fillRoot();
    Client& going = client();
    const Action waiting = client().createFolder(Root, "before");
    settle();
    std::atomic<int> calls{0};
    client().createDocument(Root, "new", std::make_unique<Calling>([&] {
                                while (going.online()) {
                                    std::this_thread::yield();
                                }
                                going.onRemoteChange(Nimra::Document(40, Root, 1, "told"));
                                EXPECT_EQ(going.poll(waiting).state, ActionState::Done);
                                EXPECT_FALSE(going.cancel(waiting.operationId()));
                                ++calls;
                            }));
    awaitLog(2);
    destroyClient();
    EXPECT_GT(calls, 0);
    EXPECT_EQ(lastTold<EntryAdded>().id, 40U);
    EXPECT_EQ(lastTold<Outcome>().state, ActionState::Done);
}

TEST_F(WaitingTest, NothingIsUndertakenAnyMoreWhileTheClientGoes) {
    fillRoot();
    client().setOnline(false);
    int retried = 0;
    Client& going = client();
    client().subscribe([&](const Event& event) {
        if (!std::holds_alternative<Outcome>(event)) {
            return;
        }
        ++retried;
        const Action again = going.rename(20, "again");
        EXPECT_EQ(going.wait(again, Patience).error->reason(), Reason::NotReachable);
        EXPECT_EQ(going.wait(going.createFolder(Root, "x"), Patience).state, ActionState::Failed);
        EXPECT_EQ(going.wait(going.list(Root), Patience).state, AnswerState::Answered);
        EXPECT_EQ(going.wait(going.find("nothing"), Patience).state, AnswerState::Failed);
        going.setOnline(true);
        EXPECT_FALSE(going.online());
    });
    client().rename(20, "z");
    closeClient();
    EXPECT_EQ(retried, 1);
    EXPECT_THAT(told<Outcome>(), SizeIs(1));
}

TEST_F(WaitingTest, ThrowingSubscriberKeepsNoOutcomeFromTheOthersWhenTheClientGoes) {
    fillRoot();
    client().setOnline(false);
    int thrown = 0;
    client().subscribe([&](const Event&) {
        ++thrown;
        throw std::runtime_error("no");
    });
    std::size_t outcomes = 0;
    client().subscribe(
        [&](const Event& event) { outcomes += std::holds_alternative<Outcome>(event) ? 1 : 0; });
    for (const char* name : {"x", "y", "z"}) {
        EXPECT_THROW(client().rename(20, name), std::runtime_error);
    }
    closeClient();
    EXPECT_EQ(outcomes, 3U);
    EXPECT_GT(thrown, 3);
}

}  // namespace
}  // namespace Ormek::Testing
