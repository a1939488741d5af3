// What an action looks up before it looks for the item that decides whether it is sent: its
// handler, its id and its service are settled by then.

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/Fakes.h"
#include "tests/support/LineWatcher.h"

namespace Ormek::Testing {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

constexpr unsigned int CreateKind = 2;

/// Document 7 lies in folder 5, and the server knows both. Each kind of action is one that is sent.
class OutgoingOrderTest : public ::testing::TestWithParam<unsigned int> {
  protected:
    OutgoingOrderTest() {
        folder->idLoaded(true);
        document->idLoaded(true);
        wired.probe.items() = {{5, folder}, {7, document}};
    }

    unsigned long act() {
        if (GetParam() == CreateKind) {
            return cache.createObject(makeObject(70, 5, "new document"), {}, 3, &protocol);
        }
        return cache.objectEvent(*document, 3, GetParam(), &protocol);
    }

    /// Does so and calls `watch` at the moment at which the item is looked up.
    template <class Watch>
    unsigned long actAndWatchTheLookUp(Watch watch) {
        int lookUps = 0;
        const LineWatcher watcher([&](const std::string& line) {
            if (line == "Ormek::DirectoryCache::getItem 1\n") {
                ++lookUps;
                watch();
            }
        });
        const unsigned long id = act();
        EXPECT_EQ(lookUps, 1);
        return id;
    }

    const std::shared_ptr<ContainerInternal> folder = makeContainer(5, 2, "folder");
    const std::shared_ptr<ObjectInternal> document = makeObject(7, 5, "document");
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
};

TEST_P(OutgoingOrderTest, HandlerThatArrivesWithTheItemsLookUpGetsNothing) {
    std::optional<RecordingHandler> late;

    actAndWatchTheLookUp([&] { late.emplace(); });

    ASSERT_TRUE(late);
    EXPECT_THAT(late->operations(), IsEmpty());
    EXPECT_THAT(wired.handler.operations(), SizeIs(1));
}

TEST_P(OutgoingOrderTest, OperationHasItsIdBeforeTheItemIsLookedUp) {
    unsigned long next = 0;

    const unsigned long id =
        actAndWatchTheLookUp([&] { next = Nimra::OperationHandler::createId(); });

    EXPECT_LT(id, next);
}

TEST_P(OutgoingOrderTest, MissingServiceIsInsertedBeforeTheItemIsLookedUp) {
    wired.services.clear();
    std::map<int, Nimra::DataService*> services;

    actAndWatchTheLookUp([&] { services = wired.services; });

    EXPECT_THAT(services, Contains(Pair(4, nullptr)));
}

TEST_P(OutgoingOrderTest, ServiceThatArrivesWithTheItemsLookUpDoesNotCarryTheOperation) {
    Nimra::DocumentServiceNetwork late;

    actAndWatchTheLookUp([&] { wired.services[4] = &late; });

    ASSERT_NE(wired.onlySent<Nimra::FileOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::FileOperation>()->service(), &wired.documents);
}

INSTANTIATE_TEST_SUITE_P(Kinds, OutgoingOrderTest, ::testing::Values(CreateKind, 4, 5, 6, 10, 13),
                         ::testing::PrintToStringParamName());

}  // namespace
}  // namespace Ormek::Testing
