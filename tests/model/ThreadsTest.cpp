#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "model/QueryResultInternal.h"
#include "tests/support/Crowd.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

constexpr unsigned long Folder = 7;
constexpr unsigned long Rounds = 300;

std::vector<std::shared_ptr<Item>> entriesFrom(unsigned long first, unsigned long count) {
    std::vector<std::shared_ptr<Item>> entries;
    for (unsigned long id = first; id < first + count; ++id) {
        entries.push_back(makeObject(id, Folder, std::to_string(id)));
    }
    return entries;
}

TEST(ResultSetThreadsTest, SeveralThreadsEditOneWhileOthersCopyIt) {
    QueryResultInternal result(folderFilter(Folder));
    const auto first = entriesFrom(1, 10);
    const auto second = entriesFrom(11, 10);
    Working working(3);
    Crowd crowd;
    const auto deliver = [&](unsigned long offset,
                             const std::vector<std::shared_ptr<Item>>& entries) {
        for (unsigned long round = 0; round < Rounds; ++round) {
            result.addItems(offset, entries);
        }
        working.oneIsDone();
    };
    crowd.add([&] { deliver(0, first); });
    crowd.add([&] { deliver(10, second); });
    crowd.add([&] {
        const auto addition = makeObject(99, Folder, "addition");
        for (unsigned long round = 0; round < Rounds; ++round) {
            result.addItem(addition, round % 2 == 0);
            result.removeItem(99);
        }
        working.oneIsDone();
    });
    crowd.add([&] {
        while (working.goesOn()) {
            QueryResult copy(result);
            const unsigned long count = copy.count();
            EXPECT_EQ(copy.items().size(), count);
            EXPECT_LE(count, 21u);
            EXPECT_EQ(QueryResultInternal(result).filter().getDataId(),
                      std::vector<unsigned long>{Folder});
            result.itemByName("addition");
        }
    });
    crowd.finish();

    auto all = first;
    all.insert(all.end(), second.begin(), second.end());
    EXPECT_EQ(result.items(), all);
}

// Each takes the other's mutex to copy from, and its own to copy to.
TEST(ResultSetThreadsTest, TwoThatAreAssignedToEachOtherBlockNobody) {
    QueryResult one;
    QueryResult other;
    QueryResultInternal filled(folderFilter(Folder));
    filled.addItems(0, entriesFrom(1, 5));
    one = filled;
    other = filled;
    Crowd crowd;
    crowd.add([&] {
        for (unsigned long round = 0; round < Rounds; ++round) {
            one = other;
        }
    });
    crowd.add([&] {
        for (unsigned long round = 0; round < Rounds; ++round) {
            other = one;
        }
    });
    crowd.finish();
    EXPECT_EQ(one.items(), filled.items());
    EXPECT_EQ(other.items(), filled.items());
}

}  // namespace
}  // namespace Ormek::Testing
