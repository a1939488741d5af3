// Single failures of the system in places where they are easily got wrong.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <system_error>

#include "backend/EntryName.h"
#include "backend/SystemError.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::FailingCall;
using Ormek::Testing::ShortCall;
using Ormek::Testing::UnknownKinds;
using testing::ElementsAre;
using testing::SizeIs;

class FaultyCallTest : public ActionFixture {};

TEST_F(FaultyCallTest, ASignalFailsNothing) {
    folder.makeFolder("f");
    folder.writeFile("f/" + makeTemporaryName());
    const unsigned long f = folderId("f");
    {
        const FailingCall interrupted("open", EINTR);
        EXPECT_EQ(FolderService(folder.path().string()).root().id, 1U);
        EXPECT_TRUE(interrupted.happened());
    }
    const auto interrupting = [](const std::string& call, const auto& action) {
        const FailingCall interrupted(call, EINTR);
        EXPECT_NO_THROW(action()) << call;
        EXPECT_TRUE(interrupted.happened()) << call;
    };
    unsigned long a = 0;
    interrupting("openat2", [&] { EXPECT_EQ(load(listing(1)).totalCount, 1U); });
    interrupting("openat+create", [&] { a = create("a", "content").id; });
    interrupting("write", [&] { create("b", "content"); });
    interrupting("openat", [&] { service.openStreams(record(a, 1, "")); });
    const auto stream = service.openStreams(record(a, 1, "")).stream;
    std::string text(7, '\0');
    interrupting("pread", [&] { EXPECT_EQ(stream->read(0, text.data(), 7), 7U); });
    EXPECT_EQ(text, "content");
    EXPECT_EQ(content("b"), "content");
    interrupting("openat", [&] { save(a, {{"k", "v"}}); });
    interrupting("getrandom", [&] { service.openSession(1, a, 7); });
    interrupting("flock", [&] { remove(f); });
    EXPECT_THAT(onDisk(), ElementsAre("a", "b"));
}

TEST_F(FaultyCallTest, AnActionThatIsCalledFailedHasChangedNothing) {
    const auto lookingFails = [this](const std::function<void()>& action) {
        for (const std::string call : {"statx", "llistxattr", "lgetxattr"}) {
            // As often as the action looks at something; it does so twice at most.
            for (unsigned nth = 1; nth <= 3; ++nth) {
                const auto before = onDisk();
                const FailingCall failing(call, EIO, nth);
                try {
                    action();
                } catch (const ServiceError&) {
                    EXPECT_EQ(onDisk(), before) << call << ' ' << nth;
                }
            }
        }
    };
    int made = 0;
    lookingFails([&] { create("a" + std::to_string(++made), "x"); });
    lookingFails([&] { makeFolder("f" + std::to_string(++made)); });
    const unsigned long a = create("a", "x").id;
    save(a, {{"k", "v"}});
    lookingFails([&] { rename(a, "b" + std::to_string(++made)); });
}

TEST_F(FaultyCallTest, AMadeFolderIsAnsweredAlsoIfNothingMoreCanBeToldAboutIt) {
    const FailingCall failing("statx", EIO);
    const Folder made = makeFolder("f");
    EXPECT_TRUE(failing.happened());
    EXPECT_EQ(made.name, "f");
    EXPECT_EQ(made.accessLevel, 0);
    EXPECT_EQ(made.created, 0U);
    EXPECT_EQ(folderId("f"), made.id);
}

TEST_F(FaultyCallTest, WhatKeepsAServiceFromBeingMadeIsTold) {
    const std::string path = folder.path().string();
    const auto failsBy = [&](const std::string& call, int error, Reason reason,
                             const std::string& part) {
        const FailingCall failing(call, error);
        expectRefusal([&] { const FolderService other(path); }, reason, part);
        EXPECT_TRUE(failing.happened());
    };
    failsBy("access", ENOENT, Reason::NotReachable, "/proc is not mounted");
    failsBy("access", ENOMEM, Reason::Internal, "/proc");
    failsBy("access", EACCES, Reason::NoPermission, "/proc");
    failsBy("readlink", EACCES, Reason::NoPermission, "/proc/self/fd");
    failsBy("readlink", ENOMEM, Reason::Internal, "/proc/self/fd");
}

