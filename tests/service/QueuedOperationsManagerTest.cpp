#include "service/QueuedOperationsManager.h"

#include <gmock/gmock.h>
#include <rapidcheck.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iostream>
#include <map>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"
#include "service/LocalIds.h"
#include "tests/support/FixedCases.h"

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Testing::holds;

using Kind = QueuedOperationsManager::Kind;
using Waiting = QueuedOperationsManager::Waiting;

constexpr unsigned int Create = 2;
constexpr unsigned int Move = 4;
constexpr unsigned int Remove = 5;
constexpr unsigned int Rename = 6;
constexpr unsigned int Streams = 10;
constexpr unsigned int SaveMetaData = 13;
constexpr unsigned int AllButCreate[] = {Move, Remove, Rename, Streams, SaveMetaData};

constexpr unsigned long User = 5;
constexpr unsigned long NoUser = 0;
constexpr unsigned long Folder = 7;
constexpr unsigned long OtherFolder = 8;
constexpr unsigned long Document = 30;
constexpr unsigned long LocalFolder = Nimra::FirstLocalId + 1;
constexpr unsigned long OtherLocalFolder = Nimra::FirstLocalId + 2;
constexpr unsigned long LocalDocument = Nimra::FirstLocalId + 3;
constexpr unsigned long OtherLocalDocument = Nimra::FirstLocalId + 4;

std::string sessionUrl(unsigned long folder, unsigned long document) {
    return "/v1/documents/" + std::to_string(folder) + "/" + std::to_string(document) + "/session";
}

std::vector<unsigned long> idsOf(const QueuedOperationsManager::Operations& operations) {
    std::vector<unsigned long> ids;
    for (const auto& operation : operations) {
        ids.push_back(operation->id());
    }
    return ids;
}

class ParkedOperationsTest : public ::testing::Test {
  protected:
    /// The operation itself, to look at while it is parked.
    const Nimra::Document& parkMove(unsigned long id, unsigned long document,
                                    unsigned long destination, unsigned long origin,
                                    unsigned long user = User) {
        Nimra::Document record(document, destination, user, "name");
        record.oldParentId = origin;
        return parkRecord(id, Move, record);
    }
    const Nimra::Document& parkFile(unsigned long id, unsigned int kind, unsigned long document,
                                    unsigned long folder, unsigned long user = User) {
        return parkRecord(id, kind, Nimra::Document(document, folder, user, "name"));
    }
    const Nimra::ItemFilter& parkLoad(unsigned long id, std::vector<unsigned long> dataIds,
                                      unsigned long user = User) {
        Nimra::ItemFilter filter;
        filter.dataId = std::move(dataIds);
        filter.userId = user;
        return parkFilter(id, filter);
    }
    const Nimra::ItemFilter& parkUrl(unsigned long id, std::string url, unsigned long user = User) {
        Nimra::ItemFilter filter;
        filter.url = std::move(url);
        filter.userId = user;
        return parkFilter(id, filter);
    }

    std::vector<unsigned long> takeReady() { return idsOf(parked.takeReady()); }
    std::vector<unsigned long> takeWaitingFor(unsigned long id) {
        return idsOf(parked.takeWaitingFor(id));
    }
    /// What the only parked operation waits for.
    Waiting onlyWaiting() const {
        const std::vector<Waiting> all = parked.waiting();
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? Waiting() : all.front();
    }

    QueuedOperationsManager parked;

  private:
    const Nimra::Document& parkRecord(unsigned long id, unsigned int kind,
                                      const Nimra::Document& record) {
        auto* const operation = new Nimra::FileOperation(id, record, kind, nullptr);
        parked.push(operation);
        return operation->document();
    }
    const Nimra::ItemFilter& parkFilter(unsigned long id, const Nimra::ItemFilter& filter) {
        auto* const operation = new Nimra::DataLoaderOperation(id, filter, nullptr);
        parked.push(operation);
        return operation->filter();
    }
};

// --- Local ids -----------------------------------------------------------------------------

