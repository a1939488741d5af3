// What each action does when all goes well, and what is refused before it is sent.

#include <set>

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};
const Nimra::KeyValues Red{{"colour", {"red", false}}, {"size", {"3", true}}};

class ActionsTest : public ActingTest {
  protected:
    /// The root holds the folders 10 "music" and 11 "texts", and the documents 20 "a" and 21 "b".
    void fillRoot() {
        service.addFolder(10, Root, "music");
        service.addFolder(11, Root, "texts");
        addDocuments(20, {"a", "b"});
        list(Root);
        list(10);
        list(11);
        service.forgetLog();
    }

    /// Exactly one outcome was told, and it says this.
    void expectOneOutcome(const Action& action, ActionKind kind, unsigned long entryId) {
        settle();
        ASSERT_EQ(outcomesOf(action), 1U);
        const Outcome polled = client().poll(action);
        for (const Outcome& outcome : {lastTold<Outcome>(), polled}) {
            EXPECT_EQ(outcome.operationId, action.operationId());
            EXPECT_EQ(outcome.state, ActionState::Done);
            EXPECT_EQ(outcome.kind, kind);
            EXPECT_EQ(outcome.entryId, entryId);
        }
    }
};

// --- Creating ------------------------------------------------------------------------------

TEST_F(ActionsTest, CreatedDocumentShowsAtOnceAndGetsItsIdFromTheService) {
    fillRoot();
    service.hold();
    const Action action =
        client().createDocument(Root, "new", std::make_unique<TextSource>("content"), Blue);

    EXPECT_TRUE(Nimra::isLocalId(action.entryId()));
    const Answer atOnce = list(Root);
    EXPECT_EQ(atOnce.source, AnswerSource::Memory);
    EXPECT_THAT(namesOf(atOnce), ElementsAre("music", "texts", "a", "b", "new"));
    EXPECT_EQ(idAt("new"), action.entryId());
    EXPECT_EQ(keyValuesOf(action.entryId()), Blue);
    EXPECT_TRUE(isPending(action));

    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("create new in 1 by 1 colour=blue"));
    EXPECT_EQ(service.contentOf(Given), "content");
    expectOneOutcome(action, ActionKind::CreateDocument, Given);
    const Outcome outcome = client().poll(action);
    ASSERT_TRUE(outcome.entry);
    EXPECT_EQ(outcome.entry->name, "new");
    EXPECT_EQ(outcome.entry->folderId, Root);
    EXPECT_EQ(outcome.entry->length, 7U);
    EXPECT_EQ(outcome.entry->updated, Given);
    EXPECT_EQ(outcome.entry->keyValues, Blue);
    EXPECT_FALSE(outcome.entry->isFolder);
    EXPECT_EQ(client().item(Given)->id(), Given);
    EXPECT_TRUE(client().item(Given)->idLoaded());
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "a", "b", "new"));
}

TEST_F(ActionsTest, DocumentWithoutContentIsEmpty) {
    const Action action = client().createDocument("/", "new");
    expectDone(action);
    EXPECT_EQ(service.contentOf(Given), "");
    EXPECT_EQ(client().poll(action).entry->length, 0U);
}

TEST_F(ActionsTest, CreatedFolderShowsAtOnceAndGetsItsIdFromTheService) {
    fillRoot();
    service.hold();
    const Action action = client().createFolder("music", "new");

    EXPECT_TRUE(Nimra::isLocalId(action.entryId()));
    EXPECT_THAT(listed(10), ElementsAre("new"));
    EXPECT_EQ(client().pathOf(action.entryId()), "/music/new");
    EXPECT_EQ(idAt("music/new"), action.entryId());
    EXPECT_THAT(listed(action.entryId()), IsEmpty());

    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("makeFolder new in 10 by 1"));
    expectOneOutcome(action, ActionKind::CreateFolder, Given);
    EXPECT_TRUE(client().poll(action).entry->isFolder);
    EXPECT_EQ(client().poll(action).entry->updated, Given);
    EXPECT_EQ(client().pathOf(Given), "/music/new");
    EXPECT_THAT(listed(10), ElementsAre("new"));
    EXPECT_THAT(listed(Given), IsEmpty());
}

