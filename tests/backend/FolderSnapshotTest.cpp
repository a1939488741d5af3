#include "backend/FolderSnapshot.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "tests/backend/FolderFixture.h"

namespace Nimra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class FolderSnapshotTest : public testing::Test {
  protected:
    OpenFolder open() const {
        const FileDescriptor root(::open(folder.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        return {root, "", OpenFolder::Purpose::Reading};
    }
    static std::vector<std::string> namesOf(std::span<const FolderEntry> entries) {
        std::vector<std::string> found;
        for (const FolderEntry& entry : entries) {
            found.emplace_back(entry.view());
        }
        return found;
    }

    Ormek::Testing::TemporaryFolder folder;
};

TEST_F(FolderSnapshotTest, HasEveryEntryWithItsKind) {
    folder.writeFile("a");
    folder.makeFolder("f");
    std::filesystem::create_symlink("f", folder / "link");
    const FolderSnapshot snapshot(open());
    EXPECT_THAT(namesOf(snapshot.entries()), UnorderedElementsAre("a", "f", "link"));
    for (const FolderEntry& entry : snapshot.entries()) {
        EXPECT_EQ(entry.kind == EntryKind::Folder, entry.view() == "f");
        EXPECT_EQ(entry.name[entry.length], '\0');
    }
}

TEST_F(FolderSnapshotTest, IsCurrentUntilTheFolderChanges) {
    folder.writeFile("a");
    letSettle();
    const FolderSnapshot snapshot(open());
    EXPECT_TRUE(snapshot.isCurrent(open().status()));
    folder.writeFile("a", "content is no change of the folder");
    EXPECT_TRUE(snapshot.isCurrent(open().status()));
    folder.writeFile("b");
    EXPECT_FALSE(snapshot.isCurrent(open().status()));
}

TEST_F(FolderSnapshotTest, IsNotTrustedWhenAChangeInTheSameTickCouldHide) {
    // A pause of the machine between the two steps can make any single attempt late.
    bool trusted = true;
    for (int i = 0; i < 100 && trusted; ++i) {
        folder.writeFile(std::to_string(i));
        const FolderSnapshot snapshot(open());
        trusted = snapshot.isCurrent(open().status());
    }
    EXPECT_FALSE(trusted);
}

TEST_F(FolderSnapshotTest, ShowsOneListingAfterAnother) {
    for (const char* name : {"b1", "a2", "b3", "c4"}) {
        folder.writeFile(name);
    }
    folder.makeFolder("b0");
    FolderSnapshot snapshot(open());
    EXPECT_THAT(namesOf(snapshot.page(0, 9)), ElementsAre("b0", "a2", "b1", "b3", "c4"));
    snapshot.select({.query = "b"});
    EXPECT_THAT(namesOf(snapshot.selected()), UnorderedElementsAre("b0", "b1", "b3"));
    EXPECT_THAT(namesOf(snapshot.page(1, 2)), ElementsAre("b1", "b3"));
    snapshot.select({.folders = false, .order = {.ascending = false}});
    EXPECT_THAT(namesOf(snapshot.page(0, 2)), ElementsAre("c4", "b3"));
    snapshot.select({.query = "none"});
    EXPECT_THAT(namesOf(snapshot.page(0, 9)), IsEmpty());
    snapshot.select({.order = {.ascending = false, .foldersFirst = false}});
    EXPECT_THAT(namesOf(snapshot.page(0, 9)), ElementsAre("c4", "b3", "b1", "b0", "a2"));
}

}  // namespace
}  // namespace Nimra
