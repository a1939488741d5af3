#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cache/Directories.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {
namespace {

using testing::ElementsAre;

constexpr unsigned long Folders = 4;

/// Two caches with the same directories: one got them by its own operations and knows where they
/// are; the other had them put into its lists and has to walk.
class TwoCaches {
  public:
    void addDirectory(const FilterInternal& filter) {
        std::shared_ptr<QueryResult> result;
        indexed.cache.get(filter, result);
        const auto& directories = walking.cache.directories();
        const auto known = std::find_if(directories.begin(), directories.end(), [&](auto& one) {
            return dynamic_cast<QueryResultInternal&>(*one).filter().sameListing(filter);
        });
        if (known == directories.end()) {
            walking.probe.directories().push_back(std::make_shared<QueryResultInternal>(filter));
        }
    }
    void addObject(unsigned long id, unsigned long parentId) {
        for (WiredCache* wired : {&indexed, &walking}) {
            wired->cache.addObjectPtr(makeObject(id, parentId, "o" + std::to_string(id)), false);
        }
    }

    /// The number of a directory in its list; the length of the list for none.
    static std::size_t numberOf(WiredCache& wired, const std::shared_ptr<QueryResult>& wanted) {
        std::size_t number = 0;
        for (const auto& directory : wired.cache.directories()) {
            if (directory == wanted) {
                break;
            }
            ++number;
        }
        return number;
    }
    static std::vector<std::vector<unsigned long>> contents(WiredCache& wired) {
        std::vector<std::vector<unsigned long>> all;
        for (const auto& directory : wired.cache.directories()) {
            all.emplace_back();
            for (const auto& entry : directory->items()) {
                all.back().push_back(entry->id());
            }
        }
        return all;
    }

    WiredCache indexed;
    WiredCache walking;
};

FilterInternal anyFilter() {
    FilterInternal filter = folderFilter(0);
    filter.setDataId(*rc::gen::container<std::vector<unsigned long>>(
        *rc::gen::inRange(0UL, 4UL), rc::gen::inRange(1UL, Folders + 1)));
    filter.setAscending(*rc::gen::arbitrary<bool>());
    return filter;
}

RC_GTEST_PROP(DirectoryIndexProperty, FindsWhatAWalkFinds, ()) {
    std::cout.setstate(std::ios::failbit);
    TwoCaches caches;
    const auto anyFolder = rc::gen::inRange(1UL, Folders + 1);
    const auto anyId = rc::gen::inRange(1UL, 6UL);
    const int steps = *rc::gen::inRange(0, 40);
    for (int step = 0; step < steps; ++step) {
        const unsigned long folder = *anyFolder;
        const unsigned long other = *anyFolder;
        const unsigned long id = *anyId;
        const int kind = *rc::gen::inRange(0, 6);
        const FilterInternal filter = anyFilter();
        if (kind == 0) {
            caches.addDirectory(filter);
        } else if (kind == 1) {
            caches.addObject(id, folder);
        }
        std::vector<std::size_t> found;
        for (WiredCache* wired : {&caches.indexed, &caches.walking}) {
            DirectoryCache& cache = wired->cache;
            if (kind == 2 && cache.getItem(id)) {
                cache.moveItem(id, folder, other);
            } else if (kind == 3) {
                cache.removeItem(folder, id);
            } else if (kind == 4) {
                cache.removeItemFromDirectories(folder, id);
            }
            found.push_back(TwoCaches::numberOf(*wired, cache.getDirectory(filter)));
            found.push_back(TwoCaches::numberOf(*wired, cache.getDirectory(folder)));
        }
        RC_ASSERT(found[0] == found[2]);
        RC_ASSERT(found[1] == found[3]);
        RC_ASSERT(TwoCaches::contents(caches.indexed) == TwoCaches::contents(caches.walking));
    }
    std::cout.clear();
}

/// A list of directories with its index, and which of them a look-up visits.
class VisitedDirectories {
  public:
    using Numbers = std::vector<std::size_t>;

    explicit VisitedDirectories(std::size_t stopAfter = 1000) : _stopAfter(stopAfter) {}

    void append(const std::vector<unsigned long>& folders) {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(folders);
        _list.push_back(std::make_shared<QueryResultInternal>(filter));
    }
    Numbers of(unsigned long folder) const {
        return visited([&](auto look) { index.visit(folder, look); });
    }
    Numbers of(unsigned long folder, unsigned long other) const {
        return visited([&](auto look) { index.visit(folder, other, look); });
    }
    Numbers ofListing(const std::vector<unsigned long>& folders) const {
        FilterInternal filter = folderFilter(0);
        filter.setDataId(folders);
        return visited([&](auto look) { index.visitListings(filter, look); });
    }

  private:
    template <class Visit>
    Numbers visited(Visit visit) const {
        Numbers numbers;
        visit([&](const std::shared_ptr<QueryResult>& directory) {
            const auto place = std::find(_list.begin(), _list.end(), directory);
            numbers.push_back(static_cast<std::size_t>(std::distance(_list.begin(), place)));
            return numbers.size() == _stopAfter;
        });
        return numbers;
    }

    std::size_t _stopAfter;
    DirectoryIndex::List _list;

