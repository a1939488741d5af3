// Listings of tags, after what changes them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/Client.h"
#include "model/Object.h"
#include "tests/client/session/MemoryService.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Nimra::KeyValues One{{"k", {"1", false}}};
const Nimra::KeyValues Two{{"k", {"2", false}}};

/// Keeps the trace quiet, from before the client is made until it is gone.
struct Silence {
    Silence() { std::cout.setstate(std::ios::failbit); }
    ~Silence() { std::cout.clear(); }
};

/// A client on a tree: the root holds the folders "box" and "crate" and the document "a" with one
/// key value.
class TagsTest : private Silence, public ::testing::Test {
  protected:
    static constexpr unsigned long Root = MemoryTree::RootId;
    static constexpr std::chrono::seconds Patience{20};

    Answer tags(unsigned long folderId, const ListOptions& options = {}) {
        return client.wait(client.tags(folderId, options), Patience);
    }
    /// What an answer shows, in a line each.
    static std::vector<std::string> linesOf(const Answer& answer) {
        std::vector<std::string> lines;
        for (const auto& tag : answer.entries) {
            lines.push_back(tag->name());
            for (const auto& [key, value] : dynamic_cast<const Object&>(*tag).keyValues()) {
                lines.back() += ' ' + key + '=' + value.first;
            }
        }
        return lines;
    }
    std::vector<std::string> linesOf(unsigned long folderId) { return linesOf(tags(folderId)); }
    /// The tags of all folders are held and current from now on.
    void hold() {
        for (const unsigned long folderId : {Root, box, crate}) {
            client.wait(client.list(folderId), Patience);
            tags(folderId);
            ASSERT_EQ(tags(folderId).source, AnswerSource::Memory);
        }
    }
    void expectDone(const Action& action) {
        EXPECT_EQ(client.wait(action, Patience).state, ActionState::Done);
    }

    MemoryTree tree;
    const unsigned long box = tree.make({0, Root, "box", true, "", {}, 0}).id;
    const unsigned long crate = tree.make({0, Root, "crate", true, "", {}, 0}).id;
    const unsigned long a = tree.make({0, Root, "a", false, "", One, 0}).id;
    Client client{std::make_unique<MemoryService>(tree)};
};

// --- The user's actions --------------------------------------------------------------------

TEST_F(TagsTest, ShowKeyValuesThatWereSavedSince) {
    hold();
    expectDone(client.saveMetaData(a, Two));
    expectDone(client.saveMetaData(box, One));
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=2", "box k=1"));
    EXPECT_EQ(tags(Root).source, AnswerSource::Memory);
}

TEST_F(TagsTest, ShowTheNameThatAnEntryWasGivenSince) {
    hold();
    expectDone(client.rename(a, "z"));
    EXPECT_THAT(linesOf(Root), ElementsAre("z k=1"));
}

TEST_F(TagsTest, ShowADocumentWhereItWasMovedSince) {
    hold();
    expectDone(client.move(a, box));
    EXPECT_THAT(linesOf(Root), IsEmpty());
    EXPECT_THAT(linesOf(box), ElementsAre("a k=1"));
    EXPECT_EQ(tags(crate).source, AnswerSource::Memory);
}

TEST_F(TagsTest, NoLongerShowADocumentThatWasRemovedSince) {
    hold();
    expectDone(client.remove(a));
    EXPECT_THAT(linesOf(Root), IsEmpty());
}

TEST_F(TagsTest, ShowADocumentThatWasMadeWithKeyValuesSince) {
    hold();
    expectDone(client.createDocument(box, "new", nullptr, Two));
    EXPECT_THAT(linesOf(box), ElementsAre("new k=2"));
}

TEST_F(TagsTest, AskedForBehindAnActionShowIt) {
    hold();
    client.saveMetaData(a, Two);
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=2"));
}

TEST_F(TagsTest, AskedForBehindAnActionDoNotComeFromALoadThatWasAskedForBeforeIt) {
    hold();
    ListOptions anew;
    anew.freshness = Freshness::Reload;
    const Query before = client.tags(Root, anew);
    const Action action = client.saveMetaData(a, Two);
    const Query after = client.tags(Root);
    EXPECT_THAT(linesOf(client.wait(after, Patience)), ElementsAre("a k=2"));
    EXPECT_EQ(client.poll(before).state, AnswerState::Answered);
    expectDone(action);
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=2"));
}

TEST_F(TagsTest, ThatWereLoadedWhileAnActionWaitedAreLoadedAgainWhenItIsDone) {
    hold();
    const Action made = client.createFolder(Root, "new");
    const Action moved = client.move(a, made.entryId());
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=1"));
    expectDone(moved);
    EXPECT_THAT(linesOf(Root), IsEmpty());
}

TEST_F(TagsTest, AreShownAsHeldWhileTheServiceIsOff) {
    hold();
    expectDone(client.saveMetaData(a, Two));
    client.setOnline(false);
    const Answer held = tags(Root);
    EXPECT_EQ(held.state, AnswerState::Answered);
    EXPECT_THAT(linesOf(held), ElementsAre("a k=1"));
    client.setOnline(true);
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=2"));
}

// --- Changes made elsewhere ----------------------------------------------------------------

TEST_F(TagsTest, ShowWhatWasChangedElsewhere) {
    hold();
    tree.setKeyValues(a, Two);
    client.onRemoteChange(MemoryService::documentOf(tree.at(a)));
    EXPECT_THAT(linesOf(Root), ElementsAre("a k=2"));
}

TEST_F(TagsTest, NoLongerShowWhatWasRemovedElsewhere) {
    hold();
    tree.remove(a);
    client.onRemoteRemoval(a);
    EXPECT_THAT(linesOf(Root), IsEmpty());
}

TEST_F(TagsTest, ShowADocumentThatIsNotHeldItselfWhereItWasMovedElsewhere) {
    client.wait(client.find("box"), Patience);
    tags(Root);
    tags(box);
    ASSERT_FALSE(client.item(a));
    tree.relocate(a, box, "a");
    client.onRemoteChange(MemoryService::documentOf(tree.at(a)));
    EXPECT_THAT(linesOf(Root), IsEmpty());
    EXPECT_THAT(linesOf(box), ElementsAre("a k=1"));
}

TEST_F(TagsTest, NoLongerShowADocumentThatIsNotHeldItselfOnceItWasRemovedElsewhere) {
    tags(Root);
    ASSERT_FALSE(client.item(a));
    tree.remove(a);
    client.onRemoteRemoval(a);
    EXPECT_THAT(linesOf(Root), IsEmpty());
}

}  // namespace
}  // namespace Ormek::Testing
