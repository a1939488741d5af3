// Pages that were asked for before an action, and arrive while it has no outcome.

#include <algorithm>
#include <ostream>

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Reason;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};

/// One kind of listing, and whether it was loaded before the page is asked for.
struct Kind {
    const char* name;
    ListOptions options;
    bool loadedBefore;
};
std::ostream& operator<<(std::ostream& stream, const Kind& kind) {
    return stream << kind.name << (kind.loadedBefore ? "Reloaded" : "First");
}

ListOptions optionsOf(ListOrder order, ListKind kind, const std::string& search) {
    ListOptions options;
    options.order = order;
    options.kind = kind;
    options.search = search;
    return options;
}

std::vector<Kind> kinds() {
    std::vector<Kind> all;
    for (const bool before : {false, true}) {
        const auto add = [&](const char* name, const ListOptions& options) {
            all.push_back({name, options, before});
        };
        add("Whole", {});
        add("Descending", optionsOf(ListOrder::Descending, ListKind::Everything, ""));
        add("Search", optionsOf(ListOrder::Ascending, ListKind::Everything, "x"));
        add("Folders", optionsOf(ListOrder::Ascending, ListKind::Folders, ""));
        add("Documents", optionsOf(ListOrder::Descending, ListKind::Documents, ""));
    }
    return all;
}

class PendingPagesTest : public ActingTest, public ::testing::WithParamInterface<Kind> {
  protected:
    /// The root holds the folders 10 "fx" and 11 "g", and the documents 20 "a", 21 "bx" and 22
    /// "cx"; the folder 11 holds the document 30 "dx" and the folder 12 "hx".
    void fillRoot() {
        service.addFolder(10, Root, "fx");
        service.addFolder(11, Root, "g");
        service.addFolder(12, 11, "hx");
        addDocuments(20, {"a", "bx", "cx"});
        addDocuments(30, {"dx"}, 11);
        // What is acted on is held, by another listing where this one is to be new.
        for (const unsigned long folderId : {Root, 11UL}) {
            list(folderId, optionsOf(ListOrder::Descending, ListKind::Everything, "x"));
            list(folderId, optionsOf(ListOrder::Descending, ListKind::Folders, ""));
            if (GetParam().loadedBefore) {
                list(folderId, GetParam().options);
            }
        }
        client().wait(client().find("a"), Patience);
        service.forgetLog();
    }

    /// Asks for the page, acts, and lets the page arrive ahead of the action's outcome.
    template <class Act>
    Action actBehindAPage(unsigned long folderId, Act act) {
        service.hold();
        const Query query = client().list(folderId, reloaded(GetParam().options));
        awaitLog(1);
        const Action action = act();
        service.releaseOne();
        EXPECT_EQ(client().wait(query, Patience).state, AnswerState::Answered);
        EXPECT_TRUE(isPending(action));
        return action;
    }

    /// Of these names, those that the listing is to show.
    std::vector<std::string> shown(const std::vector<std::string>& folders,
                                   const std::vector<std::string>& documents) const {
        const ListOptions& options = GetParam().options;
        std::vector<std::string> all;
        if (options.kind != ListKind::Documents) {
            all = folders;
        }
        if (options.kind != ListKind::Folders) {
            all.insert(all.end(), documents.begin(), documents.end());
        }
        std::erase_if(all, [&](const std::string& name) {
            return name.find(options.search) == std::string::npos;
        });
        return all;
    }
    void expectShown(unsigned long folderId, const std::vector<std::string>& folders,
                     const std::vector<std::string>& documents) {
        EXPECT_THAT(held(folderId, GetParam().options),
                    UnorderedElementsAreArray(shown(folders, documents)));
    }

    /// After all outcomes the listing is what the service lists.
    void expectServersListings() {
        service.release();
        settle();
        for (const unsigned long folderId : {Root, 10UL, 11UL}) {
            for (const Kind& kind : kinds()) {
                const std::vector<std::string> names = listed(folderId, kind.options);
                EXPECT_EQ(names, listed(folderId, reloaded(kind.options))) << folderId << kind;
            }
            EXPECT_EQ(listed(folderId), service.namesIn(folderId)) << folderId;
        }
    }
};

TEST_P(PendingPagesTest, RenameStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().rename(21, "z"); });
    expectShown(Root, {"fx", "g"}, {"a", "z", "cx"});
    EXPECT_EQ(client().item(21)->name(), "z");
    expectServersListings();
}

