// Every allocation of an action fails once, as when memory runs out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "backend/EntryName.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::AllocationFaults;

/// Names that no string holds without allocating.
const std::string Long = "-under-a-name-that-needs-memory-of-its-own";
const std::string File = "file" + Long;
const std::string FolderName = "folder" + Long;
const std::string Inner = "inner" + Long;
const std::string Empty = "empty" + Long;
const std::string New = "new" + Long;

/// A folder that is served.
class Site {
  public:
    Site() {
        folder.writeFile(File, "content");
        folder.makeFolder(FolderName);
        folder.writeFile(FolderName + "/" + Inner);
        folder.makeFolder(Empty);
        folder.writeFile(Empty + "/" + makeTemporaryName());
        file = document(File);
        inFolder = this->folderId(FolderName);
        inner = document(Inner, inFolder);
        empty = this->folderId(Empty);
    }

    unsigned long document(const std::string& name, unsigned long in = 1) {
        return service.load(named(listing(in), name)).documents.at(0).id;
    }
    unsigned long folderId(const std::string& name) {
        return service.load(named(listing(1), name)).folders.at(0).id;
    }
    static Document record(unsigned long id, unsigned long parentId, const std::string& name = "") {
        Document wanted(id, parentId, 1, name);
        wanted.addKeyValue("key" + Long, {"value" + Long, false});
        return wanted;
    }
    /// All that is on the disk but the leftover.
    std::set<std::string> disk() const {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
            if (!isTemporaryName(entry.path().filename().string())) {
                found.insert(entry.path().lexically_relative(folder.path()));
            }
        }
        return found;
    }
    /// The same as the service tells it, and with the ids.
    std::map<std::string, unsigned long> known() {
        std::map<std::string, unsigned long> found;
        addKnown(found, 1, "");
        return found;
    }

    Ormek::Testing::TemporaryFolder folder;
    FolderService service{folder.path().string()};
    unsigned long file = 0;
    unsigned long inFolder = 0;
    unsigned long inner = 0;
    unsigned long empty = 0;

  private:
    void addKnown(std::map<std::string, unsigned long>& found, unsigned long in,
                  const std::string& path) {
        const Page page = service.load(listing(in));
        for (const auto& document : page.documents) {
            found[path + document.name] = document.id;
        }
        for (const auto& one : page.folders) {
            found[path + one.name] = one.id;
            addKnown(found, one.id, path + one.name + "/");
        }
    }
};

struct Action {
    std::string name;
    std::function<void(Site&)> run;

    friend std::ostream& operator<<(std::ostream& out, const Action& action) {
        return out << action.name;
    }
};

class ActionAllocationTest : public testing::TestWithParam<Action> {
  protected:
    static std::set<std::string> names(const std::map<std::string, unsigned long>& known) {
        std::set<std::string> found;
        for (const auto& [name, id] : known) {
            found.insert(name);
        }
        return found;
    }
    /// False when the action does not allocate that often.
    static bool attempt(unsigned long nth) {
        Site site;
        const auto before = site.known();
        bool failed = false;
        bool struck = false;
        {
            const AllocationFaults faults(nth);
            try {
                GetParam().run(site);
            } catch (const std::exception&) {
                failed = true;
            }
            struck = faults.struck();
        }
        EXPECT_TRUE(struck || !failed);
        if (failed) {
            EXPECT_EQ(site.disk(), names(before));
            EXPECT_EQ(site.known(), before);
            EXPECT_NO_THROW(GetParam().run(site));
        }
        EXPECT_EQ(names(site.known()), site.disk());
        for (const auto& [name, id] : site.known()) {
            EXPECT_TRUE(!before.contains(name) || before.at(name) == id) << name;
        }
        return struck;
    }

    Ormek::Testing::UnsyncedDisk unsynced;
};

TEST_P(ActionAllocationTest, WhatIsCalledFailedHasNotTakenEffect) {
    unsigned long nth = 1;
    for (; attempt(nth); ++nth) {
        ASSERT_FALSE(HasFailure()) << "allocation number " << nth;
    }
    EXPECT_GT(nth, 1U);
    Ormek::Testing::noteFaultPoints(nth - 1);
}

const std::vector<Action> Actions = {
    {"Creation",
     [](Site& site) {
         PatternSource content(10);
         site.service.create(Site::record(9, 1, New), &content, {});
     }},
    {"CreationInAFolder",
     [](Site& site) { site.service.create(Site::record(9, site.inFolder, New), nullptr, {}); }},
    {"CreationUnderATakenName",
     [](Site& site) {
         try {
             site.service.create(Site::record(9, 1, File), nullptr, {});
         } catch (const ServiceError& error) {
             EXPECT_EQ(error.reason(), Reason::Exists) << error.what();
         }
     }},
    {"MakingAFolder",
     [](Site& site) {
         site.service.makeFolder({9, 1, 1, New});
     }},
    {"MakingAFolderUnderATakenName",
     [](Site& site) {
         try {
             site.service.makeFolder({9, 1, 1, Empty});
         } catch (const ServiceError& error) {
             EXPECT_EQ(error.reason(), Reason::Exists) << error.what();
         }
     }},
    {"RenamingAFile", [](Site& site) { site.service.rename(Site::record(site.file, 1, New)); }},
    {"RenamingAFolder",
     [](Site& site) { site.service.rename(Site::record(site.inFolder, 1, New)); }},
    {"MovingAFile", [](Site& site) { site.service.move(Site::record(site.file, site.empty)); }},
    {"MovingAFileUp", [](Site& site) { site.service.move(Site::record(site.inner, 1)); }},
    {"MovingAFolder",
     [](Site& site) { site.service.move(Site::record(site.empty, site.inFolder)); }},
    {"RemovalOfAFile", [](Site& site) { site.service.remove(Site::record(site.file, 1)); }},
    {"RemovalOfAFolder", [](Site& site) { site.service.remove(Site::record(site.empty, 1)); }},
    {"SavingMetaData", [](Site& site) { site.service.saveMetaData(Site::record(site.file, 1)); }},
    {"OpeningStreams", [](Site& site) { site.service.openStreams(Site::record(site.file, 1)); }},
    {"Session", [](Site& site) { site.service.openSession(1, site.file, 7); }},
    {"ReleasingASession",
     [](Site& site) { site.service.releaseSession(site.service.openSession(1, site.file, 7)); }},
};

INSTANTIATE_TEST_SUITE_P(Actions, ActionAllocationTest, testing::ValuesIn(Actions),
                         [](const auto& action) { return action.param.name; });

}  // namespace
}  // namespace Nimra
