// Memory runs out in the middle, at each place where it can: what is under way still comes to an
// end, and once everything is loaded again the client shows what the service has.

#include <functional>
#include <new>

#include "backend/Worker.h"
#include "model/Container.h"
#include "tests/client/ActingFixture.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/FaultPoints.h"

namespace Ormek::Testing {
namespace {

using Nimra::Reason;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};

/// A client, and a service whose root holds the folder 10 "A" and the documents 20 "x" and 21 "y";
/// 10 holds the empty folder 12 "deep" and the document 30 "z".
class Trial : public ActingTest {
  public:
    using ActingTest::client;
    using ActingTest::list;
    using ActingTest::reloaded;
    using ActingTest::Root;
    using ActingTest::service;

    Trial() {
        service.addFolder(10, Root, "A");
        service.addFolder(12, 10, "deep");
        service.addDocument(20, Root, "x");
        service.addDocument(21, Root, "y");
        service.addDocument(30, 10, "z");
        for (const unsigned long folderId : {Root, 10UL, 12UL}) {
            list(folderId);
            list(folderId, descending());
        }
    }
    void TestBody() override {}

    /// The service has answered so many operations, and nobody has taken the answers in.
    void awaitAnswers(unsigned long count) {
        auto& worker =
            dynamic_cast<Nimra::Worker&>(*Nimra::OperationHandler::getHandler("Requests"));
        const unsigned long seen = worker.finishedCount();
        for (unsigned long passes = 0; passes < count; ++passes) {
            service.releaseOne();
        }
        EXPECT_TRUE(
            worker.waitForFinished(seen + count - 1, std::chrono::steady_clock::now() + Patience));
    }

    void expectAllEnded() {
        settle();
        EXPECT_TRUE(client().waiting().empty());
        EXPECT_EQ(client().statistics().parkedOperations, 0U);
        // Of what could not be undertaken the caller has no handle, and the service hears nothing.
        EXPECT_TRUE(!handles.empty() || service.actions().empty());
        for (const Action& handle : handles) {
            const Outcome outcome = client().poll(handle);
            EXPECT_NE(outcome.state, ActionState::Pending) << handle.operationId();
            const bool done = outcome.state == ActionState::Done;
            EXPECT_EQ(done && outcome.kind == ActionKind::Open, outcome.stream != nullptr);
            EXPECT_EQ(done && outcome.kind == ActionKind::OpenSession, outcome.session.has_value());
        }
        for (const Query& query : queries) {
            EXPECT_NE(client().poll(query).state, AnswerState::Pending);
        }
    }
    void expectServersPicture() {
        std::vector<unsigned long> folders{Root};
        unsigned long entries = 1;
        while (!folders.empty()) {
            const unsigned long folderId = folders.back();
            folders.pop_back();
            const Answer answer = list(folderId, reloaded());
            EXPECT_EQ(namesOf(answer), service.namesIn(folderId)) << folderId;
            for (const auto& entry : answer.entries) {
                ++entries;
                EXPECT_FALSE(Nimra::isLocalId(entry->id()));
                if (std::dynamic_pointer_cast<Container>(entry)) {
                    folders.push_back(entry->id());
                }
            }
        }
        EXPECT_EQ(client().statistics().entries, entries);
    }

    std::vector<Action> handles;
    std::vector<Query> queries;

  private:
    /// Subscribers are told, but this one needs no memory: what it throws would pass.
    void hear(const Event&) override {}
};

class MemoryFaultsTest : public ::testing::Test {
  protected:
    using Use = std::function<void(Trial&)>;

    static constexpr unsigned long Root = Trial::Root;

    /// Prepares something and lets one allocation of what follows fail; again with the next one,
    /// until there is none left that could.
    static void expectEnds(const Use& prepare, const Use& strike) {
        unsigned long failing = 0;
        for (bool struck = true; struck && !HasFailure();) {
            SCOPED_TRACE("allocation " + std::to_string(++failing));
            Trial trial;
            prepare(trial);
            struck = strikes(failing, [&] { strike(trial); });
            trial.service.release();
            trial.expectAllEnded();
            trial.expectServersPicture();
        }
        EXPECT_GT(failing, 1U);
        noteFaultPoints(failing - 1);
    }
    static void collect(Trial& trial) { trial.client().collect(); }