TEST(LocalIdsTest, TheyHaveTheTopBitSet) {
    EXPECT_FALSE(Nimra::isLocalId(0));
    EXPECT_FALSE(Nimra::isLocalId(1));
    EXPECT_FALSE(Nimra::isLocalId(0x7fff'ffff'ffff'ffff));
    EXPECT_TRUE(Nimra::isLocalId(0x8000'0000'0000'0000));
    EXPECT_TRUE(Nimra::isLocalId(0xffff'ffff'ffff'ffff));
}

TEST(LocalIdsTest, TheyAreLocalAndNeverRepeated) {
    std::vector<std::vector<unsigned long>> drawn(4);
    std::vector<std::thread> threads;
    for (std::vector<unsigned long>& ids : drawn) {
        threads.emplace_back([&ids] {
            for (int i = 0; i < 1000; ++i) {
                ids.push_back(Nimra::createLocalId());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<unsigned long> all;
    for (const std::vector<unsigned long>& ids : drawn) {
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), 4000u);
    EXPECT_TRUE(Nimra::isLocalId(*all.begin()));
}

// --- What is ready -------------------------------------------------------------------------

TEST(WaitingTest, SaysOfNothingThatItIsReady) {
    const Waiting nothing;
    EXPECT_EQ(nothing.operationId, 0u);
    EXPECT_EQ(nothing.kind, Kind::Other);
    EXPECT_TRUE(nothing.ready());
}

TEST_F(ParkedOperationsTest, ACreationWaitsForItsFolder) {
    parkFile(1, Create, LocalDocument, LocalFolder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalFolder));
    parked.idKnown(LocalFolder, Folder);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ACreationNeedsNeitherAUserNorItsOwnId) {
    parkFile(1, Create, LocalDocument, Folder, NoUser);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ACreationInNoFolderCanOnlyBeCancelled) {
    parkFile(1, Create, LocalDocument, 0);
    parked.userKnown(User);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_TRUE(onlyWaiting().forLackingId);
    EXPECT_EQ(parked.cancel(1)->id(), 1u);
}

TEST_F(ParkedOperationsTest, EveryOtherActionWaitsForItsDocument) {
    for (const unsigned int kind : AllButCreate) {
        parkFile(kind, kind, LocalDocument, Folder);
        EXPECT_THAT(takeReady(), IsEmpty());
        EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalDocument));
        EXPECT_THAT(takeWaitingFor(LocalDocument), ElementsAre(kind));
    }
    for (const unsigned int kind : AllButCreate) {
        parkFile(kind, kind, LocalDocument, Folder);
    }
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(Move, Remove, Rename, Streams, SaveMetaData));
}

TEST_F(ParkedOperationsTest, EveryActionWaitsForItsFolder) {
    for (const unsigned int kind : {Create, Move, Remove, Rename, Streams, SaveMetaData}) {
        parkFile(kind, kind, Document, LocalFolder);
    }
    EXPECT_THAT(takeReady(), IsEmpty());
    for (const Waiting& waiting : parked.waiting()) {
        EXPECT_THAT(waiting.localIds, ElementsAre(LocalFolder));
    }
    parked.idKnown(LocalFolder, Folder);
    EXPECT_THAT(takeReady(), ElementsAre(Create, Move, Remove, Rename, Streams, SaveMetaData));
}

TEST_F(ParkedOperationsTest, EveryOtherActionWaitsForTheUser) {
    for (const unsigned int kind : AllButCreate) {
        parkFile(kind, kind, Document, Folder, NoUser);
    }
    EXPECT_THAT(takeReady(), IsEmpty());
    for (const Waiting& waiting : parked.waiting()) {
        EXPECT_TRUE(waiting.forUser);
        EXPECT_THAT(waiting.localIds, IsEmpty());
    }
    parked.userKnown(User);
    EXPECT_THAT(takeReady(), ElementsAre(Move, Remove, Rename, Streams, SaveMetaData));
}

TEST_F(ParkedOperationsTest, AMoveWaitsForBothFolders) {
    parkMove(1, Document, LocalFolder, OtherLocalFolder);
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalFolder, OtherLocalFolder));
    parked.idKnown(LocalFolder, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(OtherLocalFolder));
    parked.idKnown(OtherLocalFolder, OtherFolder);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ALoadWaitsForEveryFolderThatItLists) {
    parkLoad(1, {Folder, LocalFolder, OtherLocalFolder});
    parked.idKnown(OtherLocalFolder, 21);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalFolder));
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ALoadNeedsNoUser) {
    parkLoad(1, {Folder}, NoUser);
    EXPECT_FALSE(onlyWaiting().forUser);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ALoadThatLacksAnIdCanOnlyBeCancelled) {
    parkLoad(1, {});
    parkLoad(2, {0});
    parkLoad(3, {Folder, 0});
    parked.userKnown(User);
    EXPECT_THAT(takeReady(), IsEmpty());
    for (const Waiting& waiting : parked.waiting()) {
        EXPECT_TRUE(waiting.forLackingId);
    }
    EXPECT_EQ(parked.cancel(1)->id(), 1u);
}

TEST_F(ParkedOperationsTest, ASessionWaitsForBothIdsAndTheUser) {
    parkUrl(1, sessionUrl(LocalFolder, LocalDocument), NoUser);
    EXPECT_TRUE(onlyWaiting().forUser);
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalDocument, LocalFolder));
    parked.userKnown(User);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalFolder, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalDocument));
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, AnOperationOfAnotherClassWaitsForNothing) {
    parked.push(new Nimra::Operation(1));
    EXPECT_EQ(onlyWaiting().kind, Kind::Other);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

// --- Ids are put right ---------------------------------------------------------------------

TEST_F(ParkedOperationsTest, EveryIdOfADocumentIsPutRight) {
    const Nimra::Document& document =
        parkMove(1, LocalDocument, LocalFolder, OtherLocalFolder, NoUser);
    parked.idKnown(LocalDocument, 41);
    parked.idKnown(LocalFolder, 42);
    parked.idKnown(OtherLocalFolder, 43);
    parked.userKnown(44);
    EXPECT_EQ(document.id, 41u);
    EXPECT_EQ(document.parentId, 42u);
    EXPECT_EQ(document.oldParentId, 43u);
    EXPECT_EQ(document.ownerId, 44u);
}

TEST_F(ParkedOperationsTest, ALocalIdNoLongerStandsForAnItemThatIsGone) {
    parked.idKnown(LocalDocument, 41);
    parked.idKnown(OtherLocalDocument, 42);
    parked.idGone(41);
    EXPECT_EQ(parked.serverId(LocalDocument), LocalDocument);
    EXPECT_EQ(parked.serverId(OtherLocalDocument), 42u);
    const Nimra::Document& document = parkFile(1, Rename, LocalDocument, Folder);
    parked.userKnown(44);
    EXPECT_EQ(document.id, LocalDocument);
    parked.idKnown(LocalDocument, 43);
    EXPECT_EQ(document.id, 43u);
}

TEST_F(ParkedOperationsTest, AnItemThatIsGoneTakesNoIdFromAnother) {
    parked.idKnown(LocalDocument, 41);
    parked.idKnown(LocalDocument, 42);
    parked.idGone(41);
    EXPECT_EQ(parked.serverId(LocalDocument), 42u);
    parked.idGone(43);
    EXPECT_EQ(parked.serverId(LocalDocument), 42u);
    parked.idGone(42);
    EXPECT_EQ(parked.serverId(LocalDocument), LocalDocument);
}

TEST_F(ParkedOperationsTest, OtherIdsStay) {
    const Nimra::Document& document = parkMove(1, LocalDocument, LocalFolder, OtherLocalFolder);
    const Nimra::ItemFilter& load = parkLoad(2, {Folder, LocalFolder}, User);
    parked.idKnown(OtherLocalDocument, 40);
    parked.userKnown(44);
    EXPECT_EQ(document.id, LocalDocument);
    EXPECT_EQ(document.parentId, LocalFolder);
    EXPECT_EQ(document.oldParentId, OtherLocalFolder);
    EXPECT_EQ(document.ownerId, User);
    EXPECT_THAT(load.dataId, ElementsAre(Folder, LocalFolder));
    EXPECT_EQ(load.userId, User);
}

TEST_F(ParkedOperationsTest, ACreationThatStillWaitsGetsItsOwner) {
    const Nimra::Document& document = parkFile(1, Create, LocalDocument, LocalFolder, NoUser);
    parked.userKnown(44);
    EXPECT_EQ(document.ownerId, 44u);
}

TEST_F(ParkedOperationsTest, TheFilterOfALoadIsPutRight) {
    const Nimra::ItemFilter& filter = parkLoad(1, {Folder, LocalFolder, LocalFolder}, NoUser);
    parked.idKnown(LocalFolder, 42);
    parked.userKnown(44);
    EXPECT_THAT(filter.dataId, ElementsAre(Folder, 42, 42));
    EXPECT_EQ(filter.userId, 44u);
}

TEST_F(ParkedOperationsTest, TheUrlOfASessionIsPutRight) {
    const Nimra::ItemFilter& filter = parkUrl(1, sessionUrl(LocalFolder, LocalDocument), NoUser);
    parked.idKnown(LocalFolder, 4);
    EXPECT_EQ(filter.url, sessionUrl(4, LocalDocument));
    parked.idKnown(LocalDocument, 0x7fff'ffff'ffff'ffff);
    EXPECT_EQ(filter.url, sessionUrl(4, 0x7fff'ffff'ffff'ffff));
    parked.userKnown(44);
    EXPECT_EQ(filter.userId, 44u);
}

TEST_F(ParkedOperationsTest, BothIdsOfASessionMayBecomeKnownAtOnce) {
    parked.idKnown(LocalFolder, 4);
    parked.idKnown(LocalDocument, 51);
    EXPECT_EQ(parkUrl(1, sessionUrl(LocalFolder, LocalDocument)).url, sessionUrl(4, 51));
}

TEST_F(ParkedOperationsTest, AnyOtherUrlStaysAsItIs) {
    const std::string local = std::to_string(LocalFolder);
    const std::string urls[] = {
        "",
        "/v1/documents/",
        "/v1/documents/" + local,
        "/v1/documents/" + local + "/",
        "/v1/documents/" + local + "/" + local,
        "/v1/documents/" + local + "/" + local + "/sessions",
        "/v1/documents/" + local + "/" + local + "/content",
        "/v1/documents/" + local + "//session",
        "/v1/documents//" + local + "/session",
        "/v1/documents/-1/" + local + "/session",
        "/v1/documents/99999999999999999999/" + local + "/session",
        "/v2/documents/" + local + "/" + local + "/session",
        "x/v1/documents/" + local + "/" + local + "/session",
    };
    for (const std::string& url : urls) {
        const Nimra::ItemFilter& filter = parkUrl(1, url);
        parked.idKnown(LocalFolder, 4);
        EXPECT_EQ(filter.url, url);
        EXPECT_EQ(onlyWaiting().kind, Kind::Load) << url;
        parked.cancel(1);
    }
}

TEST_F(ParkedOperationsTest, AnIdThatStaysIsWrittenAsItWas) {
    const std::string local = std::to_string(LocalDocument);
    const Nimra::ItemFilter& filter = parkUrl(1, "/v1/documents/007/" + local + "/session");
    parked.idKnown(LocalDocument, 51);
    EXPECT_EQ(filter.url, "/v1/documents/007/51/session");
}

TEST_F(ParkedOperationsTest, WhatIsKnownHoldsForWhatIsParkedLater) {
    parked.idKnown(LocalDocument, Document);
    parked.userKnown(User);
    const Nimra::Document& document = parkFile(1, Rename, LocalDocument, Folder, NoUser);
    EXPECT_EQ(document.id, Document);
    EXPECT_EQ(document.ownerId, User);
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

TEST_F(ParkedOperationsTest, ServerIdIsToldOnceItIsKnown) {
    EXPECT_EQ(parked.serverId(LocalDocument), LocalDocument);
    parked.idKnown(LocalDocument, Document);
    EXPECT_EQ(parked.serverId(LocalDocument), Document);
    EXPECT_EQ(parked.serverId(OtherLocalDocument), OtherLocalDocument);
    EXPECT_EQ(parked.serverId(Document), Document);
    EXPECT_EQ(parked.serverId(0), 0u);
    parked.idKnown(LocalDocument, OtherFolder);
    EXPECT_EQ(parked.serverId(LocalDocument), OtherFolder);
}

TEST_F(ParkedOperationsTest, OnlyALocalIdBecomesAServerId) {
    parkFile(1, Rename, LocalDocument, Folder, NoUser);
    EXPECT_THROW(parked.idKnown(Folder, OtherFolder), std::invalid_argument);
    EXPECT_THROW(parked.idKnown(0, OtherFolder), std::invalid_argument);
    EXPECT_THROW(parked.idKnown(LocalDocument, 0), std::invalid_argument);
    EXPECT_THROW(parked.idKnown(LocalDocument, OtherLocalDocument), std::invalid_argument);
    EXPECT_THROW(parked.userKnown(0), std::invalid_argument);
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalDocument));
    EXPECT_TRUE(onlyWaiting().forUser);
}

TEST_F(ParkedOperationsTest, RefusedIdIsNamed) {
    const auto refusal = [&](unsigned long localId, unsigned long serverId) -> std::string {
        try {
            parked.idKnown(localId, serverId);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(refusal(17, OtherFolder), "not a local id: 17");
    EXPECT_EQ(refusal(LocalDocument, 0), "not a server id: 0");
    EXPECT_EQ(refusal(LocalDocument, LocalDocument),
              "not a server id: " + std::to_string(LocalDocument));
    try {
        parked.userKnown(0);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "0 is no user");
    }
}

// --- Leaving in order ----------------------------------------------------------------------

TEST_F(ParkedOperationsTest, WhatIsReadyLeavesInOrderAndOnce) {
    parkFile(3, Rename, LocalDocument, Folder);
    parkFile(1, SaveMetaData, LocalDocument, Folder);
    parkFile(2, Remove, LocalDocument, Folder);
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(3, 1, 2));
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_EQ(parked.size(), 0u);
    EXPECT_THAT(parked.operations(), IsEmpty());
}

TEST_F(ParkedOperationsTest, WhatLeavesIsTheOperationItself) {
    auto* const operation = new Nimra::Operation(1);
    parked.push(operation);
    EXPECT_EQ(parked.takeReady().front().get(), operation);
}

TEST_F(ParkedOperationsTest, OperationsOnOtherItemsDoNotWaitForEachOther) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Rename, Document, OtherFolder);
    EXPECT_THAT(takeReady(), ElementsAre(2));
    EXPECT_EQ(parked.size(), 1u);
}

TEST_F(ParkedOperationsTest, NoneOvertakesAnEarlierOneOnItsDocument) {
    parkMove(1, Document, LocalFolder, Folder);
    parkFile(2, Rename, Document, OtherFolder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_TRUE(parked.waiting().at(1).forEarlier);
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2));
}

