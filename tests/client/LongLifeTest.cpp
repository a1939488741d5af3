// What a client keeps does not grow with what has come and gone.

#include "tests/client/ActingFixture.h"
#include "tests/support/AllocationFaults.h"

namespace Ormek::Testing {
namespace {

using Nimra::Document;
using Nimra::Folder;

class LongLifeTest : public ActingTest {
  protected:
    static constexpr unsigned long Rounds = 500;

    /// How many blocks more are allocated after so many rounds, when the first ones are over.
    template <class Round>
    unsigned long growth(Round round) {
        unsigned long number = 0;
        const auto play = [&](unsigned long rounds) {
            for (const unsigned long end = number + rounds; number < end; ++number) {
                round(number);
            }
            settle();
            service.forgetLog();
            client().collect();
            return AllocationFaults::liveBlocks();
        };
        const unsigned long before = play(Rounds / 10);
        const unsigned long after = play(Rounds);
        return after - std::min(before, after);
    }

  private:
    void hear(const Event&) override {}
};

TEST_F(LongLifeTest, EntriesThatWereMadeAndRemovedLeaveTheirIdsAlone) {
    list(Root);
    // This service keeps what was uploaded.
    EXPECT_LT(growth([&](unsigned long) {
                  const Action made = client().createDocument(Root, "new");
                  expectDone(client().remove(made.entryId()));
              }),
              Rounds + Rounds / 10);
}

TEST_F(LongLifeTest, EntriesThatMoveToAndFroLeaveNothing) {
    service.addFolder(10, Root, "folder");
    list(Root);
    list(10, page(0, 1));
    EXPECT_LT(growth([&](unsigned long number) {
                  client().onRemoteChange(Document(20 + number, Root, 1, "x"));
                  client().onRemoteChange(Document(20 + number, 10, 1, "x"));
                  client().onRemoteRemoval(20 + number);
              }),
              Rounds / 10);
}

TEST_F(LongLifeTest, NamesThatWereLookedUpGoWithTheirEntries) {
    // This service keeps what it was asked.
    EXPECT_LT(growth([&](unsigned long number) {
                  const std::string name = "name " + std::to_string(number);
                  service.addFolder(20 + 2 * number, Root, name);
                  service.addDocument(21 + 2 * number, 20 + 2 * number, "x");
                  find(name + "/x");
                  service.drop(21 + 2 * number);
                  service.drop(20 + 2 * number);
                  client().onRemoteRemoval(20 + 2 * number);
              }),
              2 * Rounds + Rounds / 10);
}

TEST_F(LongLifeTest, FoldersThatWereMadeAndRemovedLeaveTheirIdsAlone) {
    list(Root);
    EXPECT_LT(growth([&](unsigned long) {
                  const Action folder = client().createFolder(Root, "new");
                  const Action inside = client().createDocument(folder.entryId(), "x");
                  expectDone(client().remove(inside.entryId()));
                  expectDone(client().remove(folder.entryId()));
              }),
              Rounds + Rounds / 10);
}

}  // namespace
}  // namespace Ormek::Testing
