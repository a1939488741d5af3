#include "tests/support/AllocationFaults.h"

#include <gtest/gtest.h>

#include <new>
#include <ostream>
#include <string>

#include "tests/client/FaultWorld.h"
#include "tests/support/FaultPoints.h"

namespace Ormek::Testing {
namespace {

using W = FaultWorld;

/// Lets one allocation after the other fail in a call, each time in a world of its own.
class ClientTrial {
  public:
    explicit ClientTrial(const ClientCall& call) : _call(call) {}

    /// Until the call passes unharmed. Returns how many failed.
    unsigned long failAtEveryAllocation() {
        unsigned long nth = 1;
        const int before = failures();
        while (failAt(nth) && failures() == before) {
            ++nth;
        }
        return nth - 1;
    }

  private:
    static int failures() {
        return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
    }

    bool failAt(unsigned long nth) {
        SCOPED_TRACE(std::string(_call.name) + ", fault " + std::to_string(nth));
        const unsigned long before = AllocationFaults::liveBlocks();
        bool struck = false;
        {
            W world;
            _call.arrange(world);
            const std::size_t known = world.actions.size();
            const bool thrown = act(world, nth, struck);
            EXPECT_TRUE(struck || !thrown);
            EXPECT_TRUE(world.isFree());
            checkWhatWasSent(world, thrown, known);
            checkThatItWorksOn(world, thrown);
        }
        EXPECT_EQ(AllocationFaults::liveBlocks(), before);
        return struck;
    }

    bool act(W& world, unsigned long nth, bool& struck) {
        const AllocationFaults faults(nth);
        bool thrown = false;
        try {
            _call.act(world);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
        struck = faults.struck();
        return thrown;
    }

    // What the caller has no handle for was not undertaken: nobody would hear of it.
    void checkWhatWasSent(W& world, bool thrown, std::size_t known) {
        if (_call.undertakes && thrown) {
            EXPECT_EQ(world.actions.size(), known);
            world.settle();
            EXPECT_FALSE(world.toldOfStrangers());
        }
    }

    void checkThatItWorksOn(W& world, bool thrown) {
        checkOutcomes(world);
        if (thrown || !_call.onlyOnce) {
            EXPECT_NO_THROW(_call.act(world));
            checkOutcomes(world);
        }
        checkListings(world);
    }

    // Of every action there is an outcome, told once, and of every question an answer.
    static void checkOutcomes(W& world) {
        world.settle();
        for (const Action& action : world.actions) {
            const Outcome outcome = world.client.poll(action);
            EXPECT_NE(outcome.state, ActionState::Pending) << static_cast<int>(outcome.kind);
            EXPECT_EQ(world.timesTold(action), action.operationId() != 0 ? 1U : 0U);
        }
        for (const Query& query : world.queries) {
            EXPECT_NE(world.client.wait(query, W::Patience).state, AnswerState::Pending);
        }
        EXPECT_TRUE(world.client.waiting().empty());
        EXPECT_EQ(world.client.statistics().parkedOperations, 0U);
    }

    void checkListings(W& world) {
        for (const unsigned long folderId : {W::Root, W::Music, W::Texts}) {
            if (!world.client.item(folderId)) {
                continue;
            }
            if (_call.isTold) {
                EXPECT_EQ(world.shown(folderId), world.served(folderId)) << folderId;
            }
            ListOptions reloaded;
            reloaded.freshness = Freshness::Reload;
            EXPECT_EQ(world.shown(folderId, reloaded), world.served(folderId)) << folderId;
        }
    }

    const ClientCall& _call;
};

struct Case {
    const char* name;
    ClientCalls (*family)();
};

std::string nameOf(const testing::TestParamInfo<Case>& info) { return info.param.name; }

void PrintTo(const Case& family, std::ostream* out) { *out << family.name; }

class ClientCallTest : public testing::TestWithParam<Case> {};

TEST_P(ClientCallTest, WithoutMemoryFailsOrPassesAndTheClientWorksOn) {
    { const W warmUp; }
    unsigned long tried = 0;
    for (const ClientCall& call : GetParam().family()) {
        tried += ClientTrial(call).failAtEveryAllocation();
    }
    noteFaultPoints(tried);
}

INSTANTIATE_TEST_SUITE_P(Of, ClientCallTest,
                         testing::Values(Case{"Questions", questions},
                                         Case{"Undertakings", undertakings},
                                         Case{"Answers", answers}, Case{"Outcomes", outcomes},
                                         Case{"RemoteChanges", remoteChanges},
                                         Case{"Switches", switches}),
                         nameOf);

}  // namespace
}  // namespace Ormek::Testing
