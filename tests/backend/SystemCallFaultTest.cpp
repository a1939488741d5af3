// Every call of the system that serving a folder makes fails once, with each error that it can
// have.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "backend/SystemError.h"
#include "backend/Worker.h"
#include "tests/backend/ActionFixture.h"
#include "tests/support/FaultPoints.h"
#include "tests/support/SystemCallFaults.h"

namespace Nimra {
namespace {

using Ormek::Testing::CallTrace;
using Ormek::Testing::FailingCall;
using Ormek::Testing::ShortCall;
using Ormek::Testing::SystemCall;
using Ormek::Testing::UnknownKinds;

namespace fs = std::filesystem;

constexpr int Short = 0;  ///< Not an error: less was transferred than asked for.

/// What each call may answer instead of doing its work.
const std::map<std::string, std::vector<int>> Mishaps = {
    {"open", {EACCES, EMFILE, ENFILE, ENOMEM, EIO, EINTR}},
    {"openat", {EACCES, EMFILE, ENFILE, ENOMEM, EIO, EAGAIN, EINTR}},
    {"openat+create", {EACCES, EMFILE, ENFILE, ENOMEM, EIO, ENOSPC, EDQUOT, EROFS, EINTR}},
    {"openat2", {EACCES, EMFILE, ENFILE, ENOMEM, EIO, EINTR}},
    {"statx", {EACCES, ENOMEM, EIO, ENOTCONN}},
    {"fstat", {EACCES, ENOMEM, EIO}},
    {"access", {EACCES, ENOMEM, EIO}},
    {"readlink", {EACCES, ENOMEM, EIO}},
    {"getdents64", {ENOMEM, EIO, ENOTCONN}},
    {"fdopendir", {ENOMEM}},
    {"readdir64", {ENOMEM, EIO}},
    {"flock", {ENOLCK, EBADF, EINTR}},
    {"write", {ENOSPC, EDQUOT, EFBIG, EIO, ENOMEM, EINTR, Short}},
    {"pread", {EIO, ENOMEM, EINTR, Short}},
    {"getrandom", {ENOSYS, EINTR, Short}},
    {"fsync", {EIO, ENOSPC, EDQUOT, EROFS, EINTR}},
    {"linkat", {EACCES, EPERM, ENOSPC, EDQUOT, EMLINK, ENOMEM, EIO, EROFS, EINVAL}},
    {"renameat2", {EACCES, EPERM, ENOSPC, EDQUOT, ENOMEM, EIO, EROFS, EBUSY, EINVAL, ENOSYS}},
    {"mkdirat", {EACCES, ENOSPC, EDQUOT, EMLINK, ENOMEM, EIO, EROFS, ENAMETOOLONG, EINVAL}},
    {"unlinkat", {EACCES, EPERM, ENOMEM, EIO, EROFS, EBUSY}},
    {"setxattr", {EACCES, EPERM, ENOSPC, EDQUOT, ENOMEM, EIO, EROFS, E2BIG, ENOTSUP}},
    {"removexattr", {EACCES, EPERM, ENOSPC, ENOMEM, EIO, EROFS}},
    {"listxattr", {EACCES, ENOMEM, EIO}},
    {"llistxattr", {EACCES, ENOMEM, EIO, E2BIG, ENOTCONN}},
    {"getxattr", {EACCES, ENOMEM, EIO}},
    {"lgetxattr", {EACCES, ENOMEM, EIO}},
};

std::string textOf(const KeyValues& values) {
    std::string text;
    for (const auto& [key, value] : values) {
        text += " " + key + "=" + value.first;
    }
    return text;
}

std::string textOf(const Document& document) {
    return std::to_string(document.id) + " in " + std::to_string(document.parentId) + " " +
           document.name + " type " + std::to_string(document.type) + " of " +
           std::to_string(document.length) + " bytes, " + document.mimeType + ", access " +
           std::to_string(document.aclMode) + textOf(document.keyValues());
}

std::string textOf(const Folder& folder) {
    return std::to_string(folder.id) + " in " + std::to_string(folder.parentId) + " " +
           folder.name + ", access " + std::to_string(folder.accessLevel);
}

std::string textOf(const Page& page) {
    std::string text = std::to_string(page.totalCount) + " in all";
    for (const auto& folder : page.folders) {
        text += "\n" + textOf(folder);
    }
    for (const auto& document : page.documents) {
        text += "\n" + textOf(document);
    }
    for (const auto& tag : page.tags) {
        text += "\ntag " + tag.tagKey + " " + tag.name + textOf(tag.keyValues());
    }
    return text;
}

/// A folder that is served, with something of everything in it.
class Site {
  public:
    Site() {
        folder.makeFolder("folder");
        folder.makeFolder("empty");
        folder.writeFile("file.txt", "content of the file");
        folder.writeFile("folder/inner", "content of the inner file");
        folder.writeFile("empty/" + Leftover, "half");
        fs::create_symlink("file.txt", folder / "link");
        set("file.txt", "changed", "old");
        set("file.txt", "left", "old");
        set("folder", "kept", "old");
        // Looked up one by one: a listing that is kept would be looked at first, or not, as time
        // has it.
        for (const std::string name : {"empty", "file.txt", "folder", "link"}) {
            const Page page = service.load(named(listing(1), name));
            ids[name] = page.folders.empty() ? page.documents.at(0).id : page.folders.at(0).id;
        }
    }