TEST_F(ActionsTest, ContentIsGoneOnceItWasRead) {
    bool gone = false;
    expectDone(client().createDocument(Root, "new", std::make_unique<Mortal>(gone)));
    EXPECT_TRUE(gone);
}

TEST_F(ActionsTest, CreationWithoutAnIdFromTheServiceFails) {
    fillRoot();
    for (const unsigned long id : {0UL, Nimra::FirstLocalId}) {
        service.addDocument(id, 99, "elsewhere");
        service.createAs(id);
        expectFailed(client().createDocument(Root, "new"), Nimra::Reason::Internal);
    }
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "b"));
}

TEST_F(ActionsTest, FolderWhereSomethingWasMadeWithoutAnIdIsLoadedAgain) {
    fillRoot();
    service.addDocument(0, Root, "made");
    service.createAs(0);
    expectFailed(client().createDocument(Root, "new"), Nimra::Reason::Internal);
    EXPECT_EQ(list(Root).source, AnswerSource::Load);
    EXPECT_THAT(told<ListingInvalidated>(), ::testing::SizeIs(1));
}

// --- Renaming ------------------------------------------------------------------------------

TEST_F(ActionsTest, RenamedDocumentShowsItsNewNameAtOnce) {
    fillRoot();
    service.hold();
    const Action action = client().rename(20, "z");

    EXPECT_EQ(action.entryId(), 20U);
    const Answer atOnce = list(Root);
    EXPECT_EQ(atOnce.source, AnswerSource::Memory);
    EXPECT_THAT(namesOf(atOnce), ElementsAre("music", "texts", "z", "b"));
    EXPECT_EQ(idAt("z"), 20U);
    EXPECT_TRUE(isPending(action));

    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("rename 20 in 1 to z by 1"));
    expectOneOutcome(action, ActionKind::Rename, 20);
    EXPECT_EQ(client().poll(action).entry->name, "z");
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "b", "z"));
}

TEST_F(ActionsTest, RenamedFolderKeepsWhatIsInIt) {
    fillRoot();
    service.addDocument(30, 10, "song");
    list(10, reloaded());
    const Action action = client().rename("/music", "sound");
    EXPECT_EQ(action.entryId(), 10U);
    EXPECT_EQ(client().pathOf(30), "/sound/song");
    expectDone(action);
    EXPECT_TRUE(client().poll(action).entry->isFolder);
    EXPECT_THAT(listed(Root), ElementsAre("sound", "texts", "a", "b"));
    EXPECT_EQ(idAt("sound/song"), 30U);
}

TEST_F(ActionsTest, RenamedEntryComesIntoTheSearchesThatFindItAndLeavesTheOthers) {
    fillRoot();
    EXPECT_THAT(listed(Root, searching("a")), ElementsAre("a"));
    EXPECT_THAT(listed(Root, searching("z")), IsEmpty());
    service.hold();
    client().rename(20, "z");
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    EXPECT_THAT(held(Root, searching("z")), ElementsAre("z"));
    service.release();
    settle();
    EXPECT_THAT(listed(Root, searching("a")), IsEmpty());
    EXPECT_THAT(listed(Root, searching("z")), ElementsAre("z"));
}

TEST_F(ActionsTest, NameThatTheServiceChoseIsShown) {
    struct Tidy : ScriptedActions {
        Nimra::Document rename(const Nimra::Document& document) override {
            Nimra::Document tidied = document;
            tidied.name += " (1)";
            return ScriptedActions::rename(tidied);
        }
    };
    auto tidy = std::make_unique<Tidy>();
    tidy->addDocument(20, Root, "a");
    Client other(std::move(tidy));
    other.wait(other.list(Root), Patience);
    other.wait(other.list(Root, searching("(1)")), Patience);
    const Outcome outcome = other.wait(other.rename(20, "b"), Patience);
    EXPECT_EQ(outcome.entry->name, "b (1)");
    EXPECT_EQ(other.item(20)->name(), "b (1)");
    other.setOnline(false);
    EXPECT_THAT(namesOf(other.poll(other.list(Root, searching("(1)")))), ElementsAre("b (1)"));
}

// --- Moving --------------------------------------------------------------------------------

