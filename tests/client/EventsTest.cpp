// What subscribers are told, in which order, and what they may do.

#include <atomic>
#include <future>
#include <map>
#include <sstream>
#include <stdexcept>

#include "tests/client/ActingFixture.h"

namespace Ormek::Testing {
namespace {

using Nimra::Reason;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const Nimra::KeyValues Blue{{"colour", {"blue", true}}};

class EventsTest : public ActingTest {
  protected:
    /// The root holds the folder 10 "music" and the documents 20 "a" and 21 "b".
    void fillRoot() {
        service.addFolder(10, Root, "music");
        addDocuments(20, {"a", "b"});
        list(Root);
        list(10);
        events.clear();
    }

    /// The events in a line each; local ids are told as L0, L1 and so on.
    std::vector<std::string> lines() {
        std::vector<std::string> all;
        for (const Event& event : events) {
            all.push_back(std::visit([this](const auto& one) { return lineOf(one); }, event));
        }
        return all;
    }

    std::string id(unsigned long number) {
        if (!Nimra::isLocalId(number)) {
            return std::to_string(number);
        }
        return "L" + std::to_string(_locals.emplace(number, _locals.size()).first->second);
    }
    std::string valuesOf(const EntryValues& values) {
        std::ostringstream line;
        line << id(values.folderId) << '/' << values.name << (values.isFolder ? "/" : "");
        if (values.length != 0) {
            line << " length " << values.length;
        }
        if (values.updated != 0) {
            line << " updated " << values.updated;
        }
        if (!values.mimeType.empty()) {
            line << " type " << values.mimeType;
        }
        for (const auto& [key, value] : values.keyValues) {
            line << ' ' << key << '=' << value.first;
        }
        return line.str();
    }

    std::string lineOf(const EntryAdded& event) {
        return "added " + id(event.id) + ": " + valuesOf(event.now);
    }
    std::string lineOf(const EntryRemoved& event) {
        return "removed " + id(event.id) + ": " + valuesOf(event.was);
    }
    std::string lineOf(const EntryChanged& event) {
        return "changed " + id(event.id) + ": " + valuesOf(event.was) + " -> " +
               valuesOf(event.now);
    }
    std::string lineOf(const EntryIdChanged& event) {
        return "id " + id(event.oldId) + " -> " + id(event.newId);
    }
    std::string lineOf(const ListingInvalidated& event) {
        return "invalidated " + id(event.folderId);
    }
    std::string lineOf(const ActionProgress& event) {
        return "progress " + std::to_string(event.done) + " of " + std::to_string(event.total);
    }
    std::string lineOf(const Outcome& event) {
        const std::string state = event.state == ActionState::Done     ? "done "
                                  : event.state == ActionState::Failed ? "failed "
                                                                       : "pending ";
        return state + id(event.entryId) + ": " +
               (event.entry ? valuesOf(*event.entry) : "nothing");
    }