TEST_P(PendingPagesTest, RenameThatASearchFindsStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().rename(20, "xx"); });
    expectShown(Root, {"fx", "g"}, {"xx", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, RefusedRenameIsTakenBackAllTheSame) {
    fillRoot();
    service.failNext("rename", Reason::NoPermission);
    const Action action = actBehindAPage(Root, [&] { return client().rename(21, "z"); });
    service.release();
    expectFailed(action, Reason::NoPermission);
    EXPECT_EQ(client().item(21)->name(), "bx");
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, RenameOfAFolderStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().rename(10, "z"); });
    expectShown(Root, {"z", "g"}, {"a", "bx", "cx"});
    EXPECT_EQ(client().item(10)->name(), "z");
    expectServersListings();
}

TEST_P(PendingPagesTest, MoveAwayStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().move(21, 11); });
    expectShown(Root, {"fx", "g"}, {"a", "cx"});
    EXPECT_EQ(client().pathOf(21), "/g/bx");
    expectServersListings();
}

TEST_P(PendingPagesTest, RefusedMoveAwayIsTakenBackAllTheSame) {
    fillRoot();
    service.failNext("move", Reason::NoPermission);
    const Action action = actBehindAPage(Root, [&] { return client().move(21, 11); });
    service.release();
    expectFailed(action, Reason::NoPermission);
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, MoveHereStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().move(30, Root); });
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx", "dx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, MoveOfAFolderStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().move(12, Root); });
    expectShown(Root, {"fx", "g", "hx"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, MoveOfAFolderAwayStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().move(10, 11); });
    expectShown(Root, {"g"}, {"a", "bx", "cx"});
    EXPECT_EQ(client().pathOf(10), "/g/fx");
    expectServersListings();
}

TEST_P(PendingPagesTest, RemovalStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().remove(21); });
    expectShown(Root, {"fx", "g"}, {"a", "cx"});
    EXPECT_EQ(client().poll(client().rename(21, "z")).error->reason(), Reason::NotFound);
    expectServersListings();
    EXPECT_FALSE(client().item(21));
}

TEST_P(PendingPagesTest, RemovalOfAFolderStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().remove(10); });
    expectShown(Root, {"g"}, {"a", "bx", "cx"});
    expectServersListings();
    EXPECT_FALSE(client().item(10));
}

