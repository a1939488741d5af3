#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "backend/Worker.h"
#include "client/Client.h"
#include "tests/client/session/Contents.h"
#include "tests/client/session/MemoryService.h"
#include "tests/client/session/SupervisedService.h"
#include "tests/client/session/Supervisor.h"

namespace Ormek {
namespace {

using namespace std::chrono_literals;
using Nimra::Reason;
using Testing::Call;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Testing::MemoryService;
using Testing::MemoryTree;
using Testing::SupervisedService;
using Testing::Supervisor;

constexpr unsigned long Root = MemoryTree::RootId;

/// What random sessions have found wrong, each in as few steps as it takes. The service holds its
/// calls until a test lets them pass.
class RegressionsTest : public ::testing::Test {
  protected:
    RegressionsTest() {
        std::cout.setstate(std::ios::failbit);
        supervisor.close();
        client().subscribe([this](const Event& event) { events.push_back(event); });
    }
    ~RegressionsTest() override {
        supervisor.open();
        std::cout.clear();
    }

    Client& client() { return _client; }

    /// Lets the service do all that it is to do, and the client take it in.
    void settle() {
        supervisor.open();
        EXPECT_TRUE(client().waitUntilIdle(10s));
        supervisor.close();
    }
    /// The same with what it is working on alone.
    void serveOne() {
        serveOneUncollected();
        client().collect();
    }
    void serveOneUncollected() {
        const unsigned long seen = worker().finishedCount();
        supervisor.letPassOne();
        EXPECT_TRUE(worker().waitForFinished(seen, std::chrono::steady_clock::now() + 10s));
    }
    void failNext(Call call, Reason reason) { supervisor.failNext(call, {reason, "no"}); }

    unsigned long addFolder(unsigned long folderId, const std::string& name) {
        return tree.make({0, folderId, name, true, "", {}, 0}).id;
    }
    unsigned long addDocument(unsigned long folderId, const std::string& name) {
        return tree.make({0, folderId, name, false, "", {}, 0}).id;
    }

    Answer list(unsigned long folderId, const ListOptions& options = {}) {
        const Query query = client().list(folderId, options);
        if (client().poll(query).state == AnswerState::Pending) {
            settle();
        }
        return client().poll(query);
    }
    std::vector<std::string> names(unsigned long folderId, const ListOptions& options = {}) {
        std::vector<std::string> all;
        for (const auto& entry : list(folderId, options).entries) {
            all.push_back(entry->name());
        }
        return all;
    }

    template <class Kind>
    std::vector<Kind> told() const {
        std::vector<Kind> all;
        for (const Event& event : events) {
            if (const auto* one = std::get_if<Kind>(&event)) {
                all.push_back(*one);
            }
        }
        return all;
    }
    template <class Kind>
    std::vector<unsigned long> toldOf() const {
        std::vector<unsigned long> ids;
        for (const Kind& one : told<Kind>()) {
            ids.push_back(one.id);
        }
        return ids;
    }

    MemoryTree tree;
    Testing::Contents contents;
    Supervisor supervisor;
    std::vector<Event> events;

  private:
    static Nimra::Worker& worker() {
        return dynamic_cast<Nimra::Worker&>(*Nimra::OperationHandler::getHandler("Requests"));
    }

