// What the cache promises to threads: an operation that says that it takes a mutex for all it does
// may be called beside others that do. What takes none, and what an entry says, is the caller's to
// serialise, and no part of these tests.

#include <gmock/gmock.h>

#include <algorithm>
#include <ios>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Crowd.h"
#include "tests/support/Fakes.h"
#include "tests/support/SilentOutput.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAreArray;

using Ids = std::vector<unsigned long>;

constexpr unsigned long Threads = 3;
constexpr unsigned long Rounds = 150;
constexpr unsigned long Folder = 1000001;
constexpr unsigned long OtherFolder = 1000002;

/// Ids of its own for every thread.
unsigned long idFor(unsigned long thread, unsigned long number) {
    return 1 + thread * 1000 + number;
}

/// The ids of every thread, ascending.
template <class IsWanted>
Ids idsOfAll(IsWanted isWanted) {
    Ids ids;
    for (unsigned long thread = 0; thread < Threads; ++thread) {
        for (unsigned long number = 0; number < Rounds; ++number) {
            if (isWanted(number)) {
                ids.push_back(idFor(thread, number));
            }
        }
    }
    return ids;
}

bool isEven(unsigned long number) { return number % 2 == 0; }
bool isAny(unsigned long) { return true; }

class CacheThreadsTest : public testing::Test {
  protected:
    /// A directory of a folder, held by the caller, too.
    std::shared_ptr<QueryResultInternal> directory(unsigned long folder) {
        auto made = std::make_shared<QueryResultInternal>(folderFilter(folder));
        wired.probe.directories().push_back(made);
        return made;
    }

    Ids storedIds() {
        Ids ids;
        std::transform(wired.probe.items().begin(), wired.probe.items().end(),
                       std::back_inserter(ids), [](const auto& entry) { return entry.first; });
        std::sort(ids.begin(), ids.end());
        return ids;
    }
    static Ids idsIn(const QueryResult& result) {
        Ids ids;
        for (const auto& item : result.items()) {
            ids.push_back(item->id());
        }
        std::sort(ids.begin(), ids.end());
        return ids;
    }

    /// Has `work(thread, number)` done on every thread for every number, and meanwhile `look()`
    /// again and again on a thread of its own.
    template <class Work, class Look>
    void run(Work work, Look look) {
        Working working(Threads);
        Crowd crowd;
        for (unsigned long thread = 0; thread < Threads; ++thread) {
            crowd.add([&working, work, thread] {
                for (unsigned long number = 0; number < Rounds; ++number) {
                    work(thread, number);
                }
                working.oneIsDone();
            });
        }
        crowd.add([&working, look] {
            while (working.goesOn()) {
                look();
            }
        });
        crowd.finish();
    }

    // The trace has no lock, and needs none when it is switched off before threads come in.
    SilentOutput silent{std::ios_base::failbit};
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
};

// --- The store's mutex ---------------------------------------------------------------------

TEST_F(CacheThreadsTest, EntriesAreStoredAndFoundFromSeveralThreads) {
    run(
        [this](unsigned long thread, unsigned long number) {
            const unsigned long id = idFor(thread, number);
            Object object(*makeObject(id, Folder, "object"));
            Container container(*makeContainer(id, Folder, "container"));
            switch (number % 4) {
                case 0:
                    EXPECT_NE(cache.cacheObjectInternal(object), nullptr);
                    break;
                case 1:
                    EXPECT_NE(cache.cacheObjectPtrInternal(makeObject(id, Folder, "o")), nullptr);
                    break;
                case 2:
                    EXPECT_NE(cache.cacheContainerInternal(container), nullptr);
                    break;
                default:
                    cache.cacheContainerPtrInternal(makeContainer(id, Folder, "c"));
            }
            EXPECT_NE(cache.getItemInternal(id), nullptr);
        },
        [this] { cache.getItemInternal(idFor(1, Rounds / 2)); });
    EXPECT_THAT(storedIds(), ElementsAreArray(idsOfAll(isAny)));
}

TEST_F(CacheThreadsTest, TheFirstOfSeveralThreadsStoresAnEntryForAll) {
    std::vector<std::vector<std::shared_ptr<Object>>> stored(Threads);
    run(
        [&](unsigned long thread, unsigned long number) {
            stored[thread].push_back(
                cache.cacheObjectPtrInternal(makeObject(1 + number, Folder, "object")));
        },
        [] {});
    EXPECT_EQ(stored[0], stored[1]);
    EXPECT_EQ(stored[0], stored[2]);
    EXPECT_EQ(cache.itemsSize(), Rounds);
}

