#include "backend/Durability.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "backend/FileWriter.h"
#include "backend/SystemError.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::CallTrace;
using Ormek::Testing::FailingCall;
using Ormek::Testing::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;

/// What the disk may say instead of doing its work.
constexpr int DiskErrors[] = {EIO, ENOSPC, EDQUOT, EROFS, EINVAL, ENOTSUP, ENOMEM};

class DurabilityTest : public ActionFixture {
  protected:
    /// What an action changes and what it makes durable, in order: the changing call, or "fsync"
    /// with the path below the temporary folder.
    std::vector<std::string> changesAndSyncs(const std::function<void()>& action) const {
        const std::set<std::string> changes = {"linkat",   "renameat2", "mkdirat", "unlinkat",
                                               "setxattr", "syncfs",    "sync"};
        const CallTrace trace;
        action();
        std::vector<std::string> found;
        for (const SystemCall& call : trace.calls()) {
            if (call.name == "fsync") {
                found.push_back("fsync " + below(call.path));
            } else if (changes.contains(call.name)) {
                found.push_back(call.name);
            }
        }
        return found;
    }
    std::string below(const std::string& path) const {
        const auto root = std::filesystem::canonical(folder.path());
        const std::string relative = std::filesystem::path(path).lexically_relative(root);
        return path.ends_with(" (deleted)") ? "nameless" : relative;
    }
};

TEST_F(DurabilityTest, ContentIsOnTheDiskBeforeItsNameAndTheNameBeforeTheAnswer) {
    EXPECT_THAT(changesAndSyncs([&] { create("a", "x"); }),
                ElementsAre("fsync nameless", "linkat", "fsync ."));
}

TEST_F(DurabilityTest, EveryOtherActionIsOnTheDiskBeforeItsAnswer) {
    folder.makeFolder("to");
    const unsigned long to = folderId("to");
    const unsigned long a = create("a", "x").id;
    EXPECT_THAT(changesAndSyncs([&] { rename(a, "b"); }), ElementsAre("renameat2", "fsync ."));
    EXPECT_THAT(changesAndSyncs([&] { rename(a, "b"); }), IsEmpty());
    EXPECT_THAT(changesAndSyncs([&] { move(a, to); }),
                ElementsAre("renameat2", "fsync to", "fsync ."));
    EXPECT_THAT(changesAndSyncs([&] {
                    save(a, {{"k", "v"}});
                }),
                ElementsAre("setxattr", "fsync to/b"));
    EXPECT_THAT(changesAndSyncs([&] {
                    save(to, {{"k", "v"}});
                }),
                ElementsAre("setxattr", "fsync to"));
    EXPECT_THAT(changesAndSyncs([&] { remove(a); }), ElementsAre("unlinkat", "fsync to"));
    unsigned long inner = 0;
    EXPECT_THAT(changesAndSyncs([&] { inner = makeFolder("inner", to).id; }),
                ElementsAre("mkdirat", "fsync to"));
    EXPECT_THAT(changesAndSyncs([&] { remove(inner); }), ElementsAre("unlinkat", "fsync to"));
}

TEST_F(DurabilityTest, WhereAFolderCannotBeReadItsWholeFileSystemIsBroughtToTheDisk) {
    const auto unreadable = [this](int error, const std::function<void()>& action) {
        return changesAndSyncs([&] {
            const FailingCall fail("open", error);
            action();
            EXPECT_TRUE(fail.happened());
        });
    };
    unsigned long a = 0;
    EXPECT_THAT(unreadable(EACCES, [&] { a = create("a", "x").id; }),
                ElementsAre("fsync nameless", "linkat", "syncfs"));
    EXPECT_THAT(unreadable(EACCES, [&] { rename(a, "b"); }), ElementsAre("renameat2", "syncfs"));
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        EXPECT_THAT(unreadable(error, [&] { rename(a, std::to_string(error)); }),
                    ElementsAre("renameat2", "syncfs"));
    }
}