TEST_F(FaultyCallTest, ANameThatAFileSystemCannotHaveIsRefusedAndNotFound) {
    const unsigned long a = create("a").id;
    for (const int error : {ENAMETOOLONG, EINVAL, EILSEQ}) {
        const auto failing = [error](const std::string& call, const auto& action, unsigned nth) {
            const FailingCall fails(call, error, nth);
            expectRefusal(action, Reason::Refused, "b:");
            EXPECT_TRUE(fails.happened()) << call;
        };
        failing(
            "statx", [&] { create("b:"); }, 1);
        failing(
            "linkat", [&] { create("b:"); }, 1);
        failing(
            "mkdirat", [&] { makeFolder("b:"); }, 1);
        failing(
            "renameat2", [&] { rename(a, "b:"); }, 1);
        const FailingCall fails("statx", error);
        EXPECT_EQ(look("b:").totalCount, 0U);
        EXPECT_TRUE(fails.happened());
    }
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_F(FaultyCallTest, TagsAreToldBesideAnEntryWhoseFileSystemHasDied) {
    for (const std::string name : {"a", "b"}) {
        save(create(name).id, {{"k", "v"}});
    }
    const auto tags = [this] { return load(ofType(listing(1), 16)).totalCount; };
    for (const int error : {ENOTCONN, EHOSTDOWN, ENODEV}) {
        const FailingCall dead("llistxattr", error);
        EXPECT_EQ(tags(), 1U);
        EXPECT_TRUE(dead.happened());
    }
    EXPECT_EQ(tags(), 2U);
}

TEST_F(FaultyCallTest, MoreAttributesThanTheSystemTellsAreNoFailure) {
    const unsigned long a = create("a").id;
    save(a, {{"k", "v"}});
    const auto tooMany = [](const auto& action) {
        const FailingCall failing("llistxattr", E2BIG);
        EXPECT_THAT(action(), testing::IsEmpty());
        EXPECT_TRUE(failing.happened());
    };
    tooMany([&] { return load(listing(1)).documents.at(0).keyValues(); });
    tooMany([&] { return load(ofType(listing(1), 16)).tags; });
    tooMany([&] { return rename(a, "b").keyValues(); });
    EXPECT_THAT(look("b").documents.at(0).keyValues(), SizeIs(1));
}

TEST_F(FaultyCallTest, AFolderWithLeftoversOnlyIsNotCalledFullWhenTheyCannotBeSwept) {
    folder.makeFolder("f");
    folder.writeFile("f/" + makeTemporaryName());
    const unsigned long f = folderId("f");
    const auto failsBy = [&](const std::string& call, int error, unsigned nth, Reason reason) {
        const FailingCall failing(call, error, nth);
        expectRefusal([&] { remove(f); }, reason, std::generic_category().message(error));
        EXPECT_TRUE(failing.happened()) << call;
    };
    failsBy("openat", EMFILE, 1, Reason::Internal);
    failsBy("openat", EACCES, 1, Reason::NoPermission);
    failsBy("fdopendir", ENOMEM, 1, Reason::Internal);
    failsBy("readdir64", EIO, 1, Reason::Internal);
    failsBy("openat", EMFILE, 2, Reason::Internal);
    failsBy("flock", ENOLCK, 1, Reason::Internal);
    failsBy("unlinkat", EROFS, 2, Reason::NoPermission);
    EXPECT_THAT(onDisk("f"), SizeIs(1));
    remove(f);
    EXPECT_FALSE(exists("f"));
}

TEST_F(FaultyCallTest, ALeftoverThatMayNotBeOpenedKeepsItsFolder) {
    folder.makeFolder("f");
    folder.writeFile("f/" + makeTemporaryName());
    const unsigned long f = folderId("f");
    const FailingCall failing("openat", EACCES, 2);
    expectRefusal([&] { remove(f); }, Reason::Refused, "not empty");
    EXPECT_TRUE(failing.happened());
}

TEST_F(FaultyCallTest, AFolderWhoseKindCannotBeToldKeepsItsIdAndWhatLiesBelow) {
    folder.makeFolder("f");
    folder.writeFile("f/a");
    const unsigned long f = folderId("f");
    const unsigned long a = documentId("a", f);
    const UnknownKinds unknown;
    for (const int error : {EIO, ENOMEM}) {
        // So that nothing is kept of an earlier reading.
        remove(create("other").id);
        // The first is for the listed folder itself.
        const FailingCall failing("statx", error, 2);
        expectFailure(listing(1), Reason::Internal, "'f'");
        EXPECT_TRUE(failing.happened());
    }
    EXPECT_EQ(load(listing(1)).folders.at(0).id, f);
    EXPECT_EQ(load(listing(f)).documents.at(0).id, a);
}

TEST_F(FaultyCallTest, AnUploadThatNeedsANameLeavesNothingWhereTheDiskRefusesIt) {
    for (const std::string call : {"write", "fsync", "renameat2", "setxattr"}) {
        for (const int error : {EIO, ENOSPC}) {
            const FailingCall unsupported("openat+create", EOPNOTSUPP);
            const FailingCall failing(call, error);
            Document wanted = record(5, 1, "a");
            wanted.addKeyValue("k", {"v", false});
            TextSource content("hello");
            expectRefusal([&] { service.create(wanted, &content, {}); }, reasonOf(error), "'a'");
            EXPECT_TRUE(unsupported.happened() && failing.happened()) << call;
            EXPECT_THAT(onDisk(), testing::IsEmpty()) << call;
        }
    }
}

TEST_F(FaultyCallTest, WhatIsTransferredInPartGoesOnBehindIt) {
    unsigned long a = 0;
    {
        const ShortCall part("write");
        a = create("a", "content").id;
        EXPECT_TRUE(part.happened());
    }
    EXPECT_EQ(content("a"), "content");
    const auto stream = service.openStreams(record(a, 1, "")).stream;
    std::string text(7, '\0');
    const ShortCall part("pread");
    EXPECT_EQ(stream->read(0, text.data(), 7), 7U);
    EXPECT_TRUE(part.happened());
    EXPECT_EQ(text, "content");
}

}  // namespace
}  // namespace Nimra