TEST_F(ParkedOperationsTest, NoneOvertakesTheCreationOfItsDocument) {
    parkFile(1, Create, Document, LocalFolder);
    parkFile(2, Rename, Document, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_TRUE(parked.waiting().at(1).forEarlier);
}

TEST_F(ParkedOperationsTest, NoneOvertakesAnEarlierOneInItsFolder) {
    parkFile(1, Remove, LocalDocument, Folder);
    parkFile(2, Create, OtherLocalDocument, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2));
}

TEST_F(ParkedOperationsTest, NoneOvertakesAnEarlierMoveIntoOrOutOfItsFolder) {
    parkMove(1, LocalDocument, Folder, OtherFolder);
    parkFile(2, Rename, 31, Folder);
    parkFile(3, Rename, 32, OtherFolder);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2, 3));
}

TEST_F(ParkedOperationsTest, NoMoveOvertakesAnEarlierOneInEitherFolder) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkMove(2, 31, Folder, 20);
    parkMove(3, 32, 21, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_TRUE(parked.waiting().at(1).forEarlier);
    EXPECT_TRUE(parked.waiting().at(2).forEarlier);
}

TEST_F(ParkedOperationsTest, ALoadKeepsItsPlaceAmongTheActionsInItsFolder) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkLoad(2, {Folder, LocalFolder});
    parkFile(3, Rename, Document, Folder);
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalDocument, 31);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2, 3));
}

