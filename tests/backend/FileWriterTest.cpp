#include "backend/FileWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "backend/EntryName.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::FailingCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Staging = FileWriter::Staging;

/// Both ways of keeping a file out of sight until it is complete.
class FileWriterTest : public ActionFixture, public testing::WithParamInterface<Staging> {
  protected:
    std::unique_ptr<FileWriter> start(const std::string& name) {
        return std::make_unique<FileWriter>(*open, name, GetParam());
    }

    FileDescriptor root{::open(folder.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    std::unique_ptr<OpenFolder> open =
        std::make_unique<OpenFolder>(root, "", OpenFolder::Purpose::LookingUp);
};

INSTANTIATE_TEST_SUITE_P(Stagings, FileWriterTest,
                         testing::Values(Staging::NamelessIfPossible, Staging::Named),
                         [](const auto& staging) {
                             return staging.param == Staging::Named ? "Named" : "Nameless";
                         });

TEST_P(FileWriterTest, AFileAppearsWholeWithItsAttributes) {
    const auto file = start("a");
    file->write("hel", 3);
    file->write("lo", 2);
    file->write("", 0);
    file->setAttributes({{"k", {"v", false}}});
    EXPECT_FALSE(exists("a"));
    file->publish();
    EXPECT_EQ(content("a"), "hello");
    EXPECT_EQ(look("a").documents.at(0).keyValues().at("k").first, "v");
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_P(FileWriterTest, WhatIsNotPublishedIsGone) {
    start("a")->write("x", 1);
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_P(FileWriterTest, NothingIsOverwrittenAndNothingLeft) {
    folder.writeFile("a", "old");
    {
        const auto file = start("a");
        file->write("new", 3);
        expectRefusal([&] { file->publish(); }, Reason::Exists, "cannot create 'a'");
    }
    EXPECT_EQ(content("a"), "old");
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_P(FileWriterTest, AnUnfinishedFileIsNeverListed) {
    const auto file = start("a");
    file->write("x", 1);
    EXPECT_EQ(load(listing(1)).totalCount, 0U);
}

TEST_P(FileWriterTest, WritersDoNotDisturbEachOther) {
    const auto first = start("a");
    const auto second = start("b");
    first->write("1", 1);
    second->write("2", 1);
    second->publish();
    removeAbandonedFiles(*open);
    first->publish();
    EXPECT_EQ(content("a") + content("b"), "12");
    EXPECT_THAT(onDisk(), SizeIs(2));
}

TEST_P(FileWriterTest, AFolderThatIsGoneFails) {
    folder.makeFolder("f");
    const OpenFolder inner(root, "f", OpenFolder::Purpose::LookingUp);
    std::filesystem::remove(path("f"));
    expectRefusal([&] { FileWriter(inner, "a", GetParam()).publish(); }, Reason::NotFound, "'f");
}

TEST_P(FileWriterTest, WhatAKilledWriterLeavesIsHiddenAndCanBeSwept) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto file = start("a");
        file->write("half", 4);
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    const auto left = onDisk();
    EXPECT_THAT(left, SizeIs(GetParam() == Staging::Named ? 1 : 0));
    for (const auto& name : left) {
        EXPECT_TRUE(isTemporaryName(name)) << name;
    }
    EXPECT_EQ(load(listing(1)).totalCount, 0U);
    removeAbandonedFiles(*open);
    EXPECT_THAT(onDisk(), IsEmpty());
}

/// On a file system that has neither files without a name nor renaming that never overwrites.
class PlainFileSystemTest : public FileWriterTest {
  protected:
    /// Publishes a file; the calls that give names fail as they do there.
    void publish(FileWriter& file, int renaming, int linking = 0) const {
        const FailingCall noRenaming("renameat2", renaming);
        std::optional<FailingCall> noLinking;
        if (linking != 0) {
            noLinking.emplace("linkat", linking);
        }
        file.publish();
        EXPECT_TRUE(noRenaming.happened());
    }
};

INSTANTIATE_TEST_SUITE_P(Named, PlainFileSystemTest, testing::Values(Staging::Named),
                         [](const auto&) { return "Named"; });

TEST_P(PlainFileSystemTest, AFileAppearsWholeAndAlone) {
    for (const int error : {EINVAL, ENOSYS}) {
        const std::string name = "a" + std::to_string(error);
        const auto file = start(name);
        file->write("hello", 5);
        publish(*file, error);
        EXPECT_EQ(content(name), "hello");
        EXPECT_THAT(onDisk(), ElementsAre(name));
        std::filesystem::remove(path(name));
    }
}

TEST_P(PlainFileSystemTest, NothingIsOverwrittenAndNothingLeft) {
    folder.writeFile("a", "old");
    expectRefusal([&] { publish(*start("a"), EINVAL); }, Reason::Exists, "cannot create 'a'");
    EXPECT_EQ(content("a"), "old");
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_P(PlainFileSystemTest, WithoutHardLinksNothingIsCreated) {
    for (const int error : {EPERM, EOPNOTSUPP, ENOSYS, EINVAL}) {
        expectRefusal([&] { publish(*start("a"), EINVAL, error); }, Reason::Refused,
                      "cannot create 'a': ");
        EXPECT_THAT(onDisk(), IsEmpty());
    }
}

TEST_P(PlainFileSystemTest, OtherFailuresAreToldAsTheyAre) {
    expectRefusal([&] { publish(*start("a"), EACCES); }, Reason::NoPermission, "'a'");
    expectRefusal([&] { publish(*start("a"), EINVAL, ENOSPC); }, Reason::NoSpace, "'a'");
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_P(PlainFileSystemTest, AFileIsDoneAlsoIfItsOtherNameStays) {
    const auto file = start("a");
    file->write("hello", 5);
    {
        const FailingCall stays("unlinkat", EIO);
        publish(*file, EINVAL);
        EXPECT_TRUE(stays.happened());
    }
    EXPECT_EQ(content("a"), "hello");
    EXPECT_THAT(names(load(listing(1)).documents), ElementsAre("a"));
}

class AbandonedFilesTest : public ActionFixture {};

TEST_F(AbandonedFilesTest, WhatIsBeingWrittenStaysAndSoDoesEverythingElse) {
    const std::string left = makeTemporaryName();
    const std::string held = makeTemporaryName();
    folder.writeFile(left);
    folder.writeFile(held);
    folder.writeFile("other");
    std::filesystem::create_symlink("other", path(makeTemporaryName()));
    const FileDescriptor root(open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FileDescriptor writer(open(path(held).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(writer.get(), LOCK_EX), 0);
    removeAbandonedFiles(OpenFolder(root, "", OpenFolder::Purpose::LookingUp));
    EXPECT_FALSE(exists(left));
    EXPECT_TRUE(exists(held));
    EXPECT_TRUE(exists("other"));
    EXPECT_THAT(onDisk(), SizeIs(3));
}

TEST_F(AbandonedFilesTest, WhoOnlyLooksWhetherALeftoverIsHeldDoesNotHoldIt) {
    const std::string left = makeTemporaryName();
    folder.writeFile(left);
    const FileDescriptor root(open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Where a lock for writing takes a file that is open for writing, looking can have this one.
    const FileDescriptor other(open(path(left).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(other.get(), LOCK_SH), 0);
    removeAbandonedFiles(OpenFolder(root, "", OpenFolder::Purpose::LookingUp));
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST(EntryNameTest, TemporaryNamesAreRecognisedAndNoOthers) {
    std::set<std::string> made;
    for (int i = 0; i < 100; ++i) {
        const std::string name = makeTemporaryName();
        EXPECT_TRUE(isTemporaryName(name)) << name;
        EXPECT_TRUE(made.insert(name).second);
    }
    const std::string digits(32, 'a');
    const std::string fewer(31, 'a');
    const std::string whole = ".ormek-" + digits + ".part";
    EXPECT_TRUE(isTemporaryName(whole));
    for (const std::string& name :
         {std::string(), ".ormek-" + digits, digits + ".part", ".ormek-" + digits + "a.part",
          ".ormek-" + fewer + "A.part", "x" + whole, ".ormek-" + fewer + ".part",
          ".ormek-" + digits + ".tmp."}) {
        EXPECT_FALSE(isTemporaryName(name)) << name;
    }
}

}  // namespace
}  // namespace Nimra
