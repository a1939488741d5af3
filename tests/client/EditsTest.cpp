#include "client/Edits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

using State = Edits::State;

constexpr unsigned long Entry = 20;
constexpr unsigned long Folder = 1;
constexpr unsigned long OtherFolder = 10;
const Nimra::KeyValues Blue{{"colour", {"blue", true}}};
const State Served{Folder, "a", {}};

class EditsTest : public ::testing::Test {
  protected:
    void begin(unsigned long operationId, ActionKind kind, const State& to = {},
               unsigned long entry = Entry, const std::optional<State>& served = Served) {
        edits.begin(entry, served, {0, kind, to});
        edits.number(entry, operationId);
    }
    void rename(unsigned long operationId, const std::string& name) {
        begin(operationId, ActionKind::Rename, {0, name, {}});
    }
    void move(unsigned long operationId, unsigned long folderId) {
        begin(operationId, ActionKind::Move, {folderId, {}, {}});
    }

    Edits edits;
};

TEST_F(EditsTest, EntryWithoutStepsIsNotKnown) {
    EXPECT_FALSE(edits.has(Entry));
    EXPECT_FALSE(edits.shown(Entry));
    EXPECT_FALSE(edits.served(Entry));
    EXPECT_FALSE(edits.end(Entry, 1));
    edits.served(Entry, Served);
    edits.number(Entry, 1);
    EXPECT_FALSE(edits.has(Entry));
    EXPECT_EQ(edits.find(Folder, "a"), 0U);
    EXPECT_THAT(edits.shownIn(Folder), IsEmpty());
    EXPECT_THAT(edits.servedIn(Folder), IsEmpty());
}

TEST_F(EditsTest, StepsAreShownOverWhatIsServed) {
    rename(1, "b");
    EXPECT_EQ(edits.shown(Entry), (State{Folder, "b", {}}));
    move(2, OtherFolder);
    EXPECT_EQ(edits.shown(Entry), (State{OtherFolder, "b", {}}));
    begin(3, ActionKind::SaveMetaData, {0, {}, Blue});
    EXPECT_EQ(edits.shown(Entry), (State{OtherFolder, "b", Blue}));
    rename(4, "c");
    EXPECT_EQ(edits.shown(Entry), (State{OtherFolder, "c", Blue}));
    EXPECT_EQ(edits.served(Entry), Served);
    begin(5, ActionKind::Remove);
    EXPECT_FALSE(edits.shown(Entry));
    EXPECT_TRUE(edits.has(Entry));
}

TEST_F(EditsTest, KeyValuesAreShownBesideThoseUnderOtherKeys) {
    const State served{Folder, "a", {{"colour", {"red", false}}, {"mood", {"good", false}}}};
    begin(1, ActionKind::SaveMetaData, {0, {}, Blue}, Entry, served);
    begin(2, ActionKind::SaveMetaData, {0, {}, {{"size", {"3", false}}}});
    EXPECT_THAT(edits.shown(Entry)->keyValues,
                ElementsAre(Pair("colour", Pair("blue", true)), Pair("mood", Pair("good", false)),
                            Pair("size", Pair("3", false))));
    EXPECT_THAT(edits.end(Entry, 1)->keyValues,
                ElementsAre(Pair("colour", Pair("red", false)), Pair("mood", Pair("good", false)),
                            Pair("size", Pair("3", false))));
}

TEST_F(EditsTest, StepsCanBeTakenOutInAnyOrder) {
    rename(1, "b");
    move(2, OtherFolder);
    rename(3, "c");
    begin(4, ActionKind::Remove);
    EXPECT_FALSE(edits.end(Entry, 1));
    EXPECT_EQ(edits.end(Entry, 4), (State{OtherFolder, "c", {}}));
    EXPECT_EQ(edits.end(Entry, 99), (State{OtherFolder, "c", {}}));
    EXPECT_EQ(edits.end(Entry, 3), (State{OtherFolder, "a", {}}));
    EXPECT_TRUE(edits.has(Entry));
    EXPECT_EQ(edits.end(Entry, 2), Served);
    EXPECT_FALSE(edits.has(Entry));
}

TEST_F(EditsTest, WhatIsServedAtTheFirstStepCounts) {
    rename(1, "b");
    begin(2, ActionKind::Move, {OtherFolder, {}, {}}, Entry, State{4711, "ignored", {}});
    EXPECT_EQ(edits.served(Entry), Served);
    edits.end(Entry, 2);
    EXPECT_EQ(edits.end(Entry, 1), Served);
}

TEST_F(EditsTest, WhatIsServedMeanwhileShowsThrough) {
    rename(1, "b");
    edits.served(Entry, State{OtherFolder, "x", Blue});
    EXPECT_EQ(edits.shown(Entry), (State{OtherFolder, "b", Blue}));
    EXPECT_EQ(edits.end(Entry, 1), (State{OtherFolder, "x", Blue}));
}