TEST_F(ActionsTest, MovedEntryLeavesItsFolderAndShowsInTheOtherAtOnce) {
    fillRoot();
    service.hold();
    const Action action = client().move("a", "music");

    EXPECT_EQ(action.entryId(), 20U);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(listed(10), ElementsAre("a"));
    EXPECT_EQ(client().pathOf(20), "/music/a");
    EXPECT_EQ(idAt("music/a"), 20U);

    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("move 20 a from 1 to 10 by 1"));
    expectOneOutcome(action, ActionKind::Move, 20);
    EXPECT_EQ(client().poll(action).entry->folderId, 10U);
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(listed(10), ElementsAre("a"));
}

TEST_F(ActionsTest, MovedFolderTakesAlongWhatIsInIt) {
    fillRoot();
    service.addDocument(30, 10, "song");
    list(10, reloaded());
    expectDone(client().move(10, 11));
    EXPECT_EQ(client().pathOf(30), "/texts/music/song");
    EXPECT_THAT(listed(11), ElementsAre("music"));
    EXPECT_THAT(listed(10), ElementsAre("song"));
}

TEST_F(ActionsTest, MovedEntryShowsInEveryListingOfItsNewFolderThatItBelongsTo) {
    fillRoot();
    list(10, descending());
    list(10, searching("a"));
    list(10, searching("x"));
    list(10, only(ListKind::Folders));
    list(10, only(ListKind::Documents));
    service.hold();
    client().move(20, 10);
    EXPECT_THAT(held(10, descending()), ElementsAre("a"));
    EXPECT_THAT(held(10, searching("a")), ElementsAre("a"));
    EXPECT_THAT(held(10, searching("x")), IsEmpty());
    EXPECT_THAT(held(10, only(ListKind::Folders)), IsEmpty());
    EXPECT_THAT(held(10, only(ListKind::Documents)), ElementsAre("a"));
}

// --- Removing ------------------------------------------------------------------------------

TEST_F(ActionsTest, RemovedDocumentIsGoneAtOnce) {
    fillRoot();
    list(Root, descending());
    list(Root, searching("a"));
    service.hold();
    const Action action = client().remove("a");

    EXPECT_EQ(action.entryId(), 20U);
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "b"));
    EXPECT_THAT(held(Root, descending()), ElementsAre("texts", "music", "b"));
    EXPECT_THAT(held(Root, searching("a")), IsEmpty());
    EXPECT_TRUE(client().item(20));

    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("remove 20 in 1 by 1"));
    expectOneOutcome(action, ActionKind::Remove, 20);
    EXPECT_FALSE(client().poll(action).entry);
    EXPECT_FALSE(client().item(20));
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "b"));
}

TEST_F(ActionsTest, RemovedFolderTakesWhatIsHeldOfItAlong) {
    fillRoot();
    service.addDocument(30, 10, "song");
    list(10, reloaded());
    service.drop(30);
    expectDone(client().remove(10));
    EXPECT_FALSE(client().item(10));
    EXPECT_FALSE(client().item(30));
    EXPECT_EQ(list(10).error->reason(), Nimra::Reason::NotFound);
    EXPECT_THAT(listed(Root), ElementsAre("texts", "a", "b"));
}

// --- Metadata, content, sessions ------------------------------------------------------------

TEST_F(ActionsTest, MetaDataThatWereWrittenElsewhereMeanwhileStayAndAreShown) {
    fillRoot();
    service.editDocument(20, [](Nimra::Document& document) {
        document.setKeyValue("elsewhere", {"1", false});
    });
    const Action action = client().saveMetaData(20, Blue);
    EXPECT_EQ(keyValuesOf(20), Blue);
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("save 20 a in 1 by 1 length 0 type  colour=blue"));
    const Nimra::KeyValues both{{"colour", {"blue", true}}, {"elsewhere", {"1", false}}};
    EXPECT_EQ(keyValuesOf(20), both);
    EXPECT_EQ(client().poll(action).entry->keyValues, both);
}

