// A process that serves a folder is killed right before, and right after, every call of the system
// that an action makes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "backend/EntryName.h"
#include "backend/FileWriter.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::FailingCall;
using Ormek::Testing::KillingCall;
using Moment = KillingCall::Moment;
using Values = std::map<std::string, std::string>;

namespace fs = std::filesystem;

/// What a name in the folder stands for.
struct Found {
    bool isFolder = false;
    std::string content;
    Values attributes;

    bool operator==(const Found&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Found& found) {
        out << (found.isFolder ? "folder" : "file of " + std::to_string(found.content.size()));
        for (const auto& [name, value] : found.attributes) {
            out << ' ' << name << '=' << value;
        }
        return out;
    }
};

using Disk = std::map<std::string, Found>;

/// Content that comes in small pieces, so that it takes several writings.
class PieceSource : public TextSource {
  public:
    using TextSource::TextSource;

    std::size_t read(char* buffer, std::size_t size) override {
        return TextSource::read(buffer, std::min<std::size_t>(size, 1000));
    }
};

KeyValues keyValuesOf(const Values& values) {
    KeyValues found;
    for (const auto& [key, value] : values) {
        found[key] = {value, false};
    }
    return found;
}

/// A folder as one service sees it, which was listed from top to bottom.
class Served {
  public:
    explicit Served(const fs::path& folder) : service(folder.string()), _folder(folder) {
        list(1, "");
    }

    /// A document where there was none.
    void create(const std::string& name, const std::string& content, const Values& values) {
        Document wanted(9'000'000, 1, 1, name);
        wanted._keyValues = keyValuesOf(values);
        PieceSource source(content);
        service.create(wanted, &source, {});
    }
    void makeFolder(const std::string& name) { service.makeFolder({0, 1, 1, name}); }
    void rename(const std::string& path, const std::string& name) {
        service.rename({ids.at(path), 1, 1, name});
    }
    /// An empty path is the root's.
    void move(const std::string& path, const std::string& folder) {
        service.move({ids.at(path), folder.empty() ? 1 : ids.at(folder), 1, ""});
    }
    void remove(const std::string& path) { service.remove({ids.at(path), 1, 1, ""}); }
    void save(const std::string& path, const Values& values) {
        Document wanted(ids.at(path), 1, 1, "");
        wanted._keyValues = keyValuesOf(values);
        service.saveMetaData(wanted);
    }
    /// Undoes a saving of the new values, past the service, which removes none.
    void putBackValues(const std::string& path) const {
        EXPECT_EQ(removexattr((_folder / path).c_str(), "user.added"), 0);
        EXPECT_EQ(setxattr((_folder / path).c_str(), "user.changed", "old", 3, 0), 0);
    }
    std::set<std::string> listed() const {
        std::set<std::string> paths;
        for (const auto& [path, id] : ids) {
            paths.insert(path);
        }
        return paths;
    }

    FolderService service;
    std::map<std::string, unsigned long> ids;

  private:
    void list(unsigned long folder, const std::string& prefix) {
        const Page page = service.load(listing(folder));
        for (const auto& found : page.folders) {
            ids[prefix + found.name] = found.id;
            list(found.id, prefix + found.name + '/');
        }
        for (const auto& found : page.documents) {
            ids[prefix + found.name] = found.id;
        }
    }

    fs::path _folder;
};

const std::string Leftover = ".ormek-0123456789abcdef0123456789abcdef.part";
const std::string Content = "content of the file";
const std::string LongContent(2500, 'n');
const Values OldValues = {{"changed", "old"}, {"kept", "old"}};
const Values NewValues = {{"added", "new"}, {"changed", "new"}};

/// A folder with something of everything in it.
class Site {
  public:
    Site() {
        folder.makeFolder("folder");
        folder.makeFolder("empty");
        folder.makeFolder("littered");
        folder.writeFile("file.txt", Content);
        folder.writeFile("folder/inner", "content of the inner file");
        folder.writeFile("littered/" + Leftover, "half");
        for (const std::string name : {"file.txt", "folder"}) {
            for (const auto& [key, value] : OldValues) {
                const std::string attribute = "user." + key;
                EXPECT_EQ(setxattr((folder / name).c_str(), attribute.c_str(), value.data(),
                                   value.size(), 0),
                          0);
            }
        }
    }