TEST_F(EditsTest, NothingIsShownOfWhatIsServedNoLonger) {
    rename(1, "b");
    edits.served(Entry, std::nullopt);
    EXPECT_FALSE(edits.shown(Entry));
    EXPECT_EQ(edits.find(Folder, "b"), 0U);
    EXPECT_FALSE(edits.end(Entry, 1));
    EXPECT_FALSE(edits.has(Entry));
}

TEST_F(EditsTest, CreationIsShownThoughNothingIsServed) {
    begin(1, ActionKind::CreateDocument, {Folder, "new", Blue}, 30, std::nullopt);
    EXPECT_EQ(edits.shown(30), (State{Folder, "new", Blue}));
    begin(2, ActionKind::Rename, {0, "newer", {}}, 30, std::nullopt);
    EXPECT_EQ(edits.shown(30), (State{Folder, "newer", Blue}));
    edits.served(30, State{Folder, "new (1)", Blue});
    EXPECT_EQ(edits.end(30, 1), (State{Folder, "newer", Blue}));
    EXPECT_EQ(edits.end(30, 2), (State{Folder, "new (1)", Blue}));
    begin(3, ActionKind::CreateFolder, {Folder, "new", {}}, 31, std::nullopt);
    begin(4, ActionKind::Rename, {0, "newer", {}}, 31, std::nullopt);
    EXPECT_FALSE(edits.end(31, 3));
    EXPECT_FALSE(edits.end(31, 4));
}

TEST_F(EditsTest, EntriesAreFoundWhereTheyAreShown) {
    rename(1, "b");
    move(2, OtherFolder);
    EXPECT_EQ(edits.find(OtherFolder, "b"), Entry);
    EXPECT_EQ(edits.find(Folder, "b"), 0U);
    EXPECT_EQ(edits.find(OtherFolder, "a"), 0U);
    EXPECT_THAT(edits.shownIn(OtherFolder), ElementsAre(Entry));
    EXPECT_THAT(edits.shownIn(Folder), IsEmpty());
    EXPECT_THAT(edits.servedIn(Folder), ElementsAre(Entry));
    EXPECT_THAT(edits.servedIn(OtherFolder), IsEmpty());
    begin(3, ActionKind::Remove);
    EXPECT_EQ(edits.find(OtherFolder, "b"), 0U);
    EXPECT_THAT(edits.shownIn(OtherFolder), IsEmpty());
    EXPECT_THAT(edits.servedIn(Folder), ElementsAre(Entry));
}

TEST_F(EditsTest, NewIdIsFollowedAsAnEntrysAndAsAFolders) {
    begin(1, ActionKind::CreateFolder, {Folder, "new", {}}, 99, std::nullopt);
    begin(2, ActionKind::CreateDocument, {99, "inside", {}}, 98, std::nullopt);
    move(3, 99);
    begin(4, ActionKind::Rename, {0, "x", {}}, 30, State{99, "served there", {}});
    edits.rekey(99, 1000);
    EXPECT_FALSE(edits.has(99));
    EXPECT_EQ(edits.shown(1000), (State{Folder, "new", {}}));
    EXPECT_EQ(edits.shown(98)->folderId, 1000U);
    EXPECT_EQ(edits.shown(Entry)->folderId, 1000U);
    EXPECT_EQ(edits.shown(30)->folderId, 1000U);
    EXPECT_THAT(edits.shownIn(1000), UnorderedElementsAre(98U, Entry, 30U));
    edits.rekey(4711, 4712);
    EXPECT_FALSE(edits.has(4712));
}

TEST_F(EditsTest, StepsOnTwoIdsThatAreOneEntryAreJoinedInTheirOrder) {
    begin(1, ActionKind::CreateDocument, {Folder, "new", {}}, 99, std::nullopt);
    begin(3, ActionKind::Rename, {0, "first", {}}, 99, std::nullopt);
    begin(5, ActionKind::Rename, {0, "last", {}}, 99, std::nullopt);
    begin(2, ActionKind::Move, {OtherFolder, {}, {}}, 1000, State{Folder, "new", {}});
    begin(4, ActionKind::Rename, {0, "between", {}}, 1000, std::nullopt);
    edits.rekey(99, 1000);
    EXPECT_FALSE(edits.has(99));
    EXPECT_EQ(edits.shown(1000), (State{OtherFolder, "last", {}}));
    EXPECT_EQ(edits.end(1000, 5)->name, "between");
    EXPECT_EQ(edits.end(1000, 4)->name, "first");
    EXPECT_EQ(edits.end(1000, 1)->name, "first");
    EXPECT_EQ(edits.end(1000, 3)->name, "new");
    EXPECT_EQ(edits.end(1000, 2), (State{Folder, "new", {}}));
}

}  // namespace
}  // namespace Ormek
