// Memory runs out on the worker's thread, at each place where it can, while a real folder is
// served: the client hears of it, the disk is as it was, and what is asked for again is done.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include "backend/FolderService.h"
#include "client/Client.h"
#include "model/Container.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/SystemCallFaults.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TextSource.h"

namespace Ormek::Testing {
namespace {

using Error = std::optional<Nimra::ServiceError>;

/// Names that no string holds without allocating.
const std::string Long = "-under-a-name-that-needs-memory-of-its-own";
const std::string File = "file" + Long;
const std::string Full = "folder" + Long;
const std::string Inner = "inner" + Long;
const std::string Empty = "empty" + Long;
const std::string New = "new" + Long;

ListOptions anew() {
    ListOptions options;
    options.freshness = Freshness::Reload;
    return options;
}

/// A folder that is served, and a client that has seen all of it.
class Site {
  public:
    Site() {
        folder.writeFile(File, "content");
        folder.writeFile(folder.makeFolder(Full) / Inner);
        folder.makeFolder(Empty);
        client = std::make_unique<Client>(
            std::make_unique<Nimra::FolderService>(folder.path().string()));
        listAll();
    }

    Error ask(const Query& query) const {
        const Answer answer = client->wait(query, Patience);
        EXPECT_NE(answer.state, AnswerState::Pending);
        return answer.error;
    }
    Error act(const Action& action) const {
        const Outcome outcome = client->wait(action, Patience);
        EXPECT_NE(outcome.state, ActionState::Pending);
        return outcome.error;
    }
    /// The paths of all that the client lists, each folder loaded anew.
    std::set<std::string> listAll() {
        std::set<std::string> paths;
        addListed(paths, client->rootId(), "");
        return paths;
    }
    std::set<std::string> disk() const {
        std::set<std::string> paths;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            paths.insert(entry.path().lexically_relative(folder.path()));
        }
        return paths;
    }

    TemporaryFolder folder;
    std::unique_ptr<Client> client;

  private:
    static constexpr std::chrono::seconds Patience{20};

    void addListed(std::set<std::string>& paths, unsigned long folderId, const std::string& above) {
        const Answer answer = client->wait(client->list(folderId, anew()), Patience);
        EXPECT_FALSE(answer.error) << answer.error->what();
        for (const auto& entry : answer.entries) {
            paths.insert(above + entry->name());
            if (std::dynamic_pointer_cast<Container>(entry)) {
                addListed(paths, entry->id(), above + entry->name() + "/");
            }
        }
    }
};

struct Use {
    std::string name;
    std::function<Error(Site&)> run;

    friend std::ostream& operator<<(std::ostream& out, const Use& use) { return out << use.name; }
};

class ServiceMemoryTest : public testing::TestWithParam<Use> {
  protected:
    ServiceMemoryTest() { std::cout.setstate(std::ios::failbit); }
    ~ServiceMemoryTest() override { std::cout.clear(); }

    /// False when the service does not allocate that often.
    bool attempt(unsigned long nth) {
        Site site;
        const auto before = site.disk();
        bool struck = false;
        Error error;
        {
            const AllocationFaultsElsewhere faults(nth);
            error = GetParam().run(site);
            EXPECT_TRUE(site.client->waitUntilIdle(std::chrono::seconds(20)));
            struck = faults.struck();
        }
        EXPECT_TRUE(struck || !error);
        if (error) {
            ++failures;
            EXPECT_EQ(site.disk(), before);
            EXPECT_EQ(error->reason(), Nimra::Reason::Internal);
            EXPECT_STREQ(error->what(), "out of memory");
            EXPECT_EQ(site.listAll(), before);
            EXPECT_FALSE(GetParam().run(site));
        }
        EXPECT_EQ(site.listAll(), site.disk());
        return struck;
    }

    unsigned long failures = 0;

  private:
    const UnsyncedDisk _unsynced;
};

TEST_P(ServiceMemoryTest, WhatFailsForWantOfItChangesNothingAndCanBeAskedForAgain) {
    unsigned long nth = 1;
    for (; attempt(nth); ++nth) {
        ASSERT_FALSE(HasFailure()) << "allocation number " << nth;
    }
    EXPECT_GT(failures, 0U);
    noteFaultPoints(nth - 1);
}

const std::vector<Use> Uses = {
    {"Listing",
     [](Site& site) { return site.ask(site.client->list(site.client->rootId(), anew())); }},
    {"LookingUp",
     [](Site& site) { return site.ask(site.client->find(Full + "/" + Inner, Freshness::Reload)); }},
    {"Tags", [](Site& site) { return site.ask(site.client->tags(site.client->rootId())); }},
    {"Creation",
     [](Site& site) {
         return site.act(site.client->createDocument(site.client->rootId(), New,
                                                     std::make_unique<TextSource>("new content"),
                                                     {{"key" + Long, {"value" + Long, false}}}));
     }},
    {"MakingAFolder",
     [](Site& site) { return site.act(site.client->createFolder(site.client->rootId(), New)); }},
    {"Renaming", [](Site& site) { return site.act(site.client->rename(File, New)); }},
    {"Moving", [](Site& site) { return site.act(site.client->move(File, Empty)); }},
    {"MovingAFolder", [](Site& site) { return site.act(site.client->move(Empty, Full)); }},
    {"Removal", [](Site& site) { return site.act(site.client->remove(File)); }},
    {"SavingMetaData",
     [](Site& site) {
         return site.act(
             site.client->saveMetaData(File, {{"key" + Long, {"value" + Long, false}}}));
     }},
    {"Opening", [](Site& site) { return site.act(site.client->open(File)); }},
    {"OpeningASession", [](Site& site) { return site.act(site.client->openSession(File)); }},
};

INSTANTIATE_TEST_SUITE_P(Uses, ServiceMemoryTest, testing::ValuesIn(Uses),
                         [](const auto& use) { return use.param.name; });

}  // namespace
}  // namespace Ormek::Testing
