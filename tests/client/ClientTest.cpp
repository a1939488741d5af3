#include "client/Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <iostream>
#include <thread>

#include "cache/DirectoryCache.h"
#include "tests/support/ScriptedService.h"

namespace Ormek {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Testing::ScriptedService;
using ::testing::SizeIs;

constexpr unsigned long Root = ScriptedService::RootId;

class ClientTest : public ::testing::Test {
  protected:
    ClientTest() { std::cout.setstate(std::ios::failbit); }
    ~ClientTest() override { std::cout.clear(); }

    Client& client() {
        if (!_client) {
            _client = std::make_unique<Client>(std::move(_owned));
        }
        return *_client;
    }

    void closeClient() { _client.reset(); }

    Answer answerTo(const Query& query) { return client().wait(query, 10s); }
    Answer list(unsigned long folderId, const ListOptions& options = {}) {
        return answerTo(client().list(folderId, options));
    }
    Answer tags(unsigned long folderId, const ListOptions& options = {}) {
        return answerTo(client().tags(folderId, options));
    }
    Answer find(const std::string& path) { return answerTo(client().find(path)); }

    static std::vector<std::string> names(const Answer& answer) {
        std::vector<std::string> all;
        for (const auto& entry : answer.entries) {
            all.push_back(entry->name());
        }
        return all;
    }

    static ListOptions page(std::uint32_t offset, std::uint32_t count) {
        ListOptions options;
        options.offset = offset;
        options.count = count;
        return options;
    }
    static ListOptions reloaded(ListOptions options = {}) {
        options.freshness = Freshness::Reload;
        return options;
    }

    void addDocuments(unsigned long firstId, const std::vector<std::string>& documentNames) {
        for (const std::string& name : documentNames) {
            service.addDocument(firstId++, Root, name);
        }
    }

  private:
    std::unique_ptr<ScriptedService> _owned = std::make_unique<ScriptedService>();
    std::unique_ptr<Client> _client;