    Document record(const std::string& name, unsigned long parentId = 1) {
        return {ids.at(name), parentId, 1, name};
    }
    /// Everything below the folder but the leftover: names, kinds, contents, attributes.
    std::map<std::string, std::string> disk() const {
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
            const std::string name = entry.path().lexically_relative(folder.path());
            if (entry.path().filename() == Leftover) {
                continue;
            }
            std::string& what = found[name];
            if (entry.is_symlink()) {
                what = "link";
                continue;
            }
            what = entry.is_directory() ? "folder" : contentOf(entry.path());
            what += attributesOf(entry.path());
        }
        return found;
    }

    static const std::string Leftover;

    Ormek::Testing::TemporaryFolder folder;
    FolderService service{folder.path().string()};
    std::map<std::string, unsigned long> ids;

  private:
    void set(const std::string& name, const std::string& key, const std::string& value) const {
        const std::string attribute = "user." + key;
        ASSERT_EQ(
            setxattr((folder / name).c_str(), attribute.c_str(), value.data(), value.size(), 0), 0);
    }
    static std::string contentOf(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::string attributesOf(const fs::path& path) {
        std::array<char, 1000> list{};
        const ssize_t size = listxattr(path.c_str(), list.data(), list.size());
        std::istringstream names(std::string(list.data(), static_cast<std::size_t>(size)));
        std::set<std::string> found;
        for (std::string name; std::getline(names, name, '\0');) {
            std::array<char, 1000> value{};
            getxattr(path.c_str(), name.c_str(), value.data(), value.size());
            found.insert(" " + name + "=" + value.data());
        }
        std::string text;
        for (const auto& attribute : found) {
            text += attribute;
        }
        return text;
    }
};

const std::string Site::Leftover = ".ormek-0123456789abcdef0123456789abcdef.part";

/// Content that comes in small pieces, so that it takes several writings.
class PieceSource : public PatternSource {
  public:
    using PatternSource::PatternSource;

    std::size_t read(char* buffer, std::size_t size) override {
        return PatternSource::read(buffer, std::min<std::size_t>(size, 1000));
    }
};

/// A call whose mishaps a request gets over, from the nth to the mth such call.
struct Survived {
    std::string call;
    unsigned from = 1;
    unsigned to = ~0U;
    std::set<int> errors = {};  ///< Empty for all.
    bool knowsLess = false;     ///< Then not everything is told.

    bool covers(const std::string& name, unsigned nth, int error) const {
        return call == name && nth >= from && nth <= to &&
               (errors.empty() || errors.contains(error));
    }
};

/// Something that a service is asked for, and what it answers, as a text.
struct Request {
    std::string name;
    std::function<std::string(Site&)> run;
    std::vector<Survived> survived = {};
    /// Fails for another reason than the error by itself would mean.
    std::vector<Survived> toldDifferently = {};

    friend std::ostream& operator<<(std::ostream& out, const Request& request) {
        return out << request.name;
    }
};

/// The mishap, armed.
class Mishap {
  public:
    Mishap(const std::string& call, unsigned nth, int error) {
        if (error == Short) {
            _short.emplace(call, nth);
        } else {
            _failing.emplace(call, error, nth);
        }
    }
    bool happened() const { return _short ? _short->happened() : _failing->happened(); }

