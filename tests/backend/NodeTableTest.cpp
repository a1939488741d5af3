#include "backend/NodeTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Nimra {
namespace {

constexpr auto Root = NodeTable::RootId;

class NodeTableTest : public testing::Test {
  protected:
    unsigned long folder(unsigned long in, const std::string& name) {
        return nodes.idOf(in, name, EntryKind::Folder);
    }
    unsigned long document(unsigned long in, const std::string& name) {
        return nodes.idOf(in, name, EntryKind::Document);
    }
    static FolderEntry entry(const char* name, EntryKind kind) {
        return {name, static_cast<unsigned short>(std::string(name).size()), kind};
    }

    NodeTable nodes;
};

TEST_F(NodeTableTest, KnowsTheRootAlone) {
    ASSERT_TRUE(nodes.find(Root));
    EXPECT_EQ(nodes.find(Root)->kind, EntryKind::Folder);
    EXPECT_EQ(nodes.path(Root), "");
    EXPECT_FALSE(nodes.find(0));
    EXPECT_FALSE(nodes.find(2));
    EXPECT_EQ(nodes.size(), 1U);
}

TEST_F(NodeTableTest, AnEntryHasOneIdAndAPath) {
    const auto f = folder(Root, "f");
    const auto a = document(f, "a");
    EXPECT_EQ(folder(Root, "f"), f);
    EXPECT_EQ(document(f, "a"), a);
    EXPECT_NE(document(Root, "a"), a);
    EXPECT_EQ(nodes.path(a), "f/a");
    EXPECT_EQ(nodes.find(a)->parentId, f);
    EXPECT_EQ(nodes.find(a)->name, "a");
}

TEST_F(NodeTableTest, TheOtherKindReplacesANamesakeAndWhatIsBelow) {
    const auto f = folder(Root, "f");
    const auto a = document(f, "a");
    const auto file = document(Root, "f");
    EXPECT_GT(file, a);
    EXPECT_FALSE(nodes.find(f));
    EXPECT_FALSE(nodes.find(a));
    EXPECT_EQ(nodes.size(), 2U);
}

TEST_F(NodeTableTest, ForgettingTakesTheSubtreeAndGivesNewIdsLater) {
    const auto f = folder(Root, "f");
    const auto g = folder(f, "g");
    const auto a = document(g, "a");
    const auto other = document(Root, "other");
    nodes.forget(f);
    for (const auto id : {f, g, a}) {
        EXPECT_FALSE(nodes.find(id));
    }
    EXPECT_TRUE(nodes.find(other));
    EXPECT_GT(folder(Root, "f"), other);
    nodes.forget(Root, "other");
    EXPECT_FALSE(nodes.find(other));
}

TEST_F(NodeTableTest, ForgettingTheRootOrTheUnknownDoesNothing) {
    const auto f = folder(Root, "f");
    nodes.forget(Root);
    nodes.forget(99);
    nodes.forget(f, "x");
    nodes.forget(99, "x");
    nodes.forget(Root, "x");
    EXPECT_TRUE(nodes.find(Root));
    EXPECT_TRUE(nodes.find(f));
}

TEST_F(NodeTableTest, ANumberThatNobodyWasToldOfIsGivenAgain) {
    const auto a = document(Root, "a");
    const auto b = document(Root, "b");
    nodes.takeBack(a);
    EXPECT_TRUE(nodes.find(a)) << "others have come since";
    nodes.takeBack(b);
    EXPECT_FALSE(nodes.find(b));
    EXPECT_EQ(document(Root, "c"), b);
}

TEST_F(NodeTableTest, RetainsWhatIsPresentInTheSameKind) {
    const auto kept = document(Root, "kept");
    const auto gone = folder(Root, "gone");
    const auto below = document(gone, "below");
    const auto turned = folder(Root, "turned");
    const std::vector<FolderEntry> present = {entry("new", EntryKind::Document),
                                              entry("kept", EntryKind::Document),
                                              entry("turned", EntryKind::Document)};
    nodes.retain(Root, present);
    EXPECT_TRUE(nodes.find(kept));
    for (const auto id : {gone, below, turned}) {
        EXPECT_FALSE(nodes.find(id));
    }
    EXPECT_EQ(nodes.size(), 2U) << "what is merely present gets no id";
    EXPECT_EQ(document(Root, "kept"), kept);
    EXPECT_GT(document(Root, "turned"), turned);
    nodes.retain(kept, {});
    nodes.retain(99, {});
    nodes.retain(Root, {});
    EXPECT_EQ(nodes.size(), 1U);
}

TEST_F(NodeTableTest, AMovedEntryKeepsItsIdAndWhatLiesBelow) {
    const auto from = folder(Root, "from");
    const auto to = folder(Root, "to");
    const auto moved = folder(from, "m");
    const auto below = document(moved, "below");
    nodes.move(moved, to, "n");
    EXPECT_EQ(nodes.path(below), "to/n/below");
    EXPECT_EQ(nodes.find(moved)->parentId, to);
    EXPECT_EQ(folder(to, "n"), moved);
    EXPECT_EQ(document(moved, "below"), below);
    EXPECT_NE(folder(from, "m"), moved);
    nodes.move(moved, to, "o");
    EXPECT_EQ(nodes.path(below), "to/o/below");
    nodes.move(moved, to, "o");
    EXPECT_EQ(folder(to, "o"), moved);
    nodes.forget(from);
    EXPECT_TRUE(nodes.find(below));
    nodes.forget(to);
    EXPECT_FALSE(nodes.find(below));
}

TEST_F(NodeTableTest, AMoveForgetsTheNamesake) {
    const auto to = folder(Root, "to");
    const auto namesake = folder(to, "m");
    const auto below = folder(namesake, "below");
    const auto moved = document(below, "m");
    nodes.move(moved, to, "m");
    EXPECT_FALSE(nodes.find(namesake));
    EXPECT_FALSE(nodes.find(below));
    EXPECT_EQ(nodes.path(moved), "to/m");
    EXPECT_EQ(nodes.size(), 3U);
}

TEST_F(NodeTableTest, ItTellsWhatLiesWithinAFolder) {
    const auto f = folder(Root, "f");
    const auto g = folder(f, "g");
    const auto other = folder(Root, "other");
    EXPECT_TRUE(nodes.isWithin(g, f));
    EXPECT_TRUE(nodes.isWithin(f, f));
    EXPECT_TRUE(nodes.isWithin(g, Root));
    EXPECT_FALSE(nodes.isWithin(f, g));
    EXPECT_FALSE(nodes.isWithin(other, f));
    EXPECT_FALSE(nodes.isWithin(Root, f));
}

TEST_F(NodeTableTest, AVeryDeepTreeIsForgottenWithoutHarm) {
    unsigned long top = folder(Root, "d");
    unsigned long at = top;
    for (int i = 0; i < 200'000; ++i) {
        at = folder(at, "d");
    }
    nodes.forget(top);
    EXPECT_EQ(nodes.size(), 1U);
}

}  // namespace
}  // namespace Nimra