TEST_F(ParkedOperationsTest, ASessionKeepsItsPlaceAmongTheActionsOnItsDocument) {
    parkMove(1, Document, LocalFolder, OtherFolder);
    parkUrl(2, sessionUrl(Folder, Document));
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_TRUE(parked.waiting().at(1).forEarlier);
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2));
}

TEST_F(ParkedOperationsTest, WhatIsHeldBackHoldsBackWhatComesAfterIt) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkMove(2, Document, Folder, OtherFolder);
    parkFile(3, Rename, 31, OtherFolder);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(parked.waiting().at(2).localIds, IsEmpty());
    EXPECT_TRUE(parked.waiting().at(2).forEarlier);
}

TEST_F(ParkedOperationsTest, OrderHoldsAcrossTheChangeOfAnId) {
    parkMove(1, LocalDocument, LocalFolder, Folder);
    parked.idKnown(LocalDocument, Document);
    parkFile(2, Rename, Document, OtherFolder);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), ElementsAre(1, 2));
}

TEST_F(ParkedOperationsTest, EveryItemThatIsNamedIsTold) {
    EXPECT_FALSE(parked.names({LocalDocument, Folder}));
    parkMove(1, LocalDocument, OtherFolder, Folder);
    EXPECT_TRUE(parked.names({LocalDocument}));
    EXPECT_TRUE(parked.names({Folder}));
    EXPECT_TRUE(parked.names({OtherFolder}));
    EXPECT_TRUE(parked.names({Document, OtherFolder}));
    EXPECT_FALSE(parked.names({Document, LocalFolder, User}));
    EXPECT_FALSE(parked.names({}));
    EXPECT_FALSE(parked.names({0}));
    parkFile(2, Create, OtherLocalDocument, LocalFolder);
    EXPECT_TRUE(parked.names({OtherLocalDocument}));
    EXPECT_TRUE(parked.names({LocalFolder}));
    parkLoad(3, {Document, OtherLocalFolder});
    EXPECT_TRUE(parked.names({OtherLocalFolder}));
    parkUrl(4, sessionUrl(40, 41));
    EXPECT_TRUE(parked.names({40}));
    EXPECT_TRUE(parked.names({41}));
}