  public:
    DirectoryIndex index{_list};
};

TEST(DirectoryIndexTest, LooksAtTheDirectoriesOfAFolderAndAtNoOthers) {
    VisitedDirectories directories;
    for (const std::vector<unsigned long>& folders :
         std::vector<std::vector<unsigned long>>{{1}, {2}, {}, {1, 2}, {3}, {2, 1}, {}, {2, 2}}) {
        directories.append(folders);
        directories.index.update();
    }
    EXPECT_THAT(directories.of(1), ElementsAre(0, 3, 5));
    EXPECT_THAT(directories.of(2), ElementsAre(1, 3, 5, 7));
    EXPECT_THAT(directories.of(1, 3), ElementsAre(0, 3, 4, 5));
    EXPECT_THAT(directories.of(3, 1), ElementsAre(0, 3, 4, 5));
    EXPECT_THAT(directories.of(1, 2), ElementsAre(0, 1, 3, 5, 7));
    EXPECT_THAT(directories.of(9), ElementsAre());
    EXPECT_THAT(directories.of(9, 3), ElementsAre(4));
    EXPECT_THAT(directories.ofListing({3}), ElementsAre(4));
    EXPECT_THAT(directories.ofListing({2, 1}), ElementsAre(1, 3, 5, 7));
    EXPECT_THAT(directories.ofListing({}), ElementsAre(2, 6));
}

TEST(DirectoryIndexTest, LooksAtAllBeforeItHasTakenNoteOfTheLast) {
    VisitedDirectories directories;
    directories.append({1});
    directories.index.update();
    directories.append({2});
    EXPECT_THAT(directories.of(1), ElementsAre(0, 1));
    EXPECT_THAT(directories.of(1, 2), ElementsAre(0, 1));
    EXPECT_THAT(directories.ofListing({9}), ElementsAre(0, 1));
}

TEST(DirectoryIndexTest, SeveralMayBeAppendedBeforeItTakesNote) {
    VisitedDirectories directories;
    directories.append({});
    directories.append({1});
    directories.index.update();
    EXPECT_THAT(directories.ofListing({}), ElementsAre(0));
    directories.append({});
    directories.append({1});
    directories.append({2});
    directories.index.update();
    EXPECT_THAT(directories.ofListing({}), ElementsAre(0, 2));
    EXPECT_THAT(directories.of(1), ElementsAre(1, 3));
    directories.append({2});
    directories.index.update();
    EXPECT_THAT(directories.of(2), ElementsAre(4, 5));
}

TEST(DirectoryIndexTest, StopsWhereItIsToldTo) {
    VisitedDirectories directories(2);
    for (int number = 0; number < 4; ++number) {
        directories.append({1});
    }
    EXPECT_THAT(directories.of(1), ElementsAre(0, 1));
    directories.index.update();
    EXPECT_THAT(directories.of(1), ElementsAre(0, 1));
    EXPECT_THAT(directories.ofListing({1}), ElementsAre(0, 1));
}

TEST(DirectoryIndexTest, WithoutMemoryItLooksAtAllUntilTheNextIsAppended) {
    VisitedDirectories directories;
    directories.append({1});
    directories.index.update();
    directories.append({1});
    directories.index.update();
    directories.append({2});
    {
        const AllocationFaults faults(1);
        directories.index.update();
        EXPECT_TRUE(faults.struck());
    }
    EXPECT_THAT(directories.of(1), ElementsAre(0, 1, 2));
    directories.append({1});
    directories.index.update();
    EXPECT_THAT(directories.of(1), ElementsAre(0, 1, 3));
}

TEST(DirectoryIndexTest, KeyValueDirectoriesAreFoundToo) {
    const TraceCapture trace;
    WiredCache wired;
    std::vector<std::shared_ptr<QueryResult>> made(20);
    for (unsigned long folder = 0; folder < made.size(); ++folder) {
        wired.cache.getKeyValues(folderFilter(folder), made[folder]);
    }
    for (unsigned long folder = 0; folder < made.size(); ++folder) {
        EXPECT_EQ(wired.cache.getKeyValueDirectory(folderFilter(folder)), made[folder]);
    }
    EXPECT_EQ(wired.cache.getKeyValueDirectory(folderFilter(99)), nullptr);
}

TEST(DirectoryIndexTest, ReplacingWhatStandsThereIsRemovingAndAddingIt) {
    QueryResultInternal both(folderFilter(1));
    QueryResultInternal one(folderFilter(1));
    const std::vector<std::shared_ptr<Item>> entries = {
        makeObject(1, 1, "a"), makeObject(2, 1, "b"), makeObject(3, 1, "c")};
    for (QueryResultInternal* result : {&both, &one}) {
        result->addPage(0, 3);
        result->totalCount(10);
        result->addItems(0, entries);
        result->addItem(makeObject(4, 1, "d"), false);
    }
    const auto namesake = makeObject(5, 1, "b");
    const auto stranger = makeObject(6, 1, "f");
    for (const std::shared_ptr<Item>& item :
         {entries[1], both.items().back(), std::shared_ptr<Item>(namesake),
          std::shared_ptr<Item>(stranger), std::shared_ptr<Item>()}) {
        const bool removed = both.removeItemByName(item);
        both.addItem(item, removed);
        one.replaceItem(item, false);
        ASSERT_EQ(both.items().size(), one.items().size());
        for (std::size_t index = 0; index < both.items().size(); ++index) {
            EXPECT_EQ(both.items()[index]->id(), one.items()[index]->id());
        }
        EXPECT_EQ(both.isPageCurrent(folderFilter(1, 0, 3)),
                  one.isPageCurrent(folderFilter(1, 0, 3)));
    }
}

}  // namespace
}  // namespace Ormek::Testing