  private:
    std::optional<FailingCall> _failing;
    std::optional<ShortCall> _short;
};

struct Outcome {
    std::string answer;
    std::optional<ServiceError> error;
};

long descriptorsInUse() {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

class SystemCallFaultTest : public testing::TestWithParam<Request> {
  protected:
    void SetUp() override {
        const Ormek::Testing::TemporaryFolder folder;
        if (setxattr(folder.path().c_str(), "user.k", "", 0, 0) != 0) {
            GTEST_SKIP() << "no attributes here";
        }
    }
    static Outcome run(Site& site) {
        try {
            return {GetParam().run(site), std::nullopt};
        } catch (const ServiceError& error) {
            return {"", error};
        }
    }
    /// The first of these that covers a mishap; null if none does.
    static const Survived* covering(const std::vector<Survived>& known, const std::string& call,
                                    unsigned nth, int error) {
        const auto found = std::find_if(known.begin(), known.end(), [&](const Survived& one) {
            return one.covers(call, nth, error);
        });
        return found == known.end() ? nullptr : &*found;
    }
    static void expectToldAs(int error, const ServiceError& failure) {
        EXPECT_EQ(failure.reason(), reasonOf(error)) << failure.what();
        EXPECT_THAT(failure.what(), testing::HasSubstr(std::generic_category().message(error)));
    }
    /// Without any mishap: the calls, the answer, and what is on the disk then.
    void learn() {
        Site site;
        const CallTrace trace;
        const Outcome outcome = run(site);
        ASSERT_FALSE(outcome.error) << outcome.error->what();
        answer = outcome.answer;
        for (const SystemCall& call : trace.calls()) {
            calls.push_back(call.name);
        }
        ASSERT_FALSE(calls.empty());
        disk = site.disk();
    }
    void attempt(const std::string& call, unsigned nth, int error) {
        Site site;
        const auto before = site.disk();
        const long descriptors = descriptorsInUse();
        Outcome outcome;
        {
            const Mishap mishap(call, nth, error);
            outcome = run(site);
            EXPECT_TRUE(mishap.happened());
        }
        EXPECT_EQ(descriptorsInUse(), descriptors);
        const bool transparent = error == EINTR || error == Short;
        const Survived* known = covering(GetParam().survived, call, nth, error);
        if (outcome.error) {
            EXPECT_FALSE(transparent || known) << outcome.error->what();
            if (!covering(GetParam().toldDifferently, call, nth, error)) {
                expectToldAs(error, *outcome.error);
            }
            EXPECT_EQ(site.disk(), before) << outcome.error->what();
            outcome = run(site);
            EXPECT_FALSE(outcome.error) << outcome.error->what();
        } else {
            EXPECT_TRUE(transparent || known) << "succeeded";
        }
        EXPECT_EQ(site.disk(), disk);
        if (!known || !known->knowsLess) {
            EXPECT_EQ(outcome.answer, answer);
        }
        expectUsable(site);
    }
    /// What is listed is what is on the disk.
    static void expectUsable(Site& site) {
        std::set<std::string> listed;
        const Page page = site.service.load(listing(1));
        for (const auto& name : names(page.folders)) {
            listed.insert(name);
        }
        for (const auto& name : names(page.documents)) {
            listed.insert(name);
        }
        std::set<std::string> present;
        for (const auto& [name, what] : site.disk()) {
            if (name.find('/') == std::string::npos) {
                present.insert(name);
            }
        }
        EXPECT_EQ(listed, present);
    }

    Ormek::Testing::UnsyncedDisk unsynced;
    std::vector<std::string> calls;
    std::string answer;
    std::map<std::string, std::string> disk;
};

TEST_P(SystemCallFaultTest, EveryCallMayFailOnce) {
    ASSERT_NO_FATAL_FAILURE(learn());
    std::map<std::string, unsigned> made;
    unsigned long points = 0;
    for (const std::string& call : calls) {
        const unsigned nth = ++made[call];
        ASSERT_TRUE(Mishaps.contains(call)) << call;
        for (const int error : Mishaps.at(call)) {
            SCOPED_TRACE(call + " number " + std::to_string(nth) + ", " +
                         (error == Short ? "short" : std::generic_category().message(error)));
            attempt(call, nth, error);
            ++points;
        }
    }
    Ormek::Testing::noteFaultPoints(points);
}

/// What is made durable after it has taken effect.
const std::vector<Survived> Flushing = {{"fsync"}, {"open"}};
/// The same behind the content, which must be on the disk.
const std::vector<Survived> FlushingOfFolder = {{"fsync", 2}, {"open"}};

/// Attributes that may not be read are left out of what is told.
const std::vector<Survived> HidingAttributes = {{"llistxattr", 1, ~0U, {EACCES, E2BIG}, true},
                                                {"lgetxattr", 1, ~0U, {EACCES}, true}};

/// The same of an open file.
const std::vector<Survived> HidingOwnAttributes = {{"listxattr", 1, ~0U, {EACCES, E2BIG}, true},
                                                   {"getxattr", 1, ~0U, {EACCES}, true}};

/// Likewise an entry that may not be looked at; `from` is the first look that this goes for.
Survived hidingEntries(unsigned from, unsigned to = ~0U) {
    return {"statx", from, to, {EACCES, ENOTCONN}, true};
}

/// Texts of their own: what a file system cannot do.
const std::vector<Survived> Unsupported = {{"linkat", 1, ~0U, {EINVAL}},
                                           {"mkdirat", 1, ~0U, {EINVAL}},
                                           {"renameat2", 1, ~0U, {EINVAL, ENOSYS}},
                                           {"setxattr", 1, ~0U, {E2BIG, ENOTSUP}}};

/// Whether an entry has attributes is asked for a listing of tags.
Survived withoutTags(unsigned from, unsigned to) {
    return {"llistxattr", from, to, {ENOTCONN}, true};
}

std::vector<Survived> operator+(std::vector<Survived> some, const std::vector<Survived>& others) {
    some.insert(some.end(), others.begin(), others.end());
    return some;
}

std::string create(Site& site, const std::string& name, unsigned long size,
                   const std::string& in = "") {
    Document wanted(9'000'000, in.empty() ? 1 : site.ids.at(in), 1, name);
    wanted.addKeyValue("first", {"1", false});
    wanted.addKeyValue("second", {"2", false});
    PieceSource content(size);
    return textOf(site.service.create(wanted, &content, {}));
}

std::string save(Site& site, const std::string& name) {
    Document wanted = site.record(name);
    wanted.addKeyValue("changed", {"new", false});
    wanted.addKeyValue("added", {"new", false});
    return textOf(site.service.saveMetaData(wanted));
}

const std::vector<Request> Requests = {
    {"Construction",
     [](Site& site) {
         FolderService other(site.folder.path().string());
         return std::string("done");
     }},
    {"Root", [](Site& site) { return textOf(site.service.root()).substr(0, 4); }},
    {"Listing", [](Site& site) { return textOf(site.service.load(listing(1))); },
     HidingAttributes + std::vector{hidingEntries(3)}},
    {"ListingWithoutKinds",
     [](Site& site) {
         const UnknownKinds unknown;
         return textOf(site.service.load(listing(1)));
     },
     HidingAttributes + std::vector{hidingEntries(2, 5), hidingEntries(7)}},
    {"ListingOfAFolderBelow",
     [](Site& site) { return textOf(site.service.load(listing(site.ids.at("folder")))); },
     HidingAttributes + std::vector{hidingEntries(3)}},
    {"Tags", [](Site& site) { return textOf(site.service.load(ofType(listing(1), 16))); },
     HidingAttributes + std::vector{hidingEntries(3), withoutTags(1, 4)}},
    {"LookUpOfAFile",
     [](Site& site) { return textOf(site.service.load(named(listing(1), "file.txt"))); },
     HidingAttributes + std::vector{hidingEntries(2)}},
    {"LookUpOfAFolder",
     [](Site& site) { return textOf(site.service.load(named(listing(1), "folder"))); },
     {hidingEntries(2)}},
    {"LookUpOfATag",
     [](Site& site) {
         return textOf(site.service.load(ofType(named(listing(1), "file.txt"), 16)));
     },
     HidingAttributes + std::vector{hidingEntries(2), withoutTags(1, 1)}},
    {"LookUpOfWhatIsNotThere",
     [](Site& site) { return textOf(site.service.load(named(listing(1), "nothing"))); }},
    {"CreationWithoutContent",
     [](Site& site) {
         return textOf(site.service.create({9, 1, 1, "new"}, nullptr, {}));
     },
     FlushingOfFolder, Unsupported},
    {"CreationWithContentAndAttributes", [](Site& site) { return create(site, "new", 1500); },
     FlushingOfFolder, Unsupported},
    {"CreationInAFolderBelow", [](Site& site) { return create(site, "new", 10, "folder"); },
     FlushingOfFolder, Unsupported},
    {"CreationWithoutNamelessFiles",
     [](Site& site) {
         const FailingCall unsupported("openat+create", EOPNOTSUPP);
         return create(site, "new", 1500);
     },
     FlushingOfFolder + std::vector<Survived>{{"flock"}, {"renameat2", 1, 1, {EINVAL, ENOSYS}}},
     Unsupported},
    {"MakingAFolder",
     [](Site& site) {
         return textOf(site.service.makeFolder({0, 1, 1, "new"}));
     },
     Flushing + std::vector{Survived{"statx", 1, ~0U, {}, true}}, Unsupported},
    {"RenamingAFile",
     [](Site& site) {
         Document wanted = site.record("file.txt");
         wanted.name = "renamed.txt";
         return textOf(site.service.rename(wanted));
     },
     Flushing + HidingAttributes, Unsupported},
    {"RenamingAFolder",
     [](Site& site) {
         Document wanted = site.record("folder");
         wanted.name = "renamed";
         return textOf(site.service.rename(wanted));
     },
     Flushing + HidingAttributes, Unsupported},
    {"MovingAFile",
     [](Site& site) {
         return textOf(site.service.move(site.record("file.txt", site.ids.at("folder"))));
     },
     Flushing + HidingAttributes, Unsupported},
    {"MovingAFolder",
     [](Site& site) {
         return textOf(site.service.move(site.record("empty", site.ids.at("folder"))));
     },
     Flushing + HidingAttributes, Unsupported},
    {"RemovalOfAFile",
     [](Site& site) {
         site.service.remove(site.record("file.txt"));
         return std::string("done");
     },
     Flushing},
    {"RemovalOfAFolderWithALeftover",
     [](Site& site) {
         site.service.remove(site.record("empty"));
         return std::string("done");
     },
     Flushing,
     // A leftover that may not be opened may be somebody's who is still writing it.
     {{"openat", 2, 2, {EACCES}}}},
    {"OpeningAndReading",
     [](Site& site) {
         const OpenedDocument opened = site.service.openStreams(site.record("file.txt"));
         std::string content(opened.stream->size() + 10, '\0');
         content.resize(opened.stream->read(0, content.data(), content.size()));
         return textOf(opened.document) + content;
     },
     HidingOwnAttributes},
    {"SavingMetaDataOfAFile", [](Site& site) { return save(site, "file.txt"); }, Flushing,
     Unsupported},
    {"SavingMetaDataOfAFolder", [](Site& site) { return save(site, "folder"); }, Flushing,
     Unsupported},
    {"Session",
     [](Site& site) {
         const DocumentSession session = site.service.openSession(1, site.ids.at("file.txt"), 7);
         site.service.releaseSession(session);
         return "session of " + std::to_string(session.userId);
     }},
};

TEST(DeepFolderFaultTest, EveryStepOnALongWayMayFailOnce) {
    Ormek::Testing::TemporaryFolder folder;
    FolderService service(folder.path().string());
    unsigned long deepest = 1;
    for (int level = 0; level < 20; ++level) {
        deepest = service.makeFolder({0, deepest, 1, std::string(250, 'x')}).id;
    }
    service.create({9, deepest, 1, "a"}, nullptr, {});
    const long descriptors = descriptorsInUse();
    for (unsigned step = 1; step <= 2; ++step) {
        for (const int error : Mishaps.at("openat2")) {
            const FailingCall failing("openat2", error, step);
            const auto failure = failureOf(service, listing(deepest));
            EXPECT_TRUE(failing.happened());
            EXPECT_EQ(failure.has_value(), error != EINTR);
            EXPECT_EQ(descriptorsInUse(), descriptors);
        }
    }
    EXPECT_EQ(service.load(listing(deepest)).documents.at(0).name, "a");
}

TEST(WorkerFaultTest, WithoutADescriptorThereIsNoWorker) {
    const long descriptors = descriptorsInUse();
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        const FailingCall failing("eventfd", error);
        try {
            const Worker worker;
            ADD_FAILURE() << "made";
        } catch (const ServiceError& failure) {
            EXPECT_EQ(failure.reason(), Reason::Internal);
            EXPECT_THAT(failure.what(), testing::HasSubstr(std::generic_category().message(error)));
        }
    }
    EXPECT_EQ(descriptorsInUse(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Requests, SystemCallFaultTest, testing::ValuesIn(Requests),
                         [](const auto& request) { return request.param.name; });

}  // namespace
}  // namespace Nimra