TEST_F(ParkedOperationsTest, ItemsAreNamedByTheIdsTheyHaveNowAndWhileTheyAreParked) {
    parkMove(1, LocalDocument, LocalFolder, Folder);
    parked.idKnown(LocalDocument, Document);
    EXPECT_TRUE(parked.names({Document}));
    EXPECT_FALSE(parked.names({LocalDocument}));
    parked.idKnown(LocalFolder, OtherFolder);
    EXPECT_THAT(takeReady(), ElementsAre(1));
    EXPECT_FALSE(parked.names({Document, Folder, OtherFolder, LocalFolder}));
    parkFile(2, Rename, OtherLocalDocument, Folder);
    parked.cancel(2);
    EXPECT_FALSE(parked.names({OtherLocalDocument, Folder}));
}

TEST_F(ParkedOperationsTest, WhatNamesZeroSharesNoItem) {
    parkFile(1, Create, 0, LocalFolder);
    parkFile(2, Create, 0, Folder);
    EXPECT_THAT(takeReady(), ElementsAre(2));
}

TEST_F(ParkedOperationsTest, AStretchWithoutServiceLeavesInOrder) {
    parkFile(1, Create, LocalDocument, LocalFolder, NoUser);
    parkFile(2, Rename, LocalDocument, LocalFolder, NoUser);
    parkMove(3, LocalDocument, Folder, LocalFolder, NoUser);
    parkFile(4, SaveMetaData, LocalDocument, Folder, NoUser);
    parkLoad(5, {LocalFolder}, NoUser);
    parked.userKnown(User);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.idKnown(LocalFolder, 20);
    EXPECT_THAT(takeReady(), ElementsAre(1));
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(2, 3, 4, 5));
}

// --- Looking -------------------------------------------------------------------------------

TEST_F(ParkedOperationsTest, WhatWaitsIsListedInOrderWithItsKind) {
    unsigned long id = 9;
    for (const unsigned int kind : {Create, Move, Remove, Rename, Streams, SaveMetaData, 7u}) {
        parkFile(id--, kind, LocalDocument, LocalFolder);
    }
    parkLoad(id--, {LocalFolder});
    parkUrl(id--, sessionUrl(LocalFolder, LocalDocument));
    std::vector<unsigned long> ids;
    std::vector<Kind> kinds;
    for (const Waiting& waiting : parked.waiting()) {
        ids.push_back(waiting.operationId);
        kinds.push_back(waiting.kind);
    }
    EXPECT_THAT(ids, ElementsAre(9, 8, 7, 6, 5, 4, 3, 2, 1));
    EXPECT_THAT(kinds,
                ElementsAre(Kind::Create, Kind::Move, Kind::Remove, Kind::Rename, Kind::Streams,
                            Kind::SaveMetaData, Kind::Other, Kind::Load, Kind::Session));
    EXPECT_EQ(parked.size(), 9u);
}

TEST_F(ParkedOperationsTest, AnIdIsWaitedForOnce) {
    parkMove(1, LocalDocument, LocalFolder, LocalFolder);
    EXPECT_THAT(onlyWaiting().localIds, ElementsAre(LocalDocument, LocalFolder));
}

TEST_F(ParkedOperationsTest, WhatIsReadyIsListedUntilItIsTaken) {
    parkFile(1, Rename, Document, Folder);
    EXPECT_TRUE(onlyWaiting().ready());
    takeReady();
    EXPECT_THAT(parked.waiting(), IsEmpty());
}

// --- Leaving for good ----------------------------------------------------------------------

TEST_F(ParkedOperationsTest, CancellingTakesOutOneOperation) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Rename, LocalDocument, Folder);
    parkFile(3, Rename, LocalDocument, Folder);
    EXPECT_EQ(parked.cancel(2)->id(), 2u);
    EXPECT_EQ(parked.cancel(2), nullptr);
    EXPECT_EQ(parked.cancel(4), nullptr);
    parked.idKnown(LocalDocument, Document);
    EXPECT_THAT(takeReady(), ElementsAre(1, 3));
}

TEST_F(ParkedOperationsTest, TheFirstOneLeavesWhateverItWaitsFor) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Rename, Document, Folder, NoUser);
    EXPECT_EQ(parked.takeFirst()->id(), 1u);
    EXPECT_EQ(parked.takeFirst()->id(), 2u);
    EXPECT_EQ(parked.takeFirst(), nullptr);
}

TEST_F(ParkedOperationsTest, CancellingFreesWhatWasHeldBack) {
    parkMove(1, Document, LocalFolder, Folder);
    parkFile(2, Rename, Document, Folder);
    parked.cancel(1);
    EXPECT_THAT(takeReady(), ElementsAre(2));
}

TEST_F(ParkedOperationsTest, WhatIsFreedLeavesThoughNothingWasReadyBefore) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Rename, LocalDocument + 1, Folder);
    parkFile(3, Rename, Document, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.cancel(1);
    EXPECT_THAT(takeReady(), IsEmpty());
    EXPECT_THAT(takeWaitingFor(LocalDocument + 1), ElementsAre(2));
    EXPECT_THAT(takeReady(), ElementsAre(3));
    parkFile(4, Rename, LocalDocument, Folder);
    parkFile(5, Rename, Document, Folder);
    EXPECT_THAT(takeReady(), IsEmpty());
    parked.cancel(4);
    EXPECT_THAT(takeReady(), ElementsAre(5));
}

