// Changes made elsewhere that are told while an older page, or look-up, is on its way.

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Document;
using Nimra::Folder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class FeedAheadTest : public ActingTest {
  protected:
    /// The root holds the folders 10 "A" and 11 "B" and the document 20 "x"; 10 holds 30 "y".
    void fillRoot() {
        service.addFolder(10, Root, "A");
        service.addFolder(11, Root, "B");
        addDocuments(20, {"x"});
        addDocuments(30, {"y"}, 10);
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            list(folderId);
        }
        service.forgetLog();
        events.clear();
    }
    /// A query that the service has answered with how things are now, which nobody has seen yet.
    template <class Ask>
    Query answered(Ask ask) {
        client().collect();
        const Query query = ask();
        awaitAnswer();
        return query;
    }
    Answer take(const Query& query) { return client().wait(query, Patience); }
    Query reload(unsigned long folderId) {
        return answered([&] { return client().list(folderId, reloaded()); });
    }
    void moveElsewhere(unsigned long id, unsigned long folderId) {
        service.editDocument(id, [&](Document& document) { document.parentId = folderId; });
        client().onRemoteChange(Document(id, folderId, 1, service.namesIn(folderId).back()));
    }
    void expectServersPicture() {
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

// --- Pages -----------------------------------------------------------------------------------

TEST_F(FeedAheadTest, EntryThatCameAfterThePageStays) {
    fillRoot();
    const Query query = reload(Root);
    service.addDocument(40, Root, "new");
    client().onRemoteChange(Document(40, Root, 1, "new"));
    EXPECT_THAT(namesOf(take(query)), ElementsAre("A", "B", "x", "new"));
    EXPECT_TRUE(client().item(40));
    EXPECT_THAT(told<EntryAdded>(), SizeIs(1));
    EXPECT_THAT(told<EntryRemoved>(), IsEmpty());
    EXPECT_THAT(held(Root), ElementsAre("A", "B", "x", "new"));
    expectServersPicture();
}

TEST_F(FeedAheadTest, FolderThatCameAfterThePageKeepsWhatIsInIt) {
    fillRoot();
    service.addFolder(12, 10, "deep");
    addDocuments(31, {"z"}, 12);
    list(10, reloaded());
    list(12);
    const Query query = reload(Root);
    service.editFolder(12, [](Folder& folder) { folder.parentId = Root; });
    client().onRemoteChange(Folder(12, Root, 1, "deep"));
    take(query);
    EXPECT_EQ(client().pathOf(31), "/deep/z");
    EXPECT_THAT(held(12), ElementsAre("z"));
    expectServersPicture();
}

TEST_F(FeedAheadTest, EntryThatLeftAfterThePageStaysWhereItIs) {
    fillRoot();
    const Query query = reload(10);
    moveElsewhere(30, 11);
    EXPECT_THAT(namesOf(take(query)), IsEmpty());
    EXPECT_EQ(client().pathOf(30), "/B/y");
    EXPECT_THAT(held(11), ElementsAre("y"));
    EXPECT_EQ(list(10).source, AnswerSource::Load);
    expectServersPicture();
}

TEST_F(FeedAheadTest, UnknownEntryThatLeftAfterThePageStaysWhereItIs) {
    fillRoot();
    addDocuments(40, {"unseen"}, 10);
    const Query query = reload(10);
    moveElsewhere(40, 11);
    EXPECT_THAT(namesOf(take(query)), ElementsAre("y"));
    EXPECT_EQ(client().pathOf(40), "/B/unseen");
    EXPECT_EQ(list(10).source, AnswerSource::Load);
    expectServersPicture();
}

TEST_F(FeedAheadTest, EntryThatWasRemovedAfterThePageDoesNotComeBack) {
    fillRoot();
    addDocuments(40, {"unseen"}, 10);
    const Query query = reload(10);
    for (const unsigned long id : {30UL, 40UL}) {
        service.drop(id);
        client().onRemoteRemoval(id);
    }
    EXPECT_THAT(namesOf(take(query)), IsEmpty());
    EXPECT_FALSE(client().item(30));
    EXPECT_FALSE(client().item(40));
    EXPECT_THAT(told<EntryRemoved>(), SizeIs(1));
    EXPECT_THAT(told<EntryAdded>(), IsEmpty());
    expectServersPicture();
}

TEST_F(FeedAheadTest, NewerNameAndMetaDataAreKept) {
    fillRoot();
    const Query query = reload(Root);
    const Nimra::KeyValues blue{{"colour", {"blue", true}}};
    Document record(20, Root, 1, "newer");
    record.length = 7;
    record._keyValues = blue;
    service.editDocument(20, [&](Document& document) { document = record; });
    client().onRemoteChange(record);
    EXPECT_THAT(namesOf(take(query)), ElementsAre("A", "B", "newer"));
    EXPECT_EQ(keyValuesOf(20), blue);
    EXPECT_EQ(dynamic_cast<const Object&>(*client().item(20)).length(), 7U);
    EXPECT_THAT(told<EntryChanged>(), SizeIs(1));
    expectServersPicture();
}

TEST_F(FeedAheadTest, NewerNameIsKeptUnderAnActionToo) {
    fillRoot();
    service.failNext("save", Nimra::Reason::NoPermission);
    const Query query = reload(Root);
    service.hold();
    const Action saved = client().saveMetaData(20, {{"colour", {"red", true}}});
    Document record(20, Root, 1, "newer");
    service.editDocument(20, [&](Document& document) { document = record; });
    client().onRemoteChange(record);
    EXPECT_THAT(namesOf(take(query)), ElementsAre("A", "B", "newer"));
    service.release();
    expectFailed(saved, Nimra::Reason::NoPermission);
    EXPECT_EQ(client().item(20)->name(), "newer");
    EXPECT_THAT(keyValuesOf(20), IsEmpty());
    expectServersPicture();
}

TEST_F(FeedAheadTest, FolderThatIsADocumentSinceThePageIsShownAsOne) {
    fillRoot();
    const Query query = reload(Root);
    service.drop(11);
    service.addDocument(11, Root, "B");
    client().onRemoteChange(Document(11, Root, 1, "B"));
    take(query);
    EXPECT_TRUE(std::dynamic_pointer_cast<Object>(client().item(11)));
    EXPECT_EQ(listed(Root), service.namesIn(Root));
}

TEST_F(FeedAheadTest, PagesThatAreAskedForLaterAreBelievedAgain) {
    fillRoot();
    client().onRemoteRemoval(30);
    const Query query = reload(10);
    EXPECT_THAT(namesOf(take(query)), ElementsAre("y"));
    EXPECT_EQ(list(10).source, AnswerSource::Memory);
    EXPECT_TRUE(client().item(30));
}

// --- Queries that come after a change ----------------------------------------------------------

TEST_F(FeedAheadTest, QueryAfterADoubtDoesNotJoinALoadFromBeforeIt) {
    fillRoot();
    client().onRemoteDoubt(Root);
    const Query before = answered([&] { return client().list(Root); });
    service.addDocument(40, Root, "new");
    client().onRemoteDoubt(Root);
    const Query after = client().list(Root);
    const Query joining = client().list(Root);
    EXPECT_THAT(namesOf(take(before)), ElementsAre("A", "B", "x"));
    EXPECT_THAT(namesOf(take(after)), ElementsAre("A", "B", "new", "x"));
    EXPECT_EQ(take(joining).source, AnswerSource::JoinedLoad);
    EXPECT_EQ(list(Root).source, AnswerSource::Memory);
}

TEST_F(FeedAheadTest, QueryForTagsAfterADoubtDoesNotJoinALoadFromBeforeIt) {
    fillRoot();
    const Query before = answered([&] { return client().tags(Root); });
    service.addTag(50, Root, "artist", "x");
    client().onRemoteDoubt(Root);
    const Query after = client().tags(Root);
    EXPECT_THAT(take(before).entries, IsEmpty());
    EXPECT_THAT(take(after).entries, SizeIs(1));
}

TEST_F(FeedAheadTest, TagsThatShowWhatWasRemovedSinceAreLoadedAgainEvenIfTheEntryIsNotHeld) {
    fillRoot();
    service.addTag(50, Root, "artist", "x");
    const Query before = answered([&] { return client().tags(Root); });
    service.drop(50);
    client().onRemoteRemoval(50);
    EXPECT_THAT(take(before).entries, SizeIs(1));
    const Answer after = take(client().tags(Root));
    EXPECT_EQ(after.source, AnswerSource::Load);
    EXPECT_THAT(after.entries, IsEmpty());
}

// --- Look-ups --------------------------------------------------------------------------------

TEST_F(FeedAheadTest, EntryThatLeftAfterTheLookUpStaysWhereItIs) {
    fillRoot();
    addDocuments(40, {"unseen"}, 10);
    const Query query = answered([&] { return client().find("A/unseen"); });
    moveElsewhere(40, 11);
    EXPECT_EQ(take(query).state, AnswerState::Failed);
    EXPECT_EQ(client().pathOf(40), "/B/unseen");
    expectServersPicture();
}

TEST_F(FeedAheadTest, KnownEntryThatLeftAfterTheLookUpStaysWhereItIs) {
    fillRoot();
    const Query query = answered([&] { return client().find("A/y", Freshness::Reload); });
    moveElsewhere(30, 11);
    EXPECT_EQ(take(query).state, AnswerState::Failed);
    EXPECT_EQ(client().pathOf(30), "/B/y");
    expectServersPicture();
}

TEST_F(FeedAheadTest, EntryThatCameAfterTheLookUpIsFound) {
    fillRoot();
    const Query query = answered([&] { return client().find("A/new"); });
    service.addDocument(40, 10, "new");
    client().onRemoteChange(Document(40, 10, 1, "new"));
    const Answer answer = take(query);
    ASSERT_EQ(answer.state, AnswerState::Answered);
    EXPECT_EQ(answer.entries.front()->id(), 40U);
    EXPECT_TRUE(client().item(40));
    expectServersPicture();
}

// --- A feed that never rests -------------------------------------------------------------------

TEST_F(FeedAheadTest, ChangesThatDoNotConcernALookUpDoNotHoldItUp) {
    fillRoot();
    addDocuments(40, {"unseen"}, 10);
    const Query query = answered([&] { return client().find("A/unseen"); });
    client().onRemoteRemoval(4711);
    client().onRemoteChange(Document(4712, 4713, 1, "elsewhere"));
    client().onRemoteChange(Document(30, 10, 1, "yy"));
    EXPECT_EQ(client().poll(query).state, AnswerState::Answered);
    EXPECT_THAT(service.log(), ElementsAre("load 10/unseen"));
}

TEST_F(FeedAheadTest, EntryThatNeverRestsIsFoundAllTheSame) {
    addDocuments(20, {"busy"});
    const Query query = answered([&] { return client().find("busy"); });
    client().onRemoteChange(Document(20, Root, 1, "busy"));
    EXPECT_EQ(client().poll(query).state, AnswerState::Answered);
}

TEST_F(FeedAheadTest, ChangesThatDoNotConcernAPageLeaveItCurrent) {
    fillRoot();
    const Query query = reload(Root);
    client().onRemoteRemoval(4711);
    client().onRemoteChange(Document(4712, 4713, 1, "elsewhere"));
    client().onRemoteChange(Document(30, 10, 1, "yy"));
    EXPECT_EQ(take(query).state, AnswerState::Answered);
    EXPECT_EQ(list(Root).source, AnswerSource::Memory);
}

}  // namespace
}  // namespace Ormek::Testing