  private:
    std::map<unsigned long, std::size_t> _locals;
};

// --- What is told, and when -------------------------------------------------------------------

TEST_F(EventsTest, CreationIsToldFromTheFirstShowToTheOutcome) {
    fillRoot();
    service.hold();
    const Action action =
        client().createDocument(Root, "new", std::make_unique<TextSource>("content"), Blue);
    EXPECT_THAT(lines(), ElementsAre("added L0: 1/new length 7 colour=blue"));
    service.release();
    expectDone(action);
    std::vector<std::string> all = lines();
    // How often the progress was told depends on how often it was asked for.
    std::erase_if(all, [](const std::string& line) { return line.starts_with("progress"); });
    EXPECT_THAT(
        all, ElementsAre("added L0: 1/new length 7 colour=blue", "id L0 -> 1000", "invalidated 1",
                         "changed 1000: 1/new length 7 colour=blue -> "
                         "1/new length 7 updated 1000 colour=blue",
                         "done 1000: 1/new length 7 updated 1000 colour=blue"));
}

TEST_F(EventsTest, FolderThatIsCreatedIsToldWithWhatIsMadeInIt) {
    fillRoot();
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    const Action document = client().createDocument(folder.entryId(), "x");
    service.release();
    expectDone(folder);
    expectDone(document);
    EXPECT_THAT(lines(), ElementsAre("added L0: 1/new/", "added L1: L0/x", "id L0 -> 1000",
                                     "invalidated 1", "changed 1000: 1/new/ -> 1/new/ updated 1000",
                                     "done 1000: 1/new/ updated 1000", "id L1 -> 1001",
                                     "changed 1001: 1000/x -> 1000/x updated 1001",
                                     "done 1001: 1000/x updated 1001"));
}

TEST_F(EventsTest, RenameIsTold) {
    fillRoot();
    expectDone(client().rename(20, "z"));
    EXPECT_THAT(lines(), ElementsAre("changed 20: 1/a -> 1/z", "invalidated 1", "done 20: 1/z"));
}

TEST_F(EventsTest, MoveIsTold) {
    fillRoot();
    expectDone(client().move(20, 10));
    EXPECT_THAT(lines(), ElementsAre("changed 20: 1/a -> 10/a", "invalidated 10", "done 20: 10/a"));
}

TEST_F(EventsTest, RemovalIsTold) {
    fillRoot();
    expectDone(client().remove(20));
    EXPECT_THAT(lines(), ElementsAre("removed 20: 1/a", "done 20: nothing"));
}

TEST_F(EventsTest, RemovalOfAFolderIsToldWithWhatIsHeldOfIt) {
    fillRoot();
    client().onRemoteChange(Nimra::Document(30, 10, 1, "song"));
    events.clear();
    expectDone(client().remove(10));
    EXPECT_THAT(lines(),
                ElementsAre("removed 10: 1/music/", "removed 30: 10/song", "done 10: nothing"));
}

TEST_F(EventsTest, MetaDataAreTold) {
    fillRoot();
    expectDone(client().saveMetaData(20, Blue));
    EXPECT_THAT(lines(),
                ElementsAre("changed 20: 1/a -> 1/a colour=blue", "done 20: 1/a colour=blue"));
}

TEST_F(EventsTest, ContentAndSessionsTellTheirOutcomeAlone) {
    fillRoot();
    expectDone(client().open(20));
    expectDone(client().openSession(20));
    EXPECT_THAT(lines(), ElementsAre("done 20: 1/a", "done 20: 1/a"));
    EXPECT_TRUE(told<Outcome>()[0].stream);
    EXPECT_TRUE(told<Outcome>()[1].session);
}

TEST_F(EventsTest, FailuresTellWhatWasTakenBackBeforeTheOutcome) {
    fillRoot();
    for (const char* verb : {"rename", "move", "remove", "save", "create"}) {
        service.failNext(verb, Reason::NoPermission);
    }
    const auto told = [&](const Action& action) {
        expectFailed(action, Reason::NoPermission);
        const std::vector<std::string> all = lines();
        events.clear();
        return all;
    };
    EXPECT_THAT(told(client().rename(20, "z")),
                ElementsAre("changed 20: 1/a -> 1/z", "changed 20: 1/z -> 1/a", "failed 20: 1/a"));
    EXPECT_THAT(
        told(client().move(20, 10)),
        ElementsAre("changed 20: 1/a -> 10/a", "changed 20: 10/a -> 1/a", "failed 20: 1/a"));
    EXPECT_THAT(told(client().remove(20)),
                ElementsAre("removed 20: 1/a", "added 20: 1/a", "failed 20: 1/a"));
    EXPECT_THAT(told(client().saveMetaData(20, Blue)),
                ElementsAre("changed 20: 1/a -> 1/a colour=blue",
                            "changed 20: 1/a colour=blue -> 1/a", "failed 20: 1/a"));
    EXPECT_THAT(told(client().createDocument(Root, "new")),
                ElementsAre("added L0: 1/new", "removed L0: 1/new", "failed L0: nothing"));
}

TEST_F(EventsTest, FailureThatTheServiceKnowsMoreAboutInvalidatesTheListing) {
    fillRoot();
    expectFailed(client().rename(20, "b"), Reason::Exists);
    EXPECT_THAT(lines(), ElementsAre("changed 20: 1/a -> 1/b", "invalidated 1",
                                     "changed 20: 1/b -> 1/a", "failed 20: 1/a"));
}

TEST_F(EventsTest, ActionThatIsRefusedAtOnceTellsNothing) {
    fillRoot();
    client().rename(20, "");
    client().remove(4711);
    client().createDocument(20, "x");
    EXPECT_THAT(events, IsEmpty());
}

// --- Pages ------------------------------------------------------------------------------------

TEST_F(EventsTest, FirstDeliveryOfAPageTellsNothing) {
    addDocuments(20, {"a", "b", "c", "d", "e"});
    list(Root, page(0, 2));
    list(Root, page(2, 2));
    list(Root, page(4, 2));
    list(Root, descending());
    list(Root, searching("a"));
    find("c");
    client().wait(client().tags(Root), Patience);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(EventsTest, NamesThatAreLookedUpAreNotTold) {
    addDocuments(20, {"a"});
    find("a");
    service.editDocument(20, [](Nimra::Document& document) { document.length = 3; });
    client().wait(client().find("a", Freshness::Reload), Patience);
    EXPECT_THAT(lines(), ElementsAre("changed 20: 1/a -> 1/a length 3"));
}

TEST_F(EventsTest, ReloadTellsWhatChanged) {
    fillRoot();
    service.drop(20);
    service.addDocument(30, Root, "c");
    service.addFolder(31, Root, "new");
    service.editDocument(21, [](Nimra::Document& document) {
        document.length = 5;
        document.mimeType = "text/plain";
    });
    service.editFolder(10, [](Nimra::Folder& folder) { folder.name = "sound"; });
    list(Root, reloaded());
    EXPECT_THAT(lines(), ElementsAre("added 31: 1/new/", "changed 10: 1/music/ -> 1/sound/",
                                     "changed 21: 1/b -> 1/b length 5 type text/plain",
                                     "added 30: 1/c", "removed 20: 1/a"));
    events.clear();
    list(Root, reloaded());
    EXPECT_THAT(events, IsEmpty());
    EXPECT_FALSE(client().item(20));
}

TEST_F(EventsTest, FirstDeliveryTellsWhatIsNewAboutKnownEntries) {
    fillRoot();
    service.editDocument(20, [](Nimra::Document& document) { document.name = "aa"; });
    service.addDocument(30, Root, "c");
    list(Root, descending());
    EXPECT_THAT(lines(), ElementsAre("changed 20: 1/a -> 1/aa", "invalidated 1"));
}

TEST_F(EventsTest, PageTellsNothingOfWhatActionsHide) {
    fillRoot();
    client().setOnline(false);
    client().rename(20, "z");
    client().remove(21);
    events.clear();
    client().setOnline(true);
    service.hold();
    list(10);
    const Query query = client().list(Root, descending());
    service.release();
    client().wait(query, Patience);
    settle();
    EXPECT_THAT(told<EntryAdded>(), IsEmpty());
    EXPECT_THAT(told<EntryChanged>(), IsEmpty());
    EXPECT_THAT(told<EntryRemoved>(), IsEmpty());
}

// --- Progress ---------------------------------------------------------------------------------

/// Content of six bytes of which half is read before the gate opens.
class GatedText : public TextSource {
  public:
    explicit GatedText(std::shared_future<void> gate)
        : TextSource("abcdef"), _gate(std::move(gate)) {}
    std::size_t read(char* buffer, std::size_t) override {
        if (++_reads == 2) {
            _gate.wait();
        }
        return TextSource::read(buffer, 3);
    }

  private:
    std::shared_future<void> _gate;
    int _reads = 0;
};

TEST_F(EventsTest, ProgressOfAnUploadIsToldBeforeItsOutcome) {
    std::promise<void> gate;
    const Action action = client().createDocument(
        Root, "new", std::make_unique<GatedText>(gate.get_future().share()));
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    while (told<ActionProgress>().empty() && std::chrono::steady_clock::now() < deadline) {
        client().collect();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    gate.set_value();
    expectDone(action);
    const auto all = told<ActionProgress>();
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_EQ(all[0].operationId, action.operationId());
    EXPECT_EQ(all[0].done, 3U);
    EXPECT_EQ(all[0].total, 6U);
    EXPECT_EQ(all[1].done, 6U);
    EXPECT_TRUE(std::holds_alternative<Outcome>(events.back()));
}

// --- Subscribers ------------------------------------------------------------------------------

TEST_F(EventsTest, WhoeverUnsubscribedHearsNothingMore) {
    fillRoot();
    int heard = 0;
    const unsigned long subscription = client().subscribe([&](const Event&) { ++heard; });
    EXPECT_NE(subscription, 0U);
    expectDone(client().rename(20, "z"));
    const int before = heard;
    EXPECT_GT(before, 0);
    client().unsubscribe(subscription);
    client().unsubscribe(4711);
    expectDone(client().rename(20, "a"));
    EXPECT_EQ(heard, before);
}

TEST_F(EventsTest, SubscriberMayAskAndActAndUnsubscribe) {
    fillRoot();
    unsigned long subscription = 0;
    Action second;
    std::vector<std::string> seen;
    subscription = client().subscribe([&](const Event& event) {
        const auto* outcome = std::get_if<Outcome>(&event);
        if (!outcome) {
            return;
        }
        client().unsubscribe(subscription);
        seen = namesOf(client().wait(client().list(Root), Patience));
        EXPECT_EQ(client().item(20)->name(), "z");
        EXPECT_EQ(client().pathOf(20), "/z");
        EXPECT_EQ(client().poll(Action()).state, ActionState::Failed);
        second = client().rename(20, "zz");
        EXPECT_EQ(client().wait(second, Patience).state, ActionState::Done);
        client().read([] {});
    });
    expectDone(client().rename(20, "z"));
    settle();
    EXPECT_THAT(seen, ElementsAre("music", "b", "z"));
    EXPECT_EQ(client().item(20)->name(), "zz");
    // The other one heard of the second rename after the first.
    const auto outcomes = told<Outcome>();
    ASSERT_THAT(outcomes, SizeIs(2));
    EXPECT_EQ(outcomes[1].operationId, second.operationId());
    EXPECT_EQ(outcomes[0].entry->name, "z");
    EXPECT_EQ(outcomes[1].entry->name, "zz");
}

TEST_F(EventsTest, SubscribersAreCalledUnderNoLock) {
    fillRoot();
    std::atomic<int> asked{0};
    client().subscribe([&](const Event&) {
        std::thread other([&] {
            asked += client().item(20) ? 1 : 0;
            client().poll(client().list(Root));
            client().unsubscribe(client().subscribe([](const Event&) {}));
        });
        other.join();
    });
    expectDone(client().rename(20, "z"));
    settle();
    EXPECT_EQ(asked, 3);
}

TEST_F(EventsTest, ThrowingSubscriberLosesNoEventOfTheOthers) {
    fillRoot();
    int thrown = 0;
    const unsigned long thrower = client().subscribe([&](const Event& event) {
        if (std::holds_alternative<EntryChanged>(event)) {
            ++thrown;
            throw std::runtime_error("no");
        }
    });
    std::vector<std::string> others;
    client().subscribe([&](const Event& event) {
        others.push_back(std::visit([this](const auto& one) { return lineOf(one); }, event));
    });
    EXPECT_THROW(client().rename(20, "z"), std::runtime_error);
    settle();
    client().unsubscribe(thrower);
    EXPECT_EQ(thrown, 1);
    EXPECT_THAT(others, ElementsAre("changed 20: 1/a -> 1/z", "invalidated 1", "done 20: 1/z"));
    EXPECT_EQ(lines(), others);
}

TEST_F(EventsTest, EventsAreToldInTheirOrderWhateverIsDoneWhileTheyAre) {
    fillRoot();
    int renamed = 0;
    client().subscribe([&](const Event& event) {
        if (std::holds_alternative<EntryChanged>(event) && renamed < 5) {
            client().rename(20, "z" + std::to_string(renamed++));
        }
    });
    client().rename(21, "y");
    settle();
    std::string name = "a";
    for (const EntryChanged& change : told<EntryChanged>()) {
        if (change.id == 20) {
            EXPECT_EQ(change.was.name, name);
            name = change.now.name;
        }
    }
    EXPECT_EQ(name, "z4");
    EXPECT_THAT(told<Outcome>(), SizeIs(6));
}

TEST_F(EventsTest, FrontEndThatOnlyListensHasThePictureInTheEnd) {
    fillRoot();
    std::map<unsigned long, std::string> shown{{10, "music"}, {20, "a"}, {21, "b"}};
    client().subscribe([&](const Event& event) {
        if (const auto* added = std::get_if<EntryAdded>(&event)) {
            EXPECT_TRUE(shown.emplace(added->id, added->now.name).second);
        } else if (const auto* removed = std::get_if<EntryRemoved>(&event)) {
            EXPECT_EQ(shown.erase(removed->id), 1U);
        } else if (const auto* changed = std::get_if<EntryChanged>(&event)) {
            EXPECT_EQ(shown[changed->id], changed->was.name);
            shown[changed->id] = changed->now.name;
        } else if (const auto* rekeyed = std::get_if<EntryIdChanged>(&event)) {
            // Not there if it was removed here meanwhile.
            if (auto node = shown.extract(rekeyed->oldId)) {
                node.key() = rekeyed->newId;
                shown.insert(std::move(node));
            }
        }
    });
    service.failNext("remove", Reason::NoPermission);
    service.failNext("rename 21", Reason::NoPermission);
    service.hold();
    const Action folder = client().createFolder(Root, "new");
    client().createDocument(folder.entryId(), "x");
    client().move(20, folder.entryId());
    client().rename(21, "c");
    client().remove(10);
    client().createDocument(Root, "b");
    client().remove(folder.entryId());
    service.release();
    settle();
    EXPECT_EQ(shown, (std::map<unsigned long, std::string>{
                         {10, "music"}, {20, "a"}, {21, "b"}, {1000, "new"}, {1001, "x"}}));
}

TEST_F(EventsTest, TotalThatNothingHereExplainsIsTold) {
    addDocuments(20, {"a", "b", "c", "d", "e", "f"});
    for (const std::uint32_t offset : {0U, 2U, 4U}) {
        list(Root, page(offset, 2));
    }
    EXPECT_THAT(told<ListingInvalidated>(), IsEmpty());
    addDocuments(30, {"g", "h", "i"});
    list(Root, reloaded(page(0, 2)));
    ASSERT_THAT(told<ListingInvalidated>(), SizeIs(1));
    EXPECT_EQ(lastTold<ListingInvalidated>().folderId, Root);
    EXPECT_EQ(list(Root, page(4, 2)).source, AnswerSource::Load);
    EXPECT_THAT(told<ListingInvalidated>(), SizeIs(1));
}

TEST_F(EventsTest, PageTellsOnceThatOtherListingsAreOutdated) {
    service.addFolder(10, Root, "folder");
    addDocuments(20, {"a", "b", "c", "d"});
    list(Root);
    list(Root, descending());
    list(10);
    for (const unsigned long id : {20UL, 21UL}) {
        service.editDocument(id, [](Nimra::Document& document) { document.name += "z"; });
    }
    for (const unsigned long id : {22UL, 23UL}) {
        service.editDocument(id, [](Nimra::Document& document) { document.parentId = 10; });
    }
    list(10, reloaded());
    ASSERT_THAT(told<ListingInvalidated>(), SizeIs(1));
    EXPECT_EQ(lastTold<ListingInvalidated>().folderId, Root);
    list(Root, reloaded());
    EXPECT_THAT(told<ListingInvalidated>(), SizeIs(2));
}

TEST_F(EventsTest, DescriptorIsReadableWhileAThrowingSubscriberHasLeftEventsUntold) {
    addDocuments(20, {"a"});
    list(Root);
    client().collect();
    bool throws = true;
    client().subscribe([&](const Event&) {
        if (std::exchange(throws, false)) {
            throw std::runtime_error("no");
        }
    });
    int heard = 0;
    client().subscribe([&](const Event&) { ++heard; });
    EXPECT_THROW(client().onRemoteDoubt(Root), std::runtime_error);
    EXPECT_EQ(heard, 0);
    awaitAnswer();
    client().collect();
    EXPECT_EQ(heard, 1);
    pollfd ready{client().fd(), POLLIN, 0};
    EXPECT_EQ(::poll(&ready, 1, 0), 0);
}

}  // namespace
}  // namespace Ormek::Testing