TEST_F(ParkedOperationsTest, CancellingACreationLeavesWhatNeedsItsDocument) {
    parkFile(1, Create, LocalDocument, LocalFolder);
    parkFile(2, Rename, LocalDocument, Folder);
    parked.cancel(1);
    EXPECT_EQ(parked.size(), 1u);
    EXPECT_THAT(takeWaitingFor(LocalDocument), ElementsAre(2));
}

TEST_F(ParkedOperationsTest, WhatNeedsALostItemLeavesWithIt) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Rename, OtherLocalDocument, Folder);
    parkMove(3, LocalDocument, OtherFolder, Folder);
    parkUrl(4, sessionUrl(Folder, LocalDocument), NoUser);
    parkFile(5, Rename, Document, Folder);
    EXPECT_THAT(takeWaitingFor(LocalDocument), ElementsAre(1, 3, 4));
    EXPECT_EQ(parked.size(), 2u);
}

TEST_F(ParkedOperationsTest, EveryWayToNeedALostFolderCounts) {
    parkFile(1, Create, LocalDocument, LocalFolder);
    parkMove(2, Document, LocalFolder, Folder);
    parkMove(3, Document, Folder, LocalFolder);
    parkLoad(4, {Folder, LocalFolder});
    parkUrl(5, sessionUrl(LocalFolder, Document));
    EXPECT_THAT(takeWaitingFor(LocalFolder), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(ParkedOperationsTest, WhatALostOperationWouldHaveCreatedIsLostToo) {
    parkFile(1, Create, LocalDocument, LocalFolder);
    parkFile(2, Create, OtherLocalDocument, OtherLocalFolder);
    parkFile(3, Rename, LocalDocument, Folder);
    parkFile(4, Rename, OtherLocalDocument, Folder);
    EXPECT_THAT(takeWaitingFor(LocalFolder), ElementsAre(1, 3));
    EXPECT_EQ(parked.size(), 2u);
}

TEST_F(ParkedOperationsTest, WhatIsLostIsFoundWhateverTheOrder) {
    parkFile(1, Rename, LocalDocument, Folder);
    parkFile(2, Create, LocalDocument, OtherLocalDocument);
    parkFile(3, Create, OtherLocalDocument, LocalFolder);
    EXPECT_THAT(takeWaitingFor(LocalFolder), ElementsAre(1, 2, 3));
}

TEST_F(ParkedOperationsTest, ACreationDoesNotNeedItsOwnDocument) {
    parkFile(1, Create, LocalDocument, LocalFolder);
    EXPECT_THAT(takeWaitingFor(LocalDocument), IsEmpty());
    EXPECT_EQ(parked.size(), 1u);
}

TEST_F(ParkedOperationsTest, NothingWaitsForAnIdThatIsKnown) {
    parkFile(1, Rename, Document, LocalFolder);
    parked.idKnown(LocalFolder, Folder);
    EXPECT_THAT(takeWaitingFor(LocalFolder), IsEmpty());
    EXPECT_THAT(takeWaitingFor(Document), IsEmpty());
    EXPECT_THAT(takeReady(), ElementsAre(1));
}

// --- Failures and threads ------------------------------------------------------------------

/// Has no memory to say its id, until it is healed.
struct FailingOperation : Nimra::Operation {
    FailingOperation(unsigned long id, const bool& healed) : Operation(id), _healed(healed) {}
    unsigned long id() const override { return _healed ? Operation::id() : throw std::bad_alloc(); }
    const bool& _healed;
};

TEST_F(ParkedOperationsTest, AFailureMidwayLosesNothing) {
    bool healed = false;
    parkFile(1, Rename, Document, Folder);
    parked.push(new FailingOperation(2, healed));
    parkFile(3, Rename, Document, Folder);
    EXPECT_THROW(parked.takeReady(), std::bad_alloc);
    EXPECT_THROW(parked.waiting(), std::bad_alloc);
    EXPECT_THROW(parked.cancel(3), std::bad_alloc);
    EXPECT_EQ(parked.size(), 3u);
    healed = true;
    EXPECT_THAT(takeReady(), ElementsAre(1, 2, 3));
}

TEST_F(ParkedOperationsTest, EveryOperationLeavesOnceWhateverThreadTakesIt) {
    constexpr unsigned long Each = 200;
    std::atomic<int> running{2};
    std::vector<std::vector<unsigned long>> taken(2);
    std::vector<std::thread> threads;
    for (unsigned long t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned long i = 1; i <= Each; ++i) {
                const unsigned long local = Nimra::createLocalId();
                parkFile(t * Each + i, Rename, local, Folder, NoUser);
                parked.idKnown(local, t * Each + i);
                parked.userKnown(User);
            }
            --running;
        });
        threads.emplace_back([&, t] {
            while (running != 0) {
                const std::vector<unsigned long> ids = takeReady();
                taken[t].insert(taken[t].end(), ids.begin(), ids.end());
                parked.waiting();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<unsigned long> all = takeReady();
    for (const std::vector<unsigned long>& ids : taken) {
        all.insert(all.end(), ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), 2 * Each);
    EXPECT_EQ(std::set<unsigned long>(all.begin(), all.end()).size(), 2 * Each);
    EXPECT_EQ(parked.size(), 0u);
}

// --- Against a model -----------------------------------------------------------------------

constexpr unsigned long KnownItems = 3;
constexpr unsigned long Items = 9;

/// An item is a number; the first ones always had a server id.
unsigned long serverIdOf(unsigned long item) { return 100 + item; }
unsigned long firstIdOf(unsigned long item) {
    return item < KnownItems ? serverIdOf(item) : Nimra::FirstLocalId + item;
}

/// One thing that happens; the numbers say to which items or operation.
struct Step {
    enum Action {
        ParkCreation,
        ParkMove,
        ParkRename,
        ParkLoad,
        ParkSession,
        LearnId,
        LearnUser,
        TakeReady,
        Cancel,
        Lose,
        Last = Lose
    };
    Action action;
    unsigned long one;
    unsigned long other;
    unsigned long third;
    bool hasUser;
};

std::ostream& operator<<(std::ostream& stream, const Step& step) {
    return stream << "{" << step.action << ", " << step.one << ", " << step.other << ", "
                  << step.third << ", " << step.hasUser << "}";
}

/// An operation in the terms of the model, which rewrites nothing but what a cancelled move leaves.
struct Parked {
    unsigned long operation;
    enum class Kind { Creation, Relocation, Renaming, Load, Session } kind;
    unsigned long item;
    unsigned long folder;
    unsigned long oldFolder;
    bool needsUser;

    std::set<unsigned long> touched() const {
        return kind == Kind::Relocation ? std::set{item, folder, oldFolder}
                                        : std::set{item, folder};
    }
    std::set<unsigned long> needed() const {
        return kind == Kind::Creation ? std::set{folder} : touched();
    }
    bool sharesWith(const Parked& other) const { return meets(touched(), other.touched()); }
    static bool meets(const std::set<unsigned long>& some, const std::set<unsigned long>& others) {
        return std::any_of(some.begin(), some.end(),
                           [&](unsigned long one) { return others.count(one) != 0; });
    }
};

class World {
  public:
    void take(const Step& step) {
        switch (step.action) {
            case Step::ParkCreation:
                return park(step, Create, Parked::Kind::Creation);
            case Step::ParkMove:
                return park(step, Move, Parked::Kind::Relocation);
            case Step::ParkRename:
                return park(step, Rename, Parked::Kind::Renaming);
            case Step::ParkLoad:
                return parkFilter(step, Parked::Kind::Load);
            case Step::ParkSession:
                return parkFilter(step, Parked::Kind::Session);
            case Step::LearnId:
                return learnId(step.one);
            case Step::LearnUser:
                return learnUser();
            case Step::TakeReady:
                return takeReady();
            case Step::Cancel:
                return cancel(step.one);
            case Step::Lose:
                return lose(step.one);
        }
    }

    void end() {
        for (unsigned long item = 0; item < Items; ++item) {
            learnId(item);
        }
        learnUser();
        takeReady();
        RC_ASSERT(_manager.size() == 0u);
        RC_ASSERT(_gone.size() == _all.size());
        keptOrder();
    }

  private:
    void park(const Step& step, unsigned int number, Parked::Kind kind) {
        Nimra::Document document(firstIdOf(step.one), firstIdOf(step.other),
                                 step.hasUser ? User : 0, "");
        document.oldParentId = number == Move ? firstIdOf(step.third) : 0;
        note(step, kind, !step.hasUser && number != Create);
        _manager.push(new Nimra::FileOperation(_all.size(), document, number, nullptr));
    }
    void parkFilter(const Step& step, Parked::Kind kind) {
        const bool isSession = kind == Parked::Kind::Session;
        Nimra::ItemFilter filter;
        filter.userId = step.hasUser ? User : 0;
        if (isSession) {
            filter.url = sessionUrl(firstIdOf(step.other), firstIdOf(step.one));
        } else {
            filter.dataId = {firstIdOf(step.one), firstIdOf(step.other)};
        }
        note(step, kind, isSession && !step.hasUser);
        _manager.push(new Nimra::DataLoaderOperation(_all.size(), filter, nullptr));
    }
    void note(const Step& step, Parked::Kind kind, bool needsUser) {
        _all.push_back({_all.size() + 1, kind, step.one, step.other, step.third, needsUser});
        _parked.push_back(_all.back());
    }

    void learnId(unsigned long item) {
        if (item >= KnownItems) {
            _manager.idKnown(firstIdOf(item), serverIdOf(item));
            _learnt.insert(item);
        }
    }
    void learnUser() {
        _manager.userKnown(User);
        _userKnown = true;
    }

    void takeReady() {
        std::vector<unsigned long> expected;
        std::vector<Parked> staying;
        for (const Parked& parked : _parked) {
            const bool overtakes =
                std::any_of(staying.begin(), staying.end(),
                            [&](const Parked& earlier) { return parked.sharesWith(earlier); });
            if (overtakes || isUnknown(parked)) {
                staying.push_back(parked);
            } else {
                expected.push_back(parked.operation);
            }
        }
        const auto taken = _manager.takeReady();
        RC_ASSERT(idsOf(taken) == expected);
        std::for_each(taken.begin(), taken.end(), [&](const auto& one) { hasServerIds(*one); });
        _left.insert(_left.end(), expected.begin(), expected.end());
        leave(expected);
    }
    bool isUnknown(const Parked& parked) const {
        return (parked.needsUser && !_userKnown) || !allKnown(parked.needed());
    }
    bool allKnown(const std::set<unsigned long>& items) const {
        return std::all_of(items.begin(), items.end(),
                           [&](unsigned long item) { return isKnown(item); });
    }
    bool isKnown(unsigned long item) const { return item < KnownItems || _learnt.count(item) != 0; }

    void cancel(unsigned long number) {
        const unsigned long operation = number + 1;
        const bool isParked =
            std::any_of(_parked.begin(), _parked.end(),
                        [&](const Parked& parked) { return parked.operation == operation; });
        const auto cancelled = _manager.cancel(operation);
        RC_ASSERT((cancelled != nullptr) == isParked);
        if (cancelled) {
            RC_ASSERT(cancelled->id() == operation);
            leave({operation});
            forgetMove(_all[number]);
        }
    }
    /// What comes behind, up to the next move of the item, looks for it where it stayed.
    void forgetMove(const Parked& moved) {
        if (moved.kind != Parked::Kind::Relocation) {
            return;
        }
        for (Parked& later : _parked) {
            if (later.operation < moved.operation || later.item != moved.item ||
                later.kind == Parked::Kind::Load) {
                continue;
            }
            const bool isMove = later.kind == Parked::Kind::Relocation;
            unsigned long& folder = isMove ? later.oldFolder : later.folder;
            folder = folder == moved.folder ? moved.oldFolder : folder;
            _all[later.operation - 1] = later;
            if (isMove) {
                return;
            }
        }
    }

    void lose(unsigned long item) {
        std::set<unsigned long> lost;
        if (!isKnown(item)) {
            lost.insert(item);
        }
        std::set<unsigned long> doomed;
        for (std::size_t round = 0; round < _parked.size(); ++round) {
            for (const Parked& parked : _parked) {
                if (Parked::meets(parked.needed(), lost)) {
                    doomed.insert(parked.operation);
                    if (parked.kind == Parked::Kind::Creation && !isKnown(parked.item)) {
                        lost.insert(parked.item);
                    }
                }
            }
        }
        const auto taken = _manager.takeWaitingFor(firstIdOf(item));
        const std::vector<unsigned long> expected(doomed.begin(), doomed.end());
        RC_ASSERT(idsOf(taken) == expected);
        leave(expected);
    }

    void leave(const std::vector<unsigned long>& operations) {
        for (const unsigned long operation : operations) {
            RC_ASSERT(_gone.insert(operation).second);
        }
        _parked.erase(std::remove_if(
                          _parked.begin(), _parked.end(),
                          [&](const Parked& parked) { return _gone.count(parked.operation) != 0; }),
                      _parked.end());
        RC_ASSERT(_manager.size() == _parked.size());
    }

    void hasServerIds(const Nimra::Operation& operation) const {
        const Parked& parked = _all[operation.id() - 1];
        std::set<unsigned long> expected;
        for (const unsigned long item : parked.touched()) {
            expected.insert(isKnown(item) ? serverIdOf(item) : firstIdOf(item));
        }
        RC_ASSERT(idsIn(operation) == expected);
    }
    static std::set<unsigned long> idsIn(const Nimra::Operation& operation) {
        if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
            const Nimra::Document& document = file->document();
            std::set<unsigned long> ids{document.id, document.parentId, document.oldParentId};
            ids.erase(0);
            return ids;
        }
        const auto& filter = dynamic_cast<const Nimra::DataLoaderOperation&>(operation).filter();
        if (filter.url.empty()) {
            return {filter.dataId.begin(), filter.dataId.end()};
        }
        const std::size_t start = std::string("/v1/documents/").size();
        const std::size_t slash = filter.url.find('/', start);
        return {std::stoul(filter.url.substr(start)), std::stoul(filter.url.substr(slash + 1))};
    }

    /// Operations were numbered as they were parked.
    void keptOrder() const {
        for (std::size_t first = 0; first < _left.size(); ++first) {
            for (std::size_t later = first + 1; later < _left.size(); ++later) {
                const Parked& one = _all[_left[first] - 1];
                const Parked& other = _all[_left[later] - 1];
                RC_ASSERT(one.operation < other.operation || !one.sharesWith(other));
            }
        }
    }

    QueuedOperationsManager _manager;
    std::vector<Parked> _all;
    std::vector<Parked> _parked;
    std::set<unsigned long> _learnt;
    bool _userKnown = false;
    std::set<unsigned long> _gone;
    std::vector<unsigned long> _left;  // Those that were ready, as they left.
};

rc::Gen<unsigned long> number(unsigned long end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0ul, end));
}