    /// Everything but what has a temporary name.
    Disk disk() const {
        Disk found;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
            if (isTemporaryName(entry.path().filename().string())) {
                continue;
            }
            Found& what = found[entry.path().lexically_relative(folder.path())];
            what.isFolder = entry.is_directory();
            what.content = what.isFolder ? "" : contentOf(entry.path());
            what.attributes = attributesOf(entry.path());
        }
        return found;
    }
    /// What has a temporary name, but for the one that was there from the start.
    std::set<std::string> leftovers() const {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
            const std::string name = entry.path().filename().string();
            if (isTemporaryName(name) && name != Leftover) {
                found.insert(entry.path().string());
            }
        }
        return found;
    }

    Ormek::Testing::TemporaryFolder folder;

  private:
    static std::string contentOf(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static Values attributesOf(const fs::path& path) {
        std::array<char, 1000> list{};
        const ssize_t size = listxattr(path.c_str(), list.data(), list.size());
        std::istringstream names(std::string(list.data(), static_cast<std::size_t>(size)));
        Values found;
        for (std::string name; std::getline(names, name, '\0');) {
            std::array<char, 1000> value{};
            getxattr(path.c_str(), name.c_str(), value.data(), value.size());
            found[name] = value.data();
        }
        return found;
    }
};

/// What a user does to an entry, and how it is undone.
struct Deed {
    std::string name;
    std::function<void(Served&)> act;
    std::function<void(Served&)> undo;
    bool isAtomic = true;
    bool leavesTemporaryFiles = false;

    friend std::ostream& operator<<(std::ostream& out, const Deed& deed) {
        return out << deed.name;
    }
};

enum class End { Killed, ByItself, Failed };

