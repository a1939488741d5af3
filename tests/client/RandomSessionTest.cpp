#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/client/session/Sessions.h"

namespace Ormek {
namespace {

using Testing::Figures;
using Testing::Session;

/// Random sessions of a client. ORMEK_CASES in the environment is how many to try of each kind.
class RandomSessionTest : public ::testing::Test {
  protected:
    RandomSessionTest() { std::cout.setstate(std::ios::failbit); }
    ~RandomSessionTest() override { std::cout.clear(); }

    static bool goWell(Session::Place place, Session::Manner manner, int count) {
        constexpr int Longest = 100;
        const char* wanted = std::getenv("ORMEK_CASES");
        Figures figures;
        const bool well =
            Testing::goWell({place, manner, wanted ? std::atoi(wanted) : count, Longest}, figures);
        std::cerr << figures << '\n';
        return well;
    }
};

TEST_F(RandomSessionTest, ListingsAgreeWithWhatIsOnDisk) {
    EXPECT_TRUE(goWell(Session::Place::Disk, Session::Manner::InTurns, 60));
}

TEST_F(RandomSessionTest, ListingsAgreeWithAServiceWhoseEntriesKeepTheirIds) {
    EXPECT_TRUE(goWell(Session::Place::Memory, Session::Manner::InTurns, 400));
}

TEST_F(RandomSessionTest, ListingsAgreeWhenTheServiceWorksAtItsOwnPace) {
    EXPECT_TRUE(goWell(Session::Place::Memory, Session::Manner::Freely, 150));
}

TEST_F(RandomSessionTest, ListingsAgreeWhenOtherThreadsAskTheSameClient) {
    EXPECT_TRUE(goWell(Session::Place::Memory, Session::Manner::Crowded, 60));
}

}  // namespace
}  // namespace Ormek