TEST_F(ActionsTest, MetaDataShowAtOnceAndReplaceWhatWasUnderTheirKeys) {
    fillRoot();
    expectDone(client().saveMetaData(20, Blue));
    service.editDocument(20, [](Nimra::Document& document) {
        document.length = 5;
        document.mimeType = "text/plain";
    });
    list(Root, reloaded());
    service.forgetLog();
    service.hold();
    const Action action = client().saveMetaData("a", Red);
    EXPECT_EQ(keyValuesOf(20), Red);
    service.release();
    expectDone(action);
    EXPECT_THAT(service.actions(),
                ElementsAre("save 20 a in 1 by 1 length 5 type text/plain colour=red size=3"));
    expectOneOutcome(action, ActionKind::SaveMetaData, 20);
    EXPECT_EQ(client().poll(action).entry->keyValues, Red);
    EXPECT_EQ(keyValuesOf(20), Red);
}

TEST_F(ActionsTest, FolderCanBeGivenMetaData) {
    fillRoot();
    expectDone(client().saveMetaData(10, Red));
    EXPECT_THAT(service.actions(),
                ElementsAre("save 10 music in 1 by 1 length 0 type  colour=red size=3"));
}

TEST_F(ActionsTest, OpenedDocumentCanBeRead) {
    expectDone(client().createDocument(Root, "new", std::make_unique<TextSource>("content")));
    service.forgetLog();
    const Action action = client().open("new");
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("open 1000 new in 1 by 1"));
    expectOneOutcome(action, ActionKind::Open, Given);
    const Outcome outcome = client().poll(action);
    ASSERT_TRUE(outcome.stream);
    std::string text(7, '\0');
    EXPECT_EQ(outcome.stream->read(0, text.data(), 7), 7U);
    EXPECT_EQ(text, "content");
    EXPECT_EQ(outcome.entry->name, "new");
}

TEST_F(ActionsTest, SessionIsHeldUntilItIsReleased) {
    fillRoot();
    const Action action = client().openSession(20);
    expectDone(action);
    EXPECT_THAT(service.actions(), ElementsAre("session 20 in 1 by 1"));
    expectOneOutcome(action, ActionKind::OpenSession, 20);
    const Outcome outcome = client().poll(action);
    ASSERT_TRUE(outcome.session);
    EXPECT_EQ(outcome.session->documentId, 20U);
    EXPECT_EQ(outcome.session->token, "token 20");

    expectFailed(client().openSession("a"), Nimra::Reason::Refused);
    client().releaseSession(*outcome.session);
    expectDone(client().openSession("a"));
}

TEST_F(ActionsTest, UnknownSessionIsReleasedInVain) {
    fillRoot();
    client().releaseSession({Root, 20, 1, "forged"});
    expectDone(client().openSession(20));
    client().releaseSession({Root, 20, 1, "forged"});
    expectFailed(client().openSession(20), Nimra::Reason::Refused);
}

TEST_F(ActionsTest, FailuresAreToldAsTheServiceGaveThem) {
    fillRoot();
    service.failNext("open", Nimra::Reason::NoPermission);
    service.failNext("session", Nimra::Reason::NotReachable);
    const Action opened = client().open(20);
    expectFailed(opened, Nimra::Reason::NoPermission);
    EXPECT_STREQ(client().poll(opened).error->what(), "scripted failure of open");
    EXPECT_EQ(client().poll(opened).entry->name, "a");
    expectFailed(client().openSession(20), Nimra::Reason::NotReachable);
    EXPECT_EQ(outcomesOf(opened), 1U);
}

// --- Refusals ------------------------------------------------------------------------------