  private:
    static bool strikes(unsigned long nth, const std::function<void()>& strike) {
        const AllocationFaults faults(nth);
        try {
            strike();
        } catch (const std::bad_alloc&) {
            // The caller hears of it; what is under way comes to its end all the same.
        }
        return faults.struck();
    }
};

// --- Outcomes --------------------------------------------------------------------------------

TEST_F(MemoryFaultsTest, CreationAndWhatWaitsForItComeToAnEnd) {
    const Use prepare = [](Trial& trial) {
        Client& client = trial.client();
        trial.service.hold();
        const Action folder = client.createFolder(Root, "new");
        const Action inside = client.createDocument(folder.entryId(), "inside");
        trial.handles = {folder, inside, client.rename(inside.entryId(), "renamed"),
                         client.move(20, folder.entryId()), client.saveMetaData(20, Blue)};
        client.list(folder.entryId());
        trial.awaitAnswers(1);
    };
    expectEnds(prepare, collect);
}

TEST_F(MemoryFaultsTest, RefusedCreationAndWhatWaitsForItComeToAnEnd) {
    const Use prepare = [](Trial& trial) {
        Client& client = trial.client();
        trial.service.failNext("makeFolder", Reason::Refused);
        trial.service.hold();
        const Action folder = client.createFolder(Root, "new");
        const Action inside = client.createDocument(folder.entryId(), "inside");
        trial.handles = {folder, inside, client.rename(inside.entryId(), "renamed"),
                         client.move(20, folder.entryId())};
        trial.awaitAnswers(1);
    };
    expectEnds(prepare, collect);
}

TEST_F(MemoryFaultsTest, ActionsOnWhatIsThereComeToAnEnd) {
    const Use prepare = [](Trial& trial) {
        Client& client = trial.client();
        trial.service.hold();
        trial.handles = {
            client.rename(20, "renamed"), client.move(21, 10),           client.open(20),
            client.openSession(30),       client.saveMetaData(20, Blue), client.remove(12)};
        trial.awaitAnswers(trial.handles.size());
    };
    expectEnds(prepare, collect);
}

TEST_F(MemoryFaultsTest, RefusedActionsComeToAnEnd) {
    for (const char* verb : {"rename", "move", "remove", "save"}) {
        SCOPED_TRACE(verb);
        const Use prepare = [&](Trial& trial) {
            Client& client = trial.client();
            trial.service.failNext(verb, Reason::NoPermission);
            trial.service.hold();
            trial.handles.push_back(client.rename(20, "renamed"));
            trial.handles.push_back(client.move(20, 10));
            trial.handles.push_back(client.saveMetaData(20, Blue));
            trial.handles.push_back(client.remove(20));
            trial.awaitAnswers(trial.handles.size());
        };
        expectEnds(prepare, collect);
    }
}

TEST_F(MemoryFaultsTest, CancelledActionAndWhatWaitsForItComeToAnEnd) {
    const Use prepare = [](Trial& trial) {
        Client& client = trial.client();
        trial.service.hold();
        const Action outer = client.createFolder(Root, "outer");
        const Action folder = client.createFolder(outer.entryId(), "new");
        trial.handles = {folder, outer, client.createDocument(folder.entryId(), "inside"),
                         client.move(20, folder.entryId())};
    };
    expectEnds(prepare,
               [](Trial& trial) { trial.client().cancel(trial.handles.front().operationId()); });
}

// --- What is asked for -----------------------------------------------------------------------

TEST_F(MemoryFaultsTest, ActionThatCannotBeUndertakenLeavesNothingBehind) {
    const std::vector<std::function<Action(Client&)>> all{
        [](Client& client) {
            return client.createDocument(Root, "new", std::make_unique<TextSource>("content"));
        },
        [](Client& client) { return client.createFolder(10, "new"); },
        [](Client& client) { return client.rename(20, "renamed"); },
        [](Client& client) { return client.move(20, 10); },
        [](Client& client) { return client.remove(20); },
        [](Client& client) { return client.saveMetaData(20, Blue); },
        [](Client& client) { return client.open(20); },
        [](Client& client) { return client.openSession(20); }};
    for (const auto& undertake : all) {
        const Use prepare = [](Trial& trial) {
            trial.service.hold();
            trial.handles.reserve(1);
        };
        expectEnds(prepare,
                   [&](Trial& trial) { trial.handles.push_back(undertake(trial.client())); });
    }
}

TEST_F(MemoryFaultsTest, QueryIsAnswered) {
    const Use prepare = [&](Trial& trial) {
        trial.service.addDocument(31, Root, "new");
        trial.service.hold();
        trial.queries = {trial.client().list(Root, Trial::reloaded()), trial.client().find("new"),
                         trial.client().tags(Root)};
        trial.awaitAnswers(3);
    };
    expectEnds(prepare, collect);
}

}  // namespace
}  // namespace Ormek::Testing
