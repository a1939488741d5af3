#include <gmock/gmock.h>

#include <iostream>
#include <limits>
#include <locale>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// Puts another operation in the place of this one, which gives it another id.
void renumber(Nimra::Operation* operation, unsigned long id) {
    auto* load = dynamic_cast<Nimra::DataLoaderOperation*>(operation);
    const Nimra::ItemFilter filter = load->filter();
    std::destroy_at(load);
    std::construct_at(load, id, filter, nullptr);
}

/// Writes numbers in groups of three, with commas, by default during its life.
class GroupedNumbers {
  public:
    GroupedNumbers() : _previous(std::locale::global(std::locale(std::locale(), new Grouping))) {}
    GroupedNumbers(const GroupedNumbers&) = delete;
    GroupedNumbers& operator=(const GroupedNumbers&) = delete;
    ~GroupedNumbers() { std::locale::global(_previous); }

  private:
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale _previous;
};

class SessionTest : public ::testing::Test {
  protected:
    static std::string sessionTrace(const std::string& path) {
        return "\nOrmek::DirectoryCache::getObjectSession url " + path + "\n";
    }

    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    Nimra::ItemEventProtocol protocol;
    TraceCapture trace;
};

// --- The path ----------------------------------------------------------------------------------

TEST_F(SessionTest, PathNamesTheFolderAndThenTheDocument) {
    cache.getObjectSession(12, 345, 3, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::DataLoaderOperation>()->filter().url,
              "/v1/documents/12/345/session");
}

TEST_F(SessionTest, FolderAndDocumentZeroAreSentLikeAnyOther) {
    cache.getObjectSession(0, 0, 7, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::DataLoaderOperation>()->filter().url,
              "/v1/documents/0/0/session");
}

TEST_F(SessionTest, GreatestIdsAreWrittenInFull) {
    constexpr auto Greatest = std::numeric_limits<unsigned long>::max();

    cache.getObjectSession(Greatest, Greatest, 3, &protocol);

    const std::string path = "/v1/documents/18446744073709551615/18446744073709551615/session";
    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::DataLoaderOperation>()->filter().url, path);
    EXPECT_EQ(trace.text(), sessionTrace(path));
}

TEST_F(SessionTest, IdsAreWrittenInPlainDigitsWhateverTheLocaleAndTheStreamSay) {
    const GroupedNumbers grouped;
    const auto flags = std::cout.setf(std::ios::hex, std::ios::basefield);

    cache.getObjectSession(1234567, 7654321, 3, &protocol);

    std::cout.flags(flags);
    EXPECT_EQ(trace.text(), sessionTrace("/v1/documents/1234567/7654321/session"));
}

// --- The whole trace ---------------------------------------------------------------------------

TEST_F(SessionTest, SentRequestTracesAnEmptyLineAndThePath) {
    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_EQ(trace.text(), sessionTrace("/v1/documents/12/345/session"));
}

TEST_F(SessionTest, ParkedRequestTracesTheSame) {
    cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_EQ(trace.text(), sessionTrace("/v1/documents/12/345/session"));
}

TEST_F(SessionTest, TraceIsWrittenBeforeTheHandOver) {
    std::string traceAtHandOver;
    const WatchingHandler handler([&](auto*) { traceAtHandOver = trace.text(); });

    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_EQ(traceAtHandOver, sessionTrace("/v1/documents/12/345/session"));
}

TEST_F(SessionTest, TraceIsWrittenBeforeTheOperationIsParked) {
    std::string traceAtHandOver;
    WatchingQueue queue([&](auto*) { traceAtHandOver = trace.text(); });
    cache.setOpWithoutIdsQueue(&queue);

    cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_EQ(traceAtHandOver, sessionTrace("/v1/documents/12/345/session"));
}

// --- The operation -----------------------------------------------------------------------------

TEST_F(SessionTest, EveryArgumentArrivesInItsPlace) {
    const auto id = cache.getObjectSession(12, 345, 3, &protocol);

    const auto* sent = wired.onlySent<Nimra::DataLoaderOperation>();
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->id(), id);
    EXPECT_EQ(sent->protocol(), &protocol);
    EXPECT_EQ(sent->service(), &wired.documents);
    EXPECT_EQ(sent->filter().userId, 3u);
    EXPECT_EQ(sent->filter().url, "/v1/documents/12/345/session");
}

