#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/backend/FolderFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A folder that is served, and one beside it that must never show.
class FolderConfinementTest : public FolderFixture {
  protected:
    FolderConfinementTest() { outside.writeFile("secret"); }

    Ormek::Testing::TemporaryFolder outside;
};

TEST_F(FolderConfinementTest, LookUpsTakeSingleNamesOnly) {
    folder.writeFile("f", "");
    folder.makeFolder("sub");
    folder.writeFile("sub/a");
    const std::string secret = (outside / "secret").string();
    for (const std::string& name :
         {std::string("."), std::string(".."), std::string("sub/a"), std::string("sub/"),
          std::string("/"), secret, ".." + secret, std::string("f\0", 2), std::string("\0", 1)}) {
        expectFailure(named(listing(1), name), Reason::Refused, "is not a name");
    }
    expectFailure(named(listing(1), std::string(256, 'x')), Reason::Refused, "256 bytes");
    EXPECT_EQ(look(std::string(255, 'x')).totalCount, 0U);
    EXPECT_EQ(look("...").totalCount, 0U);
}

TEST_F(FolderConfinementTest, LinksToFoldersAreDocumentsThatCannotBeListed) {
    std::filesystem::create_symlink(outside.path(), path("link"));
    std::filesystem::create_symlink(".", path("self"));
    const Page page = load(listing(1));
    EXPECT_THAT(page.folders, IsEmpty());
    ASSERT_THAT(names(page.documents), ElementsAre("link", "self"));
    expectFailure(listing(page.documents[0].id), Reason::Refused, "'link' is not a folder");
    expectFailure(named(listing(page.documents[0].id), "secret"), Reason::Refused, "'link'");
}

TEST_F(FolderConfinementTest, TheRootMayItselfBeReachedThroughALink) {
    std::filesystem::create_symlink(outside.path(), path("link"));
    EXPECT_THAT(names(FolderService(path("link")).load(listing(1)).documents),
                ElementsAre("secret"));
}

TEST_F(FolderConfinementTest, AFolderSwappedForALinkIsRefused) {
    folder.makeFolder("f/g");
    folder.writeFile("f/inside");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    outside.makeFolder("g");
    outside.writeFile("g/secret");
    letSettle();
    EXPECT_THAT(names(load(listing(f)).documents), ElementsAre("inside"));
    std::filesystem::rename(path("f"), path("f.away"));
    std::filesystem::create_symlink(outside.path(), path("f"));
    expectFailure(listing(f), Reason::Refused, "cannot open the folder 'f'");
    expectFailure(listing(g), Reason::Refused, "cannot open the folder 'f/g'");
    expectFailure(named(listing(f), "secret"), Reason::Refused, "'f'");
    expectFailure(named(listing(g), "secret"), Reason::Refused, "'f/g'");
    expectFailure(ofType(listing(f), 16), Reason::Refused, "'f'");
    EXPECT_THAT(names(load(listing(1)).documents), ElementsAre("f"));
}

TEST_F(FolderConfinementTest, ALinkIsNotFollowedEvenIfItStaysInside) {
    folder.makeFolder("f/g");
    folder.writeFile("f/g/inside");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    std::filesystem::rename(path("f"), path("away"));
    std::filesystem::create_symlink("away", path("f"));
    expectFailure(listing(f), Reason::Refused, "'f'");
    expectFailure(listing(g), Reason::Refused, "'f/g'");
}

TEST_F(FolderConfinementTest, SwappingBackAndForthNeverShowsTheOutside) {
    folder.makeFolder("f/g");
    folder.writeFile("f/g/inside");
    outside.makeFolder("g");
    outside.writeFile("g/secret");
    std::filesystem::create_symlink(outside.path(), path("link"));
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    std::jthread swapper([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            renameat2(AT_FDCWD, path("f").c_str(), AT_FDCWD, path("link").c_str(), RENAME_EXCHANGE);
        }
    });
    int shown = 0;
    int refused = 0;
    for (int i = 0; i < 3000 || (i < 300'000 && (shown == 0 || refused == 0)); ++i) {
        for (const ItemFilter& filter : {listing(g), named(listing(g), "secret"), listing(f)}) {
            Page page;
            try {
                page = load(filter);
                ++shown;
            } catch (const ServiceError& error) {
                EXPECT_EQ(error.reason(), Reason::Refused) << error.what();
                ++refused;
            }
            EXPECT_THAT(names(page.documents), Not(Contains("secret")));
        }
    }
    EXPECT_GT(shown, 0);
    EXPECT_GT(refused, 0);
}