TEST_F(DurabilityTest, OnlyAnotherFileSystemThatCannotBeReachedTakesTheWholeMachine) {
    folder.makeFolder("f");
    const FileDescriptor here(::open(path("f").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const FileDescriptor there(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const auto unreadable = [&](int error, int neighbour) {
        return changesAndSyncs([&] {
            const FailingCall fail("open", error);
            makeDurable(here.get(), neighbour);
        });
    };
    EXPECT_THAT(unreadable(EACCES, there.get()), ElementsAre("sync"));
    // That would be a high price for a lack that passes.
    EXPECT_THAT(unreadable(EMFILE, there.get()), IsEmpty());
}

TEST_F(DurabilityTest, ContentThatTheDiskRefusesFailsItsCreationAndLeavesNothing) {
    const FileDescriptor root(::open(folder.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const OpenFolder open(root, "", OpenFolder::Purpose::LookingUp);
    for (const auto staging :
         {FileWriter::Staging::NamelessIfPossible, FileWriter::Staging::Named}) {
        for (const int error : DiskErrors) {
            {
                FileWriter file(open, "a", staging);
                file.write("x", 1);
                const FailingCall fail("fsync", error);
                expectRefusal([&] { file.publish(); }, reasonOf(error), "cannot create 'a'");
                EXPECT_TRUE(fail.happened());
            }
            EXPECT_THAT(onDisk(), IsEmpty()) << error;
        }
    }
    const FailingCall fail("fsync", EIO);
    expectRefusal([&] { create("a", "x"); }, Reason::Internal, "cannot create 'a'");
    EXPECT_THAT(onDisk(), IsEmpty());
    EXPECT_EQ(create("a", "x").length, 1U);
}

TEST_F(DurabilityTest, WhatHasTakenEffectIsAnsweredAsDoneAlsoWhereTheDiskRefuses) {
    folder.makeFolder("to");
    const unsigned long to = folderId("to");
    for (const int error : DiskErrors) {
        const auto refusing = [error](unsigned nth, const std::function<void()>& action) {
            const FailingCall fail("fsync", error, nth);
            EXPECT_NO_THROW(action()) << error;
            EXPECT_TRUE(fail.happened());
        };
        unsigned long a = 0;
        refusing(2, [&] { a = create("a", "x").id; });
        EXPECT_EQ(content("a"), "x");
        refusing(1, [&] { rename(a, "b"); });
        EXPECT_EQ(documentId("b"), a);
        refusing(1, [&] { move(a, to); });
        EXPECT_EQ(documentId("b", to), a);
        refusing(2, [&] { move(a, 1); });
        EXPECT_EQ(documentId("b"), a);
        refusing(1, [&] { save(a, {{"k", "v"}}); });
        EXPECT_EQ(look("b").documents.at(0).keyValues().size(), 1U);
        refusing(1, [&] { remove(a); });
        unsigned long f = 0;
        refusing(1, [&] { f = makeFolder("f").id; });
        EXPECT_EQ(folderId("f"), f);
        refusing(1, [&] { remove(f); });
        EXPECT_THAT(onDisk(), ElementsAre("to"));
    }
}

TEST_F(DurabilityTest, ASignalDoesNotKeepAnythingFromTheDisk) {
    const auto interrupted = [this](unsigned nth, const std::function<void()>& action) {
        return changesAndSyncs([&] {
            const FailingCall fail("fsync", EINTR, nth);
            action();
        });
    };
    unsigned long a = 0;
    EXPECT_THAT(interrupted(1, [&] { a = create("a", "x").id; }),
                ElementsAre("fsync nameless", "fsync nameless", "linkat", "fsync ."));
    EXPECT_THAT(interrupted(1, [&] { rename(a, "b"); }),
                ElementsAre("renameat2", "fsync .", "fsync ."));
}

}  // namespace
}  // namespace Nimra