    Client _client{std::make_unique<SupervisedService>(std::make_unique<MemoryService>(tree),
                                                       supervisor, contents)};
};

// --- Creations that are known before their answer comes ----------------------------------------

TEST_F(RegressionsTest, CreationThatThePageWasFasterThanIsStillBeingRemoved) {
    const unsigned long localId = client().createDocument(Root, "a").entryId();
    serveOneUncollected();
    client().remove(localId);
    const unsigned long id = tree.children(Root).front().id;
    client().onRemoteChange(MemoryService::documentOf(tree.at(id)));
    client().collect();

    EXPECT_THAT(toldOf<EntryRemoved>(), ElementsAre(localId, id));
    client().setOnline(false);
    EXPECT_THAT(list(Root).entries, IsEmpty());
    client().setOnline(true);
    settle();
    EXPECT_EQ(client().item(id), nullptr);
}

TEST_F(RegressionsTest, ActionsOnACreationUnderEitherIdAreKept) {
    const unsigned long localId = client().createDocument(Root, "a").entryId();
    serveOneUncollected();
    const unsigned long id = tree.children(Root).front().id;
    client().onRemoteChange(MemoryService::documentOf(tree.at(id)));
    client().saveMetaData(id, {{"key", {"value", false}}});
    client().rename(localId, "b");
    client().collect();

    EXPECT_EQ(client().item(id)->name(), "b");
    EXPECT_EQ(client().pathOf(localId), "/b");
    settle();
    EXPECT_EQ(tree.at(id).name, "b");
    EXPECT_EQ(tree.at(id).keyValues.size(), 1U);
    EXPECT_THAT(names(Root), ElementsAre("b"));
}

TEST_F(RegressionsTest, CreationIsToldToBeGoneWhenItIsBeingRemovedUnderTheIdThatWasFaster) {
    const unsigned long localId = client().createDocument(Root, "a").entryId();
    serveOneUncollected();
    const unsigned long id = tree.children(Root).front().id;
    client().onRemoteChange(MemoryService::documentOf(tree.at(id)));
    client().remove(id);
    ASSERT_THAT(toldOf<EntryRemoved>(), ElementsAre(id));
    client().collect();

    EXPECT_THAT(toldOf<EntryRemoved>(), ElementsAre(id, id));
    EXPECT_EQ(told<EntryIdChanged>().front().oldId, localId);
    EXPECT_FALSE(told<Outcome>().front().entry.has_value());
}

// Nobody can know that the two are one.
TEST_F(RegressionsTest, FolderThatIsBeingMovedIntoItselfUnderItsLocalIdComesBack) {
    const unsigned long localId = client().createFolder(Root, "a").entryId();
    serveOneUncollected();
    const unsigned long id = tree.children(Root).front().id;
    client().onRemoteChange(MemoryService::folderOf(tree.at(id)));
    const Action move = client().move(id, localId);
    ASSERT_NE(move.operationId(), 0U);
    client().collect();
    for (const EntryChanged& changed : told<EntryChanged>()) {
        EXPECT_TRUE(changed.was.folderId == Root || changed.was.folderId == id);
    }
    settle();

    EXPECT_EQ(client().poll(move).state, ActionState::Failed);
    EXPECT_THAT(names(Root), ElementsAre("a"));
    EXPECT_EQ(client().pathOf(localId), "/a");
}

// --- What is shown -----------------------------------------------------------------------------

TEST_F(RegressionsTest, ListingOpenedInAWaitingFolderShowsNothingThatIsBeingRemoved) {
    const unsigned long folderId = client().createFolder(Root, "new").entryId();
    client().remove(client().createFolder(folderId, "a").entryId());

    EXPECT_THAT(names(folderId), IsEmpty());
}

TEST_F(RegressionsTest, EntryThatIsBeingMovedIntoAFolderStaysInItsListingWhenAPageComes) {
    const unsigned long folderId = addFolder(Root, "folder");
    const unsigned long id = addDocument(folderId, "a");
    addDocument(Root, "b");
    list(Root);
    list(folderId);
    client().onRemoteDoubt(Root);
    ListOptions second;
    second.offset = 1;
    second.count = 1;
    const Query query = client().list(Root, second);
    client().move(id, Root);
    serveOne();

    EXPECT_EQ(client().poll(query).state, AnswerState::Answered);
    client().setOnline(false);
    EXPECT_THAT(names(Root), ElementsAre("folder", "b", "a"));
    client().setOnline(true);
}

TEST_F(RegressionsTest, EntryComesBackIntoAListingThatWasOpenedWhileItWasMovedAway) {
    const unsigned long folderId = client().createFolder(Root, "new").entryId();
    const unsigned long id = client().createFolder(folderId, "a").entryId();
    const Action move = client().move(id, Root);
    EXPECT_THAT(names(folderId), IsEmpty());
    client().cancel(move.operationId());

    EXPECT_THAT(names(folderId), ElementsAre("a"));
}

// --- Changes made elsewhere --------------------------------------------------------------------

TEST_F(RegressionsTest, EntryThatIsBeingMovedOutOfAFolderThatIsGoneIsGoneWithIt) {
    const unsigned long folderId = addFolder(Root, "folder");
    const unsigned long id = addDocument(folderId, "a");
    list(Root);
    list(folderId);
    client().move(id, Root);
    tree.remove(folderId);
    client().onRemoteRemoval(folderId);
    settle();

    EXPECT_EQ(client().item(id), nullptr);
    EXPECT_EQ(client().statistics().entries, 1U);
}

TEST_F(RegressionsTest, EntryThatHasGoneIsForgottenThoughItsPageWasNeverLoadedBefore) {
    const unsigned long id = addDocument(Root, "a");
    ListOptions first;
    first.count = 1;
    list(Root, first);
    tree.remove(id);
    ListOptions all;
    all.freshness = Freshness::Reload;
    list(Root, all);

    EXPECT_EQ(client().item(id), nullptr);
    EXPECT_THAT(toldOf<EntryRemoved>(), ElementsAre(id));
}

TEST_F(RegressionsTest, EntryThatOnlyALookUpHasBroughtIsForgottenOnceTheListingIsKnownWithoutIt) {
    const unsigned long id = addDocument(Root, "a");
    client().find("a");
    settle();
    ASSERT_NE(client().item(id), nullptr);
    tree.remove(id);
    list(Root);

    EXPECT_EQ(client().item(id), nullptr);
}

TEST_F(RegressionsTest, EntryThatAPageBringsUnderAnotherNameIsInTheSearchesForThatName) {
    const unsigned long id = addDocument(Root, "ab");
    ListOptions forA;
    forA.search = "a";
    ListOptions forC;
    forC.search = "c";
    list(Root, forA);
    list(Root, forC);
    tree.relocate(id, Root, "bc");
    list(Root);
    client().setOnline(false);

    EXPECT_THAT(names(Root, forA), IsEmpty());
    EXPECT_THAT(names(Root, forC), ElementsAre("bc"));
}

TEST_F(RegressionsTest,
       EntryMadeUnderTheNameOfARemovedOneStaysInAllListingsWhenThatOneIsDelivered) {
    const unsigned long id = addDocument(Root, "a");
    addDocument(Root, "b");
    list(Root);
    ListOptions documents;
    documents.kind = ListKind::Documents;
    client().list(Root, documents);
    client().remove(id);
    const Action made = client().createDocument(Root, "a");
    serveOne();
    client().setOnline(false);

    EXPECT_THAT(names(Root), ElementsAre("b", "a"));
    EXPECT_THAT(names(Root, documents), ElementsAre("b", "a"));
    EXPECT_NE(client().item(made.entryId()), nullptr);
}

TEST_F(RegressionsTest, EntryThatIsBeingRemovedIsInNoSearchWhenItIsToldToHaveAnotherName) {
    const unsigned long id = addDocument(Root, "ab");
    ListOptions forC;
    forC.search = "c";
    list(Root);
    list(Root, forC);
    client().remove(id);
    client().onRemoteChange(Nimra::Document(id, Root, 1, "bc"));
    client().setOnline(false);

    EXPECT_THAT(names(Root, forC), IsEmpty());
}

TEST_F(RegressionsTest, EntryThatWaitsReturnsIntoAListingThatCameWhileItWasRemoved) {
    const Action folder = client().createFolder(Root, "x");
    client().rename(folder.entryId(), "y");
    const Action made = client().createDocument(Root, "a");
    client().rename(made.entryId(), "b");
    client().list(Root);
    const Action removal = client().remove(made.entryId());
    serveOne();
    serveOne();
    ASSERT_TRUE(client().cancel(removal.operationId()));
    client().setOnline(false);

    EXPECT_THAT(names(Root), ElementsAre("y", "b"));
}

TEST_F(RegressionsTest, ListingThatLacksWhatALookUpHasBroughtIsLoadedAgain) {
    addDocument(Root, "a");
    list(Root);
    addDocument(Root, "b");
    client().find("b");
    settle();

    EXPECT_THAT(names(Root), ElementsAre("a", "b"));
}

TEST_F(RegressionsTest, EntryOfALatePageIsForgottenOnceTheListingIsKnownWithoutIt) {
    addFolder(Root, "folder");
    const unsigned long id = addDocument(Root, "a");
    ListOptions documents;
    documents.kind = ListKind::Documents;
    documents.count = 1;
    client().list(Root, documents);
    serveOne();
    tree.remove(id);
    ASSERT_NE(client().item(id), nullptr);
    ListOptions first;
    first.count = 1;
    list(Root, first);

    EXPECT_EQ(client().item(id), nullptr);
}

TEST_F(RegressionsTest, EntryWhoseNameAnotherOneHasNowIsForgottenOnceTheListingIsKnownWithoutIt) {
    const unsigned long id = addFolder(Root, "a");
    addFolder(Root, "b");
    list(Root);
    tree.remove(id);
    addDocument(Root, "a");
    ListOptions documents;
    documents.kind = ListKind::Documents;
    list(Root, documents);
    documents.freshness = Freshness::Reload;
    list(Root, documents);
    ListOptions all;
    all.freshness = Freshness::Reload;
    list(Root, all);

    EXPECT_EQ(client().item(id), nullptr);
    EXPECT_THAT(toldOf<EntryRemoved>(), ElementsAre(id));
}

// --- Sessions ----------------------------------------------------------------------------------

TEST_F(RegressionsTest, SessionThatEndedWithItsDocumentIsReleasedWithoutAWord) {
    const unsigned long id = addDocument(Root, "a");
    list(Root);
    const Action opening = client().openSession(id);
    client().remove(id);
    settle();

    EXPECT_NO_THROW(client().releaseSession(*client().poll(opening).session));
}

}  // namespace
}  // namespace Ormek