TEST_F(FolderConfinementTest, SwappingBackAndForthNeverLetsAnActionOut) {
    const Ormek::Testing::UnsyncedDisk unsynced;
    folder.makeFolder("f/g");
    outside.makeFolder("g");
    outside.writeFile("g/a", "outside");
    std::filesystem::create_symlink(outside.path(), path("link"));
    const unsigned long g = folderId("g", folderId("f"));
    const unsigned long b = [&] {
        folder.writeFile("b");
        return documentId("b");
    }();
    std::jthread swapper([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            renameat2(AT_FDCWD, path("f").c_str(), AT_FDCWD, path("link").c_str(), RENAME_EXCHANGE);
        }
    });
    int done = 0;
    int refused = 0;
    const auto attempt = [&](const auto& action) {
        try {
            action();
            ++done;
        } catch (const ServiceError& error) {
            EXPECT_TRUE(error.reason() == Reason::Refused || error.reason() == Reason::Exists)
                << error.what();
            refused += error.reason() == Reason::Refused ? 1 : 0;
        }
    };
    const auto remove = [&](const std::string& name) {
        const Page page = look(name, g);
        if (page.totalCount == 1) {
            service.remove({page.documents.at(0).id, g, 1, ""});
        }
    };
    for (int i = 0; i < 1000 || (i < 100'000 && (done == 0 || refused == 0)); ++i) {
        attempt([&] { service.create({9, g, 1, "a"}, nullptr, {}); });
        attempt([&] { remove("a"); });
        attempt([&] { service.move({b, g, 1, ""}); });
        attempt([&] { service.move({b, 1, 1, ""}); });
        attempt([&] { service.makeFolder({9, g, 1, "n" + std::to_string(i)}); });
    }
    swapper.request_stop();
    swapper.join();
    EXPECT_GT(done, 0);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside / "g"), {}), 1);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outside.path()), {}), 2);
    EXPECT_EQ(std::filesystem::file_size(outside / "g" / "a"), 7U);
}