  protected:
    ScriptedService& service = *_owned;
};

// --- Listings ------------------------------------------------------------------------------

TEST_F(ClientTest, FirstListingIsLoadedAndTheSecondComesFromMemory) {
    service.addFolder(10, Root, "music");
    addDocuments(20, {"a", "b"});

    const Answer first = list(Root);
    EXPECT_EQ(first.state, AnswerState::Answered);
    EXPECT_EQ(first.source, AnswerSource::Load);
    EXPECT_THAT(names(first), ElementsAre("music", "a", "b"));
    EXPECT_EQ(first.held, 3U);
    EXPECT_EQ(first.total, 3U);

    const Answer second = list(Root);
    EXPECT_EQ(second.source, AnswerSource::Memory);
    EXPECT_EQ(second.entries, first.entries);
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ClientTest, EachPageIsLoadedOnce) {
    addDocuments(20, {"a", "b", "c", "d", "e"});

    EXPECT_THAT(names(list(Root, page(0, 2))), ElementsAre("a", "b"));
    const Answer second = list(Root, page(2, 2));
    EXPECT_EQ(second.source, AnswerSource::Load);
    EXPECT_THAT(names(second), ElementsAre("c", "d"));
    EXPECT_EQ(second.held, 4U);
    EXPECT_EQ(second.total, 5U);

    EXPECT_EQ(list(Root, page(0, 2)).source, AnswerSource::Memory);
    const Answer both = list(Root, page(1, 3));
    EXPECT_EQ(both.source, AnswerSource::Memory);
    EXPECT_THAT(names(both), ElementsAre("b", "c", "d"));
}

TEST_F(ClientTest, EmptyFolderIsAnsweredFromMemoryTheSecondTime) {
    EXPECT_THAT(list(Root).entries, IsEmpty());
    const Answer again = list(Root);
    EXPECT_EQ(again.source, AnswerSource::Memory);
    EXPECT_THAT(again.entries, IsEmpty());
}

TEST_F(ClientTest, SearchOrderAndKindAreListingsOfTheirOwn) {
    service.addFolder(10, Root, "album");
    addDocuments(20, {"apple", "berry"});
    list(Root);

    ListOptions search;
    search.search = "ap";
    EXPECT_THAT(names(list(Root, search)), ElementsAre("apple"));
    ListOptions descending;
    descending.order = ListOrder::Descending;
    EXPECT_THAT(names(list(Root, descending)), ElementsAre("album", "berry", "apple"));
    ListOptions folders;
    folders.kind = ListKind::Folders;
    EXPECT_THAT(names(list(Root, folders)), ElementsAre("album"));
    ListOptions documents;
    documents.kind = ListKind::Documents;
    EXPECT_THAT(names(list(Root, documents)), ElementsAre("apple", "berry"));

    EXPECT_EQ(list(Root, search).source, AnswerSource::Memory);
    EXPECT_EQ(list(Root, folders).source, AnswerSource::Memory);
    EXPECT_EQ(list(Root, documents).source, AnswerSource::Memory);
    EXPECT_THAT(names(list(Root)), ElementsAre("album", "apple", "berry"));
}

TEST_F(ClientTest, SameEntryIsTheSameObjectInEveryListing) {
    addDocuments(20, {"apple"});
    ListOptions search;
    search.search = "app";
    EXPECT_EQ(list(Root).entries, list(Root, search).entries);
    EXPECT_EQ(client().item(20), list(Root).entries.at(0));
}

TEST_F(ClientTest, ReloadShowsWhatChangedWithoutDoubling) {
    addDocuments(20, {"a", "b", "c"});
    const Answer before = list(Root);
    service.drop(21);
    service.addDocument(30, Root, "d");
    service.editDocument(20, [](Nimra::Document& document) { document.length = 77; });

    const Answer after = list(Root, reloaded());
    EXPECT_EQ(after.source, AnswerSource::Load);
    EXPECT_THAT(names(after), ElementsAre("a", "c", "d"));
    EXPECT_EQ(after.held, 3U);
    EXPECT_EQ(after.entries.at(0), before.entries.at(0));
    EXPECT_EQ(dynamic_cast<const Object&>(*after.entries.at(0)).length(), 77U);
    EXPECT_THAT(names(list(Root)), ElementsAre("a", "c", "d"));
}

TEST_F(ClientTest, ReloadRefreshesKnownFoldersToo) {
    service.addFolder(10, Root, "old");
    const Answer before = list(Root);
    service.editFolder(10, [](Nimra::Folder& folder) {
        folder.name = "new";
        folder.updated = 5;
    });
    const Answer after = list(Root, reloaded());
    EXPECT_EQ(after.entries, before.entries);
    EXPECT_EQ(after.entries.at(0)->name(), "new");
    EXPECT_EQ(after.entries.at(0)->updated(), 5U);
}

TEST_F(ClientTest, ReloadOfAListingThatWasNeverAskedForLoadsIt) {
    addDocuments(20, {"a"});
    EXPECT_THAT(names(list(Root, reloaded())), ElementsAre("a"));
    EXPECT_EQ(list(Root).source, AnswerSource::Memory);
}

TEST_F(ClientTest, PageThatIsNoLongerCurrentIsLoadedAgainByItself) {
    addDocuments(20, {"b", "c", "d", "e"});
    list(Root, page(0, 2));
    service.addDocument(30, Root, "a");
    // The total that comes with the second page shows that the first one cannot be true any more.
    EXPECT_THAT(names(list(Root, page(2, 2))), ElementsAre("c", "d"));

    const Answer again = list(Root, page(0, 2));
    EXPECT_EQ(again.source, AnswerSource::Load);
    EXPECT_THAT(names(again), ElementsAre("a", "b"));
}

TEST_F(ClientTest, QueryJoinsTheLoadThatIsUnderWayForItsPage) {
    addDocuments(20, {"a", "b"});
    service.hold();
    const Query first = client().list(Root);
    const Query second = client().list(Root);
    const Query other = client().list(Root, page(1, 1));
    service.release();

    EXPECT_EQ(answerTo(first).source, AnswerSource::Load);
    EXPECT_EQ(answerTo(second).source, AnswerSource::JoinedLoad);
    EXPECT_THAT(names(answerTo(second)), ElementsAre("a", "b"));
    EXPECT_EQ(answerTo(other).source, AnswerSource::Load);
    EXPECT_THAT(service.asked(), SizeIs(2));
}

TEST_F(ClientTest, FailedLoadSaysWhyAndTheNextQueryTriesAgain) {
    addDocuments(20, {"a"});
    client();
    service.failWith(Nimra::ServiceError(Nimra::Reason::NoPermission, "keep out"));
    const Answer failed = list(Root);
    EXPECT_EQ(failed.state, AnswerState::Failed);
    ASSERT_TRUE(failed.error);
    EXPECT_EQ(failed.error->reason(), Nimra::Reason::NoPermission);
    EXPECT_STREQ(failed.error->what(), "keep out");

    service.failWith(std::nullopt);
    EXPECT_THAT(names(list(Root)), ElementsAre("a"));
}

TEST_F(ClientTest, FailedReloadLeavesTheListingAsItWas) {
    addDocuments(20, {"a", "b"});
    list(Root);
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
    EXPECT_EQ(list(Root, reloaded()).state, AnswerState::Failed);

    const Answer held = list(Root);
    EXPECT_EQ(held.source, AnswerSource::Memory);
    EXPECT_THAT(names(held), ElementsAre("a", "b"));
}

TEST_F(ClientTest, EveryoneWhoJoinedAFailedLoadHearsOfIt) {
    client();
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
    service.hold();
    const Query first = client().list(Root);
    const Query second = client().list(Root);
    service.release();
    EXPECT_EQ(answerTo(first).state, AnswerState::Failed);
    EXPECT_EQ(answerTo(second).state, AnswerState::Failed);
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ClientTest, ListingOfAnUnknownFolderOrOfADocumentIsNotFound) {
    addDocuments(20, {"a"});
    list(Root);
    for (const unsigned long id : {20UL, 4711UL}) {
        const Answer answer = list(id);
        EXPECT_EQ(answer.state, AnswerState::Failed);
        ASSERT_TRUE(answer.error);
        EXPECT_EQ(answer.error->reason(), Nimra::Reason::NotFound);
        EXPECT_EQ(tags(id).state, AnswerState::Failed);
    }
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ClientTest, FailedAnswerStillSaysHowMuchIsHeld) {
    addDocuments(20, {"a", "b"});
    list(Root);
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
    const Answer failed = list(Root, reloaded());
    EXPECT_EQ(failed.source, AnswerSource::Load);
    EXPECT_EQ(failed.held, 2U);
    EXPECT_EQ(failed.total, 2U);
    EXPECT_THAT(failed.entries, IsEmpty());
}

TEST_F(ClientTest, HeldPageIsAnsweredFromMemoryWhileItIsBeingReloaded) {
    addDocuments(20, {"a"});
    list(Root);
    service.hold();
    const Query reload = client().list(Root, reloaded());
    const Answer held = client().poll(client().list(Root));
    EXPECT_EQ(held.state, AnswerState::Answered);
    EXPECT_EQ(held.source, AnswerSource::Memory);
    EXPECT_EQ(client().poll(reload).state, AnswerState::Pending);
    service.release();
    EXPECT_EQ(answerTo(reload).state, AnswerState::Answered);
}

// --- Tags ----------------------------------------------------------------------------------

TEST_F(ClientTest, TagsAreLoadedPageByPageAndThenComeFromMemory) {
    service.addTag(30, Root, "artist", "x");
    service.addTag(31, Root, "artist", "y");
    service.addTag(32, Root, "artist", "z");

    EXPECT_THAT(names(tags(Root, page(0, 2))), ElementsAre("tag 30", "tag 31"));
    const Answer second = tags(Root, page(2, 2));
    EXPECT_EQ(second.source, AnswerSource::Load);
    EXPECT_THAT(names(second), ElementsAre("tag 32"));
    const Answer first = tags(Root, page(0, 2));
    EXPECT_EQ(first.source, AnswerSource::Memory);
    EXPECT_EQ(dynamic_cast<const Object&>(*first.entries.at(1)).keyValues().at("artist").first,
              "y");
}

TEST_F(ClientTest, FailedLoadOfTagsIsTriedAgain) {
    service.addTag(30, Root, "artist", "x");
    client();
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
    EXPECT_EQ(tags(Root).state, AnswerState::Failed);
    service.failWith(std::nullopt);
    EXPECT_THAT(tags(Root).entries, SizeIs(1));
    EXPECT_EQ(tags(Root).source, AnswerSource::Memory);
}

TEST_F(ClientTest, ReloadedTagsShowTheirNewValues) {
    service.addTag(30, Root, "artist", "x");
    tags(Root);
    service.editTag(30, [](Nimra::Tag& tag) { tag.setKeyValue("artist", {"new", true}); });
    const Answer answer = tags(Root, reloaded());
    ASSERT_THAT(answer.entries, SizeIs(1));
    EXPECT_EQ(dynamic_cast<const Object&>(*answer.entries.at(0)).keyValues().at("artist").first,
              "new");
}

TEST_F(ClientTest, TagsQueryJoinsTheLoadThatIsUnderWay) {
    service.addTag(30, Root, "artist", "x");
    service.hold();
    const Query first = client().tags(Root);
    const Query second = client().tags(Root);
    const Query listing = client().list(Root);
    service.release();
    EXPECT_THAT(answerTo(first).entries, SizeIs(1));
    EXPECT_EQ(answerTo(second).source, AnswerSource::JoinedLoad);
    EXPECT_EQ(answerTo(listing).source, AnswerSource::Load);
}

// --- Paths ---------------------------------------------------------------------------------

TEST_F(ClientTest, PathIsLookedUpWithoutLoadingListings) {
    service.addFolder(10, Root, "a");
    service.addFolder(11, 10, "b");
    service.addDocument(20, 11, "c.txt");

    const Answer first = find("a/b/c.txt");
    EXPECT_EQ(first.source, AnswerSource::Load);
    ASSERT_THAT(first.entries, SizeIs(1));
    EXPECT_EQ(first.entries.at(0)->id(), 20U);
    EXPECT_THAT(service.asked(), SizeIs(3));
    for (const auto& filter : service.asked()) {
        EXPECT_EQ(filter.count, 1U);
    }

    EXPECT_EQ(find("/a//./b/c.txt").source, AnswerSource::Memory);
    EXPECT_EQ(find("a/b/../b/c.txt").entries, first.entries);
    EXPECT_EQ(client().statistics().directories, 0U);
}

TEST_F(ClientTest, PathInAHeldListingComesFromMemory) {
    service.addFolder(10, Root, "a");
    list(Root);
    const Answer answer = find("a");
    EXPECT_EQ(answer.source, AnswerSource::Memory);
    EXPECT_EQ(answer.entries.at(0)->id(), 10U);
}

TEST_F(ClientTest, RootIsFoundUnderEveryNameItHas) {
    for (const char* path : {"", "/", ".", "..", "../..", "/./"}) {
        const Answer answer = find(path);
        ASSERT_EQ(answer.state, AnswerState::Answered) << path;
        EXPECT_EQ(answer.entries.at(0)->id(), Root) << path;
    }
    EXPECT_THAT(service.asked(), IsEmpty());
}

TEST_F(ClientTest, PathFromAFolderStartsThere) {
    service.addFolder(10, Root, "a");
    service.addDocument(20, 10, "c.txt");
    list(Root);
    EXPECT_EQ(answerTo(client().find(10, "c.txt")).entries.at(0)->id(), 20U);
    EXPECT_EQ(answerTo(client().find(10, "..")).entries.at(0)->id(), Root);
    EXPECT_EQ(answerTo(client().find(4711, "c.txt")).error->reason(), Nimra::Reason::NotFound);
}

TEST_F(ClientTest, AbsentEntryIsAskedForEveryTime) {
    list(Root);
    const Answer absent = find("later.txt");
    EXPECT_EQ(absent.state, AnswerState::Failed);
    EXPECT_EQ(absent.error->reason(), Nimra::Reason::NotFound);
    EXPECT_THAT(absent.error->what(), HasSubstr("later.txt"));
    service.addDocument(20, Root, "later.txt");
    EXPECT_EQ(find("later.txt").entries.at(0)->id(), 20U);
}

TEST_F(ClientTest, EntryThatAReloadShowedToBeGoneIsNotFound) {
    service.addFolder(10, Root, "a");
    service.addDocument(20, 10, "x");
    find("a/x");
    service.drop(20);
    list(10);
    EXPECT_EQ(find("a/x").error->reason(), Nimra::Reason::NotFound);
}

TEST_F(ClientTest, ReloadedPathAsksTheServiceForItsLastPart) {
    service.addFolder(10, Root, "a");
    service.addDocument(20, 10, "x");
    list(10);
    find("a/x");
    list(10);
    service.drop(20);
    EXPECT_EQ(find("a/x").source, AnswerSource::Memory);

    const Answer gone = answerTo(client().find("a/x", Freshness::Reload));
    EXPECT_EQ(gone.state, AnswerState::Failed);
    EXPECT_EQ(gone.error->reason(), Nimra::Reason::NotFound);
    EXPECT_EQ(find("a/x").state, AnswerState::Failed);
    // The listing that still showed it is asked for again.
    const Answer listing = list(10);
    EXPECT_EQ(listing.source, AnswerSource::Load);
    EXPECT_THAT(listing.entries, IsEmpty());
}

TEST_F(ClientTest, LookUpTakesNoOtherEntryThanTheOneAskedFor) {
    struct Careless : ScriptedService {
        Nimra::Page load(const Nimra::ItemFilter& filter) override {
            Nimra::ItemFilter whole = filter;
            whole.path.clear();
            return ScriptedService::load(whole);
        }
    };
    auto careless = std::make_unique<Careless>();
    careless->addDocument(20, Root, "a");
    Client other(std::move(careless));
    EXPECT_EQ(other.wait(other.find("b"), 10s).state, AnswerState::Failed);
    EXPECT_EQ(other.wait(other.find("a"), 10s).state, AnswerState::Answered);
}

TEST_F(ClientTest, PathThroughADocumentIsNotFound) {
    addDocuments(20, {"a.txt"});
    const Answer answer = find("a.txt/b");
    EXPECT_EQ(answer.state, AnswerState::Failed);
    EXPECT_THAT(answer.error->what(), HasSubstr("not a folder"));
}

TEST_F(ClientTest, LookUpThatFailsSaysWhy) {
    client();
    service.failWith(Nimra::ServiceError(Nimra::Reason::NotReachable, "away"));
    EXPECT_EQ(find("a").error->reason(), Nimra::Reason::NotReachable);
}

TEST_F(ClientTest, PathOfAnEntryLeadsFromTheRoot) {
    service.addFolder(10, Root, "a");
    service.addDocument(20, 10, "c d");
    find("a/c d");
    EXPECT_EQ(client().pathOf(20), "/a/c d");
    EXPECT_EQ(client().pathOf(Root), "/");
    EXPECT_EQ(client().pathOf(4711), "");
}

// --- Waiting -------------------------------------------------------------------------------

TEST_F(ClientTest, WaitingStopsAtTheTimeLimitAndTheAnswerComesLater) {
    addDocuments(20, {"a"});
    service.hold();
    const Query query = client().list(Root);
    EXPECT_EQ(client().wait(query, 10ms).state, AnswerState::Pending);
    EXPECT_EQ(client().poll(query).state, AnswerState::Pending);
    service.release();
    EXPECT_THAT(names(client().wait(query, std::chrono::milliseconds::max())), ElementsAre("a"));
    EXPECT_THAT(names(client().poll(query)), ElementsAre("a"));
}

TEST_F(ClientTest, DescriptorIsReadableWhileAnAnswerIsThere) {
    pollfd ready{client().fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
    const Query query = client().list(Root);
    EXPECT_EQ(::poll(&ready, 1, 10'000), 1);
    EXPECT_EQ(client().collect(), 1U);
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
    EXPECT_EQ(client().poll(query).state, AnswerState::Answered);
}

TEST_F(ClientTest, DescriptorTellsOfAnAnswerThatAnotherCallMerged) {
    const Query first = client().list(Root);
    const Query second = client().list(Root, page(5, 5));
    answerTo(first);
    answerTo(second);
    pollfd ready{client().fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 1);
    client().collect();
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
}

TEST_F(ClientTest, NegativeTimeLimitDoesNotWait) {
    service.hold();
    const Query query = client().list(Root);
    EXPECT_EQ(client().wait(query, std::chrono::milliseconds::min()).state, AnswerState::Pending);
    service.release();
}

TEST_F(ClientTest, AnswerToNoQuestionIsAFailure) {
    EXPECT_EQ(client().poll(Query()).state, AnswerState::Failed);
    EXPECT_EQ(client().wait(Query(), 10s).state, AnswerState::Failed);
}

TEST_F(ClientTest, QueryThatWasLetGoStillFillsTheCache) {
    addDocuments(20, {"a"});
    service.hold();
    (void)client().list(Root);
    service.release();
    EXPECT_THAT(names(list(Root)), ElementsAre("a"));
    EXPECT_THAT(service.asked(), SizeIs(1));
}

TEST_F(ClientTest, AnswerIsTimedWithTheClockThatWasHandedIn) {
    auto own = std::make_unique<ScriptedService>();
    auto now = std::make_shared<std::atomic<int>>(0);
    Client timed(std::move(own), 1, [now] {
        return std::chrono::steady_clock::time_point(std::chrono::milliseconds(now->load()));
    });
    const Query query = timed.list(Root);
    *now = 25;
    EXPECT_EQ(timed.wait(query, 10s).elapsed, 25ms);
    EXPECT_EQ(timed.statistics().inLoads, 25ms);
}

TEST_F(ClientTest, SeveralThreadsAskAtOnce) {
    for (unsigned long id = 100; id < 200; ++id) {
        service.addDocument(id, Root, "document " + std::to_string(id));
    }
    client();
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (std::uint32_t number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (std::uint32_t round = 0; round < 25; ++round) {
                ListOptions options = page((round * 4 + number) % 10 * 10, 10);
                options.freshness = round % 5 == 4 ? Freshness::Reload : Freshness::Cached;
                const Answer answer = client().wait(client().list(Root, options), 20s);
                client().read([&] {
                    const std::string expected = "document " + std::to_string(100 + options.offset);
                    if (answer.entries.size() == 10 && names(answer).front() == expected) {
                        ++right;
                    }
                });
                (void)client().wait(client().find("document 150"), 20s);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 100);
    EXPECT_EQ(client().statistics().entries, 101U);
}

// --- One client, its life and its figures --------------------------------------------------

TEST_F(ClientTest, SecondClientIsRefusedWhileTheFirstLives) {
    client();
    try {
        Client second(std::make_unique<ScriptedService>());
        FAIL() << "a second client was accepted";
    } catch (const std::logic_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("another client"));
    }
    EXPECT_EQ(list(Root).state, AnswerState::Answered);
    closeClient();
    EXPECT_NO_THROW(Client(std::make_unique<ScriptedService>()));
}

TEST_F(ClientTest, ClientWithoutServiceOrRootIsRefusedAndTheNextOneIsNot) {
    EXPECT_THROW(Client(nullptr), std::invalid_argument);
    auto broken = std::make_unique<ScriptedService>();
    broken->failWith(Nimra::ServiceError(Nimra::Reason::NoPermission, "no"));
    EXPECT_THROW(Client(std::move(broken)), Nimra::ServiceError);
    EXPECT_EQ(list(Root).state, AnswerState::Answered);
}

TEST_F(ClientTest, QueriesFailWhenTheClientGoes) {
    service.hold();
    ScriptedService& held = service;
    const Query running = client().list(Root);
    const Query queued = client().list(Root, page(5, 5));
    // The service goes with the client, so it must be at work before another thread releases it.
    while (service.asked().empty()) {
        std::this_thread::sleep_for(1ms);
    }
    std::thread later([&held] {
        std::this_thread::sleep_for(50ms);
        held.release();
    });
    closeClient();
    later.join();
    // Another client can read what became of them.
    Client other(std::make_unique<ScriptedService>());
    EXPECT_NE(other.poll(running).state, AnswerState::Pending);
    const Answer answer = other.poll(queued);
    EXPECT_EQ(answer.state, AnswerState::Failed);
    EXPECT_EQ(answer.error->reason(), Nimra::Reason::NotReachable);
}

TEST_F(ClientTest, PathThatIsBeingWalkedFailsWhenTheClientGoes) {
    service.addFolder(10, Root, "a");
    const Query query = client().find("a/b");
    pollfd ready{client().fd(), POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, 10'000), 1);
    closeClient();
    // Nothing of it is left for the next client to run.
    EXPECT_THAT(Nimra::OperationHandler::getHandler("Requests")->operations(), IsEmpty());
    Client other(std::make_unique<ScriptedService>());
    EXPECT_EQ(other.poll(query).state, AnswerState::Failed);
}

TEST_F(ClientTest, RootWithoutAnIdAndAnEmptyClockAreRefused) {
    struct Rootless : ScriptedService {
        Nimra::Folder root() override { return {}; }
    };
    EXPECT_THROW(Client(std::make_unique<Rootless>()), Nimra::ServiceError);
    EXPECT_THROW(Client(std::make_unique<ScriptedService>(), 1, nullptr), std::invalid_argument);
}

TEST_F(ClientTest, RootIsCachedWithItsIdLoaded) {
    const auto root = client().item(client().rootId());
    ASSERT_TRUE(root);
    EXPECT_TRUE(root->idLoaded());
    EXPECT_EQ(client().statistics().entries, 1U);
}

TEST_F(ClientTest, OperationsQueuedBeforeTheClientExistedAreNotLost) {
    struct Listener : Nimra::ItemEventProtocol {
        void failed(unsigned long operationId, const Nimra::ServiceError&) override {
            failedId = operationId;
        }
        unsigned long failedId = 0;
    } listener;
    const unsigned long id = Nimra::OperationHandler::createId();
    Nimra::OperationHandler::getHandler("Requests")
        ->queueOperation(new Nimra::DataLoaderOperation(id, {}, &listener));
    for (int round = 0; round < 1000 && listener.failedId == 0; ++round) {
        client().collect();
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(listener.failedId, id);
}

TEST_F(ClientTest, StatisticsCountWhatWasDone) {
    service.addFolder(10, Root, "a");
    addDocuments(20, {"b"});
    service.addTag(30, 10, "artist", "x");
    list(Root);
    list(Root);
    tags(10);
    service.failWith(Nimra::ServiceError(Nimra::Reason::Internal, "no"));
    list(10);

    const Statistics figures = client().statistics();
    EXPECT_EQ(figures.answeredFromMemory, 1U);
    EXPECT_EQ(figures.loads, 3U);
    EXPECT_EQ(figures.joinedLoads, 0U);
    EXPECT_EQ(figures.failedLoads, 1U);
    EXPECT_EQ(figures.entries, 3U);
    EXPECT_EQ(figures.keyValueEntries, 1U);
    EXPECT_EQ(figures.directories, 3U);
    EXPECT_EQ(figures.parkedOperations, 0U);
}

TEST_F(ClientTest, LoadsCarryTheUserAndTheFolder) {
    auto own = std::make_unique<ScriptedService>();
    const ScriptedService& asked = *own;
    Client other(std::move(own), 42);
    other.wait(other.list(Root), 10s);
    ASSERT_THAT(asked.asked(), SizeIs(1));
    EXPECT_EQ(asked.asked().front().userId, 42U);
    EXPECT_THAT(asked.asked().front().dataId, ElementsAre(Root));
}

}  // namespace
}  // namespace Ormek