TEST_P(PendingPagesTest, RefusedRemovalIsTakenBackAllTheSame) {
    fillRoot();
    service.failNext("remove", Reason::NoPermission);
    const Action action = actBehindAPage(Root, [&] { return client().remove(21); });
    service.release();
    expectFailed(action, Reason::NoPermission);
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, CreatedDocumentStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().createDocument(Root, "newx"); });
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx", "newx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, CreatedFolderStays) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().createFolder(Root, "newx"); });
    expectShown(Root, {"fx", "g", "newx"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, RefusedCreationIsTakenBackAllTheSame) {
    fillRoot();
    service.failNext("create", Reason::NoSpace);
    const Action action =
        actBehindAPage(Root, [&] { return client().createDocument(Root, "newx"); });
    service.release();
    expectFailed(action, Reason::NoSpace);
    expectShown(Root, {"fx", "g"}, {"a", "bx", "cx"});
    expectServersListings();
}

TEST_P(PendingPagesTest, MetaDataStay) {
    fillRoot();
    actBehindAPage(Root, [&] { return client().saveMetaData(21, Blue); });
    EXPECT_EQ(keyValuesOf(21), Blue);
    expectServersListings();
    EXPECT_EQ(keyValuesOf(21), Blue);
}

TEST_P(PendingPagesTest, WhatChangedElsewhereMeanwhileShowsBesideTheEdit) {
    fillRoot();
    service.editDocument(21, [](Nimra::Document& document) { document.length = 77; });
    service.editDocument(22, [](Nimra::Document& document) { document.name = "yx"; });
    service.failNext("rename", Reason::NoPermission);
    actBehindAPage(Root, [&] { return client().rename(21, "zx"); });
    if (GetParam().options.kind != ListKind::Folders) {
        expectShown(Root, {"fx", "g"}, {"a", "zx", "yx"});
        EXPECT_EQ(dynamic_cast<const Object&>(*client().item(21)).length(), 77U);
    }
    expectServersListings();
    EXPECT_EQ(client().item(21)->name(), "bx");
    EXPECT_EQ(client().item(22)->name(), "yx");
}

TEST_P(PendingPagesTest, SeveralActionsStayTogether) {
    fillRoot();
    service.hold();
    const Query query = client().list(Root, reloaded(GetParam().options));
    awaitLog(1);
    client().remove(22);
    const Action folder = client().createFolder(Root, "newx");
    client().move(21, folder.entryId());
    client().rename(21, "zx");
    client().move(30, Root);
    client().createDocument(folder.entryId(), "inx");
    service.releaseOne();
    EXPECT_EQ(client().wait(query, Patience).state, AnswerState::Answered);
    expectShown(Root, {"fx", "g", "newx"}, {"a", "dx"});
    expectServersListings();
    EXPECT_THAT(listed(Given), ElementsAre("inx", "zx"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, PendingPagesTest, ::testing::ValuesIn(kinds()),
                         [](const auto& test) { return ::testing::PrintToString(test.param); });

// --- Pages in pieces ------------------------------------------------------------------------

class PendingPiecesTest : public ActingTest {
  protected:
    std::vector<std::string> allPages(unsigned long folderId, std::uint32_t size) {
        std::vector<std::string> names;
        for (int round = 0; round < 20; ++round) {
            names.clear();
            bool allHeld = true;
            unsigned long total = 1;
            for (std::uint32_t offset = 0; offset < total; offset += size) {
                const Answer answer = list(folderId, page(offset, size));
                const std::vector<std::string> piece = namesOf(answer);
                names.insert(names.end(), piece.begin(), piece.end());
                allHeld = allHeld && answer.source == AnswerSource::Memory;
                total = answer.total;
            }
            if (allHeld) {
                return names;
            }
        }
        return {"never current"};
    }
};

TEST_F(PendingPiecesTest, PagesAroundARemovalLoseNothingAndRepeatNothing) {
    addDocuments(20, {"a", "b", "c", "d", "e", "f", "g"});
    list(Root, page(0, 2));
    list(Root, page(2, 2));
    service.hold();
    const Query running = client().list(Root, page(4, 2));
    awaitLog(3);
    client().remove(21);
    client().rename(20, "z");
    service.releaseOne();
    EXPECT_THAT(namesOf(client().wait(running, Patience)), ElementsAre("e", "f"));
    service.release();
    settle();
    EXPECT_EQ(allPages(Root, 2), service.namesIn(Root));
}

TEST_F(PendingPiecesTest, EntryOnAPageThatIsNotHeldIsNotDrawnForwardByARename) {
    addDocuments(20, {"a", "b", "c", "d", "e", "f"});
    list(Root, page(0, 2));
    find("f");
    service.hold();
    const Query again = client().list(Root, reloaded(page(0, 2)));
    client().rename(25, "fx");
    service.releaseOne();
    EXPECT_THAT(namesOf(client().wait(again, Patience)), ElementsAre("a", "b"));
    service.release();
    settle();
    EXPECT_EQ(allPages(Root, 2), service.namesIn(Root));
}

TEST_F(PendingPiecesTest, MovedAndCreatedEntriesAreOnOnePageEach) {
    service.addFolder(10, Root, "music");
    addDocuments(20, {"a", "b", "c", "d", "e"});
    addDocuments(30, {"bb", "x"}, 10);
    list(10);
    list(Root, page(0, 3));
    service.hold();
    const Query second = client().list(Root, page(3, 3));
    client().move(30, Root);
    client().move(31, Root);
    client().createDocument(Root, "aa");
    client().move(20, 10);
    service.releaseOne();
    client().wait(second, Patience);
    service.release();
    settle();
    EXPECT_EQ(allPages(Root, 3), service.namesIn(Root));
    EXPECT_EQ(allPages(10, 3), service.namesIn(10));
}

// --- Finding by name --------------------------------------------------------------------------

class PendingLookUpTest : public ActingTest {
  protected:
    void fillRoot(bool listedBefore) {
        service.addFolder(10, Root, "music");
        addDocuments(20, {"a", "b"});
        if (listedBefore) {
            list(Root);
        } else {
            find("a");
            find("music");
        }
        service.forgetLog();
    }
    template <class Act>
    Answer findBehind(const std::string& path, Act act) {
        service.hold();
        const Query query = client().find(path, Freshness::Reload);
        awaitLog(1);
        act();
        service.releaseOne();
        return client().wait(query, Patience);
    }
};

TEST_F(PendingLookUpTest, RenamedEntryIsFoundUnderItsNewNameOnly) {
    for (const bool listedBefore : {true, false}) {
        fillRoot(listedBefore);
        const Answer found = findBehind("z", [&] { client().rename(20, "z"); });
        ASSERT_EQ(found.state, AnswerState::Answered);
        EXPECT_EQ(found.entries.at(0)->id(), 20U);
        if (listedBefore) {
            EXPECT_THAT(held(Root), ElementsAre("music", "z", "b"));
        }
        service.release();
        settle();
        expectDone(client().rename(20, "a"));
        settle();
        service.forgetLog();
        const Answer gone = findBehind("a", [&] { client().rename(20, "z"); });
        EXPECT_EQ(gone.state, AnswerState::Failed);
        EXPECT_EQ(gone.error->reason(), Reason::NotFound);
        EXPECT_EQ(client().item(20)->name(), "z");
        service.release();
        settle();
        EXPECT_EQ(listed(Root), service.namesIn(Root));
        for (const unsigned long id : {10UL, 20UL, 21UL}) {
            service.drop(id);
        }
        list(Root, reloaded());
    }
}

TEST_F(PendingLookUpTest, MovedEntryIsFoundInItsNewFolderOnly) {
    fillRoot(true);
    list(10);
    service.forgetLog();
    const Answer gone = findBehind("a", [&] { client().move(20, 10); });
    EXPECT_EQ(gone.error->reason(), Reason::NotFound);
    EXPECT_EQ(client().pathOf(20), "/music/a");
    EXPECT_THAT(held(Root), ElementsAre("music", "b"));
    EXPECT_THAT(held(10), ElementsAre("a"));
    EXPECT_EQ(idAt("music/a"), 20U);
    service.release();
    settle();
    EXPECT_EQ(listed(Root), service.namesIn(Root));
    EXPECT_EQ(listed(10), service.namesIn(10));
}

TEST_F(PendingLookUpTest, EntryThatIsOnItsWayIntoTheFolderIsFound) {
    fillRoot(true);
    list(10);
    service.forgetLog();
    const Answer found = findBehind("music/a", [&] { client().move(20, 10); });
    ASSERT_EQ(found.state, AnswerState::Answered);
    EXPECT_EQ(found.entries.at(0)->id(), 20U);
    EXPECT_THAT(held(10), ElementsAre("a"));
    service.release();
    settle();
}

TEST_F(PendingLookUpTest, RemovedEntryIsNotFound) {
    fillRoot(true);
    const Answer gone = findBehind("a", [&] { client().remove(20); });
    EXPECT_EQ(gone.error->reason(), Reason::NotFound);
    EXPECT_THAT(held(Root), ElementsAre("music", "b"));
    service.release();
    settle();
    EXPECT_EQ(find("a").error->reason(), Reason::NotFound);
}

TEST_F(PendingLookUpTest, CreatedEntryIsFound) {
    fillRoot(true);
    const Answer found = findBehind("new", [&] { client().createDocument(Root, "new"); });
    ASSERT_EQ(found.state, AnswerState::Answered);
    EXPECT_TRUE(Nimra::isLocalId(found.entries.at(0)->id()));
    EXPECT_THAT(held(Root), ElementsAre("music", "a", "b", "new"));
    service.release();
    settle();
    EXPECT_EQ(idAt("new"), Given);
}

TEST_F(PendingLookUpTest, OwnEntryGoesBeforeOneOfItsNameElsewhere) {
    fillRoot(true);
    service.addDocument(30, Root, "z");
    const Answer found = findBehind("z", [&] { client().rename(20, "z"); });
    ASSERT_EQ(found.state, AnswerState::Answered);
    EXPECT_EQ(found.entries.at(0)->id(), 20U);
    service.release();
    settle();
    // The service did not let it have the name.
    EXPECT_EQ(idAt("z"), 30U);
    EXPECT_EQ(idAt("a"), 20U);
    EXPECT_EQ(listed(Root), service.namesIn(Root));
}

}  // namespace
}  // namespace Ormek::Testing
