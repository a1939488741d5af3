#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <latch>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "backend/EntryName.h"
#include "backend/SystemError.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr unsigned long MiB = 1024UL * 1024;

class FolderActionsTest : public ActionFixture {
  protected:
    std::vector<std::string> listed(unsigned long id = 1) {
        const Page page = load(listing(id));
        std::vector<std::string> all = names(page.folders);
        const auto documents = names(page.documents);
        all.insert(all.end(), documents.begin(), documents.end());
        return all;
    }
    static std::string value(const Document& document, const std::string& key) {
        return document.keyValues().at(key).first;
    }
};

// --- Creating ------------------------------------------------------------------------------

TEST_F(FolderActionsTest, ACreatedDocumentIsOnDiskListedAndHasAnIdOfTheServer) {
    EXPECT_THAT(listed(), IsEmpty());
    const Document created = create("a.txt", "hello");
    EXPECT_EQ(content("a.txt"), "hello");
    EXPECT_EQ(created.name, "a.txt");
    EXPECT_EQ(created.parentId, 1U);
    EXPECT_EQ(created.length, 5U);
    EXPECT_EQ(created.type, 4);
    EXPECT_EQ(created.mimeType, "text/plain");
    EXPECT_EQ(created.id, documentId("a.txt"));
    EXPECT_LT(created.id, 100U);
    EXPECT_THAT(listed(), ElementsAre("a.txt"));
}

TEST_F(FolderActionsTest, WithoutContentTheFileIsEmpty) {
    EXPECT_EQ(service.create(record(5, 1, "e"), nullptr, {}).length, 0U);
    EXPECT_TRUE(exists("e"));
}

TEST_F(FolderActionsTest, KeyValuesOfACreationAreAttributesFromTheStart) {
    Document wanted = record(5, 1, "a");
    wanted.addKeyValue("colour", {"red", true});
    const Document created = service.create(wanted, nullptr, {});
    EXPECT_EQ(value(created, "colour"), "red");
    EXPECT_EQ(value(look("a").documents.at(0), "colour"), "red");
}

