#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdlib>
#include <iostream>

#include "tests/client/session/Session.h"
#include "tests/support/FixedCases.h"

namespace Ormek {
namespace {

using Testing::Figures;
using Testing::holds;
using Testing::Session;

/// Random sessions of a client. ORMEK_CASES in the environment is how many to try of each kind.
class RandomSessionTest : public ::testing::Test {
  protected:
    RandomSessionTest() { std::cout.setstate(std::ios::failbit); }
    ~RandomSessionTest() override { std::cout.clear(); }

    static bool hold(Session::Place place, Session::Manner manner, int cases, int size) {
        const char* wanted = std::getenv("ORMEK_CASES");
        Figures figures;
        const bool all =
            holds("a client keeps its promises", wanted ? std::atoi(wanted) : cases, size, [&] {
                Session session(place, manner, figures);
                session.run(*Testing::steps());
            });
        std::cerr << figures << '\n';
        return all;
    }
};

TEST_F(RandomSessionTest, ListingsAgreeWithWhatIsOnDisk) {
    EXPECT_TRUE(hold(Session::Place::Disk, Session::Manner::InTurns, 60, 100));
}

TEST_F(RandomSessionTest, ListingsAgreeWithAServiceWhoseEntriesKeepTheirIds) {
    EXPECT_TRUE(hold(Session::Place::Memory, Session::Manner::InTurns, 200, 100));
}

TEST_F(RandomSessionTest, ListingsAgreeWhenTheServiceWorksAtItsOwnPace) {
    EXPECT_TRUE(hold(Session::Place::Memory, Session::Manner::Freely, 50, 100));
}

TEST_F(RandomSessionTest, ListingsAgreeWhenOtherThreadsAskTheSameClient) {
    EXPECT_TRUE(hold(Session::Place::Memory, Session::Manner::Crowded, 20, 100));
}

}  // namespace
}  // namespace Ormek