rc::Gen<Step> steps() {
    const auto action =
        rc::gen::map(number(Step::Last + 1), [](auto n) { return static_cast<Step::Action>(n); });
    return rc::gen::build<Step>(
        rc::gen::set(&Step::action, action), rc::gen::set(&Step::one, number(Items)),
        rc::gen::set(&Step::other, number(Items)), rc::gen::set(&Step::third, number(Items)),
        rc::gen::set(&Step::hasUser, rc::gen::arbitrary<bool>()));
}

TEST(ParkedOperationsPropertyTest, NothingIsLostNothingLeavesTwiceAndEveryItemKeepsItsOrder) {
    EXPECT_TRUE(holds("every operation leaves once, and in order for each item", 3000, 60, [] {
        World world;
        for (const Step& step : *rc::gen::container<std::vector<Step>>(steps())) {
            world.take(step);
        }
        world.end();
    }));
}

TEST_F(ParkedOperationsTest, ACancelledMoveChangesNothingBehindAFurtherOne) {
    parkMove(1, Document, LocalFolder, Folder);
    const Nimra::Document& further = parkMove(2, Document, OtherFolder, LocalFolder);
    parkMove(3, Document, LocalFolder, OtherFolder);
    const Nimra::Document& last = parkFile(4, Rename, Document, LocalFolder);
    parked.cancel(1);
    EXPECT_EQ(further.oldParentId, Folder);
    EXPECT_EQ(last.parentId, LocalFolder);
}

TEST_F(ParkedOperationsTest, ACancelledMoveLeavesOperationsOfOtherClassesAsTheyAre) {
    parkMove(1, Document, LocalFolder, Folder);
    parked.push(new Nimra::Operation(2));
    parkFile(3, Rename, Document, LocalFolder);
    EXPECT_EQ(parked.cancel(1)->id(), 1u);
    EXPECT_THAT(takeReady(), ElementsAre(2, 3));
}

}  // namespace
}  // namespace Ormek