TEST_F(FolderActionsTest, ACreatedFileObeysTheUmask) {
    const mode_t before = umask(027);
    create("a");
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(path("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(FolderActionsTest, CreationGivesNoIdThatAnEntryOfThatNameHadBefore) {
    const unsigned long documentId = create("a", "").id;
    const unsigned long folderId = makeFolder("b").id;
    std::filesystem::rename(folder / "a", folder / "c");
    std::filesystem::rename(folder / "b", folder / "d");
    EXPECT_NE(create("a", "").id, documentId);
    EXPECT_NE(makeFolder("b").id, folderId);
}

TEST_F(FolderActionsTest, CreationNeverOverwrites) {
    folder.writeFile("file", "old");
    folder.makeFolder("folder");
    std::filesystem::create_symlink("nowhere", path("link"));
    for (const std::string name : {"file", "folder", "link"}) {
        expectRefusal([&] { create(name, "new"); }, Reason::Exists, "'" + name + "'");
    }
    EXPECT_EQ(content("file"), "old");
    EXPECT_FALSE(exists("nowhere"));
    EXPECT_THAT(onDisk(), ElementsAre("file", "folder", "link"));
}

TEST_F(FolderActionsTest, WhatAppearsDuringAnUploadIsNotOverwrittenEither) {
    PatternSource source(3 * MiB);
    source.before = [this](unsigned long position) {
        if (position > 0) {
            folder.writeFile("a", "other");
        }
    };
    expectRefusal([&] { service.create(record(5, 1, "a"), &source, {}); }, Reason::Exists, "'a'");
    EXPECT_EQ(content("a"), "other");
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_F(FolderActionsTest, NothingShowsWhileAnUploadIsUnderWay) {
    PatternSource source(3 * MiB);
    FolderService other(folder.path().string());
    source.before = [&](unsigned long) {
        EXPECT_FALSE(exists("a"));
        EXPECT_EQ(other.load(listing(1)).totalCount, 0U);
    };
    service.create(record(5, 1, "a"), &source, {});
    EXPECT_TRUE(isPattern(path("a"), 3 * MiB));
}

TEST_F(FolderActionsTest, AnUploadIntoAFolderThatIsTakenAwayMeanwhileLandsNowhere) {
    Ormek::Testing::TemporaryFolder outside;
    folder.makeFolder("f");
    folder.writeFile("f/old");
    const unsigned long f = folderId("f");
    PatternSource source(3 * MiB);
    source.before = [&](unsigned long position) {
        if (position == MiB) {
            std::filesystem::rename(path("f"), outside / "taken");
        }
    };
    expectRefusal([&] { service.create(record(5, f, "a"), &source, {}); }, Reason::NotFound, "'f'");
    EXPECT_FALSE(std::filesystem::exists(outside / "taken" / "a"));
    expectFailure(listing(f), Reason::NotFound, std::to_string(f));
    EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(FolderActionsTest, AnUploadIntoAFolderThatIsExchangedMeanwhileLandsInNeither) {
    folder.makeFolder("f");
    folder.makeFolder("g");
    const unsigned long f = folderId("f");
    PatternSource source(3 * MiB);
    source.before = [&](unsigned long position) {
        if (position == MiB) {
            ASSERT_EQ(renameat2(AT_FDCWD, path("f").c_str(), AT_FDCWD, path("g").c_str(),
                                RENAME_EXCHANGE),
                      0);
        }
    };
    expectRefusal([&] { service.create(record(5, f, "a"), &source, {}); }, Reason::NotFound, "'f'");
    EXPECT_THAT(onDisk("f"), IsEmpty());
    EXPECT_THAT(onDisk("g"), IsEmpty());
    EXPECT_NE(folderId("f"), f);
}

TEST_F(FolderActionsTest, AnUploadIntoAFolderThatIsRemovedMeanwhileFails) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    PatternSource source(3 * MiB);
    source.before = [&](unsigned long position) {
        if (position == MiB) {
            std::filesystem::remove(path("f"));
        }
    };
    expectRefusal([&] { service.create(record(5, f, "a"), &source, {}); }, Reason::NotFound, "'f'");
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(FolderActionsTest, AnUploadIntoTheRootGoesOnWhereverTheRootIsPut) {
    PatternSource source(3 * MiB);
    const std::string moved = folder.path().string() + "-moved";
    source.before = [&](unsigned long position) {
        if (position == MiB) {
            std::filesystem::rename(folder.path(), moved);
        }
    };
    EXPECT_EQ(service.create(record(5, 1, "a"), &source, {}).length, 3 * MiB);
    EXPECT_TRUE(isPattern(moved + "/a", 3 * MiB));
    std::filesystem::rename(moved, folder.path());
}

TEST_F(FolderActionsTest, ASourceThatSaysItGaveMoreThanWasAskedForIsNotBelieved) {
    class Boaster : public PatternSource {
      public:
        using PatternSource::PatternSource;
        std::size_t read(char* buffer, std::size_t size) override {
            return PatternSource::read(buffer, size) == 0 ? 0 : size + 1;
        }
    };
    Boaster source(MiB, 0);
    expectRefusal([&] { service.create(record(5, 1, "a"), &source, {}); }, Reason::Internal,
                  "more than was asked for");
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(FolderActionsTest, AFailingSourceLeavesNothing) {
    PatternSource source(3 * MiB);
    source.before = [](unsigned long position) {
        if (position > 0) {
            throw ServiceError(Reason::NotReachable, "the camera was pulled out");
        }
    };
    expectRefusal([&] { service.create(record(5, 1, "a"), &source, {}); }, Reason::NotReachable,
                  "camera");
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(FolderActionsTest, ContentThatIsNotAsLongAsPromisedLeavesNothing) {
    PatternSource shorter(10, 11);
    expectRefusal([&] { service.create(record(5, 1, "a"), &shorter, {}); }, Reason::Refused,
                  "10 bytes and not 11");
    PatternSource longer(2 * MiB, 5);
    expectRefusal([&] { service.create(record(5, 1, "a"), &longer, {}); }, Reason::Refused,
                  "and not 5");
    EXPECT_THAT(onDisk(), IsEmpty());
    PatternSource unknown(10, 0);
    EXPECT_EQ(service.create(record(5, 1, "a"), &unknown, {}).length, 10U);
}

TEST_F(FolderActionsTest, ALargeUploadRunsInConstantMemoryWithProgressInOrder) {
    constexpr unsigned long Size = 64 * MiB;
    PatternSource source(Size);
    std::vector<unsigned long> seen;
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const Document created =
        service.create(record(5, 1, "big"), &source, [&](unsigned long done, unsigned long total) {
            EXPECT_EQ(total, Size);
            seen.push_back(done);
        });
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024) << "KiB";
    EXPECT_LE(source.largestPiece, 4 * MiB);
    EXPECT_EQ(created.length, Size);
    EXPECT_GE(seen.size(), 8U);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), Size);
    EXPECT_TRUE(isPattern(path("big"), Size));
}

TEST_F(FolderActionsTest, OfManyServicesThatCreateTheSameNameExactlyOneWins) {
    constexpr int Threads = 4;
    for (int round = 0; round < 20; ++round) {
        const std::string name = 'n' + std::to_string(round);
        std::latch ready(Threads);
        std::atomic<int> won = 0;
        std::atomic<int> existed = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < Threads; ++i) {
            threads.emplace_back([&, i] {
                FolderService own(folder.path().string());
                TextSource text(std::string(1000, static_cast<char>('a' + i)));
                ready.arrive_and_wait();
                try {
                    own.create(record(5, 1, name), &text, {});
                    ++won;
                } catch (const ServiceError& error) {
                    existed += error.reason() == Reason::Exists ? 1 : 0;
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(won, 1);
        EXPECT_EQ(existed, Threads - 1);
        const std::string written = content(name);
        EXPECT_EQ(written, std::string(1000, written.empty() ? '?' : written[0]));
    }
    EXPECT_THAT(onDisk(), SizeIs(20));
}

TEST_F(FolderActionsTest, OfManyServicesThatRenameToTheSameNameExactlyOneWins) {
    constexpr int Threads = 4;
    for (int round = 0; round < 20; ++round) {
        const std::string goal = "goal" + std::to_string(round);
        std::latch ready(Threads);
        std::atomic<int> won = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < Threads; ++i) {
            const std::string from = "from" + std::to_string(round) + "." + std::to_string(i);
            folder.writeFile(from, from);
            threads.emplace_back([&, from] {
                FolderService own(folder.path().string());
                const auto id = own.load(named(listing(1), from)).documents.at(0).id;
                ready.arrive_and_wait();
                try {
                    own.rename(record(id, 1, goal));
                    ++won;
                } catch (const ServiceError& error) {
                    EXPECT_EQ(error.reason(), Reason::Exists) << error.what();
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(won, 1);
    }
    EXPECT_THAT(onDisk(), SizeIs(80));
}

TEST_F(FolderActionsTest, AKilledUploadLeavesNothingOrTheWhole) {
    constexpr unsigned long Size = 16 * MiB;
    unsigned long whole = 0;
    for (int round = 0; round < 12; ++round) {
        const std::string name = 'k' + std::to_string(round);
        const bool inTheMidst = round % 3 == 0;
        const bool atTheEnd = round % 3 == 1;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            PatternSource source(Size);
            source.before = [=](unsigned long position) {
                if (inTheMidst && position >= Size / 2) {
                    raise(SIGKILL);
                }
            };
            service.create(record(5, 1, name), &source, {});
            for (;;) {
                pause();
            }
        }
        // The others at some moment, for which a few milliseconds are as good as any.
        const int patience = atTheEnd ? 10'000 : round * 3;
        for (int i = 0; !inTheMidst && i < patience && !exists(name); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (!inTheMidst) {
            kill(child, SIGKILL);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_FALSE(inTheMidst && exists(name));
        EXPECT_TRUE(!atTheEnd || exists(name));
        if (exists(name)) {
            ++whole;
            EXPECT_TRUE(isPattern(path(name), Size)) << name;
        }
        EXPECT_THAT(onDisk(), SizeIs(whole)) << "something was left in round " << round;
    }
}

TEST_F(FolderActionsTest, AFullDiskIsToldAndLeavesNothing) {
    folder.makeFolder("small");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // The mount lives and dies with the child.
        constexpr int NotAllowed = 77;
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", path("small").c_str(), "tmpfs", 0, "size=1m") != 0) {
            _exit(NotAllowed);
        }
        FolderService inside(path("small"));
        for (int i = 0; i < 3; ++i) {
            PatternSource source(8 * MiB);
            expectRefusal([&] { inside.create(record(5, 1, "a"), &source, {}); }, Reason::NoSpace,
                          "cannot create 'a'");
            EXPECT_THAT(onDisk("small"), IsEmpty());
        }
        // What was written to no avail does not take up room.
        PatternSource fits(MiB / 2);
        EXPECT_EQ(inside.create(record(5, 1, "a"), &fits, {}).length, MiB / 2);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(FolderActionsTest, NamesAndFoldersThatCannotBeAreRefused) {
    const std::string kept = makeTemporaryName();
    const unsigned long file = create("file").id;
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("/"),
          std::string("a\0b", 3), std::string(256, 'x'), std::string("../a"), kept}) {
        expectRefusal([&] { create(name); }, Reason::Refused, "name");
        expectRefusal([&] { makeFolder(name); }, Reason::Refused, "name");
        expectRefusal([&] { rename(file, name); }, Reason::Refused, "name");
    }
    expectRefusal([&] { create("a", "", 99); }, Reason::NotFound, "99");
    expectRefusal([&] { makeFolder("a", 99); }, Reason::NotFound, "99");
    expectRefusal([&] { create("a", "", file); }, Reason::Refused, "'file' is not a folder");
    expectRefusal([&] { makeFolder("a", file); }, Reason::Refused, "'file' is not a folder");
    EXPECT_THAT(onDisk(), ElementsAre("file"));
}

TEST_F(FolderActionsTest, NamesMayBeAsLongAsTheSystemTakesAndOfAnyBytes) {
    const std::string other = "\xff\xfe\n\x01 'quoted' \xc3";
    for (const std::string& name : {std::string(255, 'x'), other}) {
        const unsigned long a = create(name, "x").id;
        EXPECT_EQ(documentId(name), a);
        expectRefusal([&] { makeFolder(name); }, Reason::Exists, quotedName(name));
        EXPECT_EQ(rename(a, "a").name, "a");
        EXPECT_EQ(rename(a, name).id, a);
        remove(a);
        const unsigned long f = makeFolder(name).id;
        EXPECT_EQ(rename(f, "f").name, "f");
        EXPECT_EQ(rename(f, name).id, f);
        remove(f);
        EXPECT_THAT(onDisk(), IsEmpty());
    }
}

TEST_F(FolderActionsTest, ActionsReachDeeperThanAPathCanTell) {
    const Ormek::Testing::UnsyncedDisk unsynced;
    unsigned long deepest = 1;
    for (int level = 0; level < 40; ++level) {
        deepest = makeFolder(std::string(250, 'd'), deepest).id;
    }
    const unsigned long a = create("a", "hello", deepest).id;
    EXPECT_EQ(rename(a, "b").name, "b");
    EXPECT_THAT(save(a, {{"k", "v"}}).keyValues(), SizeIs(1));
    const OpenedDocument opened = service.openStreams(record(a, 1, ""));
    EXPECT_EQ(opened.stream->size(), 5U);
    EXPECT_THAT(opened.document.keyValues(), SizeIs(1));
    EXPECT_EQ(move(a, 1).parentId, 1U);
    EXPECT_EQ(content("b"), "hello");
    EXPECT_EQ(move(a, deepest).parentId, deepest);
    remove(a);
    EXPECT_THAT(listed(deepest), IsEmpty());
    remove(deepest);
}

TEST_F(FolderActionsTest, AMountPointStaysWhereItIsAndNothingIsMovedAcross) {
    folder.makeFolder("mounted");
    folder.writeFile("a");
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
        FolderService inside(folder.path());
        const Page page = inside.load(listing(1));
        const unsigned long mounted = page.folders.at(0).id;
        const unsigned long a = page.documents.at(0).id;
        expectRefusal([&] { inside.remove(record(mounted, 1, "")); }, Reason::Refused, "'mounted'");
        expectRefusal([&] { inside.rename(record(mounted, 1, "x")); }, Reason::Refused,
                      "'mounted'");
        expectRefusal([&] { inside.move(record(a, mounted, "")); }, Reason::Refused, "'a'");
        TextSource text("hello");
        EXPECT_EQ(inside.create(record(9, mounted, "b"), &text, {}).length, 5U);
        EXPECT_EQ(content("mounted/b"), "hello");
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "mounting is not allowed here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(onDisk(), ElementsAre("a", "mounted"));
}

TEST_F(FolderActionsTest, AMadeFolderCanBeUsedAtOnce) {
    EXPECT_THAT(listed(), IsEmpty());
    const Folder made = makeFolder("f");
    EXPECT_EQ(made.name, "f");
    EXPECT_EQ(made.parentId, 1U);
    EXPECT_EQ(made.type, 8);
    EXPECT_EQ(made.id, folderId("f"));
    EXPECT_THAT(listed(), ElementsAre("f"));
    create("a", "x", made.id);
    EXPECT_EQ(content("f/a"), "x");
    expectRefusal([&] { makeFolder("f"); }, Reason::Exists, "'f'");
    folder.writeFile("file");
    expectRefusal([&] { makeFolder("file"); }, Reason::Exists, "'file'");
}

// --- Moving and renaming -------------------------------------------------------------------

TEST_F(FolderActionsTest, ARenamedDocumentKeepsItsIdAndContent) {
    const unsigned long id = create("a", "x").id;
    letSettle();
    EXPECT_THAT(listed(), ElementsAre("a"));
    const Document renamed = rename(id, "b");
    EXPECT_EQ(renamed.id, id);
    EXPECT_EQ(renamed.name, "b");
    EXPECT_EQ(renamed.length, 1U);
    EXPECT_THAT(listed(), ElementsAre("b"));
    EXPECT_EQ(documentId("b"), id);
    EXPECT_EQ(content("b"), "x");
    EXPECT_THAT(onDisk(), ElementsAre("b"));
    EXPECT_NE(create("a").id, id);
}

TEST_F(FolderActionsTest, ARenamedFolderAndAllBelowKeepTheirIds) {
    folder.makeFolder("f/g");
    folder.writeFile("f/g/a", "x");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    const unsigned long a = documentId("a", g);
    const Document renamed = rename(f, "h");
    EXPECT_EQ(renamed.id, f);
    EXPECT_EQ(renamed.type, 8);
    EXPECT_EQ(folderId("h"), f);
    EXPECT_EQ(load(listing(f)).folders.at(0).id, g);
    EXPECT_EQ(load(listing(g)).documents.at(0).id, a);
    EXPECT_EQ(rename(a, "b").parentId, g);
    EXPECT_EQ(content("h/g/b"), "x");
}

TEST_F(FolderActionsTest, AMovedEntryKeepsItsIdAndName) {
    folder.makeFolder("from/inner");
    folder.makeFolder("to");
    folder.writeFile("from/a", "x");
    folder.writeFile("from/inner/deep", "y");
    const unsigned long from = folderId("from");
    const unsigned long to = folderId("to");
    const unsigned long a = documentId("a", from);
    const unsigned long inner = folderId("inner", from);
    const unsigned long deep = documentId("deep", inner);
    letSettle();
    EXPECT_THAT(listed(from), ElementsAre("inner", "a"));
    EXPECT_THAT(listed(to), IsEmpty());

    const Document moved = move(a, to);
    EXPECT_EQ(moved.id, a);
    EXPECT_EQ(moved.parentId, to);
    EXPECT_EQ(moved.name, "a");
    EXPECT_EQ(move(inner, to).type, 8);
    EXPECT_THAT(listed(from), IsEmpty());
    EXPECT_THAT(listed(to), ElementsAre("inner", "a"));
    EXPECT_EQ(documentId("a", to), a);
    EXPECT_EQ(folderId("inner", to), inner);
    EXPECT_EQ(documentId("deep", inner), deep);
    EXPECT_EQ(content("to/inner/deep"), "y");
}

TEST_F(FolderActionsTest, MovingToTheSamePlaceChangesNothing) {
    const unsigned long a = create("a", "x").id;
    EXPECT_EQ(move(a, 1).name, "a");
    EXPECT_EQ(rename(a, "a").id, a);
    EXPECT_EQ(content("a"), "x");
}

TEST_F(FolderActionsTest, ATakenNameIsNeverOverwritten) {
    folder.makeFolder("to/a");
    folder.makeFolder("to/empty");
    folder.makeFolder("empty");
    const unsigned long to = folderId("to");
    const unsigned long a = create("a", "new").id;
    create("b", "old");
    expectRefusal([&] { rename(a, "b"); }, Reason::Exists, "'b'");
    expectRefusal([&] { rename(a, "to"); }, Reason::Exists, "'to'");
    expectRefusal([&] { move(a, to); }, Reason::Exists, "'to/a'");
    // Unlike plain renaming, which takes the place of an empty folder.
    expectRefusal([&] { move(folderId("empty"), to); }, Reason::Exists, "'to/empty'");
    EXPECT_EQ(content("a"), "new");
    EXPECT_EQ(content("b"), "old");
    EXPECT_EQ(documentId("a"), a);
    EXPECT_THAT(onDisk(), ElementsAre("a", "b", "empty", "to"));
}

TEST_F(FolderActionsTest, AFolderDoesNotMoveIntoItself) {
    folder.makeFolder("f/g/h");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    const unsigned long h = folderId("h", g);
    for (const unsigned long into : {f, g, h}) {
        expectRefusal([&] { move(f, into); }, Reason::Refused, "into itself");
    }
    EXPECT_EQ(move(h, f).parentId, f);
}

TEST_F(FolderActionsTest, IdsStandForWhatIsMovedOutsideOfTheTreesMemory) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    const unsigned long a = create("a", "x").id;
    std::filesystem::rename(path("a"), path("elsewhere"));
    expectRefusal([&] { rename(a, "b"); }, Reason::NotFound, "'a'");
    expectRefusal([&] { rename(a, "b"); }, Reason::NotFound, "no entry with id");
    std::filesystem::remove(path("f"));
    const unsigned long c = create("c").id;
    expectRefusal([&] { move(c, f); }, Reason::NotFound, "'f'");
    EXPECT_EQ(documentId("c"), c);
}

TEST_F(FolderActionsTest, WhatBecameOfAnotherKindIsNotTouched) {
    const unsigned long a = create("a").id;
    std::filesystem::remove(path("a"));
    folder.makeFolder("a");
    expectRefusal([&] { remove(a); }, Reason::NotFound, "'a'");
    EXPECT_TRUE(exists("a"));
}

// --- Removing ------------------------------------------------------------------------------

TEST_F(FolderActionsTest, ARemovedEntryIsGoneAndItsIdToo) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    const unsigned long a = create("a", "x").id;
    letSettle();
    EXPECT_THAT(listed(), ElementsAre("f", "a"));
    remove(a);
    remove(f);
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_THAT(onDisk(), IsEmpty());
    expectRefusal([&] { remove(a); }, Reason::NotFound, std::to_string(a));
    expectFailure(listing(f), Reason::NotFound, std::to_string(f));
    EXPECT_GT(create("a").id, a);
}

TEST_F(FolderActionsTest, AFolderThatIsNotEmptyStays) {
    folder.makeFolder("f");
    folder.writeFile("f/a", "x");
    const unsigned long f = folderId("f");
    expectRefusal([&] { remove(f); }, Reason::Refused, "not empty");
    EXPECT_EQ(content("f/a"), "x");
    remove(documentId("a", f));
    remove(f);
    EXPECT_FALSE(exists("f"));
}

TEST_F(FolderActionsTest, TheRootStays) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    expectRefusal([&] { remove(1); }, Reason::Refused, "root");
    expectRefusal([&] { rename(1, "x"); }, Reason::Refused, "root");
    expectRefusal([&] { move(1, f); }, Reason::Refused, "root");
    expectRefusal([&] { service.openStreams(record(1, 0, "")); }, Reason::Refused, "root");
    expectRefusal([&] { service.openSession(0, 1, 1); }, Reason::Refused, "root");
}

TEST_F(FolderActionsTest, TemporaryFilesAreNotListedAndDoNotKeepAFolder) {
    const std::string left = ".ormek-0123456789abcdef0123456789abcdef.part";
    folder.makeFolder("f");
    folder.writeFile("f/" + left, "half");
    folder.writeFile("f/.ormek-short.part");
    const unsigned long f = folderId("f");
    EXPECT_THAT(listed(f), ElementsAre(".ormek-short.part"));
    EXPECT_EQ(look(left, f).totalCount, 0U);
    expectRefusal([&] { remove(f); }, Reason::Refused, "not empty");
    remove(documentId(".ormek-short.part", f));
    remove(f);
    EXPECT_FALSE(exists("f"));
}

/// An entry that looks by its name as if it were a file under way.
class MisleadingNameTest : public FolderActionsTest {
  protected:
    void make(const std::string& kind) {
        std::filesystem::remove(path(name));
        if (kind == "folder") {
            folder.makeFolder(name);
        } else if (kind == "link") {
            std::filesystem::create_symlink("nowhere", path(name));
        } else if (kind == "pipe") {
            ASSERT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        } else {
            ASSERT_EQ(mknod(path(name).c_str(), S_IFSOCK | 0600, 0), 0);
        }
    }

    const std::vector<std::string> kinds = {"folder", "link", "pipe", "socket"};
    const std::string name = "f/" + makeTemporaryName();
};

TEST_F(MisleadingNameTest, WhatIsNoFileIsListed) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    for (const auto& kind : kinds) {
        make(kind);
        EXPECT_THAT(listed(f), ElementsAre(name.substr(2))) << kind;
        EXPECT_EQ(look(name.substr(2), f).totalCount, 1U) << kind;
        const Ormek::Testing::UnknownKinds unknown;
        EXPECT_THAT(listed(f), ElementsAre(name.substr(2))) << kind;
    }
}

TEST_F(MisleadingNameTest, WhatIsNoFileKeepsItsFolderAndCanBeRenamedAndRemoved) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    for (const auto& kind : kinds) {
        make(kind);
        expectRefusal([&] { remove(f); }, Reason::Refused, "not empty");
        EXPECT_TRUE(exists(name)) << kind;
        const Page page = load(listing(f));
        const unsigned long id =
            page.folders.empty() ? page.documents.at(0).id : page.folders.at(0).id;
        EXPECT_EQ(rename(id, "better").name, "better");
        remove(id);
        EXPECT_THAT(onDisk("f"), IsEmpty()) << kind;
    }
}

class LeftoverTest : public FolderActionsTest {
  protected:
    std::string leave(std::chrono::hours age) const {
        const std::string name = makeTemporaryName();
        folder.writeFile(name, "half");
        std::filesystem::last_write_time(path(name),
                                         std::filesystem::file_time_type::clock::now() - age);
        return name;
    }
};

TEST_F(LeftoverTest, WhatWasLeftADayAgoIsSweptWhenItsFolderIsListed) {
    folder.writeFile("a");
    const std::string old = leave(std::chrono::hours(25));
    const std::string recent = leave(std::chrono::hours(23));
    EXPECT_THAT(listed(), ElementsAre("a"));
    EXPECT_FALSE(exists(old));
    EXPECT_TRUE(exists(recent)) << "may be written where locks do not reach";
    EXPECT_THAT(listed(), ElementsAre("a"));
}

TEST_F(LeftoverTest, WhatIsBeingWrittenStaysHoweverOldItLooks) {
    const std::string old = leave(std::chrono::hours(1000));
    const FileDescriptor writer(open(path(old).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(writer.get(), LOCK_EX), 0);
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_TRUE(exists(old));
}

TEST_F(LeftoverTest, AListingDoesNotFailForWhatCannotBeSwept) {
    const std::string old = leave(std::chrono::hours(25));
    for (const std::string call : {"openat", "unlinkat", "flock", "readdir64"}) {
        const Ormek::Testing::FailingCall failing(call, EIO);
        EXPECT_THAT(listed(), IsEmpty());
        EXPECT_TRUE(failing.happened()) << call;
        EXPECT_TRUE(exists(old));
    }
    EXPECT_THAT(listed(), IsEmpty());
    EXPECT_FALSE(exists(old));
}

// --- Confinement ---------------------------------------------------------------------------

TEST_F(FolderActionsTest, ALinkIsActedOnItself) {
    Ormek::Testing::TemporaryFolder outside;
    outside.writeFile("secret", "s");
    std::filesystem::create_symlink(outside / "secret", path("link"));
    const unsigned long link = documentId("link");
    expectRefusal([&] { service.openStreams(record(link, 1, "")); }, Reason::Refused,
                  "not a regular file");
    expectRefusal([&] { save(link, {{"k", "v"}}); }, Reason::Refused, "'link'");
    EXPECT_EQ(rename(link, "other").mimeType, "inode/symlink");
    EXPECT_TRUE(std::filesystem::is_symlink(path("other")));
    remove(link);
    EXPECT_FALSE(exists("other"));
    EXPECT_TRUE(std::filesystem::exists(outside / "secret"));
    EXPECT_EQ(getxattr((outside / "secret").c_str(), "user.k", nullptr, 0), -1);
}

TEST_F(FolderActionsTest, AFolderSwappedForALinkLeadsNowhere) {
    Ormek::Testing::TemporaryFolder outside;
    outside.makeFolder("g");
    outside.writeFile("g/a", "outside");
    outside.writeFile("a", "outside");
    folder.makeFolder("f/g");
    folder.writeFile("f/a");
    folder.writeFile("f/g/a");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    const unsigned long a = documentId("a", f);
    const unsigned long deep = documentId("a", g);
    const unsigned long own = create("own").id;
    std::filesystem::rename(path("f"), path("away"));
    std::filesystem::create_symlink(outside.path(), path("f"));
    for (const unsigned long id : {a, deep}) {
        expectRefusal([&] { remove(id); }, Reason::Refused, "cannot open the folder 'f");
        expectRefusal([&] { rename(id, "b"); }, Reason::Refused, "cannot open the folder 'f");
        expectRefusal([&] { move(id, 1); }, Reason::Refused, "cannot open the folder 'f");
        expectRefusal([&] { save(id, {{"k", "v"}}); }, Reason::Refused, "cannot open the folder");
        expectRefusal([&] { service.openStreams(record(id, f, "a")); }, Reason::Refused, "'f");
        expectRefusal([&] { service.openSession(f, id, 1); }, Reason::Refused, "'f");
    }
    for (const unsigned long into : {f, g}) {
        expectRefusal([&] { create("new", "", into); }, Reason::Refused, "cannot open the folder");
        expectRefusal([&] { makeFolder("new", into); }, Reason::Refused, "cannot open the folder");
        expectRefusal([&] { move(own, into); }, Reason::Refused, "cannot open the folder");
    }
    EXPECT_TRUE(exists("own"));
    const auto inside = [&](const std::string& name) {
        return std::distance(std::filesystem::directory_iterator(outside / name), {});
    };
    EXPECT_EQ(inside("."), 2);
    EXPECT_EQ(inside("g"), 1);
}

TEST_F(FolderActionsTest, WithoutPermissionNothingChanges) {
    folder.makeFolder("f");
    folder.writeFile("f/a", "x");
    const unsigned long f = folderId("f");
    const unsigned long a = documentId("a", f);
    ASSERT_EQ(chmod(path("f").c_str(), 0555), 0);
    ASSERT_EQ(chmod(path("f/a").c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([&] {
        expectRefusal([&] { create("b", "", f); }, Reason::NoPermission, "'f");
        expectRefusal([&] { makeFolder("b", f); }, Reason::NoPermission, "'f/b'");
        expectRefusal([&] { rename(a, "b"); }, Reason::NoPermission, "'f/a'");
        expectRefusal([&] { remove(a); }, Reason::NoPermission, "'f/a'");
        expectRefusal([&] { save(a, {{"k", "v"}}); }, Reason::NoPermission, "'f/a'");
    });
    // So that it can be removed.
    ASSERT_EQ(chmod(path("f").c_str(), 0700), 0);
    EXPECT_EQ(content("f/a"), "x");
}

TEST_F(FolderActionsTest, AFolderThatMayBeWrittenButNotReadTakesFiles) {
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    ASSERT_EQ(chmod(path("f").c_str(), 0333), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([&] { EXPECT_EQ(create("a", "x", f).length, 1U); });
    EXPECT_EQ(content("f/a"), "x");
}

// --- Content -------------------------------------------------------------------------------

TEST_F(FolderActionsTest, ContentIsReadInRangesAndOutlivesItsName) {
    const unsigned long a = create("a", "0123456789").id;
    std::shared_ptr<DocumentStream> stream;
    {
        FolderService own(folder.path().string());
        const auto id = own.load(named(listing(1), "a")).documents.at(0).id;
        const OpenedDocument opened = own.openStreams(record(id, 1, "a"));
        EXPECT_EQ(opened.document.id, id);
        EXPECT_EQ(opened.document.length, 10U);
        stream = opened.stream;
    }
    remove(a);
    EXPECT_EQ(stream->size(), 10U);
    const auto read = [&stream](unsigned long offset, std::size_t size) {
        std::string buffer(size, '?');
        buffer.resize(stream->read(offset, buffer.data(), size));
        return buffer;
    };
    EXPECT_EQ(read(0, 4), "0123");
    EXPECT_EQ(read(7, 9), "789");
    EXPECT_EQ(read(10, 1), "");
    EXPECT_EQ(read(~0UL, 5), "");
    EXPECT_EQ(read(3, 0), "");
    std::string other;
    std::thread([&] { other = read(2, 3); }).join();
    EXPECT_EQ(other, "234");
}

TEST_F(FolderActionsTest, OnlyRegularFilesAreOpenedAndNothingBlocks) {
    folder.makeFolder("folder");
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod(path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const unsigned long f = folderId("folder");
    const unsigned long pipe = documentId("pipe");
    const unsigned long socket = documentId("socket");
    expectRefusal([&] { service.openStreams(record(socket, 1, "")); }, Reason::Refused, "'socket'");
    expectRefusal([&] { service.openStreams(record(f, 1, "")); }, Reason::Refused, "'folder'");
    expectRefusal([&] { service.openStreams(record(pipe, 1, "")); }, Reason::Refused, "'pipe'");
    expectRefusal([&] { service.openStreams(record(99, 1, "")); }, Reason::NotFound, "99");
}

TEST_F(FolderActionsTest, OpeningWaitsForALeaseToBeGivenBack) {
    const unsigned long a = create("a", "hello").id;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor taken(ends[0]);
    FileDescriptor takes(ends[1]);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sigset_t asked;
        sigemptyset(&asked);
        sigaddset(&asked, SIGIO);
        sigprocmask(SIG_BLOCK, &asked, nullptr);
        const int fd = ::open(path("a").c_str(), O_RDWR | O_CLOEXEC);
        const bool leased = fcntl(fd, F_SETLEASE, F_WRLCK) == 0;
        if (write(takes.get(), leased ? "y" : "n", 1) == 1 && leased) {
            sigwaitinfo(&asked, nullptr);
            fcntl(fd, F_SETLEASE, F_UNLCK);
        }
        _exit(0);
    }
    takes = FileDescriptor();
    char answer = 0;
    EXPECT_EQ(read(taken.get(), &answer, 1), 1);
    if (answer == 'y') {
        EXPECT_EQ(service.openStreams(record(a, 1, "")).stream->size(), 5U);
    }
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    if (answer != 'y') {
        GTEST_SKIP() << "no leases here";
    }
}

TEST_F(FolderActionsTest, RecordAndContentAreOfTheSameFileThoughItIsExchanged) {
    const std::string one(1, '1');
    const std::string three(3, '3');
    const unsigned long a = create("a", one).id;
    save(a, {{"length", "1"}});
    save(create("b", three).id, {{"length", "3"}});
    std::jthread swapper([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            renameat2(AT_FDCWD, path("a").c_str(), AT_FDCWD, path("b").c_str(), RENAME_EXCHANGE);
        }
    });
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        const OpenedDocument opened = service.openStreams(record(a, 1, ""));
        EXPECT_EQ(opened.document.length, opened.stream->size());
        EXPECT_EQ(value(opened.document, "length"), std::to_string(opened.stream->size()));
    }
}

TEST_F(FolderActionsTest, AStreamFollowsItsFileNotItsName) {
    const unsigned long a = create("a", "0123456789").id;
    const auto stream = service.openStreams(record(a, 1, "")).stream;
    const auto read = [&stream](unsigned long offset, std::size_t size) {
        std::string buffer(size, '?');
        buffer.resize(stream->read(offset, buffer.data(), size));
        return buffer;
    };
    std::filesystem::resize_file(path("a"), 4);
    EXPECT_EQ(stream->size(), 4U);
    EXPECT_EQ(read(2, 8), "23");
    EXPECT_EQ(read(4, 1), "");
    std::filesystem::resize_file(path("a"), 6);
    EXPECT_EQ(read(2, 8), std::string("23\0\0", 4));
    std::filesystem::rename(path("a"), path("b"));
    folder.writeFile("a", "another");
    EXPECT_EQ(stream->size(), 6U);
    EXPECT_EQ(read(0, 2), "01");
}

// --- Metadata ------------------------------------------------------------------------------

TEST_F(FolderActionsTest, SavedMetadataLeaveWhatTheyDoNotNameAndTheRecordHasAll) {
    const unsigned long a = create("a", "x").id;
    Document saved = save(a, {{"one", "1"}, {"two", "2"}});
    EXPECT_THAT(saved.keyValues(),
                ElementsAre(Pair("one", Pair("1", false)), Pair("two", Pair("2", false))));
    saved = save(a, {{"two", "zwei"}, {"three", std::string("3\0x", 3)}});
    EXPECT_THAT(saved.keyValues(), ElementsAre(Pair("one", Pair("1", false)),
                                               Pair("three", Pair(std::string("3\0x", 3), false)),
                                               Pair("two", Pair("zwei", false))));
    EXPECT_EQ(look("a").documents.at(0).keyValues(), saved.keyValues());
    EXPECT_EQ(load(ofType(listing(1), 16)).tags.at(0).keyValues(), saved.keyValues());
    EXPECT_EQ(save(a, {}).keyValues(), saved.keyValues());
}

TEST_F(FolderActionsTest, AttributesThatWereWrittenElsewhereOutliveSavedMetadata) {
    const unsigned long a = create("a", "x").id;
    save(a, {{"mine", "1"}});
    ASSERT_EQ(setxattr(path("a").c_str(), "user.elsewhere", "1", 1, 0), 0);
    const Document saved = save(a, {{"mine", "2"}});
    EXPECT_THAT(saved.keyValues(),
                ElementsAre(Pair("elsewhere", Pair("1", false)), Pair("mine", Pair("2", false))));
    EXPECT_EQ(look("a").documents.at(0).keyValues(), saved.keyValues());
}

TEST_F(FolderActionsTest, LengthAndTypeAreNotChangedByMetadata) {
    Document document = record(create("a.txt", "12345").id, 1, "other");
    document.length = 2;
    document.mimeType = "image/png";
    const Document saved = service.saveMetaData(document);
    EXPECT_EQ(saved.length, 5U);
    EXPECT_EQ(saved.mimeType, "text/plain");
    EXPECT_EQ(saved.name, "a.txt");
    EXPECT_EQ(content("a.txt"), "12345");
}

TEST_F(FolderActionsTest, FoldersHaveMetadataToo) {
    const unsigned long f = makeFolder("f").id;
    EXPECT_EQ(value(save(f, {{"k", "v"}}), "k"), "v");
    EXPECT_EQ(load(ofType(listing(1), 16)).totalCount, 1U);
}

TEST_F(FolderActionsTest, MetadataThatDoNotFitLeaveWhatWasThere) {
    const unsigned long a = create("a").id;
    save(a, {{"b", "kept"}, {"c", "kept too"}});
    const std::string tooLong(256, 'k');
    const std::string tooLarge(128 * 1024, 'v');
    expectRefusal([&] { save(a, {{tooLong, "v"}}); }, Reason::Refused, "cannot be a key");
    expectRefusal([&] { save(a, {{"", "v"}}); }, Reason::Refused, "cannot be a key");
    expectRefusal([&] { save(a, {{std::string("a\0b", 3), "v"}}); }, Reason::Refused, "key");
    expectRefusal([&] { save(a, {{"a", "new"}, {"z", tooLarge}}); }, Reason::Refused, "user.z");
    EXPECT_THAT(look("a").documents.at(0).keyValues(),
                ElementsAre(Pair("b", Pair("kept", false)), Pair("c", Pair("kept too", false))));
    Document unwritable = record(5, 1, "n");
    unwritable.addKeyValue("z", {tooLarge, false});
    expectRefusal([&] { service.create(unwritable, nullptr, {}); }, Reason::Refused, "user.z");
    EXPECT_THAT(onDisk(), ElementsAre("a"));
}

TEST_F(FolderActionsTest, MetadataThatCannotBeKeptFailACreationBeforeItsContentIsRead) {
    const auto expectUnread = [this](const std::string& key, const std::string& value,
                                     const std::string& part) {
        PatternSource source(10);
        source.before = [](unsigned long) { ADD_FAILURE() << "was read"; };
        Document wanted = record(5, 1, "a");
        wanted.addKeyValue(key, {value, false});
        expectRefusal([&] { service.create(wanted, &source, {}); }, Reason::Refused, part);
    };
    expectUnread("", "v", "cannot be a key");
    expectUnread("z", std::string(128 * 1024, 'v'), "user.z");
    const Ormek::Testing::FailingCall none("setxattr", ENOTSUP);
    expectUnread("k", "v", "keeps no attributes");
    EXPECT_THAT(onDisk(), IsEmpty());
}

TEST_F(FolderActionsTest, AFileSystemWithoutAttributesIsNamed) {
    // No user attributes, but folders that can be served.
    FolderService system("/proc");
    const auto id = system.load(named(listing(1), "uptime")).documents.at(0).id;
    Document document = record(id, 1, "uptime");
    document.addKeyValue("k", {"v", false});
    expectRefusal([&] { system.saveMetaData(document); }, Reason::Refused,
                  "its file system keeps no attributes");
}

// --- Sessions ------------------------------------------------------------------------------

TEST_F(FolderActionsTest, ADocumentHasOneSessionAtATime) {
    const unsigned long a = create("a").id;
    const unsigned long b = create("b").id;
    const DocumentSession held = service.openSession(1, a, 7);
    EXPECT_EQ(held.folderId, 1U);
    EXPECT_EQ(held.documentId, a);
    EXPECT_EQ(held.userId, 7U);
    EXPECT_THAT(held.token, SizeIs(32));
    expectRefusal([&] { service.openSession(1, a, 8); }, Reason::Refused, "session of user 7");
    EXPECT_NE(service.openSession(1, b, 8).token, held.token);

    DocumentSession forged = held;
    forged.token = std::string(32, '0');
    expectRefusal([&] { service.releaseSession(forged); }, Reason::NotFound, "no such session");
    expectRefusal([&] { service.openSession(1, a, 8); }, Reason::Refused, "session");
    service.releaseSession(held);
    expectRefusal([&] { service.releaseSession(held); }, Reason::NotFound, "no such session");
    EXPECT_NE(service.openSession(1, a, 8).token, held.token);
}

TEST_F(FolderActionsTest, SessionsAreForDocumentsAndEndWithThem) {
    const unsigned long f = makeFolder("f").id;
    expectRefusal([&] { service.openSession(1, f, 1); }, Reason::Refused, "'f' is a folder");
    expectRefusal([&] { service.openSession(1, 99, 1); }, Reason::NotFound, "99");
    const unsigned long a = create("a").id;
    const DocumentSession held = service.openSession(1, a, 1);
    rename(a, "b");
    expectRefusal([&] { service.openSession(1, a, 1); }, Reason::Refused, "session");
    remove(a);
    expectRefusal([&] { service.releaseSession(held); }, Reason::NotFound, "no such session");
}

TEST_F(FolderActionsTest, ASessionEndsWithADocumentThatOthersRemove) {
    folder.makeFolder("f/g");
    folder.writeFile("f/g/deep");
    const unsigned long a = create("a").id;
    const unsigned long b = create("b").id;
    const unsigned long deep = documentId("deep", folderId("g", folderId("f")));
    std::vector<DocumentSession> held;
    for (const unsigned long id : {a, b, deep}) {
        held.push_back(service.openSession(1, id, 1));
    }
    std::filesystem::remove(path("a"));
    EXPECT_EQ(look("a").totalCount, 0U);
    std::filesystem::remove(path("b"));
    std::filesystem::remove_all(path("f"));
    EXPECT_THAT(listed(), IsEmpty());
    for (const auto& session : held) {
        expectRefusal([&] { service.releaseSession(session); }, Reason::NotFound,
                      "no such session");
    }
}

TEST_F(FolderActionsTest, ASessionStaysWithADocumentThatThisServiceMoves) {
    const unsigned long f = makeFolder("f").id;
    const unsigned long a = create("a").id;
    const DocumentSession held = service.openSession(1, a, 1);
    move(a, f);
    rename(a, "b");
    expectRefusal([&] { service.openSession(f, a, 2); }, Reason::Refused, "user 1");
    EXPECT_NO_THROW(service.releaseSession(held));
}

TEST_F(FolderActionsTest, SessionsMayBeReleasedBesideOtherCalls) {
    constexpr int Sessions = 200;
    std::vector<DocumentSession> held;
    for (int i = 0; i < Sessions; ++i) {
        folder.writeFile("d" + std::to_string(i));
        held.push_back(service.openSession(1, documentId("d" + std::to_string(i)), 1));
    }
    std::thread releasing([&] {
        for (const auto& session : held) {
            service.releaseSession(session);
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(load(listing(1)).documents.size(), Sessions);
        folder.writeFile("more" + std::to_string(i));
        std::filesystem::remove(path("more" + std::to_string(i)));
    }
    releasing.join();
    EXPECT_NO_THROW(service.openSession(1, held.front().documentId, 2));
}

TEST_F(FolderActionsTest, OfManyWhoAskForASessionAtOnceOneGetsIt) {
    const unsigned long a = create("a").id;
    SessionTable sessions;
    std::latch ready(4);
    std::atomic<int> given = 0;
    std::vector<std::thread> threads;
    for (unsigned long user = 1; user <= 4; ++user) {
        threads.emplace_back([&, user] {
            ready.arrive_and_wait();
            try {
                sessions.open(1, a, user);
                ++given;
            } catch (const ServiceError& error) {
                EXPECT_EQ(error.reason(), Reason::Refused);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(given, 1);
}

TEST_F(FolderActionsTest, NoDescriptorStaysOpen) {
    const auto next = [] {
        const int fd = dup(STDERR_FILENO);
        close(fd);
        return fd;
    };
    folder.makeFolder("f");
    const unsigned long f = folderId("f");
    const int before = next();
    for (int i = 0; i < 5; ++i) {
        const unsigned long a = create("a", "x").id;
        save(a, {{"k", "v"}});
        service.openStreams(record(a, 1, ""));
        expectRefusal([&] { create("a"); }, Reason::Exists, "a");
        rename(a, "b");
        move(a, f);
        expectRefusal([&] { remove(f); }, Reason::Refused, "empty");
        remove(a);
    }
    EXPECT_EQ(next(), before);
}

}  // namespace
}  // namespace Nimra