TEST_F(ActionsTest, WhatIsNotHeldCannotBeActedOn) {
    fillRoot();
    for (const Target& target : {Target(4711), Target("nowhere"), Target("music/nothing"),
                                 Target("a/b"), Target(Nimra::createLocalId()), Target(0UL)}) {
        expectRefusedAtOnce(client().rename(target, "x"), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().move(target, Root), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().move(20, target), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().remove(target), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().saveMetaData(target, Red), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().open(target), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().openSession(target), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().createDocument(target, "x"), Nimra::Reason::NotFound);
        expectRefusedAtOnce(client().createFolder(target, "x"), Nimra::Reason::NotFound);
    }
    EXPECT_THAT(service.log(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ActionsTest, WhatWasRemovedCannotBeActedOnEvenBeforeTheServiceHasAnswered) {
    fillRoot();
    service.hold();
    const Action removal = client().remove(20);
    const auto refused = [&] {
        for (const Target& target : {Target(20), Target("a")}) {
            expectRefusedAtOnce(client().rename(target, "x"), Nimra::Reason::NotFound);
            expectRefusedAtOnce(client().remove(target), Nimra::Reason::NotFound);
            expectRefusedAtOnce(client().open(target), Nimra::Reason::NotFound);
        }
    };
    refused();
    service.release();
    expectDone(removal);
    refused();
    EXPECT_THAT(service.actions(), SizeIs(1));
}

TEST_F(ActionsTest, NothingCanBeDoneToTheRoot) {
    fillRoot();
    for (const Target& target : {Target(Root), Target("/"), Target(""), Target("music/..")}) {
        expectRefusedAtOnce(client().rename(target, "x"), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().move(target, 10), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().remove(target), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().saveMetaData(target, Red), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().open(target), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().openSession(target), Nimra::Reason::Refused);
    }
    EXPECT_THAT(service.log(), IsEmpty());
}

TEST_F(ActionsTest, BadNamesAreRefused) {
    fillRoot();
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("/"),
          std::string("a\0b", 3), std::string(1, '\0')}) {
        expectRefusedAtOnce(client().rename(20, name), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().createDocument(Root, name), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().createFolder(Root, name), Nimra::Reason::Refused);
    }
    EXPECT_THAT(service.log(), IsEmpty());
    EXPECT_THAT(listed(Root), ElementsAre("music", "texts", "a", "b"));
}

TEST_F(ActionsTest, NamesAreBytes) {
    fillRoot();
    for (const std::string& name :
         {std::string("..."), std::string(" "), std::string("\xff\xfe"), std::string("a\nb")}) {
        expectDone(client().createDocument(Root, name));
        EXPECT_EQ(find(name).state, AnswerState::Answered);
    }
}

TEST_F(ActionsTest, RefusedContentIsDestroyed) {
    fillRoot();
    bool gone = false;
    client().createDocument(4711, "new", std::make_unique<Mortal>(gone));
    EXPECT_TRUE(gone);
}

TEST_F(ActionsTest, DocumentIsNoFolder) {
    fillRoot();
    for (const Target& target : {Target(20), Target("a")}) {
        expectRefusedAtOnce(client().createDocument(target, "x"), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().createFolder(target, "x"), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().move(21, target), Nimra::Reason::Refused);
    }
    EXPECT_THAT(service.log(), IsEmpty());
}

TEST_F(ActionsTest, FolderHasNoContentAndNoSession) {
    fillRoot();
    for (const Target& target : {Target(10), Target("music")}) {
        expectRefusedAtOnce(client().open(target), Nimra::Reason::Refused);
        expectRefusedAtOnce(client().openSession(target), Nimra::Reason::Refused);
    }
    EXPECT_THAT(service.log(), IsEmpty());
}

TEST_F(ActionsTest, NothingIsMovedIntoItselfOrToWhereItIs) {
    service.addFolder(10, Root, "a");
    service.addFolder(11, 10, "b");
    service.addFolder(12, 11, "c");
    for (const unsigned long id : {Root, 10UL, 11UL}) {
        list(id);
    }
    service.forgetLog();
    expectRefusedAtOnce(client().move(10, 10), Nimra::Reason::Refused);
    expectRefusedAtOnce(client().move("a", "a/b"), Nimra::Reason::Refused);
    expectRefusedAtOnce(client().move(10, 12), Nimra::Reason::Refused);
    expectRefusedAtOnce(client().move(11, 10), Nimra::Reason::Refused);
    expectRefusedAtOnce(client().move("a", "/"), Nimra::Reason::Refused);
    EXPECT_THAT(service.log(), IsEmpty());
    expectDone(client().move(12, 10));
}

TEST_F(ActionsTest, PathIsLookedUpInWhicheverListingIsHeld) {
    service.addFolder(10, Root, "music");
    service.addDocument(20, 10, "a");
    list(Root, descending());
    list(10, only(ListKind::Documents));
    expectDone(client().rename("music/a", "b"));
    EXPECT_EQ(client().pathOf(20), "/music/b");
}

TEST_F(ActionsTest, PathOfARefusedActionIsNamed) {
    fillRoot();
    EXPECT_THAT(client().poll(client().remove("music/deep/x")).error->what(), HasSubstr("deep"));
}

