#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <limits>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/backend/FolderFixture.h"

namespace Nimra {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using FolderListingTest = FolderFixture;

std::multiset<std::string> namesByReaddir(const std::string& path) {
    std::multiset<std::string> names;
    DIR* folder = opendir(path.c_str());
    while (const dirent* entry = readdir(folder)) {
        names.insert(entry->d_name);
    }
    closedir(folder);
    names.erase(".");
    names.erase("..");
    return names;
}

bool setAttribute(const std::string& path, const std::string& name, const std::string& value) {
    return setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

TEST_F(FolderListingTest, TheRootIsTheFolderItself) {
    const Folder root = service.root();
    EXPECT_EQ(root.id, 1U);
    EXPECT_EQ(root.parentId, 0U);
    EXPECT_EQ(root.ownerId, 1U);
    EXPECT_EQ(root.name, folder.path().filename());
    EXPECT_EQ(FolderService("/").root().name, "/");
    EXPECT_EQ(FolderService(path("."), 5).root().name, folder.path().filename());
    EXPECT_EQ(FolderService(path("."), 5).root().ownerId, 5U);
}

TEST_F(FolderListingTest, AnEmptyFolderIsAnEmptyPage) {
    const Page page = load(listing(1));
    EXPECT_EQ(page.totalCount, 0U);
    EXPECT_THAT(page.folders, IsEmpty());
    EXPECT_THAT(page.documents, IsEmpty());
    EXPECT_THAT(page.tags, IsEmpty());
}

TEST_F(FolderListingTest, FoldersAndDocumentsByName) {
    folder.writeFile("b");
    folder.writeFile("B");
    folder.writeFile("a");
    folder.writeFile("aa");
    folder.makeFolder("z");
    folder.makeFolder("y");
    const Page page = load(listing(1));
    EXPECT_EQ(page.totalCount, 6U);
    EXPECT_THAT(names(page.folders), ElementsAre("y", "z"));
    EXPECT_THAT(names(page.documents), ElementsAre("B", "a", "aa", "b"));

    ItemFilter down = listing(1);
    down.ascending = false;
    EXPECT_THAT(names(load(down).folders), ElementsAre("z", "y"));
    EXPECT_THAT(names(load(down).documents), ElementsAre("b", "aa", "a", "B"));
}

TEST_F(FolderListingTest, FoldersComeFirstOnlyIfAskedFor) {
    folder.writeFile("a");
    folder.makeFolder("b");
    folder.writeFile("c");
    ItemFilter filter = listing(1, 0, 1);
    EXPECT_THAT(names(load(filter).folders), ElementsAre("b"));
    filter.containerFirst = false;
    EXPECT_THAT(names(load(filter).documents), ElementsAre("a"));
    filter.ascending = false;
    EXPECT_THAT(names(load(filter).documents), ElementsAre("c"));
    filter.containerFirst = true;
    EXPECT_THAT(names(load(filter).folders), ElementsAre("b"));
}

TEST_F(FolderListingTest, DataTypesRestrict) {
    folder.writeFile("a");
    folder.makeFolder("b");
    const Page folders = load(ofType(listing(1), 8));
    EXPECT_EQ(folders.totalCount, 1U);
    EXPECT_THAT(names(folders.folders), ElementsAre("b"));
    EXPECT_THAT(folders.documents, IsEmpty());
    const Page documents = load(ofType(listing(1), 4));
    EXPECT_EQ(documents.totalCount, 1U);
    EXPECT_THAT(documents.folders, IsEmpty());
    EXPECT_THAT(names(documents.documents), ElementsAre("a"));
}

TEST_F(FolderListingTest, TheQueryIsAPartOfTheNameByteByByte) {
    for (const char* name : {"alpha", "beta", "ALPHA", "a*a", "\xc3\xa4rger"}) {
        folder.writeFile(name);
    }
    const auto matches = [this](const std::string& query) {
        ItemFilter filter = listing(1);
        filter.query = query;
        const Page page = load(filter);
        EXPECT_EQ(page.totalCount, page.documents.size());
        return names(page.documents);
    };
    EXPECT_THAT(matches("lph"), ElementsAre("alpha"));
    EXPECT_THAT(matches("a"), ElementsAre("a*a", "alpha", "beta"));
    EXPECT_THAT(matches("*"), ElementsAre("a*a"));
    EXPECT_THAT(matches("\xa4"), ElementsAre("\xc3\xa4rger"));
    EXPECT_THAT(matches(std::string("a\0", 2)), IsEmpty());
    EXPECT_EQ(matches("").size(), 5U);
}

TEST_F(FolderListingTest, PagesTogetherAreWhatReaddirGives) {
    for (int i = 0; i < 500; ++i) {
        const std::string name = std::to_string(i * 7919 % 1000);
        i % 5 == 0 ? folder.makeFolder("f" + name) : folder.writeFile(name);
    }
    for (const std::uint32_t size : {1U, 7U, 100U, 499U, 500U, 501U}) {
        std::multiset<std::string> found;
        std::vector<std::string> inOrder;
        for (std::uint32_t offset = 0; offset < 500; offset += size) {
            const Page page = load(listing(1, offset, size));
            EXPECT_EQ(page.totalCount, 500U);
            EXPECT_EQ(page.folders.size() + page.documents.size(), std::min(size, 500 - offset));
            for (const auto& list : {names(page.folders), names(page.documents)}) {
                found.insert(list.begin(), list.end());
                inOrder.insert(inOrder.end(), list.begin(), list.end());
            }
        }
        EXPECT_EQ(found, namesByReaddir(folder.path()));
        EXPECT_TRUE(std::is_sorted(inOrder.begin(), inOrder.begin() + 100));
        EXPECT_TRUE(std::is_sorted(inOrder.begin() + 100, inOrder.end()));
    }
}

TEST_F(FolderListingTest, PagesMayBeAskedForInAnyOrder) {
    for (int i = 100; i < 400; ++i) {
        folder.writeFile(std::to_string(i));
    }
    letSettle();
    for (const std::uint32_t offset : {250U, 0U, 299U, 40U, 120U, 260U, 10U}) {
        const Page page = load(listing(1, offset, 3));
        ASSERT_FALSE(page.documents.empty());
        EXPECT_EQ(page.documents[0].name, std::to_string(100 + offset));
    }
    EXPECT_EQ(service.foldersRead(), 1U);
}

TEST_F(FolderListingTest, PagesBeyondTheEndAndOfNoEntriesTellTheTotal) {
    folder.writeFile("a");
    folder.writeFile("b");
    constexpr auto Most = std::numeric_limits<std::uint32_t>::max();
    for (const auto& [offset, count] : {std::pair{0U, 0U}, {2U, 10U}, {Most, Most}, {1U, 0U}}) {
        const Page page = load(listing(1, offset, count));
        EXPECT_EQ(page.totalCount, 2U);
        EXPECT_THAT(page.documents, IsEmpty());
    }
    EXPECT_THAT(names(load(listing(1, 1, Most)).documents), ElementsAre("b"));
}

TEST_F(FolderListingTest, TheDeletedFlagChangesNothing) {
    folder.writeFile("a");
    ItemFilter filter = listing(1);
    filter.deleted = true;
    EXPECT_THAT(names(load(filter).documents), ElementsAre("a"));
}

TEST_F(FolderListingTest, RecordsCarryWhatTheFileSystemKnows) {
    folder.writeFile("letter.txt", "four");
    const std::array<timespec, 2> times = {{{5, 0}, {1234567890, 987654321}}};
    ASSERT_EQ(utimensat(AT_FDCWD, path("letter.txt").c_str(), times.data(), 0), 0);
    const auto now = static_cast<unsigned long>(std::time(nullptr)) * 1000;
    FolderService owned(folder.path(), 42);
    const Document document = owned.load(listing(1)).documents.at(0);
    EXPECT_EQ(document.name, "letter.txt");
    EXPECT_EQ(document.type, 4);
    EXPECT_EQ(document.parentId, 1U);
    EXPECT_EQ(document.ownerId, 42U);
    EXPECT_EQ(document.length, 4U);
    EXPECT_EQ(document.mimeType, "text/plain");
    EXPECT_EQ(document.updated, 1234567890987U);
    EXPECT_EQ(document.deleted, 0U);
    EXPECT_EQ(document.aclMode, 2);
    EXPECT_EQ(document.description, "");
    // Not every file system knows when a file was made.
    if (document.created != 0) {
        EXPECT_NEAR(static_cast<double>(document.created), static_cast<double>(now), 60'000);
    }
}

TEST_F(FolderListingTest, FolderRecordsToo) {
    folder.makeFolder("music");
    const std::array<timespec, 2> times = {{{5, 0}, {1000, 1'000'000}}};
    ASSERT_EQ(utimensat(AT_FDCWD, path("music").c_str(), times.data(), 0), 0);
    const Folder record = load(listing(1)).folders.at(0);
    EXPECT_EQ(record.name, "music");
    EXPECT_EQ(record.type, 8);
    EXPECT_EQ(record.parentId, 1U);
    EXPECT_EQ(record.ownerId, 1U);
    EXPECT_EQ(record.updated, 1000001U);
    EXPECT_EQ(record.accessLevel, 2);
}

TEST_F(FolderListingTest, TimesBeforeTheEpochAreUnknown) {
    folder.writeFile("old");
    const std::array<timespec, 2> times = {{{-5, 0}, {-1000, 0}}};
    ASSERT_EQ(utimensat(AT_FDCWD, path("old").c_str(), times.data(), 0), 0);
    EXPECT_EQ(load(listing(1)).documents.at(0).updated, 0U);
}

TEST_F(FolderListingTest, AccessLevelsFollowTheModeBits) {
    folder.writeFile("open");
    folder.writeFile("closed");
    folder.makeFolder("locked");
    ASSERT_EQ(chmod(path("open").c_str(), 0666), 0);
    ASSERT_EQ(chmod(path("closed").c_str(), 0444), 0);
    ASSERT_EQ(chmod(path("locked").c_str(), 0555), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([] {
        FolderService asNobody(".");
        const Page page = asNobody.load(listing(1));
        EXPECT_EQ(page.documents.at(0).aclMode, 1);
        EXPECT_EQ(page.documents.at(1).aclMode, 2);
        EXPECT_EQ(page.folders.at(0).accessLevel, 1);
    });
}

TEST_F(FolderListingTest, MimeTypesAreGuessedByName) {
    folder.writeFile("a.png");
    folder.writeFile("b.html", "%PDF-1.4");
    folder.writeFile("c");
    folder.writeFile("d.no-such-type");
    folder.writeFile("\xff\xfe.txt");
    folder.writeFile("\xfd");
    std::vector<std::string> types;
    for (const Document& document : load(listing(1)).documents) {
        types.push_back(document.mimeType);
    }
    EXPECT_THAT(types,
                ElementsAre("image/png", "text/html", "application/octet-stream",
                            "application/octet-stream", "application/octet-stream", "text/plain"));
}

TEST_F(FolderListingTest, SpecialFilesAreListedWithoutBeingOpened) {
    folder.makeFolder("target");
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("target", path("link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", path("link-broken").c_str()), 0);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    ASSERT_LT(path("socket").size(), sizeof address.sun_path);
    path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(fd);
    const Page page = load(listing(1));
    EXPECT_EQ(page.totalCount, 5U);
    EXPECT_THAT(names(page.folders), ElementsAre("target"));
    EXPECT_THAT(names(page.documents), ElementsAre("fifo", "link", "link-broken", "socket"));
    EXPECT_EQ(page.documents[0].mimeType, "inode/fifo");
    EXPECT_EQ(page.documents[1].mimeType, "inode/symlink");
    EXPECT_EQ(page.documents[2].mimeType, "inode/symlink");
    EXPECT_EQ(page.documents[3].mimeType, "inode/socket");
    EXPECT_EQ(page.documents[1].length, 0U);
    EXPECT_EQ(load(ofType(listing(1), 16)).totalCount, 0U);
    EXPECT_EQ(look("fifo").documents.at(0).mimeType, "inode/fifo");
    EXPECT_EQ(look("link").documents.at(0).mimeType, "inode/symlink");
}

TEST_F(FolderListingTest, DevicesAreDocuments) {
    const Page page = FolderService("/dev").load(named(listing(1), "null"));
    ASSERT_EQ(page.documents.size(), 1U);
    EXPECT_EQ(page.documents[0].mimeType, "inode/chardevice");
    if (mknod(path("disk").c_str(), S_IFBLK | 0600, makedev(7, 200)) == 0) {
        EXPECT_EQ(look("disk").documents.at(0).mimeType, "inode/blockdevice");
    }
}

TEST_F(FolderListingTest, NamesAreAnyBytes) {
    const std::vector<std::string> odd = {"-rf",         "...",      "a\nb",
                                          "back\\sl",    "\xff\xfe", "\xf0\x9f\x98\x80",
                                          " ",           "%s\x1b[",  std::string(255, 'x'),
                                          "\x80\xc3(\"'"};
    for (const std::string& name : odd) {
        folder.makeFolder("folders/" + name);
        folder.writeFile("folders/" + name + "/" + name, name);
    }
    const unsigned long id = folderId("folders");
    const Page page = load(listing(id));
    EXPECT_THAT(names(page.folders), testing::UnorderedElementsAreArray(odd));
    for (const Folder& record : page.folders) {
        const Page inside = load(listing(record.id));
        ASSERT_THAT(names(inside.documents), ElementsAre(record.name));
        EXPECT_EQ(inside.documents[0].length, record.name.size());
        EXPECT_EQ(look(record.name, record.id).documents.at(0).id, inside.documents[0].id);
    }
}

TEST_F(FolderListingTest, AttributesAreKeyValues) {
    folder.writeFile("a");
    const std::string raw("\0\xff raw", 6);
    if (!setAttribute(path("a"), "user.colour", "red")) {
        GTEST_SKIP() << "no attributes here";
    }
    ASSERT_TRUE(setAttribute(path("a"), "user.raw", raw));
    ASSERT_TRUE(setAttribute(path("a"), "user.empty", ""));
    ASSERT_TRUE(setAttribute(path("a"), "user.user.twice", "2"));
    if (geteuid() == 0) {
        setAttribute(path("a"), "trusted.secret", "x");
    }
    const KeyValues expected = {{"colour", {"red", false}},
                                {"empty", {"", false}},
                                {"raw", {raw, false}},
                                {"user.twice", {"2", false}}};
    EXPECT_EQ(load(listing(1)).documents.at(0).keyValues(), expected);
    EXPECT_EQ(look("a").documents.at(0).keyValues(), expected);
}

TEST_F(FolderListingTest, AttributesThatMayNotBeReadAreLeftOut) {
    folder.writeFile("a");
    if (!setAttribute(path("a"), "user.colour", "red")) {
        GTEST_SKIP() << "no attributes here";
    }
    ASSERT_EQ(chmod(path("a").c_str(), 0), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    withoutPrivileges([this] {
        const Page page = load(listing(1));
        EXPECT_THAT(names(page.documents), ElementsAre("a"));
        EXPECT_THAT(page.documents.at(0).keyValues(), IsEmpty());
    });
}

TEST_F(FolderListingTest, TagsAreTheEntriesWithAttributes) {
    for (const char* name : {"d", "b", "plain"}) {
        folder.writeFile(name);
    }
    folder.makeFolder("c");
    if (!setAttribute(path("d"), "user.k", "1")) {
        GTEST_SKIP() << "no attributes here";
    }
    ASSERT_TRUE(setAttribute(path("b"), "user.k", "2"));
    ASSERT_TRUE(setAttribute(path("c"), "user.k", "3"));
    if (geteuid() == 0) {
        setAttribute(path("plain"), "trusted.k", "4");
    }
    const Page page = load(ofType(listing(1), 16));
    EXPECT_EQ(page.totalCount, 3U);
    EXPECT_THAT(page.folders, IsEmpty());
    EXPECT_THAT(page.documents, IsEmpty());
    ASSERT_THAT(names(page.tags), ElementsAre("b", "c", "d"));
    const Tag& tag = page.tags[1];
    EXPECT_EQ(tag.type, 16);
    EXPECT_EQ(tag.id, folderId("c"));
    EXPECT_EQ(tag.tagKey, std::to_string(tag.id));
    EXPECT_EQ(tag.parentId, 1U);
    EXPECT_EQ(tag.ownerId, 1U);
    EXPECT_EQ(tag.updated, look("c").folders.at(0).updated);
    EXPECT_EQ(tag.keyValues(), (KeyValues{{"k", {"3", false}}}));

    const Page second = load(ofType(listing(1, 1, 1), 16));
    EXPECT_EQ(second.totalCount, 3U);
    EXPECT_THAT(names(second.tags), ElementsAre("c"));
    ItemFilter filter = ofType(listing(1), 16);
    filter.query = "d";
    EXPECT_THAT(names(load(filter).tags), ElementsAre("d"));
    EXPECT_EQ(load(filter).totalCount, 1U);
    EXPECT_THAT(names(load(named(ofType(listing(1), 16), "b")).tags), ElementsAre("b"));
    EXPECT_EQ(load(named(ofType(listing(1), 16), "plain")).totalCount, 0U);
}

TEST_F(FolderListingTest, NewAttributesShowInTheNextTags) {
    folder.writeFile("a");
    folder.writeFile("b");
    if (!setAttribute(path("a"), "user.k", "1")) {
        GTEST_SKIP() << "no attributes here";
    }
    letSettle();
    EXPECT_EQ(load(ofType(listing(1), 16)).totalCount, 1U);
    ASSERT_TRUE(setAttribute(path("b"), "user.k", "2"));
    EXPECT_EQ(load(ofType(listing(1), 16)).totalCount, 2U);
    ASSERT_EQ(removexattr(path("a").c_str(), "user.k"), 0);
    EXPECT_THAT(names(load(ofType(listing(1), 16)).tags), ElementsAre("b"));
}

TEST_F(FolderListingTest, ALookUpGivesTheOneEntryWithoutReadingTheFolder) {
    folder.writeFile("a", "12");
    folder.writeFile("ab");
    folder.makeFolder("f");
    const Page document = look("a");
    EXPECT_EQ(document.totalCount, 1U);
    EXPECT_THAT(names(document.documents), ElementsAre("a"));
    EXPECT_EQ(document.documents[0].length, 2U);
    EXPECT_THAT(names(look("f").folders), ElementsAre("f"));
    const Page none = look("b");
    EXPECT_EQ(none.totalCount, 0U);
    EXPECT_THAT(none.documents, IsEmpty());
    EXPECT_EQ(load(named(ofType(listing(1), 8), "a")).totalCount, 0U);
    EXPECT_EQ(load(named(listing(1, 1, 5), "a")).totalCount, 1U);
    EXPECT_THAT(load(named(listing(1, 1, 5), "a")).documents, IsEmpty());
    EXPECT_EQ(service.foldersRead(), 0U);
}

TEST_F(FolderListingTest, WhatAFolderCannotAnswerIsRefused) {
    folder.writeFile("a");
    const auto with = [](auto change) {
        ItemFilter filter = listing(1);
        change(filter);
        return filter;
    };
    using F = ItemFilter&;
    for (const std::int32_t type : {-1, 1, 5, 12, 17}) {
        expectFailure(ofType(listing(1), type), Reason::Refused, std::to_string(type));
    }
    expectFailure(with([](F f) { f.url = "u"; }), Reason::Refused, "url");
    expectFailure(with([](F f) { f.group = "g"; }), Reason::Refused, "group");
    expectFailure(with([](F f) { f.tagLabels["l"] = "v"; }), Reason::Refused, "tag labels");
    expectFailure(with([](F f) { f._order = "size:up"; }), Reason::Refused, "size:up");
    expectFailure(with([](F f) { f.dataId = {}; }), Reason::Refused, "one folder");
    expectFailure(with([](F f) { f.dataId = {1, 1}; }), Reason::Refused, "one folder");
    expectFailure(listing(0), Reason::NotFound, "id 0");
    expectFailure(listing(77), Reason::NotFound, "id 77");
    expectFailure(listing(documentId("a")), Reason::Refused, "'a' is not a folder");
}

TEST_F(FolderListingTest, IdsStayOverListings) {
    folder.makeFolder("f");
    folder.writeFile("f/a");
    folder.writeFile("b");
    const unsigned long f = folderId("f");
    const unsigned long a = documentId("a", f);
    const unsigned long b = documentId("b");
    EXPECT_THAT((std::set{1UL, f, a, b}).size(), 4U);
    folder.writeFile("c");
    folder.writeFile("b", "other content");
    letSettle();
    for (int i = 0; i < 3; ++i) {
        const Page page = load(listing(1));
        EXPECT_EQ(page.folders.at(0).id, f);
        EXPECT_EQ(page.documents.at(0).id, b);
        EXPECT_EQ(load(listing(f)).documents.at(0).id, a);
    }
    EXPECT_EQ(load(listing(f)).documents.at(0).parentId, f);
}

TEST_F(FolderListingTest, TheSameNameInTwoFoldersIsTwoEntries) {
    folder.makeFolder("f/same");
    folder.makeFolder("g/same");
    EXPECT_NE(folderId("same", folderId("f")), folderId("same", folderId("g")));
}

TEST_F(FolderListingTest, AReplacedFileKeepsItsId) {
    folder.writeFile("a");
    const unsigned long id = load(listing(1)).documents.at(0).id;
    folder.writeFile("a.new");
    std::filesystem::rename(path("a.new"), path("a"));
    EXPECT_EQ(load(listing(1)).documents.at(0).id, id);
}

TEST_F(FolderListingTest, ANameSeenToBeGoneComesBackWithANewId) {
    folder.writeFile("a");
    folder.writeFile("b");
    std::set<unsigned long> seen = {1};
    const auto isNew = [&seen](unsigned long id) { return seen.insert(id).second; };
    EXPECT_TRUE(isNew(documentId("a")));
    EXPECT_TRUE(isNew(documentId("b")));

    std::filesystem::remove(path("a"));
    EXPECT_EQ(load(listing(1)).totalCount, 1U);
    folder.writeFile("a");
    EXPECT_TRUE(isNew(documentId("a"))) << "a listing saw it gone";

    std::filesystem::remove(path("a"));
    EXPECT_EQ(look("a").totalCount, 0U);
    folder.writeFile("a");
    EXPECT_TRUE(isNew(documentId("a"))) << "a look-up saw it gone";
    EXPECT_FALSE(isNew(documentId("b")));
}

TEST_F(FolderListingTest, AFolderSeenToBeGoneTakesWhatIsBelowAlong) {
    folder.makeFolder("f/g");
    const unsigned long f = folderId("f");
    const unsigned long g = folderId("g", f);
    std::filesystem::remove_all(path("f"));
    EXPECT_EQ(load(listing(1)).totalCount, 0U);
    folder.makeFolder("f/g");
    expectFailure(listing(f), Reason::NotFound, "id " + std::to_string(f));
    expectFailure(listing(g), Reason::NotFound, "id " + std::to_string(g));
    EXPECT_GT(folderId("f"), g);
}

TEST_F(FolderListingTest, AFileInThePlaceOfAFolderIsAnotherEntry) {
    folder.makeFolder("x");
    const unsigned long asFolder = load(listing(1)).folders.at(0).id;
    std::filesystem::remove(path("x"));
    folder.writeFile("x");
    const unsigned long asFile = load(listing(1)).documents.at(0).id;
    EXPECT_NE(asFile, asFolder);
    expectFailure(listing(asFolder), Reason::NotFound, "id");
    std::filesystem::remove(path("x"));
    folder.makeFolder("x");
    const unsigned long again = look("x").folders.at(0).id;
    EXPECT_NE(again, asFile);
    EXPECT_NE(again, asFolder);
}

TEST_F(FolderListingTest, AFolderIsReadOnceForAllItsPages) {
    for (int i = 0; i < 300; ++i) {
        folder.writeFile(std::to_string(i));
    }
    letSettle();
    unsigned long found = 0;
    for (std::uint32_t offset = 0; offset < 300; offset += 10) {
        found += load(listing(1, offset, 10)).documents.size();
    }
    EXPECT_EQ(found, 300U);
    ItemFilter backwards = ofType(listing(1), 4);
    backwards.ascending = false;
    EXPECT_EQ(load(backwards).documents.at(0).name, "99");
    EXPECT_EQ(service.foldersRead(), 1U);
}

TEST_F(FolderListingTest, SeveralFoldersAreRememberedAtATime) {
    std::vector<unsigned long> ids = {1};
    for (const char* name : {"f", "g", "h"}) {
        folder.makeFolder(name);
        folder.writeFile(std::string(name) + "/file");
        ids.push_back(folderId(name));
    }
    letSettle();
    for (int round = 0; round < 3; ++round) {
        for (const unsigned long id : ids) {
            EXPECT_GT(load(listing(id)).totalCount, 0U);
        }
    }
    EXPECT_EQ(service.foldersRead(), ids.size());
}

TEST_F(FolderListingTest, EveryChangeShowsInTheNextPage) {
    folder.writeFile("a");
    letSettle();
    EXPECT_EQ(load(listing(1)).totalCount, 1U);
    folder.writeFile("b");
    EXPECT_THAT(names(load(listing(1)).documents), ElementsAre("a", "b"));
    std::filesystem::rename(path("b"), path("c"));
    EXPECT_THAT(names(load(listing(1)).documents), ElementsAre("a", "c"));
    std::filesystem::remove(path("a"));
    EXPECT_THAT(names(load(listing(1)).documents), ElementsAre("c"));
}

TEST_F(FolderListingTest, ChangesInQuickSuccessionCannotHide) {
    for (int i = 0; i < 300; ++i) {
        folder.writeFile("a");
        ASSERT_EQ(load(listing(1)).totalCount, 1U) << i;
        std::filesystem::remove(path("a"));
        ASSERT_EQ(load(listing(1)).totalCount, 0U) << i;
    }
}

TEST_F(FolderListingTest, AFolderThatReplacesAnotherIsReadAgain) {
    folder.makeFolder("f");
    folder.makeFolder("g");
    folder.writeFile("f/old");
    folder.writeFile("g/new");
    letSettle();
    const unsigned long id = folderId("f");
    EXPECT_THAT(names(load(listing(id)).documents), ElementsAre("old"));
    std::filesystem::rename(path("f"), path("h"));
    std::filesystem::rename(path("g"), path("f"));
    EXPECT_THAT(names(load(listing(id)).documents), ElementsAre("new"));
}

TEST_F(FolderListingTest, PagesAreWholeWhileTheFolderChanges) {
    for (int i = 0; i < 50; ++i) {
        folder.writeFile("stays-" + std::to_string(100 + i));
    }
    std::jthread churn([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            folder.writeFile("comes");
            std::filesystem::rename(path("comes"), path("goes"));
            std::filesystem::remove(path("goes"));
        }
    });
    int whole = 0;
    // Until it has happened that an entry went while its page was made.
    for (unsigned long i = 0; i < 300 || (i < 100'000 && service.foldersRead() == i); ++i) {
        Page page;
        try {
            page = load(listing(1));
        } catch (const ServiceError& error) {
            EXPECT_THAT(error.what(), HasSubstr("changes faster"));
            continue;
        }
        ++whole;
        EXPECT_EQ(page.totalCount, page.documents.size());
        const auto listed = names(page.documents);
        const auto stays = std::count_if(listed.begin(), listed.end(), [](const std::string& n) {
            return n.starts_with("stays-");
        });
        EXPECT_EQ(stays, 50);
        EXPECT_EQ(std::set(listed.begin(), listed.end()).size(), listed.size());
    }
    EXPECT_GT(whole, 0);
}

TEST_F(FolderListingTest, AnEntryThatChangesItsKindIsNeverShownAsAMixture) {
    folder.makeFolder("x");
    folder.writeFile("y", "12345");
    std::jthread swapper([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            renameat2(AT_FDCWD, path("x").c_str(), AT_FDCWD, path("y").c_str(), RENAME_EXCHANGE);
        }
    });
    int whole = 0;
    for (int i = 0; i < 500 || (whole == 0 && i < 50'000); ++i) {
        Page page;
        try {
            page = load(listing(1));
        } catch (const ServiceError& error) {
            EXPECT_THAT(error.what(), HasSubstr("changes faster"));
            continue;
        }
        ++whole;
        ASSERT_EQ(page.folders.size(), 1U);
        ASSERT_EQ(page.documents.size(), 1U);
        EXPECT_EQ(page.documents[0].length, 5U);
    }
    EXPECT_GT(whole, 0);
}

}  // namespace
}  // namespace Nimra