TEST_F(FolderConfinementTest, ARenamedEntryStaysInItsFolderThoughThatIsExchanged) {
    const Ormek::Testing::UnsyncedDisk unsynced;
    folder.makeFolder("f");
    folder.makeFolder("g");
    folder.writeFile("f/a");
    folder.writeFile("f/home");
    FileDescriptor home(::open(path("f").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const unsigned long f = folderId("f");
    std::jthread swapper([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            renameat2(AT_FDCWD, path("f").c_str(), AT_FDCWD, path("g").c_str(), RENAME_EXCHANGE);
        }
    });
    int renamed = 0;
    for (int i = 0; i < 20'000; ++i) {
        try {
            const bool forth = faccessat(home.get(), "a", F_OK, 0) == 0;
            const Page page = look(forth ? "a" : "b", f);
            if (page.totalCount == 1) {
                service.rename({page.documents.at(0).id, f, 1, forth ? "b" : "a"});
                ++renamed;
            }
        } catch (const ServiceError& error) {
            EXPECT_EQ(error.reason(), Reason::NotFound) << error.what();
        }
        ASSERT_TRUE(faccessat(home.get(), "a", F_OK, 0) == 0 ||
                    faccessat(home.get(), "b", F_OK, 0) == 0)
            << "it has left its folder after " << renamed;
    }
    EXPECT_GT(renamed, 0);
}

TEST_F(FolderConfinementTest, AnUnreadableFolderFailsThatQueryAlone) {
    folder.makeFolder("locked");
    folder.writeFile("a");
    const unsigned long locked = folderId("locked");
    ASSERT_EQ(chmod(path("locked").c_str(), 0), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([&] {
        expectFailure(listing(locked), Reason::NoPermission, "cannot open the folder 'locked'");
        expectFailure(named(listing(locked), "x"), Reason::NoPermission, "'locked/x'");
        EXPECT_EQ(load(listing(1)).totalCount, 2U);
    });
    ASSERT_EQ(chmod(path("locked").c_str(), 0700), 0);
    EXPECT_EQ(load(listing(locked)).totalCount, 0U);
}

TEST_F(FolderConfinementTest, AFolderThatMayOnlyBeReadGivesNames) {
    folder.makeFolder("f/sub");
    folder.writeFile("f/a.txt", "12345");
    const unsigned long f = folderId("f");
    ASSERT_EQ(chmod(path("f").c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([&] {
        const Page page = load(listing(f));
        ASSERT_THAT(names(page.folders), ElementsAre("sub"));
        ASSERT_THAT(names(page.documents), ElementsAre("a.txt"));
        EXPECT_EQ(page.folders[0].accessLevel, 0);
        EXPECT_EQ(page.documents[0].aclMode, 0);
        EXPECT_EQ(page.documents[0].length, 0U);
        EXPECT_EQ(page.documents[0].updated, 0U);
        EXPECT_EQ(page.documents[0].mimeType, "text/plain");
        expectFailure(named(listing(f), "a.txt"), Reason::NoPermission, "'f/a.txt'");
    });
    // So that it can be removed.
    ASSERT_EQ(chmod(path("f").c_str(), 0700), 0);
}

TEST_F(FolderConfinementTest, AFolderThatMayOnlyBeSearchedCanBeLookedUpIn) {
    folder.makeFolder("f");
    folder.writeFile("f/a");
    const unsigned long f = folderId("f");
    ASSERT_EQ(chmod(path("f").c_str(), 0111), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([&] {
        expectFailure(listing(f), Reason::NoPermission, "'f'");
        EXPECT_THAT(names(look("a", f).documents), ElementsAre("a"));
    });
    // So that it can be removed.
    ASSERT_EQ(chmod(path("f").c_str(), 0700), 0);
}

TEST_F(FolderConfinementTest, AVanishedFolderIsNotFound) {
    folder.makeFolder("f/g");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    std::filesystem::remove_all(path("f"));
    expectFailure(listing(g), Reason::NotFound, "cannot open the folder 'f/g'");
    expectFailure(listing(f), Reason::NotFound, "cannot open the folder 'f'");
    expectFailure(listing(f), Reason::NotFound, "no folder with id");
    folder.makeFolder("f");
    EXPECT_GT(folderId("f"), g);
}

TEST_F(FolderConfinementTest, AFolderThatBecameAFileIsNotFound) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    std::filesystem::remove(path("f"));
    folder.writeFile("f");
    expectFailure(listing(f), Reason::NotFound, "'f'");
}

TEST_F(FolderConfinementTest, AVanishedRootIsNotFound) {
    folder.makeFolder("root");
    FolderService inner(path("root"));
    std::filesystem::remove(path("root"));
    folder.makeFolder("root");
    folder.writeFile("root/other");
    expectFailureOf(inner, listing(1), Reason::NotFound, "'.'");
    EXPECT_EQ(inner.load(named(listing(1), "other")).totalCount, 0U);
}

TEST_F(FolderConfinementTest, TheRootMayMove) {
    folder.makeFolder("root");
    folder.writeFile("root/a");
    FolderService inner(path("root"));
    std::filesystem::rename(path("root"), path("elsewhere"));
    EXPECT_THAT(names(inner.load(listing(1)).documents), ElementsAre("a"));
}

TEST_F(FolderConfinementTest, WhatCannotBeOpenedIsNamedAtOnce) {
    const auto reasonFor = [](const std::string& name, const std::string& part) {
        try {
            const FolderService refused(name);
        } catch (const ServiceError& error) {
            EXPECT_THAT(error.what(), HasSubstr(part));
            return error.reason();
        }
        ADD_FAILURE() << name;
        return Reason::Internal;
    };
    folder.writeFile("file");
    EXPECT_EQ(reasonFor(path("none"), "/none': No such file or directory"), Reason::NotFound);
    EXPECT_EQ(reasonFor(path("file"), "/file': Not a directory"), Reason::NotFound);
    EXPECT_EQ(reasonFor("", "''"), Reason::NotFound);
    EXPECT_EQ(reasonFor(path("a\nb"), "/a\\nb'"), Reason::NotFound);
    EXPECT_EQ(reasonFor(folder.path().string() + std::string("\0x", 2), "\\000x"), Reason::Refused);
    folder.makeFolder("locked");
    ASSERT_EQ(chmod(path("locked").c_str(), 0), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges(
        [&] { EXPECT_EQ(reasonFor("./locked", "'./locked'"), Reason::NoPermission); });
    // So that it can be removed.
    ASSERT_EQ(chmod(path("locked").c_str(), 0700), 0);
}

TEST_F(FolderConfinementTest, TextsEscapeOddNames) {
    const std::string name = "a\n'\\\x01\xff\xc3\xa4";
    folder.makeFolder(name);
    const unsigned long id = folderId(name);
    std::filesystem::remove(path(name));
    expectFailure(listing(id), Reason::NotFound, "'a\\n\\'\\\\\\001\\377\xc3\xa4'");
}

TEST_F(FolderConfinementTest, WithoutDescriptorsLeftOnlyThatQueryFails) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an object";
#endif
    folder.writeFile("a");
    const int next = dup(STDERR_FILENO);
    close(next);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    std::exception_ptr failure;
    try {
        service.load(listing(1));
    } catch (...) {
        failure = std::current_exception();
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_TRUE(failure);
    try {
        std::rethrow_exception(failure);
    } catch (const ServiceError& error) {
        EXPECT_EQ(error.reason(), Reason::Internal);
        EXPECT_STREQ(error.what(), "cannot open the folder '.': Too many open files");
    }
    EXPECT_EQ(load(listing(1)).totalCount, 1U);
}

TEST_F(FolderConfinementTest, NoDescriptorStaysOpen) {
    folder.writeFile("a");
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    const int before = dup(STDERR_FILENO);
    close(before);
    for (int i = 0; i < 10; ++i) {
        load(listing(1));
        load(listing(f));
        load(ofType(listing(1), 16));
        look("a");
        failureOf(service, listing(99));
    }
    const int after = dup(STDERR_FILENO);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(FolderConfinementTest, FoldersDeeperThanAPathCanTellAreServed) {
    constexpr int Depth = 60;
    const std::string name(200, 'd');
    int at = open(folder.path().c_str(), O_PATH | O_DIRECTORY);
    for (int i = 0; i < Depth; ++i) {
        ASSERT_EQ(mkdirat(at, name.c_str(), 0700), 0);
        const int below = openat(at, name.c_str(), O_PATH | O_DIRECTORY);
        close(at);
        at = below;
    }
    const int file = openat(at, "bottom", O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(file, 0);
    close(file);
    close(at);
    unsigned long id = 1;
    for (int i = 0; i < Depth; ++i) {
        const Page page = load(listing(id));
        ASSERT_EQ(page.folders.size(), 1U);
        id = page.folders[0].id;
    }
    EXPECT_THAT(names(load(listing(id)).documents), ElementsAre("bottom"));
    EXPECT_THAT(names(look("bottom", id).documents), ElementsAre("bottom"));
}

TEST_F(FolderConfinementTest, AMountPointBelowIsServed) {
    folder.makeFolder("mounted");
    const unsigned long id = folderId("mounted");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // The mount lives and dies with the child.
        constexpr int NotAllowed = 77;
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", path("mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
            _exit(NotAllowed);
        }
        // A root descriptor from before would see the namespace from before.
        FolderService inside(folder.path());
        folder.writeFile("mounted/within");
        const unsigned long mounted = inside.load(listing(1)).folders.at(0).id;
        const Page page = inside.load(listing(mounted));
        _exit(page.documents.size() == 1 && page.documents[0].name == "within" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(load(listing(id)).totalCount, 0U);
}

}  // namespace
}  // namespace Nimra