TEST_F(CacheThreadsTest, EntriesGetIdsAndParentsAndGoFromSeveralThreads) {
    for (const unsigned long id : idsOfAll(isAny)) {
        cache.cacheObjectPtr(makeObject(id, id, "object"));
    }
    constexpr unsigned long Moved = 500000;
    run(
        [this](unsigned long thread, unsigned long number) {
            const unsigned long id = idFor(thread, number);
            cache.updateItemParentIds(id, Folder);
            if (isEven(number)) {
                cache.updateItemId(id, id + Moved);
            } else {
                cache.removeItemFromCache(id);
            }
        },
        [this] { cache.getItemInternal(idFor(1, 0)); });

    Ids expected = idsOfAll(isEven);
    for (unsigned long& id : expected) {
        id += Moved;
        const std::shared_ptr<Item> item = cache.getItem(id);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->id(), id);
        EXPECT_TRUE(item->idLoaded());
        EXPECT_EQ(item->parentId(), Folder);
    }
    EXPECT_THAT(storedIds(), ElementsAreArray(expected));
}

// --- Both mutexes --------------------------------------------------------------------------

TEST_F(CacheThreadsTest, FoldersComeAndGoFromSeveralThreadsWhileTheirListingIsRead) {
    const auto listing = directory(Folder);
    const auto copy = directory(Folder);
    run(
        [this](unsigned long thread, unsigned long number) {
            const unsigned long id = idFor(thread, number);
            Container container(*makeContainer(id, Folder, "container"));
            switch (number % 3) {
                case 0:
                    cache.addContainer(container);
                    break;
                case 1:
                    cache.addContainerPtr(makeContainer(id, Folder, "container"), isEven(number));
                    break;
                default:
                    cache.addFolder(Nimra::Folder(id, Folder, 0, "folder"), true);
            }
            cache.replaceContainer(container);
            if (isEven(number)) {
                return;
            }
            switch (number % 3) {
                case 0:
                    cache.removeItem(Folder, id);
                    break;
                case 1:
                    cache.removeContainer(container);
                    break;
                default:
                    cache.removeFolder(Nimra::Folder(id, Folder, 0, "folder"));
            }
        },
        [&] {
            const std::vector<std::shared_ptr<Item>> items = listing->items();
            EXPECT_EQ(std::count(items.begin(), items.end(), nullptr), 0);
            EXPECT_LE(listing->page(0, 5).size(), Threads * Rounds);
            listing->isPageLoaded(folderFilter(Folder));
            EXPECT_EQ(listing->totalCount(), 0u);
            cache.removeItemFromDirectories(Folder, OtherFolder);
        });
    EXPECT_THAT(idsIn(*listing), ElementsAreArray(idsOfAll(isEven)));
    EXPECT_THAT(storedIds(), ElementsAreArray(idsOfAll(isEven)));
    EXPECT_EQ(copy->count(), 0u);
}

// Moves nest the mutexes the other way round than removals, which may therefore not run beside
// them.
TEST_F(CacheThreadsTest, EntriesMoveFromSeveralThreadsWhileTheirListingsAreRead) {
    const auto left = directory(Folder);
    const auto entered = directory(OtherFolder);
    for (const unsigned long id : idsOfAll(isAny)) {
        left->addItem(cache.cacheObjectPtr(makeObject(id, Folder, "object")), false);
    }
    run(
        [this](unsigned long thread, unsigned long number) {
            const unsigned long id = idFor(thread, number);
            cache.moveItem(id, OtherFolder, Folder);
            if (isEven(number)) {
                cache.moveItem(id, Folder, OtherFolder);
            }
        },
        [&] {
            EXPECT_LE(left->items().size() + entered->count(), 2 * Threads * Rounds);
            EXPECT_NE(cache.getItemInternal(idFor(0, 0)), nullptr);
        });
    EXPECT_THAT(idsIn(*left), ElementsAreArray(idsOfAll(isEven)));
    EXPECT_THAT(idsIn(*entered),
                ElementsAreArray(idsOfAll([](unsigned long number) { return !isEven(number); })));
}

// --- Between the cache and those who take what it sends ------------------------------------

// The cache sees one thread. The handler, the parked queue and the ids belong to many.
TEST_F(CacheThreadsTest, EveryOperationIsTakenOnceWhileTheCacheSendsMore) {
    constexpr unsigned long User = 5;
    Ids given;
    // Whoever sends reads the id back, so that what was taken lives on until all are done.
    std::vector<std::vector<std::unique_ptr<Nimra::Operation>>> taken(Threads);
    Working working(1);
    Crowd crowd;
    crowd.add([&] {
        for (unsigned long number = 0; number < Threads * Rounds; ++number) {
            given.push_back(
                cache.getObjectSession(Folder, number, isEven(number) ? User : 0, nullptr));
        }
        working.oneIsDone();
    });
    for (auto& operations : taken) {
        crowd.add([&] {
            for (bool last = false; !last;) {
                last = !working.goesOn();
                wired.parked.userKnown(User);
                for (auto& operation : wired.parked.takeReady()) {
                    operations.push_back(std::move(operation));
                }
                while (auto operation = wired.handler.take()) {
                    operations.push_back(std::move(operation));
                }
            }
        });
    }
    crowd.finish();

    Ids all;
    for (const auto& operations : taken) {
        for (const auto& operation : operations) {
            all.push_back(operation->id());
        }
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, given);
    EXPECT_EQ(wired.parked.size(), 0u);
}

}  // namespace
}  // namespace Ormek::Testing