/// Lets a process of its own do it, which is killed at the nth call.
End endOf(const Deed& deed, const fs::path& folder, unsigned nth, Moment moment) {
    const pid_t child = fork();
    if (child == 0) {
        try {
            Served served(folder);
            const KillingCall killing(nth, moment);
            deed.act(served);
            _exit(0);
        } catch (const std::exception& error) {
            std::cerr << "unexpected: " << error.what() << '\n';
        }
        _exit(1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return End::Failed;
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
        return End::Killed;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? End::ByItself : End::Failed;
}

class CrashPointTest : public testing::TestWithParam<Deed> {
  protected:
    void SetUp() override {
        const Ormek::Testing::TemporaryFolder folder;
        if (setxattr(folder.path().c_str(), "user.k", "", 0, 0) != 0) {
            GTEST_SKIP() << "no attributes here";
        }
        const Site site;
        before = site.disk();
        Served served(site.folder.path());
        GetParam().act(served);
        after = site.disk();
        ASSERT_NE(before, after);
    }
    /// Kills at one call after another, until the action comes to its end.
    void killAtEveryCall(Moment moment) {
        for (unsigned nth = 1; !HasFailure(); ++nth) {
            SCOPED_TRACE("call " + std::to_string(nth));
            const Site site;
            const End end = endOf(GetParam(), site.folder.path(), nth, moment);
            ASSERT_NE(end, End::Failed);
            if (end == End::ByItself) {
                EXPECT_EQ(site.disk(), after);
                EXPECT_GT(nth, 1U) << "no call was made";
                return;
            }
            ++points;
            checkDisk(site.disk());
            checkLeftovers(site);
            checkThatItWorksOn(site);
        }
    }
    /// All is as before or as afterwards; once it is as afterwards it stays so.
    void checkDisk(const Disk& disk) {
        if (!GetParam().isAtomic) {
            checkValues(disk);
        } else if (disk != before || hasTakenEffect) {
            EXPECT_EQ(disk, after);
        }
        hasTakenEffect = disk == after;
        timesWithoutEffect += disk == before ? 1 : 0;
        timesWithEffect += hasTakenEffect ? 1 : 0;
    }
    /// Everything is as before but for the values, each of which is the old one or the new one.
    void checkValues(const Disk& disk) {
        for (const auto& [name, found] : disk) {
            ASSERT_TRUE(before.contains(name)) << name;
            const Values& old = before.at(name).attributes;
            const Values& fresh = after.at(name).attributes;
            for (const std::string key : {"user.added", "user.changed"}) {
                const std::string value = valueOf(found.attributes, key);
                EXPECT_TRUE(value == valueOf(old, key) || value == valueOf(fresh, key))
                    << key << " of " << name << " is '" << value << "'";
            }
            EXPECT_EQ(valueOf(found.attributes, "user.kept"), valueOf(old, "user.kept")) << name;
        }
        EXPECT_EQ(withoutValues(disk), withoutValues(before));
    }
    static std::string valueOf(const Values& values, const std::string& key) {
        const auto found = values.find(key);
        return found == values.end() ? "none" : found->second;
    }
    static Disk withoutValues(Disk disk) {
        for (auto& [name, found] : disk) {
            found.attributes.clear();
        }
        return disk;
    }
    void checkLeftovers(const Site& site) {
        const auto left = site.leftovers();
        if (!GetParam().leavesTemporaryFiles) {
            EXPECT_THAT(left, testing::IsEmpty());
        }
        timesLeft += left.empty() ? 0 : 1;
        const FileDescriptor root(
            ::open(site.folder.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        EXPECT_EQ(Served(site.folder.path()).listed(), namesOf(site.disk()));
        removeAbandonedFiles(OpenFolder(root, "", OpenFolder::Purpose::LookingUp));
        EXPECT_THAT(site.leftovers(), testing::IsEmpty());
    }
    static std::set<std::string> namesOf(const Disk& disk) {
        std::set<std::string> names;
        for (const auto& [name, found] : disk) {
            names.insert(name);
        }
        return names;
    }
    /// The action does what it always does: at once, or when what was done of it has been undone.
    void checkThatItWorksOn(const Site& site) const {
        const Disk found = site.disk();
        if (found == after) {
            Served served(site.folder.path());
            GetParam().undo(served);
            EXPECT_EQ(site.disk(), before);
        }
        Served served(site.folder.path());
        EXPECT_EQ(served.listed(), namesOf(site.disk()));
        GetParam().act(served);
        EXPECT_EQ(site.disk(), after);
    }

    Ormek::Testing::UnsyncedDisk unsynced;
    Disk before;
    Disk after;
    bool hasTakenEffect = false;
    unsigned long points = 0;
    unsigned long timesWithoutEffect = 0;
    unsigned long timesWithEffect = 0;
    unsigned long timesLeft = 0;
};

TEST_P(CrashPointTest, LeavesTheOldOrTheNewWholeAndAFolderThatIsServedAgain) {
    killAtEveryCall(Moment::BeforeTheCall);
    hasTakenEffect = false;
    killAtEveryCall(Moment::AfterTheCall);
    EXPECT_GT(timesWithoutEffect, 0U);
    EXPECT_GT(timesWithEffect, 0U);
    EXPECT_EQ(timesLeft > 0, GetParam().leavesTemporaryFiles);
    Ormek::Testing::noteFaultPoints(points);
}

void createNew(Served& served) { served.create("new", LongContent, NewValues); }
void removeNew(Served& served) { served.remove("new"); }

const std::vector<Deed> Deeds = {
    {"CreationOfAFile", createNew, removeNew},
    {.name = "CreationWithoutNamelessFiles",
     .act =
         [](Served& served) {
             const FailingCall unsupported("openat+create", EOPNOTSUPP);
             createNew(served);
         },
     .undo = removeNew,
     .leavesTemporaryFiles = true},
    {.name = "CreationByAHardLink",
     .act =
         [](Served& served) {
             const FailingCall unsupported("openat+create", EOPNOTSUPP);
             const FailingCall unknown("renameat2", EINVAL);
             createNew(served);
         },
     .undo = removeNew,
     .leavesTemporaryFiles = true},
    {"MakingAFolder", [](Served& served) { served.makeFolder("new"); }, removeNew},
    {"RenamingAFile", [](Served& served) { served.rename("file.txt", "renamed"); },
     [](Served& served) { served.rename("renamed", "file.txt"); }},
    {"RenamingAFolder", [](Served& served) { served.rename("folder", "renamed"); },
     [](Served& served) { served.rename("renamed", "folder"); }},
    {"MovingAFile", [](Served& served) { served.move("file.txt", "folder"); },
     [](Served& served) { served.move("folder/file.txt", ""); }},
    {"MovingAFolder", [](Served& served) { served.move("folder", "empty"); },
     [](Served& served) { served.move("empty/folder", ""); }},
    {"RemovalOfAFile", [](Served& served) { served.remove("file.txt"); },
     [](Served& served) { served.create("file.txt", Content, OldValues); }},
    {"RemovalOfAnEmptyFolder", [](Served& served) { served.remove("empty"); },
     [](Served& served) { served.makeFolder("empty"); }},
    {"RemovalOfAFolderWithALeftover", [](Served& served) { served.remove("littered"); },
     [](Served& served) { served.makeFolder("littered"); }},
    {.name = "SavingMetaDataOfAFile",
     .act = [](Served& served) { served.save("file.txt", NewValues); },
     .undo = [](Served& served) { served.putBackValues("file.txt"); },
     .isAtomic = false},
    {.name = "SavingMetaDataOfAFolder",
     .act = [](Served& served) { served.save("folder", NewValues); },
     .undo = [](Served& served) { served.putBackValues("folder"); },
     .isAtomic = false},
};

INSTANTIATE_TEST_SUITE_P(Deeds, CrashPointTest, testing::ValuesIn(Deeds),
                         [](const auto& deed) { return deed.param.name; });

}  // namespace
}  // namespace Nimra