TEST_F(SessionTest, NothingElseOfTheFilterIsSet) {
    const Nimra::ItemFilter fresh;

    cache.getObjectSession(12, 345, 3, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    const Nimra::ItemFilter& sent = wired.onlySent<Nimra::DataLoaderOperation>()->filter();
    EXPECT_EQ(sent.dataType, fresh.dataType);
    EXPECT_THAT(sent.dataId, IsEmpty());
    EXPECT_THAT(sent.tagLabels, IsEmpty());
    EXPECT_EQ(sent.path, "");
    EXPECT_EQ(sent.query, "");
    EXPECT_EQ(sent.group, "");
    EXPECT_EQ(sent.ascending, fresh.ascending);
    EXPECT_EQ(sent.deleted, fresh.deleted);
    EXPECT_EQ(sent.containerFirst, fresh.containerFirst);
    EXPECT_EQ(sent.serviceFlag, fresh.serviceFlag);
    EXPECT_EQ(sent.offset, fresh.offset);
    EXPECT_EQ(sent.count, fresh.count);
    EXPECT_EQ(sent.order(), fresh.order());
    EXPECT_EQ(sent.cursor, fresh.cursor);
}

TEST_F(SessionTest, WithoutAUserTheOperationIsParked) {
    const auto id = cache.getObjectSession(12, 345, 0, &protocol);

    const auto* parked = wired.onlyParked<Nimra::DataLoaderOperation>();
    ASSERT_NE(parked, nullptr);
    EXPECT_EQ(parked->id(), id);
    EXPECT_EQ(parked->filter().userId, 0u);
    EXPECT_EQ(parked->filter().url, "/v1/documents/12/345/session");
    EXPECT_EQ(parked->protocol(), &protocol);
    EXPECT_EQ(parked->service(), &wired.documents);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(SessionTest, DocumentWithoutAServerIdIsSentAllTheSame) {
    wired.probe.items()[345] = makeObject(345, 12, "local");

    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(SessionTest, DocumentWithAServerIdDoesNotReplaceTheUser) {
    const auto known = makeObject(345, 12, "known");
    known->idLoaded(true);
    wired.probe.items()[345] = known;

    cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_NE(wired.onlyParked<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

TEST_F(SessionTest, EverySessionHasAnIdOfItsOwn) {
    const auto sent = cache.getObjectSession(12, 345, 3, &protocol);
    const auto parked = cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_NE(sent, 0u);
    EXPECT_NE(parked, 0u);
    EXPECT_NE(parked, sent);
}

// --- The service -------------------------------------------------------------------------------

TEST_F(SessionTest, AnyDataServiceUnderTheDocumentsKeyWillDo) {
    Nimra::DataService plain;
    wired.services[4] = &plain;

    cache.getObjectSession(12, 345, 3, &protocol);

    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::DataLoaderOperation>()->service(), &plain);
}

TEST_F(SessionTest, MissingServiceIsInsertedAsNullAndTheOperationSent) {
    wired.services.clear();

    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
    ASSERT_NE(wired.onlySent<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlySent<Nimra::DataLoaderOperation>()->service(), nullptr);
}

TEST_F(SessionTest, MissingServiceIsInsertedAsNullAndTheOperationParked) {
    wired.services.clear();

    cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_THAT(wired.services, ElementsAre(Pair(4, nullptr)));
    ASSERT_NE(wired.onlyParked<Nimra::DataLoaderOperation>(), nullptr);
    EXPECT_EQ(wired.onlyParked<Nimra::DataLoaderOperation>()->service(), nullptr);
}

// --- The cache, the hand-over and the locks ----------------------------------------------------

TEST_F(SessionTest, CacheIsLeftAlone) {
    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_EQ(cache.itemsSize(), 0u);
    EXPECT_THAT(cache.directories(), IsEmpty());
    EXPECT_THAT(cache.keyValueDirectories(), IsEmpty());
    EXPECT_EQ(cache.loadListener(), nullptr);
}

TEST_F(SessionTest, IdIsReadBackAfterTheOperationWasSent) {
    const WatchingHandler handler([](auto* operation) { renumber(operation, 123456789); });

    EXPECT_EQ(cache.getObjectSession(12, 345, 3, &protocol), 123456789u);
}

TEST_F(SessionTest, IdIsReadBackAfterTheOperationWasParked) {
    WatchingQueue queue([](auto* operation) { renumber(operation, 123456789); });
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_EQ(cache.getObjectSession(12, 345, 0, &protocol), 123456789u);
}

TEST_F(SessionTest, NoLockIsHeldWhileTheOperationIsSent) {
    std::vector<bool> held;
    const WatchingHandler handler([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });

    cache.getObjectSession(12, 345, 3, &protocol);

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_F(SessionTest, NoLockIsHeldWhileTheOperationIsParked) {
    std::vector<bool> held;
    WatchingQueue queue([&](auto*) {
        held = {isHeld(wired.probe.itemsMutex()), isHeld(wired.probe.mutex())};
    });
    cache.setOpWithoutIdsQueue(&queue);

    cache.getObjectSession(12, 345, 0, &protocol);

    EXPECT_THAT(held, ElementsAre(false, false));
}

TEST_F(SessionTest, NoLockIsTakenAtAll) {
    EXPECT_TRUE(returnsWhileBothAreHeld(wired.probe,
                                        [this] { cache.getObjectSession(12, 345, 3, &protocol); }));
}

TEST_F(SessionTest, FailureOfTheHandlerReachesTheCaller) {
    const WatchingHandler handler([](auto*) { throw std::runtime_error("full"); });

    EXPECT_THROW(cache.getObjectSession(12, 345, 3, &protocol), std::runtime_error);

    EXPECT_THAT(wired.parked.operations(), IsEmpty());
}

TEST_F(SessionTest, FailureOfTheQueueReachesTheCaller) {
    WatchingQueue queue([](auto*) { throw std::runtime_error("full"); });
    cache.setOpWithoutIdsQueue(&queue);

    EXPECT_THROW(cache.getObjectSession(12, 345, 0, &protocol), std::runtime_error);

    EXPECT_THAT(wired.handler.operations(), IsEmpty());
}

}  // namespace
}  // namespace Ormek::Testing