TEST_F(ActionsTest, EveryActionHasAnOperationIdOfItsOwn) {
    fillRoot();
    service.hold();
    const std::vector<Action> all = {
        client().createDocument(Root, "new"),
        client().createFolder(Root, "folder"),
        client().rename(20, "c"),
        client().move(21, 10),
        client().saveMetaData(20, Red),
        client().open(20),
        client().openSession(20),
        client().remove(11),
    };
    std::set<unsigned long> ids;
    for (const Action& action : all) {
        ids.insert(action.operationId());
        EXPECT_TRUE(isPending(action));
    }
    EXPECT_THAT(ids, SizeIs(all.size()));
    EXPECT_EQ(ids.count(0), 0U);
    service.release();
    settle();
    for (const Action& action : all) {
        EXPECT_EQ(client().poll(action).state, ActionState::Done);
        EXPECT_EQ(outcomesOf(action), 1U);
    }
    EXPECT_THAT(told<Outcome>(), SizeIs(all.size()));
    EXPECT_THAT(service.actions(), SizeIs(all.size()));
}

TEST_F(ActionsTest, ActionThatWasLetGoIsDoneAllTheSame) {
    fillRoot();
    (void)client().rename(20, "z");
    settle();
    EXPECT_THAT(service.namesIn(Root), ElementsAre("music", "texts", "b", "z"));
    EXPECT_THAT(told<Outcome>(), SizeIs(1));
}

TEST_F(ActionsTest, NoActionHasFailed) {
    EXPECT_EQ(client().poll(Action()).state, ActionState::Failed);
    EXPECT_EQ(client().wait(Action(), Patience).error->reason(), Nimra::Reason::Refused);
}

TEST_F(ActionsTest, WaitingForAnOutcomeStopsAtTheTimeLimit) {
    fillRoot();
    service.hold();
    const Action action = client().rename(20, "z");
    EXPECT_EQ(client().wait(action, std::chrono::milliseconds(10)).state, ActionState::Pending);
    EXPECT_FALSE(client().waitUntilIdle(std::chrono::milliseconds(10)));
    service.release();
    expectDone(action);
    EXPECT_TRUE(client().waitUntilIdle(Patience));
}

TEST_F(ActionsTest, ActionsCarryTheUserOfTheClient) {
    auto own = std::make_unique<ScriptedActions>();
    own->addDocument(20, Root, "a");
    const ScriptedActions& asked = *own;
    Client other(std::move(own), 42);
    other.wait(other.list(Root), Patience);
    other.rename(20, "b");
    other.openSession(20);
    other.createFolder(Root, "c");
    EXPECT_TRUE(other.waitUntilIdle(Patience));
    EXPECT_THAT(asked.actions(), ElementsAre("rename 20 in 1 to b by 42", "session 20 in 1 by 42",
                                             "makeFolder c in 1 by 42"));
}

TEST_F(ActionsTest, CancelledActionIsNotSentAndFails) {
    fillRoot();
    service.hold();
    const Action running = client().rename(21, "c");
    awaitLog(1);
    const Action queued = client().rename(20, "z");
    EXPECT_FALSE(client().cancel(running.operationId()));
    EXPECT_TRUE(client().cancel(queued.operationId()));
    expectFailed(queued, Nimra::Reason::Refused);
    EXPECT_FALSE(client().cancel(queued.operationId()));
    EXPECT_FALSE(client().cancel(0));
    EXPECT_FALSE(client().cancel(987654321));
    EXPECT_THAT(held(Root), ElementsAre("music", "texts", "a", "c"));
    service.release();
    expectDone(running);
    EXPECT_THAT(service.actions(), ElementsAre("rename 21 in 1 to c by 1"));
    EXPECT_EQ(outcomesOf(queued), 1U);
}

TEST_F(ActionsTest, LoadIsNoActionThatCanBeCancelled) {
    service.hold();
    const Query running = client().list(Root);
    awaitLog(1);
    const Query queued = client().list(Root, descending());
    for (unsigned long id = 1; id < 2000; ++id) {
        EXPECT_FALSE(client().cancel(id));
    }
    service.release();
    EXPECT_EQ(client().wait(queued, Patience).state, AnswerState::Answered);
}

}  // namespace
}  // namespace Ormek::Testing
