#include "backend/FileWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <csignal>
#include <memory>
#include <set>
#include <string>

#include "backend/EntryName.h"
#include "tests/backend/ActionFixture.h"

namespace Nimra {
namespace {

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
